// RunPlot: the SVG picture of a closed-loop run: flicker state against the
// light's mains over time, the scores of each analysed pair, exposure and
// gain per frame, and the last analysed pair's ratio profile with the fitted
// 100 Hz and 120 Hz bands.
#pragma once

#include <string>

#include "loop_records.h"
#include "run_summary.h"
#include "svg_chart.h"

namespace flicker_cli {

class RunPlot {
 public:
  static SvgChart build(const std::string& title, const flicker_loop::LoopResult& result,
                        const flicker_loop::RunSummary& summary);
};

}  // namespace flicker_cli
