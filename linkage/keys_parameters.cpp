#include "linkage/keys_parameters.h"

#include <variant>

#include "schema/engine_error.h"

namespace linkage {

namespace {

int32_t longField(const schema::Recordset& rs, std::string_view name) {
  const jet::Value v = rs.field(name);
  if (const auto* n = std::get_if<int32_t>(&v)) return *n;
  if (jet::isNull(v)) return 0;
  throw schema::EngineError(schema::err::kConversionError, schema::sources::kField);
}

std::optional<std::string> textField(const schema::Recordset& rs, std::string_view name) {
  const jet::Value v = rs.field(name);
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  if (jet::isNull(v)) return std::nullopt;
  throw schema::EngineError(schema::err::kConversionError, schema::sources::kField);
}

// The AttrId of every row sql selects, in table order.
std::vector<int32_t> attrIdsOf(schema::SchemaDatabase& db, std::string_view sql) {
  KeysParameters keys;
  keys.Execute(db, sql);
  std::vector<int32_t> ids;
  for (keys.MoveFirst(); !keys.Eof(); keys.MoveNext()) ids.push_back(keys.AttrId());
  return ids;
}

// The queries of the wizard keep the two blanks after "Select *" that the
// program has always sent.
std::string keysWhere(std::string_view criteria) {
  return "Select *  from [KeysParameters] where " + std::string(criteria);
}

}  // namespace

std::string keysQuery(std::string_view type) {
  return "Select * from [KeysParameters] Where Type = '" + std::string(type) + "'";
}

void KeysParameters::Update() { rs_.update(); }

void KeysParameters::MoveFirst() {
  if (!empty()) rs_.moveFirst();
}

void KeysParameters::MoveNext() {
  if (!empty()) rs_.moveNext();
}

void KeysParameters::FindNext(std::string_view criteria) {
  noMatch_ = true;
  if (empty()) return;
  rs_.findNext(criteria);
  noMatch_ = rs_.noMatch();
}

void KeysParameters::FindFirst(std::string_view criteria) {
  noMatch_ = true;
  if (empty()) return;
  rs_.findFirst(criteria);
  noMatch_ = rs_.noMatch();
}

void KeysParameters::Execute(schema::SchemaDatabase& db, std::string_view sql) {
  CloseRecordSet();
  // A recordset opens on its first row and counts all its rows at once.
  rs_ = db.openRecordset(sql);
}

void KeysParameters::Delete() { rs_.deleteRecord(); }

void KeysParameters::CloseRecordSet() {
  if (rs_.isOpen()) rs_.close();
  rs_ = schema::Recordset();
  noMatch_ = false;
}

void KeysParameters::AddNew() { rs_.addNew(); }
void KeysParameters::Edit() { rs_.edit(); }
int32_t KeysParameters::count() const { return static_cast<int32_t>(rs_.recordCount()); }

schema::Recordset::Bookmark KeysParameters::Bookmark() const { return rs_.bookmark(); }
void KeysParameters::setBookmark(schema::Recordset::Bookmark mark) { rs_.setBookmark(mark); }

std::optional<std::string> KeysParameters::DbScaName() const { return textField(rs_, "DbScaName"); }
void KeysParameters::setDbScaName(const std::optional<std::string>& name) {
  rs_.setField("DbScaName", name ? jet::Value(*name) : jet::Value());
}

int KeysParameters::dbScaNameSize() const { return rs_.fieldSize("DbScaName"); }

int32_t KeysParameters::AttrId() const { return longField(rs_, "AttrId"); }
void KeysParameters::setAttrId(int32_t id) { rs_.setField("AttrId", id); }

std::string KeysParameters::ParameterType() const {
  return textField(rs_, "Type").value_or(std::string());
}
void KeysParameters::setParameterType(std::string_view type) {
  rs_.setField("Type", std::string(type));
}

bool KeysParameters::Eof() const { return rs_.eof(); }
bool KeysParameters::Bof() const { return rs_.bof(); }

std::vector<KeyRow> readKeysParameters(schema::SchemaDatabase& db, std::string_view type) {
  KeysParameters keys;
  keys.Execute(db, keysQuery(type));
  std::vector<KeyRow> rows;
  for (keys.MoveFirst(); !keys.Eof(); keys.MoveNext())
    rows.push_back({keys.AttrId(), keys.DbScaName()});
  return rows;
}

void rewriteKeysParameters(schema::SchemaDatabase& db, const std::vector<KindRows>& kinds) {
  db.beginTrans();
  try {
    for (const KindRows& kind : kinds) {
      KeysParameters keys;
      keys.Execute(db, keysQuery(kind.type));
      for (keys.MoveFirst(); !keys.Eof(); keys.MoveNext()) keys.Delete();
      for (const KeyRow& row : kind.rows) {
        keys.AddNew();
        keys.setParameterType(kind.type);
        keys.setAttrId(row.attrId);
        if (row.dbScaName) keys.setDbScaName(row.dbScaName);
        keys.Update();
      }
    }
    db.commitTrans();
  } catch (...) {
    try {
      db.rollback();
    } catch (...) {
      // The first failure is the one to report.
    }
    throw;
  }
}

std::vector<Attribute> nonSpatialAttributes(schema::Recordset& graphicAttributes) {
  std::vector<Attribute> attributes;
  schema::Recordset& rs = graphicAttributes;
  if (!rs.isOpen() || (rs.bof() && rs.eof())) return attributes;
  for (rs.moveFirst(); !rs.eof(); rs.moveNext()) {
    if (!jet::isNull(rs.field("GDOSubType"))) continue;
    attributes.push_back({longField(rs, "AttrId"), textField(rs, "Name").value_or(std::string())});
  }
  return attributes;
}

std::vector<int32_t> keyAttributeIds(schema::SchemaDatabase& db, bool dbLinked) {
  return attrIdsOf(db, keysWhere(dbLinked ? "Type = 'DbLinkedFeature' OR Type = 'DbLFeatSuppGrAttr'"
                                          : "Type = 'GraphicFeature'"));
}

bool isUniqueKey(schema::SchemaDatabase& db, int32_t attrId, bool dbLinked) {
  const std::string criteria = (dbLinked ? "Type = 'DbLinkedFeature' and AttrId = "
                                         : "Type = 'GraphicFeature' and AttrId = ") +
                               std::to_string(attrId);
  return !attrIdsOf(db, keysWhere(criteria)).empty();
}

std::vector<int32_t> tableLinkAttributeIds(schema::SchemaDatabase& db) {
  return attrIdsOf(db, keysQuery(kGraphicToDbTableLink));
}

bool isTableLinkAttribute(schema::SchemaDatabase& db, int32_t attrId) {
  return !attrIdsOf(db,
                    keysQuery(kGraphicToDbTableLink) + " and attrId = " + std::to_string(attrId))
              .empty();
}

}  // namespace linkage
