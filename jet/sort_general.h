// Character weights of Jet's "General" sort order (language id 1033), the
// collation of text index keys. Two versions exist in the files this engine
// handles: the one of Access 2000-2007 (Jet 4, sort order version 0, often
// called "General legacy") and the older one of Access 97 (Jet 3).
//
// A text key is built from these weights by jet/index_key.cpp; this file
// only answers what one character contributes.
#pragma once

#include <cstdint>
#include <optional>

namespace jet {

enum class CharClass : uint8_t {
  kIgnored,     // leaves no trace in the key (NUL, unassigned characters ...)
  kPlain,       // its code goes into the key's main part, nothing else
  kAccented,    // its base letter's code goes into the main part, its accent
                // weight into the accent part that follows
  kDeferred,    // nothing in the main part; its code and position go into the
                // last part (hyphen, apostrophe, most control characters)
  kAccentable,  // Access 97 only: a plain letter that could have carried an
                // accent; accent weights count their distance in these (a
                // ligature with a code of two such letters counts twice)
  kUnknown,     // Jet gives it rules this engine has not learned yet
                // (combining marks, kana, surrogates); `code` is still
                // what it puts in the main part (0: nothing)
};

// Codes are big-endian byte strings kept in an integer without leading zero
// bytes (Jet never starts a code with a zero byte), so 0x803 stands for the
// two bytes 08 03.
struct CharWeights {
  CharClass cls = CharClass::kIgnored;
  uint32_t code = 0;    // main-part code (kPlain, kAccented, kAccentable, kUnknown),
                        // or the deferred code (kDeferred)
  uint32_t accent = 0;  // accent weight (kAccented)
};

// Access 2000-2007, for one UTF-16 code unit.
CharWeights generalLegacyWeights(char16_t c);

// Access 97, for a character of Windows-1252 (given as its Unicode code
// point); nullopt for a character Windows-1252 cannot hold.
std::optional<CharWeights> general97Weights(char32_t c);

// Appends a code's bytes (see CharWeights) to `out`.
template <typename Out>
void appendCode(Out& out, uint32_t code) {
  int shift = 24;
  while (shift > 0 && (code >> shift) == 0) shift -= 8;
  for (; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(code >> shift));
}

}  // namespace jet
