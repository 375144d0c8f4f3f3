// Slow path of the verdict: weak evidence for the ripple that is not applied,
// accumulated across pairs against the cancelled probe.
//
// When the exposure integrates whole periods of the applied ripple, that
// ripple's column of the difference holds only scene texture and motion, which
// enter the other ripple's column alike: the cancelled column is a probe that
// calibrates the other one (the decider offers only a 100 Hz probe: motion
// shows more at the longer band period, which would favour 100 Hz against a
// 120 Hz probe). Under a pan a small ripple (1..4 %) stays under
// the vote level in every single pair, yet beats the probe pair after pair.
// The comparison keeps, per recent detection, the temporal SNR and amplitude
// of the other ripple and of the probe, and backs the other ripple when the
// newest samples agree on it: a sign-test majority, a mean SNR^2 margin, and
// the amplitude and dominance a vote would need. Samples fall out after a few
// history lengths, so a stale run cannot switch.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <array>
#include <cstdint>

#include "algo_tuning.h"

namespace open_algo {

// One pair's view of the ripple that is not applied and of the probe.
struct ProbeSample {
  bool valid;         // the pair could compare the two (see StateDecider::probeSample)
  int8_t ripple;      // the ripple not applied: 0 = 100 Hz, 1 = 120 Hz
  float snr;          // its temporal SNR
  float probeSnr;     // temporal SNR of the probe column
  float amplitude;    // its frame ripple estimated from the difference, log units
  float probeRipple;  // the probe as the difference shows it, on the same scale
};

class ProbeComparison {
 public:
  // Newest samples that take part in a verdict.
  static constexpr int kPairs = 6;
  // Detections a sample stays usable: a run needs kPairs valid samples among
  // the newest kSpan detections.
  static constexpr int kSpan = 3 * kPairs;

  void clear() { count_ = 0; }
  // Records one detection; an invalid sample ages the others.
  void push(const ProbeSample& sample);
  // True when the newest kPairs valid samples back `ripple` against the
  // probe; `banding` then receives their mean amplitude.
  bool backs(int ripple, const AlgoKnobs& knobs, double* banding) const;

 private:
  std::array<ProbeSample, kSpan> ring_{};
  int next_ = 0;
  int count_ = 0;
};

}  // namespace open_algo
