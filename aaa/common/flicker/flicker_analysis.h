// FlickerAnalysis: one sensor's frequency analysis, run by its worker once per
// completed pair, and the process-wide flicker state that the analyses of all
// sensors and the fixed modes move.
//
// An analysis asks the adapter to detect on the pair, keeps the scores for
// the result, and in automatic mode moves a known state to the other
// frequency when the algorithm decides so (the debug property
// "vendor.debug.flk_switch_en" 0 freezes it). A state of 0 (not yet known)
// is never left by detection. Every change of the state is passed on to the
// adapter: the new state and a reset of the algorithm's history.
//
// Threading: analyzeFlickerFrequency runs on the worker without the owner's
// lock and reads the owner's mode, the pair's exposure and AE's cycle as
// relaxed atomics. The process-wide state is a relaxed atomic that every
// sensor reads and writes without a lock: compare and store in
// setFlickerState are not one step, so two sensors deciding at once may both
// log a change, and the last writer wins.
#pragma once

#include <atomic>
#include <cstdint>

#include "flicker_detection_cycle.h"
#include "flicker_platform_adapter.h"
#include "flicker_result.h"

class FlickerAnalysis {
 public:
  // What an analysis reads while the 3A thread may change it.
  struct Inputs {
    const std::atomic<int32_t>* flickerMode;   // the anti-banding mode (3: automatic)
    const std::atomic<int32_t>* lastExposure;  // exposure of the pair's second frame (us)
    const FlickerDetectionCycle* cycle;        // AE's cycle
  };

  FlickerAnalysis(int sensorIdx, FlickerPlatformAdapter* adapter, FlickerResult* result,
                  Inputs inputs)
      : sensor_idx_(sensorIdx), adapter_(adapter), result_(result), in_(inputs) {}

  // The process-wide flicker state in Hz: 0 until first set, then 50 or 60
  // (or whatever set-up was given).
  static int32_t state() { return flicker_state_.load(std::memory_order_relaxed); }
  // Sets the process-wide state; a change goes on to the adapter. Always 0.
  int32_t setFlickerState(int state);
  // One analysis of the pair in the adapter's slots. Always 0.
  int32_t analyzeFlickerFrequency();

 private:
  const int32_t sensor_idx_;
  FlickerPlatformAdapter* const adapter_;
  FlickerResult* const result_;
  const Inputs in_;

  static std::atomic<int32_t> flicker_state_;
};
