#include "schema/evaluator.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "schema/collation.h"
#include "schema/engine_error.h"

namespace schema {
namespace {

const char* sourceOf(ExprContext ctx) {
  return ctx == ExprContext::kQuery ? sources::kDatabase : sources::kRecordset;
}

[[noreturn]] void typeMismatch(ExprContext ctx) {
  throw EngineError(err::kTypeMismatchInCriteria, sourceOf(ctx));
}

// Raises the error for names `exists` does not know: Jet takes each unknown
// name of a query for a parameter the caller failed to supply.
template <typename Exists>
void checkNames(const Expr& e, ExprContext ctx, Exists exists) {
  std::vector<const Expr*> unknown;
  for (const Expr* f : fieldsOf(e)) {
    if (exists(*f)) continue;
    if (ctx == ExprContext::kCriteria)
      throw EngineError(err::kUnknownFieldInExpression, sourceOf(ctx), {toText(*f)});
    bool seen = std::any_of(unknown.begin(), unknown.end(), [&](const Expr* u) {
      return sameName(u->table, f->table) && sameName(u->name, f->name);
    });
    if (!seen) unknown.push_back(f);
  }
  if (!unknown.empty())
    throw EngineError(err::kTooFewParameters, sourceOf(ctx), {std::to_string(unknown.size())});
}

// A number as Jet compares it: exactly, in units of 1/10000, where both
// sides are whole numbers, Booleans or Currency; otherwise as Doubles, the
// way Jet widens a Currency or Long that meets a Double (so Currency 0.0001
// equals the Double literal 0.0001).
struct Number {
  bool exact = false;
  int64_t scaled = 0;
  double approx = 0;

  double value() const { return exact ? static_cast<double>(scaled) / 10000.0 : approx; }
};

double decimalValue(const jet::Decimal& d) {
  long double m = 0;
  for (int i = 3; i >= 0; --i) m = m * 4294967296.0L + d.magnitude[i];
  // Both exact as Doubles: one correctly rounded division, as for a literal.
  double v = m < 9007199254740992.0L && d.scale <= 22
                 ? static_cast<double>(m) / std::pow(10.0, d.scale)
                 : static_cast<double>(m / std::pow(10.0L, static_cast<long double>(d.scale)));
  return d.negative ? -v : v;
}

std::optional<Number> asNumber(const jet::Value& v) {
  if (auto* b = std::get_if<bool>(&v)) return Number{true, *b ? -10000 : 0, 0};
  if (auto* n = std::get_if<int32_t>(&v)) return Number{true, int64_t{*n} * 10000, 0};
  if (auto* c = std::get_if<jet::Currency>(&v)) return Number{true, c->units, 0};
  if (auto* f = std::get_if<float>(&v)) return Number{false, 0, *f};
  if (auto* d = std::get_if<double>(&v)) return Number{false, 0, *d};
  if (auto* t = std::get_if<jet::DateTime>(&v)) return Number{false, 0, t->days};
  if (auto* m = std::get_if<jet::Decimal>(&v)) return Number{false, 0, decimalValue(*m)};
  return std::nullopt;
}

template <typename T>
int order(const T& a, const T& b) {
  return a < b ? -1 : b < a ? 1 : 0;
}

// Null for Null; otherwise True or False, where any number but 0 is True.
std::optional<bool> truth(const jet::Value& v, ExprContext ctx) {
  if (jet::isNull(v)) return std::nullopt;
  if (auto* b = std::get_if<bool>(&v)) return *b;
  std::optional<Number> n = asNumber(v);
  if (!n) typeMismatch(ctx);
  return n->exact ? n->scaled != 0 : n->approx != 0;
}

jet::Value negate(const jet::Value& v, ExprContext ctx) {
  if (jet::isNull(v)) return v;
  if (auto* b = std::get_if<bool>(&v)) return int32_t{*b ? 1 : 0};
  if (auto* n = std::get_if<int32_t>(&v))
    return *n == INT32_MIN ? jet::Value(-static_cast<double>(*n)) : jet::Value(-*n);
  if (auto* c = std::get_if<jet::Currency>(&v)) return jet::Currency{-c->units};
  if (auto* f = std::get_if<float>(&v)) return -*f;
  if (auto* d = std::get_if<double>(&v)) return -*d;
  if (auto* t = std::get_if<jet::DateTime>(&v)) return jet::DateTime{-t->days};
  if (auto* m = std::get_if<jet::Decimal>(&v)) {
    jet::Decimal r = *m;
    r.negative = !r.negative && r.magnitude != std::array<uint32_t, 4>{};
    return r;
  }
  typeMismatch(ctx);
}

jet::Value ofTruth(std::optional<bool> t) {
  if (!t) return std::monostate{};
  return *t;
}

bool holds(int c, CompareOp op) {
  switch (op) {
    case CompareOp::kEqual:
      return c == 0;
    case CompareOp::kNotEqual:
      return c != 0;
    case CompareOp::kLess:
      return c < 0;
    case CompareOp::kLessOrEqual:
      return c <= 0;
    case CompareOp::kGreater:
      return c > 0;
    case CompareOp::kGreaterOrEqual:
      return c >= 0;
  }
  return false;
}

// The kind of an expression's value where it can be told without a row;
// nullopt where anything may come (Null, binary columns).
std::optional<FieldKind> kindOf(const Expr& e, const FieldCatalog& catalog, ExprContext ctx) {
  switch (e.kind) {
    case Expr::Kind::kLiteral:
      if (jet::isNull(e.value)) return std::nullopt;
      return std::holds_alternative<std::string>(e.value) ? FieldKind::kText : FieldKind::kNumber;
    case Expr::Kind::kField: {
      std::optional<FieldKind> k = catalog.fieldKind(e.table, e.name);
      if (k == FieldKind::kOther) return std::nullopt;
      return k;
    }
    case Expr::Kind::kCompare: {
      std::optional<FieldKind> l = kindOf(*e.left, catalog, ctx);
      std::optional<FieldKind> r = kindOf(*e.right, catalog, ctx);
      if (l && r && *l != *r) typeMismatch(ctx);
      return FieldKind::kNumber;
    }
    case Expr::Kind::kNegate:
      if (kindOf(*e.left, catalog, ctx) == FieldKind::kText) typeMismatch(ctx);
      return FieldKind::kNumber;
    case Expr::Kind::kAnd:
    case Expr::Kind::kOr:
      kindOf(*e.right, catalog, ctx);
      [[fallthrough]];
    case Expr::Kind::kNot:
    case Expr::Kind::kIsNull:
      kindOf(*e.left, catalog, ctx);
      return FieldKind::kNumber;
  }
  return std::nullopt;
}

}  // namespace

int compareValues(const jet::Value& a, const jet::Value& b, ExprContext ctx, TextOrder text) {
  std::optional<Number> na = asNumber(a), nb = asNumber(b);
  if (na && nb) {
    if (na->exact && nb->exact) return order(na->scaled, nb->scaled);
    return order(na->value(), nb->value());
  }
  if (auto* sa = std::get_if<std::string>(&a))
    if (auto* sb = std::get_if<std::string>(&b)) return compareText(*sa, *sb, text);
  if (auto* ba = std::get_if<jet::Blob>(&a))
    if (auto* bb = std::get_if<jet::Blob>(&b)) return order(*ba, *bb);
  if (auto* ga = std::get_if<jet::Guid>(&a))
    if (auto* gb = std::get_if<jet::Guid>(&b)) return order(ga->bytes, gb->bytes);
  typeMismatch(ctx);
}

std::optional<double> numberOf(const jet::Value& v) {
  std::optional<Number> n = asNumber(v);
  if (!n) return std::nullopt;
  return n->value();
}

void checkExpression(const Expr& e, const FieldCatalog& catalog, ExprContext ctx) {
  checkNames(e, ctx, [&](const Expr& f) { return catalog.fieldKind(f.table, f.name).has_value(); });
  kindOf(e, catalog, ctx);
}

jet::Value Evaluator::evaluate(const Expr& e) const {
  checkNames(e, ctx_, [&](const Expr& f) { return row_.field(f.table, f.name).has_value(); });
  return eval(e);
}

bool Evaluator::matches(const Expr& condition) const {
  return truth(evaluate(condition), ctx_) == true;
}

jet::Value Evaluator::eval(const Expr& e) const {
  switch (e.kind) {
    case Expr::Kind::kLiteral:
      return e.value;
    case Expr::Kind::kField: {
      std::optional<jet::Value> v = row_.field(e.table, e.name);
      if (!v) checkNames(e, ctx_, [](const Expr&) { return false; });
      return *v;
    }
    case Expr::Kind::kCompare: {
      jet::Value l = eval(*e.left), r = eval(*e.right);
      if (jet::isNull(l) || jet::isNull(r)) return std::monostate{};
      return holds(compareValues(l, r, ctx_, order_), e.op);
    }
    case Expr::Kind::kAnd: {
      // False on one side settles it, whatever the other holds.
      std::optional<bool> l = truth(eval(*e.left), ctx_);
      if (l == false) return false;
      std::optional<bool> r = truth(eval(*e.right), ctx_);
      if (r == false) return false;
      return ofTruth(l && r ? std::optional<bool>(true) : std::nullopt);
    }
    case Expr::Kind::kOr: {
      std::optional<bool> l = truth(eval(*e.left), ctx_);
      if (l == true) return true;
      std::optional<bool> r = truth(eval(*e.right), ctx_);
      if (r == true) return true;
      return ofTruth(l && r ? std::optional<bool>(false) : std::nullopt);
    }
    case Expr::Kind::kNot: {
      std::optional<bool> t = truth(eval(*e.left), ctx_);
      return ofTruth(t ? std::optional<bool>(!*t) : std::nullopt);
    }
    case Expr::Kind::kNegate:
      return negate(eval(*e.left), ctx_);
    case Expr::Kind::kIsNull:
      return jet::isNull(eval(*e.left)) != e.negated;
  }
  return std::monostate{};
}

}  // namespace schema
