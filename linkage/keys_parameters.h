// KeysParameters: the rows of the table of that name, which say per graphic
// attribute what part it plays in linking drawing elements to database rows
// and in identifying features. The record class walks and edits the rows a
// query selects; the free functions below are the rules every form follows:
// which query finds a kind of row, how a kind is rewritten as a whole, and
// what the Feature Definition Wizard asks of the keys.
//
// Promises:
// - The record class does nothing on an empty recordset when asked to move
//   or find (FindFirst then reports NoMatch); every other failure is the
//   data layer's EngineError, passed on unchanged.
// - rewriteKeysParameters() is all or nothing: it runs inside a transaction
//   of its own, so on any failure the table is as it was and the error
//   passes on. Rows of kinds it is not given are never touched.
// - Criteria are composed by concatenation with numbers in decimal; no text
//   of the user's ever enters one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace linkage {

// The kinds of row, the values of column Type.
inline constexpr std::string_view kGraphicFeature = "GraphicFeature";
inline constexpr std::string_view kDbLinkedFeature = "DbLinkedFeature";
inline constexpr std::string_view kDbLFeatSuppGrAttr = "DbLFeatSuppGrAttr";
inline constexpr std::string_view kGraphicToDbTableLink = "GraphicToDbTableLink";
inline constexpr std::string_view kGraphicToDbRowLink = "GraphicToDbRowLink";

// The two attributes every database-linked feature class keeps (entity and
// occurrence number).
inline constexpr int32_t kEntityNumberAttrId = 26;
inline constexpr int32_t kOccurenceNumberAttrId = 27;

// "Select * from [KeysParameters] Where Type = '<type>'": the rows of one kind.
std::string keysQuery(std::string_view type);

class KeysParameters {
 public:
  KeysParameters() = default;
  KeysParameters(const KeysParameters&) = delete;
  KeysParameters& operator=(const KeysParameters&) = delete;

  // Stores the row begun by AddNew or Edit.
  void Update();
  void MoveFirst();
  void MoveNext();
  void FindNext(std::string_view criteria);
  void FindFirst(std::string_view criteria);
  // Whether the last find found nothing.
  bool NoMatch() const { return noMatch_; }
  // Opens an updatable recordset on sql, closing the one open before; it
  // stands on the first row, if there is one.
  void Execute(schema::SchemaDatabase& db, std::string_view sql);
  // Deletes the current row; MoveNext goes on with the row that followed.
  void Delete();
  void CloseRecordSet();
  void AddNew();
  void Edit();
  int32_t count() const;
  bool isOpen() const { return rs_.isOpen(); }

  schema::Recordset::Bookmark Bookmark() const;
  void setBookmark(schema::Recordset::Bookmark mark);
  // Column DbScaName; nullopt for Null.
  std::optional<std::string> DbScaName() const;
  void setDbScaName(const std::optional<std::string>& name);
  // The declared size of DbScaName in characters.
  int dbScaNameSize() const;
  int32_t AttrId() const;
  void setAttrId(int32_t id);
  // Column Type.
  std::string ParameterType() const;
  void setParameterType(std::string_view type);
  // Past the last and before the first row (EOF is the C library's macro,
  // hence the spelling).
  bool Eof() const;
  bool Bof() const;
  // Both at once: nothing to walk.
  bool empty() const { return Bof() && Eof(); }

 private:
  schema::Recordset rs_;
  bool noMatch_ = false;
};

// One row to write for a kind: the attribute and, for the linkage kinds,
// the database scanner's name of it.
struct KeyRow {
  int32_t attrId = 0;
  std::optional<std::string> dbScaName;
  bool operator==(const KeyRow&) const = default;
};

// The rows of one kind, in the order the table holds them.
std::vector<KeyRow> readKeysParameters(schema::SchemaDatabase& db, std::string_view type);

// The whole new content of one kind.
struct KindRows {
  std::string_view type;
  std::vector<KeyRow> rows;
};
// Deletes every row of each kind given and adds that kind's rows in order.
void rewriteKeysParameters(schema::SchemaDatabase& db, const std::vector<KindRows>& kinds);

// A graphic attribute that the key and linkage dialogs offer.
struct Attribute {
  int32_t attrId = 0;
  std::string name;
  bool operator==(const Attribute&) const = default;
};
// The non-spatial attributes (GDOSubType Null) of a recordset over
// GraphicAttributes, from its first row to its last, in its order; none
// for a closed recordset. A row deleted since the recordset opened fails
// with 3167.
std::vector<Attribute> nonSpatialAttributes(schema::Recordset& graphicAttributes);

// What the Feature Definition Wizard asks. dbLinked: the feature class has
// database linkage.
// The attributes a new feature class exposes by itself: the GraphicFeature
// keys, or the DbLinkedFeature and DbLFeatSuppGrAttr ones, in table order.
std::vector<int32_t> keyAttributeIds(schema::SchemaDatabase& db, bool dbLinked);
// Whether removing the attribute from a feature class takes away its
// primary unique key (GraphicFeature, or DbLinkedFeature when linked).
bool isUniqueKey(schema::SchemaDatabase& db, int32_t attrId, bool dbLinked);
// The GraphicToDbTableLink attributes, which every database-linked feature
// class keeps among its definition attributes.
std::vector<int32_t> tableLinkAttributeIds(schema::SchemaDatabase& db);
bool isTableLinkAttribute(schema::SchemaDatabase& db, int32_t attrId);

}  // namespace linkage
