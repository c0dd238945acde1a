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

  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

// Jet's own words for a duplicate key (its error 3022).
inline constexpr char kDuplicateKeyText[] =
    "The changes you requested to the table were not successful because they would create "
    "duplicate values in the index, primary key, or relationship. Change the data in the field "
    "or fields that contain duplicate data, remove the index, or redefine the index to permit "
    "duplicate entries and try again.";

// "page 57: row offset 4100 past end of page"
[[noreturn]] void throwCorrupt(uint32_t page, const std::string& fault);
[[noreturn]] void throwCorrupt(const std::string& fault);

// Adds the file name in front of a message that does not carry it yet.
std::string withFile(const std::string& file, const std::string& message);

}  // namespace jet
