// The start-up dialog: which template options the installed files allow,
// what each option enables, the last saved document offered, Browse and
// Template through the prompter, and what OK and Cancel return.
#include "shell/frmIntro.h"

#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSettings>
#include <QtTest>

#include "document/document_lifecycle.h"
#include "document/document_settings.h"
#include "document/scripted_prompter.h"

using namespace document;
using shell::frmIntro;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
// A program beside the build's generated templates.
const QString kRealProgram = QStringLiteral(VANTOR_PROGRAM_DIR "/vantor");

struct NoHost : DocumentHost {};

// The dialog, shown, with what it borrows, for one program path.
struct Rig {
  ScriptedPrompter prompter;
  NoHost host;
  DocumentLifecycle life;
  frmIntro dialog;
  explicit Rig(const QString& programPath = kRealProgram)
      : life(prompter, host, programPath), dialog(life, prompter) {
    dialog.show();
  }

  template <class W = QWidget>
  W* the(const char* name) {
    W* widget = dialog.findChild<W*>(QString::fromLatin1(name));
    if (!widget) qFatal("frmIntro has no %s", name);
    return widget;
  }
  bool enabled(const char* name) { return the(name)->isEnabled(); }
  QLineEdit* box() { return the<QLineEdit>("tbMdbFileName"); }
  // On the left end, where a radio button's circle is: a stretched radio
  // button takes clicks only on its circle and text, not on its middle.
  void click(const char* name) {
    QWidget* button = the(name);
    QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(8, button->height() / 2));
  }
  // Whatever was scripted was used, and nothing unscripted was asked.
  QStringList leftovers() const {
    return prompter.faults() + QStringList(prompter.pending(), QStringLiteral("unused answer"));
  }
};

}  // namespace

class FrmIntroTest : public QObject {
  Q_OBJECT

  QTemporaryDir root_;
  int programs_ = 0;

  // A program folder of its own whose template folder holds only the named
  // files; which options are enabled depends on nothing else.
  QString programWith(const QStringList& templates) {
    const QString base = root_.path() + QStringLiteral("/install%1").arg(++programs_);
    QDir().mkpath(base + "/Templates/Warehouses");
    for (const QString& name : templates)
      if (!QFile(base + "/Templates/Warehouses/" + name).open(QIODevice::WriteOnly)) qFatal("no");
    return base + "/bin/vantor";
  }

 private slots:
  void init() {
    // Every test starts with an empty settings store of its own.
    const QString config = root_.path() + QStringLiteral("/config%1").arg(++programs_);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, config);
  }

  void templateOptionsFollowTheInstalledFilesAndCancel() {
    DocumentSettings::setRecentFile(QStringLiteral("/old/recent.csd"));
    const QString mstn = QStringLiteral("MstnTemplate.csd");
    const QString autoCad = QStringLiteral("AutoCadTemplate.csd");
    for (const QStringList& installed : {QStringList{mstn}, QStringList{autoCad}, QStringList{}}) {
      Rig rig(programWith(installed));
      QCOMPARE(rig.enabled("optMstn"), installed.contains(mstn));
      QCOMPARE(rig.enabled("optAutoCad"), installed.contains(autoCad));
      QVERIFY(rig.enabled("optOther"));
      QVERIFY(rig.the<QRadioButton>("optExisting")->isChecked());
      // Cancel returns no path, not even the one in the box.
      rig.click("butCancel");
      QCOMPARE(rig.dialog.result(), int(QDialog::Rejected));
      QCOMPARE(rig.dialog.choice().path, QString());
    }
  }

  void eachOptionEnablesItsOwnControls() {
    Rig rig;
    for (const char* option : {"optExisting", "optMstn", "optOther", "optAutoCad", "optExisting",
                               "optOther", "optExisting"}) {
      rig.click(option);
      // One choice across the frame and outside it.
      for (const char* name : {"optExisting", "optMstn", "optAutoCad", "optOther"})
        QCOMPARE(rig.the<QRadioButton>(name)->isChecked(), qstrcmp(name, option) == 0);
      const bool existing = qstrcmp(option, "optExisting") == 0;
      QVERIFY2(rig.enabled("tbMdbFileName") == existing, option);
      QVERIFY2(rig.enabled("butBrowse") == existing, option);
      QVERIFY2(rig.enabled("butTemplate") == (qstrcmp(option, "optOther") == 0), option);
    }
  }

  void okReturnsTheKindAndFileOfEachOption() {
    struct Case {
      const char* option;
      DocumentKind kind;
      QString path;
    };
    const Case cases[] = {
        {"optExisting", DocumentKind::Existing, QStringLiteral("/data/schemas/roads.csd")},
        {"optMstn", DocumentKind::MicroStation, kTemplates + "/MstnTemplate.csd"},
        {"optAutoCad", DocumentKind::AutoCad, kTemplates + "/AutoCadTemplate.csd"},
    };
    for (const Case& c : cases) {
      DocumentSettings::setRecentFile(QStringLiteral("/data/schemas/roads.csd"));
      Rig rig;
      // The last saved document is offered; a template option ignores it.
      QCOMPARE(rig.box()->text(), QStringLiteral("/data/schemas/roads.csd"));
      rig.click(c.option);
      rig.click("butOK");
      QCOMPARE(rig.dialog.result(), int(QDialog::Accepted));
      QCOMPARE(rig.dialog.choice().kind, c.kind);
      QCOMPARE(rig.dialog.choice().path, c.path);
      QCOMPARE(rig.leftovers(), QStringList());
    }
  }

  void browseFillsTheBoxUnlessCancelled() {
    DocumentSettings::setRecentFile(QStringLiteral("/old/recent.csd"));
    Rig rig;
    rig.prompter.pickOpen(QString()).pickOpen(QStringLiteral("/maps/new.csd"));
    rig.click("butBrowse");  // cancelled: the box keeps its file
    QCOMPARE(rig.box()->text(), QStringLiteral("/old/recent.csd"));
    rig.click("butBrowse");
    QCOMPARE(rig.box()->text(), QStringLiteral("/maps/new.csd"));
    // The dialog starts at the file the box names.
    QCOMPARE(rig.prompter.shown().at(0).title, QStringLiteral("Select CAD schema file"));
    QCOMPARE(rig.prompter.shown().at(0).request.initialPath, QStringLiteral("/old/recent.csd"));
    QCOMPARE(rig.leftovers(), QStringList());
  }

  // OK with no file in the box, or Other with no template picked, closes
  // the dialog with nothing to open; Template... keeps its last pick.
  void okWithNothingChosenOpensNothing() {
    for (const char* option : {"optExisting", "optOther"}) {
      Rig empty;
      QCOMPARE(empty.box()->text(), QString());  // no recent file
      empty.click(option);
      empty.click("butOK");
      QVERIFY(!empty.dialog.isVisible());
      QCOMPARE(empty.dialog.choice().path, QString());
    }
    Rig rig;
    rig.click("optOther");
    rig.prompter.pickOpen(QStringLiteral("/shared/base.csd")).pickOpen(QString());
    rig.click("butTemplate");
    rig.click("butTemplate");  // cancelled: the pick stays
    QCOMPARE(rig.the<QLabel>("lblTemplate")->toolTip(), QStringLiteral("/shared/base.csd"));
    QCOMPARE(rig.prompter.shown().at(0).title, QStringLiteral("Select CAD Server Schema template"));
    QCOMPARE(rig.prompter.shown().at(0).request.initialPath, rig.life.templateFolder());
    QCOMPARE(rig.prompter.shown().at(1).request.initialPath, QStringLiteral("/shared/base.csd"));
    // Trying another option and coming back keeps the pick.
    rig.click("optMstn");
    rig.click("optOther");
    rig.click("butOK");
    QCOMPARE(rig.dialog.result(), int(QDialog::Accepted));
    QCOMPARE(rig.dialog.choice().kind, DocumentKind::Other);
    QCOMPARE(rig.dialog.choice().path, QStringLiteral("/shared/base.csd"));
    QCOMPARE(rig.leftovers(), QStringList());
  }
};

QTEST_MAIN(FrmIntroTest)
#include "frmIntro_test.moc"
