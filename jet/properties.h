// The properties Access keeps for a table and its columns in the catalog
// (MSysObjects.LvProp), and the column rules the engine enforces from them:
// Required, AllowZeroLength and a literal DefaultValue.
//
// A property blob that cannot be parsed raises JetError(kCorrupt); a value
// of a type this engine does not decode is kept as its raw bytes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "jet/bytes.h"
#include "jet/format.h"
#include "jet/table_def.h"
#include "jet/value.h"

namespace jet {

struct Property {
  std::string name;
  uint8_t type = 0;  // a coltype:: code
  Value value;
};

// The properties of one object ("" names the object itself) or of one of
// its columns.
struct PropertyGroup {
  std::string name;
  std::vector<Property> properties;
  const Property* find(std::string_view name) const;  // ignores case
};

// Parses a property blob: "KKD\0" (Jet 3) or "MR2\0" (Jet 4), then blocks.
// An empty blob has no groups.
std::vector<PropertyGroup> parseProperties(const Format& fmt, Bytes blob, uint16_t codePage);

// What the engine checks of a column on every insert and update.
struct ColumnRules {
  bool required = false;        // Null refused (Jet's error 3314)
  bool allowZeroLength = true;  // "" refused in Text and Memo when false (3315)
  // The column's DefaultValue when it is a plain literal (a number, a
  // quoted text, True / False / Yes / No), already converted to the column's
  // kind; expressions such as Now() are not evaluated and give no default.
  std::optional<Value> defaultValue;
};

// The rules of every column, in TableDef::columns order, from the table's
// property groups.
std::vector<ColumnRules> columnRules(const Format& fmt, const TableDef& t,
                                     const std::vector<PropertyGroup>& groups);

// A DefaultValue text as a literal value, or nullopt for anything else.
std::optional<Value> parseLiteral(std::string_view text);

}  // namespace jet
