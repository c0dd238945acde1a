// Listing a folder's files by an extension list such as "*.csf; *.dgn", as
// the Files tab fills the available side of its two choosers.
//
// Promises: only ordinary files are listed (a link counts when it leads to
// one); folders and hidden dot-files never. "*" and "?" match without
// regard to case. The result follows the patterns in the order written and,
// within one pattern, the order in which the file system hands out the
// names; a file matched by two patterns is listed twice. A folder that
// cannot be read gives no names and a problem text for the user.
#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

namespace folders {

// The patterns of an extension list: split at ";" ("^" escapes the next
// character, so "^;" is a semicolon inside a pattern), each trimmed of
// blanks; patterns left empty by the trimming are dropped.
QStringList extensionPatterns(const QString& extensions);

// Whether name matches pattern: "*" any text, "?" any one character,
// letters compared without regard to case. A pattern that ends in ".*"
// also takes a name without any dot, as the Windows file dialogs do, so
// "*.*" lists every file.
bool wildcardMatch(QStringView pattern, QStringView name);

struct ScanResult {
  QStringList names;
  QString problem;  // empty, or why the folder could not be read
};

// The files of folder that match the extension list.
ScanResult scanFolder(const QString& folder, const QString& extensions);

// A folder's path and a name in it joined with one "/".
QString joinPath(const QString& folder, const QString& name);

}  // namespace folders
