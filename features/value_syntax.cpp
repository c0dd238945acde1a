#include "features/value_syntax.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

#include "jet/text.h"

namespace features {

bool isTextType(int gdoType) { return gdoType == gdo::kText || gdoType == gdo::kMemo; }

bool isGeometryType(int gdoType) { return gdoType == gdo::kSpatial || gdoType == gdo::kGraphic; }

namespace {

// --- text items ------------------------------------------------------------

// A text's length as the column counts it: UTF-16 units.
size_t columnLength(std::string_view utf8) {
  size_t n = 0;
  for (char32_t cp : jet::utf8ToCodePoints(utf8)) n += cp > 0xFFFF ? 2 : 1;
  return n;
}

class TextReader {
 public:
  TextReader(std::string_view text, size_t maxLength) : s_(text), max_(maxLength) {}

  ParsedValues parse(bool range) {
    ParsedValues out;
    for (;;) {
      ValueItem item;
      std::optional<std::string> first = quoted();
      if (!first) return fail(out);
      item.value = *first;
      if (range) {
        skipBlanks();
        if (!at('-')) return fail(out, atEnd() || at(',') ? ValueError::kInvalid : notQuoted());
        ++i_;
        std::optional<std::string> last = quoted();
        if (!last) return fail(out);
        // A range needs both ends.
        if (last->empty()) return fail(out, ValueError::kInvalid);
        item.maximum = *last;
      }
      out.items.push_back(std::move(item));
      skipBlanks();
      if (atEnd()) return out;
      if (!at(',')) return fail(out, notQuoted());
      ++i_;
    }
  }

 private:
  ValueError notQuoted() {
    if (error_ == ValueError::kNone) error_ = ValueError::kNotQuoted;
    return error_;
  }
  ParsedValues fail(ParsedValues& out, ValueError why = ValueError::kNone) {
    out.items.clear();
    out.error = why == ValueError::kNone ? error_ : why;
    return out;
  }
  bool atEnd() const { return i_ >= s_.size(); }
  bool at(char c) const { return i_ < s_.size() && s_[i_] == c; }
  void skipBlanks() {
    while (at(' ')) ++i_;
  }

  // The next item between quotes, without them, '' read as one quote.
  std::optional<std::string> quoted() {
    skipBlanks();
    if (!at('\'')) {
      notQuoted();
      return std::nullopt;
    }
    ++i_;
    std::string value;
    for (;;) {
      if (atEnd()) {
        notQuoted();
        return std::nullopt;
      }
      const char c = s_[i_++];
      if (c != '\'') {
        value += c;
        continue;
      }
      if (!at('\'')) break;
      value += '\'';
      ++i_;
    }
    if (max_ > 0 && columnLength(value) >= max_) {
      error_ = ValueError::kTooLong;
      return std::nullopt;
    }
    return value;
  }

  std::string_view s_;
  size_t max_;
  size_t i_ = 0;
  ValueError error_ = ValueError::kNone;
};

// --- numbers ---------------------------------------------------------------

struct Token {
  enum Kind { kNumber, kComma, kDash } kind;
  std::string_view text;
};

// The number as the attribute's type stores it; nullopt when it is no
// number of that type.
std::optional<jet::Value> numberValue(std::string_view t, int gdoType) {
  size_t digits = 0, points = 0;
  for (char c : t) (c == '.' ? points : digits) += 1;
  if (digits == 0 || points > 1) return std::nullopt;
  const char* end = t.data() + t.size();
  if (gdoType == gdo::kSingle) {
    float f = 0;
    auto [p, ec] = std::from_chars(t.data(), end, f, std::chars_format::fixed);
    if (ec != std::errc() || p != end || !std::isfinite(f)) return std::nullopt;
    return f;
  }
  double d = 0;
  auto [p, ec] = std::from_chars(t.data(), end, d, std::chars_format::fixed);
  if (ec != std::errc() || p != end || !std::isfinite(d)) return std::nullopt;
  const auto whole = [d](double max) -> std::optional<jet::Value> {
    if (d != std::floor(d) || d > max) return std::nullopt;
    return static_cast<int32_t>(d);
  };
  switch (gdoType) {
    case gdo::kBoolean:
      return d != 0;
    case gdo::kByte:
      return whole(255);
    case gdo::kInteger:
      return whole(32767);
    case gdo::kLong:
      return whole(2147483647.0);
    case gdo::kCurrency:
      if (d > 922337203685477.0) return std::nullopt;
      return jet::Currency{std::llround(d * 10000.0)};
    case gdo::kDate:
      return jet::DateTime{d};
    default:
      return d;
  }
}

// Whether a range's ends are in order. Integer ends are compared as text
// (as typed) as well as by value, Long as 32-bit integers and Double as
// doubles; other types are not compared.
bool inOrder(const Token& min, const Token& max, const ValueItem& item, int gdoType) {
  switch (gdoType) {
    case gdo::kInteger:
      return min.text <= max.text &&
             std::get<int32_t>(item.value) <= std::get<int32_t>(item.maximum);
    case gdo::kLong:
      return std::get<int32_t>(item.value) <= std::get<int32_t>(item.maximum);
    case gdo::kDouble:
      return std::get<double>(item.value) <= std::get<double>(item.maximum);
    default:
      return true;
  }
}

ParsedValues parseNumbers(std::string_view s, int gdoType, bool range) {
  ParsedValues out;
  const auto fail = [&out](ValueError why) {
    out.items.clear();
    out.error = why;
    return out;
  };
  for (char c : s)
    if (!(c >= '0' && c <= '9') && c != '.' && c != ' ' && c != ',' && c != '-')
      return fail(ValueError::kInvalid);
  if (!s.empty() && s.back() == ' ') return fail(ValueError::kMisusedDelimiter);

  std::vector<Token> tokens;
  for (size_t i = 0; i < s.size();) {
    const char c = s[i];
    if (c == ' ') {
      ++i;
    } else if (c == ',' || c == '-') {
      tokens.push_back({c == ',' ? Token::kComma : Token::kDash, s.substr(i, 1)});
      ++i;
    } else {
      size_t j = i;
      while (j < s.size() && (s[j] == '.' || (s[j] >= '0' && s[j] <= '9'))) ++j;
      tokens.push_back({Token::kNumber, s.substr(i, j - i)});
      i = j;
    }
  }
  // A delimiter must stand between two numbers; two numbers in a row have
  // none between them.
  for (size_t k = 0; k < tokens.size(); ++k) {
    const bool number = tokens[k].kind == Token::kNumber;
    const bool prevNumber = k > 0 && tokens[k - 1].kind == Token::kNumber;
    const bool nextNumber = k + 1 < tokens.size() && tokens[k + 1].kind == Token::kNumber;
    if (!number && !(prevNumber && nextNumber)) return fail(ValueError::kMisusedDelimiter);
    if (number && prevNumber) return fail(ValueError::kInvalid);
  }
  if (tokens.empty()) return fail(ValueError::kInvalid);

  // Numbers and delimiters now alternate: a list is n (, n)*, a range
  // n - n (, n - n)*.
  const size_t step = range ? 4 : 2;
  for (size_t k = 0; k < tokens.size(); k += step) {
    ValueItem item;
    std::optional<jet::Value> first = numberValue(tokens[k].text, gdoType);
    if (!first) return fail(ValueError::kInvalid);
    item.value = *first;
    if (range) {
      if (k + 2 >= tokens.size()) return fail(ValueError::kInvalid);
      if (tokens[k + 1].kind != Token::kDash) return fail(ValueError::kInvalid);
      std::optional<jet::Value> last = numberValue(tokens[k + 2].text, gdoType);
      if (!last) return fail(ValueError::kInvalid);
      item.maximum = *last;
      if (!inOrder(tokens[k], tokens[k + 2], item, gdoType)) return fail(ValueError::kInvalid);
    }
    const size_t next = k + step - 1;
    if (next < tokens.size() && tokens[next].kind != Token::kComma)
      return fail(ValueError::kMisusedDelimiter);
    out.items.push_back(std::move(item));
  }
  return out;
}

// --- showing ---------------------------------------------------------------

template <typename T>
std::string fixed(T value) {
  char buf[512];
  auto [p, ec] = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed);
  return ec == std::errc() ? std::string(buf, p) : std::string();
}

std::string showOne(const jet::Value& v, bool text) {
  if (const auto* s = std::get_if<std::string>(&v)) {
    if (!text) return *s;
    std::string out = "'";
    for (char c : *s) {
      out += c;
      if (c == '\'') out += '\'';
    }
    return out + "'";
  }
  if (const auto* i = std::get_if<int32_t>(&v)) return std::to_string(*i);
  if (const auto* b = std::get_if<bool>(&v)) return *b ? "1" : "0";
  if (const auto* f = std::get_if<float>(&v)) return fixed(*f);
  if (const auto* d = std::get_if<double>(&v)) return fixed(*d);
  if (const auto* c = std::get_if<jet::Currency>(&v)) return jet::currencyToString(*c);
  if (const auto* t = std::get_if<jet::DateTime>(&v)) return fixed(t->days);
  return text ? "''" : "";
}

}  // namespace

ParsedValues parseValues(std::string_view text, int gdoType, bool range, int maxLength) {
  if (isTextType(gdoType))
    return TextReader(text, maxLength > 0 ? static_cast<size_t>(maxLength) : 0).parse(range);
  if (isGeometryType(gdoType)) return {ValueError::kInvalid, {}};
  return parseNumbers(text, gdoType, range);
}

std::string showValues(const std::vector<ValueItem>& items, int gdoType, bool range) {
  const bool text = isTextType(gdoType);
  std::string out;
  for (const ValueItem& item : items) {
    if (!out.empty()) out += ',';
    std::string min = showOne(item.value, text);
    const std::string max = showOne(item.maximum, text);
    if (!range) {
      out += min;
      continue;
    }
    // Integer ends are also compared as text when typed again: 5 - 10 is
    // shown as 05 - 10 so that it still reads as the range it is.
    const auto* lo = std::get_if<int32_t>(&item.value);
    const auto* hi = std::get_if<int32_t>(&item.maximum);
    if (gdoType == gdo::kInteger && lo && hi && *lo >= 0 && *lo <= *hi && min.size() < max.size())
      min.insert(0, max.size() - min.size(), '0');
    out += min + (text ? " - " : "-") + max;
  }
  return out;
}

}  // namespace features
