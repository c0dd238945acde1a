// The state a SchemaDatabase shares with the recordsets it opened: the
// engine, the transaction stack and the error list. Internal to schema/;
// forms use SchemaDatabase and Recordset only.
//
// A recordset holds the core weakly and remembers the session it was opened
// in, so a recordset that outlives the close of its database (or the
// database object itself) fails with 3420 instead of touching freed memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "jet/database.h"
#include "jet/error.h"
#include "schema/document_lock.h"
#include "schema/engine_error.h"

namespace schema::detail {

struct DatabaseCore {
  std::unique_ptr<jet::Database> db;
  std::string path;
  DocumentLock lock;  // not held for a read-only open
  uint64_t session = 0;     // changes at every open and close
  uint64_t generation = 0;  // changes at every write and rollback; recordsets cache by it
  ErrorList errors;         // of the last failed operation

  // One entry per open transaction, outermost first.
  struct Transaction {
    size_t savepoint;
    uint64_t id;
  };
  std::vector<Transaction> transactions;
  uint64_t nextTransactionId = 1;
  // Rows inserted inside open transactions, under the innermost one at the
  // time (a commit hands them to the enclosing one).
  std::vector<std::pair<uint64_t, jet::RowId>> pendingInserts;
  // Rows whose insertion a rollback undid, with the rollback's number: a
  // recordset that learnt of such a row before that rollback finds it
  // deleted, even when a later row takes its place in the file.
  uint64_t rollbacks = 0;
  std::multimap<uint32_t, uint64_t> undoneInserts;
  // Tables of the updatable recordsets opened so far; their AutoNumber
  // counters survive a rollback (see SchemaDatabase::rollback).
  std::set<const jet::TableDef*> touched;

  uint64_t currentTransaction() const { return transactions.empty() ? 0 : transactions.back().id; }
  // Whether the row at `id`, known since rollback number `epoch`, has been
  // undone by a later rollback.
  bool undone(jet::RowId id, uint64_t epoch) const;
  void inserted(jet::RowId id) {
    if (!transactions.empty()) pendingInserts.emplace_back(currentTransaction(), id);
  }

  // A completed change: recordsets drop their cached rows and, outside a
  // transaction, the change goes to disk at once.
  void changed();

  // Runs `f`; an engine failure becomes the error list, and a JetError is
  // translated into the EngineError Jet would have raised.
  template <typename F>
  auto run(const char* source, F&& f) -> decltype(f()) {
    try {
      return f();
    } catch (const EngineError& e) {
      if (e.fromEngine()) errors = {e.record()};
      throw;
    } catch (const jet::JetError& e) {
      EngineError t = translate(e, source);
      errors = {t.record()};
      // The engine's own words name the page or column at fault; they
      // follow Jet's text as a second, less specific record.
      if (e.kind() != jet::JetError::Kind::kDuplicate)
        errors.push_back({t.number(), "Vantor.Jet", e.what()});
      throw t;
    }
  }

  EngineError translate(const jet::JetError& e, const char* source) const;
};

}  // namespace schema::detail
