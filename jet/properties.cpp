// Property blobs (MSysObjects.LvProp):
//
//   "KKD\0" or "MR2\0"
//   blocks: length (4, counting its own 6-byte head), type (2)
//     0x80  the property names: each a 2-byte length and the name
//     0x00  the values of the object itself
//     0x01  the values of one column
//   a value block starts with a name part: length (4, counting itself) and,
//   when longer than 6, the column's name (2-byte length, name); then values:
//     length (2, counting itself), DDL flag (1), type (1), name number (2),
//     data length (2), data
//
// Names are stored as the file stores unformatted text: UTF-16LE in Jet 4,
// the code page's bytes in Jet 3.
#include "jet/properties.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "jet/error.h"
#include "jet/row_codec.h"
#include "jet/text.h"

namespace jet {
namespace {

constexpr uint16_t kNamesBlock = 0x80;

class Reader {
 public:
  Reader(Bytes b, const char* what) : b_(b), what_(what) {}
  size_t left() const { return b_.size() - pos_; }
  Bytes take(size_t n) {
    if (n > left()) throwCorrupt(std::string(what_) + " runs past its end");
    Bytes out = b_.subspan(pos_, n);
    pos_ += n;
    return out;
  }
  uint16_t u16() { return u16le(take(2).data()); }
  uint32_t u32() { return u32le(take(4).data()); }

 private:
  Bytes b_;
  size_t pos_ = 0;
  const char* what_;
};

std::string text(const Format& fmt, Bytes b, uint16_t codePage) {
  return fmt.version == Version::kJet4 ? jet4TextToUtf8(b) : codePageToUtf8(b, codePage);
}

Value decodeValue(const Format& fmt, uint8_t type, Bytes d, uint16_t codePage) {
  auto sized = [&](size_t n) { return d.size() == n; };
  switch (type) {
    case coltype::kBoolean:
      return !d.empty() && d[0] != 0;
    case coltype::kByte:
      if (sized(1)) return int32_t{d[0]};
      break;
    case coltype::kInteger:
      if (sized(2)) return int32_t{static_cast<int16_t>(u16le(d.data()))};
      break;
    case coltype::kLong:
      if (sized(4)) return static_cast<int32_t>(u32le(d.data()));
      break;
    case coltype::kCurrency:
      if (sized(8)) return Currency{static_cast<int64_t>(u64le(d.data()))};
      break;
    case coltype::kSingle:
      if (sized(4)) return f32le(d.data());
      break;
    case coltype::kDouble:
      if (sized(8)) return f64le(d.data());
      break;
    case coltype::kDateTime:
      if (sized(8)) return DateTime{f64le(d.data())};
      break;
    case coltype::kText:
    case coltype::kMemo:
      return text(fmt, d, codePage);
    default:
      break;
  }
  return Blob(d.begin(), d.end());
}

// "..." with "" for a quote inside, or '...' likewise.
std::optional<std::string> quoted(std::string_view s) {
  if (s.size() < 2 || (s.front() != '"' && s.front() != '\'') || s.back() != s.front())
    return std::nullopt;
  const char q = s.front();
  std::string out;
  for (size_t i = 1; i + 1 < s.size(); ++i) {
    if (s[i] == q) {
      if (i + 2 >= s.size() || s[i + 1] != q) return std::nullopt;
      ++i;
    }
    out += s[i];
  }
  return out;
}

bool sameWord(std::string_view a, const char* b) { return sameName(a, b); }

}  // namespace

const Property* PropertyGroup::find(std::string_view n) const {
  for (const Property& p : properties)
    if (sameName(p.name, n)) return &p;
  return nullptr;
}

std::vector<PropertyGroup> parseProperties(const Format& fmt, Bytes blob, uint16_t codePage) {
  std::vector<PropertyGroup> groups;
  if (blob.empty()) return groups;
  Reader r(blob, "property blob");
  Bytes magic = r.take(4);
  const char* want = fmt.version == Version::kJet4 ? "MR2" : "KKD";
  if (std::memcmp(magic.data(), want, 4) != 0)
    throwCorrupt("property blob does not start with " + std::string(want));
  std::vector<std::string> names;
  while (r.left() >= 6) {
    uint32_t len = r.u32();
    uint16_t type = r.u16();
    if (len < 6) throwCorrupt("property block of " + std::to_string(len) + " bytes");
    Reader block(r.take(len - 6), "property block");
    if (type == kNamesBlock) {
      while (block.left() > 0) names.push_back(text(fmt, block.take(block.u16()), codePage));
      continue;
    }
    PropertyGroup g;
    if (block.left() >= 4) {
      uint32_t nameLen = block.u32();
      if (nameLen < 4) throwCorrupt("property group name of " + std::to_string(nameLen) + " bytes");
      Reader name(block.take(nameLen - 4), "property group name");
      if (nameLen > 6) g.name = text(fmt, name.take(name.u16()), codePage);
    }
    while (block.left() > 0) {
      uint16_t valueLen = block.u16();
      if (valueLen < 8) throwCorrupt("property value of " + std::to_string(valueLen) + " bytes");
      Reader v(block.take(valueLen - 2), "property value");
      v.take(1);  // DDL flag
      uint8_t vtype = v.take(1)[0];
      uint16_t nameIndex = v.u16();
      Bytes data = v.take(v.u16());
      if (nameIndex >= names.size())
        throwCorrupt("property value names property " + std::to_string(nameIndex) + " of " +
                     std::to_string(names.size()));
      g.properties.push_back({names[nameIndex], vtype, decodeValue(fmt, vtype, data, codePage)});
    }
    groups.push_back(std::move(g));
  }
  return groups;
}

std::optional<Value> parseLiteral(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  if (s.empty()) return std::nullopt;
  if (auto q = quoted(s)) return *q;
  if (sameWord(s, "True") || sameWord(s, "Yes") || sameWord(s, "On")) return true;
  if (sameWord(s, "False") || sameWord(s, "No") || sameWord(s, "Off")) return false;
  // A plain decimal number: digits with an optional sign and point.
  std::string_view digits = s;
  if (digits.front() == '-' || digits.front() == '+') digits.remove_prefix(1);
  if (digits.empty() || digits.find_first_not_of("0123456789.") != std::string_view::npos ||
      digits.find_first_of("0123456789") == std::string_view::npos ||
      digits.find('.') != digits.rfind('.'))
    return std::nullopt;
  std::string plain(s.front() == '+' ? s.substr(1) : s);
  if (plain.find('.') == std::string::npos) {
    int32_t i = 0;
    auto [p, ec] = std::from_chars(plain.data(), plain.data() + plain.size(), i);
    if (ec == std::errc() && p == plain.data() + plain.size()) return i;
  }
  double d = 0;
  auto [p, ec] = std::from_chars(plain.data(), plain.data() + plain.size(), d);
  if (ec != std::errc() || p != plain.data() + plain.size() || !std::isfinite(d))
    return std::nullopt;
  return d;
}

std::vector<ColumnRules> columnRules(const Format& fmt, const TableDef& t,
                                     const std::vector<PropertyGroup>& groups) {
  std::vector<ColumnRules> rules(t.columns.size());
  for (const PropertyGroup& g : groups) {
    const ColumnDef* c = g.name.empty() ? nullptr : t.findColumn(g.name);
    if (!c) continue;
    ColumnRules& r = rules[static_cast<size_t>(c - t.columns.data())];
    if (const Property* p = g.find("Required"))
      if (auto b = std::get_if<bool>(&p->value)) r.required = *b;
    if (const Property* p = g.find("AllowZeroLength"))
      if (auto b = std::get_if<bool>(&p->value)) r.allowZeroLength = *b;
    if (const Property* p = g.find("DefaultValue")) {
      auto s = std::get_if<std::string>(&p->value);
      std::optional<Value> v = s ? parseLiteral(*s) : std::nullopt;
      // A number given to a text column is its text, as Access shows it.
      if (v && c->isText() && !std::holds_alternative<std::string>(*v)) {
        std::string_view lit = *s;
        while (!lit.empty() && lit.front() == ' ') lit.remove_prefix(1);
        while (!lit.empty() && lit.back() == ' ') lit.remove_suffix(1);
        v = std::holds_alternative<bool>(*v) ? std::nullopt
                                             : std::optional<Value>(std::string(lit));
      }
      if (v && !c->isAutoNumber()) {
        try {
          r.defaultValue = coerceValue(fmt, *c, *v);
        } catch (const JetError&) {
          // A default the column cannot hold is left to the caller's value.
        }
      }
    }
  }
  return rules;
}

}  // namespace jet
