// The pair analysis on its own: ripple amplitudes against the rolling-shutter
// model's closed form, sign-agnostic temporal evidence, frozen phases.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "algo_tuning.h"
#include "ripple_analyzer.h"
#include "stats_pair_builder.h"

namespace algo_test {
namespace {

using open_algo::PairEvidence;
using open_algo::PairInput;
using open_algo::RippleAnalyzer;

constexpr double kPi = 3.14159265358979323846;
// Bin averaging and the log's curvature cost a few per cent of amplitude.
constexpr double kAmplitudeTolerance = 0.06;

struct Analysed {
  PairEvidence ev;
  bool ok;
};

Analysed analyse(double mainsHz, double exposure, double interval, bool swapSlots,
                 int searchRange = 0) {
  Light light;
  light.mainsHz = mainsHz;
  Sensor sensor;
  StatsPairBuilder b(sensor, light);
  const auto f0 = b.frame(0.0, exposure, StatsPairBuilder::textured(), 0);
  const auto f1 = b.frame(interval, exposure, StatsPairBuilder::textured(), 1);
  PairInput in{};
  in.frame[0] = swapSlots ? f1.data() : f0.data();
  in.frame[1] = swapSlots ? f0.data() : f1.data();
  in.lines = sensor.lines;
  in.windows = sensor.windows;
  in.winWidth = sensor.winWidth;
  in.lineTime = sensor.lineTime;
  in.exposure = exposure;
  in.interval = interval;
  open_algo::AlgoKnobs knobs = open_algo::AlgoTuning::defaults();
  knobs.searchRange = searchRange;
  static RippleAnalyzer analyzer;  // large: keep it off the stack
  Analysed a{};
  a.ok = analyzer.analyse(in, knobs, &a.ev);
  return a;
}

double expectedRipple(double mainsHz, double exposure) {
  const double x = 2.0 * mainsHz * exposure;
  return Light{}.modulation * std::fabs(std::sin(kPi * x) / (kPi * x));
}

TEST(RippleAnalyzer, AmplitudesMatchTheModel) {
  struct Row {
    double mainsHz;
    double exposure;
  } rows[] = {
      {60, 2e-3},   // short exposure: strong ripple
      {60, 10e-3},  // 10 ms leaves 16 % of the 120 Hz ripple
      {50, 5e-3},
      {50, 8.333e-3},  // 8.33 ms leaves 19 % of the 100 Hz ripple
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.mainsHz << " Hz, " << row.exposure);
    const Analysed a = analyse(row.mainsHz, row.exposure, 36e-3, false);
    ASSERT_TRUE(a.ok);
    const int present = row.mainsHz == 50 ? 0 : 1;
    const double expected = expectedRipple(row.mainsHz, row.exposure);
    EXPECT_NEAR(a.ev.temporalAmplitude[present], expected, kAmplitudeTolerance * expected);
    EXPECT_NEAR(a.ev.spatialAmplitude[present], expected, kAmplitudeTolerance * expected);
    EXPECT_LT(a.ev.temporalAmplitude[1 - present], 0.05 * expected);  // no leakage
    EXPECT_GT(a.ev.temporalEvidence[present], 0.9);
    EXPECT_LT(a.ev.temporalEvidence[1 - present], 0.1);
  }
}

// Swapping the slots reverses the phase advance; the evidence is the same.
TEST(RippleAnalyzer, TemporalEvidenceIgnoresTheSlotOrder) {
  const Analysed forward = analyse(60, 5e-3, 36e-3, false);
  const Analysed backward = analyse(60, 5e-3, 36e-3, true);
  EXPECT_NEAR(forward.ev.temporalAmplitude[1], backward.ev.temporalAmplitude[1], 1e-6);
  EXPECT_NEAR(forward.ev.temporalEvidence[1], backward.ev.temporalEvidence[1], 1e-6);
}

TEST(RippleAnalyzer, FrozenPhases) {
  struct Row {
    double interval;
    bool frozen100;
    bool frozen120;
  } rows[] = {
      {1.0 / 30.0, false, true},  // 30 fps: 120 Hz advances four whole turns
      {1.0 / 25.0, true, false},  // 25 fps: 100 Hz advances four whole turns, 120 Hz 4.8
      {36e-3, false, false},      // 27.8 fps: both move
      {0.0, true, true},          // the same instant
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.interval);
    const Analysed a = analyse(60, 5e-3, row.interval, false);
    EXPECT_EQ(a.ev.frozen[0], row.frozen100);
    EXPECT_EQ(a.ev.frozen[1], row.frozen120);
    if (row.frozen120) {
      EXPECT_EQ(a.ev.temporalEvidence[1], 0.0);
    }
  }
}

// The search range limits the analysed lines (10 us each): too few lines for
// a band fit, or a readout under one 100 Hz period, make the pair
// unanalysable.
TEST(RippleAnalyzer, SearchRangeLimitsTheLines) {
  struct Row {
    int range;
    bool ok;
  } rows[] = {
      {0, true},      // every line: 29.5 ms
      {2000, true},   // 20 ms
      {1100, true},   // 11 ms: just over one 100 Hz period
      {1000, false},  // 14 bins of 69 lines, 9.7 ms: under one 100 Hz period
      {10, false},    // far too few lines for the bins
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.range);
    EXPECT_EQ(analyse(60, 5e-3, 36e-3, false, row.range).ok, row.ok);
  }
}

}  // namespace
}  // namespace algo_test
