// Text encodings, dates and the other value conversions.
#include <gtest/gtest.h>

#include "jet/row_layout.h"
#include "jet/text.h"
#include "jet/value.h"
#include "tools/csdtool/csv_export.h"

using namespace jet;

namespace {

std::vector<uint8_t> bytes(std::initializer_list<int> v) { return {v.begin(), v.end()}; }

// A Jet 3 row keeps one-byte offsets, lifted past 255 by a jump table of
// (length - 1) / 256 bytes: none in a row of exactly 256 bytes, one in a row
// of 512. Both rows built byte by byte: a Long, then a text column.
TEST(Rows, Jet3RowsOf256And512BytesFindTheirText) {
  TableDef t;
  t.maxColumns = 2;
  t.varColumns = 1;
  ColumnDef id, text;
  id.type = coltype::kLong;
  id.flags = colflag::kFixed;
  text.type = coltype::kText;
  text.number = 1;
  t.columns = {id, text};
  for (size_t length : {256u, 512u}) {
    SCOPED_TRACE(length);
    const size_t jumps = length == 512 ? 1 : 0;
    const size_t n = length - 9 - jumps;  // the text's bytes
    std::vector<uint8_t> row = {2, 7, 0, 0, 0};
    row.insert(row.end(), n, 'x');
    row.push_back(static_cast<uint8_t>((5 + n) % 256));  // where the text ends
    row.push_back(5);                                    // where it starts
    if (jumps) row.push_back(1);  // the end (slot 1) is the first past 255
    row.push_back(1);             // one variable column
    row.push_back(0x03);          // both present
    ASSERT_EQ(row.size(), length);
    RowLayout l = RowLayout::of(kJet3Format, t, row, 9);
    EXPECT_EQ(l.bytesOf(kJet3Format, t.columns[1], row, 9).size(), n);
    EXPECT_EQ(l.bytesOf(kJet3Format, t.columns[0], row, 9)[0], 7);
  }
}

TEST(Text, Jet4CompressedAndPlainUnicode) {
  // "Ab" compressed; then a switch to two-byte mode for U+20AC and back.
  EXPECT_EQ(jet4TextToUtf8(bytes({0xFF, 0xFE, 'A', 'b'})), "Ab");
  EXPECT_EQ(jet4TextToUtf8(bytes({0xFF, 0xFE, 'x', 0x00, 0xAC, 0x20, 0x00, 'y'})), "x\u20ACy");
  EXPECT_EQ(jet4TextToUtf8(bytes({0xFF, 0xFE, 0xE9})), "\u00E9");
  EXPECT_EQ(jet4TextToUtf8(bytes({'A', 0, 0xAC, 0x20})), "A\u20AC");
  // A surrogate pair, an unpaired surrogate, a trailing odd byte.
  EXPECT_EQ(utf16leToUtf8(bytes({0x3D, 0xD8, 0x00, 0xDE})), "\U0001F600");
  EXPECT_EQ(utf16leToUtf8(bytes({0x3D, 0xD8, 'a', 0})), "\uFFFDa");
  EXPECT_EQ(utf16leToUtf8(bytes({'a', 0, 'b'})), "a");
  EXPECT_EQ(jet4TextToUtf8(bytes({0xFF, 0xFE, 0x00, 0x41})), "");  // half a character
}

TEST(Text, Windows1252IncludingItsUndefinedBytes) {
  EXPECT_EQ(codePageToUtf8(bytes({'a', 0x80, 0xE9, 0x9F}), 1252), "a\u20AC\u00E9\u0178");
  EXPECT_EQ(codePageToUtf8(bytes({0x81, 0x8D, 0x8F, 0x90, 0x9D}), 1252),
            "\u0081\u008D\u008F\u0090\u009D");
  // Another code page goes through iconv; Windows-1251 0xC0 is Cyrillic A.
  EXPECT_EQ(codePageToUtf8(bytes({0xC0}), 1251), "\u0410");
  for (int b = 0; b < 256; ++b) {
    std::u32string cps = utf8ToCodePoints(codePageToUtf8(bytes({b}), 1252));
    ASSERT_EQ(cps.size(), 1u) << b;
    EXPECT_EQ(cps[0], cp1252ToUnicode(static_cast<uint8_t>(b)));
  }
}

TEST(Text, Utf8DecodingReplacesBadSequences) {
  EXPECT_EQ(utf8ToCodePoints("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
            (std::u32string{'a', 0xE9, 0x20AC, 0x1F600}));
  EXPECT_EQ(utf8ToCodePoints("\xC3"), std::u32string{0xFFFD});
  EXPECT_EQ(utf8ToCodePoints("\xFFz"), (std::u32string{0xFFFD, 'z'}));
  EXPECT_EQ(utf8ToCodePoints("\xE2\x28\xA1"), (std::u32string{0xFFFD, 0x28, 0xFFFD}));
}

TEST(Values, DatesCountDaysFrom18991230WithPositiveTimeOfDay) {
  EXPECT_EQ(dateToIso({0}), "1899-12-30 00:00:00");
  EXPECT_EQ(dateToIso({36526.5}), "2000-01-01 12:00:00");
  EXPECT_EQ(dateToIso({-1.25}), "1899-12-29 06:00:00");  // time stays positive
  EXPECT_EQ(dateToIso({2.0 - 1e-9}), "1900-01-01 00:00:00");  // rounds up a day
  EXPECT_EQ(dateToIso({2958465.99998843}), "9999-12-31 23:59:59");
  for (double d : {0.0, 1.5, -1.25, 36526.75, -700000.5}) {
    EXPECT_DOUBLE_EQ(fromCivil(toCivil({d})).days, d);
  }
}

TEST(Values, CurrencyDecimalAndGuidText) {
  EXPECT_EQ(currencyToString({35000}), "3.5000");
  EXPECT_EQ(currencyToString({-5}), "-0.0005");
  EXPECT_EQ(currencyToString({INT64_MIN}), "-922337203685477.5808");
  Decimal d{false, 18, 2, {1234, 0, 0, 0}};
  EXPECT_EQ(decimalToString(d), "12.34");
  d.negative = true;
  d.magnitude = {5, 0, 0, 0};
  EXPECT_EQ(decimalToString(d), "-0.05");
  Decimal big{false, 28, 0, {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0}};
  EXPECT_EQ(decimalToString(big), "79228162514264337593543950335");
  Guid g;
  for (int i = 0; i < 16; ++i) g.bytes[i] = static_cast<uint8_t>(i);
  EXPECT_EQ(guidToString(g), "{03020100-0504-0706-0809-0A0B0C0D0E0F}");
}

TEST(CsvExport, FieldsAsMdbExportWritesThem) {
  ColumnDef text, ole, bin, guid;
  text.type = coltype::kText;
  ole.type = coltype::kOle;
  bin.type = coltype::kBinary;
  guid.type = coltype::kGuid;
  using csdtool::csvField;
  EXPECT_EQ(csvField(text, std::string("say \"hi\", ok")), "\"say \"\"hi\"\", ok\"");
  EXPECT_EQ(csvField(text, std::string()), "");  // empty text looks like Null
  EXPECT_EQ(csvField(text, std::monostate{}), "");
  EXPECT_EQ(csvField(ole, Blob{}), "\"\"");  // but an empty OLE value is quoted
  EXPECT_EQ(csvField(bin, Blob{'a', '"'}), "\"a\"\"\"");
  EXPECT_EQ(csvField(text, true), "1");
  EXPECT_EQ(csvField(text, false), "0");
  EXPECT_EQ(csvField(text, 1.0f / 3), "0.33333334");
  EXPECT_EQ(csvField(text, 0.1), "0.1");
  EXPECT_EQ(csvField(text, 1.0 / 3), "0.3333333333333333");
  EXPECT_EQ(csvField(text, DateTime{36526.5}), "\"01/01/00 12:00:00\"");
  Guid g{};
  g.bytes[0] = 0xAB;
  EXPECT_EQ(csvField(guid, g), "\"{000000AB-0000-0000-0000000000000000}\"");
}

}  // namespace
