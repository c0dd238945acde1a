// The Files and Coordinate Systems tabs on large inputs, driven through the
// real main window (offscreen when there is no display) as a user drives
// them, each figure the median of several repetitions:
//
//   (a) Enter in "Map file extensions:" over a folder of 30,000 drawings:
//       the folder read and the chooser's left list filled;
//   (b) ">>" of the 3,000 drawings of a folder: 3,000 Maps rows written and
//       committed (the document holds 10,000 maps before), on a fresh copy;
//   (c) showing the Coordinate Systems tab of a document of 32,000 maps:
//       the association worked out and the grid filled and painted;
//   (d) "All maps are in the same coordinate system" with a file chosen,
//       over those 32,000 maps: every map's csfid written and committed, on a
//       fresh copy;
//   (e) for comparison, mdb-export of that document's Maps table;
//   (f) "<<" of those 3,000 maps again, each first looked for among 100,000
//       FeatureMaps rows (no goal: the removals' cost, for the record).
//
// The documents are copies of the MicroStation template filled through the
// engine directly and the folders are made of empty files; none of that is
// timed.
//
//   bench_files_tabs [--reps N] [--dir DIR] [--keep]
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QTableView>
#include <QTest>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "controls/MoveOverStringControl.h"
#include "document/scripted_prompter.h"
#include "jet/database.h"
#include "shell/frmMain.h"

namespace {

constexpr int kScanFiles = 30000;
constexpr int kAddedMaps = 3000;
constexpr int kMapsBeforeAdding = 10000;
constexpr int kMaps = 32000;
constexpr int kFolders = 50;
constexpr int kFeatureMaps = 100000;

void expect(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("check failed: " + what);
}

void makeFolder(const QString& path, int files, const char* pattern) {
  QDir().mkpath(path);
  for (int i = 0; i < files; ++i) {
    QFile f(path + "/" + QString::asprintf(pattern, i));
    expect(f.open(QIODevice::WriteOnly), "cannot make a file in " + path.toStdString());
  }
}

// A copy of the template holding `folders` (the first ones given, the rest
// made up), one coordinate-system file in each, and `maps` maps spread over
// the made-up folders, their csfid that of their folder's file; and
// `featureMaps` links of one feature to those maps.
void makeDocument(const QString& path, const QStringList& realFolders, int maps,
                  int featureMaps = 0) {
  QFile::remove(path);
  expect(QFile::copy(VANTOR_MSTN_TEMPLATE, path), "cannot copy the template");
  QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
  auto db = jet::Database::openFile(path.toStdString(), true);
  const jet::TableDef& dirs = db->table("Directories");
  const jet::TableDef& files = db->table("CoordinateSystemFiles");
  const jet::TableDef& mapRows = db->table("Maps");
  for (int d = 1; d <= kFolders; ++d) {
    const QString folder =
        d <= realFolders.size() ? realFolders[d - 1] : QString("/srv/cad/area_%1/dgn").arg(d);
    db->insertRow(dirs, {std::monostate{}, folder.toStdString()});
    db->insertRow(files, {std::monostate{}, "area_" + std::to_string(d) + ".csf", int32_t(d)});
  }
  const int first = int(realFolders.size()) + 1;
  for (int i = 0; i < maps; ++i) {
    const int d = first + i % (kFolders - first + 1);
    char name[64];
    std::snprintf(name, sizeof name, "sheet_%05d_%03d.dgn", (i * 7919) % 100003, i % 1000);
    db->insertRow(mapRows, {std::monostate{}, std::string(name), int32_t(d), int32_t(d)});
  }
  if (featureMaps > 0) {
    db->insertRow(db->table("Features"),
                  {std::monostate{}, std::string("Sheets"), int32_t(1), false, int32_t(1)});
    const jet::TableDef& links = db->table("FeatureMaps");
    for (int i = 0; i < featureMaps; ++i) db->insertRow(links, {int32_t(1), int32_t(1 + i % maps)});
  }
  db->flush();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// The main window on a document, shown, closed without saving at the end.
struct Window {
  document::ScriptedPrompter prompter;
  std::unique_ptr<frmMain> window;

  Window(const QString& document, const QString& temp) {
    frmMain::Options options;
    options.prompter = &prompter;
    options.tempFolder = temp;
    options.commandLine = document;
    window = std::make_unique<frmMain>(options);
    window->resize(900, 640);
    window->show();
    window->firstActivation();
    settle();
    expect(window->lifecycle().isOpen(), "the document opens");
  }
  ~Window() {
    prompter.answer(document::Answer::No);
    window->lifecycle().close();
  }
  template <class T = QWidget>
  T* the(const char* name) {
    T* w = window->findChild<T*>(name);
    if (!w) throw std::runtime_error(std::string("no control ") + name);
    return w;
  }
  void chooseFolder(int row) {
    auto* list = the<QListWidget>("lbDirectories");
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualItemRect(list->item(row)).center());
    settle();
  }
  QListWidget* chooserList(const char* chooser, const char* list) {
    return the<controls::MoveOverStringControl>(chooser)->findChild<QListWidget*>(list);
  }
  static void settle() {
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
  }
};

// Milliseconds that `work` takes, the events it leaves (painting) included.
double timed(const std::function<void()>& work) {
  QElapsedTimer clock;
  clock.start();
  work();
  Window::settle();
  return double(clock.nsecsElapsed()) / 1e6;
}

std::string fmt(const char* f, double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, f, v);
  return buf;
}

std::string row(const std::string& figure, const std::vector<double>& ms, double goalMs) {
  const auto [lo, hi] = std::minmax_element(ms.begin(), ms.end());
  const double m = median(ms);
  std::string out = "| " + figure + " | " + fmt("%.0f ms", m) + " | " + fmt("%.0f", *lo) + " – " +
                    fmt("%.0f", *hi) + " | ";
  out += goalMs > 0 ? fmt("< %.1f s", goalMs / 1000) + " | " + (m < goalMs ? "PASS" : "FAIL")
                    : std::string("— | comparison");
  return out + " |\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  int reps = 5;
  QString base = QDir::tempPath();
  bool keep = false;
  const QStringList args = app.arguments();
  for (int i = 1; i < args.size(); ++i) {
    if (args[i] == "--reps" && i + 1 < args.size())
      reps = std::max(1, args[++i].toInt());
    else if (args[i] == "--dir" && i + 1 < args.size())
      base = args[++i];
    else if (args[i] == "--keep")
      keep = true;
    else {
      std::fprintf(stderr, "usage: bench_files_tabs [--reps N] [--dir DIR] [--keep]\n");
      return 2;
    }
  }
  const QString root =
      base + QString("/bench_files_tabs.%1").arg(QCoreApplication::applicationPid());
  const QString temp = root + "/tmp";
  try {
    std::fprintf(stderr, "making the folders and documents in %s ...\n", qPrintable(root));
    QDir().mkpath(temp);
    const QString scanFolder = root + "/scan", addFolder = root + "/add";
    makeFolder(scanFolder, kScanFiles, "sheet_%05d.dgn");
    makeFolder(addFolder, kAddedMaps, "map_%04d.dgn");
    const QString big = root + "/big.csd", adding = root + "/adding.csd";
    makeDocument(big, {scanFolder}, kMaps);
    makeDocument(adding, {addFolder}, kMapsBeforeAdding, kFeatureMaps);
    const QString work = root + "/work.csd";
    const auto freshCopy = [&](const QString& from) {
      QFile::remove(work);
      expect(QFile::copy(from, work), "cannot copy " + from.toStdString());
      QFile::setPermissions(work, QFile::ReadOwner | QFile::WriteOwner);
    };

    std::vector<double> scanMs, addMs, refreshMs, sameMs, exportMs, removeMs;
    for (int r = 0; r < reps; ++r) {
      std::fprintf(stderr, "repetition %d of %d\n", r + 1, reps);
      {
        // (a) and (c) read only: the document itself.
        Window w(big, temp);
        w.chooseFolder(0);
        auto* patterns = w.the<QLineEdit>("tbMapFileExt");
        QListWidget* available = w.chooserList("MoveOverStringControlMapFiles", "AvailableList");
        scanMs.push_back(timed([&] {
          patterns->setText("*.dgn; *.dwg");
          QTest::keyClick(patterns, Qt::Key_Return);
        }));
        expect(available->count() == kScanFiles, "the chooser lists the folder");
        auto* tabs = w.the<QTabWidget>("SSTab1");
        refreshMs.push_back(timed([&] { tabs->setCurrentIndex(1); }));
        expect(w.the<QTableView>("tdbgCS")->model()->rowCount() == kMaps,
               "the grid holds every map");
        expect(w.the<QRadioButton>("optDiffCS")->isChecked(), "the maps differ");
      }
      {
        // (b) on a fresh copy: the rows are written.
        freshCopy(adding);
        Window w(work, temp);
        w.chooseFolder(0);
        auto* all = w.the<controls::MoveOverStringControl>("MoveOverStringControlMapFiles")
                        ->findChild<QPushButton*>("butSelectAll");
        addMs.push_back(timed([&] { QTest::mouseClick(all, Qt::LeftButton); }));
        expect(w.window->sharedRecordset("Maps").recordCount() == kMapsBeforeAdding + kAddedMaps,
               "every map is written");
        expect(w.prompter.messages().isEmpty(), "no message");
        auto* none = w.the<controls::MoveOverStringControl>("MoveOverStringControlMapFiles")
                         ->findChild<QPushButton*>("butUnSelectAll");
        removeMs.push_back(timed([&] { QTest::mouseClick(none, Qt::LeftButton); }));
        expect(w.window->sharedRecordset("Maps").recordCount() == kMapsBeforeAdding,
               "every added map is removed");
      }
      {
        // (d) on a fresh copy.
        freshCopy(big);
        Window w(work, temp);
        w.the<QTabWidget>("SSTab1")->setCurrentIndex(1);
        auto* combo = w.the<QComboBox>("comboCS");
        combo->setCurrentIndex(2);
        auto* same = w.the<QRadioButton>("optSameCS");
        sameMs.push_back(timed([&] { QTest::mouseClick(same, Qt::LeftButton, {}, QPoint(8, 8)); }));
        expect(w.prompter.messages().isEmpty(), "no message");
        w.the<QTabWidget>("SSTab1")->setCurrentIndex(0);
        w.the<QTabWidget>("SSTab1")->setCurrentIndex(1);
        expect(same->isChecked(), "every map has the file");
      }
      {
        // (e) the yardstick: mdb-export of the same Maps table.
        QProcess p;
        p.setStandardOutputFile(QProcess::nullDevice());
        QElapsedTimer clock;
        clock.start();
        p.start("mdb-export", {big, "Maps"});
        expect(p.waitForFinished(60000) && p.exitCode() == 0, "mdb-export runs");
        exportMs.push_back(double(clock.nsecsElapsed()) / 1e6);
      }
    }
    std::string out =
        "| figure | median of " + std::to_string(reps) + " | min – max (ms) | goal | result |\n";
    out += "|---|---:|---:|---:|:-:|\n";
    out += row("scan a folder of 30,000 files into the chooser (Enter in the extensions box)",
               scanMs, 500);
    out += row("\">>\" of 3,000 maps: 3,000 Maps rows written and committed", addMs, 1000);
    out += row("Coordinate Systems tab shown, 32,000 maps", refreshMs, 300);
    out += row("\"same\" over 32,000 maps, committed", sameMs, 1000);
    out += row("mdb-export of the 32,000-row Maps table", exportMs, 0);
    out += row("\"<<\" of those 3,000 maps, 100,000 FeatureMaps rows", removeMs, 0);
    std::fputs(out.c_str(), stdout);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_files_tabs: %s\n", e.what());
    if (!keep) QDir(root).removeRecursively();
    return 1;
  }
  if (!keep) QDir(root).removeRecursively();
  return 0;
}
