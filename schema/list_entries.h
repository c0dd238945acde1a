// The rows a list box on a form shows: one entry per row, its text from
// one field and its key, as the forms hold keys, from another. The list box
// keeps the key beside the entry and finds the row again with a criterion
// built from it ("dirId = 12").
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "schema/recordset.h"

namespace schema {

struct ListEntry {
  std::string text;
  int16_t id = 0;
  bool operator==(const ListEntry&) const = default;
};

// Every row of rs from the first to the last, in the recordset's order; the
// cursor is left after the last row. A Null text is an empty entry; a key
// outside 16 bits raises 6 "Overflow", as the forms cannot hold it.
std::vector<ListEntry> listEntries(Recordset& rs, std::string_view textField,
                                   std::string_view idField);

}  // namespace schema
