// The detection step: its record, result and scores, tracing, and the debug
// dump tree read back with the dump reader.
#include <unistd.h>

#include "cam_trace.h"

#include "adapter_test_support.h"

namespace adapter_test {
namespace {

TEST_F(AdapterTest, DetectionRecordPerSensorPath) {
  struct Row {
    const char* what;
    int sensorId;
    int detectPath;
    int sensorMode;
    int32_t path, cols, win1, win2;
  };
  const Row rows[] = {
      {"generic window", kGenericSensorId, 0, 0, FLK_PATH_GENERIC, 6, 20, 10},
      {"listed sensor on the generic path", 1398, 0, 0, FLK_PATH_GENERIC, 6, 20, 10},
      {"sensor 1398", 1398, 1, 0, FLK_PATH_SENSOR_1398, 4, 2, 32},
      {"sensor 8581, mode 0", 8581, 1, 0, FLK_PATH_SENSOR_8581, 1, 720, 67},
      {"sensor 8581, other mode", 8581, 1, 5, FLK_PATH_SENSOR_8581, 1, 720, 50},
  };
  const std::vector<int64_t> first = pattern64(kSmallEntries, 1);
  const std::vector<int64_t> second = pattern64(kSmallEntries, 2);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId);
    adapter_->getSensorMode(row.sensorMode, 0, nullptr);
    ASSERT_EQ(setBuf(0, first.data(), 0), 0);
    ASSERT_EQ(setBuf(0, second.data(), 1), 0);
    adapter_->init_algo(0x89ABCDEFu, 1, 1, 0x1'0000'0042L, 0);
    adapter_->setDetectInfo(row.detectPath, 60, 8333, -16666666L);
    const DetectView view = detectAndCapture(adapter_, kSmallEntries);
    ASSERT_TRUE(view.called);
    const auto para = recordOf<FlkDetectPara>(FLK_CMD_DETECT, 0);
    EXPECT_EQ(para.sensorPath, row.path);
    EXPECT_EQ(para.reserved0, 0);
    EXPECT_EQ(view.slot1, second);  // buffer 2 first
    EXPECT_EQ(view.slot0, first);
    EXPECT_EQ(para.windowRows, 3);
    EXPECT_EQ(para.windowCols, row.cols);
    EXPECT_EQ(para.winValue1, row.win1);
    EXPECT_EQ(para.winValue2, row.win2);
    EXPECT_EQ(para.freq, 60);
    EXPECT_EQ(para.pixelClk, 0x42);
    EXPECT_EQ(para.lineLength, 0x89ABCDEFu);
    const uint8_t zeros[sizeof(para.reserved1)] = {};
    EXPECT_EQ(memcmp(para.reserved1, zeros, sizeof(zeros)), 0);
    EXPECT_EQ(para.exposure, 8333);
    EXPECT_NE(para.aux, nullptr);
    EXPECT_EQ(view.aux, std::vector<int32_t>(kFlkAuxWords, 0));  // zeroed before the call
    EXPECT_EQ(para.frameInterval, -16666666L);
  }
}

TEST_F(AdapterTest, ResultStateAndScores) {
  const std::vector<int64_t> stats = pattern64(kSmallEntries, 1);
  ASSERT_EQ(setBuf(0, stats.data(), 0), 0);
  ASSERT_EQ(setBuf(0, stats.data(), 1), 0);
  fake_platform::scriptDetectResults({{FLK_FREQ_60HZ, 70, 30}});
  EXPECT_EQ(adapter_->detectFlicker(), FLK_FREQ_60HZ);
  int s50 = -1, s60 = -1;
  ASSERT_EQ(adapter_->getFlickerScore(&s50, &s60), 0);
  EXPECT_EQ(s50, 70);
  EXPECT_EQ(s60, 30);

  // An unsupported sensor on the sensor path: error, 0, no command, no dump,
  // scores kept.
  reinit(5000);
  adapter_->setDetectInfo(1, 50, 10000, 0);
  makeDataFolders(true);
  fake_platform::setProperty("vendor.debug.flk_dump", 1);
  EXPECT_EQ(adapter_->detectFlicker(), 0);
  EXPECT_TRUE(fake_platform::loggedError("[detectFlicker] This sensor(5000) is not supported."));
  EXPECT_TRUE(fake_platform::algoCalls(FLK_CMD_DETECT).empty());
  EXPECT_FALSE(exists(counterFile()));
  ASSERT_EQ(adapter_->getFlickerScore(&s50, &s60), 0);
  EXPECT_EQ(s50, 70);
  EXPECT_EQ(s60, 30);

  // An algorithm that answers nothing leaves the preset {2, 0, 0}.
  fake_platform::setProperty("vendor.debug.flk_dump", 0);
  adapter_->setDetectInfo(0, 50, 10000, 0);
  EXPECT_EQ(adapter_->detectFlicker(), FLK_FREQ_NONE);
  ASSERT_EQ(adapter_->getFlickerScore(&s50, &s60), 0);
  EXPECT_EQ(s50 + s60, 0);
}

TEST_F(AdapterTest, DetectionTraceAndLogLine) {
  struct Row {
    uint64_t tags;
    size_t events;
  };
  const Row rows[] = {
      {ATRACE_TAG_CAMERA, 2},       // camera tag: "FLK algo" opened and closed
      {0, 0},                       // tracing off
      {ATRACE_TAG_CAMERA >> 1, 0},  // another tag only
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.tags);
    fake_platform::reset();
    reinit(kGenericSensorId);
    fake_platform::setTraceTags(row.tags);
    adapter_->detectFlicker();
    const auto events = fake_platform::traces();
    ASSERT_EQ(events.size(), row.events);
    if (row.events == 2) {
      EXPECT_TRUE(events[0].begin);
      EXPECT_EQ(events[0].name, "FLK algo");
      EXPECT_FALSE(events[1].begin);
    }
  }
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 2);
  reinit(kGenericSensorId);
  adapter_->detectFlicker();
  EXPECT_TRUE(
      fake_platform::logged("[detectFlicker] detect flicker win(20,10), exp(10000), freq(50)+."));
}

// ---- Dump tree ----

class DumpTest : public AdapterTest {
 protected:
  void SetUp() override {
    AdapterTest::SetUp();
    ASSERT_EQ(setBuf(0, slot0_.data(), 0), 0);
    ASSERT_EQ(setBuf(0, slot1_.data(), 1), 0);
    fake_platform::setProperty("vendor.debug.flk_dump", 1);
  }
  const std::vector<int64_t> slot0_ = pattern64(kSmallEntries, 1);
  const std::vector<int64_t> slot1_ = pattern64(kSmallEntries, 2);
};

TEST_F(DumpTest, CounterNamesTheFolderAndAdvancesFirst) {
  struct Row {
    const char* what;
    const char* counter;               // null: no counter file
    std::vector<std::string> folders;  // one per detection
    const char* after;
  };
  const Row rows[] = {
      {"missing counter", nullptr, {"000"}, "1"},
      {"garbage counter", "abc", {"000"}, "1"},
      {"counter 7", "7", {"007"}, "8"},
      {"three digits widen at 1000", "999", {"999", "1000"}, "1001"},
      {"negative counter", "-4", {"000"}, "1"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fake_platform::reset();  // a fresh data root
    fake_platform::setProperty("vendor.debug.flk_dump", 1);
    makeDataFolders(true);  // an existing root does not stop the dump
    if (row.counter != nullptr) {
      writeText(counterFile(), row.counter);
    }
    for (size_t i = 0; i < row.folders.size(); ++i) {
      adapter_->detectFlicker();
    }
    for (const std::string& folder : row.folders) {
      EXPECT_EQ(fileSize(dumpDir(folder) + "/flk.raw"),
                static_cast<long long>(flicker_dump::flkRawSize(kSmallEntries)))
          << folder;
    }
    EXPECT_EQ(readText(counterFile()), row.after);
    EXPECT_EQ(fake_platform::algoCalls(FLK_CMD_DETECT).size(), row.folders.size());
  }
}

TEST_F(DumpTest, GarbageCounterIsLogged) {
  makeDataFolders(true);
  writeText(counterFile(), "abc");
  adapter_->detectFlicker();
  EXPECT_TRUE(fake_platform::loggedError("fscanf error(1)."));
  EXPECT_TRUE(exists(dumpDir("000") + "/flk.raw"));
}

TEST_F(DumpTest, FlkRawHoldsTheDetectionInputFieldByField) {
  adapter_->init_algo(0x89ABCDEFu, 1, 1, 0x1'0000'0042L, 0);
  adapter_->setDetectInfo(0, 60, 8333, 99);
  const flicker_dump::FlkRawDump dump = detectWithDump(adapter_);
  EXPECT_EQ(dump.count, kSmallEntries);
  EXPECT_EQ(dump.slot1, slot1_);  // slot 1's column first
  EXPECT_EQ(dump.slot0, slot0_);
  EXPECT_EQ(dump.winValue1, 20);
  EXPECT_EQ(dump.winValue2, 10);
  EXPECT_EQ(dump.freq, 60);
  EXPECT_EQ(dump.pixelClk, 0x42);
  EXPECT_EQ(dump.lineLength, 0x89ABCDEFu);
  EXPECT_EQ(dump.exposure, 8333);
  for (int32_t word : dump.aux) {
    EXPECT_EQ(word, 0);
  }
  EXPECT_FALSE(exists(dumpDir("000") + "/flk_pure.raw"));  // only on request

  // The sensor path's window values reach the trailer as the record has them.
  reinit(1398);
  const std::vector<int32_t> words(384, 3);
  ASSERT_EQ(setBuf(1, words.data(), 0), 0);
  ASSERT_EQ(setBuf(1, words.data(), 1), 0);
  adapter_->setDetectInfo(1, 50, 100, 0);
  const flicker_dump::FlkRawDump sensorDump = detectWithDump(adapter_);
  EXPECT_EQ(sensorDump.count, 192);
  EXPECT_EQ(sensorDump.slot0, std::vector<int64_t>(192, 3));
  EXPECT_EQ(sensorDump.winValue1, 2);
  EXPECT_EQ(sensorDump.winValue2, 32);
}

TEST_F(DumpTest, PureDumpHoldsTheColumnsOnly) {
  fake_platform::setProperty("vendor.debug.flk_dump_pure", 1);
  makeDataFolders(true);
  adapter_->detectFlicker();
  const std::string pure = dumpDir("000") + "/flk_pure.raw";
  EXPECT_EQ(fileSize(pure), 16 * kSmallEntries);
  flicker_dump::FlkPureDump dump;
  std::string error;
  ASSERT_TRUE(flicker_dump::readFlkPureRaw(pure, kSmallEntries, &dump, &error)) << error;
  EXPECT_EQ(dump.slot1, slot1_);
  EXPECT_EQ(dump.slot0, slot0_);
}

TEST_F(DumpTest, MissingRootIsCreatedButTheCounterWasWrittenBeforeIt) {
  makeDataFolders(false);
  adapter_->detectFlicker();
  EXPECT_TRUE(exists(dumpDir("000") + "/flk.raw"));
  EXPECT_FALSE(exists(counterFile()));  // written while the root did not exist yet
  adapter_->detectFlicker();
  EXPECT_EQ(readText(counterFile()), "1");
}

// Failures end the dump with an error naming the step; detection goes on.
TEST_F(DumpTest, FailuresEndTheDumpOnly) {
  struct Row {
    const char* what;
    void (*prepare)();
    const char* error;
  };
  const Row rows[] = {
      {"no folder above the root", [] {},
       "[dumpFLKO] failed to createDir(/data/vendor/flicker/flko/): No such file or directory."},
      {"root is a dangling link",
       [] {
         makeDataFolders(false);
         ASSERT_EQ(symlink("/nonexistent/flicker_root", dumpRoot().c_str()), 0);
       },
       "[dumpFLKO] failed to createDir(/data/vendor/flicker/flko/000): No such file or "
       "directory."},
      {"dump folder is a file",
       [] {
         makeDataFolders(true);
         writeText(dumpDir("000"), "x");
       },
       "[dumpFLKO] failed to open file(/data/vendor/flicker/flko/000/flk.raw)."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fake_platform::reset();  // a fresh data root
    fake_platform::setProperty("vendor.debug.flk_dump", 1);
    row.prepare();
    fake_platform::scriptDetectResults({{FLK_FREQ_50HZ, 5, 1}});
    EXPECT_EQ(adapter_->detectFlicker(), FLK_FREQ_50HZ);
    EXPECT_TRUE(fake_platform::loggedError(row.error));
    EXPECT_EQ(fake_platform::algoCalls(FLK_CMD_DETECT).size(), 1u);
  }
}

TEST(DumpReader, SizesFollowTheLayout) {
  EXPECT_EQ(flicker_dump::flkRawSize(100), 1664u);  // 4 + 800 + 800 + 4 + 4 + 4 + 8 + 4 + 36
  EXPECT_EQ(flicker_dump::flkRawSize(0), 64u);
}

TEST(DumpReader, RejectsFilesThatDoNotMatchTheLayout) {
  fake_platform::reset();
  const std::string path = fake_platform::dataRoot() + "/bad.raw";
  struct Row {
    const char* what;
    std::vector<int32_t> words;  // file content as int32 words
  };
  std::vector<int32_t> oneShort(19, 0);  // count 1 needs 80 bytes; 76 are there
  oneShort[0] = 1;
  std::vector<int32_t> negative(16, 0);
  negative[0] = -1;
  std::vector<int32_t> huge(16, 0);
  huge[0] = 36001;
  const Row rows[] = {
      {"shorter than an empty dump", std::vector<int32_t>(15, 0)},
      {"count larger than the data", oneShort},
      {"negative count", negative},
      {"count above one buffer", huge},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    writeText(path, std::string(reinterpret_cast<const char*>(row.words.data()),
                                row.words.size() * sizeof(int32_t)));
    flicker_dump::FlkRawDump dump;
    std::string error;
    EXPECT_FALSE(flicker_dump::readFlkRaw(path, &dump, &error));
    EXPECT_FALSE(error.empty());
  }
  flicker_dump::FlkPureDump pure;
  std::string error;
  writeText(path, std::string(24, '\0'));
  EXPECT_FALSE(flicker_dump::readFlkPureRaw(path, -1, &pure, &error));  // not 16-byte columns
  writeText(path, std::string(32, '\0'));
  EXPECT_FALSE(flicker_dump::readFlkPureRaw(path, 1, &pure, &error));  // two entries, not one
  EXPECT_TRUE(flicker_dump::readFlkPureRaw(path, -1, &pure, &error));
  EXPECT_EQ(pure.slot0.size(), 2u);
  flicker_dump::FlkRawDump dump;
  EXPECT_FALSE(flicker_dump::readFlkRaw(path + ".missing", &dump, &error));
}

}  // namespace
}  // namespace adapter_test
