// The open database: its lock file, how opening fails, transactions and
// what reaches the disk when.
#include "schema/schema_database.h"

#include <fstream>

#include "schema_fixture.h"

using namespace schema;
using namespace schematest;

namespace {

class SchemaDatabaseTest : public SchemaFiles {};

std::string readAll(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

// Adds a row to a table through a recordset; returns its first field (the
// AutoNumber key of the tables that have one).
int32_t add(SchemaDatabase& db, const std::string& table,
            std::vector<std::pair<std::string, jet::Value>> fields) {
  Recordset rs = db.openRecordset("select * from " + table);
  rs.addNew();
  for (auto& [name, value] : fields) rs.setField(name, value);
  jet::Value first = rs.field(rs.fieldNames()[0]);
  rs.update();
  return std::holds_alternative<int32_t>(first) ? std::get<int32_t>(first) : 0;
}

TEST_F(SchemaDatabaseTest, LockFileHeldWhileOpenAndRemovedOnClose) {
  std::string path = templateCopy("CSD1A2B.tmp");
  std::string lock = SchemaDatabase::lockFilePath(path);
  EXPECT_EQ(lock, (dir_ / "CSD1A2B.ldb").string());

  SchemaDatabase db;
  db.open(path);
  ASSERT_TRUE(std::filesystem::exists(lock));
  EXPECT_NE(readAll(lock).find(' '), std::string::npos) << "pid and host";

  // A second program (or a second database object) is refused while the
  // first runs, and the first's lock and work are untouched.
  SchemaDatabase other;
  expectError([&] { other.open(path); }, err::kCannotOpenFile);
  EXPECT_FALSE(other.isOpen());
  ASSERT_FALSE(other.errors().empty());
  EXPECT_EQ(other.errors()[0].number, err::kCannotOpenFile);
  EXPECT_TRUE(std::filesystem::exists(lock));
  add(db, "Directories", {{"Path", std::string("/maps")}});

  db.close();
  EXPECT_FALSE(std::filesystem::exists(lock));
  EXPECT_TRUE(faultsOnDisk(path).empty());
  db.close();  // closing twice is harmless

  // A lock left by a process that is gone is taken over; one from another
  // host cannot be judged and is respected.
  std::string host = readAll("/proc/sys/kernel/hostname");
  host = host.substr(0, host.find('\n'));
  writeFile(lock, "2147483646 " + host + "\n");
  other.open(path);
  EXPECT_NE(readAll(lock).rfind("2147483646", 0), 0u);
  other.close();
  writeFile(lock, "1 some-other-host\n");
  expectError([&] { other.open(path); }, err::kCannotOpenFile);
  EXPECT_TRUE(std::filesystem::exists(lock)) << "another host's lock is left alone";
}

TEST_F(SchemaDatabaseTest, OpenFailuresNameTheFileAndLeaveNoLock) {
  SchemaDatabase db;
  expectError([&] { db.open((dir_ / "missing.csd").string()); }, err::kFileNotFound);
  expectError([&] { db.open((dir_ / "no-dir" / "x.csd").string()); }, err::kInvalidPath);

  std::string junk = (dir_ / "junk.csd").string();
  writeFile(junk, std::string(8192, 'x'));
  expectError([&] { db.open(junk); }, err::kUnrecognizedFormat);
  EXPECT_FALSE(std::filesystem::exists(SchemaDatabase::lockFilePath(junk)));
  ASSERT_FALSE(db.errors().empty());
  EXPECT_NE(db.errors()[0].description.find(junk), std::string::npos);

  // Once open, a second open on the same object is refused.
  std::string path = templateCopy();
  db.open(path);
  expectError([&] { db.open(path); }, err::kInvalidOperation);
  EXPECT_TRUE(db.isOpen());
}

TEST_F(SchemaDatabaseTest, ChangesOutsideATransactionReachTheDiskAtOnce) {
  std::string path = templateCopy();
  SchemaDatabase db;
  db.open(path);
  int32_t dir = add(db, "Directories", {{"Path", std::string("/maps")}});
  Dump onDisk = dumpFile(path);
  ASSERT_EQ(onDisk["Directories"].size(), 1u);
  EXPECT_EQ(onDisk["Directories"][0][0], jet::Value(dir));
  EXPECT_TRUE(faultsOnDisk(path).empty());
}

TEST_F(SchemaDatabaseTest, RollbackRestoresEveryTableAndCommitWrites) {
  std::string path = templateCopy();
  SchemaDatabase db;
  db.open(path);
  expectError([&] { db.commitTrans(); }, err::kNoTransaction);
  expectError([&] { db.rollback(); }, err::kNoTransaction);
  EXPECT_EQ(db.errors()[0].number, err::kNoTransaction);

  int32_t dir = add(db, "Directories", {{"Path", std::string("/maps")}});
  add(db, "Maps", {{"Name", std::string("a.dgn")}, {"dirId", dir}});
  const Dump before = dumpFile(path);

  // A mix of inserts, edits and deletes in several tables, some of it in a
  // nested transaction, is undone to the last row.
  db.beginTrans();
  int32_t taken = add(db, "Features", {{"Name", std::string("Roads")}});
  add(db, "FeatureMaps", {{"feaId", taken}, {"mapId", 1}});
  db.beginTrans();
  add(db, "LevelValues", {{"feaId", taken}, {"minVal", 1}, {"maxVal", 9}});
  Recordset maps = db.openRecordset("select * from Maps");
  maps.edit();
  maps.setField("Name", std::string("renamed.dgn"));
  maps.update();
  db.commitTrans();
  Recordset dirs = db.openRecordset("select * from Directories");
  dirs.moveLast();
  dirs.deleteRecord();
  Recordset params = db.openRecordset("select * from CADParameters where Name = 'Version'");
  params.edit();
  params.setField("Value", std::string("2.0"));
  params.update();
  EXPECT_EQ(dumpFile(path), before) << "nothing reaches the disk inside a transaction";
  Recordset features = db.openRecordset("select * from Features");
  features.moveLast();
  db.rollback();
  EXPECT_EQ(db.transactionLevel(), 0);
  EXPECT_EQ(dumpFile(path), before);
  EXPECT_TRUE(faultsOnDisk(path).empty());
  // A row added in the undone stretch reads as deleted, even once a new
  // row takes its place in the file.
  add(db, "Features", {{"Name", std::string("Rivers")}});
  expectError([&] { features.field("Name"); }, err::kRecordDeleted);

  // AutoNumbers handed out inside the rolled-back transaction stay used,
  // as in Jet: the next row gets a key past them.
  int32_t next = add(db, "Features", {{"Name", std::string("Roads")}});
  EXPECT_GT(next, taken);

  // An inner rollback undoes only its own part; the outer commit writes
  // the rest.
  db.beginTrans();
  add(db, "Directories", {{"Path", std::string("/kept")}});
  db.beginTrans();
  add(db, "Directories", {{"Path", std::string("/dropped")}});
  db.rollback();
  EXPECT_EQ(dumpFile(path)["Directories"].size(), 1u);
  db.commitTrans();
  auto rows = dumpFile(path)["Directories"];
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[1][1], jet::Value(std::string("/kept")));
  EXPECT_TRUE(faultsOnDisk(path).empty());
}

TEST_F(SchemaDatabaseTest, WizardKeepsTheFeatureRowPendingAcrossItsChildRows) {
  std::string path = templateCopy();
  SchemaDatabase db;
  db.open(path);
  Recordset features = db.openRecordset("Select * from [Features]");
  auto run = [&](const std::string& name, bool finish) {
    db.beginTrans();
    features.addNew();
    int32_t feaId = std::get<int32_t>(features.field("feaId"));
    features.setField("Name", "Feature" + std::to_string(feaId));
    add(db, "FEATUREMaps", {{"feaid", feaId}, {"Mapid", 1}});
    add(db, "FeatureAttributes", {{"FeaId", feaId}, {"attrid", 26}});
    features.setField("Name", name);
    if (finish) {
      features.update();
      db.commitTrans();
    } else {
      features.cancelUpdate();
      db.rollback();
    }
    return feaId;
  };
  const Dump empty = dumpFile(path);
  run("Cancelled", false);
  EXPECT_EQ(dumpFile(path), empty) << "a cancelled wizard leaves no row behind";

  int32_t kept = run("Roads", true);
  Dump after = dumpFile(path);
  ASSERT_EQ(after["Features"].size(), 1u);
  EXPECT_EQ(after["Features"][0][0], jet::Value(kept));
  EXPECT_EQ(after["Features"][0][1], jet::Value(std::string("Roads")));
  EXPECT_EQ(after["FeatureMaps"], (std::vector<std::vector<jet::Value>>{{kept, 1}}));
  EXPECT_EQ(after["FeatureAttributes"], (std::vector<std::vector<jet::Value>>{{kept, 26}}));
  EXPECT_TRUE(faultsOnDisk(path).empty());
}

TEST_F(SchemaDatabaseTest, CloseRollsBackAndEndsItsRecordsets) {
  std::string path = templateCopy();
  const Dump before = dumpFile(path);
  SchemaDatabase db;
  db.open(path);
  Recordset rs = db.openRecordset("select * from Directories");
  db.beginTrans();
  add(db, "Directories", {{"Path", std::string("/never")}});
  db.close();
  EXPECT_EQ(dumpFile(path), before);
  EXPECT_FALSE(rs.isOpen());
  expectError([&] { rs.moveFirst(); }, err::kObjectInvalid);
  db.open(path);
  expectError([&] { rs.field("Path"); }, err::kObjectInvalid);  // a recordset of the old session
}

}  // namespace

TEST_F(SchemaDatabaseTest, CompactShrinksTheFileKeepsItsRowsAndEndsItsRecordsets) {
  std::string path = templateCopy();
  const auto empty = std::filesystem::file_size(path);
  SchemaDatabase db;
  db.open(path);
  db.beginTrans();
  const int32_t first = add(db, "Directories", {{"Path", std::string("/d0")}});
  for (int i = 1; i < 3000; ++i) add(db, "Directories", {{"Path", "/d" + std::to_string(i)}});
  db.commitTrans();
  Recordset rs = db.openRecordset("select * from Directories where Path <> '/d7'");
  db.beginTrans();
  for (rs.moveFirst(); !rs.eof(); rs.moveNext()) rs.deleteRecord();
  expectError([&] { db.compact(); }, err::kInvalidOperation);
  db.commitTrans();
  const Dump before = dumpFile(path);
  const auto grown = std::filesystem::file_size(path);

  db.compact();
  EXPECT_LT(std::filesystem::file_size(path), grown);
  EXPECT_LE(std::filesystem::file_size(path), empty + 4096);  // the one row left needs a page
  EXPECT_EQ(dumpFile(path), before);
  EXPECT_EQ(faultsOnDisk(path), std::vector<std::string>{});
  EXPECT_TRUE(std::filesystem::exists(SchemaDatabase::lockFilePath(path)));
  expectError([&] { rs.moveFirst(); }, err::kObjectInvalid);
  // The counter goes on where it was.
  EXPECT_EQ(add(db, "Directories", {{"Path", std::string("/after")}}), first + 3000);

  // A file it must not compact (here cut short behind its back) is left as
  // it is, and the database stays open.
  db.close();
  std::filesystem::resize_file(path, std::filesystem::file_size(path) - 100);
  const auto cut = std::filesystem::file_size(path);
  db.open(path);
  expectError([&] { db.compact(); }, err::kUnrecognizedFormat);
  EXPECT_EQ(std::filesystem::file_size(path), cut);
  EXPECT_TRUE(db.isOpen());
  EXPECT_EQ(db.openRecordset("select * from Directories").recordCount(), 2);
}
