// Decoding of the tuning record (FlickerExtPara) into the open algorithm's
// knobs. Each knob has a documented default (open_algo_default_tuning.h); a
// word of zero selects that default, so an untouched, all-zero NVRAM record
// gives the recommended behaviour. Out-of-range words are clamped.
//
// Threading: plain value type, no shared state.
#pragma once

#include <cstdint>

#include "flicker_algo_cmd.h"

namespace open_algo {

// Longest history the algorithm can keep (bounds maxPastFrames).
constexpr int kMaxHistory = 32;

// The knobs in the units the detector works in.
struct AlgoKnobs {
  double minAmplitude;   // least ripple amplitude that counts, natural-log units
  double snrThreshold;   // ripple SNR where evidence starts (full at twice this)
  double dominance;      // ratio the new ripple must reach against the other one
  int holdOff;           // detections after a state change during which no switch is made
  int switchBackMargin;  // extra score needed to return to the previous state
  double fullScale;      // pixel full scale in DN
  double noiseFloor;     // pixel level in DN at or below which a line is masked
  double clipFraction;   // fraction of full scale at or above which a line is masked
  double minVisibility;  // least |sin(phase advance / 2)| for temporal evidence
  int switchScore;       // score (0..100) needed to switch
  int searchRange;       // statistics lines analysed from the top, 0 = all
  int minPastFrames;     // consistent detections needed before a switch
  int maxPastFrames;     // detections kept in the history
};

class AlgoTuning {
 public:
  // Knobs of the record; `adjusted`, when given, receives the number of words
  // that were out of range and clamped.
  static AlgoKnobs decode(const FlickerExtPara& para, int* adjusted = nullptr);

  // The record as the algorithm reads it, in record units: zero words of the
  // knobs replaced by their defaults, out-of-range words clamped, unused
  // words as given. decode() scales these words; tools compare them with
  // what they wrote to tell a user that a value was clamped.
  static FlickerExtPara effective(const FlickerExtPara& para, int* adjusted = nullptr);

  // Knobs of an all-zero record: every default.
  static AlgoKnobs defaults();
};

}  // namespace open_algo
