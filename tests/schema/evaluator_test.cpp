// Conditions evaluated against rows: three-valued logic, numbers across
// column types, text in the General order, type mismatches and unknown names.
#include "schema/evaluator.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "schema/collation.h"
#include "schema/engine_error.h"

using namespace schema;

namespace {

struct Column {
  std::string table, name;
  jet::Value value;
};

// A row of one or more tables; names resolve without regard to case, and a
// bare name takes the first column of that name, as a one-table row does.
class Row : public RowSource, public FieldCatalog {
 public:
  Row(std::initializer_list<Column> columns) : columns_(columns) {}

  std::optional<jet::Value> field(std::string_view table, std::string_view name) const override {
    const Column* c = find(table, name);
    return c ? std::optional<jet::Value>(c->value) : std::nullopt;
  }

  std::optional<FieldKind> fieldKind(std::string_view table, std::string_view name) const override {
    const Column* c = find(table, name);
    if (!c) return std::nullopt;
    if (std::holds_alternative<std::string>(c->value)) return FieldKind::kText;
    if (std::holds_alternative<jet::Guid>(c->value)) return FieldKind::kOther;
    return FieldKind::kNumber;  // Null columns of these rows are numeric
  }

 private:
  const Column* find(std::string_view table, std::string_view name) const {
    for (const Column& c : columns_)
      if ((table.empty() || sameName(table, c.table)) && sameName(name, c.name)) return &c;
    return nullptr;
  }

  std::vector<Column> columns_;
};

// The result of a criterion on a row: "True", "False" or "Null".
std::string result(const Row& row, const std::string& criteria) {
  jet::Value v = Evaluator(row, ExprContext::kCriteria).evaluate(*parseCriteria(criteria));
  if (jet::isNull(v)) return "Null";
  return std::get<bool>(v) ? "True" : "False";
}

void expectError(const std::function<void()>& f, int32_t number, const std::string& description,
                 const std::string& source) {
  try {
    f();
    ADD_FAILURE() << "no error; expected " << number;
  } catch (const EngineError& e) {
    EXPECT_EQ(e.number(), number) << e.description();
    EXPECT_EQ(e.description(), description);
    EXPECT_EQ(e.source(), source);
  }
}

const Row kMap{{"Maps", "mapId", int32_t{7}},
               {"Maps", "Name", std::string("North.dgn")},
               {"Maps", "dirId", int32_t{5}},
               {"Maps", "csfid", jet::Value()}};

TEST(Evaluator, FindsTheRowsTheProgramLooksFor) {
  EXPECT_EQ(result(kMap, "dirId = 5"), "True");
  EXPECT_EQ(result(kMap, "dirId = 6"), "False");
  EXPECT_EQ(result(kMap, "DIRID = 5 and MAPID >= 7"), "True");
  EXPECT_EQ(result(kMap, "Name = 'north.DGN' and dirId = 5"), "True");
  EXPECT_EQ(result(kMap, "Name = 'North.dgn' and dirId = 3"), "False");
  EXPECT_EQ(result(kMap, "Name = 'North.dgn ' or Name = 'South.dgn'"), "False");

  Row key{{"KeysParameters", "Type", std::string("DbLFeatSuppGrAttr")},
          {"KeysParameters", "AttrId", int32_t{26}}};
  EXPECT_EQ(result(key, "Type = 'DbLinkedFeature' OR Type = 'DbLFeatSuppGrAttr'"), "True");
  EXPECT_EQ(result(key, "Type = 'GraphicFeature' and AttrId = 26"), "False");

  // The three-table join's condition, with qualified names.
  Row joined{{"FeatureDefAttr", "AttrId", int32_t{4}},
             {"FeatureDefAttr", "DomainTypeId", int32_t{2}},
             {"GraphicAttributes", "AttrId", int32_t{4}},
             {"DomainTypes", "DomainTypeId", int32_t{1}}};
  const char* join =
      "select FeatureDefAttr.AttrId from FeatureDefAttr, GraphicAttributes, DomainTypes where "
      "FeatureDefAttr.attrid = GraphicAttributes.attrid and FeatureDefAttr.DomainTypeId = "
      "DomainTypes.DomainTypeId";
  Evaluator e(joined);
  EXPECT_FALSE(e.matches(*parseSelect(join).where));
  EXPECT_TRUE(e.matches(*parseCriteria("featuredefattr.ATTRID = graphicattributes.attrid")));
}

TEST(Evaluator, NullMakesComparisonsNullAndOnlyTrueKeepsARow) {
  EXPECT_EQ(result(kMap, "csfid = 3"), "Null");
  EXPECT_EQ(result(kMap, "csfid <> 3"), "Null");
  EXPECT_EQ(result(kMap, "NOT csfid = 3"), "Null");
  EXPECT_EQ(result(kMap, "csfid = Null"), "Null");
  EXPECT_EQ(result(kMap, "-csfid < 0"), "Null");
  EXPECT_EQ(result(kMap, "csfid IS NULL"), "True");
  EXPECT_EQ(result(kMap, "csfid IS NOT NULL"), "False");
  EXPECT_EQ(result(kMap, "dirId IS NULL"), "False");
  EXPECT_EQ(result(kMap, "csfid = 3 OR dirId = 5"), "True");
  EXPECT_EQ(result(kMap, "csfid = 3 OR dirId = 6"), "Null");
  EXPECT_EQ(result(kMap, "csfid = 3 AND dirId = 5"), "Null");
  EXPECT_EQ(result(kMap, "csfid = 3 AND dirId = 6"), "False");
  EXPECT_EQ(result(kMap, "dirId = 6 AND csfid = 3"), "False");

  // A row is kept where the condition is True, and neither it nor its
  // negation keeps a row where it is Null.
  Evaluator e(kMap);
  EXPECT_FALSE(e.matches(*parseCriteria("csfid = 3")));
  EXPECT_FALSE(e.matches(*parseCriteria("not csfid = 3")));
  EXPECT_TRUE(e.matches(*parseCriteria("not (csfid = 3 and dirId = 6)")));
}

TEST(Evaluator, NumbersCompareByValueWhateverTheirType) {
  jet::Decimal dec;  // 123.45
  dec.scale = 2;
  dec.magnitude[0] = 12345;
  Row row{{"T", "Long", int32_t{3}},
          {"T", "Big", int32_t{2147483647}},
          {"T", "Money", jet::Currency{30000}},
          {"T", "Cents", jet::Currency{1}},
          {"T", "Dbl", 3.0},
          {"T", "Sgl", 2.5f},
          {"T", "When", jet::DateTime{3.0}},
          {"T", "Flag", true},
          {"T", "Dec", dec}};
  EXPECT_EQ(result(row, "Long = Money and Money = Dbl and Dbl = When and When = 3"), "True");
  EXPECT_EQ(result(row, "Money < 3.5 and Money > 2.9999 and Sgl = 2.5 and Sgl < Long"), "True");
  EXPECT_EQ(result(row, "Cents = 0.0001 and Cents > 0 and Cents < 0.0002"), "True");
  EXPECT_EQ(result(row, "Big = 2147483647 and Big > 2147483646 and Big < 3000000000"), "True");
  EXPECT_EQ(result(row, "Flag = -1 and Flag = True and Flag <> 1 and Flag < False"), "True");
  EXPECT_EQ(result(row, "Dec = 123.45 and Dec > 123 and -Dec = -123.45"), "True");
  EXPECT_EQ(result(row, "-Long = -3 and -Money = -3 and -Flag = 1"), "True");
}

TEST(Evaluator, TextComparesWithoutRegardToCaseButKeepsAccents) {
  const std::string cafe = "caf\xC3\xA9", CAFE = "CAF\xC3\x89";  // café, CAFÉ
  EXPECT_EQ(compareText("North.DGN", "north.dgn"), 0);
  EXPECT_EQ(compareText(cafe, CAFE), 0);
  EXPECT_LT(compareText("cafe", cafe), 0);
  EXPECT_LT(compareText(cafe, "cafF"), 0);
  // Accents count only where the letters alone are equal.
  EXPECT_LT(compareText("\xC3\xA9"
                        "a",
                        "eb"),
            0);
  EXPECT_LT(compareText("a", "B"), 0);
  EXPECT_LT(compareText("abc", "abcd"), 0);
  // Hyphens and apostrophes weigh last, but they are not ignored.
  EXPECT_NE(compareText("coop", "co-op"), 0);
  EXPECT_LT(compareText("co-op", "cop"), 0);
  EXPECT_NE(compareText("name", "name "), 0);

  Row row{{"Features", "Name", cafe}};
  EXPECT_EQ(result(row, "Name = '" + CAFE + "'"), "True");
  EXPECT_EQ(result(row, "Name = 'cafe'"), "False");
  EXPECT_EQ(result(row, "Name > 'CAFE' and Name < 'cafF'"), "True");

  // The quick path for ASCII names agrees with the General order.
  for (int a = 1; a < 128; ++a) {
    for (int b = 1; b < 128; ++b) {
      std::string x = "n" + std::string(1, static_cast<char>(a));
      std::string y = "N" + std::string(1, static_cast<char>(b));
      ASSERT_EQ(sameName(x, y), compareText(x, y) == 0) << a << " " << b;
    }
  }
  EXPECT_TRUE(sameName("FEATUREMaps", "FeatureMaps"));
  EXPECT_TRUE(sameName(CAFE, cafe));
  EXPECT_FALSE(sameName("feaId", "feaIds"));
}

TEST(Evaluator, TextAgainstNumberIsATypeMismatch) {
  const std::string mismatch = "Data type mismatch in criteria expression.";
  for (const char* c : {"dirId = 'x'", "dirId = '5'", "Name = 5", "Name < dirId", "-Name = 1",
                        "Name and dirId = 5"}) {
    SCOPED_TRACE(c);
    expectError([&] { result(kMap, c); }, 3464, mismatch, sources::kRecordset);
  }
  expectError(
      [&] { Evaluator(kMap).matches(*parseSelect("select * from Maps where dirId = 'x'").where); },
      3464, mismatch, sources::kDatabase);
  // Against Null there is nothing to mismatch in a row ...
  EXPECT_EQ(result(kMap, "csfid = 'x'"), "Null");
  // ... but the check made before any row is read still sees the types,
  // as Jet does for a query over an empty table.
  EXPECT_NO_THROW(checkExpression(*parseCriteria("dirId = 5 and Name = 'a' and csfid = Null"), kMap,
                                  ExprContext::kQuery));
  expectError([&] { checkExpression(*parseCriteria("csfid = 'x'"), kMap, ExprContext::kQuery); },
              3464, mismatch, sources::kDatabase);
  expectError(
      [&] {
        checkExpression(*parseCriteria("dirId = 1 or Name = mapId"), kMap, ExprContext::kCriteria);
      },
      3464, mismatch, sources::kRecordset);
}

TEST(Evaluator, UnknownNamesFailEvenWhereTheResultIsSettledWithout) {
  // In a query an unknown name is a parameter nobody supplied; Jet counts
  // them once each, whatever their case.
  auto query = [](const std::string& where) {
    Evaluator(kMap).matches(*parseSelect("select * from Maps where " + where).where);
  };
  expectError([&] { query("dirId = 6 and bogus = 1"); }, 3061, "Too few parameters. Expected 1.",
              sources::kDatabase);
  expectError([&] { query("dirId = 5 or bogus = 1 or BOGUS = 2 or other is null"); }, 3061,
              "Too few parameters. Expected 2.", sources::kDatabase);
  expectError([&] { query("Maps.dirId = 5 and Directories.dirId = 5"); }, 3061,
              "Too few parameters. Expected 1.", sources::kDatabase);
  // Before the type mismatch, as Jet resolves names first.
  expectError([&] { query("dirId = 'x' and bogus = 1"); }, 3061, "Too few parameters. Expected 1.",
              sources::kDatabase);
  // In FindFirst criteria the name itself is reported.
  expectError([&] { result(kMap, "dirId = 6 and Bogus = 1"); }, 3070,
              "The Microsoft Jet database engine does not recognize 'Bogus' as a valid field "
              "name or expression.",
              sources::kRecordset);
  expectError([&] { checkExpression(*parseCriteria("x = 1 or y = 2"), kMap, ExprContext::kQuery); },
              3061, "Too few parameters. Expected 2.", sources::kDatabase);
}

}  // namespace

TEST(Collation, ShortcutForPlainTextOrdersAsTheFullKeysDo) {
  // compareText skips building keys for text of plain ASCII characters; it
  // must order every such pair exactly as the keys would.
  std::vector<std::string> texts = {""};
  for (int c = 32; c < 127; ++c) texts.push_back(std::string(1, static_cast<char>(c)));
  for (const char* s : {"ab", "aB", "a b", "a-b", "a'b", "a_b", "a.b", "A1", "a10", "a9", "map12.dgn", "a_", "a__", "_a", "sheet_00012_345.dgn",
                        "MAP12.DGN", "map1.dgn", "map_1.dgn", "Zz", "zZ ", "~x", "{x"})
    texts.push_back(s);
  auto sign = [](int v) { return (v > 0) - (v < 0); };
  for (const std::string& a : texts)
    for (const std::string& b : texts) {
      std::vector<uint8_t> ka = textSortKey(a), kb = textSortKey(b);
      int full = ka < kb ? -1 : ka > kb ? 1 : 0;
      ASSERT_EQ(sign(compareText(a, b)), full) << "'" << a << "' vs '" << b << "'";
    }
}
