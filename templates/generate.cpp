// csd-template-gen IN.json OUT.csd [--into BASE]
//
// Builds a template schema document from its declarative description
// (templates/README.md describes the format). With --into, the tables go into
// a copy of the database BASE instead of a new Jet 4 database, in BASE's own
// format: that is how a Jet 3 (Access 97) document is made. The description is checked
// whole before anything is written: an unknown type, a duplicate name, a row
// that does not fit its columns or a value table that FeatureDefAttr names
// but the description lacks ends the program with one line on stderr and
// exit status 1, and OUT is left as it was. The database is written to a
// temporary file beside OUT and renamed into place once flushed.
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "jet/create.h"
#include "jet/database.h"
#include "jet/error.h"
#include "jet/page_store.h"

namespace {

class DescriptionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct TableDescription {
  jet::TableSpec spec;
  std::vector<std::vector<jet::Value>> rows;
};

// The names the description uses for column types are the names csdtool
// prints, so a template and `csdtool columns` can be compared word for word.
const std::map<QString, uint8_t> kTypes = {
    {"Boolean", jet::coltype::kBoolean},   {"Byte", jet::coltype::kByte},
    {"Integer", jet::coltype::kInteger},   {"Long", jet::coltype::kLong},
    {"Currency", jet::coltype::kCurrency}, {"Single", jet::coltype::kSingle},
    {"Double", jet::coltype::kDouble},     {"DateTime", jet::coltype::kDateTime},
    {"Text", jet::coltype::kText},         {"Memo", jet::coltype::kMemo},
};

// GDOType codes of GraphicAttributes and the column type a value table needs
// to hold values of that attribute. Spatial (32) and Graphic (33) attributes
// take no values and have no entry.
const std::map<int, uint8_t> kValueColumnForGdoType = {
    {1, jet::coltype::kBoolean}, {2, jet::coltype::kByte},     {3, jet::coltype::kInteger},
    {4, jet::coltype::kLong},    {5, jet::coltype::kCurrency}, {6, jet::coltype::kSingle},
    {7, jet::coltype::kDouble},  {8, jet::coltype::kDateTime}, {10, jet::coltype::kText},
    {12, jet::coltype::kMemo},
};

std::string str(const QString& s) { return s.toStdString(); }

QString typeWord(uint8_t type) {
  for (const auto& [word, code] : kTypes)
    if (code == type) return word;
  return QString::number(type);
}

bool sameName(const std::string& a, const std::string& b) { return jet::sameName(a, b); }

// Rejects keys the format does not know, so a misspelt "unqiue" is an error
// rather than an index silently left non-unique.
void onlyKeys(const QJsonObject& o, const QStringList& allowed, const std::string& where) {
  for (const QString& k : o.keys())
    if (!allowed.contains(k)) throw DescriptionError(where + ": unknown key '" + str(k) + "'");
}

QString requireString(const QJsonObject& o, const char* key, const std::string& where) {
  QJsonValue v = o.value(key);
  if (!v.isString() || v.toString().isEmpty())
    throw DescriptionError(where + ": '" + key + "' must be a non-empty string");
  return v.toString();
}

bool optionalBool(const QJsonObject& o, const char* key, const std::string& where) {
  QJsonValue v = o.value(key);
  if (v.isUndefined()) return false;
  if (!v.isBool()) throw DescriptionError(where + ": '" + key + "' must be true or false");
  return v.toBool();
}

QJsonArray requireArray(const QJsonObject& o, const char* key, const std::string& where) {
  QJsonValue v = o.value(key);
  if (!v.isArray()) throw DescriptionError(where + ": '" + key + "' must be an array");
  return v.toArray();
}

jet::ColumnSpec parseColumn(const QJsonValue& v, const std::string& where) {
  if (!v.isObject()) throw DescriptionError(where + ": a column must be an object");
  QJsonObject o = v.toObject();
  jet::ColumnSpec c;
  c.name = str(requireString(o, "name", where));
  std::string at = where + ": column '" + c.name + "'";
  onlyKeys(o, {"name", "type", "size", "autoNumber", "note"}, at);
  QString type = requireString(o, "type", at);
  auto t = kTypes.find(type);
  if (t == kTypes.end()) {
    QStringList known;
    for (const auto& [word, code] : kTypes) known << word;
    throw DescriptionError(at + ": unknown type '" + str(type) +
                           "' (known: " + str(known.join(", ")) + ")");
  }
  c.type = t->second;
  QJsonValue size = o.value("size");
  if (c.type == jet::coltype::kText) {
    if (!size.isDouble() || size.toDouble() != std::floor(size.toDouble()) || size.toDouble() < 1 ||
        size.toDouble() > 255)
      throw DescriptionError(at + ": a Text column needs a 'size' of 1 to 255 characters");
    c.size = static_cast<uint16_t>(size.toInt());
  } else if (!size.isUndefined()) {
    throw DescriptionError(at + ": only Text columns take a 'size'");
  }
  c.autoNumber = optionalBool(o, "autoNumber", at);
  if (c.autoNumber && c.type != jet::coltype::kLong)
    throw DescriptionError(at + ": only a Long column can be an AutoNumber");
  return c;
}

jet::IndexSpec parseIndex(const QJsonValue& v, const jet::TableSpec& table,
                          const std::string& where) {
  if (!v.isObject()) throw DescriptionError(where + ": an index must be an object");
  QJsonObject o = v.toObject();
  jet::IndexSpec ix;
  ix.name = str(requireString(o, "name", where));
  std::string at = where + ": index '" + ix.name + "'";
  onlyKeys(
      o, {"name", "columns", "descending", "primary", "unique", "ignoreNulls", "required", "note"},
      at);
  QJsonArray cols = requireArray(o, "columns", at);
  if (cols.isEmpty() || cols.size() > jet::kMaxIndexColumns)
    throw DescriptionError(at + ": an index has 1 to " + std::to_string(jet::kMaxIndexColumns) +
                           " columns");
  for (const QJsonValue& c : cols) {
    if (!c.isString()) throw DescriptionError(at + ": index columns are names");
    std::string name = str(c.toString());
    bool known = false;
    for (const jet::ColumnSpec& col : table.columns) known = known || sameName(col.name, name);
    if (!known) throw DescriptionError(at + ": no column '" + name + "' in the table");
    for (const std::string& earlier : ix.columns)
      if (sameName(earlier, name)) throw DescriptionError(at + ": column '" + name + "' twice");
    ix.columns.push_back(name);
  }
  if (o.contains("descending")) {
    QJsonArray desc = requireArray(o, "descending", at);
    if (desc.size() != cols.size())
      throw DescriptionError(at + ": 'descending' needs one entry per column");
    for (const QJsonValue& d : desc) {
      if (!d.isBool()) throw DescriptionError(at + ": 'descending' entries are true or false");
      ix.descending.push_back(d.toBool());
    }
  }
  ix.primary = optionalBool(o, "primary", at);
  ix.unique = optionalBool(o, "unique", at);
  ix.ignoreNulls = optionalBool(o, "ignoreNulls", at);
  ix.required = optionalBool(o, "required", at);
  return ix;
}

// A column of a primary or required index may not hold Null.
bool isRequired(const jet::TableSpec& t, const jet::ColumnSpec& c) {
  for (const jet::IndexSpec& ix : t.indexes)
    if (ix.primary || ix.required)
      for (const std::string& n : ix.columns)
        if (sameName(n, c.name)) return true;
  return false;
}

int32_t wholeNumber(const QJsonValue& v, double lo, double hi, const std::string& at) {
  double d = v.isDouble() ? v.toDouble() : NAN;
  if (!(d == std::floor(d) && d >= lo && d <= hi))
    throw DescriptionError(at + ": expected a whole number from " + std::to_string(int64_t(lo)) +
                           " to " + std::to_string(int64_t(hi)));
  return static_cast<int32_t>(d);
}

jet::DateTime parseDate(const QString& text, const std::string& at) {
  jet::CivilTime t;
  char tail = 0;
  std::string s = str(text);
  int n = std::sscanf(s.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%c", &t.year, &t.month, &t.day, &t.hour,
                      &t.minute, &t.second, &tail);
  if (!(n == 3 || n == 6) || t.month < 1 || t.month > 12 || t.day < 1 || t.day > 31 ||
      t.hour > 23 || t.minute > 59 || t.second > 59)
    throw DescriptionError(at + ": expected a date as YYYY-MM-DD or YYYY-MM-DD HH:MM:SS");
  if (n == 3) t.hour = t.minute = t.second = 0;
  return jet::fromCivil(t);
}

jet::Value parseValue(const QJsonValue& v, const jet::TableSpec& t, const jet::ColumnSpec& c,
                      const std::string& where) {
  std::string at = where + ", column '" + c.name + "'";
  if (v.isNull()) {
    if (isRequired(t, c) && !c.autoNumber) throw DescriptionError(at + ": may not be null");
    return std::monostate{};
  }
  switch (c.type) {
    case jet::coltype::kBoolean:
      if (!v.isBool()) throw DescriptionError(at + ": expected true or false");
      return v.toBool();
    case jet::coltype::kByte:
      return wholeNumber(v, 0, 255, at);
    case jet::coltype::kInteger:
      return wholeNumber(v, -32768, 32767, at);
    case jet::coltype::kLong:
      return wholeNumber(v, -2147483648.0, 2147483647.0, at);
    case jet::coltype::kCurrency:
      if (!v.isDouble()) throw DescriptionError(at + ": expected a number");
      return jet::Currency{std::llround(v.toDouble() * 10000)};
    case jet::coltype::kSingle:
      if (!v.isDouble()) throw DescriptionError(at + ": expected a number");
      return static_cast<float>(v.toDouble());
    case jet::coltype::kDouble:
      if (!v.isDouble()) throw DescriptionError(at + ": expected a number");
      return v.toDouble();
    case jet::coltype::kDateTime:
      if (!v.isString()) throw DescriptionError(at + ": expected a date text");
      return parseDate(v.toString(), at);
    case jet::coltype::kText:
      if (!v.isString()) throw DescriptionError(at + ": expected a text");
      if (v.toString().size() > c.size)
        throw DescriptionError(at + ": text longer than the column's " + std::to_string(c.size) +
                               " characters");
      return str(v.toString());
    case jet::coltype::kMemo:
      if (!v.isString()) throw DescriptionError(at + ": expected a text");
      return str(v.toString());
  }
  throw DescriptionError(at + ": no values for this type");
}

// Two values an index treats as the same key: text ignores case, as the
// database's sort order does.
bool sameKeyPart(const jet::Value& a, const jet::Value& b) {
  auto sa = std::get_if<std::string>(&a);
  auto sb = std::get_if<std::string>(&b);
  if (sa && sb) return sameName(*sa, *sb);
  return a == b;
}

// Reported here, by row and index name, rather than later as the engine's
// long duplicate-key message. Rows whose key holds a Null never clash, as in
// the database.
void checkUniqueKeys(const TableDescription& td, const std::string& at) {
  for (const jet::IndexSpec& ix : td.spec.indexes) {
    if (!ix.primary && !ix.unique) continue;
    std::vector<size_t> cols;
    for (const std::string& n : ix.columns)
      for (size_t c = 0; c < td.spec.columns.size(); ++c)
        if (sameName(td.spec.columns[c].name, n)) cols.push_back(c);
    for (size_t r = 0; r < td.rows.size(); ++r) {
      for (size_t e = 0; e < r; ++e) {
        bool same = true;
        for (size_t c : cols)
          same = same && !jet::isNull(td.rows[r][c]) && sameKeyPart(td.rows[r][c], td.rows[e][c]);
        if (same)
          throw DescriptionError(at + ", row " + std::to_string(r + 1) + ": same key as row " +
                                 std::to_string(e + 1) + " in unique index '" + ix.name + "'");
      }
    }
  }
}

TableDescription parseTable(const QJsonValue& v, const std::string& file) {
  if (!v.isObject()) throw DescriptionError(file + ": a table must be an object");
  QJsonObject o = v.toObject();
  TableDescription td;
  td.spec.name = str(requireString(o, "name", file));
  std::string at = file + ": table '" + td.spec.name + "'";
  onlyKeys(o, {"name", "note", "columns", "indexes", "rows"}, at);

  QJsonArray cols = requireArray(o, "columns", at);
  if (cols.isEmpty()) throw DescriptionError(at + ": no columns");
  for (const QJsonValue& c : cols) {
    jet::ColumnSpec col = parseColumn(c, at);
    for (const jet::ColumnSpec& earlier : td.spec.columns)
      if (sameName(earlier.name, col.name))
        throw DescriptionError(at + ": duplicate column name '" + col.name + "'");
    td.spec.columns.push_back(col);
  }

  int primaries = 0;
  for (const QJsonValue& i : requireArray(o, "indexes", at)) {
    jet::IndexSpec ix = parseIndex(i, td.spec, at);
    for (const jet::IndexSpec& earlier : td.spec.indexes)
      if (sameName(earlier.name, ix.name))
        throw DescriptionError(at + ": duplicate index name '" + ix.name + "'");
    primaries += ix.primary;
    td.spec.indexes.push_back(ix);
  }
  if (primaries > 1) throw DescriptionError(at + ": more than one primary key");

  QJsonArray rows = requireArray(o, "rows", at);
  for (qsizetype r = 0; r < rows.size(); ++r) {
    std::string rowAt = at + ", row " + std::to_string(r + 1);
    if (!rows[r].isArray()) throw DescriptionError(rowAt + ": a row is an array of values");
    QJsonArray values = rows[r].toArray();
    if (values.size() != static_cast<qsizetype>(td.spec.columns.size()))
      throw DescriptionError(rowAt + ": " + std::to_string(values.size()) + " values for " +
                             std::to_string(td.spec.columns.size()) + " columns");
    std::vector<jet::Value> row;
    for (size_t c = 0; c < td.spec.columns.size(); ++c)
      row.push_back(
          parseValue(values[static_cast<qsizetype>(c)], td.spec, td.spec.columns[c], rowAt));
    td.rows.push_back(std::move(row));
  }
  checkUniqueKeys(td, at);
  return td;
}

const TableDescription* findTable(const std::vector<TableDescription>& tables,
                                  const std::string& name) {
  for (const TableDescription& t : tables)
    if (sameName(t.spec.name, name)) return &t;
  return nullptr;
}

const jet::ColumnSpec* findColumn(const TableDescription& t, const std::string& name) {
  for (const jet::ColumnSpec& c : t.spec.columns)
    if (sameName(c.name, name)) return &c;
  return nullptr;
}

// The value of column `name` in `row`, or Null where the table lacks it.
jet::Value cell(const TableDescription& t, const std::vector<jet::Value>& row,
                const std::string& name) {
  for (size_t i = 0; i < t.spec.columns.size(); ++i)
    if (sameName(t.spec.columns[i].name, name)) return row[i];
  return std::monostate{};
}

std::optional<int32_t> asInt(const jet::Value& v) {
  if (auto i = std::get_if<int32_t>(&v)) return *i;
  return std::nullopt;
}

// The editor opens each value table FeatureDefAttr names and writes Value or
// minVal/maxVal of the attribute's type into it; a template that lacks the
// table or gives it the wrong columns would fail only when a user picks
// that attribute, so it is caught here.
void checkValueTables(const std::vector<TableDescription>& tables, const std::string& file) {
  const TableDescription* defAttr = findTable(tables, "FeatureDefAttr");
  if (!defAttr) return;
  const TableDescription* attrs = findTable(tables, "GraphicAttributes");
  const TableDescription* domains = findTable(tables, "DomainTypes");
  for (size_t r = 0; r < defAttr->rows.size(); ++r) {
    const auto& row = defAttr->rows[r];
    std::string at = file + ": table 'FeatureDefAttr', row " + std::to_string(r + 1);
    std::optional<int32_t> attrId = asInt(cell(*defAttr, row, "AttrId"));

    std::optional<int> gdoType;
    if (attrs && attrId) {
      bool found = false;
      for (const auto& a : attrs->rows) {
        if (asInt(cell(*attrs, a, "AttrId")) != attrId) continue;
        found = true;
        gdoType = asInt(cell(*attrs, a, "GDOType"));
      }
      if (!found)
        throw DescriptionError(at + ": AttrId " + std::to_string(*attrId) +
                               " is not in GraphicAttributes");
    }

    std::optional<std::string> domain;
    std::optional<int32_t> domainId = asInt(cell(*defAttr, row, "DomainTypeId"));
    if (domains && domainId) {
      for (const auto& d : domains->rows) {
        jet::Value kind = cell(*domains, d, "DomainType");
        const std::string* word = std::get_if<std::string>(&kind);
        if (word && asInt(cell(*domains, d, "DomainTypeId")) == domainId) domain = *word;
      }
      if (!domain)
        throw DescriptionError(at + ": DomainTypeId " + std::to_string(*domainId) +
                               " is not in DomainTypes");
    }

    jet::Value tn = cell(*defAttr, row, "TableName");
    const std::string* tableName = std::get_if<std::string>(&tn);
    if (!tableName || tableName->empty()) continue;
    const TableDescription* values = findTable(tables, *tableName);
    if (!values) throw DescriptionError(at + ": value table '" + *tableName + "' is not described");
    std::string vat = file + ": value table '" + *tableName + "'";
    if (!findColumn(*values, "feaId")) throw DescriptionError(vat + ": has no column feaId");
    std::vector<std::string> needed = {"Value"};
    if (domain && sameName(*domain, "Range")) needed = {"minVal", "maxVal"};
    for (const std::string& n : needed) {
      const jet::ColumnSpec* c = findColumn(*values, n);
      if (!c)
        throw DescriptionError(vat + ": domain '" + domain.value_or("?") + "' needs a column " + n);
      auto want = gdoType ? kValueColumnForGdoType.find(*gdoType) : kValueColumnForGdoType.end();
      if (want != kValueColumnForGdoType.end() && want->second != c->type)
        throw DescriptionError(vat + ": column " + n + " is " + str(typeWord(c->type)) +
                               " but the attribute's GDOType " + std::to_string(*gdoType) +
                               " needs " + str(typeWord(want->second)));
    }
  }
}

std::vector<TableDescription> readDescription(const std::string& path) {
  QFile f(QString::fromStdString(path));
  if (!f.open(QIODevice::ReadOnly))
    throw DescriptionError(path + ": cannot read: " + str(f.errorString()));
  QByteArray bytes = f.readAll();
  QJsonParseError err;
  QJsonDocument doc = QJsonDocument::fromJson(bytes, &err);
  if (err.error != QJsonParseError::NoError) {
    int line = 1 + static_cast<int>(bytes.left(err.offset).count('\n'));
    throw DescriptionError(path + ": line " + std::to_string(line) + ": " + str(err.errorString()));
  }
  if (!doc.isObject()) throw DescriptionError(path + ": the description must be a JSON object");
  QJsonObject top = doc.object();
  onlyKeys(top, {"description", "tables"}, path);
  std::vector<TableDescription> tables;
  for (const QJsonValue& t : requireArray(top, "tables", path)) {
    TableDescription td = parseTable(t, path);
    if (findTable(tables, td.spec.name))
      throw DescriptionError(path + ": duplicate table name '" + td.spec.name + "'");
    tables.push_back(std::move(td));
  }
  if (tables.empty()) throw DescriptionError(path + ": no tables");
  checkValueTables(tables, path);
  return tables;
}

void build(const std::vector<TableDescription>& tables, const std::string& in,
           const std::string& out, const std::string& base) {
  namespace fs = std::filesystem;
  std::string tmp = out + ".tmp-XXXXXX";
  int fd = ::mkstemp(tmp.data());
  if (fd < 0)
    throw std::runtime_error(out + ": cannot create a file beside it: " + strerror(errno));
  ::close(fd);
  try {
    {
      std::unique_ptr<jet::Database> db;
      if (base.empty()) {
        db = jet::createDatabase(jet::openFileStore(tmp, true));
      } else {
        fs::copy_file(base, tmp, fs::copy_options::overwrite_existing);
        db = jet::Database::open(jet::openFileStore(tmp, true));
      }
      for (const TableDescription& t : tables) {
        const jet::TableDef& def = jet::createTable(*db, t.spec);
        for (size_t r = 0; r < t.rows.size(); ++r) {
          try {
            db->insertRow(def, t.rows[r]);
          } catch (const jet::JetError& e) {
            std::string msg = e.what();
            if (msg.rfind(tmp + ": ", 0) == 0) msg.erase(0, tmp.size() + 2);
            throw DescriptionError(in + ": table '" + t.spec.name + "', row " +
                                   std::to_string(r + 1) + ": " + msg);
          }
        }
      }
      db->flush();
    }
    fs::permissions(tmp, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                             fs::perms::others_read);
    fs::rename(tmp, out);
  } catch (...) {
    ::unlink(tmp.c_str());
    throw;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool into = argc == 5 && std::strcmp(argv[3], "--into") == 0;
  if (argc != 3 && !into) {
    std::cerr << "usage: csd-template-gen IN.json OUT.csd [--into BASE]\n";
    return 1;
  }
  try {
    build(readDescription(argv[1]), argv[1], argv[2], into ? argv[4] : "");
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "csd-template-gen: " << e.what() << "\n";
    return 1;
  }
}
