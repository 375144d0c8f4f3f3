// SoakRun: hours of simulated scenes without mains flicker, to count false
// switches where the default grid holds only minutes of them.
//
// The scenes are the no-flicker cells of the default grid (daylight and PWM
// lamps over natural, grating, piecewise and screen textures, still,
// hand-held, panned, drifting and with a moving object, at every geometry,
// frame rate and timing). Run k plays cell k modulo their number, for
// `secondsPerRun`, with the fresh seed seedBase + k + 1; there are as many
// runs as make up the hours asked for, so the runs are known before the
// first one starts and can be shared among worker processes like the cells
// of a grid. Every state change is a false switch. Opt-in (flicker-sim eval
// --soak-hours): ten hours take many minutes.
//
// Plain functions of values.
#pragma once

#include <cstdint>
#include <vector>

#include "cell_outcome.h"

namespace flicker_eval {

struct SoakReport {
  int runs = 0;
  double hours = 0;  // simulated
  int falseSwitches = 0;
  int failedRuns = 0;
  double wallSeconds = 0;
  std::vector<CellOutcome> switching;  // runs that switched or failed, in order

  double perHour() const { return hours > 0 ? falseSwitches / hours : 0.0; }
};

// The scenes a soak cycles through: the default grid's cells without mains
// flicker.
std::vector<EvalCell> soakCells();

// The runs of a soak of `hours` over `scenes`: ceil(hours / secondsPerRun)
// of them (none for no scene).
std::vector<EvalCell> soakRuns(const std::vector<EvalCell>& scenes, double hours,
                               double secondsPerRun, uint64_t seedBase);

// What the runs came to; a run that failed adds the time asked of it.
SoakReport soakReport(const std::vector<CellOutcome>& outcomes, double secondsPerRun,
                      double wallSeconds);

}  // namespace flicker_eval
