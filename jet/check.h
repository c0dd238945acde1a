// A full structural check of a database, for `csdtool check` and for tests
// of the writer: every table's rows decode; its usage maps list exactly its
// data pages; free space and row counts add up; every index holds exactly
// the table's rows, with the key bytes this engine computes, in order, in a
// well-linked tree whose pages its usage map lists; no page in use is marked
// free in the global page map.
#pragma once

#include <string>
#include <vector>

#include "jet/database.h"

namespace jet {

// One line per fault; empty when the file is sound. Stops early only when a
// fault makes the rest unreadable. Access lets an index's unique-entry count
// (a hint for its query planner) go stale until the next compaction; with
// `exactCounts` each must equal the distinct keys the index holds, as the
// writer keeps them.
std::vector<std::string> checkDatabase(Database& db, bool exactCounts = false);

}  // namespace jet
