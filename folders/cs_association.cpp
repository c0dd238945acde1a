#include "folders/cs_association.h"

#include "document/string_table.h"
#include "folders/folder_scan.h"
#include "schema/collation.h"
#include "schema/engine_error.h"

namespace folders {

namespace {

// Every row of rs from the first, the cursor left after the last.
template <typename F>
void forEachRow(schema::Recordset& rs, F&& f) {
  if (rs.bof() && rs.eof()) return;
  for (rs.moveFirst(); !rs.eof(); rs.moveNext()) f();
}

// The position of a field among the recordset's, by name as Jet compares them.
size_t fieldIndex(const schema::Recordset& rs, std::string_view field) {
  const std::vector<std::string> names = rs.fieldNames();
  for (size_t i = 0; i < names.size(); ++i)
    if (schema::sameName(names[i], field)) return i;
  throw schema::EngineError(schema::err::kItemNotFound, schema::sources::kFields);
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
  // The first row of a key wins, as a FindFirst on it would.
  schema::Recordset& directories = *tables_.directories;
  forEachRow(directories, [&] {
    if (const std::optional<int32_t> id = longField(directories, "dirId"))
      if (!folders_.contains(*id)) folders_.insert(*id, textField(directories, "Path"));
  });

  // One distinct value among the maps, a Null among them, means every map
  // shares it; none, or more than one, that each has its own.
  schema::Recordset& maps = *tables_.maps;
  maps_.reserve(size_t(maps.recordCount()));
  const size_t nameAt = fieldIndex(maps, "Name"), dirAt = fieldIndex(maps, "dirId"),
               csfidAt = fieldIndex(maps, "csfid");
  std::optional<std::optional<int32_t>> first;
  bool several = false;
  forEachRow(maps, [&] {
    const std::vector<jet::Value>& v = maps.values();
    const auto* name = std::get_if<std::string>(&v[nameAt]);
    const auto* dir = std::get_if<int32_t>(&v[dirAt]);
    const auto* key = std::get_if<int32_t>(&v[csfidAt]);
    const std::optional<int32_t> csfid = key ? std::optional<int32_t>(*key) : std::nullopt;
    if (!first) first = csfid;
    several = several || *first != csfid;
    const size_t at = names_.size();
    if (name) names_ += *name;
    maps_.push_back({uint32_t(at), uint32_t(names_.size() - at),
                     dir ? std::optional<int32_t>(*dir) : std::nullopt,
                     key ? std::optional<int16_t>(schema::toInteger16(*key)) : std::nullopt,
                     maps.bookmark()});
  });
  mode_ = first && !several ? Mode::Same : Mode::Different;
  const std::optional<int16_t> shared = mode_ == Mode::Same && *first
                                            ? std::optional<int16_t>(schema::toInteger16(**first))
                                            : std::nullopt;

  schema::Recordset& files = *tables_.coordinateSystemFiles;
  forEachRow(files, [&] {
    const File file{displayName(folders_, files), keyField(files, "csfid").value_or(0)};
    if (mode_ == Mode::Same && shared == file.csfid) sharedFile_ = int(files_.size());
    if (!byName_.contains(file.name)) byName_.insert(file.name, file.csfid);
    if (!byKey_.contains(file.csfid)) byKey_.insert(file.csfid, int(files_.size()));
    files_.push_back(file);
  });
}

void CoordinateSystemAssociation::clear() {
  mode_ = Mode::Same;
  sharedFile_ = -1;
  files_.clear();
  maps_.clear();
  folders_.clear();
  names_.clear();
  byName_.clear();
  byKey_.clear();
}

QString CoordinateSystemAssociation::mapName(size_t row) const {
  const MapRow& map = maps_.at(row);
  const QString name = QString::fromUtf8(names_.data() + map.nameAt, qsizetype(map.nameSize));
  const auto folder = map.dirId ? folders_.constFind(*map.dirId) : folders_.constEnd();
  return folder == folders_.constEnd() ? name : joinPath(*folder, name);
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
