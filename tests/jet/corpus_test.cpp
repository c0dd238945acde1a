// The reader against real files written by Access and the Jet engine.
// (Field-by-field agreement with mdbtools and mdb-reader is checked by
// compare_corpus.py; these tests check structure the other readers ignore.)
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "jet/error.h"
#include "jet/row_layout.h"
#include "tests/jet/test_util.h"

using namespace jet;
using jettest::corpusFiles;
using jettest::corpusPath;

namespace {

TEST(Corpus, HeadersUnmaskToCodePage1252AndGeneralSortOrder) {
  ASSERT_GE(corpusFiles().size(), 20u);
  for (const std::string& name : corpusFiles()) {
    SCOPED_TRACE(name);
    auto db = Database::openFile(corpusPath(name));
    bool jet3 = name.find("V1997") != std::string::npos;
    EXPECT_EQ(db->header().version, jet3 ? Version::kJet3 : Version::kJet4);
    EXPECT_EQ(db->format().pageSize, jet3 ? 2048u : 4096u);
    // Both live inside the masked area: wrong unmasking gives noise here.
    EXPECT_EQ(db->header().codePage, 1252);
    EXPECT_EQ(db->header().sortOrder, 1033);
    EXPECT_FALSE(db->header().hasPassword);
    if (!jet3) {
      // Creation dates of these files lie between 1995 and 2020.
      EXPECT_GT(db->header().creationDate, 34700.0);
      EXPECT_LT(db->header().creationDate, 44000.0);
    }
  }
}

TEST(Corpus, EveryIndexHoldsEachLiveRowOnceInEntryOrder) {
  size_t indexes = 0, ignoreNulls = 0;
  for (const std::string& name : corpusFiles()) {
    auto db = Database::openFile(corpusPath(name));
    for (const CatalogEntry& e : db->catalog()) {
      if (!e.isTable()) continue;
      const TableDef& t = db->tableAtPage(e.tdefPage(), e.name);
      std::set<RowId> live;
      db->scanRows(t, [&](RowId id, Bytes) { return live.insert(id), true; });
      for (const RealIndex& ri : t.realIndexes) {
        SCOPED_TRACE(name + " " + t.name + " index " + std::to_string(ri.number));
        ++indexes;
        std::vector<IndexEntry> entries = db->readIndex(ri);
        for (size_t i = 1; i < entries.size(); ++i) {
          const IndexEntry& a = entries[i - 1];
          const IndexEntry& b = entries[i];
          EXPECT_TRUE(a.key < b.key || (a.key == b.key && a.row < b.row)) << "entry " << i;
        }
        std::set<RowId> seen;
        for (const IndexEntry& x : entries) {
          EXPECT_TRUE(seen.insert(x.row).second) << "row listed twice";
          EXPECT_TRUE(live.count(x.row)) << "entry for a row that is not live: page "
                                         << x.row.page << " row " << int(x.row.row);
        }
        if (ri.ignoreNulls()) {
          ++ignoreNulls;
          EXPECT_LE(seen.size(), live.size());
        } else {
          EXPECT_EQ(seen, live);
        }
      }
    }
  }
  EXPECT_GT(indexes, 100u);
  EXPECT_GT(ignoreNulls, 0u);
}

TEST(Corpus, UserTableRowCountsMatchTheirDefinitions) {
  for (const std::string& name : corpusFiles()) {
    auto db = Database::openFile(corpusPath(name));
    for (const std::string& table : db->userTableNames()) {
      const TableDef& t = db->table(table);
      size_t n = 0;
      db->scanRows(t, [&](RowId, Bytes) { return ++n, true; });
      EXPECT_EQ(n, t.rowCount) << name << " " << table;
    }
  }
}

TEST(Corpus, DecodesKnownValuesOfEveryFixedType) {
  // Values as mdb-reader reads them.
  auto db = Database::openFile(corpusPath("testV2000.mdb"));
  const TableDef& t = db->table("table1");  // names match without regard to case
  EXPECT_EQ(t.name, "Table1");
  auto rows = db->readAll(t);
  ASSERT_EQ(rows.size(), 2u);
  const auto& r = rows[0];
  EXPECT_EQ(std::get<std::string>(r[0]), "abcdefg");
  EXPECT_EQ(std::get<std::string>(r[1]), "hijklmnop");
  EXPECT_EQ(std::get<int32_t>(r[2]), 2);
  EXPECT_EQ(std::get<int32_t>(r[3]), 222);
  EXPECT_EQ(std::get<int32_t>(r[4]), 333333333);
  EXPECT_DOUBLE_EQ(std::get<double>(r[5]), 444.555);
  EXPECT_EQ(dateToIso(std::get<DateTime>(r[6])), "1974-09-21 00:00:00");
  EXPECT_EQ(std::get<Currency>(r[7]).units, 35000);
  EXPECT_TRUE(std::get<bool>(r[8]));
  EXPECT_FALSE(std::get<bool>(rows[1][8]));
}

TEST(Corpus, ReadsEveryKindOfLongValue) {
  // The corpus stores memo and OLE values inline, on one LVAL page, and in
  // chains of LVAL pages; all three must decode without error, and the
  // corpus must go on exercising all three.
  std::map<uint32_t, int> kinds;
  for (const std::string& name : corpusFiles()) {
    auto db = Database::openFile(corpusPath(name));
    for (const CatalogEntry& e : db->catalog()) {
      if (!e.isTable()) continue;
      const TableDef& t = db->tableAtPage(e.tdefPage(), e.name);
      db->scanRows(t, [&](RowId, Bytes row) {
        RowLayout l = RowLayout::of(db->format(), t, row, 0);
        for (const ColumnDef& c : t.columns) {
          if (!c.isLongValue() || !l.present(c)) continue;
          kinds[u32le(l.bytesOf(db->format(), c, row, 0).data()) >> 30]++;
          EXPECT_NO_THROW(db->decodeColumn(t, c, row)) << name << " " << t.name << " " << c.name;
        }
        return true;
      });
    }
  }
  EXPECT_GT(kinds[2], 0) << "inline";
  EXPECT_GT(kinds[1], 0) << "single page";
  EXPECT_GT(kinds[0], 0) << "chained";
}

TEST(Corpus, JoinsTableDefinitionsSpanningSeveralPages) {
  for (const char* name : {"test2V1997.mdb", "test2V2000.mdb"}) {
    auto db = Database::openFile(corpusPath(name));
    const TableDef& t = db->table("MSP_PROJECTS");
    EXPECT_EQ(t.pages.size(), 2u) << name;
    ASSERT_EQ(t.columns.size(), 74u) << name;  // as mdb-reader counts them
    EXPECT_EQ(t.columns.back().name, "RESERVED_BINARY_DATA");
    EXPECT_EQ(t.columns.back().type, coltype::kOle);
  }
}

TEST(Corpus, CatalogSeparatesSystemAndUserTables) {
  auto db = Database::openFile(corpusPath("testV2000.mdb"));
  std::vector<std::string> user = db->userTableNames();
  EXPECT_EQ(user, (std::vector<std::string>{"Table1", "Table2", "Table3", "Table4"}));
  const TableDef& sys = db->table("msysobjects");
  EXPECT_TRUE(sys.isSystem());
  EXPECT_EQ(sys.tdefPage, kCatalogTdefPage);
  try {
    db->table("NoSuchTable");
    FAIL() << "found a table that does not exist";
  } catch (const JetError& e) {
    EXPECT_EQ(e.kind(), JetError::Kind::kNotFound);
    EXPECT_NE(std::string(e.what()).find("testV2000.mdb"), std::string::npos);
    EXPECT_NE(std::string(e.what()).find("NoSuchTable"), std::string::npos);
  }
}

TEST(Corpus, ReadsIndexDefinitions) {
  auto db = Database::openFile(corpusPath("testV2000.mdb"));
  const TableDef& t = db->table("Table1");
  const LogicalIndex* pk = t.findIndex("PrimaryKey");
  ASSERT_NE(pk, nullptr);
  EXPECT_TRUE(pk->primary());
  const RealIndex& ri = t.realIndexes[pk->realIndex];
  EXPECT_TRUE(ri.unique());
  EXPECT_TRUE(ri.required());
  ASSERT_EQ(ri.columns.size(), 1u);
  EXPECT_EQ(t.columns[ri.columns[0].column].name, "A");
  EXPECT_TRUE(ri.columns[0].ascending);

  // Descending columns: the *_desc tables of the index-codes file.
  auto codes = Database::openFile(corpusPath("testIndexCodesV1997.mdb"));
  const TableDef& d = codes->table("Table1_desc");
  bool anyDescending = false;
  for (const RealIndex& x : d.realIndexes)
    for (const IndexColumn& c : x.columns) anyDescending |= !c.ascending;
  EXPECT_TRUE(anyDescending);
}

}  // namespace
