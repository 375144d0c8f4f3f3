// Test rig for FlickerMgr: a fixture that resets the fake platform with debug
// logs on, builders for the framework's records, one sensor driven through
// the framework's calling order, and a recorder of the detections the fake
// algorithm sees (with the frame ids found in the two statistics slots), so
// that tests wait on events instead of sleeping.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <iterator>
#include <mutex>
#include <vector>

#include "cam_log.h"
#include "fake_platform.h"
#include "flicker_mgr.h"

namespace mgr_test {

namespace fp = fake_platform;

constexpr int kWaitMs = 10000;                // generous: sanitizers are slow
constexpr int64_t kFramePeriodNs = 33000000;  // frame n starts exposing at n x this
constexpr int32_t kExposureUs = 10000;
// The second sensor type takes the adapter's sensor-specific path, which only
// two sensors have; the rig's sensors are one of them unless a test says so.
constexpr int kSensor1398 = 1398;

// Resets the fake platform and turns debug logging on (level 3 plus the
// framework's details) before any Init or Start reads the level, so tests can
// see detail lines.
class ManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    fp::setProperty("vendor.debug.flicker_mgr.log.level", 3);
    fp::setLogFramework(0xB, 5, NSCam::Utils::ULog::kFlickerModuleMask);
  }
};

inline flicker_config_info makeConfig(int sensorMode = 0, int height = 300,
                                      uint32_t pixelsInLine = 5000, int tgHeight = 300,
                                      uint32_t pixelClk = 600000000) {
  return {sensorMode, {1200, height}, {1200, tgHeight}, pixelClk, pixelsInLine};
}

inline flicker_input_info makeInput(int flickerMode = FLICKER_MODE_AUTO, int sensorType = 0,
                                    int sensorMode = 0, int isMaster = 1) {
  return {sensorType, flickerMode, sensorMode, 1200, 300, isMaster, 0};
}

// Per-frame inputs of DoCalculation, apart from the buffer and timing that
// the rig fills in.
struct FrameSetup {
  int32_t width = 1200, height = 300, pixelMode = 0;
  int32_t flkEnable = 1, statValid = 1, doFlkDetection = 1;
  int32_t aeDetectCycle = 0, needReinit = 0, exposureTime = kExposureUs;
};

// One detection as the fake algorithm received it.
struct Detection {
  int64_t slot0, slot1;    // frame ids stamped into entry 0 of statistics buffers 1 and 2
  int64_t intervalFrames;  // the record's frame interval in frame periods
};

// Installs the fake's detect hook; removes it on destruction.
class DetectRecorder {
 public:
  DetectRecorder();
  ~DetectRecorder() { fp::setDetectHook(nullptr); }
  bool waitFor(size_t count, int timeoutMs = kWaitMs) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [&] { return seen_.size() >= count; });
  }
  std::vector<Detection> detections() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Detection> seen_;
};

// One sensor index driven like the 3A framework drives it. Frame ids count
// DoCalculation calls from 1; frame n carries id n in its statistics and an
// exposure start of n frame periods.
class SensorRig {
 public:
  explicit SensorRig(int sensorIdx)
      : mgr_(FlickerMgr::GetInstance(sensorIdx)), stats_(FlickerPlatformAdapter::kBufBytes, 0) {}
  FlickerMgr& mgr() { return *mgr_; }
  int frameNo() const { return frameNo_; }
  // Init, Config, SetParam (attaching as master) and, when `start`, Start.
  // Without Start the frame-rate type keeps its initial 0.
  void bringUp(const flicker_config_info& config = makeConfig(),
               const flicker_input_info& input = makeInput(), bool start = true,
               int sensorId = kSensor1398) {
    mgr_->Init(0, sensorId);
    mgr_->Config(config);
    mgr_->SetParam(input);
    if (start)
      mgr_->Start(flicker_start_info{});
  }
  int frame(const FrameSetup& params = FrameSetup());
  // Frames until `count` have been sent, all with `params`; returns their results.
  std::vector<int> frames(int count, const FrameSetup& params = FrameSetup()) {
    std::vector<int> results;
    while (frameNo_ < count) results.push_back(frame(params));
    return results;
  }
  void shutDown() {
    mgr_->Stop();
    mgr_->Uninit();
  }

 private:
  FlickerMgr* mgr_;
  int frameNo_ = 0;
  std::vector<uint8_t> stats_;
};

// Int32 word `index` of a byte record (0 when the record is shorter).
int32_t word(const std::vector<uint8_t>& bytes, size_t index);
// The last recorded input of `cmd` (empty when none).
std::vector<uint8_t> lastInput(uint32_t cmd);
// Word 0 (the frequency code) of every recorded command `cmd`, in order.
std::vector<int32_t> codes(uint32_t cmd);

}  // namespace mgr_test

// One test per row of a table, the row index as parameter.
#define MGR_ROWS(suite, rows) \
  INSTANTIATE_TEST_SUITE_P(Rows, suite, ::testing::Range(0, static_cast<int>(std::size(rows))))
