// What assistive tools see of every form: each list, table, text box and
// combo box has a name, and the name is the caption of the label that
// stands for it, so a screen reader (or UI automation over the
// accessibility bus) can tell "Available maps:" from "Selected maps:". And
// long work shows its progress once it has taken long enough, while the
// event loop keeps turning.
#include <QAbstractItemView>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QTextEdit>
#include <QtTest>

#include "controls/MoveOverStringControl.h"
#include "document/scripted_prompter.h"
#include "shell/busy.h"
#include "shell/frmAbout.h"
#include "shell/frmDir.h"
#include "shell/frmErrors.h"
#include "shell/frmIntro.h"
#include "shell/frmMain.h"
#include "shell/frmNewFile.h"

namespace {

// The name a screen reader announces. A combo box on Linux announces its
// text instead and points at its label through a relation, so there the
// name set on the widget is what counts.
QString nameOf(QWidget* w) {
  if (qobject_cast<QComboBox*>(w)) return w->accessibleName();
  return QAccessible::queryAccessibleInterface(w)->text(QAccessible::Name);
}

// The fields of a form a user reaches: not the parts a combo box or a view
// is built of.
QList<QWidget*> fieldsOf(QWidget* form) {
  QList<QWidget*> fields;
  for (QWidget* w : form->findChildren<QWidget*>()) {
    if (!qobject_cast<QAbstractItemView*>(w) && !qobject_cast<QLineEdit*>(w) &&
        !qobject_cast<QComboBox*>(w) && !qobject_cast<QTextEdit*>(w))
      continue;
    bool part = false;
    for (QWidget* p = w->parentWidget(); p && p != form; p = p->parentWidget())
      part |= qobject_cast<QComboBox*>(p) || qobject_cast<QAbstractItemView*>(p);
    if (!part) fields << w;
  }
  return fields;
}

// Every field is named, and a field with a label is named by it.
void expectNamed(QWidget* form) {
  const QList<QWidget*> fields = fieldsOf(form);
  QVERIFY2(!fields.isEmpty(), qPrintable(form->objectName()));
  for (QWidget* field : fields)
    QVERIFY2(!nameOf(field).isEmpty(),
             qPrintable(form->objectName() + ": " + field->objectName() + " has no name"));
  for (QLabel* label : form->findChildren<QLabel*>()) {
    if (!label->buddy()) continue;
    QCOMPARE(nameOf(label->buddy()), QString(label->text()).remove('&'));
  }
}

}  // namespace

class AccessibleNamesTest : public QObject {
  Q_OBJECT

 private slots:
  void everyFieldOfEveryFormIsNamedByItsLabel() {
    document::ScriptedPrompter prompter;
    frmMain::Options options;
    options.prompter = &prompter;
    options.showIntro = [] { return document::DocumentChoice{}; };
    frmMain window(options);
    expectNamed(&window);
    // The choosers' lists are told apart by their captions.
    const QPair<const char*, QStringList> choosers[] = {
        {"MoveOverStringControlMapFiles", {"Available maps:", "Selected maps:"}},
        {"MoveOverStringControlCSFiles",
         {"Available coordinate system files:", "Selected coordinate system files:"}}};
    for (const auto& [name, captions] : choosers) {
      auto* chooser = window.findChild<controls::MoveOverStringControl*>(name);
      QCOMPARE((QStringList{nameOf(chooser->findChild<QWidget*>("AvailableList")),
                            nameOf(chooser->findChild<QWidget*>("SelectedList"))}),
               captions);
    }
    QCOMPARE(nameOf(window.findChild<QWidget*>("lbDirectories")), QStringLiteral("Folders"));

    shell::frmDir folders(prompter);
    expectNamed(&folders);
    shell::frmIntro intro(window.lifecycle(), prompter);
    expectNamed(&intro);
    shell::frmErrors errors(nullptr, &prompter);
    expectNamed(&errors);
    // frmNewFile and frmAbout hold no field; their labels name nothing.
    shell::frmNewFile newFile(window.lifecycle(), prompter);
    shell::frmAbout about(prompter);
    QCOMPARE(fieldsOf(&newFile).size() + fieldsOf(&about).size(), 0);
  }

  void longWorkTurnsTheEventLoopAndShowsProgressAfterItsDelay() {
    QWidget window;
    window.show();
    shell::WorkProgress slow(&window, 60000);
    slow.start("Reading", 10);
    int turns = 0;
    QTimer::singleShot(0, &window, [&] { ++turns; });
    QTest::qSleep(50);
    slow.advance(1);
    QCOMPARE(turns, 1);
    QCOMPARE(slow.dialog(), nullptr);

    shell::WorkProgress due(&window, 0);
    due.start("Setting the coordinate system of every map...", 4);
    due.advance(3);
    QVERIFY(due.dialog() && due.dialog()->isVisible());
    QCOMPARE(due.dialog()->labelText(),
             QStringLiteral("Setting the coordinate system of every map..."));
    QCOMPARE(due.dialog()->value(), 3);
    due.finish();
    QCOMPARE(due.dialog(), nullptr);
  }
};

QTEST_MAIN(AccessibleNamesTest)
#include "accessible_names_test.moc"
