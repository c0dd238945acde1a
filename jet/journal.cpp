#include "jet/journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include "jet/bytes.h"
#include "jet/error.h"

namespace jet {
namespace {

constexpr char kMagic[8] = {'V', 'N', 'T', 'R', 'J', 'R', 'N', 'L'};
constexpr size_t kHeaderSize = 24;
constexpr size_t kRangeHeaderSize = 12;
constexpr size_t kChecksumSize = 8;

[[noreturn]] void throwIo(const std::string& name, const std::string& what) {
  throw JetError(JetError::Kind::kIo, name + ": " + what + ": " + std::strerror(errno));
}

uint64_t fnv1a(std::span<const uint8_t> bytes) {
  uint64_t h = 0xcbf29ce484222325ull;
  for (uint8_t b : bytes) h = (h ^ b) * 0x100000001b3ull;
  return h;
}

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

bool readFully(int fd, uint64_t offset, uint8_t* out, size_t n) {
  for (size_t done = 0; done < n;) {
    ssize_t got = ::pread(fd, out + done, n - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

bool writeFully(int fd, uint64_t offset, const uint8_t* data, size_t n) {
  for (size_t done = 0; done < n;) {
    ssize_t put = ::pwrite(fd, data + done, n - done, static_cast<off_t>(offset + done));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    done += static_cast<size_t>(put);
  }
  return true;
}

// A new or removed name is durable only once its folder is synced.
void syncFolderOf(const std::string& path) {
  std::string dir = std::filesystem::path(path).parent_path().string();
  int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

// The journal's contents, or nullopt when it was never completed.
std::optional<JournalImage> parse(std::span<const uint8_t> j) {
  if (j.size() < kHeaderSize + kChecksumSize || std::memcmp(j.data(), kMagic, 8) != 0)
    return std::nullopt;
  const size_t body = j.size() - kChecksumSize;
  if (u64le(j.data() + body) != fnv1a(j.first(body))) return std::nullopt;
  JournalImage image;
  image.size = u64le(j.data() + 8);
  const uint32_t count = u32le(j.data() + 16);
  size_t at = kHeaderSize;
  for (uint32_t i = 0; i < count; ++i) {
    if (body - at < kRangeHeaderSize) return std::nullopt;
    const uint64_t offset = u64le(j.data() + at);
    const uint32_t length = u32le(j.data() + at + 8);
    at += kRangeHeaderSize;
    if (body - at < length) return std::nullopt;
    image.ranges[offset].assign(j.begin() + at, j.begin() + at + length);
    at += length;
  }
  return image;
}

// Puts the saved bytes back and cuts the file to its old size.
bool playBack(int fd, const JournalImage& image) {
  for (const auto& [offset, bytes] : image.ranges)
    if (!writeFully(fd, offset, bytes.data(), bytes.size())) return false;
  return ::ftruncate(fd, static_cast<off_t>(image.size)) == 0 && ::fsync(fd) == 0;
}

}  // namespace

std::string journalPathFor(const std::string& file) { return file + "-journal"; }

Journal::Journal(const std::string& file, int fd, uint64_t size, std::span<const PageWrite> writes)
    : path_(journalPathFor(file)) {
  // Only bytes inside the file need saving; what lies past its end goes
  // with the cut back to its old size.
  size_t total = kHeaderSize + kChecksumSize;
  uint32_t count = 0;
  for (const PageWrite& w : writes) {
    if (w.offset >= size) continue;
    total += kRangeHeaderSize + std::min<uint64_t>(w.data.size(), size - w.offset);
    ++count;
  }
  image_.resize(total);
  std::memcpy(image_.data(), kMagic, 8);
  put64le(&image_[8], size);
  put32le(&image_[16], count);
  size_t at = kHeaderSize;
  for (const PageWrite& w : writes) {
    if (w.offset >= size) continue;
    const uint32_t length =
        static_cast<uint32_t>(std::min<uint64_t>(w.data.size(), size - w.offset));
    put64le(&image_[at], w.offset);
    put32le(&image_[at + 8], length);
    at += kRangeHeaderSize;
    if (!readFully(fd, w.offset, &image_[at], length))
      throwIo(file, "cannot read what an edit replaces");
    at += length;
  }
  put64le(&image_[at], fnv1a({image_.data(), at}));

  // Written whole under another name and renamed: a reader never finds a
  // journal half written, and the lock taken first says a commit is under way.
  const std::string fresh = path_ + "-new";
  Fd j(::open(fresh.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (j.get() < 0) throwIo(path_, "cannot create the journal");
  if (::flock(j.get(), LOCK_EX | LOCK_NB) != 0) throwIo(file, "another program is writing it");
  if (::ftruncate(j.get(), 0) != 0 || !writeFully(j.get(), 0, image_.data(), image_.size()) ||
      ::fsync(j.get()) != 0) {
    const int saved = errno;
    ::unlink(fresh.c_str());
    errno = saved;
    throwIo(path_, "cannot write the journal");
  }
  if (::rename(fresh.c_str(), path_.c_str()) != 0)
    throwIo(path_, "cannot put the journal in place");
  syncFolderOf(path_);
  fd_ = j.release();
}

Journal::~Journal() {
  if (fd_ >= 0) ::close(fd_);
}

void Journal::finish() {
  // Removed before the lock goes, so nobody takes a finished commit's
  // journal for a dead writer's.
  // A journal that cannot go is emptied: one that is not whole is ignored.
  if (::unlink(path_.c_str()) != 0 && ::ftruncate(fd_, 0) == 0) ::fsync(fd_);
  ::close(fd_);
  fd_ = -1;
}

bool Journal::undo(int fd) {
  std::optional<JournalImage> image = parse(image_);
  if (!image || !playBack(fd, *image)) return false;
  finish();
  return true;
}

std::optional<JournalImage> recoverJournal(const std::string& file) {
  const std::string path = journalPathFor(file);
  Fd j(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (j.get() < 0) return std::nullopt;
  const bool live = ::flock(j.get(), LOCK_EX | LOCK_NB) != 0;
  struct stat st {};
  if (::fstat(j.get(), &st) != 0 || st.st_nlink == 0) return std::nullopt;  // just finished
  std::vector<uint8_t> bytes(static_cast<size_t>(st.st_size));
  if (!readFully(j.get(), 0, bytes.data(), bytes.size())) throwIo(path, "cannot read the journal");
  std::optional<JournalImage> image = parse(bytes);
  if (!image) {
    // Never completed (a power cut while it was written): the file was not
    // touched yet.
    if (!live) ::unlink(path.c_str());
    return std::nullopt;
  }
  if (live) return image;
  Fd f(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  if (f.get() < 0) {
    if (errno == EACCES || errno == EPERM || errno == EROFS) return image;
    throwIo(file, "cannot undo an interrupted edit");
  }
  if (!playBack(f.get(), *image)) throwIo(file, "cannot undo an interrupted edit");
  ::unlink(path.c_str());
  syncFolderOf(path);
  return std::nullopt;
}

uint64_t updateInPlace(const std::string& source, const std::string& target) {
  constexpr size_t kBlock = 4096;  // a Jet 4 page, two Jet 3 pages
  constexpr size_t kChunk = 256 * kBlock;
  std::unique_ptr<PageStore> from = openFileStore(source, false);
  std::unique_ptr<PageStore> to = openFileStore(target, true);
  if (from->size() < to->size())
    throw JetError(JetError::Kind::kInvalid, target + ": longer than " + source);
  std::vector<std::vector<uint8_t>> changed;
  std::vector<uint64_t> offsets;
  std::vector<uint8_t> a(kChunk), b(kChunk);
  for (uint64_t at = 0; at < from->size(); at += kChunk) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>(kChunk, from->size() - at));
    from->read(at, {a.data(), n});
    const size_t common =
        at < to->size() ? static_cast<size_t>(std::min<uint64_t>(n, to->size() - at)) : 0;
    if (common) to->read(at, {b.data(), common});
    for (size_t k = 0; k < n; k += kBlock) {
      const size_t len = std::min(kBlock, n - k);
      if (k + len <= common && std::memcmp(a.data() + k, b.data() + k, len) == 0) continue;
      changed.emplace_back(a.begin() + k, a.begin() + k + len);
      offsets.push_back(at + k);
    }
  }
  std::vector<PageWrite> writes;
  uint64_t bytes = 0;
  for (size_t i = 0; i < changed.size(); ++i) {
    writes.push_back({offsets[i], changed[i]});
    bytes += changed[i].size();
  }
  to->commit(writes);
  return bytes;
}

}  // namespace jet
