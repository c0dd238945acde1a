#include "tools/csdtool/value_text.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "jet/text.h"

namespace csdtool {
namespace {

using namespace jet;

[[noreturn]] void bad(const ColumnDef& c, const std::string& text, const std::string& want) {
  throw std::invalid_argument("column '" + c.name + "': '" + text + "' is not " + want);
}

bool parseInteger(const std::string& s, long long& out) {
  if (s.empty()) return false;
  char* end = nullptr;
  errno = 0;
  out = std::strtoll(s.c_str(), &end, 10);
  return errno == 0 && end && *end == '\0';
}

// A decimal number, with an exponent if need be; not the hexadecimal,
// "inf" or "nan" forms strtod would also take.
bool parseDouble(const std::string& s, double& out) {
  const char* first = s.data();
  const char* last = s.data() + s.size();
  if (first != last && *first == '+') ++first;
  if (first == last ||
      !(std::isdigit(static_cast<unsigned char>(*first)) || *first == '-' || *first == '.'))
    return false;
  auto [end, ec] = std::from_chars(first, last, out, std::chars_format::general);
  return ec == std::errc() && end == last;
}

// "-12.3456" as a count of 10^-scale units, exactly.
bool parseScaled(const std::string& s, int scale, bool& negative, std::string& digits) {
  size_t i = 0;
  negative = false;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
  std::string whole, frac;
  bool dot = false;
  for (; i < s.size(); ++i) {
    if (s[i] == '.' && !dot) {
      dot = true;
    } else if (std::isdigit(static_cast<unsigned char>(s[i]))) {
      (dot ? frac : whole) += s[i];
    } else {
      return false;
    }
  }
  if (whole.empty() && frac.empty()) return false;
  if (static_cast<int>(frac.size()) > scale) {
    if (frac.find_first_not_of('0', static_cast<size_t>(scale)) != std::string::npos) return false;
    frac.resize(static_cast<size_t>(scale));
  }
  frac.append(static_cast<size_t>(scale) - frac.size(), '0');
  digits = whole + frac;
  size_t nz = digits.find_first_not_of('0');
  digits = nz == std::string::npos ? "0" : digits.substr(nz);
  return true;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

DateTime parseDate(const ColumnDef& c, const std::string& s) {
  CivilTime t;
  t.hour = t.minute = t.second = 0;
  char sep = 0;
  int n = std::sscanf(s.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d", &t.year, &t.month, &t.day, &sep,
                      &t.hour, &t.minute, &t.second);
  bool ok = (n == 3 && s.size() <= 10) || ((n == 6 || n == 7) && (sep == ' ' || sep == 'T'));
  if (n == 6) t.second = 0;
  static const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  ok = ok && t.year >= 100 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
       t.day <= days[t.month - 1] && t.hour < 24 && t.minute < 60 && t.second < 60 &&
       t.hour >= 0 && t.minute >= 0 && t.second >= 0;
  bool leap = (t.year % 4 == 0 && t.year % 100 != 0) || t.year % 400 == 0;
  if (ok && t.month == 2 && t.day == 29 && !leap) ok = false;
  if (!ok) bad(c, s, "a date (YYYY-MM-DD or YYYY-MM-DD HH:MM:SS)");
  return fromCivil(t);
}

char32_t fold(char32_t c) {
  if (c >= 'a' && c <= 'z') return c - 32;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  return c;
}

}  // namespace

std::pair<std::string, std::string> splitAssignment(const std::string& arg) {
  size_t eq = arg.find('=');
  if (eq == std::string::npos || eq == 0)
    throw std::invalid_argument("'" + arg + "' is not of the form COLUMN=VALUE");
  return {arg.substr(0, eq), arg.substr(eq + 1)};
}

Value parseValue(const ColumnDef& c, const std::string& raw) {
  if (raw == "NULL") return std::monostate{};
  std::string s = raw;
  if (s.size() >= 2 && s.front() == '\'' && s.back() == '\'') s = s.substr(1, s.size() - 2);
  switch (c.type) {
    case coltype::kBoolean: {
      std::string l;
      for (char ch : s) l += static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
      if (l == "true" || l == "yes" || l == "1" || l == "-1") return true;
      if (l == "false" || l == "no" || l == "0") return false;
      bad(c, raw, "true or false");
    }
    case coltype::kByte:
    case coltype::kInteger:
    case coltype::kLong: {
      long long v;
      if (!parseInteger(s, v)) bad(c, raw, "a whole number");
      if (v < INT32_MIN || v > INT32_MAX) bad(c, raw, "a number this column holds");
      return static_cast<int32_t>(v);
    }
    case coltype::kCurrency: {
      bool neg;
      std::string digits;
      if (!parseScaled(s, 4, neg, digits) || digits.size() > 19) bad(c, raw, "an amount");
      unsigned long long u = std::strtoull(digits.c_str(), nullptr, 10);
      // Two's complement reaches one unit further below zero than above.
      const unsigned long long most = static_cast<unsigned long long>(INT64_MAX) + (neg ? 1 : 0);
      if (u > most) bad(c, raw, "an amount a Currency holds");
      return Currency{neg ? static_cast<int64_t>(0 - u) : static_cast<int64_t>(u)};
    }
    case coltype::kSingle:
    case coltype::kDouble: {
      double d;
      if (!parseDouble(s, d) || !std::isfinite(d)) bad(c, raw, "a number");
      return d;
    }
    case coltype::kDateTime: return parseDate(c, s);
    case coltype::kText:
    case coltype::kMemo: return s;
    case coltype::kBinary:
    case coltype::kOle: {
      if (s.size() < 2 || s[0] != '0' || (s[1] != 'x' && s[1] != 'X') || s.size() % 2)
        bad(c, raw, "hex bytes written 0x...");
      Blob b;
      for (size_t i = 2; i < s.size(); i += 2) {
        int hi = hexDigit(s[i]), lo = hexDigit(s[i + 1]);
        if (hi < 0 || lo < 0) bad(c, raw, "hex bytes written 0x...");
        b.push_back(static_cast<uint8_t>(hi * 16 + lo));
      }
      return b;
    }
    case coltype::kGuid: {
      std::string hex;
      std::string body = s;
      if (body.size() == 38 && body.front() == '{' && body.back() == '}')
        body = body.substr(1, 36);
      static const size_t dashes[] = {8, 13, 18, 23};
      bool ok = body.size() == 36;
      for (size_t d : dashes) ok = ok && body[d] == '-';
      for (size_t i = 0; ok && i < body.size(); ++i)
        if (body[i] != '-') {
          if (hexDigit(body[i]) < 0) ok = false;
          hex += body[i];
        }
      if (!ok || hex.size() != 32) bad(c, raw, "a GUID {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}");
      uint8_t b[16];
      for (int i = 0; i < 16; ++i) b[i] = static_cast<uint8_t>(hexDigit(hex[2 * i]) * 16 + hexDigit(hex[2 * i + 1]));
      // The first three groups are stored little-endian.
      Guid g;
      const int order[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
      for (int i = 0; i < 16; ++i) g.bytes[order[i]] = b[i];
      return g;
    }
    case coltype::kDecimal: {
      bool neg;
      std::string digits;
      if (!parseScaled(s, c.scale, neg, digits) || digits.size() > c.precision)
        bad(c, raw, "a number of precision " + std::to_string(c.precision) + " and scale " +
                        std::to_string(c.scale));
      Decimal d;
      d.negative = neg && digits != "0";
      d.precision = c.precision;
      d.scale = c.scale;
      for (char ch : digits) {  // magnitude = magnitude * 10 + digit
        uint64_t carry = static_cast<uint64_t>(ch - '0');
        for (uint32_t& w : d.magnitude) {
          uint64_t v = static_cast<uint64_t>(w) * 10 + carry;
          w = static_cast<uint32_t>(v);
          carry = v >> 32;
        }
      }
      return d;
    }
    default:
      throw std::invalid_argument("column '" + c.name + "' has a type csdtool cannot write");
  }
}

bool sameValue(const Value& a, const Value& b) {
  if (isNull(a) || isNull(b)) return isNull(a) && isNull(b);
  auto num = [](const Value& v, double& d) {
    if (auto p = std::get_if<int32_t>(&v)) return d = *p, true;
    if (auto p = std::get_if<double>(&v)) return d = *p, true;
    if (auto p = std::get_if<float>(&v)) return d = *p, true;
    if (auto p = std::get_if<Currency>(&v)) return d = p->units / 10000.0, true;
    if (auto p = std::get_if<DateTime>(&v)) return d = p->days, true;
    return false;
  };
  double x, y;
  if (num(a, x) && num(b, y)) return x == y;
  auto sa = std::get_if<std::string>(&a);
  auto sb = std::get_if<std::string>(&b);
  if (sa && sb) {
    std::u32string p = utf8ToCodePoints(*sa), q = utf8ToCodePoints(*sb);
    if (p.size() != q.size()) return false;
    for (size_t i = 0; i < p.size(); ++i)
      if (fold(p[i]) != fold(q[i])) return false;
    return true;
  }
  return a == b;
}

}  // namespace csdtool
