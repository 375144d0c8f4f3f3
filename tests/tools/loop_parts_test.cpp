// The closed loop's parts that need no manager: scenario settings reach the
// simulator's parameters, and the run summary reads hand-made records right.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>
#include <tuple>

#include "run_summary.h"
#include "scenario_builder.h"

namespace {

TEST(ScenarioBuilderTest, KeysReachEverySensorAndKeepTheBinnedRatio) {
  flicker_loop::ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(b.selectPreset("dual-sensor-50hz", &error)) << error;
  ASSERT_TRUE(
      b.loadText("fps = 25  # both\nread_noise = 4\nsensors = 3\ntiming = fixed\n"
                 "lines_per_frame = 2\ntexture = piecewise\nscreen_hz = 487\n"
                 "object = highlight\n",
                 "t", &error))
      << error;
  const flicker_sim::SimScenario s = b.scenario();
  ASSERT_EQ(s.sensors.size(), 3u);
  for (size_t i = 0; i < s.sensors.size(); ++i) {
    EXPECT_DOUBLE_EQ(s.sensors[i].framesPerSecond, 25.0);
    EXPECT_DOUBLE_EQ(s.sensors[i].pixel.readNoiseE, 4.0);
    EXPECT_TRUE(s.sensors[i].fixedFrameRate);
    EXPECT_DOUBLE_EQ(s.sensors[i].verticalLinesPerFrame, 2.0);
    EXPECT_EQ(s.sensors[i].scene.texture, flicker_sim::SimTexture::kPiecewise);
    // A bright object crossing, and a screen shining with its backlight.
    const auto& objects = s.sensors[i].scene.objects;
    EXPECT_EQ(std::count_if(objects.begin(), objects.end(),
                            [](const flicker_sim::SimMovingObject& o) {
                              return o.vx != 0 && o.reflectance > 1 && !o.emissive;
                            }),
              1);
    EXPECT_EQ(std::count_if(objects.begin(), objects.end(),
                            [](const flicker_sim::SimMovingObject& o) { return o.emissive; }),
              1);
    EXPECT_DOUBLE_EQ(s.sensors[i].scene.emission.pwmHz, 487.0);
    // Extra sensors are copies that start later.
    EXPECT_TRUE(i == 0 || s.sensors[i - 1].startTimeS < s.sensors[i].startTimeS) << i;
  }
  ASSERT_TRUE(b.selectPreset("home-60hz", &error));  // TG 2000x1500, frame 4000x3000
  ASSERT_TRUE(b.set("height", "600", &error)) << error;
  const flicker_sim::SimGeometry g = b.scenario().sensors.front().geometry;
  EXPECT_EQ(std::make_pair(g.tgHeight, g.frameHeight), std::make_pair(600, 1200));
}

TEST(ScenarioBuilderTest, LightKeysRebuildTheLampTheSwitchAndTheMix) {
  flicker_loop::ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(
      b.loadText("light = led\nmains = 60\nlevel = 1e5\nswitch_at = 2\nswitch_mains = 50\n"
                 "mix_mains = 50\nmix_share = 0.25\n",
                 "t", &error))
      << error;
  const flicker_sim::SimLightParams light = b.scenario().light;
  ASSERT_EQ(light.segments.size(), 2u);
  const auto& lamps = light.segments[0].components;
  ASSERT_EQ(lamps.size(), 2u);
  EXPECT_EQ(lamps[0].type, flicker_sim::SimLightType::kRectifiedLed);
  EXPECT_DOUBLE_EQ(lamps[0].mainsHz, 60.0);
  // The second lamp takes its share of the level.
  EXPECT_DOUBLE_EQ(lamps[0].level, 0.75e5);
  EXPECT_DOUBLE_EQ(lamps[1].level, 0.25e5);
  EXPECT_DOUBLE_EQ(lamps[1].mainsHz, 50.0);
  EXPECT_DOUBLE_EQ(light.segments[1].startS, 2.0);
  EXPECT_DOUBLE_EQ(light.segments[1].components.front().mainsHz, 50.0);
}

// What --keys lists is what set() accepts: both ends of a range pass and a
// value beyond either end is refused with the listed range in the reason;
// every listed word passes, any other is refused; the listed default sets
// again unchanged.
TEST(ScenarioBuilderTest, ListedRangesAndDefaultsAreWhatSetAccepts) {
  for (const flicker_loop::ScenarioBuilder::KeyInfo& k :
       flicker_loop::ScenarioBuilder().describeKeys()) {
    SCOPED_TRACE(k.name + " = " + k.value + ", allowed " + k.allowed);
    std::string error;
    if (k.value != "none") {
      flicker_loop::ScenarioBuilder b;
      EXPECT_TRUE(b.set(k.name, k.value, &error)) << error;
      EXPECT_EQ(b.value(k.name), k.value);
    }
    const size_t dots = k.allowed.find("..");
    std::vector<std::string> good, bad;
    if (dots != std::string::npos) {
      const double lo = std::stod(k.allowed.substr(0, dots));
      const double hi = std::stod(k.allowed.substr(dots + 2));
      const double beyond = std::max(1.0, 0.5 * (hi - lo));
      good = {k.allowed.substr(0, dots), k.allowed.substr(dots + 2)};
      bad = {std::to_string(lo - beyond), std::to_string(hi + beyond)};
    } else if (k.name != "scenario") {
      std::string words = k.allowed;
      for (const char* sep : {", ", " or "}) {
        for (size_t at; (at = words.find(sep)) != std::string::npos;)
          words.replace(at, strlen(sep), " ");
      }
      std::istringstream in(words);
      for (std::string w; in >> w;) good.push_back(w);
      bad = {"bogus"};
    }
    for (const std::string& v : good) {
      flicker_loop::ScenarioBuilder b;
      EXPECT_TRUE(b.set(k.name, v, &error)) << v << ": " << error;
    }
    for (const std::string& v : bad) {
      flicker_loop::ScenarioBuilder b;
      EXPECT_FALSE(b.set(k.name, v, &error)) << v;
      EXPECT_NE(error.find(k.allowed), std::string::npos) << error;
    }
  }
}

// Each built-in scenario is one scene under one name.
TEST(ScenarioBuilderTest, EachSceneHasOneName) {
  std::set<std::string> names, descriptions;
  for (const std::string& name : flicker_loop::ScenarioBuilder::presetNames()) {
    flicker_loop::ScenarioBuilder b;
    std::string error;
    ASSERT_TRUE(b.selectPreset(name, &error)) << error;
    EXPECT_EQ(b.scenario().name, name);
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_TRUE(descriptions.insert(b.scenario().description).second)
        << name << " is the scene of another name: " << b.scenario().description;
  }
}

// A lamp switched on mid-stream: before it the room is dark or lit by
// daylight only; after it the lamp's ripple is the truth, diluted by the
// daylight that stays on; an absolute ripple sets the lamp's depth.
TEST(ScenarioBuilderTest, LampComesOnAtItsTime) {
  const struct {
    const char* settings;
    int truthBefore;     // ground truth before the onset
    double levelBefore;  // mean light before it (electrons/s at reflectance 1)
    int truthAfter;
    double rippleAfter;  // depth at twice the mains after the onset
  } rows[] = {
      // From darkness; the incandescent lamp's own 8 % ripple, or 2 %.
      {"light = incandescent\nmains = 50\nlevel = 1e5\nonset_at = 2\n", 0, 0, 50, 0.08},
      {"light = incandescent\nmains = 60\nlevel = 1e5\nonset_at = 2\nripple = 0.02\n", 0, 0, 60,
       0.02},
      // From daylight of the lamp's level: the ripple is halved.
      {"light = incandescent\nmains = 50\nlevel = 1e5\nonset_at = 2\nonset_from = daylight\n", 0,
       1e5, 50, 0.04},
  };
  for (const auto& c : rows) {
    SCOPED_TRACE(c.settings);
    flicker_loop::ScenarioBuilder b;
    std::string error;
    ASSERT_TRUE(b.loadText(c.settings, "t", &error)) << error;
    const flicker_sim::SimLight light(b.scenario().light);
    EXPECT_EQ(light.dominantMainsHz(1.9), c.truthBefore);
    EXPECT_NEAR(light.integrate(1.0, 1.9) / 0.9, c.levelBefore, 1e-6 * (1 + c.levelBefore));
    EXPECT_EQ(light.dominantMainsHz(2.1), c.truthAfter);
    // The ripple's depth from the light itself: its 100 or 120 Hz Fourier
    // component over whole periods, relative to the mean.
    const double f = 2.0 * c.truthAfter;
    double re = 0, im = 0, mean = 0;
    for (int i = 0; i < 4000; ++i) {
      const double t = 2.5 + (i + 0.5) / 4000 * (10 / f);
      const double v = light.intensity(t);
      mean += v / 4000;
      re += v * std::cos(2 * M_PI * f * t) / 2000;
      im += v * std::sin(2 * M_PI * f * t) / 2000;
    }
    EXPECT_NEAR(std::hypot(re, im) / mean, c.rippleAfter, 2e-4);
  }
}

// One frame per 10 ms, a pair analysed on every frame; states and truths as
// digit strings: '5' = 50 Hz, '6' = 60 Hz, '0' = no flicker.
flicker_loop::LoopResult records(const std::string& states, const std::string& truths) {
  flicker_loop::LoopResult r;
  r.ok = true;
  for (size_t i = 0; i < states.size(); ++i) {
    flicker_loop::FrameRow f;
    f.frame = static_cast<int>(i);
    f.timeMs = 10.0 * i;
    f.result.flickerState = states[i] == '6' ? FLICKER_RESULT_60HZ : FLICKER_RESULT_50HZ;
    f.truthHz = truths[i] == '0' ? 0 : truths[i] == '5' ? 50 : 60;
    f.analysed = true;
    r.frames.push_back(f);
    r.pairs.push_back(flicker_loop::PairRow{f.frame, 0, f.timeMs});
  }
  return r;
}

TEST(RunSummaryTest, ReadsTheRecords) {
  const struct {
    const char *states, *truths;
    int lockedHz, lockFrame, pairsToLock, switches;
    bool right;
    double changeMs;  // when the light's mains changed; -1: it did not
    double lockAfterChangeMs;
    int pairsAfterChange;
  } rows[] = {
      // clang-format off
      // One switch to the right state; right from the start; never found 60 Hz.
      {"6665555", "5555555", 50, 3, 4, 1, true, -1, -1, -1},
      {"5555555", "5555555", 50, 0, 0, 0, true, -1, -1, -1},
      {"5555555", "6666666", 50, 0, 0, 0, false, -1, -1, -1},
      // Without flicker: switching is wrong, holding still is right.
      {"5565555", "0000000", 50, 3, 4, 2, false, -1, -1, -1},
      {"5555555", "0000000", 50, 0, 0, 0, true, -1, -1, -1},
      // Oscillation ending in the wrong state.
      {"5656566", "5555555", 60, 5, 6, 5, false, -1, -1, -1},
      // The light turns 50 -> 60 Hz at 40 ms and the state follows 30 ms later.
      {"5555555666", "5555666666", 60, 7, 8, 1, true, 40, 30, 3},
      // Already in the new state before the change: no lock after it.
      {"6666666666", "5555666666", 60, 0, 0, 0, true, 40, -1, -1},
      // Still in the old state: wrong, and no lock after the change.
      {"5555555555", "5555666666", 50, 0, 0, 0, false, 40, -1, -1},
      // No records at all.
      {"", "", 0, 0, 0, 0, false, -1, -1, -1},
      // clang-format on
  };
  for (const auto& c : rows) {
    const flicker_loop::RunSummary s = flicker_loop::RunSummary::of(records(c.states, c.truths));
    EXPECT_EQ(std::make_tuple(s.lockedHz, s.lockFrame, s.pairsToLock, s.switches, s.right),
              std::make_tuple(c.lockedHz, c.lockFrame, c.pairsToLock, c.switches, c.right))
        << c.states;
    EXPECT_EQ(std::make_tuple(s.changeMs, s.lockAfterChangeMs, s.pairsAfterChange),
              std::make_tuple(c.changeMs, c.lockAfterChangeMs, c.pairsAfterChange))
        << c.states;
  }
}

}  // namespace
