// Recordsets over real files: names in any case, keys read right after
// AddNew, finding, moving around deleted rows, the read-only query shapes,
// and the errors the forms rely on.
#include "schema/recordset.h"

#include "schema/list_entries.h"
#include "schema/schema_database.h"
#include "schema_fixture.h"

using namespace schema;
using namespace schematest;

namespace {

class RecordsetTest : public SchemaFiles {
 protected:
  void SetUp() override {
    SchemaFiles::SetUp();
    if (IsSkipped()) return;
    path_ = templateCopy();
    db_.open(path_);
  }
  int32_t addDirectory(const std::string& path) {
    Recordset rs = db_.openRecordset("select * from Directories");
    rs.addNew();
    rs.setField("Path", path);
    auto key = std::get<int32_t>(rs.field("dirId"));
    rs.update();
    return key;
  }
  std::string path_;
  SchemaDatabase db_;
};

std::string text(const jet::Value& v) { return std::get<std::string>(v); }

TEST_F(RecordsetTest, NamesMatchWithoutRegardToCase) {
  Recordset maps = db_.openRecordset("select * from FEATUREMaps where feaid = 3");
  maps.addNew();
  maps.setField("FeaId", 3);
  maps.setField("MAPID", 7);
  maps.update();
  Recordset again = db_.openRecordset("Select * from [featuremaps] where FEAID = 3");
  ASSERT_EQ(again.recordCount(), 1);
  EXPECT_EQ(again.field("mapid"), jet::Value(7));
  EXPECT_EQ(db_.openRecordset("select * from FeatureMaps where feaId = 4").recordCount(), 0);

  expectError([&] { db_.openRecordset("select * from NoSuchTable"); }, err::kTableNotFound);
  EXPECT_EQ(db_.errors().at(0).number, err::kTableNotFound);
  EXPECT_NE(db_.errors()[0].description.find("NoSuchTable"), std::string::npos);
  expectError([&] { again.field("NoSuchField"); }, err::kItemNotFound);
  expectError([&] { db_.openRecordset("select * from Maps where Nme = 'x'"); },
              err::kTooFewParameters);
}

TEST_F(RecordsetTest, KeyReadAfterAddNewIsTheKeyTheRowKeeps) {
  Recordset features = db_.openRecordset("Select * from [Features]");
  std::vector<int32_t> keys;
  for (const char* name : {"Roads", "Rivers"}) {
    features.addNew();
    keys.push_back(std::get<int32_t>(features.field("FEAID")));
    features.setField("Name", std::string(name));
    expectError([&] { features.setField("feaId", keys.back() + 100); }, err::kFieldNotUpdatable);
    features.update();
    EXPECT_TRUE(faultsOnDisk(path_).empty());
  }
  EXPECT_GT(keys[1], keys[0]);
  EXPECT_EQ(features.recordCount(), 2);
  features.setBookmark(features.lastModified());
  EXPECT_EQ(features.field("feaId"), jet::Value(keys[1]));

  Recordset fresh = db_.openRecordset("select * from features");
  fresh.findFirst("Name = 'Rivers'");
  ASSERT_FALSE(fresh.noMatch());
  EXPECT_EQ(fresh.field("feaId"), jet::Value(keys[1]));
  EXPECT_EQ(fresh.field("dblinked"), jet::Value(false));
  EXPECT_TRUE(jet::isNull(fresh.field("csfid")));
  EXPECT_EQ(dumpFile(path_)["Features"][0][0], jet::Value(keys[0]));
}

TEST_F(RecordsetTest, DuplicateFeatureNameIsRefusedAndTheEditStays) {
  Recordset features = db_.openRecordset("select * from Features");
  features.addNew();
  features.setField("Name", std::string("Roads"));
  features.update();
  const Dump before = dumpFile(path_);

  features.addNew();
  int32_t key = std::get<int32_t>(features.field("feaId"));
  features.setField("Name", std::string("ROADS"));  // unique without regard to case
  expectError([&] { features.update(); }, err::kDuplicateKey);
  ASSERT_EQ(db_.errors().size(), 1u);
  EXPECT_EQ(db_.errors()[0].description, errorText(err::kDuplicateKey));
  EXPECT_EQ(dumpFile(path_), before) << "nothing written";
  EXPECT_EQ(features.editMode(), Recordset::EditMode::kAdd);
  features.setField("Name", std::string("Rivers"));
  features.update();
  EXPECT_EQ(features.recordCount(), 2);
  EXPECT_EQ(dumpFile(path_)["Features"].at(1)[0], jet::Value(key));

  // The same through Edit: the row keeps its old name.
  features.moveFirst();
  features.edit();
  features.setField("Name", std::string("Rivers"));
  expectError([&] { features.update(); }, err::kDuplicateKey);
  features.cancelUpdate();
  EXPECT_EQ(text(features.field("Name")), "Roads");
  EXPECT_TRUE(faultsOnDisk(path_).empty());
}

TEST_F(RecordsetTest, FindByCriteria) {
  int32_t a = addDirectory("/a"), b = addDirectory("/b");
  addDirectory("/a");
  Recordset dirs = db_.openRecordset("select * from Directories");
  dirs.findFirst("Path = '/A'");
  ASSERT_FALSE(dirs.noMatch());
  EXPECT_EQ(dirs.field("dirId"), jet::Value(a));
  dirs.findNext("Path = '/a'");
  ASSERT_FALSE(dirs.noMatch());
  EXPECT_GT(std::get<int32_t>(dirs.field("dirId")), b);
  dirs.findNext("Path = '/a'");
  EXPECT_TRUE(dirs.noMatch());
  EXPECT_GT(std::get<int32_t>(dirs.field("dirId")), b) << "current row unchanged";
  dirs.findFirst("dirId = " + std::to_string(b) + " and Path = '/b'");
  EXPECT_EQ(dirs.field("dirId"), jet::Value(b));

  // The program puts a name between quotes as it stands: a quote inside
  // fails as a syntax error of the criteria.
  expectError([&] { dirs.findFirst("Path = 'O'Brien'"); }, err::kCriteriaSyntax);
  EXPECT_EQ(db_.errors().at(0).number, err::kCriteriaSyntax);
  expectError([&] { dirs.findFirst("Pth = 'x'"); }, err::kUnknownFieldInExpression);
  expectError([&] { dirs.findFirst("Path = 3"); }, err::kTypeMismatchInCriteria);
  EXPECT_EQ(dirs.field("dirId"), jet::Value(b));

  Recordset none = db_.openRecordset("select * from Maps");
  none.findFirst("mapId = 1");
  EXPECT_TRUE(none.noMatch());
}

TEST_F(RecordsetTest, DeleteThenMoveNextContinuesWithTheFollowingRow) {
  for (const char* p : {"/1", "/2", "/3"}) addDirectory(p);
  Recordset dirs = db_.openRecordset("select * from Directories");
  Recordset other = db_.openRecordset("select * from Directories");
  dirs.moveNext();
  dirs.deleteRecord();
  expectError([&] { dirs.field("Path"); }, err::kRecordDeleted);
  EXPECT_FALSE(dirs.eof());
  dirs.moveNext();
  EXPECT_EQ(text(dirs.field("Path")), "/3");
  EXPECT_EQ(dirs.recordCount(), 2);
  dirs.deleteRecord();  // the last row: the next move reaches EOF
  dirs.moveNext();
  EXPECT_TRUE(dirs.eof());
  dirs.movePrevious();
  EXPECT_EQ(text(dirs.field("Path")), "/1");
  EXPECT_TRUE(faultsOnDisk(path_).empty());
  EXPECT_EQ(dumpFile(path_)["Directories"].size(), 1u);

  // Another recordset still counts the rows but reads them as deleted, and
  // finding skips them.
  other.moveLast();
  expectError([&] { other.field("Path"); }, err::kRecordDeleted);
  expectError([&] { other.edit(); }, err::kRecordDeleted);
  other.findPrevious("Path <> ''");
  ASSERT_FALSE(other.noMatch());
  EXPECT_EQ(text(other.field("Path")), "/1");
}

TEST_F(RecordsetTest, PositionsBookmarksAndMisuse) {
  Recordset empty = db_.openRecordset("select * from Directories");
  EXPECT_TRUE(empty.bof() && empty.eof());
  expectError([&] { empty.moveFirst(); }, err::kNoCurrentRecord);
  expectError([&] { empty.field("Path"); }, err::kNoCurrentRecord);
  expectError([&] { empty.update(); }, err::kUpdateWithoutAddNewOrEdit);
  expectError([&] { empty.cancelUpdate(); }, err::kUpdateWithoutAddNewOrEdit);
  expectError([&] { empty.setField("Path", std::string("x")); }, err::kUpdateWithoutAddNewOrEdit);

  for (const char* p : {"/1", "/2", "/3"}) addDirectory(p);
  Recordset dirs = db_.openRecordset("select * from Directories");
  EXPECT_FALSE(dirs.bof());
  EXPECT_EQ(text(dirs.field("Path")), "/1");
  dirs.moveNext();
  Recordset::Bookmark second = dirs.bookmark();
  dirs.moveLast();
  dirs.moveNext();
  EXPECT_TRUE(dirs.eof());
  expectError([&] { dirs.moveNext(); }, err::kNoCurrentRecord);
  expectError([&] { dirs.field("Path"); }, err::kNoCurrentRecord);
  dirs.setBookmark(second);
  EXPECT_EQ(text(dirs.field("Path")), "/2");
  dirs.moveFirst();
  dirs.movePrevious();
  EXPECT_TRUE(dirs.bof());
  expectError([&] { dirs.movePrevious(); }, err::kNoCurrentRecord);
  expectError([&] { dirs.setBookmark({999}); }, err::kInvalidBookmark);

  // A move drops a pending edit; a text longer than its column is refused
  // when set.
  dirs.moveFirst();
  EXPECT_EQ(dirs.fieldSize("Path"), 255);
  EXPECT_EQ(db_.openRecordset("select * from Features").fieldSize("name"), 64);
  dirs.edit();
  expectError([&] { dirs.setField("Path", std::string(256, 'x')); }, err::kFieldTooSmall);
  expectError([&] { dirs.setField("Path", 5); }, err::kConversionError);
  dirs.setField("Path", std::string("/changed"));
  dirs.moveNext();
  dirs.movePrevious();
  EXPECT_EQ(text(dirs.field("Path")), "/1");
}

TEST_F(RecordsetTest, KeyPast32767OverflowsInTheForms) {
  db_.close();
  {
    auto db = jet::Database::openFile(path_, true);
    const jet::TableDef& t = db->table("Directories");
    db->insertRow(t, {32767, std::string("/last")});
    db->flush();
  }
  db_.open(path_);
  Recordset dirs = db_.openRecordset("select * from Directories");
  EXPECT_EQ(toInteger16(std::get<int32_t>(dirs.field("dirId"))), 32767);
  dirs.addNew();
  int32_t key = std::get<int32_t>(dirs.field("dirId"));
  EXPECT_EQ(key, 32768);
  const ErrorList before = db_.errors();
  try {
    toInteger16(key);
    ADD_FAILURE() << "no overflow";
  } catch (const EngineError& e) {
    EXPECT_EQ(e.number(), err::kOverflow);
    EXPECT_FALSE(e.fromEngine());
  }
  EXPECT_EQ(db_.errors(), before) << "the program's own error is no engine error";
}

TEST_F(RecordsetTest, ListEntriesFollowTheRowsAndRefuseWideKeys) {
  Recordset empty = db_.openRecordset("select * from Directories");
  EXPECT_TRUE(listEntries(empty, "Path", "dirId").empty());

  const int32_t a = addDirectory("/maps/a");
  const int32_t b = addDirectory("/maps/b");
  {
    Recordset rs = db_.openRecordset("select * from Directories");
    rs.addNew();  // a folder row without a path shows as an empty entry
    const int32_t c = std::get<int32_t>(rs.field("dirId"));
    rs.update();
    const std::vector<ListEntry> entries = listEntries(rs, "path", "DIRID");
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0], (ListEntry{"/maps/a", static_cast<int16_t>(a)}));
    EXPECT_EQ(entries[1], (ListEntry{"/maps/b", static_cast<int16_t>(b)}));
    EXPECT_EQ(entries[2], (ListEntry{"", static_cast<int16_t>(c)}));
    EXPECT_TRUE(rs.eof());
  }
  db_.close();
  {
    auto db = jet::Database::openFile(path_, true);
    db->insertRow(db->table("Directories"), {40000, std::string("/far")});
    db->flush();
  }
  db_.open(path_);
  Recordset rs = db_.openRecordset("select * from Directories");
  expectError([&] { listEntries(rs, "Path", "dirId"); }, err::kOverflow);
}

TEST_F(RecordsetTest, DistinctAndJoinAreReadOnly) {
  Recordset maps = db_.openRecordset("select * from Maps");
  for (jet::Value csf : {jet::Value(2), jet::Value(1), jet::Value(), jet::Value(2)}) {
    maps.addNew();
    maps.setField("Name", std::string("m.dgn"));
    maps.setField("dirId", 1);
    maps.setField("csfid", csf);
    maps.update();
  }
  Recordset distinct = db_.openRecordset("select distinct csfid from maps");
  EXPECT_FALSE(distinct.updatable());
  ASSERT_EQ(distinct.recordCount(), 3);
  EXPECT_TRUE(jet::isNull(distinct.field("CSFID")));
  distinct.moveNext();
  EXPECT_EQ(distinct.field("csfid"), jet::Value(1));
  distinct.moveNext();
  EXPECT_EQ(distinct.field("csfid"), jet::Value(2));
  expectError([&] { distinct.addNew(); }, err::kReadOnly);

  Recordset join = db_.openRecordset(
      "select FeatureDefAttr.AttrId, TableName, Name, GDOType, DomainType from FeatureDefAttr, "
      "GraphicAttributes, DomainTypes where FeatureDefAttr.attrid = GraphicAttributes.attrid and "
      "FeatureDefAttr.DomainTypeId = DomainTypes.DomainTypeId");
  EXPECT_FALSE(join.updatable());
  // Every definable attribute of the template has its attribute and domain.
  Dump d = dumpFile(path_);
  ASSERT_EQ(join.recordCount(), static_cast<long>(d["FeatureDefAttr"].size()));
  join.findFirst("Name = 'Level'");
  ASSERT_FALSE(join.noMatch());
  EXPECT_EQ(text(join.field("DomainType")), "Range");
  EXPECT_EQ(text(join.field("TableName")), "LevelValues");
  expectError([&] { join.edit(); }, err::kReadOnly);
  expectError([&] { db_.openRecordset("select AttrId from FeatureDefAttr, GraphicAttributes"); },
              err::kAmbiguousField);
}

TEST_F(RecordsetTest, CorpusFilesReadAsTheEngineReadsThem) {
  db_.close();
  std::string path = corpusCopy("testV2000.mdb");
  db_.open(path);
  Recordset rs = db_.openRecordset("select * from table1 where c = 2");
  ASSERT_EQ(rs.recordCount(), 1);
  EXPECT_EQ(text(rs.field("a")), "abcdefg");
  EXPECT_EQ(rs.fieldSize("B"), 100);
  rs.edit();
  rs.setField("B", std::string("changed"));
  rs.update();
  EXPECT_TRUE(faultsOnDisk(path).empty());
  Recordset all = db_.openRecordset("select * from Table1");
  all.addNew();
  expectError([&] { all.update(); }, err::kIndexNull);  // A is the primary key
  all.setField("A", std::string("a"));
  expectError([&] { all.update(); }, err::kDuplicateKey);
  db_.close();
  EXPECT_EQ(text(dumpFile(path)["Table1"][0][1]), "changed");

  // A Jet 3 file is edited, compacted and kept as Jet 3; a character its
  // code page lacks is refused by name.
  const std::string jet3 = corpusCopy("testV1997.mdb");
  db_.open(jet3);
  Recordset old = db_.openRecordset("select * from Table1");
  EXPECT_EQ(old.recordCount(), 2);
  old.addNew();
  old.setField("A", std::string("new row"));
  old.setField("B", std::string("caf\u00E9 \u20AC"));
  old.update();
  old.findFirst("A = 'abcdefg'");
  old.edit();
  try {
    old.setField("B", std::string("\u03A9"));
    ADD_FAILURE() << "Omega taken for a Jet 3 file";
  } catch (const EngineError& e) {
    EXPECT_EQ(e.number(), err::kConversionError);
    EXPECT_NE(std::string(e.what()).find("U+03A9"), std::string::npos) << e.what();
  }
  old.cancelUpdate();
  old.deleteRecord();
  db_.compact();
  db_.close();
  auto back = jet::Database::openFile(jet3);
  EXPECT_EQ(back->format().version, jet::Version::kJet3);
  EXPECT_TRUE(faultsOnDisk(jet3).empty());
  const auto rows = dumpFile(jet3)["Table1"];
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(text(rows[1][1]), "caf\u00E9 \u20AC");
}

}  // namespace

TEST_F(RecordsetTest, FindFirstThroughAnIndexFindsWhatAScanFinds) {
  // "dirId = N" goes through the Maps index on dirId; "NOT (dirId <> N)"
  // reads every row. Both must land on the same row, also after rows were
  // moved to other folders, added through the recordset and deleted.
  std::vector<int32_t> dirs;
  for (int d = 0; d < 4; ++d) dirs.push_back(addDirectory("/data/d" + std::to_string(d)));
  Recordset maps = db_.openRecordset("Select * from [Maps]");
  for (int i = 0; i < 60; ++i) {
    maps.addNew();
    maps.setField("Name", "m" + std::to_string(i) + ".dgn");
    maps.setField("dirId", dirs[static_cast<size_t>(i * 7 % 4)]);
    maps.update();
  }
  Recordset other = db_.openRecordset("Select * from [Maps]");
  auto agree = [&](Recordset& rs) {
    for (int32_t d : dirs) {
      for (const std::string& extra : {std::string(), std::string(" and Name = 'M13.DGN'")}) {
        std::string n = std::to_string(d);
        rs.findFirst("dirId = " + n + extra);
        bool indexedMiss = rs.noMatch();
        auto indexed = indexedMiss ? jet::Value() : rs.field("mapId");
        rs.findFirst("NOT (dirId <> " + n + ")" + extra);
        ASSERT_EQ(rs.noMatch(), indexedMiss) << d << extra;
        if (!indexedMiss) EXPECT_EQ(rs.field("mapId"), indexed) << d << extra;
      }
    }
  };
  agree(other);
  // Move some rows to another folder and delete others through `maps`.
  maps.moveFirst();
  for (int i = 0; !maps.eof(); ++i) {
    if (i % 5 == 0) {
      maps.edit();
      maps.setField("dirId", dirs[0]);
      maps.update();
    } else if (i % 7 == 0) {
      maps.deleteRecord();
    }
    maps.moveNext();
  }
  agree(other);
  agree(maps);
  // A value the column cannot hold is reported as the plain search would.
  expectError([&] { other.findFirst("dirId = 'x'"); }, 3464);
}
