#include "jet/row_codec.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "jet/bytes.h"
#include "jet/error.h"
#include "jet/row_layout.h"
#include "jet/text.h"

namespace jet {
namespace {

[[noreturn]] void badValue(const ColumnDef& c, const std::string& why) {
  throw JetError(JetError::Kind::kInvalid, "column '" + c.name + "': " + why);
}

bool asNumber(const Value& v, double& out) {
  if (auto p = std::get_if<int32_t>(&v)) return out = *p, true;
  if (auto p = std::get_if<double>(&v)) return out = *p, true;
  if (auto p = std::get_if<float>(&v)) return out = *p, true;
  if (auto p = std::get_if<bool>(&v)) return out = *p ? -1 : 0, true;  // Jet's True is -1
  if (auto p = std::get_if<Currency>(&v)) return out = p->units / 10000.0, true;
  return false;
}

int32_t wholeInRange(const ColumnDef& c, const Value& v, double lo, double hi) {
  double d;
  if (!asNumber(v, d)) badValue(c, std::string("a ") + typeName(c.type) + " needs a number");
  if (!std::isfinite(d) || d != std::floor(d))
    badValue(c, "a " + std::string(typeName(c.type)) + " needs a whole number");
  if (d < lo || d > hi) {
    // Printed as the double it is: 1e300 has no integer to be cast to.
    char text[32];
    const auto printed = std::to_chars(text, text + sizeof text, d);
    badValue(c, "value " + std::string(text, printed.ptr) + " does not fit a " +
                    typeName(c.type));
  }
  return static_cast<int32_t>(d);
}

size_t utf16Units(const std::string& s) {
  size_t n = 0;
  for (char32_t cp : utf8ToCodePoints(s)) n += cp > 0xFFFF ? 2 : 1;
  return n;
}

}  // namespace

Value coerceValue(const Format& fmt, const ColumnDef& c, const Value& v) {
  if (isNull(v)) return v;
  switch (c.type) {
    case coltype::kBoolean: {
      if (auto p = std::get_if<bool>(&v)) return *p;
      double d;
      if (asNumber(v, d)) return d != 0;
      badValue(c, "a Boolean needs true or false");
    }
    case coltype::kByte: return wholeInRange(c, v, 0, 255);
    case coltype::kInteger: return wholeInRange(c, v, -32768, 32767);
    case coltype::kLong: return wholeInRange(c, v, -2147483648.0, 2147483647.0);
    case coltype::kCurrency: {
      if (auto p = std::get_if<Currency>(&v)) return *p;
      double d;
      if (!asNumber(v, d) || !std::isfinite(d)) badValue(c, "a Currency needs a number");
      if (std::fabs(d) > 922337203685477.0) badValue(c, "value does not fit a Currency");
      return Currency{std::llround(d * 10000.0)};
    }
    case coltype::kSingle: {
      double d;
      if (!asNumber(v, d)) badValue(c, "a Single needs a number");
      if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max())
        badValue(c, "value does not fit a Single");
      return static_cast<float>(d);
    }
    case coltype::kDouble: {
      double d;
      if (!asNumber(v, d)) badValue(c, "a Double needs a number");
      return d;
    }
    case coltype::kDateTime: {
      if (auto p = std::get_if<DateTime>(&v)) return *p;
      double d;
      if (asNumber(v, d) && std::isfinite(d)) return DateTime{d};
      badValue(c, "a Date/Time needs a date");
    }
    case coltype::kText:
    case coltype::kMemo: {
      const std::string* s = std::get_if<std::string>(&v);
      if (!s) badValue(c, std::string("a ") + typeName(c.type) + " needs text");
      if (c.type == coltype::kText) {
        size_t max = c.length / fmt.textUnitSize;
        size_t have = fmt.textUnitSize == 2 ? utf16Units(*s) : utf8ToCodePoints(*s).size();
        if (have > max)
          badValue(c, "text of " + std::to_string(have) + " characters is longer than the " +
                          std::to_string(max) + " the column holds");
      }
      return *s;
    }
    case coltype::kBinary:
    case coltype::kOle: {
      const Blob* b = std::get_if<Blob>(&v);
      if (!b) badValue(c, "binary data expected");
      if (c.type == coltype::kBinary && b->size() > c.length)
        badValue(c, std::to_string(b->size()) + " bytes do not fit in " + std::to_string(c.length));
      return *b;
    }
    case coltype::kGuid:
      if (std::holds_alternative<Guid>(v)) return v;
      badValue(c, "a GUID expected");
    case coltype::kDecimal:
      if (std::holds_alternative<Decimal>(v)) return v;
      badValue(c, "a Decimal value expected");
    default:
      badValue(c, std::string("cannot store values of type ") + typeName(c.type));
  }
}

std::vector<uint8_t> encodeJet4Text(const std::string& utf8, bool allowCompression) {
  std::u32string cps = utf8ToCodePoints(utf8);
  // Compression pays from three characters on; Jet leaves texts longer than
  // 1024 characters uncompressed.
  bool compressible = allowCompression && cps.size() >= 3 && cps.size() <= 1024;
  for (char32_t cp : cps)
    if (cp == 0 || cp > 0xFF) compressible = false;
  std::vector<uint8_t> out;
  if (compressible) {
    out.reserve(2 + cps.size());
    out.push_back(0xFF);
    out.push_back(0xFE);
    for (char32_t cp : cps) out.push_back(static_cast<uint8_t>(cp));
    return out;
  }
  out.reserve(cps.size() * 2);
  auto unit = [&](uint16_t u) {
    out.push_back(static_cast<uint8_t>(u));
    out.push_back(static_cast<uint8_t>(u >> 8));
  };
  for (char32_t cp : cps) {
    if (cp > 0xFFFF) {
      cp -= 0x10000;
      unit(static_cast<uint16_t>(0xD800 + (cp >> 10)));
      unit(static_cast<uint16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      unit(static_cast<uint16_t>(cp));
    }
  }
  return out;
}

std::vector<uint8_t> encodeFixedOrText(const Format& fmt, const ColumnDef& c, const Value& v) {
  std::vector<uint8_t> out(storedFixedSize(c));
  uint8_t* p = out.data();
  switch (c.type) {
    case coltype::kByte: p[0] = static_cast<uint8_t>(std::get<int32_t>(v)); break;
    case coltype::kInteger: put16le(p, static_cast<uint16_t>(std::get<int32_t>(v))); break;
    case coltype::kLong: put32le(p, static_cast<uint32_t>(std::get<int32_t>(v))); break;
    case coltype::kCurrency: put64le(p, static_cast<uint64_t>(std::get<Currency>(v).units)); break;
    case coltype::kSingle: {
      float f = std::get<float>(v);
      uint32_t u;
      std::memcpy(&u, &f, 4);
      put32le(p, u);
      break;
    }
    case coltype::kDouble:
    case coltype::kDateTime: {
      double d = c.type == coltype::kDouble ? std::get<double>(v) : std::get<DateTime>(v).days;
      uint64_t u;
      std::memcpy(&u, &d, 8);
      put64le(p, u);
      break;
    }
    case coltype::kGuid: std::memcpy(p, std::get<Guid>(v).bytes.data(), 16); break;
    case coltype::kDecimal: {
      const Decimal& d = std::get<Decimal>(v);
      p[0] = d.negative ? 0x80 : 0x00;
      for (int w = 0; w < 4; ++w) put32le(p + 1 + 12 - 4 * w, d.magnitude[w]);
      break;
    }
    case coltype::kText: {
      if (fmt.version != Version::kJet4)
        throw JetError(JetError::Kind::kUnsupported, "writing Jet 3 text is not supported");
      std::vector<uint8_t> t = encodeJet4Text(std::get<std::string>(v), c.compressedUnicode());
      if (c.isFixed()) {
        if (t.size() > out.size()) badValue(c, "text does not fit the fixed-length column");
        // Fixed-length text is padded with spaces.
        copyBytes(p, t.data(), t.size());
        for (size_t i = t.size(); i + 1 < out.size(); i += 2) p[i] = ' ', p[i + 1] = 0;
        return out;
      }
      return t;
    }
    case coltype::kBinary: {
      const Blob& b = std::get<Blob>(v);
      if (c.isFixed()) {
        copyBytes(p, b.data(), std::min(b.size(), out.size()));
        return out;
      }
      return b;
    }
    default:
      badValue(c, std::string("cannot store values of type ") + typeName(c.type));
  }
  return out;
}

size_t fixedAreaEnd(const TableDef& t) {
  size_t end = 0;
  for (const ColumnDef& c : t.columns)
    if (c.isFixed() && c.type != coltype::kBoolean)
      end = std::max(end, static_cast<size_t>(c.fixedOffset) + storedFixedSize(c));
  return end;
}

std::vector<uint8_t> assembleRow(const Format& fmt, const TableDef& t,
                                 const std::vector<Cell>& cells, size_t minSize) {
  const size_t countSize = fmt.rowColumnCountSize;
  const unsigned numCols = t.maxColumns;
  std::vector<uint8_t> row(countSize + fixedAreaEnd(t), 0);
  put16le(row.data(), static_cast<uint16_t>(numCols));
  std::vector<uint8_t> mask((numCols + 7) / 8, 0);

  // Variable slots keep their order; a slot of a deleted column stays empty.
  std::vector<uint16_t> slotStart(t.varColumns, 0);
  std::vector<const Cell*> bySlot(t.varColumns, nullptr);
  for (size_t i = 0; i < t.columns.size(); ++i) {
    const ColumnDef& c = t.columns[i];
    const Cell& cell = cells[i];
    if (cell.present) mask[c.number / 8] |= static_cast<uint8_t>(1 << (c.number % 8));
    if (c.isFixed()) {
      if (cell.present && c.type != coltype::kBoolean)
        copyBytes(row.data() + countSize + c.fixedOffset, cell.bytes.data(), cell.bytes.size());
    } else if (c.varIndex < t.varColumns) {
      bySlot[c.varIndex] = &cell;
    }
  }
  for (unsigned slot = 0; slot < t.varColumns; ++slot) {
    slotStart[slot] = static_cast<uint16_t>(row.size());
    if (const Cell* cell = bySlot[slot]; cell && cell->present)
      row.insert(row.end(), cell->bytes.begin(), cell->bytes.end());
  }
  const uint16_t eod = static_cast<uint16_t>(row.size());
  const size_t trailer = (t.varColumns ? 2 * (t.varColumns + 1) + 2 : 0) + mask.size();
  // Rows stay at least as long as an overflow pointer, so that any row can
  // later make room for one; padding sits before the trailing tables.
  minSize = std::max<size_t>(minSize, kMinRowSize);
  if (row.size() + trailer < minSize) row.resize(minSize - trailer, 0);
  if (t.varColumns) {
    uint8_t two[2];
    put16le(two, eod);
    row.insert(row.end(), two, two + 2);
    for (int slot = static_cast<int>(t.varColumns) - 1; slot >= 0; --slot) {
      put16le(two, slotStart[slot]);
      row.insert(row.end(), two, two + 2);
    }
    put16le(two, t.varColumns);
    row.insert(row.end(), two, two + 2);
  }
  row.insert(row.end(), mask.begin(), mask.end());
  if (row.size() > static_cast<size_t>(fmt.maxRowSize))
    throw JetError(JetError::Kind::kInvalid, "row of " + std::to_string(row.size()) +
                                                 " bytes is larger than a page allows (" +
                                                 std::to_string(fmt.maxRowSize) + ")");
  return row;
}

}  // namespace jet
