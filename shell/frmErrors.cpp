#include "shell/frmErrors.h"

#include <QKeyEvent>

#include "ui_frmErrors.h"

namespace shell {

frmErrors::frmErrors(QWidget* parent) : QDialog(parent), ui_(std::make_unique<Ui::frmErrors>()) {
  ui_->setupUi(this);
  connect(ui_->cmdClose, &QPushButton::clicked, this, &QDialog::accept);
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

void frmErrors::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_F1) {
    emit helpRequested();
    event->accept();
    return;
  }
  QDialog::keyPressEvent(event);
}

}  // namespace shell
