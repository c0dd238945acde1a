// Compaction: a database written afresh without free pages, deleted rows or
// half-empty pages, as Jet's own compaction leaves a file.
//
// Every table (system tables too) keeps its rows, their bytes, long values,
// AutoNumber counter, properties and index entries (the stored keys are
// copied, never rebuilt, so keys this engine could not encode survive);
// rows are packed into full data pages, indexes are rebuilt with full pages,
// usage maps are new. Table definitions keep their page numbers, which the
// catalog, permissions and relationships use as the tables' ids: a table
// defined late in a file's life keeps the file at least that long.
#pragma once

#include <memory>
#include <string>

#include "jet/database.h"
#include "jet/page_store.h"

namespace jet {

// Writes the compacted copy of `db` into `out`, an empty writable store,
// and returns it opened, its pages in memory and not yet flushed. Throws
// JetError if `db` cannot be read (a damaged file: nothing is guessed).
std::unique_ptr<Database> compactDatabase(Database& db, std::unique_ptr<PageStore> out);

// Compacts the file at `from` into `to` (the same path compacts in place):
// the result is written to a new file beside `to`, synced, and only then
// renamed over it, so `to` is either as it was or the whole compacted file.
// Through a symbolic link, the file it leads to is replaced.
void compactFile(const std::string& from, const std::string& to);

}  // namespace jet
