// CSV output of a table in the layout `mdb-export FILE TABLE` uses with its
// default options, so the two can be compared byte for byte: a header of
// column names, "," between fields, "\n" after each row, text, memo, date,
// binary, OLE and GUID fields between double quotes with quotes doubled,
// Null as nothing, Boolean as 1/0, dates as "MM/DD/YY HH:MM:SS".
#pragma once

#include <ostream>
#include <string>

#include "jet/database.h"

namespace csdtool {

void exportCsv(jet::Database& db, const jet::TableDef& table, std::ostream& out);

// One field as mdb-export writes it; exposed for tests.
std::string csvField(const jet::ColumnDef& column, const jet::Value& value);

}  // namespace csdtool
