// The start-up dialog: its controls, which template options the installed
// files allow, what each option enables, the last saved document offered,
// Browse and Template through the prompter, and what OK, Cancel and Escape
// return.
#include "shell/frmIntro.h"

#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
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

// The dialog with what it borrows, for one program path.
struct Rig {
  ScriptedPrompter prompter;
  NoHost host;
  DocumentLifecycle life;
  frmIntro dialog;
  explicit Rig(const QString& programPath)
      : life(prompter, host, programPath), dialog(life, prompter) {}

  template <class W>
  W* the(const char* name) {
    W* widget = dialog.findChild<W*>(QString::fromLatin1(name));
    if (!widget) qFatal("frmIntro has no %s", name);
    return widget;
  }
  QRadioButton* option(const char* name) { return the<QRadioButton>(name); }
  QPushButton* button(const char* name) { return the<QPushButton>(name); }
  QLineEdit* box() { return the<QLineEdit>("tbMdbFileName"); }
  // On the left end, where a radio button's circle is: a stretched radio
  // button takes clicks only on its circle and text, not on its middle.
  void click(const char* name) {
    QAbstractButton* button = the<QAbstractButton>(name);
    QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(8, button->height() / 2));
  }
  // Whatever was scripted was used, and nothing unscripted was asked.
  QString leftovers() const {
    QStringList problems = prompter.faults();
    if (prompter.pending() != 0) problems << QStringLiteral("%1 unused").arg(prompter.pending());
    return problems.join('\n');
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
    QDir().mkpath(base + "/bin");
    QDir().mkpath(base + "/Templates/Warehouses");
    for (const QString& name : templates) {
      QFile file(base + "/Templates/Warehouses/" + name);
      if (!file.open(QIODevice::WriteOnly)) qFatal("cannot make %s", qPrintable(file.fileName()));
    }
    return base + "/bin/vantor";
  }

 private slots:
  void init() {
    QVERIFY(root_.isValid());
    // Every test starts with an empty settings store of its own.
    const QString config = root_.path() + QStringLiteral("/config%1").arg(++programs_);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, config);
  }

  void controlsAreNamedAndCaptioned() {
    Rig rig(kRealProgram);
    QCOMPARE(rig.dialog.objectName(), QStringLiteral("frmIntro"));
    QCOMPARE(rig.dialog.windowTitle(), QStringLiteral("CAD Server Schema"));
    QCOMPARE(rig.option("optExisting")->text(), QStringLiteral("Open existing CAD server schema"));
    QCOMPARE(rig.button("butBrowse")->text(), QStringLiteral("Browse..."));
    QCOMPARE(rig.option("optMstn")->text(), QStringLiteral("MicroStation"));
    QCOMPARE(rig.option("optAutoCad")->text(), QStringLiteral("AutoCad"));
    QCOMPARE(rig.option("optOther")->text(), QStringLiteral("Other"));
    QCOMPARE(rig.button("butTemplate")->text(), QStringLiteral("Template..."));
    QCOMPARE(rig.button("butOK")->text(), QStringLiteral("OK"));
    QCOMPARE(rig.button("butCancel")->text(), QStringLiteral("Cancel"));
    QVERIFY(rig.button("butOK")->isDefault());

    // The template options and their button sit in the frame; opening an
    // existing file does not.
    QGroupBox* frame = nullptr;
    for (QGroupBox* box : rig.dialog.findChildren<QGroupBox*>())
      if (box->title() == QStringLiteral("Create new CAD server schema using")) frame = box;
    QVERIFY(frame);
    for (const char* name : {"optMstn", "optAutoCad", "optOther", "butTemplate"})
      QVERIFY2(frame->isAncestorOf(rig.the<QWidget>(name)), name);
    QVERIFY(!frame->isAncestorOf(rig.option("optExisting")));
  }

  void templateOptionsFollowTheInstalledFiles_data() {
    QTest::addColumn<QString>("program");
    QTest::addColumn<bool>("mstn");
    QTest::addColumn<bool>("autoCad");
    QTest::newRow("both generated templates") << kRealProgram << true << true;
    QTest::newRow("MicroStation only") << programWith({"MstnTemplate.csd"}) << true << false;
    QTest::newRow("AutoCAD only") << programWith({"AutoCadTemplate.csd"}) << false << true;
    QTest::newRow("neither") << programWith({}) << false << false;
    // With no program path the folder is unknown: neither option can be
    // chosen, so the "template folder unknown" message cannot be reached here.
    QTest::newRow("template folder unknown") << QString() << false << false;
  }

  void templateOptionsFollowTheInstalledFiles() {
    QFETCH(QString, program);
    QFETCH(bool, mstn);
    QFETCH(bool, autoCad);
    Rig rig(program);
    rig.dialog.show();
    QCOMPARE(rig.option("optMstn")->isEnabled(), mstn);
    QCOMPARE(rig.option("optAutoCad")->isEnabled(), autoCad);
    QVERIFY(rig.option("optOther")->isEnabled());
    QVERIFY(rig.option("optExisting")->isChecked());
    QVERIFY(rig.box()->isEnabled());
    QVERIFY(rig.button("butBrowse")->isEnabled());
    QVERIFY(!rig.button("butTemplate")->isEnabled());

    // A disabled option does not take a click.
    if (!mstn) rig.click("optMstn");
    if (!autoCad) rig.click("optAutoCad");
    QVERIFY(rig.option("optExisting")->isChecked());
    QCOMPARE(rig.leftovers(), QString());
  }

  void eachOptionEnablesItsOwnControls() {
    Rig rig(kRealProgram);
    rig.dialog.show();
    struct Step {
      const char* option;
      bool existingControls;
      bool templateButton;
    };
    const Step steps[] = {{"optMstn", false, false},    {"optOther", false, true},
                          {"optAutoCad", false, false}, {"optExisting", true, false},
                          {"optOther", false, true},    {"optExisting", true, false}};
    for (const Step& step : steps) {
      rig.click(step.option);
      // One choice across the frame and outside it.
      for (const char* name : {"optExisting", "optMstn", "optAutoCad", "optOther"})
        QCOMPARE(rig.option(name)->isChecked(), qstrcmp(name, step.option) == 0);
      QVERIFY2(rig.box()->isEnabled() == step.existingControls, step.option);
      QVERIFY2(rig.button("butBrowse")->isEnabled() == step.existingControls, step.option);
      QVERIFY2(rig.button("butTemplate")->isEnabled() == step.templateButton, step.option);
    }
  }

  void okReturnsTheKindAndFileOfEachOption() {
    const QString other = root_.path() + "/elsewhere/base.csd";
    struct Case {
      const char* option;
      DocumentKind kind;
      QString path;
    };
    const Case cases[] = {
        {"optExisting", DocumentKind::Existing, QStringLiteral("/data/schemas/roads.csd")},
        {"optMstn", DocumentKind::MicroStation, kTemplates + "/MstnTemplate.csd"},
        {"optAutoCad", DocumentKind::AutoCad, kTemplates + "/AutoCadTemplate.csd"},
        {"optOther", DocumentKind::Other, other},
    };
    for (const Case& c : cases) {
      DocumentSettings::setRecentFile(QStringLiteral("/data/schemas/roads.csd"));
      Rig rig(kRealProgram);
      rig.dialog.show();
      // The last saved document is offered; a template option ignores it.
      QCOMPARE(rig.box()->text(), QStringLiteral("/data/schemas/roads.csd"));
      rig.click(c.option);
      if (c.kind == DocumentKind::Other) {
        rig.prompter.pickOpen(other);
        rig.click("butTemplate");
      }
      rig.click("butOK");
      QVERIFY2(!rig.dialog.isVisible(), c.option);
      QCOMPARE(rig.dialog.result(), int(QDialog::Accepted));
      QCOMPARE(rig.dialog.choice().kind, c.kind);
      QCOMPARE(rig.dialog.choice().path, c.path);
      QCOMPARE(rig.prompter.messages(), QStringList());
      QCOMPARE(rig.leftovers(), QString());
    }
    // The template options name files that are there to copy.
    QVERIFY(QFileInfo::exists(cases[1].path));
    QVERIFY(QFileInfo::exists(cases[2].path));
  }

  void browseFillsTheBoxUnlessCancelled() {
    DocumentSettings::setRecentFile(QStringLiteral("/old/recent.csd"));
    Rig rig(kRealProgram);
    rig.dialog.show();
    rig.prompter.pickOpen(QStringLiteral("/maps/new.csd")).pickOpen(QString());
    rig.click("butBrowse");
    QCOMPARE(rig.box()->text(), QStringLiteral("/maps/new.csd"));
    rig.click("butBrowse");  // cancelled: the box keeps its file
    QCOMPARE(rig.box()->text(), QStringLiteral("/maps/new.csd"));

    QCOMPARE(rig.prompter.shown().size(), 2);
    const auto& first = rig.prompter.shown().at(0);
    QCOMPARE(first.title, QStringLiteral("Select CAD schema file"));
    // Each dialog starts at the file the box names at the time.
    QCOMPARE(first.request.initialPath, QStringLiteral("/old/recent.csd"));
    QCOMPARE(rig.prompter.shown().at(1).request.initialPath, QStringLiteral("/maps/new.csd"));
    QCOMPARE(rig.leftovers(), QString());
  }

  void templatePickIsShownAndSurvivesCancelAndOtherOptions() {
    Rig rig(kRealProgram);
    rig.dialog.show();
    auto* label = rig.the<QLabel>("lblTemplate");
    rig.click("optOther");
    rig.prompter.pickOpen(QStringLiteral("/shared/base.csd")).pickOpen(QString());
    rig.click("butTemplate");
    QVERIFY(label->text().contains(QStringLiteral("base.csd")));
    QCOMPARE(label->toolTip(), QStringLiteral("/shared/base.csd"));
    rig.click("butTemplate");  // cancelled
    QVERIFY(label->text().contains(QStringLiteral("base.csd")));

    const auto& first = rig.prompter.shown().at(0);
    QCOMPARE(first.title, QStringLiteral("Select CAD Server Schema template"));
    QCOMPARE(first.request.initialPath, rig.life.templateFolder());
    QCOMPARE(rig.prompter.shown().at(1).request.initialPath, QStringLiteral("/shared/base.csd"));

    // Trying another option and coming back keeps the pick.
    rig.click("optMstn");
    rig.click("optOther");
    rig.click("butOK");
    QCOMPARE(rig.dialog.result(), int(QDialog::Accepted));
    QCOMPARE(rig.dialog.choice().kind, DocumentKind::Other);
    QCOMPARE(rig.dialog.choice().path, QStringLiteral("/shared/base.csd"));
    QCOMPARE(rig.leftovers(), QString());
  }

  void okWithoutAFileKeepsTheDialogOpen() {
    Rig rig(kRealProgram);
    rig.dialog.show();
    QCOMPARE(rig.box()->text(), QString());  // no recent file
    rig.click("butOK");
    QVERIFY(rig.dialog.isVisible());
    QCOMPARE(rig.dialog.choice().path, QString());

    rig.click("optOther");  // no template picked yet
    rig.click("butOK");
    QVERIFY(rig.dialog.isVisible());
    QCOMPARE(rig.dialog.choice().path, QString());
    QCOMPARE(rig.prompter.shown().size(), 0);

    // Still usable: a file given, OK goes through.
    rig.click("optExisting");
    QTest::keyClicks(rig.box(), QStringLiteral("/x/y.csd"));
    QTest::keyClick(rig.box(), Qt::Key_Return);  // OK is the default button
    QVERIFY(!rig.dialog.isVisible());
    QCOMPARE(rig.dialog.choice().path, QStringLiteral("/x/y.csd"));
  }

  void cancelAndEscapeReturnNoPath() {
    DocumentSettings::setRecentFile(QStringLiteral("/old/recent.csd"));
    {
      Rig rig(kRealProgram);
      rig.dialog.show();
      rig.click("optMstn");
      rig.click("butCancel");
      QVERIFY(!rig.dialog.isVisible());
      QCOMPARE(rig.dialog.result(), int(QDialog::Rejected));
      QCOMPARE(rig.dialog.choice().path, QString());
    }
    Rig rig(kRealProgram);
    rig.dialog.show();
    QTest::keyClick(&rig.dialog, Qt::Key_Escape);
    QVERIFY(!rig.dialog.isVisible());
    QCOMPARE(rig.dialog.result(), int(QDialog::Rejected));
    QCOMPARE(rig.dialog.choice().path, QString());
  }

  // With VANTOR_SCREENSHOT set, the dialog is saved there to be looked at.
  void screenshot() {
    const QString path = qEnvironmentVariable("VANTOR_SCREENSHOT");
    if (path.isEmpty()) QSKIP("VANTOR_SCREENSHOT not set");
    DocumentSettings::setRecentFile(QStringLiteral("/data/schemas/roads.csd"));
    Rig rig(programWith({"MstnTemplate.csd"}));
    rig.dialog.show();
    QVERIFY(rig.dialog.grab().save(path));
  }
};

QTEST_MAIN(FrmIntroTest)
#include "frmIntro_test.moc"
