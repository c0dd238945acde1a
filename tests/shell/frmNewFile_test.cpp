// File, New's template dialog: its controls, the option selected first for
// each set of installed templates, Template... through the prompter, and what
// OK, Cancel and Escape return.
#include "shell/frmNewFile.h"

#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QtTest>

#include "document/document_lifecycle.h"
#include "document/scripted_prompter.h"

using namespace document;
using shell::frmNewFile;

namespace {

const QString kTemplates = QStringLiteral(VANTOR_TEMPLATE_DIR);
const QString kRealProgram = QStringLiteral(VANTOR_PROGRAM_DIR "/vantor");

struct NoHost : DocumentHost {};

struct Rig {
  ScriptedPrompter prompter;
  NoHost host;
  DocumentLifecycle life;
  frmNewFile dialog;
  explicit Rig(const QString& programPath)
      : life(prompter, host, programPath), dialog(life, prompter) {}

  template <class W>
  W* the(const char* name) {
    W* widget = dialog.findChild<W*>(QString::fromLatin1(name));
    if (!widget) qFatal("frmNewFile has no %s", name);
    return widget;
  }
  QRadioButton* option(const char* name) { return the<QRadioButton>(name); }
  QPushButton* button(const char* name) { return the<QPushButton>(name); }
  // On the left end, where a radio button's circle is: a stretched radio
  // button takes clicks only on its circle and text, not on its middle.
  void click(const char* name) {
    QAbstractButton* button = the<QAbstractButton>(name);
    QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(8, button->height() / 2));
  }
  QString leftovers() const {
    QStringList problems = prompter.faults();
    if (prompter.pending() != 0) problems << QStringLiteral("%1 unused").arg(prompter.pending());
    return problems.join('\n');
  }
};

}  // namespace

class FrmNewFileTest : public QObject {
  Q_OBJECT

  QTemporaryDir root_;
  int programs_ = 0;

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
  void controlsAreNamedAndCaptioned() {
    Rig rig(kRealProgram);
    QCOMPARE(rig.dialog.objectName(), QStringLiteral("frmNewFile"));
    QCOMPARE(rig.dialog.windowTitle(), QStringLiteral("New CAD Server Schema"));
    QCOMPARE(rig.option("optMstn")->text(), QStringLiteral("MicroStation"));
    QCOMPARE(rig.option("optAutoCad")->text(), QStringLiteral("AutoCad"));
    QCOMPARE(rig.option("optOther")->text(), QStringLiteral("Other"));
    QCOMPARE(rig.button("butTemplate")->text(), QStringLiteral("Template..."));
    QCOMPARE(rig.button("cmdOK")->text(), QStringLiteral("OK"));
    QCOMPARE(rig.button("cmdCancel")->text(), QStringLiteral("Cancel"));
    QVERIFY(rig.button("cmdOK")->isDefault());
  }

  void firstInstalledTemplateIsSelected_data() {
    QTest::addColumn<QString>("program");
    QTest::addColumn<bool>("mstn");
    QTest::addColumn<bool>("autoCad");
    QTest::addColumn<QString>("selected");
    QTest::newRow("both") << kRealProgram << true << true << "optMstn";
    QTest::newRow("MicroStation only")
        << programWith({"MstnTemplate.csd"}) << true << false << "optMstn";
    QTest::newRow("AutoCAD only") << programWith({"AutoCadTemplate.csd"}) << false << true
                                  << "optAutoCad";
    QTest::newRow("neither") << programWith({}) << false << false << "optOther";
    QTest::newRow("template folder unknown") << QString() << false << false << "optOther";
  }

  void firstInstalledTemplateIsSelected() {
    QFETCH(QString, program);
    QFETCH(bool, mstn);
    QFETCH(bool, autoCad);
    QFETCH(QString, selected);
    Rig rig(program);
    rig.dialog.show();
    QCOMPARE(rig.option("optMstn")->isEnabled(), mstn);
    QCOMPARE(rig.option("optAutoCad")->isEnabled(), autoCad);
    QVERIFY(rig.option("optOther")->isEnabled());
    for (const char* name : {"optMstn", "optAutoCad", "optOther"})
      QCOMPARE(rig.option(name)->isChecked(), selected == QLatin1String(name));
    QCOMPARE(rig.button("butTemplate")->isEnabled(), selected == QLatin1String("optOther"));

    // Template... follows Other.
    rig.click("optOther");
    QVERIFY(rig.button("butTemplate")->isEnabled());
    if (mstn) {
      rig.click("optMstn");
      QVERIFY(!rig.button("butTemplate")->isEnabled());
    }
  }

  void okReturnsTheTemplateOfEachOption() {
    const QString other = root_.path() + "/elsewhere/base.csd";
    struct Case {
      const char* option;
      DocumentKind kind;
      QString path;
    };
    const Case cases[] = {
        {"optMstn", DocumentKind::MicroStation, kTemplates + "/MstnTemplate.csd"},
        {"optAutoCad", DocumentKind::AutoCad, kTemplates + "/AutoCadTemplate.csd"},
        {"optOther", DocumentKind::Other, other},
    };
    for (const Case& c : cases) {
      Rig rig(kRealProgram);
      rig.dialog.show();
      rig.click(c.option);
      if (c.kind == DocumentKind::Other) {
        rig.prompter.pickOpen(other);
        rig.click("butTemplate");
      }
      rig.click("cmdOK");
      QVERIFY2(!rig.dialog.isVisible(), c.option);
      QCOMPARE(rig.dialog.result(), int(QDialog::Accepted));
      QCOMPARE(rig.dialog.choice().kind, c.kind);
      QCOMPARE(rig.dialog.choice().path, c.path);
      QCOMPARE(rig.prompter.messages(), QStringList());
      QCOMPARE(rig.leftovers(), QString());
    }
  }

  void otherNeedsAPickedTemplate() {
    Rig rig(programWith({}));
    rig.dialog.show();
    QVERIFY(rig.option("optOther")->isChecked());
    rig.click("cmdOK");  // nothing picked: the dialog stays
    QVERIFY(rig.dialog.isVisible());
    QCOMPARE(rig.dialog.choice().path, QString());

    rig.prompter.pickOpen(QString()).pickOpen(QStringLiteral("/shared/base.csd"));
    rig.click("butTemplate");  // cancelled: still nothing
    rig.click("cmdOK");
    QVERIFY(rig.dialog.isVisible());
    rig.click("butTemplate");
    QCOMPARE(rig.the<QLabel>("lblTemplate")->toolTip(), QStringLiteral("/shared/base.csd"));
    QCOMPARE(rig.prompter.shown().at(0).title, QStringLiteral("Select CAD Server Schema template"));
    QCOMPARE(rig.prompter.shown().at(0).request.initialPath, rig.life.templateFolder());
    rig.click("cmdOK");
    QVERIFY(!rig.dialog.isVisible());
    QCOMPARE(rig.dialog.choice().kind, DocumentKind::Other);
    QCOMPARE(rig.dialog.choice().path, QStringLiteral("/shared/base.csd"));
    QCOMPARE(rig.prompter.messages(), QStringList());
    QCOMPARE(rig.leftovers(), QString());
  }

  void cancelAndEscapeReturnNoPath() {
    {
      Rig rig(kRealProgram);
      rig.dialog.show();
      rig.click("cmdCancel");
      QVERIFY(!rig.dialog.isVisible());
      QCOMPARE(rig.dialog.result(), int(QDialog::Rejected));
      QCOMPARE(rig.dialog.choice().path, QString());
    }
    Rig rig(kRealProgram);
    rig.dialog.show();
    rig.click("optOther");
    rig.prompter.pickOpen(QStringLiteral("/shared/base.csd"));
    rig.click("butTemplate");
    QTest::keyClick(&rig.dialog, Qt::Key_Escape);
    QVERIFY(!rig.dialog.isVisible());
    QCOMPARE(rig.dialog.result(), int(QDialog::Rejected));
    QCOMPARE(rig.dialog.choice().path, QString());
  }

  void screenshot() {
    const QString path = qEnvironmentVariable("VANTOR_SCREENSHOT");
    if (path.isEmpty()) QSKIP("VANTOR_SCREENSHOT not set");
    Rig rig(programWith({"AutoCadTemplate.csd"}));
    rig.dialog.show();
    QVERIFY(rig.dialog.grab().save(path));
  }
};

QTEST_MAIN(FrmNewFileTest)
#include "frmNewFile_test.moc"
