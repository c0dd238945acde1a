#include "folders/cs_association.h"


#include "document/string_table.h"
#include "folders/folder_scan.h"

namespace folders {

namespace {

// Every row of rs from the first, the cursor left after the last.
template <typename F>
void forEachRow(schema::Recordset& rs, F&& f) {
  if (rs.bof() && rs.eof()) return;
  for (rs.moveFirst(); !rs.eof(); rs.moveNext()) f();
}

}  // namespace

QString CoordinateSystemAssociation::displayName(const QHash<int32_t, QString>& folders,
                                                 const schema::Recordset& rs) {
  const QString name = textField(rs, "Name");
  const std::optional<int32_t> dirId = longField(rs, "dirId");
  const auto folder = dirId ? folders.constFind(*dirId) : folders.constEnd();
  return folder == folders.constEnd() ? name : joinPath(*folder, name);
}

void CoordinateSystemAssociation::refresh() {
  clear();
  // One distinct value, a Null among them, means every map shares it.
  std::optional<int16_t> shared;
  {
    schema::Recordset distinct = tables_.database->openRecordset("select distinct csfid from maps");
    mode_ = distinct.recordCount() == 1 ? Mode::Same : Mode::Different;
    if (mode_ == Mode::Same) shared = keyField(distinct, "csfid");
  }

  // The first row of a key wins, as a FindFirst on it would.
  QHash<int32_t, QString> folders;
  schema::Recordset& directories = *tables_.directories;
  forEachRow(directories, [&] {
    if (const std::optional<int32_t> id = longField(directories, "dirId"))
      if (!folders.contains(*id)) folders.insert(*id, textField(directories, "Path"));
  });

  schema::Recordset& files = *tables_.coordinateSystemFiles;
  forEachRow(files, [&] {
    const File file{displayName(folders, files), keyField(files, "csfid").value_or(0)};
    if (mode_ == Mode::Same && shared == file.csfid) sharedFile_ = int(files_.size());
    if (!byName_.contains(file.name)) byName_.insert(file.name, file.csfid);
    if (!byKey_.contains(file.csfid)) byKey_.insert(file.csfid, int(files_.size()));
    files_.push_back(file);
  });

  schema::Recordset& maps = *tables_.maps;
  maps_.reserve(size_t(maps.recordCount()));
  forEachRow(maps, [&] {
    maps_.push_back({displayName(folders, maps), keyField(maps, "csfid"), maps.bookmark()});
  });
}

void CoordinateSystemAssociation::clear() {
  mode_ = Mode::Same;
  sharedFile_ = -1;
  files_.clear();
  maps_.clear();
  byName_.clear();
  byKey_.clear();
}

QString CoordinateSystemAssociation::fileName(std::optional<int16_t> csfid) const {
  if (!csfid) return {};
  const auto at = byKey_.constFind(*csfid);
  return at == byKey_.constEnd() ? QString() : files_[size_t(*at)].name;
}

std::optional<int16_t> CoordinateSystemAssociation::csfidOf(const QString& name) const {
  const auto at = byName_.constFind(name);
  if (at == byName_.constEnd()) return std::nullopt;
  return *at;
}

void CoordinateSystemAssociation::applyToAll(int16_t csfid, Progress& progress) {
  schema::Recordset& maps = *tables_.maps;
  schema::SchemaDatabase& database = *tables_.database;
  progress.start(document::text(5115), maps.recordCount());
  database.beginTrans();
  try {
    qsizetype done = 0;
    forEachRow(maps, [&] {
      changeField(maps, "csfid", int32_t(csfid));
      progress.advance(++done);
    });
    database.commitTrans();
  } catch (...) {
    database.rollback();
    progress.finish();
    throw;
  }
  progress.finish();
  for (MapRow& row : maps_) row.csfid = csfid;
  sharedFile_ = byKey_.value(csfid, -1);
}

void CoordinateSystemAssociation::assign(int row, int16_t csfid) {
  MapRow& map = maps_.at(size_t(row));
  tables_.maps->setBookmark(map.mark);
  changeField(*tables_.maps, "csfid", int32_t(csfid));
  map.csfid = csfid;
}

}  // namespace folders
