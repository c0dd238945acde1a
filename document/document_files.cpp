#include "document/document_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringList>
#include <cerrno>

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

void copyFile(const QString& source, const QString& destination) {
  if (source.isEmpty() || destination.isEmpty()) fail(52);
  Fd in(::open(native(source).constData(), O_RDONLY | O_CLOEXEC));
  if (in.get() < 0) fail(numberForErrno(errno, true));
  Fd out(::open(native(destination).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (out.get() < 0) fail(numberForErrno(errno, false));
  char buffer[1 << 16];
  for (;;) {
    const ssize_t got = ::read(in.get(), buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      fail(numberForErrno(errno, true));
    }
    if (got == 0) break;
    for (ssize_t done = 0; done < got;) {
      const ssize_t put = ::write(out.get(), buffer + done, static_cast<size_t>(got - done));
      if (put < 0) {
        if (errno == EINTR) continue;
        fail(numberForErrno(errno, false));
      }
      done += put;
    }
  }
  // A full disk may only show when the data is written out.
  if (::fsync(out.get()) != 0 && errno != EINVAL) fail(numberForErrno(errno, false));
  if (!out.release()) fail(numberForErrno(errno, false));
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
