// libFuzzer target over the value syntax of the wizard's grid. The first
// byte picks the attribute's type and whether its domain is a range, the
// second the text column's size; the rest is the text as typed.
//
// parseValues must never throw or read outside the text, and whatever it
// accepts must be shown again as a text that parses back to the same rows:
// that is what lets a stored feature class be opened, left alone and
// finished without its values changing. A violation aborts.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "features/value_syntax.h"

namespace {

constexpr int kTypes[] = {
    features::gdo::kBoolean,  features::gdo::kByte,   features::gdo::kInteger, features::gdo::kLong,
    features::gdo::kCurrency, features::gdo::kSingle, features::gdo::kDouble,  features::gdo::kDate,
    features::gdo::kText,     features::gdo::kMemo,   features::gdo::kSpatial, 9};

[[noreturn]] void fail(const char* what, std::string_view text, const std::string& shown) {
  std::fprintf(stderr, "%s\ntext:  [%.*s]\nshown: [%s]\n", what, int(text.size()), text.data(),
               shown.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int type = kTypes[(data[0] >> 1) % (sizeof kTypes / sizeof kTypes[0])];
  const bool range = data[0] & 1;
  const int maxLength = data[1];
  const std::string_view text(reinterpret_cast<const char*>(data + 2), size - 2);

  const features::ParsedValues parsed = features::parseValues(text, type, range, maxLength);
  if (parsed.error != features::ValueError::kNone) {
    if (!parsed.items.empty()) fail("a refused text gave rows", text, "");
    return 0;
  }
  if (parsed.items.empty()) fail("an accepted text gave no rows", text, "");
  const std::string shown = features::showValues(parsed.items, type, range);
  const features::ParsedValues again = features::parseValues(shown, type, range, maxLength);
  if (again.error != features::ValueError::kNone) fail("the shown text is refused", text, shown);
  if (!(again.items == parsed.items)) fail("the shown text reads as other rows", text, shown);
  return 0;
}
