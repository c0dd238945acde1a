#include "shell/busy.h"

#include <QApplication>
#include <QProgressDialog>
#include <algorithm>
#include <limits>

namespace shell {

namespace {
// How often long work lets the event loop turn: often enough for a window
// dragged across it to repaint smoothly, rarely enough to cost nothing.
constexpr qint64 kTurnMs = 40;
}  // namespace

Hourglass::Hourglass() { QApplication::setOverrideCursor(Qt::WaitCursor); }
Hourglass::~Hourglass() { QApplication::restoreOverrideCursor(); }

WorkProgress::WorkProgress(QWidget* parent, int delayMs) : parent_(parent), delayMs_(delayMs) {}

WorkProgress::~WorkProgress() = default;

void WorkProgress::start(const QString& what, qsizetype total) {
  what_ = what;
  total_ = total;
  lastTurn_ = 0;
  clock_.start();
}

void WorkProgress::advance(qsizetype done) {
  const qint64 now = clock_.elapsed();
  const bool dialogDue = !dialog_ && now >= delayMs_;
  if (!dialogDue && now - lastTurn_ < kTurnMs) return;
  lastTurn_ = now;
  if (dialogDue) {
    // A dialog's range is an int; a count beyond that is shown scaled.
    const int maximum = int(std::min<qsizetype>(total_, std::numeric_limits<int>::max()));
    dialog_ = std::make_unique<QProgressDialog>(what_, QString(), 0, maximum, parent_);
    dialog_->setWindowTitle(QApplication::applicationName());
    dialog_->setWindowModality(Qt::WindowModal);
    dialog_->setMinimumDuration(0);
    dialog_->setAutoClose(false);
    dialog_->setAutoReset(false);
    dialog_->show();
  }
  if (dialog_) dialog_->setValue(int(std::min<qsizetype>(done, dialog_->maximum())));
  QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void WorkProgress::finish() { dialog_.reset(); }

}  // namespace shell
