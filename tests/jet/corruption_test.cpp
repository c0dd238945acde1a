// Damaged files: every fault must come back as a JetError that names the
// file, the page and the fault; never a crash, a hang or a huge allocation.
#include <gtest/gtest.h>

#include <random>

#include "jet/error.h"
#include "tests/jet/test_util.h"

using namespace jet;
using jettest::DamagedFile;

namespace {

testing::AssertionResult failsWith(DamagedFile& f, const std::string& page,
                                   const std::string& fault) {
  std::string msg = f.readError();
  if (msg.empty()) return testing::AssertionFailure() << "read without error";
  if (msg.rfind("damaged.mdb: ", 0) != 0)
    return testing::AssertionFailure() << "file not named: " << msg;
  if (!page.empty() && msg.find("page " + page + ":") == std::string::npos)
    return testing::AssertionFailure() << "page " << page << " not named: " << msg;
  if (msg.find(fault) == std::string::npos)
    return testing::AssertionFailure() << "fault '" << fault << "' not named: " << msg;
  return testing::AssertionSuccess() << msg;
}

// Where things are in an intact copy, found through the reader itself.
struct Landmarks {
  uint32_t tdef = 0;       // Table1's definition
  uint32_t dataPage = 0;   // a data page of Table1
  size_t tdefNumCols = 0;  // offsets inside the definition
  size_t tdefNext = 0;
};

Landmarks find(const std::string& corpusName, const std::string& table = "Table1") {
  auto db = Database::openFile(jettest::corpusPath(corpusName));
  const TableDef& t = db->table(table);
  Landmarks m;
  m.tdef = t.tdefPage;
  db->scanRows(t, [&](RowId id, Bytes) { return m.dataPage = id.page, false; });
  m.tdefNumCols = db->format().tdefNumColsOffset;
  m.tdefNext = db->format().tdefNextPageOffset;
  return m;
}

TEST(Damaged, FilesThatAreNotJetDatabasesAreRefusedAtOpen) {
  struct Case {
    std::vector<uint8_t> bytes;
    const char* fault;
    JetError::Kind kind;
  };
  std::vector<uint8_t> text(5000, 'x');
  std::vector<uint8_t> ace = jettest::readFile(jettest::corpusPath("adox_jet4.mdb"));
  std::copy_n("Standard ACE DB", 15, ace.begin() + 4);
  std::vector<uint8_t> future = jettest::readFile(jettest::corpusPath("adox_jet4.mdb"));
  future[0x14] = 0x05;
  std::vector<Case> cases = {
      {{}, "empty file", JetError::Kind::kCorrupt},
      {std::vector<uint8_t>(100, 0), "too short", JetError::Kind::kCorrupt},
      {text, "not a Jet database", JetError::Kind::kCorrupt},
      {ace, "ACE", JetError::Kind::kUnsupported},
      {future, "version byte 5", JetError::Kind::kUnsupported},
  };
  for (const Case& c : cases) {
    try {
      jettest::openBytes(c.bytes, "odd.mdb");
      ADD_FAILURE() << "opened: " << c.fault;
    } catch (const JetError& e) {
      EXPECT_EQ(e.kind(), c.kind) << e.what();
      EXPECT_NE(std::string(e.what()).find("odd.mdb: "), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find(c.fault), std::string::npos) << e.what();
    }
  }
}

TEST(Damaged, EncryptedDatabaseIsRefused) {
  DamagedFile f("adox_jet4.mdb");
  std::span<uint8_t> pg0(f.page(0), f.pageSize());
  maskHeader(pg0, Version::kJet4);  // unmask, set the key, mask again
  put32le(f.page(0) + header::kEncodingKeyOffset, 0x12345678);
  maskHeader(pg0, Version::kJet4);
  try {
    f.open();
    FAIL() << "opened an encrypted file";
  } catch (const JetError& e) {
    EXPECT_EQ(e.kind(), JetError::Kind::kUnsupported);
    EXPECT_NE(std::string(e.what()).find("encrypted"), std::string::npos) << e.what();
  }
}

TEST(Damaged, TruncatedFileNamesThePagePastTheEnd) {
  Landmarks m = find("testV2000.mdb");
  DamagedFile f("testV2000.mdb");
  f.truncate(static_cast<size_t>(m.tdef) * f.pageSize());
  // The first page the reader needs past the cut is named, with the size.
  std::string pages = std::to_string(m.tdef) + " pages";
  EXPECT_TRUE(failsWith(f, "", "page past end of file (" + pages + ")"));
}

TEST(Damaged, EveryTruncatedPrefixReadsOrFailsCleanly) {
  DamagedFile whole("delTestV1997.mdb");
  const size_t size = whole.bytes().size();
  int clean = 0, failed = 0;
  for (size_t cut = 0; cut <= size; cut += whole.pageSize() / 2) {
    DamagedFile f("delTestV1997.mdb");
    f.truncate(cut);
    (f.readError().empty() ? clean : failed)++;
  }
  EXPECT_GT(failed, 0);
  EXPECT_GE(clean, 1);  // the whole file
}

TEST(Damaged, TableDefinitionChainPastEndOrLooping) {
  Landmarks m = find("testV2000.mdb");
  DamagedFile past("testV2000.mdb");
  past.set32(m.tdef, m.tdefNext, 0x00ABCDEF);
  EXPECT_TRUE(failsWith(past, std::to_string(0x00ABCDEF), "page past end of file"));

  DamagedFile loop("testV2000.mdb");
  loop.set32(m.tdef, m.tdefNext, m.tdef);
  EXPECT_TRUE(failsWith(loop, std::to_string(m.tdef), "loop in the table definition"));
}

TEST(Damaged, BadColumnCounts) {
  Landmarks m = find("testV2000.mdb");
  DamagedFile huge("testV2000.mdb");
  huge.set16(m.tdef, m.tdefNumCols, 5000);
  EXPECT_TRUE(failsWith(huge, std::to_string(m.tdef), "bad column count 5000"));

  // More columns than the maximum the table ever had.
  DamagedFile over("testV2000.mdb");
  over.set16(m.tdef, m.tdefNumCols, 200);
  EXPECT_TRUE(failsWith(over, std::to_string(m.tdef), "exceeds maximum"));

  // A row claiming more columns than the table can have.
  DamagedFile row("testV2000.mdb");
  uint8_t* pg = row.page(m.dataPage);
  uint16_t start = u16le(pg + kJet4Format.dataRowTableOffset) & kRowOffsetMask;
  put16le(pg + start, 0x7FFF);
  EXPECT_TRUE(failsWith(row, std::to_string(m.dataPage), "row claims 32767 columns"));
}

TEST(Damaged, RowOffsetsOutsideThePage) {
  Landmarks m = find("testV2000.mdb");
  DamagedFile f("testV2000.mdb");
  f.set16(m.dataPage, kJet4Format.dataRowTableOffset, 0x1F00);
  EXPECT_TRUE(failsWith(f, std::to_string(m.dataPage), "row offset 7936 past end of page"));

  DamagedFile count("testV2000.mdb");
  count.set16(m.dataPage, kJet4Format.dataRowCountOffset, 3000);
  EXPECT_TRUE(failsWith(count, std::to_string(m.dataPage), "row count 3000"));
}

TEST(Damaged, VariableColumnBoundsPastTheRow) {
  Landmarks m = find("testV2000.mdb");
  DamagedFile f("testV2000.mdb");
  uint8_t* pg = f.page(m.dataPage);
  uint16_t start = u16le(pg + kJet4Format.dataRowTableOffset) & kRowOffsetMask;
  // Row 0 ends at the end of the page; Table1 has 9 columns, so a 2-byte
  // null mask, then the variable count, then the offsets, first one last.
  size_t firstOffset = f.pageSize() - 2 - 2 - 2;
  put16le(pg + firstOffset, static_cast<uint16_t>(f.pageSize() - start));
  EXPECT_TRUE(failsWith(f, std::to_string(m.dataPage), "has bad bounds"));
}

TEST(Damaged, LongValueChainsThatLoopOrOverclaim) {
  // testV2000 holds one chained memo; find its first LVAL row.
  auto db = Database::openFile(jettest::corpusPath("testV2000.mdb"));
  RowId lval{};
  uint32_t rowPage = 0;
  size_t headerOffset = 0;
  for (const CatalogEntry& e : db->catalog()) {
    if (!e.isTable()) continue;
    const TableDef& t = db->tableAtPage(e.tdefPage(), e.name);
    db->scanRows(t, [&](RowId id, Bytes row) {
      RowLayout l = RowLayout::of(db->format(), t, row, 0);
      for (const ColumnDef& c : t.columns) {
        if (!c.isLongValue() || !l.present(c)) continue;
        Bytes h = l.bytesOf(db->format(), c, row, 0);
        if ((u32le(h.data()) >> 30) == 0) {
          lval = RowId::unpack(u32le(h.data() + 4));
          rowPage = id.page;
          headerOffset = h.data() - db->page(id.page).data();
        }
      }
      return true;
    });
  }
  ASSERT_NE(lval.page, 0u);

  DamagedFile loop("testV2000.mdb");
  uint8_t* pg = loop.page(lval.page);
  uint16_t start = u16le(pg + kJet4Format.dataRowTableOffset + 2 * lval.row) & kRowOffsetMask;
  put32le(pg + start, lval.pack());  // the chain's first link points back at itself
  EXPECT_TRUE(failsWith(loop, std::to_string(lval.page), "loop in a long value chain"));

  DamagedFile huge("testV2000.mdb");
  put32le(huge.page(rowPage) + headerOffset, 0x3FFFFFFF);
  EXPECT_TRUE(failsWith(huge, std::to_string(rowPage), "more than the file holds"));

  DamagedFile shortChain("testV2000.mdb");
  put32le(shortChain.page(lval.page) + start, 0);  // chain ends after one row
  EXPECT_TRUE(failsWith(shortChain, "", "long value chain ends after"));
}

TEST(Damaged, IndexTreesThatLoopOrOverrunThePage) {
  // compIndexTestV2000's first index has a node page at its root.
  auto db = Database::openFile(jettest::corpusPath("compIndexTestV2000.mdb"));
  const RealIndex& ri = db->table("Table1").realIndexes[0];
  IndexPage root = db->readIndexPage(ri.rootPage);
  ASSERT_FALSE(root.leaf);
  const Format& fmt = db->format();

  DamagedFile loop("compIndexTestV2000.mdb");
  loop.set32(ri.rootPage, fmt.indexTailPageOffset, 0);
  // The one node entry's child pointer is the last four bytes of the entry,
  // big-endian; point it at the root.
  uint8_t* pg = loop.page(ri.rootPage);
  size_t dataPos = fmt.indexEntryMaskOffset + fmt.indexEntryMaskSize;
  size_t end = 0;
  for (size_t i = 0; i < static_cast<size_t>(fmt.indexEntryMaskSize) && !end; ++i)
    for (int b = 0; b < 8 && !end; ++b)
      if (pg[fmt.indexEntryMaskOffset + i] & (1 << b)) end = i * 8 + b;
  ASSERT_GT(end, 8u);
  put32be(pg + dataPos + end - 4, ri.rootPage);
  EXPECT_TRUE(failsWith(loop, std::to_string(ri.rootPage), "reached twice"));

  DamagedFile overrun("compIndexTestV2000.mdb");
  uint8_t* pg2 = overrun.page(ri.rootPage);
  std::fill_n(pg2 + fmt.indexEntryMaskOffset, fmt.indexEntryMaskSize, 0);
  pg2[fmt.indexEntryMaskOffset + fmt.indexEntryMaskSize - 1] = 0x80;  // one entry to the mask's end
  EXPECT_TRUE(failsWith(overrun, std::to_string(ri.rootPage), "past end of page"));

  DamagedFile wrongType("compIndexTestV2000.mdb");
  wrongType.set8(ri.rootPage, 0, page::kData);
  EXPECT_TRUE(failsWith(wrongType, std::to_string(ri.rootPage), "expected an index page"));
}

TEST(Damaged, OverflowPointersThatLoop) {
  Landmarks m = find("testV2000.mdb");
  DamagedFile f("testV2000.mdb");
  uint8_t* pg = f.page(m.dataPage);
  uint16_t raw = u16le(pg + kJet4Format.dataRowTableOffset);
  put16le(pg + kJet4Format.dataRowTableOffset, (raw & kRowOffsetMask) | kRowOverflow);
  uint16_t start = raw & kRowOffsetMask;
  pg[start] = 0;  // row 0 of this very page
  put24le(pg + start + 1, m.dataPage);
  EXPECT_TRUE(failsWith(f, std::to_string(m.dataPage), "overflow pointer leads to another"));
}

TEST(Damaged, UnknownUsageMapType) {
  auto db = Database::openFile(jettest::corpusPath("testV2000.mdb"));
  RowId map = RowId::unpack(db->table("Table1").ownedPages);
  Bytes pg = db->page(map.page);
  uint16_t start = u16le(&pg[kJet4Format.dataRowTableOffset + 2 * map.row]) & kRowOffsetMask;
  DamagedFile f("testV2000.mdb");
  f.set8(map.page, start, 7);
  EXPECT_TRUE(failsWith(f, std::to_string(map.page), "unknown usage map type 7"));
}

TEST(Damaged, RandomByteDamageNeverEscapesAsAnythingButJetError) {
  // A cheap, deterministic cousin of the fuzzer, run on every test pass.
  const std::vector<uint8_t> clean = jettest::readFile(jettest::corpusPath("delTestV2000.mdb"));
  std::mt19937 rng(20261122);
  int errors = 0;
  for (int round = 0; round < 400; ++round) {
    std::vector<uint8_t> bytes = clean;
    int flips = 1 + static_cast<int>(rng() % 16);
    for (int i = 0; i < flips; ++i) {
      // Favour the first pages, where the catalog and definitions live.
      size_t at = rng() % 2 ? rng() % std::min<size_t>(bytes.size(), 4096 * 8) : rng() % bytes.size();
      bytes[at] = static_cast<uint8_t>(rng());
    }
    try {
      auto db = jettest::openBytes(bytes);
      jettest::readEverything(*db);
    } catch (const JetError&) {
      ++errors;
    }
  }
  EXPECT_GT(errors, 0);
}

}  // namespace
