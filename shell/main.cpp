#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QStringList>
#include <csignal>

#include "shell/frmMain.h"

namespace {

int signalPipe[2] = {-1, -1};

void onTerminate(int) {
  const char byte = 1;
  // Only async-signal-safe work here; the event loop does the rest.
  [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
}

// SIGTERM and SIGINT end the event loop instead of the process, so the
// window is destroyed normally and its working copy is deleted; the
// document on disk is left as it was.
void quitOnTermination(QApplication& app) {
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) return;
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
  QObject::connect(notifier, &QSocketNotifier::activated, &app, [] {
    char byte;
    [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &byte, 1);
    // exit(), not quit(): quit() would first ask every window to close, and
    // the save question has nobody to answer it.
    QApplication::exit(0);
  });
  struct sigaction action {};
  action.sa_handler = onTerminate;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

}  // namespace

int main(int argc, char* argv[]) {
  QApplication app(argc, argv);
  QApplication::setApplicationName("Vantor");
  QApplication::setApplicationVersion(VANTOR_VERSION);
  quitOnTermination(app);

  // Everything after the program's name is the document to open, as given:
  // a path with blanks arrives as several arguments and is joined again.
  QStringList arguments = QApplication::arguments();
  arguments.removeFirst();

  frmMain::Options options;
  options.commandLine = arguments.join(QLatin1Char(' '));
  frmMain window(options);
  window.show();
  return app.exec();
}
