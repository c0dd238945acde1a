// libFuzzer target over the engine's write path: the input is a program of
// inserts, updates, deletes, savepoints with rollback or release, and
// flushes on a table shaped like the schema's (AutoNumber key, unique text,
// a two-column index, a descending text index, a memo, numbers), run on a
// database made in memory. Beside it a model keeps the rows each operation
// should leave. Every so often, and at the end, the written bytes are
// opened afresh and must pass the structure check and hold exactly the
// model's rows.
//
// A refused write (a duplicate key, a value too long for its column) is a
// JetError and must leave the rows as they were; any other failure, a
// difference from the model, a check fault or a sanitizer report is a
// fault.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "jet/check.h"
#include "jet/create.h"
#include "jet/database.h"
#include "jet/error.h"
#include "jet/page_store.h"

namespace {

using Row = std::vector<jet::Value>;
using Model = std::map<uint32_t, Row>;  // by packed row id

[[noreturn]] void fault(const std::string& what) {
  std::fprintf(stderr, "jet_write_fuzzer: %s\n", what.c_str());
  std::abort();
}

// Reads the program's bytes; past the end every read gives 0.
class Program {
 public:
  Program(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool done() const { return at_ >= size_; }
  uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
  int32_t number() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
    return static_cast<int32_t>(v);
  }
  // Short texts from a small alphabet, so keys clash and case differs.
  std::string text(size_t max) {
    static const char kLetters[] = "aAbB -'0zÄé";
    std::string s;
    for (size_t n = byte() % (max + 1); s.size() < n;)
      s += kLetters[byte() % (sizeof kLetters - 1)];
    return s;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

jet::TableSpec tableSpec() {
  using namespace jet::coltype;
  return {"Maps",
          {{"mapId", kLong, 0, true},
           {"Name", kText, 12},
           {"dirId", kLong},
           {"Note", kMemo},
           {"Scale", kDouble},
           {"Done", kBoolean}},
          {{"PrimaryKey", {"mapId"}, {}, true},
           {"Name", {"Name"}, {}, false, true, true},
           {"DirName", {"dirId", "Name"}, {}},
           {"NameDown", {"Name"}, {true}}}};
}

Row values(Program& p) {
  const uint8_t nulls = p.byte();
  auto maybe = [&](int bit, jet::Value v) {
    return nulls & (1 << bit) ? jet::Value(std::monostate{}) : std::move(v);
  };
  // The note sometimes outgrows a data page and goes to long value pages.
  std::string note = p.text(20);
  if (p.byte() % 8 == 0) note.append(static_cast<size_t>(p.byte()) * 40, 'n');
  return {std::monostate{},
          maybe(0, p.text(14)),  // 13 and 14 characters do not fit
          maybe(1, int32_t{p.byte() % 4}),
          maybe(2, note),
          maybe(3, p.number() / 1024.0),
          maybe(4, p.byte() % 2 == 0)};
}

// A row as text, to compare sets of rows in any order.
std::string textOf(const Row& row) {
  std::string out;
  for (const jet::Value& v : row) {
    out += std::to_string(v.index()) + ':';
    if (auto* s = std::get_if<std::string>(&v)) out += *s;
    if (auto* n = std::get_if<int32_t>(&v)) out += std::to_string(*n);
    if (auto* d = std::get_if<double>(&v)) out += std::to_string(*d);
    if (auto* b = std::get_if<bool>(&v)) out += *b ? '1' : '0';
    out += '\x1f';
  }
  return out;
}

// The file as another program will find it: opened from its bytes alone.
void expectOnDisk(const jet::MemoryStore& store, const Model& model) {
  auto db = jet::Database::open(std::make_unique<jet::MemoryStore>(store.bytes(), "reopened"));
  for (const std::string& f : jet::checkDatabase(*db)) fault("check: " + f);
  std::vector<std::string> rows, expected;
  for (const Row& row : db->readAll(db->table("Maps"))) rows.push_back(textOf(row));
  for (const auto& [id, row] : model) expected.push_back(textOf(row));
  std::sort(rows.begin(), rows.end());
  std::sort(expected.begin(), expected.end());
  if (rows != expected)
    fault("reopened: " + std::to_string(rows.size()) + " rows for " +
          std::to_string(expected.size()) + " expected");
}

// The empty database every run starts from, made once.
std::vector<uint8_t> emptyDatabase() {
  auto owned = std::make_unique<jet::MemoryStore>(std::vector<uint8_t>{});
  const jet::MemoryStore& store = *owned;
  auto db = jet::createDatabase(std::move(owned));
  jet::createTable(*db, tableSpec());
  db->flush();
  return store.bytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::vector<uint8_t> empty = emptyDatabase();
  Program p(data, size);
  auto owned = std::make_unique<jet::MemoryStore>(empty, "fuzz.mdb");
  const jet::MemoryStore& store = *owned;
  auto db = jet::Database::open(std::move(owned));
  const jet::TableDef& t = db->table("Maps");
  Model model;
  std::vector<Model> saved;  // the model at each open savepoint
  auto pick = [&]() -> Model::iterator {
    if (model.empty()) return model.end();
    auto it = model.begin();
    std::advance(it, p.byte() % model.size());
    return it;
  };
  for (int ops = 0; !p.done() && ops < 400; ++ops) {
    const uint8_t op = p.byte() % 10;
    try {
      if (op < 4) {
        const jet::RowId id = db->insertRow(t, values(p));
        model[id.pack()] = db->decodeRow(t, *db->rowData(id));
      } else if (op < 6) {
        auto it = pick();
        if (it == model.end()) continue;
        Row row = values(p);
        row[0] = it->second[0];
        db->updateRow(t, jet::RowId::unpack(it->first), row);
        it->second = db->decodeRow(t, *db->rowData(jet::RowId::unpack(it->first)));
      } else if (op == 6) {
        auto it = pick();
        if (it == model.end()) continue;
        db->deleteRow(t, jet::RowId::unpack(it->first));
        model.erase(it);
      } else if (op == 7 && saved.size() < 3) {
        db->savepoint();
        saved.push_back(model);
      } else if (op == 8 && !saved.empty()) {
        if (p.byte() % 2) {
          db->rollbackTo(db->openSavepoints() - 1);
          model = saved.back();
        } else {
          db->release(db->openSavepoints() - 1);
        }
        saved.pop_back();
      } else if (op == 9 && saved.empty()) {
        db->flush();
        expectOnDisk(store, model);
      }
    } catch (const jet::JetError& e) {
      if (e.kind() != jet::JetError::Kind::kDuplicate && e.kind() != jet::JetError::Kind::kInvalid)
        fault(std::string("unexpected refusal: ") + e.what());
    }
  }
  while (!saved.empty()) {
    db->release(db->openSavepoints() - 1);
    saved.pop_back();
  }
  db->flush();
  expectOnDisk(store, model);
  return 0;
}
