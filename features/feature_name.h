// The rules a feature class name follows in the wizard: no blanks, no
// leading digit, nothing but letters and digits of Windows-1252 and "_".
// The name box applies them as the user types and leaves it; Next and Finish
// run the name check. Uniqueness is left to the unique index on
// Features.Name (error 3022 on Finish).
#pragma once

#include <QChar>
#include <QString>

namespace features {

// Not a letter or digit of the Windows-1252 code page, and not "_". Every
// character outside that code page is special.
bool isSpecialCharacter(QChar c);

// The name check of step 0: "" when the name passes, otherwise one line,
// "  " + message + "\r\n" (the leading-digit line has no line end).
QString nameCheck(const QString& name);

// What typing leaves in the box: a blank just typed, or a special character
// just typed into a name that differs from the one the class was opened
// with, is taken off again and named by message (string 5020 or 5056; 0 when
// the text stands).
struct NameEdit {
  QString text;
  int message = 0;
};
NameEdit nameTyped(const QString& text, const QString& nameAsOpened);

// What leaving the box asks: whether focus goes back into it, and the
// message to show first (0 for none). An empty box keeps the focus without
// a word; a blank or a special character anywhere is named, except in the
// name the class was opened with.
struct NameLeave {
  bool keepFocus = false;
  int message = 0;
};
NameLeave nameLeft(const QString& text, const QString& nameAsOpened);

}  // namespace features
