#include "document/document_settings.h"

#include <QSettings>

namespace document {

namespace {

// Each call opens the store afresh, so a value is on its way to disk as soon
// as the QSettings object goes out of scope and nothing stays cached between
// calls.
class Store {
 public:
  // No organisation: the store is "<user config folder>/Vantor.conf". Qt
  // names that file after the organisation when no application is given, and
  // would put an empty organisation under "Unknown Organization/".
  Store() : settings_(QSettings::UserScope, QStringLiteral("Vantor"), QString()) {
    settings_.beginGroup(QStringLiteral("Settings"));
  }
  QSettings* operator->() { return &settings_; }

 private:
  QSettings settings_;
};

}  // namespace

QString DocumentSettings::recentFile() {
  return Store()->value(QStringLiteral("RecentFile1")).toString();
}

void DocumentSettings::setRecentFile(const QString& path) {
  Store()->setValue(QStringLiteral("RecentFile1"), path);
}

void DocumentSettings::writeMainWindowPlacement(int left, int top, int width, int height,
                                                bool minimized) {
  if (minimized) return;
  Store store;
  store->setValue(QStringLiteral("MainLeft"), left);
  store->setValue(QStringLiteral("MainTop"), top);
  store->setValue(QStringLiteral("MainWidth"), width);
  store->setValue(QStringLiteral("MainHeight"), height);
}

}  // namespace document
