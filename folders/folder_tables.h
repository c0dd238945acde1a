// The part of the open document the folder features work on: the database
// and three of the main window's shared whole-table recordsets, which the
// window owns and the features borrow while the document is open; and the
// few row operations they all use.
#pragma once

#include <QString>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "jet/value.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace folders {

struct FolderTables {
  schema::SchemaDatabase* database = nullptr;
  schema::Recordset* directories = nullptr;
  schema::Recordset* maps = nullptr;
  schema::Recordset* coordinateSystemFiles = nullptr;
};

// A text field of the current row; Null reads as "".
QString textField(const schema::Recordset& rs, std::string_view field);
// A Long field of the current row; nullopt for Null.
std::optional<int32_t> longField(const schema::Recordset& rs, std::string_view field);
// A key field of the current row as the forms hold it (6 "Overflow" above
// 32767); nullopt for Null.
std::optional<int16_t> keyField(const schema::Recordset& rs, std::string_view field);

// Begins a row, sets fields, reads the AutoNumber `key` and writes the row.
// The key is taken into 16 bits before writing, so a key the forms cannot
// hold writes nothing; on any failure the pending row is dropped.
int16_t addRow(schema::Recordset& rs, std::string_view key,
               std::initializer_list<std::pair<std::string_view, jet::Value>> fields);
// Changes one field of the current row and writes it; a failed write drops
// the pending change.
void changeField(schema::Recordset& rs, std::string_view field, jet::Value value);

// The refusal of a deletion, naming what still uses the row: failure, ". In
// use by", " maps" when maps do, " and" when both do, " " + the other user
// (a numbered text) when it does, and ".".
QString inUseMessage(const QString& failure, bool byMaps, bool byOther, int otherText);

inline jet::Value textValue(const QString& s) { return s.toStdString(); }
// A criterion "field = n", the way the forms build them.
inline std::string keyCriterion(std::string_view field, int n) {
  return std::string(field) + " = " + std::to_string(n);
}

}  // namespace folders
