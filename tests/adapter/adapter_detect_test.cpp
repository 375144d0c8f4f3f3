// The detection step: its record, result and scores, and tracing (what it
// dumps is the record checked here, written as flicker_dump_writer_test.cpp
// shows); the dump helpers and the millisecond clock.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <tuple>
#include <utility>

#include "adapter_test_support.h"
#include "cam_trace.h"
#include "flicker_utils.h"

namespace adapter_test {
namespace {

TEST_F(AdapterTest, DetectionRecordPerSensorPath) {
  struct Row {
    const char* what;
    int sensorId, detectPath, sensorMode;
    int32_t path, cols, win1, win2;
  } rows[] = {
      {"generic window", kGeneric, 0, 0, FLK_PATH_GENERIC, 6, 20, 10},
      {"listed sensor on the generic path", 1398, 0, 0, FLK_PATH_GENERIC, 6, 20, 10},
      {"sensor 1398", 1398, 1, 0, FLK_PATH_SENSOR_1398, 4, 2, 32},
      {"sensor 8581, mode 0", 8581, 1, 0, FLK_PATH_SENSOR_8581, 1, 720, 67},
      {"sensor 8581, other mode", 8581, 1, 5, FLK_PATH_SENSOR_8581, 1, 720, 50},
  };
  const std::vector<int64_t> first = pattern64(kEntries, 1), second = pattern64(kEntries, 2);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId, row.sensorMode);
    ASSERT_EQ(setBuf(0, first.data(), 0), 0);
    ASSERT_EQ(setBuf(0, second.data(), 7), 0);                  // any index but 0: buffer 2
    adapter_->init_algo(0x89ABCDEFu, 1, 1, 0x1'0000'0042L, 0);  // only the clock's low 32 bits
    adapter_->setDetectInfo(row.detectPath, 60, 8333, -16666666L);
    const DetectView view = capture(kEntries);
    const FlkDetectPara& para = view.para;
    EXPECT_EQ(std::vector<int32_t>({para.sensorPath, para.reserved0, para.windowRows,
                                    para.windowCols, para.winValue1, para.winValue2, para.freq,
                                    para.pixelClk, para.exposure}),
              std::vector<int32_t>({row.path, 0, 3, row.cols, row.win1, row.win2, 60, 0x42, 8333}));
    EXPECT_TRUE(view.slot1 == second && view.slot0 == first);  // buffer 2 first
    EXPECT_EQ(para.lineLength, 0x89ABCDEFu);
    const uint8_t zeros[sizeof(para.reserved1)] = {};
    EXPECT_EQ(memcmp(para.reserved1, zeros, sizeof(zeros)), 0);
    EXPECT_EQ(view.aux, std::vector<int32_t>(kFlkAuxWords, 0));  // zeroed before the call
    EXPECT_EQ(para.frameInterval, -16666666L);
  }
}

TEST_F(AdapterTest, ResultStateScoresAndTrace) {
  auto scores = [this] {
    int s50 = -1, s60 = -1;
    EXPECT_EQ(adapter_->getFlickerScore(&s50, &s60), 0);
    return std::make_pair(s50, s60);
  };
  fp::setTraceTags(ATRACE_TAG_CAMERA);
  fp::scriptDetectResults({{FLK_FREQ_60HZ, 70, 30}});
  EXPECT_EQ(adapter_->detectFlicker(), FLK_FREQ_60HZ);
  EXPECT_EQ(scores(), std::make_pair(70, 30));
  const auto events = fp::traces();  // "FLK algo" around the command
  ASSERT_EQ(events.size(), 2u);
  EXPECT_TRUE(events[0].begin && events[0].name == "FLK algo" && !events[1].begin);
  fp::setTraceTags(ATRACE_TAG_CAMERA >> 1);  // another tag only: no trace below
  // An unsupported sensor on the sensor path: error, 0, no command, no dump,
  // scores kept.
  adapter_->setDetectInfo(1, 50, 10000, 0);
  fp::setProperty("vendor.debug.flk_dump", 1);
  EXPECT_EQ(adapter_->detectFlicker(), 0);
  EXPECT_TRUE(fp::loggedError("[detectFlicker] This sensor(5000) is not supported."));
  EXPECT_EQ(fp::algoCalls(FLK_CMD_DETECT).size(), 1u);
  EXPECT_FALSE(std::filesystem::exists(counterFile()));
  EXPECT_EQ(scores(), std::make_pair(70, 30));
  // An algorithm that answers nothing leaves the preset {2, 0, 0}.
  fp::setProperty("vendor.debug.flk_dump", 0);
  adapter_->setDetectInfo(0, 50, 10000, 0);
  EXPECT_EQ(adapter_->detectFlicker(), FLK_FREQ_NONE);
  EXPECT_EQ(scores(), std::make_pair(0, 0));
  EXPECT_EQ(fp::traces().size(), 2u);
}

// ---- Dump helpers ----

// Reading and writing the counter are covered through the dump tree (and
// fuzzed); here the guards against null and oversized paths.
TEST(FlickerUtils, CounterGuards) {
  fp::reset();
  int count = 5;
  EXPECT_EQ(getFileCount(nullptr, &count, 3), -1);
  EXPECT_EQ(getFileCount("count.txt", nullptr, 3) + setFileCount(nullptr, 1), -2);
  // Paths resolve into 500 bytes; a longer one is an error, not another file.
  const std::string longPath = fp::dataRoot() + "/" + std::string(520, 'c');
  EXPECT_EQ(getFileCount(longPath.c_str(), &count, 9), -1);
  EXPECT_EQ(count, 9);
  EXPECT_EQ(setFileCount(longPath.c_str(), 1), -1);
}

TEST(FlickerUtils, CreateDirAndDumpBufToFile) {
  fp::reset();
  const std::string root = fp::dataRoot();
  const mode_t oldMask = umask(0);
  EXPECT_EQ(createDir((root + "/d").c_str()), 0);
  umask(oldMask);
  struct stat info;
  ASSERT_EQ(stat((root + "/d").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0770u);
  EXPECT_EQ(createDir((root + "/x/y").c_str()), -1);  // one level only
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(createDir(nullptr), -1);
  char data[] = "0123456789";
  // File, folder to create when the file cannot be opened, size, result.
  const std::tuple<std::string, std::string, int, int> rows[] = {
      {root + "/a.bin", root + "/unused", 10, 0},    // file opened
      {root + "/n/a.bin", root + "/n", 10, -1},      // folder missing: created, file not retried
      {root + "/p/q/a.bin", root + "/p/q", 10, -2},  // neither file nor folder
  };
  for (auto [file, dir, size, rc] : rows) {
    EXPECT_EQ(dumpBufToFile(&file[0], &dir[0], data, size), rc) << file;
    EXPECT_EQ(readFile(file), rc == 0 ? "0123456789" : "") << file;
  }
}

TEST(FlickerUtils, GetMsIsTheMonotonicClockInMilliseconds) {
  struct timespec before {};
  clock_gettime(CLOCK_MONOTONIC, &before);
  const int64_t elapsed = getMs() - (before.tv_sec * 1000 + before.tv_nsec / 1000000);
  EXPECT_TRUE(elapsed >= 0 && elapsed < 1000) << elapsed;  // same clock, not microseconds
}

}  // namespace
}  // namespace adapter_test
