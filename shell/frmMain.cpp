#include "shell/frmMain.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QListWidget>
#include <QTimer>
#include <optional>

#include "document/document_settings.h"
#include "document/string_table.h"
#include "linkage/frmDBLinkageOptions.h"
#include "linkage/frmPrimaryUniqueKeys.h"
#include "schema/list_entries.h"
#include "shell/errorreport.h"
#include "shell/frmAbout.h"
#include "shell/frmIntro.h"
#include "shell/frmNewFile.h"
#include "shell/help.h"
#include "shell/qt_prompter.h"
#include "ui_frmMain.h"

using document::DocumentChoice;
using document::DocumentKind;
using document::text;

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }
std::string ss(const QString& s) { return s.toStdString(); }

linkage::DocumentKind scannerKind(DocumentKind kind) {
  return static_cast<linkage::DocumentKind>(static_cast<int>(kind));
}

// The hourglass around one handler, restored however it ends.
class Hourglass {
 public:
  Hourglass() { QApplication::setOverrideCursor(Qt::WaitCursor); }
  ~Hourglass() { QApplication::restoreOverrideCursor(); }
  Hourglass(const Hourglass&) = delete;
  Hourglass& operator=(const Hourglass&) = delete;
};

void fillList(QListWidget* list, const std::vector<schema::ListEntry>& entries) {
  list->clear();
  for (const schema::ListEntry& entry : entries) {
    auto* item = new QListWidgetItem(qs(entry.text), list);
    item->setData(Qt::UserRole, int(entry.id));
  }
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

  QHeaderView* header = ui_->tdbgCS->horizontalHeader();
  for (int column = 0; column < ui_->tdbgCS->columnCount() - 1; ++column)
    header->setSectionResizeMode(column, QHeaderView::ResizeToContents);

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
  connect(ui_->mnuFileExit, &QAction::triggered, this, &QWidget::close);
  connect(ui_->mnu_hlp_contents, &QAction::triggered, this, [this] { showHelp(); });
  connect(ui_->mnuHelpAbout, &QAction::triggered, this, [this] { trap([this] { runAbout(); }); });
  connect(ui_->butScanBrowse, &QPushButton::clicked, this,
          [this] { trap([this] { browseScannerIniFile(); }); });
  connect(ui_->butDBLinkageOptions, &QPushButton::clicked, this,
          [this] { trap([this] { runDBLinkageOptions(); }); });
  connect(ui_->butPrimaryUniqueKeys, &QPushButton::clicked, this,
          [this] { trap([this] { runPrimaryUniqueKeys(); }); });
  // The folder and feature buttons wait for a selection in their list.
  connect(ui_->lbDirectories, &QListWidget::itemClicked, this, [this] {
    ui_->butChangeDir->setEnabled(true);
    ui_->butRemoveDir->setEnabled(true);
  });
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
  openSharedRecordsets(database);
  enablingStep();
  ui_->tbMapFileExt->setText(qs(parameters_.CADextension()));
  fillFolderList();
  fillScannerOptions();
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
    if (lifecycle_->isOpen()) openSharedRecordsets(lifecycle_->database());
  });
}

void frmMain::openSharedRecordsets(schema::SchemaDatabase& database) {
  for (size_t i = 0; i < kSharedTables.size(); ++i)
    shared_[i] = database.openRecordset("Select * from [" + std::string(kSharedTables[i]) + "]");
}

void frmMain::closeSharedRecordsets() {
  for (schema::Recordset& rs : shared_) rs.close();
}

void frmMain::clearStep() {
  ui_->lbDirectories->clear();
  ui_->MoveOverStringControlMapFiles->Clear();
  ui_->tbMapFileExt->clear();
  ui_->MoveOverStringControlCSFiles->Clear();

  ui_->comboCS->clear();
  // Neither option chosen: exclusive buttons only let go of the check with
  // exclusivity off for the moment.
  for (QRadioButton* option : {ui_->optSameCS, ui_->optDiffCS}) {
    option->setAutoExclusive(false);
    option->setChecked(false);
    option->setAutoExclusive(true);
  }
  ui_->tdbgCS->setRowCount(0);

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
  const bool hasMaps = sharedRecordset("Maps").recordCount() > 0;
  const bool hasCoordinateSystems = sharedRecordset("CoordinateSystemFiles").recordCount() > 0;
  ui_->SSTab1->setTabEnabled(0, true);
  ui_->SSTab1->setTabEnabled(1, hasMaps && hasCoordinateSystems);
  ui_->SSTab1->setTabEnabled(2, hasMaps);
  ui_->SSTab1->setTabEnabled(3, true);
}

void frmMain::setDocumentControlsEnabled(bool open) {
  // Files: the folder list and New at once; Change and Remove, and the two
  // choosers, wait for a folder to be chosen.
  ui_->lbDirectories->setEnabled(open);
  ui_->butNewDir->setEnabled(open);
  ui_->butChangeDir->setEnabled(false);
  ui_->butRemoveDir->setEnabled(false);
  ui_->tbMapFileExt->setEnabled(open);
  ui_->tbCSFileExt->setEnabled(open);
  ui_->MoveOverStringControlMapFiles->enabled(false);
  ui_->MoveOverStringControlCSFiles->enabled(false);

  for (QWidget* w :
       std::initializer_list<QWidget*>{ui_->optSameCS, ui_->optDiffCS, ui_->comboCS, ui_->tdbgCS})
    w->setEnabled(open);

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

void frmMain::setCloseEnabled(bool enabled) { ui_->mnuFileClose->setEnabled(enabled); }

void frmMain::setCaption(const QString& caption) { setWindowTitle(caption); }

void frmMain::setBusy(bool busy) {
  if (busy)
    QApplication::setOverrideCursor(Qt::WaitCursor);
  else
    QApplication::restoreOverrideCursor();
}

void frmMain::reportError(int32_t number, const QString& description) {
  const schema::ErrorList none;
  shell::ReportError(shell::CurrentError{number, description},
                     lifecycle_->database().isOpen() ? lifecycle_->database().errors() : none,
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

void frmMain::fillFolderList() {
  fillList(ui_->lbDirectories,
           schema::listEntries(sharedRecordset("Directories"), "Path", "dirId"));
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
