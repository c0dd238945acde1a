// Index pages: the entry mask, prefix compression, and a walk of the whole
// tree in key order.
#include <cstring>
#include <functional>
#include <set>

#include "jet/database.h"
#include "jet/error.h"

namespace jet {
namespace {
constexpr int kMaxIndexDepth = 32;
}  // namespace

// Calls `f(key, pointer)` for each entry of index page `n` in order, with
// the entry's whole key (the page's shared prefix put back) and its 4-byte
// row pointer, followed on a node by the 4-byte child page; stops when `f`
// returns false. One scratch buffer serves every entry.
template <typename F>
void Database::forEachIndexEntry(uint32_t n, Bytes pg, bool leaf, size_t prefixLength, F&& f) {
  const size_t maskPos = fmt_->indexEntryMaskOffset;
  const size_t dataPos = maskPos + fmt_->indexEntryMaskSize;
  const size_t pointerSize = leaf ? 4 : 8;
  std::vector<uint8_t> full;
  size_t prefix = 0;
  size_t last = 0;
  bool first = true;
  // Shared prefixes expand entries; a page never legitimately expands to
  // more than a few pages' worth.
  size_t expanded = 0;
  const size_t maxExpanded = 16 * static_cast<size_t>(fmt_->pageSize);
  for (size_t i = 0; i < static_cast<size_t>(fmt_->indexEntryMaskSize); ++i) {
    uint8_t m = pg[maskPos + i];
    for (int b = 0; m && b < 8; ++b) {
      if (!(m & (1 << b))) continue;
      size_t end = i * 8 + b;
      if (dataPos + end > fmt_->pageSize)
        throwCorrupt(n,
                     "index entry ends at " + std::to_string(dataPos + end) + ", past end of page");
      if (end <= last) throwCorrupt(n, "empty index entry at " + std::to_string(dataPos + last));
      Bytes stored = pg.subspan(dataPos + last, end - last);
      if (first) {
        if (prefixLength > stored.size())
          throwCorrupt(n, "index prefix of " + std::to_string(prefixLength) +
                              " bytes is longer than the first entry");
        full.assign(stored.begin(), stored.end());
        prefix = prefixLength;
        first = false;
      } else {
        full.resize(prefix);
        full.insert(full.end(), stored.begin(), stored.end());
      }
      expanded += full.size();
      if (expanded > maxExpanded)
        throwCorrupt(n,
                     "index entries expand to more than " + std::to_string(maxExpanded) + " bytes");
      if (full.size() < pointerSize)
        throwCorrupt(n, "index entry of " + std::to_string(full.size()) +
                            " bytes has no room for its row pointer");
      const size_t keySize = full.size() - pointerSize;
      if (!f(Bytes(full.data(), keySize), Bytes(full.data() + keySize, pointerSize))) return;
      last = end;
    }
  }
}

IndexPage Database::readIndexPage(uint32_t n) {
  return guarded([&] {
    Bytes pg = page(n);
    IndexPage ip;
    ip.number = n;
    if (pg[0] != page::kIndexNode && pg[0] != page::kIndexLeaf)
      throwCorrupt(n, "expected an index page, found page type " + std::to_string(pg[0]));
    ip.leaf = pg[0] == page::kIndexLeaf;
    ip.freeSpace = u16le(&pg[fmt_->indexFreeSpaceOffset]);
    ip.prev = u32le(&pg[fmt_->indexPrevPageOffset]);
    ip.next = u32le(&pg[fmt_->indexNextPageOffset]);
    ip.tail = u32le(&pg[fmt_->indexTailPageOffset]);
    ip.prefixLength = fmt_->indexPrefixLengthSize == 1 ? pg[fmt_->indexPrefixLengthOffset]
                                                       : u16le(&pg[fmt_->indexPrefixLengthOffset]);
    forEachIndexEntry(n, pg, ip.leaf, ip.prefixLength, [&](Bytes key, Bytes ptr) {
      IndexPage::Entry e;
      e.key.assign(key.begin(), key.end());
      e.row = RowId{u24be(ptr.data()), ptr[3]};
      if (!ip.leaf) e.child = u32be(ptr.data() + 4);
      ip.entries.push_back(std::move(e));
      return true;
    });
    return ip;
  });
}

std::vector<RowId> Database::indexLookup(const TableDef& t, const RealIndex& ri,
                                         const std::vector<uint8_t>& key) {
  return indexRange(t, ri, &key, &key);
}

// Down one path of the tree to the first entry not below `low` (the first
// leaf without it), then along the leaves while entries are not above
// `high`, reading entries where they lie. A node's entry carries the
// greatest key of its child; keys past the last entry live under the node's
// tail page.
std::vector<RowId> Database::indexRange(const TableDef&, const RealIndex& ri,
                                        const std::vector<uint8_t>* low,
                                        const std::vector<uint8_t>* high) {
  return guarded([&] {
    std::vector<RowId> out;
    if (ri.rootPage == 0) return out;
    auto compare = [](Bytes k, const std::vector<uint8_t>& key) {
      const size_t common = std::min(k.size(), key.size());
      const int c = common ? std::memcmp(k.data(), key.data(), common) : 0;
      if (c != 0) return c;
      return k.size() < key.size() ? -1 : k.size() > key.size() ? 1 : 0;
    };
    auto prefixOf = [&](Bytes pg) -> size_t {
      return fmt_->indexPrefixLengthSize == 1 ? pg[fmt_->indexPrefixLengthOffset]
                                              : u16le(&pg[fmt_->indexPrefixLengthOffset]);
    };
    uint32_t n = ri.rootPage;
    for (int depth = 0;; ++depth) {
      if (depth > kMaxIndexDepth)
        throwCorrupt(n, "index tree deeper than " + std::to_string(kMaxIndexDepth) + " levels");
      Bytes pg = page(n);
      if (pg[0] == page::kIndexLeaf) break;
      if (pg[0] != page::kIndexNode)
        throwCorrupt(n, "expected an index page, found page type " + std::to_string(pg[0]));
      uint32_t child = 0, lastChild = 0;
      forEachIndexEntry(n, pg, false, prefixOf(pg), [&](Bytes k, Bytes ptr) {
        lastChild = u32be(ptr.data() + 4);
        if (low && compare(k, *low) < 0) return true;
        child = lastChild;
        return false;
      });
      if (child == 0) child = u32le(&pg[fmt_->indexTailPageOffset]);
      if (child == 0) child = lastChild;
      if (child == 0) throwCorrupt(n, "index node page without children");
      n = child;
    }
    std::set<uint32_t> seen;
    while (n != 0) {
      if (!seen.insert(n).second) throwCorrupt(n, "index leaves link back to an earlier one");
      Bytes pg = page(n);
      if (pg[0] != page::kIndexLeaf)
        throwCorrupt(n, "expected an index leaf, found page type " + std::to_string(pg[0]));
      bool past = false;
      forEachIndexEntry(n, pg, true, prefixOf(pg), [&](Bytes k, Bytes ptr) {
        if (low && compare(k, *low) < 0) return true;
        if (high && compare(k, *high) > 0) {
          past = true;
          return false;
        }
        out.push_back(RowId{u24be(ptr.data()), ptr[3]});
        return true;
      });
      if (past) break;
      n = u32le(&pg[fmt_->indexNextPageOffset]);
    }
    return out;
  });
}

std::vector<IndexEntry> Database::readIndex(const RealIndex& index) {
  return guarded([&] {
    std::vector<IndexEntry> out;
    std::set<uint32_t> seen;
    // Depth-first: each node entry's child, then the node's tail page, which
    // holds the entries past the node's last key.
    std::function<void(uint32_t, int)> visit = [&](uint32_t n, int depth) {
      if (depth > kMaxIndexDepth)
        throwCorrupt(n, "index tree deeper than " + std::to_string(kMaxIndexDepth) + " levels");
      if (!seen.insert(n).second) throwCorrupt(n, "index page reached twice (a loop in the tree)");
      IndexPage ip = readIndexPage(n);
      if (ip.leaf) {
        for (auto& e : ip.entries) out.push_back({std::move(e.key), e.row});
        return;
      }
      for (const auto& e : ip.entries) visit(e.child, depth + 1);
      if (ip.tail != 0 && (ip.entries.empty() || ip.entries.back().child != ip.tail))
        visit(ip.tail, depth + 1);
    };
    if (index.rootPage != 0) visit(index.rootPage, 0);
    return out;
  });
}

}  // namespace jet
