// The slow path's comparison of the ripple that is not applied with the
// cancelled probe column, sample by sample.
#include <gtest/gtest.h>

#include <vector>

#include "algo_tuning.h"
#include "probe_comparison.h"

namespace open_algo {
namespace {

// A pan's typical pair under a 1.25 % ripple: 120 Hz at SNR 2.5 against a
// probe at 0.7, 1.2 % against 0.4 %.
constexpr ProbeSample kLeaning{true, 1, 2.5f, 0.7f, 0.012f, 0.004f};
constexpr ProbeSample kNone{};

ProbeSample with(ProbeSample s, float snr, float probeSnr, float amplitude, float probeRipple) {
  s.snr = snr;
  s.probeSnr = probeSnr;
  s.amplitude = amplitude;
  s.probeRipple = probeRipple;
  return s;
}

std::vector<ProbeSample> repeat(const ProbeSample& s, int n) {
  return std::vector<ProbeSample>(static_cast<size_t>(n), s);
}

std::vector<ProbeSample> operator+(std::vector<ProbeSample> a, const std::vector<ProbeSample>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(ProbeComparison, BacksOnlyAConsistentClearRun) {
  const ProbeSample losing = with(kLeaning, 0.5f, 0.9f, 0.003f, 0.006f);
  const ProbeSample otherRipple = with(kLeaning, 2.5f, 0.7f, 0.012f, 0.004f);
  ProbeSample other = otherRipple;
  other.ripple = 0;
  struct Row {
    const char* what;
    std::vector<ProbeSample> samples;  // oldest first
    bool backs120;
  } rows[] = {
      {"six leaning pairs", repeat(kLeaning, 6), true},
      {"frozen pairs in between are passed over",
       repeat(kLeaning, 3) + repeat(kNone, 2) + repeat(kLeaning, 3), true},
      {"one pair short", repeat(kLeaning, 5), false},
      // Sign test: 4 of 6 is what a correlated pan without flicker reaches.
      {"two of six lose", repeat(losing, 2) + repeat(kLeaning, 4), false},
      {"one of six loses", repeat(losing, 1) + repeat(kLeaning, 5), true},
      // Wins every pair, but SNR^2 2.6 against 0.8 is no margin.
      {"small SNR margin", repeat(with(kLeaning, 1.6f, 0.9f, 0.012f, 0.004f), 6), false},
      // A panned grating's leftover: clear SNR, 0.6 % amplitude.
      {"under the amplitude", repeat(with(kLeaning, 4.0f, 0.7f, 0.006f, 0.002f), 6), false},
      // A lamp that the exposure does not quite cancel leaks into both.
      {"not dominant", repeat(with(kLeaning, 4.0f, 0.7f, 0.012f, 0.007f), 6), false},
      // The run is older than the span: stale evidence never switches.
      {"stale run", repeat(kLeaning, 6) + repeat(kNone, ProbeComparison::kSpan - 5), false},
      {"newest run within the span",
       repeat(kLeaning, 6) + repeat(kNone, ProbeComparison::kSpan - 6), true},
      {"a sample for the other ripple breaks the run",
       repeat(kLeaning, 5) + repeat(other, 1) + repeat(kLeaning, 5), false},
  };
  const AlgoKnobs knobs = AlgoTuning::defaults();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ProbeComparison p;
    for (const ProbeSample& s : row.samples) {
      p.push(s);
    }
    double banding = -1.0;
    EXPECT_EQ(p.backs(1, knobs, &banding), row.backs120);
    if (row.backs120) {
      EXPECT_GE(banding, 0.0099);  // the run's mean amplitude
    }
    EXPECT_FALSE(p.backs(0, knobs, &banding));  // never the probe's own ripple
    p.clear();
    EXPECT_FALSE(p.backs(1, knobs, &banding));
  }
}

}  // namespace
}  // namespace open_algo
