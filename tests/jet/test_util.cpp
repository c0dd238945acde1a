#include "tests/jet/test_util.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "jet/bytes.h"
#include "jet/error.h"

namespace jettest {

std::string corpusPath(const std::string& name) { return std::string(VANTOR_CORPUS_DIR) + "/" + name; }

std::vector<std::string> corpusFiles() {
  std::vector<std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(VANTOR_CORPUS_DIR))
    if (e.path().extension() == ".mdb") out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::unique_ptr<jet::Database> openBytes(std::vector<uint8_t> bytes, const std::string& name) {
  return jet::Database::open(std::make_unique<jet::MemoryStore>(std::move(bytes), name));
}

size_t readEverything(jet::Database& db) {
  size_t rows = 0;
  for (const jet::CatalogEntry& e : db.catalog()) {
    if (!e.isTable()) continue;
    const jet::TableDef& t = db.tableAtPage(e.tdefPage(), e.name);
    db.scanRows(t, [&](jet::RowId, jet::Bytes row) {
      db.decodeRow(t, row);
      ++rows;
      return true;
    });
    for (const jet::RealIndex& ri : t.realIndexes) db.readIndex(ri);
  }
  return rows;
}

DamagedFile::DamagedFile(const std::string& corpusName)
    : bytes_(readFile(corpusPath(corpusName))),
      pageSize_(bytes_.size() > 0x14 && bytes_[0x14] == 0 ? 2048 : 4096) {}

void DamagedFile::set8(uint32_t pg, size_t offset, uint8_t v) { page(pg)[offset] = v; }
void DamagedFile::set16(uint32_t pg, size_t offset, uint16_t v) { jet::put16le(page(pg) + offset, v); }
void DamagedFile::set32(uint32_t pg, size_t offset, uint32_t v) { jet::put32le(page(pg) + offset, v); }

std::unique_ptr<jet::Database> DamagedFile::open() { return openBytes(bytes_); }

std::string DamagedFile::readError() {
  try {
    auto db = open();
    readEverything(*db);
  } catch (const jet::JetError& e) {
    return e.what();
  }
  return "";
}

}  // namespace jettest
