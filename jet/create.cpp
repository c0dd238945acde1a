// New databases and tables, laid out as the Jet engine lays out its own.
//
// The empty database follows the one the engine itself makes (through ADOX):
// the same header, the same four system tables with the same columns in the
// same order, the same indexes, catalog rows and permission rows. New user
// tables follow what Access writes for a table made in its designer.
#include "jet/create.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <set>
#include <tuple>

#include "jet/bytes.h"
#include "jet/error.h"
#include "jet/row_layout.h"
#include "jet/text.h"

namespace jet {
namespace {

// Constants every Jet 4 definition carries in the places the engine puts them.
constexpr uint32_t kDefinitionTag = 0x0659;   // table, column and logical index blocks
constexpr uint32_t kRealIndexTag = 1923;      // each physical index block
constexpr uint8_t kCascadeDefaults = 0x04;    // both cascade bytes of a logical index
constexpr uint8_t kSysColumnFlag = 0x10;      // on every column of the system tables
constexpr uint8_t kBinaryColumnFlag = 0x20;   // on the SID-like binary system columns
constexpr int kUsageMapRowSize = 69;          // inline map: type, start page, 64 bytes

// Catalog ids of the engine's containers and of the database object.
constexpr int32_t kRootId = 0x0F000000;
constexpr int32_t kTablesId = 0x0F000001;
constexpr int32_t kDatabasesId = 0x0F000002;
constexpr int32_t kRelationshipsId = 0x0F000003;
constexpr int32_t kMSysDbId = 0x10000000;
constexpr int32_t kSystemObject = static_cast<int32_t>(0x80000000);

// The header identity of the engine-made empty database. The engine ties
// the encoding of its built-in account SIDs (below) to the database it made
// them in, so a new file keeps that database's identity: its creation
// stamp, its key word, and the SIDs that go with them.
constexpr uint64_t kCreationDateBits = 0x40E4AB3E3BD3853Eull;  // 2015-11-21 22:40
constexpr uint8_t kIdentityWord[2] = {0x1C, 0x26};   // header offset 0x6A
const Blob kAdminSid = {0x64, 0x8B};    // owner of the database object
const Blob kEngineSid = {0x65, 0x89};   // owner of containers and system tables
const Blob kCreatorSid = {0x65, 0x8E};  // stands for whoever creates an object
const Blob kUsersSid = {0x65, 0x8B};
constexpr int32_t kFullTableRights = 1048319;

struct SysColumn {
  const char* name;
  uint8_t type;
  uint16_t number;
  uint16_t length;
};

struct SysIndex {
  const char* name;
  std::vector<uint16_t> columns;
  uint8_t flags;  // without the 0x80 every Jet 4 index carries
  bool primary;
  int logicalNumber;
};

struct SysTable {
  const char* name;
  std::vector<SysColumn> columns;  // in the order the definition lists them
  std::vector<SysIndex> indexes;   // in physical index order
};

// The system tables, column for column as the engine defines them.
const std::vector<SysTable>& systemTables() {
  static const std::vector<SysTable> tables = {
      {"MSysObjects",
       {{"Connect", coltype::kMemo, 9, 0},      {"Database", coltype::kMemo, 8, 0},
        {"DateCreate", coltype::kDateTime, 4, 8}, {"DateUpdate", coltype::kDateTime, 5, 8},
        {"Flags", coltype::kLong, 7, 4},         {"ForeignName", coltype::kText, 10, 510},
        {"Id", coltype::kLong, 0, 4},            {"Lv", coltype::kOle, 13, 0},
        {"LvExtra", coltype::kOle, 16, 0},       {"LvModule", coltype::kOle, 15, 0},
        {"LvProp", coltype::kOle, 14, 0},        {"Name", coltype::kText, 2, 510},
        {"Owner", coltype::kBinary, 6, 510},     {"ParentId", coltype::kLong, 1, 4},
        {"RmtInfoLong", coltype::kOle, 12, 0},   {"RmtInfoShort", coltype::kBinary, 11, 510},
        {"Type", coltype::kInteger, 3, 2}},
       {{"ParentIdName", {1, 2}, idxflag::kUnique, false, 0},
        {"Id", {0}, idxflag::kUnique, true, 1}}},
      {"MSysACEs",
       {{"ACM", coltype::kLong, 2, 4},
        {"FInheritable", coltype::kBoolean, 3, 1},
        {"ObjectId", coltype::kLong, 0, 4},
        {"SID", coltype::kBinary, 1, 510}},
       {{"ObjectId", {0}, idxflag::kRequired, false, 0}}},
      {"MSysQueries",
       {{"Attribute", coltype::kByte, 1, 1},   {"Expression", coltype::kMemo, 5, 0},
        {"Flag", coltype::kInteger, 6, 2},     {"LvExtra", coltype::kLong, 7, 4},
        {"Name1", coltype::kText, 3, 510},     {"Name2", coltype::kText, 4, 510},
        {"ObjectId", coltype::kLong, 0, 4},    {"Order", coltype::kBinary, 2, 510}},
       {{"ObjectIdAttribute", {0, 1, 2}, idxflag::kUnique, true, 0}}},
      {"MSysRelationships",
       {{"ccolumn", coltype::kLong, 2, 4},
        {"grbit", coltype::kLong, 1, 4},
        {"icolumn", coltype::kLong, 3, 4},
        {"szColumn", coltype::kText, 5, 510},
        {"szObject", coltype::kText, 4, 510},
        {"szReferencedColumn", coltype::kText, 7, 510},
        {"szReferencedObject", coltype::kText, 6, 510},
        {"szRelationship", coltype::kText, 0, 510}},
       {{"szRelationship", {0}, idxflag::kIgnoreNulls, false, 0},
        {"szObject", {4}, idxflag::kIgnoreNulls, false, 1},
        {"szReferencedObject", {6}, idxflag::kIgnoreNulls, false, 2}}},
  };
  return tables;
}

[[noreturn]] void badSpec(const std::string& why) { throw JetError(JetError::Kind::kInvalid, why); }

DateTime now() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&t, &tm);
  return fromCivil({tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec});
}

// A name as definitions store it: Jet 4 a 2-byte length and UCS-2, Jet 3 a
// 1-byte length and Windows-1252 (names were checked to fit beforehand).
void putName(const Format& fmt, std::vector<uint8_t>& out, const std::string& name) {
  std::vector<uint8_t> bytes;
  for (char32_t cp : utf8ToCodePoints(name)) {
    if (fmt.version == Version::kJet3) {
      int b = unicodeToCp1252(cp);
      bytes.push_back(static_cast<uint8_t>(b < 0 ? '?' : b));
      continue;
    }
    if (cp > 0xFFFF) cp = 0xFFFD;
    bytes.push_back(static_cast<uint8_t>(cp));
    bytes.push_back(static_cast<uint8_t>(cp >> 8));
  }
  if (fmt.nameLengthSize == 1) {
    out.push_back(static_cast<uint8_t>(bytes.size()));
  } else {
    uint8_t len[2];
    put16le(len, static_cast<uint16_t>(bytes.size()));
    out.insert(out.end(), len, len + 2);
  }
  out.insert(out.end(), bytes.begin(), bytes.end());
}

template <typename T>
void put(std::vector<uint8_t>& out, size_t at, T v) {
  for (size_t i = 0; i < sizeof(T); ++i) out[at + i] = static_cast<uint8_t>(static_cast<uint64_t>(v) >> (8 * i));
}

// Numbers, variable slots and fixed offsets follow the column numbers:
// fixed columns take their bytes in number order, variable ones their slots,
// and a fixed column's slot field counts the variable columns before it.
void layOut(TableDef& t) {
  std::sort(t.columns.begin(), t.columns.end(),
            [](const ColumnDef& a, const ColumnDef& b) { return a.number < b.number; });
  uint16_t fixedAt = 0, slot = 0;
  for (ColumnDef& c : t.columns) {
    if (c.isFixed()) {
      c.varIndex = slot;
      c.fixedOffset = c.type == coltype::kBoolean ? 0 : fixedAt;
      fixedAt = static_cast<uint16_t>(fixedAt + fixedSizeOf(c.type));
    } else {
      c.varIndex = slot++;
      c.fixedOffset = 0;
    }
  }
  t.maxColumns = static_cast<uint16_t>(t.columns.size());
  t.varColumns = slot;
}

// The definition's bytes: header, index row counts, columns (in `order`),
// names, physical and logical indexes, long value column maps.
std::vector<uint8_t> encodeDefinition(const Format& fmt, const TableDef& t,
                                      const std::vector<size_t>& order) {
  std::vector<uint8_t> out(fmt.tdefHeaderSize, 0);
  out[0] = page::kTableDef;
  out[1] = 0x01;
  const bool jet3 = fmt.version == Version::kJet3;
  if (!jet3) {
    put<uint32_t>(out, 12, kDefinitionTag);
    out[24] = 0x01;  // lets AutoNumber columns work
  }
  put<uint32_t>(out, fmt.tdefNumRowsOffset, t.rowCount);
  put<uint32_t>(out, fmt.tdefAutoNumberOffset, t.nextAutoNumber);
  out[fmt.tdefTableTypeOffset] = t.tableType;
  put<uint16_t>(out, fmt.tdefMaxColsOffset, t.maxColumns);
  put<uint16_t>(out, fmt.tdefNumVarColsOffset, t.varColumns);
  put<uint16_t>(out, fmt.tdefNumColsOffset, static_cast<uint16_t>(t.columns.size()));
  put<uint32_t>(out, fmt.tdefNumIndexSlotsOffset, static_cast<uint32_t>(t.indexes.size()));
  put<uint32_t>(out, fmt.tdefNumIndexesOffset, static_cast<uint32_t>(t.realIndexes.size()));
  put<uint32_t>(out, fmt.tdefOwnedPagesOffset, t.ownedPages);
  put<uint32_t>(out, fmt.tdefFreeSpacePagesOffset, t.freeSpacePages);
  for (const RealIndex& ri : t.realIndexes) {
    size_t at = out.size();
    out.resize(at + fmt.realIndexCountSize, 0);
    put<uint32_t>(out, at + 4, ri.uniqueEntryCount);
  }
  for (size_t i : order) {
    const ColumnDef& c = t.columns[i];
    size_t at = out.size();
    out.resize(at + fmt.columnDefSize, 0);
    out[at + fmt.colTypeOffset] = c.type;
    if (!jet3) put<uint32_t>(out, at + 1, kDefinitionTag);
    put<uint16_t>(out, at + fmt.colNumberOffset, c.number);
    put<uint16_t>(out, at + fmt.colVarIndexOffset, c.varIndex);
    put<uint16_t>(out, at + fmt.colIndexOffset, c.displayIndex);
    if (jet3) {
      // Access 97 gives every column, text or not, the sort order and the
      // code page, and a 1 before them.
      out[at + 7] = 0x01;
      put<uint16_t>(out, at + fmt.colSortOrderOffset, kGeneralSortOrder);
      put<uint16_t>(out, at + fmt.colCodePageOffset, kWindows1252);
    } else if (c.type == coltype::kDecimal) {
      out[at + fmt.colPrecisionOffset] = c.precision;
      out[at + fmt.colScaleOffset] = c.scale;
    } else {
      put<uint16_t>(out, at + fmt.colSortOrderOffset, kGeneralSortOrder);
    }
    out[at + fmt.colFlagsOffset] = c.flags;
    if (fmt.colExtFlagsOffset >= 0) out[at + fmt.colExtFlagsOffset] = c.extFlags;
    put<uint16_t>(out, at + fmt.colFixedOffsetOffset, c.fixedOffset);
    put<uint16_t>(out, at + fmt.colLengthOffset, c.length);
  }
  for (size_t i : order) putName(fmt, out, t.columns[i].name);
  for (const RealIndex& ri : t.realIndexes) {
    size_t at = out.size();
    out.resize(at + fmt.realIndexDefSize, 0);
    if (fmt.realIndexSkipBefore >= 4) put<uint32_t>(out, at, kRealIndexTag);
    for (int k = 0; k < kMaxIndexColumns; ++k) {
      size_t slot = at + fmt.realIndexSkipBefore + 3 * k;
      if (k < static_cast<int>(ri.columns.size())) {
        put<uint16_t>(out, slot, ri.columns[k].columnNumber);
        out[slot + 2] = ri.columns[k].ascending ? kIndexColumnAscending : 0x02;
      } else {
        put<uint16_t>(out, slot, kNoColumn);
      }
    }
    size_t tail = at + fmt.realIndexSkipBefore + 3 * kMaxIndexColumns;
    put<uint32_t>(out, tail, ri.usageMap);
    put<uint32_t>(out, tail + 4, ri.rootPage);
    out[tail + 8 + fmt.realIndexSkipBeforeFlags] = ri.flags;
  }
  for (const LogicalIndex& li : t.indexes) {
    size_t at = out.size();
    out.resize(at + fmt.logicalIndexDefSize, 0);
    if (fmt.logicalIndexSkipBefore >= 4) put<uint32_t>(out, at, kDefinitionTag);
    at += fmt.logicalIndexSkipBefore;
    put<uint32_t>(out, at, static_cast<uint32_t>(li.number));
    put<uint32_t>(out, at + 4, static_cast<uint32_t>(li.realIndex));
    put<uint32_t>(out, at + 9, 0xFFFFFFFFu);
    out[at + 17] = kCascadeDefaults;
    out[at + 18] = kCascadeDefaults;
    out[at + 19] = li.type;
  }
  for (const LogicalIndex& li : t.indexes) putName(fmt, out, li.name);
  for (size_t i : order) {
    for (const ColumnUsageMaps& m : t.columnMaps) {
      if (m.columnNumber != t.columns[i].number) continue;
      size_t at = out.size();
      out.resize(at + 10, 0);
      put<uint16_t>(out, at, m.columnNumber);
      put<uint32_t>(out, at + 2, m.ownedPages);
      put<uint32_t>(out, at + 6, m.freeSpacePages);
    }
  }
  out.push_back(0xFF);
  out.push_back(0xFF);
  put<uint32_t>(out, fmt.tdefLengthOffset, static_cast<uint32_t>(out.size()));
  return out;
}

// Writes a definition to its first page, continuing onto new pages when it
// is longer than one. Bytes 2-3 of each page hold its free space in Jet 4,
// "VC" in every Jet 3 definition page.
void writeDefinition(Database& db, uint32_t first, const std::vector<uint8_t>& def) {
  const Format& fmt = db.format();
  const size_t size = fmt.pageSize;
  auto setFree = [&](uint8_t* pg, size_t free) {
    if (fmt.version == Version::kJet3) {
      pg[2] = 'V';
      pg[3] = 'C';
    } else {
      put16le(pg + 2, static_cast<uint16_t>(free));
    }
  };
  size_t done = std::min(def.size(), size);
  uint8_t* p = db.mutablePage(first);
  std::memset(p, 0, size);
  copyBytes(p, def.data(), done);
  setFree(p, done + 8 <= size ? size - done - 8 : 0);
  uint32_t prev = first;
  while (done < def.size()) {
    uint32_t n = db.allocatePage();
    put32le(db.mutablePage(prev) + fmt.tdefNextPageOffset, n);
    size_t chunk = std::min(def.size() - done, size - 8);
    uint8_t* q = db.mutablePage(n);
    std::memset(q, 0, size);
    q[0] = page::kTableDef;
    q[1] = 0x01;
    copyBytes(q + 8, def.data() + done, chunk);
    setFree(q, size - 8 - chunk);
    done += chunk;
    prev = n;
  }
}

uint32_t newDataPage(Database& db, uint32_t tdef) {
  const Format& fmt = db.format();
  uint32_t n = db.allocatePage();
  uint8_t* p = db.mutablePage(n);
  std::memset(p, 0, fmt.pageSize);
  p[0] = page::kData;
  p[1] = 0x01;
  put16le(p + fmt.dataFreeSpaceOffset, static_cast<uint16_t>(fmt.pageSize - fmt.dataRowTableOffset));
  put32le(p + fmt.dataTdefOffset, tdef);
  return n;
}

// Usage map rows live on data pages that belong to no table.
class MapRows {
 public:
  explicit MapRows(Database& db) : db_(db) {
    // Continue on the last such page that has room, if any.
    for (uint32_t n = db.pageCount(); n-- > 2;) {
      Bytes pg = db.page(n);
      if (pg[0] == page::kData && u32le(&pg[db.format().dataTdefOffset]) == 0 && !db.pageIsFree(n)) {
        page_ = n;
        break;
      }
    }
  }

  uint32_t next() {
    // An inline map, as long as Access makes them in this version.
    std::vector<uint8_t> row(5 + db_.format().usageMapInlineSize, 0);
    row[0] = kUsageMapInline;
    int r = page_ ? db_.appendSlot(page_, row, 0) : -1;
    if (r < 0) {
      page_ = newDataPage(db_, 0);
      r = db_.appendSlot(page_, row, 0);
    }
    return RowId{page_, static_cast<uint8_t>(r)}.pack();
  }

 private:
  Database& db_;
  uint32_t page_ = 0;
};

}  // namespace

uint32_t newUsageMapRow(Database& db) { return MapRows(db).next(); }

uint32_t newIndexRoot(Database& db, uint32_t tdef) {
  const Format& fmt = db.format();
  uint32_t n = db.allocatePage();
  uint8_t* p = db.mutablePage(n);
  std::memset(p, 0, fmt.pageSize);
  p[0] = page::kIndexLeaf;
  p[1] = 0x01;
  put16le(p + fmt.indexFreeSpaceOffset,
          static_cast<uint16_t>(fmt.pageSize - fmt.indexEntryMaskOffset - fmt.indexEntryMaskSize));
  put32le(p + fmt.indexParentOffset, tdef);
  return n;
}

namespace {

// Gives the definition its maps and index roots, in the order the engine
// hands them out: owned and free-space maps, the maps of long value
// columns by column number, then one map and one root per physical index.
void attachStorage(Database& db, MapRows& maps, TableDef& t) {
  t.ownedPages = maps.next();
  t.freeSpacePages = maps.next();
  t.columnMaps.clear();
  for (const ColumnDef& c : t.columns) {
    if (!c.isLongValue()) continue;
    ColumnUsageMaps m;
    m.columnNumber = c.number;
    m.ownedPages = maps.next();
    // Jet 3 keeps no free-space map for a long value column.
    m.freeSpacePages = db.format().version == Version::kJet3 ? 0 : maps.next();
    t.columnMaps.push_back(m);
  }
  for (RealIndex& ri : t.realIndexes) ri.usageMap = maps.next();
  for (RealIndex& ri : t.realIndexes) {
    ri.rootPage = newIndexRoot(db, t.tdefPage);
    db.addToUsageMap(ri.usageMap, ri.rootPage);
  }
}

std::vector<uint8_t> headerPage() {
  std::vector<uint8_t> p(kJet4Format.pageSize, 0);
  p[1] = 0x01;
  std::memcpy(&p[header::kFormatIdOffset], header::kFormatId, std::strlen(header::kFormatId));
  p[header::kVersionOffset] = kVersionByteJet4;
  // The engine records its own build and the first pages it laid out here.
  put32le(&p[0x18], 0x00000100);
  put32le(&p[0x1C], 0x00000101);
  for (uint32_t k = 0; k < 4; ++k) put32le(&p[0x20 + 4 * k], 2 + k);
  put16le(&p[header::kCodePageOffset], 1252);
  // No password: the password area holds the creation date's mask alone.
  double created;
  std::memcpy(&created, &kCreationDateBits, 8);
  uint8_t mask[4];
  put32le(mask, static_cast<uint32_t>(static_cast<int32_t>(created)));
  for (int i = 0; i < header::kJet4PasswordSize; ++i)
    p[header::kPasswordOffset + i] = mask[i % 4];
  p[0x6A] = kIdentityWord[0];
  p[0x6B] = kIdentityWord[1];
  put16le(&p[header::kJet4SortOrderOffset], kGeneralSortOrder);
  put64le(&p[header::kJet4CreationDateOffset], kCreationDateBits);
  maskHeader(p, Version::kJet4);
  put32le(&p[0x98], 0x0654);
  std::memcpy(&p[0x9C], "4.0", 4);
  p[0xE00] = 0x01;
  for (size_t i = 0xE01; i < p.size(); i += 2) p[i] = 0x01;
  return p;
}

std::vector<uint8_t> globalMapPage() {
  const Format& fmt = kJet4Format;
  std::vector<uint8_t> p(fmt.pageSize, 0);
  p[0] = page::kData;
  p[1] = 0x01;
  put32le(&p[fmt.dataTdefOffset], 1);
  // Row 0: the global map, every page past the first two free; row 1: an
  // empty map the engine keeps beside it.
  std::vector<uint8_t> map(kUsageMapRowSize, 0);
  for (size_t bit = 2; bit < 64 * 8; ++bit) map[5 + bit / 8] |= static_cast<uint8_t>(1 << (bit % 8));
  std::vector<uint8_t> spare(kUsageMapRowSize, 0);
  uint32_t end = fmt.pageSize;
  copyBytes(&p[end - map.size()], map.data(), map.size());
  put16le(&p[fmt.dataRowTableOffset], static_cast<uint16_t>(end - map.size()));
  end -= static_cast<uint32_t>(map.size());
  copyBytes(&p[end - spare.size()], spare.data(), spare.size());
  put16le(&p[fmt.dataRowTableOffset + 2], static_cast<uint16_t>(end - spare.size()));
  end -= static_cast<uint32_t>(spare.size());
  put16le(&p[fmt.dataRowCountOffset], 2);
  put16le(&p[fmt.dataFreeSpaceOffset], static_cast<uint16_t>(end - fmt.dataRowTableOffset - 4));
  return p;
}

TableDef systemDefinition(const SysTable& s, uint32_t tdefPage) {
  TableDef t;
  t.name = s.name;
  t.tdefPage = tdefPage;
  t.tableType = kTableTypeSystem;
  for (const SysColumn& sc : s.columns) {
    ColumnDef c;
    c.name = sc.name;
    c.type = sc.type;
    c.number = sc.number;
    c.length = sc.length;
    bool fixed = fixedSizeOf(sc.type) > 0 || sc.type == coltype::kBoolean;
    c.flags = static_cast<uint8_t>(kSysColumnFlag | colflag::kNullable | (fixed ? colflag::kFixed : 0));
    if (sc.type == coltype::kBinary && sc.name != std::string("RmtInfoShort") &&
        sc.name != std::string("Order"))
      c.flags |= kBinaryColumnFlag;
    if (c.isText()) c.sortOrder = kGeneralSortOrder;
    t.columns.push_back(c);
  }
  return t;
}

std::vector<size_t> orderByName(const TableDef& t, const SysTable& s) {
  std::vector<size_t> order;
  for (const SysColumn& sc : s.columns)
    for (size_t i = 0; i < t.columns.size(); ++i)
      if (t.columns[i].name == sc.name) order.push_back(i);
  return order;
}

void addIndexes(TableDef& t, const SysTable& s) {
  for (size_t k = 0; k < s.indexes.size(); ++k) {
    const SysIndex& si = s.indexes[k];
    RealIndex ri;
    ri.number = static_cast<int>(k);
    for (uint16_t num : si.columns) {
      for (size_t i = 0; i < t.columns.size(); ++i)
        if (t.columns[i].number == num) ri.columns.push_back({num, i, true});
    }
    ri.flags = static_cast<uint8_t>(idxflag::kJet4Always | si.flags);
    t.realIndexes.push_back(ri);
  }
  // Logical indexes are listed by name.
  std::vector<size_t> byName(s.indexes.size());
  for (size_t k = 0; k < byName.size(); ++k) byName[k] = k;
  std::sort(byName.begin(), byName.end(), [&](size_t a, size_t b) {
    return std::string(s.indexes[a].name) < std::string(s.indexes[b].name);
  });
  for (size_t k : byName) {
    LogicalIndex li;
    li.name = s.indexes[k].name;
    li.number = s.indexes[k].logicalNumber;
    li.realIndex = static_cast<int>(k);
    li.type = s.indexes[k].primary ? kIndexTypePrimary : kIndexTypeNormal;
    t.indexes.push_back(li);
  }
}

// A row of `t` with the named columns set and the rest Null.
std::vector<Value> rowOf(const TableDef& t,
                         std::initializer_list<std::pair<const char*, Value>> fields) {
  std::vector<Value> row(t.columns.size());
  for (const auto& [column, v] : fields)
    row[static_cast<size_t>(t.findColumn(column) - t.columns.data())] = v;
  return row;
}

std::vector<Value> catalogRow(const TableDef& objects, int32_t id, int32_t parent,
                              const std::string& name, int type, int32_t flags, const Blob& owner,
                              DateTime when) {
  return rowOf(objects, {{"Id", id}, {"ParentId", parent}, {"Name", name}, {"Type", type},
                         {"DateCreate", when}, {"DateUpdate", when}, {"Owner", owner},
                         {"Flags", flags}});
}

std::vector<Value> aceRow(const TableDef& aces, int32_t object, const Blob& sid, int32_t acm,
                          bool inheritable) {
  return rowOf(aces, {{"ObjectId", object}, {"SID", sid}, {"ACM", acm}, {"FInheritable", inheritable}});
}

}  // namespace

std::unique_ptr<Database> createDatabase(std::unique_ptr<PageStore> store) {
  if (!store || !store->writable())
    badSpec("a new database needs a writable file");
  if (store->size() != 0) badSpec(store->name() + ": not empty; a new database needs an empty file");
  std::vector<uint8_t> first = headerPage();
  std::vector<uint8_t> second = globalMapPage();
  store->write(0, first);
  store->write(first.size(), second);
  auto db = Database::open(std::move(store));
  Database& d = *db;
  const Format& fmt = d.format();

  // The four definitions take pages 2 to 5, where the engine expects them.
  std::vector<uint32_t> tdefs;
  for (size_t i = 0; i < systemTables().size(); ++i) tdefs.push_back(d.allocatePage());
  MapRows maps(d);
  std::vector<TableDef> defs;
  for (size_t i = 0; i < systemTables().size(); ++i) {
    const SysTable& s = systemTables()[i];
    TableDef t = systemDefinition(s, tdefs[i]);
    layOut(t);
    addIndexes(t, s);
    defs.push_back(std::move(t));
  }
  for (TableDef& t : defs) attachStorage(d, maps, t);
  for (size_t i = 0; i < defs.size(); ++i)
    writeDefinition(d, defs[i].tdefPage, encodeDefinition(fmt, defs[i], orderByName(defs[i], systemTables()[i])));

  d.allowSystemTableWrites(true);
  const TableDef& objects = d.tableAtPage(kCatalogTdefPage, "MSysObjects");
  const TableDef& aces = d.tableAtPage(tdefs[1], "MSysACEs");
  DateTime when = now();
  d.insertRow(objects, catalogRow(objects, kTablesId, kRootId, "Tables", objtype::kContainer,
                                  kSystemObject, kEngineSid, when));
  d.insertRow(objects, catalogRow(objects, kDatabasesId, kRootId, "Databases",
                                  objtype::kContainer, kSystemObject, kEngineSid, when));
  d.insertRow(objects, catalogRow(objects, kRelationshipsId, kRootId, "Relationships",
                                  objtype::kContainer, kSystemObject, kEngineSid, when));
  d.insertRow(objects, catalogRow(objects, kMSysDbId, kDatabasesId, "MSysDb", objtype::kDatabase,
                                  kSystemObject, kAdminSid, when));
  for (size_t i = 0; i < defs.size(); ++i)
    d.insertRow(objects, catalogRow(objects, static_cast<int32_t>(tdefs[i]), kTablesId,
                                    defs[i].name, objtype::kTable, kSystemObject, kEngineSid, when));

  // Permissions, as the engine grants them in a database it makes.
  const int32_t objectsId = static_cast<int32_t>(tdefs[0]), acesId = static_cast<int32_t>(tdefs[1]),
                queriesId = static_cast<int32_t>(tdefs[2]), relsId = static_cast<int32_t>(tdefs[3]);
  struct Ace {
    int32_t object;
    const Blob& sid;
    int32_t acm;
    bool inheritable;
  };
  const Ace grants[] = {
      {objectsId, kAdminSid, 393216, false},      {acesId, kAdminSid, 393216, false},
      {queriesId, kAdminSid, 393216, false},      {relsId, kAdminSid, 917504, false},
      {kTablesId, kCreatorSid, 983294, true},     {kTablesId, kAdminSid, 393217, false},
      {kRelationshipsId, kCreatorSid, 983294, true}, {kRelationshipsId, kAdminSid, 393217, false},
      {kDatabasesId, kAdminSid, 393216, false},   {kMSysDbId, kAdminSid, 393230, false},
      {kMSysDbId, kUsersSid, 14, false},          {queriesId, kUsersSid, 20, false},
      {relsId, kUsersSid, 20, false},             {objectsId, kUsersSid, 20, false},
      {kTablesId, kUsersSid, kFullTableRights, true},
      {kRelationshipsId, kUsersSid, 1048575, true},
  };
  for (const Ace& a : grants) d.insertRow(aces, aceRow(aces, a.object, a.sid, a.acm, a.inheritable));
  d.allowSystemTableWrites(false);
  d.refreshCatalog();
  return db;
}

const TableDef& createTable(Database& db, const TableSpec& spec) {
  const Format& fmt = db.format();
  const bool jet3 = fmt.version == Version::kJet3;
  // Jet 3 keeps names, like its text, in Windows-1252.
  auto checkName = [&](const std::string& what, const std::string& name) {
    if (!jet3) return;
    for (char32_t cp : utf8ToCodePoints(name)) {
      if (unicodeToCp1252(cp) >= 0) continue;
      std::string ch;
      appendUtf8(ch, cp);
      badSpec(what + " '" + name + "': a Jet 3 database cannot hold the character '" + ch + "'");
    }
  };
  if (spec.name.empty() || utf8ToCodePoints(spec.name).size() > 64)
    badSpec("a table needs a name of 1 to 64 characters");
  checkName("table", spec.name);
  for (const CatalogEntry& e : db.catalog())
    if (e.parentId == kTablesId && sameName(e.name, spec.name))
      badSpec("a table named '" + spec.name + "' already exists");
  if (spec.columns.empty() || spec.columns.size() > 255)
    badSpec("table '" + spec.name + "' needs 1 to 255 columns");

  TableDef t;
  t.name = spec.name;
  t.tableType = kTableTypeUser;
  for (size_t i = 0; i < spec.columns.size(); ++i) {
    const ColumnSpec& cs = spec.columns[i];
    if (cs.name.empty() || cs.name.size() > 64) badSpec("table '" + spec.name + "': a column needs a name");
    for (size_t k = 0; k < i; ++k)
      if (sameName(spec.columns[k].name, cs.name))
        badSpec("table '" + spec.name + "' has two columns named '" + cs.name + "'");
    checkName("column", cs.name);
    ColumnDef c;
    c.name = cs.name;
    c.type = cs.type;
    c.number = static_cast<uint16_t>(i);
    c.displayIndex = static_cast<uint16_t>(jet3 ? i : i + 1);  // Access 97 counts from 0
    bool fixed = fixedSizeOf(cs.type) > 0 || cs.type == coltype::kBoolean;
    c.flags = static_cast<uint8_t>(colflag::kNullable | (fixed ? colflag::kFixed : 0));
    switch (cs.type) {
      case coltype::kText:
        if (cs.size < 1 || cs.size > 255)
          badSpec("column '" + cs.name + "': text size must be 1 to 255 characters");
        c.length = static_cast<uint16_t>(cs.size * fmt.textUnitSize);
        break;
      case coltype::kMemo: break;
      case coltype::kBinary: {
        const int most = jet3 ? 255 : 510;
        if (cs.size < 1 || cs.size > most)
          badSpec("column '" + cs.name + "': binary size must be 1 to " + std::to_string(most));
        c.length = cs.size;
        break;
      }
      case coltype::kOle: break;
      case coltype::kBoolean: c.length = 1; break;
      case coltype::kDecimal:
        if (jet3) badSpec("column '" + cs.name + "': a Jet 3 database has no Decimal columns");
        if (cs.precision < 1 || cs.precision > 28 || cs.scale > cs.precision)
          badSpec("column '" + cs.name + "': bad precision or scale");
        c.precision = cs.precision;
        c.scale = cs.scale;
        c.length = 17;
        break;
      default:
        if (fixedSizeOf(cs.type) == 0) badSpec("column '" + cs.name + "': unknown type " + std::to_string(cs.type));
        c.length = static_cast<uint16_t>(fixedSizeOf(cs.type));
    }
    if (c.isText()) {
      c.sortOrder = kGeneralSortOrder;
      if (jet3) {
        c.codePage = kWindows1252;
      } else {
        c.extFlags = kColExtCompressedUnicode;
      }
    }
    if (cs.autoNumber) {
      if (cs.type != coltype::kLong) badSpec("column '" + cs.name + "': only Long columns number themselves");
      c.flags |= colflag::kAutoLong;
    }
    t.columns.push_back(c);
  }
  layOut(t);

  int primaries = 0;
  for (size_t k = 0; k < spec.indexes.size(); ++k) {
    const IndexSpec& is = spec.indexes[k];
    if (is.name.empty() || is.columns.empty() || is.columns.size() > kMaxIndexColumns)
      badSpec("table '" + spec.name + "': an index needs a name and 1 to 10 columns");
    for (size_t j = 0; j < k; ++j)
      if (sameName(spec.indexes[j].name, is.name)) badSpec("two indexes named '" + is.name + "'");
    checkName("index", is.name);
    RealIndex ri;
    ri.number = static_cast<int>(k);
    for (size_t j = 0; j < is.columns.size(); ++j) {
      const ColumnDef* c = t.findColumn(is.columns[j]);
      if (!c) badSpec("index '" + is.name + "' names unknown column '" + is.columns[j] + "'");
      if (c->isLongValue() || c->type == coltype::kBinary)
        badSpec("index '" + is.name + "': memo, OLE and binary columns cannot be indexed");
      bool desc = j < is.descending.size() && is.descending[j];
      ri.columns.push_back({c->number, static_cast<size_t>(c - t.columns.data()), !desc});
    }
    bool primary = is.primary;
    primaries += primary;
    ri.flags = static_cast<uint8_t>((jet3 ? 0 : idxflag::kJet4Always) | (primary || is.unique ? idxflag::kUnique : 0) |
                                    (is.ignoreNulls ? idxflag::kIgnoreNulls : 0) |
                                    (primary || is.required ? idxflag::kRequired : 0));
    t.realIndexes.push_back(ri);
    LogicalIndex li;
    li.name = is.name;
    li.number = static_cast<int>(k);
    li.realIndex = static_cast<int>(k);
    li.type = primary ? kIndexTypePrimary : kIndexTypeNormal;
    t.indexes.push_back(li);
  }
  if (primaries > 1) badSpec("table '" + spec.name + "' has more than one primary key");

  size_t sp = db.savepoint();
  try {
    t.tdefPage = db.allocatePage();
    MapRows maps(db);
    attachStorage(db, maps, t);
    std::vector<size_t> order(t.columns.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    writeDefinition(db, t.tdefPage, encodeDefinition(fmt, t, order));

    db.allowSystemTableWrites(true);
    const TableDef& objects = db.tableAtPage(kCatalogTdefPage, "MSysObjects");
    const TableDef& aces = db.table("MSysACEs");
    // The owner is the database object's owner; the permissions are what the
    // Tables container passes on, its "creator" entry going to the owner.
    Blob owner = kAdminSid;
    std::vector<std::pair<Blob, int32_t>> grants;
    std::set<Blob> onTables;
    db.scanRows(objects, [&](RowId, Bytes row) {
      std::vector<Value> v = db.decodeRow(objects, row);
      auto id = std::get_if<int32_t>(&v[objects.findColumn("Id") - objects.columns.data()]);
      auto o = std::get_if<Blob>(&v[objects.findColumn("Owner") - objects.columns.data()]);
      if (id && *id == kMSysDbId && o && !o->empty()) owner = *o;
      return true;
    });
    std::set<int32_t> tableIds;
    for (const CatalogEntry& e : db.catalog())
      if (e.isTable()) tableIds.insert(e.id);
    std::vector<std::tuple<Blob, int32_t, bool>> container;
    db.scanRows(aces, [&](RowId, Bytes row) {
      std::vector<Value> v = db.decodeRow(aces, row);
      int32_t object = std::get<int32_t>(v[aces.findColumn("ObjectId") - aces.columns.data()]);
      const Value& sidv = v[aces.findColumn("SID") - aces.columns.data()];
      Blob sid = std::holds_alternative<Blob>(sidv) ? std::get<Blob>(sidv) : Blob{};
      if (object == kTablesId) {
        int32_t acm = std::get<int32_t>(v[aces.findColumn("ACM") - aces.columns.data()]);
        bool inh = std::get<bool>(v[aces.findColumn("FInheritable") - aces.columns.data()]);
        container.emplace_back(sid, acm, inh);
      } else if (tableIds.count(object)) {
        onTables.insert(sid);
      }
      return true;
    });
    for (const auto& [sid, acm, inh] : container) {
      if (!inh) continue;
      Blob who = onTables.count(sid) || sid == owner ? sid : owner;  // the creator entry
      auto it = std::find_if(grants.begin(), grants.end(), [&](const auto& g) { return g.first == who; });
      if (it == grants.end()) {
        grants.emplace_back(who, acm);
      } else {
        it->second |= acm;
      }
    }
    DateTime when = now();
    db.insertRow(objects, catalogRow(objects, static_cast<int32_t>(t.tdefPage), kTablesId, t.name,
                                     objtype::kTable, 0, owner, when));
    for (const auto& [sid, acm] : grants)
      db.insertRow(aces, aceRow(aces, static_cast<int32_t>(t.tdefPage), sid, acm, false));
    db.allowSystemTableWrites(false);
    db.refreshCatalog();
    db.release(sp);
  } catch (...) {
    db.allowSystemTableWrites(false);
    db.rollbackTo(sp);
    throw;
  }
  return db.tableAtPage(t.tdefPage, t.name);
}

}  // namespace jet
