#include "shell/frmErrors.h"

#include "shell/help.h"
#include "shell/qt_prompter.h"
#include "ui_frmErrors.h"

namespace shell {

frmErrors::frmErrors(QWidget* parent, document::Prompter* prompter)
    : QDialog(parent), ui_(std::make_unique<Ui::frmErrors>()) {
  ui_->setupUi(this);
  connect(ui_->cmdClose, &QPushButton::clicked, this, &QDialog::accept);
  if (!prompter) {
    ownPrompter_ = std::make_unique<QtPrompter>(this);
    prompter = ownPrompter_.get();
  }
  installHelpKey(this, *prompter);
}

frmErrors::~frmErrors() = default;

QString frmErrors::errorLine(const schema::ErrorRecord& record) {
  return QString::number(record.number) + QLatin1Char('\t') +
         QString::fromStdString(record.source) + QLatin1Char('\t') +
         QString::fromStdString(record.description);
}

void frmErrors::setErrors(const schema::ErrorList& records) {
  ui_->lstErrors->clear();
  for (const schema::ErrorRecord& record : records) ui_->lstErrors->addItem(errorLine(record));
}

}  // namespace shell
