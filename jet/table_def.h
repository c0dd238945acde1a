// The in-memory form of a table definition (TDEF) and its parser. A
// TableDef is a plain value: it holds no reference to the database it came
// from, and the writer edits copies of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "jet/format.h"

namespace jet {

// A page and row number, as Jet packs them: row in the low byte, page above.
struct RowId {
  uint32_t page = 0;
  uint8_t row = 0;

  static RowId unpack(uint32_t v) { return {v >> 8, static_cast<uint8_t>(v & 0xFF)}; }
  uint32_t pack() const { return (page << 8) | row; }
  bool operator==(const RowId&) const = default;
  auto operator<=>(const RowId&) const = default;
};

// For test failure messages.
inline std::string toString(RowId r) {
  return "page " + std::to_string(r.page) + " row " + std::to_string(r.row);
}

struct ColumnDef {
  std::string name;
  uint8_t type = 0;
  uint16_t number = 0;        // bit in the null mask; counts deleted columns
  uint16_t varIndex = 0;      // slot in a row's variable-length offset table
  uint16_t displayIndex = 0;  // position among the table's columns
  uint16_t fixedOffset = 0;   // offset within the row's fixed area
  uint16_t length = 0;        // declared size in bytes (0 for memo and OLE)
  uint8_t flags = 0;
  uint8_t extFlags = 0;  // Jet 4 only
  uint8_t precision = 0, scale = 0;
  uint16_t sortOrder = 0;  // text columns
  uint8_t sortVersion = 0;
  uint16_t codePage = 0;  // Jet 3 text columns
  size_t defOffset = 0;   // where the 18/25-byte definition sits in the TDEF

  bool operator==(const ColumnDef&) const = default;
  bool isFixed() const { return flags & colflag::kFixed; }
  bool isAutoNumber() const { return flags & colflag::kAutoLong; }
  bool isAutoGuid() const { return flags & colflag::kAutoGuid; }
  bool isLongValue() const { return type == coltype::kMemo || type == coltype::kOle; }
  bool isText() const { return type == coltype::kText || type == coltype::kMemo; }
  bool compressedUnicode() const { return extFlags & kColExtCompressedUnicode; }
};

// Size in bytes of a fixed-length column's value; 0 for Boolean (kept in the
// null mask) and for variable-length types.
int fixedSizeOf(uint8_t type);
const char* typeName(uint8_t type);

struct IndexColumn {
  uint16_t columnNumber = 0;
  size_t column = 0;  // position in TableDef::columns
  bool ascending = true;
  bool operator==(const IndexColumn&) const = default;
};

// A physical index: the B-tree of entries.
struct RealIndex {
  int number = 0;
  std::vector<IndexColumn> columns;
  uint32_t usageMap = 0;  // packed RowId of the index's owned-pages map
  uint32_t rootPage = 0;
  uint8_t flags = 0;
  uint32_t uniqueEntryCount = 0;
  size_t defOffset = 0;

  bool operator==(const RealIndex&) const = default;
  bool unique() const { return flags & idxflag::kUnique; }
  bool ignoreNulls() const { return flags & idxflag::kIgnoreNulls; }
  bool required() const { return flags & idxflag::kRequired; }
};

// A named index as the user sees it; several may share one RealIndex.
struct LogicalIndex {
  std::string name;
  int number = 0;
  int realIndex = 0;
  uint8_t type = 0;
  uint8_t relatedTableType = 0;
  int32_t relatedIndex = -1;
  uint32_t relatedTablePage = 0;
  bool cascadeUpdates = false, cascadeDeletes = false;
  size_t defOffset = 0;

  bool operator==(const LogicalIndex&) const = default;
  bool primary() const { return type == kIndexTypePrimary; }
  bool foreignKey() const { return type == kIndexTypeForeign; }
};

// Long value pages of a memo or OLE column, where the table keeps them apart.
struct ColumnUsageMaps {
  uint16_t columnNumber = 0;
  uint32_t ownedPages = 0;
  uint32_t freeSpacePages = 0;
  size_t defOffset = 0;
  bool operator==(const ColumnUsageMaps&) const = default;
};

struct TableDef {
  std::string name;
  uint32_t tdefPage = 0;
  std::vector<uint32_t> pages;  // every page of the definition, first to last
  uint32_t rowCount = 0;
  uint32_t nextAutoNumber = 0;
  uint8_t tableType = 0;
  uint16_t maxColumns = 0;
  uint16_t varColumns = 0;
  uint32_t ownedPages = 0;      // packed RowId of the owned-pages usage map
  uint32_t freeSpacePages = 0;  // packed RowId of the free-space usage map
  std::vector<ColumnDef> columns;  // ordered by column number
  std::vector<RealIndex> realIndexes;
  std::vector<LogicalIndex> indexes;
  std::vector<ColumnUsageMaps> columnMaps;
  std::vector<uint8_t> raw;  // the definition as stored, continuation headers removed

  const ColumnDef* findColumn(std::string_view name) const;  // ignores case
  const LogicalIndex* findIndex(std::string_view name) const;
  bool isSystem() const { return tableType == kTableTypeSystem; }
};

// Parses a definition whose pages have already been joined: the first page
// whole, then each continuation page without its 8-byte header. `page` names
// the first page in error messages. Throws JetError(kCorrupt) on any
// inconsistency.
TableDef parseTableDef(const Format& fmt, std::vector<uint8_t> raw, uint32_t page,
                       uint16_t dbCodePage);

// Case-insensitive comparison of names as Jet compares object names (ASCII
// and Latin-1 letters fold; everything else compares exactly).
bool sameName(std::string_view a, std::string_view b);

}  // namespace jet
