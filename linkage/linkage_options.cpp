#include "linkage/linkage_options.h"

namespace linkage {

namespace {

bool blank(const std::string& text) { return text.find_first_not_of(' ') == std::string::npos; }

}  // namespace

void LinkageOptions::load(schema::SchemaDatabase& db, schema::Recordset& graphicAttributes) {
  grids_ = {};
  dbScaNameSize_ = 0;
  const std::vector<Attribute> attributes = nonSpatialAttributes(graphicAttributes);
  std::array<std::vector<Row>, 2> grids;
  int size = 0;
  for (size_t grid = 0; grid < kGridTypes.size(); ++grid) {
    KeysParameters keys;
    keys.Execute(db, keysQuery(kGridTypes[grid]));
    size = keys.dbScaNameSize();
    for (const Attribute& attribute : attributes) {
      Row row{false, attribute.name, attribute.name, attribute.attrId};
      keys.FindFirst("AttrId = " + std::to_string(attribute.attrId));
      if (!keys.NoMatch()) {
        row.link = true;
        if (std::optional<std::string> name = keys.DbScaName()) row.dbScaName = *name;
      }
      grids[grid].push_back(std::move(row));
    }
  }
  grids_ = std::move(grids);
  dbScaNameSize_ = size;
}

void LinkageOptions::save(schema::SchemaDatabase& db) const {
  std::vector<KindRows> kinds;
  for (size_t grid = 0; grid < kGridTypes.size(); ++grid) {
    KindRows kind{kGridTypes[grid], {}};
    for (const Row& row : grids_[grid]) {
      if (!row.link) continue;
      kind.rows.push_back(
          {row.attrId, blank(row.dbScaName) ? std::nullopt : std::optional(row.dbScaName)});
    }
    kinds.push_back(std::move(kind));
  }
  rewriteKeysParameters(db, kinds);
}

}  // namespace linkage
