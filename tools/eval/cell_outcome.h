// CellOutcome: what one closed-loop run of an EvalCell came to, read with
// the grid's one definition of "observable" (observability.h).
//
// A cell counts toward the accuracy when there is mains flicker at the end of
// the run and either the state was already right when the final light began
// (the start, a light switch or the lamp's onset: holding it against texture
// and motion is then what counts), or at least one analysed pair in the
// wrong state, under the final light, shows the lamp's ripple by physics
// (pairSight is not kHidden). Mixed light has no single right answer and
// never counts: its state changes are counted instead, and whether the run
// settled on the state that leaves the weaker residual banding (or banding
// within what a pair can tell from the other state's), over the frames that
// held the final state: each at its own exposure against the exposure the
// control would have put the same brightness (exposure times gain) on in the
// other state. That is whole periods of that state rounded down, not to the
// nearest (25 ms at 60 Hz is 20 ms at 50 Hz, not 30 ms), and the brightness
// of a panned scene moves the exposure through several multiples in seconds.
//
// evaluate() is a plain function of the cell (which carries its seed), the
// run length and the tuning the process applied: the same arguments give the
// same outcome. It drives the process-wide manager, one run at a time.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "eval_cell.h"
#include "loop_records.h"
#include "run_summary.h"
#include "sim_auto_exposure.h"
#include "sim_light.h"

namespace flicker_eval {

// Least |sin(pi f dt)| for a pair to count as moving the ripple's phase in
// the lock counts (the pairs a temporal detector could use).
constexpr double kMovingVisibility = 0.3;
// A lamp whose ripple at the end is at most this deep is a weak (2 %) lamp.
constexpr double kWeakRipple = 0.025;
// Under mixed light the final state's hold is judged over at most this many
// of the last simulated seconds: a pan moves the exposure through several
// multiples of the periods in that time.
constexpr double kSettleWindowS = 10.0;

struct CellOutcome {
  EvalCell cell;
  bool ok = false;
  std::string error;
  flicker_loop::RunSummary summary;
  bool counted = false;  // enters the accuracy: mains flicker at the end, observable
  bool held = false;     // the state was right where the final light began
  int showingPairs = 0;  // wrong-state pairs of the final light that show its ripple
  double ripple = 0;     // depth of the final lamp's ripple at twice its mains
  bool weak = false;     // ripple at most kWeakRipple
  double readoutS = 0;   // time the statistics lines span
  bool right = false;    // final state right (no switch at all without flicker)
  // Lock after start (cells starting in the wrong state of a steady light).
  int lockPairs = -1;        // analysed pairs up to and including the lock
  int lockMovingPairs = -1;  // of them, pairs that moved the true ripple's phase
  double lockMs = -1;
  // Lock after a light switch, and after the lamp's onset.
  int switchPairs = -1;
  int switchMovingPairs = -1;
  double switchMs = -1;
  int onsetPairs = -1;
  double onsetMs = -1;
  // Mixed light: residual banding of the final state and of the other one.
  double residualFinal = -1;
  double residualOther = -1;
  // Least difference of residual banding a pair tells apart (kNoiseSigmas
  // standard errors of a frame's bands, at the run's last pair).
  double residualNoise = 0;
  int switches = 0;  // state changes during the run
  double durationMs = 0;
  int pairs = 0;

  // The run started wrong under a steady lamp and could see it.
  bool startsWrong() const { return ok && counted && !held && !cell.isSwitch() && !cell.isOnset(); }
  bool onsetWrong() const { return ok && counted && !held && cell.isOnset(); }
  bool settledWeaker() const { return residualFinal <= residualOther + residualNoise + 1e-12; }
};

// Runs the cell closed-loop for `seconds` of simulated time.
CellOutcome evaluate(const EvalCell& cell, double seconds);
// Runs the cells one after another, in order, each for its runSeconds of
// `seconds` (mixed light a minute); `progress` (may be empty) is
// called after each with the cells done and their number.
std::vector<CellOutcome> evaluateAll(const std::vector<EvalCell>& cells, double seconds,
                                     const std::function<void(int done, int total)>& progress);

// A frame's exposure and analog gain.
struct HeldFrame {
  double exposureS = 0;
  double gain = 1;
};
// Mean residual banding of `light` over frames held in state `stateHz`
// (50 or 60), at their exposures, and what the other state would have left
// at the exposures its control would have used for the same brightness.
struct HeldResiduals {
  double held = 0;
  double other = 0;
};
HeldResiduals heldResiduals(const flicker_sim::SimLightSegment& light,
                            const std::vector<HeldFrame>& frames, int stateHz,
                            const flicker_sim::SimAeParams& ae, double maxExposureS);

// The grid's reading of a finished run (exposed for tests).
CellOutcome assess(const EvalCell& cell, const flicker_sim::SimScenario& scenario,
                   const flicker_loop::LoopResult& result);

// Relative depth of the ripple at twice `mainsHz` in the light at time `t`.
double rippleDepth(const flicker_sim::SimScenario& scenario, int mainsHz, double t);

}  // namespace flicker_eval
