// Keeping an index's B-tree exact as rows come and go.
//
// The tree as Jet stores it: leaf pages hold (key, row) entries in order and
// are chained to their neighbours; a node page holds, for each child but the
// last, the child's greatest entry and the child's page, and names its last
// child in the tail pointer. A node with a single child keeps it as an
// ordinary entry. The root page never moves: when it splits, its contents
// move to two new pages below it.
//
// In memory a node lists every child with its greatest entry, the tail
// included; encoding decides which child becomes the tail. The last child's
// greatest entry is stored nowhere (or, for a lone child, may be out of
// date), so it is worked out only when asked for: finding it means reading
// down to the subtree's last leaf, which an insert elsewhere never needs.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "jet/bytes.h"
#include "jet/database.h"
#include "jet/error.h"

namespace jet {
namespace {

struct Entry {
  std::vector<uint8_t> key;
  RowId row;
  uint32_t child = 0;     // nodes only
  bool pending = false;  // a node's last child, whose greatest entry is not worked out yet
};

bool less(const std::vector<uint8_t>& ak, RowId ar, const std::vector<uint8_t>& bk, RowId br) {
  int c = 0;
  size_t n = std::min(ak.size(), bk.size());
  if (n) c = std::memcmp(ak.data(), bk.data(), n);
  if (c != 0) return c < 0;
  if (ak.size() != bk.size()) return ak.size() < bk.size();
  return ar < br;
}
bool less(const Entry& a, const Entry& b) { return less(a.key, a.row, b.key, b.row); }

struct Node {
  uint32_t number = 0;
  bool leaf = true;
  uint32_t prev = 0, next = 0;
  std::vector<Entry> entries;  // for nodes: every child, the last one included
  bool changed = false;
};

}  // namespace

// Decoded index pages kept between operations, so that a run of inserts
// decodes each page once. Emptied whenever pages roll back.
struct IndexNodeCache {
  std::map<uint32_t, Node> nodes;
};

void IndexNodeCacheDeleter::operator()(IndexNodeCache* c) const { delete c; }

namespace {

size_t commonPrefix(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  size_t n = std::min(a.size(), b.size()), i = 0;
  while (i < n && a[i] == b[i]) ++i;
  return i;
}

class Editor {
 public:
  Editor(Database& db, std::map<uint32_t, Node>& cache, const TableDef& t, const RealIndex& ri)
      : db_(db),
        fmt_(db.format()),
        t_(t),
        ri_(ri),
        capacity_(fmt_.pageSize - fmt_.indexEntryMaskOffset - fmt_.indexEntryMaskSize),
        nodes_(cache) {}

  // Returns whether no other entry holds the key.
  bool insert(Entry e) {
    std::vector<std::pair<uint32_t, size_t>> path;
    uint32_t n = ri_.rootPage;
    while (true) {
      Node& node = load(n);
      if (node.leaf) break;
      size_t i = childFor(node, e);
      path.emplace_back(n, i);
      n = node.entries[i].child;
    }
    Node& leaf = load(n);
    auto pos = std::upper_bound(leaf.entries.begin(), leaf.entries.end(), e,
                                [](const Entry& a, const Entry& b) { return less(a, b); });
    size_t at = static_cast<size_t>(pos - leaf.entries.begin());
    leaf.entries.insert(pos, std::move(e));
    const bool newKey = !sharesKeyWithNeighbour(n, at);
    appended_ = at + 1 == leaf.entries.size() && leaf.next == 0;
    if (leaf.changed || !patchInsert(leaf, at)) leaf.changed = true;
    settle(n, path);
    return newKey;
  }

  // Returns whether the key went with the entry (no other entry holds it).
  bool remove(const std::vector<uint8_t>& key, RowId row) {
    Entry probe{key, row, 0};
    std::vector<std::pair<uint32_t, size_t>> path;
    uint32_t n = ri_.rootPage;
    while (true) {
      Node& node = load(n);
      if (node.leaf) break;
      size_t i = childFor(node, probe);
      path.emplace_back(n, i);
      n = node.entries[i].child;
    }
    Node& leaf = load(n);
    auto it = std::find_if(leaf.entries.begin(), leaf.entries.end(),
                           [&](const Entry& x) { return x.row == row && x.key == key; });
    if (it == leaf.entries.end())
      throwCorrupt(n, "index " + std::to_string(ri_.number) + " of table '" + t_.name +
                          "' lacks the entry of page " + std::to_string(row.page) + " row " +
                          std::to_string(row.row));
    const bool lastOfKey =
        !sharesKeyWithNeighbour(n, static_cast<size_t>(it - leaf.entries.begin()));
    leaf.entries.erase(it);
    leaf.changed = true;
    appended_ = false;
    settle(n, path);
    return lastOfKey;
  }

  // Whether an entry with this key exists for a row other than `except`.
  bool containsKey(const std::vector<uint8_t>& key, RowId except) {
    Entry probe{key, RowId{0, 0}, 0};
    uint32_t n = ri_.rootPage;
    while (!load(n).leaf) {
      Node& node = load(n);
      n = node.entries[childFor(node, probe)].child;
    }
    std::set<uint32_t> seen;
    while (n != 0 && seen.insert(n).second) {
      Node& leaf = load(n);
      for (const Entry& x : leaf.entries) {
        if (less(x.key, x.row, key, RowId{0, 0})) continue;
        if (x.key != key) return false;
        if (x.row != except) return true;
      }
      n = leaf.next;
    }
    return false;
  }

  // Fills an index whose root is an empty leaf with entries already in
  // order, level by level, every page as full as it goes.
  void fill(std::vector<Entry> level) {
    for (bool leaf = true;; leaf = false) {
      // Bytes of entries [b, e) on one page: a node keeps its last child in
      // the tail pointer, and the first and last stored keys set the prefix.
      std::vector<size_t> sum(level.size() + 1, 0);
      const size_t ptr = leaf ? 4 : 8;
      for (size_t i = 0; i < level.size(); ++i) sum[i + 1] = sum[i] + level[i].key.size() + ptr;
      auto bytes = [&](size_t b, size_t e) {
        const size_t stored = leaf || e - b <= 1 ? e - b : e - b - 1;
        const size_t prefix =
            stored > 1 ? commonPrefix(level[b].key, level[b + stored - 1].key) : 0;
        return sum[b + stored] - sum[b] - prefix * (stored ? stored - 1 : 0);
      };
      if (level.empty() || bytes(0, level.size()) <= capacity_) {
        Node& root = load(ri_.rootPage);
        root.leaf = leaf;
        root.prev = root.next = 0;
        root.entries = std::move(level);
        root.changed = true;
        return;
      }
      std::vector<Entry> up;
      Node* before = nullptr;
      for (size_t b = 0, e; b < level.size(); b = e) {
        for (e = b + 1; e < level.size() && bytes(b, e + 1) <= capacity_;) ++e;
        Node node;
        node.number = newPage();
        node.leaf = leaf;
        node.changed = true;
        node.entries.assign(std::make_move_iterator(level.begin() + static_cast<long>(b)),
                            std::make_move_iterator(level.begin() + static_cast<long>(e)));
        if (before) {
          node.prev = before->number;
          before->next = node.number;
        }
        touched_.insert(node.number);
        up.push_back({node.entries.back().key, node.entries.back().row, node.number});
        before = &nodes_.emplace(node.number, std::move(node)).first->second;
      }
      level = std::move(up);
    }
  }

  void write() {
    for (uint32_t n : touched_) {
      auto it = nodes_.find(n);
      if (it == nodes_.end() || !it->second.changed) continue;
      settleLoneChild(it->second);
      encode(it->second);
      it->second.changed = false;
    }
    touched_.clear();
  }

 private:
  Node& load(uint32_t n) {
    touched_.insert(n);
    auto it = nodes_.find(n);
    if (it != nodes_.end()) return it->second;
    IndexPage ip = db_.readIndexPage(n);
    Node node;
    node.number = n;
    node.leaf = ip.leaf;
    node.prev = ip.prev;
    node.next = ip.next;
    node.entries.reserve(ip.entries.size() + 1);
    for (auto& x : ip.entries) node.entries.push_back({std::move(x.key), x.row, x.child});
    if (!ip.leaf && ip.tail != 0 && (ip.entries.empty() || ip.entries.back().child != ip.tail))
      node.entries.push_back({{}, {}, ip.tail});
    if (!node.leaf && node.entries.empty()) throwCorrupt(n, "index node page without children");
    if (!node.leaf) node.entries.back().pending = true;
    return nodes_.emplace(n, std::move(node)).first->second;
  }

  // Whether the entry at `at` of leaf `n` has the key of the entry before or
  // after it, looking into the neighbouring leaves at the page ends.
  bool sharesKeyWithNeighbour(uint32_t n, size_t at) {
    // Nodes live in a std::map, so references stay valid as others load.
    Node& leaf = load(n);
    const std::vector<uint8_t>& key = leaf.entries[at].key;
    if (at > 0 && leaf.entries[at - 1].key == key) return true;
    if (at + 1 < leaf.entries.size() && leaf.entries[at + 1].key == key) return true;
    if (at == 0 && leaf.prev) {
      Node& p = load(leaf.prev);
      if (!p.entries.empty() && p.entries.back().key == key) return true;
    }
    if (at + 1 == leaf.entries.size() && leaf.next) {
      Node& q = load(leaf.next);
      if (!q.entries.empty() && q.entries.front().key == key) return true;
    }
    return false;
  }

  // The greatest entry under a page (for an empty leaf, an empty key). A
  // node's last entry keeps what is found.
  Entry greatest(uint32_t n, int depth = 0) {
    if (depth > 32) throwCorrupt(n, "index tree deeper than 32 levels");
    Node& node = load(n);
    if (node.leaf && node.entries.empty()) return {};
    Entry& last = node.entries.back();
    if (last.pending) {
      Entry below = greatest(last.child, depth + 1);
      last.key = std::move(below.key);
      last.row = below.row;
      last.pending = false;
    }
    Entry e = last;
    e.child = 0;
    return e;
  }

  // The first child whose greatest entry is not below `e`; the last child
  // takes everything past the others.
  static size_t childFor(const Node& node, const Entry& e) {
    auto last = node.entries.end() - 1;
    auto it = std::lower_bound(node.entries.begin(), last, e,
                               [](const Entry& a, const Entry& b) { return less(a, b); });
    return static_cast<size_t>(it - node.entries.begin());
  }

  // A node's only child is stored as an ordinary entry, its greatest entry
  // and all.
  void settleLoneChild(Node& node) {
    if (!node.leaf && node.entries.size() == 1) greatest(node.number);
  }

  size_t encodedSize(Node& node) {
    settleLoneChild(node);
    const size_t ptr = node.leaf ? 4 : 8;
    size_t stored =
        node.leaf || node.entries.size() <= 1 ? node.entries.size() : node.entries.size() - 1;
    if (stored == 0) return 0;
    size_t prefix =
        stored > 1 ? commonPrefix(node.entries[0].key, node.entries[stored - 1].key) : 0;
    size_t total = 0;
    for (size_t i = 0; i < stored; ++i) total += node.entries[i].key.size() + ptr;
    return total - prefix * (stored - 1);
  }

  // After a change to page `n`, reached through `path`: split what
  // overflows, drop what emptied, and carry new greatest entries upward.
  void settle(uint32_t n, std::vector<std::pair<uint32_t, size_t>>& path) {
    while (true) {
      Node& node = load(n);
      std::vector<Entry> added;  // children to insert after `n` in its parent
      bool emptied = false;
      if (encodedSize(node) > capacity_) {
        if (path.empty()) {
          splitRoot(node);
          return;
        }
        added.push_back(split(node, appended_));
      } else if (node.entries.empty() && !path.empty()) {
        emptied = true;
      }
      if (path.empty()) return;
      auto [parentNo, idx] = path.back();
      path.pop_back();
      Node& parent = load(parentNo);
      Node& self = load(n);
      bool carry = emptied;  // the parent's greatest entry may have changed
      if (emptied) {
        unlink(self);
        parent.entries.erase(parent.entries.begin() + static_cast<long>(idx));
        parent.changed = true;
        free(self.number);
        if (parent.entries.empty() && path.empty()) {
          // The root lost its last child: it becomes an empty leaf.
          parent.leaf = true;
        }
      } else {
        Entry& slot = parent.entries[idx];
        // The last child's entry is not on the parent's page (unless alone).
        const bool onPage = idx + 1 < parent.entries.size() || !added.empty() ||
                            parent.entries.size() == 1;
        if (!onPage && !self.leaf && self.entries.back().pending) {
          // Not worked out below either: it can wait until asked for.
          slot.pending = true;
          carry = true;
        } else {
          Entry top = greatest(n);
          if (slot.pending || slot.key != top.key || slot.row != top.row) {
            slot.key = std::move(top.key);
            slot.row = top.row;
            slot.pending = false;
            if (onPage) parent.changed = true;
            carry = true;
          }
        }
        for (size_t k = 0; k < added.size(); ++k) {
          parent.entries.insert(parent.entries.begin() + static_cast<long>(idx + 1 + k),
                                std::move(added[k]));
          parent.changed = true;
        }
        // The parent too grew at its end only if its last child split.
        appended_ =
            appended_ && idx + 1 + added.size() == parent.entries.size() && parent.next == 0;
      }
      if (!carry && !parent.changed) return;
      n = parentNo;
    }
  }

  // Moves the upper part of `node` to a new page linked after it; returns
  // the new page's entry for the parent. Entries added one after another at
  // the end of the index (`appended`: ascending keys, as AutoNumbers come)
  // leave the page full and start the next with the last one alone, as
  // Access fills its pages; anywhere else the page splits in halves.
  Entry split(Node& node, bool appended) {
    size_t k = node.entries.size() - 1;
    if (!appended) {
      size_t total = 0;
      for (const Entry& e : node.entries) total += e.key.size();
      size_t half = 0;
      k = 0;
      while (k + 1 < node.entries.size() && half + node.entries[k].key.size() <= total / 2)
        half += node.entries[k++].key.size();
    }
    k = std::max<size_t>(k, 1);
    uint32_t rn = newPage();
    Node right;
    right.number = rn;
    right.leaf = node.leaf;
    right.entries.assign(std::make_move_iterator(node.entries.begin() + static_cast<long>(k)),
                         std::make_move_iterator(node.entries.end()));
    node.entries.resize(k);
    right.prev = node.number;
    right.next = node.next;
    if (node.next) {
      Node& after = load(node.next);
      after.prev = rn;
      after.changed = true;
    }
    node.next = rn;
    node.changed = right.changed = true;
    touched_.insert(rn);
    nodes_.emplace(rn, std::move(right));
    Entry e = greatest(rn);
    e.child = rn;
    return e;
  }

  void splitRoot(Node& root) {
    // The root stays where it is; its entries move to two new pages.
    uint32_t ln = newPage();
    Node left;
    left.number = ln;
    left.leaf = root.leaf;
    left.entries = std::move(root.entries);
    left.changed = true;
    touched_.insert(ln);
    Node& l = nodes_.emplace(ln, std::move(left)).first->second;
    Entry r = split(l, appended_);
    Node& root2 = load(ri_.rootPage);
    Entry le = greatest(ln);
    le.child = ln;
    root2.leaf = false;
    root2.prev = root2.next = 0;
    root2.entries.clear();
    root2.entries.push_back(std::move(le));
    root2.entries.push_back(std::move(r));
    root2.changed = true;
  }

  void unlink(Node& node) {
    if (node.prev) {
      Node& p = load(node.prev);
      p.next = node.next;
      p.changed = true;
    }
    if (node.next) {
      Node& q = load(node.next);
      q.prev = node.prev;
      q.changed = true;
    }
  }

  uint32_t newPage() {
    uint32_t n = db_.allocatePage();
    db_.addToUsageMap(ri_.usageMap, n);
    return n;
  }

  void free(uint32_t n) {
    nodes_.erase(n);
    db_.removeFromUsageMap(ri_.usageMap, n);
    db_.freePage(n);
  }

  // Puts entry `at` of a leaf whose page is otherwise up to date straight into
  // the page, moving only the bytes after it, when the shared prefix stays
  // the same and the page has room. Rewriting the whole page for every new
  // row would make bulk loads crawl.
  bool patchInsert(const Node& node, size_t at) {
    const std::vector<Entry>& es = node.entries;
    const size_t count = es.size();
    if (!node.leaf || at == 0 || count < 3) return false;
    Bytes cur = db_.page(node.number);
    size_t prefix = fmt_.indexPrefixLengthSize == 1 ? cur[fmt_.indexPrefixLengthOffset]
                                                    : u16le(&cur[fmt_.indexPrefixLengthOffset]);
    if (commonPrefix(es.front().key, es.back().key) != prefix) return false;
    auto size = [&](size_t i) { return es[i].key.size() - (i ? prefix : 0) + 4; };
    size_t off = 0;
    for (size_t i = 0; i < at; ++i) off += size(i);
    const size_t len = size(at);
    const size_t used = capacity_ - u16le(&cur[fmt_.indexFreeSpaceOffset]);
    if (used + len > capacity_ || off > used) return false;
    uint8_t* p = db_.mutablePage(node.number);
    uint8_t* region = p + fmt_.indexEntryMaskOffset + fmt_.indexEntryMaskSize;
    std::memmove(region + off + len, region + off, used - off);
    const Entry& e = es[at];
    copyBytes(region + off, e.key.data() + prefix, e.key.size() - prefix);
    put24be(region + off + e.key.size() - prefix, e.row.page);
    region[off + e.key.size() - prefix + 3] = e.row.row;
    uint8_t* mask = p + fmt_.indexEntryMaskOffset;
    size_t end = off;
    for (size_t i = at; i < count; ++i) {
      end += size(i);
      if (i > at) mask[(end - len) / 8] &= static_cast<uint8_t>(~(1 << ((end - len) % 8)));
    }
    end = off;
    for (size_t i = at; i < count; ++i) {
      end += size(i);
      mask[end / 8] |= static_cast<uint8_t>(1 << (end % 8));
    }
    put16le(p + fmt_.indexFreeSpaceOffset, static_cast<uint16_t>(capacity_ - used - len));
    return true;
  }

  void encode(const Node& node) {
    const size_t ptr = node.leaf ? 4 : 8;
    const std::vector<Entry>& es = node.entries;
    // A node with several children names its last child in the tail pointer.
    size_t stored = es.size();
    uint32_t tail = 0;
    if (!node.leaf && stored > 1) tail = es[--stored].child;
    size_t prefix = stored > 1 ? commonPrefix(es.front().key, es[stored - 1].key) : 0;
    uint8_t* p = db_.mutablePage(node.number);
    const size_t dataPos = fmt_.indexEntryMaskOffset + fmt_.indexEntryMaskSize;
    std::memset(p, 0, dataPos);
    p[0] = node.leaf ? page::kIndexLeaf : page::kIndexNode;
    p[1] = 0x01;
    put32le(p + fmt_.indexParentOffset, t_.tdefPage);
    put32le(p + fmt_.indexPrevPageOffset, node.prev);
    put32le(p + fmt_.indexNextPageOffset, node.next);
    put32le(p + fmt_.indexTailPageOffset, tail);
    if (fmt_.indexPrefixLengthSize == 1) {
      p[fmt_.indexPrefixLengthOffset] = static_cast<uint8_t>(prefix);
    } else {
      put16le(p + fmt_.indexPrefixLengthOffset, static_cast<uint16_t>(prefix));
    }
    // Access sets the byte after the prefix length on every node page it
    // writes (its meaning is not known); leaves keep it 0.
    if (!node.leaf) p[fmt_.indexPrefixLengthOffset + fmt_.indexPrefixLengthSize] = 1;
    uint8_t* mask = p + fmt_.indexEntryMaskOffset;
    uint8_t* out = p + dataPos;
    uint8_t* const end = p + fmt_.pageSize;
    for (size_t i = 0; i < stored; ++i) {
      const Entry& e = es[i];
      const size_t skip = i == 0 ? 0 : prefix;
      const size_t keyLen = e.key.size() - skip;
      if (out + keyLen + ptr > end)
        throw JetError(JetError::Kind::kInvalid, "index entry too large for a page");
      copyBytes(out, e.key.data() + skip, keyLen);
      out += keyLen;
      put24be(out, e.row.page);
      out[3] = e.row.row;
      if (!node.leaf) put32be(out + 4, e.child);
      out += ptr;
      size_t pos = static_cast<size_t>(out - (p + dataPos));
      mask[pos / 8] |= static_cast<uint8_t>(1 << (pos % 8));
    }
    std::memset(out, 0, static_cast<size_t>(end - out));
    put16le(p + fmt_.indexFreeSpaceOffset, static_cast<uint16_t>(end - out));
  }

  Database& db_;
  const Format& fmt_;
  const TableDef& t_;
  const RealIndex& ri_;
  const size_t capacity_;
  std::map<uint32_t, Node>& nodes_;
  std::set<uint32_t> touched_;
  bool appended_ = false;  // the change being settled added at the index's end
};

// Decoded nodes kept between edits; past this many they are let go (every
// one is on its page by then), so a long run of edits over a large index
// holds what the page cache holds, not the index.
constexpr size_t kNodesKept = 512;

std::map<uint32_t, Node>& nodeCache(std::unique_ptr<IndexNodeCache, IndexNodeCacheDeleter>& c) {
  if (!c) c.reset(new IndexNodeCache);
  if (c->nodes.size() > kNodesKept)
    std::erase_if(c->nodes, [](const auto& n) { return !n.second.changed; });
  return c->nodes;
}

}  // namespace

void Database::indexInsert(const TableDef& t, const RealIndex& ri, std::vector<uint8_t> key,
                           RowId id) {
  Editor ed(*this, nodeCache(indexCache_), t, ri);
  if (ed.insert(Entry{std::move(key), id, 0})) countUniqueEntries(t, ri, 1);
  ed.write();
}

void Database::indexRemove(const TableDef& t, const RealIndex& ri, const std::vector<uint8_t>& key,
                           RowId id) {
  Editor ed(*this, nodeCache(indexCache_), t, ri);
  if (ed.remove(key, id)) countUniqueEntries(t, ri, -1);
  ed.write();
}

void Database::indexFill(const TableDef& t, const RealIndex& ri, std::vector<IndexEntry> sorted) {
  Editor ed(*this, nodeCache(indexCache_), t, ri);
  std::vector<Entry> entries;
  entries.reserve(sorted.size());
  uint32_t distinct = 0;
  for (IndexEntry& e : sorted) {
    distinct += entries.empty() || entries.back().key != e.key;
    entries.push_back({std::move(e.key), e.row, 0});
  }
  ed.fill(std::move(entries));
  countUniqueEntries(t, ri, int64_t{distinct} - ri.uniqueEntryCount);
  ed.write();
}

// A key that appears or goes moves the count by one. Access lets the count
// drift between compactions; this writer keeps it as exact as it found it,
// and compaction counts it afresh.
void Database::countUniqueEntries(const TableDef& t, const RealIndex& ri, int64_t change) {
  TableDef& mt = mutableTable(t);
  for (size_t k = 0; k < mt.realIndexes.size(); ++k) {
    RealIndex& m = mt.realIndexes[k];
    if (m.number != ri.number) continue;
    const int64_t count = int64_t{m.uniqueEntryCount} + change;
    if (count == m.uniqueEntryCount) return;
    m.uniqueEntryCount = static_cast<uint32_t>(std::max<int64_t>(count, 0));
    const size_t at = static_cast<size_t>(fmt_->tdefHeaderSize) + k * fmt_->realIndexCountSize + 4;
    putTableU32(mt, at, m.uniqueEntryCount);
    return;
  }
}

bool Database::indexContainsKey(const TableDef& t, const RealIndex& ri,
                                const std::vector<uint8_t>& key, RowId except) {
  Editor ed(*this, nodeCache(indexCache_), t, ri);
  return ed.containsKey(key, except);
}

}  // namespace jet
