// The window-sum model must behave like a sensor: photon-transfer variance,
// saturation at full scale, and the clipped mean of a spread of pixel values.
#include "sim_pixel_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "sim_random.h"

namespace flicker_sim {
namespace {

constexpr int kPixels = 666;
constexpr int kDraws = 3000;

struct Moments {
  double mean;
  double variance;
};

Moments drawSums(const SimPixelModel& model, double meanE, double spreadE2, double gain,
                 SimRandom* rng) {
  double sum = 0.0;
  double sumSq = 0.0;
  for (int i = 0; i < kDraws; ++i) {
    const double v = static_cast<double>(model.windowSum(meanE, spreadE2, kPixels, gain, rng));
    sum += v;
    sumSq += v * v;
  }
  const double mean = sum / kDraws;
  return {mean, sumSq / kDraws - mean * mean};
}

class PhotonTransferTest : public ::testing::TestWithParam<double> {};

// Per pixel, the temporal variance grows with the mean by the conversion
// gain (DN per electron), and the read noise sets the floor.
TEST_P(PhotonTransferTest, VarianceGrowsWithTheMeanByTheConversionGain) {
  const double gain = GetParam();
  const SimPixelModel model(SimPixelSpec{});
  SimRandom rng(11);
  std::vector<double> means;
  std::vector<double> variances;
  for (double meanE : {50.0, 200.0, 500.0, 1000.0, 1500.0}) {
    const Moments m = drawSums(model, meanE / gain, 0.0, gain, &rng);
    means.push_back(m.mean / kPixels);
    variances.push_back(m.variance / kPixels);
  }
  // Least-squares line through (mean, variance) per pixel.
  const double n = static_cast<double>(means.size());
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (size_t i = 0; i < means.size(); ++i) {
    sx += means[i];
    sy += variances[i];
    sxx += means[i] * means[i];
    sxy += means[i] * variances[i];
  }
  const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  const SimPixelSpec spec;
  const double conversion = gain * spec.maxDn / spec.fullWellE;
  const double readDn = conversion * spec.readNoiseE;
  EXPECT_NEAR(slope / conversion, 1.0, 0.06);
  // In the dark the read noise (and the rounding to whole numbers) remains.
  const double darkE = 2.0;
  const Moments dark = drawSums(model, darkE, 0.0, gain, &rng);
  const double floor = conversion * conversion * darkE + readDn * readDn + 1.0 / 12.0;
  EXPECT_NEAR(dark.variance / kPixels / floor, 1.0, 0.08);
}

// Unit gain, and the gains where read noise and shot noise both scale up.
INSTANTIATE_TEST_SUITE_P(Gains, PhotonTransferTest, ::testing::Values(1.0, 2.0, 4.0));

TEST(SimPixelModelTest, SumsSaturateAtFullScaleAndLoseTheirNoise) {
  const SimPixelModel model(SimPixelSpec{});
  SimRandom rng(5);
  const double fullScaleSum = static_cast<double>(kPixels) * model.spec().maxDn;
  double previous = -1.0;
  // Exposure levels from half to three times the full well.
  for (double fraction : {0.5, 0.8, 0.95, 1.0, 1.1, 1.5, 3.0}) {
    const Moments m = drawSums(model, fraction * model.spec().fullWellE, 0.0, 1.0, &rng);
    EXPECT_GT(m.mean, previous) << fraction;  // brighter never reads darker
    EXPECT_LE(m.mean, fullScaleSum + 1.0) << fraction;
    previous = m.mean - 1.0;  // saturated sums may tie
    if (fraction >= 1.5) {
      EXPECT_NEAR(m.mean, fullScaleSum, 1.0) << fraction;
      EXPECT_LT(m.variance, 1.0) << fraction;
    }
  }
}

// A textured window whose mean is below full scale still loses its brightest
// pixels to saturation: the closed form must agree with sampling.
TEST(SimPixelModelTest, ClippedMeanAgreesWithSampledPixels) {
  struct Case {
    double mean;
    double sigma;
  };
  const Case cases[] = {
      {500.0, 100.0},   // far from the clip: unchanged
      {900.0, 150.0},   // a tail clipped
      {1023.0, 200.0},  // half clipped
      {1500.0, 300.0},  // mostly clipped
  };
  SimRandom rng(17);
  for (const Case& c : cases) {
    double sampled = 0.0;
    double below = 0.0;
    const int samples = 200000;
    for (int i = 0; i < samples; ++i) {
      const double x = c.mean + c.sigma * rng.gaussian();
      sampled += std::min(x, 1023.0);
      below += x < 1023.0 ? 1.0 : 0.0;
    }
    double belowClip = 0.0;
    const double closed = SimPixelModel::clippedMean(c.mean, c.sigma * c.sigma, 1023.0, &belowClip);
    EXPECT_NEAR(closed, sampled / samples, 1.5) << c.mean;
    EXPECT_NEAR(belowClip, below / samples, 0.005) << c.mean;
  }
}

TEST(SimPixelModelTest, EmptyOrDarkWindows) {
  const SimPixelModel model(SimPixelSpec{});
  SimRandom rng(1);
  EXPECT_EQ(model.windowSum(100.0, 0.0, 0, 1.0, &rng), 0);
  for (int i = 0; i < 100; ++i) {
    EXPECT_GE(model.windowSum(-5.0, 0.0, 10, 1.0, &rng), 0);
  }
}

}  // namespace
}  // namespace flicker_sim
