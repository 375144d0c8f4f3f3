// Record decoding and validation of every command of flk_SendCmd.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "algo_driver.h"
#include "open_algo_default_tuning.h"

namespace algo_test {
namespace {

// A 60 Hz light seen from state 50: a detection on it votes for 60 Hz.
struct FlickerPair {
  std::vector<int64_t> slot0, slot1;
  FlickerPair() {
    Light light;
    light.mainsHz = 60;
    StatsPairBuilder b(Sensor{}, light);
    slot0 = b.frame(0.0, 10e-3, StatsPairBuilder::flat(), 0);
    slot1 = b.frame(36e-3, 10e-3, StatsPairBuilder::flat(), 1);
  }
};

const FlickerPair& flickerPair() {
  static const FlickerPair pair;
  return pair;
}

FlkDetectPara goodRecord() {
  const FlickerPair& p = flickerPair();
  return AlgoDriver::record(p.slot0.data(), p.slot1.data(), 50, 10000, 36000000);
}

void expectNeither(const DetectOutcome& o) {
  EXPECT_EQ(o.rc, -1);
  EXPECT_EQ(o.result.state, FLK_FREQ_NONE);
  EXPECT_EQ(o.result.score50, 0);
  EXPECT_EQ(o.result.score60, 0);
}

struct BadRecord {
  const char* what;
  void (*spoil)(FlkDetectPara&);
};

TEST(DetectValidation, BadRecordsAnswerNeither) {
  static const int64_t kTiny[18] = {};
  const BadRecord rows[] = {
      {"null slot 0", [](FlkDetectPara& p) { p.statsSlot0 = nullptr; }},
      {"null slot 1", [](FlkDetectPara& p) { p.statsSlot1 = nullptr; }},
      {"no windows", [](FlkDetectPara& p) { p.windowCols = 0; }},
      {"more windows than a line holds", [](FlkDetectPara& p) { p.windowCols = 7; }},
      {"negative window rows", [](FlkDetectPara& p) { p.windowRows = -3; }},
      {"zero window height", [](FlkDetectPara& p) { p.winValue2 = 0; }},
      {"zero window width", [](FlkDetectPara& p) { p.winValue1 = 0; }},
      {"over 36000 entries", [](FlkDetectPara& p) { p.winValue2 = 2001; }},
      {"overflowing geometry", [](FlkDetectPara& p) { p.winValue2 = 0x7fffffff; }},
      {"zero exposure", [](FlkDetectPara& p) { p.exposure = 0; }},
      {"negative exposure", [](FlkDetectPara& p) { p.exposure = -10000; }},
      {"negative interval", [](FlkDetectPara& p) { p.frameInterval = -1; }},
      {"interval over a second", [](FlkDetectPara& p) { p.frameInterval = 2000000000; }},
      {"sensor-specific record", [](FlkDetectPara& p) { p.sensorPath = FLK_PATH_SENSOR_1398; }},
      // A block too short for a band-period fit is analysed as "nothing seen".
      {"one line per window",
       [](FlkDetectPara& p) {
         p.statsSlot0 = kTiny;
         p.statsSlot1 = kTiny;
         p.winValue2 = 1;
       }},
  };
  for (const BadRecord& row : rows) {
    SCOPED_TRACE(row.what);
    AlgoDriver driver;
    FlkDetectPara p = goodRecord();
    row.spoil(p);
    const DetectOutcome o = driver.detectRecord(p);
    EXPECT_EQ(o.result.state, FLK_FREQ_NONE);
    EXPECT_EQ(o.result.score50, 0);
    EXPECT_EQ(o.result.score60, 0);
  }
}

TEST(DetectValidation, NullRecordsDoNotCrash) {
  AlgoDriver driver;
  FlkDetectResult result{FLK_FREQ_50HZ, 7, 7};
  EXPECT_EQ(driver.send(FLK_CMD_DETECT, nullptr, &result), -1);
  EXPECT_EQ(result.state, FLK_FREQ_NONE);
  EXPECT_EQ(result.score50, 0);
  FlkDetectPara p = goodRecord();
  EXPECT_EQ(driver.send(FLK_CMD_DETECT, &p, nullptr), -1);
}

// Garbage entries (negative, huge, the int64 extremes) are masked, never
// summed into undefined behaviour.
TEST(DetectValidation, GarbageStatisticsAreMasked) {
  std::vector<int64_t> junk(static_cast<size_t>(3) * kWinH * 6);
  for (size_t i = 0; i < junk.size(); ++i) {
    const int64_t values[] = {std::numeric_limits<int64_t>::max(),
                              std::numeric_limits<int64_t>::min(), -5, 0, 1LL << 62};
    junk[i] = values[i % 5];
  }
  AlgoDriver driver;
  const DetectOutcome o = driver.detect(junk, junk, 10000, 36000000);
  EXPECT_EQ(o.rc, 0);
  EXPECT_EQ(o.result.state, FLK_FREQ_NONE);
  EXPECT_EQ(o.result.score50, 0);
  EXPECT_EQ(o.result.score60, 0);
}

// Unusable init records leave every detection at "neither".
TEST(InitRecord, UnusableInitAnswersNeither) {
  struct Row {
    const char* what;
    FlkInitPara init;
  };
  FlkInitPara path1398 = genericInit();
  path1398.sensorPath = FLK_PATH_SENSOR_1398;
  FlkInitPara path8581 = genericInit();
  path8581.sensorPath = FLK_PATH_SENSOR_8581;
  const Row rows[] = {
      {"line length 0", genericInit(kWinH, kWinW, 0)},
      {"pixel clock 0", genericInit(kWinH, kWinW, kLineLength, 0.0)},
      {"negative pixel clock", genericInit(kWinH, kWinW, kLineLength, -1.0)},
      {"NaN pixel clock",
       genericInit(kWinH, kWinW, kLineLength, std::numeric_limits<double>::quiet_NaN())},
      {"line time of 10 ms", genericInit(kWinH, kWinW, 4800000, 480e6)},
      {"sensor 1398 path", path1398},
      {"sensor 8581 path", path8581},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    AlgoDriver driver(zeroTuning(), 50, row.init);
    for (int i = 0; i < 4; ++i) {
      expectNeither(driver.detectRecord(goodRecord()));
    }
  }
}

TEST(InitRecord, NullInitIsRejected) {
  AlgoDriver driver;
  EXPECT_EQ(driver.send(FLK_CMD_INIT, nullptr), -1);
}

// Release returns to uninitialised; the next init works again and the tuning
// sent before the release is still in force.
TEST(Release, UninitialisedUntilNextInitAndTuningKept) {
  FlickerExtPara tuning = zeroTuning();
  tuning.minPastFrames = 1;  // a single pair switches
  AlgoDriver driver(tuning);
  driver.send(FLK_CMD_UNINIT, nullptr);
  expectNeither(driver.detectRecord(goodRecord()));
  FlkInitPara init = genericInit();
  EXPECT_EQ(driver.send(FLK_CMD_INIT, &init), 0);
  EXPECT_EQ(driver.detectRecord(goodRecord()).result.state, FLK_FREQ_60HZ);
}

TEST(Commands, BadRecordsAndUnknownCommandsAreRejected) {
  AlgoDriver driver;
  int32_t badCode = 3;
  int32_t negativeCode = -1;
  EXPECT_EQ(driver.send(FLK_CMD_SET_STATE, nullptr), -1);
  EXPECT_EQ(driver.send(FLK_CMD_SET_STATE, &badCode), -1);
  EXPECT_EQ(driver.send(FLK_CMD_RESET_QUEUE, &negativeCode), -1);
  EXPECT_EQ(driver.send(FLK_CMD_SET_EXT_PARA, nullptr), -1);
  EXPECT_EQ(driver.send(FLK_CMD_SET_LOG, nullptr), -1);
  EXPECT_EQ(driver.send(7, nullptr), -1);
  EXPECT_EQ(driver.send(0xffffffffu, nullptr), -1);
  // The algorithm still works after all of them.
  EXPECT_EQ(driver.detectRecord(goodRecord()).rc, 0);
}

// The log command: bit 0 enables the summary, bit 1 the per-frequency
// detail; no print function means silence whatever the word.
std::vector<std::string> g_lines;

void capture(const char* format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof(line), format, args);
  va_end(args);
  g_lines.emplace_back(line);
}

TEST(LogCommand, HonoursTheBits) {
  struct Row {
    int32_t word;
    bool withPrint;
    bool expectSummary;
    bool expectDetail;
  } rows[] = {
      {0, true, false, false},     // everything off
      {1, true, true, false},      // summary only
      {3, true, true, true},       // summary and detail
      {2, true, false, false},     // detail without the log bit stays off
      {4 | 1, true, true, false},  // a trace word does not add lines
      {3, false, false, false},    // no print function: silent, no crash
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.word);
    AlgoDriver driver;
    g_lines.clear();
    FlkLogPara log{};
    log.level = row.word;
    log.print = row.withPrint ? capture : nullptr;
    driver.send(FLK_CMD_SET_LOG, &log);
    driver.detectRecord(goodRecord());
    int summary = 0;
    int detail = 0;
    for (const std::string& l : g_lines) {
      summary += l.rfind("[detect] ", 0) == 0 ? 1 : 0;
      detail += l.find(" Hz: gain(") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(summary > 0, row.expectSummary);
    EXPECT_EQ(detail > 0, row.expectDetail);
    FlkLogPara off{};
    driver.send(FLK_CMD_SET_LOG, &off);
  }
}

// Several sensors' worker threads may detect at once: the commands are
// serialised, every verdict stays a valid code. Run under the sanitizers.
TEST(Concurrency, ParallelDetectionsStayValid) {
  AlgoDriver driver;
  auto worker = [&driver](std::vector<int32_t>* states) {
    for (int i = 0; i < 20; ++i) {
      states->push_back(driver.detectRecord(goodRecord()).result.state);
    }
  };
  std::vector<int32_t> a, b;
  std::thread t1(worker, &a);
  std::thread t2(worker, &b);
  t1.join();
  t2.join();
  for (const auto* states : {&a, &b}) {
    ASSERT_EQ(states->size(), 20u);
    for (int32_t s : *states) {
      EXPECT_TRUE(s == FLK_FREQ_50HZ || s == FLK_FREQ_60HZ || s == FLK_FREQ_NONE);
    }
  }
}

}  // namespace
}  // namespace algo_test
