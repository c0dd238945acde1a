// Key and linkage rows on copies of both templates and on documents whose
// rows the dialogs did not write: the wizard's questions, what the linkage
// grids list, and that rewriting a kind leaves exactly the rows shown,
// touches no other kind, and on failure changes nothing. The primary keys
// are tested through their dialog.
#include "linkage/keys_parameters.h"

#include <map>
#include <set>
#include <tuple>

#include "linkage/linkage_options.h"
#include "schema/schema_database.h"
#include "schema_fixture.h"

using namespace linkage;
using namespace schematest;

namespace {

// In no order: the engine may put a new row where a deleted one was.
using Rows = std::multiset<std::tuple<std::string, int32_t, std::optional<std::string>>>;

// KeysParameters as it is on disk, read without SchemaDatabase.
Rows keysOnDisk(const std::string& path) {
  auto db = jet::Database::openFile(path);
  const jet::TableDef& table = db->table("KeysParameters");
  std::map<std::string, size_t> at;
  for (size_t i = 0; i < table.columns.size(); ++i) at[table.columns[i].name] = i;
  Rows rows;
  for (const auto& r : db->readAll(table)) {
    std::optional<std::string> name;
    if (!jet::isNull(r.at(at["DbScaName"]))) name = std::get<std::string>(r.at(at["DbScaName"]));
    rows.emplace(std::get<std::string>(r.at(at["Type"])), std::get<int32_t>(r.at(at["AttrId"])),
                 name);
  }
  return rows;
}

void addKey(schema::SchemaDatabase& db, std::string_view type, int32_t attrId,
            std::optional<std::string> name = {}) {
  schema::Recordset rs = db.openRecordset("select * from KeysParameters");
  rs.addNew();
  rs.setField("Type", std::string(type));
  rs.setField("AttrId", attrId);
  if (name) rs.setField("DbScaName", *name);
  rs.update();
}

const Rows kMstnKeys = {{"GraphicFeature", 23, {}},
                        {"DbLinkedFeature", 27, {}},
                        {"DbLFeatSuppGrAttr", 26, {}},
                        {"GraphicToDbTableLink", 26, "ENTITYNUM"},
                        {"GraphicToDbRowLink", 27, "MSLINK"}};

class KeysParametersTest : public SchemaFiles {
 protected:
  void open(const std::string& path) {
    db_.open(path);
    attributes_ = db_.openRecordset("Select * from [GraphicAttributes]");
  }
  schema::SchemaDatabase db_;
  schema::Recordset attributes_;
};

TEST_F(KeysParametersTest, TheWizardsQuestionsOnBothTemplates) {
  open(templateCopy());
  EXPECT_EQ(keyAttributeIds(db_, false), std::vector<int32_t>{23});
  EXPECT_EQ(keyAttributeIds(db_, true), (std::vector<int32_t>{27, 26}));
  EXPECT_TRUE(isUniqueKey(db_, 23, false));
  EXPECT_FALSE(isUniqueKey(db_, 23, true));
  EXPECT_TRUE(isUniqueKey(db_, 27, true));
  EXPECT_EQ(tableLinkAttributeIds(db_), std::vector<int32_t>{26});
  EXPECT_TRUE(isTableLinkAttribute(db_, 26));
  EXPECT_FALSE(isTableLinkAttribute(db_, 27));
  db_.close();

  // No linkage rows: the empty recordset moves and finds nothing, quietly.
  open(copyOf(VANTOR_ACAD_TEMPLATE, "acad.csd"));
  KeysParameters keys;
  keys.Execute(db_, keysQuery(kGraphicToDbTableLink));
  keys.MoveFirst();
  keys.FindFirst("AttrId = 8");
  EXPECT_TRUE(keys.NoMatch() && keys.empty());
  EXPECT_EQ(keyAttributeIds(db_, false), std::vector<int32_t>{8});
  EXPECT_TRUE(keyAttributeIds(db_, true).empty());
}

TEST_F(KeysParametersTest, LinkageGridsShowTheStoredRowsAndSaveWhatTheyShow) {
  const std::string path = templateCopy();
  open(path);
  // Rows no dialog wrote: a null name, a row twice, a spatial attribute.
  addKey(db_, kGraphicToDbRowLink, 1);
  addKey(db_, kGraphicToDbRowLink, 1, "LEVEL_AGAIN");
  addKey(db_, kGraphicToDbTableLink, 28, "GEOMETRY");

  LinkageOptions options;
  options.load(db_, attributes_);
  auto& tables = options.rows(LinkageOptions::kTableLinks);
  auto& rows = options.rows(LinkageOptions::kRowLinks);
  ASSERT_EQ(tables.size(), 27u);  // AttrId 1 to 27; the spatial ones are not offered
  EXPECT_EQ(tables[0], (LinkageOptions::Row{false, "Level", "Level", 1}));
  EXPECT_EQ(tables[25], (LinkageOptions::Row{true, "EntityNumber", "ENTITYNUM", 26}));
  EXPECT_EQ(rows[0], (LinkageOptions::Row{true, "Level", "Level", 1}));  // the first row's Null
  EXPECT_EQ(rows[26], (LinkageOptions::Row{true, "OccurenceNumber", "MSLINK", 27}));

  tables[25].link = false;
  tables[1] = {true, "LevelName", "  ", 2};       // blank: stored as Null
  tables[2] = {true, "Color", " O'Brien's ", 3};  // a quote, untrimmed
  rows[0].dbScaName = "LEVEL";
  options.save(db_);
  db_.close();

  EXPECT_EQ(keysOnDisk(path), (Rows{{"GraphicFeature", 23, {}},
                                    {"DbLinkedFeature", 27, {}},
                                    {"DbLFeatSuppGrAttr", 26, {}},
                                    {"GraphicToDbTableLink", 2, {}},
                                    {"GraphicToDbTableLink", 3, " O'Brien's "},
                                    {"GraphicToDbRowLink", 1, "LEVEL"},
                                    {"GraphicToDbRowLink", 27, "MSLINK"}}));
}

TEST_F(KeysParametersTest, FailuresChangeNothing) {
  // A name longer than its column fails half way: the deleted rows return.
  const std::string path = templateCopy();
  open(path);
  LinkageOptions options;
  options.load(db_, attributes_);
  options.rows(LinkageOptions::kRowLinks)[3] = {true, "Weight", std::string(65, 'W'), 4};
  expectError([&] { options.save(db_); }, schema::err::kFieldTooSmall);
  EXPECT_EQ(db_.transactionLevel(), 0);
  db_.close();
  EXPECT_EQ(keysOnDisk(path), kMstnKeys);

  db_.open(corpusCopy("test2V2000.mdb"));  // no KeysParameters
  attributes_ = schema::Recordset();
  expectError([&] { options.load(db_, attributes_); }, schema::err::kTableNotFound);
  EXPECT_TRUE(options.rows(LinkageOptions::kTableLinks).empty());
}

}  // namespace
