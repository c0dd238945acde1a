#include "schema/planner.h"

#include <algorithm>

#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/row_codec.h"
#include "schema/collation.h"

namespace schema {
namespace {

void conjuncts(const Expr& e, std::vector<const Expr*>& out) {
  if (e.kind == Expr::Kind::kAnd) {
    conjuncts(*e.left, out);
    conjuncts(*e.right, out);
  } else {
    out.push_back(&e);
  }
}

bool namesTable(const Expr& field, const jet::TableDef& t, std::string_view alias) {
  return field.table.empty() || sameName(field.table, t.name) ||
         (!alias.empty() && sameName(field.table, alias));
}

}  // namespace

std::optional<std::vector<jet::RowId>> indexedRows(jet::Database& db, const jet::TableDef& t,
                                                   std::string_view alias, const Expr& cond) {
  std::vector<const Expr*> parts;
  conjuncts(cond, parts);
  for (const Expr* p : parts) {
    if (p->kind != Expr::Kind::kCompare || p->op != CompareOp::kEqual) continue;
    const Expr* field = p->left.get();
    const Expr* literal = p->right.get();
    if (field->kind != Expr::Kind::kField) std::swap(field, literal);
    if (field->kind != Expr::Kind::kField || literal->kind != Expr::Kind::kLiteral ||
        jet::isNull(literal->value) || !namesTable(*field, t, alias))
      continue;
    const jet::ColumnDef* col = t.findColumn(field->name);
    if (!col) continue;
    if (auto ids =
            rowsWithValue(db, t, static_cast<size_t>(col - t.columns.data()), literal->value))
      return ids;
  }
  return std::nullopt;
}

std::optional<std::vector<jet::RowId>> rowsWithValue(jet::Database& db, const jet::TableDef& t,
                                                     size_t at, const jet::Value& value) {
  if (jet::isNull(value)) return std::nullopt;
  for (const jet::RealIndex& ri : t.realIndexes) {
    if (ri.columns.size() != 1 || ri.columns[0].column != at) continue;
    try {
      std::vector<jet::Value> row(t.columns.size());
      row[at] = jet::coerceValue(db.format(), t.columns[at], value);
      std::vector<jet::RowId> ids =
          db.indexLookup(t, ri, jet::encodeIndexKey(db.format(), t, ri, row));
      std::sort(ids.begin(), ids.end());
      ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
      return ids;
    } catch (const jet::JetError&) {
      // A value the column cannot hold: the plain search reports it.
    }
  }
  return std::nullopt;
}

std::vector<size_t> columnsNamed(const jet::TableDef& t, std::string_view alias, const Expr& cond) {
  std::vector<size_t> out;
  for (const Expr* f : fieldsOf(cond)) {
    if (!namesTable(*f, t, alias)) continue;
    if (const jet::ColumnDef* c = t.findColumn(f->name)) {
      const size_t at = static_cast<size_t>(c - t.columns.data());
      if (std::find(out.begin(), out.end(), at) == out.end()) out.push_back(at);
    }
  }
  return out;
}

}  // namespace schema
