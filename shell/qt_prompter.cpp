#include "shell/qt_prompter.h"

#include <QFileDialog>
#include <QFileInfo>

namespace shell {

using document::Answer;
using document::MessageStyle;

QMessageBox::StandardButtons QtPrompter::buttonsFor(MessageStyle style) {
  switch (style) {
    case MessageStyle::YesNoCancel:
      return QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
    case MessageStyle::YesNo:
    case MessageStyle::YesNoQuestion:
      return QMessageBox::Yes | QMessageBox::No;
    case MessageStyle::Ok:
    case MessageStyle::OkExclamation:
    case MessageStyle::OkInformation:
      break;
  }
  return QMessageBox::Ok;
}

QMessageBox::Icon QtPrompter::iconFor(MessageStyle style) {
  switch (style) {
    case MessageStyle::YesNoQuestion:
      return QMessageBox::Question;
    case MessageStyle::OkExclamation:
      return QMessageBox::Warning;
    case MessageStyle::OkInformation:
      return QMessageBox::Information;
    default:
      return QMessageBox::NoIcon;
  }
}

Answer QtPrompter::ask(const QString& text, MessageStyle style, const QString& title) {
  QMessageBox box(iconFor(style), title.isEmpty() ? document::kAppTitle : title, text,
                  buttonsFor(style), parent_);
  // A Yes/No box cannot be dismissed without choosing (no Escape, as with
  // the Windows message box); Yes is the default button, the first one.
  if (style == MessageStyle::YesNo || style == MessageStyle::YesNoQuestion)
    box.setDefaultButton(QMessageBox::Yes);
  switch (box.exec()) {
    case QMessageBox::Yes:
      return Answer::Yes;
    case QMessageBox::No:
      return Answer::No;
    case QMessageBox::Cancel:
      return Answer::Cancel;
    case QMessageBox::Ok:
      return Answer::Ok;
    default:
      break;
  }
  // The box was closed some other way: the answer the style's escape gives.
  if (document::styleAllows(style, Answer::Cancel)) return Answer::Cancel;
  if (document::styleAllows(style, Answer::No)) return Answer::No;
  return Answer::Ok;
}

QString QtPrompter::openFile(const document::FileDialogRequest& request) {
  QFileDialog dialog(parent_, request.title, request.initialPath,
                     document::toQtFilter(request.filter));
  dialog.setAcceptMode(QFileDialog::AcceptOpen);
  dialog.setFileMode(QFileDialog::ExistingFile);
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
  return dialog.selectedFiles().constFirst();
}

QString QtPrompter::saveFile(const document::FileDialogRequest& request) {
  for (;;) {
    QFileDialog dialog(parent_, request.title, request.initialPath,
                       document::toQtFilter(request.filter));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setOption(QFileDialog::DontConfirmOverwrite, !request.confirmOverwrite);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
    const QString path = dialog.selectedFiles().constFirst();
    if (!request.confirmCreate || QFileInfo::exists(path)) return path;
    // The Windows save dialog's create prompt: on No the dialog comes back.
    const Answer create = ask(path + QStringLiteral("\nThis file does not exist.\n"
                                                    "Do you want to create it?"),
                              MessageStyle::YesNo, request.title);
    if (create == Answer::Yes) return path;
  }
}

QString QtPrompter::chooseFolder(const QString& title, const QString& initialPath) {
  return QFileDialog::getExistingDirectory(parent_, title, initialPath);
}

}  // namespace shell
