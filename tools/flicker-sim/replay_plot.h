// ReplayPlot: the SVG picture of a dump replay, step by step: the state each
// dump recorded with the algorithm's verdict, the two scores, the depth of
// the fitted 100 Hz and 120 Hz bands of each pair, and the ratio profile of
// the step that decided (ReplayResult::decidingStep), which is named in its
// panel's title and marked on the other panels.
#pragma once

#include <string>

#include "dump_replayer.h"
#include "svg_chart.h"

namespace flicker_cli {

class ReplayPlot {
 public:
  static SvgChart build(const std::string& title, const flicker_loop::ReplayResult& result);
  // "step 7 (folder 007): verdict 50 Hz against the recorded 60 Hz" or
  // "step 3 (folder 003), the strongest evidence, no switch (scores ...)";
  // empty without steps.
  static std::string decidingStepText(const flicker_loop::ReplayResult& result);
};

}  // namespace flicker_cli
