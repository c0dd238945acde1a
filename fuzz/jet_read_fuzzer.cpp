// libFuzzer target over the engine's whole read path: header, catalog, every
// table definition, every row with every column decoded (long values
// included), every index tree and the free-space usage maps.
//
// A damaged file may only ever raise jet::JetError. Everything else that
// leaves the engine (std::bad_alloc, std::length_error, std::out_of_range, a
// sanitizer report, a libstdc++ assertion, a hang) is a fault in the engine,
// so only JetError is caught here and anything else reaches libFuzzer.
//
// Failures are caught as close to where they happen as the API allows: a bad
// row does not end its table's scan, a bad table does not end the catalog
// walk, and a bad index does not hide the next one. That keeps the rest of a
// mutated file reachable.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "jet/database.h"
#include "jet/error.h"
#include "jet/page_store.h"
#include "jet/value.h"

namespace {

// Renders a value as csdtool's export would, so the value formatters run on
// whatever the decoder hands out.
size_t render(const jet::Value& v) {
  return std::visit(
      [](const auto& x) -> size_t {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, jet::Currency>) {
          return jet::currencyToString(x).size();
        } else if constexpr (std::is_same_v<T, jet::DateTime>) {
          return jet::dateToIso(x).size();
        } else if constexpr (std::is_same_v<T, jet::Guid>) {
          return jet::guidToString(x).size();
        } else if constexpr (std::is_same_v<T, jet::Decimal>) {
          return jet::decimalToString(x).size();
        } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, jet::Blob>) {
          return x.size();
        } else {
          return 1;
        }
      },
      v);
}

void readTable(jet::Database& db, const jet::CatalogEntry& e) {
  const jet::TableDef* t = nullptr;
  try {
    t = &db.tableAtPage(e.tdefPage(), e.name);
  } catch (const jet::JetError&) {
    return;
  }
  try {
    db.scanRows(*t, [&](jet::RowId, jet::Bytes row) {
      try {
        for (const jet::Value& v : db.decodeRow(*t, row)) render(v);
      } catch (const jet::JetError&) {
        // One bad row; the scan goes on.
      }
      return true;
    });
  } catch (const jet::JetError&) {
  }
  for (const jet::RealIndex& ri : t->realIndexes) {
    try {
      db.readIndex(ri);
    } catch (const jet::JetError&) {
    }
  }
  try {
    db.usageMapPages(t->freeSpacePages);
  } catch (const jet::JetError&) {
  }
}

// Jet 3 pages are 2 KiB, Jet 4 pages 4 KiB; the version byte tells which.
size_t pageSizeOf(const uint8_t* data, size_t size) {
  return size > 0x14 && data[0x14] == 0 ? 2048 : 4096;
}

}  // namespace

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::unique_ptr<jet::Database> db;
  try {
    db = jet::Database::open(
        std::make_unique<jet::MemoryStore>(std::vector<uint8_t>(data, data + size), "fuzz.mdb"));
  } catch (const jet::JetError&) {
    return 0;
  }
  const std::vector<jet::CatalogEntry>* catalog = nullptr;
  try {
    catalog = &db->catalog();
  } catch (const jet::JetError&) {
    return 0;
  }
  // Several catalog rows may name one definition page; reading it again only
  // repeats the same rows from the same cache and lets a file full of such
  // rows make the harness, not the engine, slow.
  std::set<uint32_t> done;
  for (const jet::CatalogEntry& e : *catalog)
    if (e.isTable() && done.insert(e.tdefPage()).second) readTable(*db, e);
  return 0;
}

// The seeds are real files of 16 to 750 pages, and what steers the engine
// sits in a few bytes of each page: the page header, the row offset table,
// the index entry mask, the table definition's header and column entries,
// a row's null mask and variable offsets. Mutating a random spot of a 3 MB
// file mostly lands in text nobody branches on, so most mutations here are
// aimed at one page, preferring its first bytes, and keep the file's length
// so every page stays where the page numbers say it is. The rest go to
// libFuzzer's own mutator over the whole input (which also grows and
// shrinks files). The dictionary (-dict) feeds both.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
  std::minstd_rand rng(seed);
  const size_t pageSize = pageSizeOf(data, size);
  if (size > maxSize) {
    // libFuzzer wants a shorter input (-minimize_crash, a smaller -max_len).
    // Cutting whole pages off the end keeps the rest of the file addressable;
    // libFuzzer's byte erasure shifts every later page and rarely helps.
    if (maxSize >= pageSize && rng() % 2) {
      const size_t keep = 1 + rng() % (maxSize / pageSize);
      return keep * pageSize;
    }
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  if (size < 2 * pageSize || rng() % 100 < 15) return LLVMFuzzerMutate(data, size, maxSize);

  const size_t pages = size / pageSize;
  if (rng() % 100 < 4) {
    // Now and then drop trailing pages: a shorter file that reaches the same
    // code replaces the longer one in the corpus, and short files run faster.
    return (1 + rng() % (pages - 1)) * pageSize;
  }
  const size_t pageStart = (rng() % pages) * pageSize;
  size_t offset = 0, window = 0;
  const unsigned pick = rng() % 85;
  if (pick < 35) {
    window = 64;  // page header, row count, first row offsets
  } else if (pick < 60) {
    window = 32;  // anywhere: a row's trailing tables, a long value header
    offset = rng() % (pageSize - window + 1);
  } else if (pick < 75) {
    window = 512;  // table definition header and column entries, index mask
  } else {
    window = pageSize;
  }

  uint8_t* at = data + pageStart + offset;
  std::vector<uint8_t> buf(at, at + window);
  const size_t n = LLVMFuzzerMutate(buf.data(), window, window);
  // A shrinking mutation leaves the window's tail as it was.
  std::copy(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(std::min(n, window)), at);
  return size;
}
