// FlickerResult: what GetResult reports for one sensor, and its 84-byte
// encoding (FlickerResultRecord in iflicker_mgr.h, little-endian).
//
// Threading: every value is a relaxed atomic, so the record can be encoded on
// any thread without a lock. The 3A thread writes the flags and the
// statistics words (Config, Start, SetParam, DoCalculation), the worker writes
// the scores. A record read during a change may mix values of two analyses,
// or words of two Configs, but never holds a torn word.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "flicker_platform_adapter.h"
#include "iflicker_mgr.h"

class FlickerResult {
 public:
  // The values one encode() wrote, for the caller's log line.
  struct Written {
    int32_t state, frameRateActive, score50, score60, scoreActive, hdrFlkSrc;
  };

  // Keeps the words of the statistics configuration that the record carries
  // (0, 2, 4 and 7 to 16).
  void setStatConfig(const flk_stat_config& config);
  void setFrameRateActive(bool active) { frame_rate_active_.store(active, kRelaxed); }
  void setScores(int32_t score50, int32_t score60);
  void setScoreActive(bool active) { score_active_.store(active, kRelaxed); }
  void setSensorModeChanged(bool changed) { sensor_mode_changed_.store(changed, kRelaxed); }

  bool scoreActive() const { return score_active_.load(kRelaxed); }

  // Resizes `out` to the record's 84 bytes and writes the record for the
  // process-wide flicker state `stateHz`; bytes 1..3 keep what `out` held
  // (zero where it grew). False, with nothing written, when `out` is null or
  // has no storage after the resize.
  bool encode(int32_t stateHz, std::vector<uint8_t>* out, Written* written) const;

 private:
  static constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
  static constexpr int kStatWords = sizeof(FlickerResultRecord::statWords) / sizeof(int32_t);

  std::atomic<bool> frame_rate_active_{false};
  std::atomic<int32_t> score_50_{0};
  std::atomic<int32_t> score_60_{0};
  std::atomic<bool> score_active_{false};
  std::atomic<bool> sensor_mode_changed_{false};
  std::atomic<int32_t> stat_words_[kStatWords] = {};
};
