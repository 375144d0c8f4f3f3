// Command line of flicker-eval.
//
// Plain value and a pure parser, so that the tests check every refusal.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "eval_cell.h"

namespace flicker_eval {

struct EvalOptions {
  GridSize size = GridSize::kDefault;
  double seconds = 0;  // 0: the size's default
  std::vector<std::string> by = {"mains", "fps", "timing", "motion", "geometry"};
  std::string csvPath;
  std::string logPath;  // manager and algorithm logs (verbose) to this file
  std::string tuning = "open";
  std::vector<std::pair<int, int>> words;                 // --set WORD=VALUE overrides, in order
  std::vector<std::pair<std::string, std::string>> only;  // --only DIM=VALUE filters
  int timingRuns = 2000;
  int failureLines = 30;
  long seedBase = 0;     // added to every cell's seed (0: the tuning set)
  double soakHours = 0;  // > 0: the soak of scenes without mains flicker instead of the grid
  bool help = false;

  // Simulated seconds per run for the chosen size (or the soak).
  double secondsPerRun() const;
};

enum class ParseStatus { kRun, kHelp, kError };

// Parses argv[1..argc-1]; on kError `error` holds a one-line reason.
ParseStatus parseEvalOptions(int argc, const char* const* argv, EvalOptions* out,
                             std::string* error);

extern const char kEvalHelp[];

}  // namespace flicker_eval
