// The key is the one jet/index_key.cpp builds for a Jet 4 text index (see
// the description at its top): the main codes, 01, the accent weights, and
// the deferred characters with their positions. Comparing such keys is how
// Jet itself orders text, so conditions agree with what an index lookup
// would find. Where Jet's rules for a character are only partly known, the
// main part is still Jet's: that is what lets a range of text be sought
// through an index (schema/planner.cpp).
#include "schema/collation.h"

#include <algorithm>
#include <array>

#include "jet/index_key.h"
#include "jet/sort_general.h"
#include "jet/text.h"

namespace schema {
namespace {

bool plainAscii(std::string_view s) {
  return std::all_of(s.begin(), s.end(), [](char c) {
    auto u = static_cast<unsigned char>(c);
    return u != 0 && u < 0x80;
  });
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// A character's position and code point, for the last part of a key.
void appendUnlearned(std::vector<uint8_t>& out, size_t at, char32_t cp) {
  for (uint32_t x : {static_cast<uint32_t>(at), static_cast<uint32_t>(cp)})
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(x >> shift));
}

std::vector<uint8_t> general97Key(std::string_view utf8) {
  std::u32string chars = jet::utf8ToCodePoints(utf8), known;
  std::vector<uint8_t> key, unlearned;
  for (size_t i = 0; i < chars.size(); ++i) {
    if (jet::general97Weights(chars[i]))
      known.push_back(chars[i]);
    else
      appendUnlearned(unlearned, i, chars[i]);
  }
  jet::appendGeneral97Text(known, key);
  if (!unlearned.empty()) {
    key.push_back(0x00);
    key.insert(key.end(), unlearned.begin(), unlearned.end());
  }
  return key;
}

}  // namespace

std::vector<uint8_t> textSortKey(std::string_view utf8, TextOrder order) {
  if (order == TextOrder::kGeneral97) return general97Key(utf8);
  std::vector<uint8_t> key, accents, deferred, unlearned;
  size_t mainChars = 0;    // characters that put a code in the main part
  size_t accentChars = 0;  // main-part characters up to the last accent
  const std::u32string chars = jet::utf8ToCodePoints(utf8);
  for (size_t i = 0; i < chars.size(); ++i) {
    const char32_t cp = chars[i];
    jet::CharWeights w{jet::CharClass::kUnknown};
    if (cp < 0x10000) w = jet::generalLegacyWeights(static_cast<char16_t>(cp));
    switch (w.cls) {
      case jet::CharClass::kIgnored:
        break;
      case jet::CharClass::kPlain:
        jet::appendCode(key, w.code);
        ++mainChars;
        break;
      case jet::CharClass::kAccented:
        jet::appendCode(key, w.code);
        accents.insert(accents.end(), mainChars - accentChars, 0x02);
        jet::appendCode(accents, w.accent);
        accentChars = ++mainChars;
        break;
      case jet::CharClass::kDeferred: {
        size_t p = accents.size() + (mainChars - accentChars);
        uint32_t pos = 0x8000 | static_cast<uint32_t>(7 + 4 * p);
        deferred.push_back(static_cast<uint8_t>(pos >> 8));
        deferred.push_back(static_cast<uint8_t>(pos));
        deferred.push_back(0x06);
        jet::appendCode(deferred, w.code);
        break;
      }
      case jet::CharClass::kAccentable:
      case jet::CharClass::kUnknown:
        // The main part gets what Jet's gets (each half of a surrogate pair
        // has a code); the rest of Jet's rules for these is not known, so a
        // last part of their own, by position and code point, tells apart
        // texts that differ only in them.
        if (cp >= 0x10000) {
          const char32_t v = cp - 0x10000;
          jet::appendCode(
              key, jet::generalLegacyWeights(static_cast<char16_t>(0xD800 + (v >> 10))).code);
          jet::appendCode(
              key, jet::generalLegacyWeights(static_cast<char16_t>(0xDC00 + (v & 0x3FF))).code);
          mainChars += 2;
        } else if (w.code != 0) {
          jet::appendCode(key, w.code);
          ++mainChars;
        }
        appendUnlearned(unlearned, i, cp);
        break;
    }
  }
  key.push_back(0x01);
  key.insert(key.end(), accents.begin(), accents.end());
  if (!deferred.empty()) {
    key.insert(key.end(), {0x01, 0x01, 0x01});
    key.insert(key.end(), deferred.begin(), deferred.end());
  }
  if (!unlearned.empty()) {
    key.push_back(0x00);
    key.insert(key.end(), unlearned.begin(), unlearned.end());
  }
  return key;
}

namespace {

// The key bytes of each ASCII character whose key holds its main code alone
// (empty where it does more). Text made only of such characters compares
// code by code, without building keys: the common case of file names and
// attribute names.
struct PlainCode {
  uint8_t size = 0;
  uint8_t bytes[4] = {};
};

const std::array<PlainCode, 128>& plainCodes() {
  static const std::array<PlainCode, 128> codes = [] {
    std::array<PlainCode, 128> t{};
    for (int c = 1; c < 128; ++c) {
      jet::CharWeights w = jet::generalLegacyWeights(static_cast<char16_t>(c));
      if (w.cls != jet::CharClass::kPlain) continue;
      std::vector<uint8_t> b;
      jet::appendCode(b, w.code);
      // Key bytes below 2 could be mistaken for the end of the main part.
      if (b.empty() || b.size() > 4 || *std::min_element(b.begin(), b.end()) < 2) continue;
      t[c].size = static_cast<uint8_t>(b.size());
      std::copy(b.begin(), b.end(), t[c].bytes);
    }
    return t;
  }();
  return codes;
}

bool plainCoded(std::string_view s) {
  const auto& codes = plainCodes();
  for (char c : s) {
    auto u = static_cast<unsigned char>(c);
    if (u >= 128 || codes[u].size == 0) return false;
  }
  return true;
}

// Walks the main part of a plain text's key byte by byte.
class KeyBytes {
 public:
  explicit KeyBytes(std::string_view s) : s_(s) {}
  // The next byte, or -1 at the end of the main part.
  int next() {
    while (i_ < s_.size()) {
      const PlainCode& p = plainCodes()[static_cast<unsigned char>(s_[i_])];
      if (k_ < p.size) return p.bytes[k_++];
      ++i_, k_ = 0;
    }
    return -1;
  }

 private:
  std::string_view s_;
  size_t i_ = 0, k_ = 0;
};

}  // namespace

int compareText(std::string_view a, std::string_view b, TextOrder order) {
  if (order == TextOrder::kGeneral && plainCoded(a) && plainCoded(b)) {
    // The main parts decide; where one ends first, its key goes on with a
    // byte below every code byte.
    KeyBytes x(a), y(b);
    while (true) {
      int p = x.next(), q = y.next();
      if (p != q) return p < q ? -1 : 1;
      if (p < 0) return 0;
    }
  }
  std::vector<uint8_t> ka = textSortKey(a, order), kb = textSortKey(b, order);
  return ka < kb ? -1 : ka > kb ? 1 : 0;
}

bool sameName(std::string_view a, std::string_view b) {
  // In ASCII the General order tells apart exactly what case folding does.
  if (plainAscii(a) && plainAscii(b))
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](char x, char y) { return lower(x) == lower(y); });
  return compareText(a, b) == 0;
}

}  // namespace schema
