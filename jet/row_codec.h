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

// Text as the file stores it: Jet 4 as above; Jet 3 one Windows-1252 byte
// per character (the only code page this engine writes), refusing with
// kInvalid, naming the column and the character, what Windows-1252 lacks.
std::vector<uint8_t> encodeText(const Format& fmt, const ColumnDef& c, const std::string& utf8);

// One column of a row being assembled: Null, or present with its stored
// bytes (for Boolean, `present` is the value and `bytes` stays empty).
struct Cell {
  bool present = false;
  std::vector<uint8_t> bytes;
};

// Lays out a row: column count, fixed area, variable data, padding up to
// `minSize`, the variable offset table (Jet 3: one byte an offset and the
// jump table that lifts them past 255), the null mask. `cells` follow
// TableDef::columns.
std::vector<uint8_t> assembleRow(const Format& fmt, const TableDef& t,
                                 const std::vector<Cell>& cells, size_t minSize = 0);

// Bytes a row takes before its long values are decided, for placing them.
size_t fixedAreaEnd(const TableDef& t);
// Bytes of a row's trailing tables (offsets, counts, null mask) at most.
size_t rowTrailerSize(const Format& fmt, const TableDef& t);

}  // namespace jet
