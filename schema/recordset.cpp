#include "schema/recordset.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "jet/error.h"
#include "jet/index_key.h"
#include "jet/row_codec.h"
#include "schema/collation.h"
#include "schema/database_core.h"
#include "schema/evaluator.h"
#include "schema/planner.h"

namespace schema {
namespace {

FieldKind kindOf(const jet::ColumnDef& c) {
  switch (c.type) {
    case jet::coltype::kText:
    case jet::coltype::kMemo:
      return FieldKind::kText;
    case jet::coltype::kBinary:
    case jet::coltype::kOle:
    case jet::coltype::kGuid:
      return FieldKind::kOther;
    default:
      return FieldKind::kNumber;
  }
}

// The column of `table` called `name`, by Jet's rules for names.
std::optional<size_t> columnOf(const jet::TableDef& t, std::string_view name) {
  for (size_t i = 0; i < t.columns.size(); ++i)
    if (sameName(t.columns[i].name, name)) return i;
  return std::nullopt;
}

// One row of each source table, as a WHERE clause of the query sees them.
class JoinedRow : public RowSource, public FieldCatalog {
 public:
  struct Table {
    const jet::TableDef* def;
    std::string_view alias;
    const std::vector<jet::Value>* row = nullptr;
  };
  explicit JoinedRow(std::vector<Table> tables) : tables_(std::move(tables)) {}

  void setRow(size_t table, const std::vector<jet::Value>* row) { tables_[table].row = row; }
  const jet::Value* value(size_t table, size_t column) const {
    return &(*tables_[table].row)[column];
  }
  FieldKind kindAt(std::pair<size_t, size_t> at) const { return kindOf(columnAt(at)); }
  const jet::ColumnDef& columnAt(std::pair<size_t, size_t> at) const {
    return tables_[at.first].def->columns[at.second];
  }

  // (table, column) of a name; nullopt when unknown, 3079 when two tables
  // have it and it stands unqualified.
  std::optional<std::pair<size_t, size_t>> resolve(std::string_view table,
                                                   std::string_view name) const {
    std::optional<std::pair<size_t, size_t>> found;
    for (size_t i = 0; i < tables_.size(); ++i) {
      const Table& t = tables_[i];
      if (!table.empty() && !sameName(table, t.alias.empty() ? t.def->name : t.alias) &&
          !sameName(table, t.def->name))
        continue;
      if (auto c = columnOf(*t.def, name)) {
        if (found) throw EngineError(err::kAmbiguousField, sources::kDatabase, {name});
        found = std::make_pair(i, *c);
      }
    }
    return found;
  }

  std::optional<jet::Value> field(std::string_view table, std::string_view name) const override {
    auto at = resolveOnce(table, name);
    if (!at) return std::nullopt;
    return (*tables_[at->first].row)[at->second];
  }

  std::optional<FieldKind> fieldKind(std::string_view table, std::string_view name) const override {
    auto at = resolveOnce(table, name);
    if (!at) return std::nullopt;
    return kindOf(tables_[at->first].def->columns[at->second]);
  }

 private:
  // The names come from the condition's nodes, which stay put while the
  // query runs: each is resolved at its first use, not once per row.
  std::optional<std::pair<size_t, size_t>> resolveOnce(std::string_view table,
                                                       std::string_view name) const {
    const std::pair<const char*, const char*> key{table.data(), name.data()};
    auto it = resolved_.find(key);
    if (it != resolved_.end()) return it->second;
    auto at = resolve(table, name);
    if (at) resolved_.emplace(key, *at);
    return at;
  }

  std::vector<Table> tables_;
  mutable std::map<std::pair<const char*, const char*>, std::pair<size_t, size_t>> resolved_;
};

// Whether a condition checkExpression accepted can still fail on some rows
// and not on others: where a text or binary value may stand for a truth
// value or a number, or a binary or unknown kind of column is compared.
// Only a condition that cannot is tested while the result is handed on row
// by row, so that no failure comes after rows already given out.
bool mayFailOnSomeRows(const Expr& e, const JoinedRow& joined, bool truthWanted = true) {
  auto column = [&](const Expr& field) -> const jet::ColumnDef* {
    auto at = joined.resolve(field.table, field.name);
    return at ? &joined.columnAt(*at) : nullptr;
  };
  // Numbers, True / False or Null, whatever the row.
  auto numeric = [&](const Expr& x) {
    if (x.kind == Expr::Kind::kLiteral) return !std::holds_alternative<std::string>(x.value);
    if (x.kind == Expr::Kind::kField) {
      const jet::ColumnDef* c = column(x);
      return c && holdsNumbers(*c);
    }
    return true;  // comparisons, logic and negations
  };
  auto comparable = [&](const Expr& x) {
    if (x.kind != Expr::Kind::kField) return true;
    const jet::ColumnDef* c = column(x);
    return c && (holdsNumbers(*c) || kindOf(*c) == FieldKind::kText);
  };
  switch (e.kind) {
    case Expr::Kind::kLiteral:
    case Expr::Kind::kField:
      return truthWanted && !numeric(e);
    case Expr::Kind::kCompare:
      return !comparable(*e.left) || !comparable(*e.right) ||
             mayFailOnSomeRows(*e.left, joined, false) ||
             mayFailOnSomeRows(*e.right, joined, false);
    case Expr::Kind::kAnd:
    case Expr::Kind::kOr:
      return mayFailOnSomeRows(*e.left, joined) || mayFailOnSomeRows(*e.right, joined);
    case Expr::Kind::kNot:
      return mayFailOnSomeRows(*e.left, joined);
    case Expr::Kind::kNegate:
      return !numeric(*e.left) || mayFailOnSomeRows(*e.left, joined, false);
    case Expr::Kind::kIsNull:
      return mayFailOnSomeRows(*e.left, joined, false);
  }
  return true;
}

// The values a read-only result may hold before the query is refused, Jet's
// "System resource exceeded": a hundred megabytes or so.
constexpr size_t kMaxResultValues = size_t{2} << 20;
// Combinations of rows looked at before a join is refused as too complex;
// an equality between tables is looked up, not searched, so only joins the
// WHERE clause barely limits come near it.
constexpr uint64_t kMaxJoinSteps = uint64_t{4} << 20;

// Finds the rows of a join without building the product of its tables: a
// depth-first walk that binds one table's row at a time and tests each
// condition of the WHERE clause's AND chain as soon as every table it names
// is bound, so a combination that already fails is never extended. Where a
// condition is "this table's column = an earlier table's column", the
// matching rows come from a hash of the column's values instead of a scan.
// Rows come out in the order of the tables' product, last table fastest.
class Join {
 public:
  Join(JoinedRow& joined, const std::vector<std::vector<std::vector<jet::Value>>>& rows,
       const Expr* where, TextOrder order)
      : joined_(joined), rows_(rows), order_(order), levels_(rows.size()) {
    std::vector<const Expr*> parts;
    if (where) conjuncts(*where, parts);
    for (const Expr* p : parts) {
      size_t level = 0;
      for (const Expr* f : fieldsOf(*p))
        level = std::max(level, joined_.resolve(f->table, f->name)->first);
      levels_[level].checks.push_back(p);
      if (!levels_[level].lookup) useLookup(level, *p);
    }
  }

  void run(const std::function<void()>& emit) {
    for (const auto& table : rows_)
      if (table.empty()) return;
    Evaluator eval(joined_, ExprContext::kQuery, order_);
    std::vector<size_t> at(rows_.size(), 0);
    std::vector<const std::vector<size_t>*> candidates(rows_.size(), nullptr);
    size_t level = 0;
    candidates[0] = candidatesAt(0);
    uint64_t steps = 0;
    for (;;) {
      const size_t count = candidates[level] ? candidates[level]->size() : rows_[level].size();
      if (at[level] == count) {
        if (level == 0) return;
        ++at[--level];
        continue;
      }
      if (++steps > kMaxJoinSteps) throw EngineError(err::kQueryTooComplex, sources::kDatabase);
      const size_t row = candidates[level] ? (*candidates[level])[at[level]] : at[level];
      joined_.setRow(level, &rows_[level][row]);
      bool kept = true;
      for (const Expr* check : levels_[level].checks)
        if (!(kept = eval.matches(*check))) break;
      if (kept && level + 1 == rows_.size()) {
        emit();
      } else if (kept) {
        at[++level] = 0;
        candidates[level] = candidatesAt(level);
        continue;
      }
      ++at[level];
    }
  }

 private:
  struct Lookup {
    size_t column = 0;               // this table's column
    std::pair<size_t, size_t> from;  // the earlier table's column it equals
    std::unordered_map<std::string, std::vector<size_t>> rows;
  };
  struct Level {
    std::vector<const Expr*> checks;
    std::optional<Lookup> lookup;
  };

  // Equal values under compareValues give equal keys: numbers by their
  // value, text by its sort key. Null, and what is neither, gives none.
  std::optional<std::string> keyOf(const jet::Value& v) const {
    if (auto* text = std::get_if<std::string>(&v)) {
      std::vector<uint8_t> key = textSortKey(*text, order_);
      return "t" + std::string(key.begin(), key.end());
    }
    std::optional<double> number = numberOf(v);
    if (!number) return std::nullopt;
    double d = *number == 0 ? 0.0 : *number;  // -0 equals 0
    char bytes[sizeof d];
    std::memcpy(bytes, &d, sizeof d);
    return "n" + std::string(bytes, sizeof d);
  }

  void useLookup(size_t level, const Expr& p) {
    if (level == 0 || p.kind != Expr::Kind::kCompare || p.op != CompareOp::kEqual) return;
    if (p.left->kind != Expr::Kind::kField || p.right->kind != Expr::Kind::kField) return;
    auto l = *joined_.resolve(p.left->table, p.left->name);
    auto r = *joined_.resolve(p.right->table, p.right->name);
    if (l.first != level) std::swap(l, r);
    if (l.first != level || r.first >= level) return;
    // Only where both sides are of one kind: text against a number is an
    // error the evaluation must still raise.
    if (joined_.kindAt(l) != joined_.kindAt(r) || joined_.kindAt(l) == FieldKind::kOther) return;
    Lookup lookup{l.second, r, {}};
    for (size_t i = 0; i < rows_[level].size(); ++i)
      if (auto key = keyOf(rows_[level][i][l.second])) lookup.rows[*key].push_back(i);
    levels_[level].lookup = std::move(lookup);
  }

  // The rows of this level worth trying with the earlier levels bound; null
  // for all of them.
  const std::vector<size_t>* candidatesAt(size_t level) const {
    const std::optional<Lookup>& lookup = levels_[level].lookup;
    if (!lookup) return nullptr;
    std::optional<std::string> key = keyOf(*joined_.value(lookup->from.first, lookup->from.second));
    if (!key) return &kNone;
    auto it = lookup->rows.find(*key);
    return it == lookup->rows.end() ? &kNone : &it->second;
  }

  static inline const std::vector<size_t> kNone;
  JoinedRow& joined_;
  const std::vector<std::vector<std::vector<jet::Value>>>& rows_;
  TextOrder order_;
  std::vector<Level> levels_;
};

// A row of the recordset itself, as FindFirst criteria see it.
class ResultRow : public RowSource, public FieldCatalog {
 public:
  using Values = std::function<const jet::Value&(size_t)>;
  // `value` gives the current row's value of a result column, by number.
  ResultRow(const std::vector<std::string>& names, const std::vector<FieldKind>& kinds,
            Values value)
      : names_(names), kinds_(kinds), value_(std::move(value)) {}

  std::optional<jet::Value> field(std::string_view table, std::string_view name) const override {
    auto i = find(table, name);
    if (!i) return std::nullopt;
    return value_(*i);
  }
  std::optional<FieldKind> fieldKind(std::string_view table, std::string_view name) const override {
    auto i = find(table, name);
    if (!i) return std::nullopt;
    return kinds_[*i];
  }

 private:
  std::optional<size_t> find(std::string_view, std::string_view name) const {
    for (size_t i = 0; i < names_.size(); ++i)
      if (sameName(names_[i], name)) return i;
    return std::nullopt;
  }
  const std::vector<std::string>& names_;
  const std::vector<FieldKind>& kinds_;
  Values value_;
};

// Orders rows for DISTINCT: Null first, then by value, column by column.
int compareRows(const std::vector<jet::Value>& a, const std::vector<jet::Value>& b,
                TextOrder order) {
  for (size_t i = 0; i < a.size(); ++i) {
    bool an = jet::isNull(a[i]), bn = jet::isNull(b[i]);
    if (an || bn) {
      if (an != bn) return an ? -1 : 1;
      continue;
    }
    if (int c = compareValues(a[i], b[i], ExprContext::kQuery, order)) return c;
  }
  return 0;
}

}  // namespace

Recordset::Recordset(Recordset&&) noexcept = default;
Recordset& Recordset::operator=(Recordset&&) noexcept = default;
Recordset::~Recordset() = default;

detail::DatabaseCore& Recordset::core() const {
  // The SchemaDatabase owning the core outlives the call; one that is gone
  // has let go of it, which expired() tells without taking a reference.
  if (core_.expired() || !coreRaw_->db || coreRaw_->session != session_)
    throw EngineError(err::kObjectInvalid, sources::kRecordset);
  return *coreRaw_;
}

template <typename F>
auto Recordset::guard(const char* source, F&& f) const -> decltype(f()) {
  return core().run(source, std::forward<F>(f));
}

bool Recordset::isOpen() const {
  auto c = core_.lock();
  return c && c->db && c->session == session_;
}

void Recordset::close() { *this = Recordset(); }

bool Recordset::openQuery(std::weak_ptr<detail::DatabaseCore> weak, std::string_view sql,
                          const Forward* forward) {
  auto shared = weak.lock();
  if (!shared || !shared->db) throw EngineError(err::kObjectInvalid, sources::kDatabase);
  SelectStatement st = shared->run(sources::kDatabase, [&] { return parseSelect(sql); });
  return openStatement(std::move(weak), st, ExprContext::kQuery, forward);
}

bool Recordset::openStatement(std::weak_ptr<detail::DatabaseCore> weak, const SelectStatement& st,
                              ExprContext ctx, const Forward* forward) {
  bool streamed = false;
  core_ = std::move(weak);
  auto shared = core_.lock();
  coreRaw_ = shared.get();
  if (!shared || !shared->db) throw EngineError(err::kObjectInvalid, sources::kDatabase);
  session_ = shared->session;
  detail::DatabaseCore& c = *shared;
  c.run(sources::kDatabase, [&] {
    for (const TableRef& ref : st.tables) {
      try {
        sources_.push_back({&c.db->table(ref.name), ref.alias});
      } catch (const jet::JetError& e) {
        if (e.kind() != jet::JetError::Kind::kNotFound) throw;
        throw EngineError(err::kTableNotFound, sources::kDatabase, {ref.name});
      }
    }
    std::vector<JoinedRow::Table> tables;
    for (const Source& s : sources_) tables.push_back({s.table, s.alias});
    JoinedRow joined(tables);

    // The fields of the recordset.
    int unknown = 0;
    if (st.allColumns) {
      for (size_t s = 0; s < sources_.size(); ++s)
        for (size_t i = 0; i < sources_[s].table->columns.size(); ++i)
          columns_.push_back({sources_[s].table->columns[i].name, s, i});
    }
    for (const ColumnRef& ref : st.columns) {
      if (ref.name == "*") {
        bool any = false;
        for (size_t s = 0; s < sources_.size(); ++s) {
          const std::string& shown =
              sources_[s].alias.empty() ? sources_[s].table->name : sources_[s].alias;
          if (!sameName(ref.table, shown) && !sameName(ref.table, sources_[s].table->name))
            continue;
          any = true;
          for (size_t i = 0; i < sources_[s].table->columns.size(); ++i)
            columns_.push_back({sources_[s].table->columns[i].name, s, i});
        }
        if (!any) throw EngineError(err::kTableNotFound, sources::kDatabase, {ref.table});
        continue;
      }
      auto at = joined.resolve(ref.table, ref.name);
      if (!at) {
        ++unknown;
        continue;
      }
      columns_.push_back({ref.alias.empty() ? ref.name : ref.alias, at->first, at->second});
    }
    // Jet takes a name it does not know for a parameter nobody supplied.
    if (st.where) {
      try {
        checkExpression(*st.where, joined, ctx);
      } catch (const EngineError& e) {
        if (e.number() != err::kTooFewParameters || unknown == 0) throw;
        // Both lists name unknowns: Jet counts them together.
        unknown += std::stoi(e.description().substr(e.description().rfind(' ') + 1));
      }
    }
    if (unknown)
      throw EngineError(err::kTooFewParameters, sources::kDatabase, {std::to_string(unknown)});

    snapshot_ = st.distinct || sources_.size() > 1;
    const TextOrder order = textOrderOf(c.db->format());
    Evaluator eval(joined, ctx, order);
    if (!snapshot_) {
      const jet::TableDef& t = *sources_[0].table;
      allColumnsInOrder_ = columns_.size() == t.columns.size();
      for (size_t i = 0; i < columns_.size() && allColumnsInOrder_; ++i)
        allColumnsInOrder_ = columns_[i].column == i;
      const uint32_t epoch = static_cast<uint32_t>(c.rollbacks);
      // Read forward only, each row is handed on as it is found, decoded
      // only in the columns shown, and nothing is kept of it.
      streamed = forward && !(st.where && mayFailOnSomeRows(*st.where, joined));
      std::vector<bool> shown;
      if (streamed && !allColumnsInOrder_) {
        shown.assign(t.columns.size(), false);
        for (const Column& col : columns_) shown[col.column] = true;
      }
      std::vector<jet::Value> projection;
      auto keep = [&](jet::RowId id, jet::Bytes bytes) {
        if (!streamed) {
          members_.push_back({nextMark_++, id, epoch});
          return;
        }
        std::vector<jet::Value> values = c.db->decodeRow(t, bytes, shown);
        if (allColumnsInOrder_) return forward->row(values);
        projection.clear();
        for (const Column& col : columns_) projection.push_back(values[col.column]);
        forward->row(projection);
      };
      if (streamed) forward->names(fieldNames());
      if (!st.where) {
        // The count a table keeps is a hint; a damaged one must not reserve gigabytes.
        if (!streamed)
          members_.reserve(std::min<size_t>(t.rowCount, size_t{c.db->pageCount()} * 64));
        c.db->scanRows(t, [&](jet::RowId id, jet::Bytes bytes) {
          keep(id, bytes);
          return true;
        });
      } else {
        // Only the columns the condition names are decoded to test a row,
        // and an index gives the rows where the condition allows.
        const std::string_view alias = sources_[0].alias;
        const std::vector<size_t> used = columnsNamed(t, alias, *st.where);
        std::vector<jet::Value> row(t.columns.size());
        joined.setRow(0, &row);
        auto test = [&](jet::RowId id, jet::Bytes bytes) {
          for (size_t i : used) row[i] = c.db->decodeColumn(t, t.columns[i], bytes);
          if (eval.matches(*st.where)) keep(id, bytes);
          return true;
        };
        if (auto ids = indexedRows(*c.db, t, alias, *st.where)) {
          for (jet::RowId id : *ids)
            if (std::optional<jet::Bytes> bytes = c.db->rowData(id)) test(id, *bytes);
        } else {
          c.db->scanRows(t, test);
        }
      }
      c.touched.insert(&t);
    } else {
      // Read-only results are computed once, table by table (see Join).
      // Of each table only the columns shown or tested are decoded.
      std::vector<std::vector<bool>> wanted(sources_.size());
      for (size_t s = 0; s < sources_.size(); ++s)
        wanted[s].assign(sources_[s].table->columns.size(), false);
      for (const Column& col : columns_) wanted[col.source][col.column] = true;
      if (st.where)
        for (const Expr* f : fieldsOf(*st.where))
          if (auto at = joined.resolve(f->table, f->name)) wanted[at->first][at->second] = true;
      std::vector<std::vector<std::vector<jet::Value>>> all(sources_.size());
      for (size_t s = 0; s < sources_.size(); ++s)
        all[s] = c.db->readAll(*sources_[s].table, wanted[s]);
      Join join(joined, all, st.where.get(), order);
      join.run([&] {
        std::vector<jet::Value> out;
        for (const Column& col : columns_) out.push_back(*joined.value(col.source, col.column));
        rows_.push_back(std::move(out));
        if (rows_.size() * std::max<size_t>(columns_.size(), 1) > kMaxResultValues)
          throw EngineError(err::kSystemResourceExceeded, sources::kDatabase);
      });
      if (st.distinct) {
        std::stable_sort(rows_.begin(), rows_.end(),
                         [&](auto& a, auto& b) { return compareRows(a, b, order) < 0; });
        rows_.erase(std::unique(rows_.begin(), rows_.end(),
                                [&](auto& a, auto& b) { return compareRows(a, b, order) == 0; }),
                    rows_.end());
      }
      if (rows_.size() >= UINT32_MAX)
        throw EngineError(err::kSystemResourceExceeded, sources::kDatabase);
      for (size_t i = 0; i < rows_.size(); ++i) members_.push_back({nextMark_++, {}, 0});
    }
    pos_ = members_.empty() ? -1 : 0;
  });
  return streamed;
}

bool Recordset::updatable() const {
  if (snapshot_ || sources_.empty()) return false;
  return core().db->whyNotWritable(*sources_[0].table).empty();
}

// ---- Reading rows

const std::vector<jet::Value>* Recordset::tableRow(size_t i, bool whole) const {
  detail::DatabaseCore& c = core();
  if (cachedIndex_ == static_cast<long>(i) && cachedGeneration_ == c.generation) {
    if (whole) decodeWhole();
    return &cachedRow_;
  }
  const Member& m = members_[i];
  if (c.undone(m.id, m.epoch)) return nullptr;
  // A page freed by a rollback may since hold another table's rows.
  const jet::TableDef& t = *sources_[0].table;
  if (m.id.page >= c.db->pageCount()) return nullptr;
  jet::Bytes pg = c.db->page(m.id.page);
  const jet::Format& f = c.db->format();
  if (pg[0] != jet::page::kData || jet::u32le(&pg[f.dataTdefOffset]) != t.tdefPage) return nullptr;
  std::optional<jet::Bytes> bytes = c.db->rowData(m.id);
  if (!bytes) return nullptr;
  // Kept raw; a column is decoded when it is first asked for.
  cachedBytes_.assign(bytes->begin(), bytes->end());
  cachedRow_.assign(t.columns.size(), jet::Value{});
  cachedDecoded_.assign(t.columns.size(), false);
  cachedWhole_ = false;
  cachedIndex_ = static_cast<long>(i);
  cachedGeneration_ = c.generation;
  if (whole) decodeWhole();
  return &cachedRow_;
}

const jet::Value& Recordset::cachedColumn(size_t column) const {
  if (!cachedDecoded_[column]) {
    const jet::TableDef& t = *sources_[0].table;
    cachedRow_[column] = core().db->decodeColumn(t, t.columns[column], cachedBytes_);
    cachedDecoded_[column] = true;
  }
  return cachedRow_[column];
}

void Recordset::decodeWhole() const {
  if (cachedWhole_) return;
  if (std::find(cachedDecoded_.begin(), cachedDecoded_.end(), true) == cachedDecoded_.end()) {
    cachedRow_ = core().db->decodeRow(*sources_[0].table, cachedBytes_);
  } else {
    for (size_t k = 0; k < cachedRow_.size(); ++k) cachedColumn(k);
  }
  cachedDecoded_.assign(cachedRow_.size(), true);
  cachedProjection_.clear();
  if (!allColumnsInOrder_)
    for (const Column& col : columns_) cachedProjection_.push_back(cachedRow_[col.column]);
  cachedWhole_ = true;
}

const std::vector<jet::Value>& Recordset::memberValues(size_t i) const {
  if (snapshot_) return rows_[members_[i].mark - 1];
  if (!tableRow(i)) throw EngineError(err::kRecordDeleted, sources::kRecordset);
  return allColumnsInOrder_ ? cachedRow_ : cachedProjection_;
}

const jet::Value& Recordset::memberValue(size_t i, size_t col) const {
  if (snapshot_) return rows_[members_[i].mark - 1][col];
  if (!tableRow(i, false)) throw EngineError(err::kRecordDeleted, sources::kRecordset);
  return cachedColumn(columns_[col].column);
}

size_t Recordset::currentIndex() const {
  if (onDeleted_) throw EngineError(err::kRecordDeleted, sources::kRecordset);
  if (pos_ < 0 || pos_ >= static_cast<long>(members_.size()))
    throw EngineError(err::kNoCurrentRecord, sources::kRecordset);
  return static_cast<size_t>(pos_);
}

int Recordset::findColumn(std::string_view, std::string_view name) const {
  for (size_t i = 0; i < columns_.size(); ++i)
    if (sameName(columns_[i].name, name)) return static_cast<int>(i);
  return -1;
}

size_t Recordset::requireColumn(std::string_view name) const {
  int i = findColumn("", name);
  if (i < 0) throw EngineError(err::kItemNotFound, sources::kFields);
  return static_cast<size_t>(i);
}

std::vector<std::string> Recordset::fieldNames() const {
  std::vector<std::string> names;
  for (const Column& c : columns_) names.push_back(c.name);
  return names;
}

jet::Value Recordset::field(std::string_view name) const {
  return guard(sources::kFields, [&] {
    size_t col = requireColumn(name);
    if (mode_ != EditMode::kNone) return buffer_[columns_[col].column];
    return memberValue(currentIndex(), col);
  });
}

const std::vector<jet::Value>& Recordset::values() const {
  return guard(sources::kFields, [&]() -> const std::vector<jet::Value>& {
    if (mode_ == EditMode::kNone) return memberValues(currentIndex());
    pendingProjection_.clear();
    for (const Column& col : columns_) pendingProjection_.push_back(buffer_[col.column]);
    return pendingProjection_;
  });
}

int Recordset::fieldSize(std::string_view name) const {
  return guard(sources::kFields, [&] {
    const Column& col = columns_[requireColumn(name)];
    const jet::ColumnDef& c = sources_[col.source].table->columns[col.column];
    if (c.type == jet::coltype::kText)
      return static_cast<int>(c.length / core().db->format().textUnitSize);
    if (c.isLongValue()) return 0;
    if (c.type == jet::coltype::kBoolean) return 1;
    return c.isFixed() ? jet::fixedSizeOf(c.type) : static_cast<int>(c.length);
  });
}

// ---- Moving

void Recordset::dropPending() {
  mode_ = EditMode::kNone;
  buffer_.clear();
}

bool Recordset::bof() const {
  core();
  if (onDeleted_) return false;
  return members_.empty() || pos_ < 0;
}

bool Recordset::eof() const {
  core();
  if (onDeleted_) return false;
  return members_.empty() || pos_ >= static_cast<long>(members_.size());
}

long Recordset::recordCount() const {
  core();
  return static_cast<long>(members_.size());
}

void Recordset::moveFirst() {
  guard(sources::kRecordset, [&] {
    if (members_.empty()) throw EngineError(err::kNoCurrentRecord, sources::kRecordset);
    dropPending();
    pos_ = 0;
    onDeleted_ = false;
  });
}

void Recordset::moveLast() {
  guard(sources::kRecordset, [&] {
    if (members_.empty()) throw EngineError(err::kNoCurrentRecord, sources::kRecordset);
    dropPending();
    pos_ = static_cast<long>(members_.size()) - 1;
    onDeleted_ = false;
  });
}

void Recordset::moveNext() {
  guard(sources::kRecordset, [&] {
    const long n = static_cast<long>(members_.size());
    if (onDeleted_) {
      // The row that followed the deleted one now sits where it was.
      onDeleted_ = false;
    } else {
      if (n == 0 || pos_ >= n) throw EngineError(err::kNoCurrentRecord, sources::kRecordset);
      ++pos_;
    }
    dropPending();
    pos_ = std::min(pos_, n);
  });
}

void Recordset::movePrevious() {
  guard(sources::kRecordset, [&] {
    if (onDeleted_) {
      onDeleted_ = false;
    } else if (members_.empty() || pos_ < 0) {
      throw EngineError(err::kNoCurrentRecord, sources::kRecordset);
    }
    dropPending();
    --pos_;
  });
}

Recordset::Bookmark Recordset::bookmark() const {
  return guard(sources::kRecordset, [&] {
    size_t i = currentIndex();
    return Bookmark{members_[i].mark};
  });
}

void Recordset::setBookmark(Bookmark b) {
  guard(sources::kRecordset, [&] {
    auto it = std::find_if(members_.begin(), members_.end(),
                           [&](const Member& m) { return m.mark == b.value; });
    if (b.value == 0 || it == members_.end())
      throw EngineError(err::kInvalidBookmark, sources::kRecordset);
    dropPending();
    pos_ = it - members_.begin();
    onDeleted_ = false;
  });
}

Recordset::Bookmark Recordset::lastModified() const {
  return guard(sources::kRecordset, [&] {
    if (lastModified_ == 0) throw EngineError(err::kNoCurrentRecord, sources::kRecordset);
    return Bookmark{lastModified_};
  });
}

// ---- Finding

void Recordset::findFirst(std::string_view criteria) { find(criteria, true, true); }
void Recordset::findNext(std::string_view criteria) { find(criteria, true, false); }
void Recordset::findPrevious(std::string_view criteria) { find(criteria, false, false); }
void Recordset::findLast(std::string_view criteria) { find(criteria, false, true); }

// The rows a criterion can match at all, where an index narrows them.
std::optional<std::unordered_set<uint32_t>> Recordset::indexedCandidates(const Expr& cond) const {
  if (snapshot_ || sources_.size() != 1) return std::nullopt;
  std::optional<std::vector<jet::RowId>> ids =
      indexedRows(*core().db, *sources_[0].table, sources_[0].alias, cond);
  if (!ids) return std::nullopt;
  std::unordered_set<uint32_t> packed;
  for (jet::RowId id : *ids) packed.insert(id.pack());
  return packed;
}

void Recordset::find(std::string_view criteria, bool forward, bool fromEnd) {
  guard(sources::kRecordset, [&] {
    ExprPtr cond = parseCriteria(criteria);
    std::vector<std::string> names = fieldNames();
    std::vector<FieldKind> kinds;
    for (const Column& col : columns_)
      kinds.push_back(kindOf(sources_[col.source].table->columns[col.column]));
    long i = 0;
    ResultRow row(names, kinds, [&](size_t col) -> const jet::Value& {
      return memberValue(static_cast<size_t>(i), col);
    });
    checkExpression(*cond, row, ExprContext::kCriteria);
    Evaluator eval(row, ExprContext::kCriteria, textOrderOf(core().db->format()));

    const long n = static_cast<long>(members_.size());
    if (fromEnd) {
      i = forward ? 0 : n - 1;
    } else if (forward) {
      i = onDeleted_ ? pos_ : pos_ + 1;
      i = std::max(i, 0L);
    } else {
      i = std::min(pos_ - 1, n - 1);
    }
    // An equality on an indexed column narrows the rows to look at.
    std::optional<std::unordered_set<uint32_t>> candidates = indexedCandidates(*cond);
    for (; i >= 0 && i < n; i += forward ? 1 : -1) {
      if (candidates && !candidates->count(members_[static_cast<size_t>(i)].id.pack())) continue;
      if (!snapshot_ && !tableRow(static_cast<size_t>(i), false)) continue;  // deleted elsewhere
      if (eval.matches(*cond)) {
        dropPending();
        pos_ = i;
        onDeleted_ = false;
        noMatch_ = false;
        return;
      }
    }
    noMatch_ = true;
  });
}

// ---- Changing

void Recordset::requireUpdatable() const {
  if (!updatable()) throw EngineError(err::kReadOnly, sources::kRecordset);
}

void Recordset::addNew() {
  guard(sources::kRecordset, [&] {
    requireUpdatable();
    detail::DatabaseCore& c = core();
    const jet::TableDef& t = *sources_[0].table;
    dropPending();
    std::vector<jet::Value> row = c.db->defaultRow(t);
    for (size_t i = 0; i < t.columns.size(); ++i)
      if (t.columns[i].isAutoNumber() && t.columns[i].type == jet::coltype::kLong)
        row[i] = c.db->takeAutoNumber(t);
    c.changed();
    buffer_ = std::move(row);
    mode_ = EditMode::kAdd;
  });
}

void Recordset::edit() {
  guard(sources::kRecordset, [&] {
    requireUpdatable();
    size_t i = currentIndex();
    const std::vector<jet::Value>* row = tableRow(i);
    if (!row) throw EngineError(err::kRecordDeleted, sources::kRecordset);
    buffer_ = *row;
    mode_ = EditMode::kEdit;
  });
}

void Recordset::setField(std::string_view name, jet::Value value) {
  guard(sources::kField, [&] {
    size_t col = requireColumn(name);
    if (mode_ == EditMode::kNone)
      throw EngineError(err::kUpdateWithoutAddNewOrEdit, sources::kField);
    const jet::TableDef& t = *sources_[0].table;
    const jet::ColumnDef& c = t.columns[columns_[col].column];
    if (c.isAutoNumber()) {
      // Jet lets nobody change a row's automatic key.
      if (buffer_[columns_[col].column] == value) return;
      throw EngineError(err::kFieldNotUpdatable, sources::kField);
    }
    try {
      buffer_[columns_[col].column] = jet::coerceValue(core().db->format(), c, value);
    } catch (const jet::JetError& e) {
      // A character the file cannot hold (Jet 3 keeps Windows-1252 only) is
      // no length problem: the engine's words name it.
      const std::string why = e.what();
      if (why.find(" U+") != std::string::npos)
        throw EngineError::withText(err::kConversionError, sources::kField,
                                    errorText(err::kConversionError) + " " + why);
      const bool tooLong =
          c.type == jet::coltype::kText && std::holds_alternative<std::string>(value);
      throw EngineError(tooLong ? err::kFieldTooSmall : err::kConversionError, sources::kField);
    }
  });
}

void Recordset::update() {
  guard(sources::kRecordset, [&] {
    if (mode_ == EditMode::kNone)
      throw EngineError(err::kUpdateWithoutAddNewOrEdit, sources::kRecordset);
    detail::DatabaseCore& c = core();
    const jet::TableDef& t = *sources_[0].table;
    for (const jet::RealIndex& ri : t.realIndexes)
      if (ri.required())
        for (const jet::IndexColumn& ic : ri.columns)
          if (jet::isNull(buffer_[ic.column]))
            throw EngineError(err::kIndexNull, sources::kRecordset);
    if (mode_ == EditMode::kAdd) {
      jet::RowId id = c.db->insertRow(t, buffer_);
      c.inserted(id);
      members_.push_back({nextMark_++, id, static_cast<uint32_t>(c.rollbacks)});
      // The new row joins at the end; the row current before AddNew stays.
      lastModified_ = members_.back().mark;
    } else {
      size_t i = currentIndex();
      if (!tableRow(i)) throw EngineError(err::kRecordDeleted, sources::kRecordset);
      c.db->updateRow(t, members_[i].id, buffer_);
      lastModified_ = members_[i].mark;
    }
    dropPending();
    c.changed();
  });
}

void Recordset::cancelUpdate() {
  guard(sources::kRecordset, [&] {
    if (mode_ == EditMode::kNone)
      throw EngineError(err::kUpdateWithoutAddNewOrEdit, sources::kRecordset);
    dropPending();
  });
}

void Recordset::deleteRecord() {
  guard(sources::kRecordset, [&] {
    requireUpdatable();
    size_t i = currentIndex();
    if (!tableRow(i)) throw EngineError(err::kRecordDeleted, sources::kRecordset);
    detail::DatabaseCore& c = core();
    dropPending();
    c.db->deleteRow(*sources_[0].table, members_[i].id);
    members_.erase(members_.begin() + static_cast<long>(i));
    onDeleted_ = true;
    cachedIndex_ = -1;
    c.changed();
  });
}

}  // namespace schema
