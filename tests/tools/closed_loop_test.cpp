// Closed-loop runs of the real manager on simulated statistics: the manager
// must lock to the light's mains and hold still without flicker, and the
// runner must be deterministic. These are the end-to-end proofs of
// detection; small geometry keeps them fast.
#include <gtest/gtest.h>

#include "closed_loop_runner.h"
#include "host_log.h"
#include "run_summary.h"
#include "sem_watch.h"
#include "tools_test_util.h"
#include "tuning_choice.h"

namespace {

using flicker_loop::ClosedLoopRunner;
using flicker_loop::LoopResult;
using flicker_loop::RunSummary;

class ClosedLoopTest : public ::testing::Test {
 protected:
  void SetUp() override {
    flicker_host::setLogsQuiet(true);
    std::string error;
    ASSERT_TRUE(flicker_loop::TuningChoice::apply("open", nullptr, &error)) << error;
  }

  static LoopResult run(const std::string& preset, const std::string& startHz, int frames,
                        std::vector<std::pair<std::string, std::string>> extra = {}) {
    extra.emplace_back("start_state", startHz);
    extra.emplace_back("frames", std::to_string(frames));
    const flicker_loop::ScenarioBuilder builder = tools_test::smallScenario(preset, extra);
    return ClosedLoopRunner(builder.scenario(), builder.options()).run();
  }
};

struct LockCase {
  const char* preset;
  const char* start;
  std::vector<std::pair<std::string, std::string>> extra;
  int lockedHz;
  int maxSwitches;
  const char* proves;
};

void PrintTo(const LockCase& c, std::ostream* os) {
  *os << c.proves;
}

class LockTest : public ClosedLoopTest, public ::testing::WithParamInterface<LockCase> {};

TEST_P(LockTest, EndsInTheLightsStateWithinBudget) {
  const LockCase& c = GetParam();
  const LoopResult result = run(c.preset, c.start, 150, c.extra);
  ASSERT_TRUE(result.ok) << result.error;
  const RunSummary s = RunSummary::of(result);
  EXPECT_EQ(s.lockedHz, c.lockedHz) << c.proves;
  EXPECT_LE(s.switches, c.maxSwitches) << c.proves;
  EXPECT_TRUE(s.right) << c.proves;
  EXPECT_GT(s.pairs, 30) << "the worker analysed pairs throughout the run";
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, LockTest,
    ::testing::Values(
        // Detection of 50 Hz from the wrong state: one switch, then held.
        LockCase{"office-50hz", "60", {}, 50, 1, "office-50hz switches 60 -> 50"},
        // Already right: exposure on 10 ms multiples hides the ripple; no switch.
        LockCase{"office-50hz", "50", {}, 50, 0, "office-50hz holds 50"},
        // Detection of 60 Hz at the preset's exact 30 fps (120 Hz ripple frozen
        // between consecutive frames unless detection frames are stretched).
        LockCase{"home-60hz", "50", {}, 60, 1, "home-60hz switches 50 -> 60 at 30 fps"},
        // The same scene at 25 fps, where the 120 Hz ripple moves every frame.
        LockCase{"home-60hz", "50", {{"fps", "25"}}, 60, 1, "home-60hz switches at 25 fps"},
        // No flicker: neither start state may move.
        LockCase{"daylight", "50", {}, 50, 0, "daylight holds 50"},
        LockCase{"daylight", "60", {}, 60, 0, "daylight holds 60"}),
    [](const ::testing::TestParamInfo<LockCase>& info) {
      std::string name = std::string(info.param.preset) + "_from" + info.param.start;
      for (const auto& kv : info.param.extra) {
        name += "_" + kv.first + kv.second;
      }
      for (char& ch : name) {
        if (!isalnum(static_cast<unsigned char>(ch))) {
          ch = '_';
        }
      }
      return name;
    });

TEST_F(ClosedLoopTest, SameScenarioGivesTheSameRecords) {
  const LoopResult a = run("office-50hz", "60", 60);
  const LoopResult b = run("office-50hz", "60", 60);
  ASSERT_TRUE(a.ok && b.ok);
  ASSERT_EQ(a.pairs.size(), b.pairs.size());
  ASSERT_FALSE(a.pairs.empty());
  for (size_t i = 0; i < a.pairs.size(); ++i) {
    EXPECT_EQ(a.pairs[i].frame, b.pairs[i].frame);
    EXPECT_EQ(a.pairs[i].stateHz, b.pairs[i].stateHz) << "pair " << i;
    EXPECT_EQ(a.pairs[i].score50, b.pairs[i].score50) << "pair " << i;
    EXPECT_EQ(a.pairs[i].score60, b.pairs[i].score60) << "pair " << i;
  }
}

TEST_F(ClosedLoopTest, EveryPostedPairIsAnalysedBeforeTheNextFrame) {
  // Analyses finish inside the frame that posted them: the first pair in
  // the wrong state already carries the algorithm's score, and each pair row
  // sits on a frame whose result saw it.
  const LoopResult result = run("office-50hz", "60", 30);
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_FALSE(result.pairs.empty());
  EXPECT_GT(result.pairs.front().score50, 0);
  int analysedFrames = 0;
  for (const flicker_loop::FrameRow& f : result.frames) {
    analysedFrames += f.analysed ? 1 : 0;
  }
  EXPECT_EQ(analysedFrames, static_cast<int>(result.pairs.size()));
}

TEST_F(ClosedLoopTest, TwoSensorsShareTheProcessWideState) {
  const LoopResult result = run("office-50hz", "60", 90, {{"sensors", "2"}});
  ASSERT_TRUE(result.ok) << result.error;
  bool sawSensor1 = false;
  for (const flicker_loop::PairRow& p : result.pairs) {
    sawSensor1 = sawSensor1 || p.sensor == 1;
  }
  EXPECT_TRUE(sawSensor1) << "the second sensor is attached and analyses pairs";
  // Both sensors report the same state at the end.
  int last0 = 0;
  int last1 = 0;
  for (const flicker_loop::FrameRow& f : result.frames) {
    (f.sensor == 0 ? last0 : last1) = f.result.flickerState;
  }
  EXPECT_EQ(last0, FLICKER_RESULT_50HZ);
  EXPECT_EQ(last1, FLICKER_RESULT_50HZ);
}

TEST_F(ClosedLoopTest, SensorsThatDisagreeOnBinningAreRefused) {
  flicker_loop::ScenarioBuilder builder = tools_test::smallScenario("dual-sensor-50hz");
  flicker_sim::SimScenario scenario = builder.scenario();
  ASSERT_EQ(scenario.sensors.size(), 2u);
  scenario.sensors[1].geometry.sensorBinning = 2;
  const LoopResult result = ClosedLoopRunner(scenario, builder.options()).run();
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.error.find("binning"), std::string::npos) << result.error;
}

}  // namespace
