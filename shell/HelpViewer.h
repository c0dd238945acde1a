// HelpViewer: the window that shows the help file, an HTML document whose
// topics are anchors named by numbers. It is not modal, so the user can read
// beside the form that asked; one viewer serves the whole program and keeps
// its Back and Forward history when help is asked for again.
#pragma once

#include <QMainWindow>
#include <QMetaObject>
#include <QUrl>

class QAction;
class QDialog;
class QTextBrowser;

namespace shell {

class HelpViewer : public QMainWindow {
  Q_OBJECT

 public:
  explicit HelpViewer(QWidget* parent = nullptr);

  // Shows file at the topic whose anchor is context; the contents action
  // comes back to this topic.
  void showTopic(const QString& file, int context);

  // The program's one viewer, made on first use, shown at the topic and
  // brought to the front.
  static HelpViewer* open(const QString& file, int context);
  // That viewer, or null when none was made or it is gone.
  static HelpViewer* current();

  QTextBrowser* browser() const { return browser_; }

 private:
  // A modal dialog blocks every window outside its own family. The viewer
  // joins the family of the modal dialog that asked for help and leaves it
  // when that dialog is done, so it stays usable all along.
  void followModal(QWidget* modal);

  QTextBrowser* browser_;
  QAction* back_;
  QAction* forward_;
  QAction* contents_;
  QUrl home_;
  QMetaObject::Connection ownerDone_;
};

}  // namespace shell
