// Help: where Vantor's help file lives and how a form opens it.
//
// The help file "Vantor.HLP" is one HTML document whose topics are anchors
// named by numbers; topic 131 is the contents. It lives in a language folder
// under the program's folder, "resdlls/00NN", whose two digits come from the
// system locale's Windows locale number (en_US, 1033, gives "resdlls/0009").
// The Help menu calls ShowHelp; every form gets F1 through installHelpKey.
//
// Promises: ShowHelp never throws. A locale whose folder cannot be worked out
// shows the error's description in a message box; a missing help file is
// silently no help at all.
#pragma once

#include <QString>
#include <cstdint>
#include <functional>
#include <stdexcept>

#include "document/prompter.h"

class QLocale;
class QWidget;

namespace shell {

inline constexpr int kHelpContentsContext = 131;
inline const QString kHelpFileName = QStringLiteral("Vantor.HLP");
// The number and text of the conversion's failure, as the numbering of
// run-time errors has them.
inline constexpr int32_t kTypeMismatch = 13;

// A failure while working out where the help file is.
class HelpError : public std::runtime_error {
 public:
  HelpError(int32_t number, const QString& description)
      : std::runtime_error(description.toStdString()), number_(number) {}
  int32_t number() const { return number_; }
  QString description() const { return QString::fromUtf8(what()); }

 private:
  int32_t number_;
};

// "resdlls/00" + two digits: the Windows locale number written in
// hexadecimal and read back as a decimal number; the digits are the second
// character of that text (its only one, if it is that short) and its last.
// A hexadecimal form with a letter in it (3082 is "C0A") throws HelpError
// kTypeMismatch "Type mismatch".
QString languageFolder(uint32_t windowsLocale);

// The Windows locale number of a locale: its language and territory, or the
// language's main territory when that pair is not known. C, POSIX and
// languages not in the table give 1033 (English, United States).
uint32_t windowsLocaleNumber(const QLocale& locale);

// programDir + "/" + languageFolder(windowsLocale) + "/Vantor.HLP".
QString helpFilePath(const QString& programDir, uint32_t windowsLocale);

// Where ShowHelp looks: the program's folder and the locale that picks the
// language folder.
struct HelpLookup {
  QString programDir;
  uint32_t windowsLocale = 1033;
};
// The running program's folder and the system locale.
HelpLookup systemHelpLookup();

// Opens the help file at the contents (context 131): Help, Help Topics, and
// F1 in every form. parent is the window that asked.
void ShowHelp(QWidget* parent, document::Prompter& prompter);

// F1 anywhere in form's window, on any of its controls, runs
// ShowHelp(form, prompter). The prompter must outlive the form. A second call
// for the same form changes nothing.
void installHelpKey(QWidget* form, document::Prompter& prompter);

// The same at another topic: the dialogs that have a page of their own.
void ShowHelp(QWidget* parent, document::Prompter& prompter, int context);
void installHelpKey(QWidget* form, document::Prompter& prompter, int context);

// Test seams. Each setter returns what it replaces; an empty function puts
// the default back: the help viewer, and systemHelpLookup().
using HelpOpener = std::function<void(QWidget* parent, const QString& file, int context)>;
HelpOpener setHelpOpener(HelpOpener opener);
using HelpLookupSource = std::function<HelpLookup()>;
HelpLookupSource setHelpLookupSource(HelpLookupSource source);

}  // namespace shell
