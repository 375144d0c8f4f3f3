// FlickerDetectionCycle: which frames a sensor's detection takes, as a state
// machine from each frame's inputs to what the frame does. No threads, no
// adapter: its owner carries out what a frame's plan says.
//
// The first two frames after a restart are never used (warm-up). A frame
// passes the gate when detection is enabled and its statistics are valid
// (sensor type 0) or the sensor type is another. A pair of frames is taken
// per cycle of `detection cycle` frames: the product's own cycle (at least
// 2), or the one exposure control (AE) asks for, which takes over and gives
// up the cycle; a cycle of 1 takes every frame, each completing a pair. The
// frame-rate type 1 ("decrease the frame rate while detecting") lets AE's
// request arm a pair, lowers the frame-rate flag around it, and pauses
// detection when the gate closes until AE drops its request.
//
// Per frame the owner calls admit(), carries out the AE change it reports,
// then calls plan() and takes the frame's statistics as the plan says.
//
// Threading: admit, plan and restart run under the owner's lock;
// aeDetectCycle() is read lock-free by the owner's worker. The slot toggle of
// every-frame mode is shared by the owner's choice (the manager shares one
// across all sensors) and is read and written without a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "flicker_algo_cmd.h"

// One frame's inputs to the cycle (from flicker_calc_info).
struct FlickerCycleFrame {
  bool flkEnable = true;
  bool statValid = true;
  int32_t doFlkDetection = 1;  // AE asks for a detection (nonzero); logged as given
  int32_t aeDetectCycle = 0;   // 0: the product's cycle; > 0: AE's; < 0: invalid
};

// The sensor's settings the cycle reads with each frame.
struct FlickerCycleContext {
  int32_t sensorType = 0;
  _EFLKDecreaseFrameRateType rateType = FLK_DECREASE_FRAME_RATE_NONE;
  bool autoMode = true;  // anti-banding mode 3 (automatic detection)
};

class FlickerDetectionCycle {
 public:
  enum class AeChange { kNone, kTakeOver, kGiveUp };

  struct Admission {
    bool admitted = false;
    int32_t warmUpFrame = 0;              // > 0: a warm-up frame, its number
    std::optional<bool> frameRateActive;  // a new frame-rate flag, if any
    AeChange ae = AeChange::kNone;        // what AE's cycle request changed
  };

  struct Plan {
    bool clearScoreActive = false;        // AE drives the cycle: the scores are stale
    std::optional<int32_t> invalidCycle;  // a detection cycle that cannot run (0 or below)
    std::optional<bool> frameRateActive;  // a new frame-rate flag, if any
    bool take = false;                    // take this frame's statistics
    int bufferSlot = 0;                   // the adapter's slot for them
    int timestampSlot = 0;                // where the frame's exposure start goes
    bool pairComplete = false;            // the frame completes a pair: detect
    int32_t cycle = 0;                    // the cycle position of the frame
    int32_t frameDataNum = 0;             // frames the pair still needed before it
  };

  // `productCycle` gives the product's detection cycle, read now (raised to
  // 2) and again when AE gives the cycle up (taken as it comes).
  FlickerDetectionCycle(int (*productCycle)(), std::atomic<bool>* slotToggle);

  // Start: the warm-up and the cycle position begin anew.
  void restart();
  // Warm-up, gate, pause and AE's cycle request. A frame not admitted
  // returns -1 to the framework.
  Admission admit(const FlickerCycleFrame& frame, const FlickerCycleContext& context);
  // What an admitted frame does; the cycle has moved on to the next frame
  // when this returns.
  Plan plan(const FlickerCycleFrame& frame, const FlickerCycleContext& context);

  int32_t aeDetectCycle() const { return ae_detect_cycle_.load(std::memory_order_relaxed); }

  // Keeps the exposure start (start of frame less exposure, as given, no
  // unit conversion) of a taken frame in its timestamp slot.
  void noteExposureStart(int timestampSlot, int64_t startOfFrame, int32_t exposure);
  // The interval of the pair: |slot 1 - slot 0|, saturated.
  int64_t pairInterval() const;

 private:
  AeChange followAeCycle(int32_t cycle);
  void everyFrameStep(const FlickerCycleFrame& frame, const FlickerCycleContext& context,
                      Plan* plan);
  void cycleStep(const FlickerCycleFrame& frame, const FlickerCycleContext& context, Plan* plan);
  void take(int timestampSlot, int bufferSlot, Plan* plan) const;

  int (*const product_cycle_)();
  std::atomic<bool>* const slot_toggle_;
  int32_t frame_count_ = 0;                  // frames since restart
  int32_t detection_cycle_ = 0;              // frames per cycle; 1: every frame
  int32_t current_cycle_ = 0;                // position in the cycle
  int32_t frame_data_num_ = 0;               // 2: pair armed, 1: first frame in, 0: idle
  bool detection_process_start_ = false;     // AE's request is collecting its pair
  bool detection_paused_ = false;            // held until AE drops its request
  std::atomic<int32_t> ae_detect_cycle_{0};  // AE's cycle, 0 when none; read by the worker
  int64_t frame_start_ts_[2] = {0, 0};       // exposure start per timestamp slot
};
