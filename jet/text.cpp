#include "jet/text.h"

#include <iconv.h>

#include <array>
#include <cerrno>

namespace jet {
namespace {

constexpr std::array<char16_t, 32> kCp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void appendUnit(std::string& out, uint16_t unit, uint16_t& pendingHigh) {
  if (pendingHigh) {
    if (unit >= 0xDC00 && unit <= 0xDFFF) {
      appendUtf8(out, 0x10000 + ((char32_t(pendingHigh) - 0xD800) << 10) + (unit - 0xDC00));
      pendingHigh = 0;
      return;
    }
    appendUtf8(out, 0xFFFD);
    pendingHigh = 0;
  }
  if (unit >= 0xD800 && unit <= 0xDBFF) {
    pendingHigh = unit;
  } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
    appendUtf8(out, 0xFFFD);
  } else {
    appendUtf8(out, unit);
  }
}

}  // namespace

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

std::string utf16leToUtf8(Bytes in) {
  std::string out;
  out.reserve(in.size() / 2);
  uint16_t pending = 0;
  for (size_t i = 0; i + 1 < in.size(); i += 2) appendUnit(out, u16le(&in[i]), pending);
  if (pending) appendUtf8(out, 0xFFFD);
  return out;
}

std::string jet4TextToUtf8(Bytes in) {
  if (in.size() < 2 || in[0] != 0xFF || in[1] != 0xFE) return utf16leToUtf8(in);
  // Compressed: single bytes stand for U+0000..U+00FF; a zero byte switches
  // between one-byte and two-byte characters.
  std::string out;
  out.reserve(in.size());
  uint16_t pending = 0;
  bool compressed = true;
  size_t i = 2;
  while (i < in.size()) {
    if (in[i] == 0) {
      compressed = !compressed;
      ++i;
    } else if (compressed) {
      appendUnit(out, in[i], pending);
      ++i;
    } else if (i + 1 < in.size()) {
      appendUnit(out, u16le(&in[i]), pending);
      i += 2;
    } else {
      break;
    }
  }
  if (pending) appendUtf8(out, 0xFFFD);
  return out;
}

char32_t cp1252ToUnicode(uint8_t b) {
  if (b >= 0x80 && b < 0xA0) return kCp1252High[b - 0x80];
  return b;
}

std::string codePageToUtf8(Bytes in, uint16_t codePage) {
  std::string out;
  if (codePage != 0 && codePage != 1252) {
    std::string cs = "CP" + std::to_string(codePage);
    iconv_t cd = iconv_open("UTF-8", cs.c_str());
    if (cd != reinterpret_cast<iconv_t>(-1)) {
      out.resize(in.size() * 4 + 4);
      char* src = const_cast<char*>(reinterpret_cast<const char*>(in.data()));
      size_t srcLeft = in.size();
      char* dst = out.data();
      size_t dstLeft = out.size();
      while (srcLeft > 0) {
        if (iconv(cd, &src, &srcLeft, &dst, &dstLeft) != static_cast<size_t>(-1)) break;
        if (errno != EILSEQ && errno != EINVAL) break;
        // An unmappable byte: show it as U+FFFD and go on.
        ++src, --srcLeft;
        if (dstLeft >= 3) {
          std::string r;
          appendUtf8(r, 0xFFFD);
          for (char c : r) *dst++ = c;
          dstLeft -= 3;
        }
      }
      iconv_close(cd);
      out.resize(out.size() - dstLeft);
      return out;
    }
  }
  out.reserve(in.size());
  for (uint8_t b : in) appendUtf8(out, cp1252ToUnicode(b));
  return out;
}

int unicodeToCp1252(char32_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<int>(c);
  for (unsigned b = 0x80; b < 0xA0; ++b)
    if (cp1252ToUnicode(static_cast<uint8_t>(b)) == c) return static_cast<int>(b);
  return -1;
}

std::u32string utf8ToCodePoints(std::string_view in) {
  std::u32string out;
  out.reserve(in.size());
  size_t i = 0;
  while (i < in.size()) {
    uint8_t c = static_cast<uint8_t>(in[i]);
    int extra;
    char32_t cp;
    if (c < 0x80) {
      extra = 0, cp = c;
    } else if ((c & 0xE0) == 0xC0) {
      extra = 1, cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      extra = 2, cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      extra = 3, cp = c & 0x07;
    } else {
      out.push_back(0xFFFD), ++i;
      continue;
    }
    bool ok = i + extra < in.size();
    for (int k = 1; ok && k <= extra; ++k) {
      uint8_t cc = static_cast<uint8_t>(in[i + k]);
      ok = (cc & 0xC0) == 0x80;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (!ok) {
      out.push_back(0xFFFD), ++i;
      continue;
    }
    out.push_back(cp);
    i += extra + 1;
  }
  return out;
}

}  // namespace jet
