// Text conversions between the file's encodings and the UTF-8 that every
// caller of the engine sees. Jet 4 stores UCS-2 (optionally in its
// "compressed" form); Jet 3 stores single bytes in the database's code page.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "jet/bytes.h"

namespace jet {

void appendUtf8(std::string& out, char32_t cp);

// UCS-2 / UTF-16LE to UTF-8. A trailing odd byte is ignored; an unpaired
// surrogate becomes U+FFFD.
std::string utf16leToUtf8(Bytes in);

// A Jet 4 text value: compressed when it starts with FF FE, else UTF-16LE.
std::string jet4TextToUtf8(Bytes in);

// A Jet 3 text value in the given Windows code page (1252 when unknown).
std::string codePageToUtf8(Bytes in, uint16_t codePage);

// The Unicode character of a Windows-1252 byte (0x81, 0x8D, 0x8F, 0x90 and
// 0x9D map to the C1 control of the same number, as Windows does).
char32_t cp1252ToUnicode(uint8_t b);
// Its reverse: the Windows-1252 byte of a character, or -1 if it has none.
int unicodeToCp1252(char32_t c);

// Decodes UTF-8 into code points; invalid sequences become U+FFFD.
std::u32string utf8ToCodePoints(std::string_view in);

}  // namespace jet
