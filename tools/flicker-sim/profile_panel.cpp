#include "profile_panel.h"

#include <algorithm>
#include <cstdio>

namespace flicker_cli {

const char kColor50[] = "#1f77b4";
const char kColor60[] = "#d62728";
const char kColorMarker[] = "#e67e00";

namespace {

const char kColorRatio[] = "#555555";
// Least half-height of the y range, so a flat ratio is not blown up into noise.
constexpr double kMinMargin = 0.002;

}  // namespace

std::string percent(double fraction) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%.2f %%", 100.0 * fraction);
  return buf;
}

SvgChart::Panel profilePanel(const flicker_loop::RippleFit& fit, const std::string& what) {
  SvgChart::Panel ratio;
  ratio.title = what + ": fitted 100 Hz band " + percent(fit.amplitude100) + ", 120 Hz band " +
                percent(fit.amplitude120);
  ratio.xLabel = "readout time of the statistics line (ms)";
  ratio.yLabel = "later / earlier frame";
  ratio.xMin = fit.timeMs.front();
  ratio.xMax = fit.timeMs.back();
  double lo = 1;
  double hi = 1;
  for (size_t i = 0; i < fit.ratio.size(); ++i) {
    lo = std::min({lo, fit.ratio[i], fit.band100[i], fit.band120[i]});
    hi = std::max({hi, fit.ratio[i], fit.band100[i], fit.band120[i]});
  }
  const double margin = std::max(kMinMargin, 0.1 * (hi - lo));
  ratio.yMin = lo - margin;
  ratio.yMax = hi + margin;
  using Series = SvgChart::Series;
  ratio.series = {Series{"measured", kColorRatio, SvgChart::Style::kLine, fit.timeMs, fit.ratio},
                  Series{"100 Hz fit", kColor50, SvgChart::Style::kLine, fit.timeMs, fit.band100},
                  Series{"120 Hz fit", kColor60, SvgChart::Style::kLine, fit.timeMs, fit.band120}};
  return ratio;
}

}  // namespace flicker_cli
