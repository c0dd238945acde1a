// FeatureWizard: the logic of the Feature Definition Wizard, without a
// widget. It reads a feature class (or begins a new one), keeps the state
// the five steps show, answers the steps' events by writing rows, runs the
// checks that gate Next and Finish, and ends in Finish (the Features row is
// written and everything committed) or Cancel (everything rolled back).
//
// Promises:
// - From load() to the end of Finish or Cancel everything runs inside one
//   transaction of the database; until then nothing reaches the file, and
//   Cancel (or destroying a wizard that neither finished nor cancelled)
//   leaves the file as it was before load(). The Features recordset's row
//   stays in add or edit mode all that time and is discarded on Cancel.
// - Refusals and failed checks go to the user through the Prompter; engine
//   errors leave as schema::EngineError. finish() rolls back before passing
//   on any error but the duplicate name (3022), which it reports itself.
#pragma once

#include <QString>
#include <QStringList>
#include <memory>
#include <string>
#include <vector>

#include "features/definition_attributes.h"
#include "features/exposed_attributes.h"
#include "features/feature_maps.h"
#include "features/wizard_context.h"

namespace features {

class FeatureWizard {
 public:
  static constexpr int kStepCount = 5;

  // An entry of the coordinate-system box: the folder path, "/" and the
  // file's name; the first entry is the empty one, no coordinate system.
  struct CoordinateSystem {
    QString text;
    int16_t csfid = 0;  // 0 for the empty entry
  };

  enum class Outcome { kStay, kFinished };

  FeatureWizard(schema::SchemaDatabase& db, WizardRecordsets recordsets,
                document::Prompter& prompter);
  ~FeatureWizard();
  FeatureWizard(const FeatureWizard&) = delete;
  FeatureWizard& operator=(const FeatureWizard&) = delete;

  // Begins the transaction and reads the feature class of that name, or
  // adds a new one ("Feature" + its key) when the name is empty. On failure
  // the transaction is rolled back and the error passes on.
  void load(const QString& featureName, const std::string& graphicScannerClass);

  bool isNew() const { return isNew_; }
  int16_t featureId() const { return c_.featureId; }
  const QString& nameAsOpened() const { return nameAsOpened_; }

  // Step 0.
  const QString& name() const { return name_; }
  void setName(const QString& name) { name_ = name; }
  const std::vector<CoordinateSystem>& coordinateSystems() const { return coordinateSystems_; }
  int coordinateSystem() const { return coordinateSystem_; }
  void setCoordinateSystem(int index) { coordinateSystem_ = index; }
  QString coordinateSystemText() const;
  bool dbLinked() const { return c_.dbLinked; }
  bool dbLinkageEnabled() const { return dbLinkageEnabled_; }
  // The check box was clicked; switching linkage on adds the table-link
  // attributes to the definition. Returns their names.
  QStringList setDbLinked(bool linked);

  ExposedAttributes& exposed() { return exposed_; }
  DefinitionAttributes& definition() { return definition_; }
  FeatureMaps& maps() { return maps_; }

  // Navigation. The caption names the step.
  int step() const { return step_; }
  void goToStep(int step);
  bool backEnabled() const { return step_ > 0; }
  bool nextEnabled() const { return step_ < kStepCount - 1; }
  QString caption() const;
  // Runs the step's check: on failure the user is told and the step stays.
  // Leaving the first step of a new feature class first adds its key
  // attributes to the exposed ones.
  bool next();
  void back() { goToStep(step_ - 1); }
  // Every check; when all pass the Features row is written and committed.
  Outcome finish();
  void cancel();
  bool isOpen() const { return open_; }

  // The step checks: "" or lines of "  " + message + "\r\n".
  QString nameCheck() const;
  QString stepCheck(int step);

 private:
  void fillCoordinateSystems(int16_t featureCs);
  void write();
  void rollBack();

  WizardContext c_;
  ExposedAttributes exposed_{c_};
  DefinitionAttributes definition_{c_};
  FeatureMaps maps_{c_};
  bool open_ = false;  // the transaction is ours to end
  int level_ = 0;      // its depth
  bool editing_ = false, isNew_ = false;
  QString nameAsOpened_, name_;
  std::vector<CoordinateSystem> coordinateSystems_;
  int coordinateSystem_ = 0;
  bool dbLinkageEnabled_ = true;
  int step_ = 0;
};

}  // namespace features
