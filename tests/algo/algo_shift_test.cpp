// The vertical shift of a scene between two frames whose bands stand still on
// the sensor's lines: the edges of the scene tell the shift (a band pattern,
// however deep, must not), and the frame binned again that many lines on,
// with the rest of the shift removed, lines its scene up with the other
// frame's, so that the difference keeps no more than the noise. Frames are
// synthesised here for piecewise-constant scenes (flat patches, sharp edges),
// fine texture and a shaded wall without edges, under ripples of 0 to 35 %.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "algo_tuning.h"
#include "line_binner.h"
#include "ripple_least_squares.h"
#include "shift_estimator.h"
#include "window_combiner.h"

namespace open_algo {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kWindows = kMaxWindows;
constexpr int kWinWidth = 600;
constexpr int kLines = 2952;  // 4000 x 3000 at 10 us lines: 8-line sub-bins, 70-line bins
constexpr double kLineTime = 10e-6;
constexpr int kMargin = 400;  // scene lines beyond the frame on either side

enum class Texture { kPiecewise, kFine, kWall };

struct ShiftCase {
  const char* name;
  Texture texture;
  int shift;      // lines frame 1's scene lies further down than frame 0's
  double ripple;  // depth of a 100 Hz ripple that stands still on the sensor
};

// A frame's bands: a lamp of 35 % and one of 8 % under a 16.7 ms exposure
// (which keeps a sixth of a 100 Hz ripple), and a 35 % lamp under a short one.
constexpr double kDeep = 0.06;
constexpr double kWeak = 0.013;
constexpr double kRaw = 0.35;

// Reflectance of window w's column of the scene at scene line u.
class Scene {
 public:
  Scene(Texture texture, uint32_t seed) : texture_(texture), state_(seed) {
    for (int w = 0; w < kWindows; ++w) {
      double level = next(0.3, 1.0);
      int edge = 0;
      for (int u = 0; u < kLines + 2 * kMargin; ++u) {
        if (u == edge) {
          level = next(0.3, 1.0);
          edge += static_cast<int>(next(30.0, 220.0));
        }
        pieces_[w].push_back(level);
      }
      // Fine texture: noise smoothed over about ten lines, a sub-bin or so.
      double smooth = 0.6;
      for (int u = 0; u < kLines + 2 * kMargin; ++u) {
        smooth += 0.1 * (next(0.2, 1.0) - smooth);
        fine_[w].push_back(smooth);
      }
    }
  }

  double at(int w, int u) const {
    switch (texture_) {
      case Texture::kPiecewise:
        return pieces_[w][index(u)];
      case Texture::kFine:
        return fine_[w][index(u)];
      case Texture::kWall:
        break;
    }
    return 0.6 * (1.0 + 0.3 * std::cos(kPi * u / kLines)) * (1.0 + 0.05 * w);
  }

 private:
  // Scene line u (from -kMargin) in the stored profiles.
  static size_t index(int u) {
    const int stored = u + kMargin;
    return static_cast<size_t>(stored);
  }

  double next(double lo, double hi) {
    state_ = state_ * 1664525u + 1013904223u;
    return lo + (hi - lo) * (state_ >> 8) / 16777216.0;
  }

  Texture texture_;
  uint32_t state_;
  std::vector<double> pieces_[kWindows];
  std::vector<double> fine_[kWindows];
};

// A frame of the scene moved `shift` lines down, under bands fixed on the
// sensor's lines.
std::vector<int64_t> frameOf(const Scene& scene, int shift, double ripple) {
  std::vector<int64_t> frame(static_cast<size_t>(kLines) * kWindows);
  for (int y = 0; y < kLines; ++y) {
    const double light = 1.0 + ripple * std::cos(2.0 * kPi * 100.0 * y * kLineTime + 0.7);
    for (int w = 0; w < kWindows; ++w) {
      const double level = 300.0 * light * scene.at(w, y - shift);
      frame[static_cast<size_t>(y) * kWindows + w] = std::llround(level * kWinWidth);
    }
  }
  return frame;
}

class ShiftTest : public ::testing::TestWithParam<ShiftCase> {};

TEST_P(ShiftTest, EdgesTellTheShiftAndLiningUpCancelsTheScene) {
  const ShiftCase& c = GetParam();
  const Scene scene(c.texture, 12345u);
  const std::vector<int64_t> f0 = frameOf(scene, 0, c.ripple);
  const std::vector<int64_t> f1 = frameOf(scene, c.shift, c.ripple);
  const AlgoKnobs knobs = AlgoTuning::defaults();
  const PairInput in{{f0.data(), f1.data()}, kLines, kWindows, kWinWidth, kLineTime, 0.02, 0.04};
  LineBinner binner;
  ASSERT_TRUE(binner.plan(in, 0, 14, 0.5));
  binner.planSubBins(in, 0);
  binner.bin(in, knobs, 0);
  binner.bin(in, knobs, 1);
  ShiftEstimator estimator;
  int lines = 0;
  const bool matched = estimator.matchEdges(binner, kWindows, 0, 1, 0, 16, &lines);
  if (c.texture == Texture::kWall) {
    // Without edges only the bands and the shading are left, which stand
    // still or are smooth: no shift may be read from them.
    EXPECT_TRUE(!matched || lines == 0) << lines;
    return;
  }
  ASSERT_TRUE(matched);
  EXPECT_LE(std::abs(lines - c.shift), binner.subLines() / 2 + 1) << lines;

  // Frame 1 binned `lines` on against frame 0: the scene cancels once the
  // rest of the shift is removed, and what the difference's model leaves is
  // noise-free rounding, whatever the bands left.
  binner.bin(in, knobs, 1, LineBinner::kShifted, lines);
  binner.buildDifference(kWindows, LineBinner::kLong, 0, LineBinner::kShifted);
  RippleLeastSquares fitter;
  fitter.setLayout(binner.bins(), binner.binLines(), kLineTime);
  const int model = RippleLeastSquares::modelKey(false, kFundamentals);
  ASSERT_TRUE(fitter.usable(model));
  estimator.removeShift(binner, fitter, model, kWindows, LineBinner::kLong, 0,
                        LineBinner::kShifted);
  WindowFit fits[kWindows];
  int kept = binner.bins();
  for (int w = 0; w < kWindows; ++w) {
    ASSERT_TRUE(fitter.fit(binner.profile(LineBinner::kLong, w), binner.kept(LineBinner::kLong, w),
                           model, &fits[w]));
    kept = std::min<int>(kept, std::count(binner.kept(LineBinner::kLong, w),
                                          binner.kept(LineBinner::kLong, w) + binner.bins(), 1));
  }
  EXPECT_LT(WindowCombiner::medianSigma(fits, kWindows), 0.002);
  // Only the bins the shift moved beyond the frame are lost.
  EXPECT_GE(kept, binner.bins() - std::abs(lines) / binner.binLines() - 2);
}

// The reference's edges are kept between detections: a reference kept anew
// must be matched as it is now, not as it was.
TEST(ShiftReference, EdgesFollowAReferenceKeptAnew) {
  const Scene scene(Texture::kPiecewise, 777u);
  const std::vector<int64_t> f0 = frameOf(scene, 0, kWeak);
  const std::vector<int64_t> f1 = frameOf(scene, 30, kWeak);
  const std::vector<int64_t> f2 = frameOf(scene, 75, kWeak);
  const AlgoKnobs knobs = AlgoTuning::defaults();
  const PairInput first{{f0.data(), f1.data()}, kLines, kWindows, kWinWidth, kLineTime, 0.02, 0.04};
  const PairInput second{
      {f1.data(), f2.data()}, kLines, kWindows, kWinWidth, kLineTime, 0.02, 0.04};
  LineBinner binner;
  ASSERT_TRUE(binner.plan(first, 0, 14, 0.5));
  binner.planSubBins(first, 0);
  ShiftEstimator estimator;
  const int tolerance = binner.subLines() / 2 + 1;
  int lines = 0;

  binner.bin(first, knobs, 0);
  binner.keepReference(0, kWindows);
  binner.bin(first, knobs, 1);
  ASSERT_TRUE(estimator.matchEdges(binner, kWindows, LineBinner::kReference, 1, 0, 16, &lines));
  EXPECT_LE(std::abs(lines - 30), tolerance) << lines;

  // The same reference against the next frame.
  binner.bin(second, knobs, 1);
  ASSERT_TRUE(estimator.matchEdges(binner, kWindows, LineBinner::kReference, 1, 0, 16, &lines));
  EXPECT_LE(std::abs(lines - 75), tolerance) << lines;

  // Renewed from the frame 30 lines down.
  binner.bin(second, knobs, 0);
  binner.keepReference(0, kWindows);
  ASSERT_TRUE(estimator.matchEdges(binner, kWindows, LineBinner::kReference, 1, 0, 16, &lines));
  EXPECT_LE(std::abs(lines - 45), tolerance) << lines;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ShiftTest,
    ::testing::Values(ShiftCase{"piecewise_still_raw_bands", Texture::kPiecewise, 0, kRaw},
                      ShiftCase{"piecewise_3_lines_no_bands", Texture::kPiecewise, 3, 0.0},
                      ShiftCase{"piecewise_23_lines_weak_bands", Texture::kPiecewise, 23, kWeak},
                      ShiftCase{"piecewise_up_41_lines_deep_bands", Texture::kPiecewise, -41,
                                kDeep},
                      ShiftCase{"piecewise_95_lines_deep_bands", Texture::kPiecewise, 95, kDeep},
                      ShiftCase{"fine_texture_17_lines_weak_bands", Texture::kFine, 17, kWeak},
                      ShiftCase{"fine_texture_up_60_lines_deep_bands", Texture::kFine, -60, kDeep},
                      ShiftCase{"wall_raw_bands", Texture::kWall, 30, kRaw},
                      ShiftCase{"wall_still_weak_bands", Texture::kWall, 0, kWeak}),
    [](const ::testing::TestParamInfo<ShiftCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace open_algo
