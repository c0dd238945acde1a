// frmErrors: the error list dialog. It lists the database engine's error
// records of the last failed operation, one line per record in the engine's
// order: number, a tab, source, a tab, description. F1 opens the help.
#pragma once

#include <QDialog>
#include <QString>
#include <memory>

#include "document/prompter.h"
#include "schema/engine_error.h"

namespace Ui {
class frmErrors;
}

namespace shell {

class frmErrors : public QDialog {
  Q_OBJECT

 public:
  // prompter answers for the help key (a locale whose help folder cannot be
  // named); it must outlive the dialog. Without one the dialog asks through
  // message boxes of its own.
  explicit frmErrors(QWidget* parent = nullptr, document::Prompter* prompter = nullptr);
  ~frmErrors() override;

  // Empties lstErrors and adds one line per record, first to last.
  void setErrors(const schema::ErrorList& records);

  static QString errorLine(const schema::ErrorRecord& record);

 private:
  std::unique_ptr<Ui::frmErrors> ui_;
  std::unique_ptr<document::Prompter> ownPrompter_;
};

}  // namespace shell
