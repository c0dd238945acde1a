// Text comparison as Jet compares text in the General sort order of the
// file: letters without regard to case, an accented letter equal to no
// other letter but sorted right after its base letter when the rest is
// equal and, in Jet 4, hyphen and apostrophe weighed only when everything
// else is equal. Query conditions, FindFirst criteria and the resolution of
// table and field names all compare through here.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "jet/format.h"

namespace schema {

// Access 2000-2007's General order, that of Jet 4 files (and of names), or
// Access 97's, that of Jet 3 files.
enum class TextOrder : uint8_t { kGeneral, kGeneral97 };

inline TextOrder textOrderOf(const jet::Format& fmt) {
  return fmt.version == jet::Version::kJet3 ? TextOrder::kGeneral97 : TextOrder::kGeneral;
}

// The sort key of a UTF-8 text: two texts compare as their keys compare
// bytewise. Built like the text keys of Jet's indexes, without their cut
// at 255 characters and without dropping trailing spaces. Characters the
// index key builder refuses (kana, combining marks, characters outside the
// BMP) put in the main part what Jet puts there; a last part, after a 00,
// tells apart texts that differ only in them. In Access 97's order the key
// is that of a Jet 3 index, characters Windows-1252 lacks (which no Jet 3
// text holds) left to such a last part.
std::vector<uint8_t> textSortKey(std::string_view utf8, TextOrder order = TextOrder::kGeneral);

// <0, 0 or >0 as `a` sorts before, with or after `b`.
int compareText(std::string_view a, std::string_view b, TextOrder order = TextOrder::kGeneral);

// Whether two table or field names name the same object: compareText gives
// 0. Cheap for ASCII names, which is what the schema's names are.
bool sameName(std::string_view a, std::string_view b);

}  // namespace schema
