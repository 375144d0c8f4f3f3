// The host log sinks: logcat-style lines, quiet mode, the unified-logger file
// and the helper functions of the framework's logging.
#include "host_log.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <regex>

#include "cam_log.h"
#include "cam_string.h"
#include "host_test_util.h"

namespace {

using NSCam::Utils::ULog::ULogger;

class HostLogTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(flicker_host::setDebugLogFile(debugFile_)); }
  void TearDown() override {
    flicker_host::setLogsQuiet(false);
    flicker_host::setDebugLogFile("");
    flicker_host::setUnifiedLogFile("");
  }

  // "MM-DD HH:MM:SS.mmm  pid   tid L tag: message" for this thread.
  static std::regex lineOf(char level, const std::string& tag, const std::string& message) {
    const std::string ids = " *" + std::to_string(getpid()) + " +" +
                            std::to_string(static_cast<long>(syscall(SYS_gettid)));
    return std::regex(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})" + ids + " " + level + " " + tag + ": " +
                      message);
  }

  host_test::TempDir dir_;
  std::string debugFile_ = dir_.file("debug.log");
  std::string unifiedFile_ = dir_.file("unified.log");
};

TEST_F(HostLogTest, FrameworkDefaultsLetTheLibraryLevelDecide) {
  EXPECT_EQ(ULogger::sMode & 0x1, 0x1);  // debug-print sink on
  EXPECT_EQ(ULogger::sDetailsLevel, 5u);
  EXPECT_EQ(ULogger::sNormalDetailsMask & 0x801000u, 0x801000u);
  EXPECT_NE(g_logInfoLv[0].flags & kLogInfoLvEnabled, 0);
  EXPECT_NE(g_logInfoLv[1].flags & kLogInfoLvEnabled, 0);
}

TEST_F(HostLogTest, DebugPrintWritesOneLogcatLinePerMessage) {
  log_dbg_print("FlickerMgr", 0, "[%s] value(%d)", "init", 42);
  log_dbg_print("FlickerPlatformAdapter", 1, "[%s] failed: %s", "setBuf", "null");
  const std::string text = host_test::readFile(debugFile_);
  const size_t firstEnd = text.find('\n');
  ASSERT_NE(firstEnd, std::string::npos);
  const std::string first = text.substr(0, firstEnd);
  const std::string second = text.substr(firstEnd + 1, text.size() - firstEnd - 2);
  EXPECT_TRUE(std::regex_match(first, lineOf('D', "FlickerMgr", R"(\[init\] value\(42\))")))
      << first;
  EXPECT_TRUE(
      std::regex_match(second, lineOf('E', "FlickerPlatformAdapter", R"(\[setBuf\] failed: null)")))
      << second;
  EXPECT_EQ(text.back(), '\n');
}

TEST_F(HostLogTest, QuietSilencesBothSinks) {
  ASSERT_TRUE(flicker_host::setUnifiedLogFile(unifiedFile_));
  flicker_host::setLogsQuiet(true);
  log_dbg_print("FlickerMgr", 1, "hidden");
  ULogger::write(0x801000, "FlickerMgr", 1, "hidden", 6);
  EXPECT_EQ(host_test::readFile(debugFile_), "");
  EXPECT_EQ(host_test::readFile(unifiedFile_), "");
}

TEST_F(HostLogTest, UnifiedLoggerGoesToItsFileOnlyWhenOneIsSet) {
  const int modeBefore = ULogger::sMode;
  ULogger::write(0x801000, "FlickerMgr", 5, "dropped", 7);  // no file yet: nowhere
  ASSERT_TRUE(flicker_host::setUnifiedLogFile(unifiedFile_));
  EXPECT_EQ(ULogger::sMode & 0x2, 0x2);  // the library now calls this sink
  const char text[] = "abcdef";
  ULogger::write(0x801000, "FlickerAlgo", 5, text, 3);  // only `length` bytes
  ULogger::write(0x801000, "FlickerMgr", 1, "boom", 4);
  flicker_host::setUnifiedLogFile("");
  EXPECT_EQ(ULogger::sMode, modeBefore & ~0x2);
  const std::string log = host_test::readFile(unifiedFile_);
  EXPECT_TRUE(std::regex_search(log, lineOf('D', "FlickerAlgo", "abc\n"))) << log;
  EXPECT_TRUE(std::regex_search(log, lineOf('E', "FlickerMgr", "boom\n"))) << log;
  EXPECT_EQ(log.find("dropped"), std::string::npos);
  EXPECT_EQ(log.find("abcdef"), std::string::npos);
  EXPECT_EQ(host_test::readFile(debugFile_), "");  // sinks are separate
}

TEST_F(HostLogTest, UnopenableFileKeepsTheDestination) {
  EXPECT_FALSE(flicker_host::setDebugLogFile(dir_.file("no/such/folder/x.log")));
  log_dbg_print("FlickerMgr", 0, "still here");
  EXPECT_NE(host_test::readFile(debugFile_).find("still here"), std::string::npos);
}

TEST(HostLogHelpers, FileNameIsTheLastComponent) {
  struct Row {
    const char* path;
    const char* expected;
  } rows[] = {
      {"/a/b/flicker_mgr.cpp", "flicker_mgr.cpp"},  // absolute path
      {"flicker_mgr.cpp", "flicker_mgr.cpp"},       // no folder
      {"dir/", ""},                                 // trailing slash: empty name
      {nullptr, ""},                                // null is safe
  };
  for (const Row& row : rows) EXPECT_STREQ(get_filename_log_control(row.path), row.expected);
}

TEST(HostLogHelpers, IsIntAcceptsOnlySignedDigitRuns) {
  struct Row {
    const char* text;
    bool expected;
  } rows[] = {
      {"0", true},       // one digit
      {"123", true},     // digits
      {"-12", true},     // minus sign
      {"+7", true},      // plus sign
      {"", false},       // empty
      {"-", false},      // a sign alone
      {"12a", false},    // trailing letter
      {" 12", false},    // leading space
      {"0x10", false},   // hex is not decimal digits
      {"1.5", false},    // decimal point
      {nullptr, false},  // null
  };
  for (const Row& row : rows) {
    EXPECT_EQ(isInt(row.text), row.expected) << (row.text != nullptr ? row.text : "(null)");
  }
}

}  // namespace
