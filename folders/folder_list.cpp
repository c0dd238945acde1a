#include "folders/folder_list.h"

#include "document/string_table.h"

using document::text;

namespace folders {

std::vector<schema::ListEntry> FolderList::entries() {
  return schema::listEntries(*tables_.directories, "Path", "dirId");
}

std::optional<schema::ListEntry> FolderList::add(const QString& path) {
  if (path.trimmed().isEmpty()) return std::nullopt;
  const int16_t id = addRow(*tables_.directories, "dirId", {{"Path", textValue(path)}});
  return schema::ListEntry{path.toStdString(), id};
}

bool FolderList::findFolder(int16_t dirId) {
  tables_.directories->findFirst(keyCriterion("DirId", dirId));
  return !tables_.directories->noMatch();
}

bool FolderList::change(int16_t dirId, const QString& path) {
  if (!findFolder(dirId)) return false;
  changeField(*tables_.directories, "Path", textValue(path));
  return true;
}

FolderList::Removal FolderList::remove(int16_t dirId) {
  if (!findFolder(dirId)) return Removal::NotFound;
  const int id = keyField(*tables_.directories, "dirId").value_or(dirId);
  tables_.maps->findFirst(keyCriterion("dirId", id));
  const bool byMaps = !tables_.maps->noMatch();
  tables_.coordinateSystemFiles->findFirst(keyCriterion("dirId", id));
  const bool byCoordinateSystemFiles = !tables_.coordinateSystemFiles->noMatch();
  if (byMaps || byCoordinateSystemFiles) {
    prompter_.ask(inUseMessage(byMaps, byCoordinateSystemFiles), document::MessageStyle::Ok);
    return Removal::InUse;
  }
  tables_.directories->deleteRecord();
  return Removal::Removed;
}

bool FolderList::askToChangeMissing() {
  return prompter_.ask(text(5105), document::MessageStyle::YesNo) == document::Answer::Yes;
}

QString FolderList::inUseMessage(bool byMaps, bool byCoordinateSystemFiles) {
  return folders::inUseMessage(text(5100), byMaps, byCoordinateSystemFiles, 5104);
}

}  // namespace folders
