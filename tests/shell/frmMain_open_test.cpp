// Failures while the main window opens a document: the engine's error list
// is offered for a file that is no database, and a document whose folder
// list cannot be loaded keeps its own scanner settings through a save.
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include "document/scripted_prompter.h"
#include "jet/database.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "shell/frmMain.h"

using document::Answer;

class FrmMainOpenTest : public QObject {
  Q_OBJECT

  QTemporaryDir dir_;
  std::unique_ptr<document::ScriptedPrompter> prompter_;

  // Opens the window on a document given on the command line.
  std::unique_ptr<frmMain> windowOn(const QString& path) {
    frmMain::Options options;
    options.prompter = prompter_.get();
    options.programPath = QStringLiteral(VANTOR_PROGRAM_DIR "/vantor");
    options.tempFolder = dir_.path();
    options.commandLine = path;
    auto window = std::make_unique<frmMain>(options);
    window->firstActivation();
    return window;
  }

 private slots:
  void initTestCase() {
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir_.path() + "/config");
  }
  void init() { prompter_ = std::make_unique<document::ScriptedPrompter>(); }

  void aFileThatIsNoDatabaseOffersTheEngineErrors() {
    const QString path = dir_.path() + "/notes.csd";
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(4096, 'x'));
    f.close();
    prompter_->answer(Answer::No);
    auto window = windowOn(path);
    QVERIFY(!window->lifecycle().isOpen());
    QVERIFY2(prompter_->messages().last().endsWith(
                 "Number: 3343\r\n\r\nDisplay the Data Access Errors Collection?"),
             qPrintable(prompter_->messages().last()));
    QVERIFY(prompter_->faults().isEmpty());
  }

  void aFolderListThatFailsKeepsTheScannerSettings() {
    const QString path = dir_.path() + "/drawings.csd";
    QVERIFY(QFile::copy(VANTOR_TEMPLATE_DIR "/AutoCadTemplate.csd", path));
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    {
      // A folder key past 16 bits: the folder list cannot hold it (error 6).
      auto db = jet::Database::openFile(path.toStdString(), true);
      db->insertRow(db->table("Directories"), {int32_t{40000}, std::string("/far")});
      db->flush();
    }
    prompter_->answer(Answer::Yes);  // "Save File?"
    windowOn(path)->lifecycle().close();
    QVERIFY2(prompter_->messages().at(0).endsWith("Overflow\r\nNumber: 6"),
             qPrintable(prompter_->messages().at(0)));
    schema::SchemaDatabase db;
    db.openReadOnly(path.toStdString());
    schema::Recordset rs = db.openRecordset("select * from CADParameters");
    rs.findFirst("Name = 'GraphicScannerClass'");
    QCOMPARE(rs.field("Value"), jet::Value(std::string("Torv.AutoCADScanner")));
    QVERIFY(prompter_->faults().isEmpty() && prompter_->pending() == 0);
  }
};

QTEST_MAIN(FrmMainOpenTest)
#include "frmMain_open_test.moc"
