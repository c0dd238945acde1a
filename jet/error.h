// Errors raised by the Jet engine. Every failure is an exception; its text
// names the file, the page when one is involved, and the fault, so a user
// or a test can tell at once where a damaged file went wrong.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace jet {

class JetError : public std::runtime_error {
 public:
  enum class Kind {
    kIo,           // the operating system refused a read, write or sync
    kCorrupt,      // the bytes do not form a valid Jet structure
    kUnsupported,  // valid Jet, but something this engine does not handle
    kNotFound,     // a table, column or index that does not exist
    kInvalid,      // a caller's request that cannot be carried out
    kDuplicate,    // a unique index would hold a key twice (Jet's error 3022)
  };

  JetError(Kind kind, std::string message)
      : std::runtime_error(message), kind_(kind) {}
  // An error Jet itself numbers: the message is "error N: " and Jet's text.
  JetError(Kind kind, int number, std::string jetText)
      : std::runtime_error("error " + std::to_string(number) + ": " + jetText),
        kind_(kind),
        number_(number),
        jetText_(std::move(jetText)) {}

  Kind kind() const { return kind_; }
  int number() const { return number_; }  // 0 when Jet has no number for it
  const std::string& jetText() const { return jetText_; }
  // The same error under another message (one that names the file, say).
  JetError withMessage(std::string message) const {
    JetError e(kind_, std::move(message));
    e.number_ = number_;
    e.jetText_ = jetText_;
    return e;
  }

 private:
  Kind kind_;
  int number_ = 0;
  std::string jetText_;
};

// Jet's own words for a duplicate key (its error 3022).
inline constexpr char kDuplicateKeyText[] =
    "The changes you requested to the table were not successful because they would create "
    "duplicate values in the index, primary key, or relationship. Change the data in the field "
    "or fields that contain duplicate data, remove the index, or redefine the index to permit "
    "duplicate entries and try again.";

// Jet's numbers and words for the column rules it enforces; '|' stands for
// the field, named as "Table.Column".
inline constexpr int kDuplicateKeyError = 3022;
inline constexpr int kNotUpdatableError = 3164;
inline constexpr char kNotUpdatableText[] = "Field cannot be updated.";
inline constexpr int kRequiredError = 3314;
inline constexpr char kRequiredText[] =
    "The field '|' cannot contain a Null value because the Required property for this field is "
    "set to True. Enter a value in this field.";
inline constexpr int kZeroLengthError = 3315;
inline constexpr char kZeroLengthText[] = "Field '|' cannot be a zero-length string.";

// A numbered error with '|' in its text replaced by `field`.
JetError ruleError(int number, const char* text, const std::string& field = "");

// "page 57: row offset 4100 past end of page"
[[noreturn]] void throwCorrupt(uint32_t page, const std::string& fault);
[[noreturn]] void throwCorrupt(const std::string& fault);

// Adds the file name in front of a message that does not carry it yet.
std::string withFile(const std::string& file, const std::string& message);

}  // namespace jet
