// The document's roads, each from the user's first action to the files left
// on disk: open, new from each template, close with Yes, No and Cancel, the
// save of a new document, a failed copy back with both answers, start-up,
// and what the caption, the settings and the temporary folder show after.
// The documents are copies of the generated templates.
#include "document/document_lifecycle.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QSettings>
#include <QtTest>

#include "document/document_files.h"
#include "document/document_settings.h"
#include "document/scripted_prompter.h"
#include "document/string_table.h"

using namespace document;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
const QString kMstn = kTemplates + "/MstnTemplate.csd";
const QString kAutoCad = kTemplates + "/AutoCadTemplate.csd";

// What the main window was told, in order.
struct RecordingHost : DocumentHost {
  QStringList log;
  QString caption;
  bool closeEnabled = false;
  int busy = 0;
  int openSteps = 0;
  // Edits the document as a form would, once it is open.
  std::function<void(schema::SchemaDatabase&)> onOpen;

  void openStep(schema::SchemaDatabase& db) override {
    ++openSteps;
    log << "open " + QString::fromStdString(db.path());
    if (onOpen) onOpen(db);
  }
  void closeStep(schema::SchemaDatabase& db) override {
    log << (db.isOpen() ? "closeStep" : "closeStep without database");
  }
  void clearStep() override { log << "clear"; }
  void enablingStep() override { log << "enable"; }
  void setCloseEnabled(bool on) override {
    closeEnabled = on;
    log << (on ? "close on" : "close off");
  }
  void setCaption(const QString& c) override {
    caption = c;
    log << "caption " + c;
  }
  void setBusy(bool on) override { busy += on ? 1 : -1; }
  void reportError(int32_t number, const QString& description) override {
    log << QStringLiteral("error %1 %2").arg(number).arg(description);
  }
};

void addDirectory(schema::SchemaDatabase& db, const std::string& path) {
  schema::Recordset rs = db.openRecordset("select * from Directories");
  rs.addNew();
  rs.setField("Path", path);
  rs.update();
}

// The Directories paths of a schema file, read through a database of its own.
QStringList directoriesIn(const QString& file) {
  schema::SchemaDatabase db;
  db.open(file.toStdString());
  QStringList paths;
  schema::Recordset rs = db.openRecordset("select * from Directories");
  for (; !rs.eof(); rs.moveNext())
    paths << QString::fromStdString(std::get<std::string>(rs.field("Path")));
  return paths;
}

QString saveQuestion() { return QStringLiteral("Save File?"); }

}  // namespace

class DocumentLifecycleTest : public QObject {
  Q_OBJECT

  QTemporaryDir root_;
  QString tmp_, docs_, config_;
  ScriptedPrompter* prompter_ = nullptr;
  RecordingHost* host_ = nullptr;
  DocumentLifecycle* life_ = nullptr;

  QStringList tempFiles() const { return QDir(tmp_).entryList(QDir::Files, QDir::Name); }
  QString doc(const QString& name) const { return docs_ + '/' + name; }
  QString copyOf(const QString& from, const QString& name) const {
    QFile::remove(doc(name));
    QFile::copy(from, doc(name));
    QFile(doc(name)).setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    return doc(name);
  }
  static QByteArray bytes(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
  }
  // The working copy and its lock file, while a document is open.
  void expectWorkingFilesPresent() {
    const QString wc = life_->workingCopyPath();
    QCOMPARE(QFileInfo(wc).absolutePath(), QDir(tmp_).absolutePath());
    QVERIFY2(
        QRegularExpression("^CSD[0-9A-F]{4}\\.tmp$").match(QFileInfo(wc).fileName()).hasMatch(),
        qPrintable(wc));
    QCOMPARE(tempFiles(),
             (QStringList{QFileInfo(lockFilePath(wc)).fileName(), QFileInfo(wc).fileName()}));
    QCOMPARE(QString::fromStdString(life_->database().path()), wc);
    QVERIFY(life_->database().isOpen());
  }
  void expectClosedAndClean() {
    QVERIFY(!life_->isOpen());
    QVERIFY(!life_->database().isOpen());
    QCOMPARE(tempFiles(), QStringList());
  }
  static QString recentFile() { return DocumentSettings::recentFile(); }

 private slots:
  void init() {
    QVERIFY(root_.isValid());
    tmp_ = root_.path() + "/tmp";
    docs_ = root_.path() + "/docs";
    config_ = root_.path() + "/config";
    QDir(tmp_).removeRecursively();
    QDir(docs_).removeRecursively();
    QDir(config_).removeRecursively();
    QDir().mkpath(tmp_);
    QDir().mkpath(docs_);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, config_);
    prompter_ = new ScriptedPrompter;
    host_ = new RecordingHost;
    life_ =
        new DocumentLifecycle(*prompter_, *host_, QCoreApplication::applicationFilePath(), tmp_);
  }

  void cleanup() {
    // Whatever a test scripted was used, and nothing it did not script happened.
    if (prompter_) {
      QVERIFY2(prompter_->faults().isEmpty(), qPrintable(prompter_->faults().join('\n')));
      QCOMPARE(prompter_->pending(), 0);
    }
    QCOMPARE(host_->busy, 0);  // the hourglass restored on every road
    delete life_;
    delete host_;
    delete prompter_;
    life_ = nullptr;
    host_ = nullptr;
    prompter_ = nullptr;
  }

  void cleanupTestCase() {
    // Every string number the roads above used is in the table.
    QCOMPARE(missingTextNumbers(), QList<int>());
  }

  // An opened document is edited on its working copy. Cancel at close, from
  // the menu or the window, changes nothing; No leaves the document as it
  // was, Yes copies the edits back.
  void openEditAndClose_data() {
    QTest::addColumn<bool>("save");
    QTest::newRow("Yes") << true;
    QTest::newRow("No") << false;
  }
  void openEditAndClose() {
    QFETCH(bool, save);
    const QString a = copyOf(kMstn, "a.csd");
    const QByteArray before = bytes(a);
    host_->onOpen = [](schema::SchemaDatabase& db) { addDirectory(db, "/maps/one"); };
    prompter_->pickOpen(a).answer(Answer::Cancel).answer(Answer::Cancel);
    prompter_->answer(save ? Answer::Yes : Answer::No);

    life_->openDocument();
    QCOMPARE(life_->kind(), DocumentKind::Existing);
    QCOMPARE(life_->documentPath(), a);
    expectWorkingFilesPresent();
    QCOMPARE(bytes(a), before);  // edits go to the working copy only
    QCOMPARE(recentFile(), a);   // written as soon as the file is opened
    // Close with nothing open first, then the dialog; the caption names
    // the file once it is open.
    QCOMPARE(host_->log, (QStringList{"close off", "caption CAD Server Definition", "clear",
                                      "close on", "open " + life_->workingCopyPath(),
                                      "caption CAD Server Definition - " + a}));
    QCOMPARE(life_->caption(), "CAD Server Definition - " + a);
    const auto& dialog = prompter_->shown().at(0);
    QCOMPARE(dialog.kind, ScriptedPrompter::Kind::OpenFile);
    QCOMPARE(dialog.title, QStringLiteral("Select CAD schema file"));
    QCOMPARE(toQtFilter(dialog.request.filter),
             QStringLiteral("CAD Schema Definition Files (*.csd);;All Files (*.*)"));

    const QString wc = life_->workingCopyPath();
    host_->log.clear();
    QCOMPARE(life_->close(), CloseOutcome::Cancelled);
    QVERIFY(!life_->closeWindow());
    QVERIFY(host_->log.isEmpty());  // not even the close step ran
    QCOMPARE(life_->workingCopyPath(), wc);
    expectWorkingFilesPresent();

    QVERIFY(life_->closeWindow());
    QCOMPARE(prompter_->messages(), QStringList(3, saveQuestion()));
    QCOMPARE(prompter_->shown().last().title, QStringLiteral("Save File"));
    QCOMPARE(prompter_->shown().last().style, MessageStyle::YesNoCancel);
    if (save)
      QCOMPARE(directoriesIn(a), QStringList{"/maps/one"});
    else
      QCOMPARE(bytes(a), before);
    QCOMPARE(recentFile(), a);
    expectClosedAndClean();
    QCOMPARE(host_->log,
             (QStringList{"closeStep", "close off", "caption CAD Server Definition", "clear"}));
    QVERIFY(life_->workingCopyPath().isEmpty());
    QVERIFY(life_->documentPath().isEmpty());
  }

  void newFromEachTemplateAndSaveUnderAName_data() {
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("caption");
    QTest::newRow("MicroStation") << 1 << kMstn << "CAD Server Definition - MicroStation Template";
    QTest::newRow("AutoCAD") << 2 << kAutoCad << "CAD Server Definition - AutoCad Template";
    QTest::newRow("other") << 3 << QString() << "CAD Server Definition - Other template";
  }
  void newFromEachTemplateAndSaveUnderAName() {
    QFETCH(int, kind);
    QFETCH(QString, source);
    QFETCH(QString, caption);
    const auto k = static_cast<DocumentKind>(kind);
    QString other;
    if (k == DocumentKind::Other) {
      other = copyOf(kAutoCad, "mine.csd");
      source = other;
      prompter_->pickOpen(other);
    }
    QByteArray copied;
    host_->onOpen = [&](schema::SchemaDatabase& db) {
      copied = bytes(QString::fromStdString(db.path()));
      addDirectory(db, "/new");
    };
    life_->newDocument([&] {
      // The File, New dialog: Template... for Other, then OK.
      const QString picked = k == DocumentKind::Other
                                 ? prompter_->openFile(life_->templateDialogRequest())
                                 : QString();
      return DocumentChoice{k, life_->chosenPath(k, QString(), picked)};
    });
    QVERIFY(life_->isOpen());
    QCOMPARE(life_->kind(), k);
    QVERIFY(life_->documentPath().isEmpty());
    QCOMPARE(copied, bytes(source));  // the chosen template, not another
    QCOMPARE(life_->caption(), caption);
    QCOMPARE(host_->log.mid(3), (QStringList{"open " + life_->workingCopyPath(), "close on",
                                             "caption " + caption, "enable"}));
    expectWorkingFilesPresent();
    if (k == DocumentKind::Other)
      QCOMPARE(prompter_->shown().at(0).title, QStringLiteral("Select CAD Server Schema template"));

    // Yes: a new document asks for its name first.
    const QString saved = doc("saved.csd");
    prompter_->answer(Answer::Yes).pickSave(saved);
    QCOMPARE(life_->close(), CloseOutcome::Closed);
    const auto& save = prompter_->shown().last();
    QCOMPARE(save.kind, ScriptedPrompter::Kind::SaveFile);
    QCOMPARE(save.title, QStringLiteral("Save CAD server schema definition as"));
    QVERIFY(save.request.confirmOverwrite && save.request.confirmCreate);
    QCOMPARE(directoriesIn(saved), QStringList{"/new"});
    QCOMPARE(recentFile(), saved);
    expectClosedAndClean();
    QCOMPARE(host_->caption, QStringLiteral("CAD Server Definition"));
    if (!other.isEmpty()) QCOMPARE(directoriesIn(other), QStringList());  // template untouched
  }

  // The copy back fails (a missing folder, or no name at all) and the user
  // declines another name: the working copy goes, the close ends there.
  void copyBackFailsAndUserGivesUp_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing folder") << "/no/such/folder/x.csd"
                                    << "Path not found.\r\nSave file with different name?";
    QTest::newRow("save dialog cancelled")
        << ""
        << "Bad file name or number.\r\nSave file with different name?";
  }
  void copyBackFailsAndUserGivesUp() {
    QFETCH(QString, name);
    QFETCH(QString, message);
    life_->newDocument([&] { return DocumentChoice{DocumentKind::MicroStation, kMstn}; });
    host_->log.clear();
    prompter_->answer(Answer::Yes).pickSave(name).answer(Answer::No);
    QCOMPARE(life_->close(), CloseOutcome::GaveUp);
    QCOMPARE(prompter_->messages(), (QStringList{saveQuestion(), message}));
    QCOMPARE(prompter_->shown().last().style, MessageStyle::YesNo);
    QCOMPARE(prompter_->shown().last().title, kAppTitle);
    expectClosedAndClean();
    // The steps after the failed copy do not run: the caption stays.
    QCOMPARE(host_->log, QStringList{"closeStep"});
    QCOMPARE(life_->caption(), QStringLiteral("CAD Server Definition - MicroStation Template"));
    QCOMPARE(recentFile(), name);  // written just before the copy
    // A further close has nothing to ask and resets the window.
    QCOMPARE(life_->close(), CloseOutcome::Closed);
    QCOMPARE(life_->caption(), QStringLiteral("CAD Server Definition"));
    QCOMPARE(prompter_->messages().size(), 2);
  }

  // The document became unwritable; the user saves under another name, the
  // first of which fails too. The close is then abandoned: the document is
  // open again on the same working copy.
  void copyBackFailsAndUserSavesElsewhere() {
    const QString a = copyOf(kMstn, "a.csd");
    host_->onOpen = [](schema::SchemaDatabase& db) {
      if (db.openRecordset("select * from Directories").recordCount() == 0)
        addDirectory(db, "/kept");
    };
    prompter_->pickOpen(a);
    life_->openDocument();
    const QString wc = life_->workingCopyPath();
    QVERIFY(QFile::remove(a));
    QVERIFY(QDir().mkdir(a));  // a folder where the file was
    const QString b = doc("b.csd");
    prompter_->answer(Answer::Yes)
        .answer(Answer::Yes)
        .pickSave("/no/such/folder/x.csd")
        .answer(Answer::Yes)
        .pickSave(b);
    QCOMPARE(life_->close(), CloseOutcome::KeptOpen);
    QCOMPARE(
        prompter_->messages(),
        (QStringList{saveQuestion(), "Path/File access error.\r\nSave file with different name?",
                     "Path not found.\r\nSave file with different name?"}));
    QCOMPARE(directoriesIn(b), QStringList{"/kept"});
    QVERIFY(life_->isOpen());
    QCOMPARE(life_->workingCopyPath(), wc);
    QCOMPARE(life_->documentPath(), a);
    QCOMPARE(host_->openSteps, 2);  // the window filled again
    expectWorkingFilesPresent();
    // New stops when its close is abandoned: the template dialog never shows.
    prompter_->answer(Answer::Yes).answer(Answer::Yes).pickSave(QString());
    int newFileShown = 0;
    life_->newDocument([&] {
      ++newFileShown;
      return DocumentChoice{};
    });
    QCOMPARE(newFileShown, 0);
    QCOMPARE(life_->workingCopyPath(), wc);
    expectWorkingFilesPresent();
    prompter_->answer(Answer::No);
    QVERIFY(life_->closeWindow());
    expectClosedAndClean();
  }

  void closingWithNothingOpenAsksAndDeletesNothing() {
    QFile stranger(tmp_ + "/CSD0001.tmp");
    QVERIFY(stranger.open(QIODevice::WriteOnly));
    stranger.close();
    QCOMPARE(life_->close(), CloseOutcome::Closed);
    QVERIFY(prompter_->shown().isEmpty());
    QCOMPARE(tempFiles(), QStringList{"CSD0001.tmp"});
    QCOMPARE(host_->log, (QStringList{"close off", "caption CAD Server Definition", "clear"}));
  }

  // Start-up opens the command line's document or else the intro's choice,
  // once only; a new document closed with No leaves nothing behind, and
  // neither opening nor No is a save.
  void startUp_data() {
    QTest::addColumn<bool>("commandLine");
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("cancel");
    QTest::newRow("command line") << true << 0 << false;
    QTest::newRow("intro cancelled") << false << 0 << true;
    QTest::newRow("intro existing") << false << 0 << false;
    QTest::newRow("intro MicroStation") << false << 1 << false;
  }
  void startUp() {
    QFETCH(bool, commandLine);
    QFETCH(int, kind);
    QFETCH(bool, cancel);
    const QString a = copyOf(kAutoCad, "a b.csd");
    // The intro's text box starts with the last saved document.
    if (!commandLine) DocumentSettings::setRecentFile(a);
    const auto k = static_cast<DocumentKind>(kind);
    int introShown = 0;
    const auto intro = [&] {
      ++introShown;
      return cancel ? DocumentChoice{} : DocumentChoice{k, life_->chosenPath(k, recentFile(), {})};
    };
    life_->startUp(commandLine ? a : QString(), intro);
    life_->startUp(QString(), intro);  // a second activation
    QCOMPARE(introShown, commandLine ? 0 : 1);
    if (cancel) {
      QVERIFY(!life_->isOpen());
      QCOMPARE(tempFiles(), QStringList());
      QVERIFY(host_->log.isEmpty());
      return;
    }
    expectWorkingFilesPresent();
    QVERIFY(host_->closeEnabled);
    QCOMPARE(life_->kind(), k);
    QCOMPARE(life_->documentPath(), k == DocumentKind::Existing ? a : QString());
    QCOMPARE(life_->caption(),
             k == DocumentKind::Existing
                 ? "CAD Server Definition - " + a
                 : QStringLiteral("CAD Server Definition - MicroStation Template"));
    prompter_->answer(Answer::No);
    QVERIFY(life_->closeWindow());
    expectClosedAndClean();
    QCOMPARE(QDir(docs_).entryList(QDir::Files), QStringList{"a b.csd"});
    QCOMPARE(recentFile(), commandLine ? QString() : a);
    QCOMPARE(prompter_->shown().size(), 1);
  }

  void templatesThatCannotBeFound() {
    // No program path: no template folder, message 5008, the dialog stays.
    RecordingHost host;
    DocumentLifecycle nowhere(*prompter_, host, QString(), tmp_);
    QVERIFY(!nowhere.templateAvailable(DocumentKind::MicroStation));
    QCOMPARE(nowhere.chosenPath(DocumentKind::AutoCad, "x", "y"), QString());
    QCOMPARE(prompter_->messages(), QStringList{"Unable to locate template path in registry."});
    QCOMPARE(prompter_->shown().last().style, MessageStyle::Ok);
    // A program whose folder has no templates beside it: a template that went
    // missing fails the copy with a message naming it.
    DocumentLifecycle empty(*prompter_, host, docs_ + "/bin/vantor", tmp_);
    const QString missing = empty.templatePath(DocumentKind::MicroStation);
    QCOMPARE(missing, docs_ + "/Templates/Warehouses/MstnTemplate.csd");
    prompter_->clearShown();
    empty.newDocument([&] { return DocumentChoice{DocumentKind::MicroStation, missing}; });
    QVERIFY(!empty.isOpen());
    QCOMPARE(prompter_->shown().size(), 1);
    const QString shown = prompter_->messages().at(0);
    QVERIFY2(QRegularExpression("^File not found\\.\r\nCopying file " +
                                QRegularExpression::escape(missing) + " to temporary file " +
                                QRegularExpression::escape(tmp_) + "/CSD[0-9A-F]{4}\\.tmp\\.$")
                 .match(shown)
                 .hasMatch(),
             qPrintable(shown));
    QCOMPARE(tempFiles(), QStringList());  // the empty working copy is not left
  }

  void openFailuresLeaveNoDocument() {
    // Cancel in the open dialog: the previous document was still closed.
    prompter_->answer(Answer::No).pickOpen(QString());
    life_->newDocument([&] { return DocumentChoice{DocumentKind::MicroStation, kMstn}; });
    life_->openDocument();
    expectClosedAndClean();
    // A file that is no schema: the engine's error goes to the common report.
    const QString text = doc("notes.csd");
    QFile f(text);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(4096, 'n'));
    f.close();
    host_->log.clear();
    prompter_->pickOpen(text);
    life_->openDocument();
    expectClosedAndClean();
    QCOMPARE(host_->log.size(), 4);
    QVERIFY2(host_->log.last().startsWith("error 3343 "), qPrintable(host_->log.last()));
    QVERIFY(life_->workingCopyPath().isEmpty());
    QCOMPARE(recentFile(), QString());
  }

  // While a document is open here nobody else writes it: a second editor is
  // told who holds it and may open it read-only, saving elsewhere only.
  void aDocumentHeldElsewhereOpensReadOnlyOrNotAtAll() {
    const QString a = copyOf(kMstn, "a.csd");
    const QByteArray before = bytes(a);
    // What earlier interrupted saves and csdtool runs left beside it.
    for (const char* name : {".a.csd.Xy12Z9", "a.csd.csdtool-aB3dE5", ".a.csd.notours"})
      QVERIFY(QFile(doc(name)).open(QIODevice::WriteOnly));
    prompter_->pickOpen(a);
    life_->openDocument();
    QCOMPARE(QDir(docs_).entryList(QDir::Files | QDir::Hidden),
             (QStringList{".a.csd.notours", "a.csd", "a.ldb"}));
    QVERIFY(!life_->isReadOnly());

    RecordingHost host;
    DocumentLifecycle second(*prompter_, host, QString(), tmp_);
    const QString held = "Could not use '" + a + "'; file already in use. It is open in " +
                         QString::fromStdString(schema::LockHolder::self().describe()) + ".";
    prompter_->pickOpen(a).answer(Answer::No);
    second.openDocument();
    QVERIFY(!second.isOpen());
    QCOMPARE(prompter_->messages().last(),
             held +
                 "\r\n\r\nOpen it read-only? Changes can then be saved under another name "
                 "only.");
    QCOMPARE(prompter_->shown().last().style, MessageStyle::YesNo);
    QCOMPARE(tempFiles().size(), 2);  // only the first editor's working copy

    host.onOpen = [](schema::SchemaDatabase& db) { addDirectory(db, "/second"); };
    prompter_->pickOpen(a).answer(Answer::Yes);
    second.openDocument();
    QVERIFY(second.isOpen() && second.isReadOnly());
    QCOMPARE(second.caption(), "CAD Server Definition - " + a + " (read-only)");
    // Yes at close asks for another name; the held document is refused.
    const QString b = doc("b.csd");
    prompter_->answer(Answer::Yes).pickSave(a).answer(Answer::Yes).pickSave(b);
    QCOMPARE(second.close(), CloseOutcome::KeptOpen);
    QCOMPARE(prompter_->messages().last(), held + "\r\nSave file with different name?");
    QCOMPARE(directoriesIn(b), QStringList{"/second"});
    prompter_->answer(Answer::No).answer(Answer::No);
    QVERIFY(second.closeWindow());
    QVERIFY(life_->closeWindow());
    QCOMPARE(bytes(a), before);
    QVERIFY(!QFileInfo::exists(doc("a.ldb")));
  }

  // An editor killed with its document open leaves the working copy and its
  // lock file; the next start offers it back.
  void abandonedWorkingCopiesAreOfferedAtStartUp() {
    const QString a = copyOf(kMstn, "a.csd");
    const auto dieWhileEditing = [&](const DocumentChoice& choice, const std::string& folder) {
      const pid_t child = ::fork();
      if (child == 0) {
        ScriptedPrompter prompter;
        RecordingHost host;
        host.onOpen = [&](schema::SchemaDatabase& db) { addDirectory(db, folder); };
        DocumentLifecycle dying(prompter, host, QString(), tmp_);
        dying.startUp(choice.kind == DocumentKind::Existing ? choice.path : QString(),
                      [&] { return choice; });
        ::raise(SIGKILL);
      }
      ::waitpid(child, nullptr, 0);
    };
    const QString a2 = copyOf(kMstn, "a2.csd");
    dieWhileEditing({DocumentKind::Existing, a}, "/recovered");
    dieWhileEditing({DocumentKind::Existing, a2}, "/dropped");
    QCOMPARE(tempFiles().size(), 4);
    QVERIFY(QFileInfo::exists(doc("a2.ldb")));
    // Remains holding no work: a lock without its copy, an old copy never locked.
    QVERIFY(QFile(tmp_ + "/CSD0001.ldb").open(QIODevice::WriteOnly));
    QFile old(tmp_ + "/CSD0002.tmp");
    QVERIFY(old.open(QIODevice::WriteOnly));
    QVERIFY(old.setFileTime(QDateTime::currentDateTime().addSecs(-3600),
                            QFileDevice::FileModificationTime));
    old.close();

    // Cancel keeps the first, No discards the second: the intro follows.
    prompter_->answer(Answer::Cancel).answer(Answer::No);
    int intro = 0;
    life_->startUp(QString(), [&] { return ++intro, DocumentChoice{}; });
    QCOMPARE(intro, 1);
    QCOMPARE(prompter_->messages().size(), 2);
    QVERIFY2(prompter_->messages().at(0).startsWith(
                 "Vantor stopped without closing its working copy of " + a + ", last changed "),
             qPrintable(prompter_->messages().at(0)));
    QVERIFY(prompter_->messages().at(0).endsWith(
        ".\r\n\r\nYes opens the working copy to recover its changes, No discards it, Cancel "
        "keeps it for the next start."));
    QVERIFY(prompter_->messages().at(1).contains(a2 + ", last changed"));
    QCOMPARE(tempFiles().size(), 2);
    QVERIFY(!QFileInfo::exists(doc("a2.ldb")));
    QCOMPARE(directoriesIn(a2), QStringList());

    // Yes at the next start: the copy opens as the document, edits and all.
    RecordingHost host;
    DocumentLifecycle next(*prompter_, host, QString(), tmp_);
    prompter_->clearShown();
    prompter_->answer(Answer::Yes);
    next.startUp(QString(), [&] { return ++intro, DocumentChoice{}; });
    QCOMPARE(intro, 1);
    QVERIFY(next.isOpen());
    QCOMPARE(next.documentPath(), a);
    QCOMPARE(next.caption(), "CAD Server Definition - " + a);
    prompter_->answer(Answer::Yes);
    QCOMPARE(next.close(), CloseOutcome::Closed);
    QCOMPARE(directoriesIn(a), QStringList{"/recovered"});
    QCOMPARE(tempFiles(), QStringList());
  }

  // One store, Vantor's own; the placement's values are the main window's
  // test's business.
  void settingsGoToTheVantorStore() {
    DocumentSettings::setRecentFile("/data/x.csd");
    DocumentSettings::writeMainWindowPlacement(10, 20, 640, 480, false);
    QCOMPARE(QDir(config_).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"Vantor.conf"});
    QSettings raw(config_ + "/Vantor.conf", QSettings::IniFormat);
    raw.beginGroup("Settings");
    QCOMPARE(raw.childKeys(),
             (QStringList{"MainHeight", "MainLeft", "MainTop", "MainWidth", "RecentFile1"}));
    QCOMPARE(raw.value("RecentFile1").toString(), QStringLiteral("/data/x.csd"));
  }
};

QTEST_GUILESS_MAIN(DocumentLifecycleTest)
#include "document_lifecycle_test.moc"
