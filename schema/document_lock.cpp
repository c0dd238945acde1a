#include "schema/document_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "schema/engine_error.h"

namespace schema {
namespace fs = std::filesystem;

namespace {

// The account's name from the password file, else the login's $USER, else the
// number. The file is read directly rather than through the name service, so
// that csdtool links statically (it starts faster) without a resolver that
// wants the shared C library at run time.
std::string userName() {
  const std::string uid = std::to_string(::geteuid());
  std::ifstream passwd("/etc/passwd");
  for (std::string line; std::getline(passwd, line);) {
    // name:password:uid:...
    const size_t a = line.find(':');
    const size_t b = a == std::string::npos ? a : line.find(':', a + 1);
    const size_t c = b == std::string::npos ? b : line.find(':', b + 1);
    if (c != std::string::npos && a > 0 && line.compare(b + 1, c - b - 1, uid) == 0)
      return line.substr(0, a);
  }
  if (const char* user = std::getenv("USER"); user && *user) return user;
  return uid;
}

std::string hostName() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || !name[0]) return "localhost";
  return name;
}

std::string programName() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  return ec ? std::string("unknown") : exe.filename().string();
}

// One "key=value" a line; unknown keys are skipped, so later versions may
// record more.
std::string toText(const LockHolder& h) {
  return "program=" + h.program + "\nuser=" + h.user + "\nhost=" + h.host +
         "\npid=" + std::to_string(h.pid) + "\ndocument=" + h.document + "\n";
}

std::optional<LockHolder> fromText(const std::string& text) {
  LockHolder h;
  bool any = false;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    const size_t eq = line.find('=');
    if (eq == std::string::npos) continue;
    const std::string key = line.substr(0, eq), value = line.substr(eq + 1);
    if (key == "program") h.program = value;
    if (key == "user") h.user = value;
    if (key == "host") h.host = value;
    if (key == "document") h.document = value;
    if (key == "pid") h.pid = std::strtol(value.c_str(), nullptr, 10);
    any = true;
  }
  if (!any) return std::nullopt;
  return h;
}

std::string readAll(int fd) {
  std::string text;
  char buffer[1024];
  for (off_t at = 0;;) {
    const ssize_t got = ::pread(fd, buffer, sizeof buffer, at);
    if (got <= 0 || text.size() > 65536) break;
    text.append(buffer, static_cast<size_t>(got));
    at += got;
  }
  return text;
}

[[noreturn]] void cannotLock(const std::string& lockPath) {
  throw EngineError::withText(
      err::kCouldNotLockFile, sources::kWorkspace,
      errorText(err::kCouldNotLockFile) + " " + lockPath + ": " + std::strerror(errno) + ".");
}

[[noreturn]] void inUse(const std::string& path, const std::string& lockPath,
                        const std::optional<LockHolder>& holder) {
  std::string text = errorText(err::kFileInUse, {path});
  text += holder ? " It is open in " + holder->describe() + "."
                 : " Another program holds its lock file " + lockPath + ".";
  throw EngineError::withText(err::kFileInUse, sources::kWorkspace, text);
}

}  // namespace

LockHolder LockHolder::self(std::string document) {
  return {programName(), userName(), hostName(), static_cast<long>(::getpid()),
          std::move(document)};
}

std::string LockHolder::describe() const {
  return program + " (process " + std::to_string(pid) + ") of " + user + " on " + host;
}

std::string resolveLinks(const std::string& path) {
  fs::path current = path;
  // The kernel's own limit of links followed in one path.
  for (int hops = 0; hops < 40; ++hops) {
    std::error_code ec;
    if (!fs::is_symlink(fs::symlink_status(current, ec)) || ec) return current.string();
    const fs::path target = fs::read_symlink(current, ec);
    if (ec) return current.string();
    current = target.is_absolute() ? target : current.parent_path() / target;
  }
  throw std::runtime_error(path + ": too many levels of symbolic links");
}

bool isReadOnlyFile(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return false;
  return (st.st_mode & 0222) == 0 || ::access(path.c_str(), W_OK) != 0;
}

DocumentLock::~DocumentLock() { release(); }

DocumentLock::DocumentLock(DocumentLock&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), lockPath_(std::move(other.lockPath_)) {}

DocumentLock& DocumentLock::operator=(DocumentLock&& other) noexcept {
  if (this != &other) {
    release();
    fd_ = std::exchange(other.fd_, -1);
    lockPath_ = std::move(other.lockPath_);
  }
  return *this;
}

std::string DocumentLock::lockFilePath(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  const size_t dot = path.rfind('.');
  std::string lock =
      dot != std::string::npos && dot > nameStart ? path.substr(0, dot) + ".ldb" : path + ".ldb";
  // A database called "x.ldb" cannot be its own lock file.
  return lock == path ? path + ".ldb" : lock;
}

DocumentLock DocumentLock::acquire(const std::string& path, const LockHolder& holder) {
  std::string real;
  try {
    real = resolveLinks(path);
  } catch (const std::runtime_error&) {
    errno = ELOOP;
    cannotLock(lockFilePath(path));
  }
  DocumentLock lock;
  lock.lockPath_ = lockFilePath(real);
  const char* name = lock.lockPath_.c_str();
  // A holder that lets go between our open and our flock has removed the
  // file we opened; then we try again on the one that is there now.
  for (int attempt = 0; attempt < 50; ++attempt) {
    int fd = ::open(name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    // Another user's lock file in a shared folder: flock needs no write
    // access, only the record of who holds it stays the old one.
    if (fd < 0 && errno == EACCES) fd = ::open(name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) cannotLock(lock.lockPath_);
    // A moment's patience: a program that only looks at the lock (the
    // editor's search for abandoned working copies) holds it for an instant.
    bool locked = false;
    for (int tries = 0; tries < 5 && !locked; ++tries) {
      if (tries) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      locked = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
      if (!locked && errno != EWOULDBLOCK) break;
    }
    if (!locked) {
      const int why = errno;
      std::optional<LockHolder> other;
      if (why == EWOULDBLOCK) other = fromText(readAll(fd));
      ::close(fd);
      errno = why;
      if (why != EWOULDBLOCK) cannotLock(lock.lockPath_);
      inUse(path, lock.lockPath_, other);
    }
    struct stat opened {
    }, named{};
    if (::fstat(fd, &opened) != 0 || ::stat(name, &named) != 0 || opened.st_ino != named.st_ino ||
        opened.st_dev != named.st_dev) {
      ::close(fd);
      continue;
    }
    lock.fd_ = fd;
    const std::string text = toText(holder);
    // What it says only informs the next user; the flock is what counts.
    if (::ftruncate(fd, 0) == 0 && ::pwrite(fd, text.data(), text.size(), 0) < 0) {
      // Left empty: others are told that some program holds it.
    }
    return lock;
  }
  // Others keep taking it in turn, faster than we can look.
  inUse(path, lock.lockPath_, std::nullopt);
}

std::optional<DocumentLock::Abandoned> DocumentLock::abandoned(const std::string& path) {
  std::string lockPath;
  try {
    lockPath = lockFilePath(resolveLinks(path));
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
  const int fd = ::open(lockPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return std::nullopt;
  std::optional<Abandoned> result;
  if (::flock(fd, LOCK_SH | LOCK_NB) == 0) result = Abandoned{fromText(readAll(fd))};
  ::close(fd);  // lets go of the shared lock as well
  return result;
}

void DocumentLock::release() {
  if (fd_ < 0) return;
  // Removed while still locked, so nobody takes over a file on its way out.
  ::unlink(lockPath_.c_str());
  ::close(fd_);
  fd_ = -1;
}

int removeLeftoverTemporaries(const std::string& path) {
  const fs::path real = resolveLinks(path);
  const fs::path folder = real.has_parent_path() ? real.parent_path() : fs::path(".");
  const std::string name = real.filename().string();
  // mkstemp's six characters are letters and digits.
  auto sixRandom = [](std::string_view s) {
    if (s.size() != 6) return false;
    for (char c : s)
      if (!std::isalnum(static_cast<unsigned char>(c))) return false;
    return true;
  };
  const std::string savePrefix = "." + name + ".", toolPrefix = name + ".csdtool-";
  int removed = 0;
  std::error_code ec;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, ec)) {
    const std::string file = entry.path().filename().string();
    std::string_view rest;
    // A journal still being written when its writer died: the file was not
    // touched yet.
    if (file == name + "-journal-new") {
      std::error_code fileError;
      if (fs::remove(entry.path(), fileError)) ++removed;
      continue;
    }
    if (file.starts_with(savePrefix))
      rest = std::string_view(file).substr(savePrefix.size());
    else if (file.starts_with(toolPrefix))
      rest = std::string_view(file).substr(toolPrefix.size());
    else
      continue;
    std::error_code fileError;
    if (!sixRandom(rest) || !entry.is_regular_file(fileError) || entry.is_symlink(fileError))
      continue;
    if (fs::remove(entry.path(), fileError)) ++removed;
  }
  return removed;
}

}  // namespace schema
