// The main window's wiring, driven as a user drives it: start-up, the
// document roads through the window, the Files tab on a real folder tree,
// the Coordinate Systems tab, the refusals and the error report, the real
// Select Folder and start-up dialogs, requery and compaction, Help and
// About. Answers come from a scripted Prompter; saved documents are read
// back through mdb-export and mdb-reader, engines nobody here wrote.
#include "shell/frmMain.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileSystemModel>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QTabBar>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QTreeView>
#include <QtTest>
#include <optional>

#include "controls/MoveOverStringControl.h"
#include "document/scripted_prompter.h"
#include "jet/check.h"
#include "jet/database.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "shell/frmDir.h"
#include "shell/frmIntro.h"
#include "shell/help.h"

using document::Answer;
using document::DocumentChoice;
using document::DocumentKind;
using document::ScriptedPrompter;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
const QString kProgram = QStringLiteral(VANTOR_PROGRAM_DIR "/vantor");
const QString kDumpScript = QStringLiteral(VANTOR_DUMP_MJS);

QString mstnTemplate() { return kTemplates + "/MstnTemplate.csd"; }

QByteArray run(const QString& program, const QStringList& args) {
  QProcess p;
  p.start(program, args);
  if (!p.waitForFinished(60000) || p.exitCode() != 0)
    qFatal("%s failed: %s", qPrintable(program), p.readAllStandardError().constData());
  return p.readAllStandardOutput();
}

// A table as both outside engines read it, one line a row, its columns'
// values joined by "|", Null as nothing. Where mdb-export and mdb-reader
// disagree, both readings come back, so the comparison fails.
QStringList onDisk(const QString& file, const QString& table) {
  QStringList exported = QString::fromUtf8(run("mdb-export", {file, table})).split('\n');
  const QStringList columns = exported.takeFirst().split(',');
  exported.removeAll(QString());
  for (QString& line : exported) line = line.remove('"').replace(',', '|');
  QStringList read;
  for (const QByteArray& line : run("node", {kDumpScript, file, table}).split('\n')) {
    if (line.isEmpty()) continue;
    QStringList values;
    const QJsonObject row = QJsonDocument::fromJson(line).object();
    for (const QString& column : columns) values << row.value(column).toVariant().toString();
    read << values.join('|');
  }
  return exported == read
             ? read
             : QStringList{"mdb-export:"} + exported + QStringList{"mdb-reader:"} + read;
}

// A CADParameters value as the engine reads it back; nullopt for Null.
std::optional<std::string> parameterOnDisk(const QString& path, const std::string& name) {
  schema::SchemaDatabase db;
  db.open(path.toStdString());
  schema::Recordset rs = db.openRecordset("select * from CADParameters");
  rs.findFirst("Name = '" + name + "'");
  const jet::Value v = rs.field("Value");
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  return std::nullopt;
}

void touch(const QString& path) {
  QFile f(path);
  if (!f.open(QIODevice::WriteOnly)) qFatal("cannot make %s", qPrintable(path));
}

QStringList texts(const QListWidget* list) {
  QStringList lines;
  for (int i = 0; i < list->count(); ++i) lines << list->item(i)->text();
  return lines;
}

QStringList sorted(QStringList l) {
  l.sort();
  return l;
}

void clickRow(QListWidget* list, const QString& text, Qt::KeyboardModifiers keys = {}) {
  const QList<QListWidgetItem*> found = list->findItems(text, Qt::MatchExactly);
  if (found.isEmpty()) qFatal("no entry %s", qPrintable(text));
  QTest::mouseClick(list->viewport(), Qt::LeftButton, keys,
                    list->visualItemRect(found.first()).center());
}

void doubleClickRow(QListWidget* list, const QString& text) {
  clickRow(list, text);
  const QPoint at = list->visualItemRect(list->findItems(text, Qt::MatchExactly).first()).center();
  QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
}

// Answers the next modal dialog of type T from inside its own event loop.
template <class T>
void whenShown(std::function<void(T*)> answer) {
  auto* timer = new QTimer;
  QObject::connect(timer, &QTimer::timeout, timer, [timer, answer] {
    if (auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget())) {
      timer->stop();
      timer->deleteLater();
      answer(dialog);
    }
  });
  timer->start(10);
}

}  // namespace

class FrmMainTest : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<QTemporaryDir> dir_;
  std::unique_ptr<ScriptedPrompter> prompter_;
  std::unique_ptr<frmMain> window_;
  DocumentChoice newFileChoice_;
  int aboutShown_ = 0;
  bool realFolderDialog_ = false;
  bool realIntro_ = false;
  QStringList folderAnswers_;  // what the Select Folder dialog returns, in turn
  QStringList folderAsked_;    // the paths it was opened on

  QString temp() const { return dir_->path() + "/tmp"; }
  QString file(const QString& name) const { return dir_->path() + "/" + name; }
  // A folder of drawings: name, then the files in it.
  QString folder(const QString& name, const QStringList& files) {
    const QString path = file(name);
    QDir().mkpath(path);
    for (const QString& f : files)
      f.endsWith('/') ? void(QDir().mkpath(path + "/" + f)) : touch(path + "/" + f);
    return path;
  }

  // A schema holding a folder, two maps, a coordinate-system file and a
  // feature class that uses the first map, so every tab has something.
  QString populatedSchema(const QString& name) {
    const QString path = file(name);
    QFile::copy(mstnTemplate(), path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    schema::SchemaDatabase db;
    db.open(path.toStdString());
    const auto add = [&](const char* table, const char* key,
                         std::initializer_list<std::pair<const char*, jet::Value>> fields) {
      schema::Recordset rs = db.openRecordset(std::string("select * from ") + table);
      rs.addNew();
      for (const auto& [field, value] : fields) rs.setField(field, value);
      const int32_t id = key ? std::get<int32_t>(rs.field(key)) : 0;
      rs.update();
      return id;
    };
    const int32_t dirId = add("Directories", "dirId", {{"Path", std::string("/data/maps")}});
    const int32_t csfid = add("CoordinateSystemFiles", "csfid",
                              {{"Name", std::string("utm33.csf")}, {"dirId", dirId}});
    const int32_t other = add("Directories", "dirId", {{"Path", std::string("/data/other")}});
    add("CoordinateSystemFiles", "csfid", {{"Name", std::string("nad27.csf")}, {"dirId", other}});
    const int32_t roads = add(
        "Maps", "mapId", {{"Name", std::string("roads.dgn")}, {"dirId", dirId}, {"csfid", csfid}});
    add("Maps", "mapId", {{"Name", std::string("rivers.dgn")}, {"dirId", dirId}, {"csfid", csfid}});
    const int32_t fea =
        add("Features", "feaId", {{"Name", std::string("Roads")}, {"csfid", csfid}});
    add("FeatureMaps", nullptr, {{"feaId", fea}, {"mapId", roads}});
    db.close();
    return path;
  }

  frmMain& makeWindow(const QString& commandLine = {}) {
    frmMain::Options options;
    options.prompter = prompter_.get();
    options.programPath = kProgram;
    options.tempFolder = temp();
    options.commandLine = commandLine;
    if (!realIntro_) options.showIntro = [] { return DocumentChoice{}; };
    options.showNewFile = [this] { return newFileChoice_; };
    options.showAbout = [this] { ++aboutShown_; };
    if (!realFolderDialog_) {
      options.showFolder = [this](const QString& initial) {
        folderAsked_ << initial;
        return folderAnswers_.isEmpty() ? QString() : folderAnswers_.takeFirst();
      };
    }
    window_ = std::make_unique<frmMain>(options);
    return *window_;
  }

  void start() {
    window_->show();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
  }
  void newDocument() {
    newFileChoice_ = {DocumentKind::MicroStation, mstnTemplate()};
    action("mnuFileNew")->trigger();
    QVERIFY(window_->lifecycle().isOpen());
  }
  void closeWith(Answer answer, const QString& saveAs = {}) {
    prompter_->answer(answer);
    if (!saveAs.isEmpty()) prompter_->pickSave(saveAs);
    action("mnuFileClose")->trigger();
    QVERIFY(!window_->lifecycle().isOpen());
  }

  template <class T = QWidget>
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
  void clickTab(int index) {
    QTabBar* bar = tabs()->tabBar();
    QTest::mouseClick(bar, Qt::LeftButton, {}, bar->tabRect(index).center());
    QCOMPARE(tabs()->currentIndex(), index);
  }
  // A control's own switch, whatever its tab says.
  bool ownEnabled(const char* name) { return !control(name)->testAttribute(Qt::WA_ForceDisabled); }
  void click(const char* name) { QTest::mouseClick(control<QPushButton>(name), Qt::LeftButton); }
  QListWidget* folders() { return control<QListWidget>("lbDirectories"); }
  // A list or button of one of the Files tab's choosers.
  template <class T = QListWidget>
  T* part(const char* chooser, const char* name) {
    return control<controls::MoveOverStringControl>(chooser)->findChild<T*>(name);
  }
  QListWidget* mapsAvailable() { return part("MoveOverStringControlMapFiles", "AvailableList"); }
  QListWidget* mapsSelected() { return part("MoveOverStringControlMapFiles", "SelectedList"); }
  QListWidget* csAvailable() { return part("MoveOverStringControlCSFiles", "AvailableList"); }
  QListWidget* csSelected() { return part("MoveOverStringControlCSFiles", "SelectedList"); }
  void move(const char* chooser, const char* button) {
    QTest::mouseClick(part<QPushButton>(chooser, button), Qt::LeftButton);
  }
  void typeInto(const char* box, const QString& text) {
    auto* edit = control<QLineEdit>(box);
    edit->setFocus();
    edit->selectAll();
    QTest::keyClicks(edit, text);
    QTest::keyClick(edit, Qt::Key_Return);
  }
  QStringList workingFiles() { return QDir(temp()).entryList(QDir::Files); }

 private slots:
  void init() {
    dir_ = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir().mkpath(temp()));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir_->path() + "/config");
    prompter_ = std::make_unique<ScriptedPrompter>();
    aboutShown_ = 0;
    newFileChoice_ = {};
    realFolderDialog_ = realIntro_ = false;
    folderAnswers_.clear();
    folderAsked_.clear();
  }
  void cleanup() {
    window_.reset();
    QCOMPARE(workingFiles(), QStringList());  // the window leaves nothing behind
    QCOMPARE(prompter_->faults(), QStringList());
    QCOMPARE(prompter_->pending(), 0);
  }

  // No document, for the one given could not be read: the engine's error is
  // reported, every tab and document control waits, Help and About work.
  void everythingWaitsForADocument() {
    const QString path = file("notes.csd");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(4096, 'x'));
    f.close();
    makeWindow(path);
    prompter_->answer(Answer::No);  // the offer of the engine's error list
    start();
    QVERIFY(!window_->lifecycle().isOpen());
    QCOMPARE(prompter_->messages().size(), 1);
    QVERIFY(prompter_->messages().at(0).startsWith("The following error occured: \r\n\r\n"));
    QCOMPARE(tabStates(), (QList<bool>{false, false, false, false}));
    for (const char* name :
         {"lbDirectories", "butNewDir", "butChangeDir", "butRemoveDir", "tbMapFileExt",
          "tbCSFileExt", "optSameCS", "comboCS", "tdbgCS", "lbFeatCls", "butNewFeatCls",
          "butPrimaryUniqueKeys", "txtCADConnectStr", "butScanBrowse"})
      QVERIFY2(!control(name)->isEnabled(), name);
    QVERIFY(!action("mnuFileClose")->isEnabled());
    QVERIFY(!action("mnuFileCompact")->isEnabled());
    QCOMPARE(control<controls::MoveOverStringControl>("MoveOverStringControlCSFiles")->LeftLabel(),
             QStringLiteral("Available coordinate system files:"));

    QList<int> contexts;
    const shell::HelpOpener previous =
        shell::setHelpOpener([&](QWidget*, const QString&, int context) { contexts << context; });
    action("mnu_hlp_contents")->trigger();
    shell::setHelpOpener(previous);
    QCOMPARE(contexts, QList<int>{131});
    action("mnuHelpAbout")->trigger();
    QCOMPARE(aboutShown_, 1);
  }

  // A document given on the command line fills every tab. The association
  // is worked out when its tab is shown, for all maps at once or one by one
  // through the grid. Closed, the window is empty again.
  void aCommandLineDocumentThroughEveryTab() {
    const QString path = populatedSchema("roads.csd");
    makeWindow(path);
    start();
    QCOMPARE(window_->windowTitle(), "CAD Server Definition - " + path);
    QCOMPARE(tabStates(), (QList<bool>{true, true, true, true}));
    QCOMPARE(texts(folders()), (QStringList{"/data/maps", "/data/other"}));
    QCOMPARE(folders()->item(1)->data(Qt::UserRole).toInt(), 2);
    QCOMPARE(texts(control<QListWidget>("lbFeatCls")), QStringList{"Roads"});
    QCOMPARE(control<QLineEdit>("tbMapFileExt")->text(), QStringLiteral("*.dgn"));
    // Change, Remove and the choosers wait for a folder to be chosen.
    QVERIFY(!control("butChangeDir")->isEnabled());
    QVERIFY(!mapsAvailable()->isEnabled());

    // Both maps share one file.
    auto* combo = control<QComboBox>("comboCS");
    auto* grid = control<QTableView>("tdbgCS");
    QCOMPARE(grid->model()->rowCount(), 0);
    clickTab(1);
    QCOMPARE(grid->model()->rowCount(), 2);
    QVERIFY(control<QRadioButton>("optSameCS")->isChecked());
    QCOMPARE(combo->currentText(), QStringLiteral("/data/maps/utm33.csf"));
    QCOMPARE(combo->count(), 2);
    QVERIFY(combo->isEnabled());
    QVERIFY(!grid->isEnabled());

    // "Same": the file chosen goes to every map.
    combo->setFocus();
    QTest::keyClick(combo, Qt::Key_Down);
    QCOMPARE(combo->currentText(), QStringLiteral("/data/other/nad27.csf"));
    QCOMPARE(grid->model()->index(1, 1).data().toString(), combo->currentText());

    // "Different": one map through the grid's drop-down.
    QTest::mouseClick(control("optDiffCS"), Qt::LeftButton, {}, QPoint(8, 8));
    QVERIFY(!combo->isEnabled());
    QVERIFY(grid->isEnabled());
    const QRect cell = grid->visualRect(grid->model()->index(0, 1));
    QTest::mouseClick(grid->viewport(), Qt::LeftButton, {}, cell.center());
    QTest::mouseDClick(grid->viewport(), Qt::LeftButton, {}, cell.center());
    auto* editor = qobject_cast<QComboBox*>(QApplication::focusWidget());
    QVERIFY(editor);
    QCOMPARE(editor->currentText(), QStringLiteral("/data/other/nad27.csf"));
    QTest::keyClick(editor, Qt::Key_Up);
    QTRY_COMPARE(grid->model()->index(0, 1).data().toString(),
                 QStringLiteral("/data/maps/utm33.csf"));

    // Shown again, the tab works the mode out from the maps.
    clickTab(0);
    clickTab(1);
    QVERIFY(control<QRadioButton>("optDiffCS")->isChecked());
    closeWith(Answer::Yes);
    QCOMPARE(onDisk(path, "Maps"), (QStringList{"1|roads.dgn|1|1", "2|rivers.dgn|1|2"}));
    QCOMPARE(window_->windowTitle(), QStringLiteral("CAD Server Definition"));
    QCOMPARE(tabStates(), (QList<bool>{false, false, false, false}));
    QCOMPARE(folders()->count(), 0);
    QCOMPARE(grid->model()->rowCount(), 0);
    QVERIFY(!control<QRadioButton>("optDiffCS")->isChecked());
  }

  void filesTabOnARealFolderTreeSavesEveryRow() {
    const QString a = folder("a", {"a.dgn", "b.DGN", "c.csf", ".hidden.dgn", "sub.dgn/"});
    const QString b = folder("b", {"b.dgn", "utm.csf"});
    const QString c = folder("c", {"a.dgn", "z.dgn", "c.csf"});
    makeWindow();
    start();
    newDocument();
    QCOMPARE(tabStates(), (QList<bool>{true, false, false, true}));

    // Cancel and a blank path add nothing; the first folder is chosen and
    // read at once.
    folderAnswers_ = {QString(), "   ", a};
    for (int i = 0; i < 3; ++i) click("butNewDir");
    QCOMPARE(texts(folders()), QStringList{a});
    QCOMPARE(folders()->currentRow(), 0);
    QVERIFY(control("butRemoveDir")->isEnabled());
    QCOMPARE(sorted(texts(mapsAvailable())), (QStringList{"a.dgn", "b.DGN"}));
    QCOMPARE(texts(csAvailable()).first(), QStringLiteral("c.csf"));  // pattern order
    QCOMPARE(sorted(texts(csAvailable()).mid(1)), (QStringList{"a.dgn", "b.DGN"}));

    // Choosing files writes rows and opens the tabs that need them.
    move("MoveOverStringControlMapFiles", "butSelectAll");
    QCOMPARE(sorted(texts(mapsSelected())), (QStringList{"a.dgn", "b.DGN"}));
    QCOMPARE(tabStates(), (QList<bool>{true, false, true, true}));
    clickRow(csAvailable(), "c.csf");
    move("MoveOverStringControlCSFiles", "butSelect");
    QCOMPARE(tabStates(), (QList<bool>{true, true, true, true}));

    // A second folder is listed but not chosen until clicked.
    folderAnswers_ = {b};
    click("butNewDir");
    QCOMPARE(folderAsked_.last(), a);  // New opens where the user was
    QCOMPARE(folders()->currentRow(), 0);
    clickRow(folders(), b);
    QCOMPARE(texts(mapsAvailable()), QStringList{"b.dgn"});
    QCOMPARE(texts(mapsSelected()), QStringList());
    doubleClickRow(csAvailable(), "utm.csf");
    QCOMPARE(texts(csSelected()), QStringList{"utm.csf"});
    click("butRemoveDir");
    QCOMPARE(prompter_->messages().last(),
             QStringLiteral("Unable to delete folder. In use by coordinate system files."));
    QCOMPARE(folders()->count(), 2);

    // Back to the first: its rows, and new patterns read it again.
    clickRow(folders(), a);
    QCOMPARE(sorted(texts(mapsSelected())), (QStringList{"a.dgn", "b.DGN"}));
    QCOMPARE(texts(csSelected()), QStringList{"c.csf"});
    typeInto("tbMapFileExt", "*.csf; *.DGN");
    QCOMPARE(texts(mapsAvailable()).first(), QStringLiteral("c.csf"));
    clickRow(mapsSelected(), "b.DGN");
    move("MoveOverStringControlMapFiles", "butUnSelect");
    QCOMPARE(texts(mapsSelected()), QStringList{"a.dgn"});

    // Re-pointed, the folder keeps its rows and is read at its new place.
    folderAnswers_ = {c};
    click("butChangeDir");
    QCOMPARE(folderAsked_.last(), a);
    QCOMPARE(texts(folders()), (QStringList{c, b}));
    QCOMPARE(texts(mapsAvailable()).first(), QStringLiteral("c.csf"));
    QCOMPARE(sorted(texts(mapsAvailable()).mid(1)), (QStringList{"a.dgn", "z.dgn"}));
    QCOMPARE(texts(mapsSelected()), QStringList{"a.dgn"});

    // Emptied, the second folder goes.
    clickRow(folders(), b);
    move("MoveOverStringControlCSFiles", "butUnSelectAll");
    click("butRemoveDir");
    QCOMPARE(texts(folders()), QStringList{c});
    QCOMPARE(texts(mapsAvailable()) + texts(csAvailable()), QStringList());
    QVERIFY(!control("butRemoveDir")->isEnabled());
    QVERIFY(!mapsAvailable()->isEnabled());

    const QString saved = file("saved.csd");
    closeWith(Answer::Yes, saved);
    QCOMPARE(onDisk(saved, "Directories") + onDisk(saved, "Maps") +
                 onDisk(saved, "CoordinateSystemFiles"),
             (QStringList{"1|" + c, "1|a.dgn|1|", "1|c.csf|1"}));
    QCOMPARE(parameterOnDisk(saved, "CADExtension"), std::optional<std::string>("*.csf; *.DGN"));
  }

  // A document in the Access 97 format is edited in its own format: what
  // the tabs write reads back in the other engines, and a folder name the
  // format cannot hold is refused without touching the list or the file.
  void aJet3DocumentStaysJet3() {
    const QString a = folder("a", {"a.dgn", "c.csf"});
    const QString far = folder(QString::fromUtf8("\xe5\x9c\xb0\xe5\x9b\xb3"), {"x.dgn"});
    const QString path = file("old.csd");
    QVERIFY(QFile::copy(VANTOR_JET3_SCHEMA, path));
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    makeWindow(path);
    start();
    folderAnswers_ = {a, far};
    click("butNewDir");
    move("MoveOverStringControlMapFiles", "butSelectAll");
    clickRow(csAvailable(), "c.csf");
    move("MoveOverStringControlCSFiles", "butSelect");
    prompter_->answer(Answer::No);  // "Display the Data Access Errors Collection?"
    click("butNewDir");
    QVERIFY2(prompter_->messages().last().contains("U+5730 cannot be stored in a Jet 3 file"),
             qPrintable(prompter_->messages().last()));
    QCOMPARE(texts(folders()), QStringList{a});
    clickTab(1);
    auto* combo = control<QComboBox>("comboCS");
    combo->setFocus();
    QTest::keyClick(combo, Qt::Key_Down);
    QCOMPARE(combo->currentText(), a + "/c.csf");
    control<QLineEdit>("txtCADConnectStr")
        ->setText(QString::fromUtf8("DSN=Zeichnungs\xc3\xa4mter"));
    closeWith(Answer::Yes);

    auto db = jet::Database::openFile(path.toStdString());
    QVERIFY(db->format().version == jet::Version::kJet3);
    QCOMPARE(jet::checkDatabase(*db), std::vector<std::string>());
    QCOMPARE(
        onDisk(path, "Directories") + onDisk(path, "Maps") + onDisk(path, "CoordinateSystemFiles"),
        (QStringList{"1|" + a, "1|a.dgn|1|1", "1|c.csf|1"}));
    QCOMPARE(parameterOnDisk(path, "GraphicConnectString"),
             std::optional<std::string>("DSN=Zeichnungs\xc3\xa4mter"));
  }

  void refusalsTheMissingFolderAndAQuotedName() {
    const QString path = populatedSchema("refusals.csd");
    const QString drawings = folder("drawings", {"roads.dgn", "O'Brien.dgn", "utm33.csf"});
    makeWindow(path);
    start();

    // The folder is gone: No keeps it and reads nothing.
    prompter_->answer(Answer::No);
    clickRow(folders(), "/data/maps");
    QCOMPARE(prompter_->messages().last(),
             QStringLiteral("Selected folder does not exist. Would you like to change it?"));
    QCOMPARE(texts(mapsAvailable()), QStringList());
    QCOMPARE(texts(mapsSelected()), (QStringList{"roads.dgn", "rivers.dgn"}));

    clickRow(mapsSelected(), "roads.dgn");
    move("MoveOverStringControlMapFiles", "butUnSelect");
    move("MoveOverStringControlCSFiles", "butUnSelectAll");
    QCOMPARE(prompter_->messages().mid(1),
             (QStringList{"Unable to delete map roads.dgn. It is used by a feature.",
                          "Unable to delete coordinate system file utm33.csf. In use by maps and "
                          "features."}));
    QCOMPARE(texts(mapsSelected()), (QStringList{"roads.dgn", "rivers.dgn"}));

    // Yes: the Select Folder dialog opens on the old path; the new one is
    // read, the rows stay.
    prompter_->answer(Answer::Yes);
    folderAnswers_ = {drawings};
    clickRow(folders(), "/data/maps");
    QCOMPARE(folderAsked_, QStringList{"/data/maps"});
    QCOMPARE(folders()->item(0)->text(), drawings);
    QCOMPARE(sorted(texts(mapsAvailable())), (QStringList{"O'Brien.dgn", "roads.dgn"}));

    // A quote is not escaped: removing fails in the engine, is reported
    // with the offer of the engine's list, and nothing is lost.
    doubleClickRow(mapsAvailable(), "O'Brien.dgn");
    QCOMPARE(texts(mapsSelected()).last(), QStringLiteral("O'Brien.dgn"));
    prompter_->answer(Answer::No);
    doubleClickRow(mapsSelected(), "O'Brien.dgn");
    QVERIFY(prompter_->messages().last().startsWith("The following error occured: \r\n\r\n"));
    QCOMPARE(prompter_->shown().last().style, document::MessageStyle::YesNoQuestion);
    QCOMPARE(texts(mapsSelected()).last(), QStringLiteral("O'Brien.dgn"));
    QCOMPARE(QApplication::overrideCursor(), nullptr);
    closeWith(Answer::Yes);
    QCOMPARE(onDisk(path, "Maps").last(), QStringLiteral("3|O'Brien.dgn|1|"));
  }

  void theRealSelectFolderDialog() {
    const QString root = folder("tree", {"north/", "south/"});
    realFolderDialog_ = true;
    makeWindow();
    start();
    newDocument();

    // A typed path that is not there is reported and the dialog stays;
    // Enter on a real one shows it; a click in the tree picks a folder.
    QString openedOn, afterTyping;
    bool stayedOpen = false;
    whenShown<shell::frmDir>([&](shell::frmDir* dialog) {
      auto* box = dialog->findChild<QLineEdit*>("tbSelectedPath");
      auto* tree = dialog->findChild<QTreeView*>("Dir1");
      openedOn = box->text();
      box->setFocus();
      box->selectAll();
      QTest::keyClicks(box, root + "/gone");
      QTest::keyClick(box, Qt::Key_Return);
      stayedOpen = dialog->isVisible();
      box->selectAll();
      QTest::keyClicks(box, root);
      QTest::keyClick(box, Qt::Key_Return);
      afterTyping = box->text();
      auto* model = qobject_cast<QFileSystemModel*>(tree->model());
      const QModelIndex rootIndex = model->index(root);
      tree->expand(rootIndex);
      QTRY_COMPARE(model->rowCount(rootIndex), 2);
      const QModelIndex south = model->index(root + "/south");
      tree->scrollTo(south);
      QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, tree->visualRect(south).center());
      QTest::mouseClick(dialog->findChild<QPushButton*>("butOk"), Qt::LeftButton);
    });
    click("butNewDir");
    QCOMPARE(openedOn, QDir::homePath());
    QVERIFY(stayedOpen);
    QCOMPARE(prompter_->messages(), QStringList{"Folder " + root + "/gone not found."});
    QCOMPARE(afterTyping, root);
    QCOMPARE(texts(folders()), QStringList{root + "/south"});

    // Gone from disk, the folder opens the dialog on its parent; Cancel
    // changes nothing.
    QVERIFY(QDir(root + "/south").removeRecursively());
    whenShown<shell::frmDir>([&](shell::frmDir* dialog) {
      openedOn = dialog->findChild<QLineEdit*>("tbSelectedPath")->text();
      QTest::mouseClick(dialog->findChild<QPushButton*>("butCancel"), Qt::LeftButton);
    });
    click("butChangeDir");
    QCOMPARE(openedOn, root);
    QCOMPARE(texts(folders()), QStringList{root + "/south"});
    closeWith(Answer::No);
  }

  // A new document chosen in the start-up dialog: the scanner controls
  // follow its template, and what is set in them reaches the file it is
  // saved as.
  void newFromTheIntroSavesItsScannerSettings_data() {
    QTest::addColumn<QString>("option");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("cadScanner");
    QTest::addColumn<bool>("databaseControls");
    QTest::addColumn<QString>("extension");
    QTest::newRow("MicroStation") << "optMstn" << int(DocumentKind::MicroStation)
                                  << "Torv.VektScanner" << true << "*.dgn";
    QTest::newRow("AutoCAD") << "optAutoCad" << int(DocumentKind::AutoCad) << "Torv.AutoCADScanner"
                             << false << "*.dwg; *.dxf";
  }
  void newFromTheIntroSavesItsScannerSettings() {
    QFETCH(QString, option);
    QFETCH(int, kind);
    QFETCH(QString, cadScanner);
    QFETCH(bool, databaseControls);
    QFETCH(QString, extension);
    realIntro_ = true;
    makeWindow();
    whenShown<shell::frmIntro>([option](shell::frmIntro* intro) {
      intro->findChild<QRadioButton*>(option)->click();
      intro->findChild<QPushButton*>("butOK")->click();
    });
    start();
    QTRY_VERIFY(window_->lifecycle().isOpen());
    QCOMPARE(window_->lifecycle().kind(), static_cast<DocumentKind>(kind));
    QCOMPARE(control<QComboBox>("comboCADScannerCls")->currentText(), cadScanner);
    QCOMPARE(QString::fromStdString(window_->drawingScannerClass()), cadScanner);
    QVERIFY(!ownEnabled("comboCADScannerCls"));
    QCOMPARE(ownEnabled("comboRDBScannerCls"), databaseControls);
    QCOMPARE(ownEnabled("txtRDBConnectStr"), databaseControls);
    QCOMPARE(ownEnabled("butDBLinkageOptions"), databaseControls);

    control<QLineEdit>("txtCADConnectStr")->setText("DSN=drawings");
    prompter_->pickOpen(file("scanner.ini"));
    click("butScanBrowse");
    QCOMPARE(control<QLineEdit>("txtScannerIniFile")->text(), file("scanner.ini"));
    const QString target = file("new.csd");
    closeWith(Answer::Yes, target);
    const auto saved = [&](const std::string& name) {
      return QString::fromStdString(parameterOnDisk(target, name).value_or("<Null>"));
    };
    QCOMPARE(saved("GraphicScannerClass"), cadScanner);
    QCOMPARE(saved("GraphicConnectString"), QStringLiteral("DSN=drawings"));
    QCOMPARE(saved("INI"), file("scanner.ini"));
    QCOMPARE(saved("CADExtension"), extension);
  }

  // Closing the window asks about the document first: Cancel keeps both.
  // Closed, the window leaves its last normal placement, not a minimized one.
  void closingTheWindow() {
    makeWindow(populatedSchema("keep.csd"));
    start();
    window_->setGeometry(60, 70, 640, 480);
    QCoreApplication::processEvents();
    const QRect normal = window_->frameGeometry();
    prompter_->answer(Answer::Cancel).answer(Answer::No);
    QVERIFY(!window_->close());
    QVERIFY(window_->lifecycle().isOpen());
    QVERIFY(window_->close());
    makeWindow();
    start();
    window_->showMinimized();
    QCoreApplication::processEvents();
    QVERIFY(window_->close());
    QSettings settings("Vantor", "Vantor");
    settings.beginGroup("Settings");
    QCOMPARE(QRect(settings.value("MainLeft").toInt(), settings.value("MainTop").toInt(),
                   settings.value("MainWidth").toInt(), settings.value("MainHeight").toInt()),
             normal);
  }

  // Rows written beside the window's recordsets, as the wizard writes them,
  // show after a requery; compaction moves rows. Either way the grid and the
  // scanner settings then write through recordsets opened afresh.
  void requeryAndCompactionReopenTheRecordsets() {
    const QString path = populatedSchema("reopen.csd");
    makeWindow(path);
    start();
    tabs()->setCurrentIndex(1);
    const auto grid = [this] { return control<QTableView>("tdbgCS")->model(); };
    schema::SchemaDatabase& db = window_->lifecycle().database();
    {
      schema::Recordset other = db.openRecordset("select * from Maps");
      other.addNew();
      other.setField("Name", std::string("lakes.dgn"));
      other.update();
    }
    QCOMPARE(window_->sharedRecordset("Maps").recordCount(), 2L);
    window_->requery();
    QCOMPARE(window_->sharedRecordset("Maps").recordCount(), 3L);
    QCOMPARE(grid()->rowCount(), 3);
    QVERIFY(grid()->setData(grid()->index(2, 1), "/data/other/nad27.csf"));

    {
      // Three thousand folders come and go: the working copy keeps their pages.
      db.beginTrans();
      schema::Recordset dirs = db.openRecordset("select * from Directories");
      for (int i = 0; i < 3000; ++i) {
        dirs.addNew();
        dirs.setField("Path", "/tmp/d" + std::to_string(i));
        dirs.update();
      }
      schema::Recordset gone = db.openRecordset("select * from Directories where dirId > 2");
      for (; !gone.eof(); gone.moveNext()) gone.deleteRecord();
      db.commitTrans();
    }
    const QString work = window_->lifecycle().workingCopyPath();
    const qint64 grown = QFileInfo(work).size();
    action("mnuFileCompact")->trigger();
    QVERIFY(QFileInfo(work).size() < grown);
    QVERIFY(grid()->setData(grid()->index(1, 1), "/data/other/nad27.csf"));
    control<QLineEdit>("txtCADConnectStr")->setText("DSN=compacted");
    closeWith(Answer::Yes);
    QCOMPARE(onDisk(path, "Maps"),
             (QStringList{"1|roads.dgn|1|1", "2|rivers.dgn|1|2", "3|lakes.dgn||2"}));
    QCOMPARE(parameterOnDisk(path, "GraphicConnectString"),
             std::optional<std::string>("DSN=compacted"));
  }
};

QTEST_MAIN(FrmMainTest)
#include "frmMain_test.moc"
