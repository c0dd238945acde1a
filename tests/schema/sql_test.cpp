// Parsing the queries and criteria the program composes, and failing on
// malformed ones with Jet's numbers and texts.
#include "schema/sql.h"

#include <gtest/gtest.h>

#include <functional>

#include "schema/engine_error.h"

using namespace schema;

namespace {

std::string whereOf(const std::string& sql) {
  SelectStatement st = parseSelect(sql);
  return st.where ? toText(*st.where) : "";
}

std::string criteria(const std::string& text) { return toText(*parseCriteria(text)); }

std::vector<std::string> tableNames(const SelectStatement& st) {
  std::vector<std::string> names;
  for (const TableRef& t : st.tables) names.push_back(t.name);
  return names;
}

// Runs `f`, which must fail with the given error.
void expectError(const std::function<void()>& f, int32_t number, const std::string& description,
                 const std::string& source = sources::kDatabase) {
  try {
    f();
    ADD_FAILURE() << "no error; expected " << number;
  } catch (const EngineError& e) {
    EXPECT_EQ(e.number(), number) << e.description();
    if (!description.empty()) {
      EXPECT_EQ(e.description(), description);
    }
    EXPECT_EQ(e.source(), source);
  }
}

void expectSelectError(const std::string& sql, int32_t number,
                       const std::string& description = "") {
  SCOPED_TRACE(sql);
  expectError([&] { parseSelect(sql); }, number, description);
}

TEST(Sql, EveryQueryTheProgramComposesParses) {
  SelectStatement all = parseSelect("Select * from [Maps]");
  EXPECT_TRUE(all.allColumns);
  EXPECT_FALSE(all.distinct);
  EXPECT_EQ(tableNames(all), std::vector<std::string>{"Maps"});
  EXPECT_EQ(all.where, nullptr);

  EXPECT_EQ(whereOf("select * from FeatureMaps where FeaId = 12"), "(FeaId = 12)");
  std::string valueTable = "LevelValues";
  SelectStatement values = parseSelect("select * from " + valueTable + " where feaId = 3");
  EXPECT_EQ(tableNames(values), std::vector<std::string>{"LevelValues"});
  EXPECT_EQ(toText(*values.where), "(feaId = 3)");
  EXPECT_EQ(whereOf("Select * from [KeysParameters] Where Type = 'GraphicToDbTableLink'"),
            "(Type = 'GraphicToDbTableLink')");

  SelectStatement distinct = parseSelect("select distinct csfid from maps");
  EXPECT_TRUE(distinct.distinct);
  EXPECT_FALSE(distinct.allColumns);
  ASSERT_EQ(distinct.columns.size(), 1u);
  EXPECT_EQ(distinct.columns[0].name, "csfid");
  EXPECT_EQ(tableNames(distinct), std::vector<std::string>{"maps"});

  SelectStatement join = parseSelect(
      "select FeatureDefAttr.AttrId, TableName, Name, GDOType, DomainType from FeatureDefAttr, "
      "GraphicAttributes, DomainTypes where FeatureDefAttr.attrid = GraphicAttributes.attrid "
      "and FeatureDefAttr.DomainTypeId = DomainTypes.DomainTypeId");
  ASSERT_EQ(join.columns.size(), 5u);
  EXPECT_EQ(join.columns[0].table, "FeatureDefAttr");
  EXPECT_EQ(join.columns[0].name, "AttrId");
  EXPECT_EQ(join.columns[1].table, "");
  EXPECT_EQ(join.columns[4].name, "DomainType");
  EXPECT_EQ(tableNames(join),
            (std::vector<std::string>{"FeatureDefAttr", "GraphicAttributes", "DomainTypes"}));
  EXPECT_EQ(toText(*join.where),
            "((FeatureDefAttr.attrid = GraphicAttributes.attrid) AND "
            "(FeatureDefAttr.DomainTypeId = DomainTypes.DomainTypeId))");
}

TEST(Sql, EveryCriterionTheProgramComposesParses) {
  EXPECT_EQ(criteria("dirId = 5"), "(dirId = 5)");
  EXPECT_EQ(criteria("csfid = 32767"), "(csfid = 32767)");
  EXPECT_EQ(criteria("Path = 'C:\\Maps\\North'"), "(Path = 'C:\\Maps\\North')");
  EXPECT_EQ(criteria("Name = 'a.dgn' and dirId = 3"), "((Name = 'a.dgn') AND (dirId = 3))");
  EXPECT_EQ(criteria("Type = 'DbLinkedFeature' OR Type = 'DbLFeatSuppGrAttr'"),
            "((Type = 'DbLinkedFeature') OR (Type = 'DbLFeatSuppGrAttr'))");
  EXPECT_EQ(criteria("Type = 'GraphicFeature' and AttrId = 26"),
            "((Type = 'GraphicFeature') AND (AttrId = 26))");
  // An empty value between the quotes is still a value.
  EXPECT_EQ(criteria("Name = ''"), "(Name = '')");
}

TEST(Sql, KeywordsAndNamesInAnyCase) {
  SelectStatement st = parseSelect("SeLeCt DiStInCt CSFID FrOm MAPS wHeRe csfid iS nOt NuLl;");
  EXPECT_TRUE(st.distinct);
  EXPECT_EQ(st.columns[0].name, "CSFID");
  EXPECT_EQ(toText(*st.where), "(csfid IS NOT NULL)");
  EXPECT_EQ(whereOf("SELECT * FROM FEATUREMaps WHERE feaid = 1 aNd NOT mapId = 2 Or X is null"),
            "(((feaid = 1) AND (NOT (mapId = 2))) OR (X IS NULL))");
  EXPECT_EQ(criteria("name = 'x' AND DIRID = 3"), "((name = 'x') AND (DIRID = 3))");
}

TEST(Sql, PrecedenceLiteralsAndNames) {
  EXPECT_EQ(criteria("a = 1 or b = 2 and not c = 3"), "((a = 1) OR ((b = 2) AND (NOT (c = 3))))");
  EXPECT_EQ(criteria("(a = 1 or b = 2) and c <= 3"), "(((a = 1) OR (b = 2)) AND (c <= 3))");
  EXPECT_EQ(criteria("not not a <> 1"), "(NOT (NOT (a <> 1)))");
  EXPECT_EQ(criteria("a = b = c"), "((a = b) = c)");
  EXPECT_EQ(criteria("x>=-5 and y<2.5 and z>1.5e3"), "(((x >= -5) AND (y < 2.5)) AND (z > 1500))");
  EXPECT_EQ(criteria("y < -2.5"), "(y < -2.5)");
  EXPECT_EQ(criteria("- x = 1"), "((-x) = 1)");
  EXPECT_EQ(criteria("t.[My Field] = 1 and [Maps].[Name] = \"dq\"\"x\""),
            "((t.[My Field] = 1) AND (Maps.Name = 'dq\"x'))");

  // Whole numbers that fit a Long are Longs; the rest Doubles.
  auto literalOf = [](const std::string& text) { return parseCriteria(text)->right->value; };
  EXPECT_EQ(literalOf("x = 12"), jet::Value(int32_t{12}));
  EXPECT_EQ(literalOf("x = -2147483647"), jet::Value(int32_t{-2147483647}));
  EXPECT_EQ(literalOf("x = 3000000000"), jet::Value(3000000000.0));
  EXPECT_EQ(literalOf("x = 1.5e3"), jet::Value(1500.0));
  EXPECT_EQ(literalOf("x = 0.25"), jet::Value(0.25));
  EXPECT_EQ(literalOf("x = 'it''s'"), jet::Value(std::string("it's")));
  EXPECT_EQ(literalOf("x = 'caf\xC3\xA9'"), jet::Value(std::string("caf\xC3\xA9")));
  EXPECT_EQ(literalOf("x = null"), jet::Value());
  EXPECT_EQ(literalOf("x = True"), jet::Value(true));
}

TEST(Sql, AnUndoubledQuoteFailsAsInJet) {
  expectSelectError("select * from Features where Name = 'O'Brien'", 3075,
                    "Syntax error (missing operator) in query expression 'Name = 'O'Brien''.");
  expectError([] { parseCriteria("Name = 'O'Brien'"); }, 3077,
              "Syntax error (missing operator) in expression.", sources::kRecordset);
  expectError([] { parseCriteria("Name = 'O'Brien' and dirId = 3"); }, 3077,
              "Syntax error (missing operator) in expression.", sources::kRecordset);
  // Written twice, the quote is part of the value.
  EXPECT_EQ(criteria("Name = 'O''Brien'"), "(Name = 'O''Brien')");
}

TEST(Sql, MalformedConditionsQuoteTheCondition) {
  expectSelectError("select * from Maps where dirId = ", 3075,
                    "Syntax error (missing operator) in query expression 'dirId ='.");
  expectSelectError("select * from Maps where Name = 'abc ;", 3075,
                    "Syntax error in string in query expression 'Name = 'abc'.");
  expectSelectError("select * from Maps where (dirId = 1", 3075,
                    "Missing ), ], or Item in query expression '(dirId = 1'.");
  expectSelectError("select * from Maps where dirId = 1)", 3075,
                    "Extra ) in query expression 'dirId = 1)'.");
  expectSelectError("select * from Maps where dirId = 1 Name = 'x'", 3075,
                    "Syntax error (missing operator) in query expression 'dirId = 1 Name = "
                    "'x''.");
  expectSelectError("select * from Maps where dirId is 5", 3075);
  expectSelectError("select * from Maps where dirId = 1 and", 3075);
  expectSelectError("select * from Maps where dirId = 1 & 2", 3075);
  expectSelectError("select * from Maps where", 3075,
                    "Syntax error (missing operator) in query expression ''.");
  expectSelectError("select * from Maps where [Name = 1", 3126,
                    "Invalid bracketing of name '[Name = 1'.");
  for (const char* bad : {"", "dirId =", "dirId = 5;", "(dirId = 5", "dirId = 5)", "and",
                          "Name = 'abc", "dirId = 5 5"}) {
    SCOPED_TRACE(bad);
    expectError([&] { parseCriteria(bad); }, 3077, "", sources::kRecordset);
  }
  // A trailing semicolon ends a query but is not part of its condition.
  EXPECT_EQ(whereOf("select * from Maps where dirId = 1 ;  "), "(dirId = 1)");
}

TEST(Sql, MalformedStatements) {
  expectSelectError("", 3129);
  expectSelectError("selec * from Maps", 3129);
  expectSelectError("delete from Maps", 3129,
                    "Invalid SQL statement; expected 'DELETE', 'INSERT', 'PROCEDURE', 'SELECT', "
                    "or 'UPDATE'.");
  expectSelectError("select * from", 3131, "Syntax error in FROM clause.");
  expectSelectError("select * from Maps m x", 3131);
  expectSelectError("select * from Maps,", 3131);
  expectSelectError("select * from where dirId = 1", 3131);
  expectSelectError("select * from 'Maps'", 3131);
  expectSelectError("select * from [Maps", 3126, "Invalid bracketing of name '[Maps'.");
  expectSelectError("select from Maps", 3141);
  expectSelectError("select Name,, dirId from Maps", 3141);
  expectSelectError("select * Maps", 3141);
  expectSelectError("select *", 3450, "Syntax error in query. Incomplete query clause.");
  expectSelectError("select Name,", 3450);
  expectSelectError("select * from Maps; select", 3142,
                    "Characters found after end of SQL statement.");

  // Aliases, with and without AS, and qualified stars are part of Jet SQL.
  SelectStatement st = parseSelect("select m.*, d.Path AS p from Maps AS m, [Directories] d");
  ASSERT_EQ(st.columns.size(), 2u);
  EXPECT_EQ(st.columns[0].table, "m");
  EXPECT_EQ(st.columns[0].name, "*");
  EXPECT_EQ(st.columns[1].alias, "p");
  ASSERT_EQ(st.tables.size(), 2u);
  EXPECT_EQ(st.tables[0].alias, "m");
  EXPECT_EQ(st.tables[1].name, "Directories");
  EXPECT_EQ(st.tables[1].alias, "d");
}

}  // namespace
