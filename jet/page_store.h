// Where the engine's bytes live. All file access goes through PageStore so
// that tests can run the engine over memory, or over a store that fails on
// demand (I/O errors, a full disk) without touching the real file system.
//
// A store reads and writes whole byte ranges; the Database above it deals in
// pages. Reads past the end of the store fail; writes past the end extend it.
// Every failure is a JetError of kind kIo naming the store.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace jet {

// One range of bytes a commit writes.
struct PageWrite {
  uint64_t offset = 0;
  std::span<const uint8_t> data;
};

class PageStore {
 public:
  virtual ~PageStore() = default;

  // The file name, or a description, used in error messages.
  virtual const std::string& name() const = 0;
  virtual uint64_t size() const = 0;
  virtual bool writable() const = 0;

  // Fills `out` from `offset`; throws if the range is not wholly inside.
  virtual void read(uint64_t offset, std::span<uint8_t> out) = 0;
  virtual void write(uint64_t offset, std::span<const uint8_t> data) = 0;
  // Makes every completed write durable.
  virtual void sync() = 0;
  // Writes every range and makes them durable. A file on disk keeps a
  // rollback journal meanwhile (jet/journal.h), so that a crash leaves it
  // with all of the ranges or none; other stores write and sync. No ranges:
  // nothing is written, nothing synced.
  virtual void commit(std::span<const PageWrite> writes);
};

// A file on disk. Opened read-only unless `writable`; throws if it cannot be
// opened. A journal left beside it by an interrupted commit is dealt with
// first (see recoverJournal): the file is read as it was before that commit.
std::unique_ptr<PageStore> openFileStore(const std::string& path, bool writable);

// Bytes in memory; `name` only labels error messages.
class MemoryStore : public PageStore {
 public:
  explicit MemoryStore(std::vector<uint8_t> bytes, std::string name = "<memory>");

  const std::string& name() const override { return name_; }
  uint64_t size() const override { return bytes_.size(); }
  bool writable() const override { return true; }
  void read(uint64_t offset, std::span<uint8_t> out) override;
  void write(uint64_t offset, std::span<const uint8_t> data) override;
  void sync() override {}

  const std::vector<uint8_t>& bytes() const { return bytes_; }
  std::vector<uint8_t>& bytes() { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  std::string name_;
};

// Wraps another store and fails on command: the Nth read or write from now,
// reads touching a given page, or writes once a byte budget is spent (a full
// disk). Counts what passed through, for tests that check how much was done.
class FaultyStore : public PageStore {
 public:
  explicit FaultyStore(std::unique_ptr<PageStore> inner) : inner_(std::move(inner)) {}

  const std::string& name() const override { return inner_->name(); }
  uint64_t size() const override { return inner_->size(); }
  bool writable() const override { return inner_->writable(); }
  void read(uint64_t offset, std::span<uint8_t> out) override;
  void write(uint64_t offset, std::span<const uint8_t> data) override;
  void sync() override;

  void failReadsAfter(long count) { readsLeft_ = count; }
  void failReadsOfRange(uint64_t begin, uint64_t end) { badBegin_ = begin, badEnd_ = end; }
  void failWritesAfter(long count) { writesLeft_ = count; }
  void failWritesAfterBytes(uint64_t bytes) { bytesLeft_ = static_cast<int64_t>(bytes); }
  void failSync(bool fail) { failSync_ = fail; }

  long reads() const { return reads_; }
  long writes() const { return writes_; }
  PageStore& inner() { return *inner_; }

 private:
  std::unique_ptr<PageStore> inner_;
  long readsLeft_ = -1, writesLeft_ = -1;
  int64_t bytesLeft_ = -1;
  uint64_t badBegin_ = 0, badEnd_ = 0;
  bool failSync_ = false;
  long reads_ = 0, writes_ = 0;
};

}  // namespace jet
