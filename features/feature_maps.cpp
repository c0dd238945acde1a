#include "features/feature_maps.h"

#include <cstring>
#include <variant>

#include "document/string_table.h"
#include "schema/collation.h"

using document::text;

namespace features {

namespace {

std::string key(const QString& s) {
  const std::vector<uint8_t> k = schema::textSortKey(ss(s));
  return std::string(k.begin(), k.end());
}

std::string folderKey(int32_t dirId, const std::string& nameKey) {
  std::string k(sizeof dirId, '\0');
  std::memcpy(k.data(), &dirId, sizeof dirId);
  return k + nameKey;
}

// The display string's folder path and map name: the parts before and
// after its last "/".
std::pair<QString, QString> splitDisplay(const QString& display) {
  const qsizetype at = display.lastIndexOf(QLatin1Char('/'));
  if (at < 0) return {QString(), display};
  return {display.left(at), display.mid(at + 1)};
}

}  // namespace

void FeatureMaps::load() {
  folderByPath_.clear();
  mapByFolderAndName_.clear();
  csByName_.clear();
  mapOfDisplay_.clear();
  available_.clear();
  loaded_.clear();
  folders_.clear();
  maps_.clear();
  indexed_ = false;
  rowsByMap_.clear();
  selected_.clear();
  selectedCount_ = 0;

  std::unordered_map<int32_t, QString> pathOf;
  schema::Recordset& dirs = c_.rs.directories;
  if (dirs.recordCount() > 0)
    for (dirs.moveFirst(); !dirs.eof(); dirs.moveNext()) {
      folders_.push_back({longOrZero(dirs, "dirId"), textOrEmpty(dirs, "Path")});
      pathOf.try_emplace(folders_.back().dirId, folders_.back().path);
    }

  std::unordered_map<int32_t, QString> displayOf;
  schema::Recordset& maps = c_.rs.maps;
  available_.reserve(maps.recordCount());
  maps_.reserve(size_t(maps.recordCount()));
  if (maps.recordCount() > 0)
    for (maps.moveFirst(); !maps.eof(); maps.moveNext()) {
      Map map{longOrZero(maps, "mapId"),
              longOrZero(maps, "dirId"),
              textOrEmpty(maps, "Name"),
              {},
              !jet::isNull(maps.field("csfid"))};
      const auto folder = pathOf.find(map.dirId);
      map.display = folder == pathOf.end() ? map.name : folder->second + "/" + map.name;
      available_ << map.display;
      displayOf.try_emplace(map.mapId, map.display);
      maps_.push_back(std::move(map));
    }

  rows_ = c_.db.openRecordset("select * from [FeatureMaps] where [feaId] = " +
                              std::to_string(c_.featureId));
  if (rows_.recordCount() == 0) return;
  loaded_.reserve(rows_.recordCount());
  for (rows_.moveFirst(); !rows_.eof(); rows_.moveNext()) {
    const int32_t mapId = longOrZero(rows_, "mapId");
    rowsByMap_[mapId].push_back(rows_.bookmark());
    const auto display = displayOf.find(mapId);
    if (display == displayOf.end()) continue;
    loaded_ << display->second;
    ++selected_[display->second];
    ++selectedCount_;
  }
}

void FeatureMaps::index() {
  if (indexed_) return;
  for (const Folder& f : folders_) folderByPath_.try_emplace(key(f.path), f.dirId);
  std::vector<std::string> nameKeys;
  nameKeys.reserve(maps_.size());
  for (const Map& m : maps_) {
    nameKeys.push_back(key(m.name));
    mapByFolderAndName_.try_emplace(folderKey(m.dirId, nameKeys.back()), m.mapId);
    csByName_.try_emplace(nameKeys.back(), m.hasCs);
  }
  // Each offered string resolved once, as resolve() would resolve it.
  std::unordered_map<int32_t, std::string> pathKeyOf;
  for (const Folder& f : folders_) pathKeyOf.try_emplace(f.dirId, key(f.path));
  for (size_t i = 0; i < maps_.size(); ++i) {
    const auto pathKey = pathKeyOf.find(maps_[i].dirId);
    if (pathKey == pathKeyOf.end() || maps_[i].name.contains(QLatin1Char('/'))) continue;
    const auto folder = folderByPath_.find(pathKey->second);
    const auto map = mapByFolderAndName_.find(folderKey(folder->second, nameKeys[i]));
    if (map != mapByFolderAndName_.end()) mapOfDisplay_.insert(maps_[i].display, map->second);
  }
  indexed_ = true;
}

int32_t FeatureMaps::resolve(const QString& display, int consequence) {
  index();
  if (const auto known = mapOfDisplay_.constFind(display); known != mapOfDisplay_.constEnd())
    return *known;
  const auto [path, name] = splitDisplay(display);
  const auto folder = folderByPath_.find(key(path));
  if (folder == folderByPath_.end()) {
    c_.tell(text(5012) + " " + path + ". " + text(consequence));
    return 0;
  }
  const auto map = mapByFolderAndName_.find(folderKey(folder->second, key(name)));
  if (map == mapByFolderAndName_.end()) {
    c_.tell(text(5014) + " " + name + ". " + text(consequence));
    return 0;
  }
  return map->second;
}

bool FeatureMaps::add(const QString& map) {
  const int32_t mapId = resolve(map, 5013);
  if (mapId == 0) return false;
  rows_.addNew();
  rows_.setField("feaId", int32_t(c_.featureId));
  rows_.setField("mapId", mapId);
  rows_.update();
  rowsByMap_[mapId].push_back(rows_.lastModified());
  ++selected_[map];
  ++selectedCount_;
  return true;
}

bool FeatureMaps::remove(const QString& map) {
  const int32_t mapId = resolve(map, 5015);
  if (mapId == 0) return false;
  const auto rows = rowsByMap_.find(mapId);
  if (rows == rowsByMap_.end() || rows->second.empty()) {
    c_.tell(text(5016));
    return false;
  }
  rows_.setBookmark(rows->second.front());
  rows_.deleteRecord();
  rows->second.erase(rows->second.begin());
  if (const auto at = selected_.find(map); at != selected_.end() && --*at == 0) selected_.erase(at);
  --selectedCount_;
  return true;
}

QString FeatureMaps::check(const QString& csText) {
  if (selectedCount_ <= 0) return checkLine(text(5028));
  if (!csText.isEmpty()) return {};
  index();
  for (auto at = selected_.begin(); at != selected_.end(); ++at) {
    const auto cs = csByName_.find(key(splitDisplay(at.key()).second));
    if (cs != csByName_.end() && cs->second) return checkLine(text(5030));
  }
  return {};
}

}  // namespace features
