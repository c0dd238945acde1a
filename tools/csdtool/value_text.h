// Values typed on the command line, read as the column's type expects:
// numbers, text, NULL, dates in ISO form (2024-05-01 or 2024-05-01 13:45:00),
// true/false, binary as 0x-prefixed hex, GUIDs as {8-4-4-4-12}. The word NULL
// means Null; to store the text NULL, write 'NULL' (single quotes around a
// whole value are removed).
#pragma once

#include <string>

#include "jet/table_def.h"
#include "jet/value.h"

namespace csdtool {

// Throws std::invalid_argument naming the column when the text does not
// read as a value of its type.
jet::Value parseValue(const jet::ColumnDef& column, const std::string& text);

// Splits "COL=VALUE" at the first '='; throws std::invalid_argument.
std::pair<std::string, std::string> splitAssignment(const std::string& arg);

// Equality as a query would see it: text without regard to case, numbers by
// value whatever their width.
bool sameValue(const jet::Value& a, const jet::Value& b);

}  // namespace csdtool
