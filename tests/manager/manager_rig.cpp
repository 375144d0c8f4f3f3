#include "manager_rig.h"

#include <chrono>
#include <cstring>

#include "cam_log.h"

namespace mgr_test {

void enableDebugLogs() {
  fake_platform::setProperty(kPropLogLevel, 3);
  fake_platform::setLogFramework(0xB, 5, NSCam::Utils::ULog::kFlickerModuleMask);
}

flicker_config_info makeConfig(int sensorMode, int height, uint32_t pixelsInLine, int tgHeight,
                               uint32_t pixelClk) {
  flicker_config_info c{};
  c.SensorMode = sensorMode;
  c.HBIN_INFO.w = 1200;
  c.HBIN_INFO.h = height;
  c.TG_SIZE.w = 1200;
  c.TG_SIZE.h = tgHeight;
  c.PixelClk = pixelClk;
  c.PixelsInLine = pixelsInLine;
  return c;
}

flicker_input_info makeInput(int flickerMode, int sensorType, int sensorMode, int isMaster) {
  flicker_input_info in{};
  in.sensorType = sensorType;
  in.flickerMode = flickerMode;
  in.sensorMode = sensorMode;
  in.tgWidth = 1200;
  in.tgHeight = 300;
  in.isMaster = isMaster;
  return in;
}

DetectRecorder::DetectRecorder() {
  fake_platform::setDetectHook([this](const FlkDetectPara& para, FlkDetectResult*) {
    Detection d{};
    d.slot0Frame = para.statsSlot0 != nullptr ? para.statsSlot0[0] : -1;
    d.slot1Frame = para.statsSlot1 != nullptr ? para.statsSlot1[0] : -1;
    d.intervalFrames = para.frameInterval / kFramePeriodNs;
    d.exposure = para.exposure;
    d.freq = para.freq;
    std::lock_guard<std::mutex> lock(mutex_);
    detections_.push_back(d);
    changed_.notify_all();
  });
}

DetectRecorder::~DetectRecorder() {
  fake_platform::setDetectHook(nullptr);
}

bool DetectRecorder::waitFor(size_t count, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [&] { return detections_.size() >= count; });
}

std::vector<Detection> DetectRecorder::detections() {
  std::lock_guard<std::mutex> lock(mutex_);
  return detections_;
}

SensorRig::SensorRig(int sensorIdx)
    : idx_(sensorIdx),
      mgr_(FlickerMgr::GetInstance(sensorIdx)),
      stats_(FlickerPlatformAdapter::kBufBytes, 0) {}

void SensorRig::bringUp(const flicker_config_info& config, const flicker_input_info& input,
                        bool start, int sensorId) {
  mgr_->Init(0, sensorId);
  mgr_->Config(config);
  mgr_->SetParam(input);
  if (start)
    mgr_->Start(flicker_start_info{});
}

int SensorRig::frame(const FrameSpec& spec) {
  const int64_t id = ++frameNo_;
  memcpy(stats_.data(), &id, sizeof(id));
  flicker_calc_info in{};
  in.mVa = stats_.data();
  in.exposureTime = spec.exposureTime;
  in.width = spec.width;
  in.height = spec.height;
  in.pixel_mode = spec.pixelMode;
  in.flkEnable = spec.flkEnable;
  in.statValid = spec.statValid;
  in.doFlkDetection = spec.doFlkDetection;
  in.aeDetectCycle = spec.aeDetectCycle;
  in.needReinit = spec.needReinit;
  in.sof_timestamp = id * kFramePeriodNs + spec.exposureTime;
  return mgr_->DoCalculation(in);
}

std::vector<int> SensorRig::frames(int count, const FrameSpec& spec) {
  std::vector<int> results;
  while (frameNo_ < count) results.push_back(frame(spec));
  return results;
}

void SensorRig::shutDown() {
  mgr_->Stop();
  mgr_->Uninit();
}

int32_t word(const std::vector<uint8_t>& bytes, size_t index) {
  int32_t v = 0;
  if ((index + 1) * sizeof(v) <= bytes.size())
    memcpy(&v, bytes.data() + index * sizeof(v), sizeof(v));
  return v;
}

std::vector<uint8_t> lastInput(uint32_t cmd) {
  const auto calls = fake_platform::algoCalls(cmd);
  return calls.empty() ? std::vector<uint8_t>() : calls.back().in;
}

std::vector<int32_t> codes(uint32_t cmd) {
  std::vector<int32_t> out;
  for (const auto& call : fake_platform::algoCalls(cmd)) out.push_back(word(call.in, 0));
  return out;
}

}  // namespace mgr_test
