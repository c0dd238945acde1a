#include "shell/errorreport.h"

#include <QApplication>

#include "document/string_table.h"
#include "shell/frmErrors.h"

namespace shell {

using document::MessageStyle;
using document::text;

namespace {
const QString kNewLine = QStringLiteral("\r\n");
}

CurrentError currentErrorOf(const std::exception& error) {
  if (const auto* engine = dynamic_cast<const schema::EngineError*>(&error))
    return {engine->number(), QString::fromStdString(engine->description())};
  return {0, QString::fromUtf8(error.what())};
}

QString errorReportText(const CurrentError& error) {
  return text(5000) + QLatin1Char(' ') + kNewLine + kNewLine + error.description + kNewLine +
         text(5004) + QString::number(error.number);
}

void ReportError(const CurrentError& error, const schema::ErrorList& engineErrors,
                 document::Prompter& prompter, const ReportOptions& options) {
  try {
    // The handler may have left the hourglass on, perhaps more than once.
    while (QApplication::overrideCursor()) QApplication::restoreOverrideCursor();

    QString message = errorReportText(error);
    if (options.beep)
      options.beep();
    else
      QApplication::beep();

    // Records whose first number differs belong to an earlier failure: the
    // error at hand did not come from the engine.
    if (engineErrors.empty() || engineErrors.front().number != error.number) {
      prompter.ask(message, MessageStyle::Ok);
      return;
    }
    message += kNewLine + kNewLine + text(5005);
    if (prompter.ask(message, MessageStyle::YesNoQuestion) == document::Answer::Yes)
      ShowDataAccessErrors(engineErrors, prompter, options);
  } catch (...) {
    // The report is the end of the road: nothing may escape it.
  }
}

void ReportError(const std::exception& error, const schema::ErrorList& engineErrors,
                 document::Prompter& prompter, const ReportOptions& options) {
  CurrentError current;
  try {
    current = currentErrorOf(error);
  } catch (...) {
    return;
  }
  ReportError(current, engineErrors, prompter, options);
}

void ShowDataAccessErrors(const schema::ErrorList& engineErrors, document::Prompter& prompter,
                          const ReportOptions& options) {
  try {
    if (engineErrors.empty()) {
      prompter.ask(text(5006), MessageStyle::OkExclamation);
      return;
    }
    try {
      frmErrors dialog(options.parent);
      dialog.setErrors(engineErrors);
      if (options.runDialog)
        options.runDialog(dialog);
      else
        dialog.exec();
    } catch (...) {
      prompter.ask(text(5007), MessageStyle::Ok);
    }
  } catch (...) {
  }
}

}  // namespace shell
