// One simulated camera stream driven through a sensor's flicker manager, as
// the 3A thread drives it: SetParam, DoCalculation and GetResult per frame.
//
// The statistics come from the rolling-shutter simulator (a 50 Hz office
// scene) at the requested sensor size and are rendered once into a ring of
// frames, so a frame costs only the manager's work. Every frame is marked
// usable for detection (statValid, flkEnable and doFlkDetection set) and gets
// a start-of-frame time one frame period after the previous one, so every
// pair the manager forms is a real pair of consecutive frames in time.
//
// Used by the benchmarks and by the allocation test. Not thread-safe: drive
// one rig from one thread. The manager's worker thread runs beside it.
#pragma once

#include <cstdint>
#include <vector>

#include "flicker_mgr.h"
#include "sim_frame.h"
#include "sim_scenario.h"

class StreamRig {
 public:
  static constexpr int kRingFrames = 8;
  static constexpr int64_t kFramePeriodNs = 33333333;  // 30 frames per second

  // Renders the ring of statistics frames for a width x height sensor.
  StreamRig(int width, int height);

  // The simulated scene of every rig: a 50 Hz office seen by a width x height
  // sensor whose readout takes 30 ms.
  static flicker_sim::SimScenario scenario(int width, int height);

  // Init, Config, Start and the first SetParam of the manager of `sensorIdx`
  // in anti-banding mode `flickerMode`; frames carry `aeDetectCycle`. False
  // when the manager cannot be had or did not attach.
  bool start(int sensorIdx, int flickerMode, int aeDetectCycle);
  // Stop and Uninit of the started manager; nothing when not started.
  void stop();

  // One frame: SetParam, DoCalculation and GetResult. Returns DoCalculation's
  // result and, when the pointers are set, the wall time the three calls took
  // and the CPU time this thread spent in them (which leaves out the time the
  // thread was preempted).
  int frame(int64_t* elapsedNs = nullptr, int64_t* cpuNs = nullptr);

  // Statistics bytes the adapter copies per frame (18 x win_h x 8).
  size_t statBytes() const { return ring_.front().stats.size() * sizeof(int64_t); }
  // Statistics lines of a frame (3 x win_h).
  int statLines() const { return static_cast<int>(ring_.front().stats.size() / 6); }
  // Statistics block `index` of the ring (0 .. kRingFrames - 1).
  const int64_t* stats(int index) const { return ring_[index % kRingFrames].stats.data(); }
  const flicker_sim::SimFrame& simFrame(int index) const { return ring_[index % kRingFrames]; }
  const flicker_config_info& config() const { return config_; }
  // The window sizes the adapter derives for this stream.
  int windowWidth() const { return ring_.front().windowWidth; }
  int windowHeight() const { return ring_.front().windowHeight; }
  FlickerMgr* manager() const { return mgr_; }

 private:
  std::vector<flicker_sim::SimFrame> ring_;
  flicker_config_info config_{};
  flicker_input_info input_{};
  flicker_calc_info calc_{};
  std::vector<uint8_t> result_;
  FlickerMgr* mgr_ = nullptr;
  int aeDetectCycle_ = 0;
  int64_t frames_ = 0;
};
