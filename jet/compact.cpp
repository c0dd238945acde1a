#include "jet/compact.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <unordered_map>

#include "jet/create.h"
#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/row_layout.h"

namespace jet {

// Reaches into both databases' writer internals; see compactDatabase().
class Compactor {
 public:
  static std::unique_ptr<Database> compact(Database& from, std::unique_ptr<PageStore> out) {
    // Pages 0 and 1 as they are: all the new file needs to be opened.
    out->write(0, from.page(0));
    out->write(from.format().pageSize, from.page(1));
    std::unique_ptr<Database> to = Database::open(std::move(out));
    from.guarded([&] { Compactor(from, *to).run(); });
    return to;
  }

 private:
  Compactor(Database& from, Database& to) : from_(from), to_(to), fmt_(from.format()) {}

  // A damaged file is refused, not compacted into a smaller one that reads
  // well: what a reader passes over would be gone for good.
  void run() {
    if (const uint64_t size = from_.store().size(); size % fmt_.pageSize)
      throwCorrupt(static_cast<uint32_t>(size / fmt_.pageSize),
                   "the file ends part-way through the page");
    for (const CatalogEntry& e : from_.catalog())
      if (e.isTable() && !tables_.count(e.tdefPage()))
        tables_.emplace(e.tdefPage(), Table{e.name, e.id, e.isSystemTable(), e.tdefPage()});
    if (!tables_.count(kCatalogTdefPage))
      throwCorrupt(kCatalogTdefPage, "the catalog does not list itself");
    layOutDefinitions();
    for (auto& [page, table] : tables_) attachNewStorage(table);
    // The definitions changed under the cached ones: parse them again.
    to_.reloadTables();
    for (auto& [page, table] : tables_) copyTable(page, table);
  }

  struct Table {
    std::string name;
    int32_t id = 0;
    bool system = false;
    uint32_t page = 0;  // of its definition in the new file
  };

  // The global map starts over. System tables' definitions keep their pages
  // (the engine finds the catalog on page 2); the pages up to the last of
  // them come into being and the others are free, to be taken lowest first:
  // by the user tables' definitions, which move to the front as Jet's
  // compaction moves them, and then by everything else.
  void layOutDefinitions() {
    std::set<uint32_t> pinned;
    for (const auto& [page, table] : tables_)
      if (table.system)
        for (uint32_t p : from_.tableAtPage(page, table.name).pages) pinned.insert(p);
    std::vector<uint8_t> map(5 + fmt_.usageMapInlineSize, 0xFF);
    map[0] = kUsageMapInline;
    std::fill(map.begin() + 1, map.begin() + 5, 0);
    map[5] = 0xFC;  // pages 0 and 1 in use
    if (!to_.rewriteSlot(1, 0, map, 0)) throwCorrupt(1, "no room for the global page map");
    const uint32_t last = pinned.empty() ? 1 : *pinned.rbegin();
    std::vector<uint32_t> spare;
    for (uint32_t p = 2; p <= last; ++p) {
      if (to_.allocatePage() != p) throwCorrupt(p, "page allocated out of order");
      if (pinned.count(p)) {
        std::memcpy(to_.mutablePage(p), from_.page(p).data(), fmt_.pageSize);
      } else {
        spare.push_back(p);
      }
    }
    for (uint32_t p : spare) to_.freePage(p);
    for (auto& [page, table] : tables_) {
      if (table.system) continue;
      uint32_t prev = 0;
      for (uint32_t p : from_.tableAtPage(page, table.name).pages) {
        uint32_t n = to_.allocatePage();
        std::memcpy(to_.mutablePage(n), from_.page(p).data(), fmt_.pageSize);
        put32le(to_.mutablePage(n) + fmt_.tdefNextPageOffset, 0);
        if (prev) put32le(to_.mutablePage(prev) + fmt_.tdefNextPageOffset, n);
        if (!prev) table.page = n;
        prev = n;
      }
      // A table's id is its definition's page.
      newIds_[table.id] =
          static_cast<int32_t>((static_cast<uint32_t>(table.id) & 0xFF000000u) | table.page);
    }
  }

  // Gives a copied definition new, empty maps and index roots and no rows,
  // and names the moved definitions of the tables it relates to; the
  // counter and everything else stay as they were.
  void attachNewStorage(const Table& table) {
    TableDef& t = to_.mutableTable(to_.tableAtPage(table.page, table.name));
    to_.putTableU32(t, fmt_.tdefNumRowsOffset, 0);
    to_.putTableU32(t, fmt_.tdefOwnedPagesOffset, newUsageMapRow(to_));
    to_.putTableU32(t, fmt_.tdefFreeSpacePagesOffset, newUsageMapRow(to_));
    for (const ColumnUsageMaps& m : t.columnMaps) {
      to_.putTableU32(t, m.defOffset + 2, newUsageMapRow(to_));
      to_.putTableU32(t, m.defOffset + 6, newUsageMapRow(to_));
    }
    for (size_t k = 0; k < t.realIndexes.size(); ++k) {
      const size_t at =
          t.realIndexes[k].defOffset + fmt_.realIndexSkipBefore + 3 * kMaxIndexColumns;
      const uint32_t map = newUsageMapRow(to_), root = newIndexRoot(to_, table.page);
      to_.addToUsageMap(map, root);
      to_.putTableU32(t, fmt_.tdefHeaderSize + k * fmt_.realIndexCountSize + 4, 0);
      to_.putTableU32(t, at, map);
      to_.putTableU32(t, at + 4, root);
    }
    for (const LogicalIndex& li : t.indexes) {
      auto it = newIds_.find(static_cast<int32_t>(li.relatedTablePage));
      if (li.relatedTablePage && it != newIds_.end())
        to_.putTableU32(t, li.defOffset + fmt_.logicalIndexSkipBefore + 13,
                        static_cast<uint32_t>(it->second) & 0x00FFFFFF);
    }
  }

  // Where the system tables name objects by id (the catalog's own Id and
  // ParentId, the permissions' ObjectId): the columns whose moved tables'
  // ids are written anew.
  std::vector<size_t> idColumns(const Table& table, const TableDef& t) const {
    std::vector<size_t> out;
    if (!table.system || newIds_.empty()) return out;
    for (size_t i = 0; i < t.columns.size(); ++i)
      if (t.columns[i].type == coltype::kLong && t.columns[i].isFixed())
        for (const char* name : {"Id", "ParentId", "ObjectId"})
          if (sameName(t.columns[i].name, name)) out.push_back(i);
    return out;
  }

  void copyTable(uint32_t oldPage, const Table& table) {
    const TableDef& old = from_.tableAtPage(oldPage, table.name);
    const TableDef& t = to_.tableAtPage(table.page, table.name);
    const std::vector<size_t> ids = idColumns(table, t);
    std::unordered_map<uint32_t, RowId> moved;                 // packed old id -> new id
    std::unordered_map<uint32_t, std::vector<Value>> renamed;  // rows whose ids changed
    uint32_t pn = 0;  // the page being filled; only it has room
    from_.scanRows(old, [&](RowId id, Bytes body) {
      std::vector<uint8_t> row(body.begin(), body.end());
      moveLongValues(old, t, id, body, row);
      if (!ids.empty() && renumber(old, id, body, ids, row))
        renamed.emplace(id.pack(), to_.decodeRow(t, row));
      int r = pn ? to_.appendSlot(pn, row, 0) : -1;
      if (r < 0) {
        if (pn) to_.removeFromUsageMap(t.freeSpacePages, pn);
        pn = to_.newDataPage(table.page);
        to_.addToUsageMap(t.ownedPages, pn);
        to_.addToUsageMap(t.freeSpacePages, pn);
        r = to_.appendSlot(pn, row, 0);
      }
      if (r < 0)
        throwCorrupt(id.page, "row of " + std::to_string(row.size()) + " bytes fits no page");
      moved.emplace(id.pack(), RowId{pn, static_cast<uint8_t>(r)});
      return true;
    });
    // Access lets the counts of system tables drift, never those of others.
    if (!table.system && moved.size() != old.rowCount)
      throwCorrupt(oldPage, "table '" + table.name + "' holds " + std::to_string(moved.size()) +
                                " rows where its definition counts " +
                                std::to_string(old.rowCount));
    TableDef& mt = to_.mutableTable(t);
    mt.rowCount = static_cast<uint32_t>(moved.size());
    to_.writeTableHeader(mt);
    for (size_t k = 0; k < old.realIndexes.size(); ++k) {
      const RealIndex& ri = t.realIndexes[k];
      const bool keyed =
          std::any_of(ri.columns.begin(), ri.columns.end(), [&](const IndexColumn& ic) {
            return std::find(ids.begin(), ids.end(), ic.column) != ids.end();
          });
      std::vector<IndexEntry> entries = from_.readIndex(old.realIndexes[k]);
      for (IndexEntry& e : entries) {
        auto it = moved.find(e.row.pack());
        if (it == moved.end())
          throwCorrupt(old.realIndexes[k].rootPage, "index " + std::to_string(k) + " of table '" +
                                                        table.name + "' lists " + toString(e.row) +
                                                        ", which holds no row");
        if (auto r = renamed.find(e.row.pack()); keyed && r != renamed.end())
          e.key = encodeIndexKey(fmt_, t, ri, r->second);
        e.row = it->second;
      }
      std::sort(entries.begin(), entries.end(), [](const IndexEntry& a, const IndexEntry& b) {
        return a.key != b.key ? a.key < b.key : a.row < b.row;
      });
      to_.indexFill(t, ri, std::move(entries));
    }
  }

  // Writes moved tables' new ids into the row's id columns; whether any
  // changed.
  bool renumber(const TableDef& old, RowId id, Bytes body, const std::vector<size_t>& ids,
                std::vector<uint8_t>& row) {
    RowLayout l = RowLayout::of(fmt_, old, body, id.page);
    bool changed = false;
    for (size_t i : ids) {
      const ColumnDef& c = old.columns[i];
      const size_t at = fmt_.rowColumnCountSize + c.fixedOffset;
      if (!l.present(c) || at + 4 > row.size()) continue;
      auto it = newIds_.find(static_cast<int32_t>(u32le(&row[at])));
      if (it == newIds_.end() || it->first == it->second) continue;
      put32le(&row[at], static_cast<uint32_t>(it->second));
      changed = true;
    }
    return changed;
  }

  // Long values stored outside the row are written again in the new file
  // and the row's pointers set to where they went.
  void moveLongValues(const TableDef& old, const TableDef& t, RowId id, Bytes body,
                      std::vector<uint8_t>& row) {
    RowLayout l = RowLayout::of(fmt_, old, body, id.page);
    for (size_t i = 0; i < old.columns.size(); ++i) {
      const ColumnDef& c = old.columns[i];
      if (!c.isLongValue() || !l.present(c)) continue;
      Bytes h = l.bytesOf(fmt_, c, body, id.page);
      if (h.size() < static_cast<size_t>(kLongValueHeaderSize) || (u32le(h.data()) & kLvalInline))
        continue;
      std::vector<uint8_t> data = from_.readLongValue(h, id.page);
      std::vector<uint8_t> header = to_.writeLongValue(t, t.columns[i], data, 0);
      std::memcpy(row.data() + (h.data() - body.data()), header.data(), 8);
    }
  }

  Database& from_;
  Database& to_;
  const Format& fmt_;
  std::map<uint32_t, Table> tables_;   // by the definition's page in the old file
  std::map<int32_t, int32_t> newIds_;  // old id -> new id of each user table
};

std::unique_ptr<Database> compactDatabase(Database& db, std::unique_ptr<PageStore> out) {
  return Compactor::compact(db, std::move(out));
}

namespace {

[[noreturn]] void ioFail(const std::string& path, const std::string& what) {
  throw JetError(JetError::Kind::kIo, path + ": " + what + ": " + std::strerror(errno));
}

}  // namespace

void compactFile(const std::string& from, const std::string& to) {
  std::error_code ec;
  std::filesystem::path real = std::filesystem::canonical(to, ec);
  const std::string target = ec ? to : real.string();
  std::unique_ptr<Database> source = Database::openFile(from);
  struct stat st {};
  if (::stat(from.c_str(), &st) != 0) ioFail(from, "cannot read its mode");
  std::string tmp = target + ".compact-XXXXXX";
  int fd = ::mkstemp(tmp.data());
  if (fd < 0) ioFail(target, "cannot create a file beside it");
  ::fchmod(fd, st.st_mode & 07777);
  ::close(fd);
  try {
    try {
      std::unique_ptr<Database> out = compactDatabase(*source, openFileStore(tmp, true));
      out->flush();
    } catch (const JetError& e) {
      // Speak of the file being made, not of its temporary name.
      std::string msg = e.what();
      for (size_t at; (at = msg.find(tmp)) != std::string::npos;) msg.replace(at, tmp.size(), to);
      throw e.withMessage(msg);
    }
    if (::rename(tmp.c_str(), target.c_str()) != 0) ioFail(target, "cannot replace it");
  } catch (...) {
    ::unlink(tmp.c_str());
    throw;
  }
  std::string dir = std::filesystem::path(target).parent_path().string();
  int dfd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
}

}  // namespace jet
