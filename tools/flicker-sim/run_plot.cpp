#include "run_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "flicker_freq.h"
#include "profile_panel.h"
#include "ripple_fit.h"

namespace flicker_cli {

namespace {

const char kColorTruth[] = "#999999";
const char kColorExposure[] = "#2ca02c";
const char kColorGain[] = "#9467bd";
// Zoom into the start when all events lie in this first share of the run.
constexpr double kZoomWhenWithin = 0.2;
// The zoomed start shows this much beyond the last event, and at least this
// many frames more: enough to see the state hold after it.
constexpr double kZoomMargin = 1.5;
constexpr double kZoomFrames = 4;
// Up to this many pairs are drawn as dots on top of their lines.
constexpr size_t kMostDots = 120;

using Series = SvgChart::Series;
using Style = SvgChart::Style;

// The smallest 1, 2, 2.5 or 5 times a power of ten at or above `v` (> 0).
double roundUp(double v) {
  const double power = std::pow(10.0, std::floor(std::log10(v)));
  for (const double m : {1.0, 2.0, 2.5, 5.0, 10.0}) {
    if (m * power >= v) {
      return m * power;
    }
  }
  return 10 * power;
}

std::string plural(int count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

SvgChart::Panel timePanel(const std::string& title, const std::string& yLabel, double endS,
                          double zoomEndS) {
  SvgChart::Panel panel;
  panel.title = title;
  panel.xLabel = "time (s)";
  panel.yLabel = yLabel;
  panel.xMax = endS;
  panel.xZoomEnd = zoomEndS;
  return panel;
}

}  // namespace

std::string RunPlot::decidingPairText(const flicker_loop::LoopResult& result) {
  const flicker_loop::PairStats& pair = result.decidingPair;
  if (!pair.valid) {
    return "";
  }
  const flicker_loop::PairRow& row = pair.row;
  char where[96];
  snprintf(where, sizeof(where), "%sframe %d, %.0f ms",
           result.sensors > 1 ? ("sensor " + std::to_string(row.sensor) + ", ").c_str() : "",
           row.frame, row.timeMs);
  if (row.switched) {
    return "the pair that switched to " + std::to_string(row.stateHz) + " Hz (" + where + ")";
  }
  return "the strongest evidence, no switch (" + std::string(where) + ", scores 50 Hz " +
         std::to_string(row.score50) + " / 60 Hz " + std::to_string(row.score60) + ")";
}

double RunPlot::zoomEndS(const flicker_loop::LoopResult& result,
                         const flicker_loop::RunSummary& summary) {
  double lastMs = -1;
  for (const flicker_loop::PairRow& p : result.pairs) {
    if (p.switched) {
      lastMs = std::max(lastMs, p.timeMs);
    }
  }
  lastMs = std::max(lastMs, summary.changeMs);
  if (lastMs <= 0 || lastMs >= kZoomWhenWithin * summary.durationMs) {
    return 0;
  }
  const double endMs =
      roundUp(std::max(kZoomMargin * lastMs, lastMs + kZoomFrames * result.frameIntervalMs));
  return endMs < 0.5 * summary.durationMs ? endMs / 1000.0 : 0;
}

SvgChart RunPlot::build(const std::string& title, const flicker_loop::LoopResult& result,
                        const flicker_loop::RunSummary& summary) {
  SvgChart chart(title);
  const double endS = std::max(0.001, summary.durationMs / 1000.0);
  const double zoomS = zoomEndS(result, summary);
  const std::string decided = decidingPairText(result);
  std::vector<SvgChart::Marker> markers;
  if (result.decidingPair.valid) {
    markers.push_back(SvgChart::Marker{
        result.decidingPair.row.timeMs / 1000.0,
        result.decidingPair.row.switched ? "deciding pair: switch" : "strongest evidence",
        kColorMarker});
  }

  // State (sensor 0's view; the state is process-wide) and the truth.
  SvgChart::Panel state = timePanel("flicker state (locked " + std::to_string(summary.lockedHz) +
                                        " Hz, " + plural(summary.switches, "switch", "switches") +
                                        ", " + (summary.right ? "right" : "wrong") + ")",
                                    "Hz", endS, zoomS);
  state.yMin = -5;
  state.yMax = 65;
  state.yTicks = {0, 50, 60};
  state.markers = markers;
  Series s{"state", "#000000", Style::kStep, {}, {}};
  Series truth{"light mains", kColorTruth, Style::kDashed, {}, {}};
  SvgChart::Panel exposure = timePanel("exposure and gain per frame", "ms / gain", endS, zoomS);
  Series exp{"exposure ms", kColorExposure, Style::kStep, {}, {}};
  Series gain{"analog gain", kColorGain, Style::kStep, {}, {}};
  double expMax = 1;
  for (const flicker_loop::FrameRow& f : result.frames) {
    if (f.sensor != 0) {
      continue;
    }
    const double t = f.timeMs / 1000.0;
    s.x.push_back(t);
    s.y.push_back(FlickerFreq::fromRecordCode(f.result.flickerState).hz());
    truth.x.push_back(t);
    truth.y.push_back(f.truthHz);
    exp.x.push_back(t);
    exp.y.push_back(f.exposureUs / 1000.0);
    gain.x.push_back(t);
    gain.y.push_back(f.gain);
    expMax = std::max({expMax, f.exposureUs / 1000.0, f.gain});
  }
  state.series = {truth, s};
  chart.addPanel(state);

  SvgChart::Panel scores = timePanel("scores after each analysed pair", "score", endS, zoomS);
  scores.yMin = 0;
  scores.yMax = 100;
  scores.markers = markers;
  Series s50{"score 50 Hz", kColor50, Style::kLine, {}, {}};
  Series s60{"score 60 Hz", kColor60, Style::kLine, {}, {}};
  for (const flicker_loop::PairRow& p : result.pairs) {
    const double t = p.timeMs / 1000.0;
    s50.x.push_back(t);
    s50.y.push_back(p.score50);
    s60.x.push_back(t);
    s60.y.push_back(p.score60);
  }
  scores.series = {s50, s60};
  if (result.pairs.size() <= kMostDots) {
    scores.series.push_back(Series{"", kColor50, Style::kDots, s50.x, s50.y});
    scores.series.push_back(Series{"", kColor60, Style::kDots, s60.x, s60.y});
  }
  chart.addPanel(scores);

  exposure.yMax = std::ceil(expMax * 1.1);
  exposure.series = {exp, gain};
  chart.addPanel(exposure);

  if (result.decidingPair.valid) {
    const flicker_loop::RippleFit fit = flicker_loop::RippleFit::of(result.decidingPair);
    if (fit.valid) {
      std::string what = decided;
      what[0] = static_cast<char>(toupper(what[0]));
      chart.addPanel(profilePanel(fit, what));
    }
  }
  return chart;
}

}  // namespace flicker_cli
