#include "features/exposed_attributes.h"

#include "document/string_table.h"
#include "features/value_syntax.h"
#include "linkage/keys_parameters.h"

using document::text;

namespace features {

void ExposedAttributes::load(int32_t primaryGeometry) {
  available_.clear();
  selected_.clear();
  geometry_.clear();
  schema::Recordset& attributes = c_.rs.graphicAttributes;
  if (attributes.recordCount() > 0)
    for (attributes.moveFirst(); !attributes.eof(); attributes.moveNext())
      available_ << textOrEmpty(attributes, "Name");

  rows_ = c_.db.openRecordset(c_.featureRowsQuery("FeatureAttributes", "feaid"));
  if (rows_.recordCount() == 0) return;
  for (rows_.moveFirst(); !rows_.eof(); rows_.moveNext()) {
    const int32_t attrId = longOrZero(rows_, "AttrId");
    std::optional<GraphicAttribute> attribute = findAttribute(attributes, attrId);
    if (!attribute) continue;
    selected_ << attribute->name;
    if (isGeometryType(attribute->gdoType))
      geometry_.push_back({attribute->name, attrId == primaryGeometry});
  }
}

bool ExposedAttributes::exposes(int32_t attrId) {
  rows_.findFirst("attrId = " + std::to_string(attrId));
  return !rows_.noMatch();
}

void ExposedAttributes::expose(int32_t attrId) {
  rows_.addNew();
  rows_.setField("feaId", int32_t(c_.featureId));
  rows_.setField("AttrId", attrId);
  rows_.update();
}

QStringList ExposedAttributes::addKeyAttributes() {
  QStringList added;
  for (int32_t attrId : linkage::keyAttributeIds(c_.db, c_.dbLinked)) {
    if (exposes(attrId)) continue;
    std::optional<GraphicAttribute> attribute = findAttribute(c_.rs.graphicAttributes, attrId);
    if (!attribute) continue;
    expose(attrId);
    selected_ << attribute->name;
    added << attribute->name;
  }
  return added;
}

bool ExposedAttributes::add(const QString& name) {
  std::optional<GraphicAttribute> attribute = c_.attributeNamed(name, 5010);
  if (!attribute) return false;
  expose(attribute->attrId);
  selected_ << name;
  if (isGeometryType(attribute->gdoType)) geometry_.push_back({name, false});
  return true;
}

bool ExposedAttributes::remove(const QString& name) {
  std::optional<GraphicAttribute> attribute = c_.attributeNamed(name, 5011);
  if (!attribute) return false;
  const int32_t attrId = attribute->attrId;
  if (linkage::isUniqueKey(c_.db, attrId, c_.dbLinked) &&
      !c_.confirm(text(5049) + name + text(5050) + "\r\n\r\n" + text(5051)))
    return false;
  if (c_.dbLinked &&
      (attrId == linkage::kEntityNumberAttrId || attrId == linkage::kOccurenceNumberAttrId) &&
      !c_.confirm(text(5057) + "\r\n\r\n" + text(5058)))
    return false;
  // A row missing already is what removing it would leave.
  if (exposes(attrId)) rows_.deleteRecord();
  selected_.removeOne(name);
  std::erase_if(geometry_, [&](const Geometry& g) { return g.name == name; });
  return true;
}

void ExposedAttributes::checkGeometry(int row) {
  for (size_t i = 0; i < geometry_.size(); ++i) geometry_[i].checked = int(i) == row;
}

QString ExposedAttributes::check() const {
  for (const Geometry& g : geometry_)
    if (g.checked) return {};
  return checkLine(text(5029));
}

int32_t ExposedAttributes::primaryGeometryId() {
  int32_t id = 0;
  for (const Geometry& g : geometry_) {
    if (!g.checked) continue;
    if (std::optional<GraphicAttribute> a = findAttribute(c_.rs.graphicAttributes, g.name))
      id = a->attrId;
  }
  return id;
}

}  // namespace features
