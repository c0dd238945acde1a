#include "jet/database.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <set>

#include "jet/error.h"
#include "jet/text.h"

namespace jet {
namespace {

// Overflow pointers lead from a row slot to the row's real place; Jet never
// chains them, so more than a couple of hops means a damaged file.
constexpr int kMaxOverflowHops = 4;
constexpr uint32_t kReadAheadPages = 16;

void rc4Mask(std::span<uint8_t> data, std::span<const uint8_t> key) {
  std::array<uint8_t, 256> s;
  for (int i = 0; i < 256; ++i) s[i] = static_cast<uint8_t>(i);
  for (int i = 0, j = 0; i < 256; ++i) {
    j = (j + s[i] + key[i % key.size()]) & 0xFF;
    std::swap(s[i], s[j]);
  }
  int i = 0, j = 0;
  for (uint8_t& b : data) {
    i = (i + 1) & 0xFF;
    j = (j + s[i]) & 0xFF;
    std::swap(s[i], s[j]);
    b ^= s[(s[i] + s[j]) & 0xFF];
  }
}

int32_t asInt(const Value& v) {
  if (auto p = std::get_if<int32_t>(&v)) return *p;
  return 0;
}

}  // namespace

void maskHeader(std::span<uint8_t> headerPage, Version v) {
  const uint8_t key[4] = {header::kMaskKey & 0xFF, (header::kMaskKey >> 8) & 0xFF,
                          (header::kMaskKey >> 16) & 0xFF, header::kMaskKey >> 24};
  int size = v == Version::kJet3 ? header::kJet3MaskedSize : header::kJet4MaskedSize;
  rc4Mask(headerPage.subspan(header::kMaskedOffset, size), key);
}

Database::Database(std::unique_ptr<PageStore> store) : store_(std::move(store)) {}
Database::~Database() = default;

std::unique_ptr<Database> Database::open(std::unique_ptr<PageStore> store) {
  std::unique_ptr<Database> db(new Database(std::move(store)));
  db->guarded([&] { db->readHeader(); });
  return db;
}

std::unique_ptr<Database> Database::openFile(const std::string& path, bool writable) {
  return open(openFileStore(path, writable));
}

void Database::readHeader() {
  uint64_t size = store_->size();
  if (size == 0) throw JetError(JetError::Kind::kCorrupt, "empty file, not a Jet database");
  if (size < 0x80)
    throw JetError(JetError::Kind::kCorrupt,
                   "file of " + std::to_string(size) + " bytes is too short for a Jet database");
  std::vector<uint8_t> head(std::min<uint64_t>(size, 2048));
  store_->read(0, head);
  const size_t idLen = std::strlen(header::kFormatId);
  if (std::memcmp(head.data() + header::kFormatIdOffset, "Standard ACE DB", idLen) == 0)
    throw JetError(JetError::Kind::kUnsupported,
                   "an Access 2007 or later (ACE) database; only Jet 3 and Jet 4 files are read");
  if (head[0] != page::kDatabase ||
      std::memcmp(head.data() + header::kFormatIdOffset, header::kFormatId, idLen) != 0)
    throw JetError(JetError::Kind::kCorrupt, "not a Jet database (no Jet signature on page 0)");
  uint8_t vb = head[header::kVersionOffset];
  if (vb == kVersionByteJet3) {
    fmt_ = &kJet3Format;
  } else if (vb == kVersionByteJet4) {
    fmt_ = &kJet4Format;
  } else {
    throw JetError(JetError::Kind::kUnsupported, "unsupported Jet version byte " +
                                                     std::to_string(vb) +
                                                     "; only Jet 3 and Jet 4 files are read");
  }
  if (size < fmt_->pageSize)
    throw JetError(JetError::Kind::kCorrupt,
                   "file of " + std::to_string(size) + " bytes is shorter than one page");
  pageCount_ = static_cast<uint32_t>(std::min<uint64_t>(size / fmt_->pageSize, 0x00FFFFFF));
  header_.version = fmt_->version;
  header_.versionByte = vb;

  std::vector<uint8_t> pg0(head.begin(), head.begin() + std::min<size_t>(head.size(), 0x80 + 128));
  maskHeader(pg0, fmt_->version);
  header_.codePage = u16le(&pg0[header::kCodePageOffset]);
  header_.encodingKey = u32le(&pg0[header::kEncodingKeyOffset]);
  if (fmt_->version == Version::kJet4) {
    header_.sortOrder = u16le(&pg0[header::kJet4SortOrderOffset]);
    header_.sortVersion = pg0[header::kJet4SortOrderOffset + 3];
    header_.creationDate = f64le(&pg0[header::kJet4CreationDateOffset]);
  } else {
    header_.sortOrder = u16le(&pg0[header::kJet3SortOrderOffset]);
  }
  int pwSize =
      fmt_->version == Version::kJet3 ? header::kJet3PasswordSize : header::kJet4PasswordSize;
  // A Jet 4 password is further masked with the creation date; any non-zero
  // byte left after the base mask still tells that one is set.
  for (int i = 0; i < pwSize; ++i)
    if (pg0[header::kPasswordOffset + i] != 0) header_.hasPassword = true;
  if (fmt_->version == Version::kJet4 && header_.hasPassword) {
    uint8_t mask[4];
    double d = header_.creationDate;
    int32_t whole = (d > -2e9 && d < 2e9) ? static_cast<int32_t>(d) : 0;
    put32le(mask, static_cast<uint32_t>(whole));
    header_.hasPassword = false;
    for (int i = 0; i < pwSize; ++i)
      if ((pg0[header::kPasswordOffset + i] ^ mask[i % 4]) != 0) header_.hasPassword = true;
  }
  if (header_.encodingKey != 0)
    throw JetError(JetError::Kind::kUnsupported,
                   "the database is encrypted; decrypt it in Access before opening it here");
  pages_ = decltype(pages_)(pageCount_);
}

Bytes Database::page(uint32_t n) {
  if (n >= pageCount_)
    throwCorrupt(n, "page past end of file (" + std::to_string(pageCount_) + " pages)");
  if (!pages_[n]) {
    // A read a little past where the last one ended is a walk through
    // neighbouring pages (a table or an index mostly sits in a run of them),
    // so it takes pages after it in the same request, twice as many each
    // time the walk goes on, up to kReadAheadPages; a page elsewhere, as an
    // index seek wants, comes alone and ends the walk.
    if (n >= lastMiss_ && n - lastMiss_ < kReadAheadPages)
      readAhead_ = std::min(readAhead_ * 2, kReadAheadPages);
    else
      readAhead_ = 1;
    uint32_t last = n + 1;
    while (last < pageCount_ && last - n < readAhead_ && !pages_[last]) ++last;
    lastMiss_ = last;
    const size_t size = fmt_->pageSize;
    makeRoom(last - n);
    if (last == n + 1) {
      uint8_t* buffer = newPageBuffer();
      try {
        store_->read(static_cast<uint64_t>(n) * size, {buffer, size});
      } catch (...) {
        freeBuffers_.push_back(buffer);
        throw;
      }
      pages_[n] = buffer;
    } else {
      readBuffer_.resize(size * (last - n));
      store_->read(static_cast<uint64_t>(n) * size, readBuffer_);
      for (uint32_t k = n; k < last; ++k) {
        pages_[k] = newPageBuffer();
        std::memcpy(pages_[k], readBuffer_.data() + (k - n) * size, size);
        if (k != n) touch(k);
      }
    }
  }
  touch(n);
  return {pages_[n], fmt_->pageSize};
}

std::vector<uint8_t> Database::loadTableDefBytes(uint32_t first, std::vector<uint32_t>& pages) {
  std::vector<uint8_t> raw;
  std::set<uint32_t> seen;
  uint32_t n = first;
  while (n != 0) {
    if (!seen.insert(n).second) throwCorrupt(n, "loop in the table definition's page chain");
    Bytes pg = page(n);
    if (pg[0] != page::kTableDef)
      throwCorrupt(n, "expected a table definition page, found page type " + std::to_string(pg[0]));
    pages.push_back(n);
    if (raw.empty()) {
      raw.assign(pg.begin(), pg.end());
    } else {
      raw.insert(raw.end(), pg.begin() + 8, pg.end());
    }
    n = u32le(&pg[fmt_->tdefNextPageOffset]);
  }
  return raw;
}

const TableDef& Database::tableAtPage(uint32_t tdefPage, const std::string& name) {
  return guarded([&]() -> const TableDef& {
    auto it = tables_.find(tdefPage);
    if (it != tables_.end()) return *it->second;
    std::vector<uint32_t> pages;
    std::vector<uint8_t> raw = loadTableDefBytes(tdefPage, pages);
    auto def = std::make_unique<TableDef>(
        parseTableDef(*fmt_, std::move(raw), tdefPage, header_.codePage));
    def->name = name;
    def->pages = std::move(pages);
    return *tables_.emplace(tdefPage, std::move(def)).first->second;
  });
}

const std::vector<CatalogEntry>& Database::catalog() {
  return guarded([&]() -> const std::vector<CatalogEntry>& {
    if (catalog_) return *catalog_;
    const TableDef& sys = tableAtPage(kCatalogTdefPage, "MSysObjects");
    const ColumnDef* id = sys.findColumn("Id");
    const ColumnDef* parent = sys.findColumn("ParentId");
    const ColumnDef* name = sys.findColumn("Name");
    const ColumnDef* type = sys.findColumn("Type");
    const ColumnDef* flags = sys.findColumn("Flags");
    if (!id || !name || !type || !flags)
      throwCorrupt(kCatalogTdefPage, "MSysObjects lacks its Id, Name, Type or Flags column");
    std::vector<CatalogEntry> out;
    scanRows(sys, [&](RowId rid, Bytes row) {
      CatalogEntry e;
      e.row = rid;
      e.id = asInt(decodeColumn(sys, *id, row));
      if (parent) e.parentId = asInt(decodeColumn(sys, *parent, row));
      if (auto s = decodeColumn(sys, *name, row); auto p = std::get_if<std::string>(&s))
        e.name = *p;
      e.type = asInt(decodeColumn(sys, *type, row));
      e.flags = static_cast<uint32_t>(asInt(decodeColumn(sys, *flags, row)));
      out.push_back(std::move(e));
      return true;
    });
    catalog_ = std::move(out);
    return *catalog_;
  });
}

std::vector<std::string> Database::userTableNames() {
  std::vector<std::string> names;
  for (const CatalogEntry& e : catalog())
    if (e.isUserTable()) names.push_back(e.name);
  return names;
}

const TableDef& Database::table(std::string_view name) {
  for (const CatalogEntry& e : catalog())
    if (e.isTable() && sameName(e.name, name)) return tableAtPage(e.tdefPage(), e.name);
  throw JetError(JetError::Kind::kNotFound,
                 fileName() + ": no table named '" + std::string(name) + "'");
}

std::vector<uint32_t> Database::usageMapPages(uint32_t packed) {
  return guarded([&] {
    if (packed == 0) return std::vector<uint32_t>{};  // no map kept
    RowId at = RowId::unpack(packed);
    std::optional<Bytes> row = rowData(at);
    if (!row || row->empty())
      throwCorrupt(at.page, "usage map row " + std::to_string(at.row) + " is missing");
    Bytes map = *row;
    std::vector<uint32_t> pages;
    auto addBits = [&](Bytes bits, uint64_t firstPage) {
      for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i]) continue;
        for (int b = 0; b < 8; ++b) {
          if (!(bits[i] & (1 << b))) continue;
          uint64_t p = firstPage + i * 8 + b;
          if (p >= pageCount_) return;  // maps may run past the file's end
          pages.push_back(static_cast<uint32_t>(p));
        }
      }
    };
    if (map[0] == kUsageMapInline) {
      if (map.size() < 5) throwCorrupt(at.page, "inline usage map shorter than its header");
      addBits(map.subspan(5), u32le(&map[1]));
    } else if (map[0] == kUsageMapReference) {
      const uint64_t perPage = (static_cast<uint64_t>(fmt_->pageSize) - kUsageMapPageHeader) * 8;
      for (size_t i = 0; 1 + i * 4 + 4 <= map.size(); ++i) {
        uint32_t mp = u32le(&map[1 + i * 4]);
        // A slot for pages past the file's end is not read: Access leaves
        // leftover bytes there.
        if (mp == 0 || i * perPage >= pageCount_) continue;
        Bytes pg = page(mp);
        if (pg[0] != page::kUsageMap)
          throwCorrupt(mp, "expected a usage map page, found page type " + std::to_string(pg[0]));
        addBits(pg.subspan(kUsageMapPageHeader), i * perPage);
      }
    } else {
      throwCorrupt(at.page, "unknown usage map type " + std::to_string(map[0]));
    }
    std::sort(pages.begin(), pages.end());
    return pages;
  });
}

Database::Slot Database::slot(Bytes pg, uint32_t pageNo, unsigned row) {
  if (pg[0] != page::kData)
    throwCorrupt(pageNo, "expected a data page, found page type " + std::to_string(pg[0]));
  unsigned count = u16le(&pg[fmt_->dataRowCountOffset]);
  const unsigned tableEnd = fmt_->dataRowTableOffset + 2 * count;
  if (tableEnd > fmt_->pageSize)
    throwCorrupt(pageNo, "row count " + std::to_string(count) + " overruns the page");
  if (row >= count)
    throwCorrupt(
        pageNo, "row " + std::to_string(row) + " not on page (" + std::to_string(count) + " rows)");
  uint16_t raw = u16le(&pg[fmt_->dataRowTableOffset + 2 * row]);
  uint32_t start = raw & kRowOffsetMask;
  uint32_t end = row == 0 ? fmt_->pageSize
                          : u16le(&pg[fmt_->dataRowTableOffset + 2 * (row - 1)]) & kRowOffsetMask;
  if (start > fmt_->pageSize)
    throwCorrupt(pageNo, "row offset " + std::to_string(start) + " past end of page");
  if (end > fmt_->pageSize)
    throwCorrupt(pageNo, "row end " + std::to_string(end) + " past end of page");
  if (start < tableEnd || start > end) {
    // A deleted slot may be empty or stale; its bounds do not matter.
    if (raw & kRowDeleted) return {raw, start, start};
    throwCorrupt(pageNo, "row " + std::to_string(row) + " has bad bounds " + std::to_string(start) +
                             ".." + std::to_string(end));
  }
  return {raw, start, end};
}

std::optional<Bytes> Database::rowData(RowId id) {
  return guarded([&]() -> std::optional<Bytes> {
    RowId at = id;
    for (int hop = 0; hop <= kMaxOverflowHops; ++hop) {
      Bytes pg = page(at.page);
      Slot s = slot(pg, at.page, at.row);
      // Only the first slot's deleted flag counts: overflow targets are
      // always flagged deleted so that scans skip them.
      if (hop == 0 && (s.raw & kRowDeleted)) return std::nullopt;
      if (!(s.raw & kRowOverflow)) {
        lastRowPage_ = at.page;
        return pg.subspan(s.start, s.end - s.start);
      }
      if (s.end - s.start < 4) throwCorrupt(at.page, "overflow pointer shorter than 4 bytes");
      at = RowId{u24le(&pg[s.start + 1]), pg[s.start]};
    }
    throwCorrupt(id.page, "overflow pointers of row " + std::to_string(id.row) + " loop");
  });
}

void Database::scanRows(const TableDef& t, const std::function<bool(RowId, Bytes)>& fn) {
  // Counts the long value bytes callers read while the scan runs.
  struct Counting {
    uint64_t& n;
    uint64_t saved;
    explicit Counting(uint64_t& c) : n(c), saved(c) { n = 0; }
    ~Counting() { n = saved; }
  } counting(scanLongValueBytes_);
  guarded([&] {
    std::vector<uint32_t> pages = usageMapPages(t.ownedPages);
    auto isTablePage = [&](Bytes pg) {
      return pg[0] == page::kData && u32le(&pg[fmt_->dataTdefOffset]) == t.tdefPage;
    };
    auto rowCount = [&](Bytes pg, uint32_t pn) {
      unsigned count = u16le(&pg[fmt_->dataRowCountOffset]);
      if (count > static_cast<unsigned>(fmt_->maxRowsPerPage))
        throwCorrupt(pn, "row count " + std::to_string(count) + " exceeds " +
                             std::to_string(fmt_->maxRowsPerPage));
      return count;
    };
    // A row that grew too big for its page lives in another slot, flagged
    // like a deleted row, with a pointer left in its old slot. Rows are
    // listed where they are stored, so first collect the slots that live
    // pointers lead to; a target whose pointer slot was deleted stays dead.
    std::map<RowId, RowId> targets;  // target slot -> the slot that names the row
    for (uint32_t pn : pages) {
      Bytes pg = page(pn);
      if (!isTablePage(pg)) continue;
      unsigned count = rowCount(pg, pn);
      for (unsigned r = 0; r < count; ++r) {
        Slot s = slot(pg, pn, r);
        if ((s.raw & (kRowDeleted | kRowOverflow)) != kRowOverflow) continue;
        if (s.end - s.start < 4) throwCorrupt(pn, "overflow pointer shorter than 4 bytes");
        targets.emplace(RowId{u24le(&pg[s.start + 1]), pg[s.start]},
                        RowId{pn, static_cast<uint8_t>(r)});
      }
    }
    for (uint32_t pn : pages) {
      Bytes pg = page(pn);
      if (!isTablePage(pg)) continue;
      unsigned count = rowCount(pg, pn);
      for (unsigned r = 0; r < count; ++r) {
        RowId id{pn, static_cast<uint8_t>(r)};
        Slot s = slot(pg, pn, r);
        uint16_t flags = s.raw & (kRowDeleted | kRowOverflow);
        if (flags == kRowDeleted) {
          auto it = targets.find(id);
          if (it == targets.end()) continue;
          id = it->second;  // indexes and callers know the row by its first slot
          targets.erase(it);
        } else if (flags != 0) {
          continue;
        }
        lastRowPage_ = pn;
        if (!fn(id, pg.subspan(s.start, s.end - s.start))) return;
      }
    }
    // Targets outside the table's own data pages: still rows of the table.
    for (const auto& [at, id] : targets) {
      Bytes pg = page(at.page);
      Slot s = slot(pg, at.page, at.row);
      if (s.raw & kRowOverflow) throwCorrupt(at.page, "overflow pointer leads to another pointer");
      lastRowPage_ = at.page;
      if (!fn(id, pg.subspan(s.start, s.end - s.start))) return;
    }
  });
}

std::vector<std::vector<Value>> Database::readAll(const TableDef& t,
                                                  const std::vector<bool>& wanted) {
  std::vector<std::vector<Value>> rows;
  scanRows(t, [&](RowId, Bytes row) {
    rows.push_back(decodeRow(t, row, wanted));
    return true;
  });
  return rows;
}

}  // namespace jet
