// The Prompter's filters and styles, and the ScriptedPrompter that every
// widget test will lean on: it must refuse a script that does not fit what
// the program asked, or a test could pass on a wrong road.
#include <QtTest>

#include "document/scripted_prompter.h"

using namespace document;

class PrompterTest : public QObject {
  Q_OBJECT

 private slots:
  void filtersConvertToQt() {
    const FileFilter schema =
        parseFileFilter("CAD Schema Definition Files (*.csd)|*.csd|All Files (*.*)|*.*");
    QCOMPARE(schema.size(), 2);
    QCOMPARE(schema[0], (FileFilterItem{"CAD Schema Definition Files (*.csd)", "*.csd"}));
    QCOMPARE(schema[1], (FileFilterItem{"All Files (*.*)", "*.*"}));
    QCOMPARE(toQtFilter(schema),
             QStringLiteral("CAD Schema Definition Files (*.csd);;All Files (*.*)"));
    // A description that hides its pattern, several patterns, a trailing "|",
    // a description left without pattern.
    const FileFilter odd = parseFileFilter("Drawings|*.dgn; *.dwg|");
    QCOMPARE(odd.size(), 1);
    QCOMPARE(toQtFilter(odd), QStringLiteral("Drawings (*.dgn *.dwg)"));
    QCOMPARE(toQtFilter(parseFileFilter("Everything")), QStringLiteral("Everything (*)"));
  }

  void stylesOfferTheirButtonsOnly() {
    QVERIFY(styleAllows(MessageStyle::YesNoCancel, Answer::Cancel));
    QVERIFY(!styleAllows(MessageStyle::YesNo, Answer::Cancel));
    QVERIFY(!styleAllows(MessageStyle::YesNoQuestion, Answer::Ok));
    QVERIFY(styleAllows(MessageStyle::YesNoQuestion, Answer::No));
    for (auto s : {MessageStyle::Ok, MessageStyle::OkExclamation, MessageStyle::OkInformation}) {
      QVERIFY(styleAllows(s, Answer::Ok));
      QVERIFY(!styleAllows(s, Answer::Yes));
    }
  }

  void scriptAnswersInOrderAndRecords() {
    ScriptedPrompter p;
    p.answer(Answer::No).pickSave("/x/a.csd").pickFolder("/data");
    QCOMPARE(p.ask("first", MessageStyle::Ok), Answer::Ok);  // takes nothing
    QCOMPARE(p.ask("second", MessageStyle::YesNoCancel, "Save File"), Answer::No);
    FileDialogRequest request{"Save as", {}, {}, true, true};
    QCOMPARE(p.saveFile(request), QStringLiteral("/x/a.csd"));
    QCOMPARE(p.chooseFolder("Folder", "/start"), QStringLiteral("/data"));
    QVERIFY(p.faults().isEmpty());
    QCOMPARE(p.pending(), 0);
    QCOMPARE(p.messages(), (QStringList{"first", "second"}));
    QCOMPARE(p.shown().size(), 4);
    QCOMPARE(p.shown()[0].title, kAppTitle);
    QCOMPARE(p.shown()[1].title, QStringLiteral("Save File"));
    QCOMPARE(p.shown()[1].style, MessageStyle::YesNoCancel);
    QVERIFY(p.shown()[2].request.confirmOverwrite);
    QCOMPARE(p.shown()[3].initialPath, QStringLiteral("/start"));
  }

  void scriptThatDoesNotFitIsAFault() {
    ScriptedPrompter p;
    p.answer(Answer::Cancel).pickOpen("/x.csd").answer(Answer::Yes);
    // Cancel on a Yes/No box: refused, answered No.
    QCOMPARE(p.ask("yes or no", MessageStyle::YesNo), Answer::No);
    // A save dialog where the script has an open dialog: cancelled, entry kept.
    QCOMPARE(p.saveFile({}), QString());
    QCOMPARE(p.pending(), 2);
    QCOMPARE(p.openFile({}), QStringLiteral("/x.csd"));
    QCOMPARE(p.ask("3 buttons", MessageStyle::YesNoCancel), Answer::Yes);
    // Nothing left: a question is answered Cancel.
    QCOMPARE(p.ask("one too many", MessageStyle::YesNoCancel), Answer::Cancel);
    QCOMPARE(p.faults().size(), 3);
    QVERIFY(p.faults()[0].contains("cannot answer"));
    QVERIFY(p.faults()[1].contains("open dialog"));
    QVERIFY(p.faults()[2].contains("empty script"));
  }
};

QTEST_GUILESS_MAIN(PrompterTest)
#include "prompter_test.moc"
