// Fixtures shared by the engine's tests: the corpus of real Jet files, and
// verbs that damage a copy of one in memory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jet/database.h"

namespace jettest {

std::string corpusPath(const std::string& name);
std::vector<std::string> corpusFiles();  // every *.mdb of the corpus, sorted
std::vector<uint8_t> readFile(const std::string& path);

std::unique_ptr<jet::Database> openBytes(std::vector<uint8_t> bytes,
                                         const std::string& name = "damaged.mdb");

// Reads everything a reader can reach: catalog, every table definition,
// every row of every table decoded, every index walked. Returns the number
// of rows decoded. Throws what the engine throws.
size_t readEverything(jet::Database& db);

// A copy of a corpus file in memory, with verbs to damage it.
class DamagedFile {
 public:
  explicit DamagedFile(const std::string& corpusName);

  uint32_t pageSize() const { return pageSize_; }
  std::vector<uint8_t>& bytes() { return bytes_; }
  uint8_t* page(uint32_t n) { return bytes_.data() + static_cast<size_t>(n) * pageSize_; }

  void set8(uint32_t page, size_t offset, uint8_t v);
  void set16(uint32_t page, size_t offset, uint16_t v);
  void set32(uint32_t page, size_t offset, uint32_t v);
  void truncate(size_t size) { bytes_.resize(size); }

  std::unique_ptr<jet::Database> open();
  // Opens and reads everything; returns the error message, or "" if none.
  std::string readError();

 private:
  std::vector<uint8_t> bytes_;
  uint32_t pageSize_;
};

}  // namespace jettest
