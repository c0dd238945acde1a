// Inserts rows into a table shaped like the schema's Maps table (AutoNumber
// key, text name, two Long columns, primary key and a text index), writes
// the file out, and compares the time with a plain sequential write of the
// same number of bytes: the physical floor for producing that file.
//
//   bench_insert_maps [ROWS] [DIR]
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "jet/check.h"
#include "jet/create.h"

namespace {

double seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

int main(int argc, char** argv) {
  const int rows = argc > 1 ? std::atoi(argv[1]) : 32000;
  const std::string dir = argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string();
  const std::string path = dir + "/bench_insert_maps.mdb";
  const std::string floorPath = dir + "/bench_insert_maps.floor";
  std::filesystem::remove(path);
  { std::FILE* f = std::fopen(path.c_str(), "wb"); std::fclose(f); }

  auto db = jet::createDatabase(jet::openFileStore(path, true));
  jet::TableSpec spec{"Maps",
                      {{"mapId", jet::coltype::kLong, 0, true},
                       {"Name", jet::coltype::kText, 255},
                       {"dirId", jet::coltype::kLong},
                       {"csfid", jet::coltype::kLong}},
                      {{"PrimaryKey", {"mapId"}, {}, true}, {"Name", {"Name"}, {}}}};
  const jet::TableDef& maps = jet::createTable(*db, spec);
  db->flush();
  const auto before = std::filesystem::file_size(path);

  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < rows; ++i) {
    // Names as a folder of drawings holds them: not in key order.
    std::string name = "sheet_" + std::to_string((int64_t{i} * 7919) % 100003) + ".dgn";
    db->insertRow(maps, {std::monostate{}, name, int32_t(1 + i % 20), int32_t(1 + i % 3)});
  }
  db->flush();
  const double insertTime = seconds(start);
  const auto written = std::filesystem::file_size(path) - before;

  // The floor: the same number of bytes written sequentially and synced.
  std::vector<char> block(1 << 20, 'x');
  start = std::chrono::steady_clock::now();
  int fd = ::open(floorPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
  for (uint64_t done = 0; done < written; done += block.size())
    if (::write(fd, block.data(), std::min<uint64_t>(block.size(), written - done)) < 0) return 1;
  ::fsync(fd);
  ::close(fd);
  const double floorTime = seconds(start);

  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  size_t faults = jet::checkDatabase(*db).size();
  std::printf("| %d rows | %.3f s | %.1f MB written | floor %.3f s | peak RSS %.1f MB | check %s |\n",
              rows, insertTime, written / 1e6, floorTime, ru.ru_maxrss / 1024.0,
              faults ? "FAILED" : "clean");
  std::filesystem::remove(floorPath);
  std::filesystem::remove(path);
  return faults ? 1 : 0;
}
