// The light and pixel models: closed-form light integrals must equal the
// integral of the waveform itself, the ground truth must name the flicker
// that matters, and window sums must have a sensor's noise and clipping.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "sim_light.h"
#include "sim_pixel_model.h"
#include "sim_random.h"
#include "sim_test_util.h"

namespace flicker_sim {
namespace {

using testing_util::lightOf;

struct LampCase {
  std::vector<SimLightComponent> lamps;
  int dominantHz;  // the ground truth: mains of a ripple deep enough to detect
};

const LampCase kLamps[] = {
    {{makeLightComponent(SimLightType::kIncandescent, 50.0, 1e5, 0.03, 0.3)}, 50},
    {{makeLightComponent(SimLightType::kMagneticFluorescent, 60.0, 1e5, -0.02)}, 60},
    {{makeLightComponent(SimLightType::kRectifiedLed, 50.0, 1e5, 0.0, 1.0)}, 50},
    // A good driver's 1 % ripple is not flicker to detect.
    {{makeLightComponent(SimLightType::kGoodLedDriver, 60.0, 1e5)}, 0},
    // PWM flickers, but not with the mains.
    {{makePwmLightComponent(437.0, 0.3, 1e5, 0.5)}, 0},
    {{makeLightComponent(SimLightType::kDaylight, 0.0, 1e5)}, 0},
    // Fluorescent ripple diluted ten times by daylight is still 3.5 % deep.
    {{makeLightComponent(SimLightType::kMagneticFluorescent, 60.0, 1e5),
      makeLightComponent(SimLightType::kDaylight, 0.0, 9e5)},
     60},
    // A segment without lamps is dark.
    {{}, 0},
};

// The closed-form integral equals the trapezoid integral of the waveform.
TEST(SimLightTest, ClosedFormIntegralAndGroundTruthPerLamp) {
  SimRandom rng(3);
  for (const LampCase& c : kLamps) {
    const auto light = lightOf(c.lamps);
    EXPECT_EQ(light->dominantMainsHz(1.0), c.dominantHz) << c.lamps.size();
    for (int trial = 0; trial < 5; ++trial) {
      const double t0 = rng.uniform(0.0, 10.0);
      const double h = rng.uniform(1e-4, 0.03) / 20000;
      double trapezoid = 0.5 * (light->intensity(t0) + light->intensity(t0 + 20000 * h));
      for (int i = 1; i < 20000; ++i) trapezoid += light->intensity(t0 + i * h);
      EXPECT_NEAR(light->integrate(t0, t0 + 20000 * h), trapezoid * h, 1e-4 * trapezoid * h)
          << c.dominantHz;
    }
  }
  const SimLight dark{SimLightParams{}};  // no segment at all
  EXPECT_EQ(dark.integrate(0.0, 1.0), 0.0);
  EXPECT_EQ(dark.dominantMainsHz(0.0), 0);
}

TEST(SimLightTest, LineIntegralsMatchPerLineIntegralsAcrossALightSwitch) {
  const SimLight light(SimLightParams{
      {{0.0, {makeLightComponent(SimLightType::kMagneticFluorescent, 50.0, 2e5, 0.01)}},
       {1.0, {makeLightComponent(SimLightType::kRectifiedLed, 60.0, 1e5, 0.0, 0.4)}}}});
  std::vector<double> lines(3000);
  // Frames before, across and after the switch at 1 s.
  for (double firstEnd : {0.5, 0.99, 1.003, 123.4}) {
    light.integrateLines(firstEnd, 10e-6, 7.3e-3, 3000, lines.data());
    for (int k = 0; k < 3000; k += 37) {
      const double end = firstEnd + k * 10e-6;
      EXPECT_NEAR(lines[k] / light.integrate(end - 7.3e-3, end), 1.0, 1e-9) << firstEnd << "/" << k;
    }
  }
  EXPECT_EQ(light.dominantMainsHz(0.99), 50);
  EXPECT_EQ(light.dominantMainsHz(1.01), 60);
}

constexpr int kPixels = 666;

struct Moments {
  double mean = 0.0;
  double variance = 0.0;
};

// Mean and variance of 3000 sums of a uniformly lit window.
Moments drawSums(const SimPixelModel& model, double meanE, double gain, SimRandom* rng) {
  Moments m;
  for (int i = 0; i < 3000; ++i) {
    const double v = static_cast<double>(model.windowSum(meanE, 0.0, kPixels, gain, rng));
    m.mean += v / 3000;
    m.variance += v * v / 3000;
  }
  m.variance -= m.mean * m.mean;
  return m;
}

class PhotonTransferTest : public ::testing::TestWithParam<double> {};

// Per pixel, the temporal variance grows with the mean by the conversion
// gain (DN per electron), and the read noise sets the floor in the dark.
TEST_P(PhotonTransferTest, VarianceGrowsWithTheMeanByTheConversionGain) {
  const double gain = GetParam();
  const SimPixelModel model(SimPixelParams{});
  const SimPixelParams& params = model.params();
  const double conversion = gain * params.maxDn / params.fullWellE;
  SimRandom rng(11);
  const Moments low = drawSums(model, 100.0 / gain, gain, &rng);
  const Moments high = drawSums(model, 1500.0 / gain, gain, &rng);
  const double slope = (high.variance - low.variance) / (high.mean - low.mean);
  EXPECT_NEAR(slope / conversion, 1.0, 0.08);
  const Moments dark = drawSums(model, 2.0, gain, &rng);
  // Shot noise of two electrons, read noise, and the rounding to whole DN.
  const double floor =
      conversion * conversion * (2.0 + params.readNoiseE * params.readNoiseE) + 1.0 / 12.0;
  EXPECT_NEAR(dark.variance / kPixels / floor, 1.0, 0.08);
}

// Unit gain, and gains where read noise and shot noise both scale up.
INSTANTIATE_TEST_SUITE_P(Gains, PhotonTransferTest, ::testing::Values(1.0, 2.0, 4.0));

TEST(SimPixelModelTest, SumsSaturateAtFullScaleAndLoseTheirNoise) {
  const SimPixelModel model(SimPixelParams{});
  SimRandom rng(5);
  const double fullScale = static_cast<double>(kPixels) * model.params().maxDn;
  double previous = -1.0;
  // From half to three times the full well: brighter never reads darker
  // (saturated sums may tie) nor past full scale.
  for (double fraction : {0.5, 0.8, 0.95, 1.0, 1.1, 1.5, 3.0}) {
    const Moments m = drawSums(model, fraction * model.params().fullWellE, 1.0, &rng);
    EXPECT_TRUE(m.mean > previous - 1.0 && m.mean <= fullScale + 1.0) << fraction;
    previous = m.mean;
  }
  // Well past the full well every pixel is clipped: full scale, no noise.
  const Moments clipped = drawSums(model, 1.5 * model.params().fullWellE, 1.0, &rng);
  EXPECT_NEAR(clipped.mean, fullScale, 1.0);
  EXPECT_LT(clipped.variance, 1.0);
  EXPECT_EQ(model.windowSum(100.0, 0.0, 0, 1.0, &rng), 0);  // no pixel
  EXPECT_GE(model.windowSum(-5.0, 0.0, 10, 1.0, &rng), 0);  // no negative light
}

// A textured window whose mean is below full scale still loses its
// brightest pixels: the closed form must agree with sampling.
TEST(SimPixelModelTest, ClippedMeanAgreesWithSampledPixels) {
  SimRandom rng(17);
  // Far from the clip, a tail clipped, half clipped, mostly clipped.
  for (const auto& [mean, sigma] : {std::pair{500.0, 100.0}, std::pair{900.0, 150.0},
                                    std::pair{1023.0, 200.0}, std::pair{1500.0, 300.0}}) {
    double sampled = 0.0;
    double below = 0.0;
    for (int i = 0; i < 200000; ++i) {
      const double x = mean + sigma * rng.gaussian();
      sampled += std::min(x, 1023.0);
      below += x < 1023.0 ? 1.0 : 0.0;
    }
    double belowClip = 0.0;
    EXPECT_NEAR(SimPixelModel::clippedMean(mean, sigma * sigma, 1023.0, &belowClip),
                sampled / 200000, 1.5)
        << mean;
    EXPECT_NEAR(belowClip, below / 200000, 0.005) << mean;
  }
}

}  // namespace
}  // namespace flicker_sim
