// The About box: title, the project's version and purpose; which
// system-information program System Info... starts, the facts shown where
// none can be started, and the real lookup and start on a PATH of our own.
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
  if (!cache.open(QIODevice::ReadOnly | QIODevice::Text)) return {};
  const QString key = QStringLiteral("CMAKE_PROJECT_VERSION:STATIC=");
  while (!cache.atEnd()) {
    const QString line = QString::fromUtf8(cache.readLine()).trimmed();
    if (line.startsWith(key)) return line.mid(key.size());
  }
  return {};
}

// A PATH that holds exactly these programs, under /opt/tools.
frmAbout::ProgramFinder pathWith(const QStringList& installed, QStringList* asked = nullptr) {
  return [installed, asked](const QString& name) {
    if (asked) *asked << name;
    return installed.contains(name) ? QStringLiteral("/opt/tools/") + name : QString();
  };
}

template <class W>
W* the(QWidget& dialog, const char* name) {
  W* widget = dialog.findChild<W*>(QString::fromLatin1(name));
  if (!widget) qFatal("frmAbout has no %s", name);
  return widget;
}

}  // namespace

class FrmAboutTest : public QObject {
  Q_OBJECT

 private slots:
  void showsTitleVersionAndPurpose() {
    ScriptedPrompter prompter;
    frmAbout dialog(prompter);
    QCOMPARE(dialog.objectName(), QStringLiteral("frmAbout"));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("About Vantor"));
    QCOMPARE(the<QLabel>(dialog, "lblTitle")->text(), QStringLiteral("Vantor"));
    const QString version = configuredVersion();
    QVERIFY2(!version.isEmpty(), "no project version in the build's CMakeCache.txt");
    QCOMPARE(frmAbout::version(), version);
    QCOMPARE(the<QLabel>(dialog, "lblVersion")->text(), QStringLiteral("Version ") + version);
    QCOMPARE(the<QLabel>(dialog, "lblDescription")->text(),
             QStringLiteral("Editor for CAD server schema files"));
    QCOMPARE(the<QPushButton>(dialog, "cmdOK")->text(), QStringLiteral("OK"));
    QVERIFY(the<QPushButton>(dialog, "cmdOK")->isDefault());
    QCOMPARE(the<QPushButton>(dialog, "cmdSysInfo")->text(), QStringLiteral("System Info..."));
  }

  void systemInfoProgramIsTheFirstInstalledTool() {
    QStringList asked;
    QCOMPARE(frmAbout::systemInfoProgram(pathWith({}, &asked)), QString());
    // Nothing installed: every known tool was looked for.
    QCOMPARE(asked, frmAbout::systemInfoTools());
    QVERIFY(asked.contains(QStringLiteral("kinfocenter")));

    // Several installed: the earliest in the list wins, whatever order PATH
    // has, and its full path is what is started.
    const QStringList tools = frmAbout::systemInfoTools();
    QCOMPARE(frmAbout::systemInfoProgram(pathWith(tools.mid(1))), "/opt/tools/" + tools.at(1));
    QStringList reversed(tools.rbegin(), tools.rend());
    QCOMPARE(frmAbout::systemInfoProgram(pathWith(reversed)), "/opt/tools/" + tools.first());
  }

  void systemInfoStartsTheToolOrShowsTheFacts() {
    struct Case {
      const char* name;
      QStringList installed;
      bool starts;
      bool factsShown;
    };
    const Case cases[] = {
        {"tool found and started", {"kinfocenter"}, true, false},
        {"tool found, start failed", {"gnome-system-monitor"}, false, true},
        {"no tool", {}, true, true},
    };
    for (const Case& c : cases) {
      ScriptedPrompter prompter;
      frmAbout dialog(prompter);
      QStringList started;
      dialog.setProgramFinder(pathWith(c.installed));
      dialog.setProgramStarter([&started, &c](const QString& program) {
        started << program;
        return c.starts;
      });
      dialog.show();
      QTest::mouseClick(the<QPushButton>(dialog, "cmdSysInfo"), Qt::LeftButton);
      const QStringList expectedStart =
          c.installed.isEmpty() ? QStringList() : QStringList{"/opt/tools/" + c.installed.first()};
      QVERIFY2(started == expectedStart, c.name);
      QVERIFY(dialog.isVisible());
      QCOMPARE(prompter.shown().size(), c.factsShown ? 1 : 0);
      if (!c.factsShown) continue;
      const auto& box = prompter.shown().first();
      QCOMPARE(box.style, MessageStyle::OkInformation);
      QCOMPARE(box.title, QStringLiteral("Vantor"));
      for (const QString& fact : {QSysInfo::prettyProductName(), QSysInfo::kernelVersion(),
                                  QSysInfo::currentCpuArchitecture(), QSysInfo::machineHostName(),
                                  QString::fromLatin1(qVersion())})
        QVERIFY2(box.text.contains(fact), qPrintable(c.name + QStringLiteral(": ") + fact));
      QCOMPARE(box.text.count('\n'), 4);  // one fact a line
      QVERIFY(prompter.faults().isEmpty());
    }
  }

  // The real lookup and start: a stand-in tool on a PATH of our own leaves a
  // mark when it runs.
  void defaultLauncherStartsAToolFoundOnPath() {
    QTemporaryDir bin;
    QVERIFY(bin.isValid());
    const QString mark = bin.path() + "/ran";
    const QString tool = bin.path() + '/' + frmAbout::systemInfoTools().last();
    {
      QFile script(tool);
      QVERIFY(script.open(QIODevice::WriteOnly));
      script.write("#!/bin/sh\n: > '" + mark.toUtf8() + "'\n");
    }
    QVERIFY(QFile::setPermissions(tool, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

    const QByteArray oldPath = qgetenv("PATH");
    qputenv("PATH", bin.path().toUtf8());
    ScriptedPrompter prompter;
    frmAbout dialog(prompter);
    dialog.show();
    QTest::mouseClick(the<QPushButton>(dialog, "cmdSysInfo"), Qt::LeftButton);
    qputenv("PATH", oldPath);
    QTRY_VERIFY(QFileInfo::exists(mark));
    QCOMPARE(prompter.shown().size(), 0);
  }

  void okAndEscapeClose() {
    ScriptedPrompter prompter;
    {
      frmAbout dialog(prompter);
      dialog.show();
      QTest::mouseClick(the<QPushButton>(dialog, "cmdOK"), Qt::LeftButton);
      QVERIFY(!dialog.isVisible());
      QCOMPARE(dialog.result(), int(QDialog::Accepted));
    }
    frmAbout dialog(prompter);
    dialog.show();
    QTest::keyClick(&dialog, Qt::Key_Escape);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
  }

  void screenshot() {
    const QString path = qEnvironmentVariable("VANTOR_SCREENSHOT");
    if (path.isEmpty()) QSKIP("VANTOR_SCREENSHOT not set");
    ScriptedPrompter prompter;
    frmAbout dialog(prompter);
    dialog.show();
    QVERIFY(dialog.grab().save(path));
  }
};

QTEST_MAIN(FrmAboutTest)
#include "frmAbout_test.moc"
