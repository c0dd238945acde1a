// The files a document passes through: the working copy in the temporary
// folder and its lock file, the copy in and out, the template folder.
//
// Failures of these operations are FileError, numbered and worded as the
// file functions of the original platform word them ("Path not found"),
// because the user reads the description in the lifecycle's messages.
#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <stdexcept>

namespace document {

class FileError : public std::runtime_error {
 public:
  FileError(int number, const QString& description);
  int number() const { return number_; }
  QString description() const { return QString::fromUtf8(what()); }

 private:
  int number_;
};

// Makes a new empty file "CSD" + 4 upper-case hex digits + ".tmp" in folder,
// atomically (it never takes over a file that exists), and returns its full
// path. FileError 76 when the folder is missing, 70 when it may not be
// written, 75 when it holds no free name.
QString createWorkingCopy(const QString& folder);

// The working copy's name with its last three characters replaced by "ldb".
QString lockFilePath(const QString& workingCopy);

// Copies source to destination, overwritten in place when it exists, not
// synced: for files of the program's own, such as a fresh working copy. FileError 52
// for an empty name, 53 when the source is missing, 76 when the
// destination's folder is, 70 when either may not be used, 61 when the disk
// is full, 75 otherwise.
void copyFile(const QString& source, const QString& destination);

// Saves source as destination without ever leaving a half-written
// destination. An existing destination no longer than source is written in
// place, only the pages that differ, through the engine's rollback journal
// (jet/journal.h); otherwise the copy goes to a hidden file beside it, is
// synced and then renamed over it. An existing destination keeps its permissions and, where
// the user may give it, its owner; through a chain of symbolic links the file
// at its end is replaced. A read-only destination (schema::isReadOnlyFile)
// is refused with 70 even where its folder is writable, a folder in its place
// or a loop of links with 75. The same numbers as copyFile otherwise.
void replaceFile(const QString& source, const QString& destination);

// A working copy left by an editor that ended without closing it (killed,
// crashed, the machine switched off): its lock file names this program, user
// and host, and nobody holds the lock any more.
struct AbandonedCopy {
  QString path;      // the working copy
  QString document;  // the document it is a copy of; empty for a new one
  QDateTime modified;
};

// The abandoned working copies in folder, oldest first. On the way it
// removes the remains that hold no work: a working copy without a lock file
// (never opened, or closed when its editor stopped) once it is a minute old,
// and a lock file nobody holds without its working copy.
QList<AbandonedCopy> findAbandonedCopies(const QString& folder);

// Deletes an abandoned working copy with its lock file, and the lock file
// its editor left beside the document.
void discardAbandonedCopy(const AbandonedCopy& copy);

// Deletes the file if it exists; a file that cannot be deleted is left.
void removeIfExists(const QString& path);

// The folder the two template documents live in, from the program's own
// path: drop the file name and the folder holding it, append
// "/Templates/Warehouses". Empty when the program's path is.
QString templateFolderFor(const QString& programPath);

inline const QString kMstnTemplate = QStringLiteral("MstnTemplate.csd");
inline const QString kAutoCadTemplate = QStringLiteral("AutoCadTemplate.csd");

}  // namespace document
