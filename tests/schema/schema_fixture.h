// Fixtures for the data-layer tests: private copies of the generated
// MicroStation template and of corpus files, the state of a file on disk as
// a reader that knows nothing of SchemaDatabase sees it, and a check that a
// call fails with a given engine error.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "jet/check.h"
#include "jet/database.h"
#include "schema/engine_error.h"

namespace schematest {

// Every user table's rows in storage order, read through a fresh engine.
using Dump = std::map<std::string, std::vector<std::vector<jet::Value>>>;

inline Dump dumpFile(const std::string& path) {
  auto db = jet::Database::openFile(path);
  Dump d;
  for (const std::string& t : db->userTableNames()) d[t] = db->readAll(db->table(t));
  return d;
}

// The structural faults of the file on disk; empty when it is sound.
inline std::vector<std::string> faultsOnDisk(const std::string& path) {
  auto db = jet::Database::openFile(path);
  return jet::checkDatabase(*db);
}

inline void expectError(const std::function<void()>& f, int32_t number) {
  try {
    f();
    ADD_FAILURE() << "expected engine error " << number;
  } catch (const schema::EngineError& e) {
    EXPECT_EQ(e.number(), number) << e.what();
  }
}

// A folder of its own for each test, removed afterwards.
class SchemaFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = std::filesystem::temp_directory_path() /
           (std::string("vantor-schema-") + info->test_suite_name() + "-" + info->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    // The templates come with the editor's build; without it there is
    // nothing to test these on.
    if (!std::filesystem::exists(VANTOR_MSTN_TEMPLATE))
      GTEST_SKIP() << "no template at " << VANTOR_MSTN_TEMPLATE << " (built without the editor)";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string copyOf(const std::string& source, const std::string& name) {
    std::filesystem::path to = dir_ / name;
    std::filesystem::copy_file(source, to);
    return to.string();
  }
  // A working copy of MstnTemplate.csd.
  std::string templateCopy(const std::string& name = "work.csd") {
    if (!std::filesystem::exists(VANTOR_MSTN_TEMPLATE))
      throw std::runtime_error(std::string("no template at ") + VANTOR_MSTN_TEMPLATE);
    return copyOf(VANTOR_MSTN_TEMPLATE, name);
  }
  std::string corpusCopy(const std::string& name) {
    return copyOf(std::string(VANTOR_CORPUS_DIR) + "/" + name, name);
  }
  std::filesystem::path dir_;
};

}  // namespace schematest
