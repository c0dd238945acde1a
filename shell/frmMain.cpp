#include "shell/frmMain.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QListWidget>
#include <QTimer>
#include <optional>

#include "controls/ExtentListWidget.h"
#include "document/document_settings.h"
#include "document/string_table.h"
#include "folders/file_choices.h"
#include "linkage/frmDBLinkageOptions.h"
#include "linkage/frmPrimaryUniqueKeys.h"
#include "schema/list_entries.h"
#include "shell/CoordinateSystemsTab.h"
#include "shell/FilesTab.h"
#include "shell/busy.h"
#include "shell/errorreport.h"
#include "shell/frmAbout.h"
#include "shell/frmDir.h"
#include "shell/frmIntro.h"
#include "shell/frmNewFile.h"
#include "shell/help.h"
#include "shell/qt_prompter.h"
#include "ui_frmMain.h"

using document::DocumentChoice;
using document::DocumentKind;
using document::text;
using shell::Hourglass;

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }
std::string ss(const QString& s) { return s.toStdString(); }

linkage::DocumentKind scannerKind(DocumentKind kind) {
  return static_cast<linkage::DocumentKind>(static_cast<int>(kind));
}

void fillList(QListWidget* list, const std::vector<schema::ListEntry>& entries) {
  QStringList texts;
  QList<int> ids;
  for (const schema::ListEntry& entry : entries) {
    texts.append(qs(entry.text));
    ids.append(int(entry.id));
  }
  controls::fillInOnePass(list, texts, ids, Qt::UserRole);
}

}  // namespace

frmMain::frmMain(Options options, QWidget* parent)
    : QMainWindow(parent), ui_(std::make_unique<Ui::frmMain>()), options_(std::move(options)) {
  Hourglass busy;
  ui_->setupUi(this);
  setWindowIcon(QIcon(QStringLiteral(":/icons/vantor.svg")));
  if (options_.prompter) {
    prompter_ = options_.prompter;
  } else {
    ownPrompter_ = std::make_unique<shell::QtPrompter>(this);
    prompter_ = ownPrompter_.get();
  }
  const QString programPath = options_.programPath.isEmpty()
                                  ? QCoreApplication::applicationFilePath()
                                  : options_.programPath;
  const QString tempFolder = options_.tempFolder.isEmpty() ? QDir::tempPath() : options_.tempFolder;
  document::DocumentHost& host = *this;
  lifecycle_ =
      std::make_unique<document::DocumentLifecycle>(*prompter_, host, programPath, tempFolder);
  setWindowTitle(text(2018));

  ui_->MoveOverStringControlMapFiles->setLeftLabel(text(2006));
  ui_->MoveOverStringControlMapFiles->setRightLabel(text(2008));
  ui_->MoveOverStringControlCSFiles->setLeftLabel(text(2007));
  ui_->MoveOverStringControlCSFiles->setRightLabel(text(2009));
  // A chooser's move runs under its own trap; what fails there is reported
  // like any other handler's failure.
  for (auto* chooser : {ui_->MoveOverStringControlMapFiles, ui_->MoveOverStringControlCSFiles})
    chooser->setErrorSink([this](const std::exception& e) { report(e); });

  createFolderTabs();

  ui_->comboRDBScannerCls->clear();
  ui_->comboRDBScannerCls->addItem(qs(std::string(linkage::kOdbcDatabaseScanner)));
  ui_->comboCADScannerCls->clear();
  ui_->comboCADScannerCls->addItem(qs(std::string(linkage::kVektScanner)));
  ui_->comboCADScannerCls->addItem(qs(std::string(linkage::kAutoCadScanner)));
  readScannerOptions();  // the combos' design-time texts are the defaults

  connect(ui_->mnuFileNew, &QAction::triggered, this,
          [this] { trap([this] { lifecycle_->newDocument([this] { return runNewFile(); }); }); });
  connect(ui_->mnuFileOpen, &QAction::triggered, this,
          [this] { trap([this] { lifecycle_->openDocument(); }); });
  connect(ui_->mnuFileClose, &QAction::triggered, this,
          [this] { trap([this] { lifecycle_->close(); }); });
  connect(ui_->mnuFileCompact, &QAction::triggered, this,
          [this] { trap([this] { compactDocument(); }); });
  connect(ui_->mnuFileExit, &QAction::triggered, this, &QWidget::close);
  connect(ui_->mnu_hlp_contents, &QAction::triggered, this, [this] { showHelp(); });
  connect(ui_->mnuHelpAbout, &QAction::triggered, this, [this] { trap([this] { runAbout(); }); });
  connect(ui_->butScanBrowse, &QPushButton::clicked, this,
          [this] { trap([this] { browseScannerIniFile(); }); });
  connect(ui_->butDBLinkageOptions, &QPushButton::clicked, this,
          [this] { trap([this] { runDBLinkageOptions(); }); });
  connect(ui_->butPrimaryUniqueKeys, &QPushButton::clicked, this,
          [this] { trap([this] { runPrimaryUniqueKeys(); }); });
  // The feature buttons wait for a selection in their list.
  connect(ui_->lbFeatCls, &QListWidget::itemClicked, this, [this] {
    ui_->butEditFeatCls->setEnabled(true);
    ui_->butDeleteFeatCls->setEnabled(true);
  });
  wireFeatureTab();

  setCloseEnabled(false);
  enablingStep();
}

frmMain::~frmMain() = default;

schema::Recordset& frmMain::sharedRecordset(std::string_view table) {
  for (size_t i = 0; i < kSharedTables.size(); ++i)
    if (kSharedTables[i] == table) return shared_[i];
  throw std::invalid_argument("no shared recordset over " + std::string(table));
}

void frmMain::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (activated_) return;
  activated_ = true;
  // Once the window is up, so frmIntro opens over it.
  QTimer::singleShot(0, this, [this] { firstActivation(); });
}

void frmMain::firstActivation() {
  trap([this] { lifecycle_->startUp(options_.commandLine, [this] { return runIntro(); }); });
}

void frmMain::closeEvent(QCloseEvent* event) {
  bool mayClose = true;
  trap([&] { mayClose = lifecycle_->closeWindow(); });
  if (!mayClose) {
    event->ignore();
    return;
  }
  writeWindowPlacement();
  event->accept();
}

void frmMain::writeWindowPlacement() {
  const QRect frame = frameGeometry();
  document::DocumentSettings::writeMainWindowPlacement(frame.x(), frame.y(), frame.width(),
                                                       frame.height(), isMinimized());
}

// --- the lifecycle's steps -------------------------------------------------

void frmMain::openStep(schema::SchemaDatabase& database) {
  Hourglass busy;
  parameters_.Initialize(database);
  // The scanner settings first: a list that fails to load must not leave the
  // boxes' defaults to be written over the document's settings at close.
  fillScannerOptions();
  openSharedRecordsets(database);
  enablingStep();
  ui_->tbMapFileExt->setText(qs(parameters_.CADextension()));
  filesTab_->fill();
  refreshAssociationIfShown();
  fillFeatureList();
  // The scanner class decides the linkage button, so enable once more.
  enablingStep();
}

void frmMain::closeStep(schema::SchemaDatabase&) {
  if (parameters_.isOpen()) {
    readScannerOptions();
    scanner_.save(parameters_, ss(ui_->tbMapFileExt->text()));
  }
  closeSharedRecordsets();
}

void frmMain::requery() {
  trap([this] {
    Hourglass busy;
    closeSharedRecordsets();
    if (!lifecycle_->isOpen()) return;
    openSharedRecordsets(lifecycle_->database());
    // The grid finds its maps by bookmarks of the recordset just closed.
    refreshAssociationIfShown();
  });
}

// The association reads every map, so it is worked out while its tab is in
// view (and afresh each time the tab is shown), not for a tab out of sight.
void frmMain::refreshAssociationIfShown() {
  if (ui_->SSTab1->currentIndex() == 1)
    csTab_->refresh();
  else
    csTab_->clear();
}

void frmMain::openSharedRecordsets(schema::SchemaDatabase& database) {
  for (size_t i = 0; i < kSharedTables.size(); ++i)
    shared_[i] = database.openRecordset("Select * from [" + std::string(kSharedTables[i]) + "]");
}

void frmMain::closeSharedRecordsets() {
  for (schema::Recordset& rs : shared_) rs.close();
}

void frmMain::clearStep() {
  filesTab_->clear();
  csTab_->clear();

  ui_->lbFeatCls->clear();

  scanner_.clearConnection();
  ui_->txtRDBConnectStr->setText(QString());
  ui_->txtScannerIniFile->setText(QString());

  enablingStep();
  // Disabling the current tab would move the selection on, so select the
  // first one afterwards.
  for (int i = 0; i < ui_->SSTab1->count(); ++i) ui_->SSTab1->setTabEnabled(i, false);
  ui_->SSTab1->setCurrentIndex(0);
}

void frmMain::enablingStep() {
  const bool open = lifecycle_ && lifecycle_->isOpen() && shared_[0].isOpen();
  setDocumentControlsEnabled(open);
  if (!open) {
    for (int i = 0; i < ui_->SSTab1->count(); ++i) ui_->SSTab1->setTabEnabled(i, false);
    ui_->SSTab1->setCurrentIndex(0);
    return;
  }
  ui_->SSTab1->setTabEnabled(0, true);
  enableTabsByTables();
  ui_->SSTab1->setTabEnabled(3, true);
}

void frmMain::enableTabsByTables() {
  const folders::TabStates states =
      folders::tabStates(sharedRecordset("Maps").recordCount(),
                         sharedRecordset("CoordinateSystemFiles").recordCount());
  ui_->SSTab1->setTabEnabled(1, states.coordinateSystems);
  ui_->SSTab1->setTabEnabled(2, states.featureDefinition);
}

void frmMain::setDocumentControlsEnabled(bool open) {
  filesTab_->setEnabled(open);
  csTab_->setEnabled(open);

  ui_->lbFeatCls->setEnabled(open);
  ui_->butNewFeatCls->setEnabled(open);
  ui_->butEditFeatCls->setEnabled(false);
  ui_->butDeleteFeatCls->setEnabled(false);
  ui_->butDBLinkageOptions->setEnabled(open && scanner_.databaseLinkageEnabled());
  ui_->butPrimaryUniqueKeys->setEnabled(open && scanner_.primaryUniqueKeysEnabled());

  ui_->comboCADScannerCls->setEnabled(open && scanner_.cadScannerClassEditable());
  ui_->txtCADConnectStr->setEnabled(open);
  ui_->txtScannerIniFile->setEnabled(open);
  ui_->butScanBrowse->setEnabled(open);
  ui_->comboRDBScannerCls->setEnabled(open && scanner_.databaseScannerEditable());
  ui_->txtRDBConnectStr->setEnabled(open && scanner_.databaseScannerEditable());
}

void frmMain::setCloseEnabled(bool enabled) {
  ui_->mnuFileClose->setEnabled(enabled);
  ui_->mnuFileCompact->setEnabled(enabled);
}

void frmMain::compactDocument() {
  Hourglass busy;
  closeSharedRecordsets();
  // Rows move: the recordsets and the scanner settings' bookmarks start
  // again on the compacted file, and also when compaction failed (it ends
  // them all the same).
  auto reopen = [this] {
    schema::SchemaDatabase& database = lifecycle_->database();
    parameters_.Initialize(database);
    openSharedRecordsets(database);
    refreshAssociationIfShown();
  };
  try {
    lifecycle_->database().compact();
  } catch (...) {
    reopen();
    throw;
  }
  reopen();
}

void frmMain::setCaption(const QString& caption) { setWindowTitle(caption); }

void frmMain::setBusy(bool busy) {
  if (busy)
    QApplication::setOverrideCursor(Qt::WaitCursor);
  else
    QApplication::restoreOverrideCursor();
}

void frmMain::reportError(int32_t number, const QString& description) {
  // The engine keeps the records of a failed open too, though no database
  // is open then.
  shell::ReportError(shell::CurrentError{number, description}, lifecycle_->database().errors(),
                     *prompter_, {this, {}, {}});
}

void frmMain::report(const std::exception& error) {
  const shell::CurrentError current = shell::currentErrorOf(error);
  reportError(current.number, current.description);
}

void frmMain::trap(const std::function<void()>& handler) {
  try {
    handler();
  } catch (const std::exception& e) {
    report(e);
  }
}

// --- filling the tabs ------------------------------------------------------

void frmMain::createFolderTabs() {
  shell::TabHost host;
  host.window = this;
  host.prompter = prompter_;
  host.tables = {&lifecycle_->database(), &sharedRecordset("Directories"), &sharedRecordset("Maps"),
                 &sharedRecordset("CoordinateSystemFiles")};
  host.trap = [this](const std::function<void()>& handler) { trap(handler); };
  host.chooseFolder = [this](const QString& initialPath) { return runFolderDialog(initialPath); };
  host.tablesChanged = [this] { trap([this] { enableTabsByTables(); }); };
  filesTab_ = std::make_unique<shell::FilesTab>(*ui_, host);
  csTab_ = std::make_unique<shell::CoordinateSystemsTab>(*ui_, host);
  // The association is worked out afresh whenever its tab is shown.
  connect(ui_->SSTab1, &QTabWidget::currentChanged, this, [this](int index) {
    if (index == 1 && lifecycle_->isOpen()) trap([this] { csTab_->refresh(); });
  });
}

void frmMain::fillFeatureList() {
  fillList(ui_->lbFeatCls, schema::listEntries(sharedRecordset("Features"), "Name", "feaId"));
}

void frmMain::fillScannerOptions() {
  // A new AutoCAD document keeps what the database scanner box shows, so
  // the boxes are read before they are filled.
  readScannerOptions();
  scanner_.fill(parameters_, scannerKind(lifecycle_->kind()));
  const linkage::ScannerOptions::Texts& t = scanner_.texts();
  ui_->comboCADScannerCls->setCurrentText(qs(t.cadScannerClass));
  ui_->txtCADConnectStr->setText(qs(t.cadConnectString));
  ui_->txtScannerIniFile->setText(qs(t.scannerIniFile));
  ui_->comboRDBScannerCls->setCurrentText(qs(t.rdbScannerClass));
  ui_->txtRDBConnectStr->setText(qs(t.rdbConnectString));
}

void frmMain::readScannerOptions() {
  linkage::ScannerOptions::Texts& t = scanner_.texts();
  t.cadScannerClass = ss(ui_->comboCADScannerCls->currentText());
  t.cadConnectString = ss(ui_->txtCADConnectStr->text());
  t.scannerIniFile = ss(ui_->txtScannerIniFile->text());
  t.rdbScannerClass = ss(ui_->comboRDBScannerCls->currentText());
  t.rdbConnectString = ss(ui_->txtRDBConnectStr->text());
}

void frmMain::browseScannerIniFile() {
  const document::FileDialogRequest request{
      text(5033),
      document::parseFileFilter(text(2017) + QLatin1Char('|') + text(2016)),
      {},
      false,
      false};
  const QString name = prompter_->openFile(request);
  if (!name.isEmpty()) ui_->txtScannerIniFile->setText(QFileInfo(name).absoluteFilePath());
}

// --- dialogs ---------------------------------------------------------------

DocumentChoice frmMain::runIntro() {
  if (options_.showIntro) return options_.showIntro();
  shell::frmIntro dialog(*lifecycle_, *prompter_, this);
  shell::installHelpKey(&dialog, *prompter_);
  dialog.exec();
  return dialog.choice();
}

DocumentChoice frmMain::runNewFile() {
  if (options_.showNewFile) return options_.showNewFile();
  shell::frmNewFile dialog(*lifecycle_, *prompter_, this);
  shell::installHelpKey(&dialog, *prompter_);
  dialog.exec();
  return dialog.choice();
}

QString frmMain::runFolderDialog(const QString& initialPath) {
  if (options_.showFolder) return options_.showFolder(initialPath);
  return shell::runFolderDialog(this, *prompter_, initialPath);
}

void frmMain::runAbout() {
  if (options_.showAbout) return options_.showAbout();
  shell::frmAbout dialog(*prompter_, this);
  shell::installHelpKey(&dialog, *prompter_);
  dialog.exec();
}

// The linkage and key dialogs store their rows as they close; what fails
// then is reported like any handler's failure.
void frmMain::runKeysDialog(QDialog& dialog, int helpContext,
                            const std::function<void(QDialog&)>& run) {
  shell::installHelpKey(&dialog, *prompter_, helpContext);
  if (run)
    run(dialog);
  else
    dialog.exec();
}

void frmMain::runDBLinkageOptions() {
  std::optional<Hourglass> busy(std::in_place);
  linkage::frmDBLinkageOptions dialog(lifecycle_->database(), sharedRecordset("GraphicAttributes"),
                                      this);
  busy.reset();
  dialog.setErrorSink([this](const std::exception& e) { report(e); });
  runKeysDialog(dialog, linkage::frmDBLinkageOptions::kHelpContext, options_.runDBLinkageOptions);
}

void frmMain::runPrimaryUniqueKeys() {
  std::optional<Hourglass> busy(std::in_place);
  linkage::frmPrimaryUniqueKeys dialog(lifecycle_->database(), sharedRecordset("GraphicAttributes"),
                                       scanner_.drawingScannerClass(), this);
  busy.reset();
  dialog.setErrorSink([this](const std::exception& e) { report(e); });
  runKeysDialog(dialog, linkage::frmPrimaryUniqueKeys::kHelpContext, options_.runPrimaryUniqueKeys);
}

void frmMain::showHelp() { shell::ShowHelp(this, *prompter_); }
