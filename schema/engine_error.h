// Errors of the data layer, numbered and worded as Jet and DAO number and
// word them, because the forms test for particular numbers (3022 above all)
// and the common error report shows number and text to the user.
//
// Every failure of the data layer is an EngineError. Its texts come from one
// table (errorText); a caller never writes an engine message by hand.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace schema {

// Error numbers the program meets. The texts are in engine_error.cpp.
namespace err {
inline constexpr int32_t kOverflow = 6;
inline constexpr int32_t kInvalidArgument = 3001;
inline constexpr int32_t kUpdateWithoutAddNewOrEdit = 3020;
inline constexpr int32_t kNoCurrentRecord = 3021;
inline constexpr int32_t kDuplicateKey = 3022;
inline constexpr int32_t kFileNotFound = 3024;
inline constexpr int32_t kReadOnly = 3027;
inline constexpr int32_t kNoTransaction = 3034;
inline constexpr int32_t kSystemResourceExceeded = 3035;
inline constexpr int32_t kDiskError = 3043;
inline constexpr int32_t kInvalidPath = 3044;
inline constexpr int32_t kFileInUse = 3045;
inline constexpr int32_t kCouldNotLockFile = 3050;
inline constexpr int32_t kCannotOpenFile = 3051;
inline constexpr int32_t kIndexNull = 3058;
inline constexpr int32_t kTooFewParameters = 3061;
inline constexpr int32_t kUnknownFieldInExpression = 3070;
inline constexpr int32_t kQueryExpressionSyntax = 3075;
inline constexpr int32_t kCriteriaSyntax = 3077;
inline constexpr int32_t kTableNotFound = 3078;
inline constexpr int32_t kAmbiguousField = 3079;
inline constexpr int32_t kInvalidBracketing = 3126;
inline constexpr int32_t kInvalidStatement = 3129;
inline constexpr int32_t kFromClauseSyntax = 3131;
inline constexpr int32_t kSelectSyntax = 3141;
inline constexpr int32_t kCharactersAfterEnd = 3142;
inline constexpr int32_t kInvalidBookmark = 3159;
inline constexpr int32_t kFieldTooSmall = 3163;
inline constexpr int32_t kFieldNotUpdatable = 3164;
inline constexpr int32_t kRecordDeleted = 3167;
inline constexpr int32_t kInvalidOperation = 3219;
inline constexpr int32_t kItemNotFound = 3265;
inline constexpr int32_t kRequiredField = 3314;
inline constexpr int32_t kZeroLength = 3315;
inline constexpr int32_t kNotUpdatable = 3326;
inline constexpr int32_t kUnrecognizedFormat = 3343;
inline constexpr int32_t kQueryTooComplex = 3360;
inline constexpr int32_t kObjectInvalid = 3420;
inline constexpr int32_t kConversionError = 3421;
inline constexpr int32_t kIncompleteQueryClause = 3450;
inline constexpr int32_t kTypeMismatchInCriteria = 3464;
}  // namespace err

// Where an error is said to come from, as DAO names its objects.
namespace sources {
inline constexpr char kEngine[] = "DAO.DBEngine";
inline constexpr char kWorkspace[] = "DAO.Workspace";
inline constexpr char kDatabase[] = "DAO.Database";
inline constexpr char kRecordset[] = "DAO.Recordset";
inline constexpr char kFields[] = "DAO.Fields";
inline constexpr char kField[] = "DAO.Field";
// Errors the program raises itself (the overflow of a 16-bit key).
inline constexpr char kProgram[] = "Vantor";
}  // namespace sources

// One entry of the engine's error list, as the error list dialog shows it.
struct ErrorRecord {
  int32_t number = 0;
  std::string source;
  std::string description;
  bool operator==(const ErrorRecord&) const = default;
};

// The records of the last failed engine operation, most specific first.
using ErrorList = std::vector<ErrorRecord>;

// The text for an error number, with each "|" of the table's wording
// replaced by the next argument (a file name, an expression, a count).
// A number the table does not hold gets Jet's text for a reserved error.
std::string errorText(int32_t number, std::initializer_list<std::string_view> args = {});

class EngineError : public std::runtime_error {
 public:
  // An error of the database engine, worded by the table.
  EngineError(int32_t number, std::string source,
              std::initializer_list<std::string_view> args = {});
  // Any number with a description of the caller's own (kept as given).
  static EngineError withText(int32_t number, std::string source, std::string description);
  // An error the program raises itself rather than the engine (the 16-bit
  // overflow): it never enters the engine's error list.
  static EngineError fromProgram(int32_t number, std::initializer_list<std::string_view> args = {});

  int32_t number() const { return number_; }
  const std::string& source() const { return source_; }
  const std::string& description() const { return description_; }
  bool fromEngine() const { return fromEngine_; }
  ErrorRecord record() const { return {number_, source_, description_}; }

 private:
  EngineError(int32_t number, std::string source, std::string description, bool fromEngine);

  int32_t number_;
  std::string source_;
  std::string description_;
  bool fromEngine_;
};

// A key as the forms hold it: a 16-bit signed integer. Raises error 6
// "Overflow" for a key outside -32768..32767.
int16_t toInteger16(int32_t key);

}  // namespace schema
