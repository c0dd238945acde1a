// The error list dialog: its controls, one line per record in the engine's
// order, a fresh list on each fill, Close closing it. (F1 in every form:
// help_test.)
#include "shell/frmErrors.h"

#include <QListWidget>
#include <QPushButton>
#include <QtTest>

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
};

QTEST_MAIN(FrmErrorsTest)
#include "frmErrors_test.moc"
