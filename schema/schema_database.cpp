#include "schema/schema_database.h"

#include <filesystem>
#include <utility>

#include "jet/compact.h"
#include "schema/database_core.h"

namespace schema {
namespace fs = std::filesystem;

namespace detail {

bool DatabaseCore::undone(jet::RowId id, uint64_t epoch) const {
  auto [from, to] = undoneInserts.equal_range(id.pack());
  for (auto it = from; it != to; ++it)
    if (it->second > epoch) return true;
  return false;
}

void DatabaseCore::changed() {
  ++generation;
  if (transactions.empty()) db->flush();
}

EngineError DatabaseCore::translate(const jet::JetError& e, const char* source) const {
  using Kind = jet::JetError::Kind;
  if (e.number() != 0) return EngineError::withText(e.number(), source, e.jetText());
  switch (e.kind()) {
    case Kind::kDuplicate:
      return EngineError(err::kDuplicateKey, source);
    case Kind::kNotFound:
      return EngineError(err::kItemNotFound, source);
    case Kind::kCorrupt:
      return EngineError(err::kUnrecognizedFormat, source, {path});
    case Kind::kUnsupported:
      return EngineError(err::kReadOnly, source);
    case Kind::kIo:
      return EngineError(err::kDiskError, source);
    case Kind::kInvalid:
      break;
  }
  return EngineError(err::kInvalidArgument, source);
}

}  // namespace detail

SchemaDatabase::SchemaDatabase() : core_(std::make_shared<detail::DatabaseCore>()) {}

SchemaDatabase::~SchemaDatabase() {
  try {
    close();
  } catch (const std::exception&) {
    // A destructor cannot report; close() has removed the lock already.
  }
}

void SchemaDatabase::open(const std::string& path) { open(path, DocumentLock()); }

void SchemaDatabase::open(const std::string& path, DocumentLock lock) {
  openFile(path, std::move(lock), true);
}

void SchemaDatabase::openReadOnly(const std::string& path) {
  openFile(path, DocumentLock(), false);
}

void SchemaDatabase::openFile(const std::string& path, DocumentLock lock, bool writable) {
  detail::DatabaseCore& c = *core_;
  c.run(sources::kWorkspace, [&] {
    if (c.db) throw EngineError(err::kInvalidOperation, sources::kWorkspace);
    std::error_code ec;
    fs::path p(path);
    fs::path dir = p.has_parent_path() ? p.parent_path() : fs::path(".");
    if (!fs::is_directory(dir, ec))
      throw EngineError(err::kInvalidPath, sources::kWorkspace, {dir.string()});
    if (!fs::exists(p, ec)) throw EngineError(err::kFileNotFound, sources::kWorkspace, {path});
    if (writable && !lock.held()) lock = DocumentLock::acquire(path, LockHolder::self());
    try {
      c.db = jet::Database::openFile(path, writable);
    } catch (const jet::JetError& e) {
      c.db.reset();
      if (e.kind() == jet::JetError::Kind::kIo)
        throw EngineError(err::kCannotOpenFile, sources::kWorkspace, {path});
      throw EngineError(err::kUnrecognizedFormat, sources::kWorkspace, {path});
    }
    c.path = path;
    c.lock = std::move(lock);
    c.transactions.clear();
    c.pendingInserts.clear();
    c.undoneInserts.clear();
    c.touched.clear();
    ++c.session;
  });
}

void SchemaDatabase::close() {
  detail::DatabaseCore& c = *core_;
  if (!c.db) return;
  ++c.session;  // recordsets of this session are finished whatever happens
  struct Cleanup {
    detail::DatabaseCore& c;
    ~Cleanup() {
      c.db.reset();
      c.transactions.clear();
      c.lock.release();
      c.path.clear();
    }
  } cleanup{c};
  c.run(sources::kWorkspace, [&] {
    if (!c.transactions.empty()) {
      c.db->rollbackTo(c.transactions.front().savepoint);
      c.transactions.clear();
    }
    c.db->flush();
  });
}

void SchemaDatabase::compact() {
  detail::DatabaseCore& c = *core_;
  c.run(sources::kDatabase, [&] {
    if (!c.db) throw EngineError(err::kObjectInvalid, sources::kDatabase);
    if (!c.transactions.empty()) throw EngineError(err::kInvalidOperation, sources::kDatabase);
    c.db->flush();
    ++c.session;
    ++c.generation;
    c.undoneInserts.clear();
    c.touched.clear();
    c.db.reset();
    try {
      jet::compactFile(c.path, c.path);
    } catch (...) {
      c.db = jet::Database::openFile(c.path, true);
      throw;
    }
    c.db = jet::Database::openFile(c.path, true);
  });
}

bool SchemaDatabase::isOpen() const { return core_->db != nullptr; }

const std::string& SchemaDatabase::path() const { return core_->path; }

const ErrorList& SchemaDatabase::errors() const { return core_->errors; }

int SchemaDatabase::transactionLevel() const {
  return static_cast<int>(core_->transactions.size());
}

Recordset SchemaDatabase::openRecordset(std::string_view sql) {
  Recordset rs;
  rs.openQuery(core_, sql);
  return rs;
}

void SchemaDatabase::readForward(std::string_view sql,
                                 const std::function<void(const std::vector<std::string>&)>& names,
                                 const std::function<void(const std::vector<jet::Value>&)>& row) {
  const Recordset::Forward forward{names, row};
  Recordset rs;
  if (rs.openQuery(core_, sql, &forward)) return;
  // The dynaset, or the read-only result, made in full before any row is
  // handed on.
  names(rs.fieldNames());
  for (; !rs.eof(); rs.moveNext()) row(rs.values());
}

Recordset SchemaDatabase::openMatching(std::string_view table, std::string_view criteria) {
  SelectStatement st;
  st.allColumns = true;
  st.tables.push_back({std::string(table), {}});
  core_->run(sources::kRecordset, [&] { st.where = parseCriteria(criteria); });
  Recordset rs;
  rs.openStatement(core_, st, ExprContext::kCriteria);
  return rs;
}

void SchemaDatabase::beginTrans() {
  detail::DatabaseCore& c = *core_;
  c.run(sources::kWorkspace, [&] {
    if (!c.db) throw EngineError(err::kObjectInvalid, sources::kWorkspace);
    c.transactions.push_back({c.db->savepoint(), c.nextTransactionId++});
  });
}

void SchemaDatabase::commitTrans() {
  detail::DatabaseCore& c = *core_;
  c.run(sources::kWorkspace, [&] {
    if (!c.db) throw EngineError(err::kObjectInvalid, sources::kWorkspace);
    if (c.transactions.empty()) throw EngineError(err::kNoTransaction, sources::kWorkspace);
    c.db->release(c.transactions.back().savepoint);
    const uint64_t id = c.transactions.back().id;
    c.transactions.pop_back();
    const uint64_t outer = c.currentTransaction();
    std::erase_if(c.pendingInserts, [&](auto& p) { return p.first == id && outer == 0; });
    for (auto& p : c.pendingInserts)
      if (p.first == id) p.first = outer;
    if (c.transactions.empty()) c.db->flush();
  });
}

void SchemaDatabase::rollback() {
  detail::DatabaseCore& c = *core_;
  c.run(sources::kWorkspace, [&] {
    if (!c.db) throw EngineError(err::kObjectInvalid, sources::kWorkspace);
    if (c.transactions.empty()) throw EngineError(err::kNoTransaction, sources::kWorkspace);
    // Page images bring the counters back with everything else; Jet keeps
    // numbers once handed out, so they are moved on again afterwards.
    std::vector<std::pair<const jet::TableDef*, uint32_t>> counters;
    for (const jet::TableDef* t : c.touched) counters.emplace_back(t, t->nextAutoNumber);
    detail::DatabaseCore::Transaction top = c.transactions.back();
    c.db->rollbackTo(top.savepoint);
    c.transactions.pop_back();
    ++c.rollbacks;
    std::erase_if(c.pendingInserts, [&](auto& p) {
      if (p.first != top.id) return false;
      c.undoneInserts.emplace(p.second.pack(), c.rollbacks);
      return true;
    });
    ++c.generation;
    for (auto [t, counter] : counters)
      while (t->nextAutoNumber < counter) c.db->takeAutoNumber(*t);
    if (c.transactions.empty()) c.db->flush();
  });
}

}  // namespace schema
