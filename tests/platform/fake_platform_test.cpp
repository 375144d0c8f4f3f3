// Proves that the recording fake records what the other tests rely on, and
// that allocation failures are injected exactly as armed, also with several
// threads allocating at once.
#include "fake_platform.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "cam_data_path.h"
#include "cam_flicker_custom.h"
#include "cam_log.h"
#include "cam_properties.h"
#include "cam_thread.h"
#include "cam_trace.h"
#include "flicker_algo_cmd.h"

namespace {

namespace fp = fake_platform;
using NSCam::Utils::Properties::property_get_int32;
using NSCam::Utils::Properties::property_get_int64;

class FakePlatformTest : public ::testing::Test {
 protected:
  void SetUp() override { fp::reset(); }
};

TEST_F(FakePlatformTest, DebugPrintFormatsItsArgumentsAndUnifiedLoggerKeepsTheLength) {
  log_dbg_print("FlickerMgr", 1, "[%s] value(%d) %s", "fn", 42, "tail");
  const char text[] = "abcdef";
  NSCam::Utils::ULog::ULogger::write(0x801000, "FlickerAlgo", 5, text, 3);

  const auto lines = fp::logs();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].sink, 0);
  EXPECT_EQ(lines[0].level, 1);
  EXPECT_EQ(lines[0].tag, "FlickerMgr");
  EXPECT_EQ(lines[0].text, "[fn] value(42) tail");
  EXPECT_EQ(lines[1].sink, 1);
  EXPECT_EQ(lines[1].tag, "FlickerAlgo");
  EXPECT_EQ(lines[1].text, "abc");  // exactly `length` bytes
  EXPECT_EQ(fp::messages(), std::vector<std::string>{"abc"});
  EXPECT_TRUE(fp::logged("value(42)"));
  EXPECT_EQ(fp::countLogged("value(42)"), 0);  // counts the unified logger only
  EXPECT_FALSE(fp::loggedError("abc"));        // level 5 is not an error
}

TEST_F(FakePlatformTest, ResetRestoresTheFrameworkDefaults) {
  fp::setLogFramework(0, 1, 0);
  g_logInfoLv[0].flags = 0;
  fp::reset();
  using NSCam::Utils::ULog::ULogger;
  EXPECT_EQ(ULogger::sMode, 0xB);
  EXPECT_EQ(ULogger::sDetailsLevel, 5u);
  EXPECT_EQ(ULogger::sNormalDetailsMask, 0x801000u);
  EXPECT_EQ(g_logInfoLv[0].flags & kLogInfoLvEnabled, kLogInfoLvEnabled);
  EXPECT_STREQ(g_logInfoLv[1].prefix, "");
}

TEST_F(FakePlatformTest, PropertiesParseLikeThePhone) {
  struct Row {
    const char* text;
    int32_t expected32;  // with default -7
    int64_t expected64;  // with default -7
  } rows[] = {
      {"12", 12, 12},                    // plain decimal
      {"-3", -3, -3},                    // signed
      {"0x10", 16, 16},                  // hex
      {"abc", -7, -7},                   // not a number
      {"12abc", -7, -7},                 // trailing garbage
      {"", -7, -7},                      // empty value
      {"4294967296", -7, 4294967296LL},  // too big for int32 only
      {"99999999999999999999", -7, -7},  // too big for both
  };
  for (const Row& row : rows) {
    fp::setPropertyText("vendor.debug.x", row.text);
    EXPECT_EQ(property_get_int32("vendor.debug.x", -7), row.expected32) << row.text;
    EXPECT_EQ(property_get_int64("vendor.debug.x", -7), row.expected64) << row.text;
  }
  fp::clearProperties();
  EXPECT_EQ(property_get_int32("vendor.debug.x", 5), 5);
  fp::setProperty("vendor.debug.big", 1LL << 40);
  EXPECT_EQ(property_get_int64("vendor.debug.big", 0), 1LL << 40);
}

TEST_F(FakePlatformTest, CustomisationTraceAndPriorityAreRecorded) {
  EXPECT_EQ(cust_getMaxAttachNum(), 1);
  EXPECT_EQ(cust_getFlickerDetectFrequency(), 3);
  fp::setMaxAttachNum(2);
  fp::setDetectFrequency(5);
  fp::setHalPara(60, 123);
  fp::setSensorBinningRatio(2);
  int hz = 0, para = 0;
  cust_getFlickerHalPara(&hz, &para);
  EXPECT_EQ(cust_getMaxAttachNum(), 2);
  EXPECT_EQ(cust_getFlickerDetectFrequency(), 5);
  EXPECT_EQ(hz, 60);
  EXPECT_EQ(para, 123);
  EXPECT_EQ(cust_getSensorBinningRatio(7, 3), 2);
  ASSERT_EQ(fp::binningQueries().size(), 1u);
  EXPECT_EQ(fp::binningQueries()[0].sensorId, 7);
  EXPECT_EQ(fp::binningQueries()[0].sensorMode, 3);

  EXPECT_EQ(atrace_get_enabled_tags(), 0u);
  fp::setTraceTags(ATRACE_TAG_CAMERA);
  EXPECT_EQ(atrace_get_enabled_tags(), ATRACE_TAG_CAMERA);
  atrace_begin_body("FLK algo");
  atrace_end_body();
  const auto events = fp::traces();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_TRUE(events[0].begin);
  EXPECT_EQ(events[0].name, "FLK algo");
  EXPECT_FALSE(events[1].begin);

  std::thread worker([] {
    pthread_setname_np(pthread_self(), "FlickerMgrThd");
    NSCam::Utils::setThreadPriority(0, -8);
    int policy = -1, priority = 0;
    NSCam::Utils::getThreadPriority(policy, priority);
    EXPECT_EQ(policy, 0);
    EXPECT_EQ(priority, -8);
  });
  worker.join();
  ASSERT_EQ(fp::priorityRequests().size(), 1u);
  EXPECT_EQ(fp::priorityRequests()[0].priority, -8);
  EXPECT_EQ(fp::threadNamesSeen(), std::vector<std::string>{"FlickerMgrThd"});
}

TEST_F(FakePlatformTest, NvramFillsEveryAllocatedRecordAndReturnsTheScriptedResult) {
  FLICKER_CUST_PARA rows[3][2] = {};
  FLICKER_CUST_PARA* table[3] = {rows[0], nullptr, rows[2]};  // a missing row is skipped
  FLICKER_CUST_PARA** tablePtr = table;
  fp::setNvramFill([](int row, int col, FLICKER_CUST_PARA& rec) {
    rec.flickerSearchRange = row * 10 + col + 1;
  });
  fp::setNvramResult(-1);
  EXPECT_EQ(nvGetFlickerParaAll(4u, 2, 3, 2, &tablePtr), -1);
  EXPECT_EQ(rows[0][1].flickerSearchRange, 2);
  EXPECT_EQ(rows[2][0].flickerSearchRange, 21);
  EXPECT_EQ(rows[1][0].flickerSearchRange, 0);
  ASSERT_EQ(fp::nvramCalls().size(), 1u);
  EXPECT_EQ(fp::nvramCalls()[0].sensorId, 4u);
  EXPECT_EQ(fp::nvramCalls()[0].sensorDev, 2);
  EXPECT_EQ(fp::nvramCalls()[0].modeTotal, 3);
  EXPECT_EQ(fp::nvramCalls()[0].ratioTotal, 2);
}

TEST_F(FakePlatformTest, DataPathsMapUnderAFreshRoot) {
  const std::string first = fp::dataRoot();
  struct stat info {};
  ASSERT_EQ(stat(first.c_str(), &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));

  char out[512];
  ASSERT_TRUE(flicker_map_data_path("/data/vendor/flicker/flko/001", out, sizeof(out)));
  EXPECT_EQ(std::string(out), first + "/data/vendor/flicker/flko/001");
  EXPECT_EQ(fp::hostPath("/data/vendor/flicker/para/x"), first + "/data/vendor/flicker/para/x");
  ASSERT_TRUE(flicker_map_data_path("/tmp/other", out, sizeof(out)));
  EXPECT_STREQ(out, "/tmp/other");  // outside the device data folder: unchanged
  EXPECT_FALSE(flicker_map_data_path("/data/vendor/flicker/flko/001", out, 8));
  EXPECT_STREQ(out, "");  // never truncated

  fp::reset();
  EXPECT_NE(fp::dataRoot(), first);
  EXPECT_NE(stat(first.c_str(), &info), 0);  // the previous root was removed
}

TEST_F(FakePlatformTest, AlgorithmCopiesEachRecordBySize) {
  FlkInitPara init{};
  init.statWidth = 123;
  FlkExtParaCmd ext{};
  int32_t code = FLK_FREQ_60HZ;
  FlkLogPara log{};
  FlkDetectPara para{};
  FlkDetectResult result{};
  flk_SendCmd(FLK_CMD_INIT, &init, nullptr);
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
  flk_SendCmd(FLK_CMD_DETECT, &para, &result);
  flk_SendCmd(FLK_CMD_SET_EXT_PARA, &ext, nullptr);
  flk_SendCmd(FLK_CMD_SET_STATE, &code, nullptr);
  flk_SendCmd(FLK_CMD_RESET_QUEUE, &code, nullptr);
  flk_SendCmd(FLK_CMD_SET_LOG, &log, nullptr);
  const size_t expectedSizes[] = {40, 0, 200, 144, 4, 4, 16};
  const auto calls = fp::algoCalls();
  ASSERT_EQ(calls.size(), 7u);
  for (uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(calls[i].cmd, i);
    EXPECT_EQ(calls[i].in.size(), expectedSizes[i]) << "command " << i;
  }
  int32_t width = 0;
  memcpy(&width, calls[0].in.data() + offsetof(FlkInitPara, statWidth), sizeof(width));
  EXPECT_EQ(width, 123);
  EXPECT_EQ(fp::algoCalls(FLK_CMD_SET_STATE).size(), 1u);
}

TEST_F(FakePlatformTest, DetectionsFollowTheScriptThenTheHook) {
  fp::scriptDetectResults({{FLK_FREQ_50HZ, 10, 20}});
  int hookCalls = 0;
  fp::setDetectHook([&](const FlkDetectPara& para, FlkDetectResult* out) {
    ++hookCalls;
    if (para.freq == 60)
      out->score60 = 99;  // the hook sees the record and may change the answer
  });
  FlkDetectPara para{};
  FlkDetectResult result{};
  flk_SendCmd(FLK_CMD_DETECT, &para, &result);
  EXPECT_EQ(result.state, FLK_FREQ_50HZ);
  EXPECT_EQ(result.score50, 10);
  EXPECT_EQ(result.score60, 20);
  para.freq = 60;
  flk_SendCmd(FLK_CMD_DETECT, &para, &result);  // script exhausted: the default answer
  EXPECT_EQ(result.state, FLK_FREQ_NONE);
  EXPECT_EQ(result.score50, 0);
  EXPECT_EQ(result.score60, 99);
  EXPECT_EQ(hookCalls, 2);
}

TEST_F(FakePlatformTest, HeldDetectionWaitsForRelease) {
  EXPECT_FALSE(fp::waitDetectEntered(10));  // nothing held: times out
  fp::holdDetections(true);
  std::atomic<bool> returned{false};
  std::thread worker([&] {
    FlkDetectPara para{};
    FlkDetectResult result{};
    flk_SendCmd(FLK_CMD_DETECT, &para, &result);
    returned = true;
  });
  ASSERT_TRUE(fp::waitDetectEntered(5000));
  EXPECT_FALSE(returned.load());
  // Other commands are not blocked by the held detection.
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
  EXPECT_EQ(fp::algoCalls(FLK_CMD_UNINIT).size(), 1u);
  fp::releaseDetections();
  worker.join();
  EXPECT_TRUE(returned.load());
}

// ---- Allocation failure ----

TEST_F(FakePlatformTest, NthAllocationFailsOnceAndErrnoIsSet) {
  fp::failNthAllocation(2);
  void* first = malloc(16);
  errno = 0;
  void* second = calloc(4, 4);
  const int savedErrno = errno;
  void* third = malloc(16);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(savedErrno, ENOMEM);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(fp::failedAllocations(), 1);
  free(first);
  free(third);
}

TEST_F(FakePlatformTest, SizeRuleFailsOnlyThatSizeAsOftenAsArmed) {
  struct Row {
    int count;          // as given to failAllocationsOfSize
    int expectedFails;  // out of five allocations of the size
  } rows[] = {
      {0, 0},   // zero disarms
      {2, 2},   // a limited number
      {-1, 5},  // always
  };
  for (const Row& row : rows) {
    fp::reset();
    fp::failAllocationsOfSize(333, row.count);
    int fails = 0;
    for (int i = 0; i < 5; ++i) {
      void* other = malloc(334);
      void* p = (i % 2 == 0) ? malloc(333) : calloc(3, 111);  // calloc counts total bytes
      EXPECT_NE(other, nullptr);
      if (p == nullptr)
        ++fails;
      free(p);
      free(other);
    }
    EXPECT_EQ(fails, row.expectedFails) << "count " << row.count;
    EXPECT_EQ(fp::failedAllocations(), row.expectedFails);
  }
}

class FakeAllocThreads : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override { fp::reset(); }
};

// Exactly one allocation fails however many threads race for the countdown.
TEST_P(FakeAllocThreads, CountdownFailsExactlyOnce) {
  const int threads = GetParam();
  constexpr int kPerThread = 200;
  fp::failNthAllocation(threads * kPerThread / 2 + 1);
  std::atomic<int> nulls{0};
  auto body = [&] {
    for (int i = 0; i < kPerThread; ++i) {
      void* p = malloc(24);
      if (p == nullptr)
        ++nulls;
      free(p);
    }
  };
  if (threads == 0) {
    body();  // on the test thread itself
  } else {
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) pool.emplace_back(body);
    for (auto& t : pool) t.join();
  }
  EXPECT_EQ(nulls.load(), 1);
  EXPECT_EQ(fp::failedAllocations(), 1);
}

INSTANTIATE_TEST_SUITE_P(Threads, FakeAllocThreads, ::testing::Values(0, 1, 4));

}  // namespace
