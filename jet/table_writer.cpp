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
  if (header_.sortOrder != kGeneralSortOrder || header_.sortVersion != 0)
    return "the database sorts text in order " + std::to_string(header_.sortOrder) + " version " +
           std::to_string(header_.sortVersion) + ", not the General order this engine keeps";
  if (t.isSystem() && !systemWrites_) return "'" + t.name + "' is a system table";
  if (std::string why = globalMapProblem(); !why.empty()) return why;
  for (const LogicalIndex& li : t.indexes)
    if (li.foreignKey())
      return "'" + t.name + "' takes part in relationship '" + li.name +
             "', whose integrity this engine does not enforce";
  const bool otherCodePage =
      fmt_->version == Version::kJet3 && header_.codePage != 0 && header_.codePage != kWindows1252;
  for (const ColumnDef& c : t.columns) {
    if (otherCodePage && c.isText())
      return "the database keeps its text in code page " + std::to_string(header_.codePage) +
             "; this engine writes Jet 3 text in Windows-1252 only";
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

const std::vector<ColumnRules>& Database::columnRules(const TableDef& t) {
  return guarded([&]() -> const std::vector<ColumnRules>& {
    auto it = rules_.find(t.tdefPage);
    if (it != rules_.end()) return it->second;
    std::vector<PropertyGroup> groups;
    const TableDef& sys = tableAtPage(kCatalogTdefPage, "MSysObjects");
    if (const ColumnDef* props = sys.findColumn("LvProp")) {
      for (const CatalogEntry& e : catalog()) {
        if (!e.isTable() || e.tdefPage() != t.tdefPage) continue;
        std::optional<Bytes> row = rowData(e.row);
        if (!row) break;
        Value blob = decodeColumn(sys, *props, *row);
        if (const Blob* b = std::get_if<Blob>(&blob))
          groups = parseProperties(*fmt_, *b, header_.codePage);
        break;
      }
    }
    return rules_.emplace(t.tdefPage, jet::columnRules(*fmt_, t, groups)).first->second;
  });
}

std::vector<Value> Database::defaultRow(const TableDef& t) {
  const std::vector<ColumnRules>& rules = columnRules(t);
  std::vector<Value> row(t.columns.size());
  for (size_t i = 0; i < row.size(); ++i)
    if (rules[i].defaultValue) row[i] = *rules[i].defaultValue;
  return row;
}

void Database::checkColumnRules(const TableDef& t, const std::vector<Value>& values) {
  const std::vector<ColumnRules>& rules = columnRules(t);
  for (size_t i = 0; i < t.columns.size(); ++i) {
    const std::string field = t.name + "." + t.columns[i].name;
    if (rules[i].required && isNull(values[i]))
      throw ruleError(kRequiredError, kRequiredText, field);
    const std::string* s = std::get_if<std::string>(&values[i]);
    if (!rules[i].allowZeroLength && t.columns[i].isText() && s && s->empty())
      throw ruleError(kZeroLengthError, kZeroLengthText, field);
  }
}

void Database::putTableU32(TableDef& t, size_t at, uint32_t v) {
  if (at + 4 > t.raw.size()) throwCorrupt(t.tdefPage, "definition too short to update");
  put32le(t.raw.data() + at, v);
  // Continuation pages repeat an 8-byte header before their share.
  const size_t first = fmt_->pageSize, more = fmt_->pageSize - 8;
  for (size_t i = 0; i < 4; ++i, ++at) {
    size_t page = at < first ? 0 : 1 + (at - first) / more;
    size_t off = at < first ? at : 8 + (at - first) % more;
    if (page >= t.pages.size()) throwCorrupt(t.tdefPage, "definition shorter than its bytes");
    mutablePage(t.pages[page])[off] = static_cast<uint8_t>(v >> (8 * i));
  }
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

uint32_t Database::newDataPage(uint32_t owner) {
  uint32_t n = allocatePage();
  uint8_t* p = mutablePage(n);
  p[0] = page::kData;
  p[1] = 0x01;
  put16le(p + fmt_->dataFreeSpaceOffset,
          static_cast<uint16_t>(fmt_->pageSize - fmt_->dataRowTableOffset));
  put32le(p + fmt_->dataTdefOffset, owner);
  return n;
}

uint32_t Database::dataPageWithRoom(const TableDef& t, size_t rowSize, uint32_t avoid) {
  auto fits = [&](uint32_t n) {
    Bytes pg = page(n);
    return n != avoid && pg[0] == page::kData && u32le(&pg[fmt_->dataTdefOffset]) == t.tdefPage &&
           roomOn(n).most() >= rowSize;
  };
  auto cached = lastDataPage_.find(t.tdefPage);
  if (cached != lastDataPage_.end()) {
    if (fits(cached->second)) return cached->second;
    // The page rows went to is full: it leaves the list now, so that a later
    // session does not read every full page to learn it.
    if (cached->second != avoid) removeFromUsageMap(t.freeSpacePages, cached->second);
  }
  // The pages the table lists as having room, lowest first; one that has
  // not leaves the list, as Jet keeps it.
  for (uint32_t n : usageMapPages(t.freeSpacePages)) {
    if (fits(n)) return lastDataPage_[t.tdefPage] = n;
    if (n != avoid) removeFromUsageMap(t.freeSpacePages, n);
  }
  uint32_t n = newDataPage(t.tdefPage);
  addToUsageMap(t.ownedPages, n);
  addToUsageMap(t.freeSpacePages, n);
  return lastDataPage_[t.tdefPage] = n;
}

void Database::rowsLeft(uint32_t pageNo, uint32_t ownedMap, uint32_t freeSpaceMap) {
  if (roomOn(pageNo).empty) {
    removeFromUsageMap(ownedMap, pageNo);
    removeFromUsageMap(freeSpaceMap, pageNo);
    freePage(pageNo);
  } else {
    addToUsageMap(freeSpaceMap, pageNo);
  }
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
  // Puts one LVAL row on the column's page in use, else on a page its
  // free-space map lists (one left by an earlier edit, say), else on a new
  // page, and returns where it went.
  auto place = [&](Bytes bytes) -> RowId {
    const uint64_t key = (static_cast<uint64_t>(t.tdefPage) << 16) | c.number;
    auto onPage = [&](uint32_t n) -> std::optional<RowId> {
      Bytes pg = page(n);
      if (pg[0] != page::kData || std::memcmp(&pg[fmt_->dataTdefOffset], kLvalTag, 4) != 0)
        return std::nullopt;
      int r = placeRow(n, bytes, 0);
      if (r < 0) return std::nullopt;
      lvalPage_[key] = n;
      return RowId{n, static_cast<uint8_t>(r)};
    };
    auto it = lvalPage_.find(key);
    if (it != lvalPage_.end()) {
      if (auto at = onPage(it->second)) return *at;
      if (maps) removeFromUsageMap(maps->freeSpacePages, it->second);
    }
    if (maps) {
      for (uint32_t n : usageMapPages(maps->freeSpacePages)) {
        if (auto at = onPage(n)) return *at;
        removeFromUsageMap(maps->freeSpacePages, n);
      }
    }
    uint32_t n = newDataPage(0);
    std::memcpy(mutablePage(n) + fmt_->dataTdefOffset, kLvalTag, 4);
    if (maps) {
      addToUsageMap(maps->ownedPages, n);
      addToUsageMap(maps->freeSpacePages, n);
    }
    if (auto at = onPage(n)) return *at;
    throw JetError(JetError::Kind::kInvalid, "long value row does not fit a page");
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
    const ColumnUsageMaps* maps = nullptr;
    for (const ColumnUsageMaps& m : t.columnMaps)
      if (m.columnNumber == c.number) maps = &m;
    std::set<uint32_t> seen;
    while (at.page != 0 && seen.insert(at.pack()).second) {
      Bytes pg = page(at.page);
      Slot s = slot(pg, at.page, at.row);
      RowId next = chained && s.end - s.start >= 4 ? RowId::unpack(u32le(&pg[s.start])) : RowId{};
      rewriteSlot(at.page, at.row, {}, kRowDeleted | kRowOverflow);
      rowsLeft(at.page, maps ? maps->ownedPages : 0, maps ? maps->freeSpacePages : 0);
      at = next;
    }
  }
}

std::vector<uint8_t> Database::encodeRowFor(const TableDef& t, const std::vector<Value>& values) {
  std::vector<Cell> cells(t.columns.size());
  size_t size = fmt_->rowColumnCountSize + fixedAreaEnd(t) + rowTrailerSize(*fmt_, t);
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
      data = encodeText(*fmt_, c, std::get<std::string>(values[i]));
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
      checkColumnRules(t, values);
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
          throw JetError(JetError::Kind::kDuplicate, kDuplicateKeyError, kDuplicateKeyText);
      }
      std::vector<uint8_t> bytes = encodeRowFor(t, values);
      uint32_t pn = dataPageWithRoom(t, bytes.size());
      int r = placeRow(pn, bytes, 0);
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
      // walks pages in order mistakes the body for a live row; their bytes
      // go back to the page, and a page left without rows to the file.
      Bytes pg = page(id.page);
      Slot s = slot(pg, id.page, id.row);
      if (s.raw & kRowOverflow) {
        RowId body{u24le(&pg[s.start + 1]), pg[s.start]};
        rewriteSlot(body.page, body.row, {}, kRowDeleted | kRowOverflow);
        if (body.page != id.page) rowsLeft(body.page, t.ownedPages, t.freeSpacePages);
      }
      rewriteSlot(id.page, id.row, {}, kRowDeleted | kRowOverflow);
      rowsLeft(id.page, t.ownedPages, t.freeSpacePages);
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
        // A row keeps its AutoNumber for life: other rows refer to it.
        if ((t.columns[i].isAutoNumber() || t.columns[i].isAutoGuid()) && values[i] != oldValues[i])
          throw ruleError(kNotUpdatableError, kNotUpdatableText);
      }
      checkColumnRules(t, values);
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
          throw JetError(JetError::Kind::kDuplicate, kDuplicateKeyError, kDuplicateKeyText);
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
        uint32_t pn = dataPageWithRoom(t, bytes.size(), body.page);
        int r = placeRow(pn, bytes, kRowDeleted);
        if (r < 0) throw JetError(JetError::Kind::kInvalid, "row does not fit an empty page");
        if (body != id) {
          rewriteSlot(body.page, body.row, {}, kRowDeleted | kRowOverflow);
          if (body.page != id.page) rowsLeft(body.page, t.ownedPages, t.freeSpacePages);
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
