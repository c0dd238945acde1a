#include <QApplication>

#include "shell/frmMain.h"

int main(int argc, char* argv[]) {
  QApplication app(argc, argv);
  // QSettings keys everything under the application name.
  QApplication::setApplicationName("Vantor");

  frmMain window;
  window.show();
  return app.exec();
}
