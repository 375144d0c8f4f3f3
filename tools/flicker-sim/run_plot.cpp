#include "run_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "flicker_freq.h"
#include "ripple_fit.h"

namespace flicker_cli {

namespace {

const char kColor50[] = "#1f77b4";
const char kColor60[] = "#d62728";
const char kColorTruth[] = "#999999";
const char kColorExposure[] = "#2ca02c";
const char kColorGain[] = "#9467bd";
const char kColorRatio[] = "#555555";

using Series = SvgChart::Series;
using Style = SvgChart::Style;

std::string percent(double fraction) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%.2f %%", 100.0 * fraction);
  return buf;
}

}  // namespace

SvgChart RunPlot::build(const std::string& title, const flicker_loop::LoopResult& result,
                        const flicker_loop::RunSummary& summary) {
  SvgChart chart(title);
  const double endS = std::max(0.001, summary.durationMs / 1000.0);

  // State (sensor 0's view; the state is process-wide) and the truth.
  SvgChart::Panel state;
  state.title = "flicker state (locked " + std::to_string(summary.lockedHz) + " Hz, " +
                std::to_string(summary.switches) + " switches, " +
                (summary.right ? "right" : "wrong") + ")";
  state.xLabel = "time (s)";
  state.yLabel = "Hz";
  state.xMax = endS;
  state.yMin = -5;
  state.yMax = 65;
  state.yTicks = {0, 50, 60};
  Series s{"state", "#000000", Style::kStep, {}, {}};
  Series truth{"light mains", kColorTruth, Style::kDashed, {}, {}};
  SvgChart::Panel exposure;
  exposure.title = "exposure and gain per frame";
  exposure.xLabel = "time (s)";
  exposure.yLabel = "ms / gain";
  exposure.xMax = endS;
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

  SvgChart::Panel scores;
  scores.title = "scores after each analysed pair";
  scores.xLabel = "time (s)";
  scores.yLabel = "score";
  scores.xMax = endS;
  scores.yMin = 0;
  scores.yMax = 100;
  Series s50{"score 50 Hz", kColor50, Style::kLine, {}, {}};
  Series s60{"score 60 Hz", kColor60, Style::kLine, {}, {}};
  Series p50{"", kColor50, Style::kDots, {}, {}};
  Series p60{"", kColor60, Style::kDots, {}, {}};
  for (const flicker_loop::PairRow& p : result.pairs) {
    const double t = p.timeMs / 1000.0;
    s50.x.push_back(t);
    s50.y.push_back(p.score50);
    s60.x.push_back(t);
    s60.y.push_back(p.score60);
  }
  p50.x = s50.x;
  p50.y = s50.y;
  p60.x = s60.x;
  p60.y = s60.y;
  scores.series = {s50, s60};
  if (result.pairs.size() <= 120) {
    scores.series.push_back(p50);
    scores.series.push_back(p60);
  }
  chart.addPanel(scores);

  exposure.yMax = std::ceil(expMax * 1.1);
  exposure.series = {exp, gain};
  chart.addPanel(exposure);

  // The last analysed pair of sensor 0.
  if (!result.lastPair.empty() && result.lastPair.front().valid) {
    const flicker_loop::PairStats& pair = result.lastPair.front();
    const flicker_loop::RippleFit fit = flicker_loop::RippleFit::of(pair);
    if (fit.valid) {
      SvgChart::Panel ratio;
      ratio.title = "last pair (frame " + std::to_string(pair.frame) +
                    "): later / earlier frame per statistics line; fitted 100 Hz band " +
                    percent(fit.amplitude100) + ", 120 Hz band " + percent(fit.amplitude120);
      ratio.xLabel = "readout time of the line (ms)";
      ratio.yLabel = "ratio";
      ratio.xMin = fit.timeMs.front();
      ratio.xMax = fit.timeMs.back();
      double lo = 1, hi = 1;
      for (size_t i = 0; i < fit.ratio.size(); ++i) {
        lo = std::min({lo, fit.ratio[i], fit.band100[i], fit.band120[i]});
        hi = std::max({hi, fit.ratio[i], fit.band100[i], fit.band120[i]});
      }
      const double margin = std::max(0.002, 0.1 * (hi - lo));
      ratio.yMin = lo - margin;
      ratio.yMax = hi + margin;
      ratio.series = {Series{"measured", kColorRatio, Style::kLine, fit.timeMs, fit.ratio},
                      Series{"100 Hz fit", kColor50, Style::kLine, fit.timeMs, fit.band100},
                      Series{"120 Hz fit", kColor60, Style::kLine, fit.timeMs, fit.band120}};
      chart.addPanel(ratio);
    }
  }
  return chart;
}

}  // namespace flicker_cli
