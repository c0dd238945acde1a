// The Feature Definition Wizard's logic and the feature list's delete on a
// copy of the MicroStation template holding two folders, a coordinate
// system file and three maps, with the user's answers scripted. What the
// wizard wrote is read back through a fresh engine after each road.
#include "features/feature_wizard.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QFile>
#include <array>

#include "document/scripted_prompter.h"
#include "features/feature_list.h"
#include "features/feature_name.h"
#include "schema_fixture.h"

using namespace features;
using document::Answer;
using Rows = std::vector<std::vector<jet::Value>>;

void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

namespace {

const std::array<const char*, 6> kTables = {"Features",          "Maps",
                                            "Directories",       "CoordinateSystemFiles",
                                            "GraphicAttributes", "FeatureDefAttr"};

QByteArray sha1(const std::string& path) {
  QFile f(QString::fromStdString(path));
  f.open(QIODevice::ReadOnly);
  return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha1);
}

// Each case runs on the MicroStation template (Jet 4) and on the same
// tables in an Access 97 (Jet 3) file.
class Wizard : public schematest::SchemaFiles, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    SchemaFiles::SetUp();
    if (IsSkipped()) return;
    path_ = copyOf(GetParam(), "work.csd");
    db_.open(path_);
    add("Directories", {{"Path", std::string("/srv/gis/roads")}});
    add("Directories", {{"Path", std::string("/srv/gis/hydro")}});
    add("CoordinateSystemFiles", {{"Name", std::string("utm33n.csf")}, {"dirId", 1}});
    add("Maps", {{"Name", std::string("north.dgn")}, {"dirId", 1}, {"csfid", 1}});
    add("Maps", {{"Name", std::string("south.dgn")}, {"dirId", 1}});
    add("Maps", {{"Name", std::string("rivers.dgn")}, {"dirId", 2}});
    reopen();
  }
  // Whatever a case wrote, the file stays sound in its own format.
  void TearDown() override {
    if (!IsSkipped()) {
      rs_ = {};
      db_.close();
      EXPECT_EQ(schematest::faultsOnDisk(path_), std::vector<std::string>());
    }
    SchemaFiles::TearDown();
  }

  void add(const char* table, std::initializer_list<std::pair<const char*, jet::Value>> fields) {
    schema::Recordset rs = db_.openRecordset(std::string("select * from ") + table);
    rs.addNew();
    for (const auto& [name, value] : fields) rs.setField(name, value);
    rs.update();
  }

  // The main window's six recordsets, opened afresh as after a wizard run.
  void reopen() {
    for (size_t i = 0; i < kTables.size(); ++i)
      rs_[i] = db_.openRecordset(std::string("Select * from [") + kTables[i] + "]");
  }

  std::unique_ptr<FeatureWizard> open(const QString& name = {}) {
    reopen();
    auto w = std::make_unique<FeatureWizard>(
        db_, WizardRecordsets{rs_[0], rs_[1], rs_[2], rs_[3], rs_[4], rs_[5]}, prompter_);
    w->load(name, "Torv.VektScanner");
    return w;
  }

  // A new class filled in on every step but not finished: one geometry
  // exposed and made primary, definition attributes with their values, maps.
  std::unique_ptr<FeatureWizard> filled(
      const QString& name, int cs, const char* geometry,
      const std::vector<std::pair<const char*, const char*>>& definition, const QStringList& maps) {
    auto w = open();
    w->setName(name);
    w->setCoordinateSystem(cs);
    EXPECT_TRUE(w->next());
    EXPECT_TRUE(w->exposed().add(geometry));
    w->exposed().checkGeometry(0);
    for (const auto& [attribute, values] : definition) EXPECT_TRUE(w->definition().add(attribute));
    for (size_t i = 0; i < definition.size(); ++i)
      w->definition().setValues(i, definition[i].second);
    for (const QString& map : maps) EXPECT_TRUE(w->maps().add(map));
    return w;
  }

  // A class "Roads" on the two maps of /srv/gis/roads, exposing ElementId
  // and LineGeometry, defined by Level and LevelName.
  void createRoads() {
    ASSERT_EQ(filled("Roads", 1, "LineGeometry",
                     {{"Level", "10 - 19,30-40"}, {"LevelName", "'Main road','O''Brien''s'"}},
                     {"/srv/gis/roads/north.dgn", "/srv/gis/roads/south.dgn"})
                  ->finish(),
              FeatureWizard::Outcome::kFinished);
  }

  Rows rows(const std::string& table) { return schematest::dumpFile(path_)[table]; }

  std::string path_;
  schema::SchemaDatabase db_;
  std::array<schema::Recordset, 6> rs_;
  document::ScriptedPrompter prompter_;
};

}  // namespace

TEST(FeatureName, WindowsLettersDigitsAndUnderscoreOnly) {
  EXPECT_EQ(nameCheck("Roads_12"), "");
  EXPECT_EQ(nameCheck(""), "  Feature must have a name.\r\n");
  EXPECT_EQ(nameCheck("Main roads"),
            "  Invalid character.  Spaces not allowed in feature names.\r\n");
  EXPECT_EQ(nameCheck("12Roads"), "  Feature name cannot start with a number");
  for (QChar c : QStringLiteral("aZ9_\u00e9\u00c6\u00aa\u0161\u0192"))
    EXPECT_FALSE(isSpecialCharacter(c)) << int(c.unicode());
  for (QChar c : QStringLiteral("-. '\u00b2\u20ac\u00d7\u0107\u4e2d\u00a0"))
    EXPECT_TRUE(isSpecialCharacter(c)) << int(c.unicode());

  EXPECT_EQ(nameTyped("Road ", "").text, "Road");
  EXPECT_EQ(nameTyped("Road ", "").message, 5020);
  EXPECT_EQ(nameTyped("Road-", "Road").message, 5056);
  // The stored name stands while it is unchanged, typed or left.
  EXPECT_EQ(nameTyped("Road-s", "Road-s").message, 0);
  EXPECT_FALSE(nameLeft("Road-s", "Road-s").keepFocus);
  EXPECT_EQ(nameLeft("Ro-ad", "Road").message, 5056);
  EXPECT_TRUE(nameLeft("", "").keepFocus);
  EXPECT_EQ(nameLeft("", "").message, 0);
}

INSTANTIATE_TEST_SUITE_P(Formats, Wizard,
                         ::testing::Values(VANTOR_MSTN_TEMPLATE, VANTOR_JET3_SCHEMA),
                         [](const auto& info) { return info.index ? "Jet3" : "Jet4"; });

TEST_P(Wizard, ANewClassIsWrittenWithAllItsRows) {
  auto w = open();
  // Finish on the empty class lists every step's problem.
  EXPECT_EQ(w->finish(), FeatureWizard::Outcome::kStay);
  w->setName("Roads");
  w->setCoordinateSystem(1);
  EXPECT_EQ(w->coordinateSystemText(), "/srv/gis/roads/utm33n.csf");
  ASSERT_TRUE(w->next());  // the graphic-only key comes by itself
  EXPECT_EQ(w->exposed().selected(), QStringList{"ElementId"});
  ASSERT_TRUE(w->exposed().add("LineGeometry"));
  ASSERT_TRUE(w->exposed().add("Color"));
  EXPECT_FALSE(w->next());  // no primary geometry yet
  w->exposed().checkGeometry(0);
  ASSERT_TRUE(w->next());
  EXPECT_FALSE(w->definition().add("TextNodeString"));  // a Memo without a value table
  ASSERT_TRUE(w->definition().add("Level"));
  ASSERT_TRUE(w->definition().add("LevelName"));
  ASSERT_TRUE(w->next());
  w->definition().setValues(0, "5 - 1");
  w->definition().setValues(1, "Main road");
  EXPECT_FALSE(w->next());
  w->definition().setValues(0, "10 - 19,30-40");
  w->definition().setValues(1, "'Main road','O''Brien''s'");
  ASSERT_TRUE(w->next());
  w->back();
  ASSERT_TRUE(w->next());  // the values are written again, not twice
  ASSERT_TRUE(w->maps().add("/srv/gis/roads/north.dgn"));
  ASSERT_TRUE(w->maps().add("/srv/gis/hydro/rivers.dgn"));
  EXPECT_EQ(w->finish(), FeatureWizard::Outcome::kFinished);
  EXPECT_EQ(db_.transactionLevel(), 0);
  EXPECT_EQ(prompter_.messages(),
            (QStringList{"Errors detected unable to write feature.\r\n"
                         "  Primary geometry is a required field.\r\n\r\n"
                         "  Definition attributes must be defined for the feature.\r\n\r\n"
                         "  Maps must be defined for the feature.\r\n\r\n",
                         "  Primary geometry is a required field.\r\n",
                         "Table not defined for attribute.",
                         "  Invalid values: Attribute Level:\r\n"
                         "  LevelName : Enter the string, within single quotes \r\n"}));

  EXPECT_EQ(rows("Features"), (Rows{{1, std::string("Roads"), 1, false, 29}}));
  EXPECT_EQ(rows("FeatureAttributes"), (Rows{{1, 23}, {1, 29}, {1, 3}}));
  EXPECT_EQ(rows("FeatureDefinition"), (Rows{{1, 1}, {1, 2}}));
  EXPECT_EQ(rows("LevelValues"), (Rows{{1, 10, 19}, {1, 30, 40}}));
  EXPECT_EQ(rows("LevelNameValues"),
            (Rows{{1, std::string("Main road")}, {1, std::string("O'Brien's")}}));
  EXPECT_EQ(rows("FeatureMaps"), (Rows{{1, 1}, {1, 3}}));

  // Opened again, it shows what was written, values as typed back.
  auto again = open("Roads");
  EXPECT_EQ(again->coordinateSystemText(), "/srv/gis/roads/utm33n.csf");
  EXPECT_EQ(again->exposed().geometry().front().checked, true);
  EXPECT_EQ(again->definition().rows()[1].values, "'Main road','O''Brien''s'");
  EXPECT_EQ(again->maps().loaded(),
            (QStringList{"/srv/gis/roads/north.dgn", "/srv/gis/hydro/rivers.dgn"}));
}

TEST_P(Wizard, CancelLeavesTheFileAsItWas) {
  createRoads();
  const QByteArray before = sha1(path_);
  const schematest::Dump rowsBefore = schematest::dumpFile(path_);
  auto w = open("Roads");
  w->setName("Streets");
  ASSERT_TRUE(w->exposed().add("Color"));
  ASSERT_TRUE(w->definition().remove("Level"));
  ASSERT_TRUE(w->definition().add("Color"));
  w->definition().setValues(0, "'Lane'");
  w->definition().setValues(1, "1,2");
  EXPECT_EQ(w->definition().valueCheck(), "");
  ASSERT_TRUE(w->maps().remove("/srv/gis/roads/north.dgn"));
  ASSERT_TRUE(w->maps().add("/srv/gis/hydro/rivers.dgn"));
  w->cancel();
  EXPECT_EQ(db_.transactionLevel(), 0);
  EXPECT_EQ(sha1(path_), before);

  // A new class that is cancelled leaves no row behind.
  auto fresh = open();
  ASSERT_TRUE(fresh->next());
  ASSERT_TRUE(fresh->maps().add("/srv/gis/roads/south.dgn"));
  fresh.reset();  // closed without Finish or Cancel: the same
  EXPECT_EQ(schematest::dumpFile(path_), rowsBefore);
}

TEST_P(Wizard, ADuplicateNameKeepsTheWizardOpen) {
  createRoads();
  auto w = filled("Roads", 0, "AreaGeometry", {{"Color", "3"}}, {"/srv/gis/roads/south.dgn"});
  EXPECT_EQ(w->finish(), FeatureWizard::Outcome::kStay);
  EXPECT_EQ(prompter_.messages().last(), "Feature name already defined.");
  EXPECT_TRUE(w->isOpen());
  w->setName("Parcels");
  EXPECT_EQ(w->finish(), FeatureWizard::Outcome::kFinished);
  EXPECT_EQ(rows("Features").size(), 2u);
  EXPECT_EQ(rows("Features")[1][1], jet::Value(std::string("Parcels")));
  EXPECT_EQ(rows("ColorValues"), (Rows{{2, 3}}));
}

TEST_P(Wizard, KeyAndLinkageAttributesAreGuarded) {
  auto w = open();
  w->setDbLinked(true);  // the table link, EntityNumber, becomes a definition attribute
  EXPECT_EQ(w->definition().selected(), QStringList{"EntityNumber"});
  ASSERT_TRUE(w->next());
  EXPECT_EQ(w->exposed().selected(), (QStringList{"OccurenceNumber", "EntityNumber"}));
  prompter_.answer(Answer::No);
  EXPECT_FALSE(w->exposed().remove("EntityNumber"));  // a linkage attribute
  prompter_.answer(Answer::Yes).answer(Answer::Yes);
  EXPECT_TRUE(w->exposed().remove("OccurenceNumber"));  // the key, and a linkage attribute
  EXPECT_FALSE(w->definition().remove("EntityNumber"));
  const QString linkage =
      "Either of Linkage Attributes (EntityNumber/OccurenceNumber) must be selected for every "
      "DB-Linked feature.\r\n\r\nDo you wish to remove this Linkage Attribute from the exposed "
      "attributes for this DB-Linked feature?";
  EXPECT_EQ(prompter_.messages(),
            (QStringList{linkage,
                         "Removal of unique id <OccurenceNumber> may limit Mapgrove "
                         "functionality.\r\n\r\nDo you wish to remove this unique id from the "
                         "exposed attributes for this feature?",
                         linkage,
                         "Unable to remove table link attribute EntityNumber from feature "
                         "definition."}));
  // Without linkage neither guard speaks for EntityNumber.
  w->setDbLinked(false);
  prompter_.clearShown();
  EXPECT_TRUE(w->exposed().remove("EntityNumber"));
  EXPECT_TRUE(w->definition().remove("EntityNumber"));
  EXPECT_TRUE(prompter_.messages().isEmpty());
}

TEST_P(Wizard, MapsAreFoundByFolderAndCheckedForCoordinateSystems) {
  add("Directories", {{"Path", std::string("/SRV/GIS/ROADS")}});  // found second: never used
  auto w = open();
  ASSERT_EQ(w->maps().available(),
            (QStringList{"/srv/gis/roads/north.dgn", "/srv/gis/roads/south.dgn",
                         "/srv/gis/hydro/rivers.dgn"}));
  EXPECT_EQ(w->maps().check("x"), "  Maps must be defined for the feature.\r\n");
  EXPECT_TRUE(w->maps().add("/SRV/GIS/ROADS/SOUTH.DGN"));  // Jet compares without case
  EXPECT_FALSE(w->maps().add("/srv/gone/north.dgn"));
  EXPECT_FALSE(w->maps().add("/srv/gis/hydro/north.dgn"));
  EXPECT_FALSE(w->maps().remove("/srv/gis/hydro/rivers.dgn"));
  EXPECT_EQ(w->maps().check(""), "");
  EXPECT_TRUE(w->maps().add("/srv/gis/roads/north.dgn"));
  EXPECT_EQ(w->maps().check(""),
            "  Selected maps have defined coordinate system.  Feature must have defined "
            "coordinate system.\r\n");
  EXPECT_EQ(w->maps().check("/srv/gis/roads/utm33n.csf"), "");
  EXPECT_EQ(prompter_.messages(),
            (QStringList{"Unable to locate map folder /srv/gone. Map will not be added.",
                         "Unable to locate map  north.dgn. Map will not be added.",
                         "Unable to locate feature."}));
}

TEST_P(Wizard, DeletingAClassRemovesOnlyItsRows) {
  createRoads();
  // A second class sharing LevelValues.
  ASSERT_EQ(
      filled("Rivers", 0, "Geometry", {{"Level", "7-7"}}, {"/srv/gis/hydro/rivers.dgn"})->finish(),
      FeatureWizard::Outcome::kFinished);
  const Rows keys = rows("KeysParameters");

  reopen();
  EXPECT_FALSE(deleteFeatureClass(db_, rs_[0], "Lakes"));
  EXPECT_TRUE(deleteFeatureClass(db_, rs_[0], "Roads"));
  EXPECT_EQ(rows("Features"), (Rows{{2, std::string("Rivers"), jet::Value(), false, 28}}));
  EXPECT_EQ(rows("FeatureMaps"), (Rows{{2, 3}}));
  EXPECT_EQ(rows("FeatureAttributes"), (Rows{{2, 23}, {2, 28}}));
  EXPECT_EQ(rows("FeatureDefinition"), (Rows{{2, 1}}));
  EXPECT_EQ(rows("LevelValues"), (Rows{{2, 7, 7}}));
  EXPECT_TRUE(rows("LevelNameValues").empty());
  EXPECT_EQ(rows("KeysParameters"), keys);

  // A quote in the name and a key past 16 bits fail before anything goes.
  schematest::expectError([&] { deleteFeatureClass(db_, rs_[0], "O'Rivers"); },
                          schema::err::kCriteriaSyntax);
  db_.close();
  {
    auto jet = jet::Database::openFile(path_, true);
    jet->insertRow(jet->table("Features"), {40000, std::string("Far"), {}, false, {}});
    jet->insertRow(jet->table("FeatureMaps"), {40000, 1});
    jet->flush();
  }
  db_.open(path_);
  reopen();
  schematest::expectError([&] { deleteFeatureClass(db_, rs_[0], "Far"); }, schema::err::kOverflow);
  EXPECT_EQ(rows("Features").size(), 2u);
  EXPECT_EQ(rows("FeatureMaps").size(), 2u);
}
