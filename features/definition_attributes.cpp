#include "features/definition_attributes.h"

#include <algorithm>

#include "document/string_table.h"
#include "features/value_syntax.h"
#include "linkage/keys_parameters.h"

using document::text;

namespace features {

namespace {

constexpr char kCatalogueQuery[] =
    "select FeatureDefAttr.AttrId, TableName, Name, GDOType, DomainType from FeatureDefAttr, "
    "GraphicAttributes, DomainTypes where FeatureDefAttr.attrid = GraphicAttributes.attrid and "
    "FeatureDefAttr.DomainTypeId = DomainTypes.DomainTypeId";

// The value table's rows for the feature, shown as the grid shows them.
QString storedValues(schema::Recordset& rs, const DefinableAttribute& a) {
  std::vector<ValueItem> items;
  if (rs.recordCount() > 0)
    for (rs.moveFirst(); !rs.eof(); rs.moveNext())
      items.push_back(a.range ? ValueItem{rs.field("minVal"), rs.field("maxVal")}
                              : ValueItem{rs.field("Value"), {}});
  return qs(showValues(items, a.gdoType, a.range));
}

}  // namespace

void DefinitionAttributes::load() {
  catalogue_.clear();
  selected_.clear();
  rows_.clear();
  schema::Recordset rs = c_.db.openRecordset(kCatalogueQuery);
  if (rs.recordCount() > 0)
    for (rs.moveFirst(); !rs.eof(); rs.moveNext())
      catalogue_.push_back({longOrZero(rs, "AttrId"), ss(textOrEmpty(rs, "TableName")),
                            textOrEmpty(rs, "Name"), static_cast<int>(longOrZero(rs, "GDOType")),
                            textOrEmpty(rs, "DomainType") == QLatin1String("Range")});

  definition_ = c_.db.openRecordset("select * from [FeatureDefinition] where [feaId] = " +
                                    std::to_string(c_.featureId));
  if (definition_.recordCount() == 0) return;
  std::vector<int32_t> ids;
  for (definition_.moveFirst(); !definition_.eof(); definition_.moveNext())
    ids.push_back(longOrZero(definition_, "AttrId"));
  for (int32_t attrId : ids) {
    if (const DefinableAttribute* a = catalogued(attrId)) {
      addRow(*a);
    } else if (auto g = findAttribute(c_.rs.graphicAttributes, attrId)) {
      addRow({attrId, {}, g->name, g->gdoType, false});
    }
  }
}

QStringList DefinitionAttributes::available() const {
  QStringList names;
  for (const DefinableAttribute& a : catalogue_) names << a.name;
  return names;
}

void DefinitionAttributes::setValues(size_t row, const QString& values) {
  if (row >= rows_.size() || rows_[row].values == values) return;
  rows_[row].values = values;
  rows_[row].updated = true;
}

const DefinableAttribute* DefinitionAttributes::catalogued(int32_t attrId) const {
  auto at = std::find_if(catalogue_.begin(), catalogue_.end(),
                         [attrId](const DefinableAttribute& a) { return a.attrId == attrId; });
  return at == catalogue_.end() ? nullptr : &*at;
}

void DefinitionAttributes::define(const DefinableAttribute& attribute) {
  definition_.addNew();
  definition_.setField("feaId", int32_t(c_.featureId));
  definition_.setField("AttrId", attribute.attrId);
  definition_.update();
}

void DefinitionAttributes::addRow(const DefinableAttribute& attribute) {
  ValueRow row{attribute, {}, false};
  if (!attribute.tableName.empty()) {
    schema::Recordset stored = c_.db.openRecordset(
        "select * from " + attribute.tableName + " where feaid = " + std::to_string(c_.featureId));
    row.values = storedValues(stored, attribute);
  }
  rows_.push_back(std::move(row));
  selected_ << attribute.name;
}

bool DefinitionAttributes::add(const QString& name) {
  std::optional<GraphicAttribute> g = c_.attributeNamed(name, 5010);
  if (!g) return false;
  const DefinableAttribute* attribute = catalogued(g->attrId);
  if (!attribute || attribute->tableName.empty()) {
    c_.tell(text(5019));
    return false;
  }
  define(*attribute);
  addRow(*attribute);
  return true;
}

bool DefinitionAttributes::remove(const QString& name) {
  std::optional<GraphicAttribute> g = c_.attributeNamed(name, 5011);
  if (!g) return false;
  if (c_.dbLinked && linkage::isTableLinkAttribute(c_.db, g->attrId)) {
    c_.tell(text(5047) + name + text(5048));
    return false;
  }
  definition_.findFirst("AttrId = " + std::to_string(g->attrId));
  if (!definition_.noMatch()) definition_.deleteRecord();
  std::erase_if(rows_, [&](const ValueRow& r) { return r.attribute.attrId == g->attrId; });
  selected_.removeOne(name);
  return true;
}

QStringList DefinitionAttributes::addTableLinkAttributes() {
  QStringList added;
  for (int32_t attrId : linkage::tableLinkAttributeIds(c_.db)) {
    definition_.findFirst("FeaId = " + std::to_string(c_.featureId) +
                          " and AttrId = " + std::to_string(attrId));
    if (!definition_.noMatch()) continue;
    DefinableAttribute attribute;
    if (const DefinableAttribute* a = catalogued(attrId)) {
      attribute = *a;
    } else if (auto g = findAttribute(c_.rs.graphicAttributes, attrId)) {
      attribute = {attrId, {}, g->name, g->gdoType, false};
    } else {
      continue;
    }
    define(attribute);
    addRow(attribute);
    added << attribute.name;
  }
  return added;
}

QString DefinitionAttributes::attributeCheck() const {
  return selected_.isEmpty() ? checkLine(text(5024)) : QString();
}

QString DefinitionAttributes::valueCheck() {
  QString lines;
  for (ValueRow& row : rows_) lines += checkAndWrite(row);
  return lines;
}

QString DefinitionAttributes::checkAndWrite(ValueRow& row) {
  const DefinableAttribute& a = row.attribute;
  if (row.values.isEmpty()) return checkLine(text(5027) + " " + a.name + " " + text(5026));
  const QString invalid = text(5025) + " " + a.name + ":";
  // A table-link attribute the template gave no value table.
  if (a.tableName.empty()) return checkLine(invalid + " " + text(5019));

  schema::Recordset table = c_.db.openRecordset("select * from " + a.tableName +
                                                " where feaId = " + std::to_string(c_.featureId));
  const int size = isTextType(a.gdoType) ? table.fieldSize(a.range ? "minVal" : "Value") : 0;
  const ParsedValues parsed = parseValues(ss(row.values), a.gdoType, a.range, size);
  switch (parsed.error) {
    case ValueError::kNone:
      break;
    case ValueError::kTooLong:
      return checkLine(a.name + " : Enter a Valid string, with length less than " +
                       QString::number(size));
    case ValueError::kNotQuoted:
      return checkLine(a.name + " : Enter the string, within single quotes ");
    case ValueError::kMisusedDelimiter:
      return checkLine(invalid + " " + text(5055));
    case ValueError::kInvalid:
      return checkLine(invalid);
  }
  if (table.recordCount() > 0)
    for (table.moveFirst(); !table.eof(); table.moveNext()) table.deleteRecord();
  for (const ValueItem& item : parsed.items) {
    table.addNew();
    table.setField("feaId", int32_t(c_.featureId));
    if (a.range) {
      table.setField("minVal", item.value);
      table.setField("maxVal", item.maximum);
    } else {
      table.setField("Value", item.value);
    }
    table.update();
  }
  return {};
}

}  // namespace features
