// Scanner settings on copies of the generated templates: rows added when
// missing and in which order, nulls and empty texts, rows of other names
// left alone, values that survive closing and reopening, and the classes
// and controls each kind of document gets.
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

TEST_F(ParametersTableTest, MissingRowsAreAddedInOrderAndOthersLeftAlone) {
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
  // the fixed order whatever order the deletions left. Rows of other names
  // stay, and of two rows of a name only the first counts.
  const std::string partial = templateCopy("partial.csd");
  {
    schema::SchemaDatabase db;
    db.open(partial);
    deleteRows(db, "Name = 'CADExtension'");
    deleteRows(db, "Name = 'GraphicConnectString'");
    addRow(db, "Other", std::string("kept"));
    addRow(db, "Spare", jet::Value());
    addRow(db, "INI", std::string("second.ini"));
    ParametersTable params;
    params.Initialize(db);
    EXPECT_EQ(params.GraphicScannerClass(), "Torv.VektScanner");
    EXPECT_EQ(params.INI(), "");
    params.setCADextension("*.dgn");
    params.setGraphicConnectString("host=drawings");
    params.setINI("first.ini");
    params.setDbScannerClass("");  // empty text is stored as Null

    // The version is read afresh each time, as a number; Null reads 1.0.
    setRow(db, "Version", jet::Value());
    EXPECT_EQ(params.Version(), 1.0);
    setRow(db, "Version", std::string("2.5"));
    EXPECT_EQ(params.Version(), 2.5);
    setRow(db, "Version", std::string("two"));
    expectError([&] { params.Version(); }, schema::err::kConversionError);
  }
  const std::vector<Row> completed = {{"DBConnectString", std::nullopt},
                                      {"GraphicScannerClass", "Torv.VektScanner"},
                                      {"DbScannerClass", std::nullopt},
                                      {"INI", "first.ini"},
                                      {"Version", "two"},
                                      {"Other", "kept"},
                                      {"Spare", std::nullopt},
                                      {"INI", "second.ini"},
                                      {"GraphicConnectString", "host=drawings"},
                                      {"CADExtension", "*.dgn"}};
  EXPECT_EQ(rowsOnDisk(partial), completed);
  EXPECT_TRUE(faultsOnDisk(partial).empty());
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
    options.texts().cadConnectString = "drawings";
    options.texts().scannerIniFile = "/opt/scan/vekt.ini";
    options.texts().rdbScannerClass = "Other.DatabaseScanner";
    options.texts().rdbConnectString = "DSN=parcels;UID=gis";
    options.save(params, "*.dgn; *.cel");
    EXPECT_FALSE(params.isOpen());
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

  // A second opening finds every row and adds none.
  params.CloseRecordSet();
  params.Initialize(db);
  db.close();
  EXPECT_EQ(rowsOnDisk(path).size(), 7u);
}

// The drawing scanner class, and with it the locked database controls,
// follows how the document came to be.
TEST_F(ParametersTableTest, TheDocumentKindDecidesTheScannerClasses) {
  schema::SchemaDatabase db;
  db.open(copyOf(VANTOR_ACAD_TEMPLATE, "acad.csd"));
  ParametersTable params;
  params.Initialize(db);
  EXPECT_EQ(params.CADextension(), "*.dwg; *.dxf");

  // A new AutoCAD document keeps the database scanner shown before.
  ScannerOptions options;
  options.texts().rdbScannerClass = "Shown.Before";
  options.fill(params, DocumentKind::kNewFromAutoCad);
  EXPECT_EQ(options.drawingScannerClass(), "Torv.AutoCADScanner");
  EXPECT_EQ(options.texts().rdbScannerClass, "Shown.Before");
  EXPECT_FALSE(options.databaseScannerEditable());
  EXPECT_FALSE(options.databaseLinkageEnabled());

  // An existing document shows what is stored.
  params.setDbScannerClass("Stored.DatabaseScanner");
  params.setDbConnectString("DSN=parcels");
  params.setGraphicConnectString("drawings");
  params.setINI("vekt.ini");
  options.fill(params, DocumentKind::kExisting);
  EXPECT_EQ(options.drawingScannerClass(), "Torv.AutoCADScanner");
  EXPECT_EQ(options.texts().rdbScannerClass, "Stored.DatabaseScanner");
  EXPECT_EQ(options.texts().rdbConnectString, "DSN=parcels");
  EXPECT_EQ(options.texts().cadConnectString, "drawings");
  EXPECT_EQ(options.texts().scannerIniFile, "vekt.ini");

  // A new MicroStation document takes its own classes whatever is stored.
  options.fill(params, DocumentKind::kNewFromMicroStation);
  EXPECT_EQ(options.drawingScannerClass(), "Torv.VektScanner");
  EXPECT_EQ(options.texts().rdbScannerClass, "Torv.ODBCDatabaseScanner");
  EXPECT_TRUE(options.databaseScannerEditable());
  EXPECT_TRUE(options.databaseLinkageEnabled());

  params.setGraphicScannerClass("Vendor.OtherScanner");
  options.fill(params, DocumentKind::kNewFromOtherTemplate);
  EXPECT_EQ(options.drawingScannerClass(), "Vendor.OtherScanner");
  EXPECT_EQ(options.texts().rdbScannerClass, "Stored.DatabaseScanner");

  options.clearConnection();
  EXPECT_EQ(options.texts().rdbConnectString, "");
  EXPECT_EQ(options.texts().scannerIniFile, "");
  EXPECT_EQ(options.texts().cadConnectString, "drawings");
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
