// The About box: the project's version; which system-information program
// System Info... starts, the facts shown where none can be started, and the
// real lookup and start on a PATH of our own.
#include "shell/frmAbout.h"

#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QtTest>

#include "document/scripted_prompter.h"

using namespace document;
using shell::frmAbout;

namespace {

// The version CMake configured the project with, read from the build's cache
// so the box is compared with the build rather than with itself.
QString configuredVersion() {
  QFile cache(QStringLiteral(VANTOR_PROGRAM_DIR "/../CMakeCache.txt"));
  if (!cache.open(QIODevice::ReadOnly)) return {};
  static const QRegularExpression key(QStringLiteral("CMAKE_PROJECT_VERSION:STATIC=(\\S+)"));
  return key.match(QString::fromUtf8(cache.readAll())).captured(1);
}

// A PATH that holds exactly these programs, under /opt/tools.
frmAbout::ProgramFinder pathWith(const QStringList& installed) {
  return [installed](const QString& name) {
    return installed.contains(name) ? QStringLiteral("/opt/tools/") + name : QString();
  };
}

QPushButton* button(QWidget& dialog, const char* name) {
  auto* widget = dialog.findChild<QPushButton*>(QString::fromLatin1(name));
  if (!widget) qFatal("frmAbout has no %s", name);
  return widget;
}

}  // namespace

class FrmAboutTest : public QObject {
  Q_OBJECT

 private slots:
  void showsTheVersionAndClosesOnOk() {
    ScriptedPrompter prompter;
    frmAbout dialog(prompter);
    const QString version = configuredVersion();
    QVERIFY2(!version.isEmpty(), "no project version in the build's CMakeCache.txt");
    auto* label = dialog.findChild<QLabel*>(QStringLiteral("lblVersion"));
    QCOMPARE(label ? label->text() : QString(), QStringLiteral("Version ") + version);
    dialog.show();
    QTest::mouseClick(button(dialog, "cmdOK"), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
  }

  void systemInfoStartsTheFirstToolOrShowsTheFacts() {
    // The earliest tool in the list wins, whatever order PATH has.
    const QStringList tools = frmAbout::systemInfoTools();
    QCOMPARE(frmAbout::systemInfoProgram(pathWith(tools.mid(1))), "/opt/tools/" + tools.at(1));
    const QStringList reversed(tools.rbegin(), tools.rend());
    QCOMPARE(frmAbout::systemInfoProgram(pathWith(reversed)), "/opt/tools/" + tools.first());

    struct Case {
      QStringList installed;
      bool starts;
    };
    for (const Case& c :
         {Case{{"kinfocenter"}, true}, Case{{"gnome-system-monitor"}, false}, Case{{}, true}}) {
      ScriptedPrompter prompter;
      frmAbout dialog(prompter);
      QStringList started;
      dialog.setProgramFinder(pathWith(c.installed));
      dialog.setProgramStarter([&started, &c](const QString& program) {
        started << program;
        return c.starts;
      });
      dialog.show();
      QTest::mouseClick(button(dialog, "cmdSysInfo"), Qt::LeftButton);
      QVERIFY(dialog.isVisible());
      QCOMPARE(started,
               c.installed.isEmpty() ? QStringList() : QStringList{"/opt/tools/" + c.installed[0]});
      // Where no tool could be started, the facts are shown instead.
      const bool facts = c.installed.isEmpty() || !c.starts;
      QCOMPARE(prompter.shown().size(), facts ? 1 : 0);
      if (!facts) continue;
      QCOMPARE(prompter.shown()[0].style, MessageStyle::OkInformation);
      for (const QString& fact : {QSysInfo::prettyProductName(), QSysInfo::kernelVersion(),
                                  QSysInfo::currentCpuArchitecture(), QSysInfo::machineHostName(),
                                  QString::fromLatin1(qVersion())})
        QVERIFY2(prompter.shown()[0].text.contains(fact), qPrintable(fact));
    }
  }

  // The real lookup and start: a stand-in tool on a PATH of our own leaves a
  // mark when it runs.
  void defaultLauncherStartsAToolFoundOnPath() {
    QTemporaryDir bin;
    const QString mark = bin.path() + "/ran";
    QFile script(bin.path() + '/' + frmAbout::systemInfoTools().last());
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\n: > '" + mark.toUtf8() + "'\n");
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

    const QByteArray oldPath = qgetenv("PATH");
    qputenv("PATH", bin.path().toUtf8());
    ScriptedPrompter prompter;
    frmAbout dialog(prompter);
    dialog.show();
    QTest::mouseClick(button(dialog, "cmdSysInfo"), Qt::LeftButton);
    qputenv("PATH", oldPath);
    QTRY_VERIFY(QFileInfo::exists(mark));
    QCOMPARE(prompter.shown().size(), 0);
  }
};

QTEST_MAIN(FrmAboutTest)
#include "frmAbout_test.moc"
