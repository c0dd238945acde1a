// libFuzzer target over the SQL and the FindFirst criteria the data layer
// takes: the input up to its first newline is a query, the rest a
// criterion. Both run against a small database of three tables made once
// at start-up (text, numbers, dates, Nulls, a key two tables share), so the
// parser, the checks, the evaluator, the join and the index shortcut of
// FindFirst all see what they parse. A condition on Directories must give
// the same rows hidden from the planner by NOT (NOT ...) as it does when
// the planner may seek through an index.
//
// Every refusal is an EngineError; anything else leaving the data layer,
// a sanitizer report, a stack overflow or a hang is a fault. Parsed
// criteria must also survive being written out and read back.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "jet/create.h"
#include "jet/page_store.h"
#include "schema/engine_error.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "schema/sql.h"

namespace {

schema::SchemaDatabase* database = nullptr;

void makeDatabase(const std::string& path) {
  using jet::coltype::kBoolean, jet::coltype::kDateTime, jet::coltype::kDouble, jet::coltype::kLong,
      jet::coltype::kText;
  auto store = std::make_unique<jet::MemoryStore>(std::vector<uint8_t>{});
  const jet::MemoryStore& bytes = *store;
  auto db = jet::createDatabase(std::move(store));
  const jet::TableDef& dirs =
      jet::createTable(*db, {"Directories",
                             {{"dirId", kLong, 0, true}, {"Path", kText, 50}},
                             {{"PrimaryKey", {"dirId"}, {}, true}, {"Path", {"Path"}, {}}}});
  const jet::TableDef& maps = jet::createTable(*db, {"Maps",
                                                     {{"mapId", kLong, 0, true},
                                                      {"Name", kText, 50},
                                                      {"dirId", kLong},
                                                      {"Scale", kDouble},
                                                      {"Made", kDateTime},
                                                      {"Done", kBoolean}},
                                                     {{"PrimaryKey", {"mapId"}, {}, true},
                                                      {"dirId", {"dirId"}, {}},
                                                      {"NameDir", {"Name", "dirId"}, {}}}});
  const jet::TableDef& params =
      jet::createTable(*db, {"CADParameters", {{"Name", kText, 50}, {"Value", kText, 255}}, {}});
  for (int d = 1; d <= 4; ++d)
    db->insertRow(dirs, {std::monostate{}, "/maps/" + std::to_string(d)});
  // Texts whose keys and comparisons differ in small ways, for the index on
  // Path to be sought with.
  for (const char* p :
       {"",   " ",      "a",  "a ", "a-",     "a -", "ab",   "ab ",     "ab-", "\u00E6",
        "ae", "\u00DF", "ss", "s",  "\u00E9", "e",   "a\tb", "a\u3000", "a`",  "/maps/2 "})
    db->insertRow(dirs, {std::monostate{}, std::string(p)});
  db->insertRow(dirs, {std::monostate{}, std::monostate{}});
  const char* names[] = {"a.dgn", "B.dgn", "c-d.dwg", "Ä.dgn", "", "e'f.dgn"};
  for (int m = 0; m < 12; ++m) {
    jet::Value scale = m % 5 == 0 ? jet::Value(std::monostate{}) : jet::Value(m * 0.25 - 1);
    db->insertRow(maps, {std::monostate{}, std::string(names[m % 6]), int32_t{m % 5}, scale,
                         jet::DateTime{36526.5 + m}, m % 2 == 0});
  }
  db->insertRow(params, {std::string("Version"), std::string("1.0")});
  db->insertRow(params, {std::string("INI"), std::monostate{}});
  db->flush();
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.bytes().data()),
             static_cast<std::streamsize>(bytes.bytes().size()));
}

void drain(schema::Recordset& rs) {
  const std::vector<std::string> names = rs.fieldNames();
  for (; !rs.eof(); rs.moveNext())
    for (const std::string& n : names) rs.field(n);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static std::string path = (std::filesystem::temp_directory_path() /
                             ("vantor-sql-fuzz-" + std::to_string(::getpid()) + ".mdb"))
                                .string();
  makeDatabase(path);
  static schema::SchemaDatabase db;
  db.openReadOnly(path);
  database = &db;
  std::atexit([] { std::filesystem::remove(path); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t newline = input.find('\n');
  const std::string_view sql = input.substr(0, newline);
  const std::string_view criteria =
      newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);
  try {
    schema::Recordset rs = database->openRecordset(sql);
    drain(rs);
  } catch (const schema::EngineError&) {
  }
  try {
    schema::ExprPtr parsed = schema::parseCriteria(criteria);
    const std::string text = schema::toText(*parsed);
    try {
      // Written out fully parenthesised, a condition reads back the same,
      // unless the parentheses take it past the nesting bound.
      if (schema::toText(*schema::parseCriteria(text)) != text) __builtin_trap();
    } catch (const schema::EngineError& e) {
      if (e.number() != schema::err::kQueryTooComplex) __builtin_trap();
    }
  } catch (const schema::EngineError&) {
  }
  auto rows = [](const std::string& sql) {
    std::vector<std::vector<jet::Value>> out;
    schema::Recordset rs = database->openRecordset(sql);
    for (; !rs.eof(); rs.moveNext()) out.push_back(rs.values());
    return out;
  };
  try {
    const std::string where = "select * from Directories where ";
    const auto sought = rows(where + std::string(criteria));
    if (sought != rows(where + "not (not (" + std::string(criteria) + "))")) __builtin_trap();
  } catch (const schema::EngineError&) {
  }
  for (const char* table : {"Maps", "CADParameters"}) {
    try {
      schema::Recordset rs = database->openRecordset(std::string("select * from ") + table);
      rs.findFirst(criteria);
      if (!rs.noMatch()) rs.findNext(criteria);
      rs.findLast(criteria);
    } catch (const schema::EngineError&) {
    }
  }
  return 0;
}
