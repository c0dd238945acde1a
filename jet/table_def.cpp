#include "jet/table_def.h"

#include <algorithm>

#include "jet/bytes.h"
#include "jet/error.h"
#include "jet/text.h"

namespace jet {
namespace {

// Jet allows 255 columns and 32 indexes; a little slack keeps odd but valid
// files readable while still stopping a damaged count from driving huge
// allocations.
constexpr uint32_t kMaxColumns = 4096;
constexpr uint32_t kMaxIndexes = 1024;

char32_t foldChar(char32_t c) {
  if (c >= 'a' && c <= 'z') return c - 32;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  return c;
}

std::string readName(ByteCursor& c, const Format& fmt, uint16_t codePage) {
  size_t len = fmt.nameLengthSize == 1 ? c.u8() : c.u16();
  Bytes bytes = c.take(len);
  return fmt.version == Version::kJet4 ? utf16leToUtf8(bytes) : codePageToUtf8(bytes, codePage);
}

}  // namespace

int fixedSizeOf(uint8_t type) {
  switch (type) {
    case coltype::kByte: return 1;
    case coltype::kInteger: return 2;
    case coltype::kLong:
    case coltype::kSingle: return 4;
    case coltype::kCurrency:
    case coltype::kDouble:
    case coltype::kDateTime: return 8;
    case coltype::kGuid: return 16;
    case coltype::kDecimal: return 17;
    default: return 0;
  }
}

const char* typeName(uint8_t type) {
  switch (type) {
    case coltype::kBoolean: return "Boolean";
    case coltype::kByte: return "Byte";
    case coltype::kInteger: return "Integer";
    case coltype::kLong: return "Long";
    case coltype::kCurrency: return "Currency";
    case coltype::kSingle: return "Single";
    case coltype::kDouble: return "Double";
    case coltype::kDateTime: return "DateTime";
    case coltype::kBinary: return "Binary";
    case coltype::kText: return "Text";
    case coltype::kOle: return "OLE";
    case coltype::kMemo: return "Memo";
    case coltype::kGuid: return "GUID";
    case coltype::kDecimal: return "Decimal";
    default: return "Unknown";
  }
}

bool sameName(std::string_view a, std::string_view b) {
  if (a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin())) return true;
  std::u32string x = utf8ToCodePoints(a), y = utf8ToCodePoints(b);
  if (x.size() != y.size()) return false;
  for (size_t i = 0; i < x.size(); ++i)
    if (foldChar(x[i]) != foldChar(y[i])) return false;
  return true;
}

const ColumnDef* TableDef::findColumn(std::string_view n) const {
  for (const ColumnDef& c : columns)
    if (sameName(c.name, n)) return &c;
  return nullptr;
}

const LogicalIndex* TableDef::findIndex(std::string_view n) const {
  for (const LogicalIndex& i : indexes)
    if (sameName(i.name, n)) return &i;
  return nullptr;
}

TableDef parseTableDef(const Format& fmt, std::vector<uint8_t> raw, uint32_t page,
                       uint16_t dbCodePage) {
  TableDef t;
  t.tdefPage = page;
  if (raw.size() < static_cast<size_t>(fmt.tdefHeaderSize))
    throwCorrupt(page, "table definition shorter than its header");
  if (raw[0] != page::kTableDef)
    throwCorrupt(page, "expected a table definition page, found page type " +
                           std::to_string(raw[0]));
  const uint8_t* p = raw.data();
  t.rowCount = u32le(p + fmt.tdefNumRowsOffset);
  t.nextAutoNumber = u32le(p + fmt.tdefAutoNumberOffset);
  t.tableType = p[fmt.tdefTableTypeOffset];
  t.maxColumns = u16le(p + fmt.tdefMaxColsOffset);
  t.varColumns = u16le(p + fmt.tdefNumVarColsOffset);
  uint32_t numCols = u16le(p + fmt.tdefNumColsOffset);
  uint32_t numLogical = u32le(p + fmt.tdefNumIndexSlotsOffset);
  uint32_t numReal = u32le(p + fmt.tdefNumIndexesOffset);
  t.ownedPages = u32le(p + fmt.tdefOwnedPagesOffset);
  t.freeSpacePages = u32le(p + fmt.tdefFreeSpacePagesOffset);

  if (numCols > kMaxColumns) throwCorrupt(page, "bad column count " + std::to_string(numCols));
  if (numCols > t.maxColumns)
    throwCorrupt(page, "column count " + std::to_string(numCols) + " exceeds maximum " +
                           std::to_string(t.maxColumns));
  // The variable column count keeps deleted columns, so it may exceed the
  // live column count but never the maximum.
  if (t.varColumns > t.maxColumns)
    throwCorrupt(page, "variable column count " + std::to_string(t.varColumns) +
                           " exceeds maximum " + std::to_string(t.maxColumns));
  if (numReal > kMaxIndexes || numLogical > kMaxIndexes)
    throwCorrupt(page, "bad index count " + std::to_string(numReal) + "/" +
                           std::to_string(numLogical));

  ByteCursor c(raw, page, "table definition");
  c.seek(fmt.tdefHeaderSize);
  t.realIndexes.resize(numReal);
  for (uint32_t i = 0; i < numReal; ++i) {
    c.skip(4);
    t.realIndexes[i].number = static_cast<int>(i);
    t.realIndexes[i].uniqueEntryCount = c.u32();
    c.skip(fmt.realIndexCountSize - 8);
  }

  size_t colBlock = c.pos();
  c.skip(static_cast<size_t>(numCols) * fmt.columnDefSize);
  std::vector<ColumnDef> cols(numCols);
  for (uint32_t i = 0; i < numCols; ++i) {
    ColumnDef& col = cols[i];
    size_t off = colBlock + static_cast<size_t>(i) * fmt.columnDefSize;
    const uint8_t* d = raw.data() + off;
    col.defOffset = off;
    col.type = d[fmt.colTypeOffset];
    col.number = u16le(d + fmt.colNumberOffset);
    col.varIndex = u16le(d + fmt.colVarIndexOffset);
    col.displayIndex = u16le(d + fmt.colIndexOffset);
    col.flags = d[fmt.colFlagsOffset];
    if (fmt.colExtFlagsOffset >= 0) col.extFlags = d[fmt.colExtFlagsOffset];
    col.fixedOffset = u16le(d + fmt.colFixedOffsetOffset);
    col.length = u16le(d + fmt.colLengthOffset);
    col.precision = d[fmt.colPrecisionOffset];
    col.scale = d[fmt.colScaleOffset];
    if (col.isText()) {
      col.sortOrder = u16le(d + fmt.colSortOrderOffset);
      if (fmt.version == Version::kJet4) {
        col.sortVersion = d[fmt.colSortOrderOffset + 3];
      } else {
        col.codePage = u16le(d + fmt.colCodePageOffset);
      }
    }
    if (col.number >= t.maxColumns)
      throwCorrupt(page, "column number " + std::to_string(col.number) + " not below maximum " +
                             std::to_string(t.maxColumns));
    if (!col.isFixed() && col.varIndex >= t.maxColumns)
      throwCorrupt(page, "variable column slot " + std::to_string(col.varIndex) + " out of range");
    int size = fixedSizeOf(col.type);
    if (col.isFixed() && size > 0 &&
        static_cast<size_t>(col.fixedOffset) + size > static_cast<size_t>(fmt.maxRowSize))
      throwCorrupt(page, "fixed column offset " + std::to_string(col.fixedOffset) +
                             " past the largest row");
  }
  for (uint32_t i = 0; i < numCols; ++i) {
    uint16_t cp = dbCodePage;
    cols[i].name = readName(c, fmt, cp);
  }
  std::stable_sort(cols.begin(), cols.end(),
                   [](const ColumnDef& a, const ColumnDef& b) { return a.number < b.number; });
  for (size_t i = 1; i < cols.size(); ++i)
    if (cols[i].number == cols[i - 1].number)
      throwCorrupt(page, "two columns share number " + std::to_string(cols[i].number));
  t.columns = std::move(cols);

  for (RealIndex& ri : t.realIndexes) {
    ri.defOffset = c.pos();
    c.skip(fmt.realIndexSkipBefore);
    for (int k = 0; k < kMaxIndexColumns; ++k) {
      uint16_t num = c.u16();
      uint8_t order = c.u8();
      if (num == kNoColumn) continue;
      auto it = std::find_if(t.columns.begin(), t.columns.end(),
                             [&](const ColumnDef& cd) { return cd.number == num; });
      if (it == t.columns.end())
        throwCorrupt(page, "index " + std::to_string(ri.number) + " names missing column " +
                               std::to_string(num));
      ri.columns.push_back(
          {num, static_cast<size_t>(it - t.columns.begin()), order == kIndexColumnAscending});
    }
    ri.usageMap = c.u32();
    ri.rootPage = c.u32();
    c.skip(fmt.realIndexSkipBeforeFlags);
    ri.flags = c.u8();
    c.skip(fmt.realIndexSkipAfterFlags);
  }

  t.indexes.resize(numLogical);
  for (LogicalIndex& li : t.indexes) {
    li.defOffset = c.pos();
    c.skip(fmt.logicalIndexSkipBefore);
    li.number = static_cast<int>(c.u32());
    uint32_t real = c.u32();
    if (real >= numReal)
      throwCorrupt(page, "logical index refers to missing index " + std::to_string(real));
    li.realIndex = static_cast<int>(real);
    li.relatedTableType = c.u8();
    li.relatedIndex = static_cast<int32_t>(c.u32());
    li.relatedTablePage = c.u32();
    li.cascadeUpdates = c.u8() != 0;
    li.cascadeDeletes = c.u8() != 0;
    li.type = c.u8();
    c.skip(fmt.logicalIndexSkipAfter);
  }
  for (LogicalIndex& li : t.indexes) li.name = readName(c, fmt, dbCodePage);

  // Jet 4 closes the definition with the usage maps of long value columns,
  // ended by 0xFFFF; some files stop short of the terminator.
  while (c.remaining() >= 2) {
    size_t at = c.pos();
    uint16_t num = c.u16();
    if (num == kNoColumn || c.remaining() < 8) break;
    ColumnUsageMaps m;
    m.columnNumber = num;
    m.defOffset = at;
    m.ownedPages = c.u32();
    m.freeSpacePages = c.u32();
    t.columnMaps.push_back(m);
  }

  t.raw = std::move(raw);
  return t;
}

}  // namespace jet
