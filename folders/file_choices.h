// FileChoices: the rows of Maps and CoordinateSystemFiles behind the two
// choosers of the Files tab. Choosing a file writes its row; taking it back
// deletes the row unless something still uses it, and the user is told
// what; which tabs the main window enables follows from what the tables
// hold.
//
// Promises: a file is identified by its name together with its folder's
// key. A refused removal changes nothing. Engine failures pass to the
// caller as EngineErrors; a name holding a single quote is put into the
// criterion as it stands, so removing such a file fails that way.
//
// Many choices in a row (">>", "<<") may be wrapped in beginBatch() and
// endBatch(): they then go to disk together, once, at endBatch().
#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>

#include "document/prompter.h"
#include "folders/folder_tables.h"

namespace folders {

enum class FileKind { Map, CoordinateSystem };

// Which of the main window's tabs the tables allow.
struct TabStates {
  bool coordinateSystems = false;  // a map and a coordinate-system file
  bool featureDefinition = false;  // a map
  bool operator==(const TabStates&) const = default;
};
TabStates tabStates(long mapCount, long coordinateSystemFileCount);

class FileChoices {
 public:
  FileChoices(FolderTables tables, document::Prompter& prompter)
      : tables_(tables), prompter_(prompter) {}
  ~FileChoices();

  // The names of the folder's rows of this kind, in table order.
  QStringList selectedNames(FileKind kind, int16_t dirId);
  // Writes the file's row.
  void add(FileKind kind, const QString& name, int16_t dirId);
  // Deletes the file's row; false when it is in use (the user is told, the
  // row stays). A file without a row counts as removed.
  bool remove(FileKind kind, const QString& name, int16_t dirId);

  TabStates tabs() const;

  void beginBatch();
  // Commits a batch begun here; does nothing otherwise.
  void endBatch();

  static QString mapInUseMessage(const QString& name);
  static QString coordinateSystemInUseMessage(const QString& name, bool byMaps, bool byFeatures);

 private:
  schema::Recordset& rows(FileKind kind) const;
  bool removeMap(const QString& name, int16_t dirId);
  // Whether a feature class uses the map: a FeatureMaps row found through
  // the table's index on mapId. A batch keeps the recordset open.
  bool mapInUse(int mapId);
  bool removeCoordinateSystemFile(const QString& name, int16_t dirId);
  static std::string fileCriterion(const QString& name, int16_t dirId);

  FolderTables tables_;
  document::Prompter& prompter_;
  bool batch_ = false;
  schema::Recordset featureMaps_;  // open during a batch
};

}  // namespace folders
