// The main window driven as a user drives it: start-up from the command
// line and from the start-up dialog, File New from each template, Open,
// Close with each answer, a failed copy back with each answer, closing the
// window, the Scanner Options tab, Help and About. Answers come from a
// scripted Prompter; files land in a temporary folder of the test's own.
#include "shell/frmMain.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>
#include <optional>

#include "controls/MoveOverStringControl.h"
#include "document/document_files.h"
#include "document/scripted_prompter.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "shell/frmIntro.h"
#include "shell/help.h"

using document::Answer;
using document::DocumentChoice;
using document::DocumentKind;
using document::ScriptedPrompter;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
const QString kProgram = QStringLiteral(VANTOR_PROGRAM_DIR "/vantor");

QString mstnTemplate() { return kTemplates + "/MstnTemplate.csd"; }
QString autoCadTemplate() { return kTemplates + "/AutoCadTemplate.csd"; }

// A CADParameters value as a reader of the file sees it; nullopt for Null
// or a missing row.
std::optional<std::string> parameterOnDisk(const QString& path, const std::string& name) {
  schema::SchemaDatabase db;
  db.open(path.toStdString());
  schema::Recordset rs = db.openRecordset("select * from CADParameters");
  rs.findFirst("Name = '" + name + "'");
  if (rs.noMatch()) return std::nullopt;
  const jet::Value v = rs.field("Value");
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  return std::nullopt;
}

}  // namespace

class FrmMainTest : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<QTemporaryDir> dir_;
  std::unique_ptr<ScriptedPrompter> prompter_;
  std::unique_ptr<frmMain> window_;
  int introShown_ = 0;
  DocumentChoice introChoice_;
  DocumentChoice newFileChoice_;
  int aboutShown_ = 0;

  QString temp() const { return dir_->path() + "/tmp"; }
  QString file(const QString& name) const { return dir_->path() + "/" + name; }

  // A schema holding a folder, two maps, a coordinate-system file and a
  // feature class, so every tab has something to enable.
  QString populatedSchema(const QString& name) {
    const QString path = file(name);
    QFile::copy(mstnTemplate(), path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    schema::SchemaDatabase db;
    db.open(path.toStdString());
    schema::Recordset dirs = db.openRecordset("select * from Directories");
    dirs.addNew();
    dirs.setField("Path", std::string("/data/maps"));
    const int32_t dirId = std::get<int32_t>(dirs.field("dirId"));
    dirs.update();
    schema::Recordset cs = db.openRecordset("select * from CoordinateSystemFiles");
    cs.addNew();
    cs.setField("Name", std::string("utm33.csf"));
    cs.setField("dirId", dirId);
    const int32_t csfid = std::get<int32_t>(cs.field("csfid"));
    cs.update();
    schema::Recordset maps = db.openRecordset("select * from Maps");
    for (const char* map : {"roads.dgn", "rivers.dgn"}) {
      maps.addNew();
      maps.setField("Name", std::string(map));
      maps.setField("dirId", dirId);
      maps.setField("csfid", csfid);
      maps.update();
    }
    schema::Recordset features = db.openRecordset("select * from Features");
    features.addNew();
    features.setField("Name", std::string("Roads"));
    features.setField("csfid", csfid);
    features.update();
    db.close();
    return path;
  }

  frmMain& makeWindow(const QString& commandLine = {}) {
    frmMain::Options options;
    options.prompter = prompter_.get();
    options.programPath = kProgram;
    options.tempFolder = temp();
    options.commandLine = commandLine;
    options.showIntro = [this] {
      ++introShown_;
      return introChoice_;
    };
    options.showNewFile = [this] { return newFileChoice_; };
    options.showAbout = [this] { ++aboutShown_; };
    window_ = std::make_unique<frmMain>(options);
    return *window_;
  }

  // Shows the window and lets its first activation run.
  void start() {
    window_->show();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
  }

  template <class T>
  T* control(const char* name) {
    T* w = window_->findChild<T*>(QString::fromLatin1(name));
    if (!w) qFatal("no control %s", name);
    return w;
  }
  QAction* action(const char* name) { return control<QAction>(name); }
  QTabWidget* tabs() { return control<QTabWidget>("SSTab1"); }
  QList<bool> tabStates() {
    QList<bool> states;
    for (int i = 0; i < tabs()->count(); ++i) states << tabs()->isTabEnabled(i);
    return states;
  }
  // A control's own switch, whatever its tab says: a disabled tab disables
  // every control on it.
  bool ownEnabled(const char* name) {
    return !control<QWidget>(name)->testAttribute(Qt::WA_ForceDisabled);
  }
  QStringList workingFiles() { return QDir(temp()).entryList(QDir::Files); }
  static QStringList texts(QListWidget* list) {
    QStringList lines;
    for (int i = 0; i < list->count(); ++i) lines << list->item(i)->text();
    return lines;
  }

  void expectClosedWindow() {
    QVERIFY(!window_->lifecycle().isOpen());
    QCOMPARE(window_->windowTitle(), QStringLiteral("CAD Server Definition"));
    QCOMPARE(tabStates(), (QList<bool>{false, false, false, false}));
    QCOMPARE(tabs()->currentIndex(), 0);
    QVERIFY(!action("mnuFileClose")->isEnabled());
    QCOMPARE(control<QListWidget>("lbDirectories")->count(), 0);
    QCOMPARE(control<QListWidget>("lbFeatCls")->count(), 0);
    QVERIFY(control<QLineEdit>("txtRDBConnectStr")->text().isEmpty());
    QVERIFY(control<QLineEdit>("txtScannerIniFile")->text().isEmpty());
    for (const char* name : {"lbDirectories", "butNewDir", "lbFeatCls", "butNewFeatCls",
                             "butPrimaryUniqueKeys", "txtCADConnectStr", "butScanBrowse"})
      QVERIFY2(!control<QWidget>(name)->isEnabled(), name);
    QCOMPARE(workingFiles(), QStringList());
    QCOMPARE(prompter_->faults(), QStringList());
  }

 private slots:
  void init() {
    dir_ = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir().mkpath(temp()));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir_->path() + "/config");
    prompter_ = std::make_unique<ScriptedPrompter>();
    introShown_ = 0;
    aboutShown_ = 0;
    introChoice_ = {};
    newFileChoice_ = {};
  }
  void cleanup() {
    window_.reset();
    QCOMPARE(workingFiles(), QStringList());  // the window leaves nothing behind
  }

  void loadsWithEverythingDisabled() {
    makeWindow();
    QCOMPARE(window_->objectName(), QStringLiteral("frmMain"));
    QCOMPARE(window_->windowTitle(), QStringLiteral("CAD Server Definition"));
    const QStringList tabTitles{tabs()->tabText(0), tabs()->tabText(1), tabs()->tabText(2),
                                tabs()->tabText(3)};
    QCOMPARE(tabTitles,
             (QStringList{"Files", "Coordinate Systems", "Feature Definition", "Scanner Options"}));
    QCOMPARE(tabStates(), (QList<bool>{false, false, false, false}));
    QCOMPARE(tabs()->currentIndex(), 0);

    // Menus, their captions and the shortcuts a desktop user expects.
    const std::pair<const char*, const char*> menu[] = {{"mnuFileNew", "&New"},
                                                        {"mnuFileOpen", "&Open"},
                                                        {"mnuFileClose", "&Close"},
                                                        {"mnuFileExit", "E&xit"},
                                                        {"mnu_hlp_contents", "&Help Topics"},
                                                        {"mnuHelpAbout", "&About Vantor..."}};
    for (const auto& [name, caption] : menu) QCOMPARE(action(name)->text(), QString(caption));
    QCOMPARE(action("mnuFileNew")->shortcut(), QKeySequence(QKeySequence::New));
    QCOMPARE(action("mnuFileOpen")->shortcut(), QKeySequence(QKeySequence::Open));
    QCOMPARE(action("mnuFileClose")->shortcut(), QKeySequence(QStringLiteral("Ctrl+W")));
    QCOMPARE(action("mnuFileExit")->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
    QCOMPARE(action("mnu_hlp_contents")->shortcut(), QKeySequence(Qt::Key_F1));
    QVERIFY(action("mnuFileBar5")->isSeparator());
    QVERIFY(!action("mnuFileClose")->isEnabled());

    // Every control of the four tabs is there, disabled until a document opens.
    for (const char* name : {"lbDirectories",
                             "butNewDir",
                             "butChangeDir",
                             "butRemoveDir",
                             "tbMapFileExt",
                             "tbCSFileExt",
                             "MoveOverStringControlMapFiles",
                             "MoveOverStringControlCSFiles",
                             "optSameCS",
                             "optDiffCS",
                             "comboCS",
                             "tdbgCS",
                             "lbFeatCls",
                             "butNewFeatCls",
                             "butEditFeatCls",
                             "butDeleteFeatCls",
                             "butDBLinkageOptions",
                             "butPrimaryUniqueKeys",
                             "comboCADScannerCls",
                             "comboRDBScannerCls",
                             "txtCADConnectStr",
                             "txtRDBConnectStr",
                             "txtScannerIniFile",
                             "butScanBrowse"})
      QVERIFY2(!control<QWidget>(name)->isEnabled(), name);

    auto* maps = control<controls::MoveOverStringControl>("MoveOverStringControlMapFiles");
    auto* csfs = control<controls::MoveOverStringControl>("MoveOverStringControlCSFiles");
    QCOMPARE(maps->LeftLabel(), QStringLiteral("Available maps:"));
    QCOMPARE(maps->RightLabel(), QStringLiteral("Selected maps:"));
    QCOMPARE(csfs->LeftLabel(), QStringLiteral("Available coordinate system files:"));
    QCOMPARE(csfs->RightLabel(), QStringLiteral("Selected coordinate system files:"));
    QCOMPARE(control<QLineEdit>("tbCSFileExt")->text(), QStringLiteral("*.csf; *.dgn"));

    auto* cad = control<QComboBox>("comboCADScannerCls");
    QCOMPARE(cad->count(), 2);
    QCOMPARE(cad->itemText(0), QStringLiteral("Torv.VektScanner"));
    QCOMPARE(cad->itemText(1), QStringLiteral("Torv.AutoCADScanner"));
    auto* rdb = control<QComboBox>("comboRDBScannerCls");
    QCOMPARE(rdb->count(), 1);
    QCOMPARE(rdb->currentText(), QStringLiteral("Torv.ODBCDatabaseScanner"));
    QStringList headers;
    auto* grid = control<QTableWidget>("tdbgCS");
    for (int c = 0; c < grid->columnCount(); ++c) headers << grid->horizontalHeaderItem(c)->text();
    QCOMPARE(headers, (QStringList{"Map", "Coordinate system file", "CS Id", "Map Bookmark"}));
  }

  void commandLineOpensTheDocumentAndFillsTheTabs() {
    const QString path = populatedSchema("roads.csd");
    const QByteArray before = [&] {
      QFile f(path);
      f.open(QIODevice::ReadOnly);
      return f.readAll();
    }();
    makeWindow(path);
    start();
    QCOMPARE(introShown_, 0);
    QVERIFY(window_->lifecycle().isOpen());
    QCOMPARE(window_->windowTitle(), "CAD Server Definition - " + path);
    QCOMPARE(window_->lifecycle().documentPath(), path);
    QCOMPARE(tabStates(), (QList<bool>{true, true, true, true}));
    QVERIFY(action("mnuFileClose")->isEnabled());
    for (std::string_view table : frmMain::kSharedTables)
      QVERIFY(window_->sharedRecordset(table).isOpen());

    auto* folders = control<QListWidget>("lbDirectories");
    QCOMPARE(texts(folders), QStringList{"/data/maps"});
    QCOMPARE(folders->item(0)->data(Qt::UserRole).toInt(), 1);
    auto* features = control<QListWidget>("lbFeatCls");
    QCOMPARE(texts(features), QStringList{"Roads"});
    QCOMPARE(features->item(0)->data(Qt::UserRole).toInt(), 1);
    QCOMPARE(control<QLineEdit>("tbMapFileExt")->text(), QStringLiteral("*.dgn"));

    // Change and Remove, Edit and Delete wait for a click in their list.
    QVERIFY(control<QPushButton>("butNewDir")->isEnabled());
    QVERIFY(!control<QPushButton>("butChangeDir")->isEnabled());
    QTest::mouseClick(folders->viewport(), Qt::LeftButton, {},
                      folders->visualItemRect(folders->item(0)).center());
    QVERIFY(control<QPushButton>("butChangeDir")->isEnabled());
    QVERIFY(control<QPushButton>("butRemoveDir")->isEnabled());
    tabs()->setCurrentIndex(2);
    QVERIFY(!control<QPushButton>("butEditFeatCls")->isEnabled());
    QTest::mouseClick(features->viewport(), Qt::LeftButton, {},
                      features->visualItemRect(features->item(0)).center());
    QVERIFY(control<QPushButton>("butEditFeatCls")->isEnabled());
    QVERIFY(control<QPushButton>("butDeleteFeatCls")->isEnabled());

    // The working copy and its lock file sit in the temporary folder.
    const QString copy = window_->lifecycle().workingCopyPath();
    QVERIFY(QFileInfo(copy).fileName().startsWith("CSD"));
    QCOMPARE(workingFiles().size(), 2);
    QVERIFY(QFileInfo::exists(document::lockFilePath(copy)));

    // A later activation does not start again.
    window_->hide();
    window_->show();
    QCoreApplication::processEvents();
    window_->firstActivation();
    QCOMPARE(introShown_, 0);
    QCOMPARE(window_->lifecycle().workingCopyPath(), copy);

    // No: nothing is written back.
    prompter_->answer(Answer::No);
    action("mnuFileClose")->trigger();
    expectClosedWindow();
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), before);
  }

  void newDocumentFromEachTemplate_data() {
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QString>("cadScanner");
    QTest::addColumn<bool>("databaseControls");
    QTest::newRow("MicroStation") << int(DocumentKind::MicroStation)
                                  << "CAD Server Definition - MicroStation Template"
                                  << "Torv.VektScanner" << true;
    QTest::newRow("AutoCAD") << int(DocumentKind::AutoCad)
                             << "CAD Server Definition - AutoCad Template"
                             << "Torv.AutoCADScanner" << false;
    QTest::newRow("Other") << int(DocumentKind::Other) << "CAD Server Definition - Other template"
                           << "Torv.AutoCADScanner" << false;
  }
  void newDocumentFromEachTemplate() {
    QFETCH(int, kind);
    QFETCH(QString, caption);
    QFETCH(QString, cadScanner);
    QFETCH(bool, databaseControls);
    makeWindow();
    start();  // the start-up dialog is cancelled
    QCOMPARE(introShown_, 1);
    QVERIFY(!window_->lifecycle().isOpen());

    const auto k = static_cast<DocumentKind>(kind);
    // "Other" is any schema picked as template; the AutoCAD one is stored
    // with its own scanner class, which an existing file shows as stored.
    newFileChoice_ = {k, k == DocumentKind::MicroStation ? mstnTemplate() : autoCadTemplate()};
    action("mnuFileNew")->trigger();
    QVERIFY(window_->lifecycle().isOpen());
    QCOMPARE(window_->lifecycle().kind(), k);
    QVERIFY(window_->lifecycle().documentPath().isEmpty());
    QCOMPARE(window_->windowTitle(), caption);
    // The templates hold no maps yet: Files and Scanner Options only.
    QCOMPARE(tabStates(), (QList<bool>{true, false, false, true}));

    QCOMPARE(control<QComboBox>("comboCADScannerCls")->currentText(), cadScanner);
    QCOMPARE(QString::fromStdString(window_->drawingScannerClass()), cadScanner);
    QVERIFY(!ownEnabled("comboCADScannerCls"));
    QCOMPARE(ownEnabled("comboRDBScannerCls"), databaseControls);
    QCOMPARE(ownEnabled("txtRDBConnectStr"), databaseControls);
    QCOMPARE(ownEnabled("butDBLinkageOptions"), databaseControls);
    QVERIFY(ownEnabled("butPrimaryUniqueKeys"));
    QVERIFY(ownEnabled("butNewFeatCls"));
    QVERIFY(control<QLineEdit>("txtCADConnectStr")->isEnabled());
    QCOMPARE(control<QComboBox>("comboRDBScannerCls")->currentText(),
             QStringLiteral("Torv.ODBCDatabaseScanner"));

    // No with a new document: no file anywhere.
    prompter_->answer(Answer::No);
    action("mnuFileClose")->trigger();
    expectClosedWindow();
    QCOMPARE(QDir(dir_->path()).entryList(QStringList{"*.csd"}, QDir::Files), QStringList());
  }

  void savingANewDocumentWritesTheScannerSettingsToTheChosenName() {
    makeWindow();
    start();
    newFileChoice_ = {DocumentKind::MicroStation, mstnTemplate()};
    action("mnuFileNew")->trigger();
    QVERIFY(window_->lifecycle().isOpen());

    control<QLineEdit>("txtCADConnectStr")->setText("DSN=drawings");
    control<QLineEdit>("txtRDBConnectStr")->clear();
    control<QLineEdit>("tbMapFileExt")->setText("*.dgn; *.cel");
    // Browse picks the INI file; a cancelled browse leaves the box alone.
    prompter_->pickOpen(file("scanner.ini"));
    control<QPushButton>("butScanBrowse")->click();
    QCOMPARE(control<QLineEdit>("txtScannerIniFile")->text(), file("scanner.ini"));
    const auto& browse = prompter_->shown().last();
    QCOMPARE(browse.title, QStringLiteral("Select INI file"));
    QCOMPARE(document::toQtFilter(browse.request.filter),
             QStringLiteral("INI Files (*.ini);;All Files (*.*)"));
    prompter_->pickOpen(QString());
    control<QPushButton>("butScanBrowse")->click();
    QCOMPARE(control<QLineEdit>("txtScannerIniFile")->text(), file("scanner.ini"));

    const QString target = file("new.csd");
    prompter_->answer(Answer::Yes).pickSave(target);
    action("mnuFileClose")->trigger();
    expectClosedWindow();
    const auto& save = prompter_->shown().last();
    QCOMPARE(save.kind, ScriptedPrompter::Kind::SaveFile);
    QCOMPARE(save.title, QStringLiteral("Save CAD server schema definition as"));
    QCOMPARE(QSettings("Vantor", "Vantor").value("Settings/RecentFile1").toString(), target);

    QCOMPARE(parameterOnDisk(target, "GraphicConnectString"),
             std::optional<std::string>("DSN=drawings"));
    QCOMPARE(parameterOnDisk(target, "DBConnectString"), std::nullopt);  // empty is stored as Null
    QCOMPARE(parameterOnDisk(target, "CADExtension"), std::optional<std::string>("*.dgn; *.cel"));
    QCOMPARE(parameterOnDisk(target, "INI"),
             std::optional<std::string>(file("scanner.ini").toStdString()));
    QCOMPARE(parameterOnDisk(target, "GraphicScannerClass"),
             std::optional<std::string>("Torv.VektScanner"));
    QCOMPARE(parameterOnDisk(target, "DbScannerClass"),
             std::optional<std::string>("Torv.ODBCDatabaseScanner"));

    // Opened again through File, Open, it shows what was saved.
    prompter_->pickOpen(target);
    action("mnuFileOpen")->trigger();
    QVERIFY(window_->lifecycle().isOpen());
    QCOMPARE(window_->windowTitle(), "CAD Server Definition - " + target);
    QCOMPARE(control<QLineEdit>("txtCADConnectStr")->text(), QStringLiteral("DSN=drawings"));
    QCOMPARE(control<QLineEdit>("tbMapFileExt")->text(), QStringLiteral("*.dgn; *.cel"));
    prompter_->answer(Answer::No);
    action("mnuFileClose")->trigger();
    expectClosedWindow();
  }

  void cancelAtTheSaveQuestionKeepsTheDocument() {
    const QString path = populatedSchema("keep.csd");
    makeWindow(path);
    start();
    const QString copy = window_->lifecycle().workingCopyPath();
    for (const char* road : {"mnuFileClose", "mnuFileNew", "mnuFileOpen"}) {
      prompter_->answer(Answer::Cancel);
      action(road)->trigger();
      QVERIFY2(window_->lifecycle().isOpen(), road);
      QCOMPARE(window_->lifecycle().workingCopyPath(), copy);
      QCOMPARE(workingFiles().size(), 2);
      QCOMPARE(tabStates(), (QList<bool>{true, true, true, true}));
      QCOMPARE(window_->windowTitle(), "CAD Server Definition - " + path);
    }
    const auto& question = prompter_->shown().first();
    QCOMPARE(question.text, QStringLiteral("Save File?"));
    QCOMPARE(question.title, QStringLiteral("Save File"));
    QCOMPARE(question.style, document::MessageStyle::YesNoCancel);
    // The window does not close either.
    prompter_->answer(Answer::Cancel);
    QVERIFY(!window_->close());
    QVERIFY(window_->isVisible());
    QVERIFY(window_->lifecycle().isOpen());
    prompter_->answer(Answer::No);
    QVERIFY(window_->close());
    QCOMPARE(workingFiles(), QStringList());
  }

  void copyBackFailureOffersAnotherName() {
    const QString path = populatedSchema("locked.csd");
    makeWindow(path);
    start();
    // The document's place is taken by a folder: copying back must fail.
    QVERIFY(QFile::remove(path));
    QVERIFY(QDir().mkdir(path));

    // Yes, another name: the copy lands there and the document stays open.
    const QString other = file("other.csd");
    prompter_->answer(Answer::Yes).answer(Answer::Yes).pickSave(other);
    action("mnuFileClose")->trigger();
    QVERIFY(prompter_->messages().at(1).endsWith("Save file with different name?"));
    QCOMPARE(prompter_->shown().at(1).style, document::MessageStyle::YesNo);
    QVERIFY(QFileInfo(other).isFile());
    QCOMPARE(parameterOnDisk(other, "Version"), std::optional<std::string>("1.0"));
    QVERIFY(window_->lifecycle().isOpen());
    QCOMPARE(tabStates(), (QList<bool>{true, true, true, true}));
    QCOMPARE(workingFiles().size(), 2);

    // No: the work is given up and the working copy goes.
    prompter_->clearShown();
    prompter_->answer(Answer::Yes).answer(Answer::No);
    action("mnuFileClose")->trigger();
    QVERIFY(!window_->lifecycle().isOpen());
    QCOMPARE(workingFiles(), QStringList());
    QCOMPARE(prompter_->faults(), QStringList());
  }

  void closingTheWindowWritesItsPlacement() {
    makeWindow();
    start();
    window_->move(40, 50);
    window_->resize(700, 500);
    QCoreApplication::processEvents();
    const QRect frame = window_->frameGeometry();
    QVERIFY(window_->close());  // nothing open: no question
    QCOMPARE(prompter_->shown().size(), 0);
    QSettings settings("Vantor", "Vantor");
    settings.beginGroup("Settings");
    QCOMPARE(settings.value("MainLeft").toInt(), frame.x());
    QCOMPARE(settings.value("MainTop").toInt(), frame.y());
    QCOMPARE(settings.value("MainWidth").toInt(), frame.width());
    QCOMPARE(settings.value("MainHeight").toInt(), frame.height());
  }

  void minimizedWindowKeepsTheLastNormalPlacement() {
    makeWindow();
    start();
    window_->setGeometry(60, 70, 640, 480);
    QCoreApplication::processEvents();
    const QRect normal = window_->frameGeometry();
    QVERIFY(window_->close());
    makeWindow();
    start();
    window_->setGeometry(10, 10, 300, 200);
    window_->showMinimized();
    QCoreApplication::processEvents();
    QVERIFY(window_->close());
    QSettings settings("Vantor", "Vantor");
    QCOMPARE(settings.value("Settings/MainLeft").toInt(), normal.x());
    QCOMPARE(settings.value("Settings/MainWidth").toInt(), normal.width());
  }

  void requerySeesRowsWrittenElsewhere() {
    makeWindow(populatedSchema("requery.csd"));
    start();
    schema::Recordset& maps = window_->sharedRecordset("Maps");
    QCOMPARE(maps.recordCount(), 2L);
    {
      // As the wizard writes: through the document's database, not the
      // window's recordset.
      schema::Recordset other = window_->lifecycle().database().openRecordset("select * from Maps");
      other.addNew();
      other.setField("Name", std::string("lakes.dgn"));
      other.update();
    }
    QCOMPARE(maps.recordCount(), 2L);  // a dynaset keeps the rows it opened with
    window_->requery();
    for (std::string_view table : frmMain::kSharedTables)
      QVERIFY(window_->sharedRecordset(table).isOpen());
    QCOMPARE(window_->sharedRecordset("Maps").recordCount(), 3L);
    prompter_->answer(Answer::No);
    action("mnuFileClose")->trigger();
    expectClosedWindow();
  }

  void startUpDialogChoosesTheDocument() {
    // The real start-up dialog, answered as a user answers it.
    frmMain::Options options;
    options.prompter = prompter_.get();
    options.programPath = kProgram;
    options.tempFolder = temp();
    window_ = std::make_unique<frmMain>(options);
    // The dialog runs its own event loop: answer it from there once it is up.
    bool answered = false;
    QTimer answer;
    connect(&answer, &QTimer::timeout, this, [&] {
      auto* intro = qobject_cast<shell::frmIntro*>(QApplication::activeModalWidget());
      if (!intro || answered) return;
      answered = true;
      intro->findChild<QRadioButton*>("optAutoCad")->click();
      intro->findChild<QPushButton*>("butOK")->click();
    });
    answer.start(10);
    start();
    QTRY_VERIFY(window_->lifecycle().isOpen());
    QCOMPARE(window_->lifecycle().kind(), DocumentKind::AutoCad);
    QCOMPARE(window_->windowTitle(), QStringLiteral("CAD Server Definition - AutoCad Template"));
    prompter_->answer(Answer::No);
    action("mnuFileClose")->trigger();
    expectClosedWindow();
  }

  void aFileTheEngineCannotReadIsReportedAndNothingOpens() {
    const QString path = file("notes.csd");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(4096, 'x'));
    f.close();
    makeWindow(path);
    start();
    QVERIFY(!window_->lifecycle().isOpen());
    QCOMPARE(prompter_->messages().size(), 1);
    QVERIFY(prompter_->messages().at(0).startsWith("The following error occured: \r\n\r\n"));
    expectClosedWindow();
  }

  void helpAndAbout() {
    makeWindow();
    start();
    QList<int> contexts;
    const shell::HelpOpener previous =
        shell::setHelpOpener([&](QWidget*, const QString&, int context) { contexts << context; });
    action("mnu_hlp_contents")->trigger();
    shell::setHelpOpener(previous);
    // The help file ships beside the program in the build.
    QCOMPARE(contexts, QList<int>{131});
    action("mnuHelpAbout")->trigger();
    QCOMPARE(aboutShown_, 1);
  }
};

QTEST_MAIN(FrmMainTest)
#include "frmMain_test.moc"
