// Makes a large schema document for the engine benchmarks: a copy of the
// MicroStation template filled through the engine with MAPS maps in folders
// of 640, one coordinate-system file per folder, a feature class per 16 maps
// and one feature-map link per map. 32,000 maps give about 4 MB, 128,000
// about 15 MB, 512,000 about 59 MB.
//
//   bench_make_document TEMPLATE OUT MAPS
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

#include "jet/check.h"
#include "jet/database.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: bench_make_document TEMPLATE OUT MAPS\n");
    return 2;
  }
  const int maps = std::atoi(argv[3]);
  const int folders = std::max(1, maps / 640);
  const int features = std::max(1, maps / 16);
  try {
    std::filesystem::copy_file(argv[1], argv[2], std::filesystem::copy_options::overwrite_existing);
    auto db = jet::Database::openFile(argv[2], true);
    const jet::TableDef& dirs = db->table("Directories");
    const jet::TableDef& csfs = db->table("CoordinateSystemFiles");
    const jet::TableDef& mapTable = db->table("Maps");
    const jet::TableDef& featureTable = db->table("Features");
    const jet::TableDef& links = db->table("FeatureMaps");
    char buf[128];
    for (int d = 1; d <= folders; ++d) {
      std::snprintf(buf, sizeof buf, "/srv/cad/projects/area_%04d/dgn", d);
      db->insertRow(dirs, {std::monostate{}, std::string(buf)});
      std::snprintf(buf, sizeof buf, "area_%04d.csf", d);
      db->insertRow(csfs, {std::monostate{}, std::string(buf), int32_t(d)});
    }
    // Names in no particular order, as a scanner finds drawings.
    for (int i = 0; i < maps; ++i) {
      const int d = 1 + i / 640 % folders;
      std::snprintf(buf, sizeof buf, "sheet_%07d_%03d.dgn", (i * 7919) % 1000003, i % 1000);
      db->insertRow(mapTable, {std::monostate{}, std::string(buf), int32_t(d), int32_t(d)});
    }
    for (int f = 0; f < features; ++f) {
      std::snprintf(buf, sizeof buf, "feature_%06d", f);
      db->insertRow(featureTable, {std::monostate{}, std::string(buf), int32_t(1 + f % folders),
                                   bool(f % 3 == 0), int32_t(1 + f % 33)});
    }
    for (int i = 0; i < maps; ++i)
      db->insertRow(links, {int32_t(1 + i % features), int32_t(1 + (i * 7) % maps)});
    db->flush();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_make_document: %s\n", e.what());
    return 1;
  }
  return 0;
}
