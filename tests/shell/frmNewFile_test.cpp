// File, New's template dialog: the option selected first for each set of
// installed templates, and what OK returns. (Template..., shared with the
// start-up dialog: frmIntro_test.)
#include "shell/frmNewFile.h"

#include <QAbstractButton>
#include <QtTest>

#include "document/document_lifecycle.h"
#include "document/scripted_prompter.h"

using namespace document;
using shell::frmNewFile;

namespace {

const QString kRealProgram = QStringLiteral(VANTOR_PROGRAM_DIR "/vantor");

struct NoHost : DocumentHost {};

// The dialog, shown, with what it borrows, for one program path.
struct Rig {
  ScriptedPrompter prompter;
  NoHost host;
  DocumentLifecycle life;
  frmNewFile dialog;
  explicit Rig(const QString& programPath = kRealProgram)
      : life(prompter, host, programPath), dialog(life, prompter) {
    dialog.show();
  }

  template <class W = QAbstractButton>
  W* the(const char* name) {
    W* widget = dialog.findChild<W*>(QString::fromLatin1(name));
    if (!widget) qFatal("frmNewFile has no %s", name);
    return widget;
  }
  // On the left end, where a radio button's circle is: a stretched radio
  // button takes clicks only on its circle and text, not on its middle.
  void click(const char* name) {
    QTest::mouseClick(the(name), Qt::LeftButton, {}, QPoint(8, the(name)->height() / 2));
  }
  // Whatever was scripted was used, and nothing unscripted was asked.
  QStringList leftovers() const {
    return prompter.faults() + QStringList(prompter.pending(), QStringLiteral("unused answer"));
  }
};

}  // namespace

class FrmNewFileTest : public QObject {
  Q_OBJECT

  QTemporaryDir root_;
  int programs_ = 0;

  QString programWith(const QStringList& templates) {
    const QString base = root_.path() + QStringLiteral("/install%1").arg(++programs_);
    QDir().mkpath(base + "/Templates/Warehouses");
    for (const QString& name : templates)
      if (!QFile(base + "/Templates/Warehouses/" + name).open(QIODevice::WriteOnly)) qFatal("no");
    return base + "/bin/vantor";
  }

 private slots:
  void firstInstalledTemplateIsSelectedAndReturned_data() {
    QTest::addColumn<QString>("program");
    QTest::addColumn<bool>("mstn");
    QTest::addColumn<bool>("autoCad");
    QTest::addColumn<QString>("selected");
    QTest::newRow("both") << kRealProgram << true << true << "optMstn";
    QTest::newRow("AutoCAD only") << programWith({"AutoCadTemplate.csd"}) << false << true
                                  << "optAutoCad";
    QTest::newRow("neither") << programWith({}) << false << false << "optOther";
    QTest::newRow("template folder unknown") << QString() << false << false << "optOther";
  }

  void firstInstalledTemplateIsSelectedAndReturned() {
    QFETCH(QString, program);
    QFETCH(bool, mstn);
    QFETCH(bool, autoCad);
    QFETCH(QString, selected);
    Rig rig(program);
    QCOMPARE(rig.the("optMstn")->isEnabled(), mstn);
    QCOMPARE(rig.the("optAutoCad")->isEnabled(), autoCad);
    QVERIFY(rig.the("optOther")->isEnabled());
    for (const char* name : {"optMstn", "optAutoCad", "optOther"})
      QCOMPARE(rig.the(name)->isChecked(), selected == QLatin1String(name));
    QCOMPARE(rig.the("butTemplate")->isEnabled(), selected == QLatin1String("optOther"));

    // OK returns the installed template; Other has none picked yet, so
    // nothing is to be opened.
    rig.click("cmdOK");
    QCOMPARE(rig.leftovers(), QStringList());
    QVERIFY(!rig.dialog.isVisible());
    if (selected == QLatin1String("optOther")) {
      QCOMPARE(rig.dialog.choice().path, QString());
      return;
    }
    const bool isMstn = selected == QLatin1String("optMstn");
    QCOMPARE(rig.dialog.result(), int(QDialog::Accepted));
    QCOMPARE(rig.dialog.choice().kind, isMstn ? DocumentKind::MicroStation : DocumentKind::AutoCad);
    QCOMPARE(rig.dialog.choice().path,
             rig.life.templateFolder() + (isMstn ? "/MstnTemplate.csd" : "/AutoCadTemplate.csd"));
  }
};

QTEST_MAIN(FrmNewFileTest)
#include "frmNewFile_test.moc"
