// Draws the editor's forms as a user sees them and saves one PNG each:
//   vantor-screenshots OUTPUT_FOLDER
// The main window shows a sample schema with folders, maps, a coordinate
// system file and feature classes, opened from the command line as a user
// would open it. Run it on a real display or under Xvfb (scripts/screenshots).
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QListWidget>
#include <QPushButton>
#include <QSettings>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <cstdio>

#include "document/document_files.h"
#include "document/document_settings.h"
#include "document/scripted_prompter.h"
#include "features/frmWizard.h"
#include "linkage/frmDBLinkageOptions.h"
#include "linkage/frmPrimaryUniqueKeys.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "shell/HelpViewer.h"
#include "shell/frmAbout.h"
#include "shell/frmDir.h"
#include "shell/frmErrors.h"
#include "shell/frmIntro.h"
#include "shell/frmMain.h"
#include "shell/frmNewFile.h"
#include "shell/help.h"

namespace {

void settle() {
  for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
}

bool save(QWidget& widget, const QString& folder, const QString& name) {
  settle();
  const QString path = folder + "/" + name + ".png";
  if (!widget.grab().save(path)) {
    std::fprintf(stderr, "vantor-screenshots: cannot write %s\n", qPrintable(path));
    return false;
  }
  std::printf("%s\n", qPrintable(path));
  return true;
}

int32_t addRow(schema::SchemaDatabase& db, const char* table, const char* key,
               std::initializer_list<std::pair<const char*, jet::Value>> fields) {
  schema::Recordset rs = db.openRecordset(std::string("select * from ") + table);
  rs.addNew();
  for (const auto& [name, value] : fields) rs.setField(name, value);
  const int32_t id = std::get<int32_t>(rs.field(key));
  rs.update();
  return id;
}

// A small collection: two folders of drawings on disk, their maps each in
// its folder's coordinate system (two files of one name, told apart by
// their folders), three feature classes.
QString sampleSchema(const QString& templateFile, const QString& folder) {
  const QString path = folder + "/city-utilities.csd";
  const QString roadsDir = folder + "/gis/roads", hydroDir = folder + "/gis/hydro";
  const std::pair<QString, QStringList> drawings[] = {
      {roadsDir,
       {"streets-north.dgn", "streets-south.dgn", "bridges.dgn", "utm33n.csf", "nad83.csf"}},
      {hydroDir, {"rivers.dgn", "lakes.dgn", "utm33n.csf"}}};
  for (const auto& [dir, files] : drawings) {
    QDir().mkpath(dir);
    for (const QString& name : files) QFile(dir + "/" + name).open(QIODevice::WriteOnly);
  }
  QFile::copy(templateFile, path);
  QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
  schema::SchemaDatabase db;
  db.open(path.toStdString());
  const int32_t roads = addRow(db, "Directories", "dirId", {{"Path", roadsDir.toStdString()}});
  const int32_t hydro = addRow(db, "Directories", "dirId", {{"Path", hydroDir.toStdString()}});
  const int32_t cs = addRow(db, "CoordinateSystemFiles", "csfid",
                            {{"Name", std::string("utm33n.csf")}, {"dirId", roads}});
  const int32_t hydroCs = addRow(db, "CoordinateSystemFiles", "csfid",
                                 {{"Name", std::string("utm33n.csf")}, {"dirId", hydro}});
  for (const char* map : {"streets-north.dgn", "streets-south.dgn"})
    addRow(db, "Maps", "mapId", {{"Name", std::string(map)}, {"dirId", roads}, {"csfid", cs}});
  addRow(db, "Maps", "mapId",
         {{"Name", std::string("rivers.dgn")}, {"dirId", hydro}, {"csfid", hydroCs}});
  for (const char* feature : {"Streets", "Rivers", "Bridges"})
    addRow(db, "Features", "feaId", {{"Name", std::string(feature)}, {"csfid", cs}});
  db.close();
  return path;
}

// What the wizard shows of "Streets": its exposed attributes with the line
// geometry as primary geometry, its level and level name values, and the
// two street maps.
void defineStreets(const QString& path) {
  schema::SchemaDatabase db;
  db.open(path.toStdString());
  schema::Recordset streets = db.openRecordset("select * from Features where Name = 'Streets'");
  const int32_t id = std::get<int32_t>(streets.field("feaId"));
  streets.edit();
  streets.setField("primaryGeometry", int32_t(29));
  streets.update();
  for (int32_t attr : {23, 29, 3})
    addRow(db, "FeatureAttributes", "feaId", {{"feaId", id}, {"AttrId", attr}});
  for (int32_t attr : {1, 2})
    addRow(db, "FeatureDefinition", "feaId", {{"feaId", id}, {"AttrId", attr}});
  addRow(db, "LevelValues", "feaId", {{"feaId", id}, {"minVal", 10}, {"maxVal", 19}});
  addRow(db, "LevelValues", "feaId", {{"feaId", id}, {"minVal", 30}, {"maxVal", 34}});
  for (const char* name : {"Main road", "Lane"})
    addRow(db, "LevelNameValues", "feaId", {{"feaId", id}, {"Value", std::string(name)}});
  for (int32_t map : {1, 2}) addRow(db, "FeatureMaps", "feaId", {{"feaId", id}, {"mapId", map}});
}

// Every step of the wizard on "Streets", reached with Next; cancelled.
bool wizardSteps(frmMain& window, document::Prompter& prompter, const QString& out) {
  features::frmWizard wizard(
      window.lifecycle().database(),
      {window.sharedRecordset("Features"), window.sharedRecordset("Maps"),
       window.sharedRecordset("Directories"), window.sharedRecordset("CoordinateSystemFiles"),
       window.sharedRecordset("GraphicAttributes"), window.sharedRecordset("FeatureDefAttr")},
      prompter, &window);
  wizard.load("Streets", window.drawingScannerClass());
  wizard.show();
  bool ok = true;
  for (int step = 0; step < features::FeatureWizard::kStepCount; ++step) {
    if (step > 0) wizard.findChild<QPushButton*>("cmdNav3")->click();
    ok &= save(wizard, out, QString("frmWizard-step%1").arg(step + 1));
  }
  wizard.reject();
  return ok;
}

}  // namespace

int main(int argc, char* argv[]) {
  QApplication app(argc, argv);
  QApplication::setApplicationName("Vantor");
  if (argc != 2) {
    std::fprintf(stderr, "usage: vantor-screenshots OUTPUT_FOLDER\n");
    return 2;
  }
  const QString out = QString::fromLocal8Bit(argv[1]);
  QDir().mkpath(out);
  QTemporaryDir scratch;
  // The user's own settings stay untouched.
  QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, scratch.path() + "/config");

  const QString program = QCoreApplication::applicationFilePath();
  const QString templates = document::templateFolderFor(program);
  const QString schemaFile = sampleSchema(templates + "/MstnTemplate.csd", scratch.path());
  defineStreets(schemaFile);
  // What frmIntro offers as the last saved document.
  document::DocumentSettings::setRecentFile("/srv/gis/city-utilities.csd");

  document::ScriptedPrompter prompter;
  frmMain::Options options;
  options.prompter = &prompter;
  options.programPath = program;
  options.tempFolder = scratch.path();
  options.commandLine = schemaFile;
  frmMain window(options);
  window.resize(900, 640);
  window.show();
  settle();
  window.firstActivation();
  if (!window.lifecycle().isOpen()) {
    std::fprintf(stderr, "vantor-screenshots: the sample schema did not open: %s\n",
                 qPrintable(prompter.messages().join(" / ")));
    return 1;
  }

  bool ok = true;
  // The first folder chosen, so the Files tab shows its drawings.
  window.findChild<QListWidget*>("lbDirectories")->setCurrentRow(0);
  // A feature class chosen, so Edit and Delete show as they are used.
  window.findChild<QListWidget*>("lbFeatCls")->setCurrentRow(0);
  auto* tabs = window.findChild<QTabWidget*>("SSTab1");
  const char* tabNames[] = {"files", "coordinate-systems", "feature-definition", "scanner-options"};
  for (int i = 0; i < tabs->count(); ++i) {
    tabs->setCurrentIndex(i);
    ok &= save(window, out, QString("frmMain-") + tabNames[i]);
  }

  shell::frmIntro intro(window.lifecycle(), prompter, &window);
  intro.show();
  ok &= save(intro, out, "frmIntro");
  intro.hide();

  shell::frmNewFile newFile(window.lifecycle(), prompter, &window);
  newFile.show();
  ok &= save(newFile, out, "frmNewFile");
  newFile.hide();

  shell::frmErrors errors(&window);
  errors.setErrors({{3022, "DAO.Recordset",
                     "The changes you requested to the table were not successful because they "
                     "would create duplicate values in the index, primary key, or relationship."},
                    {3265, "DAO.Fields", "Item not found in this collection."}});
  errors.show();
  ok &= save(errors, out, "frmErrors");
  errors.hide();

  shell::frmAbout about(prompter, &window);
  about.show();
  ok &= save(about, out, "frmAbout");
  about.hide();

  // The linkage and key dialogs over the sample's rows; only hidden again,
  // so they store nothing.
  linkage::frmDBLinkageOptions linkageOptions(window.lifecycle().database(),
                                              window.sharedRecordset("GraphicAttributes"), &window);
  linkageOptions.show();
  ok &= save(linkageOptions, out, "frmDBLinkageOptions");
  linkageOptions.hide();

  linkage::frmPrimaryUniqueKeys uniqueKeys(window.lifecycle().database(),
                                           window.sharedRecordset("GraphicAttributes"),
                                           window.drawingScannerClass(), &window);
  uniqueKeys.show();
  ok &= save(uniqueKeys, out, "frmPrimaryUniqueKeys");
  uniqueKeys.hide();

  // Select Folder, opened on the sample's first folder as Change opens it;
  // the folder tree fills in the background.
  shell::frmDir folders(prompter, &window);
  folders.setInitialPath(scratch.path() + "/gis/roads");
  folders.show();
  QElapsedTimer tree;
  tree.start();
  while (tree.elapsed() < 1500) {
    QCoreApplication::processEvents();
    QThread::msleep(20);
  }
  ok &= save(folders, out, "frmDir");
  folders.hide();
  ok &= wizardSteps(window, prompter, out);

  // The help, as F1 opens it, on the Files tab's topic.
  const QString helpFile = QCoreApplication::applicationDirPath() + "/resdlls/0009/Vantor.HLP";
  if (shell::HelpViewer* help = shell::HelpViewer::open(helpFile, shell::kHelpContentsContext)) {
    help->resize(760, 620);
    help->showTopic(helpFile, 135);
    ok &= save(*help, out, "help");
    help->close();
  }

  // Leave nothing behind: the sample is thrown away unsaved.
  prompter.answer(document::Answer::No);
  window.lifecycle().close();
  return ok ? 0 : 1;
}
