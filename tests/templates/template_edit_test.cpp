// A document made from each template survives thousands of random edits of
// the kind the editor makes: folders, files and maps added and removed,
// feature classes written with their child and value rows inside a savepoint
// that is kept or rolled back (the wizard's transaction), feature classes
// deleted children first, renames that clash with the unique name index,
// texts too long for their column, scanner settings rewritten. After every
// batch the file passes the structural check and holds exactly the rows of a
// model (the untouched reference tables included); every few batches it is
// flushed and opened afresh.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "jet/check.h"
#include "jet/database.h"
#include "jet/error.h"
#include "tools/csdtool/csv_export.h"

using namespace jet;

namespace {

using Row = std::vector<Value>;
using Table = std::map<RowId, Row>;

std::vector<uint8_t> readTemplate(const std::string& name) {
  std::ifstream in(std::string(VANTOR_TEMPLATE_DIR) + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::unique_ptr<Database> openBytes(std::vector<uint8_t> bytes) {
  return Database::open(std::make_unique<MemoryStore>(std::move(bytes), "edited.csd"));
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

class Editor {
 public:
  Editor(std::unique_ptr<Database> db, uint32_t seed) : db_(std::move(db)), rng_(seed) {
    for (const std::string& name : db_->userTableNames()) model[name] = readTable(name);
    for (const Row& r : rows("FeatureDefAttr"))
      if (auto name = std::get_if<std::string>(&r[1]); name && !name->empty())
        valueTables_.emplace_back(std::get<int32_t>(r[0]), *name);
    for (const Row& r : rows("GraphicAttributes")) attrIds_.push_back(std::get<int32_t>(r[0]));
  }

  Database& db() { return *db_; }
  size_t valueTableCount() const { return valueTables_.size(); }

  void step() {
    int op = pick(0, 99);
    if (op < 15)
      addRow("Directories", {{"Path", text(255)}});
    else if (op < 25)
      addRow("CoordinateSystemFiles", {{"Name", text(60)}, {"dirId", someKey("Directories")}});
    else if (op < 40)
      addRow("Maps", {{"Name", text(60)},
                      {"dirId", someKey("Directories")},
                      {"csfid", pick(0, 2) ? someKey("CoordinateSystemFiles") : Value{}}});
    else if (op < 60)
      writeFeature();
    else if (op < 70)
      deleteFeature();
    else if (op < 78)
      renameFeature();
    else if (op < 86)
      deleteSome(pick(0, 1) ? "Maps" : "Directories");
    else if (op < 92)
      setParameter();
    else
      tooLong();
  }

  // The file holds exactly the model's rows, the reference tables included.
  void expectMatchesModel() {
    for (auto& [name, want] : model) {
      Table got = readTable(name);
      ASSERT_EQ(got.size(), want.size()) << name;
      for (const auto& [id, row] : want) {
        auto it = got.find(id);
        ASSERT_NE(it, got.end()) << name << " lost the row at " << toString(id);
        ASSERT_EQ(it->second, row) << name << " row at " << toString(id);
      }
    }
  }

  const std::vector<uint8_t>& flushedBytes() {
    db_->flush();
    return static_cast<MemoryStore&>(db_->store()).bytes();
  }

  void reopen() { db_ = openBytes(flushedBytes()); }

  std::map<std::string, Table> model;
  int writes = 0, rollbacks = 0, clashes = 0, refusals = 0;

 private:
  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  // Mixed scripts, an apostrophe and blanks: what a user may type into paths and names.
  std::string text(int longest) {
    static const std::vector<std::string> pieces = {"a", "Z", "7", " ", "'", "_",  "-",   "/",
                                                    "é", "ß", "Æ", "€", "Ω", "あ", ".dgn"};
    std::string s;
    int n = pick(1, longest);
    for (int chars = 0; chars < n;) {
      const std::string& p = pieces[pick(0, static_cast<int>(pieces.size()) - 1)];
      chars += p == ".dgn" ? 4 : 1;
      if (chars <= n) s += p;
    }
    return s.empty() ? "x" : s;
  }

  // Short names from few letters, so that some differ only in case.
  std::string featureName() {
    std::string s = pick(0, 1) ? "F" : "f";
    for (int i = pick(0, 3); i > 0; --i) s += "aAbB_1"[pick(0, 5)];
    return s;
  }

  std::vector<Row> rows(const std::string& table) {
    std::vector<Row> out;
    for (const auto& [id, r] : model[table]) out.push_back(r);
    return out;
  }

  Table readTable(const std::string& name) {
    const TableDef& t = db_->table(name);
    Table out;
    db_->scanRows(t, [&](RowId id, Bytes row) {
      out[id] = db_->decodeRow(t, row);
      return true;
    });
    return out;
  }

  size_t col(const std::string& table, const std::string& name) {
    const TableDef& t = db_->table(table);
    return static_cast<size_t>(t.findColumn(name) - t.columns.data());
  }

  Value someKey(const std::string& table) {
    if (model[table].empty()) return Value{};
    auto it = model[table].begin();
    std::advance(it, pick(0, static_cast<int>(model[table].size()) - 1));
    return it->second[0];
  }

  // Inserts a row; AutoNumber keys must come out above every key handed out before.
  RowId addRow(const std::string& table, const std::vector<std::pair<std::string, Value>>& values) {
    const TableDef& t = db_->table(table);
    Row row(t.columns.size());
    for (const auto& [name, v] : values) row[col(table, name)] = v;
    RowId id = db_->insertRow(t, row);
    Row stored = db_->decodeRow(t, *db_->rowData(id));
    if (t.columns[0].isAutoNumber()) {
      int32_t key = std::get<int32_t>(stored[0]);
      EXPECT_GT(key, lastKey_[table]) << table;
      lastKey_[table] = key;
      row[0] = key;
    }
    EXPECT_EQ(stored, row) << table;
    model[table][id] = stored;
    ++writes;
    return id;
  }

  Value randomValue(const ColumnDef& c) {
    switch (c.type) {
      case coltype::kByte:
        return pick(0, 255);
      case coltype::kInteger:
        return pick(0, 32767);
      case coltype::kLong:
        return pick(0, 2000000000);
      case coltype::kDouble:
        return pick(0, 100000) / 64.0;
      case coltype::kText:
        return text(c.length / 2);
    }
    ADD_FAILURE() << "value table column " << c.name << " of an unexpected type";
    return Value{};
  }

  // The wizard: a Features row and its children inside one savepoint, kept
  // or rolled back; a duplicate name is refused and changes nothing.
  void writeFeature() {
    auto saved = model;
    auto savedKeys = lastKey_;
    size_t sp = db_->savepoint();
    std::string name = featureName();
    bool clash = false;
    for (const Row& r : rows("Features"))
      clash = clash || lower(std::get<std::string>(r[1])) == lower(name);
    Row feature(db_->table("Features").columns.size());
    feature[1] = name;
    feature[3] = pick(0, 1) == 1;
    feature[4] = 28 + pick(0, 5);
    if (clash) {
      try {
        db_->insertRow(db_->table("Features"), feature);
        ADD_FAILURE() << "duplicate feature name " << name << " accepted";
      } catch (const JetError& e) {
        EXPECT_EQ(e.kind(), JetError::Kind::kDuplicate) << e.what();
      }
      ++clashes;
      db_->release(sp);
      return;
    }
    RowId id = addRow("Features", {{"Name", name},
                                   {"dblinked", feature[3]},
                                   {"primaryGeometry", feature[4]},
                                   {"csfid", someKey("CoordinateSystemFiles")}});
    Value feaId = model["Features"][id][0];
    for (int i = pick(0, 3); i > 0; --i)
      addRow("FeatureMaps", {{"feaId", feaId}, {"mapId", someKey("Maps")}});
    for (int i = pick(1, 5); i > 0; --i)
      addRow("FeatureAttributes",
             {{"feaId", feaId}, {"AttrId", attrIds_[pick(0, int(attrIds_.size()) - 1)]}});
    for (int i = pick(1, 3); i > 0; --i) {
      const auto& [attrId, vt] = valueTables_[pick(0, int(valueTables_.size()) - 1)];
      addRow("FeatureDefinition", {{"feaId", feaId}, {"AttrId", attrId}});
      const TableDef& t = db_->table(vt);
      std::vector<std::pair<std::string, Value>> values = {{"feaId", feaId}};
      for (size_t c = 1; c < t.columns.size(); ++c)
        values.emplace_back(t.columns[c].name, randomValue(t.columns[c]));
      for (int n = pick(1, 4); n > 0; --n) addRow(vt, values);
    }
    if (pick(0, 3) == 0) {
      db_->rollbackTo(sp);
      model = saved;
      lastKey_ = savedKeys;  // the numbers handed out inside may be handed out again
      ++rollbacks;
    } else {
      db_->release(sp);
    }
  }

  void deleteWhere(const std::string& table, const Value& feaId) {
    const TableDef& t = db_->table(table);
    size_t c = col(table, "feaId");
    for (auto it = model[table].begin(); it != model[table].end();) {
      if (it->second[c] == feaId) {
        db_->deleteRow(t, it->first);
        it = model[table].erase(it);
      } else {
        ++it;
      }
    }
  }

  // Children first, as the feature list deletes a class.
  void deleteFeature() {
    if (model["Features"].empty()) return;
    auto it = model["Features"].begin();
    std::advance(it, pick(0, static_cast<int>(model["Features"].size()) - 1));
    Value feaId = it->second[0];
    for (const auto& [attrId, vt] : valueTables_) deleteWhere(vt, feaId);
    for (const char* child : {"FeatureMaps", "FeatureAttributes", "FeatureDefinition"})
      deleteWhere(child, feaId);
    db_->deleteRow(db_->table("Features"), it->first);
    model["Features"].erase(it);
  }

  void renameFeature() {
    if (model["Features"].empty()) return;
    auto it = model["Features"].begin();
    std::advance(it, pick(0, static_cast<int>(model["Features"].size()) - 1));
    std::string name = featureName();
    bool clash = false;
    for (const auto& [id, r] : model["Features"])
      clash = clash || (id != it->first && lower(std::get<std::string>(r[1])) == lower(name));
    Row row = it->second;
    row[1] = name;
    try {
      db_->updateRow(db_->table("Features"), it->first, row);
      EXPECT_FALSE(clash) << "rename to " << name << " accepted beside a clashing name";
      it->second = row;
    } catch (const JetError& e) {
      EXPECT_TRUE(clash) << e.what();
      EXPECT_EQ(e.kind(), JetError::Kind::kDuplicate) << e.what();
      ++clashes;
    }
  }

  void deleteSome(const std::string& table) {
    if (model[table].empty()) return;
    auto it = model[table].begin();
    std::advance(it, pick(0, static_cast<int>(model[table].size()) - 1));
    db_->deleteRow(db_->table(table), it->first);
    model[table].erase(it);
  }

  // Scanner settings as the main window saves them: text, or Null for an empty box.
  void setParameter() {
    auto it = model["CADParameters"].begin();
    std::advance(it, pick(0, static_cast<int>(model["CADParameters"].size()) - 1));
    Row row = it->second;
    row[1] = pick(0, 3) ? Value{text(255)} : Value{};
    db_->updateRow(db_->table("CADParameters"), it->first, row);
    it->second = db_->decodeRow(db_->table("CADParameters"), *db_->rowData(it->first));
    EXPECT_EQ(it->second, row);
  }

  // A name longer than Features.Name holds is refused and changes nothing.
  void tooLong() {
    Row row(db_->table("Features").columns.size());
    row[1] = std::string(65, 'L');
    try {
      db_->insertRow(db_->table("Features"), row);
      ADD_FAILURE() << "a 65-character name went into Features.Name (64)";
    } catch (const JetError& e) {
      EXPECT_EQ(e.kind(), JetError::Kind::kInvalid) << e.what();
      ++refusals;
    }
  }

  std::unique_ptr<Database> db_;
  std::mt19937 rng_;
  std::vector<std::pair<int32_t, std::string>> valueTables_;  // FeatureDefAttr: AttrId, TableName
  std::vector<int32_t> attrIds_;
  std::map<std::string, int32_t> lastKey_;
};

// What `mdb-export FILE TABLE` prints; nullopt where mdbtools is not installed.
std::optional<std::string> mdbExport(const std::string& path, const std::string& table) {
  if (std::system("command -v mdb-export >/dev/null 2>&1") != 0) return std::nullopt;
  FILE* p = ::popen(("mdb-export '" + path + "' '" + table + "'").c_str(), "r");
  if (!p) return std::nullopt;
  std::string out;
  char buf[65536];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  EXPECT_EQ(::pclose(p), 0) << "mdb-export " << table;
  return out;
}

class TemplateEdits : public testing::TestWithParam<const char*> {};

TEST_P(TemplateEdits, ThousandsOfRandomEditsKeepTheFileSoundAndExact) {
  std::vector<uint8_t> bytes = readTemplate(GetParam());
  ASSERT_GT(bytes.size(), 0u) << "template " << GetParam() << " not built";
  Editor editor(openBytes(bytes), 20261122);
  ASSERT_GE(editor.model.size(), 12u);
  ASSERT_GT(editor.valueTableCount(), 0u);
  ASSERT_FALSE(editor.model["GraphicAttributes"].empty());

  for (int batch = 1; batch <= 50; ++batch) {
    for (int i = 0; i < 120; ++i) editor.step();
    std::vector<std::string> faults = checkDatabase(editor.db());
    ASSERT_TRUE(faults.empty()) << "batch " << batch << ": " << faults.front();
    editor.expectMatchesModel();
    if (testing::Test::HasFatalFailure()) return;
    if (batch % 5 == 0) {
      editor.reopen();
      editor.expectMatchesModel();
    }
  }
  // The edited file reads the same in mdbtools, which nobody here wrote.
  const std::vector<uint8_t>& edited = editor.flushedBytes();
  std::string path = testing::TempDir() + "edited-" + GetParam();
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(edited.data()),
             static_cast<std::streamsize>(edited.size()));
  for (const std::string& name : editor.db().userTableNames()) {
    std::ostringstream ours;
    csdtool::exportCsv(editor.db(), editor.db().table(name), ours);
    std::optional<std::string> theirs = mdbExport(path, name);
    if (!theirs) break;
    EXPECT_EQ(ours.str(), *theirs) << name;
  }
  ::unlink(path.c_str());

  RecordProperty("rows_written", editor.writes);
  RecordProperty("rollbacks", editor.rollbacks);
  RecordProperty("name_clashes", editor.clashes);
  EXPECT_GT(editor.writes, 1000);
  EXPECT_GT(editor.rollbacks, 10);
  EXPECT_GT(editor.clashes, 10);
  EXPECT_GT(editor.refusals, 10);
}

INSTANTIATE_TEST_SUITE_P(
    BothTemplates, TemplateEdits, testing::Values("MstnTemplate.csd", "AutoCadTemplate.csd"),
    [](const auto& info) {
      return std::string(info.param).substr(0, std::string(info.param).find('.'));
    });

}  // namespace
