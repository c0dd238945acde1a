// Turning values into the bytes Jet stores: single column values, whole
// rows (Jet 4 layout), and the conversions between value kinds a caller may
// reasonably expect (an integer into a Double column, say).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "jet/format.h"
#include "jet/table_def.h"
#include "jet/value.h"

namespace jet {

// Converts `v` to the kind the column stores, or throws JetError(kInvalid)
// naming the column when it cannot (wrong kind, out of range, too long).
Value coerceValue(const Format& fmt, const ColumnDef& c, const Value& v);

// The stored bytes of a non-Null fixed-length or inline variable value (not
// Boolean, not a long value's data). `v` must already be coerced.
std::vector<uint8_t> encodeFixedOrText(const Format& fmt, const ColumnDef& c, const Value& v);

// Jet 4 text: the compressed form where the column allows it and it is
// shorter (3 to 1024 characters, all in U+0001..U+00FF), else UTF-16LE.
std::vector<uint8_t> encodeJet4Text(const std::string& utf8, bool allowCompression);

// One column of a row being assembled: Null, or present with its stored
// bytes (for Boolean, `present` is the value and `bytes` stays empty).
struct Cell {
  bool present = false;
  std::vector<uint8_t> bytes;
};

// Lays out a Jet 4 row: column count, fixed area, variable data, padding up
// to `minSize`, the variable offset table, the null mask. `cells` follow
// TableDef::columns.
std::vector<uint8_t> assembleRow(const Format& fmt, const TableDef& t,
                                 const std::vector<Cell>& cells, size_t minSize = 0);

// Bytes a row takes before its long values are decided, for placing them.
size_t fixedAreaEnd(const TableDef& t);

}  // namespace jet
