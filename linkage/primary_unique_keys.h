// PrimaryUniqueKeys: the state behind the "Primary Unique Keys" dialog, the
// key attribute of graphic-only feature classes (rows of kind
// GraphicFeature) and of database-linked ones (DbLinkedFeature), each
// chosen from the non-spatial graphic attributes.
//
// Promises:
// - load() offers the same candidates, in the recordset's order, for both
//   choices and selects, for each kind, the candidate of the last stored
//   row that names one. It writes nothing.
// - save() leaves one row of each kind for its selection, or none where
//   nothing is selected. The database-linked key is written only for
//   MicroStation drawings (Torv.VektScanner): for any other drawing scanner
//   class saving removes it. All or nothing (see rewriteKeysParameters);
//   DbLFeatSuppGrAttr rows and every other kind stay as they are.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "schema/list_entries.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace linkage {

class PrimaryUniqueKeys {
 public:
  enum Key { kGraphicOnly = 0, kDbLinked = 1 };

  // drawingScannerClass: the document's current one (ScannerOptions).
  void load(schema::SchemaDatabase& db, schema::Recordset& graphicAttributes,
            std::string_view drawingScannerClass);
  void save(schema::SchemaDatabase& db) const;

  // Attribute names with their AttrId held as the forms hold keys.
  const std::vector<schema::ListEntry>& candidates() const { return candidates_; }
  // The index of the selected candidate.
  std::optional<size_t> selected(Key key) const { return selected_[key]; }
  // An index outside the candidates clears the selection.
  void select(Key key, std::optional<size_t> index);
  // The database-linked choice is closed to AutoCAD drawings.
  bool dbLinkedKeyEnabled() const;

 private:
  std::vector<schema::ListEntry> candidates_;
  std::array<std::optional<size_t>, 2> selected_;
  std::string scannerClass_;
};

}  // namespace linkage
