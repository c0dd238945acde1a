// Index key encoding.
//
// A key is the concatenation, for each index column in order, of a flag
// byte and the column's value bytes:
//
//   Null               00 (ascending) or FF (descending), nothing else
//   any other value    7F (ascending) or 80 (descending), then the value
//
// A descending column's value bytes are the ones's complement of the
// ascending ones (text has one twist, below). Ascending value bytes:
//
//   Byte               the byte
//   Integer, Long,     big-endian two's complement with the sign bit
//   Currency           flipped (2, 4, 8 bytes)
//   Single, Double,    big-endian IEEE; a positive number gets its sign bit
//   Date/Time          set, a negative one is complemented whole
//   Boolean            00 for true, FF for false; a Boolean is never Null,
//                      so its flag is always 7F / 80
//   GUID, Binary       the bytes (a GUID in its text order: the first three
//                      groups big-endian) cut into 8-byte groups, each
//                      followed by 09 while more follow; the last group is
//                      padded with zeros and followed by its real length.
//                      Descending complements everything but those 09s.
//
// Text and Memo keys cover the first 255 characters (UTF-16 units in Jet 4),
// less trailing spaces, and are built from the General sort order's weights
// (jet/sort_general.h):
//
//   Jet 4 (Access 2000-2007):
//     main     the codes of the plain and accented characters, in order
//     01
//     accents  for each accented character, 02 for every main-part character
//              since the previous accent, then its accent weight
//     deferred if any: 01 01 01, then for each deferred character a
//              big-endian 16-bit 0x8000 | (7 + 4 * p), 06 and its code, where
//              p is the number of accent bytes so far plus the main-part
//              characters since the last accent (before any accent, simply
//              the main-part characters before it)
//     00
//   Descending: all of that complemented, then a plain 00.
//
//   Jet 3 (Access 97):
//     main     the codes, as above
//     accents  if any accented character: a string of 4-bit values, high
//              half first: 0, then for each accented character a 2 for
//              every accentable letter since the previous one and its
//              weight, then a closing 0 (the last byte padded with 0);
//              otherwise a single 00
//   Descending: all of it complemented.
//
// Characters whose rules depend on their neighbours in ways not learned yet
// (combining marks, kana, characters outside the BMP) make the key builder
// throw rather than guess.
#include "jet/index_key.h"

#include <bit>
#include <cstdio>
#include <span>
#include <string_view>

#include "jet/error.h"
#include "jet/sort_general.h"
#include "jet/text.h"

namespace jet {
namespace {

constexpr uint8_t kAscendingFlag = 0x7F;
constexpr uint8_t kDescendingFlag = 0x80;
constexpr uint8_t kAscendingNull = 0x00;
constexpr uint8_t kDescendingNull = 0xFF;

// Jet 3 keeps a text column's sort order 9 bytes into its definition.
constexpr size_t kJet3ColumnSortOrderOffset = 9;

void complement(std::vector<uint8_t>& out, size_t from) {
  for (size_t i = from; i < out.size(); ++i) out[i] = static_cast<uint8_t>(~out[i]);
}

void appendBigEndian(std::vector<uint8_t>& out, uint64_t v, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

std::string hexChar(char32_t c) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "U+%04X", static_cast<unsigned>(c));
  return buf;
}

[[noreturn]] void wrongType(const ColumnDef& c, const char* expected) {
  throw JetError(JetError::Kind::kInvalid,
                 "index key: column " + c.name + " (" + typeName(c.type) + ") needs " + expected);
}

// Jet 4 text in the General order of Access 2000-2007.
void appendLegacyText(std::u16string_view s, std::vector<uint8_t>& out) {
  std::vector<uint8_t> accents, deferred;
  size_t mainChars = 0;    // characters that put a code in the main part
  size_t accentChars = 0;  // main-part characters up to the last accent
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    CharWeights w = generalLegacyWeights(c);
    switch (w.cls) {
      case CharClass::kIgnored:
        break;
      case CharClass::kPlain:
        appendCode(out, w.code);
        ++mainChars;
        break;
      case CharClass::kAccented:
        appendCode(out, w.code);
        accents.insert(accents.end(), mainChars - accentChars, 0x02);
        appendCode(accents, w.accent);
        accentChars = ++mainChars;
        break;
      case CharClass::kDeferred: {
        size_t p = accents.size() + (mainChars - accentChars);
        uint32_t pos = 0x8000 | static_cast<uint32_t>(7 + 4 * p);
        appendBigEndian(deferred, pos, 2);
        deferred.push_back(0x06);
        appendCode(deferred, w.code);
        break;
      }
      case CharClass::kAccentable:
      case CharClass::kUnknown: {
        char32_t cp = c;
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
            s[i + 1] < 0xE000)
          cp = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1] - 0xDC00);
        throw JetError(JetError::Kind::kUnsupported,
                       "index key: character " + hexChar(cp) +
                           " cannot be indexed yet (its General sort order rules are not known "
                           "to this engine)");
      }
    }
  }
  // Jet drops trailing accent bytes of 02 or less; since every character
  // that would leave such bytes (combining marks) is refused above, the
  // accent part here always ends with a real accent weight.
  out.push_back(0x01);
  out.insert(out.end(), accents.begin(), accents.end());
  if (!deferred.empty()) {
    out.insert(out.end(), {0x01, 0x01, 0x01});
    out.insert(out.end(), deferred.begin(), deferred.end());
  }
}

// The characters of a text value a key covers: at most 255, trailing spaces
// dropped. Jet 4 counts UTF-16 units.
std::u16string indexedUtf16(const std::string& utf8) {
  std::u16string units;
  for (char32_t cp : utf8ToCodePoints(utf8)) {
    if (units.size() >= kMaxIndexedTextChars) break;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      units.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      units.push_back(static_cast<char16_t>(cp));
    }
  }
  // A pair may end one unit past the cut; characters outside the BMP are
  // refused anyway, so it does no harm.
  while (!units.empty() && units.back() == u' ') units.pop_back();
  return units;
}

std::u32string indexedChars(const std::string& utf8) {
  std::u32string chars = utf8ToCodePoints(utf8);
  if (chars.size() > kMaxIndexedTextChars) chars.resize(kMaxIndexedTextChars);
  while (!chars.empty() && chars.back() == U' ') chars.pop_back();
  return chars;
}

void appendBinary(std::span<const uint8_t> data, bool ascending, std::vector<uint8_t>& out) {
  size_t pos = 0;
  while (data.size() - pos > 8) {
    for (size_t i = 0; i < 8; ++i)
      out.push_back(ascending ? data[pos + i] : static_cast<uint8_t>(~data[pos + i]));
    out.push_back(0x09);
    pos += 8;
  }
  if (pos == data.size()) return;
  size_t start = out.size();
  size_t n = data.size() - pos;
  out.insert(out.end(), data.begin() + static_cast<long>(pos), data.end());
  out.insert(out.end(), 8 - n, 0x00);
  out.push_back(static_cast<uint8_t>(n));
  if (!ascending) complement(out, start);
}

// Numbers whose bytes compare in order once the sign bit is flipped.
void appendSigned(std::vector<uint8_t>& out, uint64_t twosComplement, int bytes) {
  appendBigEndian(out, twosComplement ^ (uint64_t{1} << (8 * bytes - 1)), bytes);
}

// IEEE numbers: positive ones need the sign bit set, negative ones every
// bit flipped, for their bytes to compare in order.
void appendFloat(std::vector<uint8_t>& out, uint64_t bits, int bytes) {
  uint64_t sign = uint64_t{1} << (8 * bytes - 1);
  uint64_t mask = bytes == 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * bytes)) - 1;
  bits = (bits & sign) ? ~bits & mask : bits | sign;
  appendBigEndian(out, bits, bytes);
}

int32_t integerValue(const ColumnDef& c, const Value& v, int32_t lo, int32_t hi) {
  const int32_t* i = std::get_if<int32_t>(&v);
  if (!i) wrongType(c, "an integer value");
  if (*i < lo || *i > hi)
    throw JetError(JetError::Kind::kInvalid, "index key: " + std::to_string(*i) +
                                                 " does not fit column " + c.name + " (" +
                                                 typeName(c.type) + ")");
  return *i;
}

template <typename T>
const T& valueAs(const ColumnDef& c, const Value& v, const char* expected) {
  const T* p = std::get_if<T>(&v);
  if (!p) wrongType(c, expected);
  return *p;
}

void appendValue(const Format& fmt, const ColumnDef& c, bool ascending, const Value& v,
                 std::vector<uint8_t>& out) {
  if (c.type == coltype::kBoolean) {
    // Booleans live in the null mask and are never Null.
    const bool* b = std::get_if<bool>(&v);
    if (!b && !isNull(v)) wrongType(c, "a Boolean value");
    bool on = b && *b;
    out.push_back(ascending ? kAscendingFlag : kDescendingFlag);
    out.push_back((on == ascending) ? 0x00 : 0xFF);
    return;
  }
  if (isNull(v)) {
    out.push_back(ascending ? kAscendingNull : kDescendingNull);
    return;
  }
  out.push_back(ascending ? kAscendingFlag : kDescendingFlag);
  size_t start = out.size();
  switch (c.type) {
    case coltype::kByte:
      out.push_back(static_cast<uint8_t>(integerValue(c, v, 0, 255)));
      break;
    case coltype::kInteger:
      appendSigned(out, static_cast<uint16_t>(integerValue(c, v, INT16_MIN, INT16_MAX)), 2);
      break;
    case coltype::kLong:
      appendSigned(out, static_cast<uint32_t>(integerValue(c, v, INT32_MIN, INT32_MAX)), 4);
      break;
    case coltype::kCurrency:
      appendSigned(out, static_cast<uint64_t>(valueAs<Currency>(c, v, "a Currency value").units),
                   8);
      break;
    case coltype::kSingle:
      appendFloat(out, std::bit_cast<uint32_t>(valueAs<float>(c, v, "a Single value")), 4);
      break;
    case coltype::kDouble:
      appendFloat(out, std::bit_cast<uint64_t>(valueAs<double>(c, v, "a Double value")), 8);
      break;
    case coltype::kDateTime:
      appendFloat(out, std::bit_cast<uint64_t>(valueAs<DateTime>(c, v, "a Date/Time value").days),
                  8);
      break;
    case coltype::kGuid: {
      const auto& g = valueAs<Guid>(c, v, "a GUID value").bytes;
      const uint8_t text[16] = {g[3], g[2], g[1],  g[0],  g[5],  g[4],  g[7],  g[6],
                                g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]};
      appendBinary(text, ascending, out);
      return;  // appendBinary handles the direction itself
    }
    case coltype::kBinary: {
      const Blob& b = valueAs<Blob>(c, v, "a Binary value");
      // No file shows what Jet writes for zero bytes; nothing at all would
      // not sort last when descending.
      if (b.empty())
        throw JetError(JetError::Kind::kUnsupported, "index key: an empty Binary value (column " +
                                                         c.name + ") cannot be indexed yet");
      appendBinary(b, ascending, out);
      return;
    }
    case coltype::kText:
    case coltype::kMemo: {
      const std::string& s = valueAs<std::string>(c, v, "a text value");
      if (fmt.version == Version::kJet3) {
        appendGeneral97Text(indexedChars(s), out);
        if (!ascending) complement(out, start);
        return;
      }
      appendLegacyText(indexedUtf16(s), out);
      out.push_back(0x00);
      if (!ascending) {
        complement(out, start);
        out.push_back(0x00);
      }
      return;
    }
    default:
      throw JetError(JetError::Kind::kUnsupported,
                     std::string("index key: cannot encode ") + typeName(c.type) + " values");
  }
  if (!ascending) complement(out, start);
}

// Why the column's keys cannot be built, or "" if they can.
std::string columnProblem(const Format& fmt, const TableDef& t, const ColumnDef& c) {
  switch (c.type) {
    case coltype::kBoolean:
    case coltype::kByte:
    case coltype::kInteger:
    case coltype::kLong:
    case coltype::kCurrency:
    case coltype::kSingle:
    case coltype::kDouble:
    case coltype::kDateTime:
    case coltype::kGuid:
    case coltype::kBinary:
      return "";
    case coltype::kText:
    case coltype::kMemo:
      break;
    default:
      return std::string("index keys of ") + typeName(c.type) + " columns (" + c.name +
             ") are not supported";
  }
  if (fmt.version == Version::kJet4) {
    if (c.sortOrder == kGeneralSortOrder && c.sortVersion == 0) return "";
    return "text column " + c.name + " uses sort order " + std::to_string(c.sortOrder) +
           " version " + std::to_string(c.sortVersion) +
           "; only General (1033, version 0, Access 2000-2007) text keys can be built";
  }
  // Jet 3: the sort order sits where the engine's generic column reader does
  // not look, so it is read here.
  size_t at = c.defOffset + kJet3ColumnSortOrderOffset;
  uint16_t sortOrder =
      at + 2 <= t.raw.size() ? static_cast<uint16_t>(t.raw[at] | t.raw[at + 1] << 8) : 0;
  if (sortOrder != kGeneralSortOrder)
    return "text column " + c.name + " uses sort order " + std::to_string(sortOrder) +
           "; only General (1033) text keys can be built";
  if (c.codePage != kWindows1252)
    return "text column " + c.name + " uses code page " + std::to_string(c.codePage) +
           "; only Windows-1252 text keys can be built in a Jet 3 file";
  return "";
}

}  // namespace

// Jet 3 text in the General order of Access 97.
void appendGeneral97Text(std::u32string_view s, std::vector<uint8_t>& out) {
  std::vector<uint8_t> nibbles;
  size_t accentable = 0;  // accentable letters since the last accent
  for (char32_t c : s) {
    std::optional<CharWeights> w = general97Weights(c);
    if (!w)
      throw JetError(JetError::Kind::kUnsupported,
                     "index key: character " + hexChar(c) +
                         " cannot be indexed yet in a Jet 3 file (it is not in Windows-1252)");
    if (w->cls == CharClass::kIgnored) continue;
    size_t before = out.size();
    appendCode(out, w->code);
    // A ligature such as ß counts as each of the letters it stands for.
    if (w->cls == CharClass::kAccentable) accentable += out.size() - before;
    if (w->cls != CharClass::kAccented) continue;
    if (nibbles.empty()) nibbles.push_back(0);
    nibbles.insert(nibbles.end(), accentable, 0x2);
    nibbles.push_back(static_cast<uint8_t>(w->accent & 0x0F));
    accentable = 0;
  }
  if (nibbles.empty()) {
    out.push_back(0x00);
    return;
  }
  nibbles.push_back(0);
  for (size_t i = 0; i < nibbles.size(); i += 2)
    out.push_back(
        static_cast<uint8_t>(nibbles[i] << 4 | (i + 1 < nibbles.size() ? nibbles[i + 1] : 0)));
}

bool canEncodeIndex(const Format& fmt, const TableDef& t, const RealIndex& ri, std::string* why) {
  std::string problem;
  if (ri.columns.empty() || ri.columns.size() > static_cast<size_t>(kMaxIndexColumns))
    problem = "index " + std::to_string(ri.number) + " has " + std::to_string(ri.columns.size()) +
              " columns";
  for (const IndexColumn& ic : ri.columns) {
    if (!problem.empty()) break;
    if (ic.column >= t.columns.size())
      problem = "index " + std::to_string(ri.number) + " names a missing column";
    else
      problem = columnProblem(fmt, t, t.columns[ic.column]);
  }
  if (why) *why = problem;
  return problem.empty();
}

std::vector<uint8_t> encodeIndexKey(const Format& fmt, const TableDef& t, const RealIndex& ri,
                                    const std::vector<Value>& row) {
  std::string why;
  if (!canEncodeIndex(fmt, t, ri, &why))
    throw JetError(JetError::Kind::kUnsupported, "index key of table " + t.name + ": " + why);
  if (row.size() != t.columns.size())
    throw JetError(JetError::Kind::kInvalid, "index key of table " + t.name + ": row has " +
                                                 std::to_string(row.size()) + " values for " +
                                                 std::to_string(t.columns.size()) + " columns");
  std::vector<uint8_t> key;
  for (const IndexColumn& ic : ri.columns)
    appendValue(fmt, t.columns[ic.column], ic.ascending, row[ic.column], key);
  return key;
}

}  // namespace jet
