// The writer's page layer: changed pages kept in memory with their undo
// images, savepoints, page allocation with the global page map, usage maps,
// and slot changes on data pages.
#include <algorithm>
#include <cstring>
#include <optional>
#include <set>

#include "jet/database.h"
#include "jet/bytes.h"
#include "jet/error.h"

namespace jet {
namespace {

constexpr uint32_t kGlobalMapPage = 1;
constexpr unsigned kGlobalMapRow = 0;
// Jet stops a database at 2 GB (Jet 4) or 1 GB (Jet 3): 524288 pages either way.
constexpr uint32_t kMaxPages = 524288;

void setBit(uint8_t* bits, uint64_t i, bool on) {
  if (on) {
    bits[i / 8] |= static_cast<uint8_t>(1 << (i % 8));
  } else {
    bits[i / 8] &= static_cast<uint8_t>(~(1 << (i % 8)));
  }
}

}  // namespace

uint8_t* Database::mutablePage(uint32_t n) {
  Bytes current = page(n);  // loads it, checks the number
  if (!frames_.empty()) {
    auto& originals = frames_.back().originals;
    if (!originals.count(n)) {
      auto copy = takeBuffer();
      std::memcpy(copy.get(), current.data(), fmt_->pageSize);
      originals.emplace(n, std::move(copy));
    }
  }
  dirty_.insert(n);
  return pages_[n];
}

std::unique_ptr<uint8_t[]> Database::takeBuffer() {
  if (spare_.empty()) return std::unique_ptr<uint8_t[]>(new uint8_t[fmt_->pageSize]);
  auto b = std::move(spare_.back());
  spare_.pop_back();
  return b;
}

void Database::recycle(Frame& f) {
  for (auto& [n, img] : f.originals)
    if (img) spare_.push_back(std::move(img));
  f.originals.clear();
}

size_t Database::savepoint() {
  frames_.push_back(Frame{{}, pageCount_});
  return frames_.size() - 1;
}

void Database::release(size_t sp) {
  if (sp >= frames_.size()) throw JetError(JetError::Kind::kInvalid, "no such savepoint");
  while (frames_.size() > sp) {
    Frame inner = std::move(frames_.back());
    frames_.pop_back();
    if (!frames_.empty()) {
      // The parent keeps its own, older image; pages new to it need none.
      Frame& parent = frames_.back();
      for (auto& [n, img] : inner.originals)
        if (n < parent.pageCount && !parent.originals.count(n))
          parent.originals.emplace(n, std::move(img));
    }
    recycle(inner);  // the outermost's changes simply stay
  }
}

void Database::rollbackTo(size_t sp) {
  if (sp >= frames_.size()) throw JetError(JetError::Kind::kInvalid, "no such savepoint");
  while (frames_.size() > sp) {
    Frame f = std::move(frames_.back());
    frames_.pop_back();
    for (auto& [n, img] : f.originals) {
      if (n >= f.pageCount) continue;  // allocated inside: dropped below
      std::memcpy(pages_[n], img.get(), fmt_->pageSize);
    }
    recycle(f);
    pageCount_ = f.pageCount;
    pages_.resize(pageCount_);
    dirty_.erase(dirty_.lower_bound(pageCount_), dirty_.end());
  }
  reloadTables();
}

void Database::reloadTables() {
  // Entries and definitions handed out stay where they are when the undone
  // changes did not touch them: a refused write leaves callers' references
  // intact.
  std::optional<std::vector<CatalogEntry>> oldCatalog = std::move(catalog_);
  catalog_.reset();
  lastDataPage_.clear();
  lvalPage_.clear();
  freePages_.reset();
  writableVerdict_.clear();
  rules_.clear();
  indexCache_.reset();
  // Callers hold references to cached definitions: refresh them in place.
  // A table whose definition was rolled away (created inside the undone
  // stretch) is dropped; nobody outside the creation holds it yet.
  for (auto it = tables_.begin(); it != tables_.end();) {
    const uint32_t page = it->first;
    if (page >= pageCount_ || this->page(page)[0] != page::kTableDef) {
      it = tables_.erase(it);
      continue;
    }
    std::vector<uint32_t> pages;
    std::vector<uint8_t> raw = loadTableDefBytes(page, pages);
    TableDef fresh = parseTableDef(*fmt_, std::move(raw), page, header_.codePage);
    fresh.name = it->second->name;
    fresh.pages = std::move(pages);
    TableDef& old = *it->second;
    // Unique-entry counts change with rows; they do not make a new definition.
    bool sameIndexes = fresh.realIndexes.size() == old.realIndexes.size();
    for (size_t k = 0; sameIndexes && k < fresh.realIndexes.size(); ++k) {
      RealIndex a = fresh.realIndexes[k];
      a.uniqueEntryCount = old.realIndexes[k].uniqueEntryCount;
      sameIndexes = a == old.realIndexes[k];
    }
    if (fresh.columns == old.columns && sameIndexes && fresh.indexes == old.indexes &&
        fresh.columnMaps == old.columnMaps) {
      for (size_t k = 0; k < fresh.realIndexes.size(); ++k)
        old.realIndexes[k].uniqueEntryCount = fresh.realIndexes[k].uniqueEntryCount;
      old.rowCount = fresh.rowCount;
      old.nextAutoNumber = fresh.nextAutoNumber;
      old.ownedPages = fresh.ownedPages;
      old.freeSpacePages = fresh.freeSpacePages;
      old.maxColumns = fresh.maxColumns;
      old.varColumns = fresh.varColumns;
      old.pages = std::move(fresh.pages);
      old.raw = std::move(fresh.raw);
    } else {
      old = std::move(fresh);
    }
    ++it;
  }
  if (oldCatalog) {
    const std::vector<CatalogEntry>& now = catalog();
    if (now == *oldCatalog) catalog_ = std::move(oldCatalog);
  }
}

bool Database::pageIsFree(uint32_t n) {
  Bytes pg1 = page(kGlobalMapPage);
  Slot s = slot(pg1, kGlobalMapPage, kGlobalMapRow);
  Bytes map = pg1.subspan(s.start, s.end - s.start);
  if (map.size() < 5) return false;
  if (map[0] == kUsageMapInline) {
    uint32_t start = u32le(&map[1]);
    if (n < start || n - start >= (map.size() - 5) * 8) return n >= start;  // past the map: free
    uint64_t bit = n - start;
    return map[5 + bit / 8] & (1 << (bit % 8));
  }
  if (map[0] != kUsageMapReference) return false;
  // Where a reference map has no page for a stretch, nothing is known of
  // it; such pages are not counted free.
  const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
  size_t i = n / perPage;
  if (1 + 4 * i + 4 > map.size()) return false;
  uint32_t mp = u32le(&map[1 + 4 * i]);
  if (mp == 0 || mp >= pageCount_ || page(mp)[0] != page::kUsageMap) return false;
  uint64_t bit = n % perPage;
  return page(mp)[kUsageMapPageHeader + bit / 8] & (1 << (bit % 8));
}

void Database::flush() {
  guarded([&] {
    if (!frames_.empty())
      throw JetError(JetError::Kind::kInvalid, "cannot write out changes inside a savepoint");
    // Nothing changed, nothing written: read-only work never syncs.
    if (dirty_.empty()) return;
    std::vector<PageWrite> writes;
    for (uint32_t n : dirty_)
      writes.push_back({static_cast<uint64_t>(n) * fmt_->pageSize, {pages_[n], fmt_->pageSize}});
    store_->commit(writes);
    dirty_.clear();
  });
}

TableDef& Database::mutableTable(const TableDef& t) {
  auto it = tables_.find(t.tdefPage);
  if (it == tables_.end() || it->second.get() != &t)
    throw JetError(JetError::Kind::kInvalid, "table '" + t.name + "' is not from this database");
  return *it->second;
}

std::set<uint32_t>& Database::freePages() {
  if (!freePages_) {
    // The global map's set bits are the free pages; 0 and 1 never are.
    std::vector<uint32_t> pages = usageMapPages(RowId{kGlobalMapPage, kGlobalMapRow}.pack());
    freePages_.emplace(std::lower_bound(pages.begin(), pages.end(), 2u), pages.end());
  }
  return *freePages_;
}

uint32_t Database::allocatePage() {
  // A page given back earlier goes out again before the file grows.
  if (std::set<uint32_t>& pool = freePages(); !pool.empty()) {
    uint32_t n = *pool.begin();
    pool.erase(pool.begin());
    std::memset(mutablePage(n), 0, fmt_->pageSize);
    markGlobal(n, false);
    return n;
  }
  if (pageCount_ >= kMaxPages)
    throw JetError(JetError::Kind::kInvalid,
                   std::string("the database has reached the largest size Jet allows (") +
                       (fmt_->version == Version::kJet4 ? "2" : "1") + " GB)");
  uint32_t n = pageCount_;
  // Inside a savepoint, the frame's page count marks the page as new.
  uint8_t* fresh = newPageBuffer();
  std::memset(fresh, 0, fmt_->pageSize);
  pages_.push_back(fresh);
  ++pageCount_;
  dirty_.insert(n);

  markGlobal(n, false);
  return n;
}

void Database::freePage(uint32_t n) {
  std::memset(mutablePage(n), 0, fmt_->pageSize);
  markGlobal(n, true);
  freePages().insert(n);
  for (auto it = lastDataPage_.begin(); it != lastDataPage_.end();)
    it = it->second == n ? lastDataPage_.erase(it) : std::next(it);
  for (auto it = lvalPage_.begin(); it != lvalPage_.end();)
    it = it->second == n ? lvalPage_.erase(it) : std::next(it);
}

std::string Database::globalMapProblem() {
  Bytes pg1 = page(kGlobalMapPage);
  if (pg1[0] != page::kData) return "page 1 does not hold the global page map";
  Slot s = slot(pg1, kGlobalMapPage, kGlobalMapRow);
  if (s.end - s.start < 5) return "the global page map is missing";
  if (pg1[s.start] == kUsageMapInline) return "";
  if (pg1[s.start] != kUsageMapReference) return "the global page map is of an unknown kind";
  // A reference map must reach the pages this engine would add.
  const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
  size_t i = (pageCount_ + 64) / perPage;
  if (1 + 4 * i + 4 > s.end - s.start) return "the global page map has no room for new pages";
  return "";
}

void Database::appendMapPage(uint64_t stretch) {
  const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
  uint32_t mp = pageCount_;
  pages_.push_back(newPageBuffer());
  ++pageCount_;
  dirty_.insert(mp);
  uint8_t* m = mutablePage(mp);
  std::memset(m, 0, fmt_->pageSize);
  m[0] = page::kUsageMap;
  m[1] = 0x01;
  for (uint64_t b = 0; b < perPage; ++b)
    if (stretch * perPage + b >= pageCount_) setBit(m + kUsageMapPageHeader, b, true);
  Bytes pg1 = page(kGlobalMapPage);
  Slot s = slot(pg1, kGlobalMapPage, kGlobalMapRow);
  put32le(mutablePage(kGlobalMapPage) + s.start + 1 + 4 * stretch, mp);
}

void Database::globalMapToReferences() {
  // The same shape as the map Access writes once a file outgrows page 1:
  // as many slots as it takes to reach the largest file.
  const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
  const size_t slots = static_cast<size_t>((kMaxPages + perPage - 1) / perPage);
  std::vector<uint32_t> wasFree = usageMapPages(RowId{kGlobalMapPage, kGlobalMapRow}.pack());
  std::vector<uint8_t> row(1 + 4 * slots, 0);
  row[0] = kUsageMapReference;
  if (!rewriteSlot(kGlobalMapPage, kGlobalMapRow, row, 0))
    throw JetError(JetError::Kind::kUnsupported, "page 1 has no room for a global page map");
  // Every stretch up to the end gets its page (each new one lengthens the
  // file); then the pages that were free are free again.
  for (uint64_t i = 0; i * perPage < pageCount_; ++i) appendMapPage(i);
  for (uint32_t p : wasFree) markGlobal(p, true);
}

void Database::markGlobal(uint32_t n, bool isFree) {
  // The global map marks free pages; pages past its range count as free.
  Bytes pg1 = page(kGlobalMapPage);
  Slot s = slot(pg1, kGlobalMapPage, kGlobalMapRow);
  Bytes map = pg1.subspan(s.start, s.end - s.start);
  if (map.size() >= 5 && map[0] == kUsageMapReference) {
    const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
    size_t i = n / perPage;
    if (1 + 4 * i + 4 > map.size()) {
      if (isFree) return;  // out of the map's reach counts as free anyway
      throw JetError(JetError::Kind::kUnsupported,
                     "the global page map cannot reach page " + std::to_string(n));
    }
    uint32_t mp = u32le(&map[1 + 4 * i]);
    if (mp == 0) {
      if (isFree) return;
      // No map page covers this stretch yet: add one at the end of the file
      // that counts every page up to it as in use and the rest as free.
      appendMapPage(i);
      mp = u32le(&page(kGlobalMapPage)[s.start + 1 + 4 * i]);
    } else if (page(mp)[0] != page::kUsageMap) {
      throwCorrupt(mp, "expected a usage map page, found page type " + std::to_string(page(mp)[0]));
    }
    setBit(mutablePage(mp) + kUsageMapPageHeader, n % perPage, isFree);
    return;
  }
  if (map.size() < 5 || map[0] != kUsageMapInline)
    throw JetError(JetError::Kind::kUnsupported, "the global page map is of an unknown kind");
  uint32_t start = u32le(&map[1]);
  uint64_t bits = (map.size() - 5) * 8;
  if (n < start) {
    if (isFree) return;
    throw JetError(JetError::Kind::kUnsupported, "the global page map starts past a new page");
  }
  if (n - start >= bits) {
    if (isFree) return;
    // Grow the map row to cover the new page (and some room beyond), every
    // page past the file's end marked free as before.
    uint64_t need = (n - start) / 8 + 1 + 64;
    std::vector<uint8_t> grown(5 + need, 0xFF);
    copyBytes(grown.data(), map.data(), map.size());
    if (!rewriteSlot(kGlobalMapPage, kGlobalMapRow, grown, 0)) {
      // Page 1 is full: the map becomes references to map pages.
      globalMapToReferences();
      return markGlobal(n, isFree);
    }
  }
  uint8_t* p1 = mutablePage(kGlobalMapPage);
  Slot s2 = slot({p1, fmt_->pageSize}, kGlobalMapPage, kGlobalMapRow);
  setBit(p1 + s2.start + 5, n - start, isFree);
}

void Database::addToUsageMap(uint32_t packed, uint32_t pageNo) {
  if (packed == 0) return;  // no map kept
  RowId at = RowId::unpack(packed);
  Bytes pg = page(at.page);
  Slot s = slot(pg, at.page, at.row);
  Bytes map = pg.subspan(s.start, s.end - s.start);
  if (map.empty()) throwCorrupt(at.page, "usage map row " + std::to_string(at.row) + " is empty");
  if (map[0] == kUsageMapInline) {
    if (map.size() < 5) throwCorrupt(at.page, "inline usage map shorter than its header");
    uint32_t start = u32le(&map[1]);
    const uint64_t bits = (map.size() - 5) * 8;
    if (pageNo >= start && pageNo - start < bits) {
      uint8_t* p = mutablePage(at.page);
      setBit(p + s.start + 5, pageNo - start, true);
      return;
    }
    // Out of range: slide the window if every page still fits, else turn
    // the map into references to usage map pages.
    std::vector<uint32_t> pages = usageMapPages(packed);
    pages.push_back(pageNo);
    auto [lo, hi] = std::minmax_element(pages.begin(), pages.end());
    uint32_t newStart = *lo & ~7u;
    std::vector<uint8_t> row(map.size(), 0);
    if (*hi - newStart < bits) {
      row[0] = kUsageMapInline;
      put32le(&row[1], newStart);
      for (uint32_t p : pages) setBit(&row[5], p - newStart, true);
    } else {
      const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
      const size_t slots = (map.size() - 1) / 4;
      if (*hi / perPage >= slots)
        throw JetError(JetError::Kind::kUnsupported, "usage map cannot reach page " +
                                                         std::to_string(*hi));
      row[0] = kUsageMapReference;
      std::vector<uint32_t> mapPages(slots, 0);
      for (uint32_t p : pages) {
        size_t i = p / perPage;
        if (!mapPages[i]) {
          mapPages[i] = allocatePage();
          uint8_t* mp = mutablePage(mapPages[i]);
          mp[0] = page::kUsageMap;
          mp[1] = 0x01;
          put32le(&row[1 + 4 * i], mapPages[i]);
        }
        setBit(mutablePage(mapPages[i]) + kUsageMapPageHeader, p % perPage, true);
      }
    }
    if (!rewriteSlot(at.page, at.row, row, s.raw & ~kRowOffsetMask))
      throwCorrupt(at.page, "no room to rewrite a usage map");
    return;
  }
  if (map[0] != kUsageMapReference)
    throwCorrupt(at.page, "unknown usage map type " + std::to_string(map[0]));
  const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
  size_t i = pageNo / perPage;
  if (1 + 4 * i + 4 > map.size())
    throw JetError(JetError::Kind::kUnsupported,
                   "usage map cannot reach page " + std::to_string(pageNo));
  uint32_t mp = u32le(&map[1 + 4 * i]);
  if (mp == 0) {
    mp = allocatePage();
    uint8_t* m = mutablePage(mp);
    m[0] = page::kUsageMap;
    m[1] = 0x01;
    put32le(mutablePage(at.page) + s.start + 1 + 4 * i, mp);
  }
  if (page(mp)[0] != page::kUsageMap)
    throwCorrupt(mp, "expected a usage map page, found page type " + std::to_string(page(mp)[0]));
  setBit(mutablePage(mp) + kUsageMapPageHeader, pageNo % perPage, true);
}

void Database::removeFromUsageMap(uint32_t packed, uint32_t pageNo) {
  if (packed == 0) return;
  RowId at = RowId::unpack(packed);
  Bytes pg = page(at.page);
  Slot s = slot(pg, at.page, at.row);
  Bytes map = pg.subspan(s.start, s.end - s.start);
  if (map.size() >= 5 && map[0] == kUsageMapInline) {
    uint32_t start = u32le(&map[1]);
    if (pageNo >= start && pageNo - start < (map.size() - 5) * 8)
      setBit(mutablePage(at.page) + s.start + 5, pageNo - start, false);
    return;
  }
  if (!map.empty() && map[0] == kUsageMapReference) {
    const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
    size_t i = pageNo / perPage;
    if (1 + 4 * i + 4 > map.size()) return;
    uint32_t mp = u32le(&map[1 + 4 * i]);
    if (mp) setBit(mutablePage(mp) + kUsageMapPageHeader, pageNo % perPage, false);
    return;
  }
  throwCorrupt(at.page, "unknown usage map type");
}

namespace {
// A slot Jet and this writer flag deleted (0x8000 alone marks the body of a
// moved row, which lives on).
bool dead(uint16_t raw) {
  return (raw & (kRowDeleted | kRowOverflow)) == (kRowDeleted | kRowOverflow);
}
}  // namespace

bool Database::rewriteSlot(uint32_t pageNo, unsigned row, Bytes bytes, uint16_t flags) {
  return repack(pageNo, static_cast<int>(row), bytes, flags);
}

bool Database::repack(uint32_t pageNo, int row, Bytes bytes, uint16_t flags) {
  Bytes pg = page(pageNo);
  unsigned count = u16le(&pg[fmt_->dataRowCountOffset]);
  std::vector<std::vector<uint8_t>> rows(count);
  std::vector<uint16_t> rowFlags(count);
  size_t used = 0;
  for (unsigned r = 0; r < count; ++r) {
    Slot s = slot(pg, pageNo, r);
    rowFlags[r] = s.raw & ~kRowOffsetMask;
    if (static_cast<int>(r) == row) {
      rows[r].assign(bytes.begin(), bytes.end());
      rowFlags[r] = flags;
    } else if (!dead(s.raw)) {  // a deleted row's bytes are given back
      rows[r].assign(pg.begin() + s.start, pg.begin() + s.end);
    }
    used += rows[r].size();
  }
  const size_t header = fmt_->dataRowTableOffset + 2 * count;
  if (header + used > fmt_->pageSize) return false;
  uint8_t* p = mutablePage(pageNo);
  uint32_t end = fmt_->pageSize;
  for (unsigned r = 0; r < count; ++r) {
    uint32_t start = end - static_cast<uint32_t>(rows[r].size());
    copyBytes(p + start, rows[r].data(), rows[r].size());
    put16le(p + fmt_->dataRowTableOffset + 2 * r, static_cast<uint16_t>(start | rowFlags[r]));
    end = start;
  }
  std::memset(p + header, 0, end - header);
  put16le(p + fmt_->dataFreeSpaceOffset, static_cast<uint16_t>(end - header));
  return true;
}

Database::PageRoom Database::roomOn(uint32_t pageNo) {
  Bytes pg = page(pageNo);
  unsigned count = u16le(&pg[fmt_->dataRowCountOffset]);
  PageRoom room;
  size_t live = 0;
  for (unsigned r = 0; r < count; ++r) {
    Slot s = slot(pg, pageNo, r);
    if (dead(s.raw)) {
      if (room.deadSlot < 0) room.deadSlot = static_cast<int>(r);
    } else {
      live += s.end - s.start;
      room.empty = false;
    }
  }
  const size_t spare = fmt_->pageSize - fmt_->dataRowTableOffset - 2 * count - live;
  // A new slot costs its 2 bytes of offset, and a page holds 255 rows.
  if (count < static_cast<unsigned>(fmt_->maxRowsPerPage) && spare >= 2)
    room.inNewSlot = spare - 2;
  if (room.deadSlot >= 0) room.inDeadSlot = spare;
  return room;
}

int Database::placeRow(uint32_t pageNo, Bytes bytes, uint16_t flags) {
  PageRoom room = roomOn(pageNo);
  // A new slot keeps the page's rows in the order they came; a deleted one
  // is taken when the page has no room for another.
  if (bytes.size() <= room.inNewSlot) {
    // Deleted rows may still hold bytes the stored free space does not count.
    if (bytes.size() + 2 > u16le(&page(pageNo)[fmt_->dataFreeSpaceOffset]))
      repack(pageNo, -1, {}, 0);
    return appendSlot(pageNo, bytes, flags);
  }
  if (bytes.size() > room.inDeadSlot) return -1;
  return rewriteSlot(pageNo, static_cast<unsigned>(room.deadSlot), bytes, flags) ? room.deadSlot
                                                                                 : -1;
}

int Database::appendSlot(uint32_t pageNo, Bytes bytes, uint16_t flags) {
  Bytes pg = page(pageNo);
  unsigned count = u16le(&pg[fmt_->dataRowCountOffset]);
  unsigned freeSpace = u16le(&pg[fmt_->dataFreeSpaceOffset]);
  if (count >= static_cast<unsigned>(fmt_->maxRowsPerPage) || bytes.size() + 2 > freeSpace)
    return -1;
  uint32_t end = count == 0 ? fmt_->pageSize : slot(pg, pageNo, count - 1).start;
  uint32_t start = end - static_cast<uint32_t>(bytes.size());
  if (start < fmt_->dataRowTableOffset + 2 * (count + 1)) return -1;
  uint8_t* p = mutablePage(pageNo);
  copyBytes(p + start, bytes.data(), bytes.size());
  put16le(p + fmt_->dataRowTableOffset + 2 * count, static_cast<uint16_t>(start | flags));
  put16le(p + fmt_->dataRowCountOffset, static_cast<uint16_t>(count + 1));
  put16le(p + fmt_->dataFreeSpaceOffset, static_cast<uint16_t>(freeSpace - bytes.size() - 2));
  return static_cast<int>(count);
}

}  // namespace jet
