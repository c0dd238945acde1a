// Index pages: the entry mask, prefix compression, and a walk of the whole
// tree in key order.
#include <functional>
#include <set>

#include "jet/database.h"
#include "jet/error.h"

namespace jet {
namespace {
constexpr int kMaxIndexDepth = 32;
}  // namespace

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

    const size_t maskPos = fmt_->indexEntryMaskOffset;
    const size_t dataPos = maskPos + fmt_->indexEntryMaskSize;
    const size_t pointerSize = ip.leaf ? 4 : 8;
    std::vector<uint8_t> prefix;
    size_t last = 0;
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
          throwCorrupt(n, "index entry ends at " + std::to_string(dataPos + end) +
                              ", past end of page");
        if (end <= last) throwCorrupt(n, "empty index entry at " + std::to_string(dataPos + last));
        Bytes stored = pg.subspan(dataPos + last, end - last);
        std::vector<uint8_t> full;
        if (ip.entries.empty()) {
          if (ip.prefixLength > stored.size())
            throwCorrupt(n, "index prefix of " + std::to_string(ip.prefixLength) +
                                " bytes is longer than the first entry");
          full.assign(stored.begin(), stored.end());
          prefix.assign(stored.begin(), stored.begin() + ip.prefixLength);
        } else {
          full = prefix;
          full.insert(full.end(), stored.begin(), stored.end());
        }
        expanded += full.size();
        if (expanded > maxExpanded)
          throwCorrupt(n, "index entries expand to more than " + std::to_string(maxExpanded) +
                              " bytes");
        if (full.size() < pointerSize)
          throwCorrupt(n, "index entry of " + std::to_string(full.size()) +
                              " bytes has no room for its row pointer");
        IndexPage::Entry e;
        const uint8_t* tailBytes = full.data() + full.size() - pointerSize;
        e.row = RowId{u24be(tailBytes), tailBytes[3]};
        if (!ip.leaf) e.child = u32be(tailBytes + 4);
        full.erase(full.end() - static_cast<long>(pointerSize), full.end());
        e.key = std::move(full);
        ip.entries.push_back(std::move(e));
        last = end;
      }
    }
    return ip;
  });
}

std::vector<IndexEntry> Database::readIndex(const RealIndex& index) {
  return guarded([&] {
    std::vector<IndexEntry> out;
    std::set<uint32_t> seen;
    // Depth-first: each node entry's child, then the node's tail page, which
    // holds the entries past the node's last key.
    std::function<void(uint32_t, int)> visit = [&](uint32_t n, int depth) {
      if (depth > kMaxIndexDepth) throwCorrupt(n, "index tree deeper than " +
                                                      std::to_string(kMaxIndexDepth) + " levels");
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
