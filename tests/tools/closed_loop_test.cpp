// Closed-loop runs of the real manager on simulated statistics: the manager
// must lock to the light's mains and hold still without flicker, with one
// sensor or two. These are the end-to-end proofs of detection; small
// geometry keeps them fast.
#include <gtest/gtest.h>

#include <ostream>

#include "case_names.h"
#include "run_summary.h"
#include "tools_test_util.h"

namespace {

using flicker_loop::LoopResult;

class ClosedLoopTest : public ::testing::Test {
 protected:
  void SetUp() override { tools_test::useOpenTuning(); }
};

struct LockCase {
  const char* name;
  const char* preset;
  tools_test::Settings settings;
  int lockedHz;
  int maxSwitches;
};

CASE_PRINTS_ITS_NAME(LockCase)

class LockTest : public ClosedLoopTest, public ::testing::WithParamInterface<LockCase> {};

TEST_P(LockTest, EndsInTheLightsStateWithinBudget) {
  const LockCase& c = GetParam();
  tools_test::Settings settings = c.settings;
  settings.emplace_back("frames", "150");
  const LoopResult result = tools_test::runSmall(c.preset, settings);
  ASSERT_TRUE(result.ok) << result.error;
  const flicker_loop::RunSummary s = flicker_loop::RunSummary::of(result);
  EXPECT_EQ(s.lockedHz, c.lockedHz);
  EXPECT_LE(s.switches, c.maxSwitches);
  EXPECT_TRUE(s.right);
  EXPECT_GT(s.pairs, 30) << "the worker analysed pairs throughout the run";
  // The deciding pair is the one the state switched after, or, without a
  // switch, one that did not switch.
  const flicker_loop::PairStats& deciding = result.decidingPair;
  ASSERT_TRUE(deciding.valid);
  EXPECT_EQ(deciding.row.switched, s.switches > 0);
  if (s.switches > 0) {
    EXPECT_EQ(std::make_pair(deciding.row.frame, deciding.row.stateHz),
              std::make_pair(s.lockFrame, s.lockedHz));
  }
  EXPECT_EQ(std::count_if(result.pairs.begin(), result.pairs.end(),
                          [](const flicker_loop::PairRow& p) { return p.switched; }),
            s.switches);
  // Every posted pair was analysed within the frame that posted it.
  EXPECT_EQ(std::count_if(result.frames.begin(), result.frames.end(),
                          [](const flicker_loop::FrameRow& f) { return f.analysed; }),
            static_cast<long>(result.pairs.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, LockTest,
    ::testing::Values(
        // Detection of 50 Hz from the wrong state: one switch, then held.
        LockCase{"office50_from60", "office-50hz", {{"start_state", "60"}}, 50, 1},
        // Already right: exposure on 10 ms multiples hides the ripple; no switch.
        LockCase{"office50_from50", "office-50hz", {{"start_state", "50"}}, 50, 0},
        // Detection of 60 Hz at the preset's exact 30 fps (120 Hz ripple frozen
        // between consecutive frames unless detection frames are stretched).
        LockCase{"home60_from50", "home-60hz", {{"start_state", "50"}}, 60, 1},
        // The same scene at 25 fps, where the 120 Hz ripple moves every frame.
        LockCase{"home60_from50_fps25", "home-60hz", {{"start_state", "50"}, {"fps", "25"}}, 60, 1},
        // No flicker: neither start state may move.
        LockCase{"daylight_from50", "daylight", {{"start_state", "50"}}, 50, 0},
        LockCase{"daylight_from60", "daylight", {{"start_state", "60"}}, 60, 0}),
    case_names::CaseName());

// A second sensor is attached, analyses pairs and ends in the process-wide
// state; sensors that disagree on binning are refused.
TEST_F(ClosedLoopTest, TwoSensorsShareTheProcessWideState) {
  const LoopResult result = tools_test::runSmall(
      "office-50hz", {{"start_state", "60"}, {"frames", "90"}, {"sensors", "2"}});
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_TRUE(std::any_of(result.pairs.begin(), result.pairs.end(),
                          [](const flicker_loop::PairRow& p) { return p.sensor == 1; }));
  int last[2] = {0, 0};
  for (const flicker_loop::FrameRow& f : result.frames) last[f.sensor] = f.result.flickerState;
  EXPECT_EQ(last[0], FLICKER_RESULT_50HZ);
  EXPECT_EQ(last[1], FLICKER_RESULT_50HZ);

  const flicker_loop::ScenarioBuilder builder = tools_test::smallScenario("dual-sensor-50hz");
  flicker_sim::SimScenario scenario = builder.scenario();
  ASSERT_EQ(scenario.sensors.size(), 2u);
  scenario.sensors[1].geometry.sensorBinning = 2;
  const LoopResult refused = flicker_loop::ClosedLoopRunner(scenario, builder.options()).run();
  EXPECT_FALSE(refused.ok);
  EXPECT_NE(refused.error.find("binning"), std::string::npos) << refused.error;
}

}  // namespace
