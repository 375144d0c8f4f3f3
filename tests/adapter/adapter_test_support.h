// Shared set-up of the adapter tests: a freshly initialised adapter over the
// recording fake, statistics builders, and read-back of what the adapter
// handed to the algorithm (records, buffers) or wrote to the dump tree.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "flicker_algo_cmd.h"
#include "flicker_dump_reader.h"
#include "flicker_platform_adapter.h"
#include "temp_files.h"

namespace adapter_test {

namespace fp = fake_platform;

constexpr int kGeneric = 5000;  // a sensor without a path of its own
// A 120 x 75 image gives W 120, H 30, winW 20, winH 10: 180 generic entries.
constexpr int kSmallW = 120, kSmallH = 75, kEntries = 180;

using test_files::readFile;

// The dump tree under the fake's data root.
inline std::string dumpRoot() {
  return fp::hostPath("/data/vendor/flicker/flko");
}
inline std::string counterFile() {
  return dumpRoot() + "/flicker_file_cnt.txt";
}
inline std::string dumpFile(const std::string& folder, const char* name = "flk.raw") {
  return dumpRoot() + "/" + folder + "/" + name;
}

// The record of the `index`-th call of `cmd` (-1: the last), as the fake
// recorded it; its size must be the record's.
template <typename Record>
Record recordOf(uint32_t cmd, int index = 0) {
  const auto calls = fp::algoCalls(cmd);
  const size_t at = index < 0 ? calls.size() - 1 : static_cast<size_t>(index);
  Record record{};
  if (at < calls.size() && calls[at].in.size() == sizeof(Record))
    memcpy(&record, calls[at].in.data(), sizeof(Record));
  else
    ADD_FAILURE() << "no record of command " << cmd << " call " << index;
  return record;
}

// 64-bit statistics with negative and large values, distinct per seed.
inline std::vector<int64_t> pattern64(size_t n, int64_t seed) {
  std::vector<int64_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = (static_cast<int64_t>(i) - 7) * 1000003 + (seed << 40);
  return v;
}

// What a detection step showed the algorithm: the record and copies of the
// first entries of both statistics buffers and of the auxiliary area.
struct DetectView {
  FlkDetectPara para{};
  std::vector<int64_t> slot0, slot1;
  std::vector<int32_t> aux;
};

// Fixture: a fresh fake and an initialised generic adapter with a small window.
class AdapterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    reinit(kGeneric);
  }
  void TearDown() override { adapter_->uninit(); }

  // Brings the adapter back to a known set-up for `sensorId`.
  void reinit(int sensorId, int sensorMode = 0, int autoTest = 0, int height = kSmallH) {
    adapter_->uninit();
    adapter_->init(0, sensorId);
    adapter_->getSensorMode(sensorMode, 0, nullptr);
    adapter_->setDetectInfo(0, 50, 10000, 0);
    setup(autoTest, height);
    fp::clearAlgoCalls();
    fp::clearLogs();
  }
  void setup(int autoTest, int height) {
    adapter_->setFlickerAutoTest(autoTest);
    ASSERT_EQ(adapter_->setWindowInfo(kSmallW, height), 0);
  }

  int setBuf(int path, const void* stats, int index) {
    return adapter_->setBuf(path, stats, index);
  }

  // Runs a detection and returns what it showed the algorithm.
  DetectView capture(size_t entries) {
    DetectView view;
    fp::setDetectHook([&view, entries](const FlkDetectPara& para, FlkDetectResult*) {
      view = {para,
              {para.statsSlot0, para.statsSlot0 + entries},
              {para.statsSlot1, para.statsSlot1 + entries},
              {para.aux, para.aux + kFlkAuxWords}};
    });
    adapter_->detectFlicker();
    fp::setDetectHook(nullptr);
    return view;
  }

  FlickerPlatformAdapter* const adapter_ = FlickerPlatformAdapter::getInstance(3);
};

}  // namespace adapter_test
