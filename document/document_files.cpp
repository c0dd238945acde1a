#include "document/document_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringList>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "jet/error.h"
#include "jet/journal.h"
#include "jet/page_store.h"
#include "schema/document_lock.h"
#include "schema/engine_error.h"

namespace document {

namespace {

// Closes a descriptor on every path.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  // Closes now and says whether the close wrote everything out.
  bool release() {
    const int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }

 private:
  int fd_;
};

[[noreturn]] void fail(int number) {
  static const char* const kPathFileAccess = "Path/File access error";
  const char* description = kPathFileAccess;
  switch (number) {
    case 52:
      description = "Bad file name or number";
      break;
    case 53:
      description = "File not found";
      break;
    case 61:
      description = "Disk full";
      break;
    case 70:
      description = "Permission denied";
      break;
    case 76:
      description = "Path not found";
      break;
    default:
      number = 75;
  }
  throw FileError(number, QString::fromLatin1(description));
}

int numberForErrno(int e, bool isSource) {
  switch (e) {
    case ENOENT:
      return isSource ? 53 : 76;
    case ENOTDIR:
      return 76;
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return 70;
    case ENOSPC:
    case EDQUOT:
      return 61;
    default:
      return 75;
  }
}

QByteArray native(const QString& path) { return QFile::encodeName(path); }

// The process's file-creation mask; reading it means setting it, so it is
// put straight back.
mode_t currentUmask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

}  // namespace

FileError::FileError(int number, const QString& description)
    : std::runtime_error(description.toStdString()), number_(number) {}

QString createWorkingCopy(const QString& folder) {
  const QString base = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
  // Start anywhere and walk all 65536 names, as a unique-name search must.
  const quint32 start = QRandomGenerator::global()->bounded(0x10000u);
  for (quint32 i = 0; i < 0x10000u; ++i) {
    const quint32 n = (start + i) & 0xFFFFu;
    const QString digits = QStringLiteral("%1").arg(n, 4, 16, QLatin1Char('0')).toUpper();
    const QString name = base + QStringLiteral("CSD") + digits + QStringLiteral(".tmp");
    const int fd = ::open(native(name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      ::close(fd);
      return name;
    }
    if (errno != EEXIST) fail(numberForErrno(errno, false));
  }
  fail(75);
}

QString lockFilePath(const QString& workingCopy) {
  return workingCopy.chopped(qMin<qsizetype>(3, workingCopy.size())) + QStringLiteral("ldb");
}

namespace {

// A journal beside a file is played back into it at its next open: one left
// beside a file about to be replaced whole must go first.
void removeJournalOf(const QByteArray& file) {
  ::unlink(jet::journalPathFor(file.toStdString()).c_str());
}

// Copies everything readable from `in` into `out`, and syncs it when asked.
void copyContents(int in, int out, bool sync) {
  char buffer[1 << 16];
  for (;;) {
    const ssize_t got = ::read(in, buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      fail(numberForErrno(errno, true));
    }
    if (got == 0) break;
    for (ssize_t done = 0; done < got;) {
      const ssize_t put = ::write(out, buffer + done, static_cast<size_t>(got - done));
      if (put < 0) {
        if (errno == EINTR) continue;
        fail(numberForErrno(errno, false));
      }
      done += put;
    }
  }
  // A full disk may only show when the data is written out.
  if (sync && ::fsync(out) != 0 && errno != EINVAL) fail(numberForErrno(errno, false));
}

// Writes only the pages that differ, through the engine's rollback journal:
// the document is the old one or the new one whatever happens, and a small
// change to a large document costs a few pages of I/O.
void saveInPlace(const QByteArray& source, const QByteArray& target) {
  try {
    jet::updateInPlace(source.toStdString(), target.toStdString());
  } catch (const jet::JetError& e) {
    const std::string what = e.what();
    for (int code : {ENOSPC, EDQUOT, EACCES, EPERM, EROFS})
      if (what.find(std::strerror(code)) != std::string::npos) fail(numberForErrno(code, false));
    fail(75);
  }
}

}  // namespace

void copyFile(const QString& source, const QString& destination) {
  if (source.isEmpty() || destination.isEmpty()) fail(52);
  Fd in(::open(native(source).constData(), O_RDONLY | O_CLOEXEC));
  if (in.get() < 0) fail(numberForErrno(errno, true));
  // Read through the engine's store: an edit another program was killed in
  // is undone first (or, where the source cannot be written, its saved
  // bytes read in place of the half-written ones), and no commit lands
  // while the copy is made.
  std::unique_ptr<jet::PageStore> store;
  try {
    store = jet::openFileStore(native(source).toStdString(), false);
  } catch (const jet::JetError&) {
    fail(75);
  }
  Fd out(::open(native(destination).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (out.get() < 0) fail(numberForErrno(errno, false));
  removeJournalOf(native(destination));
  // A working copy is thrown away when the program dies; its own journal
  // guards its edits from here on, so the copy itself need not be synced.
  std::vector<uint8_t> buffer(1 << 20);
  for (uint64_t at = 0; at < store->size();) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>(buffer.size(), store->size() - at));
    try {
      store->read(at, {buffer.data(), n});
    } catch (const jet::JetError&) {
      fail(75);
    }
    for (size_t done = 0; done < n;) {
      const ssize_t put = ::write(out.get(), buffer.data() + done, n - done);
      if (put < 0) {
        if (errno == EINTR) continue;
        fail(numberForErrno(errno, false));
      }
      done += static_cast<size_t>(put);
    }
    at += n;
  }
  if (!out.release()) fail(numberForErrno(errno, false));
}

void replaceFile(const QString& source, const QString& destination) {
  if (source.isEmpty() || destination.isEmpty()) fail(52);
  // Through a chain of links the file at its end is replaced; the links stay.
  QByteArray targetName;
  try {
    targetName = QByteArray::fromStdString(schema::resolveLinks(native(destination).toStdString()));
  } catch (const std::runtime_error&) {
    fail(75);
  }
  struct stat existing {};
  const bool exists = ::stat(targetName.constData(), &existing) == 0;
  if (exists && S_ISDIR(existing.st_mode)) fail(75);
  // A read-only document stays as it is, even where the folder would let it
  // be replaced.
  if (exists && schema::isReadOnlyFile(targetName.toStdString())) fail(70);

  Fd in(::open(native(source).constData(), O_RDONLY | O_CLOEXEC));
  if (in.get() < 0) fail(numberForErrno(errno, true));
  struct stat from {};
  if (::fstat(in.get(), &from) != 0) fail(numberForErrno(errno, true));
  if (exists && S_ISREG(existing.st_mode) && from.st_size >= existing.st_size) {
    saveInPlace(native(source), targetName);
    return;
  }

  const QFileInfo info(QFile::decodeName(targetName));
  QByteArray pattern = native(info.absolutePath() + QStringLiteral("/.") + info.fileName() +
                              QStringLiteral(".XXXXXX"));
  Fd out(::mkostemp(pattern.data(), O_CLOEXEC));
  if (out.get() < 0) fail(numberForErrno(errno, false));
  // Until the rename the new content is only a hidden file beside the
  // document; whatever fails on the way, the document is untouched.
  struct Discard {
    QByteArray name;
    bool keep = false;
    ~Discard() {
      if (!keep) ::unlink(name.constData());
    }
  } partial{pattern};

  if (exists) {
    // The document keeps its owner where we may give it away, else at least
    // its group; the mode after, as a change of owner clears set-id bits.
    if (::fchown(out.get(), existing.st_uid, existing.st_gid) != 0 &&
        ::fchown(out.get(), static_cast<uid_t>(-1), existing.st_gid) != 0) {
      // Ours now: only root may give a file to another user.
    }
    ::fchmod(out.get(), existing.st_mode & 07777);
  } else {
    ::fchmod(out.get(), 0666 & ~currentUmask());
  }
  copyContents(in.get(), out.get(), true);
  if (!out.release()) fail(numberForErrno(errno, false));
  removeJournalOf(targetName);
  if (::rename(pattern.constData(), targetName.constData()) != 0)
    fail(numberForErrno(errno, false));
  partial.keep = true;
  // The rename itself is only durable once the folder is synced.
  Fd folder(::open(native(info.absolutePath()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.get() >= 0) ::fsync(folder.get());
}

namespace {

// A lock left behind by this program, as this user, on this host.
bool leftByUs(const std::optional<schema::DocumentLock::Abandoned>& lock) {
  if (!lock || !lock->holder) return false;
  const schema::LockHolder me = schema::LockHolder::self();
  const schema::LockHolder& them = *lock->holder;
  return them.program == me.program && them.user == me.user && them.host == me.host;
}

}  // namespace

QList<AbandonedCopy> findAbandonedCopies(const QString& folder) {
  QList<AbandonedCopy> found;
  const QDir dir(folder);
  const QDateTime settled = QDateTime::currentDateTime().addSecs(-60);
  const QFileInfoList files =
      dir.entryInfoList({QStringLiteral("CSD????.tmp"), QStringLiteral("CSD????.ldb")},
                        QDir::Files | QDir::Hidden, QDir::Time | QDir::Reversed);
  for (const QFileInfo& file : files) {
    if (file.ownerId() != ::geteuid()) continue;
    const QString path = file.absoluteFilePath();
    if (file.suffix() == QLatin1String("ldb")) {
      // A lock nobody holds whose copy is gone: the copy was closed or
      // discarded when its editor stopped.
      const QString copy = path.chopped(3) + QStringLiteral("tmp");
      if (!QFileInfo::exists(copy) && schema::DocumentLock::abandoned(native(copy).toStdString()))
        QFile::remove(path);
      continue;
    }
    const auto lock = schema::DocumentLock::abandoned(native(path).toStdString());
    if (!QFileInfo::exists(lockFilePath(path))) {
      if (file.lastModified() < settled) QFile::remove(path);
      continue;
    }
    if (!leftByUs(lock)) continue;
    found.append({path, QFile::decodeName(QByteArray::fromStdString(lock->holder->document)),
                  file.lastModified()});
  }
  return found;
}

void discardAbandonedCopy(const AbandonedCopy& copy) {
  try {
    // Taken first, so a copy somebody reopened meanwhile is left alone.
    schema::DocumentLock lock =
        schema::DocumentLock::acquire(native(copy.path).toStdString(), schema::LockHolder::self());
    QFile::remove(copy.path);
    removeJournalOf(native(copy.path));
  } catch (const schema::EngineError&) {
    return;
  }
  if (copy.document.isEmpty()) return;
  const std::string document = native(copy.document).toStdString();
  if (!leftByUs(schema::DocumentLock::abandoned(document))) return;
  try {
    schema::DocumentLock::acquire(document, schema::LockHolder::self()).release();
  } catch (const schema::EngineError&) {
    // Somebody opened the document meanwhile: the lock is theirs now.
  }
}

void removeIfExists(const QString& path) {
  if (!path.isEmpty() && QFileInfo::exists(path)) QFile::remove(path);
}

QString templateFolderFor(const QString& programPath) {
  if (programPath.isEmpty()) return {};
  QStringList items = programPath.split(QLatin1Char('/'));
  items.removeLast();
  if (!items.isEmpty()) items.removeLast();
  return items.join(QLatin1Char('/')) + QStringLiteral("/Templates/Warehouses");
}

}  // namespace document
