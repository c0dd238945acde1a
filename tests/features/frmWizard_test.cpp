// The Feature Definition tab and the wizard driven from the main window as
// a user drives them, mostly from the keyboard: a feature class is created,
// edited, an edit is cancelled, and the class is deleted; after each the
// document is saved and read back through mdb-export and mdb-reader.
#include <QComboBox>
#include <QCryptographicHash>
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

#include "controls/MoveOverStringControl.h"
#include "document/scripted_prompter.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "shell/frmMain.h"
#include "shell/help.h"

using document::Answer;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
const QString kProgramDir = QStringLiteral(VANTOR_PROGRAM_DIR);
const QStringList kTables = {"Features",          "FeatureMaps", "FeatureAttributes",
                             "FeatureDefinition", "LevelValues", "LevelNameValues"};

// Every row of kTables as "Table: column=value ..." with the columns in
// name order, strings quoted and Booleans 0 or 1, so that mdb-export's and
// mdb-reader's rows compare. Empty when mdb-reader is not installed
// (scripts/setup installs it).
QStringList rowsOf(const QString& path, bool reader) {
  if (reader && !QFileInfo::exists(VANTOR_NODE_DIR "/node_modules/mdb-reader")) return {};
  QStringList rows;
  for (const QString& table : kTables) {
    QProcess p;
    if (reader)
      p.start("node", {VANTOR_NODE_DIR "/dump.mjs", path, table});
    else
      p.start("mdb-export", {path, table});
    if (!p.waitForFinished() || p.exitCode() != 0) return {p.program() + " failed"};
    QList<QByteArray> lines = p.readAllStandardOutput().split('\n');
    lines.removeAll(QByteArray());
    const QList<QByteArray> columns = reader ? QList<QByteArray>() : lines.takeFirst().split(',');
    for (const QByteArray& line : lines) {
      QMap<QString, QString> row;
      const QList<QByteArray> values = line.split(',');  // the tests write no commas
      for (qsizetype i = 0; i < columns.size(); ++i) row[columns[i]] = values.value(i);
      const QJsonObject object = reader ? QJsonDocument::fromJson(line).object() : QJsonObject();
      for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        const QJsonValue v = it.value();
        row[it.key()] = v.isString() ? "\"" + v.toString() + "\""
                        : v.isBool() ? QString::number(v.toBool() ? 1 : 0)
                        : v.isNull() ? QString()
                                     : QString::number(v.toInteger());
      }
      QStringList parts;
      for (auto it = row.constBegin(); it != row.constEnd(); ++it)
        parts << it.key() + "=" + it.value();
      rows << table + ": " + parts.join(' ');
    }
  }
  rows.sort();
  return rows;
}

QByteArray sha1(const QString& path) {
  QFile f(path);
  f.open(QIODevice::ReadOnly);
  return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha1);
}

}  // namespace

class WizardWidgetTest : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<QTemporaryDir> dir_;
  std::unique_ptr<document::ScriptedPrompter> prompter_;
  std::unique_ptr<frmMain> window_;
  std::function<void(QDialog&)> drive_;
  int wizardsRun_ = 0;
  QList<int> helpContexts_;
  shell::HelpOpener previousOpener_;
  QString path_;

  // A copy of the MicroStation template with two folders, a coordinate
  // system file and three maps.
  QString schema() {
    const QString path = dir_->path() + "/city.csd";
    QFile::copy(kTemplates + "/MstnTemplate.csd", path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    schema::SchemaDatabase db;
    db.open(path.toStdString());
    const auto add = [&](const char* table,
                         std::initializer_list<std::pair<const char*, jet::Value>> fields) {
      schema::Recordset rs = db.openRecordset(std::string("select * from ") + table);
      rs.addNew();
      for (const auto& [name, value] : fields) rs.setField(name, value);
      rs.update();
    };
    add("Directories", {{"Path", std::string("/srv/gis/roads")}});
    add("Directories", {{"Path", std::string("/srv/gis/hydro")}});
    add("CoordinateSystemFiles", {{"Name", std::string("utm33n.csf")}, {"dirId", 1}});
    add("Maps", {{"Name", std::string("north.dgn")}, {"dirId", 1}, {"csfid", 1}});
    add("Maps", {{"Name", std::string("south.dgn")}, {"dirId", 1}, {"csfid", 1}});
    add("Maps", {{"Name", std::string("rivers.dgn")}, {"dirId", 2}});
    return path;
  }

  void open() {
    frmMain::Options options;
    options.prompter = prompter_.get();
    options.programPath = kProgramDir + "/vantor";
    options.tempFolder = dir_->path();
    options.commandLine = path_;
    options.runFeatureWizard = [this](QDialog& dialog) {
      ++wizardsRun_;
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

  // Closes the document with Yes and compares what both readers see.
  void saveAndExpect(const QStringList& rows) {
    prompter_->answer(Answer::Yes);
    window_->findChild<QAction*>("mnuFileClose")->trigger();
    QVERIFY(!window_->lifecycle().isOpen());
    QStringList sorted = rows;
    sorted.sort();
    QCOMPARE(rowsOf(path_, false), sorted);
    const QStringList reader = rowsOf(path_, true);
    if (!reader.isEmpty()) QCOMPARE(reader, sorted);
    window_.reset();
  }

  QListWidget* featureList() { return window_->findChild<QListWidget*>("lbFeatCls"); }

  // Alt and a button's mnemonic: the button shows itself pressed for a
  // moment and clicks when it is let go.
  static void alt(QDialog& d, Qt::Key key) {
    QTest::keyClick(&d, key, Qt::AltModifier);
    for (QPushButton* b : d.findChildren<QPushButton*>()) QTRY_VERIFY(!b->isDown());
  }
  template <typename T>
  static T* child(QWidget* parent, const char* name) {
    T* w = parent->findChild<T*>(name);
    if (!w) qFatal("no %s", name);
    return w;
  }
  // Highlights entries of a chooser's available list and presses ">".
  static void choose(QWidget* chooser, const QStringList& entries) {
    auto* list = child<QListWidget>(chooser, "AvailableList");
    list->clearSelection();
    for (const QString& e : entries)
      list->findItems(e, Qt::MatchExactly).first()->setSelected(true);
    child<QPushButton>(chooser, "butSelect")->click();
  }
  // Typing on a grid cell opens its editor with the first key; the rest
  // goes to the editor.
  static void typeInto(QTableView* grid, const QString& text) {
    QTest::keyClicks(grid, text.left(1));
    QTest::keyClicks(QApplication::focusWidget(), text.mid(1));
  }

 private slots:
  void init() {
    dir_ = std::make_unique<QTemporaryDir>();
    prompter_ = std::make_unique<document::ScriptedPrompter>();
    wizardsRun_ = 0;
    helpContexts_.clear();
    previousOpener_ = shell::setHelpOpener(
        [this](QWidget*, const QString&, int context) { helpContexts_ << context; });
    path_ = schema();
  }
  void cleanup() {
    window_.reset();
    shell::setHelpOpener(previousOpener_);
    QCOMPARE(prompter_->faults(), QStringList());
  }

  void createEditCancelAndDelete() {
    // Create: the keyboard through every step.
    open();
    drive_ = [this](QDialog& d) {
      auto* name = child<QLineEdit>(&d, "tbFeatureName");
      QCOMPARE(name->accessibleName(), QStringLiteral("Specify a unique name for this feature."));
      QCOMPARE(child<QComboBox>(&d, "comboFeatureCS")->accessibleName(),
               QStringLiteral("Specify the file defining the coordinate system for this feature."));
      QCOMPARE(
          d.windowTitle(),
          QStringLiteral("Feature Definition Wizard - Enter feature name and coordinate system"));
      QCOMPARE(QApplication::focusWidget(), name);
      QCOMPARE(name->selectedText(), QStringLiteral("Feature1"));
      QTest::keyClick(name, Qt::Key_Delete);
      QTest::keyClick(name, Qt::Key_Return);  // Next without a name stays
      name->insert("Ro-ads");                 // as pasted: leaving the box finds it
      QTest::keyClick(name, Qt::Key_Tab);
      QCOMPARE(QApplication::focusWidget(), name);
      name->clear();
      QTest::keyClicks(name, "Roads ");  // the blank is refused
      QCOMPARE(name->text(), QStringLiteral("Roads"));
      QTest::keyClick(name, Qt::Key_F1);
      QTest::keyClick(name, Qt::Key_Tab);
      QTest::keyClick(child<QComboBox>(&d, "comboFeatureCS"), Qt::Key_Down);
      QTest::keyClick(child<QComboBox>(&d, "comboFeatureCS"), Qt::Key_Return);  // Enter is Next

      QCOMPARE(d.windowTitle(),
               QStringLiteral("Feature Definition Wizard - Select exposed graphic attributes"));
      auto* attributes =
          child<controls::MoveOverStringControl>(&d, "MoveOverStringControlFeatAttr");
      QCOMPARE(attributes->SelectedStrings(), QStringList{"ElementId"});
      choose(attributes, {"LineGeometry"});
      auto* geometry = child<QListWidget>(&d, "lbPrimaryGeometry");
      QCOMPARE(geometry->accessibleName(), QStringLiteral("Primary geometry"));
      alt(d, Qt::Key_P);
      QTest::keyClick(geometry, Qt::Key_Home);
      QTest::keyClick(geometry, Qt::Key_Space);
      QCOMPARE(geometry->item(0)->checkState(), Qt::Checked);
      alt(d, Qt::Key_N);

      choose(child<QWidget>(&d, "MoveOverStringControlFeatDef"), {"Level", "LevelName"});
      alt(d, Qt::Key_N);

      auto* grid = child<QTableView>(&d, "TDBGrid1");
      QCOMPARE(grid->accessibleName(), QStringLiteral("Feature definition attribute values"));
      alt(d, Qt::Key_V);
      QCOMPARE(QApplication::focusWidget(), grid);
      QCOMPARE(grid->currentIndex(), grid->model()->index(0, 2));
      typeInto(grid, "10 - 19");
      QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
      QTest::keyClick(grid, Qt::Key_Down);
      typeInto(grid, "'Main road'");  // left in its editor: Next takes it
      alt(d, Qt::Key_N);

      QCOMPARE(d.windowTitle(), QStringLiteral("Feature Definition Wizard - Select feature maps"));
      child<QPushButton>(&d, "cmdNav0")->click();  // Help: this step's topic
      child<QPushButton>(child<QWidget>(&d, "MoveOverStringControlFeatMaps"), "butSelectAll")
          ->click();
      alt(d, Qt::Key_F);
    };
    child<QPushButton>(window_.get(), "butNewFeatCls")->click();
    QCOMPARE(wizardsRun_, 1);
    QCOMPARE(helpContexts_, (QList<int>{131, 145}));
    QCOMPARE(prompter_->messages(),
             (QStringList{"  Feature must have a name.\r\n",
                          "Invalid character.  Special Charecter is not allowed in feature names.",
                          "Invalid character.  Spaces not allowed in feature names."}));
    QCOMPARE(featureList()->count(), 1);
    QCOMPARE(featureList()->item(0)->text(), QStringLiteral("Roads"));
    const QStringList created = {
        "Features: Name=\"Roads\" csfid=1 dblinked=0 feaId=1 primaryGeometry=29",
        "FeatureMaps: feaId=1 mapId=1",
        "FeatureMaps: feaId=1 mapId=2",
        "FeatureMaps: feaId=1 mapId=3",
        "FeatureAttributes: AttrId=23 feaId=1",
        "FeatureAttributes: AttrId=29 feaId=1",
        "FeatureDefinition: AttrId=1 feaId=1",
        "FeatureDefinition: AttrId=2 feaId=1",
        "LevelValues: feaId=1 maxVal=19 minVal=10",
        "LevelNameValues: Value=\"Main road\" feaId=1"};
    saveAndExpect(created);

    // Edit: a double click opens it; a new name and values, then Finish.
    open();
    drive_ = [this](QDialog& d) {
      auto* name = child<QLineEdit>(&d, "tbFeatureName");
      QCOMPARE(name->text(), QStringLiteral("Roads"));
      name->selectAll();
      QTest::keyClicks(name, "Streets");
      for (int i = 0; i < 3; ++i) alt(d, Qt::Key_N);
      auto* grid = child<QTableView>(&d, "TDBGrid1");
      QCOMPARE(grid->model()->index(1, 2).data().toString(), QStringLiteral("'Main road'"));
      grid->setCurrentIndex(grid->model()->index(0, 2));
      QTest::keyClick(grid, Qt::Key_F2);
      QLineEdit* editor = qobject_cast<QLineEdit*>(QApplication::focusWidget());
      QVERIFY(editor);
      QTest::keyClick(editor, Qt::Key_End);
      QTest::keyClicks(editor, ",30-40");
      alt(d, Qt::Key_F);
    };
    QListWidget* list = featureList();
    const QPoint first = list->visualItemRect(list->item(0)).center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, first);
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, first);
    QCOMPARE(wizardsRun_, 2);
    QCOMPARE(list->currentRow(), 0);
    QVERIFY(child<QPushButton>(window_.get(), "butEditFeatCls")->isEnabled());
    QStringList edited = created;
    edited.replaceInStrings("Name=\"Roads\"", "Name=\"Streets\"");
    edited << "LevelValues: feaId=1 maxVal=40 minVal=30";
    saveAndExpect(edited);

    // Cancel: whatever was moved or typed, the working copy stays as it was.
    open();
    const QString workingCopy = window_->lifecycle().workingCopyPath();
    const QByteArray before = sha1(workingCopy);
    drive_ = [this](QDialog& d) {
      QTest::keyClicks(child<QLineEdit>(&d, "tbFeatureName"), "X");
      for (int i = 0; i < 4; ++i) alt(d, Qt::Key_N);
      auto* maps = child<controls::MoveOverStringControl>(&d, "MoveOverStringControlFeatMaps");
      child<QPushButton>(maps, "butUnSelectAll")->click();
      QCOMPARE(maps->SelectedStrings(), QStringList());
      alt(d, Qt::Key_B);
      QTest::keyClick(&d, Qt::Key_Escape);
    };
    featureList()->setFocus();
    QTest::keyClick(featureList(), Qt::Key_Space);
    child<QPushButton>(window_.get(), "butEditFeatCls")->click();
    QCOMPARE(wizardsRun_, 3);
    QCOMPARE(sha1(workingCopy), before);
    QCOMPARE(featureList()->item(0)->text(), QStringLiteral("Streets"));
    saveAndExpect(edited);

    // Delete: nothing of the class is left.
    open();
    child<QPushButton>(window_.get(), "butDeleteFeatCls")->click();  // nothing selected
    QCOMPARE(featureList()->count(), 1);
    featureList()->setFocus();
    QTest::keyClick(featureList(), Qt::Key_Space);
    child<QPushButton>(window_.get(), "butDeleteFeatCls")->click();
    QCOMPARE(featureList()->count(), 0);
    saveAndExpect({});
  }
};

QTEST_MAIN(WizardWidgetTest)
#include "frmWizard_test.moc"
