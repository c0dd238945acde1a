// Recordset: a cursor over the rows of one query, as the forms use DAO's
// dynaset. Opened by SchemaDatabase::openRecordset from the SQL the program
// composes:
// - one table, every or some of its columns, with an optional WHERE:
//   updatable (AddNew, Edit, Update, Delete) where the engine writes the
//   table;
// - SELECT DISTINCT, and several tables joined by their WHERE clause:
//   read-only (3027 on any change), sorted by the selected columns when
//   DISTINCT.
// Table and field names match without regard to case.
//
// Membership is fixed when the recordset opens, plus the rows it adds
// itself (at the end). A table row is read afresh whenever it is needed, so
// changes made through another recordset show; a row deleted elsewhere, or
// added in a transaction that was rolled back, reads as deleted (3167).
// RecordCount is the full membership from the start, as DAO gives it after
// MoveLast.
//
// Errors are Jet's: 3021 moving past BOF / EOF or reading with no current
// row, 3167 reading the row just deleted, 3020 for Update or CancelUpdate
// without AddNew or Edit, 3022 when Update would duplicate a unique key (the
// row is not written, the pending change stays so the caller may correct
// it), 3163 for text longer than its column, 3265 for an unknown field.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "jet/table_def.h"
#include "jet/value.h"
#include "schema/sql.h"

namespace schema {

namespace detail {
struct DatabaseCore;
}

class Recordset {
 public:
  enum class EditMode { kNone, kEdit, kAdd };
  // Marks a row for returning to it; valid for the recordset that gave it.
  struct Bookmark {
    uint64_t value = 0;
    bool operator==(const Bookmark&) const = default;
  };

  Recordset() = default;  // a closed recordset
  Recordset(Recordset&&) noexcept;
  Recordset& operator=(Recordset&&) noexcept;
  ~Recordset();

  bool isOpen() const;
  void close();
  bool updatable() const;

  void moveFirst();
  void moveLast();
  void moveNext();
  void movePrevious();
  bool bof() const;
  bool eof() const;
  long recordCount() const;

  Bookmark bookmark() const;
  void setBookmark(Bookmark b);   // 3159 for a row no longer in the recordset
  Bookmark lastModified() const;  // the row last added or changed through this recordset

  // Criteria as in a WHERE clause, over this recordset's fields. When no row
  // matches, noMatch() is true and the current row stays.
  void findFirst(std::string_view criteria);
  void findNext(std::string_view criteria);
  void findPrevious(std::string_view criteria);
  void findLast(std::string_view criteria);
  bool noMatch() const { return noMatch_; }

  std::vector<std::string> fieldNames() const;
  // The current row's values in fieldNames() order (the pending ones during
  // AddNew / Edit), valid until the next call on the recordset.
  const std::vector<jet::Value>& values() const;
  // The current row's value, or the pending one during AddNew / Edit.
  jet::Value field(std::string_view name) const;
  // A text column's declared size in characters; other columns their size
  // in bytes (0 for Memo and OLE).
  int fieldSize(std::string_view name) const;

  // AddNew begins a new row: its AutoNumber key is taken at once and kept
  // by the row. Update adds it at the end of the recordset; the row current
  // before AddNew stays current.
  void addNew();
  void edit();
  void setField(std::string_view name, jet::Value value);
  void update();
  void cancelUpdate();
  // Deletes the current row; the cursor then stands on no row, and
  // moveNext() goes on with the row that followed it.
  void deleteRecord();
  EditMode editMode() const { return mode_; }

 private:
  friend class SchemaDatabase;

  struct Source {
    const jet::TableDef* table = nullptr;
    std::string alias;
  };
  struct Column {
    std::string name;  // as the recordset names the field
    size_t source = 0;
    size_t column = 0;  // in the source's TableDef::columns
  };
  // Kept small: a dynaset over a table of half a million rows holds one each.
  struct Member {
    uint32_t mark = 0;   // the bookmark's value; read-only recordsets: index into rows_ + 1
    jet::RowId id;       // table recordsets
    uint32_t epoch = 0;  // rollbacks before the recordset learnt of the row
  };

  // Where a forward-only read (SchemaDatabase::readForward) sends a result
  // it reads in one pass.
  struct Forward {
    const std::function<void(const std::vector<std::string>&)>& names;
    const std::function<void(const std::vector<jet::Value>&)>& row;
  };

  // With `forward`, a query of one table without DISTINCT whose condition
  // cannot fail on one row and not another is not opened: its field names
  // and then its rows go to `forward` as the table is read, and true comes
  // back. Any other query opens as without it.
  bool openQuery(std::weak_ptr<detail::DatabaseCore> core, std::string_view sql,
                 const Forward* forward = nullptr);
  bool openStatement(std::weak_ptr<detail::DatabaseCore> core, const SelectStatement& st,
                     ExprContext ctx, const Forward* forward = nullptr);
  std::optional<std::unordered_set<uint32_t>> indexedCandidates(const Expr& cond) const;
  detail::DatabaseCore& core() const;
  template <typename F>
  auto guard(const char* source, F&& f) const -> decltype(f());
  int findColumn(std::string_view table, std::string_view name) const;
  size_t requireColumn(std::string_view name) const;
  // The values of member i in result-column order; throws 3167 when gone.
  const std::vector<jet::Value>& memberValues(size_t i) const;
  // One of them, decoding no other column of a table row.
  const jet::Value& memberValue(size_t i, size_t col) const;
  // Table recordsets: member i's row, or nullptr when it is gone; decoded
  // whole, or (`whole` false) only in the columns read since through
  // cachedColumn().
  const std::vector<jet::Value>* tableRow(size_t i, bool whole = true) const;
  const jet::Value& cachedColumn(size_t column) const;
  void decodeWhole() const;
  size_t currentIndex() const;  // 3021 / 3167 when there is no current row
  void requireUpdatable() const;
  void dropPending();
  void find(std::string_view criteria, bool forward, bool fromEnd);

  std::weak_ptr<detail::DatabaseCore> core_;
  // What core_ leads to while it lives: asked of every call, so looked up
  // without taking a reference each time.
  detail::DatabaseCore* coreRaw_ = nullptr;
  uint64_t session_ = 0;
  bool snapshot_ = false;  // read-only, rows held in rows_
  std::vector<Source> sources_;
  std::vector<Column> columns_;
  std::vector<std::vector<jet::Value>> rows_;  // snapshot rows, in column order
  std::vector<Member> members_;
  long pos_ = -1;           // -1 before the first row, members_.size() after the last
  bool onDeleted_ = false;  // the current row was deleted through here
  bool noMatch_ = false;
  EditMode mode_ = EditMode::kNone;
  std::vector<jet::Value> buffer_;  // pending row, whole table in column order
  uint64_t lastModified_ = 0;
  uint32_t nextMark_ = 1;

  // The row last read, valid while the database's generation stays: its
  // bytes, and its columns decoded as they are asked for (all of them, and
  // the projection, once `cachedWhole_`).
  mutable long cachedIndex_ = -1;
  mutable uint64_t cachedGeneration_ = 0;
  mutable std::vector<uint8_t> cachedBytes_;
  mutable std::vector<bool> cachedDecoded_;
  mutable bool cachedWhole_ = false;
  mutable std::vector<jet::Value> cachedRow_, cachedProjection_, pendingProjection_;
  bool allColumnsInOrder_ = false;  // the projection is the row itself
};

}  // namespace schema
