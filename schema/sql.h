// The SQL the program composes, parsed into a statement and an expression
// tree: single SELECTs over one or more tables with an optional WHERE, and
// FindFirst criteria (a condition alone).
//
// Parsing fails the way Jet fails, with Jet's numbers and texts: a faulty
// condition is 3075 in a query (quoting the condition) and 3077 in FindFirst
// criteria; a faulty FROM clause 3131; a faulty column list 3141. Values
// are taken as they stand between the quotes: the program never doubles a
// quote inside a value, so "Name = 'O'Brien'" fails, as it does in Jet.
//
// Names are kept as written; matching them without regard to case is left
// to whoever resolves them (sameName in schema/collation.h).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "jet/value.h"

namespace schema {

// Where an expression comes from; it decides the numbers of its errors and
// the DAO object they are said to come from.
enum class ExprContext {
  kQuery,     // a WHERE clause of OpenRecordset: 3075, 3061, "DAO.Database"
  kCriteria,  // FindFirst criteria: 3077, 3070, "DAO.Recordset"
};

enum class CompareOp { kEqual, kNotEqual, kLess, kLessOrEqual, kGreater, kGreaterOrEqual };

struct Expr {
  enum class Kind {
    kLiteral,  // value: a number (int32_t or double), text, True / False, or Null
    kField,    // table (empty when not qualified) and name, as written
    kCompare,  // left op right
    kAnd,      // left AND right
    kOr,       // left OR right
    kNot,      // NOT left
    kNegate,   // -left
    kIsNull,   // left IS NULL, or IS NOT NULL when negated
  };

  Kind kind = Kind::kLiteral;
  jet::Value value;
  std::string table, name;
  CompareOp op = CompareOp::kEqual;
  bool negated = false;
  std::unique_ptr<Expr> left, right;
};

using ExprPtr = std::unique_ptr<Expr>;

struct TableRef {
  std::string name;
  std::string alias;  // empty when none
};

struct ColumnRef {
  std::string table;  // the qualifier, empty when none
  std::string name;   // "*" for "table.*"
  std::string alias;  // empty when none
};

struct SelectStatement {
  bool distinct = false;
  bool allColumns = false;  // SELECT *
  std::vector<ColumnRef> columns;
  std::vector<TableRef> tables;
  ExprPtr where;  // null without a WHERE clause
};

// Throws EngineError: 3129 when the text is no SELECT, 3141 for a faulty
// column list, 3450 when it ends before FROM, 3131 for a faulty FROM clause,
// 3075 for a faulty WHERE condition, 3126 for an unclosed "[", 3142 for text
// after the closing ";", 3360 for more than 32 tables or a condition nested
// more than 64 deep or of more than 1000 operators. All come from
// "DAO.Database".
SelectStatement parseSelect(std::string_view sql);

// FindFirst criteria. Throws EngineError 3077 ("DAO.Recordset") when the
// text is no well-formed condition, 3360 beyond the bounds above.
ExprPtr parseCriteria(std::string_view criteria);

// The field references of an expression, left to right.
std::vector<const Expr*> fieldsOf(const Expr& e);

// The conditions AND-ed together at the top of an expression, left to right
// (the expression itself when it is no AND), appended to `out`.
void conjuncts(const Expr& e, std::vector<const Expr*>& out);

// The expression written out fully parenthesised, names as written, text in
// single quotes with inner quotes doubled: "((Name = 'a') AND (dirId = 3))".
std::string toText(const Expr& e);

}  // namespace schema
