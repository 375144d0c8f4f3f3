// Scene textures: a piecewise-constant scene is flat patches with sharp
// edges (a line either equals the one above or steps clearly), where a
// natural texture changes a little from every line to the next.
#include "sim_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace flicker_sim {
namespace {

constexpr double kRounding = 1e-9;

TEST(SimSceneTest, LineStepsAreFlatOrSharp) {
  struct Row {
    const char* what;
    SimTexture texture;
    double mostFlatShare;   // at least this share of line steps is flat
    double leastFlatShare;  // and at most this share
    double smallestStep;    // every non-zero step is at least this (relative)
  } rows[] = {
      // Patches span tens of lines of a 3000-line frame; the steps between
      // two pieces of one window are at least a few per cent (a window covers
      // pieces over a share of its width, so a step may be smaller than two
      // whole pieces differ).
      {"piecewise", SimTexture::kPiecewise, 0.9, 1.0, 1e-3},
      // A natural texture blends map rows: nearly every step is non-zero.
      {"natural", SimTexture::kNatural, 0.0, 0.05, 0.0},
  };
  for (const Row& c : rows) {
    SCOPED_TRACE(c.what);
    SimSceneParams params;
    params.texture = c.texture;
    const SimScene scene(params, 21);
    constexpr int kLines = 3000;
    int flat = 0;
    double smallest = 1e9;
    double previous[6];
    for (int k = 0; k < kLines; ++k) {
      double mean[6];
      double variance[6];
      scene.sampleWindows(0.0, (k + 0.5) / kLines, 0.0, 1.0 / 6.0, 6, mean, variance);
      for (int i = 0; k > 0 && i < 6; ++i) {
        // Prefix sums of two rows that agree over a window still differ by
        // rounding: a step under kRounding is flat.
        const double step = std::fabs(mean[i] - previous[i]) / previous[i];
        flat += step < kRounding ? 1 : 0;
        smallest = step < kRounding ? smallest : std::min(smallest, step);
      }
      std::copy(mean, mean + 6, previous);
    }
    const double share = flat / (6.0 * (kLines - 1));
    EXPECT_GE(share, c.mostFlatShare);
    EXPECT_LE(share, c.leastFlatShare);
    EXPECT_GE(smallest, c.smallestStep);
  }
}

}  // namespace
}  // namespace flicker_sim
