// The data layer's planner: how the rows a condition can match are found.
// Where one of the conditions AND-ed together is "column = value" on a
// column with an index of its own, or bounds ("<", "<=", ">", ">=") on a
// number, date or Text column with one, the index gives the rows without
// reading the table; otherwise the table is read whole. Queries, FindFirst
// and csdtool's find all ask here.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "jet/database.h"
#include "schema/sql.h"

namespace schema {

// The rows of `t` (called `alias` in the query, or nothing) that can satisfy
// `cond`, in storage order, from an index; nullopt when no index narrows
// them and every row must be tested. Every row returned must still be
// tested against the whole condition.
std::optional<std::vector<jet::RowId>> indexedRows(jet::Database& db, const jet::TableDef& t,
                                                   std::string_view alias, const Expr& cond);

// The rows of `t` whose column `at` can hold `value`, from a one-column
// index on it; nullopt when the column has none or the value has no key
// (Null, a value the column cannot hold). Candidates, in storage order: each
// must still be tested, as an index key may not tell every value apart.
std::optional<std::vector<jet::RowId>> rowsWithValue(jet::Database& db, const jet::TableDef& t,
                                                     size_t at, const jet::Value& value);

// Whether a column holds numbers, truth values or dates: values that compare
// as numbers whatever the row. Of them, all but Boolean and Decimal have
// index keys that sort as their values (zeros aside: -0 sorts before 0).
bool holdsNumbers(const jet::ColumnDef& c);
bool keysSortAsValues(const jet::ColumnDef& c);

// The columns of `t` that `cond` names (unqualified, or qualified by the
// table's name or `alias`), each once: what a row must decode for the test.
std::vector<size_t> columnsNamed(const jet::TableDef& t, std::string_view alias, const Expr& cond);

}  // namespace schema
