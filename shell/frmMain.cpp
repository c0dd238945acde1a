#include "shell/frmMain.h"

#include "ui_frmMain.h"

frmMain::frmMain(QWidget* parent) : QMainWindow(parent), ui_(std::make_unique<Ui::frmMain>()) {
  ui_->setupUi(this);
  // Designer has no per-tab enabled flag; with no document open every tab is off. Disabling the
  // current tab moves the selection on to the last one, so select the first tab again afterwards.
  for (int i = 0; i < ui_->SSTab1->count(); ++i) ui_->SSTab1->setTabEnabled(i, false);
  ui_->SSTab1->setCurrentIndex(0);
  connect(ui_->mnuFileExit, &QAction::triggered, this, &QWidget::close);
}

frmMain::~frmMain() = default;
