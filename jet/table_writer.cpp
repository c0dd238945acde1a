// Row operations: insert, update and delete with AutoNumber, long values,
// every index, the usage maps and the table definition kept in step.
#include <cstring>
#include <random>

#include "jet/database.h"
#include "jet/bytes.h"
#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/row_codec.h"
#include "jet/row_layout.h"

namespace jet {
namespace {

constexpr uint16_t kGeneralSortOrder = 1033;
constexpr char kLvalTag[4] = {'L', 'V', 'A', 'L'};

bool writableType(uint8_t type) {
  switch (type) {
    case coltype::kBoolean:
    case coltype::kByte:
    case coltype::kInteger:
    case coltype::kLong:
    case coltype::kCurrency:
    case coltype::kSingle:
    case coltype::kDouble:
    case coltype::kDateTime:
    case coltype::kBinary:
    case coltype::kText:
    case coltype::kOle:
    case coltype::kMemo:
    case coltype::kGuid:
    case coltype::kDecimal:
      return true;
    default:
      return false;
  }
}

Guid randomGuid() {
  static std::mt19937_64 rng{std::random_device{}()};
  Guid g;
  for (int i = 0; i < 16; i += 8) {
    uint64_t r = rng();
    std::memcpy(g.bytes.data() + i, &r, 8);
  }
  g.bytes[7] = static_cast<uint8_t>((g.bytes[7] & 0x0F) | 0x40);  // version 4
  g.bytes[8] = static_cast<uint8_t>((g.bytes[8] & 0x3F) | 0x80);
  return g;
}

// Key columns all Null: such entries are left out of ignore-nulls indexes
// and never clash in unique ones.
bool allKeyColumnsNull(const RealIndex& ri, const std::vector<Value>& row) {
  for (const IndexColumn& ic : ri.columns)
    if (!isNull(row[ic.column])) return false;
  return true;
}

void requireColumnCount(const TableDef& t, const std::vector<Value>& values) {
  if (values.size() != t.columns.size())
    throw JetError(JetError::Kind::kInvalid, "'" + t.name + "' has " +
                                                 std::to_string(t.columns.size()) + " columns, " +
                                                 std::to_string(values.size()) + " values given");
}

}  // namespace

std::string Database::whyNotWritable(const TableDef& t) {
  if (!store_->writable()) return "the file is open read-only";
  if (fmt_->version != Version::kJet4) return "Jet 3 (Access 97) files are only read, not written";
  if (header_.sortOrder != kGeneralSortOrder || header_.sortVersion != 0)
    return "the database sorts text in order " + std::to_string(header_.sortOrder) + " version " +
           std::to_string(header_.sortVersion) + ", not the General order this engine keeps";
  if (t.isSystem() && !systemWrites_) return "'" + t.name + "' is a system table";
  if (std::string why = globalMapProblem(); !why.empty()) return why;
  for (const LogicalIndex& li : t.indexes)
    if (li.foreignKey())
      return "'" + t.name + "' takes part in relationship '" + li.name +
             "', whose integrity this engine does not enforce";
  for (const ColumnDef& c : t.columns) {
    if (!writableType(c.type))
      return "column '" + c.name + "' has type " + std::to_string(c.type) +
             ", which this engine cannot write";
    if (c.isText() && c.sortOrder != 0 && c.sortOrder != kGeneralSortOrder)
      return "column '" + c.name + "' sorts in order " + std::to_string(c.sortOrder);
  }
  for (const RealIndex& ri : t.realIndexes) {
    std::string why;
    if (!canEncodeIndex(*fmt_, t, ri, &why)) return why;
  }
  return "";
}

void Database::requireWritable(const TableDef& t) {
  auto it = writableVerdict_.find(t.tdefPage);
  if (it == writableVerdict_.end()) it = writableVerdict_.emplace(t.tdefPage, whyNotWritable(t)).first;
  const std::string& why = it->second;
  if (!why.empty())
    throw JetError(JetError::Kind::kUnsupported, "cannot write to '" + t.name + "': " + why);
}

void Database::writeTableHeader(const TableDef& t) {
  uint8_t* p = mutablePage(t.tdefPage);
  put32le(p + fmt_->tdefNumRowsOffset, t.rowCount);
  put32le(p + fmt_->tdefAutoNumberOffset, t.nextAutoNumber);
}

int32_t Database::takeAutoNumber(const TableDef& t) {
  return guarded([&] {
    requireWritable(t);
    TableDef& mt = mutableTable(t);
    if (mt.nextAutoNumber >= 0x7FFFFFFF)
      throw JetError(JetError::Kind::kInvalid, "AutoNumber of '" + t.name + "' is exhausted");
    ++mt.nextAutoNumber;  // the definition keeps the last number handed out
    writeTableHeader(mt);
    return static_cast<int32_t>(mt.nextAutoNumber);
  });
}

uint32_t Database::dataPageWithRoom(const TableDef& t, size_t rowSize) {
  auto fits = [&](uint32_t n) {
    Bytes pg = page(n);
    if (pg[0] != page::kData || u32le(&pg[fmt_->dataTdefOffset]) != t.tdefPage) return false;
    return u16le(&pg[fmt_->dataRowCountOffset]) < fmt_->maxRowsPerPage &&
           u16le(&pg[fmt_->dataFreeSpaceOffset]) >= rowSize + 2;
  };
  auto cached = lastDataPage_.find(t.tdefPage);
  uint32_t candidate = 0;
  if (cached != lastDataPage_.end()) {
    candidate = cached->second;
  } else {
    // The last owned page that still has free space, as Jet fills tables.
    std::vector<uint32_t> owned = usageMapPages(t.ownedPages);
    std::vector<uint32_t> withSpace = usageMapPages(t.freeSpacePages);
    for (auto it = owned.rbegin(); it != owned.rend(); ++it) {
      if (std::binary_search(withSpace.begin(), withSpace.end(), *it) &&
          page(*it)[0] == page::kData) {
        candidate = *it;
        break;
      }
    }
  }
  if (candidate && fits(candidate)) return lastDataPage_[t.tdefPage] = candidate;
  if (candidate) removeFromUsageMap(t.freeSpacePages, candidate);
  uint32_t n = allocatePage();
  uint8_t* p = mutablePage(n);
  p[0] = page::kData;
  p[1] = 0x01;
  put16le(p + fmt_->dataFreeSpaceOffset, static_cast<uint16_t>(fmt_->pageSize - fmt_->dataRowTableOffset));
  put32le(p + fmt_->dataTdefOffset, t.tdefPage);
  addToUsageMap(t.ownedPages, n);
  addToUsageMap(t.freeSpacePages, n);
  return lastDataPage_[t.tdefPage] = n;
}

std::vector<uint8_t> Database::writeLongValue(const TableDef& t, const ColumnDef& c, Bytes data,
                                              size_t roomInRow) {
  std::vector<uint8_t> header(kLongValueHeaderSize, 0);
  const size_t len = data.size();
  if (len > kLvalLengthMask)
    throw JetError(JetError::Kind::kInvalid, "column '" + c.name + "': value too long");
  if (len <= static_cast<size_t>(fmt_->maxInlineLongValue) &&
      kLongValueHeaderSize + len <= roomInRow) {
    put32le(header.data(), static_cast<uint32_t>(len) | kLvalInline);
    header.insert(header.end(), data.begin(), data.end());
    return header;
  }
  const ColumnUsageMaps* maps = nullptr;
  for (const ColumnUsageMaps& m : t.columnMaps)
    if (m.columnNumber == c.number) maps = &m;
  // Appends one LVAL row somewhere with room and returns where it went.
  auto place = [&](Bytes bytes) -> RowId {
    const uint64_t key = (static_cast<uint64_t>(t.tdefPage) << 16) | c.number;
    auto it = lvalPage_.find(key);
    if (it != lvalPage_.end()) {
      int r = appendSlot(it->second, bytes, 0);
      if (r >= 0) return RowId{it->second, static_cast<uint8_t>(r)};
      if (maps) removeFromUsageMap(maps->freeSpacePages, it->second);
    }
    uint32_t n = allocatePage();
    uint8_t* p = mutablePage(n);
    p[0] = page::kData;
    p[1] = 0x01;
    put16le(p + fmt_->dataFreeSpaceOffset,
            static_cast<uint16_t>(fmt_->pageSize - fmt_->dataRowTableOffset));
    std::memcpy(p + fmt_->dataTdefOffset, kLvalTag, 4);
    if (maps) {
      addToUsageMap(maps->ownedPages, n);
      addToUsageMap(maps->freeSpacePages, n);
    }
    lvalPage_[key] = n;
    int r = appendSlot(n, bytes, 0);
    if (r < 0) throw JetError(JetError::Kind::kInvalid, "long value row does not fit a page");
    return RowId{n, static_cast<uint8_t>(r)};
  };
  const size_t maxRow = static_cast<size_t>(fmt_->maxLongValueRowSize);
  if (len <= maxRow) {
    RowId at = place(data);
    put32le(header.data(), static_cast<uint32_t>(len) | kLvalSinglePage);
    put32le(header.data() + 4, at.pack());
    return header;
  }
  // A chain: each row starts with the pointer to the next. Written back to
  // front so every row knows its successor.
  const size_t chunk = maxRow - 4;
  size_t chunks = (len + chunk - 1) / chunk;
  uint32_t next = 0;
  for (size_t k = chunks; k-- > 0;) {
    size_t from = k * chunk, n = std::min(chunk, len - from);
    std::vector<uint8_t> row(4 + n);
    put32le(row.data(), next);
    copyBytes(row.data() + 4, data.data() + from, n);
    next = place(row).pack();
  }
  put32le(header.data(), static_cast<uint32_t>(len));
  put32le(header.data() + 4, next);
  return header;
}

void Database::freeLongValues(const TableDef& t, Bytes row) {
  RowLayout l = RowLayout::of(*fmt_, t, row, lastRowPage_);
  for (const ColumnDef& c : t.columns) {
    if (!c.isLongValue() || !l.present(c)) continue;
    Bytes h = l.bytesOf(*fmt_, c, row, lastRowPage_);
    if (h.size() < static_cast<size_t>(kLongValueHeaderSize)) continue;
    uint32_t word = u32le(h.data());
    if (word & kLvalInline) continue;
    RowId at = RowId::unpack(u32le(h.data() + 4));
    bool chained = !(word & kLvalSinglePage);
    std::set<uint32_t> seen;
    while (at.page != 0 && seen.insert(at.pack()).second) {
      Bytes pg = page(at.page);
      Slot s = slot(pg, at.page, at.row);
      RowId next = chained && s.end - s.start >= 4 ? RowId::unpack(u32le(&pg[s.start])) : RowId{};
      uint8_t* p = mutablePage(at.page);
      put16le(p + fmt_->dataRowTableOffset + 2 * at.row,
              static_cast<uint16_t>(s.start | kRowDeleted | kRowOverflow));
      at = next;
    }
  }
}

std::vector<uint8_t> Database::encodeRowFor(const TableDef& t, const std::vector<Value>& values) {
  std::vector<Cell> cells(t.columns.size());
  size_t size = fmt_->rowColumnCountSize + fixedAreaEnd(t) + (t.maxColumns + 7) / 8 +
                (t.varColumns ? 2 * (t.varColumns + 1) + 2 : 0);
  std::vector<size_t> longValues;
  for (size_t i = 0; i < t.columns.size(); ++i) {
    const ColumnDef& c = t.columns[i];
    const Value& v = values[i];
    if (c.type == coltype::kBoolean) {
      cells[i].present = std::get<bool>(v);
      continue;
    }
    if (isNull(v)) continue;
    cells[i].present = true;
    if (c.isLongValue()) {
      longValues.push_back(i);
      continue;
    }
    cells[i].bytes = encodeFixedOrText(*fmt_, c, v);
    if (!c.isFixed()) size += cells[i].bytes.size();
  }
  // Long values last, so each knows how much room the row has left.
  for (size_t i : longValues) {
    const ColumnDef& c = t.columns[i];
    std::vector<uint8_t> data;
    if (c.type == coltype::kMemo) {
      data = encodeJet4Text(std::get<std::string>(values[i]), c.compressedUnicode());
    } else {
      data = std::get<Blob>(values[i]);
    }
    size_t room = size < static_cast<size_t>(fmt_->maxRowSize) ? fmt_->maxRowSize - size : 0;
    cells[i].bytes = writeLongValue(t, c, data, room);
    size += cells[i].bytes.size();
  }
  return assembleRow(*fmt_, t, cells);
}

RowId Database::insertRow(const TableDef& t, std::vector<Value> values) {
  return guarded([&] {
    requireWritable(t);
    requireColumnCount(t, values);
    size_t sp = savepoint();
    try {
      TableDef& mt = mutableTable(t);
      for (size_t i = 0; i < t.columns.size(); ++i) {
        const ColumnDef& c = t.columns[i];
        const bool autoNumber = c.isAutoNumber() && c.type == coltype::kLong;
        if (autoNumber && isNull(values[i])) {
          values[i] = takeAutoNumber(t);
        } else if (c.isAutoGuid() && isNull(values[i])) {
          values[i] = randomGuid();
        }
        values[i] = coerceValue(*fmt_, c, values[i]);
        // An explicit number past the counter moves the counter on.
        if (autoNumber)
          if (auto p = std::get_if<int32_t>(&values[i]);
              p && *p > 0 && static_cast<uint32_t>(*p) > mt.nextAutoNumber)
            mt.nextAutoNumber = static_cast<uint32_t>(*p);
        if (c.type == coltype::kBoolean && isNull(values[i])) values[i] = false;
      }
      std::vector<std::vector<uint8_t>> keys(t.realIndexes.size());
      std::vector<bool> indexed(t.realIndexes.size(), true);
      for (size_t k = 0; k < t.realIndexes.size(); ++k) {
        const RealIndex& ri = t.realIndexes[k];
        bool allNull = allKeyColumnsNull(ri, values);
        if (ri.required()) {
          for (const IndexColumn& ic : ri.columns)
            if (isNull(values[ic.column]))
              throw JetError(JetError::Kind::kInvalid,
                             "column '" + t.columns[ic.column].name +
                                 "' cannot be Null: an index requires a value");
        }
        if (allNull && ri.ignoreNulls()) {
          indexed[k] = false;
          continue;
        }
        keys[k] = encodeIndexKey(*fmt_, t, ri, values);
        if (ri.unique() && !allNull && indexContainsKey(t, ri, keys[k], RowId{0, 0}))
          throw JetError(JetError::Kind::kDuplicate,
                         kDuplicateKeyText);
      }
      std::vector<uint8_t> bytes = encodeRowFor(t, values);
      uint32_t pn = dataPageWithRoom(t, bytes.size());
      int r = appendSlot(pn, bytes, 0);
      if (r < 0) throw JetError(JetError::Kind::kInvalid, "row does not fit an empty page");
      RowId id{pn, static_cast<uint8_t>(r)};
      for (size_t k = 0; k < t.realIndexes.size(); ++k)
        if (indexed[k]) indexInsert(t, t.realIndexes[k], std::move(keys[k]), id);
      ++mt.rowCount;
      writeTableHeader(mt);
      release(sp);
      return id;
    } catch (...) {
      rollbackTo(sp);
      throw;
    }
  });
}

void Database::deleteRow(const TableDef& t, RowId id) {
  guarded([&] {
    requireWritable(t);
    size_t sp = savepoint();
    try {
      std::optional<Bytes> row = rowData(id);
      if (!row)
        throw JetError(JetError::Kind::kInvalid, "row at page " + std::to_string(id.page) +
                                                     " row " + std::to_string(id.row) +
                                                     " is already deleted");
      std::vector<Value> values = decodeRow(t, *row);
      for (const RealIndex& ri : t.realIndexes) {
        if (ri.ignoreNulls() && allKeyColumnsNull(ri, values)) continue;
        indexRemove(t, ri, encodeIndexKey(*fmt_, t, ri, values), id);
      }
      freeLongValues(t, *row);
      // Flag the slot, and a moved row's body too, so that no reader that
      // walks pages in order mistakes the body for a live row.
      Bytes pg = page(id.page);
      Slot s = slot(pg, id.page, id.row);
      if (s.raw & kRowOverflow) {
        RowId body{u24le(&pg[s.start + 1]), pg[s.start]};
        Slot b = slot(page(body.page), body.page, body.row);
        put16le(mutablePage(body.page) + fmt_->dataRowTableOffset + 2 * body.row,
                static_cast<uint16_t>(b.start | kRowDeleted | kRowOverflow));
      }
      put16le(mutablePage(id.page) + fmt_->dataRowTableOffset + 2 * id.row,
              static_cast<uint16_t>(s.start | kRowDeleted | kRowOverflow));
      TableDef& mt = mutableTable(t);
      if (mt.rowCount > 0) --mt.rowCount;
      writeTableHeader(mt);
      release(sp);
    } catch (...) {
      rollbackTo(sp);
      throw;
    }
  });
}

void Database::updateRow(const TableDef& t, RowId id, std::vector<Value> values) {
  guarded([&] {
    requireWritable(t);
    requireColumnCount(t, values);
    size_t sp = savepoint();
    try {
      std::optional<Bytes> oldRow = rowData(id);
      if (!oldRow)
        throw JetError(JetError::Kind::kInvalid, "row at page " + std::to_string(id.page) +
                                                     " row " + std::to_string(id.row) +
                                                     " is deleted");
      std::vector<uint8_t> oldBytes(oldRow->begin(), oldRow->end());
      std::vector<Value> oldValues = decodeRow(t, oldBytes);
      for (size_t i = 0; i < t.columns.size(); ++i) {
        values[i] = coerceValue(*fmt_, t.columns[i], values[i]);
        if (t.columns[i].type == coltype::kBoolean && isNull(values[i])) values[i] = false;
        // A number written over an AutoNumber moves the counter past it.
        if (t.columns[i].isAutoNumber() && t.columns[i].type == coltype::kLong)
          if (auto p = std::get_if<int32_t>(&values[i]); p && *p > 0) {
            TableDef& mt = mutableTable(t);
            if (static_cast<uint32_t>(*p) > mt.nextAutoNumber) {
              mt.nextAutoNumber = static_cast<uint32_t>(*p);
              writeTableHeader(mt);
            }
          }
      }
      struct Change {
        const RealIndex* ri;
        std::vector<uint8_t> oldKey, newKey;
        bool wasIn, isIn;
      };
      std::vector<Change> changes;
      for (const RealIndex& ri : t.realIndexes) {
        bool oldNull = allKeyColumnsNull(ri, oldValues), newNull = allKeyColumnsNull(ri, values);
        if (ri.required())
          for (const IndexColumn& ic : ri.columns)
            if (isNull(values[ic.column]))
              throw JetError(JetError::Kind::kInvalid,
                             "column '" + t.columns[ic.column].name +
                                 "' cannot be Null: an index requires a value");
        Change ch{&ri, encodeIndexKey(*fmt_, t, ri, oldValues), encodeIndexKey(*fmt_, t, ri, values),
                  !(ri.ignoreNulls() && oldNull), !(ri.ignoreNulls() && newNull)};
        if (ch.oldKey == ch.newKey && ch.wasIn == ch.isIn) continue;
        if (ri.unique() && ch.isIn && !newNull && indexContainsKey(t, ri, ch.newKey, id))
          throw JetError(JetError::Kind::kDuplicate,
                         kDuplicateKeyText);
        changes.push_back(std::move(ch));
      }
      freeLongValues(t, oldBytes);
      std::vector<uint8_t> bytes = encodeRowFor(t, values);

      // Where the row's body lives now: its own slot, or an overflow slot.
      Bytes pg = page(id.page);
      Slot head = slot(pg, id.page, id.row);
      RowId body = id;
      if (head.raw & kRowOverflow) body = RowId{u24le(&pg[head.start + 1]), pg[head.start]};
      uint16_t bodyFlags = body == id ? 0 : kRowDeleted;
      if (!rewriteSlot(body.page, body.row, bytes, bodyFlags)) {
        // No room where it is: store the body elsewhere and point to it.
        uint32_t pn = dataPageWithRoom(t, bytes.size());
        if (pn == body.page) pn = dataPageWithRoom(t, fmt_->pageSize);  // forces a new page
        int r = appendSlot(pn, bytes, kRowDeleted);
        if (r < 0) throw JetError(JetError::Kind::kInvalid, "row does not fit an empty page");
        if (body != id) {
          std::vector<uint8_t> none;
          rewriteSlot(body.page, body.row, none, kRowDeleted | kRowOverflow);
        }
        uint8_t ptr[4];
        ptr[0] = static_cast<uint8_t>(r);
        put24le(ptr + 1, pn);
        if (!rewriteSlot(id.page, id.row, Bytes(ptr, 4), kRowOverflow))
          throwCorrupt(id.page, "no room for an overflow pointer");
      }
      for (Change& ch : changes) {
        if (ch.wasIn) indexRemove(t, *ch.ri, ch.oldKey, id);
        if (ch.isIn) indexInsert(t, *ch.ri, std::move(ch.newKey), id);
      }
      release(sp);
    } catch (...) {
      rollbackTo(sp);
      throw;
    }
  });
}

}  // namespace jet
