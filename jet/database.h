// Database: a Jet 3 or Jet 4 file opened through a PageStore. It decodes the
// header, the catalog (MSysObjects), table definitions, rows, long values,
// usage maps and index pages.
//
// Contracts:
// - Every failure is a JetError whose message starts with the file name and,
//   where a page is at fault, names it: "x.mdb: page 57: row offset 4100 past
//   end of page". A damaged file never crashes the engine, never makes it
//   loop forever and never makes it allocate more than the file could hold.
// - References handed out (TableDef, catalog entries) stay valid until the
//   Database is destroyed. Page bytes stay valid until the page is written
//   or, once it is no longer used, the bounded page cache (cacheLimit()
//   pages, about 4 MB by default) has taken in that many other pages.
// - Not thread-safe; one Database per thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <sys/mman.h>

#include "jet/bytes.h"
#include "jet/error.h"
#include "jet/format.h"
#include "jet/page_store.h"
#include "jet/properties.h"
#include "jet/row_layout.h"
#include "jet/table_def.h"
#include "jet/value.h"

namespace jet {

struct IndexNodeCache;
struct IndexNodeCacheDeleter {
  void operator()(IndexNodeCache* c) const;
};

struct HeaderInfo {
  Version version = Version::kJet4;
  uint8_t versionByte = 0;
  uint16_t codePage = 0;
  uint16_t sortOrder = 0;  // language id, 1033 for "General"
  uint8_t sortVersion = 0;
  uint32_t encodingKey = 0;
  double creationDate = 0;  // Jet 4 only
  bool hasPassword = false;
};

struct CatalogEntry {
  int32_t id = 0;
  int32_t parentId = 0;
  std::string name;
  int type = 0;  // MSysObjects.Type with its top bits kept
  uint32_t flags = 0;
  RowId row;

  uint32_t tdefPage() const { return static_cast<uint32_t>(id) & 0x00FFFFFF; }
  bool operator==(const CatalogEntry&) const = default;
  bool isTable() const { return (type & 0x7F) == objtype::kTable; }
  bool isSystemTable() const { return isTable() && (flags & kObjectSystemFlags); }
  bool isUserTable() const { return isTable() && !(flags & kObjectSystemFlags); }
};

struct IndexEntry {
  std::vector<uint8_t> key;  // the entry bytes without the row pointer
  RowId row;
};

// One page of an index as stored: its links and its entries, prefixes
// already restored.
struct IndexPage {
  uint32_t number = 0;
  bool leaf = false;
  uint32_t prev = 0, next = 0, tail = 0;
  uint16_t prefixLength = 0;
  uint16_t freeSpace = 0;
  struct Entry {
    std::vector<uint8_t> key;
    RowId row;
    uint32_t child = 0;  // node pages only
  };
  std::vector<Entry> entries;
};

class Database {
 public:
  static std::unique_ptr<Database> open(std::unique_ptr<PageStore> store);
  static std::unique_ptr<Database> openFile(const std::string& path, bool writable = false);
  ~Database();

  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const std::string& fileName() const { return store_->name(); }
  const Format& format() const { return *fmt_; }
  const HeaderInfo& header() const { return header_; }
  uint32_t pageCount() const { return pageCount_; }
  PageStore& store() { return *store_; }

  // A whole page; throws if `n` is past the end of the file.
  Bytes page(uint32_t n);
  // Pages kept in memory besides the changed ones, which always stay.
  size_t cacheLimit() const { return cacheLimit_; }
  void setCacheLimit(size_t pages) { cacheLimit_ = std::max<size_t>(pages, 64); }
  size_t residentPages() const { return lru_.size(); }

  // Every row of MSysObjects, in storage order.
  const std::vector<CatalogEntry>& catalog();
  // User tables in catalog order (what `mdb-tables` lists).
  std::vector<std::string> userTableNames();
  // Finds a table (user or system) by name, ignoring case. kNotFound if none.
  const TableDef& table(std::string_view name);
  const TableDef& tableAtPage(uint32_t tdefPage, const std::string& name);

  // Pages marked in the usage map stored at the packed row id, ascending.
  std::vector<uint32_t> usageMapPages(uint32_t packedRowId);

  // Live rows of a table in storage order: data pages in owned-map order,
  // rows in slot order, deleted rows skipped. A row moved to an overflow slot
  // is listed where it is stored, under the id of the slot that points to it
  // (the id its index entries carry). `fn` returns false to stop.
  void scanRows(const TableDef& t, const std::function<bool(RowId, Bytes)>& fn);

  // The bytes of the row at `id` after following an overflow pointer, or
  // nullopt if the slot is deleted.
  std::optional<Bytes> rowData(RowId id);

  // Decodes a row's columns, in TableDef::columns order: every one, or
  // those `wanted` flags, the others left Null.
  std::vector<Value> decodeRow(const TableDef& t, Bytes row, const std::vector<bool>& wanted = {});
  Value decodeColumn(const TableDef& t, const ColumnDef& c, Bytes row);

  // All rows of a table decoded (every column, or those `wanted` flags).
  std::vector<std::vector<Value>> readAll(const TableDef& t, const std::vector<bool>& wanted = {});

  IndexPage readIndexPage(uint32_t n);
  // The rows whose entries in the index hold exactly `key` (as
  // encodeIndexKey builds it), found by descending the tree.
  std::vector<RowId> indexLookup(const TableDef& t, const RealIndex& ri,
                                 const std::vector<uint8_t>& key);
  // The rows whose entries hold keys from `low` to `high`, both included (a
  // null bound leaves that end open), in index order.
  std::vector<RowId> indexRange(const TableDef& t, const RealIndex& ri,
                                const std::vector<uint8_t>* low, const std::vector<uint8_t>* high);
  // Every entry of an index, in stored (key) order.
  std::vector<IndexEntry> readIndex(const RealIndex& index);

  // ---- Writing (Jet 4 files opened writable) ----
  //
  // Changes go to pages held in memory; flush() commits them to the store
  // (through the rollback journal for a file, jet/journal.h) and does nothing
  // when nothing changed. Each row operation either completes or leaves every
  // page as it was, and savepoints let a caller undo a whole series of
  // operations. Nothing is written to the store before flush(), so a failed
  // or abandoned session leaves the file as it was.

  // Why this engine will not write to the table (another sort order, an
  // index it cannot keep, a read-only or Jet 3 file), or "" if it will.
  std::string whyNotWritable(const TableDef& t);

  // The rules of each column (Required, AllowZeroLength, DefaultValue), in
  // TableDef::columns order, from the table's properties in the catalog.
  const std::vector<ColumnRules>& columnRules(const TableDef& t);
  // A new row as Jet starts it: each column's literal DefaultValue, Null
  // elsewhere (AutoNumber columns too: insertRow() numbers them).
  std::vector<Value> defaultRow(const TableDef& t);

  // Row values in TableDef::columns order. AutoNumber columns left Null get
  // the next number. Returns the new row's id. Raises error 3022's JetError
  // (kind kDuplicate) if a unique index would hold the key twice; Jet's
  // numbered errors for a Null in a Required column (3314), "" where
  // AllowZeroLength is off (3315) and, on update, a changed AutoNumber
  // (3164); kInvalid if a value does not fit its column. Nothing is changed
  // then.
  RowId insertRow(const TableDef& t, std::vector<Value> values);
  void updateRow(const TableDef& t, RowId id, std::vector<Value> values);
  void deleteRow(const TableDef& t, RowId id);
  // Consumes and returns the table's next AutoNumber value.
  int32_t takeAutoNumber(const TableDef& t);

  size_t savepoint();
  void rollbackTo(size_t savepoint);  // undoes everything since, and closes it
  void release(size_t savepoint);     // keeps the changes, closes it
  size_t openSavepoints() const { return frames_.size(); }

  bool hasUnflushedChanges() const { return !dirty_.empty(); }
  // Writes every changed page and syncs. Not allowed inside a savepoint.
  void flush();

  // Page-level tools for the writer's parts.
  uint8_t* mutablePage(uint32_t n);
  uint32_t allocatePage();
  // Clears a page no structure refers to any more and marks it free.
  void freePage(uint32_t n);
  // Whether the global page map counts the page as free (pages past the
  // map's reach count as free).
  bool pageIsFree(uint32_t n);
  void addToUsageMap(uint32_t packedRowId, uint32_t page);
  void removeFromUsageMap(uint32_t packedRowId, uint32_t page);
  // Replaces the bytes of a slot on a data page, moving the other rows as
  // needed; false if the page lacks the room.
  bool rewriteSlot(uint32_t page, unsigned row, Bytes bytes, uint16_t flags);
  // Appends a slot to a data page; returns its number, or -1 if it lacks room.
  int appendSlot(uint32_t page, Bytes bytes, uint16_t flags);
  // Puts a row on a data page, in a new slot, or in the first deleted slot
  // (rows of deleted slots are dead: nothing refers to them) when the page
  // has no room for another; returns its number, or -1 if it lacks the room.
  int placeRow(uint32_t page, Bytes bytes, uint16_t flags);
  TableDef& mutableTable(const TableDef& t);
  // The catalog and its system tables are written only while creating
  // databases and tables.
  void allowSystemTableWrites(bool allow) { systemWrites_ = allow, writableVerdict_.clear(); }
  // Forgets the cached catalog after objects were added.
  void refreshCatalog() { catalog_.reset(); }

 private:
  struct Frame {
    std::map<uint32_t, std::unique_ptr<uint8_t[]>> originals;  // null: allocated inside
    uint32_t pageCount = 0;
  };
  void reloadTables();
  void markGlobal(uint32_t page, bool isFree);
  // A type-5 page at the end of the file for stretch `stretch` of the
  // global reference map: pages before the file's end in use, the rest free.
  void appendMapPage(uint64_t stretch);
  // Turns an inline global map that page 1 cannot hold any longer into a
  // reference map, keeping which pages are free.
  void globalMapToReferences();
  // Rewrites a data page with row `row` (none if -1) replaced, deleted rows'
  // bytes given back and the rest packed from the page end.
  bool repack(uint32_t page, int row, Bytes bytes, uint16_t flags);
  // What a data page can take: the bytes of one more row in a new slot
  // (its offset counted) and in its first deleted slot, if any; `empty`
  // when no slot is live.
  struct PageRoom {
    size_t inNewSlot = 0, inDeadSlot = 0;
    int deadSlot = -1;
    bool empty = true;
    size_t most() const { return std::max(inNewSlot, inDeadSlot); }
  };
  PageRoom roomOn(uint32_t page);
  std::string globalMapProblem();
  std::unique_ptr<uint8_t[]> takeBuffer();
  void recycle(Frame& f);
  void requireWritable(const TableDef& t);
  void checkColumnRules(const TableDef& t, const std::vector<Value>& values);
  void writeTableHeader(const TableDef& t);
  // Writes a 32-bit value at byte `at` of a definition's joined bytes, on
  // whichever of its pages that lies, and in the cached bytes.
  void putTableU32(TableDef& t, size_t at, uint32_t v);
  void countUniqueEntries(const TableDef& t, const RealIndex& ri, int64_t change);
  uint32_t newDataPage(uint32_t owner);
  // A data page of the table where a row of `rowSize` bytes fits, other
  // than `avoid`; a new one if none.
  uint32_t dataPageWithRoom(const TableDef& t, size_t rowSize, uint32_t avoid = 0);
  // After rows left a data page: a page left with none goes back to the file
  // (and out of the maps, 0 for none), any other joins the free-space map.
  void rowsLeft(uint32_t page, uint32_t ownedMap, uint32_t freeSpaceMap);
  std::vector<uint8_t> encodeRowFor(const TableDef& t, const std::vector<Value>& values);
  std::vector<uint8_t> writeLongValue(const TableDef& t, const ColumnDef& c, Bytes data,
                                      size_t roomInRow);
  void freeLongValues(const TableDef& t, Bytes row);
  void indexInsert(const TableDef& t, const RealIndex& ri, std::vector<uint8_t> key, RowId id);
  void indexRemove(const TableDef& t, const RealIndex& ri, const std::vector<uint8_t>& key,
                   RowId id);
  bool indexContainsKey(const TableDef& t, const RealIndex& ri, const std::vector<uint8_t>& key,
                        RowId except);
  // Fills an empty index with entries in key order, pages full.
  void indexFill(const TableDef& t, const RealIndex& ri, std::vector<IndexEntry> sorted);
  friend class Compactor;
  explicit Database(std::unique_ptr<PageStore> store);
  void readHeader();
  std::vector<uint8_t> loadTableDefBytes(uint32_t page, std::vector<uint32_t>& pages);
  // Slot bounds on a data page: [start, end) with the raw offset flags.
  struct Slot {
    uint16_t raw;
    uint32_t start, end;
  };
  Slot slot(Bytes pg, uint32_t pageNo, unsigned row);
  std::vector<uint8_t> readLongValue(Bytes header, uint32_t pageNo);
  Value decodeWith(const TableDef& t, const ColumnDef& c, Bytes row, const RowLayout& l);
  template <typename F>
  auto guarded(F&& f) -> decltype(f());

  std::unique_ptr<PageStore> store_;
  const Format* fmt_ = nullptr;
  HeaderInfo header_;
  uint32_t pageCount_ = 0;
  // The page cache (jet/page_cache.cpp): pages_[n] is page n's buffer while
  // it is in memory. Buffers are owned by arena_ and reused through
  // freeBuffers_. lru_ lists the pages in memory, the last used first;
  // changed pages are never dropped.
  // A fresh vector of these is zeroed memory the system hands over untouched,
  // so a large file's slots cost only the ones used. Slots past a shrunken
  // size keep what they held: grow the vector by push_back only.
  template <typename T>
  struct ZeroedAllocator {
    using value_type = T;
    ZeroedAllocator() = default;
    template <typename U>
    ZeroedAllocator(const ZeroedAllocator<U>&) {}
    static constexpr size_t kMapped = 65536;  // bytes from which the system's own pages serve
    T* allocate(size_t n) {
      if (n * sizeof(T) >= kMapped) {
        void* p = ::mmap(nullptr, n * sizeof(T), PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p != MAP_FAILED) return static_cast<T*>(p);
      } else if (void* p = std::calloc(n, sizeof(T))) {
        return static_cast<T*>(p);
      }
      throw std::bad_alloc();
    }
    void deallocate(T* p, size_t n) {
      if (n * sizeof(T) >= kMapped)
        ::munmap(p, n * sizeof(T));
      else
        std::free(p);
    }
    template <typename U>
    void construct(U*) noexcept {}
    template <typename U, typename... A>
    void construct(U* p, A&&... a) {
      ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
    }
    bool operator==(const ZeroedAllocator&) const { return true; }
  };
  std::vector<uint8_t*, ZeroedAllocator<uint8_t*>> pages_;
  std::vector<std::unique_ptr<uint8_t[]>> arena_;
  std::vector<uint8_t*> freeBuffers_;
  std::list<uint32_t> lru_;
  std::unordered_map<uint32_t, std::list<uint32_t>::iterator> lruAt_;
  size_t cacheLimit_ = 1024;
  uint32_t lastMiss_ = 0;  // the page the last read from the file ended before
  uint32_t readAhead_ = 1;  // pages the next read that follows on from the last takes
  std::vector<uint8_t> readBuffer_;
  uint8_t* newPageBuffer();
  void touch(uint32_t n);
  template <typename F>
  void forEachIndexEntry(uint32_t n, Bytes pg, bool leaf, size_t prefixLength, F&& f);
  void makeRoom(size_t pages);
  std::optional<std::vector<CatalogEntry>> catalog_;
  std::map<uint32_t, std::unique_ptr<TableDef>> tables_;
  std::vector<Frame> frames_;
  std::vector<std::unique_ptr<uint8_t[]>> spare_;  // page buffers for undo images
  std::map<uint32_t, uint32_t> lastDataPage_;      // table -> page the last row went to
  std::map<uint64_t, uint32_t> lvalPage_;          // (table, column) -> page long values go to
  std::optional<std::set<uint32_t>> freePages_;    // free in the global map; see freePages()
  std::set<uint32_t>& freePages();
  std::map<uint32_t, std::string> writableVerdict_;     // table -> whyNotWritable()
  std::map<uint32_t, std::vector<ColumnRules>> rules_;  // table -> columnRules()
  std::unique_ptr<IndexNodeCache, IndexNodeCacheDeleter> indexCache_;
  bool systemWrites_ = false;
  std::set<uint32_t> dirty_;
  uint32_t lastRowPage_ = 0;  // page of the row last returned, for error messages
  // Long value bytes read during the current scan; see readLongValue().
  static constexpr uint64_t kNotScanning = ~uint64_t{0};
  uint64_t scanLongValueBytes_ = kNotScanning;
};

// Runs `f`, putting the file name in front of any JetError it raises.
template <typename F>
auto Database::guarded(F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (const JetError& e) {
    std::string msg = withFile(fileName(), e.what());
    if (msg == e.what()) throw;
    throw e.withMessage(msg);
  }
}

// Applies (or removes) the RC4 mask of the database header in place.
void maskHeader(std::span<uint8_t> headerPage, Version v);

}  // namespace jet
