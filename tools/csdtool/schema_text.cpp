#include "tools/csdtool/schema_text.h"

#include <iomanip>

namespace csdtool {

using namespace jet;

void printHeader(Database& db, std::ostream& out) {
  const HeaderInfo& h = db.header();
  out << "File: " << db.fileName() << "\n"
      << "Format: " << (h.version == Version::kJet3 ? "Jet 3 (Access 97)" : "Jet 4 (Access 2000)")
      << ", " << db.format().pageSize << "-byte pages, " << db.pageCount() << " pages\n"
      << "Code page: " << h.codePage << ", sort order: " << h.sortOrder;
  if (h.version == Version::kJet4) out << " version " << int(h.sortVersion);
  out << (h.hasPassword ? ", password set" : "") << "\n";
}

void printColumns(const TableDef& t, std::ostream& out) {
  for (const ColumnDef& c : t.columns) {
    out << c.name << '\t' << typeName(c.type) << '\t' << c.length << '\t';
    const char* sep = "";
    auto flag = [&](bool on, const char* name) {
      if (on) out << sep << name, sep = ",";
    };
    flag(c.isFixed(), "fixed");
    flag(c.flags & colflag::kNullable, "nullable");
    flag(c.isAutoNumber(), "autonumber");
    flag(c.isAutoGuid(), "autoguid");
    out << '\n';
  }
}

void printSchema(Database& db, const TableDef& t, std::ostream& out) {
  (void)db;
  out << "Table: " << t.name << (t.isSystem() ? " (system)" : "") << "\n"
      << "  definition page " << t.tdefPage;
  if (t.pages.size() > 1) out << " (+" << t.pages.size() - 1 << " continuation pages)";
  out << ", " << t.rowCount << " rows";
  if (t.nextAutoNumber) out << ", next AutoNumber " << t.nextAutoNumber;
  out << "\n  Columns:\n";
  for (const ColumnDef& c : t.columns) {
    out << "    " << std::left << std::setw(24) << c.name << " " << std::setw(9)
        << typeName(c.type);
    if (c.type == coltype::kText || c.type == coltype::kBinary) {
      size_t chars = c.type == coltype::kText ? c.length / db.format().textUnitSize : c.length;
      out << " (" << chars << ")";
    } else if (c.type == coltype::kDecimal) {
      out << " (" << int(c.precision) << "," << int(c.scale) << ")";
    }
    if (c.isAutoNumber()) out << " AutoNumber";
    if (c.isAutoGuid()) out << " AutoGUID";
    if (c.isFixed() && c.type == coltype::kText) out << " fixed";
    out << "\n";
  }
  if (t.indexes.empty()) return;
  out << "  Indexes:\n";
  for (const LogicalIndex& li : t.indexes) {
    const RealIndex& ri = t.realIndexes[li.realIndex];
    out << "    " << li.name << " (";
    for (size_t i = 0; i < ri.columns.size(); ++i) {
      if (i) out << ", ";
      out << t.columns[ri.columns[i].column].name << (ri.columns[i].ascending ? "" : " DESC");
    }
    out << ")";
    if (li.primary()) out << " primary key";
    if (li.foreignKey()) out << " foreign key";
    if (ri.unique()) out << " unique";
    if (ri.ignoreNulls()) out << " ignore-nulls";
    if (ri.required()) out << " required";
    out << "\n";
  }
}

}  // namespace csdtool
