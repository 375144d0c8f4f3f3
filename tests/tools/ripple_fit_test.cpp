// The tool's own band fit of a statistics pair recovers a known ripple.
#include <gtest/gtest.h>

#include <cmath>

#include "ripple_fit.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kLineTimeS = 31.25e-6;
constexpr int kLines = 960;
constexpr double kTolerance = 0.002;  // of the amplitude, in log units

// A pair whose later frame carries `depth` of ripple at `hz` relative to the
// earlier one, over a textured scene that the ratio cancels.
flicker_loop::PairStats pair(double hz, double depth) {
  flicker_loop::PairStats p;
  p.valid = true;
  p.lineTimeS = kLineTimeS;
  for (int k = 0; k < kLines; ++k) {
    const double t = k * kLineTimeS;
    for (int w = 0; w < 6; ++w) {
      const double scene = 40000.0 * (1.0 + 0.3 * std::sin(0.05 * k + w));
      p.earlier.push_back(static_cast<int64_t>(scene));
      p.later.push_back(
          static_cast<int64_t>(scene * std::exp(depth * std::cos(2 * kPi * hz * t + 0.7))));
    }
  }
  return p;
}

struct FitCase {
  double hz;
  double depth;
  double expect100;
  double expect120;
};

class RippleFitTest : public ::testing::TestWithParam<FitCase> {};

TEST_P(RippleFitTest, RecoversTheBandAndNotTheOther) {
  const FitCase& c = GetParam();
  const flicker_loop::RippleFit fit = flicker_loop::RippleFit::of(pair(c.hz, c.depth));
  ASSERT_TRUE(fit.valid);
  EXPECT_NEAR(fit.amplitude100, c.expect100, kTolerance);
  EXPECT_NEAR(fit.amplitude120, c.expect120, kTolerance);
  EXPECT_LE(fit.timeMs.size(), 240u);
  EXPECT_EQ(fit.ratio.size(), fit.timeMs.size());
}

INSTANTIATE_TEST_SUITE_P(Table, RippleFitTest,
                         ::testing::Values(
                             // 100 Hz bands only.
                             FitCase{100.0, 0.05, 0.05, 0.0},
                             // 120 Hz bands only.
                             FitCase{120.0, 0.03, 0.0, 0.03},
                             // No ripple.
                             FitCase{100.0, 0.0, 0.0, 0.0}));

TEST(RippleFitInputTest, RefusesPairsItCannotRead) {
  flicker_loop::PairStats p = pair(100.0, 0.05);
  p.later.pop_back();  // the two frames differ in size
  EXPECT_FALSE(flicker_loop::RippleFit::of(p).valid);
  flicker_loop::PairStats empty;
  EXPECT_FALSE(flicker_loop::RippleFit::of(empty).valid);
  flicker_loop::PairStats noTiming = pair(100.0, 0.05);
  noTiming.lineTimeS = 0;
  EXPECT_FALSE(flicker_loop::RippleFit::of(noTiming).valid);
}

}  // namespace
