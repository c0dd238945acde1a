// LinkageOptions: the state behind the "Database Linkage Options" dialog,
// two grids of the same attributes, one for each kind of linkage row
// (GraphicToDbTableLink, GraphicToDbRowLink), and how they are read from and
// written back to KeysParameters.
//
// Promises:
// - load() lists the non-spatial graphic attributes in the recordset's
//   order, proposes each one's own name as its database scanner name, and
//   marks those with a row of the grid's kind, showing the row's name where
//   it has one. It writes nothing; on failure the object is left empty.
// - save() replaces both kinds' rows with the checked grid rows, all or
//   nothing (see rewriteKeysParameters); a name that is blank once trimmed
//   of spaces is stored as Null, any other name exactly as entered.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "linkage/keys_parameters.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace linkage {

class LinkageOptions {
 public:
  // One row of a grid, one listed attribute.
  struct Row {
    bool link = false;      // "Link"
    std::string name;       // "Graphic attribute name"
    std::string dbScaName;  // "Database scanner attribute name"
    int32_t attrId = 0;     // "Attribute ID"
    bool operator==(const Row&) const = default;
  };
  enum Grid { kTableLinks = 0, kRowLinks = 1 };
  static constexpr std::array<std::string_view, 2> kGridTypes = {kGraphicToDbTableLink,
                                                                 kGraphicToDbRowLink};

  void load(schema::SchemaDatabase& db, schema::Recordset& graphicAttributes);
  void save(schema::SchemaDatabase& db) const;

  std::vector<Row>& rows(Grid grid) { return grids_[grid]; }
  const std::vector<Row>& rows(Grid grid) const { return grids_[grid]; }
  // The declared size of DbScaName, the longest name that can be stored.
  int dbScaNameSize() const { return dbScaNameSize_; }

 private:
  std::array<std::vector<Row>, 2> grids_;
  int dbScaNameSize_ = 0;
};

}  // namespace linkage
