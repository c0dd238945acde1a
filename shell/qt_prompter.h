// QtPrompter: the Prompter the running program uses. Message boxes are
// QMessageBox with the buttons and icon of their style; file and folder
// requests are QFileDialog. Tests use document::ScriptedPrompter instead.
#pragma once

#include <QMessageBox>

#include "document/prompter.h"

class QWidget;

namespace shell {

class QtPrompter : public document::Prompter {
 public:
  explicit QtPrompter(QWidget* parent = nullptr) : parent_(parent) {}

  using document::Prompter::ask;
  document::Answer ask(const QString& text, document::MessageStyle style,
                       const QString& title) override;
  QString openFile(const document::FileDialogRequest& request) override;
  QString saveFile(const document::FileDialogRequest& request) override;
  QString chooseFolder(const QString& title, const QString& initialPath) override;

  // The buttons and icon a style shows; kept apart so they can be checked
  // without opening a box.
  static QMessageBox::StandardButtons buttonsFor(document::MessageStyle style);
  static QMessageBox::Icon iconFor(document::MessageStyle style);

 private:
  QWidget* parent_;
};

}  // namespace shell
