// Constants of the Jet 3 and Jet 4 file formats, shared by the reader and
// the writer. jet/FORMAT.md describes the layout in prose; every offset the
// engine uses is named here, once.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jet {

enum class Version { kJet3, kJet4 };

namespace page {
constexpr uint8_t kDatabase = 0x00;
constexpr uint8_t kData = 0x01;
constexpr uint8_t kTableDef = 0x02;
constexpr uint8_t kIndexNode = 0x03;
constexpr uint8_t kIndexLeaf = 0x04;
constexpr uint8_t kUsageMap = 0x05;
}  // namespace page

// Database header (page 0).
namespace header {
constexpr int kVersionOffset = 0x14;
constexpr int kMaskedOffset = 0x18;    // start of the masked area
constexpr int kJet3MaskedSize = 126;
constexpr int kJet4MaskedSize = 128;
constexpr int kJet3SortOrderOffset = 0x3A;  // 2 bytes
constexpr int kCodePageOffset = 0x3C;        // 2 bytes
constexpr int kEncodingKeyOffset = 0x3E;     // 4 bytes; non-zero: pages are encrypted
constexpr int kPasswordOffset = 0x42;
constexpr int kJet3PasswordSize = 20;
constexpr int kJet4PasswordSize = 40;
constexpr int kJet4SortOrderOffset = 0x6E;  // 2 bytes language id, byte 3 is the version
constexpr int kJet4CreationDateOffset = 0x72;  // 8-byte double
constexpr uint32_t kMaskKey = 0x6b39dac7;      // RC4 key of the masked area
constexpr char kFormatId[] = "Standard Jet DB";
constexpr int kFormatIdOffset = 4;
}  // namespace header

constexpr uint8_t kVersionByteJet3 = 0x00;
constexpr uint8_t kVersionByteJet4 = 0x01;

constexpr uint32_t kCatalogTdefPage = 2;  // MSysObjects

// Row offset flags on data pages.
constexpr uint16_t kRowDeleted = 0x8000;
constexpr uint16_t kRowOverflow = 0x4000;  // row holds a 4-byte pointer to the real row
constexpr uint16_t kRowOffsetMask = 0x1FFF;

// The smallest row the writer stores: room for an overflow pointer.
constexpr size_t kMinRowSize = 4;

// Column types.
namespace coltype {
constexpr uint8_t kBoolean = 0x01;
constexpr uint8_t kByte = 0x02;
constexpr uint8_t kInteger = 0x03;
constexpr uint8_t kLong = 0x04;
constexpr uint8_t kCurrency = 0x05;
constexpr uint8_t kSingle = 0x06;
constexpr uint8_t kDouble = 0x07;
constexpr uint8_t kDateTime = 0x08;
constexpr uint8_t kBinary = 0x09;
constexpr uint8_t kText = 0x0A;
constexpr uint8_t kOle = 0x0B;
constexpr uint8_t kMemo = 0x0C;
constexpr uint8_t kGuid = 0x0F;
constexpr uint8_t kDecimal = 0x10;
}  // namespace coltype

// Column flags.
namespace colflag {
constexpr uint8_t kFixed = 0x01;
constexpr uint8_t kNullable = 0x02;
constexpr uint8_t kAutoLong = 0x04;
constexpr uint8_t kReplication = 0x10;
constexpr uint8_t kAutoGuid = 0x40;
constexpr uint8_t kHyperlink = 0x80;
}  // namespace colflag
constexpr uint8_t kColExtCompressedUnicode = 0x01;

// Index flags (real index).
namespace idxflag {
constexpr uint8_t kUnique = 0x01;
constexpr uint8_t kIgnoreNulls = 0x02;
constexpr uint8_t kRequired = 0x08;
constexpr uint8_t kJet4Always = 0x80;
}  // namespace idxflag
constexpr uint8_t kIndexColumnAscending = 0x01;
constexpr int kMaxIndexColumns = 10;
constexpr uint16_t kNoColumn = 0xFFFF;

// Logical index types.
constexpr uint8_t kIndexTypeNormal = 0x00;
constexpr uint8_t kIndexTypePrimary = 0x01;
constexpr uint8_t kIndexTypeForeign = 0x02;

// The General sort order (text columns, index keys) and the Windows code
// page Jet 3 text is written in.
constexpr uint16_t kGeneralSortOrder = 1033;
constexpr uint16_t kWindows1252 = 1252;

// Table types in the table definition.
constexpr uint8_t kTableTypeUser = 0x4E;
constexpr uint8_t kTableTypeSystem = 0x53;

// Long value (memo / OLE) header inside a row: 4-byte length with flags in
// the top byte, 4-byte row pointer, 4 unused bytes.
constexpr int kLongValueHeaderSize = 12;
constexpr uint32_t kLvalInline = 0x80000000;
constexpr uint32_t kLvalSinglePage = 0x40000000;
constexpr uint32_t kLvalLengthMask = 0x3FFFFFFF;
constexpr char kLvalSignature[] = "LVAL";

// Usage maps.
constexpr uint8_t kUsageMapInline = 0x00;
constexpr uint8_t kUsageMapReference = 0x01;
constexpr int kUsageMapPageHeader = 4;  // type-5 page: type, 0x01, 2 bytes

// MSysObjects object types and flags.
namespace objtype {
constexpr int kForm = -32768;
constexpr int kTable = 1;
constexpr int kQuery = 5;
constexpr int kLinkedTable = 6;
constexpr int kContainer = 3;
constexpr int kDatabase = 2;
constexpr int kRelationship = 8;
}  // namespace objtype
constexpr uint32_t kObjectSystemFlags = 0x80000002;

// Date/time values are days since 1899-12-30 as a double.
constexpr int kDaysFrom0001To18991230 = 693593;

// Per-version layout of pages, table definitions, rows and index pages.
struct Format {
  Version version;
  uint32_t pageSize;
  int maskedSize;

  // Data pages.
  int dataFreeSpaceOffset;  // 2 bytes
  int dataTdefOffset;       // 4 bytes
  int dataRowCountOffset;   // 2 bytes
  int dataRowTableOffset;   // first 2-byte row offset

  // Table definition.
  int tdefNextPageOffset;
  int tdefLengthOffset;
  int tdefNumRowsOffset;
  int tdefAutoNumberOffset;
  int tdefTableTypeOffset;
  int tdefMaxColsOffset;
  int tdefNumVarColsOffset;
  int tdefNumColsOffset;
  int tdefNumIndexSlotsOffset;  // logical indexes
  int tdefNumIndexesOffset;     // real indexes
  int tdefOwnedPagesOffset;
  int tdefFreeSpacePagesOffset;
  int tdefHeaderSize;  // where the per-real-index row counts start
  int realIndexCountSize;

  int columnDefSize;
  int colTypeOffset;
  int colNumberOffset;
  int colVarIndexOffset;
  int colIndexOffset;
  int colSortOrderOffset;
  int colCodePageOffset;  // -1 in Jet 4
  int colPrecisionOffset;
  int colScaleOffset;
  int colFlagsOffset;
  int colExtFlagsOffset;  // -1 in Jet 3
  int colFixedOffsetOffset;
  int colLengthOffset;

  int nameLengthSize;  // 1 byte (Jet 3) or 2 bytes (Jet 4)
  int realIndexDefSize;
  int realIndexSkipBefore;
  int realIndexSkipBeforeFlags;
  int realIndexSkipAfterFlags;
  int logicalIndexDefSize;
  int logicalIndexSkipBefore;
  int logicalIndexSkipAfter;

  // Rows.
  int rowColumnCountSize;   // 1 or 2
  int rowVarOffsetSize;     // 1 or 2
  int maxRowSize;
  int maxRowsPerPage;

  // Index pages.
  int indexFreeSpaceOffset;
  int indexParentOffset;
  int indexPrevPageOffset;
  int indexNextPageOffset;
  int indexTailPageOffset;
  int indexPrefixLengthOffset;
  int indexPrefixLengthSize;  // Jet 3 keeps one byte; the byte after it is unrelated
  int indexEntryMaskOffset;
  int indexEntryMaskSize;

  int usageMapInlineSize;  // bytes of bitmap in a table's inline map
  int textUnitSize;        // bytes per text character (Jet 4 stores UCS-2)
  int maxInlineLongValue;
  int maxLongValueRowSize;
};

inline constexpr Format kJet3Format{
    Version::kJet3, 2048, header::kJet3MaskedSize,
    2, 4, 8, 10,
    4, 8, 12, 16, 20, 21, 23, 25, 27, 31, 35, 39, 43, 8,
    18, 0, 1, 3, 5, 9, 11, 11, 12, 13, -1, 14, 16,
    1, 39, 0, 0, 0, 20, 0, 0,
    1, 1, 2012, 255,
    2, 4, 8, 12, 16, 20, 1, 22, 226,
    128, 1, 64, 2032};

inline constexpr Format kJet4Format{
    Version::kJet4, 4096, header::kJet4MaskedSize,
    2, 4, 12, 14,
    4, 8, 16, 20, 40, 41, 43, 45, 47, 51, 55, 59, 63, 12,
    25, 0, 5, 7, 9, 11, -1, 11, 12, 15, 16, 21, 23,
    2, 52, 4, 4, 5, 28, 4, 4,
    2, 2, 4060, 255,
    2, 4, 12, 16, 20, 24, 2, 27, 453,
    64, 2, 64, 4076};

}  // namespace jet
