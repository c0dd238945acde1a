// Scanner settings on copies of the generated templates: rows added when
// missing and in which order, nulls and empty texts, rows of other names
// left alone, values that survive closing and reopening, and the controls
// an AutoCAD document locks.
#include "linkage/parameters_table.h"

#include <optional>
#include <utility>

#include "linkage/scanner_options.h"
#include "schema/schema_database.h"
#include "schema_fixture.h"

using namespace linkage;
using namespace schematest;

namespace {

using Row = std::pair<std::string, std::optional<std::string>>;

// CADParameters as it is on disk, read without SchemaDatabase.
std::vector<Row> rowsOnDisk(const std::string& path) {
  const Dump dump = dumpFile(path);
  std::vector<Row> rows;
  for (const auto& r : dump.at("CADParameters")) {
    EXPECT_EQ(r.size(), 2u);
    std::optional<std::string> value;
    if (!jet::isNull(r.at(1))) value = std::get<std::string>(r.at(1));
    rows.emplace_back(std::get<std::string>(r.at(0)), value);
  }
  return rows;
}

class ParametersTableTest : public SchemaFiles {
 protected:
  std::string autoCadCopy(const std::string& name = "acad.csd") {
    return copyOf(VANTOR_ACAD_TEMPLATE, name);
  }
  // Changes the rows of CADParameters directly, as another program would.
  static void deleteRows(schema::SchemaDatabase& db, const std::string& criteria) {
    schema::Recordset rs = db.openRecordset("select * from CADParameters where " + criteria);
    while (rs.recordCount() > 0 && !rs.eof()) {
      rs.deleteRecord();
      rs.moveNext();
    }
  }
  static void addRow(schema::SchemaDatabase& db, const std::string& name, jet::Value value) {
    schema::Recordset rs = db.openRecordset("select * from CADParameters");
    rs.addNew();
    rs.setField("Name", name);
    rs.setField("Value", std::move(value));
    rs.update();
  }
  static void setRow(schema::SchemaDatabase& db, const std::string& name, jet::Value value) {
    schema::Recordset rs =
        db.openRecordset("select * from CADParameters where Name = '" + name + "'");
    rs.edit();
    rs.setField("Value", std::move(value));
    rs.update();
  }
};

TEST_F(ParametersTableTest, MissingRowsAreAddedInOrder) {
  const std::string path = templateCopy();
  {
    schema::SchemaDatabase db;
    db.open(path);
    deleteRows(db, "Name <> ''");
    ParametersTable params;
    params.Initialize(db);
    EXPECT_EQ(params.Version(), 1.0);
    EXPECT_EQ(params.CADextension(), "*.*");
    EXPECT_EQ(params.GraphicScannerClass(), "");
  }
  const std::vector<Row> created = {{"DBConnectString", std::nullopt},
                                    {"GraphicConnectString", std::nullopt},
                                    {"CADExtension", std::nullopt},
                                    {"GraphicScannerClass", std::nullopt},
                                    {"DbScannerClass", std::nullopt},
                                    {"INI", std::nullopt},
                                    {"Version", "1.0"}};
  EXPECT_EQ(rowsOnDisk(path), created);

  // Only the missing ones are added, after the rows already there, still in
  // the fixed order whatever order the deletions left.
  const std::string partial = templateCopy("partial.csd");
  {
    schema::SchemaDatabase db;
    db.open(partial);
    deleteRows(db, "Name = 'CADExtension'");
    deleteRows(db, "Name = 'GraphicConnectString'");
    addRow(db, "Other", std::string("kept"));
    ParametersTable params;
    params.Initialize(db);
    EXPECT_EQ(params.GraphicScannerClass(), "Torv.VektScanner");
    EXPECT_EQ(params.CADextension(), "*.*");
    params.setCADextension("*.dgn");
    params.setGraphicConnectString("host=drawings");
  }
  const std::vector<Row> completed = {{"DBConnectString", std::nullopt},
                                      {"GraphicScannerClass", "Torv.VektScanner"},
                                      {"DbScannerClass", "Torv.ODBCDatabaseScanner"},
                                      {"INI", std::nullopt},
                                      {"Version", "1.0"},
                                      {"Other", "kept"},
                                      {"GraphicConnectString", "host=drawings"},
                                      {"CADExtension", "*.dgn"}};
  EXPECT_EQ(rowsOnDisk(partial), completed);
  EXPECT_TRUE(faultsOnDisk(partial).empty());
}

TEST_F(ParametersTableTest, NullsReadAsDefaultsAndEmptyTextIsStoredAsNull) {
  const std::string path = templateCopy();
  {
    schema::SchemaDatabase db;
    db.open(path);
    setRow(db, "CADExtension", jet::Value());
    setRow(db, "Version", jet::Value());
    setRow(db, "GraphicScannerClass", jet::Value());
    ParametersTable params;
    params.Initialize(db);
    EXPECT_EQ(params.CADextension(), "*.*");
    EXPECT_EQ(params.Version(), 1.0);
    EXPECT_EQ(params.GraphicScannerClass(), "");
    EXPECT_EQ(params.DbScannerClass(), "Torv.ODBCDatabaseScanner");

    // A value stored by someone else is read afresh, and read as a number.
    setRow(db, "Version", std::string("2.5"));
    EXPECT_EQ(params.Version(), 2.5);
    setRow(db, "Version", std::string("two"));
    expectError([&] { params.Version(); }, schema::err::kConversionError);

    params.setDbScannerClass("");
    params.setCADextension("");
    params.setINI("C:\\scan\\vekt.ini");
    EXPECT_EQ(params.DbScannerClass(), "");
    EXPECT_EQ(params.CADextension(), "*.*");
  }
  const std::vector<Row> rows = rowsOnDisk(path);
  ASSERT_EQ(rows.size(), 7u);
  EXPECT_EQ(rows[2], Row("CADExtension", std::nullopt));
  EXPECT_EQ(rows[4], Row("DbScannerClass", std::nullopt));
  EXPECT_EQ(rows[5], Row("INI", "C:\\scan\\vekt.ini"));
  EXPECT_EQ(rows[6], Row("Version", "two"));
}

TEST_F(ParametersTableTest, RowsOfOtherNamesSurviveOpeningAndSaving) {
  const std::string path = templateCopy();
  {
    schema::SchemaDatabase db;
    db.open(path);
    addRow(db, "Other", std::string("x"));
    addRow(db, "Spare", jet::Value());
    addRow(db, "INI", std::string("second.ini"));  // only the first of a name counts
    ParametersTable params;
    params.Initialize(db);
    EXPECT_EQ(params.INI(), "");
    ScannerOptions options;
    options.fill(params, DocumentKind::kExisting);
    options.texts().scannerIniFile = "first.ini";
    options.texts().rdbConnectString = "DSN=parcels";
    options.save(params, "*.dgn");
    EXPECT_FALSE(params.isOpen());
  }
  const std::vector<Row> rows = rowsOnDisk(path);
  ASSERT_EQ(rows.size(), 10u);
  EXPECT_EQ(rows[0], Row("DBConnectString", "DSN=parcels"));
  EXPECT_EQ(rows[5], Row("INI", "first.ini"));
  EXPECT_EQ(rows[7], Row("Other", "x"));
  EXPECT_EQ(rows[8], Row("Spare", std::nullopt));
  EXPECT_EQ(rows[9], Row("INI", "second.ini"));
}

TEST_F(ParametersTableTest, SavedValuesAreReadAgainAfterReopening) {
  const std::string path = templateCopy();
  {
    schema::SchemaDatabase db;
    db.open(path);
    ParametersTable params;
    params.Initialize(db);
    ScannerOptions options;
    options.fill(params, DocumentKind::kExisting);
    EXPECT_EQ(options.texts().cadScannerClass, "Torv.VektScanner");
    options.texts().cadConnectString = "drawings";
    options.texts().scannerIniFile = "/opt/scan/vekt.ini";
    options.texts().rdbScannerClass = "Other.DatabaseScanner";
    options.texts().rdbConnectString = "DSN=parcels;UID=gis";
    options.save(params, "*.dgn; *.cel");
    db.close();
  }
  schema::SchemaDatabase db;
  db.open(path);
  ParametersTable params;
  params.Initialize(db);
  EXPECT_EQ(params.GraphicConnectString(), "drawings");
  EXPECT_EQ(params.INI(), "/opt/scan/vekt.ini");
  EXPECT_EQ(params.DbScannerClass(), "Other.DatabaseScanner");
  EXPECT_EQ(params.DbConnectString(), "DSN=parcels;UID=gis");
  EXPECT_EQ(params.GraphicScannerClass(), "Torv.VektScanner");
  EXPECT_EQ(params.CADextension(), "*.dgn; *.cel");
  EXPECT_EQ(params.Version(), 1.0);
  ScannerOptions options;
  options.fill(params, DocumentKind::kExisting);
  EXPECT_EQ(options.texts().rdbScannerClass, "Other.DatabaseScanner");
  EXPECT_EQ(options.texts().rdbConnectString, "DSN=parcels;UID=gis");

  // A second opening finds every row and adds none.
  params.CloseRecordSet();
  params.Initialize(db);
  db.close();
  EXPECT_EQ(rowsOnDisk(path).size(), 7u);
}

TEST_F(ParametersTableTest, AutoCadDocumentsLockTheDatabaseScanner) {
  const std::string path = autoCadCopy();
  schema::SchemaDatabase db;
  db.open(path);
  ParametersTable params;
  params.Initialize(db);
  EXPECT_EQ(params.CADextension(), "*.dwg; *.dxf");

  ScannerOptions options;
  options.texts().rdbScannerClass = "Shown.Before";
  options.fill(params, DocumentKind::kNewFromAutoCad);
  EXPECT_EQ(options.drawingScannerClass(), "Torv.AutoCADScanner");
  EXPECT_EQ(options.texts().rdbScannerClass, "Shown.Before");
  EXPECT_FALSE(options.databaseScannerEditable());
  EXPECT_FALSE(options.databaseLinkageEnabled());
  EXPECT_FALSE(options.cadScannerClassEditable());
  EXPECT_TRUE(options.primaryUniqueKeysEnabled());

  // Reopened as an existing document, the stored class decides.
  ScannerOptions existing;
  existing.fill(params, DocumentKind::kExisting);
  EXPECT_EQ(existing.drawingScannerClass(), "Torv.AutoCADScanner");
  EXPECT_EQ(existing.texts().rdbScannerClass, "Torv.ODBCDatabaseScanner");
  EXPECT_FALSE(existing.databaseScannerEditable());
  EXPECT_FALSE(existing.databaseLinkageEnabled());

  // The same options object, given a MicroStation document next, unlocks.
  params.setGraphicScannerClass("Torv.AutoCADScanner");
  options.fill(params, DocumentKind::kNewFromMicroStation);
  EXPECT_EQ(options.drawingScannerClass(), "Torv.VektScanner");
  EXPECT_EQ(options.texts().rdbScannerClass, "Torv.ODBCDatabaseScanner");
  EXPECT_TRUE(options.databaseScannerEditable());
  EXPECT_TRUE(options.databaseLinkageEnabled());
  EXPECT_FALSE(options.cadScannerClassEditable());

  params.setGraphicScannerClass("Vendor.OtherScanner");
  options.fill(params, DocumentKind::kNewFromOtherTemplate);
  EXPECT_EQ(options.drawingScannerClass(), "Vendor.OtherScanner");
  EXPECT_TRUE(options.databaseLinkageEnabled());

  options.clearConnection();
  EXPECT_EQ(options.texts().rdbConnectString, "");
  EXPECT_EQ(options.texts().scannerIniFile, "");
}

TEST_F(ParametersTableTest, AccessorsNeedAnOpenTable) {
  ParametersTable params;
  params.setCADextension("*.dgn");  // does nothing rather than fail
  expectError([&] { params.CADextension(); }, schema::err::kObjectInvalid);
  expectError([&] { params.setINI("x"); }, schema::err::kObjectInvalid);

  schema::SchemaDatabase db;
  db.open(templateCopy());
  params.Initialize(db);
  EXPECT_EQ(params.CADextension(), "*.dgn");
  params.CloseRecordSet();
  EXPECT_FALSE(params.isOpen());
  expectError([&] { params.Version(); }, schema::err::kObjectInvalid);
  params.setCADextension("*.cel");
  params.Initialize(db);
  EXPECT_EQ(params.CADextension(), "*.dgn");
}

}  // namespace
