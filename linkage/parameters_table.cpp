#include "linkage/parameters_table.h"

#include <cstdlib>
#include <string>

#include "schema/engine_error.h"

namespace linkage {

ParametersTable::~ParametersTable() { CloseRecordSet(); }

void ParametersTable::CloseRecordSet() {
  if (rs_.isOpen()) rs_.close();
  rs_ = schema::Recordset();
  marks_ = {};
}

void ParametersTable::Initialize(schema::SchemaDatabase& db) {
  CloseRecordSet();
  schema::Recordset rs = db.openRecordset("Select * from CADParameters");
  std::array<schema::Recordset::Bookmark, kParameterNames.size()> marks{};
  for (size_t i = 0; i < kParameterNames.size(); ++i) {
    const std::string name(kParameterNames[i]);
    rs.findFirst("Name = '" + name + "'");
    if (rs.noMatch()) {
      rs.addNew();
      rs.setField("Name", name);
      if (i == static_cast<size_t>(kVersion)) rs.setField("Value", std::string("1.0"));
      rs.update();
      rs.setBookmark(rs.lastModified());
    }
    marks[i] = rs.bookmark();
  }
  rs_ = std::move(rs);
  marks_ = marks;
}

std::optional<std::string> ParametersTable::read(Row row) const {
  rs_.setBookmark(marks_[row]);
  jet::Value v = rs_.field("Value");
  if (jet::isNull(v)) return std::nullopt;
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  throw schema::EngineError(schema::err::kConversionError, schema::sources::kField);
}

std::string ParametersTable::readText(Row row, std::string_view whenNull) const {
  return read(row).value_or(std::string(whenNull));
}

void ParametersTable::write(Row row, std::string_view value) {
  rs_.setBookmark(marks_[row]);
  rs_.edit();
  rs_.setField("Value", value.empty() ? jet::Value() : jet::Value(std::string(value)));
  rs_.update();
}

std::string ParametersTable::INI() const { return readText(kIni); }
void ParametersTable::setINI(std::string_view value) { write(kIni, value); }

std::string ParametersTable::DbScannerClass() const { return readText(kDbScanner); }
void ParametersTable::setDbScannerClass(std::string_view value) { write(kDbScanner, value); }

std::string ParametersTable::GraphicScannerClass() const { return readText(kGraphicScanner); }
void ParametersTable::setGraphicScannerClass(std::string_view value) {
  write(kGraphicScanner, value);
}

std::string ParametersTable::GraphicConnectString() const { return readText(kGraphicConnect); }
void ParametersTable::setGraphicConnectString(std::string_view value) {
  write(kGraphicConnect, value);
}

std::string ParametersTable::DbConnectString() const { return readText(kDbConnect); }
void ParametersTable::setDbConnectString(std::string_view value) { write(kDbConnect, value); }

std::string ParametersTable::CADextension() const { return readText(kCadExtension, "*.*"); }
void ParametersTable::setCADextension(std::string_view value) {
  if (!rs_.isOpen()) return;
  write(kCadExtension, value);
}

double ParametersTable::Version() const {
  std::optional<std::string> text = read(kVersion);
  if (!text) return 1.0;
  const char* begin = text->c_str();
  char* end = nullptr;
  double number = std::strtod(begin, &end);
  // Only blanks may follow the number, as when the text is converted to a
  // number anywhere else.
  while (end && *end == ' ') ++end;
  if (end == begin || *end != '\0')
    throw schema::EngineError(schema::err::kConversionError, schema::sources::kField);
  return number;
}

}  // namespace linkage
