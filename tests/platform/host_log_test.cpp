// The host log sinks (logcat-style lines, quiet mode, the unified-logger
// file, the framework's helper functions) and the trace markers as tracefs
// receives them.
#include "host_log.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <regex>

#include "cam_log.h"
#include "cam_string.h"
#include "cam_trace.h"
#include "host_properties.h"
#include "host_test_util.h"
#include "host_trace.h"

namespace {

using NSCam::Utils::ULog::ULogger;

// "MM-DD HH:MM:SS.mmm  pid   tid L tag: message\n" of this thread, as a regex.
std::string lineOf(char level, const std::string& tag, const std::string& message) {
  return R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} *)" + std::to_string(getpid()) + " +" +
         std::to_string(static_cast<long>(syscall(SYS_gettid))) + " " + level + " " + tag + ": " +
         message + "\n";
}

class HostLogTest : public host_test::HostTest {
 protected:
  void TearDown() override {
    flicker_host::setLogsQuiet(false);
    flicker_host::setUnifiedLogFile("");
    flicker_host::clearProperty("debug.atrace.tags.enableflags");
    flicker_host::setTraceFile("");
    HostTest::TearDown();
  }

  std::string pid_ = std::to_string(getpid());
};

TEST_F(HostLogTest, EachSinkWritesLogcatLinesToItsOwnFile) {
  log_dbg_print("FlickerMgr", 0, "[%s] value(%d)", "init", 42);
  log_dbg_print("FlickerPlatformAdapter", 1, "[%s] failed: %s", "setBuf", "null");
  const int modeBefore = ULogger::sMode;
  ULogger::write(0x801000, "FlickerMgr", 5, "dropped", 7);  // no file yet: nowhere
  const std::string unifiedFile = dir_.file("unified.log");
  ASSERT_TRUE(flicker_host::setUnifiedLogFile(unifiedFile));
  EXPECT_EQ(ULogger::sMode, modeBefore | 0x2);              // the library now calls this sink
  ULogger::write(0x801000, "FlickerAlgo", 5, "abcdef", 3);  // only `length` bytes
  ULogger::write(0x801000, "FlickerMgr", 1, "boom", 4);
  flicker_host::setLogsQuiet(true);  // silences both sinks
  log_dbg_print("FlickerMgr", 1, "hidden");
  ULogger::write(0x801000, "FlickerMgr", 1, "hidden", 6);
  flicker_host::setUnifiedLogFile("");
  EXPECT_EQ(ULogger::sMode, modeBefore & ~0x2);
  const std::string debug = logSince();
  const std::string unified = host_test::readFile(unifiedFile);
  EXPECT_TRUE(std::regex_match(
      debug, std::regex(lineOf('D', "FlickerMgr", R"(\[init\] value\(42\))") +
                        lineOf('E', "FlickerPlatformAdapter", R"(\[setBuf\] failed: null)"))))
      << debug;
  EXPECT_TRUE(std::regex_match(
      unified, std::regex(lineOf('D', "FlickerAlgo", "abc") + lineOf('E', "FlickerMgr", "boom"))))
      << unified;
}

// The tail of an error line names the source file alone, as on a device;
// anything that only looks like a tail is left as it is.
TEST_F(HostLogTest, ErrorTailNamesTheSourceFileWithoutItsFolders) {
  const struct {
    const char* tail;  // what follows "[f] msg " in the message
    const char* shown;
  } rows[] = {
      {"(f){#12:/build/tree/aaa/common/flicker/flicker_mgr.cpp}", "(f){#12:flicker_mgr.cpp}"},
      {"(f){#7:relative/dir/adapter.cpp}", "(f){#7:adapter.cpp}"},
      {"(f){#7:adapter.cpp}", "(f){#7:adapter.cpp}"},        // already a file name
      {"(f){#x7:/a/b.cpp}", "(f){#x7:/a/b.cpp}"},            // not a line number
      {"(f){#:/a/b.cpp}", "(f){#:/a/b.cpp}"},                // no line number
      {"{#7:/a/b.cpp} and more", "{#7:/a/b.cpp} and more"},  // not at the end
      {"(f){#7:/a/b.cpp}/}", "(f){#7:/a/b.cpp}/}"},          // a slash after the tail
  };
  std::string expected;
  for (const auto& row : rows) {
    log_dbg_print("FlickerMgr", 1, "[%s] msg %s", "f", row.tail);
    expected += lineOf('E', "FlickerMgr",
                       std::regex_replace(std::string("[f] msg ") + row.shown,
                                          std::regex(R"([\[\](){}.])"), R"(\$&)"));
  }
  const std::string logged = logSince();
  EXPECT_TRUE(std::regex_match(logged, std::regex(expected))) << logged;
}

TEST_F(HostLogTest, TraceTagsFromTheirPropertyAndMarkersAsWholeStandardLines) {
  EXPECT_EQ(atrace_get_enabled_tags(), 0u);                             // unset: off
  flicker_host::setProperty("debug.atrace.tags.enableflags", "0x401");  // hex, as the phone has it
  EXPECT_EQ(atrace_get_enabled_tags(), ATRACE_TAG_CAMERA | 1);
  flicker_host::setProperty("debug.atrace.tags.enableflags", "junk");  // unreadable: off
  EXPECT_EQ(atrace_get_enabled_tags(), 0u);

  const std::string markerFile = dir_.file("trace_marker");
  ASSERT_TRUE(flicker_host::setTraceFile(markerFile, flicker_host::TraceFileFormat::kMarkers));
  atrace_begin_body("FLK algo");
  atrace_end_body();
  atrace_begin_body(nullptr);                         // a null name is an empty one
  atrace_begin_body(std::string(5000, 'x').c_str());  // cut to 1023 bytes with its line end
  EXPECT_EQ(host_test::readFile(markerFile), "B|" + pid_ + "|FLK algo\nE|" + pid_ + "\nB|" + pid_ +
                                                 "|\nB|" + pid_ + "|" +
                                                 std::string(1019 - pid_.size(), 'x') + "\n");
  EXPECT_FALSE(flicker_host::setTraceFile(dir_.file("no/such/folder/marker")));
}

}  // namespace
