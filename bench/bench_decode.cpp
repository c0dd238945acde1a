// bench_decode: how fast the engine opens a file and decodes every row of
// every user table, with the file already in memory so that the disk and the
// page cache stay out of the numbers.
//
//   bench_decode [benchmark flags] [FILE.mdb ...]
//
// With no FILE it takes every corpus file over 200 KiB. For each file:
//   Open/FILE       open the database and read its catalog
//   DecodeAll/FILE  the same, then Database::readAll on each user table
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "jet/database.h"
#include "jet/page_store.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kMinCorpusBytes = 200 * 1024;

std::vector<uint8_t> slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + ": cannot open");
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::unique_ptr<jet::Database> openInMemory(benchmark::State& state,
                                            const std::vector<uint8_t>& bytes) {
  // Copying the file into the store is not the engine's work.
  state.PauseTiming();
  auto store = std::make_unique<jet::MemoryStore>(bytes);
  state.ResumeTiming();
  return jet::Database::open(std::move(store));
}

void open(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  for (auto _ : state) {
    auto db = openInMemory(state, bytes);
    benchmark::DoNotOptimize(db->userTableNames());
  }
}

void decodeAll(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  int64_t rows = 0;
  for (auto _ : state) {
    auto db = openInMemory(state, bytes);
    for (const std::string& name : db->userTableNames()) {
      auto all = db->readAll(db->table(name));
      rows += static_cast<int64_t>(all.size());
      benchmark::DoNotOptimize(all);
    }
  }
  state.counters["rows"] = benchmark::Counter(static_cast<double>(rows),
                                              benchmark::Counter::kIsRate);
}

std::vector<std::string> corpusFiles() {
  std::vector<std::pair<std::uintmax_t, std::string>> found;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(VANTOR_CORPUS_DIR, ec)) {
    if (e.path().extension() != ".mdb" || !e.is_regular_file()) continue;
    if (e.file_size() > kMinCorpusBytes) found.emplace_back(e.file_size(), e.path().string());
  }
  // Largest first, as the export script lists them.
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  std::vector<std::string> paths;
  for (auto& f : found) paths.push_back(std::move(f.second));
  return paths;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::vector<std::string> paths(argv + 1, argv + argc);
  if (paths.empty()) paths = corpusFiles();
  if (paths.empty()) {
    std::cerr << "bench_decode: no files (the corpus is expected in " VANTOR_CORPUS_DIR ")\n";
    return 1;
  }

  // The bytes live until main returns, after the benchmarks have run.
  std::vector<std::shared_ptr<const std::vector<uint8_t>>> files;
  for (const std::string& p : paths) {
    try {
      files.push_back(std::make_shared<const std::vector<uint8_t>>(slurp(p)));
    } catch (const std::exception& e) {
      std::cerr << "bench_decode: " << e.what() << "\n";
      return 1;
    }
    const auto& bytes = *files.back();
    const std::string name = fs::path(p).filename().string();
    benchmark::RegisterBenchmark(("Open/" + name).c_str(),
                                 [&bytes](benchmark::State& s) { open(s, bytes); })
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("DecodeAll/" + name).c_str(),
                                 [&bytes](benchmark::State& s) { decodeAll(s, bytes); })
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
