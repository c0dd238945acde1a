// Prompter: the one door through which the program asks the user anything,
// message boxes and file or folder dialogs alike. Logic classes take a
// Prompter& instead of calling QMessageBox or QFileDialog, so tests answer
// with a ScriptedPrompter and read back what was shown; the widget-backed one
// lives with the main window.
#pragma once

#include <QList>
#include <QString>

namespace document {

// The application's title, used for every message box that names no other.
inline const QString kAppTitle = QStringLiteral("Vantor");

// The message box styles the program uses, numbered as the message box
// function numbers them, and nothing else.
enum class MessageStyle : int {
  Ok = 0,              // OK only, no icon
  YesNoCancel = 3,     // Yes, No, Cancel
  YesNo = 4,           // Yes, No
  YesNoQuestion = 36,  // Yes, No, question icon
  OkExclamation = 48,  // OK, exclamation icon
  OkInformation = 64,  // OK, information icon
};

enum class Answer { Ok, Cancel, Yes, No };

// Whether a message box of this style can give this answer.
bool styleAllows(MessageStyle style, Answer answer);

// One entry of a file dialog's type list: "CAD Schema Definition Files
// (*.csd)" with the pattern "*.csd".
struct FileFilterItem {
  QString description;
  QString pattern;
  bool operator==(const FileFilterItem&) const = default;
};
using FileFilter = QList<FileFilterItem>;

// Reads a filter written as "Description|pattern|Description|pattern", the
// form the numbered strings hold. A description without a pattern gets "*".
FileFilter parseFileFilter(const QString& pipeSeparated);
// The same filter as a QFileDialog takes it: "Description (patterns)"
// entries joined by ";;", whether or not the description showed its pattern;
// several patterns ("*.csf;*.dgn") are separated by blanks as Qt wants.
QString toQtFilter(const FileFilter& filter);

struct FileDialogRequest {
  QString title;
  FileFilter filter;
  QString initialPath;
  // Save dialogs: ask before overwriting an existing file and before
  // creating a new one; the read-only check box is never shown.
  bool confirmOverwrite = false;
  bool confirmCreate = false;
};

class Prompter {
 public:
  virtual ~Prompter() = default;

  // Shows a message box and returns the button pressed; the answer is always
  // one that styleAllows().
  virtual Answer ask(const QString& text, MessageStyle style, const QString& title) = 0;
  // The chosen file's full path, or an empty text when cancelled.
  virtual QString openFile(const FileDialogRequest& request) = 0;
  virtual QString saveFile(const FileDialogRequest& request) = 0;
  // The chosen folder, or an empty text when cancelled.
  virtual QString chooseFolder(const QString& title, const QString& initialPath) = 0;

  Answer ask(const QString& text, MessageStyle style) { return ask(text, style, kAppTitle); }
};

}  // namespace document
