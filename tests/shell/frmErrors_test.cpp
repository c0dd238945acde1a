// The error list dialog: its controls, one line per record in the engine's
// order, a fresh list on each fill, and Close closing it.
#include <QListWidget>
#include <QPushButton>
#include <QtTest>

#include "shell/frmErrors.h"

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

  void f1AsksForHelp() {
    frmErrors dialog;
    dialog.show();
    QSignalSpy help(&dialog, &frmErrors::helpRequested);
    QTest::keyClick(&dialog, Qt::Key_F1);
    QCOMPARE(help.count(), 1);
    QVERIFY(dialog.isVisible());
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
         {3078, "DAO.Database", "The Microsoft Jet database engine cannot find the input table "
                                "or query 'Mpas'."}});
    dialog.show();
    QVERIFY(dialog.grab().save(path));
  }
};

QTEST_MAIN(FrmErrorsTest)
#include "frmErrors_test.moc"
