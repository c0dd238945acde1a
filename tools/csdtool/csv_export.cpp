#include "tools/csdtool/csv_export.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace csdtool {
namespace {

using namespace jet;

void appendQuoted(std::string& out, const char* data, size_t n) {
  out.push_back('"');
  const char* end = data + n;
  while (data < end) {
    const char* q = static_cast<const char*>(std::memchr(data, '"', static_cast<size_t>(end - data)));
    const char* stop = q ? q + 1 : end;
    out.append(data, stop);
    if (q) out.push_back('"');
    data = stop;
  }
  out.push_back('"');
}

// Dates: whole days from 1899-12-30 and the time of day rounded to the
// second, shown as "%m/%d/%y %H:%M:%S".
std::string formatDate(DateTime d) {
  CivilTime t = toCivil(d);
  char buf[48];
  std::snprintf(buf, sizeof buf, "%02d/%02d/%02d %02d:%02d:%02d", t.month, t.day,
                ((t.year % 100) + 100) % 100, t.hour, t.minute, t.second);
  return buf;
}

// mdb-export writes GUIDs as {8-4-4-16} hex digits, not the usual 8-4-4-4-12.
std::string formatGuid(const Guid& g) {
  std::string s = guidToString(g);
  s.erase(24, 1);
  return s;
}

std::string formatDecimal(const Decimal& d) {
  std::string s = decimalToString(d);
  if (d.negative && s[0] != '-') s.insert(s.begin(), '-');
  return s;
}

}  // namespace

std::string csvField(const ColumnDef& c, const Value& v) {
  std::string out;
  char buf[64];
  std::visit(
      [&](const auto& x) {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
        } else if constexpr (std::is_same_v<T, bool>) {
          out = x ? "1" : "0";
        } else if constexpr (std::is_same_v<T, int32_t>) {
          out = std::to_string(x);
        } else if constexpr (std::is_same_v<T, Currency>) {
          out = currencyToString(x);
        } else if constexpr (std::is_same_v<T, float>) {
          std::snprintf(buf, sizeof buf, "%.8g", static_cast<double>(x));
          out = buf;
        } else if constexpr (std::is_same_v<T, double>) {
          std::snprintf(buf, sizeof buf, "%.16g", x);
          out = buf;
        } else if constexpr (std::is_same_v<T, DateTime>) {
          std::string s = formatDate(x);
          appendQuoted(out, s.data(), s.size());
        } else if constexpr (std::is_same_v<T, std::string>) {
          // An empty text is written like Null.
          if (!x.empty()) appendQuoted(out, x.data(), x.size());
        } else if constexpr (std::is_same_v<T, Blob>) {
          if (!x.empty() || c.type == coltype::kOle)
            appendQuoted(out, reinterpret_cast<const char*>(x.data()), x.size());
        } else if constexpr (std::is_same_v<T, Guid>) {
          std::string s = formatGuid(x);
          appendQuoted(out, s.data(), s.size());
        } else if constexpr (std::is_same_v<T, Decimal>) {
          out = formatDecimal(x);
        }
      },
      v);
  return out;
}

void exportCsv(Database& db, const TableDef& t, std::ostream& out) {
  std::string line;
  for (size_t i = 0; i < t.columns.size(); ++i) {
    if (i) line += ',';
    line += t.columns[i].name;
  }
  line += '\n';
  out << line;
  db.scanRows(t, [&](RowId, Bytes row) {
    std::vector<Value> values = db.decodeRow(t, row);
    line.clear();
    for (size_t i = 0; i < values.size(); ++i) {
      if (i) line += ',';
      line += csvField(t.columns[i], values[i]);
    }
    line += '\n';
    out << line;
    return static_cast<bool>(out);
  });
}

}  // namespace csdtool
