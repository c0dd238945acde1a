// A recursive-descent parser over a lexer that reads one token at a time.
// The laziness matters: in "Name = 'O'Brien'" Jet complains about the
// missing operator before "Brien", not about the quote left open after it,
// and so must we; lexing the whole text first would find the open quote.
//
// Precedence, loosest first: OR, AND, NOT, comparisons (=, <>, <, <=, >, >=,
// IS [NOT] NULL; several in a row apply from the left), unary minus.
#include "schema/sql.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "schema/engine_error.h"

namespace schema {
namespace {

constexpr char kMissingOperator[] = "Syntax error (missing operator)";
constexpr char kStringFault[] = "Syntax error in string";
constexpr char kMissingParen[] = "Missing ), ], or Item";
constexpr char kExtraParen[] = "Extra )";

enum class Tok {
  kEnd,
  kWord,  // a bare name or keyword
  kName,  // a [bracketed] name
  kNumber,
  kString,  // text is the value, quotes undone
  kSymbol,
  kBadString,  // a quote never closed
  kBadName,    // a "[" never closed, or "[]"
  kBadChar,
};

struct Token {
  Tok kind = Tok::kEnd;
  std::string text;
  size_t begin = 0, end = 0;
};

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
// Bytes of UTF-8 sequences count as letters: names may hold accented letters.
bool isNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool isNamePart(char c) { return isNameStart(c) || isDigit(c); }

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool equalsKeyword(std::string_view word, std::string_view keyword) {
  if (word.size() != keyword.size()) return false;
  for (size_t i = 0; i < word.size(); ++i)
    if (upper(word[i]) != keyword[i]) return false;
  return true;
}

// Words that can never be a bare table, column or alias name.
bool isReserved(std::string_view word) {
  static constexpr std::string_view kReserved[] = {
      "SELECT", "DISTINCT", "FROM",  "WHERE", "AND",     "OR",    "NOT",  "IS",    "NULL",
      "AS",     "ORDER",    "GROUP", "BY",    "HAVING",  "UNION", "JOIN", "INNER", "LEFT",
      "RIGHT",  "ON",       "IN",    "LIKE",  "BETWEEN", "TRUE",  "FALSE"};
  for (std::string_view k : kReserved)
    if (equalsKeyword(word, k)) return true;
  return false;
}

class Lexer {
 public:
  explicit Lexer(std::string_view s) : s_(s) {}

  const Token& peek() {
    if (!cached_) {
      tok_ = lex();
      cached_ = true;
    }
    return tok_;
  }

  Token next() {
    peek();
    cached_ = false;
    return std::move(tok_);
  }

 private:
  Token lex() {
    while (pos_ < s_.size() && isSpace(s_[pos_])) ++pos_;
    Token t;
    t.begin = pos_;
    if (pos_ >= s_.size()) {
      t.end = pos_;
      return t;
    }
    char c = s_[pos_];
    if (isNameStart(c)) {
      while (pos_ < s_.size() && isNamePart(s_[pos_])) ++pos_;
      t.kind = Tok::kWord;
      t.text = std::string(s_.substr(t.begin, pos_ - t.begin));
    } else if (isDigit(c)) {
      lexNumber(t);
    } else if (c == '\'' || c == '"') {
      lexString(t, c);
    } else if (c == '[') {
      size_t close = s_.find(']', pos_ + 1);
      if (close == std::string_view::npos || close == pos_ + 1) {
        t.kind = Tok::kBadName;
        pos_ = close == std::string_view::npos ? s_.size() : close + 1;
      } else {
        t.kind = Tok::kName;
        t.text = std::string(s_.substr(pos_ + 1, close - pos_ - 1));
        pos_ = close + 1;
      }
    } else {
      lexSymbol(t);
    }
    t.end = pos_;
    if (t.kind == Tok::kBadName) t.text = std::string(s_.substr(t.begin, t.end - t.begin));
    return t;
  }

  void lexNumber(Token& t) {
    auto digits = [&] {
      while (pos_ < s_.size() && isDigit(s_[pos_])) ++pos_;
    };
    digits();
    if (pos_ + 1 < s_.size() && s_[pos_] == '.' && isDigit(s_[pos_ + 1])) {
      ++pos_;
      digits();
    }
    if (pos_ < s_.size() && (s_[pos_] == 'e' || s_[pos_] == 'E')) {
      size_t p = pos_ + 1;
      if (p < s_.size() && (s_[p] == '+' || s_[p] == '-')) ++p;
      if (p < s_.size() && isDigit(s_[p])) {
        pos_ = p;
        digits();
      }
    }
    t.kind = Tok::kNumber;
    t.text = std::string(s_.substr(t.begin, pos_ - t.begin));
  }

  // A quote inside the value is written twice; a lone one ends the value.
  void lexString(Token& t, char quote) {
    ++pos_;
    while (pos_ < s_.size()) {
      if (s_[pos_] == quote) {
        if (pos_ + 1 < s_.size() && s_[pos_ + 1] == quote) {
          t.text += quote;
          pos_ += 2;
          continue;
        }
        ++pos_;
        t.kind = Tok::kString;
        return;
      }
      t.text += s_[pos_++];
    }
    t.kind = Tok::kBadString;
  }

  void lexSymbol(Token& t) {
    static constexpr std::string_view kTwo[] = {"<>", "<=", ">="};
    for (std::string_view sym : kTwo) {
      if (s_.substr(pos_, 2) == sym) {
        t.kind = Tok::kSymbol;
        t.text = std::string(sym);
        pos_ += 2;
        return;
      }
    }
    static constexpr std::string_view kOne = "=<>(),.*;-+";
    t.kind = kOne.find(s_[pos_]) != std::string_view::npos ? Tok::kSymbol : Tok::kBadChar;
    t.text = std::string(1, s_[pos_]);
    ++pos_;
  }

  std::string_view s_;
  size_t pos_ = 0;
  Token tok_;
  bool cached_ = false;
};

bool isWord(const Token& t, std::string_view keyword) {
  return t.kind == Tok::kWord && equalsKeyword(t.text, keyword);
}
bool isSymbol(const Token& t, std::string_view sym) {
  return t.kind == Tok::kSymbol && t.text == sym;
}
// A token that can stand as a table, column or alias name.
bool isName(const Token& t) {
  return t.kind == Tok::kName || (t.kind == Tok::kWord && !isReserved(t.text));
}

ExprPtr node(Expr::Kind kind, ExprPtr left = nullptr, ExprPtr right = nullptr) {
  auto e = std::make_unique<Expr>();
  e->kind = kind;
  e->left = std::move(left);
  e->right = std::move(right);
  return e;
}

ExprPtr literal(jet::Value v) {
  auto e = node(Expr::Kind::kLiteral);
  e->value = std::move(v);
  return e;
}

// A whole number that fits a Long is a Long, as in Jet; anything else a
// Double.
jet::Value numberValue(std::string_view text) {
  const char* first = text.data();
  const char* last = first + text.size();
  if (text.find_first_of(".eE") == std::string_view::npos) {
    int64_t n = 0;
    auto [p, ec] = std::from_chars(first, last, n);
    if (ec == std::errc() && p == last && n <= INT32_MAX) return static_cast<int32_t>(n);
  }
  double d = 0;
  auto [p, ec] = std::from_chars(first, last, d);
  if (ec == std::errc::result_out_of_range) {
    // Too large or too small to hold; the C library tells which (infinity
    // or zero), in the C locale whatever the user's.
    static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t{});
    d = strtod_l(std::string(text).c_str(), nullptr, c);
  }
  return d;
}

// Jet's own limit of tables in one query.
constexpr size_t kMaxTables = 32;
// Bounds that keep a hostile text from exhausting the stack (the parser, the
// evaluator and the tree's destructor all recurse) or the time of every row
// checked: far beyond anything the program composes.
constexpr int kMaxNesting = 64;
constexpr int kMaxOperators = 1000;

class Parser {
 public:
  Parser(std::string_view text, ExprContext ctx) : text_(text), lex_(text), ctx_(ctx) {}

  SelectStatement select() {
    SelectStatement st;
    if (!isWord(lex_.next(), "SELECT")) fail(err::kInvalidStatement);
    if (isWord(lex_.peek(), "DISTINCT")) {
      lex_.next();
      st.distinct = true;
    }
    if (isSymbol(lex_.peek(), "*")) {
      lex_.next();
      st.allColumns = true;
    } else {
      st.columns.push_back(column());
      while (isSymbol(lex_.peek(), ",")) {
        lex_.next();
        st.columns.push_back(column());
      }
    }
    Token from = lex_.next();
    if (from.kind == Tok::kEnd) fail(err::kIncompleteQueryClause);
    if (!isWord(from, "FROM")) fail(err::kSelectSyntax);

    st.tables.push_back(table());
    while (isSymbol(lex_.peek(), ",")) {
      lex_.next();
      if (st.tables.size() == kMaxTables) fail(err::kQueryTooComplex);
      st.tables.push_back(table());
    }
    const Token& t = lex_.peek();
    if (isWord(t, "WHERE")) {
      exprBegin_ = t.end;
      lex_.next();
      st.where = orExpr();
      if (isSymbol(lex_.peek(), ")")) exprError(kExtraParen);
      if (lex_.peek().kind != Tok::kEnd && !isSymbol(lex_.peek(), ";")) exprError(kMissingOperator);
    } else if (t.kind != Tok::kEnd && !isSymbol(t, ";")) {
      fail(err::kFromClauseSyntax);
    }
    if (isSymbol(lex_.peek(), ";")) lex_.next();
    if (lex_.peek().kind != Tok::kEnd) fail(err::kCharactersAfterEnd);
    return st;
  }

  ExprPtr criteria() {
    ExprPtr e = orExpr();
    if (isSymbol(lex_.peek(), ")")) exprError(kExtraParen);
    if (lex_.peek().kind != Tok::kEnd) exprError(kMissingOperator);
    return e;
  }

 private:
  const char* source() const {
    return ctx_ == ExprContext::kQuery ? sources::kDatabase : sources::kRecordset;
  }

  [[noreturn]] void fail(int32_t number, std::initializer_list<std::string_view> args = {}) {
    throw EngineError(number, source(), args);
  }

  // One level deeper into a parenthesis, NOT or sign, for as long as it
  // lives.
  class Nested {
   public:
    explicit Nested(Parser& p) : p_(p) {
      if (++p_.depth_ > kMaxNesting) p_.fail(err::kQueryTooComplex);
    }
    ~Nested() { --p_.depth_; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

   private:
    Parser& p_;
  };

  ExprPtr counted(Expr::Kind kind, ExprPtr left, ExprPtr right = nullptr) {
    if (++operators_ > kMaxOperators) fail(err::kQueryTooComplex);
    return node(kind, std::move(left), std::move(right));
  }

  // Jet quotes the condition as written, from after WHERE to the end of the
  // statement.
  [[noreturn]] void exprError(std::string_view fault) {
    if (ctx_ == ExprContext::kCriteria) fail(err::kCriteriaSyntax, {fault});
    std::string_view quoted = text_.substr(exprBegin_);
    auto trim = [&] {
      while (!quoted.empty() && isSpace(quoted.front())) quoted.remove_prefix(1);
      while (!quoted.empty() && isSpace(quoted.back())) quoted.remove_suffix(1);
    };
    trim();
    if (!quoted.empty() && quoted.back() == ';') {
      quoted.remove_suffix(1);
      trim();
    }
    fail(err::kQueryExpressionSyntax, {fault, quoted});
  }

  ColumnRef column() {
    ColumnRef c;
    Token t = lex_.next();
    if (t.kind == Tok::kEnd) fail(err::kIncompleteQueryClause);
    if (t.kind == Tok::kBadName) fail(err::kInvalidBracketing, {t.text});
    if (!isName(t)) fail(err::kSelectSyntax);
    c.name = std::move(t.text);
    if (isSymbol(lex_.peek(), ".")) {
      lex_.next();
      Token part = lex_.next();
      if (part.kind == Tok::kBadName) fail(err::kInvalidBracketing, {part.text});
      if (!isSymbol(part, "*") && part.kind != Tok::kName && part.kind != Tok::kWord)
        fail(err::kSelectSyntax);
      c.table = std::move(c.name);
      c.name = std::move(part.text);
    }
    c.alias = alias(err::kSelectSyntax);
    return c;
  }

  TableRef table() {
    TableRef r;
    Token t = lex_.next();
    if (t.kind == Tok::kBadName) fail(err::kInvalidBracketing, {t.text});
    if (!isName(t)) fail(err::kFromClauseSyntax);
    r.name = std::move(t.text);
    r.alias = alias(err::kFromClauseSyntax);
    return r;
  }

  // "AS alias", a bare alias, or nothing.
  std::string alias(int32_t errorNumber) {
    if (isWord(lex_.peek(), "AS")) {
      lex_.next();
      Token a = lex_.next();
      if (!isName(a)) fail(errorNumber);
      return std::move(a.text);
    }
    if (isName(lex_.peek())) return lex_.next().text;
    return {};
  }

  ExprPtr orExpr() {
    ExprPtr e = andExpr();
    while (isWord(lex_.peek(), "OR")) {
      lex_.next();
      e = counted(Expr::Kind::kOr, std::move(e), andExpr());
    }
    return e;
  }

  ExprPtr andExpr() {
    ExprPtr e = notExpr();
    while (isWord(lex_.peek(), "AND")) {
      lex_.next();
      e = counted(Expr::Kind::kAnd, std::move(e), notExpr());
    }
    return e;
  }

  ExprPtr notExpr() {
    if (isWord(lex_.peek(), "NOT")) {
      lex_.next();
      Nested nested(*this);
      return counted(Expr::Kind::kNot, notExpr());
    }
    return comparison();
  }

  ExprPtr comparison() {
    static constexpr std::pair<std::string_view, CompareOp> kOps[] = {
        {"=", CompareOp::kEqual},   {"<>", CompareOp::kNotEqual},
        {"<", CompareOp::kLess},    {"<=", CompareOp::kLessOrEqual},
        {">", CompareOp::kGreater}, {">=", CompareOp::kGreaterOrEqual}};
    ExprPtr e = operand();
    for (;;) {
      const Token& t = lex_.peek();
      if (isWord(t, "IS")) {
        lex_.next();
        ExprPtr test = counted(Expr::Kind::kIsNull, std::move(e));
        if (isWord(lex_.peek(), "NOT")) {
          lex_.next();
          test->negated = true;
        }
        if (!isWord(lex_.next(), "NULL")) exprError(kMissingOperator);
        e = std::move(test);
        continue;
      }
      if (t.kind != Tok::kSymbol) return e;
      auto op = std::find_if(std::begin(kOps), std::end(kOps),
                             [&](const auto& o) { return o.first == t.text; });
      if (op == std::end(kOps)) return e;
      lex_.next();
      ExprPtr cmp = counted(Expr::Kind::kCompare, std::move(e), operand());
      cmp->op = op->second;
      e = std::move(cmp);
    }
  }

  ExprPtr operand() {
    const Token& t = lex_.peek();
    if (isSymbol(t, "+")) {
      lex_.next();
      Nested nested(*this);
      return operand();
    }
    if (isSymbol(t, "-")) {
      lex_.next();
      Nested nested(*this);
      ExprPtr e = operand();
      if (e->kind == Expr::Kind::kLiteral) {
        if (auto* n = std::get_if<int32_t>(&e->value)) {
          *n = -*n;  // a lexed number is never negative, so never INT32_MIN
          return e;
        }
        if (auto* d = std::get_if<double>(&e->value)) {
          *d = -*d;
          return e;
        }
      }
      return counted(Expr::Kind::kNegate, std::move(e));
    }
    return primary();
  }

  ExprPtr primary() {
    Token t = lex_.next();
    switch (t.kind) {
      case Tok::kNumber:
        return literal(numberValue(t.text));
      case Tok::kString:
        return literal(std::move(t.text));
      case Tok::kBadString:
        exprError(kStringFault);
      case Tok::kBadName:
        fail(err::kInvalidBracketing, {t.text});
      case Tok::kName:
        return field(std::move(t.text));
      case Tok::kWord:
        if (equalsKeyword(t.text, "NULL")) return literal(std::monostate{});
        if (equalsKeyword(t.text, "TRUE")) return literal(true);
        if (equalsKeyword(t.text, "FALSE")) return literal(false);
        if (isReserved(t.text)) exprError(kMissingOperator);
        return field(std::move(t.text));
      case Tok::kSymbol:
        if (t.text == "(") {
          Nested nested(*this);
          ExprPtr e = orExpr();
          const Token& close = lex_.next();
          if (isSymbol(close, ")")) return e;
          exprError(close.kind == Tok::kEnd ? kMissingParen : kMissingOperator);
        }
        exprError(kMissingOperator);
      case Tok::kEnd:
      case Tok::kBadChar:
        exprError(kMissingOperator);
    }
    exprError(kMissingOperator);
  }

  // A name, or the first part of "table.name".
  ExprPtr field(std::string first) {
    auto e = node(Expr::Kind::kField);
    if (isSymbol(lex_.peek(), ".")) {
      lex_.next();
      Token part = lex_.next();
      if (part.kind == Tok::kBadName) fail(err::kInvalidBracketing, {part.text});
      if (part.kind != Tok::kWord && part.kind != Tok::kName) exprError(kMissingOperator);
      e->table = std::move(first);
      e->name = std::move(part.text);
    } else {
      e->name = std::move(first);
    }
    return e;
  }

  std::string_view text_;
  Lexer lex_;
  ExprContext ctx_;
  size_t exprBegin_ = 0;
  int depth_ = 0;
  int operators_ = 0;
};

const char* opText(CompareOp op) {
  switch (op) {
    case CompareOp::kEqual:
      return "=";
    case CompareOp::kNotEqual:
      return "<>";
    case CompareOp::kLess:
      return "<";
    case CompareOp::kLessOrEqual:
      return "<=";
    case CompareOp::kGreater:
      return ">";
    case CompareOp::kGreaterOrEqual:
      return ">=";
  }
  return "?";
}

// A name as it must be written to read back as the same name: bracketed
// unless it is a plain word.
std::string nameText(const std::string& name) {
  bool plain = !name.empty() && isNameStart(name[0]) && !isReserved(name);
  for (char c : name) plain = plain && isNamePart(c);
  return plain ? name : "[" + name + "]";
}

std::string literalText(const jet::Value& v) {
  if (jet::isNull(v)) return "Null";
  if (auto* b = std::get_if<bool>(&v)) return *b ? "True" : "False";
  if (auto* n = std::get_if<int32_t>(&v)) return std::to_string(*n);
  if (auto* d = std::get_if<double>(&v)) {
    // Written so that it reads back as the same Double: infinity (a number
    // too large to hold) as such a number, and -0 with its point.
    if (std::isinf(*d)) return *d > 0 ? "1E+999" : "-1E+999";
    if (*d == 0 && std::signbit(*d)) return "-0.0";
    char buf[32];
    auto [p, ec] = std::to_chars(buf, buf + sizeof buf, *d);
    return std::string(buf, p);
  }
  if (auto* s = std::get_if<std::string>(&v)) {
    std::string out = "'";
    for (char c : *s) {
      out += c;
      if (c == '\'') out += c;
    }
    return out + "'";
  }
  return "?";
}

}  // namespace

void conjuncts(const Expr& e, std::vector<const Expr*>& out) {
  if (e.kind == Expr::Kind::kAnd) {
    conjuncts(*e.left, out);
    conjuncts(*e.right, out);
  } else {
    out.push_back(&e);
  }
}

std::vector<const Expr*> fieldsOf(const Expr& e) {
  std::vector<const Expr*> out;
  std::vector<const Expr*> todo{&e};
  while (!todo.empty()) {
    const Expr* x = todo.back();
    todo.pop_back();
    if (x->kind == Expr::Kind::kField) out.push_back(x);
    if (x->right) todo.push_back(x->right.get());
    if (x->left) todo.push_back(x->left.get());
  }
  return out;
}

SelectStatement parseSelect(std::string_view sql) {
  return Parser(sql, ExprContext::kQuery).select();
}

ExprPtr parseCriteria(std::string_view criteria) {
  return Parser(criteria, ExprContext::kCriteria).criteria();
}

std::string toText(const Expr& e) {
  switch (e.kind) {
    case Expr::Kind::kLiteral:
      return literalText(e.value);
    case Expr::Kind::kField:
      return e.table.empty() ? nameText(e.name) : nameText(e.table) + "." + nameText(e.name);
    case Expr::Kind::kCompare:
      return "(" + toText(*e.left) + " " + opText(e.op) + " " + toText(*e.right) + ")";
    case Expr::Kind::kAnd:
      return "(" + toText(*e.left) + " AND " + toText(*e.right) + ")";
    case Expr::Kind::kOr:
      return "(" + toText(*e.left) + " OR " + toText(*e.right) + ")";
    case Expr::Kind::kNot:
      return "(NOT " + toText(*e.left) + ")";
    case Expr::Kind::kNegate:
      return "(-" + toText(*e.left) + ")";
    case Expr::Kind::kIsNull:
      return "(" + toText(*e.left) + (e.negated ? " IS NOT NULL)" : " IS NULL)");
  }
  return "?";
}

}  // namespace schema
