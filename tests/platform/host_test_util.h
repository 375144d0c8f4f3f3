// The fixture of the host platform tests: a temporary folder (temp_files.h)
// and a debug log that goes to a file of that folder.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host_log.h"
#include "temp_files.h"

namespace host_test {

using test_files::readFile;
using test_files::TempDir;
using test_files::writeFile;

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
