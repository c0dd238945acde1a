// The rollback journal that makes edits in place crash-safe. Before a commit
// overwrites any byte of a file, the bytes it will overwrite (and the file's
// size) go to "FILE-journal" beside it, synced; then the file is written and
// synced; then the journal is removed. Whoever finds a journal whose writer
// is gone puts those bytes back first, so a kill at any instant leaves the
// file as it was before the commit or as it is after it, never a mix.
//
// The journal is written under "FILE-journal-new" and renamed into place
// only once complete and synced, and its writer holds an OS lock (flock) on
// it until it is removed: a journal nobody holds is the remains of a writer
// that died, one somebody holds is a commit still under way.
//
// Layout, little-endian: "VNTRJRNL", the file's size before the commit (8
// bytes), the number of ranges (4), 4 zero bytes; per range its offset (8),
// length (4) and the bytes it held; then an FNV-1a 64 checksum (8) of all
// that went before. A journal whose checksum fails was never complete.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "jet/page_store.h"

namespace jet {

// "FILE-journal".
std::string journalPathFor(const std::string& file);

// A journal being written for one commit. Not copyable; the destructor
// closes it, leaving it on disk unless finish() was called, so that the
// next open puts the file back.
class Journal {
 public:
  // Saves the bytes of the file open at `fd` (`size` bytes long) that
  // `writes` will overwrite, and makes the journal durable. Throws a
  // JetError of kind kIo naming `file`, leaving the file untouched.
  Journal(const std::string& file, int fd, uint64_t size, std::span<const PageWrite> writes);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // The commit is on disk: removes the journal.
  void finish();
  // A write failed part-way: puts the saved bytes back into the file and
  // removes the journal; false (journal kept) if that fails too.
  bool undo(int fd);

  // Bytes written to the journal, for tests and benchmarks.
  uint64_t bytes() const { return image_.size(); }

 private:
  std::string path_;
  int fd_ = -1;
  std::vector<uint8_t> image_;
};

// What a journal holds: the file's size before the commit and the bytes it
// overwrote, by offset.
struct JournalImage {
  uint64_t size = 0;
  std::map<uint64_t, std::vector<uint8_t>> ranges;
};

// Deals with a journal beside `file` before the file is read. A journal
// left by a writer that died is played back into the file (and removed)
// when the file can be written; one that cannot be played back, or whose
// commit is still under way, is returned so that the caller reads the file
// as it was before that commit. nullopt when the file can be read as it is.
// Throws a JetError of kind kIo when playing back fails.
std::optional<JournalImage> recoverJournal(const std::string& file);

// Makes the file `target` hold what `source` holds by one commit of only the
// blocks that differ (and whatever `source` holds past target's end), so a
// save of a large document after a small edit writes a few pages. `source`
// must be at least as long as `target`. Returns the bytes committed. Throws
// a JetError of kind kIo; the target then stays as it was.
uint64_t updateInPlace(const std::string& source, const std::string& target);

}  // namespace jet
