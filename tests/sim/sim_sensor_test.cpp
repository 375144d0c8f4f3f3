// The rolling-shutter sensor: bands where the physics puts them, exposures of
// whole periods that cancel their ripple, frame timing that moves a still
// ripple, an exposure control that behaves like one, and reproducible frames.
#include "sim_sensor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "sim_rig.h"
#include "sim_scenario.h"
#include "sim_test_util.h"

namespace flicker_sim {
namespace {

using testing_util::fitTones;
using testing_util::flatWallSensor;
using testing_util::kPi;
using testing_util::lineProfile;
using testing_util::peakCyclesPerLine;
using testing_util::steadyLight;
using testing_util::wrapAngle;

std::shared_ptr<const SimLight> lightOf(std::vector<SimLightComponent> components) {
  return std::make_shared<const SimLight>(steadyLight(std::move(components)));
}

class BandTest : public ::testing::TestWithParam<double> {};

// Bands repeat every 1 / (2 mains * line time) lines, and from one frame to
// the next their phase advances by 2 pi * 2 mains * (time between the frames).
TEST_P(BandTest, BandPeriodAndPhaseStepMatchTheRipple) {
  const double mains = GetParam();
  const double ripple = 2.0 * mains;
  SimSensor sensor(flatWallSensor(2e-3),
                   lightOf({makeLightComponent(SimLightType::kIncandescent, mains, 2e6)}), 21);
  const SimFrame first = sensor.nextFrame();
  const SimFrame second = sensor.nextFrame();
  const double lineTime = first.lineTimeS;

  const double nu = peakCyclesPerLine(lineProfile(first), 150.0, 4000.0);
  EXPECT_NEAR(nu / (ripple * lineTime), 1.0, 0.005);

  const double nuTheory = ripple * lineTime;
  const double phase1 = fitTones(lineProfile(first), {nuTheory})[0].phase;
  const double phase2 = fitTones(lineProfile(second), {nuTheory})[0].phase;
  const double interval = (second.sof_timestamp - first.sof_timestamp) * 1e-9;
  EXPECT_NEAR(wrapAngle(phase2 - phase1 - 2.0 * kPi * ripple * interval), 0.0, 0.02);
}

// 50 Hz and 60 Hz mains.
INSTANTIATE_TEST_SUITE_P(Mains, BandTest, ::testing::Values(50.0, 60.0));

struct CancelCase {
  double exposureS;
  double cancelledHz;
  double survivingHz;
};

class CancelTest : public ::testing::TestWithParam<CancelCase> {};

// Under 100 Hz and 120 Hz ripple at once, an exposure of whole periods of one
// removes that ripple from the statistics and leaves the other, attenuated by
// the exposure's sinc.
TEST_P(CancelTest, WholePeriodsCancelTheirRippleOnly) {
  const CancelCase& c = GetParam();
  const double depth = 0.08;  // incandescent ripple depth
  SimSensor sensor(flatWallSensor(c.exposureS),
                   lightOf({makeLightComponent(SimLightType::kIncandescent, 50.0, 3e5),
                            makeLightComponent(SimLightType::kIncandescent, 60.0, 3e5)}),
                   4);
  const SimFrame frame = sensor.nextFrame();
  const auto tones = fitTones(lineProfile(frame),
                              {c.cancelledHz * frame.lineTimeS, c.survivingHz * frame.lineTimeS});
  const double x = kPi * c.survivingHz * frame.exposureS;
  const double surviving = 0.5 * depth * std::fabs(std::sin(x) / x);  // half the light ripples
  EXPECT_LT(tones[0].amplitude, 0.05 * surviving);
  EXPECT_NEAR(tones[1].amplitude / surviving, 1.0, 0.05);
}

INSTANTIATE_TEST_SUITE_P(Table, CancelTest,
                         ::testing::Values(
                             // One 100 Hz period: 120 Hz remains.
                             CancelCase{0.010, 100.0, 120.0},
                             // Two 100 Hz periods.
                             CancelCase{0.020, 100.0, 120.0},
                             // One 120 Hz period (833 lines of 10 us): 100 Hz remains.
                             CancelCase{1.0 / 120.0, 120.0, 100.0},
                             // Three 120 Hz periods.
                             CancelCase{0.025, 120.0, 100.0}),
                         [](const ::testing::TestParamInfo<CancelCase>& info) {
                           return std::to_string(info.index);
                         });

// At exactly 30 fps a frame lasts four 120 Hz periods, so the bands stand
// still; once the manager asks for frame-rate control, detection frames are
// stretched and the bands move.
TEST(SimSensorTest, FrameRateControlMovesAStillRipple) {
  SimSensorSpec spec = flatWallSensor(3e-3);
  SimSensor sensor(spec, lightOf({makeLightComponent(SimLightType::kIncandescent, 60.0, 1e6)}), 8);
  const double nu = 120.0 * sensor.lineTimeSeconds();
  auto phaseStep = [&]() {
    const SimFrame a = sensor.nextFrame();
    const SimFrame b = sensor.nextFrame();
    return wrapAngle(fitTones(lineProfile(b), {nu})[0].phase -
                     fitTones(lineProfile(a), {nu})[0].phase);
  };
  EXPECT_NEAR(phaseStep(), 0.0, 0.02);
  sensor.applyResult(2, 1);
  const double moved = std::fabs(phaseStep());
  EXPECT_GT(moved, 0.19 * 2.0 * kPi);
  sensor.applyResult(2, 0);
  EXPECT_NEAR(phaseStep(), 0.0, 0.02);
}

// Two sensors started at different times see one light: their band phases
// differ by the ripple's phase over the difference of their line times.
TEST(SimSensorTest, SensorsShareOneLightTimeline) {
  auto light = lightOf({makeLightComponent(SimLightType::kIncandescent, 50.0, 2e6, 0.0, 0.7)});
  SimSensorSpec a = flatWallSensor(2e-3);
  SimSensorSpec b = flatWallSensor(2e-3);
  b.startTimeS = a.startTimeS + 3.7e-3;
  SimSensor first(a, light, 1);
  SimSensor second(b, light, 2);
  const SimFrame fa = first.nextFrame();
  const SimFrame fb = second.nextFrame();
  const double nu = 100.0 * fa.lineTimeS;
  const double step =
      fitTones(lineProfile(fb), {nu})[0].phase - fitTones(lineProfile(fa), {nu})[0].phase;
  const double dt = (fb.sof_timestamp - fa.sof_timestamp) * 1e-9;
  EXPECT_NEAR(wrapAngle(step - 2.0 * kPi * 100.0 * dt), 0.0, 0.02);
}

TEST(SimSensorTest, SameSeedSameFramesOtherSeedOtherNoise) {
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset("pan-60hz", &scenario));
  SimRig one(scenario);
  SimRig two(scenario);
  scenario.seed = 2;
  SimRig other(scenario);
  for (int i = 0; i < 4; ++i) {
    const SimFrame a = one.sensor(0)->nextFrame();
    const SimFrame b = two.sensor(0)->nextFrame();
    const SimFrame c = other.sensor(0)->nextFrame();
    EXPECT_EQ(a.stats, b.stats) << i;
    EXPECT_EQ(a.exposureTime, b.exposureTime) << i;
    EXPECT_EQ(a.sof_timestamp, b.sof_timestamp) << i;
    EXPECT_NE(a.stats, c.stats) << i;
  }
}

struct AeCase {
  const char* preset;
  int flickerState;
  double period;  // 0: exposure must stay below one 100 Hz or 120 Hz period
};

class AutoExposureTest : public ::testing::TestWithParam<AeCase> {};

// After settling, dim scenes sit on whole periods of the reported state and
// bright scenes below one period, all near the target brightness.
TEST_P(AutoExposureTest, SettlesOnTheAntiBandingGrid) {
  const AeCase& c = GetParam();
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset(c.preset, &scenario));
  SimRig rig(scenario);
  SimSensor* sensor = rig.sensor(0);
  SimFrame frame;
  for (int i = 0; i < 40; ++i) {
    sensor->applyResult(c.flickerState, 0);
    sensor->nextFrame(&frame);
  }
  EXPECT_TRUE(frame.aeConverged);
  EXPECT_NEAR(frame.meanLevel / sensor->spec().ae.targetLevel, 1.0, 0.15);
  EXPECT_EQ(frame.doFlkDetection, 1);
  if (c.period > 0.0) {
    const double periods = frame.exposureS / c.period;
    EXPECT_GE(periods, 0.999);
    EXPECT_NEAR(periods, std::round(periods), frame.lineTimeS / c.period);
  } else {
    EXPECT_LT(frame.exposureS, 1.0 / 120.0);
    EXPECT_DOUBLE_EQ(frame.gain, 1.0);
  }
  EXPECT_EQ(frame.exposureTime, std::llround(frame.exposureS * 1e6));
}

INSTANTIATE_TEST_SUITE_P(Table, AutoExposureTest,
                         ::testing::Values(
                             // Office under 50 Hz, manager reports 50 Hz: 10 ms grid.
                             AeCase{"office-50hz", 1, 0.010},
                             // Same scene while the manager (wrongly) reports 60 Hz: the AE obeys.
                             AeCase{"office-50hz", 2, 1.0 / 120.0},
                             // Dim home under 60 Hz: several 8.333 ms periods plus gain.
                             AeCase{"home-60hz", 2, 1.0 / 120.0},
                             // Floodlight: far less than one period is needed.
                             AeCase{"bright-short-exposure", 1, 0.0}),
                         [](const ::testing::TestParamInfo<AeCase>& info) {
                           return std::to_string(info.index);
                         });

TEST(SimSensorTest, ExposureControlFieldsFollowTheScenario) {
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset("ae-takes-over", &scenario));
  scenario.sensors[0].controls.push_back({20, 1000, SimControl::kPixelMode, 1});
  SimRig rig(scenario);
  SimSensor* sensor = rig.sensor(0);
  SimFrame frame;
  int lastEntries = 0;
  for (int i = 0; i < 190; ++i) {
    sensor->nextFrame(&frame);
    const bool ownCycle = i < 60 || i > 119;
    const bool disabled = i >= 150 && i <= 179;
    EXPECT_EQ(frame.aeDetectCycle, ownCycle ? 0 : 3) << i;
    EXPECT_EQ(frame.flkEnable, disabled ? 0 : 1) << i;
    if (disabled) {
      EXPECT_EQ(frame.doFlkDetection, 0) << i;
    }
    // The first frame and the frame of the pixel-mode switch carry unusable
    // statistics; the switch also asks for a new algorithm set-up.
    EXPECT_EQ(frame.statValid, (i == 0 || i == 20) ? 0 : 1) << i;
    EXPECT_EQ(frame.needReinit, i == 20 ? 1 : 0) << i;
    EXPECT_EQ(frame.pixel_mode, i >= 20 ? 1 : 0) << i;
    EXPECT_EQ(frame.width, 4000) << i;
    EXPECT_EQ(frame.windowWidth, i >= 20 ? 332 : 666) << i;
    if (i > 0) {
      EXPECT_EQ(static_cast<int>(frame.stats.size()), lastEntries) << i;
    }
    lastEntries = static_cast<int>(frame.stats.size());
  }
}

// Detection is held off while the exposure control is still converging.
TEST(SimSensorTest, DetectionWaitsForTheExposureToSettle) {
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset("daylight", &scenario));
  scenario.sensors[0].ae.initialExposureS = 0.03;  // far too long for daylight
  SimRig rig(scenario);
  const SimFrame first = rig.sensor(0)->nextFrame();
  EXPECT_EQ(first.doFlkDetection, 0);
  EXPECT_EQ(first.flkEnable, 1);
  SimFrame frame;
  int settledAt = -1;
  for (int i = 1; i < 40 && settledAt < 0; ++i) {
    rig.sensor(0)->nextFrame(&frame);
    if (frame.doFlkDetection == 1) {
      settledAt = i;
    }
  }
  EXPECT_GT(settledAt, 1);
  EXPECT_LT(settledAt, 40);
}

}  // namespace
}  // namespace flicker_sim
