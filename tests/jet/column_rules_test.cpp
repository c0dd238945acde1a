// The rules the real engine keeps on every write, read from the columns'
// properties in Access-made files of both versions, each refusal with Jet's
// number and words and the file left as it was; the literal defaults of a new
// row; the values csdtool reads from its command line; and `check` on keys
// this engine cannot rebuild.
#include <gtest/gtest.h>

#include <functional>

#include "jet/check.h"
#include "jet/database.h"
#include "jet/error.h"
#include "tests/jet/test_util.h"
#include "tools/csdtool/value_text.h"

using namespace jet;
using jettest::corpusPath;
using jettest::openBytes;
using jettest::readFile;

namespace {

using Row = std::vector<Value>;

size_t col(const TableDef& t, const char* name) {
  return static_cast<size_t>(t.findColumn(name) - t.columns.data());
}

RowId firstRow(Database& db, const TableDef& t) {
  RowId first{};
  db.scanRows(t, [&](RowId id, Bytes) { return first = id, false; });
  return first;
}

TEST(ColumnRules, EachRefusalCarriesJetsNumberAndChangesNothing) {
  struct Case {
    const char* file;
    const char* table;
    std::function<void(Database&, const TableDef&)> write;
    int number;  // 0: refused without one of Jet's numbers
    const char* words;
  };
  const Case cases[] = {
      {"fixedTextTestV2000.mdb", "users",
       [](Database& db, const TableDef& t) {
         Row r = db.decodeRow(t, *db.rowData(firstRow(db, t)));
         r[col(t, "i_user_id")] = 999;
         r[col(t, "c_user_login")] = std::monostate{};
         db.insertRow(t, r);
       },
       kRequiredError, "The field 'users.c_user_login' cannot contain a Null value"},
      {"testV2000.mdb", "Table1",
       [](Database& db, const TableDef& t) {
         Row r = db.decodeRow(t, *db.rowData(firstRow(db, t)));
         r[col(t, "B")] = std::string();
         db.updateRow(t, firstRow(db, t), r);
       },
       kZeroLengthError, "Field 'Table1.B' cannot be a zero-length string."},
      {"testIndexCodesV1997.mdb", "Table1",
       [](Database& db, const TableDef& t) {
         db.insertRow(t, {std::string("new"), std::string()});
       },
       kZeroLengthError, "Field 'Table1.data' cannot be a zero-length string."},
      {"testIndexCodesV1997.mdb", "Table11",
       [](Database& db, const TableDef& t) {
         Row r = db.decodeRow(t, *db.rowData(firstRow(db, t)));
         r[col(t, "id")] = std::get<int32_t>(r[col(t, "id")]) + 100;
         db.updateRow(t, firstRow(db, t), r);
       },
       kNotUpdatableError, "Field cannot be updated."},
      {"testV1997.mdb", "Table1",
       [](Database& db, const TableDef& t) {
         Row r(t.columns.size());
         r[col(t, "A")] = std::string("\xE3\x81\x82");  // U+3042
         db.insertRow(t, r);
       },
       0, "character U+3042 cannot be stored in a Jet 3 file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.file) + " " + c.table);
    const std::vector<uint8_t> before = readFile(corpusPath(c.file));
    auto db = openBytes(before, c.file);
    try {
      c.write(*db, db->table(c.table));
      ADD_FAILURE() << "not refused";
    } catch (const JetError& e) {
      EXPECT_EQ(e.number(), c.number) << e.what();
      EXPECT_NE(std::string(e.what()).find(c.words), std::string::npos) << e.what();
      if (c.number) {
        EXPECT_EQ(e.jetText().rfind(c.words, 0), 0u) << e.jetText();
      }
    }
    db->flush();
    EXPECT_TRUE(static_cast<MemoryStore&>(db->store()).bytes() == before);
  }
}

TEST(ColumnRules, ANewRowStartsFromTheLiteralDefaults) {
  // compIndexTestV1997.mdb and indexTestV2000.mdb set DefaultValue 0 on their
  // number columns; nothing else has a default.
  for (const char* file : {"compIndexTestV1997.mdb", "indexTestV2000.mdb"}) {
    SCOPED_TRACE(file);
    auto db = openBytes(readFile(corpusPath(file)), file);
    const TableDef& t = db->table("Table1");
    Row defaults = db->defaultRow(t);
    for (size_t i = 0; i < t.columns.size(); ++i)
      EXPECT_EQ(defaults[i], t.columns[i].type == coltype::kLong ? Value(0) : Value())
          << t.columns[i].name;
  }
  struct Literal {
    const char* text;
    std::optional<Value> value;
  };
  const Literal literals[] = {
      {" -12 ", Value(-12)},
      {"2.5", Value(2.5)},
      {"\"a \"\"b\"\"\"", Value(std::string("a \"b\""))},
      {"'x'", Value(std::string("x"))},
      {"Yes", Value(true)},
      {"false", Value(false)},
      {"=Now()", std::nullopt},
      {"Date()", std::nullopt},
      {"0x10", std::nullopt},
      {"1.2.3", std::nullopt},
      {"\"open", std::nullopt},
      {"", std::nullopt},
      {"99999999999", Value(99999999999.0)},
  };
  for (const Literal& l : literals) EXPECT_EQ(parseLiteral(l.text), l.value) << l.text;
}

TEST(CommandLineValues, EachTypeReadsWhatItHoldsAndNothingElse) {
  struct Case {
    uint8_t type;
    const char* text;
    std::optional<Value> value;  // nullopt: refused
  };
  const Case cases[] = {
      {coltype::kCurrency, "-922337203685477.5808", Value(Currency{INT64_MIN})},
      {coltype::kCurrency, "922337203685477.5807", Value(Currency{INT64_MAX})},
      {coltype::kCurrency, "-922337203685477.5809", std::nullopt},
      {coltype::kCurrency, "922337203685477.5808", std::nullopt},
      {coltype::kDouble, "0x10", std::nullopt},
      {coltype::kDouble, "inf", std::nullopt},
      {coltype::kDouble, "nan", std::nullopt},
      {coltype::kDouble, "1e3", Value(1000.0)},
      {coltype::kDouble, "+.5", Value(0.5)},
      {coltype::kDouble, "-2.25", Value(-2.25)},
      {coltype::kDouble, "1,5", std::nullopt},
      {coltype::kLong, "0x10", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    ColumnDef column;
    column.name = "x";
    column.type = c.type;
    if (c.value) {
      EXPECT_EQ(csdtool::parseValue(column, c.text), *c.value);
    } else {
      EXPECT_THROW(csdtool::parseValue(column, c.text), std::invalid_argument);
    }
  }
}

TEST(CheckAccessFiles, AKeyThisEngineCannotBuildIsNoFaultButAMissingEntryIs) {
  // A row whose text holds a kana (whose General weights depend on its
  // neighbours, so the key builder refuses it) stands for a file Access
  // wrote with such a key: the entry cannot be rebuilt, and is not blamed.
  auto db = openBytes(readFile(corpusPath("testV2000.mdb")), "kana.mdb");
  const TableDef& t = db->table("Table1");
  Row r = db->decodeRow(t, *db->rowData(firstRow(*db, t)));
  r[col(t, "A")] = std::string(
      "\xE2\x82\xAC"
      "bc");  // "€bc": stored as UTF-16
  RowId id = db->insertRow(t, r);
  db->flush();
  std::vector<uint8_t> bytes = static_cast<MemoryStore&>(db->store()).bytes();
  const size_t pageStart = static_cast<size_t>(id.page) * 4096;
  bool patched = false;
  for (size_t i = pageStart; i + 1 < pageStart + 4096 && !patched; ++i)
    if (bytes[i] == 0xAC && bytes[i + 1] == 0x20)
      bytes[i] = 0x42, bytes[i + 1] = 0x30, patched = true;
  ASSERT_TRUE(patched);
  auto kana = openBytes(bytes, "kana.mdb");
  EXPECT_EQ(checkDatabase(*kana), std::vector<std::string>{});

  // The same entries pointing at a row that is gone are a fault all the same.
  bytes[static_cast<size_t>(id.page) * 4096 + 14 + 2 * id.row + 1] |= 0xC0;  // row deleted
  std::string faults;
  for (const std::string& f : checkDatabase(*openBytes(bytes, "kana.mdb"))) faults += f + "\n";
  EXPECT_NE(faults.find("index 1 ('B'): holds 3 entries, the rows make 2"), std::string::npos)
      << faults;
}

}  // namespace
