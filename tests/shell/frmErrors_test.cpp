// The error list dialog: its controls, one line per record in the engine's
// order, a fresh list on each fill, Close closing it and F1 opening help.
#include "shell/frmErrors.h"

#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include "document/scripted_prompter.h"
#include "shell/help.h"

using namespace shell;

namespace {
QStringList linesOf(QListWidget* list) {
  QStringList lines;
  for (int i = 0; i < list->count(); ++i) lines << list->item(i)->text();
  return lines;
}
}  // namespace

class FrmErrorsTest : public QObject {
  Q_OBJECT

 private slots:
  void controlsAreNamedAndCaptioned() {
    frmErrors dialog;
    QCOMPARE(dialog.objectName(), QStringLiteral("frmErrors"));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("CAD Schema Definition Errors"));
    QVERIFY(dialog.findChild<QListWidget*>(QStringLiteral("lstErrors")));
    auto* close = dialog.findChild<QPushButton*>(QStringLiteral("cmdClose"));
    QVERIFY(close);
    QCOMPARE(close->text(), QStringLiteral("&Close"));
  }

  void oneLinePerRecordInOrder() {
    frmErrors dialog;
    auto* list = dialog.findChild<QListWidget*>(QStringLiteral("lstErrors"));
    dialog.setErrors({{3022, "DAO.Recordset", "Duplicate."},
                      {3265, "", "Item not found in this collection."},
                      {-1, "Vantor", ""}});
    QCOMPARE(linesOf(list),
             (QStringList{QStringLiteral("3022\tDAO.Recordset\tDuplicate."),
                          QStringLiteral("3265\t\tItem not found in this collection."),
                          QStringLiteral("-1\tVantor\t")}));
    // A second fill starts from an empty list.
    dialog.setErrors({{3078, "DAO.Database", "Table missing."}});
    QCOMPARE(linesOf(list), QStringList{QStringLiteral("3078\tDAO.Database\tTable missing.")});
    dialog.setErrors({});
    QCOMPARE(list->count(), 0);
  }

  void closeButtonClosesTheDialog() {
    frmErrors dialog;
    dialog.show();
    QVERIFY(dialog.isVisible());
    dialog.findChild<QPushButton*>(QStringLiteral("cmdClose"))->click();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
  }

  // F1 on the list opens the help for the dialog, and a help folder that
  // cannot be named is reported through the prompter the dialog was given.
  void f1OpensHelp() {
    QTemporaryDir programDir;
    QVERIFY(QDir().mkpath(programDir.path() + QStringLiteral("/resdlls/0009")));
    QFile help(programDir.path() + QStringLiteral("/resdlls/0009/Vantor.HLP"));
    QVERIFY(help.open(QIODevice::WriteOnly));
    help.close();

    struct Call {
      QWidget* parent;
      QString file;
      int context;
    };
    QList<Call> calls;
    uint32_t locale = 1033;
    // The defaults come back however the test ends.
    struct Restore {
      HelpOpener opener;
      HelpLookupSource source;
      ~Restore() {
        setHelpOpener(opener);
        setHelpLookupSource(source);
      }
    } restore{setHelpOpener([&calls](QWidget* parent, const QString& file, int context) {
                calls.append({parent, file, context});
              }),
              setHelpLookupSource([&] {
                return HelpLookup{programDir.path(), locale};
              })};

    document::ScriptedPrompter prompter;
    frmErrors dialog(nullptr, &prompter);
    dialog.setErrors({{3022, "DAO.Recordset", "Duplicate."}});
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    auto* list = dialog.findChild<QListWidget*>(QStringLiteral("lstErrors"));
    list->setFocus();
    QTest::keyClick(list, Qt::Key_F1);
    QCOMPARE(calls.size(), 1);
    QCOMPARE(calls[0].parent, &dialog);
    QCOMPARE(calls[0].file, help.fileName());
    QCOMPARE(calls[0].context, 131);
    QVERIFY(dialog.isVisible());

    locale = 3082;
    QTest::keyClick(list, Qt::Key_F1);
    QCOMPARE(calls.size(), 1);
    QCOMPARE(prompter.messages(), QStringList{QStringLiteral("Type mismatch")});
  }

  // With VANTOR_SCREENSHOT set, the filled dialog is saved there to be looked at.
  void screenshot() {
    const QString path = qEnvironmentVariable("VANTOR_SCREENSHOT");
    if (path.isEmpty()) QSKIP("VANTOR_SCREENSHOT not set");
    frmErrors dialog;
    dialog.setErrors(
        {{3022, "DAO.Recordset",
          "The changes you requested to the table were not successful because they would "
          "create duplicate values in the index, primary key, or relationship."},
         {3078, "DAO.Database",
          "The Microsoft Jet database engine cannot find the input table "
          "or query 'Mpas'."}});
    dialog.show();
    QVERIFY(dialog.grab().save(path));
  }
};

QTEST_MAIN(FrmErrorsTest)
#include "frmErrors_test.moc"
