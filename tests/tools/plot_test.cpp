// The pictures: which pair a plot names as deciding, when the time axes zoom
// into the start of a run, where a zoomed axis puts its points, and which
// step of a replay decided.
#include <gtest/gtest.h>

#include <regex>

#include "dump_replayer.h"
#include "replay_plot.h"
#include "run_plot.h"
#include "svg_chart.h"

namespace {

constexpr double kFrameMs = 33.3;

// Pairs at the given times (ms); those in `switches` changed the state.
flicker_loop::LoopResult pairsAt(const std::vector<double>& times,
                                 const std::vector<double>& switches) {
  flicker_loop::LoopResult r;
  r.frameIntervalMs = kFrameMs;
  for (const double t : times) {
    flicker_loop::PairRow p;
    p.timeMs = t;
    p.switched = std::find(switches.begin(), switches.end(), t) != switches.end();
    r.pairs.push_back(p);
  }
  return r;
}

TEST(RunPlotTest, ZoomsWhenAllEventsAreEarly) {
  const struct {
    const char* what;
    std::vector<double> switches;  // ms
    double changeMs;               // light change, -1: none
    double durationMs;
    double zoomEndS;  // 0: no zoom
  } rows[] = {
      // A lock after 205 ms of a 10 s run: 1.5 x 205 ms, rounded up to 500 ms.
      {"early lock", {205}, -1, 10000, 0.5},
      // The light changed at 300 ms, the lock followed at 450 ms.
      {"early change and lock", {450}, 300, 10000, 1.0},
      // Very early: at least four frames after the lock are shown.
      {"first frames", {10}, -1, 1000, 0.2},
      // Events past the first fifth, or a zoom of half the run: none.
      {"late switch", {4066}, 3892, 10233, 0},
      {"short run", {205}, -1, 1000, 0},
      {"half the run", {190}, -1, 1000, 0},
      // Nothing happened: nothing to zoom into.
      {"nothing", {}, -1, 10000, 0},
  };
  for (const auto& c : rows) {
    std::vector<double> times = c.switches;
    times.push_back(c.durationMs);  // a pair at the end that changed nothing
    flicker_loop::RunSummary summary;
    summary.durationMs = c.durationMs;
    summary.changeMs = c.changeMs;
    EXPECT_DOUBLE_EQ(flicker_cli::RunPlot::zoomEndS(pairsAt(times, c.switches), summary),
                     c.zoomEndS)
        << c.what;
  }
}

TEST(RunPlotTest, NamesTheDecidingPair) {
  flicker_loop::LoopResult r;
  r.sensors = 1;
  EXPECT_EQ(flicker_cli::RunPlot::decidingPairText(r), "") << "no pair, no name";
  r.decidingPair.valid = true;
  r.decidingPair.row = flicker_loop::PairRow{6, 0, 205.1};
  r.decidingPair.row.stateHz = 50;
  r.decidingPair.row.switched = true;
  EXPECT_EQ(flicker_cli::RunPlot::decidingPairText(r),
            "the pair that switched to 50 Hz (frame 6, 205 ms)");
  r.sensors = 2;
  r.decidingPair.row.sensor = 1;
  r.decidingPair.row.switched = false;
  r.decidingPair.row.score60 = 40;
  EXPECT_EQ(flicker_cli::RunPlot::decidingPairText(r),
            "the strongest evidence, no switch (sensor 1, frame 6, 205 ms, scores 50 Hz 0 / 60 Hz "
            "40)");
}

// The zoomed start takes 40 % of the width; the rest of the range the rest.
TEST(SvgChartTest, ZoomedAxisPutsTheBreakAtTwoFifths) {
  flicker_cli::SvgChart chart("t");
  flicker_cli::SvgChart::Panel panel;
  panel.xMin = 0;
  panel.xMax = 10;
  panel.xZoomEnd = 0.5;
  panel.series.push_back(flicker_cli::SvgChart::Series{
      "s", "#000", flicker_cli::SvgChart::Style::kLine, {0, 0.25, 0.5, 5.25, 10}, {0, 0, 0, 0, 0}});
  chart.addPanel(panel);
  const std::string svg = chart.render();
  std::smatch m;
  ASSERT_TRUE(std::regex_search(svg, m, std::regex(R"(points="([^"]*)\")"))) << svg;
  std::istringstream points(m[1].str());
  std::vector<double> x;
  for (std::string point; points >> point;)
    x.push_back(std::stod(point.substr(0, point.find(','))));
  ASSERT_EQ(x.size(), 5u);
  const double width = x[4] - x[0];
  EXPECT_NEAR(x[1] - x[0], 0.2 * width, 0.2);  // the middle of the zoomed part
  EXPECT_NEAR(x[2] - x[0], 0.4 * width, 0.2);  // the break
  EXPECT_NEAR(x[3] - x[0], 0.7 * width, 0.2);  // the middle of the rest
  EXPECT_NE(svg.find("0 to 0.5 zoomed"), std::string::npos);
}

// Steps as (recorded state, verdict, best score, fitted ripple).
flicker_loop::ReplayResult steps(const std::vector<std::array<double, 4>>& rows) {
  flicker_loop::ReplayResult r;
  r.ok = true;
  for (const auto& row : rows) {
    flicker_loop::ReplayStep s;
    s.step = static_cast<int>(r.steps.size());
    s.folder = std::to_string(s.step);
    s.appliedHz = static_cast<int>(row[0]);
    s.verdictHz = static_cast<int>(row[1]);
    s.score60 = static_cast<int>(row[2]);
    s.profile.valid = true;
    s.profile.amplitude100 = row[3];
    r.steps.push_back(s);
  }
  return r;
}

TEST(ReplayPlotTest, DecidingStepIsTheLastMoveElseTheStrongest) {
  const struct {
    std::vector<std::array<double, 4>> steps;
    int deciding;
  } rows[] = {
      // The last verdict that moved the state wins over higher scores.
      {{{60, 0, 90, 0.1}, {60, 50, 20, 0.1}, {50, 0, 99, 0.1}, {50, 60, 10, 0.1}}, 3},
      // A verdict that agrees with the recorded state moves nothing.
      {{{50, 50, 30, 0.1}, {50, 0, 80, 0.1}}, 1},
      // Equal scores: the deepest ripple; equal ripples: the first.
      {{{50, 0, 0, 0.01}, {50, 0, 0, 0.05}, {50, 0, 0, 0.05}}, 1},
      {{}, -1},
  };
  for (const auto& row : rows) EXPECT_EQ(steps(row.steps).decidingStep(), row.deciding);
  EXPECT_EQ(flicker_cli::ReplayPlot::decidingStepText(steps(rows[0].steps)),
            "step 3 (folder 3): verdict 60 Hz against the recorded 50 Hz");
}

}  // namespace
