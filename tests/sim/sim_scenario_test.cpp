// Every preset must yield a frame stream a runner can hand the manager as it
// is: well-formed blocks, physical time stamps and consistent ground truth.
#include "sim_scenario.h"

#include <gtest/gtest.h>

#include <set>

#include "sim_rig.h"

namespace flicker_sim {
namespace {

class PresetTest : public ::testing::TestWithParam<std::string> {};

TEST_P(PresetTest, YieldsWellFormedFramesForEverySensor) {
  SimScenario scenario;
  ASSERT_TRUE(makeSimPreset(GetParam(), &scenario));
  EXPECT_EQ(scenario.name, GetParam());
  EXPECT_FALSE(scenario.description.empty());
  ASSERT_FALSE(scenario.sensors.empty());
  SimRig rig(scenario);
  ASSERT_EQ(rig.sensorCount(), static_cast<int>(scenario.sensors.size()));
  for (int s = 0; s < rig.sensorCount(); ++s) {
    SimSensor* sensor = rig.sensor(s);
    const SimConfig config = sensor->config();
    const SimGeometry& g = sensor->geometry();
    ASSERT_TRUE(g.valid()) << s;
    // The records carry what the manager derives the line time from.
    EXPECT_EQ(config.hbinHeight, g.frameHeight);
    EXPECT_EQ(config.hbinWidth, g.frameWidth >> g.pixelMode);
    EXPECT_EQ(config.pixelsInLine, g.pixelsInLine);
    EXPECT_EQ(config.sensorBinningRatio, g.sensorBinning);
    const double fps = sensor->spec().framesPerSecond;
    SimFrame frame;
    int64_t lastSof = 0;
    for (int i = 0; i < 6; ++i) {
      sensor->nextFrame(&frame);
      ASSERT_EQ(static_cast<int>(frame.stats.size()), g.statEntries()) << s << "/" << i;
      const int64_t fullScale = 1023LL * frame.windowWidth;
      for (int64_t v : frame.stats) {
        ASSERT_GE(v, 0);
        ASSERT_LE(v, fullScale + 64);  // noise around a saturated sum stays small
      }
      EXPECT_GT(frame.exposureTime, 0);
      EXPECT_LT(frame.exposureS, 1.0 / fps);
      EXPECT_EQ(frame.height, g.frameHeight);
      if (i > 0) {
        // Nanoseconds: a frame period of at most 1 / fps plus the stretch.
        const double period = (frame.sof_timestamp - lastSof) * 1e-9;
        EXPECT_GE(period, 1.0 / fps - 1e-6);
        EXPECT_LT(period, 1.0 / fps + 0.011 + g.frameHeight * g.lineTimeSeconds());
      }
      lastSof = frame.sof_timestamp;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, PresetTest, ::testing::ValuesIn(simPresetNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           std::string name = info.param;
                           for (char& ch : name) {
                             if (ch == '-') {
                               ch = '_';
                             }
                           }
                           return name;
                         });

TEST(SimScenarioTest, NamesAreUniqueAndUnknownNamesAreRefused) {
  const std::vector<std::string> names = simPresetNames();
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  SimScenario scenario;
  scenario.name = "untouched";
  EXPECT_FALSE(makeSimPreset("no-such-preset", &scenario));
  EXPECT_EQ(scenario.name, "untouched");
  EXPECT_FALSE(makeSimPreset("office-50hz", nullptr));
  EXPECT_EQ(SimRig(scenario).sensor(0), nullptr);
}

// The ground truth follows the light: which mains flickers, and when.
TEST(SimScenarioTest, GroundTruthFollowsTheLight) {
  struct Case {
    const char* preset;
    double timeS;
    int mains;
  };
  const Case cases[] = {
      {"office-50hz", 1.0, 50},     {"home-60hz", 1.0, 60},
      {"light-switch", 3.9, 50},                          // before the switch
      {"light-switch", 4.1, 60},                          // after it
      {"daylight", 1.0, 0},         {"pwm-led", 1.0, 0},  // flickers, but not with the mains
      {"grating-daylight", 1.0, 0},
  };
  for (const Case& c : cases) {
    SimScenario scenario;
    ASSERT_TRUE(makeSimPreset(c.preset, &scenario));
    EXPECT_EQ(SimRig(scenario).light().dominantMainsHz(c.timeS), c.mains)
        << c.preset << " at " << c.timeS;
  }
}

}  // namespace
}  // namespace flicker_sim
