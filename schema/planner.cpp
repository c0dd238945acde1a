#include "schema/planner.h"

#include <algorithm>
#include <cmath>

#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/row_codec.h"
#include "jet/sort_general.h"
#include "jet/text.h"
#include "schema/collation.h"

namespace schema {
namespace {

bool namesTable(const Expr& field, const jet::TableDef& t, std::string_view alias) {
  return field.table.empty() || sameName(field.table, t.name) ||
         (!alias.empty() && sameName(field.table, alias));
}

// A key seeks the bytes it was made of, and Single, Double and Date/Time
// keys of 0 and -0 differ, though the values are equal: where a column of
// those holds `v` == 0, the zero of sign `negative` (which may be `v`).
std::optional<jet::Value> zeroOfSign(const jet::Value& v, bool negative) {
  const double sign = negative ? -1.0 : 1.0;
  if (auto* f = std::get_if<float>(&v); f && *f == 0) return jet::Value(std::copysign(0.0f, sign));
  if (auto* d = std::get_if<double>(&v); d && *d == 0) return jet::Value(std::copysign(0.0, sign));
  if (auto* t = std::get_if<jet::DateTime>(&v); t && t->days == 0)
    return jet::Value(jet::DateTime{std::copysign(0.0, sign)});
  return std::nullopt;
}

// The key that bounds, at its `low` or high end, the entries of the texts
// a text bound admits; nullopt where the end stays open. A text key begins
// with the codes of its text's main part, which the evaluator's keys share
// (schema/collation.h), and ends that part with a byte below every code's
// first byte: 01 in Jet 4, 00-0F in Jet 3. No code is the start of another
// and none but the spaces' starts with the space's byte or a smaller one,
// bar a few Jet 3 characters with a one-byte code below it (control
// characters, the euro sign, Z with caron). So the text keys at or above
// `low` begin with at least `low`'s main part less its trailing spaces (the
// index drops them from the rows' keys) and, in Jet 3, less all from the
// first code below the space's on; those at or below `high` begin with at most
// `high`'s main part, spaces included: the entries from the one to the
// latter followed by the byte after the end bytes hold them all.
std::optional<std::vector<uint8_t>> textBoundKey(const jet::Format& fmt, const jet::TableDef& t,
                                                 const jet::RealIndex& ri,
                                                 const std::vector<jet::Value>& row, size_t at,
                                                 bool low) {
  const bool jet3 = fmt.version == jet::Version::kJet3;
  const uint8_t space = static_cast<uint8_t>(jet3 ? jet::general97Weights(U' ')->code
                                                  : jet::generalLegacyWeights(u' ').code);
  const uint8_t lastEnd = jet3 ? 0x0F : 0x01;
  // Flag byte, main part, end ...; the key leaves out trailing spaces and
  // refuses characters whose codes are not all known.
  std::vector<uint8_t> key = jet::encodeIndexKey(fmt, t, ri, row);
  auto from = [&](auto below) { return std::find_if(key.begin() + 1, key.end(), below); };
  key.erase(from([&](uint8_t b) { return b <= lastEnd; }), key.end());
  if (low) {
    if (jet3) key.erase(from([&](uint8_t b) { return b < space; }), key.end());
    while (key.size() > 1 && key.back() == space) key.pop_back();
    return key;
  }
  const std::u32string chars = jet::utf8ToCodePoints(std::get<std::string>(row[at]));
  if (chars.size() > jet::kMaxIndexedTextChars) return std::nullopt;  // the key was cut
  const auto last =
      std::find_if(chars.rbegin(), chars.rend(), [](char32_t c) { return c != U' '; });
  key.insert(key.end(), static_cast<size_t>(last - chars.rbegin()), space);
  key.push_back(static_cast<uint8_t>(lastEnd + 1));
  return key;
}

// "column < number" and the like, on a number or date column with an
// ascending index of its own, or "column < 'text'" on a Text column with
// one: the entries between the bounds. Keys of numbers and dates
// sort as the values do (a date is its number of days); text keys, as far
// as textBoundKey says. A bound the column cannot hold leaves its end open,
// a bound of zero takes both zeros in, and a Null key (sorted first) only
// ever widens what is tested.
std::optional<std::vector<jet::RowId>> rowsInRange(jet::Database& db, const jet::TableDef& t,
                                                   std::string_view alias,
                                                   const std::vector<const Expr*>& parts) {
  struct Bounds {
    const jet::Value* low = nullptr;
    const jet::Value* high = nullptr;
  };
  std::vector<std::pair<size_t, Bounds>> columns;
  for (const Expr* p : parts) {
    if (p->kind != Expr::Kind::kCompare || p->op == CompareOp::kEqual ||
        p->op == CompareOp::kNotEqual)
      continue;
    const Expr* field = p->left.get();
    const Expr* literal = p->right.get();
    bool below = p->op == CompareOp::kLess || p->op == CompareOp::kLessOrEqual;
    if (field->kind != Expr::Kind::kField) {
      std::swap(field, literal);
      below = !below;
    }
    if (field->kind != Expr::Kind::kField || literal->kind != Expr::Kind::kLiteral ||
        !namesTable(*field, t, alias))
      continue;
    const jet::ColumnDef* col = t.findColumn(field->name);
    if (!col) continue;
    const bool number = std::holds_alternative<int32_t>(literal->value) ||
                        std::holds_alternative<double>(literal->value);
    const bool text = std::holds_alternative<std::string>(literal->value);
    if (!(number && keysSortAsValues(*col)) && !(text && col->type == jet::coltype::kText))
      continue;
    const size_t at = static_cast<size_t>(col - t.columns.data());
    auto it = std::find_if(columns.begin(), columns.end(), [&](auto& c) { return c.first == at; });
    if (it == columns.end()) it = columns.insert(columns.end(), {at, Bounds{}});
    (below ? it->second.high : it->second.low) = &literal->value;
  }
  for (const auto& entry : columns) {
    const size_t at = entry.first;  // a plain name: lambdas below use it
    const Bounds& bounds = entry.second;
    for (const jet::RealIndex& ri : t.realIndexes) {
      if (ri.columns.size() != 1 || ri.columns[0].column != at || !ri.columns[0].ascending)
        continue;
      // -0 sorts before 0: the low end starts at it, the high end at 0.
      auto keyOf = [&](const jet::Value* v, bool low) -> std::optional<std::vector<uint8_t>> {
        if (!v) return std::nullopt;
        try {
          std::vector<jet::Value> row(t.columns.size());
          row[at] = jet::coerceValue(db.format(), t.columns[at], *v);
          if (t.columns[at].type == jet::coltype::kText)
            return textBoundKey(db.format(), t, ri, row, at, low);
          if (auto zero = zeroOfSign(row[at], low)) row[at] = *zero;
          return jet::encodeIndexKey(db.format(), t, ri, row);
        } catch (const jet::JetError&) {
          return std::nullopt;  // past what the column holds: that end stays open
        }
      };
      const std::optional<std::vector<uint8_t>> low = keyOf(bounds.low, true),
                                                high = keyOf(bounds.high, false);
      if (!low && !high) continue;
      std::vector<jet::RowId> ids =
          db.indexRange(t, ri, low ? &*low : nullptr, high ? &*high : nullptr);
      std::sort(ids.begin(), ids.end());
      ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
      return ids;
    }
  }
  return std::nullopt;
}

}  // namespace

bool holdsNumbers(const jet::ColumnDef& c) {
  switch (c.type) {
    case jet::coltype::kBoolean:
    case jet::coltype::kByte:
    case jet::coltype::kInteger:
    case jet::coltype::kLong:
    case jet::coltype::kCurrency:
    case jet::coltype::kSingle:
    case jet::coltype::kDouble:
    case jet::coltype::kDateTime:
    case jet::coltype::kDecimal:
      return true;
    default:
      return false;
  }
}

bool keysSortAsValues(const jet::ColumnDef& c) {
  return holdsNumbers(c) && c.type != jet::coltype::kBoolean && c.type != jet::coltype::kDecimal;
}

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
  return rowsInRange(db, t, alias, parts);
}

std::optional<std::vector<jet::RowId>> rowsWithValue(jet::Database& db, const jet::TableDef& t,
                                                     size_t at, const jet::Value& value) {
  if (jet::isNull(value)) return std::nullopt;
  for (const jet::RealIndex& ri : t.realIndexes) {
    if (ri.columns.size() != 1 || ri.columns[0].column != at) continue;
    try {
      std::vector<jet::Value> row(t.columns.size());
      row[at] = jet::coerceValue(db.format(), t.columns[at], value);
      std::vector<jet::RowId> ids;
      if (auto positive = zeroOfSign(row[at], false)) {
        row[at] = *zeroOfSign(row[at], true);
        ids = db.indexLookup(t, ri, jet::encodeIndexKey(db.format(), t, ri, row));
        row[at] = *positive;
      }
      for (jet::RowId id : db.indexLookup(t, ri, jet::encodeIndexKey(db.format(), t, ri, row)))
        ids.push_back(id);
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
