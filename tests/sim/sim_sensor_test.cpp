// The rolling-shutter sensor: a line time that matches the manager's from the
// same records, bands where the physics puts them, exposures of whole
// periods that cancel their ripple, frame timing that moves a still ripple
// unless the frame rate is fixed, scenes that drift by whole lines per frame,
// screens that band with their own backlight, an exposure control that
// behaves like one, and reproducible presets that a runner can hand the
// manager as they are.
#include "sim_sensor.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "sim_rig.h"
#include "sim_scenario.h"
#include "sim_test_util.h"

namespace flicker_sim {
namespace {

using namespace testing_util;

// The line length follows the manager's set-up rule, and a 100 Hz ripple on
// a flat wall shows bands 1 / (100 Hz * line time) lines apart.
TEST(SimSensorTest, BandsAreSpacedByTheManagersLineTime) {
  struct Row {
    const char* what;
    int frameHeight, tgHeight;
    uint32_t pixelsInLine;
    int sensorBinning, pixelMode;
    uint32_t managerClocks;  // line length the manager derives from these records
  } rows[] = {
      // clang-format off
      {"plain: 10 us lines, 1000 lines per band", 3000, 3000, 4800, 1, 0, 4800},
      // Binned TG output: the height ratio 2 doubles the line length.
      {"height ratio 2", 3000, 1500, 2400, 1, 0, 4800},
      {"height ratio 2, long", 4000, 2000, 5000, 1, 0, 10000},
      // Sensor binning multiplies on top of the ratio rule.
      {"sensor binning 2", 3000, 3000, 4800, 2, 0, 9600},
      {"ratio and binning 2", 3000, 1500, 2400, 2, 0, 9600},
      // Resized statistics image: the float resize, truncated.
      {"resize 1.5", 3000, 2000, 5000, 1, 0, 7500},
      {"resize 0.5", 1500, 3000, 4800, 1, 0, 2400},
      {"the upper half of the line length is not part of it", 3000, 3000, 0x00011388u, 1, 0, 5000},
      {"no TG height: the line length kept, no division by zero", 3000, 0, 4800, 1, 0, 4800},
      {"pixel mode narrows the windows, not the line time", 3000, 3000, 4800, 1, 1, 4800},
      // clang-format on
  };
  for (const Row& c : rows) {
    SCOPED_TRACE(c.what);
    SimSensorParams params = flatWallSensor(1e-3);
    params.geometry.frameHeight = c.frameHeight;
    params.geometry.tgHeight = c.tgHeight;
    params.geometry.pixelsInLine = c.pixelsInLine;
    params.geometry.sensorBinning = c.sensorBinning;
    params.geometry.pixelMode = c.pixelMode;
    EXPECT_EQ(params.geometry.lineLengthClocks(), c.managerClocks);
    const double lineTime = c.managerClocks / 480e6;
    EXPECT_DOUBLE_EQ(params.geometry.lineTimeSeconds(), lineTime);
    SimSensor sensor(params, lightOf({makeLightComponent(SimLightType::kIncandescent, 50.0, 4e6)}),
                     7);
    const SimFrame frame = sensor.nextFrame();
    ASSERT_EQ(frame.stats.size(), static_cast<size_t>(params.geometry.statEntries()));
    EXPECT_TRUE(bandsAt(lineProfile(frame), 100.0 * lineTime));
  }
}

TEST(SimSensorTest, BlockHoldsEighteenEntriesPerWindowLineCentred) {
  struct Row {
    int width, height, pixelMode;
    int winW, winH;  // 0: no stream can be made
  } rows[] = {
      {4000, 3000, 0, 666, 984},  // the adapter's own example size
      {4000, 3000, 1, 332, 984},  // pixel mode 1 halves the width the windows see, not the lines
      // Tall frames are cut to 5994 statistics-image lines.
      {8000, 6040, 0, 1332, 1998},
      {8000, 6039, 0, 1332, 1998},
      {12, 100, 0, 2, 18},  // smallest frame
      // No window pixel; nothing left after the 45-line margin.
      {11, 3000, 0, 0, 984},
      {4000, 40, 0, 666, 0},
  };
  for (const Row& c : rows) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << ", mode " << c.pixelMode);
    SimGeometry g;
    g.frameWidth = c.width;
    g.frameHeight = c.height;
    g.pixelMode = c.pixelMode;
    EXPECT_EQ(g.windowWidth(), c.winW);
    EXPECT_EQ(g.windowHeight(), c.winH);
    EXPECT_EQ(g.valid(), c.winW > 0 && c.winH > 0);
    if (!g.valid())
      continue;
    EXPECT_EQ(g.statEntries(), 18 * c.winH);
    EXPECT_LE(g.leftOffset() + 6 * g.windowWidth(), g.reducedWidth());
    EXPECT_LE(std::abs(2 * g.topOffset() + g.statLines() - c.height), 1);
  }
}

double phaseAt(const SimFrame& frame, double hz) {
  return fitTones(lineProfile(frame), {hz * frame.lineTimeS}).phase[0];
}

// Under 100 Hz and 120 Hz ripple at once, an exposure of whole periods of
// one removes that ripple and leaves the other, attenuated by the exposure's
// sinc. The surviving bands repeat every 1 / (ripple * line time) lines, and
// from one frame to the next their phase advances by 2 pi * ripple * (time
// between the frames).
TEST(SimSensorTest, WholePeriodsCancelTheirRippleOnly) {
  // Exposure, the ripple it cancels, the one that survives: one and two
  // 100 Hz periods, one and three 120 Hz periods.
  const double rows[][3] = {{0.010, 100.0, 120.0},
                            {0.020, 100.0, 120.0},
                            {1.0 / 120.0, 120.0, 100.0},
                            {0.025, 120.0, 100.0}};
  for (const auto& [exposureS, cancelledHz, survivingHz] : rows) {
    SCOPED_TRACE(exposureS);
    SimSensor sensor(flatWallSensor(exposureS),
                     lightOf({makeLightComponent(SimLightType::kIncandescent, 50.0, 3e5),
                              makeLightComponent(SimLightType::kIncandescent, 60.0, 3e5)}),
                     4);
    const SimFrame frame = sensor.nextFrame();
    const SimFrame next = sensor.nextFrame();
    const ToneFit fit = fitTones(lineProfile(frame),
                                 {cancelledHz * frame.lineTimeS, survivingHz * frame.lineTimeS});
    const double x = kPi * survivingHz * frame.exposureS;
    // Half the light ripples, 8 % deep (incandescent).
    const double surviving = 0.5 * 0.08 * std::fabs(std::sin(x) / x);
    EXPECT_LT(fit.amplitude[0], 0.05 * surviving);
    EXPECT_NEAR(fit.amplitude[1] / surviving, 1.0, 0.05);
    EXPECT_TRUE(bandsAt(lineProfile(frame), survivingHz * frame.lineTimeS));
    const double step = phaseAt(next, survivingHz) - phaseAt(frame, survivingHz);
    const double interval = (next.sof_timestamp - frame.sof_timestamp) * 1e-9;
    EXPECT_NEAR(std::remainder(step - 2 * kPi * survivingHz * interval, 2 * kPi), 0.0, 0.02);
  }
}

// While the manager asks for frame-rate control, free timing stretches
// detection frames off every rate of the table (at exactly 30 fps a frame
// lasts four 120 Hz periods and freezes the bands); fixed-rate video, or no
// request, keeps every frame at 1 / fps. Either way the exposure stays on
// whole periods of the reported state.
TEST(SimSensorTest, FixedRateNeverStretchesFrames) {
  struct Row {
    double fps;
    bool fixed;    // fixed-rate video: never stretched
    int rateFlag;  // the frame-rate flag of the manager's result
  } rows[] = {{24, true, 1},  {25, true, 1},  {29.97, true, 1}, {30, true, 1}, {60, true, 1},
              {25, false, 1}, {30, false, 1}, {60, false, 1},   {30, false, 0}};
  for (const Row& c : rows) {
    SCOPED_TRACE(testing::Message()
                 << c.fps << " fps, fixed " << c.fixed << ", flag " << c.rateFlag);
    SimSensorParams params = flatWallSensor(0.0);
    params.framesPerSecond = c.fps;
    params.fixedFrameRate = c.fixed;
    params.geometry.pixelsInLine = 2400;  // 15 ms readout: fits 60 fps
    SimSensor sensor(params, lightOf({makeLightComponent(SimLightType::kIncandescent, 50.0, 3e5)}),
                     3);
    double longest = 0;
    double previousSof = 0;
    for (int i = 0; i < 40; ++i) {
      sensor.applyResult(2, c.rateFlag);
      const SimFrame frame = sensor.nextFrame();
      if (i >= 10) {
        longest = std::max(longest, frame.sofS - previousSof);
        const double periods = frame.exposureS * 120.0;
        EXPECT_NEAR(periods, std::round(periods), 120.0 * frame.lineTimeS) << i;
        EXPECT_GE(periods, 0.999) << i;
      }
      previousSof = frame.sofS;
    }
    if (c.fixed || c.rateFlag == 0) {
      EXPECT_NEAR(longest, 1.0 / c.fps, 1e-9);
    } else {
      EXPECT_GT(longest, 1.0 / c.fps + 50e-6);
    }
  }
}

// A piecewise scene drifting by N lines per frame: the next frame's line
// profile is this one's moved by N lines, at any line time.
TEST(SimSensorTest, NextFrameIsThisOneMovedByTheDrift) {
  struct Row {
    double linesPerFrame;
    int frameHeight;
    uint32_t pixelsInLine;
  } rows[] = {
      // Still, and 1..3 lines at 10 us (1920 x 1080 at 30 fps).
      {0, 1080, 4800},
      {1, 1080, 4800},
      {2, 1080, 4800},
      {3, 1080, 4800},
      // A long line time (64 us, 480 lines) and the other way.
      {2, 480, 30720},
      {-2, 1080, 4800},
  };
  for (const Row& c : rows) {
    SCOPED_TRACE(testing::Message() << c.linesPerFrame << " lines per frame of " << c.frameHeight);
    SimSensorParams params = flatWallSensor(2e-3);
    params.scene.texture = SimTexture::kPiecewise;
    params.fixedFrameRate = true;
    params.geometry.frameHeight = c.frameHeight;
    params.geometry.tgHeight = c.frameHeight;
    params.geometry.pixelsInLine = c.pixelsInLine;
    params.verticalLinesPerFrame = c.linesPerFrame;
    SimSensor sensor(params, lightOf({makeLightComponent(SimLightType::kDaylight, 0.0, 4e6)}), 9);
    const std::vector<double> a = lineProfile(sensor.nextFrame());
    const std::vector<double> b = lineProfile(sensor.nextFrame());
    // The shift that best aligns b[k] with a[k - s].
    int best = 0;
    double bestCost = 1e300;
    for (int s = -6; s <= 6; ++s) {
      double cost = 0;
      for (size_t k = 8; k + 8 < a.size(); ++k) cost += std::pow(b[k] - a[k - s], 2);
      if (cost < bestCost) {
        bestCost = cost;
        best = s;
      }
    }
    // Image content moves up the frame as the scene drifts down its rows.
    EXPECT_EQ(-best, static_cast<int>(std::lround(c.linesPerFrame)));
  }
}

// A screen whose backlight pulses at 437 Hz bands the windows it covers with
// that frequency; the windows beside it stay flat under steady daylight.
TEST(SimSensorTest, ScreenBandsWithItsBacklightOnly) {
  SimSensorParams params = flatWallSensor(0.5e-3);
  SimMovingObject screen;
  screen.x = 0.0;
  screen.y = 0.0;
  screen.width = 1.0 / 6.0;  // the leftmost window column
  screen.height = 1.0;
  screen.reflectance = 0.04;
  screen.emissive = true;
  screen.radiance = 6e5;
  params.scene.objects = {screen};
  params.scene.emission = {437.0, 0.5};
  SimSensor sensor(params, lightOf({makeLightComponent(SimLightType::kDaylight, 0.0, 3e5)}), 5);
  const SimFrame frame = sensor.nextFrame();
  auto column = [&frame](int window) {
    std::vector<double> y(frame.stats.size() / 6);
    for (size_t k = 0; k < y.size(); ++k) y[k] = static_cast<double>(frame.stats[6 * k + window]);
    return y;
  };
  const double nu = 437.0 * frame.lineTimeS;
  EXPECT_TRUE(bandsAt(column(0), nu));
  EXPECT_GT(fitTones(column(0), {nu}).amplitude[0], 0.3);
  EXPECT_LT(fitTones(column(3), {nu}).amplitude[0], 0.01);
}

// After settling, dim scenes sit on whole periods of the reported state and
// bright scenes below one period, all near the target brightness.
TEST(SimSensorTest, ExposureSettlesOnTheAntiBandingGrid) {
  struct Row {
    const char* preset;
    int flickerState;
    double period;  // 0: the exposure must stay below one ripple period
  } rows[] = {
      {"office-50hz", 1, 0.010},          // under 50 Hz, reported 50 Hz: 10 ms grid
      {"office-50hz", 2, 1.0 / 120.0},    // the same scene while (wrongly) reported 60 Hz
      {"home-60hz", 2, 1.0 / 120.0},      // dim: several 8.333 ms periods plus gain
      {"bright-short-exposure", 1, 0.0},  // floodlight: far less than one period
  };
  for (const Row& c : rows) {
    SCOPED_TRACE(testing::Message() << c.preset << ", state " << c.flickerState);
    SimScenario scenario;
    ASSERT_TRUE(makeSimPreset(c.preset, &scenario));
    SimRig rig(scenario);
    SimFrame frame;
    for (int i = 0; i < 40; ++i) {
      rig.sensor(0)->applyResult(c.flickerState, 0);
      rig.sensor(0)->nextFrame(&frame);
    }
    EXPECT_TRUE(frame.aeConverged);
    EXPECT_NEAR(frame.meanLevel / rig.sensor(0)->params().ae.targetLevel, 1.0, 0.15);
    EXPECT_EQ(frame.doFlkDetection, 1);
    EXPECT_EQ(frame.exposureTime, std::llround(frame.exposureS * 1e6));
    const double periods = frame.exposureS / (c.period > 0.0 ? c.period : 1.0 / 120.0);
    if (c.period > 0.0) {
      EXPECT_GE(periods, 0.999);
      EXPECT_NEAR(periods, std::round(periods), frame.lineTimeS / c.period);
    } else {
      EXPECT_LT(periods, 1.0);
      EXPECT_DOUBLE_EQ(frame.gain, 1.0);
    }
  }
}

TEST(SimSensorTest, ExposurePinnedAtItsLimitIsSettled) {
  for (const double level : {0.0, 2e4}) {
    SimSensorParams params = flatWallSensor(0.0);
    params.ae.fixedExposureS = 0.0;
    params.framesPerSecond = 60.0;
    params.geometry.pixelsInLine = 2400;
    SimSensor sensor(params,
                     lightOf({makeLightComponent(SimLightType::kIncandescent, 50.0, level)}), 2);
    SimFrame frame;
    for (int i = 0; i < 30; ++i) {
      sensor.applyResult(1, 0);
      sensor.nextFrame(&frame);
    }
    EXPECT_LT(frame.meanLevel, 0.5 * params.ae.targetLevel) << level;
    EXPECT_DOUBLE_EQ(frame.gain, params.ae.maxGain) << level;
    EXPECT_NEAR(frame.exposureS, 0.01, frame.lineTimeS) << "one 10 ms period fits 1/60 s";
    EXPECT_TRUE(frame.aeConverged) << level;
    EXPECT_EQ(frame.doFlkDetection, 1) << level;
  }
}

// Detection is held off until the exposure settles; then the scenario's
// overrides reach the frame fields, and a pixel-mode switch narrows the
// windows, invalidates that frame's statistics and asks for a new set-up.
TEST(SimSensorTest, ControlFieldsFollowTheExposureAndTheScenario) {
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset("ae-takes-over", &scenario));
  scenario.sensors[0].ae.initialExposureS = 1e-4;  // far too short: AE must settle first
  scenario.sensors[0].controls.push_back({20, 1000, SimControl::kPixelMode, 1});
  SimRig rig(scenario);
  SimFrame frame;
  for (int i = 0; i < 190; ++i) {
    rig.sensor(0)->nextFrame(&frame);
    const bool disabled = i >= 150 && i <= 179;
    // No detection while the exposure is far off; on once it settled.
    EXPECT_TRUE(i > 1 || frame.doFlkDetection == 0) << i;
    EXPECT_TRUE(i < 40 || i >= 60 || frame.doFlkDetection == 1) << i;
    EXPECT_EQ(frame.aeDetectCycle, (i < 60 || i > 119) ? 0 : 3) << i;
    EXPECT_EQ(frame.flkEnable, disabled ? 0 : 1) << i;
    EXPECT_TRUE(!disabled || frame.doFlkDetection == 0) << i;
    EXPECT_EQ(frame.statValid, (i == 0 || i == 20) ? 0 : 1) << i;
    EXPECT_EQ(frame.needReinit, i == 20 ? 1 : 0) << i;
    EXPECT_EQ(frame.pixel_mode, i >= 20 ? 1 : 0) << i;
    EXPECT_EQ(frame.windowWidth, i >= 20 ? 332 : 666) << i;
  }
}

class PresetTest : public ::testing::TestWithParam<std::string> {};

TEST_P(PresetTest, YieldsWellFormedFramesForEverySensor) {
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset(GetParam(), &scenario));
  SimRig rig(scenario);
  SimRig twin(scenario);  // the same seed
  scenario.seed += 1;
  SimRig other(scenario);
  ASSERT_GT(rig.sensorCount(), 0);
  for (int s = 0; s < rig.sensorCount(); ++s) {
    const SimConfig config = rig.sensor(s)->config();
    const SimGeometry& g = rig.sensor(s)->geometry();
    ASSERT_TRUE(g.valid()) << s;
    // The records carry what the manager derives the line time from.
    EXPECT_EQ(config.hbinHeight, g.frameHeight);
    EXPECT_EQ(config.hbinWidth, g.frameWidth >> g.pixelMode);
    EXPECT_EQ(config.pixelsInLine, g.pixelsInLine);
    EXPECT_EQ(config.sensorBinningRatio, g.sensorBinning);
    for (int i = 0; i < 6; ++i) {
      const SimFrame frame = rig.sensor(s)->nextFrame();
      const SimFrame same = twin.sensor(s)->nextFrame();
      EXPECT_TRUE(frame.stats == same.stats && frame.sof_timestamp == same.sof_timestamp &&
                  frame.exposureTime == same.exposureTime)
          << "same seed, other frame " << s << "/" << i;
      EXPECT_NE(frame.stats, other.sensor(s)->nextFrame().stats) << "other seed, same noise";
      ASSERT_EQ(static_cast<int>(frame.stats.size()), g.statEntries()) << s << "/" << i;
      // Sums of 10-bit pixels; noise around a saturated sum stays small.
      const auto [lo, hi] = std::minmax_element(frame.stats.begin(), frame.stats.end());
      EXPECT_TRUE(*lo >= 0 && *hi <= 1023LL * frame.windowWidth + 64) << *lo << ".." << *hi;
      EXPECT_GT(frame.exposureTime, 0);
      EXPECT_LT(frame.exposureS, 1.0 / rig.sensor(s)->params().framesPerSecond);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, PresetTest, ::testing::ValuesIn(simPresetNames()));

}  // namespace
}  // namespace flicker_sim
