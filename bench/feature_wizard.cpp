// The Feature Definition Wizard on a large schema, driven through the main
// window as a user drives it, with mdb-export of the FeatureMaps table timed
// beside it. A copy of the MicroStation template is filled (in a child
// process, not timed) with 50 folders and coordinate-system files, 32,000
// maps, 2,000 feature classes of 50 maps each, and one more class, "All",
// on every map: 132,000 FeatureMaps rows. Each repetition opens a fresh
// copy in the editor and times:
//
//   (a) Edit on a class of 50 maps, and on "All": from the button to the
//       wizard painted with its lists filled;
//   (b) New, then ">>" of the maps chooser: 32,000 FeatureMaps rows;
//   (c) Cancel after that, until the main window has read its recordsets
//       and its feature list again;
//   (d) Delete of "All" with its 32,000 maps, list refilled.
//
//   bench_feature_wizard [--reps N] [--dir DIR] [--template FILE]
//
// Runs on the offscreen platform unless a display is given.
#include <QApplication>
#include <QDialog>
#include <QListWidget>
#include <QPushButton>
#include <QSettings>
#include <QTabWidget>
#include <QTemporaryDir>
#include <cstdio>
#include <filesystem>
#include <string>

#include "bench_support.h"
#include "controls/MoveOverStringControl.h"
#include "document/scripted_prompter.h"
#include "jet/database.h"
#include "shell/frmMain.h"

namespace {
namespace fs = std::filesystem;
using bench::Clock;
using bench::msSince;

constexpr int kDirectories = 50;
constexpr int kMaps = 32000;
constexpr int kFeatures = 2000;
constexpr int kMapsPerFeature = 50;

void generate(const std::string& templatePath, const std::string& path) {
  fs::copy_file(templatePath, path, fs::copy_options::overwrite_existing);
  auto db = jet::Database::openFile(path, true);
  const jet::TableDef& featureMaps = db->table("FeatureMaps");
  for (int d = 1; d <= kDirectories; ++d) {
    char dir[96], cs[32];
    std::snprintf(dir, sizeof dir, "/srv/cad/projects/area_%02d/dgn", d);
    std::snprintf(cs, sizeof cs, "area_%02d.csf", d);
    db->insertRow(db->table("Directories"), {std::monostate{}, std::string(dir)});
    db->insertRow(db->table("CoordinateSystemFiles"), {std::monostate{}, std::string(cs), d});
  }
  for (int i = 0; i < kMaps; ++i) {
    char name[48];
    std::snprintf(name, sizeof name, "sheet_%05d_%03d.dgn", (i * 7919) % 100003, i % 1000);
    const int dir = 1 + i * kDirectories / kMaps;
    db->insertRow(db->table("Maps"), {std::monostate{}, std::string(name), dir, dir});
  }
  db->insertRow(db->table("Features"), {std::monostate{}, std::string("All"), 1, false, 29});
  for (int m = 1; m <= kMaps; ++m) db->insertRow(featureMaps, {1, m});
  for (int f = 0; f < kFeatures; ++f) {
    char name[32];
    std::snprintf(name, sizeof name, "feature_%04d", f);
    db->insertRow(db->table("Features"),
                  {std::monostate{}, std::string(name), 1 + f % kDirectories, false, 29});
    for (int k = 0; k < kMapsPerFeature; ++k)
      db->insertRow(featureMaps, {f + 2, 1 + (f * kMapsPerFeature + k * 641) % kMaps});
  }
  db->flush();
}

void settle() {
  for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
}

QPushButton* button(QWidget* parent, const char* name) {
  auto* b = parent->findChild<QPushButton*>(name);
  if (!b) throw std::runtime_error(std::string("no button ") + name);
  return b;
}

void expect(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("check failed: " + what);
}

struct Figures {
  std::vector<double> openSmall, openAll, selectAll, cancel, remove;
};

// One repetition on a fresh copy of source.
void measure(const std::string& source, const QString& scratch, Figures& out) {
  const std::string work = scratch.toStdString() + "/work.csd";
  fs::copy_file(source, work, fs::copy_options::overwrite_existing);
  document::ScriptedPrompter prompter;
  std::function<void(QDialog&)> drive;
  Clock::time_point clicked;
  frmMain::Options options;
  options.prompter = &prompter;
  options.tempFolder = scratch;
  options.commandLine = QString::fromStdString(work);
  options.runFeatureWizard = [&](QDialog& d) { drive(d); };
  frmMain window(options);
  window.show();
  settle();
  window.firstActivation();
  expect(window.lifecycle().isOpen(), "the schema opens");
  window.findChild<QTabWidget*>("SSTab1")->setCurrentIndex(2);
  auto* list = window.findChild<QListWidget*>("lbFeatCls");
  expect(list->count() == kFeatures + 1, "every feature class is listed");

  // (a) Edit, timed until the wizard is painted; then Cancel.
  const auto openAndCancel = [&](int row, std::vector<double>& figure) {
    drive = [&](QDialog& d) {
      d.show();
      settle();
      figure.push_back(msSince(clicked));
      button(&d, "cmdNav1")->click();
    };
    list->setCurrentRow(row);
    clicked = Clock::now();
    button(&window, "butEditFeatCls")->click();
  };
  openAndCancel(1, out.openSmall);
  openAndCancel(0, out.openAll);

  // (b) ">>" on the maps of a new class, (c) Cancel until the list is back.
  Clock::time_point cancelled;
  drive = [&](QDialog& d) {
    d.show();
    settle();
    auto* maps = d.findChild<controls::MoveOverStringControl*>("MoveOverStringControlFeatMaps");
    auto start = Clock::now();
    button(maps, "butSelectAll")->click();
    settle();
    out.selectAll.push_back(msSince(start));
    expect(maps->SelectedStrings().size() == kMaps, "every map is selected");
    cancelled = Clock::now();
    button(&d, "cmdNav1")->click();
  };
  button(&window, "butNewFeatCls")->click();
  settle();
  out.cancel.push_back(msSince(cancelled));
  expect(list->count() == kFeatures + 1, "the cancelled class is not listed");

  // (d) Delete of the class on every map.
  list->setCurrentRow(0);
  auto start = Clock::now();
  button(&window, "butDeleteFeatCls")->click();
  settle();
  out.remove.push_back(msSince(start));
  expect(list->count() == kFeatures, "the class is deleted");
  expect(prompter.messages().isEmpty(),
         "nothing went wrong: " + prompter.messages().join(" / ").toStdString());
  prompter.answer(document::Answer::No);
  window.lifecycle().close();
}

std::string row(const char* figure, const std::vector<double>& v, const char* goal, double limit) {
  const double m = bench::median(v);
  char measured[32];
  std::snprintf(measured, sizeof measured, "%.0f ms", m);
  return std::string("| ") + figure + " | " + measured + " | " + bench::range(v, "%.0f") +
         " ms | " + goal + " | " +
         (limit <= 0  ? "comparison"
          : m < limit ? "PASS"
                      : "FAIL") +
         " |\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  QApplication::setApplicationName("Vantor");
  int reps = 5;
  std::string dir = fs::temp_directory_path().string();
  std::string templatePath = VANTOR_MSTN_TEMPLATE;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--reps" && i + 1 < argc) {
      reps = std::max(1, std::atoi(argv[++i]));
    } else if (a == "--dir" && i + 1 < argc) {
      dir = argv[++i];
    } else if (a == "--template" && i + 1 < argc) {
      templatePath = argv[++i];
    } else {
      std::fprintf(stderr, "usage: %s [--reps N] [--dir DIR] [--template FILE]\n", argv[0]);
      return 2;
    }
  }
  QTemporaryDir scratch(QString::fromStdString(dir) + "/bench_feature_wizard.XXXXXX");
  // The user's own settings stay untouched.
  QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, scratch.path() + "/config");
  const std::string source = scratch.path().toStdString() + "/large.csd";
  try {
    std::fprintf(stderr, "generating %s ...\n", source.c_str());
    bench::generateInChild([&] { generate(templatePath, source); });
    Figures figures;
    std::vector<double> exportMs;
    for (int r = 0; r < reps; ++r) {
      measure(source, scratch.path(), figures);
      auto start = Clock::now();
      if (!bench::runQuiet({"mdb-export", source, "FeatureMaps"}))
        throw std::runtime_error("mdb-export failed");
      exportMs.push_back(msSince(start));
      std::fprintf(stderr, "repetition %d of %d done\n", r + 1, reps);
    }
    std::string out = "| figure | median of " + std::to_string(reps) +
                      " | min – max | goal | result |\n|---|---:|---:|---:|:-:|\n";
    out += row("Edit: wizard open on a class of 50 maps", figures.openSmall, "< 0.5 s", 500);
    out += row("Edit: wizard open on a class of 32,000 maps", figures.openAll, "< 0.5 s", 500);
    out += row("\">>\" of 32,000 maps into a new class", figures.selectAll, "< 1 s", 1000);
    out += row("Cancel after that, list and recordsets read again", figures.cancel, "< 0.5 s", 500);
    out += row("Delete of a class with 32,000 maps", figures.remove, "< 1 s", 1000);
    out += row("mdb-export FeatureMaps (132,000 rows)", exportMs, "—", 0);
    std::fputs(out.c_str(), stdout);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_feature_wizard: %s\n", e.what());
    return 1;
  }
  return 0;
}
