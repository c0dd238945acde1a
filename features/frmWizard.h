// frmWizard: the Feature Definition Wizard's window. Five steps in one
// stack (fraStep, pages fraStep0 to fraStep4) and the row of buttons
// cmdNav0 to cmdNav4: Help, Cancel, < Back (Alt+B), Next > (Alt+N) and
// Finish (Alt+F). Escape and the close box cancel. Everything the steps do
// is FeatureWizard's; this class only shows its state and hands it the
// user's moves.
//
// The database and the recordsets must outlive the dialog. A failure in a
// handler goes to the error sink and the wizard stays open, except when
// Finish fails to write: then everything is rolled back and it closes.
#pragma once

#include <QDialog>
#include <exception>
#include <functional>
#include <memory>

#include "features/feature_wizard.h"

namespace Ui {
class frmWizard;
}
namespace controls {
class MoveOverStringControl;
}

namespace features {

class ValueGridModel;

class frmWizard : public QDialog {
  Q_OBJECT

 public:
  using ErrorSink = std::function<void(const std::exception&)>;
  // The help topics of the five steps follow each other from here.
  static constexpr int kFirstStepHelpContext = 141;

  frmWizard(schema::SchemaDatabase& db, WizardRecordsets recordsets, document::Prompter& prompter,
            QWidget* parent = nullptr);
  ~frmWizard() override;

  // Reads the feature class (empty name: a new one) and fills the steps;
  // fails as FeatureWizard::load does, with nothing left open.
  void load(const QString& featureName, const std::string& graphicScannerClass);

  void setErrorSink(ErrorSink sink);
  // The Help button; it is given the help topic of the current step.
  void setHelpHandler(std::function<void(int context)> handler) { help_ = std::move(handler); }

  FeatureWizard& wizard() { return wizard_; }

  // Cancel, Escape and the close box: everything is rolled back.
  void reject() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void wireChooser(controls::MoveOverStringControl* chooser,
                   std::function<bool(const QString&)> add,
                   std::function<bool(const QString&)> remove, std::function<void()> changed = {});
  void showStep();
  void showGeometry();
  void showDefinition();
  void focusStep();
  void commitGridEdit();
  // The check of leaving the name box; false when the focus went back.
  // emptyMayLeave: an empty name is left to the check of Next and Finish.
  bool leaveName(bool emptyMayLeave);
  void nameEdited(const QString& text);
  void geometryChanged(int row, bool checked);
  void linkageClicked(bool checked);
  void next();
  void finish();
  void trap(const std::function<void()>& handler);

  std::unique_ptr<Ui::frmWizard> ui_;
  document::Prompter& prompter_;
  FeatureWizard wizard_;
  ValueGridModel* grid_ = nullptr;
  ErrorSink sink_;
  std::function<void(int)> help_;
  bool showing_ = false;  // widgets being filled: their signals are not the user's
};

}  // namespace features
