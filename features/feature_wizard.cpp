#include "features/feature_wizard.h"

#include <algorithm>

#include "document/string_table.h"
#include "features/feature_name.h"
#include "linkage/parameters_table.h"
#include "schema/engine_error.h"

using document::text;

namespace features {

namespace {
constexpr int kFirstHeading = 2000;  // strings 2000 to 2004 head the five steps
}

FeatureWizard::FeatureWizard(schema::SchemaDatabase& db, WizardRecordsets recordsets,
                             document::Prompter& prompter)
    : c_{db, recordsets, prompter} {}

FeatureWizard::~FeatureWizard() {
  try {
    rollBack();
  } catch (const std::exception&) {
    // Nothing can be reported from here; the database rolls back what is
    // left when it closes.
  }
}

void FeatureWizard::load(const QString& featureName, const std::string& graphicScannerClass) {
  c_.db.beginTrans();
  open_ = true;
  level_ = c_.db.transactionLevel();
  try {
    schema::Recordset& features = c_.rs.features;
    int16_t featureCs = 0;
    int32_t primaryGeometry = 0;
    editing_ = !featureName.isEmpty();
    if (editing_) {
      features.findFirst("Name = '" + ss(featureName) + "'");
      if (features.noMatch())
        throw schema::EngineError(schema::err::kNoCurrentRecord, schema::sources::kRecordset);
      featureCs = schema::toInteger16(longOrZero(features, "csfid"));
      features.edit();
      nameAsOpened_ = featureName;
      c_.dbLinked = longOrZero(features, "dblinked") != 0;
      primaryGeometry = longOrZero(features, "primaryGeometry");
    } else {
      features.addNew();
      nameAsOpened_.clear();
      c_.dbLinked = false;
    }
    c_.featureId = schema::toInteger16(longOrZero(features, "feaId"));
    name_ = editing_ ? featureName : QStringLiteral("Feature") + QString::number(c_.featureId);

    fillCoordinateSystems(featureCs);
    definition_.load();
    exposed_.load(primaryGeometry);
    maps_.load();
    dbLinkageEnabled_ = graphicScannerClass != linkage::kAutoCadScanner;
    isNew_ = !editing_;
    step_ = 0;
  } catch (...) {
    rollBack();
    throw;
  }
}

void FeatureWizard::fillCoordinateSystems(int16_t featureCs) {
  coordinateSystems_ = {{QString(), 0}};
  coordinateSystem_ = 0;
  schema::Recordset& files = c_.rs.coordinateSystemFiles;
  schema::Recordset& dirs = c_.rs.directories;
  if (files.recordCount() == 0) return;
  for (files.moveFirst(); !files.eof(); files.moveNext()) {
    const int16_t csfid = schema::toInteger16(longOrZero(files, "csfid"));
    QString entry = textOrEmpty(files, "Name");
    dirs.findFirst("DirId = " + std::to_string(longOrZero(files, "dirId")));
    if (!dirs.noMatch()) entry = textOrEmpty(dirs, "Path") + "/" + entry;
    if (featureCs != 0 && csfid == featureCs)
      coordinateSystem_ = static_cast<int>(coordinateSystems_.size());
    coordinateSystems_.push_back({entry, csfid});
  }
}

QString FeatureWizard::coordinateSystemText() const {
  if (coordinateSystem_ < 0 || coordinateSystem_ >= int(coordinateSystems_.size())) return {};
  return coordinateSystems_[size_t(coordinateSystem_)].text;
}

QStringList FeatureWizard::setDbLinked(bool linked) {
  c_.dbLinked = linked;
  return linked ? definition_.addTableLinkAttributes() : QStringList();
}

void FeatureWizard::goToStep(int step) { step_ = std::clamp(step, 0, kStepCount - 1); }

QString FeatureWizard::caption() const {
  return QStringLiteral("Feature Definition Wizard - ") + text(kFirstHeading + step_);
}

QString FeatureWizard::nameCheck() const { return features::nameCheck(name_); }

QString FeatureWizard::stepCheck(int step) {
  switch (step) {
    case 0:
      return nameCheck();
    case 1:
      return exposed_.check();
    case 2:
      return definition_.attributeCheck();
    case 3:
      return definition_.valueCheck();
    default:
      return maps_.check(coordinateSystemText());
  }
}

bool FeatureWizard::next() {
  if (!nextEnabled()) return false;
  if (step_ == 0 && isNew_) exposed_.addKeyAttributes();
  const QString problems = stepCheck(step_);
  if (!problems.isEmpty()) {
    c_.tell(problems);
    return false;
  }
  goToStep(step_ + 1);
  return true;
}

FeatureWizard::Outcome FeatureWizard::finish() {
  QString problems;
  for (int step = 0; step < kStepCount; ++step) {
    const QString found = stepCheck(step);
    if (found.isEmpty()) continue;
    if (problems.isEmpty()) problems = text(5054) + "\r\n";
    problems += found + "\r\n";
  }
  if (!problems.isEmpty()) {
    c_.tell(problems);
    return Outcome::kStay;
  }
  try {
    write();
  } catch (const schema::EngineError& e) {
    if (e.number() != schema::err::kDuplicateKey) {
      rollBack();
      throw;
    }
    // The name is taken: the row stays pending, so the user may change it
    // and finish again.
    c_.tell(text(5022));
    return Outcome::kStay;
  } catch (...) {
    rollBack();
    throw;
  }
  return Outcome::kFinished;
}

void FeatureWizard::write() {
  schema::Recordset& features = c_.rs.features;
  int16_t csfid = 0;
  const QString csText = coordinateSystemText();
  for (const CoordinateSystem& cs : coordinateSystems_)
    if (cs.text == csText) {
      csfid = cs.csfid;
      break;
    }
  features.setField("csfid", csfid ? jet::Value(int32_t(csfid)) : jet::Value());
  features.setField("Name", ss(name_));
  features.setField("dblinked", c_.dbLinked);
  features.setField("primaryGeometry", int32_t(schema::toInteger16(exposed_.primaryGeometryId())));
  features.update();
  // A commit that fails once it has closed the transaction leaves nothing
  // to roll back: rollBack() looks at the depth.
  c_.db.commitTrans();
  open_ = false;
}

void FeatureWizard::cancel() { rollBack(); }

void FeatureWizard::rollBack() {
  if (!open_) return;
  open_ = false;
  schema::Recordset& features = c_.rs.features;
  if (features.isOpen() && features.editMode() != schema::Recordset::EditMode::kNone)
    features.cancelUpdate();
  if (c_.db.isOpen() && c_.db.transactionLevel() >= level_) c_.db.rollback();
}

}  // namespace features
