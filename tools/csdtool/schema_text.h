// A person's view of a table definition: columns with types and sizes,
// indexes with their columns, order and flags.
#pragma once

#include <ostream>

#include "jet/database.h"

namespace csdtool {

void printSchema(jet::Database& db, const jet::TableDef& table, std::ostream& out);
// Tab-separated: name, type name, declared size in bytes, then flags among
// "fixed", "nullable", "autonumber", "autoguid".
void printColumns(const jet::TableDef& table, std::ostream& out);
void printHeader(jet::Database& db, std::ostream& out);

}  // namespace csdtool
