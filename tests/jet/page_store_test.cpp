// The page stores and what an I/O failure looks like from above.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "jet/error.h"
#include "jet/journal.h"
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

// Writes `bytes` to a new file at `path`.
void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

TEST(PageStore, FileStoreWritesExtendAndPersistAndItRefusesWhatItCannotDo) {
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

  std::string path =
      testing::TempDir() + "/vantor_store_test_" + std::to_string(::getpid()) + ".bin";
  writeFile(path, "");
  {
    auto store = openFileStore(path, true);
    const uint8_t data[] = {1, 2, 3, 4};
    store->write(10, data);
    EXPECT_EQ(store->size(), 14u);
    store->sync();
  }
  buf.resize(4);
  openFileStore(path, false)->read(10, buf);
  EXPECT_EQ(buf, (std::vector<uint8_t>{1, 2, 3, 4}));
  std::filesystem::remove(path);
}

TEST(PageStore, FaultyStoreFailsOnCommandAndAnExportNamesTheFile) {
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

  // A read failing under an export names the file.
  std::vector<uint8_t> bytes = jettest::readFile(jettest::corpusPath("testV2000.mdb"));
  faulty =
      std::make_unique<FaultyStore>(std::make_unique<MemoryStore>(std::move(bytes), "schema.csd"));
  FaultyStore* f = faulty.get();
  auto db = Database::open(std::move(faulty));
  f->failReadsAfter(0);
  std::ostringstream out;
  std::string msg = ioError([&] { csdtool::exportCsv(*db, db->table("Table1"), out); });
  EXPECT_EQ(msg.rfind("schema.csd: ", 0), 0u) << msg;
}

}  // namespace

// A commit in place, interrupted at the worst moment: the pages are written
// but the journal is still there.
class JournalTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove(path_);
    std::filesystem::remove(journalPathFor(path_));
    writeFile(path_, old_);
  }
  void TearDown() override {
    std::filesystem::remove(path_);
    std::filesystem::remove(journalPathFor(path_));
  }
  // Page 1 rewritten and a fourth page appended, the journal left behind
  // (held while `hold` runs, as by a writer still at work).
  void interruptedCommit(const std::function<void()>& hold) {
    auto store = openFileStore(path_, true);
    const std::vector<uint8_t> fresh(4096, 'n');
    const PageWrite writes[] = {{4096, fresh}, {3 * 4096, fresh}};
    const int fd = ::open(path_.c_str(), O_RDONLY);
    {
      Journal journal(path_, fd, store->size(), writes);
      for (const PageWrite& w : writes) store->write(w.offset, w.data);
      hold();
    }
    ::close(fd);
  }
  std::string contents(PageStore& s) {
    std::vector<uint8_t> all(s.size());
    s.read(0, all);
    return std::string(all.begin(), all.end());
  }
  const std::string old_ = std::string(3 * 4096, 'o');
  // Each test and process its own file: tests run side by side.
  std::string path_ = testing::TempDir() + "/vantor_journal_" + std::to_string(::getpid()) + "_" +
                      testing::UnitTest::GetInstance()->current_test_info()->name() + ".mdb";
};

TEST_F(JournalTest, ReadersSeeTheFileAsBeforeAnInterruptedCommit) {
  // While the writer lives, a reader sees the old bytes and leaves all be.
  interruptedCommit([&] {
    auto reader = openFileStore(path_, false);
    EXPECT_EQ(contents(*reader), old_);
    EXPECT_TRUE(std::filesystem::exists(journalPathFor(path_)));
    EXPECT_EQ(std::filesystem::file_size(path_), 4u * 4096);
  });
  // Once it is gone, the first open plays the journal back.
  auto reader = openFileStore(path_, false);
  EXPECT_EQ(contents(*reader), old_);
  EXPECT_EQ(std::filesystem::file_size(path_), 3u * 4096);
  EXPECT_FALSE(std::filesystem::exists(journalPathFor(path_)));
}

TEST_F(JournalTest, AJournalNeverCompletedIsIgnoredAndACommitWritesOnlyWhatDiffers) {
  interruptedCommit([] {});
  std::filesystem::resize_file(journalPathFor(path_),
                               std::filesystem::file_size(journalPathFor(path_)) - 1);
  auto reader = openFileStore(path_, false);
  EXPECT_EQ(contents(*reader).substr(4096, 1), "n");
  EXPECT_FALSE(std::filesystem::exists(journalPathFor(path_)));

  const std::string source = path_ + ".src";
  std::string bytes = contents(*reader) + std::string(4096, 'x');
  bytes[5] = 'c';
  writeFile(source, bytes);
  // No commit lands under a reader's pages: it waits, then is refused whole.
  const std::string before = contents(*reader);
  try {
    updateInPlace(source, path_);
    ADD_FAILURE() << "committed under an open reader";
  } catch (const JetError& e) {
    EXPECT_NE(std::string(e.what()).find("another program is reading it"), std::string::npos);
  }
  EXPECT_EQ(contents(*openFileStore(path_, false)), before);
  reader.reset();
  EXPECT_EQ(updateInPlace(source, path_), 2u * 4096);  // page 0 and the new fifth page
  EXPECT_EQ(contents(*openFileStore(path_, false)), bytes);
  EXPECT_FALSE(std::filesystem::exists(journalPathFor(path_)));
  std::filesystem::remove(source);
}
