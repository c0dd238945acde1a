// The folder features on real folders and on copies of the generated
// template: what a scan lists and in which order, the refusals and their
// exact texts, what reaches the file and when, the association's modes and
// the grid model, and where the Select Folder dialog opens.
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <array>
#include <memory>

#include "document/scripted_prompter.h"
#include "folders/association_model.h"
#include "folders/cs_association.h"
#include "folders/file_choices.h"
#include "folders/folder_dialog.h"
#include "folders/folder_list.h"
#include "folders/folder_scan.h"
#include "jet/database.h"
#include "schema/engine_error.h"

using namespace folders;
using document::Answer;
using document::ScriptedPrompter;

namespace {

void touch(const QString& path) {
  QFile f(path);
  if (!f.open(QIODevice::WriteOnly)) qFatal("cannot make %s", qPrintable(path));
}

// How many rows a table holds on disk, read by a fresh engine: what a
// crash at this moment would leave.
size_t rowsOnDisk(const QString& path, const std::string& table) {
  auto db = jet::Database::openFile(path.toStdString());
  return db->readAll(db->table(table)).size();
}

}  // namespace

class FoldersTest : public QObject {
  Q_OBJECT

  std::unique_ptr<QTemporaryDir> dir_;
  QString file_;
  schema::SchemaDatabase db_;
  std::array<schema::Recordset, 3> rs_;  // Directories, Maps, CoordinateSystemFiles
  ScriptedPrompter prompter_;

  FolderTables tables() { return {&db_, &rs_[0], &rs_[1], &rs_[2]}; }
  QString path(const QString& name) const { return dir_->path() + "/" + name; }

  // Rows written past the window's recordsets, as another form would.
  int32_t insert(const char* table, const char* key,
                 std::initializer_list<std::pair<const char*, jet::Value>> fields) {
    schema::Recordset rs = db_.openRecordset(std::string("select * from ") + table);
    rs.addNew();
    for (const auto& [name, value] : fields) rs.setField(name, value);
    const int32_t id = key ? std::get<int32_t>(rs.field(key)) : 0;
    rs.update();
    return id;
  }
  void reopen() {
    int i = 0;
    for (const char* t : {"Directories", "Maps", "CoordinateSystemFiles"})
      rs_[i++] = db_.openRecordset(std::string("select * from ") + t);
  }

 private slots:
  void init() {
    dir_ = std::make_unique<QTemporaryDir>();
    file_ = path("schema.csd");
    QVERIFY(QFile::copy(VANTOR_MSTN_TEMPLATE, file_));
    QFile::setPermissions(file_, QFile::ReadOwner | QFile::WriteOwner);
    db_.open(file_.toStdString());
    reopen();
    prompter_ = ScriptedPrompter();
  }
  void cleanup() {
    for (auto& rs : rs_) rs.close();
    db_.close();
    QCOMPARE(prompter_.faults(), QStringList());
  }

  void scanListsOrdinaryFilesByPatternInPatternOrder() {
    const QString folder = path("maps");
    QVERIFY(QDir().mkpath(folder + "/sub.dgn"));
    for (const char* name : {"b.dgn", "A.CSF", "notes.txt", ".hidden.dgn", "a;b.dgn", "README"})
      touch(folder + "/" + name);
    QVERIFY(QFile::link(folder + "/b.dgn", folder + "/link.dgn"));
    QVERIFY(QFile::link(folder + "/gone", folder + "/broken.dgn"));

    ScanResult r = scanFolder(folder, " *.csf ;*.DGN");
    QCOMPARE(r.problem, QString());
    // Patterns keep their order; inside one the file system's order stands.
    QCOMPARE(r.names.first(), QStringLiteral("A.CSF"));
    QStringList dgn = r.names.mid(1);
    dgn.sort();
    QCOMPARE(dgn, (QStringList{"a;b.dgn", "b.dgn", "link.dgn"}));
    QCOMPARE(scanFolder(folder, "*.dgn; b.*").names.count("b.dgn"), 2);
    QCOMPARE(scanFolder(folder, "a^;b.dgn").names, QStringList{"a;b.dgn"});
    QCOMPARE(scanFolder(folder, "?.dgn").names, QStringList{"b.dgn"});
    QCOMPARE(scanFolder(folder, "*.*").names.size(), 6);  // README has no dot
    QCOMPARE(scanFolder(folder, " ; ").names, QStringList());

    r = scanFolder(path("nowhere"), "*.*");
    QCOMPARE(r.names, QStringList());
    QCOMPARE(r.problem,
             "Unable to read folder " + path("nowhere") + ". No such file or directory.");
    if (geteuid() != 0) {  // root reads any folder
      QVERIFY(QFile::setPermissions(folder, {}));
      QVERIFY(scanFolder(folder, "*.*").problem.endsWith(". Permission denied."));
      QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
  }

  void wildcards() {
    QVERIFY(wildcardMatch(u"*.dgn", u"Roads.DGN"));
    QVERIFY(wildcardMatch(u"*a*a*a*b", u"aaaaaaaaaaaaab"));
    QVERIFY(!wildcardMatch(u"*a*a*a*b", u"aaaaaaaaaaaaaa"));
    QVERIFY(!wildcardMatch(u"*.dgn", u"roads.dgn.bak"));
    QVERIFY(!wildcardMatch(u"?.dgn", u".dgn"));
    QVERIFY(!wildcardMatch(u"roads.*", u"roadsx"));
  }

  void foldersAreAddedChangedAndRemovedUnlessInUse() {
    FolderList folders(tables(), prompter_);
    QCOMPARE(folders.add("   "), std::nullopt);
    QCOMPARE(rs_[0].recordCount(), 0L);
    const auto first = folders.add("/data/O'Brien maps ");
    const auto second = folders.add("/data/O'Brien maps ");
    QVERIFY(first && second && first->id != second->id);
    const int16_t a = first->id, b = second->id;

    const int32_t csfid =
        insert("CoordinateSystemFiles", "csfid", {{"Name", std::string("utm.csf")}, {"dirId", a}});
    insert("Maps", "mapId", {{"Name", std::string("r.dgn")}, {"dirId", b}});
    const int16_t c = folders.add("/data/c")->id;
    insert("Maps", "mapId", {{"Name", std::string("s.dgn")}, {"dirId", c}, {"csfid", csfid}});
    reopen();

    QVERIFY(folders.change(b, "/data/moved"));
    QVERIFY(!folders.change(999, "/x"));
    QCOMPARE(folders.remove(a), FolderList::Removal::InUse);
    QCOMPARE(folders.remove(b), FolderList::Removal::InUse);
    insert("CoordinateSystemFiles", nullptr, {{"Name", std::string("x.csf")}, {"dirId", c}});
    reopen();
    QCOMPARE(folders.remove(c), FolderList::Removal::InUse);
    QCOMPARE(prompter_.messages(),
             (QStringList{"Unable to delete folder. In use by coordinate system files.",
                          "Unable to delete folder. In use by maps.",
                          "Unable to delete folder. In use by maps and coordinate system files."}));
    QCOMPARE(folders.remove(999), FolderList::Removal::NotFound);
    const int16_t d = folders.add("/data/d")->id;
    QCOMPARE(folders.remove(d), FolderList::Removal::Removed);

    // On disk: stored untrimmed, the change kept under the same key.
    rs_ = {};
    db_.close();
    db_.open(file_.toStdString());
    reopen();
    QCOMPARE(folders.entries(),
             (std::vector<schema::ListEntry>{
                 {"/data/O'Brien maps ", a}, {"/data/moved", b}, {"/data/c", c}}));

    prompter_.answer(Answer::No).answer(Answer::Yes);
    QVERIFY(!folders.askToChangeMissing());
    QVERIFY(folders.askToChangeMissing());
    QCOMPARE(prompter_.shown().last().text,
             QStringLiteral("Selected folder does not exist. Would you like to change it?"));
    QCOMPARE(prompter_.shown().last().style, document::MessageStyle::YesNo);
  }

  void filesAreChosenAndRefusedWhileInUse() {
    FolderList folders(tables(), prompter_);
    const int16_t one = folders.add("/one")->id, two = folders.add("/two")->id;
    FileChoices files(tables(), prompter_);
    QCOMPARE(files.tabs(), (TabStates{false, false}));
    files.add(FileKind::Map, "roads.dgn", one);
    QCOMPARE(files.tabs(), (TabStates{false, true}));
    files.add(FileKind::Map, "roads.dgn", two);
    files.add(FileKind::Map, "O'Brien.dgn", two);
    files.add(FileKind::CoordinateSystem, "utm.csf", one);
    files.add(FileKind::CoordinateSystem, "utm.csf", two);
    QCOMPARE(files.tabs(), (TabStates{true, true}));
    QCOMPARE(files.selectedNames(FileKind::Map, two), (QStringList{"roads.dgn", "O'Brien.dgn"}));
    QCOMPARE(files.selectedNames(FileKind::CoordinateSystem, one), QStringList{"utm.csf"});

    // The map of folder two is used by a feature, the file of folder one
    // by a map, the file of folder two by a feature only.
    rs_[1].findFirst("Name = 'roads.dgn' AND dirId = " + std::to_string(two));
    const int32_t usedMap = std::get<int32_t>(rs_[1].field("mapId"));
    rs_[2].findFirst("dirId = " + std::to_string(two));
    const int32_t featureFile = std::get<int32_t>(rs_[2].field("csfid"));
    rs_[2].findFirst("dirId = " + std::to_string(one));
    const int32_t mapFile = std::get<int32_t>(rs_[2].field("csfid"));
    const int32_t fea =
        insert("Features", "feaId", {{"Name", std::string("Roads")}, {"csfid", featureFile}});
    insert("FeatureMaps", nullptr, {{"feaId", fea}, {"mapId", usedMap}});
    rs_[1].findFirst("dirId = " + std::to_string(one));
    rs_[1].edit();
    rs_[1].setField("csfid", mapFile);
    rs_[1].update();

    QVERIFY(!files.remove(FileKind::Map, "roads.dgn", two));
    QVERIFY(!files.remove(FileKind::CoordinateSystem, "utm.csf", one));
    QVERIFY(!files.remove(FileKind::CoordinateSystem, "utm.csf", two));
    QCOMPARE(prompter_.messages(),
             (QStringList{"Unable to delete map roads.dgn. It is used by a feature.",
                          "Unable to delete coordinate system file utm.csf. In use by maps.",
                          "Unable to delete coordinate system file utm.csf. In use by features."}));

    // A quote in the name is not escaped: the find fails, nothing goes.
    try {
      files.remove(FileKind::Map, "O'Brien.dgn", two);
      QFAIL("the quote went through");
    } catch (const schema::EngineError& e) {
      QVERIFY(e.fromEngine());
    }
    QCOMPARE(files.selectedNames(FileKind::Map, two), (QStringList{"roads.dgn", "O'Brien.dgn"}));
    QVERIFY(files.remove(FileKind::Map, "never-added.dgn", one));  // nothing to delete

    // The last map goes: both dependent tabs go with it.
    rs_[1].findFirst("dirId = " + std::to_string(one));
    rs_[1].edit();
    rs_[1].setField("csfid", jet::Value{});
    rs_[1].update();
    QVERIFY(files.remove(FileKind::Map, "roads.dgn", one));
    QVERIFY(files.remove(FileKind::CoordinateSystem, "utm.csf", one));
    QCOMPARE(rs_[2].recordCount(), 1L);
    rs_[1].findFirst("Name = 'roads.dgn' AND dirId = " + std::to_string(two));
    rs_[1].deleteRecord();
    rs_[1].findFirst("dirId = " + std::to_string(two));
    rs_[1].deleteRecord();
    QCOMPARE(files.tabs(), (TabStates{false, false}));
  }

  void aKeyBeyondSixteenBitsWritesNothing() {
    rs_ = {};
    db_.close();
    {
      auto engine = jet::Database::openFile(file_.toStdString(), true);
      while (engine->takeAutoNumber(engine->table("Maps")) < 32767) {
      }
      engine->flush();
    }
    db_.open(file_.toStdString());
    reopen();
    FileChoices files(tables(), prompter_);
    try {
      files.add(FileKind::Map, "late.dgn", 1);
      QFAIL("a key the forms cannot hold was written");
    } catch (const schema::EngineError& e) {
      QCOMPARE(e.number(), 6);
    }
    QCOMPARE(rs_[1].recordCount(), 0L);
    QCOMPARE(rowsOnDisk(file_, "Maps"), size_t(0));
  }

  void aBatchReachesTheDiskOnceAtItsEnd() {
    FolderList folders(tables(), prompter_);
    const int16_t dir = folders.add("/maps")->id;
    {
      FileChoices files(tables(), prompter_);
      files.beginBatch();
      for (int i = 0; i < 50; ++i) files.add(FileKind::Map, QString("m%1.dgn").arg(i), dir);
      QCOMPARE(rowsOnDisk(file_, "Maps"), size_t(0));
      files.endBatch();
      QCOMPARE(rowsOnDisk(file_, "Maps"), size_t(50));
      // A batch a failure left open is kept when the choices go.
      files.beginBatch();
      files.add(FileKind::Map, "late.dgn", dir);
    }
    QCOMPARE(rowsOnDisk(file_, "Maps"), size_t(51));
    QCOMPARE(db_.transactionLevel(), 0);
  }

  void associationModesNamesAndWrites() {
    FolderList folders(tables(), prompter_);
    FileChoices files(tables(), prompter_);
    const int16_t east = folders.add("/east")->id, west = folders.add("/west/")->id;
    files.add(FileKind::CoordinateSystem, "utm.csf", east);
    files.add(FileKind::CoordinateSystem, "utm.csf", west);
    insert("CoordinateSystemFiles", nullptr, {{"Name", std::string("lost.csf")}, {"dirId", 77}});
    files.add(FileKind::Map, "a.dgn", east);
    files.add(FileKind::Map, "b.dgn", west);
    reopen();

    CoordinateSystemAssociation cs(tables());
    AssociationModel model(cs);
    model.refresh();  // no map has a file: one distinct value
    QCOMPARE(cs.mode(), CoordinateSystemAssociation::Mode::Same);
    QCOMPARE(cs.sharedFile(), -1);
    QStringList names;
    for (const auto& f : cs.files()) names << f.name;
    QCOMPARE(names, (QStringList{"/east/utm.csf", "/west/utm.csf", "lost.csf"}));
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.headerData(1, Qt::Horizontal).toString(),
             QStringLiteral("Coordinate system file"));
    QCOMPARE(model.data(model.index(1, AssociationModel::kMap)).toString(),
             QStringLiteral("/west/b.dgn"));
    QCOMPARE(model.data(model.index(1, AssociationModel::kFile)).toString(), QString());

    // One map by the grid: now they differ.
    QVERIFY(!model.setData(model.index(0, AssociationModel::kFile), "/nowhere.csf"));
    QVERIFY(model.setData(model.index(0, AssociationModel::kFile), "/west/utm.csf"));
    QCOMPARE(model.data(model.index(0, AssociationModel::kCsId)).toInt(), cs.files()[1].csfid);
    model.refresh();
    QCOMPARE(cs.mode(), CoordinateSystemAssociation::Mode::Different);
    QCOMPARE(model.data(model.index(0, AssociationModel::kFile)).toString(),
             QStringLiteral("/west/utm.csf"));

    // Every map at once, in one commit, whichever folder it is in.
    const int16_t east_utm = cs.files()[0].csfid;
    struct Counting : Progress {
      qsizetype total = -1, last = 0;
      void start(const QString&, qsizetype t) override { total = t; }
      void advance(qsizetype d) override { last = d; }
    } progress;
    cs.applyToAll(east_utm, progress);
    QCOMPARE(progress.total, 2);
    QCOMPARE(progress.last, 2);
    QCOMPARE(cs.sharedFile(), 0);
    model.refresh();
    QCOMPARE(cs.mode(), CoordinateSystemAssociation::Mode::Same);
    QCOMPARE(cs.sharedFile(), 0);
    auto disk = jet::Database::openFile(file_.toStdString());
    for (const auto& row : disk->readAll(disk->table("Maps")))
      QCOMPARE(std::get<int32_t>(row.at(3)), int32_t(east_utm));
  }

  void folderDialogOpensOnTheNearestFolderThatIsThere() {
    const QString deep = path("a/b");
    QVERIFY(QDir().mkpath(deep));
    QCOMPARE(nearestExistingFolder(deep, "/tmp"), deep);
    QCOMPARE(nearestExistingFolder(deep + "/gone/further/", "/fb"), deep);
    QCOMPARE(nearestExistingFolder(path("a^b"), "/fb"), dir_->path());
    QCOMPARE(nearestExistingFolder("D:\\maps", "/fb"), QStringLiteral("/fb"));

    const QStringList points{"/", "/media/usb", "/home"};
    QCOMPARE(mountPointOf("/media/usb/maps", points), QStringLiteral("/media/usb"));
    QCOMPARE(mountPointOf("/media/usb2/maps", points), QStringLiteral("/"));
    QCOMPARE(mountPointOf("/home", points), QStringLiteral("/home"));
    QVERIFY(mountPoints().startsWith(QStringLiteral("/")));
    QCOMPARE(folderNotFoundMessage("/data/maps"), QStringLiteral("Folder /data/maps not found."));
  }
};

QTEST_GUILESS_MAIN(FoldersTest)
#include "folders_test.moc"
