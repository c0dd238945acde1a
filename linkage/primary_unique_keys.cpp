#include "linkage/primary_unique_keys.h"

#include "linkage/keys_parameters.h"
#include "linkage/parameters_table.h"
#include "schema/engine_error.h"

namespace linkage {

namespace {

constexpr std::array<std::string_view, 2> kKeyTypes = {kGraphicFeature, kDbLinkedFeature};

}  // namespace

void PrimaryUniqueKeys::load(schema::SchemaDatabase& db, schema::Recordset& graphicAttributes,
                             std::string_view drawingScannerClass) {
  candidates_.clear();
  selected_ = {};
  std::vector<schema::ListEntry> candidates;
  for (const Attribute& attribute : nonSpatialAttributes(graphicAttributes))
    candidates.push_back({attribute.name, schema::toInteger16(attribute.attrId)});
  std::array<std::optional<size_t>, 2> selected;
  for (size_t key = 0; key < kKeyTypes.size(); ++key) {
    for (const KeyRow& row : readKeysParameters(db, kKeyTypes[key]))
      for (size_t i = 0; i < candidates.size(); ++i)
        if (candidates[i].id == row.attrId) selected[key] = i;
  }
  candidates_ = std::move(candidates);
  selected_ = selected;
  scannerClass_ = drawingScannerClass;
}

void PrimaryUniqueKeys::save(schema::SchemaDatabase& db) const {
  std::array<KindRows, 2> kinds = {KindRows{kGraphicFeature, {}}, KindRows{kDbLinkedFeature, {}}};
  for (size_t key = 0; key < kinds.size(); ++key) {
    const bool written = key == kGraphicOnly || scannerClass_ == kVektScanner;
    if (written && selected_[key]) kinds[key].rows.push_back({candidates_[*selected_[key]].id, {}});
  }
  rewriteKeysParameters(db, {kinds.begin(), kinds.end()});
}

void PrimaryUniqueKeys::select(Key key, std::optional<size_t> index) {
  selected_[key] = index && *index < candidates_.size() ? index : std::nullopt;
}

bool PrimaryUniqueKeys::dbLinkedKeyEnabled() const { return scannerClass_ != kAutoCadScanner; }

}  // namespace linkage
