// Closed-loop detection scenarios: the algorithm's verdicts drive the applied
// frequency exactly as the manager would, over synthesised pairs.
#include <gtest/gtest.h>

#include <string>

#include "algo_driver.h"

namespace algo_test {
namespace {

struct ScenarioCase {
  std::string name;
  Scenario scenario;
  int expectedSwitches;  // state changes over the run
  int switchBy;          // when one is expected: the latest detection index allowed
  int finalHz;
};

Scenario make(double mainsHz, int startHz) {
  Scenario s;
  s.light.mainsHz = mainsHz;
  s.startHz = startHz;
  return s;
}

Scenario withScene(Scenario s, SceneFn scene) {
  s.scene = std::move(scene);
  return s;
}

Scenario withExposure(Scenario s, double e50, double e60) {
  s.exposure50 = e50;
  s.exposure60 = e60;
  return s;
}

Scenario mixed(Scenario s) {
  s.light.mixHz = 50;
  s.light.mixModulation = s.light.modulation;
  return s;
}

Scenario everyFrame(Scenario s) {
  s.everyFrame = true;
  return s;
}

// With the default tuning a switch needs three consistent pairs: index 2.
constexpr int kFirstPossible = 2;

std::vector<ScenarioCase> cases() {
  using B = StatsPairBuilder;
  return {
      // Clean pairs: the other mains frequency is found and the loop settles.
      {"Light60From50", make(60, 50), 1, kFirstPossible, 60},
      {"Light50From60", make(50, 60), 1, kFirstPossible, 50},
      // Steady light or the right state: nothing to change.
      {"SteadyFrom50", make(0, 50), 0, -1, 50},
      {"SteadyFrom60", make(0, 60), 0, -1, 60},
      {"Light50Stays50", make(50, 50), 0, -1, 50},
      {"Light60Stays60", make(60, 60), 0, -1, 60},
      // Exposures shorter than a period show both ripples: the period decides,
      // and after the switch the visible ripple confirms the new state.
      {"ShortExposure60", withExposure(make(60, 50), 2e-3, 2e-3), 1, kFirstPossible, 60},
      {"ShortExposure50", withExposure(make(50, 60), 2e-3, 2e-3), 1, kFirstPossible, 50},
      // 50 ms is a multiple of both periods: no ripple is left to see.
      {"CommonMultipleExposure", withExposure(make(60, 50), 50e-3, 50e-3), 0, -1, 50},
      // Two lamps on different mains with equal ripple: ambiguous, no switch.
      {"MixedLampsFrom50", mixed(withExposure(make(60, 50), 2e-3, 2e-3)), 0, -1, 50},
      {"MixedLampsFrom60", mixed(withExposure(make(60, 60), 2e-3, 2e-3)), 0, -1, 60},
      // Every-frame mode: slot 1 is the earlier frame every other pair.
      {"EveryFrame60", everyFrame(make(60, 50)), 1, kFirstPossible, 60},
      {"EveryFrame50", everyFrame(make(50, 60)), 1, kFirstPossible, 50},
      // Scene texture cancels in the difference.
      {"Textured60", withScene(make(60, 50), B::textured()), 1, kFirstPossible, 60},
      // Robust window combination: two windows with motion or clipping do not decide.
      {"MovingObject60", withScene(make(60, 50), B::movingObject(1, 2, 300, 120)), 1,
       kFirstPossible, 60},
      {"ClippedArea60", withScene(make(60, 50), B::clippedBlock(0, 1)), 1, kFirstPossible, 60},
      {"MovingObjectSteady", withScene(make(0, 50), B::movingObject(1, 2, 300, 120)), 0, -1, 50},
      {"MovingObjectSteady60", withScene(make(0, 60), B::movingObject(2, 3, 400, 200)), 0, -1, 60},
      // Motion everywhere or a new scene in every pair never creates a switch.
      {"PanSteady", withScene(make(0, 50), B::pan(40)), 0, -1, 50},
      {"SceneCut60", withScene(make(60, 50), B::cut()), 0, -1, 50},
  };
}

class DetectionScenario : public ::testing::TestWithParam<ScenarioCase> {};

TEST_P(DetectionScenario, SettlesAsExpected) {
  const ScenarioCase& c = GetParam();
  AlgoDriver driver(zeroTuning(), c.scenario.startHz);
  const ScenarioRun run = runScenario(c.scenario, driver);
  EXPECT_EQ(run.switches, c.expectedSwitches);
  EXPECT_EQ(run.stateAfter.back(), c.finalHz);
  if (c.expectedSwitches > 0) {
    EXPECT_GE(run.firstSwitch, 0);
    EXPECT_LE(run.firstSwitch, c.switchBy);
  }
  for (const FlkDetectResult& r : run.results) {
    EXPECT_GE(r.score50, 0);
    EXPECT_LE(r.score50, 100);
    EXPECT_GE(r.score60, 0);
    EXPECT_LE(r.score60, 100);
  }
}

INSTANTIATE_TEST_SUITE_P(Algo, DetectionScenario, ::testing::ValuesIn(cases()),
                         [](const auto& info) { return info.param.name; });

// The scores follow the light: the ripple that is present scores high, the
// absent one stays near zero.
TEST(DetectionScores, FollowTheLight) {
  struct Row {
    double mainsHz;
    int startHz;
    bool high50;
    bool high60;
  } rows[] = {
      {60, 50, false, true},  // 60 Hz light seen from state 50
      {50, 60, true, false},  // 50 Hz light seen from state 60
      {0, 50, false, false},  // steady light: both low
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.mainsHz);
    AlgoDriver driver(zeroTuning(), row.startHz);
    Scenario s = make(row.mainsHz, row.startHz);
    s.pairs = 2;  // before any switch
    const ScenarioRun run = runScenario(s, driver);
    const FlkDetectResult& r = run.results.back();
    EXPECT_EQ(r.score50 >= 80, row.high50) << r.score50;
    EXPECT_EQ(r.score60 >= 80, row.high60) << r.score60;
    EXPECT_LE(std::min(r.score50, r.score60), 20);
  }
}

// 30 fps pairs freeze the 120 Hz ripple's phase: the frame difference sees
// nothing, so a single frame's ripple may confirm 60 Hz but never switches
// to it. Lowering the frame rate moves the phase and the switch follows.
TEST(FrozenPhase, ConfirmsButNeverSwitches) {
  Scenario frozen = withExposure(make(60, 50), 5e-3, 5e-3);
  frozen.framePeriod = 1.0 / 30.0;
  frozen.pairs = 12;

  AlgoDriver from50(zeroTuning(), 50);
  const ScenarioRun stuck = runScenario(frozen, from50);
  EXPECT_EQ(stuck.switches, 0);

  frozen.startHz = 60;
  AlgoDriver from60(zeroTuning(), 60);
  const ScenarioRun confirmed = runScenario(frozen, from60);
  EXPECT_EQ(confirmed.switches, 0);
  EXPECT_EQ(confirmed.results.back().state, FLK_FREQ_60HZ);

  Scenario moved = frozen;
  moved.startHz = 50;
  moved.framePeriod = 36e-3;
  AlgoDriver slower(zeroTuning(), 50);
  EXPECT_EQ(runScenario(moved, slower).switches, 1);
}

}  // namespace
}  // namespace algo_test
