// Small helpers shared by the host platform tests: a temporary folder that
// removes itself, whole-file reads and writes, and a fixture whose debug log
// goes to a file of that folder.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "host_log.h"

namespace host_test {

class TempDir {
 public:
  TempDir() { EXPECT_NE(mkdtemp(&path_[0]), nullptr) << "mkdtemp failed in " << path_; }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_ = std::filesystem::temp_directory_path().string() + "/flicker_host_XXXXXX";
};

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(flicker_host::setDebugLogFile(logFile_)); }
  void TearDown() override { flicker_host::setDebugLogFile(""); }
  // What the debug log received since `from` (a size read before).
  std::string logSince(size_t from = 0) const { return readFile(logFile_).substr(from); }

  TempDir dir_;
  std::string logFile_ = dir_.file("debug.log");
};

}  // namespace host_test
