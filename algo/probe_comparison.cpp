#include "probe_comparison.h"

#include <algorithm>

namespace open_algo {
namespace {

// Sign test: of kPairs samples at least this many show the ripple above the
// probe (5 of 6 by chance: 11 % for independent pairs; a pan correlates them,
// hence the margins below).
constexpr int kMinWins = 5;
// Mean SNR^2 of the ripple over the probe's: at least this much more, and
// this many times as much (noise alone gives about 1.5 in both).
constexpr double kSnr2Margin = 4.0;
constexpr double kSnr2Ratio = 5.0;
// Of kPairs samples at least this many show the ripple at the dominance
// ratio over the probe, as a vote would.
constexpr int kMinDominant = 4;
// The mean amplitude must reach this many times the minimum amplitude, and at
// least this much: a panned grating's leftover texture stays under it.
constexpr double kAmplitudeFactor = 2.5;
constexpr double kMinBanding = 0.01;

}  // namespace

void ProbeComparison::push(const ProbeSample& sample) {
  ring_[next_] = sample;
  next_ = (next_ + 1) % kSpan;
  count_ = std::min(count_ + 1, kSpan);
}

bool ProbeComparison::backs(int ripple, const AlgoKnobs& knobs, double* banding) const {
  int n = 0;
  int wins = 0;
  int dominant = 0;
  double snr2 = 0.0;
  double probeSnr2 = 0.0;
  double amplitude = 0.0;
  double probeRipple = 0.0;
  for (int age = 0; age < count_ && n < kPairs; ++age) {
    const ProbeSample& s = ring_[(next_ - 1 - age + kSpan) % kSpan];
    if (!s.valid) {
      continue;
    }
    if (s.ripple != ripple) {
      return false;
    }
    ++n;
    wins += s.snr > s.probeSnr ? 1 : 0;
    dominant += s.amplitude >= knobs.dominance * s.probeRipple ? 1 : 0;
    snr2 += static_cast<double>(s.snr) * s.snr;
    probeSnr2 += static_cast<double>(s.probeSnr) * s.probeSnr;
    amplitude += s.amplitude;
    probeRipple += s.probeRipple;
  }
  if (n < kPairs || wins < kMinWins || dominant < kMinDominant) {
    return false;
  }
  snr2 /= n;
  probeSnr2 /= n;
  amplitude /= n;
  probeRipple /= n;
  const bool clear = snr2 >= probeSnr2 + kSnr2Margin && snr2 >= kSnr2Ratio * probeSnr2;
  const bool large = amplitude >= std::max(kMinBanding, kAmplitudeFactor * knobs.minAmplitude) &&
                     amplitude >= knobs.dominance * probeRipple;
  if (!clear || !large) {
    return false;
  }
  *banding = amplitude;
  return true;
}

}  // namespace open_algo
