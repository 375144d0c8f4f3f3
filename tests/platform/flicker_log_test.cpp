// The library's logging macro family against the recording fake: which
// messages reach which sink under the framework's switches, and the exact text
// each sink receives.
#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR g_testFileLevel

#include "flicker_log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_platform.h"

namespace {

namespace fp = fake_platform;

flicker_log::FileLevel g_testFileLevel{0};

constexpr int kDebugPrint = 0;
constexpr int kUnified = 1;
constexpr unsigned kMask = 0x801000;

int countSink(int sink) {
  int n = 0;
  for (const fp::LogLine& line : fp::logs()) n += line.sink == sink;
  return n;
}

class FlickerLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    g_testFileLevel = 2;
  }
};

TEST_F(FlickerLogTest, SinksReceiveWhatTheSwitchesAllow) {
  struct Row {
    const char* what;
    bool error;  // FLK_LOGE, else a message needing `minLevel` (FLK_LOGD: 2)
    int minLevel, fileLevel, mode;
    bool entryOn;  // the message level's entry in g_logInfoLv
    unsigned details, mask;
    int debugPrintLines, unifiedLines;
  } rows[] = {
      {"debug at file level 2 reaches both sinks", false, 2, 2, 0xB, true, 5, kMask, 1, 1},
      {"debug at file level 1 is dropped", false, 2, 1, 0xB, true, 5, kMask, 0, 0},
      {"error at file level 0 still goes out", true, 0, 0, 0xB, true, 5, kMask, 1, 1},
      {"sMode 0: no debug line", false, 2, 3, 0, true, 5, kMask, 0, 0},
      {"sMode 0: no error line", true, 0, 3, 0, true, 5, kMask, 0, 0},
      {"sMode 1: debug-print only", false, 2, 2, 1, true, 5, kMask, 1, 0},
      {"sMode 2: unified only", false, 2, 2, 2, true, 5, kMask, 0, 1},
      {"sMode 8: unified only", true, 0, 2, 8, true, 5, kMask, 0, 1},
      {"details level 4 stops debug", false, 2, 3, 0xB, true, 4, kMask, 0, 0},
      {"mask missing 0x1000 stops debug", false, 2, 3, 0xB, true, 5, 0x800000, 0, 0},
      {"disabled debug entry: unified only", false, 2, 2, 0xB, false, 5, kMask, 0, 1},
      {"disabled error entry: unified only", true, 0, 2, 0xB, false, 5, kMask, 0, 1},
      {"mask missing a bit lets errors through", true, 0, 3, 0xB, true, 5, 0x001000, 1, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::clearLogs();
    g_testFileLevel = row.fileLevel;
    fp::setLogFramework(row.mode, row.details, row.mask);
    g_logInfoLv[row.error ? CAM_LOG_LEVEL_ERROR : CAM_LOG_LEVEL_DEBUG].flags =
        row.entryOn ? kLogInfoLvEnabled : 0;
    int evaluated = 0;
    if (row.error) {
      FLK_LOGE("failed(%d)", ++evaluated);
    } else {
      FLK_LOG_AT(row.minLevel, "value(%d)", ++evaluated);
    }
    EXPECT_EQ(countSink(kDebugPrint), row.debugPrintLines);
    EXPECT_EQ(countSink(kUnified), row.unifiedLines);
    // Closed gates come before the arguments: nothing is formatted for nothing.
    EXPECT_EQ(evaluated > 0, row.debugPrintLines + row.unifiedLines > 0);
  }
}

// Debug-print form: prefix, tag, file, line and function before the message;
// errors add " (function){#line:path}". The unified logger gets the message
// alone.
TEST_F(FlickerLogTest, EachSinkGetsItsExactText) {
  g_logInfoLv[CAM_LOG_LEVEL_DEBUG].prefix = "P>";
  const std::string fn = __FUNCTION__, at = "[FlickerMgr] flicker_log_test.cpp:";
  const std::string debugLine = std::to_string(__LINE__ + 1);
  FLK_LOGD("value(%d) text(%s)", 42, "ok");
  const std::string errorLine = std::to_string(__LINE__ + 1);
  FLK_LOGE("open(%s) failed: %d", "/x", -2);
  std::vector<std::string> got;  // "sink level tag: text"
  for (const fp::LogLine& l : fp::logs())
    got.push_back(std::to_string(l.sink) + " " + std::to_string(l.level) + " " + l.tag + ": " +
                  l.text);
  const std::string debug = "[" + fn + "] value(42) text(ok)";
  const std::string error = "[" + fn + "] open(/x) failed: -2";
  EXPECT_EQ(got, (std::vector<std::string>{
                     "0 0 FlickerMgr: P>" + at + debugLine + " " + fn + "() " + debug,
                     "1 5 FlickerMgr: " + debug,
                     "0 1 FlickerMgr: " + at + errorLine + " " + fn + "() " + error + " (" + fn +
                         "){#" + errorLine + ":" + __FILE__ + "}",
                     "1 1 FlickerMgr: " + error}));
}

// A part that logs a step of its owner names the step in every place the
// function name goes: header, message prefix and error tail.
TEST_F(FlickerLogTest, ExplicitNameTakesTheFunctionsPlaceEverywhere) {
  const std::string debugLine = std::to_string(__LINE__ + 1);
  FLK_LOGD_AS("init_algo", "line length(%u).", 5000u);
  const std::string errorLine = std::to_string(__LINE__ + 1);
  FLK_LOGE_AS("checkSensorSetting", "mismatch(%d)", 1);
  std::vector<std::string> got;
  for (const fp::LogLine& l : fp::logs()) got.push_back(l.text);
  const std::string at = "[FlickerMgr] flicker_log_test.cpp:";
  EXPECT_EQ(got, (std::vector<std::string>{
                     at + debugLine + " init_algo() [init_algo] line length(5000).",
                     "[init_algo] line length(5000).",
                     at + errorLine + " checkSensorSetting() [checkSensorSetting] mismatch(1)" +
                         " (checkSensorSetting){#" + errorLine + ":" + __FILE__ + "}",
                     "[checkSensorSetting] mismatch(1)"}));
}

// The unified logger's text is cut at 1023 characters, the recorded length
// matching the text.
TEST_F(FlickerLogTest, UnifiedTextIsCutAt1023Characters) {
  const std::string head = std::string("[") + __FUNCTION__ + "] ";
  // Whole messages of 1022 and 1023 characters (head included), then cut.
  for (const size_t total : {1022, 1023, 1024, 3000}) {
    fp::clearLogs();
    std::string body(total - head.size(), 'a');
    body.back() = 'Z';  // shows whether the end survived
    FLK_LOGD("%s", body.c_str());
    EXPECT_EQ(fp::messages(), std::vector<std::string>{(head + body).substr(0, 1023)}) << total;
  }
}

}  // namespace
