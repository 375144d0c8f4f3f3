// The evaluation grid's physics and make-up: when a pair can show a lamp's
// ripple, what an exposure leaves of mixed light, which cells the grid holds
// and with which seeds, and a soak that counts false switches.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cell_outcome.h"
#include "eval_cell.h"
#include "host_log.h"
#include "observability.h"
#include "sim_light.h"
#include "soak_run.h"
#include "tuning_choice.h"

namespace flicker_eval {
namespace {

// 4000 x 3000 at 10 us: 2952 lines, six windows, 30 ms of readout; a bright
// office pixel: relative noise of a window sum about 1e-3.
constexpr int kEntries = 6 * 2952;
constexpr double kReadout = 0.0295;
constexpr double kNoise = 1e-3;
constexpr double kFrame30 = 1.0 / 30.0;

TEST(Observability, PairSightFollowsThePhysics) {
  using S = PairSight;
  // The lamp's ripple and the other, depth, exposure, interval; readout,
  // noise and entries of a bright 4000 x 3000 frame unless given.
  const auto pair = [](double ripple, double other, double depth, double exposure, double interval,
                       double readout = kReadout, double noise = kNoise, int entries = kEntries) {
    return PairPhysics{ripple, other, depth, exposure, interval, readout, noise, entries};
  };
  const auto halfPeriod = [&pair](double exposure) {
    return pair(100, 120, 0.35, exposure, kFrame30, 0.0052, kNoise, 6 * 432);
  };
  const struct {
    const char* what;
    PairPhysics pair;
    PairSight sight;
  } rows[] = {
      // clang-format off
      // 50 Hz lamp in state 60 at 30 fps: 100 Hz moves a third of a cycle.
      {"wrong state, moving", pair(100, 120, 0.35, 1 / 60.0, kFrame30), S::kMoving},
      // The state's exposure cancels the lamp's own ripple: nothing to see.
      {"right state, cancelled", pair(100, 120, 0.35, 0.02, kFrame30), S::kHidden},
      // 60 Hz lamp in state 50 at 30 fps: 120 Hz stands still (4 cycles a
      // frame), but the 20 ms exposure cancels 100 Hz, so the bands are it.
      {"frozen, other cancelled", pair(120, 100, 0.35, 0.02, kFrame30), S::kFrozen},
      // The same frozen ripple under a short exposure cancels nothing.
      {"frozen, nothing cancelled", pair(120, 100, 0.35, 1e-3, kFrame30), S::kHidden},
      // An eighth of a cycle is moving, a twentieth is not (the least is a tenth).
      {"barely moving, short exposure", pair(100, 120, 0.35, 1e-3, 0.12 / 100 + 0.04), S::kMoving},
      {"too little motion", pair(100, 120, 0.35, 1e-3, 0.05 / 100 + 0.04), S::kHidden},
      // Half a period of readout (640 x 480 at 12 us): no band period to
      // measure, but the 16.7 ms exposure cancels 120 Hz.
      {"half a period, other cancelled", halfPeriod(1 / 60.0), S::kMoving},
      {"half a period, short exposure", halfPeriod(1e-3), S::kHidden},
      // A 2 % lamp: 0.3 % bands after a 16.7 ms exposure, far above the
      // noise of a bright frame, lost in a very dark and noisy one.
      {"2 % lamp, bright", pair(100, 120, 0.02, 1 / 60.0, kFrame30), S::kMoving},
      {"2 % lamp, dark", pair(100, 120, 0.02, 1 / 60.0, kFrame30, kReadout, 2.0), S::kHidden},
      // clang-format on
  };
  for (const auto& row : rows) EXPECT_EQ(pairSight(row.pair), row.sight) << row.what;
}

TEST(Observability, ReadoutKeepsLessOfARippleBeyondALineTheShorterItIs) {
  EXPECT_LT(beyondLine(0.1), 0.02);  // a tenth of a band is nearly a line
  EXPECT_GT(beyondLine(0.5), 0.2);
  EXPECT_LT(beyondLine(0.5), 0.45);
  EXPECT_GT(beyondLine(3.0), 0.95);
  EXPECT_EQ(beyondLine(0.0), 0.0);
}

// A lamp switched on mid-stream, floodlit 1080p (one 100 Hz period) in state
// 50. The pair across the onset has a dark earlier frame, whatever its later
// frame's exposure cancels: it counts for nothing. At 29.97 fps fixed-rate
// the 120 Hz ripple then stands still and the short exposure cancels
// neither ripple: no pair can show the lamp. At 25 fps it moves.
TEST(Observability, APairShowsOnlyALampThatLitBothItsFrames) {
  struct Row {
    const char* fps;
    uint64_t seed;
    bool counted;
  };
  flicker_host::setLogsQuiet(true);
  for (const Row& row : {Row{"29.97", 692, false}, Row{"25", 1691, true}}) {
    EvalCell c;
    c.seed = row.seed;
    const std::pair<const char*, const char*> dims[] = {
        {"light", "fluorescent"}, {"mains", "dark>60"},           {"exposure", "short"},
        {"timing", "fixed"},      {"geometry", "1920x1080@10us"}, {"start", "50"}};
    for (const auto& dim : dims) {
      ASSERT_TRUE(c.set(dim.first, dim.second)) << dim.first;
    }
    ASSERT_TRUE(c.set("fps", row.fps));
    SCOPED_TRACE(c.label());
    const CellOutcome o = evaluate(c, 4.0);
    ASSERT_TRUE(o.ok) << o.error;
    EXPECT_EQ(o.counted, row.counted);
  }
}

flicker_sim::SimLightSegment lamps(double share60) {
  using flicker_sim::makeLightComponent;
  using flicker_sim::SimLightType;
  return {0.0,
          {makeLightComponent(SimLightType::kIncandescent, 50.0, 1e5 * (1 - share60)),
           makeLightComponent(SimLightType::kIncandescent, 60.0, 1e5 * share60)}};
}

// What an exposure leaves of every ripple: 8 % ripples (incandescent) times
// the lamps' shares and the exposure's sinc.
TEST(Observability, ResidualBandingIsWhatTheExposureLeavesOfEveryRipple) {
  const struct {
    const char* what;
    double share60, exposureS, residual;
  } rows[] = {
      // One lamp, its own state: nothing left; the other state: sinc(1.67).
      {"50 Hz lamp, 20 ms", 0.0, 0.02, 0.0},
      {"50 Hz lamp, 16.7 ms", 0.0, 1 / 60.0, 0.08 * 0.16539867},
      // Equal shares: state 50 (20 ms) leaves half of 120 Hz times sinc(2.4),
      // state 60 (16.7 ms) half of 100 Hz times sinc(1.67): 50 leaves less.
      {"mixed, 20 ms", 0.5, 0.02, 0.04 * 0.12613778},
      {"mixed, 16.7 ms", 0.5, 1 / 60.0, 0.04 * 0.16539867},
      // 70 % on 50 Hz: state 50 leaves the weaker 60 Hz lamp's ripple.
      {"mixed 30, 20 ms", 0.3, 0.02, 0.024 * 0.12613778},
  };
  for (const auto& c : rows)
    EXPECT_NEAR(residualBanding(lamps(c.share60), c.exposureS), c.residual, 1e-5) << c.what;
}

// The default grid is the one EVALUATION.md describes: its figures compare
// runs of exactly these cells.
TEST(EvalGrid, DefaultGridIsTheDocumentedOne) {
  EXPECT_EQ(buildGrid(GridSize::kDefault).size(), 919u);
}

TEST(EvalGrid, CellsAreUniqueDeterministicAndSeededFromTheBase) {
  for (const GridSize size : {GridSize::kQuick, GridSize::kDefault}) {
    const std::vector<EvalCell> a = buildGrid(size, 0);
    const std::vector<EvalCell> b = buildGrid(size, 20000);
    ASSERT_EQ(a.size(), b.size());
    std::set<std::string> labels;
    std::set<uint64_t> seeds;
    for (size_t i = 0; i < a.size(); ++i) {
      EXPECT_TRUE(labels.insert(a[i].label()).second) << a[i].label();
      EXPECT_TRUE(seeds.insert(a[i].seed).second);
      // The same scene, another seed set.
      EXPECT_EQ(a[i].label(), b[i].label());
      EXPECT_EQ(b[i].seed, a[i].seed + 20000);
      // Every cell builds a scenario.
      flicker_sim::SimScenario scenario;
      int frames = 0;
      std::string error;
      EXPECT_TRUE(a[i].scenario(4.0, &scenario, &frames, &error)) << error;
      // A rate per minute of mixed light needs runs of a minute; the rest
      // run as long as the grid says.
      EXPECT_EQ(a[i].runSeconds(4.0), a[i].isMixed() ? kMixedSeconds : 4.0) << a[i].label();
      EXPECT_EQ(a[i].runSeconds(90.0), 90.0);
    }
  }
  EXPECT_EQ(seedSetKind(0), "tuning");
  EXPECT_EQ(seedSetKind(1000), "tuning");
  for (const uint64_t base : kHeldOutSeedBases) EXPECT_EQ(seedSetKind(base), "held out");
}

// A soak is a list of runs known before the first starts: scenes in turn,
// fresh seeds, as many runs as make up the hours; a tiny one switches
// nowhere, and a failed run is counted with the time asked of it.
TEST(Soak, PlansTheRunsThenCountsFalseSwitches) {
  const std::vector<EvalCell> scenes =
      filterCells(soakCells(), {{"geometry", "640x480@12us"}, {"light", "daylight"}});
  ASSERT_GE(scenes.size(), 2u);
  for (const EvalCell& c : scenes) EXPECT_FALSE(c.hasFlicker());
  const std::vector<EvalCell> runs = soakRuns(scenes, 2.5 / 3600, 1.0, 500);
  ASSERT_EQ(runs.size(), 3u);  // 2.5 s in runs of 1 s
  for (size_t k = 0; k < runs.size(); ++k) {
    EXPECT_EQ(runs[k].label(), scenes[k % scenes.size()].label());
    EXPECT_EQ(runs[k].seed, 500 + k + 1);
  }
  EXPECT_TRUE(soakRuns({}, 1.0, 1.0, 0).empty());

  flicker_host::setLogsQuiet(true);
  std::string error;
  ASSERT_TRUE(flicker_loop::TuningChoice::apply("open", nullptr, &error)) << error;
  std::vector<CellOutcome> outcomes = evaluateAll(runs, 1.0, nullptr);
  outcomes.back().ok = false;
  const SoakReport r = soakReport(outcomes, 1.0, 2.0);
  EXPECT_EQ(r.runs, 3);
  EXPECT_GE(r.hours * 3600, 2.5);
  EXPECT_EQ(r.falseSwitches, 0);
  EXPECT_EQ(r.failedRuns, 1);
  ASSERT_EQ(r.switching.size(), 1u) << "the failed run is listed";
  EXPECT_EQ(r.switching[0].cell.seed, runs.back().seed);
}

}  // namespace
}  // namespace flicker_eval
