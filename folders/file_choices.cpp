#include "folders/file_choices.h"

#include "document/string_table.h"

using document::text;

namespace folders {

TabStates tabStates(long mapCount, long coordinateSystemFileCount) {
  return {mapCount > 0 && coordinateSystemFileCount > 0, mapCount > 0};
}

FileChoices::~FileChoices() {
  // A batch left open by a failure is committed: every row written before
  // it stays, as each would have outside a batch.
  try {
    endBatch();
  } catch (...) {
  }
}

schema::Recordset& FileChoices::rows(FileKind kind) const {
  return kind == FileKind::Map ? *tables_.maps : *tables_.coordinateSystemFiles;
}

QStringList FileChoices::selectedNames(FileKind kind, int16_t dirId) {
  QStringList names;
  schema::Recordset& rs = rows(kind);
  if (rs.bof() && rs.eof()) return names;
  // Compared as stored: other folders' keys are none of this folder's
  // business, whatever their size.
  for (rs.moveFirst(); !rs.eof(); rs.moveNext())
    if (longField(rs, "dirId") == dirId) names << textField(rs, "Name");
  return names;
}

void FileChoices::add(FileKind kind, const QString& name, int16_t dirId) {
  if (kind == FileKind::Map)
    addRow(*tables_.maps, "mapId", {{"Name", textValue(name)}, {"dirId", int32_t(dirId)}});
  else
    addRow(*tables_.coordinateSystemFiles, "csfid",
           {{"Name", textValue(name)}, {"dirId", int32_t(dirId)}});
}

std::string FileChoices::fileCriterion(const QString& name, int16_t dirId) {
  return "Name = '" + name.toStdString() + "' AND dirId = " + std::to_string(dirId);
}

bool FileChoices::remove(FileKind kind, const QString& name, int16_t dirId) {
  return kind == FileKind::Map ? removeMap(name, dirId) : removeCoordinateSystemFile(name, dirId);
}

bool FileChoices::removeMap(const QString& name, int16_t dirId) {
  schema::Recordset& maps = *tables_.maps;
  maps.findFirst(fileCriterion(name, dirId));
  if (maps.noMatch()) return true;
  if (mapInUse(keyField(maps, "mapId").value_or(0))) {
    prompter_.ask(mapInUseMessage(name), document::MessageStyle::Ok);
    return false;
  }
  maps.deleteRecord();
  return true;
}

bool FileChoices::mapInUse(int mapId) {
  // Filtering the whole table for each map would read every link each
  // time; a find narrows to the map's links through the index.
  schema::Recordset once;
  schema::Recordset& links = batch_ ? featureMaps_ : once;
  if (!links.isOpen()) links = tables_.database->openRecordset("select * from FEATUREMaps");
  links.findFirst(keyCriterion("mapId", mapId));
  return !links.noMatch();
}

bool FileChoices::removeCoordinateSystemFile(const QString& name, int16_t dirId) {
  schema::Recordset& files = *tables_.coordinateSystemFiles;
  files.findFirst(fileCriterion(name, dirId));
  if (files.noMatch()) return true;
  const int csfid = keyField(files, "csfid").value_or(0);
  tables_.maps->findFirst(keyCriterion("csfid", csfid));
  const bool byMaps = !tables_.maps->noMatch();
  const bool byFeatures =
      tables_.database
          ->openRecordset("select * from Features where csfid = " + std::to_string(csfid))
          .recordCount() > 0;
  if (byMaps || byFeatures) {
    prompter_.ask(coordinateSystemInUseMessage(name, byMaps, byFeatures),
                  document::MessageStyle::Ok);
    return false;
  }
  files.deleteRecord();
  return true;
}

TabStates FileChoices::tabs() const {
  return tabStates(tables_.maps->recordCount(), tables_.coordinateSystemFiles->recordCount());
}

void FileChoices::beginBatch() {
  if (batch_) return;
  tables_.database->beginTrans();
  batch_ = true;
}

void FileChoices::endBatch() {
  if (!batch_) return;
  batch_ = false;
  featureMaps_.close();
  tables_.database->commitTrans();
}

QString FileChoices::mapInUseMessage(const QString& name) {
  return text(5108) + u' ' + name + QStringLiteral(". ") + text(5109);
}

QString FileChoices::coordinateSystemInUseMessage(const QString& name, bool byMaps,
                                                  bool byFeatures) {
  return inUseMessage(text(5110) + u' ' + name, byMaps, byFeatures, 5111);
}

}  // namespace folders
