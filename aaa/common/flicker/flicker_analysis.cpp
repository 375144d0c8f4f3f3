#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_analysis.h"

#include "cam_properties.h"
#include "flicker_freq.h"
#include "flicker_log.h"
#include "flicker_utils.h"
#include "iflicker_mgr.h"

namespace {

constexpr const char* kPropSwitchEn = "vendor.debug.flk_switch_en";

// Report-line thresholds: the shortest exposure (us) that spans a full ripple
// period with margin, per current state. Exact values, intended.
constexpr int32_t kLongExposure60Hz = 8201;
constexpr int32_t kLongExposure50Hz = 9801;

}  // namespace

std::atomic<int32_t> FlickerAnalysis::flicker_state_{0};

int32_t FlickerAnalysis::setFlickerState(int state) {
  FLK_LOGD("%d.", state);
  const int32_t old = flicker_state_.load(std::memory_order_relaxed);
  if (state == old)
    return 0;
  FLK_LOGD("state change(%d->%d).", old, state);
  flicker_state_.store(state, std::memory_order_relaxed);
  adapter_->setFlickerState(flicker_state_.load(std::memory_order_relaxed));
  adapter_->resetQueue(flicker_state_.load(std::memory_order_relaxed));
  return 0;
}

int32_t FlickerAnalysis::analyzeFlickerFrequency() {
  const int64_t t0 = getMs();
  // The adapter answers with the algorithm's frequency code.
  const FlickerFreq decided = FlickerFreq::fromAlgoCode(adapter_->detectFlicker());
  const int32_t aeCycle = in_.cycle->aeDetectCycle();
  result_->setScoreActive(aeCycle != 0);
  int score50 = 0;
  int score60 = 0;
  adapter_->getFlickerScore(&score50, &score60);
  result_->setScores(score50, score60);
  FLK_LOGD("detect period(%lld ms) -.", static_cast<long long>(getMs() - t0));

  if (in_.flickerMode->load(std::memory_order_relaxed) == FLICKER_MODE_AUTO) {
    if (NSCam::Utils::Properties::property_get_int32(kPropSwitchEn, -1) == 0) {
      FLK_LOGD("flicker state not changed due to property fixed");
    } else {
      const FlickerFreq current = FlickerFreq::fromHz(state());
      if (decided.known() && current.known() && decided != current)
        setFlickerState(decided.hz());
    }
  }

  // The "too short" test only selects the line; it never undoes a switch.
  const int32_t exposure = in_.lastExposure->load(std::memory_order_relaxed);
  const int32_t stateHz = state();
  // Read back: DoCalculation may have cleared the flag meanwhile.
  const int32_t scoreActive = result_->scoreActive() ? 1 : 0;
  const FlickerFreq current = FlickerFreq::fromHz(stateHz);
  if ((exposure >= kLongExposure60Hz && current == FlickerFreq::k60Hz) ||
      (exposure >= kLongExposure50Hz && current == FlickerFreq::k50Hz)) {
    FLK_LOG1(
        "Input: SensorIdx(%d), ExposureTime(%d), AEDetectCycle(%d) Output: State(%d) "
        "Score50/60(%d/%d) ScoreActive(%d)",
        sensor_idx_, exposure, aeCycle, stateHz, score50, score60, scoreActive);
  } else {
    FLK_LOG1(
        "Input: SensorIdx(%d), ExposureTime(%d) too short, AEDetectCycle(%d) Output: State(%d) "
        "Score50/60(%d/%d) ScoreActive(%d)",
        sensor_idx_, exposure, aeCycle, stateHz, score50, score60, scoreActive);
  }
  return 0;
}
