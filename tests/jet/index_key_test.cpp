// Index keys: every entry of every index in the corpus rebuilt from its row,
// and the ordering properties each column type's encoding must have.
#include "jet/index_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <set>

#include "jet/error.h"
#include "jet/sort_general.h"
#include "jet/text.h"
#include "tests/jet/test_util.h"

using namespace jet;
using jettest::corpusFiles;
using jettest::corpusPath;

namespace {

using Key = std::vector<uint8_t>;

std::string hex(const Key& k) {
  std::string s;
  char b[4];
  for (uint8_t x : k) std::snprintf(b, sizeof b, "%02X ", x), s += b;
  return s;
}

bool hasTextColumn(const TableDef& t, const RealIndex& ri) {
  return std::any_of(ri.columns.begin(), ri.columns.end(),
                     [&](const IndexColumn& ic) { return t.columns[ic.column].isText(); });
}

// Every stored entry's key is built again from its own row, and the keys of
// all rows, sorted, give the stored entries in their order (Jet leaves out a
// row whose key columns are all Null when the index ignores nulls).
TEST(IndexKeyCorpus, EveryEntryOfEveryIndexIsRebuiltFromItsRowInOrder) {
  size_t total = 0, jet3Text = 0, jet4Text = 0, indexes = 0;
  for (const std::string& name : corpusFiles()) {
    auto db = Database::openFile(corpusPath(name));
    const Format& fmt = db->format();
    size_t compared = 0, skipped = 0, mismatches = 0;
    for (const CatalogEntry& ce : db->catalog()) {
      if (!ce.isTable()) continue;
      const TableDef& t = db->tableAtPage(ce.tdefPage(), ce.name);
      std::map<RowId, std::vector<Value>> rows;
      db->scanRows(t,
                   [&](RowId id, Bytes b) { return rows.emplace(id, db->decodeRow(t, b)), true; });
      for (const RealIndex& ri : t.realIndexes) {
        SCOPED_TRACE(name + " " + t.name + " index " + std::to_string(ri.number));
        std::string why;
        if (!canEncodeIndex(fmt, t, ri, &why)) {
          ++skipped;
          EXPECT_FALSE(fmt.version == Version::kJet4 && hasTextColumn(t, ri)) << why;
          EXPECT_FALSE(why.empty());
          continue;
        }
        std::map<RowId, Key> keys;
        std::vector<std::pair<Key, RowId>> built, stored;
        for (const auto& [id, values] : rows) {
          const Key& k = keys[id] = encodeIndexKey(fmt, t, ri, values);
          if (!ri.ignoreNulls() ||
              !std::all_of(ri.columns.begin(), ri.columns.end(),
                           [&](const IndexColumn& ic) { return isNull(values[ic.column]); }))
            built.emplace_back(k, id);
        }
        std::sort(built.begin(), built.end());
        for (IndexEntry& e : db->readIndex(ri)) {
          auto k = keys.find(e.row);
          if (k == keys.end()) {
            ADD_FAILURE() << "no row " << toString(e.row);
            continue;
          }
          ++compared;
          if (hasTextColumn(t, ri)) ++(fmt.version == Version::kJet3 ? jet3Text : jet4Text);
          if (k->second != e.key && ++mismatches <= 5)
            ADD_FAILURE() << toString(e.row) << "\n  stored   " << hex(e.key) << "\n  computed "
                          << hex(k->second);
          stored.emplace_back(std::move(e.key), e.row);
        }
        EXPECT_EQ(built, stored);
        ++indexes;
      }
    }
    std::printf("[ index keys ] %-32s %5zu entries rebuilt, %zu indexes skipped\n", name.c_str(),
                compared, skipped);
    EXPECT_EQ(mismatches, 0u) << name;
    total += compared;
  }
  EXPECT_GT(total, 7000u);
  EXPECT_GT(indexes, 300u);
  EXPECT_GT(jet3Text, 2000u);  // testIndexCodesV1997 holds every Windows-1252 character
  EXPECT_GT(jet4Text, 400u);
}

// ---- Single-column tables built in memory ----

// Jet 3 keeps a text column's sort order in its definition bytes only.
constexpr size_t kJet3SortOrderAt = 9;

ColumnDef columnOf(uint8_t type, std::string name = "c") {
  ColumnDef c;
  c.name = std::move(name);
  c.type = type;
  if (c.isText()) {
    c.sortOrder = 1033;
    c.codePage = 1252;
  }
  return c;
}

TableDef tableOf(const Format& fmt, std::vector<ColumnDef> cols, uint16_t jet3SortOrder = 1033) {
  TableDef t;
  t.name = "t";
  for (size_t i = 0; i < cols.size(); ++i) {
    cols[i].number = static_cast<uint16_t>(i);
    cols[i].defOffset = i * fmt.columnDefSize;
  }
  t.raw.assign(cols.size() * fmt.columnDefSize, 0);
  for (const ColumnDef& c : cols) {
    t.raw[c.defOffset + kJet3SortOrderAt] = static_cast<uint8_t>(jet3SortOrder);
    t.raw[c.defOffset + kJet3SortOrderAt + 1] = static_cast<uint8_t>(jet3SortOrder >> 8);
  }
  t.columns = std::move(cols);
  return t;
}

RealIndex indexOn(std::vector<bool> ascending) {
  RealIndex ri;
  for (size_t i = 0; i < ascending.size(); ++i)
    ri.columns.push_back({static_cast<uint16_t>(i), i, ascending[i]});
  return ri;
}

Key keyOf(const Format& fmt, uint8_t type, bool ascending, const Value& v) {
  return encodeIndexKey(fmt, tableOf(fmt, {columnOf(type)}), indexOn({ascending}), {v});
}

// Keys of values listed in increasing order must increase ascending and
// decrease descending, all with the same length; Null goes first ascending
// and last descending.
void expectOrdered(uint8_t type, const std::vector<Value>& increasing, size_t valueSize) {
  SCOPED_TRACE(typeName(type));
  for (bool asc : {true, false}) {
    std::vector<Key> keys;
    for (const Value& v : increasing) keys.push_back(keyOf(kJet4Format, type, asc, v));
    for (size_t i = 0; i < keys.size(); ++i) {
      EXPECT_EQ(keys[i].size(), 1 + valueSize) << i;
      EXPECT_EQ(keys[i], keyOf(kJet3Format, type, asc, increasing[i])) << "same in Jet 3";
      if (i > 0) {
        EXPECT_TRUE(asc ? keys[i - 1] < keys[i] : keys[i] < keys[i - 1]) << i;
      }
    }
    Key null = keyOf(kJet4Format, type, asc, Value{});
    EXPECT_EQ(null.size(), 1u);
    EXPECT_TRUE(asc ? null < keys.front() : keys.front() < null);
  }
}

TEST(IndexKey, NumbersKeysFollowTheirValues) {
  expectOrdered(coltype::kByte, {0, 1, 127, 128, 255}, 1);
  expectOrdered(coltype::kInteger, {-32768, -256, -1, 0, 1, 255, 32767}, 2);
  expectOrdered(coltype::kLong, {INT32_MIN, -65536, -1, 0, 1, 65536, INT32_MAX}, 4);
  expectOrdered(coltype::kCurrency,
                {Currency{INT64_MIN}, Currency{-10000}, Currency{-1}, Currency{0}, Currency{1},
                 Currency{4294967296}, Currency{INT64_MAX}},
                8);
  const float fi = std::numeric_limits<float>::infinity();
  const float fd = std::numeric_limits<float>::denorm_min();
  expectOrdered(coltype::kSingle,
                {-fi, -FLT_MAX, -1.5f, -1.0f, -fd, 0.0f, fd, FLT_MIN, 1.0f, 1.5f, FLT_MAX, fi}, 4);
  const double di = std::numeric_limits<double>::infinity();
  const double dd = std::numeric_limits<double>::denorm_min();
  expectOrdered(coltype::kDouble,
                {-di, -DBL_MAX, -2.0, -1.0, -dd, 0.0, dd, 1e-300, 1.0, 2.0, DBL_MAX, di}, 8);
  expectOrdered(coltype::kDateTime,
                {DateTime{-657434}, DateTime{-1.25}, DateTime{-1}, DateTime{0}, DateTime{0.5},
                 DateTime{36526.5}, DateTime{2958465.99998843}},
                8);
}

TEST(IndexKey, BooleansSortTrueFirstAndAreNeverNull) {
  for (bool asc : {true, false}) {
    Key yes = keyOf(kJet4Format, coltype::kBoolean, asc, true);
    Key no = keyOf(kJet4Format, coltype::kBoolean, asc, false);
    EXPECT_TRUE(asc ? yes < no : no < yes);  // Access's True is -1
    EXPECT_EQ(keyOf(kJet4Format, coltype::kBoolean, asc, Value{}), no);
    EXPECT_EQ(yes.size(), 2u);
  }
}

TEST(IndexKey, GuidsAndBinarySortLikeTheirBytes) {
  std::mt19937 rng(7);
  // GUIDs in the order of their text form.
  std::vector<Guid> guids(60);
  for (Guid& g : guids)
    for (uint8_t& b : g.bytes) b = static_cast<uint8_t>(rng() % 3 == 0 ? 0 : rng());
  std::sort(guids.begin(), guids.end(),
            [](const Guid& a, const Guid& b) { return guidToString(a) < guidToString(b); });
  // Blobs of every length around the 8-byte groups, from a few byte values
  // that collide with the group markers.
  std::vector<Blob> blobs;
  for (int n = 0; n < 200; ++n) {
    Blob b(1 + rng() % 25);
    for (uint8_t& x : b) x = std::array<uint8_t, 5>{0x00, 0x01, 0x08, 0x09, 0xFF}[rng() % 5];
    blobs.push_back(b);
  }
  std::sort(blobs.begin(), blobs.end());
  EXPECT_THROW(keyOf(kJet4Format, coltype::kBinary, true, Blob{}), JetError);
  auto expectSorted = [](uint8_t type, const auto& sorted) {
    for (bool asc : {true, false})
      for (size_t i = 1; i < sorted.size(); ++i) {
        Key a = keyOf(kJet4Format, type, asc, sorted[i - 1]);
        Key b = keyOf(kJet4Format, type, asc, sorted[i]);
        EXPECT_TRUE(sorted[i - 1] == sorted[i] ? a == b
                    : asc                      ? a < b
                                               : b < a)
            << typeName(type) << " " << i << (asc ? "" : " descending");
      }
  };
  expectSorted(coltype::kGuid, guids);
  expectSorted(coltype::kBinary, blobs);
}

// ---- Text ----

Key textKey(const Format& fmt, const std::string& s, bool asc = true) {
  return keyOf(fmt, coltype::kText, asc, s);
}

const Format* const kBothFormats[] = {&kJet3Format, &kJet4Format};

std::string utf8(char32_t c) {
  std::string s;
  appendUtf8(s, c);
  return s;
}

// Keys of texts listed in increasing order must increase (decrease when
// descending).
void expectIncreasing(const Format& fmt, const std::vector<std::string>& increasing,
                      bool asc = true) {
  for (size_t i = 1; i < increasing.size(); ++i) {
    Key a = textKey(fmt, increasing[i - 1], asc), b = textKey(fmt, increasing[i], asc);
    EXPECT_TRUE(asc ? a < b : b < a) << increasing[i] << (asc ? "" : " descending");
  }
}

TEST(IndexKeyText, GeneralOrderInBothVersions) {
  const std::string head(kMaxIndexedTextChars - 1, 'a');
  // Keys that must be equal: case folds (every Windows-1252 letter with a
  // case partner), ligatures count as the letters they stand for, trailing
  // spaces and whatever lies past the 255th character are not indexed, nor
  // spaces that reach past the cut.
  std::vector<std::pair<std::string, std::string>> equal = {
      {"Smith", "SMITH"}, {"Stra\u00DFe", "strasse"}, {"\u00C6on \u0153uvre", "aeon oeuvre"},
      {"abc   ", "abc"},  {head + "xy", head + "xz"}, {head + " z", head}};
  std::vector<std::pair<char32_t, char32_t>> pairs = {
      {0x160, 0x161}, {0x152, 0x153}, {0x17D, 0x17E}, {0x178, 0xFF}};
  for (char32_t c = 0xC0; c <= 0xDE; ++c)
    if (c != 0xD7) pairs.emplace_back(c, c + 0x20);
  for (auto [upper, lower] : pairs)
    equal.emplace_back("x" + utf8(upper) + "y", "X" + utf8(lower) + "Y");
  // Accented letters sort with their base letter, after it when all else is
  // equal; the first accent decides, and one sooner weighs more than one
  // later.
  const std::vector<std::string> increasing = {
      "",         "e",        "\u00E9",           "\u00EA",   "eee",
      "ee\u00E9", "e\u00E9e", "e\u00E9\u00E9",    "\u00E9ee", "\u00E9\u00E9\u00E9",
      "f",        "resume",   "r\u00E9sum\u00E9", "resumes",  "zz"};
  for (const Format* fmt : kBothFormats) {
    SCOPED_TRACE(fmt->version == Version::kJet3 ? "Jet 3" : "Jet 4");
    for (size_t i = 0; i < equal.size(); ++i)
      EXPECT_EQ(textKey(*fmt, equal[i].first), textKey(*fmt, equal[i].second)) << i;
    EXPECT_NE(textKey(*fmt, " abc"), textKey(*fmt, "abc"));
    EXPECT_NE(textKey(*fmt, head + "x"), textKey(*fmt, head + "y"));
    EXPECT_EQ(keyOf(*fmt, coltype::kMemo, true, head + "xyz"), textKey(*fmt, head + "x"));
    expectIncreasing(*fmt, increasing, true);
    expectIncreasing(*fmt, increasing, false);
    // Null comes before the empty string, and after it descending.
    EXPECT_LT(keyOf(*fmt, coltype::kText, true, Value{}), textKey(*fmt, ""));
    EXPECT_GT(keyOf(*fmt, coltype::kText, false, Value{}), textKey(*fmt, "", false));
  }
}

TEST(IndexKeyText, WhereAccess97AndAccess2000Differ) {
  // Access 97 places later accents by counting the letters a ligature
  // stands for ("...großmärkte" in a file it wrote); Access 2000 counts
  // characters, so there the two spellings differ.
  EXPECT_EQ(textKey(kJet3Format, "gro\u00DFm\u00E4rkte"), textKey(kJet3Format, "grossm\u00E4rkte"));
  EXPECT_NE(textKey(kJet4Format, "gro\u00DFm\u00E4rkte"), textKey(kJet4Format, "grossm\u00E4rkte"));
  // Access 2000's word sort: "co-op" sorts right after "coop", and among
  // such ties the earlier hyphen first; Access 97 weighs the hyphen like any
  // other punctuation, before letters.
  expectIncreasing(kJet4Format,
                   {"coop", "-coop", "co-op", "coo-p", "coopa", "its", "it's", "itsy"});
  expectIncreasing(kJet3Format, {"co-op", "coop"});
  // Jet 4 counts UTF-16 units: a character past the cut is not looked at.
  std::string units(kMaxIndexedTextChars, 'a');
  EXPECT_EQ(textKey(kJet4Format, units + "\u3099"), textKey(kJet4Format, units));
  // Jet 4 folds the case of other scripts too.
  EXPECT_EQ(textKey(kJet4Format, "\u041C\u0418\u0420"), textKey(kJet4Format, "\u043C\u0438\u0440"));
}

// Byte for byte: the ascending keys as Access writes them (the corpus test
// above holds such keys), and their descending form worked out by hand from
// Jackcess's rule, every byte complemented and then a plain 00 ending it.
TEST(IndexKeyText, Jet4KeysByteForByteInBothDirections) {
  EXPECT_EQ(hex(textKey(kJet4Format, "ab")), "7F 4A 4C 01 00 ");
  EXPECT_EQ(hex(textKey(kJet4Format, "ab", false)), "80 B5 B3 FE FF 00 ");
  EXPECT_EQ(hex(textKey(kJet4Format, "\u00C9a-b")), "7F 51 4A 4C 01 0E 01 01 01 80 0F 06 82 00 ");
  EXPECT_EQ(hex(textKey(kJet4Format, "\u00C9a-b", false)),
            "80 AE B5 B3 FE F1 FE FE FE 7F F0 F9 7D FF 00 ");
}

// Range seeks on text rely on the shape of the main-part codes: each starts
// with the space's byte or a greater one (but in Jet 3 control characters,
// the euro sign and Z with caron: one byte below it; and every Jet 3 code
// byte is above the 00-0F that end a Jet 3 main part), only the spaces' codes are that byte alone,
// and where one code starts another the rest is made of codes (a ligature), so main parts are read
// code by code one way only.
TEST(IndexKeyText, MainPartCodesParseOneWayAboveTheSpace) {
  auto check = [](const std::map<char32_t, CharWeights>& weights, bool controlsBelow) {
    const uint32_t space = weights.at(U' ').code;
    std::set<Key> codes;
    for (const auto& [c, w] : weights) {
      if (w.cls == CharClass::kIgnored || w.cls == CharClass::kDeferred || w.code == 0) continue;
      Key code;
      appendCode(code, w.code);
      if (code[0] == space) {
        EXPECT_EQ(w.code, space) << std::hex << static_cast<uint32_t>(c);
      } else if (code[0] < space) {
        EXPECT_TRUE(controlsBelow && code.size() == 1) << std::hex << static_cast<uint32_t>(c);
      }
      codes.insert(code);
    }
    std::map<Key, bool> made;
    std::function<bool(const Key&)> madeOfCodes = [&](const Key& k) {
      if (k.empty()) return true;
      if (auto it = made.find(k); it != made.end()) return it->second;
      bool ok = false;
      for (size_t n = 1; n <= k.size() && !ok; ++n)
        ok = codes.count(Key(k.begin(), k.begin() + static_cast<long>(n))) &&
             madeOfCodes(Key(k.begin() + static_cast<long>(n), k.end()));
      return made[k] = ok;
    };
    for (const Key& code : codes)
      for (size_t n = 1; n < code.size(); ++n) {
        if (!codes.count(Key(code.begin(), code.begin() + static_cast<long>(n)))) continue;
        EXPECT_TRUE(madeOfCodes(Key(code.begin() + static_cast<long>(n), code.end())))
            << "a code is the start of another: " << ::testing::PrintToString(code);
      }
    return codes;
  };
  std::map<char32_t, CharWeights> legacy, general97;
  for (char32_t c = 0; c < 0x10000; ++c) legacy[c] = generalLegacyWeights(static_cast<char16_t>(c));
  for (int b = 0; b < 256; ++b)
    if (auto w = general97Weights(cp1252ToUnicode(static_cast<uint8_t>(b))))
      general97[cp1252ToUnicode(static_cast<uint8_t>(b))] = *w;
  check(legacy, false);
  EXPECT_EQ(legacy[U'\u3000'].code, legacy[U' '].code);  // the only other space
  for (const Key& code : check(general97, true))
    EXPECT_GE(*std::min_element(code.begin(), code.end()), 0x10);
}

TEST(IndexKey, ColumnsCompareInIndexOrderWithTheirOwnDirection) {
  TableDef t = tableOf(kJet4Format, {columnOf(coltype::kLong), columnOf(coltype::kText)});
  RealIndex ri = indexOn({true, false});
  std::vector<std::vector<Value>> increasing;  // Long ascending, then text descending
  for (Value n : {Value{}, Value{-5}, Value{0}, Value{7}})
    for (Value s : {Value{std::string("b")}, Value{std::string("ab")}, Value{std::string("a")},
                    Value{std::string("")}, Value{}})
      increasing.push_back({n, s});
  for (size_t i = 1; i < increasing.size(); ++i)
    EXPECT_LT(encodeIndexKey(kJet4Format, t, ri, increasing[i - 1]),
              encodeIndexKey(kJet4Format, t, ri, increasing[i]))
        << i;
}

// What it cannot key is refused as unsupported, naming the cause, never
// guessed: a character whose weights it has not learned, or a whole index
// (another sort order or sort version, a Jet 3 code page other than 1252, a
// column type without keys), which canEncodeIndex reports up front.
TEST(IndexKey, WhatItCannotKeyIsRefusedNamingTheCause) {
  ColumnDef russian = columnOf(coltype::kText), access2010 = russian, cyrillic = russian;
  russian.sortOrder = 1049;
  access2010.sortVersion = 1;
  cyrillic.codePage = 1251;
  const TableDef text3 = tableOf(kJet3Format, {columnOf(coltype::kText)});
  const TableDef text4 = tableOf(kJet4Format, {columnOf(coltype::kText)});
  struct Case {
    const Format& fmt;
    TableDef t;
    Value v;  // Null: the whole index is refused
    const char* cause;
  };
  const Case cases[] = {
      {kJet4Format, text4, "a\u0301", "U+0301"},  // combining acute
      {kJet4Format, text4, "a\u3058", "U+3058"},  // kana
      {kJet4Format, text4, "a\U0001F600", "U+1F600"},
      {kJet3Format, text3, "a\u03A9", "U+03A9"},  // not in Windows-1252
      {kJet4Format, tableOf(kJet4Format, {russian}), {}, "1049"},
      {kJet4Format, tableOf(kJet4Format, {access2010}), {}, "version 1"},
      {kJet4Format, tableOf(kJet4Format, {columnOf(coltype::kDecimal)}), {}, "Decimal"},
      {kJet4Format, tableOf(kJet4Format, {columnOf(coltype::kOle)}), {}, "OLE"},
      {kJet3Format, tableOf(kJet3Format, {columnOf(coltype::kText)}, 1031), {}, "1031"},
      {kJet3Format, tableOf(kJet3Format, {cyrillic}), {}, "1251"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.cause);
    std::string why;
    EXPECT_EQ(canEncodeIndex(c.fmt, c.t, indexOn({true}), &why), !isNull(c.v));
    if (isNull(c.v)) {
      EXPECT_NE(why.find(c.cause), std::string::npos) << why;
    }
    try {
      encodeIndexKey(c.fmt, c.t, indexOn({true}), {c.v});
      ADD_FAILURE() << "keyed";
    } catch (const JetError& e) {
      EXPECT_EQ(e.kind(), JetError::Kind::kUnsupported);
      EXPECT_NE(std::string(e.what()).find(c.cause), std::string::npos) << e.what();
    }
  }
  // Every Windows-1252 character can be keyed in both versions.
  for (int b = 1; b < 256; ++b)
    for (const Format* fmt : kBothFormats)
      EXPECT_NO_THROW(textKey(*fmt, "a" + utf8(cp1252ToUnicode(static_cast<uint8_t>(b))))) << b;
}

}  // namespace
