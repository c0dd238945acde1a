#include "jet/value.h"

#include <cmath>
#include <cstdio>

namespace jet {
namespace {

constexpr int64_t kEpochOffset = -25569;  // 1899-12-30 counted from 1970-01-01

int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civilFromDays(int64_t z, int& y, int& m, int& d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  y = static_cast<int>(static_cast<int64_t>(yoe) + era * 400 + (m <= 2));
}

}  // namespace

CivilTime toCivil(DateTime dt) {
  CivilTime t;
  if (!std::isfinite(dt.days) || std::fabs(dt.days) > 3e6) return t;
  double whole = std::trunc(dt.days);
  int64_t day = static_cast<int64_t>(whole);
  int64_t secs = std::llround(std::fabs(dt.days - whole) * 86400.0);
  if (secs >= 86400) {
    secs -= 86400;
    day += dt.days < 0 ? -1 : 1;
  }
  civilFromDays(day + kEpochOffset, t.year, t.month, t.day);
  t.hour = static_cast<int>(secs / 3600);
  t.minute = static_cast<int>(secs / 60 % 60);
  t.second = static_cast<int>(secs % 60);
  return t;
}

DateTime fromCivil(const CivilTime& t) {
  int64_t day = daysFromCivil(t.year, t.month, t.day) - kEpochOffset;
  double frac = (t.hour * 3600.0 + t.minute * 60.0 + t.second) / 86400.0;
  return {day >= 0 ? day + frac : day - frac};
}

std::string decimalToString(const Decimal& d) {
  // The magnitude to decimal digits by repeated division.
  std::array<uint32_t, 4> m = d.magnitude;
  std::string digits;
  while (m[0] || m[1] || m[2] || m[3]) {
    uint64_t rem = 0;
    for (int i = 3; i >= 0; --i) {
      uint64_t cur = (rem << 32) | m[i];
      m[i] = static_cast<uint32_t>(cur / 10);
      rem = cur % 10;
    }
    digits.insert(digits.begin(), static_cast<char>('0' + rem));
  }
  while (digits.size() <= d.scale) digits.insert(digits.begin(), '0');
  if (d.scale) digits.insert(digits.end() - d.scale, '.');
  bool zero = digits.find_first_not_of("0.") == std::string::npos;
  return (d.negative && !zero ? "-" : "") + digits;
}

std::string currencyToString(Currency c) {
  uint64_t mag = c.units < 0 ? 0 - static_cast<uint64_t>(c.units) : static_cast<uint64_t>(c.units);
  char buf[40];
  std::snprintf(buf, sizeof buf, "%s%llu.%04llu", c.units < 0 ? "-" : "",
                static_cast<unsigned long long>(mag / 10000),
                static_cast<unsigned long long>(mag % 10000));
  return buf;
}

std::string guidToString(const Guid& g) {
  const uint8_t* b = g.bytes.data();
  char buf[40];
  std::snprintf(buf, sizeof buf,
                "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", b[3],
                b[2], b[1], b[0], b[5], b[4], b[7], b[6], b[8], b[9], b[10], b[11], b[12], b[13],
                b[14], b[15]);
  return buf;
}

std::string dateToIso(DateTime d) {
  CivilTime t = toCivil(d);
  char buf[40];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  return buf;
}

}  // namespace jet
