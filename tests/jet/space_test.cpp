// Space: what deletes give back is taken again before the file grows (data,
// long value and index pages alike); a later edit of the file goes on
// filling the long value page that has room; index pages fill as Access
// fills them when keys only ever grow; compaction writes a file anew with
// nothing left over, everything else kept.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "jet/check.h"
#include "jet/compact.h"
#include "jet/database.h"
#include "tests/jet/test_util.h"

using namespace jet;
using jettest::corpusFiles;
using jettest::corpusPath;
using jettest::openBytes;
using jettest::readFile;

namespace {

using Row = std::vector<Value>;

const std::vector<uint8_t>& flushed(Database& db) {
  db.flush();
  return static_cast<MemoryStore&>(db.store()).bytes();
}

// `db` compacted in memory and opened again from its bytes.
std::unique_ptr<Database> compacted(Database& db) {
  auto out = compactDatabase(db, std::make_unique<MemoryStore>(std::vector<uint8_t>{}));
  return openBytes(flushed(*out), db.fileName());
}

// Every catalog object's name, type and properties, sorted.
std::vector<std::tuple<std::string, int, Blob>> properties(Database& db) {
  const TableDef& s = db.table("MSysObjects");
  std::vector<std::tuple<std::string, int, Blob>> out;
  for (const CatalogEntry& e : db.catalog()) {
    Value v = db.decodeColumn(s, *s.findColumn("LvProp"), *db.rowData(e.row));
    out.emplace_back(e.name, e.type, isNull(v) ? Blob{} : std::get<Blob>(v));
  }
  std::sort(out.begin(), out.end());
  return out;
}

// What compaction must keep: the same tables (columns and indexes) with the
// same rows in the same order, AutoNumber counters, every object's
// properties, and a clean check (every index entry rebuilt from its row,
// every count true).
void expectSameContent(Database& a, Database& b) {
  EXPECT_EQ(checkDatabase(b, true), std::vector<std::string>{});
  EXPECT_TRUE(properties(a) == properties(b));
  ASSERT_EQ(a.userTableNames(), b.userTableNames());
  for (const std::string& name : a.userTableNames()) {
    SCOPED_TRACE(name);
    const TableDef &ta = a.table(name), &tb = b.table(name);
    EXPECT_EQ(ta.columns, tb.columns);
    EXPECT_EQ(ta.indexes.size(), tb.indexes.size());
    EXPECT_EQ(a.readAll(ta), b.readAll(tb));
    EXPECT_EQ(ta.nextAutoNumber, tb.nextAutoNumber);
    for (size_t k = 0; k < ta.realIndexes.size(); ++k)
      EXPECT_EQ(a.readIndex(ta.realIndexes[k]).size(), b.readIndex(tb.realIndexes[k]).size());
  }
  EXPECT_LE(b.pageCount(), a.pageCount());
}

// Pages of a type in use (data pages: rows and long values alike).
uint32_t pagesOfType(Database& db, uint8_t type) {
  uint32_t n = 0;
  for (uint32_t p = 0; p < db.pageCount(); ++p) n += db.page(p)[0] == type && !db.pageIsFree(p);
  return n;
}

// MSP_PROJECTS of test2V1997.mdb / test2V2000.mdb: a unique Long, a unique
// text and a memo long enough to leave the row.
Row project(const TableDef& t, int n, size_t memo) {
  Row r(t.columns.size());
  for (size_t i = 0; i < t.columns.size(); ++i) {
    const ColumnDef& c = t.columns[i];
    if (c.type == coltype::kBoolean) r[i] = false;
    if (c.name == "PROJ_ID") r[i] = n;
    if (c.name == "PROJ_NAME") r[i] = "project " + std::to_string(n);
    if (c.name == "PROJ_PROP_AUTHOR") r[i] = std::string(memo, static_cast<char>('a' + n % 26));
  }
  return r;
}

TEST(Space, WhatDeletesFreeIsTakenBeforeTheFileGrows) {
  struct Case {
    const char* file;
    int rows;
    size_t memo;
  };
  // Rows with a memo of a page of their own, of part of one, and inline.
  for (const Case& c : {Case{"test2V2000.mdb", 3000, 5000}, Case{"test2V1997.mdb", 3000, 300},
                        Case{"test2V2000.mdb", 6000, 20}}) {
    SCOPED_TRACE(std::string(c.file) + " memo " + std::to_string(c.memo));
    auto db = openBytes(readFile(corpusPath(c.file)), c.file);
    const TableDef& t = db->table("MSP_PROJECTS");
    std::vector<RowId> ids;
    for (int n = 0; n < c.rows; ++n) ids.push_back(db->insertRow(t, project(t, 1000 + n, c.memo)));
    flushed(*db);
    const uint32_t grown = db->pageCount();
    // All of them go, two fifths as many come (with growing keys, as
    // AutoNumbers give): the file stays as it was.
    for (RowId id : ids) db->deleteRow(t, id);
    ids.clear();
    for (int n = 0; n < c.rows * 2 / 5; ++n)
      ids.push_back(db->insertRow(t, project(t, 8000000 + n, c.memo)));
    EXPECT_EQ(db->pageCount(), grown);
    // Every other one goes and as many come: they fill the pages the
    // deleted rows and values left half empty. (Index pages are not merged,
    // so half-empty leaves stay and the new keys need pages of their own.)
    const uint32_t dataPages = pagesOfType(*db, page::kData);
    for (size_t k = 0; k < ids.size(); k += 2) db->deleteRow(t, ids[k]);
    for (int n = 0; n < c.rows / 5; ++n) db->insertRow(t, project(t, 9000000 + n, c.memo));
    EXPECT_LE(pagesOfType(*db, page::kData), dataPages);
    std::vector<uint8_t> bytes = flushed(*db);
    auto back = openBytes(bytes, c.file);
    EXPECT_EQ(checkDatabase(*back), std::vector<std::string>{});
    EXPECT_EQ(back->table("MSP_PROJECTS").rowCount, 1u + 2 * c.rows / 5);
    expectSameContent(*back, *compacted(*back));
  }
}

TEST(Space, EachLaterEditFillsTheColumnsLongValuePage) {
  // Twenty sessions of one row each, as twenty `csdtool insert` runs: their
  // long values share the page the first one opened.
  for (const char* file : {"test2V2000.mdb", "test2V1997.mdb"}) {
    SCOPED_TRACE(file);
    std::vector<uint8_t> bytes = readFile(corpusPath(file));
    const uint32_t before = openBytes(bytes, file)->pageCount();
    for (int session = 0; session < 20; ++session) {
      auto db = openBytes(bytes, file);
      const TableDef& t = db->table("MSP_PROJECTS");
      db->insertRow(t, project(t, 500 + session, 80));
      bytes = flushed(*db);
    }
    auto db = openBytes(bytes, file);
    // The row pages too have room for all twenty: one of each at most.
    EXPECT_LE(db->pageCount(), before + 2);
    EXPECT_EQ(checkDatabase(*db), std::vector<std::string>{});
  }
}

TEST(Space, AscendingKeysLeaveEveryIndexPageButTheLastFull) {
  // Table3 of testV2000.mdb numbers its rows; both its indexes (the primary
  // key and "id") get each new key at their end.
  auto db = openBytes(readFile(corpusPath("testV2000.mdb")), "testV2000.mdb");
  const TableDef& t = db->table("Table3");
  for (int n = 0; n < 5000; ++n) db->insertRow(t, {std::monostate{}, std::string("row")});
  const Format& f = db->format();
  const size_t capacity = f.pageSize - f.indexEntryMaskOffset - f.indexEntryMaskSize;
  for (const RealIndex& ri : t.realIndexes) {
    IndexPage p = db->readIndexPage(ri.rootPage);
    ASSERT_FALSE(p.leaf);
    while (!p.leaf) p = db->readIndexPage(p.entries.front().child);
    int leaves = 0;
    for (; p.next; p = db->readIndexPage(p.next), ++leaves)
      EXPECT_LT(p.freeSpace, capacity / 20) << "leaf " << p.number << " of index " << ri.number;
    // 5000 entries of 9 bytes, less the prefix: eight or nine full pages.
    EXPECT_LE(leaves, 9);
    EXPECT_EQ(ri.uniqueEntryCount, 5000u);
  }
  EXPECT_EQ(checkDatabase(*db), std::vector<std::string>{});
}

TEST(Compaction, EveryCorpusFileKeepsItsTablesRowsCountersAndProperties) {
  for (const std::string& file : corpusFiles()) {
    SCOPED_TRACE(file);
    auto db = openBytes(readFile(corpusPath(file)), file);
    expectSameContent(*db, *compacted(*db));
  }
}

TEST(Compaction, AHeavilyEditedTableShrinksToAFreshCopyOfItsRows) {
  // 30,000 rows come and all but every 30th go again; a copy that only
  // ever got the survivors is the yardstick.
  for (const char* file : {"testV2000.mdb", "testV1997.mdb"}) {
    SCOPED_TRACE(file);
    auto base = compacted(*openBytes(readFile(corpusPath(file)), file));
    const std::vector<uint8_t> start = flushed(*base);
    auto heavy = openBytes(start, file), fresh = openBytes(start, file);
    const TableDef& t = heavy->table("Table3");
    std::vector<RowId> ids;
    for (int n = 0; n < 30000; ++n)
      ids.push_back(
          heavy->insertRow(t, {std::monostate{}, "row " + std::to_string(n * 7919 % 30000)}));
    for (size_t k = 0; k < ids.size(); ++k) {
      if (k % 30 == 0) {
        const TableDef& f = fresh->table("Table3");
        fresh->insertRow(f, heavy->decodeRow(t, *heavy->rowData(ids[k])));
      } else {
        heavy->deleteRow(t, ids[k]);
      }
    }
    flushed(*heavy);
    auto small = compacted(*heavy);
    expectSameContent(*heavy, *small);
    EXPECT_LE(small->pageCount(), flushed(*fresh).size() / fresh->format().pageSize * 11 / 10);
    EXPECT_GT(heavy->pageCount(), 2 * small->pageCount());
  }
}

}  // namespace
