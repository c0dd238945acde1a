// SchemaDatabase: the open schema file, the one object every form reaches
// the data through. It opens the working copy read-write behind a lock file,
// hands out recordsets by SQL text, keeps transactions and the engine's
// error list.
//
// Promises:
// - Outside a transaction every completed change is on disk (written and
//   synced) when the operation returns; inside one, at the outermost
//   commitTrans(). A rollback puts every row of every table back as it was
//   at the matching beginTrans().
// - AutoNumber counters are not given back: numbers handed out inside a
//   rolled-back transaction (or to an AddNew that was cancelled) stay used,
//   as in Jet, so a key a form already shows is never handed out twice.
// - Every failure is an EngineError with Jet's number and text; those that
//   come from the engine also become errors(), which keeps them until the
//   next failure.
// - Recordsets stay usable while the database is open; after close() (or
//   the database's destruction) every call on them fails with 3420.
//
// A writable database is opened behind its DocumentLock (schema/
// document_lock.h): the lock file beside it names this program, and the OS
// lock keeps every other writer out until close().
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "schema/document_lock.h"
#include "schema/engine_error.h"
#include "schema/recordset.h"

namespace schema {

namespace detail {
struct DatabaseCore;
}

class SchemaDatabase {
 public:
  SchemaDatabase();
  ~SchemaDatabase();  // closes, rolling back open transactions
  SchemaDatabase(const SchemaDatabase&) = delete;
  SchemaDatabase& operator=(const SchemaDatabase&) = delete;

  // Opens the file read-write behind its lock. Fails with 3219 when a
  // database is already open, 3044 when its folder does not exist, 3024 when
  // the file does not, 3045 when another program (or another open here)
  // holds its lock, 3050 when the lock cannot be taken, 3051 when the file
  // cannot be opened for writing, 3343 when it is no Jet file this engine
  // reads.
  void open(const std::string& path);
  // The same behind a lock the caller took on `path` already (the editor
  // locks a working copy before it fills it). The lock is the database's
  // from now on, released at close or when the open fails.
  void open(const std::string& path, DocumentLock lock);
  // Opens the file only to read, without a lock; every change fails with
  // 3027.
  void openReadOnly(const std::string& path);
  // Rolls back open transactions, writes out, closes and releases the lock.
  // Does nothing when nothing is open.
  void close();
  bool isOpen() const;
  const std::string& path() const;
  // Compacts the open file in place (jet/compact.h) behind the same lock:
  // the file is replaced only once the compacted copy is complete and
  // synced. Rows move, so every recordset of the database is finished
  // (3420) whether or not it succeeds; the database stays open either way.
  // Fails with 3219 inside a transaction, 3343 for a damaged file, 3043
  // when the copy cannot be written.
  void compact();

  // A dynaset over the rows of a query; see schema/recordset.h for the
  // shapes it accepts.
  Recordset openRecordset(std::string_view sql);
  // The result of a query read once, front to back, for a caller that looks
  // at each row once and keeps none (csdtool's query): `names` gets the
  // field names, then `row` each row's values in that order, in the order
  // of openRecordset's dynaset. A query of one table without DISTINCT is
  // read as its rows are handed on: nothing is kept per row, only the
  // columns shown and tested are decoded, and an index gives the rows where
  // it would give them to the dynaset. Errors are openRecordset's, all
  // raised before any row is handed on; only a damaged page can fail after
  // the rows before it. A row is valid during its call.
  void readForward(std::string_view sql,
                   const std::function<void(const std::vector<std::string>&)>& names,
                   const std::function<void(const std::vector<jet::Value>&)>& row);
  // A dynaset of the rows of `table` (a table's name, never SQL) that
  // FindFirst criteria match, in the table's order: its first row is the one
  // findFirst would find in a dynaset of the whole table. Errors are those
  // of findFirst; the rows come through an index where the criteria allow.
  Recordset openMatching(std::string_view table, std::string_view criteria);

  // Transactions nest; commitTrans() and rollback() without one fail with
  // 3034.
  void beginTrans();
  void commitTrans();
  void rollback();
  int transactionLevel() const;

  // The engine's errors of the last failed operation, most specific first.
  const ErrorList& errors() const;

 private:
  void openFile(const std::string& path, DocumentLock lock, bool writable);

  std::shared_ptr<detail::DatabaseCore> core_;
};

}  // namespace schema
