// Index keys: the bytes an index entry holds for a row, before its row
// pointer. Entries sort by these bytes compared as unsigned, so a key must be
// exactly what Jet would have written or lookups and Compact & Repair go
// wrong. The encoding is described at the top of jet/index_key.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "jet/format.h"
#include "jet/table_def.h"
#include "jet/value.h"

namespace jet {

// The bytes an index entry holds for a row (everything before its row
// pointer): for each index column, a flag byte and the encoded value;
// descending columns complemented. `row` holds the row's values in
// TableDef::columns order.
//
// Throws JetError kUnsupported if the index is one canEncodeIndex() refuses
// or a text value holds a character whose weights this engine does not know
// (the message names it as U+XXXX), and kInvalid if a value does not match
// its column's type.
std::vector<uint8_t> encodeIndexKey(const Format& fmt, const TableDef& t, const RealIndex& ri,
                                    const std::vector<Value>& row);

// Whether this engine can encode keys for the index; if not, `why` (when
// given) says why: a text column in a sort order other than General, a
// column type whose keys it cannot build ... The writer refuses to touch
// such tables.
bool canEncodeIndex(const Format& fmt, const TableDef& t, const RealIndex& ri, std::string* why);

// The text part of a Jet 3 key (General order of Access 97) for all of
// `chars`, none cut and no trailing space dropped; throws JetError
// kUnsupported for a character Windows-1252 cannot hold. Comparisons in a
// Jet 3 file order text by it.
void appendGeneral97Text(std::u32string_view chars, std::vector<uint8_t>& out);

// Text index keys cover only this many characters (UTF-16 units in Jet 4) of
// a Text or Memo value; the rest is not indexed.
constexpr size_t kMaxIndexedTextChars = 255;

}  // namespace jet
