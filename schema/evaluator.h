// Evaluation of parsed conditions against one row, with Jet's rules:
// three-valued logic (a comparison with Null is Null, NOT Null is Null,
// False AND Null is False, True OR Null is True; a row is kept only where the
// condition is True), numbers compared by value whatever their column type,
// text compared in the General order (schema/collation.h), and error 3464
// where text meets a number.
//
// Names are resolved by the row source, not here; a name it does not know
// is an error as soon as the condition is evaluated, even where the other
// side of an AND or OR would have settled the result, because Jet checks
// every name before it looks at a row. AND, OR and NOT are logical: any
// number but 0 counts as True (Jet works them bitwise on other numbers than
// True and False, which no condition of the program does).
#pragma once

#include <optional>
#include <string_view>

#include "jet/value.h"
#include "schema/collation.h"
#include "schema/sql.h"

namespace schema {

// The current row of a query or recordset.
struct RowSource {
  virtual ~RowSource() = default;
  // The value of a field; `table` is the qualifier as written, empty when
  // the name stands alone. nullopt when there is no such field. A source
  // may itself throw EngineError (3079 for a name two tables share).
  virtual std::optional<jet::Value> field(std::string_view table, std::string_view name) const = 0;
};

// What a column holds, for checking a condition before any row is read.
enum class FieldKind {
  kNumber,  // Byte, Integer, Long, Currency, Single, Double, Date/Time, Boolean, Decimal
  kText,    // Text, Memo
  kOther,   // Binary, OLE object, GUID: left to evaluation
};

// The columns a condition may name.
struct FieldCatalog {
  virtual ~FieldCatalog() = default;
  // Same naming as RowSource::field; nullopt when there is no such field.
  virtual std::optional<FieldKind> fieldKind(std::string_view table,
                                             std::string_view name) const = 0;
};

// Checks a condition as Jet does when it prepares a query, so that a query
// over an empty table fails as it would in Jet: unknown names first (in a
// query 3061 "Too few parameters. Expected N." with N the number of distinct
// unknown names; in criteria 3070 naming the first), then a field compared
// with a value or field of the other kind, text against number (3464).
void checkExpression(const Expr& e, const FieldCatalog& catalog, ExprContext ctx);

class Evaluator {
 public:
  // `row` must outlive the evaluator; the evaluator reads it afresh on every
  // call, so one evaluator serves a cursor that moves.
  explicit Evaluator(const RowSource& row, ExprContext ctx = ExprContext::kQuery,
                     TextOrder order = TextOrder::kGeneral)
      : row_(row), ctx_(ctx), order_(order) {}

  // Null, True / False (as bool) for conditions, or the value of a literal,
  // field or negation. Throws EngineError 3061 / 3070 for an unknown name,
  // 3464 for text compared with a number.
  jet::Value evaluate(const Expr& e) const;

  // Whether the row meets the condition: True only, not Null.
  bool matches(const Expr& condition) const;

 private:
  jet::Value eval(const Expr& e) const;

  const RowSource& row_;
  ExprContext ctx_;
  TextOrder order_;
};

// Orders two values that are not Null: <0, 0, >0. Numbers of any kind
// (Byte, Integer, Long as int32_t; Boolean as -1 / 0; Currency; Single;
// Double; Date/Time; Decimal) by value, text by compareText in `order`,
// binary and GUID values by their bytes. Throws EngineError 3464 for any
// other pairing.
int compareValues(const jet::Value& a, const jet::Value& b, ExprContext ctx = ExprContext::kQuery,
                  TextOrder order = TextOrder::kGeneral);

// The value by which compareValues orders a number of any kind; nullopt for
// Null, text and binary values.
std::optional<double> numberOf(const jet::Value& v);

}  // namespace schema
