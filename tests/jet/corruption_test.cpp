// Damaged files: every fault must come back as a JetError that names the
// file, the page and the fault; never a crash, a hang or a huge allocation.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <span>

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

TEST(Damaged, FilesThatAreNotJetDatabasesAreRefusedAtOpen) {
  struct Case {
    std::vector<uint8_t> bytes;
    const char* fault;
    JetError::Kind kind;
  };
  std::vector<uint8_t> text(5000, 'x');
  std::vector<uint8_t> ace = jettest::readFile(jettest::corpusPath("adox_jet4.mdb"));
  std::vector<uint8_t> future = ace, encrypted = ace;
  std::copy_n("Standard ACE DB", 15, ace.begin() + 4);
  future[0x14] = 0x05;
  std::span<uint8_t> pg0(encrypted.data(), kJet4Format.pageSize);
  maskHeader(pg0, Version::kJet4);  // unmask, set the key, mask again
  put32le(pg0.data() + header::kEncodingKeyOffset, 0x12345678);
  maskHeader(pg0, Version::kJet4);
  std::vector<Case> cases = {
      {{}, "empty file", JetError::Kind::kCorrupt},
      {std::vector<uint8_t>(100, 0), "too short", JetError::Kind::kCorrupt},
      {text, "not a Jet database", JetError::Kind::kCorrupt},
      {ace, "ACE", JetError::Kind::kUnsupported},
      {future, "version byte 5", JetError::Kind::kUnsupported},
      {encrypted, "encrypted", JetError::Kind::kUnsupported},
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

// Where things are in intact copies, found through the reader itself.
struct Landmarks {
  // In testV2000.mdb:
  uint32_t tdef = 0;      // Table1's definition
  uint32_t dataPage = 0;  // a data page of Table1 ...
  uint16_t row0 = 0;      // ... and where its row 0 starts
  RowId usageMap{};       // Table1's owned-pages map ...
  uint16_t usageMapAt = 0;
  RowId lval{};  // the first row of the file's one chained memo ...
  uint16_t lvalAt = 0;
  uint32_t memoPage = 0;  // ... and its header in the row that holds it
  size_t memoAt = 0;
  // In compIndexTestV2000.mdb: the node page at the root of Table1's first
  // index, and where its one entry's child pointer (big-endian) sits.
  uint32_t indexRoot = 0;
  size_t childAt = 0;
};

Landmarks landmarks() {
  auto db = Database::openFile(jettest::corpusPath("testV2000.mdb"));
  const Format& fmt = kJet4Format;  // of both files
  auto rowStart = [&](RowId id) {
    return static_cast<uint16_t>(
        u16le(db->page(id.page).data() + fmt.dataRowTableOffset + 2 * id.row) & kRowOffsetMask);
  };
  const TableDef& t1 = db->table("Table1");
  Landmarks m;
  m.tdef = t1.tdefPage;
  db->scanRows(t1, [&](RowId id, Bytes) { return m.dataPage = id.page, false; });
  m.row0 = rowStart({m.dataPage, 0});
  m.usageMap = RowId::unpack(t1.ownedPages);
  m.usageMapAt = rowStart(m.usageMap);
  for (const CatalogEntry& e : db->catalog()) {
    if (!e.isTable()) continue;
    const TableDef& t = db->tableAtPage(e.tdefPage(), e.name);
    db->scanRows(t, [&](RowId id, Bytes row) {
      RowLayout l = RowLayout::of(fmt, t, row, 0);
      for (const ColumnDef& c : t.columns) {
        if (!c.isLongValue() || !l.present(c)) continue;
        Bytes h = l.bytesOf(fmt, c, row, 0);
        if ((u32le(h.data()) >> 30) == 0) {
          m.lval = RowId::unpack(u32le(h.data() + 4));
          m.memoPage = id.page;
          m.memoAt = h.data() - db->page(id.page).data();
        }
      }
      return true;
    });
  }
  EXPECT_NE(m.lval.page, 0u);
  m.lvalAt = rowStart(m.lval);

  db = Database::openFile(jettest::corpusPath("compIndexTestV2000.mdb"));
  m.indexRoot = db->table("Table1").realIndexes[0].rootPage;
  EXPECT_FALSE(db->readIndexPage(m.indexRoot).leaf);
  const uint8_t* mask = db->page(m.indexRoot).data() + fmt.indexEntryMaskOffset;
  size_t end = 0;  // the entry's end: the first bit set in the entry mask
  while (end < 8u * fmt.indexEntryMaskSize && !(mask[end / 8] & (1 << end % 8))) ++end;
  EXPECT_GT(end, 8u);
  m.childAt = fmt.indexEntryMaskOffset + fmt.indexEntryMaskSize + end - 4;
  return m;
}

// Each case damages a copy of a corpus file; reading it must fail naming
// the page ("": none in particular) and the fault.
TEST(Damaged, EachFaultNamesItsPage) {
  const Landmarks m = landmarks();
  const Format& fmt = kJet4Format;
  const std::string tdef = std::to_string(m.tdef), data = std::to_string(m.dataPage);
  struct Case {
    std::string page, fault;
    std::function<void(DamagedFile&)> damage;
    const char* file = "testV2000.mdb";
  };
  const std::string root = std::to_string(m.indexRoot);
  const char* const compIndex = "compIndexTestV2000.mdb";
  const Case cases[] = {
      // The first page the reader needs past the cut is named, with the size.
      {"", "page past end of file (" + tdef + " pages)",
       [&](DamagedFile& f) { f.truncate(static_cast<size_t>(m.tdef) * fmt.pageSize); }},
      {std::to_string(0xABCDEF), "page past end of file",
       [&](DamagedFile& f) { f.set32(m.tdef, fmt.tdefNextPageOffset, 0xABCDEF); }},
      {tdef, "loop in the table definition",
       [&](DamagedFile& f) { f.set32(m.tdef, fmt.tdefNextPageOffset, m.tdef); }},
      {tdef, "bad column count 5000",
       [&](DamagedFile& f) { f.set16(m.tdef, fmt.tdefNumColsOffset, 5000); }},
      // More columns than the maximum the table ever had.
      {tdef, "exceeds maximum",
       [&](DamagedFile& f) { f.set16(m.tdef, fmt.tdefNumColsOffset, 200); }},
      {data, "row claims 32767 columns",
       [&](DamagedFile& f) { f.set16(m.dataPage, m.row0, 0x7FFF); }},
      {data, "row offset 7936 past end of page",
       [&](DamagedFile& f) { f.set16(m.dataPage, fmt.dataRowTableOffset, 0x1F00); }},
      {data, "row count 3000",
       [&](DamagedFile& f) { f.set16(m.dataPage, fmt.dataRowCountOffset, 3000); }},
      // Row 0 ends at the end of the page; Table1 has 9 columns, so a 2-byte
      // null mask, then the variable count, then the offsets, first one last.
      {data, "has bad bounds",
       [&](DamagedFile& f) {
         f.set16(m.dataPage, fmt.pageSize - 2 - 2 - 2,
                 static_cast<uint16_t>(fmt.pageSize - m.row0));
       }},
      // Row 0 turned into an overflow pointer to itself.
      {data, "overflow pointer leads to another",
       [&](DamagedFile& f) {
         f.set16(m.dataPage, fmt.dataRowTableOffset, static_cast<uint16_t>(m.row0 | kRowOverflow));
         f.set8(m.dataPage, m.row0, 0);
         put24le(f.page(m.dataPage) + m.row0 + 1, m.dataPage);
       }},
      {std::to_string(m.usageMap.page), "unknown usage map type 7",
       [&](DamagedFile& f) { f.set8(m.usageMap.page, m.usageMapAt, 7); }},
      // The memo chain's first link points back at itself, or ends there.
      {std::to_string(m.lval.page), "loop in a long value chain",
       [&](DamagedFile& f) { f.set32(m.lval.page, m.lvalAt, m.lval.pack()); }},
      {"", "long value chain ends after",
       [&](DamagedFile& f) { f.set32(m.lval.page, m.lvalAt, 0); }},
      {std::to_string(m.memoPage), "more than the file holds",
       [&](DamagedFile& f) { f.set32(m.memoPage, m.memoAt, 0x3FFFFFFF); }},
      // The index node's child pointer leads back to it.
      {root, "reached twice",
       [&](DamagedFile& f) {
         f.set32(m.indexRoot, fmt.indexTailPageOffset, 0);
         put32be(f.page(m.indexRoot) + m.childAt, m.indexRoot);
       },
       compIndex},
      // One entry reaching to the entry mask's end.
      {root, "past end of page",
       [&](DamagedFile& f) {
         std::fill_n(f.page(m.indexRoot) + fmt.indexEntryMaskOffset, fmt.indexEntryMaskSize, 0);
         f.set8(m.indexRoot, fmt.indexEntryMaskOffset + fmt.indexEntryMaskSize - 1, 0x80);
       },
       compIndex},
      {root, "expected an index page", [&](DamagedFile& f) { f.set8(m.indexRoot, 0, page::kData); },
       compIndex},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fault);
    DamagedFile f(c.file);
    c.damage(f);
    EXPECT_TRUE(failsWith(f, c.page, c.fault));
  }
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
      size_t at =
          rng() % 2 ? rng() % std::min<size_t>(bytes.size(), 4096 * 8) : rng() % bytes.size();
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
