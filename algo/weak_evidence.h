// Weak-evidence path of the verdict: a shallow ripple of the frequency not
// applied, steady over a few pairs, none of which reaches the vote level.
//
// A 2 % lamp under an exposure on whole periods of the other ripple leaves
// 0.1 to 0.4 % of banding in the frames. Pooled over the statistics lines it
// stands well above the sensor noise, but hand shake, a vertical drift and a
// short readout keep each pair's evidence near the SNR threshold, and the
// windows' agreement wavers from pair to pair: the votes of consecutive pairs
// rarely line up. What sets such a lamp apart from texture and motion is that
// it stays: its ripple is seen pair after pair at about the same amplitude,
// while the applied ripple, cancelled by the exposure, cannot explain it.
//
// Each detection gives a sample of the ripple that is not applied: backing
// (significant, windows agreeing, above the shift's leak, in the range of a
// weak lamp, dominant over the cancelled column), neutral, against (the pair
// could show the ripple and did not), a break (a scene change), or an
// abstention (the pair could not show it: frozen phase, nothing fitted).
// The newest samples back the ripple when enough of them do, one of them
// firmly (clear of the shift's leak and of a smooth pattern by the full
// margins; the others only repeat its banding), their SNRs combine (each
// capped, so one clear pair cannot decide alone) to a clear total, their
// amplitudes agree, and at most one pair spoke against it.
// A clean look ends the run only when it measured precisely enough to show
// the banding the run shows: under hand shake every other pair may carry a
// line of motion, and a ripple that stands two standard errors in it was
// neither seen nor missed there. Any other pair ends it when it measured the
// ripple three of its standard errors short of the run's banding: a lamp's
// banding stays from pair to pair, chance fits of noise and texture do not.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <array>
#include <cstdint>

#include "algo_tuning.h"
#include "pair_evidence.h"

namespace open_algo {

struct WeakSample {
  enum Kind : int8_t { kAbstains = 0, kBacks, kNeutral, kAgainst, kBreak };
  int8_t kind;
  int8_t ripple;    // the ripple not applied: 0 = 100 Hz, 1 = 120 Hz
  float snr;        // its temporal SNR
  float amplitude;  // its frame ripple estimated from the difference, log units
  float error;      // standard error of that amplitude (0: none measured)
  // The applied ripple stood still between the frames: nothing it leaves can
  // show in the difference, so a pair that could show the ripple must.
  bool clean;
  // A backing pair that stands clear of the shift's leak and of a smooth
  // pattern by the full margins; the others only corroborate its banding.
  bool firm;
};

class WeakEvidence {
 public:
  // Samples that did not abstain taking part in a verdict.
  static constexpr int kPairs = 6;
  // Detections a sample stays usable.
  static constexpr int kSpan = 3 * kPairs;

  // The pair's sample for the ripple not applied (`applied` a frequency
  // code), `rival` the amplitude that ripple must dominate in a vote.
  static WeakSample sampleOf(const PairEvidence& ev, int applied, double rival,
                             const AlgoKnobs& knobs);

  void clear() { count_ = 0; }
  void push(const WeakSample& sample);
  // True when the newest samples back `ripple`; `banding` then receives the
  // mean amplitude of the backing samples.
  bool backs(int ripple, double* banding) const;
  // A pair whose amplitude carries the standard error `error` was precise
  // enough to show `banding`: it would stand three such errors there.
  static bool couldShow(double banding, double error);
  // A pair that did not back the ripple missed the run's `banding`: a clean
  // look precise enough to show it, or any pair that measured it three of
  // its standard errors short.
  static bool missed(double banding, const WeakSample& s);

 private:
  std::array<WeakSample, kSpan> ring_{};
  int next_ = 0;
  int count_ = 0;
};

}  // namespace open_algo
