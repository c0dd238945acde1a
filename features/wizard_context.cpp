#include "features/wizard_context.h"

#include <variant>

#include "document/string_table.h"
#include "features/value_syntax.h"

namespace features {

std::string WizardContext::featureRowsQuery(std::string_view table,
                                            std::string_view keyField) const {
  return "select * from " + std::string(table) + " where " + std::string(keyField) + " = " +
         std::to_string(featureId);
}

void WizardContext::tell(const QString& message) const {
  prompter.ask(message, document::MessageStyle::Ok);
}

bool WizardContext::confirm(const QString& message) const {
  return prompter.ask(message, document::MessageStyle::YesNo) == document::Answer::Yes;
}

std::optional<GraphicAttribute> WizardContext::attributeNamed(const QString& name,
                                                              int consequence) const {
  std::optional<GraphicAttribute> attribute = findAttribute(rs.graphicAttributes, name);
  if (!attribute) tell(document::text(5009) + name + ". " + document::text(consequence));
  return attribute;
}

QString checkLine(const QString& message) { return QStringLiteral("  ") + message + "\r\n"; }

QString qs(const std::string& s) { return QString::fromStdString(s); }
std::string ss(const QString& s) { return s.toStdString(); }

int32_t longOrZero(const schema::Recordset& rs, std::string_view field) {
  const jet::Value v = rs.field(field);
  if (const auto* i = std::get_if<int32_t>(&v)) return *i;
  if (const auto* b = std::get_if<bool>(&v)) return *b ? -1 : 0;
  return 0;
}

QString textOrEmpty(const schema::Recordset& rs, std::string_view field) {
  const jet::Value v = rs.field(field);
  if (const auto* s = std::get_if<std::string>(&v)) return qs(*s);
  return {};
}

namespace {
std::optional<GraphicAttribute> current(schema::Recordset& rs) {
  if (rs.noMatch()) return std::nullopt;
  return GraphicAttribute{longOrZero(rs, "AttrId"), textOrEmpty(rs, "Name"),
                          static_cast<int>(longOrZero(rs, "GDOType"))};
}
}  // namespace

std::optional<GraphicAttribute> findAttribute(schema::Recordset& graphicAttributes,
                                              const QString& name) {
  graphicAttributes.findFirst("Name = '" + ss(name) + "'");
  return current(graphicAttributes);
}

std::optional<GraphicAttribute> findAttribute(schema::Recordset& graphicAttributes,
                                              int32_t attrId) {
  graphicAttributes.findFirst("AttrId = " + std::to_string(attrId));
  return current(graphicAttributes);
}

QString typeName(int gdoType) {
  switch (gdoType) {
    case gdo::kBoolean:
      return document::text(2022);
    case gdo::kByte:
      return document::text(2023);
    case gdo::kInteger:
      return document::text(2024);
    case gdo::kLong:
      return document::text(2025);
    case gdo::kCurrency:
      return document::text(2026);
    case gdo::kSingle:
      return document::text(2027);
    case gdo::kDouble:
      return document::text(2028);
    case gdo::kDate:
      return document::text(2029);
    case gdo::kText:
      return document::text(2030);
    case gdo::kSpatial:
      return document::text(2031);
    case gdo::kGraphic:
      return document::text(2032);
    case gdo::kMemo:
      return document::text(2033);
    default:
      return {};
  }
}

}  // namespace features
