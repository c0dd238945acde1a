#include "folders/folder_tables.h"

#include <variant>

#include "document/string_table.h"
#include "schema/engine_error.h"

namespace folders {

namespace {

template <typename F>
void dropPendingOnFailure(schema::Recordset& rs, F&& write) {
  try {
    write();
  } catch (...) {
    if (rs.isOpen() && rs.editMode() != schema::Recordset::EditMode::kNone) rs.cancelUpdate();
    throw;
  }
}

}  // namespace

QString textField(const schema::Recordset& rs, std::string_view field) {
  const jet::Value v = rs.field(field);
  const auto* s = std::get_if<std::string>(&v);
  return s ? QString::fromStdString(*s) : QString();
}

std::optional<int32_t> longField(const schema::Recordset& rs, std::string_view field) {
  const jet::Value v = rs.field(field);
  if (const auto* k = std::get_if<int32_t>(&v)) return *k;
  return std::nullopt;
}

std::optional<int16_t> keyField(const schema::Recordset& rs, std::string_view field) {
  const jet::Value v = rs.field(field);
  if (const auto* k = std::get_if<int32_t>(&v)) return schema::toInteger16(*k);
  return std::nullopt;
}

int16_t addRow(schema::Recordset& rs, std::string_view key,
               std::initializer_list<std::pair<std::string_view, jet::Value>> fields) {
  int16_t id = 0;
  dropPendingOnFailure(rs, [&] {
    rs.addNew();
    for (const auto& [name, value] : fields) rs.setField(name, value);
    id = keyField(rs, key).value_or(0);
    rs.update();
  });
  return id;
}

QString inUseMessage(const QString& failure, bool byMaps, bool byOther, int otherText) {
  using document::text;
  QString message = failure + QStringLiteral(". ") + text(5101);
  if (byMaps) message += u' ' + text(5102);
  if (byOther) {
    if (byMaps) message += u' ' + text(5103);
    message += u' ' + text(otherText);
  }
  return message + u'.';
}

void changeField(schema::Recordset& rs, std::string_view field, jet::Value value) {
  dropPendingOnFailure(rs, [&] {
    rs.edit();
    rs.setField(field, std::move(value));
    rs.update();
  });
}

}  // namespace folders
