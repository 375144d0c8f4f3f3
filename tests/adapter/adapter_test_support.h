// Shared set-up of the adapter tests: a freshly initialised adapter over the
// recording fake, builders of statistics blocks, and read-back of what the
// adapter handed to the algorithm (records, buffers) or wrote to the dump tree.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "flicker_algo_cmd.h"
#include "flicker_dump_reader.h"
#include "flicker_platform_adapter.h"

namespace adapter_test {

constexpr int kSensorIdx = 3;
constexpr int kGenericSensorId = 5000;
// A 120 x 75 image gives W 120, H 30, win_w_ 20, win_h_ 10: 180 generic entries.
constexpr int kSmallW = 120;
constexpr int kSmallH = 75;
constexpr int kSmallEntries = 180;

inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline bool exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

inline long long fileSize(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

// The record of the `index`-th call of `cmd`, as the fake recorded it.
template <typename Record>
Record recordOf(uint32_t cmd, size_t index = 0) {
  const auto calls = fake_platform::algoCalls(cmd);
  Record record;
  memset(&record, 0xEE, sizeof(record));
  EXPECT_LT(index, calls.size()) << "command " << cmd << " was not sent";
  if (index < calls.size()) {
    EXPECT_EQ(calls[index].in.size(), sizeof(Record));
    memcpy(&record, calls[index].in.data(), std::min(sizeof(Record), calls[index].in.size()));
  }
  return record;
}

// 64-bit statistics with negative and large values, distinct per block.
inline std::vector<int64_t> pattern64(size_t n, int64_t seed) {
  std::vector<int64_t> v(n);
  for (size_t i = 0; i < n; ++i) {
    v[i] = (static_cast<int64_t>(i) - 7) * 1000003 + seed * (int64_t{1} << 40);
  }
  return v;
}

// What a detection step showed the algorithm: the record, and copies of the
// first `entries` entries of both statistics buffers.
struct DetectView {
  int result = -1;
  bool called = false;
  FlkDetectPara para{};
  std::vector<int64_t> slot0;
  std::vector<int64_t> slot1;
  std::vector<int32_t> aux;
};

inline DetectView detectAndCapture(FlickerPlatformAdapter* adapter, size_t entries) {
  DetectView view;
  fake_platform::setDetectHook([&view, entries](const FlkDetectPara& para, FlkDetectResult*) {
    view.called = true;
    view.para = para;
    view.slot0.assign(para.statsSlot0, para.statsSlot0 + entries);
    view.slot1.assign(para.statsSlot1, para.statsSlot1 + entries);
    view.aux.assign(para.aux, para.aux + kFlkAuxWords);
  });
  view.result = adapter->detectFlicker();
  fake_platform::setDetectHook(nullptr);
  return view;
}

// Device paths of the dump tree and their host locations under the fake root.
inline std::string dumpRoot() {
  return fake_platform::hostPath("/data/vendor/flicker/flko");
}
inline std::string counterFile() {
  return dumpRoot() + "/flicker_file_cnt.txt";
}
inline std::string dumpDir(const std::string& number) {
  return dumpRoot() + "/" + number;
}

// The folders above the dump root exist on a device; create them under the
// fake's data root (only the flicker folder itself is mapped, so the upper
// levels are built from the root directly).
inline void makeDataFolders(bool withRoot) {
  const std::string data = fake_platform::dataRoot() + "/data";
  mkdir(data.c_str(), 0770);
  mkdir((data + "/vendor").c_str(), 0770);
  mkdir(fake_platform::hostPath("/data/vendor/flicker").c_str(), 0770);
  if (withRoot) {
    mkdir(dumpRoot().c_str(), 0770);
  }
}

// Runs one detection with the dump switched on and reads back its flk.raw
// from the folder the counter file pointed at.
inline flicker_dump::FlkRawDump detectWithDump(FlickerPlatformAdapter* adapter) {
  makeDataFolders(true);
  const std::string counter = readText(counterFile());
  const int number = counter.empty() ? 0 : std::stoi(counter);
  fake_platform::setProperty("vendor.debug.flk_dump", 1);
  adapter->detectFlicker();
  fake_platform::setProperty("vendor.debug.flk_dump", 0);
  char name[16];
  snprintf(name, sizeof(name), "%03d", number);
  flicker_dump::FlkRawDump dump;
  std::string error;
  EXPECT_TRUE(flicker_dump::readFlkRaw(dumpDir(name) + "/flk.raw", &dump, &error)) << error;
  return dump;
}

// Fixture: a fresh fake and an initialised generic adapter with a small window.
class AdapterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake_platform::reset();
    adapter_ = FlickerPlatformAdapter::getInstance(kSensorIdx);
    ASSERT_NE(adapter_, nullptr);
    reinit(kGenericSensorId);
  }
  void TearDown() override { adapter_->uninit(); }

  // Brings the adapter's state back to a known generic set-up.
  void reinit(int sensorId) {
    adapter_->uninit();
    adapter_->init(0, sensorId);
    adapter_->setFlickerAutoTest(0);
    adapter_->getSensorMode(0, 0, nullptr);
    setWindow(kSmallW, kSmallH);
    adapter_->setDetectInfo(0, 50, 10000, 0);
    fake_platform::clearAlgoCalls();
    fake_platform::clearLogs();
  }

  void setWindow(int width, int height) {
    int w = 0, h = 0, ww = 0, wh = 0;
    ASSERT_EQ(adapter_->setWindowInfo(&w, &h, &ww, &wh, width, height), 0);
  }

  int setBuf(int path, const void* stats, int index) {
    int x = -1, w = -1, h = -1;
    return adapter_->setBuf(path, stats, index, &x, &w, &h);
  }

  FlickerPlatformAdapter* adapter_ = nullptr;
};

}  // namespace adapter_test
