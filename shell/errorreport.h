// The common error report: the last station of every event handler's error
// trap. ReportError tells the user what failed, and when the failure came
// from the database engine it offers the engine's error records in the
// error list (frmErrors). Everything the user sees goes through a Prompter,
// so a test scripts the answers and reads back the texts.
//
// Promises: neither ReportError nor ShowDataAccessErrors ever throws; a
// failure while building or showing the list ends in message 5007.
#pragma once

#include <QString>
#include <cstdint>
#include <exception>
#include <functional>

#include "document/prompter.h"
#include "schema/engine_error.h"

class QWidget;

namespace shell {

class frmErrors;

// The error a handler caught: all the report needs of it.
struct CurrentError {
  int32_t number = 0;
  QString description;
};

// An EngineError gives its number and description; any other exception
// has no number of its own and reports number 0 with its what().
CurrentError currentErrorOf(const std::exception& error);

// How the error list dialog is run once filled: modally by default; a test
// looks at the filled dialog instead.
using ErrorDialogRunner = std::function<void(frmErrors&)>;

struct ReportOptions {
  QWidget* parent = nullptr;         // owner of the error list dialog
  ErrorDialogRunner runDialog;       // empty: exec() the dialog
  std::function<void()> beep;        // empty: QApplication::beep()
};

// The message text of the report: string 5000 and a blank, an empty line,
// the description, and string 5004 followed by the number.
QString errorReportText(const CurrentError& error);

// engineErrors: the engine's records of its last failed operation (the
// open database's errors(); an empty list when none is open).
void ReportError(const CurrentError& error, const schema::ErrorList& engineErrors,
                 document::Prompter& prompter, const ReportOptions& options = {});
void ReportError(const std::exception& error, const schema::ErrorList& engineErrors,
                 document::Prompter& prompter, const ReportOptions& options = {});

// Shows the engine's records in frmErrors, or message 5006 when there are
// none.
void ShowDataAccessErrors(const schema::ErrorList& engineErrors, document::Prompter& prompter,
                          const ReportOptions& options = {});

}  // namespace shell
