// The page stores and what an I/O failure looks like from above.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "jet/error.h"
#include "tests/jet/test_util.h"
#include "tools/csdtool/csv_export.h"

using namespace jet;

namespace {

std::string ioError(const std::function<void()>& f) {
  try {
    f();
  } catch (const JetError& e) {
    EXPECT_EQ(e.kind(), JetError::Kind::kIo) << e.what();
    return e.what();
  }
  return "";
}

TEST(PageStore, FileStoreRefusesReadsPastTheEndAndWritesWhenReadOnly) {
  auto store = openFileStore(jettest::corpusPath("adox_jet4.mdb"), false);
  EXPECT_EQ(store->size(), 65536u);
  std::vector<uint8_t> buf(16);
  store->read(65536 - 16, buf);
  EXPECT_NE(ioError([&] { store->read(65536 - 8, buf); }).find("past end of file"),
            std::string::npos);
  EXPECT_NE(ioError([&] { store->write(0, buf); }).find("read-only"), std::string::npos);
  EXPECT_NE(ioError([] { openFileStore("/nonexistent/x.mdb", false); }).find("/nonexistent/x.mdb"),
            std::string::npos);
  EXPECT_NE(ioError([] { openFileStore("/tmp", false); }).find("not a regular file"),
            std::string::npos);
}

TEST(PageStore, FileStoreWritesExtendAndPersist) {
  std::string path = testing::TempDir() + "/vantor_store_test.bin";
  std::filesystem::remove(path);
  { std::FILE* f = std::fopen(path.c_str(), "wb"); std::fclose(f); }
  {
    auto store = openFileStore(path, true);
    const uint8_t data[] = {1, 2, 3, 4};
    store->write(10, data);
    EXPECT_EQ(store->size(), 14u);
    store->sync();
  }
  auto again = openFileStore(path, false);
  std::vector<uint8_t> buf(4);
  again->read(10, buf);
  EXPECT_EQ(buf, (std::vector<uint8_t>{1, 2, 3, 4}));
  std::filesystem::remove(path);
}

TEST(PageStore, FaultyStoreFailsOnCommand) {
  auto faulty = std::make_unique<FaultyStore>(
      std::make_unique<MemoryStore>(std::vector<uint8_t>(100, 7), "mem.mdb"));
  std::vector<uint8_t> buf(10);
  faulty->failReadsAfter(1);
  faulty->read(0, buf);
  EXPECT_NE(ioError([&] { faulty->read(0, buf); }).find("mem.mdb: injected read failure"),
            std::string::npos);
  faulty->failReadsAfter(-1);
  faulty->failReadsOfRange(50, 60);
  faulty->read(0, buf);
  EXPECT_FALSE(ioError([&] { faulty->read(55, buf); }).empty());

  // A full disk lets part of a write land and fails the rest.
  const std::vector<uint8_t> data(10, 9);
  faulty->failWritesAfterBytes(4);
  EXPECT_NE(ioError([&] { faulty->write(0, data); }).find("No space left"), std::string::npos);
  auto& mem = static_cast<MemoryStore&>(faulty->inner());
  EXPECT_EQ(mem.bytes()[3], 9);
  EXPECT_EQ(mem.bytes()[4], 7);
  faulty->failSync(true);
  EXPECT_FALSE(ioError([&] { faulty->sync(); }).empty());
}

TEST(PageStore, ReadFailureDuringExportNamesTheFile) {
  std::vector<uint8_t> bytes = jettest::readFile(jettest::corpusPath("testV2000.mdb"));
  auto faulty = std::make_unique<FaultyStore>(
      std::make_unique<MemoryStore>(std::move(bytes), "schema.csd"));
  FaultyStore* f = faulty.get();
  auto db = Database::open(std::move(faulty));
  f->failReadsAfter(0);
  std::ostringstream out;
  std::string msg = ioError([&] { csdtool::exportCsv(*db, db->table("Table1"), out); });
  EXPECT_EQ(msg.rfind("schema.csd: ", 0), 0u) << msg;
}

}  // namespace
