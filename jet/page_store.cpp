#include "jet/page_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "jet/bytes.h"
#include "jet/error.h"
#include "jet/journal.h"

namespace jet {
namespace {

[[noreturn]] void throwIo(const std::string& name, const std::string& what) {
  throw JetError(JetError::Kind::kIo, name + ": " + what);
}

std::string rangeText(uint64_t offset, size_t n) {
  return "bytes " + std::to_string(offset) + ".." + std::to_string(offset + n);
}

// Readers of a file hold a shared lock on it (flock) while they have it
// open, and a commit holds an exclusive one while it writes: a reader never
// sees part of a commit, and a commit never lands under a reader's pages.
// Each waits this long for the other, then gives up with a message.
constexpr int kReaderWaitMs = 10000;  // a commit takes milliseconds, a large save seconds
constexpr int kWriterWaitMs = 2000;   // a reader may take long; the edit is refused, not lost

// Takes the flock `op` on `fd` within `ms` milliseconds. A file system
// without flock counts as granting it.
bool lockWithin(int fd, int op, int ms) {
  for (int waited = 0;;) {
    if (::flock(fd, op | LOCK_NB) == 0) return true;
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) return true;
    if (waited >= ms) return false;
    ::usleep(10000);
    waited += 10;
  }
}

class FileStore : public PageStore {
 public:
  FileStore(std::string path, std::string realPath, int fd, bool writable,
            std::optional<JournalImage> before)
      : name_(std::move(path)),
        realPath_(std::move(realPath)),
        fd_(fd),
        writable_(writable),
        before_(std::move(before)) {
    struct stat st {};
    if (fstat(fd_, &st) != 0) throwIo(name_, std::strerror(errno));
    if (!S_ISREG(st.st_mode)) throwIo(name_, "not a regular file");
    size_ = before_ ? before_->size : static_cast<uint64_t>(st.st_size);
  }
  ~FileStore() override { ::close(fd_); }

  const std::string& name() const override { return name_; }
  uint64_t size() const override { return size_; }
  bool writable() const override { return writable_; }

  void read(uint64_t offset, std::span<uint8_t> out) override {
    if (offset > size_ || out.size() > size_ - offset)
      throwIo(name_, "read of " + rangeText(offset, out.size()) + " past end of file");
    size_t done = 0;
    while (done < out.size()) {
      ssize_t n =
          ::pread(fd_, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throwIo(name_, "read failed: " + std::string(std::strerror(errno)));
      if (n == 0) throwIo(name_, "file shrank while reading " + rangeText(offset, out.size()));
      done += static_cast<size_t>(n);
    }
    if (before_) overlayJournal(offset, out);
  }

  void write(uint64_t offset, std::span<const uint8_t> data) override {
    if (!writable_) throwIo(name_, "file is open read-only");
    size_t done = 0;
    while (done < data.size()) {
      ssize_t n =
          ::pwrite(fd_, data.data() + done, data.size() - done, static_cast<off_t>(offset + done));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throwIo(name_, "write failed: " + std::string(std::strerror(errno)));
      done += static_cast<size_t>(n);
    }
    if (offset + data.size() > size_) size_ = offset + data.size();
  }

  void sync() override {
    if (writable_ && ::fsync(fd_) != 0)
      throwIo(name_, "sync failed: " + std::string(std::strerror(errno)));
  }

  void commit(std::span<const PageWrite> writes) override {
    if (writes.empty()) return;
    if (!writable_) throwIo(name_, "file is open read-only");
    if (!lockWithin(fd_, LOCK_EX, kWriterWaitMs))
      throwIo(name_, "another program is reading it; nothing was written, try again");
    struct Unlock {
      int fd;
      ~Unlock() { ::flock(fd, LOCK_UN); }
    } unlock{fd_};
    Journal journal(realPath_, fd_, size_, writes);
    const uint64_t sizeBefore = size_;
    try {
      for (const PageWrite& w : writes) write(w.offset, w.data);
      sync();
    } catch (const JetError&) {
      if (journal.undo(fd_)) size_ = sizeBefore;
      throw;
    }
    journal.finish();
  }

 private:
  // A reader of a file whose journal could not be played back sees the
  // bytes the journal saved.
  void overlayJournal(uint64_t offset, std::span<uint8_t> out) {
    auto it = before_->ranges.upper_bound(offset);
    if (it != before_->ranges.begin()) --it;
    for (; it != before_->ranges.end() && it->first < offset + out.size(); ++it) {
      const uint64_t from = std::max(offset, it->first);
      const uint64_t to = std::min(offset + out.size(), it->first + it->second.size());
      if (from < to)
        copyBytes(out.data() + (from - offset), it->second.data() + (from - it->first), to - from);
    }
  }

  std::string name_;
  std::string realPath_;  // where the journal goes: beside the file, not a link to it
  int fd_;
  bool writable_;
  std::optional<JournalImage> before_;
  uint64_t size_ = 0;
};

}  // namespace

void PageStore::commit(std::span<const PageWrite> writes) {
  if (writes.empty()) return;
  for (const PageWrite& w : writes) write(w.offset, w.data);
  sync();
}

std::unique_ptr<PageStore> openFileStore(const std::string& path, bool writable) {
  std::error_code ec;
  std::string real = std::filesystem::canonical(path, ec).string();
  if (ec) real = path;
  std::optional<JournalImage> before = recoverJournal(real);
  if (before && writable)
    throwIo(path, "another program is writing it, or its last edit cannot be undone here");
  int fd = ::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC);
  if (fd < 0) throwIo(path, std::strerror(errno));
  if (!writable && !lockWithin(fd, LOCK_SH, kReaderWaitMs)) {
    ::close(fd);
    throwIo(path, "another program has been writing it for too long; try again");
  }
  return std::make_unique<FileStore>(path, std::move(real), fd, writable, std::move(before));
}

MemoryStore::MemoryStore(std::vector<uint8_t> bytes, std::string name)
    : bytes_(std::move(bytes)), name_(std::move(name)) {}

void MemoryStore::read(uint64_t offset, std::span<uint8_t> out) {
  if (offset > bytes_.size() || out.size() > bytes_.size() - offset)
    throwIo(name_, "read of " + rangeText(offset, out.size()) + " past end of file");
  copyBytes(out.data(), bytes_.data() + offset, out.size());
}

void MemoryStore::write(uint64_t offset, std::span<const uint8_t> data) {
  if (offset + data.size() > bytes_.size()) bytes_.resize(offset + data.size());
  copyBytes(bytes_.data() + offset, data.data(), data.size());
}

void FaultyStore::read(uint64_t offset, std::span<uint8_t> out) {
  if (readsLeft_ == 0) throwIo(name(), "injected read failure");
  if (readsLeft_ > 0) --readsLeft_;
  if (badEnd_ > badBegin_ && offset < badEnd_ && offset + out.size() > badBegin_)
    throwIo(name(), "injected read failure at " + rangeText(offset, out.size()));
  ++reads_;
  inner_->read(offset, out);
}

void FaultyStore::write(uint64_t offset, std::span<const uint8_t> data) {
  if (writesLeft_ == 0) throwIo(name(), "injected write failure");
  if (writesLeft_ > 0) --writesLeft_;
  if (bytesLeft_ >= 0) {
    if (static_cast<uint64_t>(bytesLeft_) < data.size()) {
      // A full disk: part of the range may land, the rest does not.
      inner_->write(offset, data.first(static_cast<size_t>(bytesLeft_)));
      bytesLeft_ = 0;
      throwIo(name(), "write failed: No space left on device");
    }
    bytesLeft_ -= static_cast<int64_t>(data.size());
  }
  ++writes_;
  inner_->write(offset, data);
}

void FaultyStore::sync() {
  if (failSync_) throwIo(name(), "injected sync failure");
  inner_->sync();
}

}  // namespace jet
