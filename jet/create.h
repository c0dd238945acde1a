// Making new Jet 4 databases, and new tables in Jet 3 and Jet 4 databases.
//
// createDatabase() writes an empty database laid out as the Jet engine lays
// out its own empty database: header, global page map, the four system
// tables (MSysObjects, MSysACEs, MSysQueries, MSysRelationships) with their
// indexes, the catalog's containers and permission rows. createTable() adds
// a user table with its catalog row and permissions. createDatabase()
// writes the header and page 1 at once (so the engine can open the file);
// everything else stays in memory like any other write until
// Database::flush().
// jet/FORMAT.md explains each choice.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jet/database.h"

namespace jet {

struct ColumnSpec {
  std::string name;
  uint8_t type = coltype::kText;  // a coltype:: constant
  uint16_t size = 0;  // Text: characters (1..255); Binary: bytes; ignored otherwise
  bool autoNumber = false;  // Long only
  uint8_t precision = 18, scale = 0;  // Decimal only
};

struct IndexSpec {
  std::string name;
  std::vector<std::string> columns;
  std::vector<bool> descending;  // per column; missing entries mean ascending
  bool primary = false;          // implies unique and required
  bool unique = false;
  bool ignoreNulls = false;
  bool required = false;
};

struct TableSpec {
  std::string name;
  std::vector<ColumnSpec> columns;
  std::vector<IndexSpec> indexes;
};

// `store` must be empty and writable. Throws JetError(kInvalid) otherwise.
std::unique_ptr<Database> createDatabase(std::unique_ptr<PageStore> store);

// Adds a user table. Throws JetError(kInvalid) for a bad spec (duplicate or
// empty names, too many columns, unknown column in an index, a name already
// used by a table; in a Jet 3 database also a Decimal column or a name with a
// character outside Windows-1252).
const TableDef& createTable(Database& db, const TableSpec& spec);

// Parts of a table's storage, shared with compactDatabase(): an empty
// inline usage map row on a data page that belongs to no table (returned
// packed), and an empty leaf page as an index's root.
uint32_t newUsageMapRow(Database& db);
uint32_t newIndexRoot(Database& db, uint32_t tdef);

}  // namespace jet
