// DocumentLock: the lock every writer of a database file takes, the editor
// and csdtool alike. As in Jet it is a lock file beside the database (its
// name with the extension replaced by "ldb") that names who holds it; what
// actually excludes others is an OS lock (flock) on that file, held for as
// long as the DocumentLock lives. The kernel lets go of the OS lock however
// its holder ends, so a lock file left by a program that died never blocks
// anyone: the next writer takes it over.
//
// The lock belongs to the file a path leads to: a document reached through
// symbolic links is locked beside its real file, so every road to it meets
// the same lock.
#pragma once

#include <optional>
#include <string>

namespace schema {

// Who holds a lock, as the lock file records it.
struct LockHolder {
  std::string program;  // the running program's file name ("vantor", "csdtool")
  std::string user;
  std::string host;
  long pid = 0;
  // What the locked file is a working copy of; empty for a new document or
  // where the file is the document itself.
  std::string document;

  // This process, as it records itself.
  static LockHolder self(std::string document = {});
  // "vantor (process 1234) of alice on example"
  std::string describe() const;
  bool operator==(const LockHolder&) const = default;
};

// The file `path` leads to through any chain of symbolic links (relative
// links resolved against their own folder); `path` itself when it is no
// link. The end of the chain need not exist. Throws std::runtime_error for
// a loop of links.
std::string resolveLinks(const std::string& path);

// Whether an existing file must be left as it is: the user may not write
// it, or it grants writing to nobody (no write permission bit, what other
// systems call the read-only attribute), which stops root as well. False for
// a file that does not exist.
bool isReadOnlyFile(const std::string& path);

class DocumentLock {
 public:
  DocumentLock() = default;  // holds nothing
  ~DocumentLock();           // release()
  DocumentLock(DocumentLock&& other) noexcept;
  DocumentLock& operator=(DocumentLock&& other) noexcept;
  DocumentLock(const DocumentLock&) = delete;
  DocumentLock& operator=(const DocumentLock&) = delete;

  // The lock file of a database file: the extension replaced by "ldb", or
  // ".ldb" appended to a name without one. No links are resolved.
  static std::string lockFilePath(const std::string& path);

  // Takes the lock of the file `path` leads to and records `holder` in it.
  // Throws EngineError 3045 ("Could not use '<path>'; file already in use.")
  // followed by who holds it when another open lock exists, in this process
  // or another; 3050 when the lock file cannot be made or locked (a folder
  // that may not be written).
  static DocumentLock acquire(const std::string& path, const LockHolder& holder);

  // What a lock file says, for a file whose lock nobody holds now:
  // nullopt when the lock is held or there is no lock file.
  struct Abandoned {
    std::optional<LockHolder> holder;  // nullopt when the file is unreadable
  };
  static std::optional<Abandoned> abandoned(const std::string& path);

  bool held() const { return fd_ >= 0; }
  const std::string& lockPath() const { return lockPath_; }
  // Removes the lock file and lets go of the lock; nothing when not held.
  void release();

 private:
  int fd_ = -1;
  std::string lockPath_;
};

// Removes what an interrupted save or edit of `path` left beside it: the
// hidden ".NAME.XXXXXX" of the editor's save and the "NAME.csdtool-XXXXXX"
// of csdtool, and a journal whose writer died before it was complete
// ("NAME-journal-new"). Call it only while holding the file's lock, so no running
// writer's file is taken. Returns how many were removed.
int removeLeftoverTemporaries(const std::string& path);

}  // namespace schema
