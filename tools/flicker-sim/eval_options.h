// EvalOptions: the command line of the evaluation (flicker-sim eval, its
// former name sweep, and flicker-eval), read from CliOptions with every value
// checked before anything runs.
//
// Plain value and pure functions; not thread-safe only in that CliOptions is
// not.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "cli_options.h"
#include "eval_cell.h"

namespace flicker_cli {

// A tuning as the command line gives it: a choice (open, host or an image
// file) and field settings in order.
struct TuningRequest {
  std::string choice = "open";
  std::vector<std::string> settings;

  // "open", "open, hold_off=2, switch_score=60".
  std::string describe() const;
};

struct EvalOptions {
  flicker_eval::GridSize size = flicker_eval::GridSize::kDefault;
  double seconds = 0;  // 0: the size's default (or the soak's)
  std::vector<std::string> by = {"mains", "fps", "timing", "motion", "geometry"};
  std::vector<std::pair<std::string, std::string>> only;  // --only DIM=VALUE filters
  long seedBase = 0;
  double soakHours = 0;  // > 0: the soak instead of the grid
  int jobs = 0;          // worker processes; 0: one per core
  TuningRequest tuning;
  bool compare = false;  // also run `baseline` and print the differences
  TuningRequest baseline;
  std::string csvPath;
  bool json = false;
  int timingRuns = 2000;
  int failureLines = 30;
  std::string logPath;
  std::string tracePath;

  // Simulated seconds per run for the chosen size (or the soak).
  double secondsPerRun() const;
  // "quick", "default" or "full".
  std::string gridName() const;
  // The options that pick the same cells with the same seeds and run them as
  // long: "--quick --seed-base 0" (and --seconds when it was given).
  std::string gridOptions() const;
  // Worker processes for `cells` cells: --jobs, or one per core the process
  // may run on, never more than the cells.
  int workers(size_t cells) const;
};

// Option table of the evaluation.
const std::vector<OptionDef>& evalOptionDefs();

// Reads and checks the parsed options; false with a one-line reason.
bool readEvalOptions(const CliOptions& options, EvalOptions* out, std::string* error);

// The --help text; `program` is how the command was called ("flicker-sim
// eval", "flicker-eval").
std::string evalHelp(const std::string& program);

}  // namespace flicker_cli
