// Steps 2 and 3 of the wizard: the graphic attributes whose values define
// the feature class (FeatureDefinition rows, written as attributes are
// moved) and, per attribute, the values typed into the value grid, stored in
// the attribute's own value table when the values are checked.
//
// The catalogue of definable attributes is read once, with the value table
// and domain of each. With database linkage on, the table-link attributes
// are definition attributes that cannot be taken out.
#pragma once

#include <QString>
#include <QStringList>
#include <string>
#include <vector>

#include "features/wizard_context.h"

namespace features {

// An attribute that may define feature classes.
struct DefinableAttribute {
  int32_t attrId = 0;
  std::string tableName;  // its value table; "" when it has none
  QString name;
  int gdoType = 0;
  bool range = false;  // domain "Range": rows of minVal and maxVal
};

// A row of the value grid.
struct ValueRow {
  DefinableAttribute attribute;
  QString values;        // the text as typed, or as shown from the table
  bool updated = false;  // edited since it was shown
};

class DefinitionAttributes {
 public:
  explicit DefinitionAttributes(WizardContext& context) : c_(context) {}

  // The catalogue, the feature's definition attributes and their grid rows
  // with the values stored for the feature.
  void load();

  QStringList available() const;
  const QStringList& selected() const { return selected_; }
  const std::vector<ValueRow>& rows() const { return rows_; }
  void setValues(size_t row, const QString& values);

  // The chooser's two events: whether the attribute may move.
  bool add(const QString& name);
  bool remove(const QString& name);

  // Database linkage was switched on: the table-link attributes the feature
  // lacks become definition attributes. Returns their names.
  QStringList addTableLinkAttributes();

  // "" or the line for message 5024.
  QString attributeCheck() const;
  // One line per grid row whose values are missing or wrong; every other
  // row's values replace what its value table held for the feature.
  QString valueCheck();

 private:
  const DefinableAttribute* catalogued(int32_t attrId) const;
  void define(const DefinableAttribute& attribute);
  void addRow(const DefinableAttribute& attribute);
  // The line for one grid row, "" when its values were written.
  QString checkAndWrite(ValueRow& row);

  WizardContext& c_;
  std::vector<DefinableAttribute> catalogue_;
  schema::Recordset definition_;  // the feature's FeatureDefinition rows
  QStringList selected_;
  std::vector<ValueRow> rows_;
};

}  // namespace features
