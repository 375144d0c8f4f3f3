// RunPlot: the SVG picture of a closed-loop run: flicker state against the
// light's mains over time, the scores of each analysed pair, exposure and
// gain per frame, and the ratio profile of the pair that decided the run
// (the one after which the state last switched, or the strongest evidence
// when nothing switched) with the fitted 100 Hz and 120 Hz bands. That pair
// is named in its panel's title and marked on the state and score panels.
// When everything of interest (switches, light changes) happens early in a
// long run, the time axes zoom into the start.
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
  // "the pair that switched to 50 Hz (frame 6, 205 ms)" or "the strongest
  // evidence, no switch (frame 12, 400 ms, score 60 Hz 40)"; empty without a
  // deciding pair.
  static std::string decidingPairText(const flicker_loop::LoopResult& result);
  // The end of the zoomed start of the time axes, in seconds; 0 for no zoom.
  static double zoomEndS(const flicker_loop::LoopResult& result,
                         const flicker_loop::RunSummary& summary);
};

}  // namespace flicker_cli
