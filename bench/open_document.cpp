// The editor on a large document: the main window opened on FILE as from
// the command line (working copy made, database opened, lists filled) and
// drawn, then the Feature Definition tab chosen and drawn, then the
// Coordinate Systems tab, whose association is worked out when shown. Offscreen when
// there is no display. Prints one markdown row per figure (median of REPS).
//
//   bench_open_document FILE [--reps N]
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QListWidget>
#include <QTabWidget>
#include <QTemporaryDir>
#include <cstdio>
#include <memory>
#include <vector>

#include "bench_support.h"
#include "document/scripted_prompter.h"
#include "shell/frmMain.h"

namespace {

void settle() {
  for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
}

void printRow(const char* figure, const std::vector<double>& ms, double goalMs) {
  const double m = bench::median(ms);
  if (goalMs <= 0) {
    std::printf("| %s | %.1f ms | %s | — | — |\n", figure, m, bench::range(ms, "%.1f").c_str());
    return;
  }
  std::printf("| %s | %.1f ms | %s | < %.0f ms | %s |\n", figure, m,
              bench::range(ms, "%.1f").c_str(), goalMs, m < goalMs ? "PASS" : "FAIL");
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const QStringList args = app.arguments();
  if (args.size() < 2) {
    std::fprintf(stderr, "usage: bench_open_document FILE [--reps N]\n");
    return 2;
  }
  int reps = 5;
  if (args.size() == 4 && args[2] == "--reps") reps = std::max(1, args[3].toInt());
  QTemporaryDir temp;
  std::vector<double> openMs, tabMs, csMs;
  int features = 0;
  for (int r = 0; r < reps; ++r) {
    document::ScriptedPrompter prompter;
    frmMain::Options options;
    options.prompter = &prompter;
    options.tempFolder = temp.path();
    options.commandLine = args[1];
    QElapsedTimer clock;
    clock.start();
    auto window = std::make_unique<frmMain>(options);
    window->resize(900, 640);
    window->show();
    window->firstActivation();
    settle();
    openMs.push_back(double(clock.nsecsElapsed()) / 1e6);
    if (!window->lifecycle().isOpen()) {
      std::fprintf(stderr, "bench_open_document: %s did not open\n", qPrintable(args[1]));
      return 1;
    }
    auto* tabs = window->findChild<QTabWidget*>("SSTab1");
    clock.restart();
    tabs->setCurrentIndex(2);
    settle();
    tabMs.push_back(double(clock.nsecsElapsed()) / 1e6);
    features = window->findChild<QListWidget*>("lbFeatCls")->count();
    clock.restart();
    tabs->setCurrentIndex(1);
    settle();
    csMs.push_back(double(clock.nsecsElapsed()) / 1e6);
    prompter.answer(document::Answer::No);
    window->lifecycle().close();
  }
  std::fprintf(stderr, "%d feature classes listed\n", features);
  printRow("window opened on the document, lists filled, drawn", openMs, 200);
  printRow("Feature Definition tab chosen and drawn", tabMs, 20);
  printRow("then Coordinate Systems chosen: every map's file worked out, grid drawn", csMs, 0);
  return 0;
}
