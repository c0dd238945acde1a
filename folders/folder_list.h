// FolderList: the rows of Directories behind the "Folders" list of the
// Files tab: adding, re-pointing and removing a folder, and the question
// about a selected folder that is gone from disk.
//
// Promises: a blank path is never written; a folder that maps or
// coordinate-system files still use is never deleted (the user is told
// why); paths are stored as given, untrimmed. Keys are held in 16 bits as
// the forms hold them, so a key above 32767 fails with 6 "Overflow".
// Engine failures pass to the caller as EngineErrors.
#pragma once

#include <QString>
#include <cstdint>
#include <optional>
#include <vector>

#include "document/prompter.h"
#include "folders/folder_tables.h"
#include "schema/list_entries.h"

namespace folders {

class FolderList {
 public:
  FolderList(FolderTables tables, document::Prompter& prompter)
      : tables_(tables), prompter_(prompter) {}

  // Every folder row in table order: the path and the dirId.
  std::vector<schema::ListEntry> entries();

  // Writes a new row for path; nullopt, and nothing written, when the path
  // is empty or blank.
  std::optional<schema::ListEntry> add(const QString& path);
  // Gives the folder a new path; false when its row is gone. The rows of
  // its files stay: they hold the folder by its key.
  bool change(int16_t dirId, const QString& path);

  enum class Removal { Removed, InUse, NotFound };
  // Deletes the folder's row unless maps or coordinate-system files use
  // it; then the user is told which, and nothing is deleted.
  Removal remove(int16_t dirId);

  // For a selected folder that no longer exists: asks whether to change
  // it. True when the user wants to.
  bool askToChangeMissing();

  // "Unable to delete folder. In use by maps and coordinate system files."
  // and its two shorter forms.
  static QString inUseMessage(bool byMaps, bool byCoordinateSystemFiles);

 private:
  bool findFolder(int16_t dirId);

  FolderTables tables_;
  document::Prompter& prompter_;
};

}  // namespace folders
