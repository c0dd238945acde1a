#include "schema/list_entries.h"

#include <variant>

#include "schema/engine_error.h"

namespace schema {

std::vector<ListEntry> listEntries(Recordset& rs, std::string_view textField,
                                   std::string_view idField) {
  std::vector<ListEntry> entries;
  // RecordCount, not BOF and EOF: a recordset whose last row was just
  // deleted stands on that row, neither at BOF nor at EOF.
  if (rs.recordCount() == 0) return entries;
  for (rs.moveFirst(); !rs.eof(); rs.moveNext()) {
    const jet::Value text = rs.field(textField);
    const jet::Value key = rs.field(idField);
    ListEntry entry;
    if (const auto* s = std::get_if<std::string>(&text)) entry.text = *s;
    if (const auto* k = std::get_if<int32_t>(&key)) entry.id = toInteger16(*k);
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace schema
