// The value syntax of the wizard's grid: what each type and domain accepts,
// which rule a bad text breaks, and that every accepted text, and every
// stored value the wizard could have written, is shown again as a text
// that reads back to the same rows.
#include "features/value_syntax.h"

#include <gtest/gtest.h>

using namespace features;
using E = ValueError;

namespace {

ValueItem one(jet::Value v) { return {std::move(v), {}}; }
ValueItem range(jet::Value lo, jet::Value hi) { return {std::move(lo), std::move(hi)}; }

E errorOf(std::string_view text, int type, bool isRange, int size = 0) {
  return parseValues(text, type, isRange, size).error;
}

}  // namespace

TEST(ValueSyntax, NumbersAreTypedByTheAttribute) {
  EXPECT_EQ(parseValues("1,2, 7", gdo::kByte, false, 0).items,
            (std::vector{one(1), one(2), one(7)}));
  EXPECT_EQ(parseValues("10 - 19,30-40", gdo::kLong, true, 0).items,
            (std::vector{range(10, 19), range(30, 40)}));
  EXPECT_EQ(parseValues(" 2.5-10", gdo::kDouble, true, 0).items, (std::vector{range(2.5, 10.0)}));
  EXPECT_EQ(parseValues("0.1", gdo::kSingle, false, 0).items, (std::vector{one(0.1f)}));
  EXPECT_EQ(parseValues("0,3", gdo::kBoolean, false, 0).items,
            (std::vector{one(false), one(true)}));
  EXPECT_EQ(parseValues("12.34", gdo::kCurrency, false, 0).items,
            (std::vector{one(jet::Currency{123400})}));
}

TEST(ValueSyntax, NumberTextsBreakingTheRulesAreNamed) {
  for (std::string_view t : {"1,2,3 ", "1,,2", ",1", "1,", "1-2", " "})
    EXPECT_EQ(errorOf(t, gdo::kLong, false), E::kMisusedDelimiter) << t;
  for (std::string_view t : {"5-", "1-2-3", "-1-2", "1-2,"})
    EXPECT_EQ(errorOf(t, gdo::kLong, true), E::kMisusedDelimiter) << t;
  for (std::string_view t : {"1 2", "1.2.3", ".", "a", "1;2", "256", "2147483648"})
    EXPECT_EQ(errorOf(t, gdo::kByte, false), E::kInvalid) << t;
  EXPECT_EQ(errorOf("1.5", gdo::kInteger, false), E::kInvalid);
  EXPECT_EQ(errorOf("5", gdo::kLong, true), E::kInvalid);  // a range needs two ends
  EXPECT_EQ(errorOf("1,2", gdo::kLong, true), E::kInvalid);
  EXPECT_EQ(errorOf("1", gdo::kSpatial, false), E::kInvalid);  // geometry takes no values
  EXPECT_EQ(errorOf("'a'", gdo::kGraphic, false), E::kInvalid);
}

TEST(ValueSyntax, RangeEndsAreOrderedByType) {
  // Integer ends compare as text too, so 5 - 10 is refused; Long and Double
  // compare as numbers; other types do not compare.
  EXPECT_EQ(errorOf("10 - 5", gdo::kInteger, true), E::kInvalid);
  EXPECT_EQ(errorOf("5 - 10", gdo::kInteger, true), E::kInvalid);
  EXPECT_EQ(errorOf("10 - 50", gdo::kInteger, true), E::kNone);
  EXPECT_EQ(errorOf("5 - 10", gdo::kLong, true), E::kNone);
  EXPECT_EQ(errorOf("10 - 5", gdo::kLong, true), E::kInvalid);
  EXPECT_EQ(errorOf("2.5 - 2.25", gdo::kDouble, true), E::kInvalid);
  EXPECT_EQ(errorOf("9 - 3", gdo::kByte, true), E::kNone);
}

TEST(ValueSyntax, TextItemsStandBetweenQuotes) {
  EXPECT_EQ(parseValues(" 'Main road' , 'O''Brien''s','a,b',''", gdo::kText, false, 64).items,
            (std::vector{one(std::string("Main road")), one(std::string("O'Brien's")),
                         one(std::string("a,b")), one(std::string())}));
  EXPECT_EQ(parseValues("'a' - 'c-d'", gdo::kText, true, 64).items,
            (std::vector{range(std::string("a"), std::string("c-d"))}));
  for (std::string_view t : {"Main road", "'a',b", "'a", "'a' 'b'", "'a',", "'a'x"})
    EXPECT_EQ(errorOf(t, gdo::kText, false, 64), E::kNotQuoted) << t;
  EXPECT_EQ(errorOf("'a' - ''", gdo::kText, true, 64), E::kInvalid);
  EXPECT_EQ(errorOf("'a'", gdo::kText, true, 64), E::kInvalid);
  // As long as the column or longer is refused; characters outside the
  // Basic Multilingual Plane take two of its units.
  EXPECT_EQ(errorOf("'abc'", gdo::kText, false, 4), E::kNone);
  EXPECT_EQ(errorOf("'abcd'", gdo::kText, false, 4), E::kTooLong);
  EXPECT_EQ(errorOf("'it''s'", gdo::kText, false, 5), E::kNone);
  EXPECT_EQ(errorOf("'ab\xF0\x9F\x98\x80'", gdo::kText, false, 4), E::kTooLong);
  EXPECT_EQ(errorOf(std::string(300, 'x').insert(0, "'") + "'", gdo::kMemo, false, 0), E::kNone);
}

TEST(ValueSyntax, ShownValuesReadBackToTheSameRows) {
  struct Case {
    std::vector<ValueItem> items;
    int type;
    bool isRange;
    std::string shown;
  };
  const std::vector<Case> cases = {
      {{one(1), one(250)}, gdo::kByte, false, "1,250"},
      {{range(5, 10), range(10, 50)}, gdo::kInteger, true, "05-10,10-50"},
      {{range(5, 10)}, gdo::kLong, true, "5-10"},
      {{one(0.1), one(1e22)}, gdo::kDouble, false, "0.1,10000000000000000000000"},
      {{one(0.1f)}, gdo::kSingle, false, "0.1"},
      {{one(true), one(false)}, gdo::kBoolean, false, "1,0"},
      {{one(jet::Currency{123400})}, gdo::kCurrency, false, "12.3400"},
      {{one(std::string("O'Brien")), one(std::string("a,b"))},
       gdo::kText,
       false,
       "'O''Brien','a,b'"},
      {{range(std::string("a"), std::string("it's"))}, gdo::kText, true, "'a' - 'it''s'"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(showValues(c.items, c.type, c.isRange), c.shown);
    EXPECT_EQ(parseValues(c.shown, c.type, c.isRange, 64).items, c.items) << c.shown;
  }
}
