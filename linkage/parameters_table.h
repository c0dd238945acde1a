// ParametersTable: the scanner settings of an open schema, the rows of
// CADParameters, each known row read and written as one named value.
//
// Promises:
// - Initialize() leaves every known row present: a missing one is added, in
//   the order of kParameterNames, with a null value ("Version": "1.0").
//   Rows of other names, and further rows of a known name, are never
//   touched; a known name always means the first row that has it.
// - A setter stores its row at once; an empty text is stored as null.
// - A getter reads the row afresh; a null reads as "" ("*.*" for
//   CADextension, 1.0 for Version).
// - Database errors are EngineErrors and pass to the caller. Every accessor
//   but setCADextension() needs Initialize() first (3420 otherwise).
//
// The database given to Initialize() must outlive the object or its
// CloseRecordSet(); destruction closes the recordset.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace linkage {

// The scanner components the program knows by name.
inline constexpr std::string_view kVektScanner = "Torv.VektScanner";
inline constexpr std::string_view kAutoCadScanner = "Torv.AutoCADScanner";
inline constexpr std::string_view kOdbcDatabaseScanner = "Torv.ODBCDatabaseScanner";

// The known rows, in the order in which missing ones are added.
inline constexpr std::array<std::string_view, 7> kParameterNames = {
    "DBConnectString", "GraphicConnectString",
    "CADExtension",    "GraphicScannerClass",
    "DbScannerClass",  "INI",
    "Version"};

class ParametersTable {
 public:
  ParametersTable() = default;
  ~ParametersTable();
  ParametersTable(const ParametersTable&) = delete;
  ParametersTable& operator=(const ParametersTable&) = delete;

  // Closes the recordset, if one is open; the values then stay unreadable
  // until the next Initialize().
  void CloseRecordSet();
  // Opens CADParameters of `db` and adds the rows that are missing.
  void Initialize(schema::SchemaDatabase& db);
  bool isOpen() const { return rs_.isOpen(); }

  std::string INI() const;
  void setINI(std::string_view value);
  std::string DbScannerClass() const;
  void setDbScannerClass(std::string_view value);
  std::string GraphicScannerClass() const;
  void setGraphicScannerClass(std::string_view value);
  std::string GraphicConnectString() const;
  void setGraphicConnectString(std::string_view value);
  // Row "DBConnectString".
  std::string DbConnectString() const;
  void setDbConnectString(std::string_view value);
  // Row "CADExtension": map-file patterns separated by ";". Setting it with
  // no open recordset does nothing, so a document that failed to open can
  // still be closed.
  std::string CADextension() const;
  void setCADextension(std::string_view value);
  // Row "Version", the schema format version.
  double Version() const;

 private:
  enum Row {
    kDbConnect,
    kGraphicConnect,
    kCadExtension,
    kGraphicScanner,
    kDbScanner,
    kIni,
    kVersion
  };

  // The row's value; nullopt for null.
  std::optional<std::string> read(Row row) const;
  std::string readText(Row row, std::string_view whenNull = "") const;
  void write(Row row, std::string_view value);

  // Mutable because reading moves the cursor; the values do not change.
  mutable schema::Recordset rs_;
  std::array<schema::Recordset::Bookmark, kParameterNames.size()> marks_{};
};

}  // namespace linkage
