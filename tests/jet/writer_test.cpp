// The writer against real files written by Access: a long run of random
// edits checked against a model after every batch; round trips through every
// writable Jet 4 corpus table, read back by mdbtools (a reader nobody here
// wrote); the page maps; AutoNumber; refusals, savepoints and failed
// operations that must leave every byte of the file as it was.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>

#include "jet/check.h"
#include "jet/create.h"
#include "jet/database.h"
#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/text.h"
#include "tests/jet/test_util.h"
#include "tools/csdtool/csv_export.h"

using namespace jet;
using jettest::corpusFiles;
using jettest::corpusPath;
using jettest::readFile;

namespace {

using Row = std::vector<Value>;
using Kind = JetError::Kind;

// ---- Fixtures ----

std::unique_ptr<Database> openCopy(const std::string& corpusName) {
  return jettest::openBytes(readFile(corpusPath(corpusName)), corpusName);
}

// The file as it stands once every change is written out.
const std::vector<uint8_t>& flushed(Database& db) {
  db.flush();
  return static_cast<MemoryStore&>(db.store()).bytes();
}

std::string joinLines(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& l : lines) out += l + "\n";
  return out;
}

// Runs `f`, which must raise a JetError of `kind`; returns its message.
template <typename F>
std::string expectError(Kind kind, F&& f) {
  try {
    f();
  } catch (const JetError& e) {
    EXPECT_EQ(static_cast<int>(e.kind()), static_cast<int>(kind)) << e.what();
    return e.what();
  }
  ADD_FAILURE() << "no JetError raised";
  return "";
}

const RealIndex& realIndexOf(const TableDef& t, const LogicalIndex& li) {
  for (const RealIndex& ri : t.realIndexes)
    if (ri.number == li.realIndex) return ri;
  throw std::runtime_error("logical index without its real index");
}

const RealIndex& primaryKey(const TableDef& t) {
  for (const LogicalIndex& li : t.indexes)
    if (li.primary()) return realIndexOf(t, li);
  throw std::runtime_error(t.name + " has no primary key");
}

size_t columnIndex(const TableDef& t, std::string_view name) {
  const ColumnDef* c = t.findColumn(name);
  if (!c) throw std::runtime_error("no column " + std::string(name));
  return static_cast<size_t>(c - t.columns.data());
}

// A row as mdb-export prints it (and as failure messages show it).
std::string csvLine(const TableDef& t, const Row& r) {
  std::string out;
  for (size_t i = 0; i < r.size(); ++i)
    out += (i ? "," : "") + csdtool::csvField(t.columns[i], r[i]);
  return out;
}

// Every page as the database holds it now, flushed or not.
std::vector<std::vector<uint8_t>> allPages(Database& db) {
  std::vector<std::vector<uint8_t>> out;
  for (uint32_t n = 0; n < db.pageCount(); ++n) {
    Bytes p = db.page(n);
    out.emplace_back(p.begin(), p.end());
  }
  return out;
}

class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantor_writer_XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("cannot make a temporary folder");
    path_ = tmpl;
  }
  ~TempDir() {
    // VANTOR_KEEP_TEMP=1 keeps the files written, for a look at a failure.
    if (std::getenv("VANTOR_KEEP_TEMP")) {
      std::cerr << "kept " << path_ << "\n";
      return;
    }
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

// The global page map (page 1, row 0) read straight from a Jet 4 file's
// bytes: inline, a bitmap after a 4-byte first page; or references, 4-byte
// numbers of map pages whose bitmaps start 4 bytes in. A set bit is a free
// page.
struct GlobalMapBit {
  size_t byte;
  uint8_t mask;
};

std::optional<GlobalMapBit> globalMapBit(const std::vector<uint8_t>& bytes, uint32_t n) {
  const size_t ps = 4096;
  const uint8_t* pg = bytes.data() + ps;
  size_t start = u16le(pg + 14) & kRowOffsetMask;
  size_t len = ps - start;
  if (pg[start] == kUsageMapInline) {
    uint32_t first = u32le(pg + start + 1);
    if (n < first || (n - first) / 8 >= len - 5) return std::nullopt;
    return GlobalMapBit{ps + start + 5 + (n - first) / 8,
                        static_cast<uint8_t>(1 << ((n - first) % 8))};
  }
  const uint32_t perPage = (ps - 4) * 8;
  size_t slot = n / perPage;
  if (1 + 4 * slot + 4 > len) return std::nullopt;
  uint32_t mp = u32le(pg + start + 1 + 4 * slot);
  if (mp == 0) return std::nullopt;
  return GlobalMapBit{mp * ps + 4 + (n % perPage) / 8,
                      static_cast<uint8_t>(1 << (n % perPage % 8))};
}

std::set<uint32_t> freeInGlobalMap(const std::vector<uint8_t>& bytes) {
  std::set<uint32_t> out;
  for (uint32_t n = 0; n < bytes.size() / 4096; ++n)
    if (auto b = globalMapBit(bytes, n); !b || (bytes[b->byte] & b->mask)) out.insert(n);
  return out;
}

void setFreeInGlobalMap(std::vector<uint8_t>& bytes, uint32_t n) {
  auto b = globalMapBit(bytes, n);
  ASSERT_TRUE(b.has_value()) << "page " << n << " is beyond the global map";
  bytes[b->byte] |= b->mask;
}

// ---- Windows-1252 text ----

// Every printable character of Windows-1252, each as UTF-8.
const std::vector<std::string>& windows1252() {
  static const std::vector<std::string> chars = [] {
    static const char16_t high[32] = {
        0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
    std::vector<std::string> v;
    for (unsigned b = 0x20; b <= 0xFF; ++b) {
      if (b == 0x7F) continue;
      char32_t cp = b < 0x80 ? b : b < 0xA0 ? high[b - 0x80] : b;
      if (!cp) continue;
      std::string s;
      appendUtf8(s, cp);
      v.push_back(s);
    }
    return v;
  }();
  return chars;
}

size_t charCount(const std::string& utf8) { return utf8ToCodePoints(utf8).size(); }

// `n` characters cycling through a mix of letters, accents, quotes, commas
// and symbols beyond Latin-1; `seed` shifts the start. With `latin`, every
// character lies within Latin-1, so that Jet 4 keeps the text in its
// one-byte compressed form: `n` characters take n + 2 bytes.
std::string filler(size_t n, size_t seed, bool latin = false) {
  static const std::u32string mix =
      U"Ünïcødé “quotes”, \"plain\" ÀÉÎÕÜ àéîõü ß Œœ Šš Žž Ÿ € – — … ‰ ™ 0123456789 xyz";
  static const std::u32string latinMix = U"Ünïcødé ÀÉÎÕÜ àéîõü ß \"q\", plain 0123456789 xyz";
  const std::u32string& m = latin ? latinMix : mix;
  std::string s;
  for (size_t i = 0; i < n; ++i) appendUtf8(s, m[(seed + i) % m.size()]);
  return s;
}

// ---- What the other readers print ----

bool haveTool(const char* name) {
  return std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

std::string quoteArg(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Runs a command; its standard output, or a test failure with its stderr.
std::string runTool(const std::vector<std::string>& args, const TempDir& dir) {
  std::string cmd;
  for (const std::string& a : args) cmd += quoteArg(a) + " ";
  std::string errFile = dir.file("stderr.txt");
  cmd += "2>" + quoteArg(errFile);
  FILE* p = ::popen(cmd.c_str(), "r");
  if (!p) throw std::runtime_error("cannot run " + cmd);
  std::string out;
  char buf[65536];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  int status = ::pclose(p);
  if (status != 0) {
    std::vector<uint8_t> err = readFile(errFile);
    ADD_FAILURE() << cmd << " failed (" << status << "): " << std::string(err.begin(), err.end());
  }
  return out;
}

// Records of mdb-export's output, header dropped; a record ends at a
// newline outside quotes (OLE bytes and memos may hold newlines).
std::vector<std::string> csvRecords(const std::string& s) {
  std::vector<std::string> out;
  std::string cur;
  bool quoted = false;
  for (char c : s) {
    if (c == '"') quoted = !quoted;
    if (c == '\n' && !quoted) {
      out.push_back(std::move(cur));
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) out.push_back(cur);
  if (!out.empty()) out.erase(out.begin());
  return out;
}

// What mdb-export shows of a table, as a sorted list of records.
std::vector<std::string> seenByMdbtools(const std::string& path, const std::string& table,
                                        const TempDir& dir) {
  std::vector<std::string> csv = csvRecords(runTool({"mdb-export", path, table}, dir));
  std::sort(csv.begin(), csv.end());
  return csv;
}

// Compares two sorted lists and names what one has and the other lacks.
void expectSameRows(const std::vector<std::string>& want, const std::vector<std::string>& got) {
  if (want == got) return;
  std::vector<std::string> missing, extra;
  std::set_difference(want.begin(), want.end(), got.begin(), got.end(),
                      std::back_inserter(missing));
  std::set_difference(got.begin(), got.end(), want.begin(), want.end(), std::back_inserter(extra));
  auto some = [](const std::vector<std::string>& v) {
    std::string s;
    for (size_t i = 0; i < v.size() && i < 3; ++i) s += "\n    " + v[i].substr(0, 300);
    return s;
  };
  ADD_FAILURE() << "mdb-export: " << missing.size() << " rows missing, " << extra.size()
                << " unexpected; missing:" << some(missing) << "\n  unexpected:" << some(extra);
}

// A row for Table1 of testV2000.mdb with every column set.
Row table1Row(const std::string& a) {
  return Row{a, std::string("b"), 1, 2, 3, 4.5, DateTime{40000.5}, Currency{12345}, true};
}

// ---- Random edits against a model ----

// Table1 of testV2000.mdb: A Text(50) primary key, B Text(100) indexed,
// C Byte, D Integer, E Long, F Double, G DateTime, H Currency, I Boolean.
class Table1Model {
 public:
  struct Entry {
    RowId id;
    Row values;
  };

  Table1Model(Database& db, uint32_t seed) : rng_(seed) { reset(db); }

  void reset(Database& db) {
    db_ = &db;
    t_ = &db.table("Table1");
  }

  // Looked up each time: a refused operation reloads the definition, and
  // what lies inside it moves (WriterAtomicity.RefusedInsertsAndUpdates...).
  std::vector<uint8_t> key(const Row& r) const {
    return encodeIndexKey(db_->format(), *t_, primaryKey(*t_), r);
  }

  void loadFromFile() {
    rows_.clear();
    db_->scanRows(*t_, [&](RowId id, Bytes b) {
      Row r = db_->decodeRow(*t_, b);
      rows_[key(r)] = {id, r};
      return true;
    });
  }

  size_t size() const { return rows_.size(); }
  const std::map<std::vector<uint8_t>, Entry>& rows() const { return rows_; }

  std::string randomText(size_t maxChars) {
    size_t n = std::uniform_int_distribution<size_t>(1, maxChars)(rng_);
    const auto& chars = windows1252();
    std::string s;
    for (size_t i = 0; i < n; ++i) s += chars[rng_() % chars.size()];
    return s;
  }

  // A and B drawn anew; B Null or of any length to its limit ("" it refuses),
  // so an update may grow or shrink a row by up to 200 bytes.
  Row randomRow() {
    Row r(9);
    r[0] = randomText(50);
    int b = std::uniform_int_distribution<int>(0, 8)(rng_);
    if (b == 0) {
      r[1] = std::monostate{};
    } else {
      r[1] = randomText(b < 5 ? 10 : 100);
    }
    auto maybe = [&](Value v) { return rng_() % 8 == 0 ? Value{} : v; };
    r[2] = maybe(static_cast<int32_t>(rng_() % 256));
    r[3] = maybe(static_cast<int32_t>(static_cast<int16_t>(rng_())));
    r[4] = maybe(static_cast<int32_t>(rng_()));
    r[5] = maybe(std::uniform_int_distribution<int>(-100000000, 100000000)(rng_) / 64.0);
    r[6] = maybe(DateTime{std::uniform_int_distribution<int>(1, 73000)(rng_) +
                          std::uniform_int_distribution<int>(0, 86399)(rng_) / 86400.0});
    r[7] = maybe(
        Currency{std::uniform_int_distribution<int64_t>(-1000000000000LL, 1000000000000LL)(rng_)});
    r[8] = rng_() % 2 == 0;
    return r;
  }

  // The same key as `a` written differently: ASCII letters in the other
  // case, or trailing spaces where the column has room. Access sees both as
  // the same key.
  std::string variantOf(const std::string& a) {
    std::string v = a;
    if (rng_() % 2 && charCount(v) < 50) {
      v.append(std::min<size_t>(50 - charCount(v), 1 + rng_() % 3), ' ');
    } else {
      for (char& c : v)
        if (c >= 'a' && c <= 'z')
          c = static_cast<char>(c - 32);
        else if (c >= 'A' && c <= 'Z')
          c = static_cast<char>(c + 32);
    }
    return v;
  }

  const Entry& pick() {
    auto it = rows_.begin();
    std::advance(it, static_cast<long>(rng_() % rows_.size()));
    return it->second;
  }

  // One random operation: an insert or a delete with the given chances in
  // percent, else an update.
  void step(int insertPct, int deletePct) {
    int dice = static_cast<int>(rng_() % 100);
    if (rows_.empty() || dice < insertPct) {
      Row r = randomRow();
      if (!rows_.empty() && rng_() % 6 == 0) {
        const Entry& other = pick();
        r[0] = variantOf(std::get<std::string>(other.values[0]));
        ASSERT_EQ(key(r), key(other.values))
            << "'" << std::get<std::string>(r[0]) << "' and '"
            << std::get<std::string>(other.values[0]) << "' are one key to Access";
      }
      if (rows_.count(key(r))) return expectRefused([&] { db_->insertRow(*t_, r); });
      RowId id = db_->insertRow(*t_, r);
      rows_[key(r)] = {id, r};
      ++inserts;
    } else if (dice < insertPct + deletePct) {
      Entry e = pick();
      db_->deleteRow(*t_, e.id);
      rows_.erase(key(e.values));
      ++deletes;
    } else {
      Entry e = pick();
      Row r = randomRow();
      int how = static_cast<int>(rng_() % 10);
      if (how < 4) {
        r[0] = e.values[0];  // same key, other columns change
      } else if (how < 5) {
        r[0] = variantOf(std::get<std::string>(e.values[0]));  // same key, written differently
      } else if (how < 6) {
        r[0] = variantOf(std::get<std::string>(pick().values[0]));  // likely another row's key
      }
      auto clash = rows_.find(key(r));
      if (clash != rows_.end() && clash->second.id != e.id)
        return expectRefused([&] { db_->updateRow(*t_, e.id, r); });
      db_->updateRow(*t_, e.id, r);
      rows_.erase(key(e.values));
      rows_[key(r)] = {e.id, r};
      ++updates;
    }
  }

  // A duplicate: error 3022, and not one byte of the file changed.
  template <typename F>
  void expectRefused(F&& op) {
    // Compared in memory: the run may be inside a savepoint, where nothing
    // can be flushed.
    std::vector<std::vector<uint8_t>> before = allPages(*db_);
    uint32_t rowCount = t_->rowCount;
    std::string msg = expectError(Kind::kDuplicate, op);
    EXPECT_NE(msg.find(kDuplicateKeyText), std::string::npos) << msg;
    EXPECT_EQ(t_->rowCount, rowCount);
    EXPECT_TRUE(allPages(*db_) == before) << "a refused duplicate changed a page";
    ++duplicates;
  }

  std::map<std::vector<uint8_t>, Entry> state() const { return rows_; }
  void restore(std::map<std::vector<uint8_t>, Entry> s) { rows_ = std::move(s); }

  // The file holds exactly the model: a clean check, the rows, each index
  // with one entry per row in key order.
  void verify(const std::string& when) {
    SCOPED_TRACE(when);
    const TableDef& t = *t_;
    EXPECT_EQ(checkDatabase(*db_), std::vector<std::string>{});
    EXPECT_EQ(t.rowCount, rows_.size());
    std::map<RowId, Row> stored;
    db_->scanRows(t, [&](RowId id, Bytes b) {
      stored[id] = db_->decodeRow(t, b);
      return true;
    });
    EXPECT_EQ(stored.size(), rows_.size());
    std::set<RowId> ids;
    for (const auto& [k, e] : rows_) {
      ids.insert(e.id);
      auto it = stored.find(e.id);
      if (it == stored.end()) {
        ADD_FAILURE() << "row " << csvLine(t, e.values) << " missing at " << toString(e.id);
      } else if (it->second != e.values) {
        ADD_FAILURE() << "at " << toString(e.id) << " the file holds\n  " << csvLine(t, it->second)
                      << "\nthe model\n  " << csvLine(t, e.values);
      }
    }
    for (const RealIndex& ri : t.realIndexes) {
      std::vector<IndexEntry> entries = db_->readIndex(ri);
      EXPECT_EQ(entries.size(), rows_.size()) << "index " << ri.number;
      std::set<RowId> listed;
      for (size_t i = 0; i < entries.size(); ++i) {
        listed.insert(entries[i].row);
        if (i && !(entries[i - 1].key < entries[i].key ||
                   (entries[i - 1].key == entries[i].key && entries[i - 1].row < entries[i].row)))
          ADD_FAILURE() << "index " << ri.number << " out of order at entry " << i;
      }
      EXPECT_EQ(listed, ids) << "index " << ri.number;
      std::set<std::vector<uint8_t>> keys;
      for (const IndexEntry& e : entries) keys.insert(e.key);
      EXPECT_EQ(ri.uniqueEntryCount, keys.size())
          << "index " << ri.number << "'s unique-entry count";
      if (!db_->readIndexPage(ri.rootPage).leaf) ++branchedIndexes;
      // A seek finds what the whole walk lists for a key, runs of equal keys
      // across leaves included; a key between two held ones finds nothing.
      // Every run is sought, and every seventh key held once.
      std::map<std::vector<uint8_t>, std::vector<RowId>> byKey;
      for (const IndexEntry& e : entries) byKey[e.key].push_back(e.row);
      size_t k = 0;
      for (const auto& [key, rows] : byKey) {
        if (rows.size() == 1 && k++ % 7) continue;
        EXPECT_EQ(db_->indexLookup(t, ri, key), rows) << "index " << ri.number;
        std::vector<uint8_t> between = key;
        between.push_back(0);
        if (!byKey.count(between)) {
          EXPECT_TRUE(db_->indexLookup(t, ri, between).empty());
        }
      }
      // Ranges: between two held keys, and open at either end.
      if (byKey.size() >= 2) {
        const std::vector<uint8_t>& mid = std::next(byKey.begin(), byKey.size() / 2)->first;
        const std::vector<uint8_t>& top = byKey.rbegin()->first;
        auto between = [&](const std::vector<uint8_t>* lo, const std::vector<uint8_t>* hi) {
          std::vector<RowId> want;
          for (const IndexEntry& e : entries)
            if ((!lo || !(e.key < *lo)) && (!hi || !(*hi < e.key))) want.push_back(e.row);
          return want;
        };
        EXPECT_EQ(db_->indexRange(t, ri, &mid, &top), between(&mid, &top));
        EXPECT_EQ(db_->indexRange(t, ri, nullptr, &mid), between(nullptr, &mid));
        EXPECT_EQ(db_->indexRange(t, ri, &mid, nullptr), between(&mid, nullptr));
      }
    }
  }

  int inserts = 0, updates = 0, deletes = 0, duplicates = 0, branchedIndexes = 0;

 private:
  std::mt19937 rng_;
  Database* db_ = nullptr;
  const TableDef* t_ = nullptr;
  std::map<std::vector<uint8_t>, Entry> rows_;
};

// Table1 of testV2000.mdb (Jet 4) and of testV1997.mdb (Jet 3), alike.
class WriterModelBoth : public testing::TestWithParam<const char*> {};

TEST_P(WriterModelBoth, ThousandsOfRandomEditsKeepRowsIndexesAndMapsExact) {
  const std::string file = GetParam();
  std::unique_ptr<Database> db = openCopy(file);
  Table1Model model(*db, 20240501);
  model.loadFromFile();
  ASSERT_EQ(model.size(), 2u);
  const uint32_t pagesAtStart = db->pageCount();

  // Grow to about a thousand rows, churn, shrink to a handful, grow again:
  // pages split, empty and come back. Every third batch runs inside a
  // savepoint, then rolled back (every page must come back as it was) or
  // kept. Halfway the file is reopened from its bytes and the edits go on in
  // the fresh Database.
  struct Phase {
    int batches, insertPct, deletePct;
  };
  const Phase phases[] = {{10, 65, 10}, {5, 30, 30}, {10, 10, 65}, {5, 50, 15}};
  size_t peak = 0, trough = SIZE_MAX, batch = 0;
  int rolledBack = 0, kept = 0;
  std::vector<uint8_t> bytes;
  for (const Phase& ph : phases) {
    for (int b = 0; b < ph.batches; ++b, ++batch) {
      const bool guarded = batch % 3 == 2;
      std::vector<std::vector<uint8_t>> pagesBefore;
      auto saved = model.state();
      size_t sp = 0;
      if (guarded) {
        pagesBefore = allPages(*db);
        sp = db->savepoint();
      }
      for (int i = 0; i < 200; ++i) {
        model.step(ph.insertPct, ph.deletePct);
        if (testing::Test::HasFatalFailure()) return;
      }
      if (guarded && batch % 2) {
        db->rollbackTo(sp);
        model.restore(std::move(saved));
        EXPECT_TRUE(allPages(*db) == pagesBefore) << "rolling back batch " << batch;
        ++rolledBack;
      } else if (guarded) {
        db->release(sp);
        ++kept;
      }
      peak = std::max(peak, model.size());
      if (batch >= 10) trough = std::min(trough, model.size());
      db->flush();
      model.verify("after batch " + std::to_string(batch));
      if (testing::Test::HasFailure()) return;
    }
    if (&ph == &phases[1]) {
      bytes = flushed(*db);
      db = jettest::openBytes(bytes, file);
      model.reset(*db);
      model.verify("reopened after batch " + std::to_string(batch));
    }
  }
  bytes = flushed(*db);
  std::unique_ptr<Database> fresh = jettest::openBytes(bytes, file);
  model.reset(*fresh);
  model.verify("reopened at the end");

  // The run did what it set out to do.
  EXPECT_GT(peak, 700u);
  EXPECT_LT(trough, 100u);
  EXPECT_GT(model.duplicates, 100);
  EXPECT_GT(model.updates, 1000);
  EXPECT_GT(model.branchedIndexes, 0) << "no index grew beyond its root page";
  EXPECT_GT(db->pageCount(), pagesAtStart + 20);
  EXPECT_EQ(rolledBack, 5);
  EXPECT_EQ(kept, 5);

  // And a reader nobody here wrote sees the same rows.
  if (!haveTool("mdb-export")) GTEST_SKIP() << "mdb-export missing";
  TempDir dir;
  std::string path = dir.file("model.mdb");
  writeFile(path, bytes);
  const TableDef& t = fresh->table("Table1");
  std::vector<std::string> want;
  for (const auto& [k, e] : model.rows()) want.push_back(csvLine(t, e.values));
  std::sort(want.begin(), want.end());
  expectSameRows(want, seenByMdbtools(path, "Table1", dir));
}

INSTANTIATE_TEST_SUITE_P(Jet3AndJet4, WriterModelBoth,
                         testing::Values("testV2000.mdb", "testV1997.mdb"),
                         [](const testing::TestParamInfo<const char*>& i) {
                           return std::string(i.param).substr(4, 5);
                         });

TEST(WriterModel, RandomLongValuesReadBackExactlyAndASavepointUndoesThem) {
  // MSP_PROJECTS of test2V2000.mdb: memo and OLE values of random sizes,
  // inline, on one page or chained, grown, shrunk, set to Null and deleted,
  // against a model of what every row holds. The last two batches run inside
  // a savepoint that is then rolled back: every page, the page count and the
  // definition held in memory must come back as they were.
  auto db = openCopy("test2V2000.mdb");
  const TableDef& t = db->table("MSP_PROJECTS");
  const size_t id = columnIndex(t, "PROJ_ID");
  const size_t memos[] = {columnIndex(t, "PROJ_PROP_AUTHOR"), columnIndex(t, "PROJ_PROP_KEYWORDS"),
                          columnIndex(t, "PROJ_INFO_CAL_NAME")};
  const size_t ole = columnIndex(t, "RESERVED_BINARY_DATA");
  std::mt19937 rng(7);
  auto size = [&] {
    static const size_t sizes[] = {0, 1, 10, 60, 200, 1000, 2000, 4000, 4100, 8000, 25000};
    return sizes[rng() % std::size(sizes)] + rng() % 3;
  };
  std::map<RowId, Row> model;
  db->scanRows(t, [&](RowId rid, Bytes b) { return model[rid] = db->decodeRow(t, b), true; });
  int serial = 1000;
  auto randomRow = [&](Row r) {
    r[id] = ++serial;
    r[columnIndex(t, "PROJ_NAME")] = "p" + std::to_string(serial);
    for (size_t m : memos) {
      if (rng() % 5 == 0) {
        r[m] = std::monostate{};
      } else {
        const size_t n = size();
        const bool latin = rng() % 2;
        r[m] = filler(n, rng(), latin);
      }
    }
    if (rng() % 5 == 0) {
      r[ole] = std::monostate{};
    } else {
      Blob b(size());
      for (uint8_t& x : b) x = static_cast<uint8_t>(rng());
      r[ole] = b;
    }
    return r;
  };
  Row blank(t.columns.size());
  for (size_t i = 0; i < t.columns.size(); ++i)
    if (t.columns[i].type == coltype::kBoolean) blank[i] = false;
  std::vector<uint8_t> before;
  std::map<RowId, Row> saved;
  size_t sp = 0;
  for (int batch = 0; batch < 8; ++batch) {
    if (batch == 6) {
      before = flushed(*db);
      saved = model;
      sp = db->savepoint();
    }
    for (int i = 0; i < 60; ++i) {
      int dice = static_cast<int>(rng() % 10);
      if (model.empty() || dice < 4) {
        Row r = randomRow(blank);
        model[db->insertRow(t, r)] = r;
      } else {
        auto it = model.begin();
        std::advance(it, static_cast<long>(rng() % model.size()));
        if (dice < 8) {
          Row r = randomRow(it->second);
          db->updateRow(t, it->first, r);
          it->second = r;
        } else {
          db->deleteRow(t, it->first);
          model.erase(it);
        }
      }
    }
    SCOPED_TRACE("batch " + std::to_string(batch));
    ASSERT_EQ(checkDatabase(*db), std::vector<std::string>{});
    std::map<RowId, Row> stored;
    db->scanRows(t, [&](RowId rid, Bytes b) { return stored[rid] = db->decodeRow(t, b), true; });
    ASSERT_EQ(stored.size(), model.size());
    for (const auto& [rid, r] : model) ASSERT_TRUE(stored[rid] == r) << "row at " << toString(rid);
  }
  EXPECT_THROW(db->flush(), JetError) << "flush inside a savepoint";
  db->rollbackTo(sp);
  EXPECT_EQ(db->openSavepoints(), 0u);
  EXPECT_EQ(db->pageCount(), before.size() / 4096);
  EXPECT_EQ(t.rowCount, saved.size());
  EXPECT_TRUE(flushed(*db) == before) << "rolled back pages differ from those before";
  auto fresh = jettest::openBytes(flushed(*db), "test2V2000.mdb");
  EXPECT_EQ(fresh->table("MSP_PROJECTS").raw, t.raw)
      << "the definition held differs from the file's";
  EXPECT_EQ(checkDatabase(*db), std::vector<std::string>{});
}

// ---- Round trips through every writable table, Jet 3 and Jet 4 ----

// Values for a table's columns that fit their types and sizes. `serial`
// keeps unique columns apart; `lv` is the size of memo and OLE values;
// `fullText` fills text columns to their limit.
class RowMaker {
 public:
  RowMaker(const TableDef& t, const std::vector<ColumnRules>& rules) : t_(t), rules_(rules) {
    for (size_t i = 0; i < rules.size(); ++i)
      if (rules[i].required) required_.insert(i);
    for (const LogicalIndex& li : t.indexes) {
      const RealIndex& ri = realIndexOf(t, li);
      for (const IndexColumn& ic : ri.columns) {
        // The referencing side of a relationship: Null refers to nothing,
        // which every relationship allows.
        if (li.foreignKey() && !ri.unique()) referencing_.insert(ic.column);
        if (li.foreignKey() && ri.unique()) referenced_ = true;
        if (ri.required()) required_.insert(ic.column);
        indexed_.insert(ic.column);
      }
    }
    // Access keeps a row (long values aside) within about 4000 bytes; where
    // many text columns could not all be full, each gets a share.
    size_t texts = 0;
    for (const ColumnDef& c : t.columns) texts += c.type == coltype::kText && !c.isFixed();
    if (texts) textShare_ = 1600 / texts;  // characters; two bytes each at most
  }

  // Whether the column is part of any index.
  bool indexed(size_t i) const { return indexed_.count(i) > 0; }
  // Whether rows of other tables may refer to this one's.
  bool referenced() const { return referenced_; }

  Row make(int serial, size_t lv, bool fullText) const {
    Row r(t_.columns.size());
    for (size_t i = 0; i < t_.columns.size(); ++i) r[i] = value(i, serial, lv, fullText);
    return r;
  }

  // `r` with new text in every text and memo column no index covers.
  Row retexted(Row r, int serial, size_t lv) const {
    for (size_t i = 0; i < t_.columns.size(); ++i) {
      const ColumnDef& c = t_.columns[i];
      if (!indexed(i) && !c.isFixed() && (c.type == coltype::kText || c.type == coltype::kMemo))
        r[i] = value(i, serial, lv, true);
    }
    return r;
  }

  // Null wherever a Null is allowed.
  Row sparse(int serial) const {
    Row r(t_.columns.size());
    for (size_t i = 0; i < t_.columns.size(); ++i) {
      if (t_.columns[i].type == coltype::kBoolean) r[i] = false;
      if (required_.count(i)) r[i] = value(i, serial, 0, false);
    }
    return r;
  }

 private:
  Value value(size_t i, int serial, size_t lv, bool fullText) const {
    Value v = anyValue(i, serial, lv, fullText);
    // Where the column refuses "", a Null stands in (a value if it is required).
    if (auto s = std::get_if<std::string>(&v); s && s->empty() && !rules_[i].allowZeroLength)
      return required_.count(i) ? Value(std::string("x")) : Value();
    return v;
  }

  Value anyValue(size_t i, int serial, size_t lv, bool fullText) const {
    const ColumnDef& c = t_.columns[i];
    if (referencing_.count(i) || c.isAutoGuid()) return {};
    if (c.isAutoNumber()) return {};
    const int s = serial;
    switch (c.type) {
      case coltype::kBoolean:
        return s % 2 == 1;
      case coltype::kByte:
        return static_cast<int32_t>((s * 37 + static_cast<int>(i)) % 256);
      case coltype::kInteger:
        return static_cast<int32_t>(s % 2 ? 1000 + s : -1000 - s);
      case coltype::kLong:
        return static_cast<int32_t>(700000 + 13 * s + static_cast<int>(i));
      case coltype::kCurrency:
        return Currency{12345LL * s - 500000};
      case coltype::kSingle:
        return static_cast<float>(s) + 0.1f;
      case coltype::kDouble:
        return s + 1.0 / 3.0;
      case coltype::kDateTime:
        return DateTime{40000 + s + ((s * 3731 + 17) % 86400) / 86400.0};
      case coltype::kGuid: {
        Guid g;
        for (int k = 0; k < 16; ++k) g.bytes[k] = static_cast<uint8_t>(s * 31 + k * 7);
        return g;
      }
      case coltype::kDecimal: {
        Decimal d;
        d.negative = s % 2 == 0;
        d.precision = c.precision;
        d.scale = c.scale;
        d.magnitude[0] = 1000u * static_cast<uint32_t>(s) + 7;
        return d;
      }
      case coltype::kBinary: {
        Blob b(c.isFixed() ? c.length : std::min<size_t>(c.length, 5 + s % 7));
        for (size_t k = 0; k < b.size(); ++k) b[k] = static_cast<uint8_t>(s + k);
        return b;
      }
      case coltype::kText: {
        size_t max = c.length / 2;
        std::string head = "R" + std::to_string(s) + "c" + std::to_string(i) + " ";
        size_t n = c.isFixed() ? max
                   : fullText  ? std::min(max, std::max(textShare_, head.size() + 5))
                               : std::min(max, head.size() + 5);
        if (n < head.size()) return std::string(n, static_cast<char>('a' + s % 26));
        return head + filler(n - head.size(), static_cast<size_t>(s));
      }
      case coltype::kMemo:
        // Up to 3000 characters in the compressed form (inline, or one
        // long value page); beyond, UTF-16 in a chain of pages.
        return lv <= 3000 ? filler(lv, static_cast<size_t>(s) + i, true)
                          : filler(lv, static_cast<size_t>(s) + i);
      case coltype::kOle: {
        Blob b(lv);
        for (size_t k = 0; k < lv; ++k) b[k] = static_cast<uint8_t>(k * 7 + s + i);
        return b;
      }
    }
    return {};
  }

  const TableDef& t_;
  const std::vector<ColumnRules>& rules_;
  std::set<size_t> referencing_, required_, indexed_;
  bool referenced_ = false;
  size_t textShare_ = 0;
};

// Inserts, updates and deletes rows of its own in one table and knows what
// the table must hold afterwards.
struct TableRoundTrip {
  std::string name;
  std::vector<std::string> csvBefore;              // as mdb-export saw the original
  std::map<int, Row> ours;                         // by insertion number
  std::vector<std::pair<Row, Row>> changedTheirs;  // rows Access wrote: before, after
  std::vector<Row> deletedTheirs;

  void edit(Database& db, int serialBase) {
    const TableDef& t = db.table(name);
    RowMaker make(t, db.columnRules(t));
    const size_t sizes[] = {0, 10, 3000, 20000};
    std::map<int, RowId> ids;
    auto stored = [&](RowId id) { return db.decodeRow(t, *db.rowData(id)); };
    auto insert = [&](int k, Row r) {
      ids[k] = db.insertRow(t, r);
      // AutoNumber and AutoGUID values are the engine's to choose.
      Row back = stored(ids[k]);
      for (size_t i = 0; i < t.columns.size(); ++i)
        if ((t.columns[i].isAutoNumber() || t.columns[i].isAutoGuid()) && isNull(r[i])) {
          EXPECT_FALSE(isNull(back[i])) << t.columns[i].name << " not assigned";
          r[i] = back[i];
        }
      ours[k] = r;
    };
    for (int k = 0; k < 4; ++k) insert(k, make.make(serialBase + k, sizes[k], k >= 2));
    insert(4, make.sparse(serialBase + 4));
    insert(5, make.sparse(serialBase + 5));

    auto update = [&](int k, Row r) {
      for (size_t i = 0; i < t.columns.size(); ++i)
        if (t.columns[i].isAutoNumber() || t.columns[i].isAutoGuid()) r[i] = ours[k][i];
      db.updateRow(t, ids[k], r);
      EXPECT_EQ(stored(ids[k]), r) << "row " << k << " read back after its update";
      ours[k] = r;
    };
    update(1, make.make(serialBase + 11, 20000, true));  // 10 bytes inline -> a chain
    update(3, make.make(serialBase + 13, 10, false));    // a chain -> inline
    update(4, make.make(serialBase + 14, 3000, true));   // Nulls -> one long value page
    update(2, make.make(serialBase + 12, 0, true));
    db.deleteRow(t, ids[0]);
    db.deleteRow(t, ids[2]);
    ours.erase(0);
    ours.erase(2);

    // Rows Access wrote, the first five: the third goes, unless rows of
    // other tables may refer to it; the others get new text wherever no
    // index looks, so they grow and may have to move to an overflow slot.
    // (In overflowTestV2000.mdb the third and fifth are rows Access already
    // moved.)
    std::vector<RowId> theirs;
    db.scanRows(t, [&](RowId id, Bytes) {
      bool mine = false;
      for (const auto& [k, ourId] : ids) mine |= ourId == id;
      if (!mine) theirs.push_back(id);
      return theirs.size() < 5;
    });
    for (size_t n = 0; n < theirs.size(); ++n) {
      Row before = stored(theirs[n]);
      if (n == 2) {
        if (make.referenced()) continue;
        deletedTheirs.push_back(before);
        db.deleteRow(t, theirs[n]);
        continue;
      }
      Row after =
          make.retexted(before, serialBase + 15 + static_cast<int>(n), n % 2 ? 20000 : 3000);
      if (after == before) continue;
      db.updateRow(t, theirs[n], after);
      EXPECT_EQ(stored(theirs[n]), after);
      changedTheirs.emplace_back(before, after);
    }
  }

  std::vector<std::string> expected(const TableDef& t) const {
    std::vector<std::string> rows = csvBefore;
    auto drop = [&](const Row& r) {
      auto it = std::find(rows.begin(), rows.end(), csvLine(t, r));
      if (it == rows.end()) {
        ADD_FAILURE() << "mdb-export did not show the original row as " << csvLine(t, r);
      } else {
        rows.erase(it);
      }
    };
    for (const Row& r : deletedTheirs) drop(r);
    for (const auto& [before, after] : changedTheirs) {
      drop(before);
      rows.push_back(csvLine(t, after));
    }
    for (const auto& [k, r] : ours) rows.push_back(csvLine(t, r));
    std::sort(rows.begin(), rows.end());
    return rows;
  }
};

TEST(WriterRoundTrip, EveryWritableTableReadsBackInMdbtools) {
  if (!haveTool("mdb-export")) GTEST_SKIP() << "mdb-export missing";
  TempDir dir;
  std::vector<std::string> refused, refusedLate;
  int tables = 0;
  size_t changedTheirs = 0, deletedTheirs = 0;
  for (const std::string& file : corpusFiles()) {
    SCOPED_TRACE(file);
    std::unique_ptr<Database> db = openCopy(file);
    std::vector<TableRoundTrip> trips;
    for (const std::string& name : db->userTableNames()) {
      std::string why = db->whyNotWritable(db->table(name));
      if (!why.empty()) {
        refused.push_back(file + " " + name + ": " + why);
        continue;
      }
      TableRoundTrip trip{name, seenByMdbtools(corpusPath(file), name, dir), {}, {}, {}};
      SCOPED_TRACE(name);
      try {
        trip.edit(*db, 100 + 20 * static_cast<int>(trips.size()));
      } catch (const JetError& e) {
        // A table whyNotWritable() passed but the writer then turned down;
        // anything else is a fault here.
        if (e.kind() == Kind::kUnsupported) {
          refusedLate.push_back(file + " " + name + ": " + e.what());
        } else {
          ADD_FAILURE() << e.what();
        }
        continue;
      }
      changedTheirs += trip.changedTheirs.size();
      deletedTheirs += trip.deletedTheirs.size();
      trips.push_back(std::move(trip));
    }
    if (trips.empty()) continue;
    std::string path = dir.file(file);
    writeFile(path, flushed(*db));
    std::unique_ptr<Database> back = Database::openFile(path);
    EXPECT_EQ(checkDatabase(*back), std::vector<std::string>{});
    for (const TableRoundTrip& trip : trips) {
      SCOPED_TRACE(trip.name);
      ++tables;
      const TableDef& t = back->table(trip.name);
      std::vector<std::string> want = trip.expected(t);
      expectSameRows(want, seenByMdbtools(path, trip.name, dir));
      EXPECT_EQ(t.rowCount, want.size());
    }
  }
  // Of the corpus's tables, Jet 3 and Jet 4, only the three of each format
  // joined by relationships are refused (the engine does not keep
  // referential integrity).
  EXPECT_GE(tables, 27 + 37);
  EXPECT_EQ(refused.size(), 6u);
  EXPECT_GE(changedTheirs, 20u);
  EXPECT_GE(deletedTheirs, 10u);
  std::cout << "[ refused  ] " << refused.size() << " tables:\n" << joinLines(refused);
  std::cout << "[ refused  ] " << refusedLate.size() << " tables only once written to:\n"
            << joinLines(refusedLate);
}

TEST(WriterRoundTrip, ATableOutgrowingItsUsageMapsStaysReadable) {
  // delTestV2000.mdb's Table (a, b Text(50)) keeps its page maps inline,
  // room for 512 pages; the file's global map has as much. Growing the table
  // past that turns its owned-pages map into references to map pages and
  // makes the global map grow, here until page 1 (made nearly full first, as
  // 32,000 pages would make it) cannot hold it and it too becomes a
  // reference map; mdbtools finds a table's rows through that very map.
  auto db = openCopy("delTestV2000.mdb");
  const TableDef& t = db->table("Table");
  std::vector<std::string> csv;
  for (const Row& r : db->readAll(t)) csv.push_back(csvLine(t, r));
  auto mapKind = [&](uint32_t packed) {
    RowId at = RowId::unpack(packed);
    Bytes pg = db->page(at.page);
    return pg[u16le(&pg[db->format().dataRowTableOffset + 2 * at.row]) & kRowOffsetMask];
  };
  auto ownedMapKind = [&] { return mapKind(t.ownedPages); };
  const uint32_t globalMap = RowId{1, 0}.pack();
  {
    // Page 1's second row takes all but 150 bytes of the room left.
    const Format& f = db->format();
    Bytes pg1 = db->page(1);
    const size_t row0 = f.pageSize - (u16le(&pg1[f.dataRowTableOffset]) & kRowOffsetMask);
    ASSERT_TRUE(db->rewriteSlot(
        1, 1, std::vector<uint8_t>(f.pageSize - f.dataRowTableOffset - 4 - row0 - 150, 0), 0));
  }
  ASSERT_EQ(ownedMapKind(), kUsageMapInline);
  ASSERT_EQ(mapKind(globalMap), kUsageMapInline);
  std::map<RowId, Row> kept;
  auto add = [&](int i) {
    Row r{"row " + std::to_string(i) + filler(20, i), filler(static_cast<size_t>(i % 50), 7 * i)};
    RowId id = db->insertRow(t, r);
    if (i % 3 == 0) {
      db->deleteRow(t, id);
    } else {
      kept[id] = r;
    }
  };
  int i = 0;
  for (; ownedMapKind() == kUsageMapInline || mapKind(globalMap) == kUsageMapInline || i % 1000;
       ++i) {
    ASSERT_LT(i, 100000);
    add(i);
  }
  // The rows of a hundred pages go: the pages are free in the reference map,
  // and as many rows again take them (and the index pages they split need).
  const uint32_t firstPage = kept.begin()->first.page;
  const size_t before = kept.size();
  for (auto it = kept.begin(); it != kept.end() && it->first.page < firstPage + 100;)
    db->deleteRow(t, it->first), it = kept.erase(it);
  std::vector<uint32_t> freed;
  for (uint32_t p = firstPage; p < firstPage + 100; ++p)
    if (db->pageIsFree(p)) freed.push_back(p);
  EXPECT_GT(freed.size(), 80u);
  while (kept.size() < before) add(i++);
  for (uint32_t p : freed) EXPECT_FALSE(db->pageIsFree(p)) << p;
  for (const auto& [id, r] : kept) csv.push_back(csvLine(t, r));
  const std::vector<uint8_t> bytes = flushed(*db);
  auto back = jettest::openBytes(bytes, "delTestV2000.mdb");
  EXPECT_EQ(checkDatabase(*back), std::vector<std::string>{});
  EXPECT_EQ(back->table("Table").rowCount, csv.size());

  if (!haveTool("mdb-export")) GTEST_SKIP() << "mdb-export missing";
  TempDir dir;
  std::string path = dir.file("grown.mdb");
  writeFile(path, bytes);
  std::sort(csv.begin(), csv.end());
  expectSameRows(csv, seenByMdbtools(path, "Table", dir));
}

class WriterIndexes : public testing::TestWithParam<const char*> {};

TEST_P(WriterIndexes, OneValueInManyRowsThenEveryRowGone) {
  // Table1's B index with a single 100-character value in hundreds of rows:
  // equal keys span many leaves and only the row pointers tell the entries
  // apart. Then every row goes, and the trees must fold back to their roots,
  // their pages marked free in the global map. testV2000.mdb keeps that map
  // inline, testRefGlobalV2000.mdb (the same tables) on pages of its own;
  // check must notice a page in use that either kind calls free.
  const std::string file = GetParam();
  auto db = openCopy(file);
  const uint32_t pagesAtStart = db->pageCount();
  const TableDef& t = db->table("Table1");
  Table1Model model(*db, 1);
  model.loadFromFile();
  auto want = model.state();
  std::vector<std::pair<RowId, Row>> ours;
  auto insert = [&](Row r) {
    ours.emplace_back(db->insertRow(t, r), r);
    want[model.key(r)] = {ours.back().first, r};
  };
  auto verify = [&](const std::string& when) {
    model.restore(want);
    model.verify(when);
  };
  for (int i = 0; i < 700; ++i) {
    Row r = table1Row("same " + std::to_string(i));
    r[1] = filler(100, 3);
    insert(r);
  }
  verify("all equal");
  const uint32_t bRoot = realIndexOf(t, *t.findIndex("B")).rootPage;
  ASSERT_FALSE(db->readIndexPage(bRoot).leaf);
  {
    // check reads rows and index entries without holding either, and must
    // still notice, in a copy, a row changed behind its indexes' back and
    // then a node entry below what its child holds (which sends seeks past
    // the child).
    auto copy = jettest::openBytes(flushed(*db), file);
    const RowId id = ours[350].first;
    Bytes row = *copy->rowData(id);
    const size_t q = std::string(row.begin(), row.end()).find('q');  // compressed or not
    ASSERT_NE(q, std::string::npos);
    copy->mutablePage(id.page)[row.data() - copy->page(id.page).data() + q] = 'r';
    std::string all = joinLines(checkDatabase(*jettest::openBytes(flushed(*copy), file)));
    EXPECT_NE(all.find("('B'): its entries differ from the keys its rows make"), std::string::npos)
        << all;
    EXPECT_EQ(all.find("PrimaryKey"), std::string::npos) << all;
    const Format& f = copy->format();
    copy->mutablePage(bRoot)[f.indexEntryMaskOffset + f.indexEntryMaskSize] = 0;
    all = joinLines(checkDatabase(*jettest::openBytes(flushed(*copy), file)));
    EXPECT_NE(all.find("node page " + std::to_string(bRoot) + " does not bound"), std::string::npos)
        << all;
  }
  // From the middle of the run of equal keys: removals must find the very
  // entry among hundreds that share its key.
  for (size_t i = 200; i < 500; ++i) {
    auto& [id, r] = ours[i];
    if (i % 2) {
      db->deleteRow(t, id);
      want.erase(model.key(r));
    } else {
      r[1] = "other " + std::to_string(i);
      db->updateRow(t, id, r);
      want[model.key(r)] = {id, r};
    }
  }
  verify("middle thinned");
  for (const auto& [k, e] : want) db->deleteRow(t, e.id);
  want.clear();
  ours.clear();
  verify("empty");
  for (const RealIndex& ri : t.realIndexes) {
    IndexPage root = db->readIndexPage(ri.rootPage);
    EXPECT_TRUE(root.leaf && root.entries.empty()) << "index " << ri.number;
    EXPECT_LE(db->usageMapPages(ri.usageMap).size(), 1u) << "index " << ri.number;
  }
  for (int i = 0; i < 50; ++i) insert(table1Row("again " + std::to_string(i)));
  verify("filled again");
  const std::vector<uint8_t> bytes = flushed(*db);
  auto back = jettest::openBytes(bytes, file);
  model.reset(*back);
  verify("reopened");
  // Pages the edits added: those in use (data, index, map pages) are not
  // free, the index pages given back (cleared to zeros) are.
  std::set<uint32_t> free = freeInGlobalMap(bytes);
  size_t given = 0;
  for (uint32_t n = pagesAtStart; n < db->pageCount(); ++n) {
    bool cleared = bytes[static_cast<size_t>(n) * 4096] == 0;
    given += cleared;
    EXPECT_EQ(free.count(n), cleared ? 1u : 0u)
        << "page " << n << (cleared ? " given back" : " in use");
  }
  EXPECT_GT(given, 5u);

  // A data page of Table1, marked free behind its back.
  std::vector<uint8_t> damaged = bytes;
  const uint32_t victim = back->usageMapPages(back->table("Table1").ownedPages).back();
  ASSERT_FALSE(free.count(victim));
  setFreeInGlobalMap(damaged, victim);
  ASSERT_TRUE(freeInGlobalMap(damaged).count(victim));
  const std::string all = joinLines(checkDatabase(*jettest::openBytes(damaged, file)));
  EXPECT_NE(all.find("page " + std::to_string(victim)), std::string::npos)
      << "no fault names page " << victim << ":\n"
      << all;
}

INSTANTIATE_TEST_SUITE_P(
    GlobalMapKinds, WriterIndexes, testing::Values("testV2000.mdb", "testRefGlobalV2000.mdb"),
    [](const auto& info) {
      return std::string(info.param).substr(0, std::string(info.param).find('.'));
    });

// ---- AutoNumber ----

TEST(WriterAutoNumber, NumbersFollowTheCounterAndExplicitValuesAndSurviveAReopen) {
  // Wherever the corpus has numbered rows, the largest equals the counter:
  // the definition keeps the last number used, as Access leaves it.
  int numbered = 0;
  for (const std::string& file : corpusFiles()) {
    auto db = Database::openFile(corpusPath(file));
    for (const CatalogEntry& e : db->catalog()) {
      if (!e.isTable()) continue;
      const TableDef& t = db->tableAtPage(e.tdefPage(), e.name);
      for (size_t i = 0; i < t.columns.size(); ++i) {
        if (!t.columns[i].isAutoNumber() || t.columns[i].type != coltype::kLong) continue;
        int32_t most = 0;
        for (const Row& r : db->readAll(t))
          if (auto p = std::get_if<int32_t>(&r[i])) most = std::max(most, *p);
        if (most == 0) continue;
        ++numbered;
        EXPECT_EQ(static_cast<uint32_t>(most), t.nextAutoNumber) << file << " " << t.name;
      }
    }
  }
  EXPECT_GE(numbered, 10);

  // testV2000.mdb Table3: a Long AutoNumber primary key, b Text(50).
  auto db = openCopy("testV2000.mdb");
  const TableDef& t = db->table("Table3");
  auto numberOf = [&](Database& d, RowId id) {
    return std::get<int32_t>(d.decodeRow(d.table("Table3"), *d.rowData(id))[0]);
  };
  const int32_t first = numberOf(*db, db->insertRow(t, {std::monostate{}, std::string("one")}));
  EXPECT_EQ(static_cast<uint32_t>(first), t.nextAutoNumber);
  EXPECT_EQ(db->takeAutoNumber(t), first + 1);  // taken, never used: not handed out again
  EXPECT_EQ(numberOf(*db, db->insertRow(t, {std::monostate{}, std::string("two")})), first + 2);
  // A refused insert gives its number back, and so does a rolled back one.
  expectError(Kind::kInvalid, [&] { db->insertRow(t, {std::monostate{}, std::string(51, 'x')}); });
  const size_t sp = db->savepoint();
  db->insertRow(t, {std::monostate{}, std::string("rolled back")});
  db->rollbackTo(sp);
  // An explicit number past the counter moves it on, one below leaves it,
  // one in use is a duplicate that moves nothing.
  const int32_t big = first + 100;
  db->insertRow(t, {big, std::string("explicit")});
  db->insertRow(t, {first + 50, std::string("below")});
  EXPECT_EQ(numberOf(*db, db->insertRow(t, {std::monostate{}, std::string("next")})), big + 1);
  std::vector<uint8_t> before = flushed(*db);
  expectError(Kind::kDuplicate, [&] { db->insertRow(t, {big + 1, std::string("again")}); });
  EXPECT_TRUE(flushed(*db) == before);
  // Moving a row's number past the counter must not make the next insert
  // collide with it.
  RowId moved = db->insertRow(t, {std::monostate{}, std::string("moved")});
  try {
    db->updateRow(t, moved, {big + 10, std::string("moved")});
    EXPECT_NO_THROW(db->insertRow(t, {std::monostate{}, std::string("after the move")}));
  } catch (const JetError& e) {
    EXPECT_EQ(static_cast<int>(e.kind()), static_cast<int>(Kind::kInvalid)) << e.what();
  }
  auto reopened = jettest::openBytes(flushed(*db), "testV2000.mdb");
  const TableDef& t2 = reopened->table("Table3");
  EXPECT_EQ(t2.nextAutoNumber, t.nextAutoNumber);
  const int32_t next =
      numberOf(*reopened, reopened->insertRow(t2, {std::monostate{}, std::string("x")}));
  EXPECT_EQ(static_cast<uint32_t>(next), t.nextAutoNumber + 1);
  EXPECT_EQ(checkDatabase(*reopened), std::vector<std::string>{});
}

// ---- Atomicity and refusals ----

TEST(WriterAtomicity, RefusedInsertsAndUpdatesLeaveTheFileAsItWas) {
  // Database promises that references to table definitions and catalog
  // entries stay valid while it lives: a caller holding a column, an index
  // or a catalog entry goes on using it after a refusal, a duplicate key
  // above all. (Compared by address: reading through a stale reference
  // would be undefined.)
  auto db = openCopy("testV2000.mdb");
  const TableDef& t = db->table("Table1");
  const ColumnDef* column = &t.columns[0];
  const RealIndex* index = &t.realIndexes[0];
  const CatalogEntry* entry = &db->catalog().front();
  const std::vector<uint8_t> before = flushed(*db);
  RowId first{};
  db->scanRows(t, [&](RowId id, Bytes) { return first = id, false; });
  // Each row breaks one rule; the column at fault is named.
  const std::pair<size_t, Value> bad[] = {{0, std::string(51, 'a')},
                                          {1, std::string(100, 'b') + "€"},
                                          {2, 256},
                                          {3, 40000},
                                          {4, std::string("12")},
                                          {6, std::string("1974-09-21")},
                                          {0, std::monostate{}}};
  for (const auto& [column, value] : bad) {
    Row r = table1Row("new");
    r[column] = value;
    const std::string name = "'" + t.columns[column].name + "'";
    for (const std::string& msg :
         {expectError(Kind::kInvalid, [&] { db->insertRow(t, r); }),
          expectError(Kind::kInvalid, [&] { db->updateRow(t, first, r); })}) {
      EXPECT_NE(msg.find(name), std::string::npos) << msg;
      EXPECT_EQ(msg.rfind("testV2000.mdb: ", 0), 0u) << msg;
    }
  }
  expectError(Kind::kInvalid, [&] { db->insertRow(t, {std::string("short")}); });
  expectError(Kind::kDuplicate, [&] { db->insertRow(t, table1Row("abcdefg")); });
  EXPECT_EQ(&t.columns[0], column) << "the columns of Table1 moved";
  EXPECT_EQ(&t.realIndexes[0], index) << "the indexes of Table1 moved";
  EXPECT_EQ(&db->catalog().front(), entry) << "the catalog moved";
  EXPECT_EQ(t.rowCount, 2u);
  EXPECT_TRUE(flushed(*db) == before);
  EXPECT_EQ(checkDatabase(*db), std::vector<std::string>{});
}

// A row of MSP_PROJECTS (test2V2000.mdb) with every memo and the OLE column
// long enough for pages of their own.
Row bigProjectRow(const TableDef& t, int n) {
  Row r(t.columns.size());
  for (size_t i = 0; i < t.columns.size(); ++i) {
    const ColumnDef& c = t.columns[i];
    if (c.type == coltype::kBoolean) r[i] = true;
    if (c.type == coltype::kMemo) r[i] = filler(2500 + 10 * i, static_cast<size_t>(n));
    if (c.type == coltype::kOle) r[i] = Blob(9000, static_cast<uint8_t>(n));
  }
  r[columnIndex(t, "PROJ_ID")] = 500 + n;
  r[columnIndex(t, "PROJ_NAME")] = "Project " + std::to_string(n);
  return r;
}

TEST(WriterAtomicity, AReadFailingAnywhereInAnEditUndoesEveryPage) {
  // The engine reads pages as it first needs them, so failing the k-th read
  // stops an operation at a different point for each k: after long values
  // were written or freed, after the row went in but before its index
  // entries ... Each time the file must come out as it went in, and the
  // Database must go on working.
  const std::vector<uint8_t> original = readFile(corpusPath("test2V2000.mdb"));
  using Op = std::function<void(Database&, const TableDef&, RowId)>;
  const std::pair<const char*, Op> ops[] = {
      {"insert",
       [](Database& db, const TableDef& t, RowId) { db.insertRow(t, bigProjectRow(t, 2)); }},
      {"update",
       [](Database& db, const TableDef& t, RowId id) { db.updateRow(t, id, bigProjectRow(t, 2)); }},
      {"delete", [](Database& db, const TableDef& t, RowId id) { db.deleteRow(t, id); }},
  };
  int failed = 0;
  for (const auto& [what, op] : ops) {
    bool succeeded = false;
    for (long k = 0; k < 400 && !succeeded; ++k) {
      SCOPED_TRACE(std::string(what) + ", read " + std::to_string(k / 2) +
                   (k % 2 ? " after another insert" : ""));
      auto faulty =
          std::make_unique<FaultyStore>(std::make_unique<MemoryStore>(original, "test2V2000.mdb"));
      FaultyStore& fs = *faulty;
      auto db = Database::open(std::move(faulty));
      const TableDef& t = db->table("MSP_PROJECTS");
      RowId target{};
      db->scanRows(t, [&](RowId id, Bytes) { return target = id, false; });
      // For odd k one row goes in first, so that the operation meets pages
      // already changed; flushing leaves the pages it did not need unread.
      if (k % 2) {
        db->insertRow(t, bigProjectRow(t, 1));
        db->flush();
      }
      const std::vector<uint8_t> before = static_cast<MemoryStore&>(fs.inner()).bytes();
      const uint32_t pages = db->pageCount();
      const uint32_t rowCount = t.rowCount;
      fs.failReadsAfter(k / 2);
      try {
        op(*db, t, target);
        succeeded = k % 2 == 0;
        continue;
      } catch (const JetError& e) {
        EXPECT_EQ(static_cast<int>(e.kind()), static_cast<int>(Kind::kIo)) << e.what();
      }
      ++failed;
      fs.failReadsAfter(-1);
      EXPECT_EQ(t.rowCount, rowCount);
      EXPECT_EQ(db->openSavepoints(), 0u);
      EXPECT_EQ(db->pageCount(), pages);
      db->flush();
      EXPECT_TRUE(static_cast<MemoryStore&>(fs.inner()).bytes() == before) << "the file changed";
      EXPECT_EQ(checkDatabase(*db), std::vector<std::string>{});
      EXPECT_NO_THROW(op(*db, t, target));
      EXPECT_EQ(checkDatabase(*db), std::vector<std::string>{});
      if (testing::Test::HasFailure()) return;
    }
    EXPECT_TRUE(succeeded) << what;
  }
  EXPECT_GE(failed, 10);
}

// Each write must be refused as unsupported, its message holding every one
// of `words`, and no page of `db` changed.
void expectUnsupported(Database& db, const std::vector<std::string>& words,
                       const std::vector<std::function<void()>>& writes) {
  const std::vector<std::vector<uint8_t>> before = allPages(db);
  for (const auto& write : writes) {
    const std::string msg = expectError(Kind::kUnsupported, write);
    for (const std::string& w : words) EXPECT_NE(msg.find(w), std::string::npos) << msg;
  }
  EXPECT_TRUE(allPages(db) == before);
}

TEST(WriterRefusals, ReadOnlyFilesSystemTablesAndEnforcedRelationshipsSayWhy) {
  {
    TempDir dir;
    const std::string path = dir.file("readonly.mdb");
    writeFile(path, readFile(corpusPath("testV2000.mdb")));
    auto db = Database::openFile(path);  // not writable
    const TableDef& t = db->table("Table1");
    EXPECT_NE(db->whyNotWritable(t).find("read-only"), std::string::npos);
    expectUnsupported(*db, {"read-only", path}, {[&] { db->insertRow(t, table1Row("x")); }});
    EXPECT_TRUE(readFile(path) == readFile(corpusPath("testV2000.mdb")));
  }
  {
    auto db = openCopy("testV2000.mdb");
    const TableDef& t = db->table("MSysObjects");
    RowId first{};
    db->scanRows(t, [&](RowId id, Bytes) { return first = id, false; });
    expectUnsupported(*db, {"system table", "MSysObjects"},
                      {[&] { db->insertRow(t, Row(t.columns.size())); },
                       [&] { db->updateRow(t, first, db->decodeRow(t, *db->rowData(first))); },
                       [&] { db->deleteRow(t, first); }});
  }
  {
    // indexTestV2000.mdb: Table1.otherfk1 refers to Table2.id with
    // referential integrity enforced and cascading deletes, which the engine
    // does not keep: both sides are refused.
    auto db = openCopy("indexTestV2000.mdb");
    const TableDef& t1 = db->table("Table1");
    const TableDef& t2 = db->table("Table2");
    EXPECT_NE(db->whyNotWritable(t1).find("relationship"), std::string::npos);
    RowId any{};
    db->scanRows(t2, [&](RowId id, Bytes) { return any = id, false; });
    expectUnsupported(*db, {db->whyNotWritable(t1)}, {[&] {
      db->insertRow(t1, {99, 99, std::monostate{}, std::string("dangling"), std::monostate{}});
    }});
    expectUnsupported(*db, {db->whyNotWritable(t2)}, {[&] { db->deleteRow(t2, any); }});
  }
}

TEST(WriterRefusals, AJet3TableTakesOnlyWhatJet3Holds) {
  auto db = openCopy("testV1997.mdb");
  const std::vector<uint8_t> before = flushed(*db);
  auto spec = [](const std::string& column, uint8_t type) {
    return TableSpec{"Karten", {{"Id", coltype::kLong, 0, true}, {column, type, 20}}, {}};
  };
  std::string msg =
      expectError(Kind::kInvalid, [&] { createTable(*db, spec("\u5730", coltype::kText)); });
  EXPECT_NE(msg.find("cannot hold the character"), std::string::npos) << msg;
  msg = expectError(Kind::kInvalid, [&] { createTable(*db, spec("Betrag", coltype::kDecimal)); });
  EXPECT_NE(msg.find("no Decimal"), std::string::npos) << msg;
  EXPECT_TRUE(flushed(*db) == before);
  EXPECT_EQ(createTable(*db, spec("Gr\u00f6\u00dfe", coltype::kText)).columns[1].length, 20);
}

TEST(WriterFlush, AFailedWriteRaisesIoAndTheCallerMustWorkOnACopy) {
  const std::vector<uint8_t> original = readFile(corpusPath("testV2000.mdb"));
  auto edit = [](Database& db) {
    const TableDef& t = db.table("Table1");
    for (int i = 0; i < 150; ++i)
      db.insertRow(t, table1Row("flush " + std::to_string(i) + filler(40, i)));
  };
  auto plain = jettest::openBytes(original, "testV2000.mdb");
  edit(*plain);
  const std::vector<uint8_t> intended = flushed(*plain);

  auto faulty =
      std::make_unique<FaultyStore>(std::make_unique<MemoryStore>(original, "testV2000.mdb"));
  FaultyStore& fs = *faulty;
  const auto& inner = static_cast<MemoryStore&>(fs.inner()).bytes();
  auto db = Database::open(std::move(faulty));
  edit(*db);
  fs.failWritesAfter(3);
  std::string msg = expectError(Kind::kIo, [&] { db->flush(); });
  EXPECT_NE(msg.find("testV2000.mdb"), std::string::npos) << msg;
  // Some pages went out, others did not: the file is neither the old one nor
  // the new one. This is why csdtool and the editor edit a copy and only put
  // it in place once flush() has returned.
  EXPECT_FALSE(inner == original);
  EXPECT_FALSE(inner == intended);
  EXPECT_FALSE(checkDatabase(*jettest::openBytes(inner, "half.mdb")).empty());
  // The changes are still held; once the store works again they all go out.
  EXPECT_TRUE(db->hasUnflushedChanges());
  fs.failWritesAfter(-1);
  db->flush();
  EXPECT_TRUE(inner == intended);

  // A full disk and a failed sync are I/O errors too.
  auto disk = std::make_unique<FaultyStore>(std::make_unique<MemoryStore>(original, "full.mdb"));
  FaultyStore& ds = *disk;
  auto db2 = Database::open(std::move(disk));
  edit(*db2);
  ds.failWritesAfterBytes(10000);
  expectError(Kind::kIo, [&] { db2->flush(); });
  ds.failWritesAfterBytes(UINT64_MAX >> 2);
  ds.failSync(true);
  expectError(Kind::kIo, [&] { db2->flush(); });
}

}  // namespace
