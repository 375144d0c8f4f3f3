// CellOutcome: what one closed-loop run of an EvalCell came to, with the
// bench's own reading of observability and of the lock times.
//
// Observable: the flicker at the end of the run could be seen by a detector
// in the state the manager was wrong in. From the moment the final light
// holds (the start, or the light switch), either the state was already right
// there (then holding it is what counts, and the cell always counts), or the
// analysed pairs in the wrong state show the final ripple: the lamp's ripple
// depth at twice the mains times the exposure's attenuation |sinc(f_r E)|
// is at least kObservableRipple on the median pair, and at least one of the
// pairs moved the ripple's phase (|sin(pi f_r dt)| of at least
// kMovingVisibility). The statistics readout must also span at least one
// period of that ripple: a shorter one (high frame rates) shows less than one
// band, whose period cannot be measured. Mixed light has no single right
// answer and is never observable; its state changes are counted as
// oscillations instead.
//
// Plain values; evaluate() drives the process-wide manager.
#pragma once

#include <string>

#include "eval_cell.h"
#include "loop_records.h"
#include "run_summary.h"

namespace flicker_eval {

// Least ripple amplitude (relative line level) that counts as observable:
// 2.5 times the detector's default amplitude floor, and over ten times the
// shot noise of a statistics bin in the dimmest cell of the grid.
constexpr double kObservableRipple = 0.01;
// Least |sin(pi f_r dt)| for a pair to move the ripple's phase.
constexpr double kMovingVisibility = 0.3;

struct CellOutcome {
  EvalCell cell;
  bool ok = false;
  std::string error;
  flicker_loop::RunSummary summary;
  bool counted = false;  // enters the accuracy: flicker at the end, observable
  bool held = false;     // the state was right where the final light began
  double ripple = 0;     // median visible ripple in the wrong state (0 when held)
  double readoutS = 0;   // time the statistics lines span
  bool right = false;    // final state right (no switch at all without flicker)
  // Lock after start (cells starting in the wrong state of a steady light).
  int lockPairs = -1;        // analysed pairs up to and including the lock
  int lockMovingPairs = -1;  // of them, pairs that moved the true ripple's phase
  double lockMs = -1;
  // Lock after a light switch.
  int switchPairs = -1;
  int switchMovingPairs = -1;
  double switchMs = -1;
  int switches = 0;  // state changes during the run
  double durationMs = 0;
  int pairs = 0;
};

// Runs the cell closed-loop for `seconds` of simulated time.
CellOutcome evaluate(const EvalCell& cell, double seconds);

// The bench's reading of a finished run (exposed for tests).
CellOutcome assess(const EvalCell& cell, const flicker_sim::SimScenario& scenario,
                   const flicker_loop::LoopResult& result);

// Relative depth of the ripple at twice `mainsHz` in the light at time `t`.
double rippleDepth(const flicker_sim::SimScenario& scenario, int mainsHz, double t);

}  // namespace flicker_eval
