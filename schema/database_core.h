// The state a SchemaDatabase shares with the recordsets it opened: the
// engine, the transaction stack and the error list. Internal to schema/;
// forms use SchemaDatabase and Recordset only.
//
// A recordset holds the core weakly and remembers the session it was opened
// in, so a recordset that outlives the close of its database (or the
// database object itself) fails with 3420 instead of touching freed memory.
#pragma once

#include <cstdint>
#include <memory>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "jet/database.h"
#include "jet/error.h"
#include "schema/engine_error.h"

namespace schema::detail {

struct DatabaseCore {
  std::unique_ptr<jet::Database> db;
  std::string path;
  std::string lockPath;
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
  std::map<uint64_t, uint64_t> parentOf;  // transaction id -> enclosing one (0: none)
  std::set<uint64_t> rolledBack;
  // Tables written through recordsets; their AutoNumber counters survive a
  // rollback (see SchemaDatabase::rollback).
  std::set<const jet::TableDef*> touched;

  uint64_t currentTransaction() const {
    return transactions.empty() ? 0 : transactions.back().id;
  }
  // Whether a row written inside transaction `id` was undone by a rollback
  // of that transaction or of one enclosing it.
  bool undone(uint64_t id) const;

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
