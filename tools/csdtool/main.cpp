// csdtool: the command-line companion of the editor. Reads schema files
// (and any Jet 3 / Jet 4 database) for people and for tests.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "jet/check.h"
#include "jet/compact.h"
#include "jet/database.h"
#include "jet/error.h"
#include "jet/journal.h"
#include "schema/document_lock.h"
#include "schema/engine_error.h"
#include "schema/planner.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"
#include "tools/csdtool/csv_export.h"
#include "tools/csdtool/schema_text.h"
#include "tools/csdtool/value_text.h"

namespace {

const char kUsage[] =
    "Usage: csdtool COMMAND FILE [ARGS]\n"
    "\n"
    "Commands:\n"
    "  tables FILE            list the user tables, one a line, in catalog order\n"
    "  schema FILE [TABLE]    show columns and indexes of one table or of all user tables\n"
    "  columns FILE TABLE     one line per column: name, type, size in bytes, flags "
    "(tab-separated)\n"
    "  export FILE TABLE      write a table as CSV (the layout of mdb-export)\n"
    "  check FILE             verify the file's structure; one line per fault, exit 1 if any\n"
    "  query FILE \"SELECT ...\"\n"
    "                         run a query through the data layer; the result as CSV\n"
    "  find FILE TABLE \"CRITERIA\"\n"
    "                         the first row that matches, as CSV, or say that none did\n"
    "  insert FILE TABLE COL=VALUE...\n"
    "                         add a row; prints its AutoNumber key where the table has one\n"
    "  update FILE TABLE --where COL=VALUE... --set COL=VALUE...\n"
    "                         change the matching rows; prints how many changed\n"
    "  delete FILE TABLE COL=VALUE...\n"
    "                         delete the matching rows; prints how many went\n"
    "  batch FILE             the edits of standard input, one a line (insert, update or\n"
    "                         delete, then TABLE and the arguments as above; double quotes\n"
    "                         group words, # begins a comment line), made in one commit:\n"
    "                         all of them, or at the first that fails none\n"
    "  batch FILE --each      the same, each edit its own commit, on disk and its output\n"
    "                         printed before the next line is read; a failure keeps the\n"
    "                         edits before it\n"
    "  compact FILE [OUT]     rewrite FILE without free pages and deleted rows, into OUT\n"
    "                         if given, else in place\n"
    "  new --template mstn|autocad|PATH OUT [--force]\n"
    "                         make OUT a copy of a template: mstn and autocad are\n"
    "                         MstnTemplate.csd and AutoCadTemplate.csd in ../Templates/Warehouses\n"
    "                         beside csdtool's folder, PATH any .csd or .mdb file; refuses to\n"
    "                         replace an existing OUT unless --force\n"
    "\n"
    "Values: numbers, text, NULL, dates as 2024-05-01 or 2024-05-01 13:45:00, true/false,\n"
    "binary as 0x0A1B, GUIDs as {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}. 'NULL' in single\n"
    "quotes is the text NULL. Text matches without regard to case.\n"
    "\n"
    "Edits write FILE in place, keeping what they replace in FILE-journal until the edit is\n"
    "on disk: on any error, or if csdtool is killed, FILE is left as it was (the next program\n"
    "to open it puts it back). Reading commands write nothing. Edits and new take the\n"
    "document's lock (FILE's name with the extension .ldb, as the editor does) and are\n"
    "refused while another program holds it.\n"
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

[[noreturn]] void ioFail(const std::string& path, const std::string& what) {
  throw jet::JetError(jet::JetError::Kind::kIo, path + ": " + what + ": " + std::strerror(errno));
}

// Takes the document's lock for the length of a write, so csdtool and the
// editor never write one document at the same time, and clears what earlier
// interrupted writes left beside it. Throws EngineError 3045 naming the
// holder when another program has the document.
schema::DocumentLock lockForWriting(const std::string& path) {
  schema::DocumentLock lock = schema::DocumentLock::acquire(path, schema::LockHolder::self());
  schema::removeLeftoverTemporaries(path);
  return lock;
}

// Applies `edit` to the file in place. The engine's rollback journal
// (jet/journal.h) makes the commit all or nothing, and the write touches
// only the pages the edit changed.
void editSafely(const std::string& given, const std::function<void(jet::Database&)>& edit) {
  schema::DocumentLock lock = lockForWriting(given);
  // Through symbolic links, the file they lead to is edited, not a link.
  const std::string path = schema::resolveLinks(given);
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) ioFail(given, "cannot open");
  if (!S_ISREG(st.st_mode)) {
    errno = EINVAL;
    ioFail(given, "not a regular file");
  }
  if (schema::isReadOnlyFile(path))
    throw jet::JetError(jet::JetError::Kind::kIo, given + ": read-only; left as it was");
  try {
    auto db = jet::Database::openFile(path, true);
    edit(*db);
    db->flush();
  } catch (const jet::JetError& e) {
    // Speak of the file as the user named it.
    std::string msg = e.what();
    if (path != given)
      for (size_t at = 0; (at = msg.find(path, at)) != std::string::npos; at += given.size())
        msg.replace(at, path.size(), given);
    throw e.withMessage(msg);
  }
}

// Reads COL=VALUE arguments against the table's columns.
std::vector<std::pair<size_t, jet::Value>> assignments(const jet::TableDef& t,
                                                       const std::vector<std::string>& args) {
  std::vector<std::pair<size_t, jet::Value>> out;
  for (const std::string& a : args) {
    auto [name, text] = csdtool::splitAssignment(a);
    const jet::ColumnDef* c = t.findColumn(name);
    if (!c) throw std::invalid_argument("table '" + t.name + "' has no column '" + name + "'");
    out.emplace_back(static_cast<size_t>(c - t.columns.data()), csdtool::parseValue(*c, text));
  }
  return out;
}

std::vector<jet::RowId> matchingRows(jet::Database& db, const jet::TableDef& t,
                                     const std::vector<std::pair<size_t, jet::Value>>& where) {
  // A table the engine cannot write is refused before any row is looked
  // at, so an edit matching nothing does not pass for one that could be made.
  if (std::string why = db.whyNotWritable(t); !why.empty())
    throw jet::JetError(jet::JetError::Kind::kUnsupported,
                        db.fileName() + ": cannot write to '" + t.name + "': " + why);
  auto matches = [&](jet::Bytes row) {
    for (const auto& [i, v] : where)
      if (!csdtool::sameValue(db.decodeColumn(t, t.columns[i], row), v)) return false;
    return true;
  };
  std::vector<jet::RowId> ids;
  // A value on an indexed column names the candidates; else every row is one.
  for (const auto& [i, v] : where) {
    std::optional<std::vector<jet::RowId>> candidates = schema::rowsWithValue(db, t, i, v);
    if (!candidates) continue;
    for (jet::RowId id : *candidates)
      if (std::optional<jet::Bytes> row = db.rowData(id); row && matches(*row)) ids.push_back(id);
    return ids;
  }
  db.scanRows(t, [&](jet::RowId id, jet::Bytes row) {
    if (matches(row)) ids.push_back(id);
    return true;
  });
  return ids;
}

// A command line that does not say what it wants; told as csdtool's usage.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

const char kUpdateUsage[] = "update takes FILE TABLE --where COL=VALUE... --set COL=VALUE...";

// The words of an update after TABLE: the --where and the --set assignments.
std::pair<std::vector<std::string>, std::vector<std::string>> whereAndSet(
    const std::vector<std::string>& args) {
  std::vector<std::string> where, set;
  std::vector<std::string>* into = nullptr;
  for (size_t i = 2; i < args.size(); ++i) {
    if (args[i] == "--where") {
      into = &where;
    } else if (args[i] == "--set") {
      into = &set;
    } else if (into) {
      into->push_back(args[i]);
    } else {
      throw UsageError(kUpdateUsage);
    }
  }
  if (set.empty()) throw UsageError(kUpdateUsage);
  return {where, set};
}

// Refuses an edit, `args` being COMMAND TABLE ARGS..., that does not say
// what it wants, before any file is opened.
void checkEditUsage(const std::vector<std::string>& args) {
  const std::string& cmd = args[0];
  if (cmd == "insert" && args.size() < 3) throw UsageError("insert takes FILE TABLE COL=VALUE...");
  if (cmd == "delete" && args.size() < 3) throw UsageError("delete takes FILE TABLE COL=VALUE...");
  if (cmd == "update") whereAndSet(args);
  if (cmd != "insert" && cmd != "update" && cmd != "delete")
    throw UsageError("a batch line is insert, update or delete, not '" + cmd + "'");
}

// One edit, `args` being COMMAND TABLE ARGS... as on the command line, on an
// open database; what it prints goes to `out`, to be shown once the edit is
// on disk.
void applyEdit(jet::Database& db, const std::vector<std::string>& args, std::ostream& out) {
  checkEditUsage(args);
  const std::string& cmd = args[0];
  if (cmd == "insert") {
    const jet::TableDef& t = db.table(args[1]);
    std::vector<jet::Value> values = db.defaultRow(t);
    for (auto& [i, v] : assignments(t, {args.begin() + 2, args.end()})) values[i] = v;
    jet::RowId id = db.insertRow(t, values);
    std::vector<jet::Value> stored = db.decodeRow(t, *db.rowData(id));
    for (size_t i = 0; i < t.columns.size(); ++i)
      if (t.columns[i].isAutoNumber()) out << csdtool::csvField(t.columns[i], stored[i]) << "\n";
    return;
  }
  if (cmd == "update") {
    auto [where, set] = whereAndSet(args);
    const jet::TableDef& t = db.table(args[1]);
    auto sets = assignments(t, set);
    size_t changed = 0;
    for (jet::RowId id : matchingRows(db, t, assignments(t, where))) {
      std::vector<jet::Value> values = db.decodeRow(t, *db.rowData(id));
      for (const auto& [i, v] : sets) values[i] = v;
      db.updateRow(t, id, values);
      ++changed;
    }
    out << changed << "\n";
    return;
  }
  if (cmd == "delete") {
    const jet::TableDef& t = db.table(args[1]);
    size_t gone = 0;
    for (jet::RowId id : matchingRows(db, t, assignments(t, {args.begin() + 2, args.end()}))) {
      db.deleteRow(t, id);
      ++gone;
    }
    out << gone << "\n";
  }
}

// A batch line split into words as a shell would: at spaces, double quotes
// grouping (a backslash in them keeps a quote or backslash), nothing else
// special, so 'NULL' stays the text NULL as it does on the command line.
std::vector<std::string> splitWords(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false, quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      if (c == '"') {
        quoted = false;
      } else if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
        word += line[++i];
      } else {
        word += c;
      }
    } else if (c == ' ' || c == '\t' || c == '\r') {
      if (inWord) words.push_back(std::move(word));
      word.clear();
      inWord = false;
    } else {
      inWord = true;
      if (c == '"') {
        quoted = true;
      } else {
        word += c;
      }
    }
  }
  if (quoted) throw UsageError("a double quote is not closed");
  if (inWord) words.push_back(std::move(word));
  return words;
}

// What a failed `batch --each` kept.
std::string savedNote(bool each, size_t saved) {
  if (!each) return "";
  if (saved == 0) return " (nothing was saved)";
  return " (the edits up to line " + std::to_string(saved) + " are saved)";
}

// The edits of standard input. Together, they are one commit: all land or
// none. With `each`, every line is its own commit, on disk (and its output
// printed) before the next is read, so a failure keeps the lines before it.
void runBatch(const std::string& file, bool each) {
  std::ostringstream out;
  size_t saved = 0;
  editSafely(file, [&](jet::Database& db) {
    std::string line;
    for (size_t number = 1; std::getline(std::cin, line); ++number) {
      try {
        std::vector<std::string> words = splitWords(line);
        if (words.empty() || words[0].starts_with("#")) continue;
        applyEdit(db, words, out);
        if (each) {
          db.flush();
          saved = number;
          std::cout << out.str() << std::flush;
          out.str({});
        }
      } catch (const jet::JetError& e) {
        throw e.withMessage("line " + std::to_string(number) + ": " + e.what() +
                            savedNote(each, saved));
      } catch (const std::exception& e) {
        throw std::runtime_error("line " + std::to_string(number) + ": " + e.what() +
                                 savedNote(each, saved));
      }
    }
    if (std::cin.bad()) throw std::runtime_error("could not read standard input");
  });
  std::cout << out.str();
}

// The template folder as the editor finds it: "Templates/Warehouses" under
// the parent of the running program's folder, in a build and an install alike.
std::filesystem::path templateFolder() {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) throw std::runtime_error("cannot find csdtool's own folder: " + ec.message());
  return self.parent_path().parent_path() / "Templates" / "Warehouses";
}

// Copies `from` to a new file beside `to` and renames it into place, so `to`
// is either absent, as it was, or the whole copy. Without `replace` an
// existing `to` is refused, also one that appears while copying.
void copyIntoPlace(const std::string& from, const std::string& to, bool replace) {
  int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) ioFail(from, "cannot open");
  std::string tmp = to + ".csdtool-XXXXXX";
  int out = ::mkstemp(tmp.data());
  if (out < 0) {
    ::close(in);
    ioFail(to, "cannot create a file beside it");
  }
  try {
    std::vector<char> buf(1 << 20);
    while (true) {
      ssize_t n = ::read(in, buf.data(), buf.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) ioFail(from, "read failed");
      if (n == 0) break;
      for (ssize_t done = 0; done < n;) {
        ssize_t w = ::write(out, buf.data() + done, static_cast<size_t>(n - done));
        if (w < 0 && errno == EINTR) continue;
        if (w < 0) ioFail(to, "write failed");
        done += w;
      }
    }
    mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(out, 0666 & ~mask);  // a new document, not a copy of the template's mode
    if (::fsync(out) != 0) ioFail(to, "sync failed");
    ::close(in);
    in = -1;
    ::close(out);
    out = -1;
    int moved = replace
                    ? ::rename(tmp.c_str(), to.c_str())
                    : ::renameat2(AT_FDCWD, tmp.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (moved != 0 && !replace && (errno == EINVAL || errno == ENOSYS)) {
      // A file system without RENAME_NOREPLACE: check, then rename.
      errno = EEXIST;
      moved = std::filesystem::exists(to) ? -1 : ::rename(tmp.c_str(), to.c_str());
    }
    if (moved != 0 && errno == EEXIST)
      throw std::runtime_error(to + ": already exists (--force replaces it)");
    if (moved != 0) ioFail(to, "cannot put the copy in place");
  } catch (...) {
    if (in >= 0) ::close(in);
    if (out >= 0) ::close(out);
    ::unlink(tmp.c_str());
    throw;
  }
}

int newFromTemplate(const std::vector<std::string>& args) {
  const char* usage = "new takes --template mstn|autocad|PATH OUT [--force]";
  std::string choice, out;
  bool force = false;
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--force") {
      force = true;
    } else if (args[i] == "--template" && i + 1 < args.size() && choice.empty()) {
      choice = args[++i];
    } else if (out.empty() && !args[i].starts_with("--")) {
      out = args[i];
    } else {
      return usageError(usage);
    }
  }
  if (choice.empty() || out.empty()) return usageError(usage);
  try {
    std::string from = choice;
    if (choice == "mstn" || choice == "autocad")
      from = (templateFolder() / (choice == "mstn" ? "MstnTemplate.csd" : "AutoCadTemplate.csd"))
                 .string();
    if (!std::filesystem::is_regular_file(from))
      throw std::runtime_error("template " + from + " not found");
    if (!force && std::filesystem::exists(out))
      throw std::runtime_error(out + ": already exists (--force replaces it)");
    jet::Database::openFile(from)->userTableNames();  // a Jet database, or an error naming it
    schema::DocumentLock lock = lockForWriting(out);
    // A journal a killed edit left beside the old document must not be
    // played back into the new one.
    const std::string target = schema::resolveLinks(out);
    if (std::filesystem::exists(target)) jet::recoverJournal(target);
    ::unlink(jet::journalPathFor(target).c_str());
    copyIntoPlace(from, target, force);
  } catch (const schema::EngineError& e) {
    std::cerr << "csdtool: " << out << ": error " << e.number() << ": " << e.description() << "\n";
    return 1;
  } catch (const std::exception& e) {
    // The messages name their files; main() would put the first argument in front.
    std::cerr << "csdtool: " << e.what() << "\n";
    return 1;
  }
  return 0;
}

// Runs `body` on `path` opened through the data layer to read only, as the
// editor would query it; nothing is written and no lock is taken.
void withReadOnly(const std::string& path,
                  const std::function<void(schema::SchemaDatabase&)>& body) {
  if (!std::filesystem::is_regular_file(path))
    throw jet::JetError(jet::JetError::Kind::kIo, path + ": no such file");
  schema::SchemaDatabase db;
  db.openReadOnly(path);
  body(db);
}

// A result as CSV in the layout of mdb-export: the field names, then a line a row.
class CsvPrinter {
 public:
  CsvPrinter() {
    text_.type = jet::coltype::kText;  // the layout mdb-export gives text; every value prints
    blob_.type = jet::coltype::kOle;   // by its own kind
  }
  void names(const std::vector<std::string>& names) {
    line_.clear();
    for (size_t i = 0; i < names.size(); ++i) line_ += (i ? "," : "") + names[i];
    std::cout << line_ << "\n";
  }
  void row(const std::vector<jet::Value>& values) {
    line_.clear();
    for (size_t i = 0; i < values.size(); ++i) {
      if (i) line_ += ',';
      line_ += csdtool::csvField(std::holds_alternative<jet::Blob>(values[i]) ? blob_ : text_,
                                 values[i]);
    }
    line_ += '\n';
    std::cout << line_;
  }

 private:
  jet::ColumnDef text_, blob_;
  std::string line_;
};

int run(const std::vector<std::string>& args) {
  const std::string& cmd = args[0];
  if (cmd == "new") return newFromTemplate(args);
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
  if (cmd == "query") {
    if (args.size() != 3) return usageError("query takes FILE \"SELECT ...\"");
    withReadOnly(args[1], [&](schema::SchemaDatabase& db) {
      // Printed once, front to back: read as it is printed.
      CsvPrinter out;
      db.readForward(
          args[2], [&](const std::vector<std::string>& names) { out.names(names); },
          [&](const std::vector<jet::Value>& values) { out.row(values); });
    });
    return 0;
  }
  if (cmd == "find") {
    if (args.size() != 4) return usageError("find takes FILE TABLE \"CRITERIA\"");
    // A table's name, never a piece of SQL: brackets cannot be part of one.
    if (args[2].find_first_of("[]") != std::string::npos)
      throw schema::EngineError(schema::err::kTableNotFound, schema::sources::kDatabase, {args[2]});
    bool found = false;
    withReadOnly(args[1], [&](schema::SchemaDatabase& db) {
      schema::Recordset rs = db.openMatching(args[2], args[3]);
      if (rs.eof()) return;
      found = true;
      CsvPrinter out;
      out.names(rs.fieldNames());
      out.row(rs.values());
    });
    if (!found) std::cout << "no row of " << args[2] << " matches " << args[3] << "\n";
    return found ? 0 : 1;
  }
  if (cmd == "check") {
    if (args.size() != 2) return usageError("check takes one FILE");
    auto db = jet::Database::openFile(args[1]);
    std::vector<std::string> faults = jet::checkDatabase(*db);
    for (const std::string& f : faults) std::cout << args[1] << ": " << f << "\n";
    return faults.empty() ? 0 : 1;
  }
  if (cmd == "compact") {
    if (args.size() != 2 && args.size() != 3) return usageError("compact takes FILE [OUT]");
    const std::string& out = args.size() == 3 ? args[2] : args[1];
    // Nobody may edit the source while it is copied, nor the target before it is replaced.
    schema::DocumentLock source = lockForWriting(args[1]);
    std::optional<schema::DocumentLock> target;
    if (schema::resolveLinks(out) != schema::resolveLinks(args[1]))
      target.emplace(lockForWriting(out));
    jet::compactFile(args[1], out);
    return 0;
  }
  if (cmd == "insert" || cmd == "update" || cmd == "delete") {
    std::vector<std::string> edit{cmd};
    if (args.size() > 2) edit.insert(edit.end(), args.begin() + 2, args.end());
    std::ostringstream out;
    try {
      checkEditUsage(edit);
    } catch (const UsageError& e) {
      return usageError(e.what());
    }
    editSafely(args[1], [&](jet::Database& db) { applyEdit(db, edit, out); });
    std::cout << out.str();
    return 0;
  }
  if (cmd == "batch") {
    const bool each = args.size() == 3 && args[2] == "--each";
    if (args.size() != 2 && !each)
      return usageError("batch takes FILE [--each], and its edits on standard input");
    runBatch(args[1], each);
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
  } catch (const schema::EngineError& e) {
    std::cerr << "csdtool: " << args[1] << ": error " << e.number() << ": " << e.description()
              << "\n";
  } catch (const std::exception& e) {
    std::cerr << "csdtool: " << (args.size() > 1 ? args[1] + ": " : "") << e.what() << "\n";
  }
  return 1;
}
