// Progress: how long work in the folder features tells the user how far it
// has come. The forms show it (the busy pointer, a window that keeps
// painting, a progress dialog when the work takes more than about a
// second); the logic only reports. The base class reports to nobody.
#pragma once

#include <QString>

namespace folders {

class Progress {
 public:
  virtual ~Progress() = default;
  // Work of `total` steps begins; `what` says what it is doing.
  virtual void start(const QString& what, qsizetype total) {
    (void)what;
    (void)total;
  }
  // `done` of the steps are done.
  virtual void advance(qsizetype done) { (void)done; }
  virtual void finish() {}
};

}  // namespace folders
