// The Database Linkage Options and Primary Unique Keys dialogs opened from
// the main window's Feature Definition tab and driven with the keyboard:
// each closes (close box, Escape, Close), the document is saved, and
// KeysParameters is read back through mdb-export and mdb-reader. A failure
// to read (an attribute deleted behind the dialog's back) is reported and
// changes nothing.
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QtTest>

#include "document/scripted_prompter.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "shell/frmMain.h"
#include "shell/help.h"

using document::Answer;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
const QString kProgramDir = QStringLiteral(VANTOR_PROGRAM_DIR);

// KeysParameters as mdb-export prints it, one sorted line a row.
QStringList exportedKeys(const QString& path) {
  QProcess p;
  p.start("mdb-export", {path, "KeysParameters"});
  if (!p.waitForFinished() || p.exitCode() != 0) return {"mdb-export failed"};
  QStringList lines = QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
  lines.removeFirst();  // the column names
  lines.sort();
  return lines;
}

// The same rows as mdb-reader sees them, in mdb-export's shape; empty when
// the reader is not installed (scripts/setup installs it).
QStringList readerKeys(const QString& path) {
  if (!QFileInfo::exists(VANTOR_NODE_DIR "/node_modules/mdb-reader")) return {};
  QProcess p;
  p.start("node", {VANTOR_NODE_DIR "/dump.mjs", path, "KeysParameters"});
  if (!p.waitForFinished() || p.exitCode() != 0) return {"mdb-reader failed"};
  QStringList lines;
  for (const QByteArray& line : p.readAllStandardOutput().split('\n')) {
    const QJsonObject row = QJsonDocument::fromJson(line).object();
    const QJsonValue name = row["DbScaName"];
    if (!line.isEmpty())
      lines << QString("\"%1\",%2,%3")
                   .arg(row["Type"].toString())
                   .arg(row["AttrId"].toInt())
                   .arg(name.isNull() ? QString() : "\"" + name.toString() + "\"");
  }
  lines.sort();
  return lines;
}

}  // namespace

class LinkageDialogsTest : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<QTemporaryDir> dir_;
  std::unique_ptr<document::ScriptedPrompter> prompter_;
  std::unique_ptr<frmMain> window_;
  std::function<void(QDialog&)> drive_;
  int dialogsRun_ = 0;
  QList<int> helpContexts_;
  shell::HelpOpener previousOpener_;

  // A copy of a template with a map, so the Feature Definition tab is
  // open; extraKeys are added to KeysParameters.
  QString schema(const QString& templateFile, const QString& name,
                 QList<std::pair<std::string, int32_t>> extraKeys = {}) {
    const QString path = dir_->path() + "/" + name;
    QFile::copy(templateFile, path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    schema::SchemaDatabase db;
    db.open(path.toStdString());
    schema::Recordset maps = db.openRecordset("select * from Maps");
    maps.addNew();
    maps.setField("Name", std::string("roads.dgn"));
    maps.update();
    schema::Recordset keys = db.openRecordset("select * from KeysParameters");
    for (const auto& [type, attrId] : extraKeys) {
      keys.addNew();
      keys.setField("Type", type);
      keys.setField("AttrId", attrId);
      keys.update();
    }
    return path;
  }

  void open(const QString& path) {
    frmMain::Options options;
    options.prompter = prompter_.get();
    options.programPath = kProgramDir + "/vantor";
    options.tempFolder = dir_->path();
    options.commandLine = path;
    options.runDBLinkageOptions = options.runPrimaryUniqueKeys = [this](QDialog& dialog) {
      ++dialogsRun_;
      dialog.show();
      dialog.activateWindow();
      QTRY_COMPARE(QApplication::activeWindow(), &dialog);
      drive_(dialog);
      QVERIFY(!dialog.isVisible());
    };
    window_ = std::make_unique<frmMain>(options);
    window_->show();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    QVERIFY(window_->lifecycle().isOpen());
    window_->findChild<QTabWidget*>("SSTab1")->setCurrentIndex(2);
  }

  QPushButton* button(const char* name) { return window_->findChild<QPushButton*>(name); }

  void closeDocument(Answer save) {
    prompter_->answer(save);
    window_->findChild<QAction*>("mnuFileClose")->trigger();
    QVERIFY(!window_->lifecycle().isOpen());
  }

  void expectKeysOnDisk(const QString& path, const QStringList& rows) {
    QStringList sorted = rows;
    sorted.sort();
    QCOMPARE(exportedKeys(path), sorted);
    const QStringList reader = readerKeys(path);
    if (!reader.isEmpty()) QCOMPARE(reader, sorted);
  }

  static void press(QWidget* w, Qt::Key key, int times = 1) {
    for (int i = 0; i < times; ++i) QTest::keyClick(w, key);
  }

 private slots:
  void init() {
    dir_ = std::make_unique<QTemporaryDir>();
    prompter_ = std::make_unique<document::ScriptedPrompter>();
    dialogsRun_ = 0;
    helpContexts_.clear();
    previousOpener_ = shell::setHelpOpener(
        [this](QWidget*, const QString&, int context) { helpContexts_ << context; });
  }
  void cleanup() {
    window_.reset();
    shell::setHelpOpener(previousOpener_);
    QCOMPARE(prompter_->faults(), QStringList());
  }

  void linkageGridsAreStoredWhenTheDialogCloses() {
    const QString path = schema(kTemplates + "/MstnTemplate.csd", "mstn.csd");
    open(path);
    drive_ = [this](QDialog& dialog) {
      auto* tables = dialog.findChild<QTableView*>("tdbgGraphicToDbTableLink");
      auto* rows = dialog.findChild<QTableView*>("tdbgGraphicToDbRowLink");
      QCOMPARE(tables->accessibleName(), QStringLiteral("Graphic to database table linkages:"));
      QCOMPARE(rows->accessibleName(), QStringLiteral("Graphic to database row linkages:"));
      QCOMPARE(tables->model()->headerData(2, Qt::Horizontal).toString(),
               QStringLiteral("Database scanner attribute name"));
      QCOMPARE(tables->model()->index(25, 2).data().toString(), QStringLiteral("ENTITYNUM"));
      tables->setFocus();
      QTest::keyClick(tables, Qt::Key_F1);

      // The cursor starts on the linked EntityNumber: Space unlinks it.
      // Ctrl+Home and Space link Level; typing on LevelName's name replaces
      // it, Enter keeps it (once the delegate's queued commit ran), and
      // Space links the row wherever the cursor stands.
      QCOMPARE(tables->currentIndex().row(), 25);
      press(tables, Qt::Key_Space);
      QTest::keyClick(tables, Qt::Key_Home, Qt::ControlModifier);
      press(tables, Qt::Key_Space);
      press(tables, Qt::Key_Down);
      press(tables, Qt::Key_Right, 2);
      QTest::keyClick(tables, Qt::Key_B);
      auto* editor = qobject_cast<QLineEdit*>(tables->indexWidget(tables->currentIndex()));
      QVERIFY(editor);
      QCOMPARE(editor->maxLength(), 64);
      QTest::keyClicks(editor, "ase");
      press(editor, Qt::Key_Return);
      QCoreApplication::processEvents();
      press(tables, Qt::Key_Space);

      // F2 edits OccurenceNumber's row-link name; the close box keeps the
      // edit still open.
      rows->setFocus();
      QCOMPARE(rows->currentIndex().row(), 26);
      press(rows, Qt::Key_Right, 2);
      press(rows, Qt::Key_F2);
      editor = qobject_cast<QLineEdit*>(rows->indexWidget(rows->currentIndex()));
      QVERIFY(editor);
      press(editor, Qt::Key_End);
      QTest::keyClicks(editor, "'S");
      dialog.close();
    };
    button("butDBLinkageOptions")->click();
    QCOMPARE(helpContexts_, QList<int>{131});
    closeDocument(Answer::Yes);
    expectKeysOnDisk(
        path, {"\"GraphicFeature\",23,", "\"DbLinkedFeature\",27,", "\"DbLFeatSuppGrAttr\",26,",
               "\"GraphicToDbTableLink\",1,\"Level\"", "\"GraphicToDbTableLink\",2,\"base\"",
               "\"GraphicToDbRowLink\",27,\"MSLINK'S\""});
  }

  void primaryUniqueKeysAreStoredWhenTheDialogCloses() {
    // Two stored graphic-only keys: the later one is shown.
    const QString mstn =
        schema(kTemplates + "/MstnTemplate.csd", "mstn.csd", {{"GraphicFeature", 5}});
    open(mstn);
    drive_ = [this](QDialog& dialog) {
      auto* graphic = dialog.findChild<QListWidget*>("lbGraphicUniqueKeys");
      auto* linked = dialog.findChild<QListWidget*>("lbDBLinkedFeatureKey");
      QCOMPARE(graphic->accessibleName(),
               QStringLiteral("Primary unique keys for all graphic only features:"));
      QCOMPARE(linked->accessibleName(),
               QStringLiteral("Primary unique keys for all database linked features:"));
      QCOMPARE(graphic->currentItem()->text(), QStringLiteral("Style"));
      QCOMPARE(linked->currentItem()->text(), QStringLiteral("OccurenceNumber"));
      graphic->setFocus();
      QTest::keyClick(graphic, Qt::Key_F1);
      press(graphic, Qt::Key_Down);  // Class
      linked->setFocus();
      press(linked, Qt::Key_Home);  // Level
      press(&dialog, Qt::Key_Escape);
    };
    button("butPrimaryUniqueKeys")->click();
    QCOMPARE(helpContexts_, QList<int>{131});
    closeDocument(Answer::Yes);
    expectKeysOnDisk(
        mstn,
        {"\"GraphicFeature\",6,", "\"DbLinkedFeature\",1,", "\"DbLFeatSuppGrAttr\",26,",
         "\"GraphicToDbTableLink\",26,\"ENTITYNUM\"", "\"GraphicToDbRowLink\",27,\"MSLINK\""});

    // AutoCAD drawings have no database linkage: its button and list are
    // off, and closing drops a stored database-linked key.
    const QString acad =
        schema(kTemplates + "/AutoCadTemplate.csd", "acad.csd", {{"DbLinkedFeature", 8}});
    open(acad);
    QVERIFY(!button("butDBLinkageOptions")->isEnabled());
    drive_ = [](QDialog& dialog) {
      QVERIFY(!dialog.findChild<QListWidget*>("lbDBLinkedFeatureKey")->isEnabled());
      dialog.findChild<QPushButton*>("butClose")->click();
    };
    button("butPrimaryUniqueKeys")->click();
    closeDocument(Answer::Yes);
    expectKeysOnDisk(acad, {"\"GraphicFeature\",8,"});
  }

  void aFailureToReadIsReportedAndChangesNothing() {
    // A graphic attribute deleted after the main window read the table. A
    // document without KeysParameters takes the same road (3078): see the
    // logic's tests.
    const QString path = schema(kTemplates + "/MstnTemplate.csd", "mstn.csd");
    const QStringList before = exportedKeys(path);
    open(path);
    schema::Recordset attribute = window_->lifecycle().database().openRecordset(
        "select * from GraphicAttributes where AttrId = 3");
    attribute.deleteRecord();
    for (const char* name : {"butDBLinkageOptions", "butPrimaryUniqueKeys"}) {
      prompter_->answer(Answer::No);  // no list of the engine's errors
      button(name)->click();
      QVERIFY2(prompter_->messages().last().contains("Record is deleted.\r\nNumber: 3167"), name);
    }
    QCOMPARE(dialogsRun_, 0);
    closeDocument(Answer::Yes);
    QCOMPARE(exportedKeys(path), before);
  }
};

QTEST_MAIN(LinkageDialogsTest)
#include "linkage_dialogs_test.moc"
