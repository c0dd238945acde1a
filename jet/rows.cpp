// Row decoding: the null mask, fixed and variable columns, and long values.
#include <set>

#include "jet/database.h"
#include "jet/error.h"
#include "jet/row_layout.h"
#include "jet/text.h"

namespace jet {

RowLayout RowLayout::of(const Format& fmt, const TableDef& t, Bytes row, uint32_t page) {
  RowLayout l;
  const size_t len = row.size();
  if (len < static_cast<size_t>(fmt.rowColumnCountSize))
    throwCorrupt(page, "row of " + std::to_string(len) + " bytes has no column count");
  l.numCols = fmt.rowColumnCountSize == 1 ? row[0] : u16le(row.data());
  if (l.numCols > t.maxColumns)
    throwCorrupt(page, "row claims " + std::to_string(l.numCols) + " columns, table has at most " +
                           std::to_string(t.maxColumns));
  const size_t maskSize = (l.numCols + 7) / 8;
  if (len < fmt.rowColumnCountSize + maskSize)
    throwCorrupt(page, "row of " + std::to_string(len) + " bytes cannot hold its null mask");
  l.nullMask = row.subspan(len - maskSize, maskSize);
  l.metaStart = len - maskSize;
  if (t.varColumns == 0) return l;

  if (fmt.rowVarOffsetSize == 2) {
    if (l.metaStart < fmt.rowColumnCountSize + 2u)
      throwCorrupt(page, "row too short for its variable column count");
    unsigned numVar = u16le(&row[l.metaStart - 2]);
    size_t tableBytes = 2 + 2 * (static_cast<size_t>(numVar) + 1);
    if (numVar > t.maxColumns || l.metaStart < fmt.rowColumnCountSize + tableBytes)
      throwCorrupt(page, "row's variable column table (" + std::to_string(numVar) +
                             " columns) overruns the row");
    l.varOffsets.resize(numVar + 1);
    for (unsigned k = 0; k <= numVar; ++k) l.varOffsets[k] = u16le(&row[l.metaStart - 4 - 2 * k]);
    l.metaStart -= tableBytes;
  } else {
    // Jet 3: one-byte offsets, lifted past 255 by a jump table that lists
    // the first variable column of each 256-byte stretch.
    if (l.metaStart < 2) throwCorrupt(page, "row too short for its variable column count");
    const size_t rowEnd = len - 1;
    unsigned numVar = row[rowEnd - maskSize];
    size_t numJumps = (len - 1) / 256;
    if (rowEnd < maskSize + numJumps + 1 + numVar + 1)
      throwCorrupt(page, "row's variable column table overruns the row");
    size_t colOffset = rowEnd - maskSize - numJumps - 1;
    if ((colOffset - numVar) / 256 < numJumps) --numJumps;  // trailing dummy jump entry
    l.varOffsets.resize(numVar + 1);
    size_t used = 0;
    for (unsigned i = 0; i <= numVar; ++i) {
      while (used < numJumps && i == row[rowEnd - maskSize - used - 1]) ++used;
      l.varOffsets[i] = static_cast<uint16_t>(row[colOffset - i] + used * 256);
    }
    l.metaStart = colOffset - numVar;
  }
  return l;
}

bool RowLayout::present(const ColumnDef& c) const {
  if (c.number >= numCols) return false;
  return nullMask[c.number / 8] & (1 << (c.number % 8));
}

Bytes RowLayout::bytesOf(const Format& fmt, const ColumnDef& c, Bytes row, uint32_t page) const {
  if (c.isFixed()) {
    size_t start = fmt.rowColumnCountSize + c.fixedOffset;
    size_t size = storedFixedSize(c);
    if (start + size > metaStart)
      throwCorrupt(page, "column '" + c.name + "' at offset " + std::to_string(start) +
                             " runs past the row's data");
    return row.subspan(start, size);
  }
  if (c.varIndex + 1u >= varOffsets.size()) return {};
  size_t start = varOffsets[c.varIndex], end = varOffsets[c.varIndex + 1];
  if (start > end || end > metaStart || start < static_cast<size_t>(fmt.rowColumnCountSize))
    throwCorrupt(page, "column '" + c.name + "' has bad bounds " + std::to_string(start) + ".." +
                           std::to_string(end) + " in a row of " + std::to_string(row.size()) +
                           " bytes");
  return row.subspan(start, end - start);
}

std::vector<uint8_t> Database::readLongValue(Bytes h, uint32_t pageNo) {
  if (h.size() < static_cast<size_t>(kLongValueHeaderSize))
    throwCorrupt(pageNo, "long value header of " + std::to_string(h.size()) + " bytes");
  const uint32_t word = u32le(h.data());
  const uint32_t length = word & kLvalLengthMask;
  if (word & kLvalInline) {
    Bytes data = h.subspan(kLongValueHeaderSize);
    if (length > data.size())
      throwCorrupt(pageNo, "inline long value claims " + std::to_string(length) + " bytes, has " +
                               std::to_string(data.size()));
    return {data.begin(), data.begin() + length};
  }
  // Nothing stored outside the row can be longer than the file, and rows
  // never share long values, so a scan reads at most about what the file
  // holds; a file whose rows all point at one long value would otherwise
  // cost rows times its length. The bound leaves room for files made by
  // copying pages.
  const uint64_t fileBytes = static_cast<uint64_t>(pageCount_) * fmt_->pageSize;
  if (static_cast<uint64_t>(length) > fileBytes)
    throwCorrupt(
        pageNo, "long value claims " + std::to_string(length) + " bytes, more than the file holds");
  if (scanLongValueBytes_ != kNotScanning) {
    scanLongValueBytes_ += length;
    if (scanLongValueBytes_ > 16 * fileBytes)
      throwCorrupt(pageNo, "rows share long values: more long value bytes than the file holds");
  }
  RowId at = RowId::unpack(u32le(h.data() + 4));
  auto lvalRow = [&](RowId id) {
    Bytes pg = page(id.page);
    Slot s = slot(pg, id.page, id.row);
    return pg.subspan(s.start, s.end - s.start);
  };
  if (word & kLvalSinglePage) {
    Bytes data = lvalRow(at);
    if (length > data.size())
      throwCorrupt(at.page, "long value claims " + std::to_string(length) + " bytes, row has " +
                                std::to_string(data.size()));
    return {data.begin(), data.begin() + length};
  }
  std::vector<uint8_t> out;
  out.reserve(length);
  std::set<uint32_t> seen;
  while (out.size() < length) {
    if (at.page == 0)
      throwCorrupt(pageNo, "long value chain ends after " + std::to_string(out.size()) + " of " +
                               std::to_string(length) + " bytes");
    if (!seen.insert(at.pack()).second) throwCorrupt(at.page, "loop in a long value chain");
    Bytes data = lvalRow(at);
    if (data.size() < 4) throwCorrupt(at.page, "long value chain row shorter than its link");
    size_t take = std::min<size_t>(data.size() - 4, length - out.size());
    out.insert(out.end(), data.begin() + 4, data.begin() + 4 + take);
    at = RowId::unpack(u32le(data.data()));
  }
  return out;
}

Value Database::decodeColumn(const TableDef& t, const ColumnDef& c, Bytes row) {
  RowLayout l = guarded([&] { return RowLayout::of(*fmt_, t, row, lastRowPage_); });
  return decodeWith(t, c, row, l);
}

Value Database::decodeWith(const TableDef&, const ColumnDef& c, Bytes row, const RowLayout& l) {
  return guarded([&]() -> Value {
    const uint32_t pg = lastRowPage_;
    bool present = l.present(c);
    if (c.type == coltype::kBoolean) return present;
    if (!present) return std::monostate{};
    Bytes b = l.bytesOf(*fmt_, c, row, pg);
    // A fixed-size type may sit in a variable slot (Jet 3 system tables do
    // this); either way its bytes must be exactly its size.
    if (size_t need = static_cast<size_t>(fixedSizeOf(c.type)); need && b.size() != need)
      throwCorrupt(pg, "column '" + c.name + "' holds " + std::to_string(b.size()) + " bytes, a " +
                           typeName(c.type) + " takes " + std::to_string(need));
    switch (c.type) {
      case coltype::kByte:
        return static_cast<int32_t>(b[0]);
      case coltype::kInteger:
        return static_cast<int32_t>(static_cast<int16_t>(u16le(b.data())));
      case coltype::kLong:
        return static_cast<int32_t>(u32le(b.data()));
      case coltype::kCurrency:
        return Currency{static_cast<int64_t>(u64le(b.data()))};
      case coltype::kSingle:
        return f32le(b.data());
      case coltype::kDouble:
        return f64le(b.data());
      case coltype::kDateTime:
        return DateTime{f64le(b.data())};
      case coltype::kGuid: {
        Guid g;
        std::copy_n(b.begin(), g.bytes.size(), g.bytes.begin());
        return g;
      }
      case coltype::kDecimal: {
        Decimal d;
        d.negative = b[0] & 0x80;
        d.precision = c.precision;
        d.scale = c.scale;
        for (int w = 0; w < 4; ++w) d.magnitude[w] = u32le(&b[1 + 12 - 4 * w]);
        return d;
      }
      case coltype::kText:
        if (fmt_->version == Version::kJet4) return jet4TextToUtf8(b);
        return codePageToUtf8(b, header_.codePage);
      case coltype::kBinary:
        return Blob(b.begin(), b.end());
      case coltype::kMemo: {
        std::vector<uint8_t> data = readLongValue(b, pg);
        if (fmt_->version == Version::kJet4) return jet4TextToUtf8(data);
        return codePageToUtf8(data, header_.codePage);
      }
      case coltype::kOle:
        return readLongValue(b, pg);
      default:
        // Unknown kinds (complex columns, attachments) come back as bytes.
        return Blob(b.begin(), b.end());
    }
  });
}

std::vector<Value> Database::decodeRow(const TableDef& t, Bytes row,
                                       const std::vector<bool>& wanted) {
  RowLayout l = guarded([&] { return RowLayout::of(*fmt_, t, row, lastRowPage_); });
  std::vector<Value> out(t.columns.size());
  for (size_t i = 0; i < t.columns.size(); ++i)
    if (wanted.empty() || (i < wanted.size() && wanted[i]))
      out[i] = decodeWith(t, t.columns[i], row, l);
  return out;
}

}  // namespace jet
