// Where a stored row keeps each column: the column count, the null mask at
// the row's end, and the offset table of variable-length columns.
#pragma once

#include <cstdint>
#include <vector>

#include "jet/bytes.h"
#include "jet/format.h"
#include "jet/table_def.h"

namespace jet {

struct RowLayout {
  unsigned numCols = 0;             // columns the row was written with
  Bytes nullMask;                   // one bit per column number; 1 = present
  std::vector<uint16_t> varOffsets; // one per variable slot, plus the end
  size_t metaStart = 0;             // first byte of the trailing tables

  // Checks the row's structure; `page` names the row's page in errors.
  static RowLayout of(const Format& fmt, const TableDef& t, Bytes row, uint32_t page);

  // Not Null (for Boolean: true).
  bool present(const ColumnDef& c) const;
  // The stored bytes of a present, non-Boolean column.
  Bytes bytesOf(const Format& fmt, const ColumnDef& c, Bytes row, uint32_t page) const;
};

// Bytes a fixed-length column takes in a row (its declared length for fixed
// text and binary).
inline size_t storedFixedSize(const ColumnDef& c) {
  int n = fixedSizeOf(c.type);
  return n > 0 ? static_cast<size_t>(n) : c.length;
}

}  // namespace jet
