// frmDir: the Select Folder dialog. A chooser of mount points (the Linux
// drives), the folder tree of the chosen one, and a box holding the path
// that will be returned, which the user may also type into: Enter, or
// leaving the box, shows the typed folder in the tree, or says "Folder ...
// not found." and keeps the dialog open. OK returns the box's path, Cancel
// (and Escape) an empty text. F1 opens the help.
#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>
#include <memory>

#include "document/prompter.h"

class QFileSystemModel;

namespace Ui {
class frmDir;
}

namespace shell {

class frmDir : public QDialog {
  Q_OBJECT

 public:
  // The prompter shows the "not found" message and answers the help key;
  // it must outlive the dialog. The dialog opens on the home folder.
  explicit frmDir(document::Prompter& prompter, QWidget* parent = nullptr);
  ~frmDir() override;

  // Opens on path, or on its nearest parent that is there; on the
  // temporary folder when no part of it is.
  void setInitialPath(const QString& path);
  // The box's path after OK; empty after Cancel or before either.
  QString selectedPath() const { return ok_ ? selected_ : QString(); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  // Shows folder in the tree under its mount point and in the box.
  void showFolder(const QString& folder);
  // The typed path: shown when it is a folder; otherwise the message, and
  // false.
  bool takeTypedPath();
  void accept() override;
  void reject() override;

  std::unique_ptr<Ui::frmDir> ui_;
  document::Prompter& prompter_;
  QFileSystemModel* model_;
  QStringList mountPoints_;
  QString selected_;
  // Whether the tree keeps the folder showFolder() put there in view.
  bool following_ = false;
  bool ok_ = false;
  bool checking_ = false;  // the message box must not start a second check
};

// Runs frmDir modally, opened on initialPath (the home folder when empty),
// and returns its selected path.
QString runFolderDialog(QWidget* parent, document::Prompter& prompter, const QString& initialPath);

}  // namespace shell
