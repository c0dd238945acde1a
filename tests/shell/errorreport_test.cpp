// The common error report's roads: an engine failure offers the error list
// and shows it on Yes only; a failure of the program while the engine still
// holds older records gives the plain report; no records at all give the
// plain report, and the list routine alone gives the exclamation message.
#include <QApplication>
#include <QListWidget>
#include <QtTest>

#include "document/scripted_prompter.h"
#include "shell/errorreport.h"
#include "shell/frmErrors.h"

using document::Answer;
using document::MessageStyle;
using document::ScriptedPrompter;
using namespace shell;

namespace {

QStringList linesOf(frmErrors& dialog) {
  auto* list = dialog.findChild<QListWidget*>(QStringLiteral("lstErrors"));
  if (!list) return {QStringLiteral("<no lstErrors>")};
  QStringList lines;
  for (int i = 0; i < list->count(); ++i) lines << list->item(i)->text();
  return lines;
}

// Runs the reports with a counted beep and a dialog that is looked at, not
// shown.
struct Harness {
  ScriptedPrompter prompter;
  int beeps = 0;
  int dialogsShown = 0;
  QStringList dialogLines;
  ReportOptions options() {
    ReportOptions o;
    o.beep = [this] { ++beeps; };
    o.runDialog = [this](frmErrors& dialog) {
      ++dialogsShown;
      dialogLines = linesOf(dialog);
    };
    return o;
  }
};

const schema::ErrorList kDuplicate = {
    schema::EngineError(schema::err::kDuplicateKey, schema::sources::kRecordset).record(),
    {3146, "DAO.Database", "Second record."},
};

}  // namespace

class ErrorReportTest : public QObject {
  Q_OBJECT

 private slots:
  void reportTextIsComposedFromTheTable() {
    QCOMPARE(errorReportText({3022, QStringLiteral("Duplicate.")}),
             QStringLiteral("The following error occured: \r\n\r\nDuplicate.\r\nNumber: 3022"));
    QCOMPARE(errorReportText({-2147217900, QStringLiteral("x")}),
             QStringLiteral("The following error occured: \r\n\r\nx\r\nNumber: -2147217900"));
  }

  void engineErrorAnsweredYesShowsTheListInOrder() {
    Harness h;
    h.prompter.answer(Answer::Yes);
    const schema::EngineError error(schema::err::kDuplicateKey, schema::sources::kRecordset);
    // The failing handler had the hourglass on, twice over.
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    ReportError(error, kDuplicate, h.prompter, h.options());
    QVERIFY(!QApplication::overrideCursor());

    QCOMPARE(h.prompter.shown().size(), 1);
    const auto& shown = h.prompter.shown()[0];
    QCOMPARE(shown.style, MessageStyle::YesNoQuestion);
    QCOMPARE(shown.title, QStringLiteral("Vantor"));
    QCOMPARE(shown.text, QStringLiteral("The following error occured: \r\n\r\n") +
                             QString::fromStdString(error.description()) +
                             QStringLiteral("\r\nNumber: 3022\r\n\r\n"
                                            "Display the Data Access Errors Collection?"));
    QCOMPARE(h.beeps, 1);
    QCOMPARE(h.dialogsShown, 1);
    QCOMPARE(h.dialogLines,
             (QStringList{QStringLiteral("3022\tDAO.Recordset\t") +
                              QString::fromStdString(error.description()),
                          QStringLiteral("3146\tDAO.Database\tSecond record.")}));
    QVERIFY(h.prompter.faults().isEmpty());
    QCOMPARE(h.prompter.pending(), 0);
  }

  void engineErrorAnsweredNoShowsNothingMore() {
    Harness h;
    h.prompter.answer(Answer::No);
    ReportError(CurrentError{3022, QStringLiteral("Duplicate.")}, kDuplicate, h.prompter,
                h.options());
    QCOMPARE(h.prompter.shown().size(), 1);
    QCOMPARE(h.prompter.shown()[0].style, MessageStyle::YesNoQuestion);
    QVERIFY(h.prompter.shown()[0].text.endsWith(
        QStringLiteral("Number: 3022\r\n\r\nDisplay the Data Access Errors Collection?")));
    QCOMPARE(h.dialogsShown, 0);
    QCOMPARE(h.beeps, 1);
    QVERIFY(h.prompter.faults().isEmpty());
  }

  // Whenever the engine's first record is not the error at hand (a stale
  // record, none at all, an error of the program's own or any exception),
  // the report is plain: no offer of the list.
  void otherErrorsGiveThePlainReport() {
    const schema::ErrorList stale = {
        schema::EngineError(schema::err::kTableNotFound, schema::sources::kDatabase, {"Mpas"})
            .record()};
    Harness h;
    ReportError(schema::EngineError::fromProgram(schema::err::kOverflow), stale, h.prompter,
                h.options());
    ReportError(CurrentError{3022, QStringLiteral("Duplicate.")}, {}, h.prompter, h.options());
    ReportError(std::runtime_error("disk gone"), kDuplicate, h.prompter, h.options());
    const QString head = QStringLiteral("The following error occured: \r\n\r\n");
    QCOMPARE(h.prompter.messages(),
             (QStringList{head + "Overflow\r\nNumber: 6", head + "Duplicate.\r\nNumber: 3022",
                          head + "disk gone\r\nNumber: 0"}));
    for (const auto& shown : h.prompter.shown()) QCOMPARE(shown.style, MessageStyle::Ok);
    QCOMPARE(h.dialogsShown, 0);
    QCOMPARE(h.beeps, 3);
    QVERIFY(h.prompter.faults().isEmpty());
  }

  void emptyListShowsTheExclamationOnly() {
    Harness h;
    ShowDataAccessErrors({}, h.prompter, h.options());
    QCOMPARE(h.prompter.messages(),
             QStringList{QStringLiteral("There are no current data access errors!")});
    QCOMPARE(h.prompter.shown()[0].style, MessageStyle::OkExclamation);
    QCOMPARE(h.dialogsShown, 0);
  }

  void failureWhileShowingTheListEndsInMessage5007() {
    ScriptedPrompter prompter;
    ReportOptions options;
    options.runDialog = [](frmErrors&) { throw std::runtime_error("no display"); };
    ShowDataAccessErrors(kDuplicate, prompter, options);
    QCOMPARE(prompter.messages(), QStringList{QStringLiteral("Can't show Errors at this time!")});
  }

  void theReportNeverThrows() {
    // A prompter whose box cannot be shown: the report swallows it.
    struct Broken : ScriptedPrompter {
      using ScriptedPrompter::ask;
      Answer ask(const QString&, MessageStyle, const QString&) override {
        throw std::runtime_error("no screen");
      }
    } broken;
    ReportError(CurrentError{3022, QStringLiteral("x")}, kDuplicate, broken);
    ShowDataAccessErrors({}, broken);
  }
};

QTEST_MAIN(ErrorReportTest)
#include "errorreport_test.moc"
