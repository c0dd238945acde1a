// CoordinateSystemAssociation: which coordinate-system file each map is
// drawn in, the state behind the "Coordinate Systems" tab. refresh() works
// out from the maps whether they all share one file ("same") or not
// ("different") and lists the files and the maps with their display names
// (folder path, "/", name; the name alone when the folder row is gone).
//
// Promises: applyToAll() writes every map's csfid in one pass and one
// commit; when it fails nothing is changed. assign() writes one map, found
// again by its bookmark in the open Maps recordset, so the rows are only
// good until that recordset is closed: refresh() after reopening it. Keys
// are held in 16 bits as the forms hold them. Engine failures pass to the
// caller as EngineErrors.
#pragma once

#include <QHash>
#include <QString>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "folders/folder_tables.h"
#include "folders/progress.h"

namespace folders {

class CoordinateSystemAssociation {
 public:
  enum class Mode { Same, Different };
  struct File {
    QString name;  // display name
    int16_t csfid = 0;
  };
  struct MapRow {
    uint32_t nameAt = 0, nameSize = 0;  // the stored name in names_; see mapName()
    std::optional<int32_t> dirId;
    std::optional<int16_t> csfid;
    schema::Recordset::Bookmark mark;
  };

  explicit CoordinateSystemAssociation(FolderTables tables) : tables_(tables) {}

  void refresh();
  // Forgets the rows, as when the document closes.
  void clear();

  Mode mode() const { return mode_; }
  const std::vector<File>& files() const { return files_; }
  // In "same" mode, the index in files() of the file every map has; -1 when
  // the maps have none or another mode.
  int sharedFile() const { return sharedFile_; }
  const std::vector<MapRow>& maps() const { return maps_; }
  // The display name of maps()[row], made when asked: a schema may hold
  // hundreds of thousands of maps, and a view shows a screenful.
  QString mapName(size_t row) const;

  // The display name of a file's key; "" for none or an unknown one.
  QString fileName(std::optional<int16_t> csfid) const;
  // The key of a file by its display name; nullopt when no file has it.
  std::optional<int16_t> csfidOf(const QString& name) const;

  // Gives every map of the schema the file csfid.
  void applyToAll(int16_t csfid, Progress& progress);
  // Gives the map of row `row` the file csfid.
  void assign(int row, int16_t csfid);

 private:
  // The display name of the current row of a file table.
  static QString displayName(const QHash<int32_t, QString>& folders, const schema::Recordset& rs);

  FolderTables tables_;
  Mode mode_ = Mode::Same;
  int sharedFile_ = -1;
  std::vector<File> files_;
  std::vector<MapRow> maps_;
  QHash<int32_t, QString> folders_;  // dirId to path, the first row of a key
  std::string names_;                // the maps' stored names one after another
  QHash<QString, int16_t> byName_;
  QHash<int16_t, int> byKey_;  // csfid to index in files_
};

}  // namespace folders
