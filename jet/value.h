// A column value as the engine hands it out. Text is UTF-8; Currency keeps
// Jet's scaled integer; dates keep Jet's day count so nothing is lost on the
// way through.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace jet {

struct Currency {  // units of 1/10000
  int64_t units = 0;
  bool operator==(const Currency&) const = default;
};

struct DateTime {  // days since 1899-12-30; the fraction is the time of day
  double days = 0;
  bool operator==(const DateTime&) const = default;
};

struct Guid {
  std::array<uint8_t, 16> bytes{};
  bool operator==(const Guid&) const = default;
};

struct Decimal {  // 128-bit magnitude, as Jet 4 keeps it
  bool negative = false;
  uint8_t precision = 0, scale = 0;
  std::array<uint32_t, 4> magnitude{};  // least significant word first
  bool operator==(const Decimal&) const = default;
};

using Blob = std::vector<uint8_t>;

// monostate is Null. Byte, Integer and Long arrive as int32_t.
using Value = std::variant<std::monostate, bool, int32_t, Currency, float, double, DateTime,
                           std::string, Blob, Guid, Decimal>;

inline bool isNull(const Value& v) { return std::holds_alternative<std::monostate>(v); }

// Calendar parts of a Jet date; days before 1899-12-30 count backwards with
// the time of day still positive, as Jet stores them.
struct CivilTime {
  int year = 1899, month = 12, day = 30, hour = 0, minute = 0, second = 0;
};
CivilTime toCivil(DateTime d);
DateTime fromCivil(const CivilTime& t);

std::string decimalToString(const Decimal& d);
std::string currencyToString(Currency c);   // "12.3400"
std::string guidToString(const Guid& g);    // "{0011...}"
std::string dateToIso(DateTime d);          // "2024-05-01 13:45:00"

}  // namespace jet
