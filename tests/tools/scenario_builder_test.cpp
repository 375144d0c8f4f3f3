// Scenario settings: keys reach the simulator's specs, the light is rebuilt
// from the lamp settings, and bad text is refused with its origin.
#include <gtest/gtest.h>

#include "scenario_builder.h"

namespace {

using flicker_loop::ScenarioBuilder;

TEST(ScenarioBuilderTest, KeysReachEverySensor) {
  ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(b.selectPreset("dual-sensor-50hz", &error)) << error;
  ASSERT_TRUE(b.loadText("fps = 25  # both\nread_noise = 4\n", "text", &error)) << error;
  const flicker_sim::SimScenario s = b.scenario();
  ASSERT_EQ(s.sensors.size(), 2u);
  for (const flicker_sim::SimSensorSpec& sensor : s.sensors) {
    EXPECT_DOUBLE_EQ(sensor.framesPerSecond, 25.0);
    EXPECT_DOUBLE_EQ(sensor.pixel.readNoiseE, 4.0);
  }
}

TEST(ScenarioBuilderTest, ResizingKeepsTheBinnedFrameRatio) {
  ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(b.selectPreset("home-60hz", &error));  // TG 2000x1500, frame 4000x3000
  ASSERT_TRUE(b.set("height", "600", &error)) << error;
  const flicker_sim::SimGeometry g = b.scenario().sensors.front().geometry;
  EXPECT_EQ(g.tgHeight, 600);
  EXPECT_EQ(g.frameHeight, 1200);
}

TEST(ScenarioBuilderTest, LightKeysRebuildTheLampAndTheSwitch) {
  ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(
      b.loadText("light = led\nmains = 60\nswitch_at = 2\nswitch_mains = 50\n", "t", &error))
      << error;
  const flicker_sim::SimScenario s = b.scenario();
  ASSERT_EQ(s.light.segments.size(), 2u);
  EXPECT_EQ(s.light.segments[0].components.front().type, flicker_sim::SimLightType::kRectifiedLed);
  EXPECT_DOUBLE_EQ(s.light.segments[0].components.front().mainsHz, 60.0);
  EXPECT_DOUBLE_EQ(s.light.segments[1].startS, 2.0);
  EXPECT_DOUBLE_EQ(s.light.segments[1].components.front().mainsHz, 50.0);
}

TEST(ScenarioBuilderTest, MixedLightAddsASecondLampSharingTheLevel) {
  ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(b.loadText("level = 1e5\nmix_mains = 60\nmix_share = 0.25\n", "t", &error));
  const auto lamps = b.scenario().light.segments.front().components;
  ASSERT_EQ(lamps.size(), 2u);
  EXPECT_DOUBLE_EQ(lamps[0].level, 0.75e5);
  EXPECT_DOUBLE_EQ(lamps[1].level, 0.25e5);
  EXPECT_DOUBLE_EQ(lamps[1].mainsHz, 60.0);
}

TEST(ScenarioBuilderTest, SensorsAreCopiesStartingLater) {
  ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(b.set("sensors", "3", &error));
  const flicker_sim::SimScenario s = b.scenario();
  ASSERT_EQ(s.sensors.size(), 3u);
  EXPECT_LT(s.sensors[0].startTimeS, s.sensors[1].startTimeS);
  EXPECT_LT(s.sensors[1].startTimeS, s.sensors[2].startTimeS);
}

TEST(ScenarioBuilderTest, FrozenAliasNamesTheStill120HzPreset) {
  ScenarioBuilder b;
  std::string error;
  ASSERT_TRUE(b.selectPreset("frozen-30fps", &error)) << error;
  EXPECT_EQ(b.scenario().name, "frozen-30fps");
  EXPECT_DOUBLE_EQ(b.scenario().sensors.front().framesPerSecond, 30.0);
}

struct BadText {
  const char* text;
  const char* expected;
};

class BadTextTest : public ::testing::TestWithParam<BadText> {};

TEST_P(BadTextTest, IsRefusedWithLineNumber) {
  ScenarioBuilder b;
  std::string error;
  EXPECT_FALSE(b.loadText(GetParam().text, "scene", &error));
  EXPECT_NE(error.find(GetParam().expected), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(Table, BadTextTest,
                         ::testing::Values(
                             // A line without '='.
                             BadText{"fps 30\n", "scene:1: expected 'key = value'"},
                             // An unknown key, after a comment line.
                             BadText{"# x\ncolour = red\n", "scene:2: unknown key 'colour'"},
                             // A start state that is not 50, 60 or keep.
                             BadText{"start_state = 55\n",
                                     "scene:1: bad value '55' for start_state"},
                             // Frames of zero.
                             BadText{"frames = 0\n", "bad value '0' for frames"},
                             // An unknown lamp.
                             BadText{"light = candle\n", "bad value 'candle' for light"},
                             // An unknown preset.
                             BadText{"scenario = moon\n", "unknown scenario 'moon'"}));

TEST(NumberParsingTest, WholeAndRealNumbers) {
  long n = 0;
  double x = 0;
  EXPECT_TRUE(flicker_loop::parseInt("42", 0, 100, &n));
  EXPECT_EQ(n, 42);
  EXPECT_FALSE(flicker_loop::parseInt("42.0", 0, 100, &n)) << "no fraction";
  EXPECT_FALSE(flicker_loop::parseInt("", 0, 100, &n)) << "empty";
  EXPECT_FALSE(flicker_loop::parseInt("101", 0, 100, &n)) << "out of range";
  EXPECT_FALSE(flicker_loop::parseInt("99999999999999999999", 0, 100, &n)) << "overflow";
  EXPECT_TRUE(flicker_loop::parseReal("29.97", 1, 1000, &x));
  EXPECT_DOUBLE_EQ(x, 29.97);
  EXPECT_FALSE(flicker_loop::parseReal("nan", 0, 1, &x)) << "not finite";
  EXPECT_FALSE(flicker_loop::parseReal("1e999", 0, 1e9, &x)) << "overflow";
}

}  // namespace
