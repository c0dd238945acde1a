// The Feature Definition tab's feature class list: New and Edit open the
// Feature Definition Wizard on the main window's database and recordsets,
// Delete removes a class with everything that hangs from it.
#include <QListWidget>

#include "features/feature_list.h"
#include "features/frmWizard.h"
#include "shell/busy.h"
#include "shell/frmMain.h"
#include "shell/help.h"
#include "ui_frmMain.h"

namespace {

// The class chosen in the list; null when none is.
QListWidgetItem* chosen(QListWidget* list) {
  const QList<QListWidgetItem*> items = list->selectedItems();
  return items.isEmpty() ? nullptr : items.first();
}

}  // namespace

void frmMain::wireFeatureTab() {
  // Choosing a class with the arrow keys enables Edit and Delete as a click
  // does.
  connect(ui_->lbFeatCls, &QListWidget::itemSelectionChanged, this, [this] {
    if (ui_->lbFeatCls->selectedItems().isEmpty()) return;
    ui_->butEditFeatCls->setEnabled(true);
    ui_->butDeleteFeatCls->setEnabled(true);
  });
  connect(ui_->butNewFeatCls, &QPushButton::clicked, this,
          [this] { trap([this] { runFeatureWizard(false); }); });
  connect(ui_->butEditFeatCls, &QPushButton::clicked, this,
          [this] { trap([this] { runFeatureWizard(true); }); });
  connect(ui_->lbFeatCls, &QListWidget::itemDoubleClicked, this,
          [this] { trap([this] { runFeatureWizard(true); }); });
  connect(ui_->butDeleteFeatCls, &QPushButton::clicked, this,
          [this] { trap([this] { deleteFeatureClass(); }); });
}

void frmMain::runFeatureWizard(bool edit) {
  QListWidget* list = ui_->lbFeatCls;
  QListWidgetItem* item = chosen(list);
  if (edit && !item) return;
  const int remembered = item ? list->row(item) : -1;
  const QString name = edit ? item->text() : QString();
  // However the wizard ends, even when it cannot read its feature class,
  // the list and the recordsets are read again afterwards: declared before
  // the dialog, this runs once the wizard is gone.
  struct Refresh {
    frmMain& window;
    int row;
    ~Refresh() {
      shell::Hourglass busy;
      window.requery();
      window.trap([this] {
        window.fillFeatureList();
        window.ui_->lbFeatCls->setCurrentRow(row);
      });
    }
  } refresh{*this, remembered};

  features::WizardRecordsets recordsets{
      sharedRecordset("Features"),          sharedRecordset("Maps"),
      sharedRecordset("Directories"),       sharedRecordset("CoordinateSystemFiles"),
      sharedRecordset("GraphicAttributes"), sharedRecordset("FeatureDefAttr")};
  features::frmWizard dialog(lifecycle_->database(), recordsets, *prompter_, this);
  dialog.setErrorSink([this](const std::exception& e) { report(e); });
  dialog.setHelpHandler(
      [this, &dialog](int context) { shell::ShowHelp(&dialog, *prompter_, context); });
  {
    shell::Hourglass busy;
    dialog.load(name, scanner_.drawingScannerClass());
  }
  shell::installHelpKey(&dialog, *prompter_);
  if (options_.runFeatureWizard)
    options_.runFeatureWizard(dialog);
  else
    dialog.exec();
}

void frmMain::deleteFeatureClass() {
  QListWidgetItem* item = chosen(ui_->lbFeatCls);
  if (!item) return;
  shell::Hourglass busy;
  if (features::deleteFeatureClass(lifecycle_->database(), sharedRecordset("Features"),
                                   item->text()))
    fillFeatureList();
}
