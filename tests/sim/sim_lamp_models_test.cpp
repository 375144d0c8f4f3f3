// The lamps modelled on published measurements: the light the simulator
// renders for each must have the percent flicker and flicker index its
// source reports, ripple at the right frequency, and never go negative.
#include "sim_lamp_models.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <vector>

#include "case_names.h"
#include "sim_test_util.h"

namespace flicker_sim {

// Beside the model's own namespace, where the test's printer looks.
CASE_PRINTS_ITS_NAME(SimLampModel)

namespace {

// Published figures are given to two or three digits.
constexpr double kPercentTolerance = 0.5;  // percentage points
constexpr double kIndexTolerance = 0.002;

struct Photometry {
  double percentFlicker = 0;
  double flickerIndex = 0;
  double min = 0;
  double mean = 0;
};

// The two figures as a flicker meter takes them: over one period of the
// light, sampled finely.
Photometry measure(const SimLight& light, double period) {
  constexpr int kSamples = 20000;
  std::vector<double> w(kSamples);
  for (int i = 0; i < kSamples; ++i) w[i] = light.intensity(2.0 + (i + 0.5) * period / kSamples);
  const auto [lo, hi] = std::minmax_element(w.begin(), w.end());
  Photometry p;
  for (double v : w) p.mean += v / kSamples;
  double above = 0;
  for (double v : w) above += std::max(0.0, v - p.mean) / kSamples;
  p.percentFlicker = 100.0 * (*hi - *lo) / (*hi + *lo);
  p.flickerIndex = above / p.mean;
  p.min = *lo;
  return p;
}

class LampModelTest : public ::testing::TestWithParam<SimLampModel> {};

TEST_P(LampModelTest, RenderedLightHasThePublishedFigures) {
  const SimLampModel& model = GetParam();
  for (const double mains : {50.0, 60.0}) {
    SCOPED_TRACE(mains);
    const double level = 2e5;
    const auto light =
        testing_util::lightOf({makeLampModelComponent(model, mains, level, 0.0, 0.7)});
    // A mains lamp repeats every half mains period, a PWM lamp every pulse.
    const double period = model.mainsDriven ? 0.5 / mains : 1.0 / model.pwmHz;
    const Photometry p = measure(*light, period);
    EXPECT_NEAR(p.percentFlicker, model.percentFlicker, kPercentTolerance);
    EXPECT_NEAR(p.flickerIndex, model.flickerIndex, kIndexTolerance);
    EXPECT_NEAR(p.mean / level, 1.0, 1e-3);
    EXPECT_GE(p.min, -2e-3 * level) << "light never goes (noticeably) negative";
    // The ripple repeats with its period, and the light integrated over one
    // period is the mean: nothing of it survives an exposure of whole periods.
    EXPECT_NEAR(light->intensity(1.234), light->intensity(1.234 + period), 1e-6 * level);
    EXPECT_NEAR(light->integrate(1.0, 1.0 + 3 * period) / (3 * period), level, 1e-6 * level);
    // The ground truth: a mains lamp of 2 % or more is flicker to detect; a
    // PWM lamp is not mains flicker however deep.
    EXPECT_EQ(light->dominantMainsHz(1.0), model.mainsDriven ? static_cast<int>(mains) : 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Published, LampModelTest, ::testing::ValuesIn(simLampModels()),
                         [](const ::testing::TestParamInfo<SimLampModel>& info) {
                           std::string name = info.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(LampModelTest, NamesAreUniqueAndFound) {
  for (const SimLampModel& m : simLampModels()) {
    EXPECT_EQ(findSimLampModel(m.name), &m) << m.name;
  }
  EXPECT_EQ(findSimLampModel("candle"), nullptr);
}

}  // namespace
}  // namespace flicker_sim
