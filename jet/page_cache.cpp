// The Database's page cache: a fixed number of unchanged pages in memory,
// whatever the file's size, so reading a large file whole costs a few
// megabytes. Changed pages stay until they are written. The page dropped is
// the one used longest ago, so a page just used stays while cacheLimit()
// other pages are loaded.
#include <cstring>

#include "jet/database.h"

namespace jet {

uint8_t* Database::newPageBuffer() {
  if (!freeBuffers_.empty()) {
    uint8_t* b = freeBuffers_.back();
    freeBuffers_.pop_back();
    return b;
  }
  arena_.emplace_back(new uint8_t[fmt_->pageSize]);
  return arena_.back().get();
}

void Database::touch(uint32_t n) {
  auto [at, added] = lruAt_.try_emplace(n);
  if (!added) {
    if (at->second != lru_.begin()) lru_.splice(lru_.begin(), lru_, at->second);
    return;
  }
  lru_.push_front(n);
  at->second = lru_.begin();
}

void Database::makeRoom(size_t pages) {
  // Every changed page is in the list and stays; the limit counts the rest.
  size_t passed = 0;
  while (!lru_.empty() && lru_.size() + pages > cacheLimit_ + dirty_.size() &&
         passed < lru_.size()) {
    const uint32_t n = lru_.back();
    const bool gone = n >= pages_.size() || !pages_[n];  // dropped by a rollback
    if (!gone && dirty_.count(n)) {
      lru_.splice(lru_.begin(), lru_, std::prev(lru_.end()));
      ++passed;
      continue;
    }
    if (!gone) {
      freeBuffers_.push_back(pages_[n]);
      pages_[n] = nullptr;
    }
    lru_.pop_back();
    lruAt_.erase(n);
  }
}

}  // namespace jet
