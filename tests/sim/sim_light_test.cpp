// The light model: its closed-form integrals must equal the integral of the
// waveform itself, and its waveforms must look like the lamps they stand for.
#include "sim_light.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "sim_random.h"

namespace flicker_sim {
namespace {

// Trapezoidal integral of the waveform with fine steps.
double numericIntegral(const SimLight& light, double t0, double t1) {
  const int steps = 20000;
  const double h = (t1 - t0) / steps;
  double sum = 0.5 * (light.intensity(t0) + light.intensity(t1));
  for (int i = 1; i < steps; ++i) {
    sum += light.intensity(t0 + i * h);
  }
  return sum * h;
}

SimLightSpec single(SimLightComponent c) {
  SimLightSpec spec;
  spec.segments.push_back({0.0, {c}});
  return spec;
}

struct LightCase {
  const char* what;
  SimLightComponent component;
};

std::vector<LightCase> allLights() {
  return {
      {"incandescent", makeLightComponent(SimLightType::kIncandescent, 50.0, 1e5, 0.03, 0.3)},
      {"fluorescent", makeLightComponent(SimLightType::kMagneticFluorescent, 60.0, 1e5, -0.02)},
      {"rectified LED", makeLightComponent(SimLightType::kRectifiedLed, 50.0, 1e5, 0.0, 1.0)},
      {"good LED", makeLightComponent(SimLightType::kGoodLedDriver, 60.0, 1e5)},
      {"PWM LED", makePwmLightComponent(437.0, 0.3, 1e5, 0.5)},
      {"daylight", makeLightComponent(SimLightType::kDaylight, 0.0, 1e5)},
  };
}

TEST(SimLightTest, ClosedFormIntegralEqualsTheWaveformsIntegral) {
  SimRandom rng(3);
  for (const LightCase& c : allLights()) {
    const SimLight light(single(c.component));
    for (int trial = 0; trial < 5; ++trial) {
      const double t0 = rng.uniform(0.0, 10.0);
      const double t1 = t0 + rng.uniform(1e-4, 0.03);
      const double exact = light.integrate(t0, t1);
      EXPECT_NEAR(exact / numericIntegral(light, t0, t1), 1.0, 1e-4) << c.what;
    }
  }
}

TEST(SimLightTest, LineIntegralsMatchPerLineIntegralsAcrossALightSwitch) {
  SimLightSpec spec;
  spec.segments.push_back(
      {0.0, {makeLightComponent(SimLightType::kMagneticFluorescent, 50.0, 2e5, 0.01)}});
  spec.segments.push_back(
      {1.0, {makeLightComponent(SimLightType::kRectifiedLed, 60.0, 1e5, 0.0, 0.4)}});
  const SimLight light(spec);
  const double lineStep = 10e-6;
  const double exposure = 7.3e-3;
  const int lines = 3000;
  // Frames before, across and after the switch at 1 s.
  for (double firstEnd : {0.5, 0.99, 1.003, 123.4}) {
    std::vector<double> fast(lines);
    light.integrateLines(firstEnd, lineStep, exposure, lines, fast.data());
    for (int k = 0; k < lines; k += 37) {
      const double end = firstEnd + k * lineStep;
      EXPECT_NEAR(fast[k] / light.integrate(end - exposure, end), 1.0, 1e-9)
          << "firstEnd " << firstEnd << " line " << k;
    }
  }
}

// An exposure of whole ripple periods collects exactly the mean light,
// wherever the window sits.
TEST(SimLightTest, WholeRipplePeriodsCollectTheMeanLight) {
  struct Case {
    const char* what;
    SimLightComponent component;
    double period;
  };
  const Case cases[] = {
      // 100 Hz ripple, two periods.
      {"incandescent 50", makeLightComponent(SimLightType::kIncandescent, 50.0, 1e5), 0.02},
      // Every harmonic of the 120 Hz ripple cancels too.
      {"LED 60", makeLightComponent(SimLightType::kRectifiedLed, 60.0, 1e5), 3.0 / 120.0},
      // PWM at 437 Hz over one of its periods.
      {"PWM", makePwmLightComponent(437.0, 0.25, 1e5), 1.0 / 437.0},
  };
  for (const Case& c : cases) {
    const SimLight light(single(c.component));
    for (double t : {0.0123, 1.5, 77.77}) {
      EXPECT_NEAR(light.integrate(t, t + c.period) / (1e5 * c.period), 1.0, 1e-9) << c.what;
    }
  }
}

TEST(SimLightTest, RectifiedLedIsDarkAroundTheMainsZeroCrossing) {
  const SimLight light(single(makeLightComponent(SimLightType::kRectifiedLed, 50.0, 1.0)));
  // Mains phase 0: zero crossings at multiples of 10 ms, peaks at 5 ms.
  double darkest = 1e9;
  double brightest = 0.0;
  for (int i = 0; i <= 200; ++i) {
    const double t = i * 0.01 / 200.0;
    darkest = std::min(darkest, light.intensity(t));
    brightest = std::max(brightest, light.intensity(t));
  }
  // Off near the crossing (the truncated series rings by a few percent),
  // and several times the mean at the peak: very deep flicker.
  EXPECT_LT(darkest, 0.05);
  EXPECT_GT(brightest, 2.5);
  EXPECT_NEAR(light.intensity(0.0), 0.0, 0.05);
}

TEST(SimLightTest, DominantMainsNamesTheFlickerThatMatters) {
  struct Case {
    const char* what;
    std::vector<SimLightComponent> components;
    int expected;
  };
  const Case cases[] = {
      {"fluorescent 50", {makeLightComponent(SimLightType::kMagneticFluorescent, 50.0, 1.0)}, 50},
      {"incandescent 60", {makeLightComponent(SimLightType::kIncandescent, 60.0, 1.0)}, 60},
      // A good driver's 1 % ripple is not flicker to detect.
      {"good LED", {makeLightComponent(SimLightType::kGoodLedDriver, 50.0, 1.0)}, 0},
      {"daylight", {makeLightComponent(SimLightType::kDaylight, 0.0, 1.0)}, 0},
      {"PWM", {makePwmLightComponent(437.0, 0.3, 1.0)}, 0},
      // Fluorescent ripple diluted ten times by daylight is still 3.5 % deep.
      {"mix",
       {makeLightComponent(SimLightType::kMagneticFluorescent, 60.0, 1.0),
        makeLightComponent(SimLightType::kDaylight, 0.0, 9.0)},
       60},
  };
  for (const Case& c : cases) {
    SimLightSpec spec;
    spec.segments.push_back({0.0, c.components});
    EXPECT_EQ(SimLight(spec).dominantMainsHz(1.0), c.expected) << c.what;
  }
}

TEST(SimLightTest, DarknessWithoutSegments) {
  const SimLight light{SimLightSpec{}};
  std::vector<double> out(4, -1.0);
  light.integrateLines(0.1, 1e-5, 1e-3, 4, out.data());
  for (double v : out) {
    EXPECT_EQ(v, 0.0);
  }
  EXPECT_EQ(light.integrate(0.0, 1.0), 0.0);
  EXPECT_EQ(light.dominantMainsHz(0.0), 0);
}

}  // namespace
}  // namespace flicker_sim
