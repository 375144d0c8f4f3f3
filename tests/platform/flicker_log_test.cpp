// The library's logging macro family against the recording fake: which
// messages reach which sink under the framework's switches, and the exact text
// each sink receives.
#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR g_testFileLevel

#include "flicker_log.h"

#include <gtest/gtest.h>

#include <string>

#include "fake_platform.h"

namespace {

namespace fp = fake_platform;

flicker_log::FileLevel g_testFileLevel{0};

constexpr int kDebugPrint = 0;
constexpr int kUnified = 1;

// One message of each kind; the function names are part of the text.
void logDebug() {
  FLK_LOGD("value(%d)", 7);
}
void logError() {
  FLK_LOGE("failed(%s)", "x");
}
void logVerbose() {
  FLK_LOGV("verbose");
}
void logReport() {
  FLK_LOG1("report");
}
void logInfo() {
  FLK_LOGI("info");
}

int countSink(int sink) {
  int n = 0;
  for (const fp::LogLine& line : fp::logs()) n += line.sink == sink ? 1 : 0;
  return n;
}

class FlickerLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    g_testFileLevel = 2;
  }
};

// Rows: framework and file state, one message, how many lines each sink gets.
struct GateRow {
  const char* what;
  int fileLevel;
  int mode;
  unsigned details;
  unsigned mask;
  void (*emit)();
  int debugPrintLines;
  int unifiedLines;
};

class FlickerLogGateTest : public FlickerLogTest, public ::testing::WithParamInterface<GateRow> {};

TEST_P(FlickerLogGateTest, SinksReceiveWhatTheSwitchesAllow) {
  const GateRow& row = GetParam();
  g_testFileLevel = row.fileLevel;
  fp::setLogFramework(row.mode, row.details, row.mask);
  row.emit();
  EXPECT_EQ(countSink(kDebugPrint), row.debugPrintLines) << row.what;
  EXPECT_EQ(countSink(kUnified), row.unifiedLines) << row.what;
}

constexpr unsigned kMask = 0x801000;

INSTANTIATE_TEST_SUITE_P(
    Gates, FlickerLogGateTest,
    ::testing::Values(
        GateRow{"debug at file level 2 reaches both sinks", 2, 0xB, 5, kMask, logDebug, 1, 1},
        GateRow{"debug at file level 1 is dropped", 1, 0xB, 5, kMask, logDebug, 0, 0},
        GateRow{"error at file level 1 still goes out", 1, 0xB, 5, kMask, logError, 1, 1},
        GateRow{"error at file level 0 still goes out", 0, 0xB, 5, kMask, logError, 1, 1},
        GateRow{"report line at level 1", 1, 0xB, 5, kMask, logReport, 1, 1},
        GateRow{"verbose needs level 3", 2, 0xB, 5, kMask, logVerbose, 0, 0},
        GateRow{"verbose at level 3", 3, 0xB, 5, kMask, logVerbose, 1, 1},
        GateRow{"info at level 0", 0, 0xB, 5, kMask, logInfo, 1, 1},
        GateRow{"sMode 0: no debug line", 3, 0, 5, kMask, logDebug, 0, 0},
        GateRow{"sMode 0: no error line", 3, 0, 5, kMask, logError, 0, 0},
        GateRow{"sMode 1: debug-print only", 2, 1, 5, kMask, logDebug, 1, 0},
        GateRow{"sMode 2: unified only", 2, 2, 5, kMask, logDebug, 0, 1},
        GateRow{"sMode 8: unified only", 2, 8, 5, kMask, logError, 0, 1},
        GateRow{"details level 4 stops debug", 3, 0xB, 4, kMask, logDebug, 0, 0},
        GateRow{"details level 4 lets errors through", 3, 0xB, 4, kMask, logError, 1, 1},
        GateRow{"details level 6 is enough", 2, 0xB, 6, kMask, logDebug, 1, 1},
        GateRow{"mask missing 0x1000 stops debug", 3, 0xB, 5, 0x800000, logDebug, 0, 0},
        GateRow{"mask missing 0x800000 stops debug", 3, 0xB, 5, 0x001000, logDebug, 0, 0},
        GateRow{"mask missing a bit lets errors through", 3, 0xB, 5, 0x001000, logError, 1, 1},
        GateRow{"extra mask bits are fine", 2, 0xB, 5, 0xFFFFFFFF, logDebug, 1, 1}));

TEST_F(FlickerLogTest, DisabledLevelEntrySkipsOnlyTheDebugPrintSink) {
  g_logInfoLv[CAM_LOG_LEVEL_DEBUG].flags = 0;
  logDebug();
  logError();  // the error entry is still enabled
  EXPECT_EQ(countSink(kDebugPrint), 1);
  EXPECT_EQ(countSink(kUnified), 2);
}

TEST_F(FlickerLogTest, DebugLineCarriesPrefixTagFileLineAndFunction) {
  g_logInfoLv[CAM_LOG_LEVEL_DEBUG].prefix = "P>";
  const int line = __LINE__ + 1;
  FLK_LOGD("value(%d) text(%s)", 42, "ok");
  const auto lines = fp::logs();
  ASSERT_EQ(lines.size(), 2u);
  const std::string fn = __FUNCTION__;
  EXPECT_EQ(lines[0].sink, kDebugPrint);
  EXPECT_EQ(lines[0].level, CAM_LOG_LEVEL_DEBUG);
  EXPECT_EQ(lines[0].tag, "FlickerMgr");
  EXPECT_EQ(lines[0].text, "P>[FlickerMgr] flicker_log_test.cpp:" + std::to_string(line) + " " +
                               fn + "() [" + fn + "] value(42) text(ok)");
  EXPECT_EQ(lines[1].sink, kUnified);
  EXPECT_EQ(lines[1].level, NSCam::Utils::ULog::ULOG_LEVEL_DEBUG);
  EXPECT_EQ(lines[1].text, "[" + fn + "] value(42) text(ok)");  // the message alone
}

TEST_F(FlickerLogTest, ErrorTailIsInTheDebugPrintFormOnly) {
  const int line = __LINE__ + 1;
  FLK_LOGE("open(%s) failed: %d", "/x", -2);
  const auto lines = fp::logs();
  ASSERT_EQ(lines.size(), 2u);
  const std::string fn = __FUNCTION__;
  const std::string message = "[" + fn + "] open(/x) failed: -2";
  EXPECT_EQ(lines[0].level, CAM_LOG_LEVEL_ERROR);
  EXPECT_EQ(lines[0].text, "[FlickerMgr] flicker_log_test.cpp:" + std::to_string(line) + " " + fn +
                               "() " + message + " (" + fn + "){#" + std::to_string(line) + ":" +
                               __FILE__ + "}");
  EXPECT_EQ(lines[1].level, NSCam::Utils::ULog::ULOG_LEVEL_ERROR);
  EXPECT_EQ(lines[1].text, message);
  EXPECT_TRUE(fp::loggedError("open(/x) failed"));
}

// The unified logger's text is cut at 1023 characters, the recorded length
// matching the text.
TEST_F(FlickerLogTest, UnifiedTextIsCutAt1023Characters) {
  const std::string head = std::string("[") + __FUNCTION__ + "] ";
  struct Row {
    size_t total;     // characters of the whole message, head included
    size_t received;  // characters the unified logger receives
  } rows[] = {
      {1022, 1022},  // shorter: whole
      {1023, 1023},  // exactly the limit: whole
      {1024, 1023},  // one more: cut
      {3000, 1023},  // far longer: cut
  };
  for (const Row& row : rows) {
    fp::clearLogs();
    std::string body(row.total - head.size(), 'a');
    body.back() = 'Z';  // shows whether the end survived
    FLK_LOGD("%s", body.c_str());
    const auto texts = fp::messages();
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].size(), row.received) << row.total;
    EXPECT_EQ(texts[0], (head + body).substr(0, row.received)) << row.total;
  }
}

TEST_F(FlickerLogTest, DisabledDebugDoesNotEvaluateFormatting) {
  g_testFileLevel = 1;
  int evaluated = 0;
  auto sideEffect = [&] { return ++evaluated; };
  FLK_LOGD("%d", sideEffect());
  EXPECT_EQ(evaluated, 0);  // the gate comes before the arguments
  EXPECT_TRUE(fp::logs().empty());
}

}  // namespace
