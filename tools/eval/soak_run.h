// SoakRun: hours of simulated scenes without mains flicker, to count false
// switches where the default grid holds only minutes of them.
//
// The scenes are the no-flicker cells of the default grid (daylight and PWM
// lamps over natural, grating, piecewise and screen textures, still,
// hand-held, panned, drifting and with a moving object, at every geometry,
// frame rate and timing). Run k plays cell k modulo their number, for
// `secondsPerRun`, with the fresh seed seedBase + k + 1, until the simulated
// time reaches the hours asked for; every state change is a false switch.
// Opt-in (flicker-eval --soak-hours): ten hours take many minutes.
//
// Drives the process-wide manager, one run at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
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

// Runs `cells` in turn until `hours` of simulated time; `progress` (may be
// empty) gets the simulated hours so far after each run.
SoakReport runSoak(const std::vector<EvalCell>& cells, double hours, double secondsPerRun,
                   uint64_t seedBase, const std::function<void(double hoursDone)>& progress);

}  // namespace flicker_eval
