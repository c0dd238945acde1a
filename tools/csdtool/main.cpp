// csdtool: the command-line companion of the editor. Reads schema files
// (and any Jet 3 / Jet 4 database) for people and for tests.
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "jet/database.h"
#include "jet/error.h"
#include "tools/csdtool/csv_export.h"
#include "tools/csdtool/schema_text.h"

namespace {

const char kUsage[] =
    "Usage: csdtool COMMAND FILE [ARGS]\n"
    "\n"
    "Commands:\n"
    "  tables FILE            list the user tables, one a line, in catalog order\n"
    "  schema FILE [TABLE]    show columns and indexes of one table or of all user tables\n"
    "  columns FILE TABLE     one line per column: name, type, size in bytes, flags (tab-separated)\n"
    "  export FILE TABLE      write a table as CSV (the layout of mdb-export)\n"
    "\n"
    "Options:\n"
    "  --help                 show this text\n"
    "  --version              show the version\n"
    "\n"
    "Exit status is 0 on success and 1 on failure, with a one-line message on stderr.\n";

int usageError(const std::string& what) {
  std::cerr << "csdtool: " << what << " (see csdtool --help)\n";
  return 1;
}

int run(const std::vector<std::string>& args) {
  const std::string& cmd = args[0];
  if (cmd == "tables") {
    if (args.size() != 2) return usageError("tables takes one FILE");
    auto db = jet::Database::openFile(args[1]);
    for (const std::string& n : db->userTableNames()) std::cout << n << "\n";
    return 0;
  }
  if (cmd == "schema") {
    if (args.size() != 2 && args.size() != 3) return usageError("schema takes FILE [TABLE]");
    auto db = jet::Database::openFile(args[1]);
    if (args.size() == 3) {
      csdtool::printSchema(*db, db->table(args[2]), std::cout);
      return 0;
    }
    csdtool::printHeader(*db, std::cout);
    for (const std::string& n : db->userTableNames()) {
      std::cout << "\n";
      csdtool::printSchema(*db, db->table(n), std::cout);
    }
    return 0;
  }
  if (cmd == "columns") {
    if (args.size() != 3) return usageError("columns takes FILE TABLE");
    auto db = jet::Database::openFile(args[1]);
    csdtool::printColumns(db->table(args[2]), std::cout);
    return 0;
  }
  if (cmd == "export") {
    if (args.size() != 3) return usageError("export takes FILE TABLE");
    auto db = jet::Database::openFile(args[1]);
    csdtool::exportCsv(*db, db->table(args[2]), std::cout);
    std::cout.flush();
    if (!std::cout) {
      std::cerr << "csdtool: " << args[1] << ": could not write the output\n";
      return 1;
    }
    return 0;
  }
  return usageError("unknown command '" + cmd + "'");
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::cerr << kUsage;
    return 1;
  }
  if (args[0] == "--help" || args[0] == "-h") {
    std::cout << kUsage;
    return 0;
  }
  if (args[0] == "--version") {
    std::cout << "csdtool " << VANTOR_VERSION << "\n";
    return 0;
  }
  try {
    return run(args);
  } catch (const jet::JetError& e) {
    std::cerr << "csdtool: " << e.what() << "\n";
  } catch (const std::exception& e) {
    std::cerr << "csdtool: " << (args.size() > 1 ? args[1] + ": " : "") << e.what() << "\n";
  }
  return 1;
}
