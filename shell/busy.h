// Long work on the one thread, as the user sees it: the busy pointer for
// its whole length, a window that keeps painting, and past about a second
// a progress dialog that says what is being done.
#pragma once

#include <QElapsedTimer>
#include <QString>
#include <memory>

#include "folders/progress.h"

class QProgressDialog;
class QWidget;

namespace shell {

// The busy pointer around one handler, restored however it ends.
class Hourglass {
 public:
  Hourglass();
  ~Hourglass();
  Hourglass(const Hourglass&) = delete;
  Hourglass& operator=(const Hourglass&) = delete;
};

// Progress reported by folder work. Every few hundredths of a second it lets
// the window repaint (input waits: nothing else may start meanwhile); once
// the work has taken longer than `delayMs`, a window-modal dialog without a
// cancel button shows what is being done and how far it has come.
class WorkProgress : public folders::Progress {
 public:
  explicit WorkProgress(QWidget* parent, int delayMs = 1000);
  ~WorkProgress() override;

  void start(const QString& what, qsizetype total) override;
  void advance(qsizetype done) override;
  void finish() override;

  // The dialog, while it is up; null before the delay and after finish().
  QProgressDialog* dialog() const { return dialog_.get(); }

 private:
  QWidget* parent_;
  int delayMs_;
  QString what_;
  qsizetype total_ = 0;
  QElapsedTimer clock_;
  qint64 lastTurn_ = 0;
  std::unique_ptr<QProgressDialog> dialog_;
};

}  // namespace shell
