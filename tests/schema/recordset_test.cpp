// The data layer as the forms use it: the SQL and criteria the program
// composes and Jet's refusals of everything else, conditions under Jet's
// rules, recordsets over copies of the generated MicroStation template and
// of corpus files, and the database around them (its lock, failed opens,
// transactions).
#include "schema/recordset.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "jet/create.h"
#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/text.h"
#include "schema/collation.h"
#include "schema/evaluator.h"
#include "schema/list_entries.h"
#include "schema/planner.h"
#include "schema/schema_database.h"
#include "schema/sql.h"
#include "schema_fixture.h"

using namespace schema;
using namespace schematest;

namespace {

std::string criteria(const std::string& text) { return toText(*parseCriteria(text)); }
std::string whereOf(const std::string& sql) { return toText(*parseSelect(sql).where); }
std::string text(const jet::Value& v) { return std::get<std::string>(v); }

// The number, and where given the text and source, of the error `f` raises.
void expectFailure(const std::function<void()>& f, int32_t number, const std::string& description,
                   const char* source) {
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

// ---- The SQL subset

TEST(Sql, TheShapesTheProgramComposes) {
  const std::pair<const char*, const char*> wheres[] = {
      {"Select * from [KeysParameters] Where Type = 'GraphicToDbTableLink'",
       "(Type = 'GraphicToDbTableLink')"},
      {"SeLeCt DiStInCt CSFID FrOm MAPS wHeRe csfid iS nOt NuLl;", "(csfid IS NOT NULL)"},
      {"SELECT * FROM X WHERE a = 1 aNd NOT b = 2 Or c is null",
       "(((a = 1) AND (NOT (b = 2))) OR (c IS NULL))"},
      {"select * from Maps where dirId = 1 ;  ", "(dirId = 1)"}};
  for (auto [sql, where] : wheres) EXPECT_EQ(whereOf(sql), where) << sql;
  const std::pair<const char*, const char*> criteriaTexts[] = {
      {"Path = 'C:\\Maps\\North'", "(Path = 'C:\\Maps\\North')"},
      {"Name = ''", "(Name = '')"},
      {"Name = 'O''Brien'", "(Name = 'O''Brien')"},
      {"a = 1 or b = 2 and not c = 3", "((a = 1) OR ((b = 2) AND (NOT (c = 3))))"},
      {"(a = 1 or b = 2) and c <= 3", "(((a = 1) OR (b = 2)) AND (c <= 3))"},
      {"a = b = c", "((a = b) = c)"},
      {"x>=-5 and y<2.5 and z>1.5e3", "(((x >= -5) AND (y < 2.5)) AND (z > 1500))"},
      {"- x = 1", "((-x) = 1)"},
      {"x = -0.0 or y = 1e-400 or z = -1e400", "(((x = -0.0) OR (y = 0)) OR (z = -1E+999))"},
      {"t.[My Field] = 1 and [Maps].[Name] = \"dq\"\"x\"",
       "((t.[My Field] = 1) AND (Maps.Name = 'dq\"x'))"}};
  for (auto [in, out] : criteriaTexts) {
    EXPECT_EQ(criteria(in), out) << in;
    EXPECT_EQ(criteria(criteria(in)), out) << "read back: " << in;
  }
  // Whole numbers that fit a Long are Longs; the rest Doubles.
  auto literal = [](const std::string& t) { return parseCriteria("x = " + t)->right->value; };
  EXPECT_EQ(literal("-2147483647"), jet::Value(int32_t{-2147483647}));
  EXPECT_EQ(literal("3000000000"), jet::Value(3000000000.0));
  EXPECT_EQ(literal("1e-400"), jet::Value(0.0));  // too small to hold: zero, not infinity
  EXPECT_EQ(literal("'it''s'"), jet::Value(std::string("it's")));
  EXPECT_EQ(literal("null"), jet::Value());

  SelectStatement st =
      parseSelect("select m.*, d.Path AS p, Name from Maps AS m, [Directories] d, DomainTypes");
  ASSERT_EQ(st.columns.size(), 3u);
  EXPECT_EQ(st.columns[0].table + "." + st.columns[0].name, "m.*");
  EXPECT_EQ(st.columns[1].alias, "p");
  ASSERT_EQ(st.tables.size(), 3u);
  EXPECT_EQ(st.tables[1].name + " " + st.tables[1].alias, "Directories d");
}

TEST(Sql, EverythingElseIsRefusedWithJetsNumbers) {
  const char* db = sources::kDatabase;
  auto select = [&](const std::string& sql, int32_t number, const std::string& description = "") {
    SCOPED_TRACE(sql);
    expectFailure([&] { parseSelect(sql); }, number, description, db);
  };
  // Jet quotes the condition from after WHERE, the ";" left out.
  select("select * from Features where Name = 'O'Brien'", 3075,
         "Syntax error (missing operator) in query expression 'Name = 'O'Brien''.");
  select("select * from Maps where Name = 'abc ;", 3075,
         "Syntax error in string in query expression 'Name = 'abc'.");
  select("select * from Maps where (dirId = 1", 3075,
         "Missing ), ], or Item in query expression '(dirId = 1'.");
  select("select * from Maps where dirId = 1)", 3075, "Extra ) in query expression 'dirId = 1)'.");
  for (const char* bad : {"dirId is 5", "dirId = 1 and", "dirId = 1 & 2", ""})
    select(std::string("select * from Maps where ") + bad, 3075);
  select("select * from Maps where [Name = 1", 3126, "Invalid bracketing of name '[Name = 1'.");
  for (const char* bad : {"", "selec * from Maps", "delete from Maps"}) select(bad, 3129);
  for (const char* bad :
       {"select * from", "select * from Maps m x", "select * from Maps,", "select * from 'Maps'"})
    select(bad, 3131);
  for (const char* bad : {"select from Maps", "select Name,, dirId from Maps", "select * Maps"})
    select(bad, 3141);
  select("select *", 3450);
  select("select * from Maps; select", 3142);
  for (const char* bad : {"", "dirId =", "dirId = 5;", "(dirId = 5", "dirId = 5)", "and",
                          "Name = 'abc", "dirId = 5 5", "Name = 'O'Brien' and dirId = 3"}) {
    SCOPED_TRACE(bad);
    expectFailure([&] { parseCriteria(bad); }, 3077, "", sources::kRecordset);
  }
}

// Nesting, size and tables stop at bounds that keep the stack and the time
// of a hostile text in check.
TEST(Sql, QueriesBeyondJetsLimitsAreTooComplex) {
  auto nested = [](int depth) {
    return std::string(depth, '(') + "a = 1" + std::string(depth, ')');
  };
  EXPECT_NO_THROW(parseCriteria(nested(64)));
  std::string nots;
  for (int i = 0; i < 30000; ++i) nots += "NOT ";
  const std::string tooComplex = "Query is too complex.";
  for (const std::string& c :
       {nested(65), nested(10000), nots + "a = 1", "a = " + std::string(10000, '-') + "1"}) {
    expectFailure([&] { parseCriteria(c); }, 3360, tooComplex, sources::kRecordset);
    expectFailure([&] { parseSelect("select * from T where " + c); }, 3360, tooComplex,
                  sources::kDatabase);
  }
  std::string ands = "a = 1";  // each "and a = 1" two operators more
  for (int i = 0; i < 499; ++i) ands += " and a = 1";
  EXPECT_NO_THROW(parseCriteria(ands));
  expectFailure([&] { parseCriteria(ands + " and a = 1"); }, 3360, tooComplex, sources::kRecordset);
  std::string tables = "select * from T0";
  for (int i = 1; i < 32; ++i) tables += ", T" + std::to_string(i);
  EXPECT_EQ(parseSelect(tables).tables.size(), 32u);
  expectFailure([&] { parseSelect(tables + ", T32"); }, 3360, tooComplex, sources::kDatabase);
}

// ---- Conditions

struct Column {
  std::string table, name;
  jet::Value value;
};

// A row of one or more tables; names resolve without regard to case.
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
    return std::holds_alternative<std::string>(c->value) ? FieldKind::kText : FieldKind::kNumber;
  }

 private:
  const Column* find(std::string_view table, std::string_view name) const {
    for (const Column& c : columns_)
      if ((table.empty() || sameName(table, c.table)) && sameName(name, c.name)) return &c;
    return nullptr;
  }
  std::vector<Column> columns_;
};

// "True", "False" or "Null".
std::string result(const Row& row, const std::string& condition) {
  jet::Value v = Evaluator(row, ExprContext::kCriteria).evaluate(*parseCriteria(condition));
  return jet::isNull(v) ? "Null" : std::get<bool>(v) ? "True" : "False";
}

const Row kMap{{"Maps", "mapId", int32_t{7}},
               {"Maps", "Name", std::string("North.dgn")},
               {"Maps", "dirId", int32_t{5}},
               {"Maps", "csfid", jet::Value()}};

TEST(Evaluator, ComparisonsNullsAndJetsThreeValuedLogic) {
  // Every operator on both sides of its boundary; Null through NOT, - and
  // comparisons, and AND and OR under Jet's three-valued rules.
  for (const char* c : {"dirId = 5", "dirId <> 4", "dirId < 6", "dirId <= 5", "dirId > 4",
                        "dirId >= 5", "csfid IS NULL", "dirId IS NOT NULL",
                        "csfid = 3 OR dirId = 5", "Name = 'north.DGN' and MAPID >= 7"})
    EXPECT_EQ(result(kMap, c), "True") << c;
  for (const char* c : {"dirId = 6", "dirId <> 5", "dirId < 5", "dirId <= 4", "dirId > 5",
                        "dirId >= 6", "dirId = 6 AND csfid = 3", "Name = 'North.dgn '"})
    EXPECT_EQ(result(kMap, c), "False") << c;
  for (const char* c : {"csfid = 3", "NOT csfid = 3", "-csfid < 0", "csfid = 3 OR dirId = 6",
                        "csfid = 3 AND dirId = 5"})
    EXPECT_EQ(result(kMap, c), "Null") << c;
  // Only True keeps a row.
  Evaluator e(kMap);
  EXPECT_FALSE(e.matches(*parseCriteria("csfid = 3")));
  EXPECT_FALSE(e.matches(*parseCriteria("not csfid = 3")));
}

TEST(Evaluator, NumbersCompareByValueWhateverTheirType) {
  const jet::Decimal dec{false, 0, 2, {12345}};  // 123.45
  Row row{{"T", "Long", int32_t{3}},
          {"T", "Big", int32_t{2147483647}},
          {"T", "Money", jet::Currency{30000}},
          {"T", "Cents", jet::Currency{1}},
          {"T", "Dbl", 3.0},
          {"T", "Sgl", 2.5f},
          {"T", "When", jet::DateTime{3.0}},
          {"T", "Flag", true},
          {"T", "Dec", dec}};
  for (const char* c :
       {"Long = Money and Money = Dbl and Dbl = When and When = 3",
        "Money < 3.5 and Money > 2.9999 and Sgl = 2.5 and Sgl < Long",
        "Cents = 0.0001 and Cents > 0 and Cents < 0.0002", "Big > 2147483646 and Big < 3000000000",
        "Flag = -1 and Flag = True and Flag <> 1 and Flag < False",
        "Dec = 123.45 and Dec > 123 and -Dec = -123.45", "-Long = -3 and -Flag = 1",
        "Long < 1e300 and Long > -1e300"})
    EXPECT_EQ(result(row, c), "True") << c;
}

TEST(Evaluator, TextInTheGeneralOrder) {
  const std::string cafe = "caf\u00E9", CAFE = "CAF\u00C9";
  EXPECT_EQ(compareText(cafe, CAFE), 0);
  EXPECT_LT(compareText("cafe", cafe), 0);
  EXPECT_LT(compareText(cafe, "cafF"), 0);
  EXPECT_LT(compareText("\u00E9a", "eb"), 0);  // accents count only where the letters are equal
  EXPECT_LT(compareText("co-op", "cop"), 0);
  EXPECT_NE(compareText("coop", "co-op"), 0);  // hyphens weigh last, not never
  Row row{{"Features", "Name", cafe}};
  EXPECT_EQ(result(row, "Name = '" + CAFE + "' and Name > 'CAFE' and Name < 'cafF'"), "True");

  // The shortcut for plain ASCII text orders as the full keys do.
  std::vector<std::string> texts = {""};
  for (int c = 32; c < 127; ++c) texts.push_back(std::string(1, static_cast<char>(c)));
  for (const char* s :
       {"ab", "aB", "a b", "a-b", "a'b", "a_b", "A1", "a10", "a9", "map_1.dgn", "_a", "zZ ", "~x"})
    texts.push_back(s);
  auto sign = [](int v) { return (v > 0) - (v < 0); };
  for (const std::string& a : texts)
    for (const std::string& b : texts) {
      std::vector<uint8_t> ka = textSortKey(a), kb = textSortKey(b);
      ASSERT_EQ(sign(compareText(a, b)), ka < kb ? -1 : ka > kb ? 1 : 0) << a << " / " << b;
      ASSERT_EQ(sameName(a, b), ka == kb) << a << " / " << b;
    }
}

// Comparisons and Jet 4 index keys put the same codes in the main part (what
// a text range sought through an index relies on), for every character the
// key builder takes, and Jet's codes for those it refuses.
TEST(Evaluator, TextKeysShareTheirMainPartWithIndexKeys) {
  jet::TableDef t;
  jet::ColumnDef c;
  c.type = jet::coltype::kText;
  c.sortOrder = 1033;
  t.columns = {c};
  jet::RealIndex ri;
  ri.columns.push_back({0, 0, true});
  auto mainPart = [](const std::vector<uint8_t>& k, size_t from = 0) {
    return std::vector<uint8_t>(k.begin() + static_cast<long>(from),
                                std::find(k.begin() + static_cast<long>(from), k.end(), 0x01));
  };
  int built = 0;
  for (char32_t cp = 1; cp < 0x10000; ++cp) {
    if (cp >= 0xD800 && cp < 0xE000) continue;
    std::string s = "a";
    jet::appendUtf8(s, cp);
    s += "b";
    std::vector<uint8_t> key;
    try {
      key = jet::encodeIndexKey(jet::kJet4Format, t, ri, {s});
    } catch (const jet::JetError&) {
      continue;
    }
    ASSERT_EQ(mainPart(textSortKey(s)), mainPart(key, 1)) << std::hex << static_cast<uint32_t>(cp);
    ++built;
  }
  EXPECT_GT(built, 60000);
  EXPECT_EQ(mainPart(textSortKey("\u30AB")), (std::vector<uint8_t>{0x7F, 0x0A}));
  EXPECT_EQ(mainPart(textSortKey("e\u0301")), mainPart(textSortKey("e")));
  EXPECT_EQ(mainPart(textSortKey("\U0001F600")), (std::vector<uint8_t>{0xB0, 0x3F, 0xB6, 0xFC}));
  // What they leave out of the main part still tells texts apart.
  EXPECT_LT(compareText("\u30AB", "\u30AD"), 0);
  EXPECT_NE(compareText("\u30AB", "\u30AC"), 0);
  EXPECT_NE(compareText("e\u0301", "e"), 0);
  EXPECT_NE(compareText("e\u0301x", "ex\u0301"), 0);
}

TEST(Evaluator, MismatchedTypesAndUnknownNames) {
  const std::string mismatch = "Data type mismatch in criteria expression.";
  for (const char* c : {"dirId = '5'", "Name = 5", "Name < dirId", "-Name = 1"})
    expectFailure([&] { result(kMap, c); }, 3464, mismatch, sources::kRecordset);
  EXPECT_EQ(result(kMap, "csfid = 'x'"), "Null");  // nothing to mismatch in this row ...
  // ... but the check before any row is read sees the column's type, as Jet
  // does for a query over an empty table.
  expectFailure([&] { checkExpression(*parseCriteria("csfid = 'x'"), kMap, ExprContext::kQuery); },
                3464, mismatch, sources::kDatabase);
  // In a query an unknown name is a parameter nobody supplied, counted once
  // whatever its case, and found before a mismatch; FindFirst names it.
  auto query = [](const std::string& where) {
    Evaluator(kMap).matches(*parseSelect("select * from Maps where " + where).where);
  };
  expectFailure([&] { query("dirId = 'x' or bogus = 1 or BOGUS = 2 or other is null"); }, 3061,
                "Too few parameters. Expected 2.", sources::kDatabase);
  expectFailure([&] { result(kMap, "dirId = 6 and Bogus = 1"); }, 3070,
                "The Microsoft Jet database engine does not recognize 'Bogus' as a valid field "
                "name or expression.",
                sources::kRecordset);
}

// ---- Recordsets and the database

class RecordsetTest : public SchemaFiles {
 protected:
  void SetUp() override {
    SchemaFiles::SetUp();
    if (IsSkipped()) return;
    path_ = templateCopy();
    db_.open(path_);
  }
  int32_t add(const std::string& table, std::vector<std::pair<std::string, jet::Value>> fields) {
    Recordset rs = db_.openRecordset("select * from " + table);
    rs.addNew();
    for (auto& [name, value] : fields) rs.setField(name, value);
    jet::Value first = rs.field(rs.fieldNames()[0]);
    rs.update();
    return std::holds_alternative<int32_t>(first) ? std::get<int32_t>(first) : 0;
  }
  int32_t addDirectory(const std::string& path) { return add("Directories", {{"Path", path}}); }
  std::string path_;
  SchemaDatabase db_;
};

// Names in any case, the key read after AddNew, and a duplicate refused
// with the edit kept.
TEST_F(RecordsetTest, NamesKeysAndDuplicates) {
  Recordset features = db_.openRecordset("Select * from [FEATURES]");
  std::vector<int32_t> keys;
  for (const char* name : {"Roads", "Rivers"}) {
    features.addNew();
    keys.push_back(std::get<int32_t>(features.field("FEAID")));
    features.setField("name", std::string(name));
    expectError([&] { features.setField("feaId", keys.back() + 100); }, err::kFieldNotUpdatable);
    features.update();
  }
  EXPECT_GT(keys[1], keys[0]);
  features.setBookmark(features.lastModified());
  EXPECT_EQ(features.field("feaId"), jet::Value(keys[1]));
  const Dump before = dumpFile(path_);
  EXPECT_EQ(before.at("Features")[1][0], jet::Value(keys[1]));
  EXPECT_TRUE(faultsOnDisk(path_).empty());

  features.addNew();
  features.setField("Name", std::string("ROADS"));  // unique without regard to case
  expectError([&] { features.update(); }, err::kDuplicateKey);
  EXPECT_EQ(db_.errors(), (ErrorList{{3022, "DAO.Recordset", errorText(err::kDuplicateKey)}}));
  EXPECT_EQ(dumpFile(path_), before);
  EXPECT_EQ(features.editMode(), Recordset::EditMode::kAdd);
  features.setField("Name", std::string("Lakes"));
  features.update();
  features.moveFirst();
  features.edit();
  features.setField("Name", std::string("Rivers"));
  expectError([&] { features.update(); }, err::kDuplicateKey);
  features.cancelUpdate();
  EXPECT_EQ(text(features.field("Name")), "Roads");

  expectError([&] { db_.openRecordset("select * from NoSuchTable"); }, err::kTableNotFound);
  EXPECT_NE(db_.errors().at(0).description.find("NoSuchTable"), std::string::npos);
  expectError([&] { features.field("NoSuchField"); }, err::kItemNotFound);
  expectError([&] { db_.openRecordset("select * from Maps where Nme = 'x'"); },
              err::kTooFewParameters);
}

TEST_F(RecordsetTest, PositionsFindsAndDeletedRows) {
  Recordset empty = db_.openRecordset("select * from Directories");
  EXPECT_TRUE(empty.bof() && empty.eof());
  expectError([&] { empty.moveFirst(); }, err::kNoCurrentRecord);
  expectError([&] { empty.update(); }, err::kUpdateWithoutAddNewOrEdit);
  expectError([&] { empty.setField("Path", std::string("x")); }, err::kUpdateWithoutAddNewOrEdit);
  const int32_t a = addDirectory("/a"), b = addDirectory("/b");
  addDirectory("/a");
  addDirectory("/c");
  Recordset dirs = db_.openRecordset("select * from Directories");
  Recordset other = db_.openRecordset("select * from Directories");
  dirs.moveNext();
  Recordset::Bookmark second = dirs.bookmark();
  dirs.moveLast();
  dirs.moveNext();
  EXPECT_TRUE(dirs.eof());
  expectError([&] { dirs.moveNext(); }, err::kNoCurrentRecord);
  dirs.setBookmark(second);
  EXPECT_EQ(text(dirs.field("Path")), "/b");
  dirs.moveFirst();
  dirs.movePrevious();
  EXPECT_TRUE(dirs.bof());
  expectError([&] { dirs.setBookmark({999}); }, err::kInvalidBookmark);
  // A move drops a pending edit; a value that does not fit is refused when set.
  dirs.moveFirst();
  EXPECT_EQ(dirs.fieldSize("Path"), 255);
  dirs.edit();
  expectError([&] { dirs.setField("Path", std::string(256, 'x')); }, err::kFieldTooSmall);
  expectError([&] { dirs.setField("Path", 5); }, err::kConversionError);
  dirs.setField("Path", std::string("/changed"));
  dirs.moveNext();
  dirs.movePrevious();
  EXPECT_EQ(text(dirs.field("Path")), "/a");

  dirs.findFirst("Path = '/A'");
  EXPECT_EQ(dirs.field("dirId"), jet::Value(a));
  dirs.findNext("Path = '/a'");
  EXPECT_GT(std::get<int32_t>(dirs.field("dirId")), b);
  dirs.findNext("Path = '/a'");
  EXPECT_TRUE(dirs.noMatch());
  EXPECT_GT(std::get<int32_t>(dirs.field("dirId")), b) << "the current row stays";
  expectError([&] { dirs.findFirst("Path = 'O'Brien'"); }, err::kCriteriaSyntax);
  expectError([&] { dirs.findFirst("Pth = 'x'"); }, err::kUnknownFieldInExpression);

  // After a Delete, FindNext and MoveNext go on with the row that followed.
  dirs.findFirst("Path = '/b'");
  dirs.deleteRecord();
  expectError([&] { dirs.field("Path"); }, err::kRecordDeleted);
  dirs.findNext("Path <> ''");
  EXPECT_EQ(text(dirs.field("Path")), "/a");
  dirs.deleteRecord();
  dirs.moveNext();
  EXPECT_EQ(text(dirs.field("Path")), "/c");
  dirs.deleteRecord();  // the last row: the next move reaches EOF
  dirs.moveNext();
  EXPECT_TRUE(dirs.eof());
  dirs.movePrevious();
  EXPECT_EQ(text(dirs.field("Path")), "/a");
  EXPECT_EQ(dumpFile(path_)["Directories"].size(), 1u);
  // Another recordset still counts the rows, reads them as deleted, and
  // finding skips them.
  EXPECT_EQ(other.recordCount(), 4);
  other.moveLast();
  expectError([&] { other.edit(); }, err::kRecordDeleted);
  other.findPrevious("Path <> ''");
  EXPECT_EQ(text(other.field("Path")), "/a");
}

TEST_F(RecordsetTest, KeysPast32767OverflowInTheFormsNotInTheEngine) {
  const int32_t a = addDirectory("/maps/a");
  Recordset rs = db_.openRecordset("select * from Directories");
  EXPECT_EQ(listEntries(rs, "path", "DIRID"),
            (std::vector<ListEntry>{{"/maps/a", static_cast<int16_t>(a)}}));
  db_.close();
  {
    auto db = jet::Database::openFile(path_, true);
    db->insertRow(db->table("Directories"), {32767, std::string("/last")});
    db->flush();
  }
  db_.open(path_);
  Recordset dirs = db_.openRecordset("select * from Directories");
  dirs.addNew();
  EXPECT_EQ(dirs.field("dirId"), jet::Value(32768));
  dirs.update();
  const ErrorList before = db_.errors();
  expectError([&] { listEntries(dirs, "Path", "dirId"); }, err::kOverflow);
  EXPECT_EQ(db_.errors(), before) << "the program's own error is no engine error";
}

TEST_F(RecordsetTest, DistinctAndJoinsAreReadOnlyAndBounded) {
  const int32_t d1 = addDirectory("/1"), d2 = addDirectory("/2");
  for (jet::Value csf : {jet::Value(2), jet::Value(1), jet::Value(), jet::Value(2)})
    add("Maps", {{"Name", std::string("m.dgn")},
                 {"dirId", csf == jet::Value(1) ? d2 : d1},
                 {"csfid", csf}});
  Recordset distinct = db_.openRecordset("select distinct csfid from maps");
  ASSERT_EQ(distinct.recordCount(), 3);
  EXPECT_TRUE(jet::isNull(distinct.field("CSFID")));
  distinct.moveLast();
  EXPECT_EQ(distinct.field("csfid"), jet::Value(2));
  // A refused change is 3027, whatever the read-only shape.
  expectError([&] { distinct.addNew(); }, err::kReadOnly);

  Recordset domains = db_.openRecordset(
      "select FeatureDefAttr.AttrId, TableName, Name, GDOType, DomainType from FeatureDefAttr, "
      "GraphicAttributes, DomainTypes where FeatureDefAttr.attrid = GraphicAttributes.attrid and "
      "FeatureDefAttr.DomainTypeId = DomainTypes.DomainTypeId");
  ASSERT_EQ(domains.recordCount(), static_cast<long>(dumpFile(path_)["FeatureDefAttr"].size()));
  domains.findFirst("Name = 'Level'");
  EXPECT_EQ(text(domains.field("DomainType")), "Range");
  expectError([&] { domains.edit(); }, err::kReadOnly);
  expectError([&] { db_.openRecordset("select AttrId from FeatureDefAttr, GraphicAttributes"); },
              err::kAmbiguousField);

  // An equality is looked up, anything else tested row by row: same rows,
  // same order.
  auto rows = [&](const std::string& where) {
    std::vector<std::string> out;
    Recordset rs =
        db_.openRecordset("select Path, csfid from Directories d, Maps m where " + where);
    for (; !rs.eof(); rs.moveNext())
      out.push_back(text(rs.field("Path")) + " " + (jet::isNull(rs.field("csfid")) ? "-" : "x"));
    return out;
  };
  const std::vector<std::string> joined = rows("m.dirId = d.dirId");
  EXPECT_EQ(joined, (std::vector<std::string>{"/1 x", "/1 -", "/1 x", "/2 x"}));
  EXPECT_EQ(rows("NOT (m.dirId <> d.dirId)"), joined);
  EXPECT_EQ(rows("d.dirId = m.dirId and m.csfid >= 1"), rows("m.csfid >= 1 and d.dirId = m.dirId"));
  // 24 copies of a table of two rows: 16 million rows, refused before they
  // fill the memory.
  std::string copies = "select * from Directories";
  for (int i = 1; i < 24; ++i) copies += ", Directories d" + std::to_string(i);
  expectError([&] { db_.openRecordset(copies); }, err::kSystemResourceExceeded);
}

// The values of `field` in the rows each condition selects, which must be
// those of the same condition hidden from the planner by NOT (NOT ...), read
// row by row; returns how many rows each selects.
std::vector<size_t> seekedAsScanned(SchemaDatabase& db, const std::string& table,
                                    const std::string& field,
                                    const std::vector<std::string>& conditions) {
  auto values = [&](const std::string& where) {
    std::vector<jet::Value> out;
    for (Recordset rs = db.openRecordset("select * from " + table + " where " + where); !rs.eof();
         rs.moveNext())
      out.push_back(rs.field(field));
    return out;
  };
  std::vector<size_t> counts;
  for (const std::string& cond : conditions) {
    const std::vector<jet::Value> seeked = values(cond);
    EXPECT_EQ(seeked, values("NOT (NOT (" + cond + "))")) << cond;
    counts.push_back(seeked.size());
  }
  return counts;
}

TEST_F(RecordsetTest, FindFirstThroughAnIndexFindsWhatAScanFinds) {
  std::vector<int32_t> dirs;
  for (int d = 0; d < 4; ++d) dirs.push_back(addDirectory("/data/d" + std::to_string(d)));
  Recordset maps = db_.openRecordset("Select * from [Maps]");
  for (int i = 0; i < 60; ++i) {
    maps.addNew();
    maps.setField("Name", "m" + std::to_string(i) + ".dgn");
    maps.setField("dirId", dirs[static_cast<size_t>(i * 7 % 4)]);
    maps.update();
  }
  Recordset other = db_.openRecordset("Select * from [Maps]");
  // "dirId = N" goes through the index on dirId, "NOT (dirId <> N)" reads
  // every row: both land on the same row.
  auto agree = [&](Recordset& rs) {
    for (int32_t d : dirs)
      for (const std::string& extra : {std::string(), std::string(" and Name = 'M13.DGN'")}) {
        rs.findFirst("dirId = " + std::to_string(d) + extra);
        const jet::Value indexed = rs.noMatch() ? jet::Value() : rs.field("mapId");
        rs.findFirst("NOT (dirId <> " + std::to_string(d) + ")" + extra);
        EXPECT_EQ(rs.noMatch() ? jet::Value() : rs.field("mapId"), indexed) << d << extra;
      }
  };
  agree(other);
  maps.moveFirst();
  for (int i = 0; !maps.eof(); ++i, maps.moveNext()) {
    if (i % 5 == 0) {
      maps.edit();
      maps.setField("dirId", dirs[0]);
      maps.update();
    } else if (i % 7 == 0) {
      maps.deleteRecord();
    }
  }
  agree(other);
  agree(maps);
  // Bounds on a number column go through its index as well.
  EXPECT_EQ(seekedAsScanned(db_, "Maps", "mapId",
                            {"mapId > 20 and mapId <= 45", "mapId < 30.5", "30 >= mapId",
                             "mapId > 1e300", "mapId >= -5 and dirId < " + std::to_string(dirs[2]),
                             "dirId >= " + std::to_string(dirs[1]) + " and Name > 'm3'"})[0],
            22u);  // 25, three of them deleted
  expectError([&] { other.findFirst("dirId = 'x'"); }, err::kTypeMismatchInCriteria);
  other.findFirst("dirId = 1e300");  // no Long holds it: simply no match
  EXPECT_TRUE(other.noMatch());
}

// A result read forward (csdtool's query) is the dynaset's, whether the rows
// come from a scan, an index or a read-only result; a condition that fails
// only on some rows fails before any row is handed on.
TEST_F(RecordsetTest, AForwardReadHandsOnTheDynasetsRows) {
  const int32_t dir = addDirectory("/data/f"), other = addDirectory("/data/g");
  int32_t first = 0;
  for (int i = 0; i < 40; ++i) {
    const int32_t key = add("Maps", {{"Name", "f" + std::to_string(i) + ".dgn"},
                                     {"dirId", i % 3 ? dir : other},
                                     {"csfid", i % 4 ? jet::Value(i % 4) : jet::Value()}});
    if (i == 0) first = key;
  }
  using Rows = std::vector<std::vector<jet::Value>>;
  for (const std::string& sql : std::vector<std::string>{
           "select * from Maps", "select Name, mapId, Name from Maps where Name > 'f2'",
           "select * from Maps m where m.dirId = " + std::to_string(other),
           "select csfid, mapId from Maps where mapId > " + std::to_string(first + 5) +
               " and mapId <= " + std::to_string(first + 20),
           "select distinct csfid from Maps"}) {
    Recordset rs = db_.openRecordset(sql);
    Rows dynaset;
    for (; !rs.eof(); rs.moveNext()) dynaset.push_back(rs.values());
    ASSERT_GT(dynaset.size(), 2u) << sql;
    std::vector<std::string> names;
    Rows forward;
    db_.readForward(
        sql, [&](const std::vector<std::string>& n) { names = n; },
        [&](const std::vector<jet::Value>& row) { forward.push_back(row); });
    EXPECT_EQ(names, rs.fieldNames()) << sql;
    EXPECT_EQ(forward, dynaset) << sql;
  }
  // The first ten rows match before a Name is taken for a truth value.
  bool named = false;
  expectError(
      [&] {
        db_.readForward(
            "select * from Maps where mapId < " + std::to_string(first + 10) + " or Name",
            [&](const std::vector<std::string>&) { named = true; },
            [](const std::vector<jet::Value>&) {});
      },
      err::kTypeMismatchInCriteria);
  EXPECT_FALSE(named);
}

// Texts whose index keys and whose order in a comparison differ in small
// ways: trailing spaces (left out of keys), hyphens and apostrophes (weighed
// last), ligatures, accents, the ideographic space, no-break space, tab,
// control characters and the euro sign (sorted as one in Access 97).
const std::vector<std::string> kTrickyTexts = {
    "a \u20AC", "a\x01",  "a \x01b",  "a\x02 ",   "",       " ",   "a",        "a ",
    "a  ",      "a-",     "a -",      "a-b",      "ab",     "ab ", "ab-",      "ab'",
    "aB",       "Ab c",   "ab\u3000", "a\u3000b", "a`",     "a`b", "a\u00A0b", "a\tb",
    "\u00E6",   "ae",     "af",       "ad",       "\u00DF", "ss",  "st",       "sr",
    "s",        "\u00E9", "e",        "f",        "b",      "ba",  "\u00C5",   "z",
    "~",        "-",      "--a",      "'",        "9",      "10",  "ss ",      "\u00DF "};

// Index shortcuts on tables made here find what a scan finds:
// - the first column of an index over two columns holds no key of its own;
// - Date and Double columns are sought for equalities and bounds alike, and
//   -0, whose key differs from 0's, is found with 0.
TEST_F(RecordsetTest, IndexShortcutsFindWhatAScanFinds) {
  const std::string path = (dir_ / "made.mdb").string();
  {
    auto store = std::make_unique<jet::MemoryStore>(std::vector<uint8_t>{});
    const jet::MemoryStore& bytes = *store;
    auto made = jet::createDatabase(std::move(store));
    const jet::TableDef& maps = jet::createTable(
        *made, {"Maps",
                {{"Name", jet::coltype::kText, 20}, {"dirId", jet::coltype::kLong}},
                {{"NameDir", {"Name", "dirId"}, {}}}});
    for (int d = 1; d <= 3; ++d) made->insertRow(maps, {std::string("b.dgn"), int32_t{d}});
    const jet::TableDef& stamps = jet::createTable(
        *made, {"Stamps",
                {{"At", jet::coltype::kDateTime}, {"Level", jet::coltype::kDouble}},
                {{"At", {"At"}, {}}, {"Level", {"Level"}, {}}}});
    for (double v : {-2.5, -0.0, 0.0, -0.0, 1e-300, 3.0, 45000.25, 45000.75, 46000.0})
      made->insertRow(stamps, {jet::DateTime{v}, v});
    made->flush();
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.bytes().data()),
               static_cast<std::streamsize>(bytes.bytes().size()));
  }
  SchemaDatabase db;
  db.open(path);
  Recordset rs = db.openRecordset("select * from Maps");
  rs.findFirst("Name = 'B.DGN'");
  ASSERT_FALSE(rs.noMatch());
  EXPECT_EQ(rs.field("dirId"), jet::Value(1));
  rs.findNext("Name = 'b.dgn' and dirId = 3");
  EXPECT_EQ(rs.field("dirId"), jet::Value(3));

  EXPECT_EQ(seekedAsScanned(db, "Stamps", "Level",
                            {"At = 0", "Level = 0", "Level = -0", "At >= 0", "Level <= 0", "At < 0",
                             "Level > 0", "At >= 44000 and At < 45000.75", "At > 45000.5",
                             "0 >= At", "Level >= -3 and Level < 1"})[0],
            3u);
}

// Bounds on an indexed Text column find what a scan finds, whatever the
// texts, in a Jet 4 file and in a Jet 3 one (whose text is compared in
// Access 97's order, that of its indexes).
TEST_F(RecordsetTest, TextBoundsThroughAnIndexFindWhatAScanFinds) {
  std::vector<std::string> bounds = {"Label > 'a' and Label <= 'b'",
                                     "'s' > Label and Label >= 'ab'"};
  for (const std::string& b : kTrickyTexts) {
    std::string quoted;
    for (char c : b) quoted += c == '\'' ? "''" : std::string(1, c);
    for (const char* op : {" < '", " <= '", " > '", " >= '"})
      bounds.push_back("Label" + std::string(op) + quoted + "'");
  }
  db_.close();
  for (const char* file : {"testV2000.mdb", "testV1997.mdb"}) {
    const std::string path = corpusCopy(file);
    {
      auto made = jet::Database::openFile(path, true);
      const jet::TableDef& labels = jet::createTable(
          *made, {"Labels", {{"Label", jet::coltype::kText, 30}}, {{"Label", {"Label"}, {}}}});
      made->insertRow(labels, {jet::Value()});
      for (const std::string& l : kTrickyTexts) {
        try {
          made->insertRow(labels, {l});
        } catch (const jet::JetError&) {
          // Jet 3 holds Windows-1252 only.
        }
      }
      // A text bound narrows the rows an index gives.
      EXPECT_LT(schema::indexedRows(*made, labels, "", *parseCriteria("Label > 'f'"))
                    .value_or(std::vector<jet::RowId>(100))
                    .size(),
                kTrickyTexts.size() / 2)
          << file;
      made->flush();
    }
    SchemaDatabase db;
    db.open(path);
    seekedAsScanned(db, "Labels", "Label", bounds);
  }
}

TEST_F(RecordsetTest, CorpusFilesReadAsTheEngineReadsThem) {
  db_.close();
  const std::string path = corpusCopy("testV2000.mdb");
  db_.open(path);
  Recordset rs = db_.openRecordset("select * from table1 where c = 2");
  ASSERT_EQ(rs.recordCount(), 1);
  EXPECT_EQ(text(rs.field("a")), "abcdefg");
  rs.edit();
  rs.setField("B", std::string("changed"));
  rs.update();
  Recordset all = db_.openRecordset("select * from Table1");
  all.addNew();
  expectError([&] { all.update(); }, err::kIndexNull);  // A is the primary key
  db_.close();
  EXPECT_EQ(text(dumpFile(path)["Table1"][0][1]), "changed");
  EXPECT_TRUE(faultsOnDisk(path).empty());

  // A Jet 3 file is edited, compacted and kept as Jet 3; a character its
  // code page lacks is refused by name.
  const std::string jet3 = corpusCopy("testV1997.mdb");
  db_.open(jet3);
  Recordset old = db_.openRecordset("select * from Table1");
  EXPECT_EQ(old.recordCount(), 2);
  old.addNew();
  old.setField("A", std::string("new row"));
  old.setField("B", std::string("caf\u00E9 \u20AC"));
  old.update();
  old.findFirst("A = 'abcdefg'");
  old.edit();
  try {
    old.setField("B", std::string("\u03A9"));
    ADD_FAILURE() << "Omega taken for a Jet 3 file";
  } catch (const EngineError& e) {
    EXPECT_EQ(e.number(), err::kConversionError);
    EXPECT_NE(std::string(e.what()).find("U+03A9"), std::string::npos) << e.what();
  }
  old.cancelUpdate();
  old.deleteRecord();
  db_.compact();
  db_.close();
  EXPECT_EQ(jet::Database::openFile(jet3)->format().version, jet::Version::kJet3);
  EXPECT_TRUE(faultsOnDisk(jet3).empty());
  const auto rows = dumpFile(jet3)["Table1"];
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(text(rows[1][1]), "caf\u00E9 \u20AC");
}

// A row is decoded column by column as its fields are read: a damaged long
// value fails the field that holds it, not the row's other fields or a find
// on them.
TEST_F(RecordsetTest, ADamagedMemoFailsItsOwnFieldOnly) {
  db_.close();
  {
    auto db = jet::Database::openFile(path_, true);
    const jet::TableDef& t = jet::createTable(
        *db, {"Notes", {{"Title", jet::coltype::kText, 20}, {"Body", jet::coltype::kMemo}}, {}});
    db->insertRow(t, {std::string("roads"), std::string(300, 'x')});
    db->flush();
  }
  {
    auto db = jet::Database::openFile(path_, true);
    const jet::Format& f = db->format();
    for (uint32_t n = 2; n < db->pageCount(); ++n) {
      jet::Bytes pg = db->page(n);
      if (pg[0] == jet::page::kData && std::memcmp(&pg[f.dataTdefOffset], "LVAL", 4) == 0)
        jet::put16le(db->mutablePage(n) + f.dataRowCountOffset, 0);  // its rows gone
    }
    db->flush();
  }
  db_.open(path_);
  Recordset rs = db_.openRecordset("select * from Notes");
  rs.findFirst("Title = 'roads'");
  ASSERT_FALSE(rs.noMatch());
  EXPECT_EQ(rs.field("Title"), jet::Value(std::string("roads")));
  expectError([&] { rs.field("Body"); }, err::kUnrecognizedFormat);
  expectError([&] { rs.values(); }, err::kUnrecognizedFormat);
}

TEST_F(RecordsetTest, CompactShrinksTheFileKeepsItsRowsAndEndsItsRecordsets) {
  db_.close();
  const auto empty = std::filesystem::file_size(path_);
  db_.open(path_);
  db_.beginTrans();
  const int32_t first = addDirectory("/d0");
  for (int i = 1; i < 3000; ++i) addDirectory("/d" + std::to_string(i));
  db_.commitTrans();
  Recordset rs = db_.openRecordset("select * from Directories where Path <> '/d7'");
  db_.beginTrans();
  for (rs.moveFirst(); !rs.eof(); rs.moveNext()) rs.deleteRecord();
  expectError([&] { db_.compact(); }, err::kInvalidOperation);
  db_.commitTrans();
  const Dump before = dumpFile(path_);

  db_.compact();
  EXPECT_LE(std::filesystem::file_size(path_), empty + 4096);  // the one row left needs a page
  EXPECT_EQ(dumpFile(path_), before);
  EXPECT_TRUE(faultsOnDisk(path_).empty());
  EXPECT_TRUE(std::filesystem::exists(DocumentLock::lockFilePath(path_)));
  expectError([&] { rs.moveFirst(); }, err::kObjectInvalid);
  // The counter goes on where it was.
  EXPECT_EQ(addDirectory("/after"), first + 3000);

  // A file it must not compact (here cut short behind its back) is left as
  // it is, and the database stays open.
  db_.close();
  std::filesystem::resize_file(path_, std::filesystem::file_size(path_) - 100);
  const auto cut = std::filesystem::file_size(path_);
  db_.open(path_);
  expectError([&] { db_.compact(); }, err::kUnrecognizedFormat);
  EXPECT_EQ(std::filesystem::file_size(path_), cut);
  EXPECT_TRUE(db_.isOpen());
  EXPECT_EQ(db_.openRecordset("select * from Directories").recordCount(), 2);
}

// A second writer is refused with 3045 naming the holder while the holder
// lives, and never blocked by the lock file of one that was killed.
TEST_F(RecordsetTest, TheLockKeepsOtherWritersOutButNeverADeadOne) {
  db_.close();
  const std::string lock = DocumentLock::lockFilePath(path_);
  EXPECT_EQ(lock, (dir_ / "work.ldb").string());
  auto holderIn = [](const std::string& file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  db_.open(path_);
  const std::string me = "pid=" + std::to_string(::getpid());
  EXPECT_NE(holderIn(lock).find(me), std::string::npos);
  SchemaDatabase other;
  expectError([&] { other.open(path_); }, err::kFileInUse);
  EXPECT_NE(other.errors().at(0).description.find(LockHolder::self().describe()),
            std::string::npos);
  db_.close();
  EXPECT_FALSE(std::filesystem::exists(lock));

  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    DocumentLock held = DocumentLock::acquire(path_, LockHolder::self());
    (void)!::write(ready[1], "x", 1);
    ::pause();
  }
  char byte;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  expectError([&] { other.open(path_); }, err::kFileInUse);
  EXPECT_NE(other.errors().at(0).description.find("process " + std::to_string(child)),
            std::string::npos);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
  ASSERT_TRUE(std::filesystem::exists(lock)) << "a killed holder leaves its lock file";
  other.open(path_);
  EXPECT_NE(holderIn(lock).find(me), std::string::npos) << "taken over";
  // Reading needs no lock, and writes nothing.
  SchemaDatabase reader;
  reader.openReadOnly(path_);
  Recordset rs = reader.openRecordset("select * from Directories");
  expectError([&] { rs.addNew(); }, err::kReadOnly);
}

TEST_F(RecordsetTest, OpenFailuresNameTheFileAndLeaveNoLock) {
  db_.close();
  SchemaDatabase db;
  expectError([&] { db.open((dir_ / "missing.csd").string()); }, err::kFileNotFound);
  expectError([&] { db.open((dir_ / "no-dir" / "x.csd").string()); }, err::kInvalidPath);
  const std::string junk = (dir_ / "junk.csd").string();
  std::ofstream(junk) << std::string(8192, 'x');
  expectError([&] { db.open(junk); }, err::kUnrecognizedFormat);
  EXPECT_FALSE(std::filesystem::exists(DocumentLock::lockFilePath(junk)));
  EXPECT_NE(db.errors().at(0).description.find(junk), std::string::npos);
  db.open(path_);
  expectError([&] { db.open(path_); }, err::kInvalidOperation);
  EXPECT_TRUE(db.isOpen());
}

TEST_F(RecordsetTest, TransactionsRollBackEveryTableAndKeepTheirNumbers) {
  expectError([&] { db_.commitTrans(); }, err::kNoTransaction);
  int32_t dir = addDirectory("/maps");
  add("Maps", {{"Name", std::string("a.dgn")}, {"dirId", dir}});
  EXPECT_EQ(dumpFile(path_)["Maps"].size(), 1u) << "on disk at once outside a transaction";
  const Dump before = dumpFile(path_);

  db_.beginTrans();
  int32_t taken = add("Features", {{"Name", std::string("Roads")}});
  add("FeatureMaps", {{"feaId", taken}, {"mapId", 1}});
  db_.beginTrans();
  add("LevelValues", {{"feaId", taken}, {"minVal", 1}, {"maxVal", 9}});
  Recordset maps = db_.openRecordset("select * from Maps");
  maps.edit();
  maps.setField("Name", std::string("renamed.dgn"));
  maps.update();
  db_.commitTrans();
  Recordset dirs = db_.openRecordset("select * from Directories");
  dirs.deleteRecord();
  EXPECT_EQ(dumpFile(path_), before) << "nothing reaches the disk inside a transaction";
  Recordset features = db_.openRecordset("select * from Features");
  features.moveLast();
  db_.rollback();
  EXPECT_EQ(db_.transactionLevel(), 0);
  EXPECT_EQ(dumpFile(path_), before);
  // Numbers handed out in the undone stretch stay used, as in Jet; a row
  // added there reads as deleted, even once another takes its place.
  EXPECT_GT(add("Features", {{"Name", std::string("Rivers")}}), taken);
  expectError([&] { features.field("Name"); }, err::kRecordDeleted);

  // An inner rollback undoes only its own part; the outer commit writes the rest.
  db_.beginTrans();
  addDirectory("/kept");
  db_.beginTrans();
  addDirectory("/dropped");
  db_.rollback();
  db_.commitTrans();
  auto rows = dumpFile(path_)["Directories"];
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[1][1], jet::Value(std::string("/kept")));
  EXPECT_TRUE(faultsOnDisk(path_).empty());

  // Close rolls back and ends the recordsets of its session.
  db_.beginTrans();
  addDirectory("/never");
  db_.close();
  EXPECT_EQ(dumpFile(path_)["Directories"].size(), 2u);
  expectError([&] { dirs.moveFirst(); }, err::kObjectInvalid);
  db_.open(path_);
  expectError([&] { dirs.field("Path"); }, err::kObjectInvalid);
}

}  // namespace
