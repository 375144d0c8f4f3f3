#include "replay_plot.h"

#include <algorithm>

#include "profile_panel.h"

namespace flicker_cli {

namespace {

const char kColorState[] = "#000000";
const char kColorNeither[] = "#999999";

using Series = SvgChart::Series;
using Style = SvgChart::Style;

SvgChart::Panel stepPanel(const std::string& title, const std::string& yLabel, double steps) {
  SvgChart::Panel panel;
  panel.title = title;
  panel.xLabel = "step (dump folder in order)";
  panel.yLabel = yLabel;
  panel.xMin = 0;
  panel.xMax = std::max(1.0, steps - 1);
  panel.xWhole = true;
  return panel;
}

}  // namespace

std::string ReplayPlot::decidingStepText(const flicker_loop::ReplayResult& result) {
  const int index = result.decidingStep();
  if (index < 0) {
    return "";
  }
  const flicker_loop::ReplayStep& s = result.steps[static_cast<size_t>(index)];
  const std::string where = "step " + std::to_string(s.step) + " (folder " + s.folder + ")";
  if (s.verdictHz != 0 && s.verdictHz != s.appliedHz) {
    return where + ": verdict " + std::to_string(s.verdictHz) + " Hz against the recorded " +
           std::to_string(s.appliedHz) + " Hz";
  }
  return where + ", the strongest evidence, no switch (scores 50 Hz " + std::to_string(s.score50) +
         " / 60 Hz " + std::to_string(s.score60) + ")";
}

SvgChart ReplayPlot::build(const std::string& title, const flicker_loop::ReplayResult& result) {
  SvgChart chart(title);
  const double steps = static_cast<double>(result.steps.size());
  const int deciding = result.decidingStep();
  std::vector<SvgChart::Marker> markers;
  if (deciding >= 0) {
    markers.push_back(
        SvgChart::Marker{static_cast<double>(deciding), "deciding step", kColorMarker});
  }

  SvgChart::Panel state =
      stepPanel("state recorded in the dump and the algorithm's verdict", "Hz", steps);
  state.yMin = -5;
  state.yMax = 65;
  state.yTicks = {0, 50, 60};
  state.markers = markers;
  Series applied{"recorded state", kColorState, Style::kStep, {}, {}};
  Series verdict50{"verdict 50 Hz", kColor50, Style::kDots, {}, {}};
  Series verdict60{"verdict 60 Hz", kColor60, Style::kDots, {}, {}};
  Series neither{"neither (at 0)", kColorNeither, Style::kDots, {}, {}};
  SvgChart::Panel scores = stepPanel("scores after each step", "score", steps);
  scores.yMin = 0;
  scores.yMax = 100;
  scores.markers = markers;
  Series s50{"score 50 Hz", kColor50, Style::kLine, {}, {}};
  Series s60{"score 60 Hz", kColor60, Style::kLine, {}, {}};
  SvgChart::Panel bands = stepPanel("fitted band of each pair", "% of the mean", steps);
  bands.markers = markers;
  Series b100{"100 Hz band", kColor50, Style::kLine, {}, {}};
  Series b120{"120 Hz band", kColor60, Style::kLine, {}, {}};
  double deepest = 0.1;
  for (const flicker_loop::ReplayStep& s : result.steps) {
    const double x = s.step;
    applied.x.push_back(x);
    applied.y.push_back(s.appliedHz);
    Series& v = s.verdictHz == 50 ? verdict50 : s.verdictHz == 60 ? verdict60 : neither;
    v.x.push_back(x);
    v.y.push_back(s.verdictHz);
    s50.x.push_back(x);
    s50.y.push_back(s.score50);
    s60.x.push_back(x);
    s60.y.push_back(s.score60);
    if (s.profile.valid) {
      b100.x.push_back(x);
      b100.y.push_back(100.0 * s.profile.amplitude100);
      b120.x.push_back(x);
      b120.y.push_back(100.0 * s.profile.amplitude120);
      deepest = std::max({deepest, b100.y.back(), b120.y.back()});
    }
  }
  state.series = {applied, verdict50, verdict60, neither};
  chart.addPanel(state);
  scores.series = {s50, s60};
  chart.addPanel(scores);
  bands.yMax = deepest * 1.1;
  bands.series = {b100, b120};
  chart.addPanel(bands);

  if (deciding >= 0) {
    const flicker_loop::RippleFit& fit = result.steps[static_cast<size_t>(deciding)].profile;
    if (fit.valid) {
      std::string what = decidingStepText(result);
      what[0] = static_cast<char>(toupper(what[0]));
      chart.addPanel(profilePanel(fit, what));
    }
  }
  return chart;
}

}  // namespace flicker_cli
