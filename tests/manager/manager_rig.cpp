#include "manager_rig.h"

#include <cstring>

namespace mgr_test {

DetectRecorder::DetectRecorder() {
  fp::setDetectHook([this](const FlkDetectPara& para, FlkDetectResult*) {
    std::lock_guard<std::mutex> lock(mutex_);
    seen_.push_back({para.statsSlot0 != nullptr ? para.statsSlot0[0] : -1,
                     para.statsSlot1 != nullptr ? para.statsSlot1[0] : -1,
                     para.frameInterval / kFramePeriodNs});
    changed_.notify_all();
  });
}

int SensorRig::frame(const FrameSetup& s) {
  const int64_t id = ++frameNo_;
  memcpy(stats_.data(), &id, sizeof(id));
  // clang-format off
  const flicker_calc_info in{stats_.data(), s.exposureTime, 0, 0, 0, s.width, s.height,
                             s.doFlkDetection, s.aeDetectCycle, s.statValid, s.pixelMode,
                             s.flkEnable, s.needReinit, id * kFramePeriodNs + s.exposureTime};
  // clang-format on
  return mgr_->DoCalculation(in);
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

}  // namespace mgr_test
