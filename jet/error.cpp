#include "jet/error.h"

namespace jet {

void throwCorrupt(uint32_t page, const std::string& fault) {
  throw JetError(JetError::Kind::kCorrupt, "page " + std::to_string(page) + ": " + fault);
}

void throwCorrupt(const std::string& fault) { throw JetError(JetError::Kind::kCorrupt, fault); }

JetError ruleError(int number, const char* text, const std::string& field) {
  std::string t = text;
  if (size_t bar = t.find('|'); bar != std::string::npos) t.replace(bar, 1, field);
  return JetError(JetError::Kind::kInvalid, number, std::move(t));
}

std::string withFile(const std::string& file, const std::string& message) {
  if (file.empty() || message.rfind(file + ": ", 0) == 0) return message;
  return file + ": " + message;
}

}  // namespace jet
