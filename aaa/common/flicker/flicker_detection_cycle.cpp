#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_detection_cycle.h"

#include <algorithm>
#include <climits>

#include "flicker_log.h"

namespace {
constexpr int32_t kWarmUpFrames = 2;
constexpr int32_t kMinProductCycle = 2;
}  // namespace

FlickerDetectionCycle::FlickerDetectionCycle(int (*productCycle)(), std::atomic<bool>* slotToggle)
    : product_cycle_(productCycle),
      slot_toggle_(slotToggle),
      detection_cycle_(std::max(productCycle(), kMinProductCycle)) {}

void FlickerDetectionCycle::restart() {
  frame_count_ = 0;
  current_cycle_ = 0;
}

FlickerDetectionCycle::Admission FlickerDetectionCycle::admit(const FlickerCycleFrame& frame,
                                                              const FlickerCycleContext& context) {
  Admission a;
  const int32_t oldCount = frame_count_;
  if (frame_count_ < INT32_MAX)
    ++frame_count_;
  if (oldCount < kWarmUpFrames) {
    a.warmUpFrame = frame_count_;
    return a;
  }

  // With the decrease-rate type a closed gate pauses detection until AE
  // drops its request.
  const bool rateType1 = context.rateType == FLK_DECREASE_FRAME_RATE_DETECT;
  const bool gateOpen = frame.flkEnable && (context.sensorType != 0 || frame.statValid);
  if (!gateOpen) {
    current_cycle_ = 0;
    if (rateType1) {
      frame_data_num_ = 0;
      detection_paused_ = true;
      a.frameRateActive = false;
      detection_process_start_ = false;
    }
    return a;
  }
  if (detection_paused_) {
    if (frame.doFlkDetection != 0 && detection_cycle_ != 1)
      return a;
    detection_paused_ = false;
  }
  a.admitted = true;
  a.ae = followAeCycle(frame.aeDetectCycle);
  return a;
}

FlickerDetectionCycle::AeChange FlickerDetectionCycle::followAeCycle(int32_t cycle) {
  const int32_t aeCycle = aeDetectCycle();
  if (cycle < 0) {
    FLK_LOGD("wrong ae detection cycle(%d).", cycle);
    return AeChange::kNone;
  }
  if (cycle > 0 && aeCycle != cycle) {
    // AE takes over, or asks for another cycle.
    ae_detect_cycle_.store(cycle, std::memory_order_relaxed);
    detection_cycle_ = cycle;
    current_cycle_ = 0;
    return aeCycle == 0 ? AeChange::kTakeOver : AeChange::kNone;
  }
  if (cycle == 0 && aeCycle > 0) {
    // AE gives up: back to the product's own cycle, taken as it comes.
    ae_detect_cycle_.store(0, std::memory_order_relaxed);
    detection_cycle_ = product_cycle_();
    current_cycle_ = 0;
    return AeChange::kGiveUp;
  }
  return AeChange::kNone;
}

FlickerDetectionCycle::Plan FlickerDetectionCycle::plan(const FlickerCycleFrame& frame,
                                                        const FlickerCycleContext& context) {
  Plan p;
  const int32_t aeCycle = aeDetectCycle();
  // No detection in the fixed modes unless AE drives a cycle.
  if (!context.autoMode && aeCycle <= 0)
    return p;
  p.clearScoreActive = aeCycle > 0;
  if (detection_cycle_ <= 0) {
    p.invalidCycle = detection_cycle_;
    return p;
  }
  if (detection_cycle_ == 1) {
    everyFrameStep(frame, context, &p);
  } else {
    cycleStep(frame, context, &p);
  }
  return p;
}

void FlickerDetectionCycle::take(int timestampSlot, int bufferSlot, Plan* p) const {
  p->take = true;
  p->timestampSlot = timestampSlot;
  p->bufferSlot = bufferSlot;
  p->pairComplete = frame_data_num_ != 2;
  p->cycle = current_cycle_;
  p->frameDataNum = frame_data_num_;
}

void FlickerDetectionCycle::everyFrameStep(const FlickerCycleFrame& frame,
                                           const FlickerCycleContext& context, Plan* p) {
  p->frameRateActive = true;
  const bool wantDetection =
      context.rateType == FLK_DECREASE_FRAME_RATE_NONE ||
      (context.rateType == FLK_DECREASE_FRAME_RATE_DETECT && frame.doFlkDetection != 0);
  if (wantDetection && !detection_process_start_) {
    frame_data_num_ = 2;
    detection_process_start_ = true;
  }
  if (frame_data_num_ >= 1) {
    // The timestamp slots alternate through the shared toggle; the buffer
    // slot follows the cycle position.
    const bool slot = frame_data_num_ != 2 && !slot_toggle_->load(std::memory_order_relaxed);
    slot_toggle_->store(slot, std::memory_order_relaxed);
    take(slot ? 1 : 0, current_cycle_, p);
    // Once started, every later frame completes a pair.
    frame_data_num_ = std::max(frame_data_num_ - 1, 1);
  }
  current_cycle_ = (current_cycle_ + 1) % 2;
}

void FlickerDetectionCycle::cycleStep(const FlickerCycleFrame& frame,
                                      const FlickerCycleContext& context, Plan* p) {
  const bool rateType1 = context.rateType == FLK_DECREASE_FRAME_RATE_DETECT;
  if (context.sensorType == 0) {
    if (current_cycle_ == 0 || current_cycle_ == 1) {
      FLK_LOGD("current_cycle_(%d), setFlickerFrameRateActive 1", current_cycle_);
      if (rateType1) {
        p->frameRateActive = true;
      } else {
        // Positions 0 and 1 both (re)arm the pair: the frame at 1 replaces the
        // one of 0 as first frame, so the pair is taken at 1 and 2.
        frame_data_num_ = 2;
      }
    } else if (current_cycle_ == 2) {
      FLK_LOGD("current_cycle_(%d), setFlickerFrameRateActive 0", current_cycle_);
      if (rateType1)
        p->frameRateActive = false;
    }
    FLK_LOGD(
        "current_cycle_(%d) decrease_frame_rate_type_(%d) in->doFlkDetection(%d) "
        "detection_process_start_(%d)",
        current_cycle_, context.rateType, frame.doFlkDetection, detection_process_start_ ? 1 : 0);
    if (rateType1 && frame.doFlkDetection != 0 && !detection_process_start_) {
      frame_data_num_ = 2;
      detection_process_start_ = true;
    }
  } else if (current_cycle_ == 0) {
    frame_data_num_ = 2;
  }

  if (frame_data_num_ >= 1) {
    // A pair puts its first frame in slot 0 and its second in slot 1.
    const int slot = frame_data_num_ != 2 ? 1 : 0;
    take(slot, slot, p);
    if (--frame_data_num_ == 0)
      detection_process_start_ = false;
  }
  current_cycle_ = (current_cycle_ + 1) % detection_cycle_;
}

void FlickerDetectionCycle::noteExposureStart(int timestampSlot, int64_t startOfFrame,
                                              int32_t exposure) {
  // Two's-complement wrap-around instead of undefined overflow: only the
  // difference of the two slots is ever used.
  frame_start_ts_[timestampSlot & 1] =
      static_cast<int64_t>(static_cast<uint64_t>(startOfFrame) - static_cast<uint64_t>(exposure));
}

int64_t FlickerDetectionCycle::pairInterval() const {
  const uint64_t a = static_cast<uint64_t>(frame_start_ts_[1]);
  const uint64_t b = static_cast<uint64_t>(frame_start_ts_[0]);
  const uint64_t d = frame_start_ts_[1] >= frame_start_ts_[0] ? a - b : b - a;
  return d > static_cast<uint64_t>(INT64_MAX) ? INT64_MAX : static_cast<int64_t>(d);
}
