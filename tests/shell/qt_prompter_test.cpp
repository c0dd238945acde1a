// The widget-backed Prompter: each style's buttons and icon, and a real
// message box answered by pressing its buttons.
#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>
#include <QtTest>

#include "shell/qt_prompter.h"

using document::Answer;
using document::MessageStyle;
using namespace shell;

namespace {
// Presses a button of the next message box once it is up, and remembers
// what the box looked like.
struct Presser {
  QString title, text;
  QMessageBox::StandardButtons buttons;
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  void press(QMessageBox::StandardButton which) {
    QTimer::singleShot(0, [this, which] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      QVERIFY(box);
      title = box->windowTitle();
      text = box->text();
      buttons = box->standardButtons();
      icon = box->icon();
      QAbstractButton* button = box->button(which);
      QVERIFY(button);
      button->click();
    });
  }
};
}  // namespace

class QtPrompterTest : public QObject {
  Q_OBJECT

 private slots:
  void stylesMapToButtonsAndIcons() {
    QCOMPARE(QtPrompter::buttonsFor(MessageStyle::Ok), QMessageBox::Ok);
    QCOMPARE(QtPrompter::iconFor(MessageStyle::Ok), QMessageBox::NoIcon);
    QCOMPARE(QtPrompter::buttonsFor(MessageStyle::YesNoCancel),
             QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
    QCOMPARE(QtPrompter::iconFor(MessageStyle::YesNoCancel), QMessageBox::NoIcon);
    QCOMPARE(QtPrompter::buttonsFor(MessageStyle::YesNo), QMessageBox::Yes | QMessageBox::No);
    QCOMPARE(QtPrompter::iconFor(MessageStyle::YesNo), QMessageBox::NoIcon);
    QCOMPARE(QtPrompter::buttonsFor(MessageStyle::YesNoQuestion),
             QMessageBox::Yes | QMessageBox::No);
    QCOMPARE(QtPrompter::iconFor(MessageStyle::YesNoQuestion), QMessageBox::Question);
    QCOMPARE(QtPrompter::buttonsFor(MessageStyle::OkExclamation), QMessageBox::Ok);
    QCOMPARE(QtPrompter::iconFor(MessageStyle::OkExclamation), QMessageBox::Warning);
    QCOMPARE(QtPrompter::buttonsFor(MessageStyle::OkInformation), QMessageBox::Ok);
    QCOMPARE(QtPrompter::iconFor(MessageStyle::OkInformation), QMessageBox::Information);
  }

  void aRealBoxGivesThePressedAnswer() {
    QtPrompter prompter;
    Presser presser;
    presser.press(QMessageBox::No);
    QCOMPARE(prompter.ask(QStringLiteral("Show the list?"), MessageStyle::YesNoQuestion),
             Answer::No);
    QCOMPARE(presser.title, QStringLiteral("Vantor"));
    QCOMPARE(presser.text, QStringLiteral("Show the list?"));
    QCOMPARE(presser.buttons, QMessageBox::Yes | QMessageBox::No);
    QCOMPARE(presser.icon, QMessageBox::Question);

    presser.press(QMessageBox::Cancel);
    QCOMPARE(prompter.ask(QStringLiteral("Save?"), MessageStyle::YesNoCancel,
                          QStringLiteral("Save File")),
             Answer::Cancel);
    QCOMPARE(presser.title, QStringLiteral("Save File"));

    presser.press(QMessageBox::Ok);
    QCOMPARE(prompter.ask(QStringLiteral("Gone."), MessageStyle::OkExclamation), Answer::Ok);
    QCOMPARE(presser.icon, QMessageBox::Warning);
  }
};

QTEST_MAIN(QtPrompterTest)
#include "qt_prompter_test.moc"
