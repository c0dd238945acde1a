// frmMain: the one main window. It owns the open document (through the
// DocumentLifecycle), the document's six shared recordsets, its scanner
// settings and current drawing scanner class, and wires them to the menus
// and the four tabs. The tabs' own behaviour lives with their features; this
// class only opens, fills, enables, empties and closes.
//
// Promises: every menu and button handler traps its errors and hands them
// to the common error report, so nothing escapes into the event loop; the
// pointer is restored on every path; with no document open every tab and
// every control on them is disabled.
#pragma once

#include <QDialog>
#include <QMainWindow>
#include <QString>
#include <array>
#include <exception>
#include <functional>
#include <memory>
#include <string_view>

#include "document/document_lifecycle.h"
#include "document/prompter.h"
#include "linkage/parameters_table.h"
#include "linkage/scanner_options.h"
#include "schema/recordset.h"

namespace Ui {
class frmMain;
}

namespace shell {
class CoordinateSystemsTab;
class FilesTab;
class QtPrompter;
}  // namespace shell

// What the window is given from outside; every field has a working
// default, tests replace the ones they watch.
struct MainWindowOptions {
  document::Prompter* prompter = nullptr;  // null: message boxes and file dialogs
  QString programPath;                     // empty: the running program (finds the templates)
  QString tempFolder;                      // empty: the system's temporary folder
  QString commandLine;                     // the document to open at start-up, as given
  // The start-up and File, New dialogs; empty: frmIntro and frmNewFile.
  std::function<document::DocumentChoice()> showIntro;
  std::function<document::DocumentChoice()> showNewFile;
  // Help, About; empty: the About box.
  std::function<void()> showAbout;
  // Runs the Database Linkage Options and Primary Unique Keys dialogs once
  // they are filled; empty: exec(). A test drives the real dialog here.
  std::function<void(QDialog&)> runDBLinkageOptions;
  std::function<void(QDialog&)> runPrimaryUniqueKeys;
  // The Select Folder dialog, opened on a path; returns the chosen folder,
  // "" for Cancel. Empty: frmDir.
  std::function<QString(const QString& initialPath)> showFolder;
  // Runs the Feature Definition Wizard once it has read its feature class;
  // empty: exec(). A test drives the real wizard here.
  std::function<void(QDialog&)> runFeatureWizard;
};

class frmMain : public QMainWindow, private document::DocumentHost {
  Q_OBJECT

 public:
  using Options = MainWindowOptions;

  // The shared recordsets, "Select * from [table]" each, opened in this
  // order when a document opens and closed when it closes.
  static constexpr std::array<std::string_view, 6> kSharedTables = {
      "GraphicAttributes",     "FeatureDefAttr", "Features", "Maps",
      "CoordinateSystemFiles", "Directories"};

  explicit frmMain(Options options = {}, QWidget* parent = nullptr);
  ~frmMain() override;

  document::DocumentLifecycle& lifecycle() { return *lifecycle_; }
  document::Prompter& prompter() { return *prompter_; }
  // One of kSharedTables' recordsets; closed while no document is open.
  schema::Recordset& sharedRecordset(std::string_view table);
  const linkage::ScannerOptions& scannerOptions() const { return scanner_; }
  // The document's current drawing scanner class ("" with none open).
  const std::string& drawingScannerClass() const { return scanner_.drawingScannerClass(); }

  // The start-up: the first time the window is shown it opens the command
  // line's document or asks frmIntro. Later calls do nothing.
  void firstActivation();
  // Closes and reopens the six recordsets, so they see rows written
  // elsewhere (after the Feature Definition Wizard).
  void requery();

  // The wiring of the Files and Coordinate Systems tabs.
  shell::FilesTab& filesTab() { return *filesTab_; }
  shell::CoordinateSystemsTab& coordinateSystemsTab() { return *csTab_; }

 protected:
  void showEvent(QShowEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  // DocumentHost: what the lifecycle asks of the window.
  void openStep(schema::SchemaDatabase& database) override;
  void closeStep(schema::SchemaDatabase& database) override;
  void clearStep() override;
  void enablingStep() override;
  void setCloseEnabled(bool enabled) override;
  void setCaption(const QString& caption) override;
  void setBusy(bool busy) override;
  void reportError(int32_t number, const QString& description) override;

  // Runs a handler under the error trap of every event handler.
  void trap(const std::function<void()>& handler);
  void report(const std::exception& error);

  void refreshAssociationIfShown();
  void openSharedRecordsets(schema::SchemaDatabase& database);
  void closeSharedRecordsets();
  // File, Compact: the working copy compacted in place.
  void compactDocument();
  void createFolderTabs();
  // Coordinate Systems and Feature Definition, by what the tables hold.
  void enableTabsByTables();
  QString runFolderDialog(const QString& initialPath);
  void fillFeatureList();
  void fillScannerOptions();
  void readScannerOptions();
  void browseScannerIniFile();
  void setDocumentControlsEnabled(bool open);
  void writeWindowPlacement();

  document::DocumentChoice runIntro();
  document::DocumentChoice runNewFile();
  void runAbout();
  void runDBLinkageOptions();
  void runPrimaryUniqueKeys();
  void runKeysDialog(QDialog& dialog, int helpContext, const std::function<void(QDialog&)>& run);
  void showHelp();

  // The Feature Definition tab's buttons (frmMain_features.cpp).
  void wireFeatureTab();
  void runFeatureWizard(bool edit);
  void deleteFeatureClass();

  std::unique_ptr<Ui::frmMain> ui_;
  std::unique_ptr<shell::QtPrompter> ownPrompter_;
  document::Prompter* prompter_;
  Options options_;
  // Before the recordsets: it outlives them, so they are closed before the
  // database they read from.
  std::unique_ptr<document::DocumentLifecycle> lifecycle_;
  std::array<schema::Recordset, kSharedTables.size()> shared_;
  linkage::ParametersTable parameters_;
  linkage::ScannerOptions scanner_;
  // After the recordsets they borrow.
  std::unique_ptr<shell::FilesTab> filesTab_;
  std::unique_ptr<shell::CoordinateSystemsTab> csTab_;
  bool activated_ = false;
};
