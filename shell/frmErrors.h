// frmErrors: the error list dialog. It lists the database engine's error
// records of the last failed operation, one line per record in the engine's
// order: number, a tab, source, a tab, description.
#pragma once

#include <QDialog>
#include <QString>
#include <memory>

#include "schema/engine_error.h"

namespace Ui {
class frmErrors;
}

namespace shell {

class frmErrors : public QDialog {
  Q_OBJECT

 public:
  explicit frmErrors(QWidget* parent = nullptr);
  ~frmErrors() override;

  // Empties lstErrors and adds one line per record, first to last.
  void setErrors(const schema::ErrorList& records);

  static QString errorLine(const schema::ErrorRecord& record);

 signals:
  // F1: the main window answers with the program's help.
  void helpRequested();

 protected:
  void keyPressEvent(QKeyEvent* event) override;

 private:
  std::unique_ptr<Ui::frmErrors> ui_;
};

}  // namespace shell
