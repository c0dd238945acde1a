// Step 1 of the wizard: the graphic attributes a feature class exposes
// (FeatureAttributes rows, written the moment an attribute is moved) and the
// one among them that is its primary geometry. Key attributes are added by
// themselves to a new feature class and guarded against removal by a
// question; the primary geometry is written with the Features row on Finish.
#pragma once

#include <QString>
#include <QStringList>
#include <vector>

#include "features/wizard_context.h"

namespace features {

class ExposedAttributes {
 public:
  struct Geometry {
    QString name;
    bool checked = false;
  };

  explicit ExposedAttributes(WizardContext& context) : c_(context) {}

  // Every graphic attribute by name, the feature's exposed ones, and the
  // geometry list with primaryGeometry (an AttrId, 0 for none) checked.
  void load(int32_t primaryGeometry);

  const QStringList& available() const { return available_; }
  const QStringList& selected() const { return selected_; }
  const std::vector<Geometry>& geometry() const { return geometry_; }

  // The key attributes of the feature's kind (graphic-only or database
  // linked) that it does not expose yet are added; returns their names.
  QStringList addKeyAttributes();

  // The chooser's two events: whether the attribute may move.
  bool add(const QString& name);
  bool remove(const QString& name);

  // Checks the geometry entry at row and unchecks every other; a row
  // outside the list unchecks them all.
  void checkGeometry(int row);
  // "" or the line for message 5029.
  QString check() const;
  // The AttrId of the checked geometry entry; 0 when none is checked.
  int32_t primaryGeometryId();

 private:
  bool exposes(int32_t attrId);
  void expose(int32_t attrId);

  WizardContext& c_;
  schema::Recordset rows_;  // the feature's FeatureAttributes
  QStringList available_, selected_;
  std::vector<Geometry> geometry_;
};

}  // namespace features
