#include "manager_rig.h"

#include <chrono>
#include <cstring>

#include "cam_log.h"

namespace mgr_test {

void enableDebugLogs() {
  fp::setProperty("vendor.debug.flicker_mgr.log.level", 3);
  fp::setLogFramework(0xB, 5, NSCam::Utils::ULog::kFlickerModuleMask);
}

DetectRecorder::DetectRecorder() {
  fp::setDetectHook([this](const FlkDetectPara& para, FlkDetectResult*) {
    std::lock_guard<std::mutex> lock(mutex_);
    seen_.push_back({para.statsSlot0 != nullptr ? para.statsSlot0[0] : -1,
                     para.statsSlot1 != nullptr ? para.statsSlot1[0] : -1,
                     para.frameInterval / kFramePeriodNs, para.exposure});
    changed_.notify_all();
  });
}

bool DetectRecorder::waitFor(size_t count, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [&] { return seen_.size() >= count; });
}

void SensorRig::bringUp(const flicker_config_info& config, const flicker_input_info& input,
                        bool start, int sensorId) {
  mgr_->Init(0, sensorId);
  mgr_->Config(config);
  mgr_->SetParam(input);
  if (start)
    mgr_->Start(flicker_start_info{});
}

int SensorRig::frame(const FrameSpec& s) {
  const int64_t id = ++frameNo_;
  memcpy(stats_.data(), &id, sizeof(id));
  // clang-format off
  const flicker_calc_info in{stats_.data(), s.exposureTime, 0, 0, 0, s.width, s.height,
                             s.doFlkDetection, s.aeDetectCycle, s.statValid, s.pixelMode,
                             s.flkEnable, s.needReinit, id * kFramePeriodNs + s.exposureTime};
  // clang-format on
  return mgr_->DoCalculation(in);
}

std::vector<int> SensorRig::frames(int count, const FrameSpec& spec) {
  std::vector<int> results;
  while (frameNo_ < count) results.push_back(frame(spec));
  return results;
}

int32_t word(const std::vector<uint8_t>& bytes, size_t index) {
  int32_t v = 0;
  if ((index + 1) * sizeof(v) <= bytes.size())
    memcpy(&v, bytes.data() + index * sizeof(v), sizeof(v));
  return v;
}

std::vector<uint8_t> lastInput(uint32_t cmd) {
  const auto calls = fp::algoCalls(cmd);
  return calls.empty() ? std::vector<uint8_t>() : calls.back().in;
}

std::vector<int32_t> codes(uint32_t cmd) {
  std::vector<int32_t> out;
  for (const auto& call : fp::algoCalls(cmd)) out.push_back(word(call.in, 0));
  return out;
}

std::vector<uint8_t> result(FlickerMgr& mgr) {
  std::vector<uint8_t> out;
  mgr.GetResult(&out);
  return out;
}

}  // namespace mgr_test
