#include "schema/engine_error.h"

#include <algorithm>
#include <iterator>

#include "jet/error.h"

namespace schema {
namespace {

struct Message {
  int32_t number;
  const char* text;  // "|" marks where an argument goes
};

// Jet's and DAO's own wording, so that a user who searches for a message
// finds what everybody else finds. Sorted by number.
constexpr Message kMessages[] = {
    {err::kOverflow, "Overflow"},
    {err::kInvalidArgument, "Invalid argument."},
    {err::kUpdateWithoutAddNewOrEdit, "Update or CancelUpdate without AddNew or Edit."},
    {err::kNoCurrentRecord, "No current record."},
    {err::kDuplicateKey, jet::kDuplicateKeyText},
    {err::kFileNotFound, "Could not find file '|'."},
    {err::kReadOnly, "Cannot update. Database or object is read-only."},
    {err::kNoTransaction,
     "You tried to commit or rollback a transaction without first beginning a transaction."},
    {err::kSystemResourceExceeded, "System resource exceeded."},
    {err::kDiskError, "Disk or network error."},
    {err::kInvalidPath,
     "'|' isn't a valid path. Make sure that the path name is spelled correctly and that you "
     "are connected to the server on which the file resides."},
    {err::kFileInUse, "Could not use '|'; file already in use."},
    {err::kCouldNotLockFile, "Could not lock file."},
    {err::kCannotOpenFile,
     "The Microsoft Jet database engine cannot open the file '|'. It is already opened "
     "exclusively by another user, or you need permission to view its data."},
    {err::kIndexNull, "Index or primary key cannot contain a Null value."},
    {err::kTooFewParameters, "Too few parameters. Expected |."},
    {err::kUnknownFieldInExpression,
     "The Microsoft Jet database engine does not recognize '|' as a valid field name or "
     "expression."},
    {err::kQueryExpressionSyntax, "| in query expression '|'."},
    {err::kCriteriaSyntax, "| in expression."},
    {err::kTableNotFound,
     "The Microsoft Jet database engine cannot find the input table or query '|'. Make sure it "
     "exists and that its name is spelled correctly."},
    {err::kAmbiguousField,
     "The specified field '|' could refer to more than one table listed in the FROM clause of "
     "your SQL statement."},
    {err::kInvalidBracketing, "Invalid bracketing of name '|'."},
    {err::kInvalidStatement,
     "Invalid SQL statement; expected 'DELETE', 'INSERT', 'PROCEDURE', 'SELECT', or 'UPDATE'."},
    {err::kFromClauseSyntax, "Syntax error in FROM clause."},
    {err::kSelectSyntax,
     "The SELECT statement includes a reserved word or an argument name that is misspelled or "
     "missing, or the punctuation is incorrect."},
    {err::kCharactersAfterEnd, "Characters found after end of SQL statement."},
    {err::kInvalidBookmark, "Not a valid bookmark."},
    {err::kFieldTooSmall,
     "The field is too small to accept the amount of data you attempted to add. Try inserting "
     "or pasting less data."},
    {err::kFieldNotUpdatable, jet::kNotUpdatableText},
    {err::kRecordDeleted, "Record is deleted."},
    {err::kInvalidOperation, "Invalid operation."},
    {err::kItemNotFound, "Item not found in this collection."},
    {err::kRequiredField, jet::kRequiredText},
    {err::kZeroLength, jet::kZeroLengthText},
    {err::kNotUpdatable, "This Recordset is not updateable."},
    {err::kUnrecognizedFormat, "Unrecognized database format '|'."},
    {err::kQueryTooComplex, "Query is too complex."},
    {err::kObjectInvalid, "Object invalid or no longer set."},
    {err::kConversionError, "Data type conversion error."},
    {err::kIncompleteQueryClause, "Syntax error in query. Incomplete query clause."},
    {err::kTypeMismatchInCriteria, "Data type mismatch in criteria expression."},
};

static_assert(std::is_sorted(std::begin(kMessages), std::end(kMessages),
                             [](const Message& a, const Message& b) {
                               return a.number < b.number;
                             }),
              "errorText looks numbers up by binary search");

constexpr char kReservedError[] = "Reserved error (|); there is no message for this error.";

std::string fill(std::string_view pattern, std::initializer_list<std::string_view> args) {
  std::string out;
  auto arg = args.begin();
  for (char c : pattern) {
    if (c == '|' && arg != args.end()) {
      out += *arg++;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::string errorText(int32_t number, std::initializer_list<std::string_view> args) {
  auto it = std::lower_bound(std::begin(kMessages), std::end(kMessages), number,
                             [](const Message& m, int32_t n) { return m.number < n; });
  if (it != std::end(kMessages) && it->number == number) return fill(it->text, args);
  std::string n = std::to_string(number);
  return fill(kReservedError, {n});
}

EngineError::EngineError(int32_t number, std::string source, std::string description,
                         bool fromEngine)
    : std::runtime_error(description),
      number_(number),
      source_(std::move(source)),
      description_(std::move(description)),
      fromEngine_(fromEngine) {}

EngineError::EngineError(int32_t number, std::string source,
                         std::initializer_list<std::string_view> args)
    : EngineError(number, std::move(source), errorText(number, args), true) {}

EngineError EngineError::withText(int32_t number, std::string source, std::string description) {
  return EngineError(number, std::move(source), std::move(description), true);
}

EngineError EngineError::fromProgram(int32_t number, std::initializer_list<std::string_view> args) {
  return EngineError(number, sources::kProgram, errorText(number, args), false);
}

int16_t toInteger16(int32_t key) {
  if (key > INT16_MAX || key < INT16_MIN) throw EngineError::fromProgram(err::kOverflow);
  return static_cast<int16_t>(key);
}

}  // namespace schema
