// The per-user settings the program keeps: application "Vantor", no
// organisation (the file "<user config folder>/Vantor.conf"), group
// "Settings". Only the last saved document
// ("RecentFile1", read and written) and the main window's last normal
// placement ("MainLeft", "MainTop", "MainWidth", "MainHeight", written only).
// Tests move the store with QSettings::setPath or QStandardPaths' test mode.
#pragma once

#include <QString>

namespace document {

class DocumentSettings {
 public:
  static QString recentFile();
  static void setRecentFile(const QString& path);
  // Called as the main window unloads; a minimized window writes nothing, so
  // the values of its last close in normal state stay.
  static void writeMainWindowPlacement(int left, int top, int width, int height, bool minimized);
};

}  // namespace document
