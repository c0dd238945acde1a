#include "jet/check.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/row_layout.h"

namespace jet {
namespace {

// An order-free digest of a multiset of index entries: two sums of
// independent 64-bit hashes of (key, row).
struct Digest {
  uint64_t a = 0, b = 0;
  void add(const std::vector<uint8_t>& key, RowId row) {
    uint64_t h1 = 0xcbf29ce484222325ull, h2 = 0x84222325cbf29ce4ull;
    auto mix = [&](uint8_t byte) {
      h1 = (h1 ^ byte) * 0x100000001b3ull;
      h2 = (h2 + byte + 1) * 0x9e3779b97f4a7c15ull;
      h2 ^= h2 >> 29;
    };
    for (uint8_t byte : key) mix(byte);
    const uint32_t packed = row.pack();
    for (int i = 0; i < 4; ++i) mix(static_cast<uint8_t>(packed >> (8 * i)));
    mix(static_cast<uint8_t>(key.size()));
    a += h1;
    b += h2;
  }
  bool operator==(const Digest&) const = default;
};

class Checker {
 public:
  Checker(Database& db, bool exactCounts) : db_(db), fmt_(db.format()), exactCounts_(exactCounts) {}

  std::vector<std::string> run() {
    try {
      scanPages();
      for (const CatalogEntry& e : db_.catalog()) {
        if (!e.isTable()) continue;
        try {
          checkTable(db_.tableAtPage(e.tdefPage(), e.name), e.isUserTable());
        } catch (const JetError& err) {
          fault("table '" + e.name + "': " + err.what());
        }
      }
      checkGlobalMap();
    } catch (const JetError& err) {
      fault(err.what());
    }
    return faults_;
  }

 private:
  void fault(std::string s) {
    // The caller names the file; drop it where an engine error carries it.
    for (const std::string& prefix : {db_.fileName() + ": "}) {
      size_t at = s.find(prefix);
      while (at != std::string::npos) {
        s.erase(at, prefix.size());
        at = s.find(prefix);
      }
    }
    faults_.push_back(std::move(s));
  }

  bool isFree(uint32_t n) { return db_.pageIsFree(n); }

  void scanPages() {
    // A freed page keeps its old bytes; only pages in use count.
    for (uint32_t n = 0; n < db_.pageCount(); ++n) {
      Bytes pg = db_.page(n);
      if (pg[0] == page::kData && !isFree(n))
        dataPagesOf_[u32le(&pg[fmt_.dataTdefOffset])].insert(n);
    }
    used_.insert(0);
    used_.insert(1);
  }

  void checkDataPage(uint32_t n) {
    Bytes pg = db_.page(n);
    unsigned count = u16le(&pg[fmt_.dataRowCountOffset]);
    if (count > static_cast<unsigned>(fmt_.maxRowsPerPage)) {
      fault("page " + std::to_string(n) + ": " + std::to_string(count) + " rows");
      return;
    }
    size_t usedBytes = 0;
    uint32_t prev = fmt_.pageSize;
    for (unsigned r = 0; r < count; ++r) {
      uint16_t raw = u16le(&pg[fmt_.dataRowTableOffset + 2 * r]);
      uint32_t start = raw & kRowOffsetMask;
      if (start > prev || start < fmt_.dataRowTableOffset + 2 * count) {
        fault("page " + std::to_string(n) + ": row " + std::to_string(r) + " bounds " +
              std::to_string(start) + ".." + std::to_string(prev));
        return;
      }
      usedBytes += prev - start;
      prev = start;
    }
    size_t expect = fmt_.pageSize - fmt_.dataRowTableOffset - 2 * count - usedBytes;
    unsigned stored = u16le(&pg[fmt_.dataFreeSpaceOffset]);
    if (stored != expect)
      fault("page " + std::to_string(n) + ": free space " + std::to_string(stored) +
            ", rows leave " + std::to_string(expect));
  }

  std::set<uint32_t> mapPages(uint32_t packed) {
    if (packed == 0) return {};  // no map kept
    RowId at = RowId::unpack(packed);
    used_.insert(at.page);
    std::vector<uint32_t> pages = db_.usageMapPages(packed);
    // Reference maps live on pages of their own.
    Bytes pg = db_.page(at.page);
    uint16_t raw = u16le(&pg[fmt_.dataRowTableOffset + 2 * at.row]);
    uint32_t start = raw & kRowOffsetMask;
    if (pg[start] == kUsageMapReference) {
      uint32_t end = at.row == 0
                         ? fmt_.pageSize
                         : u16le(&pg[fmt_.dataRowTableOffset + 2 * (at.row - 1)]) & kRowOffsetMask;
      for (uint32_t p = start + 1; p + 4 <= end; p += 4)
        if (uint32_t m = u32le(&pg[p])) used_.insert(m);
    }
    return {pages.begin(), pages.end()};
  }

  void checkTable(const TableDef& t, bool user) {
    const std::string name = "table '" + t.name + "'";
    for (uint32_t p : t.pages) used_.insert(p);
    std::set<uint32_t> owned = mapPages(t.ownedPages);
    std::set<uint32_t> withSpace = mapPages(t.freeSpacePages);
    const std::set<uint32_t>& actual = dataPagesOf_[t.tdefPage];
    for (uint32_t p : owned)
      if (!actual.count(p))
        fault(name + ": owned-pages map lists page " + std::to_string(p) +
              ", which is not one of its data pages");
    for (uint32_t p : actual) {
      used_.insert(p);
      if (!owned.count(p))
        fault(name + ": data page " + std::to_string(p) + " is missing from its owned-pages map");
      checkDataPage(p);
    }
    for (uint32_t p : withSpace)
      if (!owned.count(p))
        fault(name + ": free-space map lists page " + std::to_string(p) +
              ", which it does not own");
    for (const ColumnUsageMaps& m : t.columnMaps) {
      for (uint32_t p : mapPages(m.ownedPages)) used_.insert(p);
      mapPages(m.freeSpacePages);
    }

    // One pass over the rows, holding none of them: each index's entries
    // are compared with the keys the rows make through a count and an
    // order-free digest of (key, row) pairs.
    std::vector<IndexTally> tallies(t.realIndexes.size());
    for (size_t k = 0; k < tallies.size(); ++k)
      tallies[k].encodable = canEncodeIndex(fmt_, t, t.realIndexes[k], nullptr);
    uint64_t rowCount = 0;
    db_.scanRows(t, [&](RowId id, Bytes row) {
      ++rowCount;
      try {
        std::vector<Value> values = db_.decodeRow(t, row);
        markLongValues(t, row);
        checkAutoNumbers(t, values, name);
        for (size_t k = 0; k < tallies.size(); ++k)
          tallyRow(t, t.realIndexes[k], tallies[k], id, values, name);
      } catch (const JetError& e) {
        fault(name + ": " + e.what());
      }
      return true;
    });
    if (user && rowCount != t.rowCount)
      fault(name + ": definition counts " + std::to_string(t.rowCount) + " rows, it holds " +
            std::to_string(rowCount));
    for (size_t k = 0; k < tallies.size(); ++k)
      checkIndex(t, t.realIndexes[k], tallies[k], rowCount);
  }

  // What the rows say an index must hold.
  struct IndexTally {
    bool encodable = true;
    bool failed = false;  // a row's key could not be made; reported already
    uint64_t count = 0;
    Digest digest;
    // Rows holding a character whose weights this engine has not learnt: a
    // limit of the key builder, not a fault of the file. Their entries are
    // only checked for being there (digested without their keys).
    std::set<RowId> unbuildable;
  };

  void checkAutoNumbers(const TableDef& t, const std::vector<Value>& v, const std::string& name) {
    for (size_t i = 0; i < t.columns.size(); ++i) {
      if (!t.columns[i].isAutoNumber() || t.columns[i].type != coltype::kLong) continue;
      if (auto p = std::get_if<int32_t>(&v[i]);
          p && *p > 0 && static_cast<uint32_t>(*p) > t.nextAutoNumber)
        fault(name + ": AutoNumber " + std::to_string(*p) + " in column '" + t.columns[i].name +
              "' is past the counter " + std::to_string(t.nextAutoNumber));
    }
  }

  void tallyRow(const TableDef& t, const RealIndex& ri, IndexTally& tally, RowId id,
                const std::vector<Value>& values, const std::string& name) {
    if (!tally.encodable || tally.failed) return;
    bool allNull = true;
    for (const IndexColumn& ic : ri.columns) allNull &= isNull(values[ic.column]);
    if (allNull && ri.ignoreNulls()) return;
    try {
      tally.digest.add(encodeIndexKey(fmt_, t, ri, values), id);
    } catch (const JetError& e) {
      if (e.kind() != JetError::Kind::kUnsupported) {
        fault(name + " index " + std::to_string(ri.number) + indexName(t, ri) + ": " + e.what());
        tally.failed = true;
        return;
      }
      tally.unbuildable.insert(id);
      tally.digest.add({}, id);
    }
    ++tally.count;
  }

  void markLongValues(const TableDef& t, Bytes row) {
    RowLayout l = RowLayout::of(fmt_, t, row, 0);
    for (const ColumnDef& c : t.columns) {
      if (!c.isLongValue() || !l.present(c)) continue;
      Bytes h = l.bytesOf(fmt_, c, row, 0);
      if (h.size() < static_cast<size_t>(kLongValueHeaderSize)) continue;
      uint32_t word = u32le(h.data());
      if (word & kLvalInline) continue;
      RowId at = RowId::unpack(u32le(h.data() + 4));
      std::set<uint32_t> seen;
      while (at.page != 0 && seen.insert(at.pack()).second) {
        used_.insert(at.page);
        if (word & kLvalSinglePage) break;
        std::optional<Bytes> link = rawSlot(at);
        if (!link || link->size() < 4) break;
        at = RowId::unpack(u32le(link->data()));
      }
    }
  }

  std::optional<Bytes> rawSlot(RowId at) {
    Bytes pg = db_.page(at.page);
    unsigned count = u16le(&pg[fmt_.dataRowCountOffset]);
    if (at.row >= count) return std::nullopt;
    uint32_t start = u16le(&pg[fmt_.dataRowTableOffset + 2 * at.row]) & kRowOffsetMask;
    uint32_t end = at.row == 0
                       ? fmt_.pageSize
                       : u16le(&pg[fmt_.dataRowTableOffset + 2 * (at.row - 1)]) & kRowOffsetMask;
    if (start > end || end > fmt_.pageSize) return std::nullopt;
    return pg.subspan(start, end - start);
  }

  void checkIndex(const TableDef& t, const RealIndex& ri, const IndexTally& tally,
                  uint64_t rowCount) {
    const std::string name =
        "table '" + t.name + "' index " + std::to_string(ri.number) + indexName(t, ri);
    std::set<uint32_t> owned = mapPages(ri.usageMap);
    std::set<uint32_t> tree;
    // Leaves are taken one at a time, in key order.
    uint32_t lastLeaf = 0, lastLeafNext = 0;
    bool anyLeaf = false, disordered = false;
    IndexEntry last;
    uint64_t stored = 0, distinct = 0;
    Digest digest;
    auto takeLeaf = [&](IndexPage& ip) {
      if (ip.prev != lastLeaf || (anyLeaf && lastLeafNext != ip.number))
        fault(name + ": leaf " + std::to_string(anyLeaf ? lastLeaf : ip.number) +
              " is not linked to its neighbour " + std::to_string(ip.number));
      anyLeaf = true;
      lastLeaf = ip.number;
      lastLeafNext = ip.next;
      for (auto& e : ip.entries) {
        if (stored > 0 && !disordered) {
          if (!(last.key < e.key || (last.key == e.key && last.row < e.row))) {
            fault(name + ": entries out of order at entry " + std::to_string(stored));
            disordered = true;
          } else if (ri.unique() && last.key == e.key && !allNull(t, ri, last.row)) {
            fault(name + ": unique index holds a key twice (rows at page " +
                  std::to_string(last.row.page) + " and page " + std::to_string(e.row.page) + ")");
          }
        }
        if (stored == 0 || last.key != e.key) ++distinct;
        digest.add(tally.unbuildable.count(e.row) ? std::vector<uint8_t>() : e.key, e.row);
        ++stored;
        last = {std::move(e.key), e.row};
      }
    };
    // A node's entry for a child is at least the child's greatest entry and
    // above everything under the children before it: a seek follows the
    // first entry not below what it looks for. Each visit returns the least
    // and the greatest entry under the page.
    using Span = std::optional<std::pair<IndexEntry, IndexEntry>>;
    auto below = [](const auto& a, const auto& b) {
      return a.key < b.key || (a.key == b.key && a.row < b.row);
    };
    bool misrouted = false;
    std::function<Span(uint32_t, int)> visit = [&](uint32_t n, int depth) -> Span {
      if (depth > 32 || !tree.insert(n).second) {
        fault(name + ": page " + std::to_string(n) + " reached twice or too deep");
        return std::nullopt;
      }
      IndexPage ip = db_.readIndexPage(n);
      if (u32le(&db_.page(n)[fmt_.indexParentOffset]) != t.tdefPage)
        fault(name + ": page " + std::to_string(n) + " names another table");
      size_t bytes = 0;
      for (size_t i = 0; i < ip.entries.size(); ++i)
        bytes += ip.entries[i].key.size() + (ip.leaf ? 4 : 8) - (i ? ip.prefixLength : 0);
      size_t area = fmt_.pageSize - fmt_.indexEntryMaskOffset - fmt_.indexEntryMaskSize;
      if (ip.freeSpace != area - bytes)
        fault(name + ": page " + std::to_string(n) + " free space " + std::to_string(ip.freeSpace) +
              ", entries leave " + std::to_string(area - bytes));
      if (ip.leaf) {
        Span span;
        if (!ip.entries.empty())
          span.emplace(IndexEntry{ip.entries.front().key, ip.entries.front().row},
                       IndexEntry{ip.entries.back().key, ip.entries.back().row});
        takeLeaf(ip);
        return span;
      }
      Span whole;
      const IndexPage::Entry* bound = nullptr;  // the entry of the child before
      auto take = [&](uint32_t child, const IndexPage::Entry* entry) {
        Span under = visit(child, depth + 1);
        if (!under) return;
        if (!misrouted && ((entry && below(*entry, under->second)) ||
                           (bound && !below(*bound, under->first)))) {
          fault(name + ": node page " + std::to_string(n) + " does not bound the entries of page " +
                std::to_string(child));
          misrouted = true;
        }
        if (!whole) whole.emplace(under->first, under->second);
        whole->second = under->second;
      };
      for (size_t i = 0; i < ip.entries.size(); ++i) {
        // A node's last entry is the tail when the tail names its child.
        const bool isTail = i + 1 == ip.entries.size() && ip.entries[i].child == ip.tail;
        take(ip.entries[i].child, isTail ? nullptr : &ip.entries[i]);
        bound = &ip.entries[i];
      }
      if (ip.tail && (ip.entries.empty() || ip.entries.back().child != ip.tail))
        take(ip.tail, nullptr);
      return whole;
    };
    if (ri.rootPage) visit(ri.rootPage, 0);
    if (anyLeaf && lastLeafNext != 0)
      fault(name + ": last leaf " + std::to_string(lastLeaf) + " links on to " +
            std::to_string(lastLeafNext));
    for (uint32_t p : tree) used_.insert(p);
    if (owned != tree && !(tree.size() == 1 && owned.empty()))
      fault(name + ": usage map lists " + std::to_string(owned.size()) + " pages, the tree has " +
            std::to_string(tree.size()));

    if (exactCounts_ && distinct != ri.uniqueEntryCount)
      fault(name + ": unique-entry count " + std::to_string(ri.uniqueEntryCount) +
            ", the index holds " + std::to_string(distinct) + " distinct keys");
    if (!tally.encodable) {
      if (!ri.ignoreNulls() && stored != rowCount)
        fault(name + ": holds " + std::to_string(stored) + " entries for " +
              std::to_string(rowCount) + " rows");
      return;
    }
    if (tally.failed) return;
    if (tally.count != stored)
      fault(name + ": holds " + std::to_string(stored) + " entries, the rows make " +
            std::to_string(tally.count));
    else if (!(tally.digest == digest))
      fault(name + ": its entries differ from the keys its rows make");
  }

  // Rows whose key columns are all Null may share a unique index's key.
  bool allNull(const TableDef& t, const RealIndex& ri, RowId id) {
    std::optional<Bytes> row = db_.rowData(id);
    if (!row) return false;
    for (const IndexColumn& ic : ri.columns)
      if (!isNull(db_.decodeColumn(t, t.columns[ic.column], *row))) return false;
    return true;
  }

  static std::string indexName(const TableDef& t, const RealIndex& ri) {
    for (const LogicalIndex& li : t.indexes)
      if (li.realIndex == ri.number) return " ('" + li.name + "')";
    return "";
  }

  void checkGlobalMap() {
    for (uint32_t n : used_)
      if (isFree(n))
        fault("page " + std::to_string(n) + " is in use but marked free in the global page map");
  }

  Database& db_;
  const Format& fmt_;
  const bool exactCounts_;
  std::map<uint32_t, std::set<uint32_t>> dataPagesOf_;
  std::set<uint32_t> used_;
  std::vector<std::string> faults_;
};

}  // namespace

std::vector<std::string> checkDatabase(Database& db, bool exactCounts) {
  return Checker(db, exactCounts).run();
}

}  // namespace jet
