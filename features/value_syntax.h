// The values a feature definition attribute takes, as the user types them in
// the wizard's value grid and as they are shown again from the value tables.
//
// A value text is a list of items separated by ",". In a "Range" domain each
// item is a minimum, "-" and a maximum. Text and Memo items stand between
// single quotes, a doubled quote inside standing for one apostrophe. Numbers
// are digits with at most one decimal point: "-" is only ever a delimiter, so
// negative numbers cannot be typed, and the text may not end in a blank.
//
// Promises:
// - parseValues never throws and never reads outside the text; it either
//   gives the typed values, one item per list entry or range, each converted
//   to the attribute's type, or says which rule the text broke.
// - showValues gives, for any items parseValues produced, a text that parses
//   back to the same items (an apostrophe is doubled; an Integer range whose
//   ends sort the wrong way as text gets its minimum padded with zeros).
// Standard library only, so the fuzz target links nothing else.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "jet/value.h"

namespace features {

// GraphicAttributes.GDOType.
namespace gdo {
inline constexpr int kBoolean = 1;
inline constexpr int kByte = 2;
inline constexpr int kInteger = 3;
inline constexpr int kLong = 4;
inline constexpr int kCurrency = 5;
inline constexpr int kSingle = 6;
inline constexpr int kDouble = 7;
inline constexpr int kDate = 8;
inline constexpr int kText = 10;
inline constexpr int kMemo = 12;
inline constexpr int kSpatial = 32;
inline constexpr int kGraphic = 33;
}  // namespace gdo

// Text and Memo take quoted items, Spatial and Graphic no values at all;
// every other type, codes nobody named included, takes numbers (as Double
// where the type is not one of the numeric ones above).
bool isTextType(int gdoType);
bool isGeometryType(int gdoType);

// One stored row: a list value, or a range's two ends.
struct ValueItem {
  jet::Value value;    // the value, or a range's minimum
  jet::Value maximum;  // a range's maximum; Null in a list
  bool operator==(const ValueItem&) const = default;
};

enum class ValueError {
  kNone,
  kTooLong,           // a text item as long as the column or longer
  kNotQuoted,         // a text item not between single quotes
  kMisusedDelimiter,  // a number text ending in a blank, or "," / "-" not between numbers
  kInvalid,           // anything else: a bad number, a range out of order, no values taken
};

struct ParsedValues {
  ValueError error = ValueError::kNone;
  std::vector<ValueItem> items;
};

// range: the attribute's domain is "Range". maxLength: the declared size of
// the value table's text column; a text item of that many characters or
// more is refused. 0 means no limit (Memo).
ParsedValues parseValues(std::string_view text, int gdoType, bool range, int maxLength);

// The stored rows as a value text, items joined by ",".
std::string showValues(const std::vector<ValueItem>& items, int gdoType, bool range);

}  // namespace features
