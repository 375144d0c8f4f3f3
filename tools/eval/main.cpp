// flicker-eval: the evaluation bench of the open flicker detection algorithm
// (see eval_options.cpp for the command line and EVALUATION.md for the grid
// and the figures).
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "cell_outcome.h"
#include "detect_timing.h"
#include "eval_options.h"
#include "eval_report.h"
#include "host_log.h"
#include "host_properties.h"
#include "tuning_override.h"

namespace {

const char* sizeName(flicker_eval::GridSize size) {
  switch (size) {
    case flicker_eval::GridSize::kQuick:
      return "quick";
    case flicker_eval::GridSize::kFull:
      return "full";
    default:
      return "default";
  }
}

void printTuning(const FlickerExtPara& p) {
  const int32_t* w = reinterpret_cast<const int32_t*>(&p);
  std::cout << "tuning words 0..12:";
  for (int i = 0; i < 13; ++i) {
    std::cout << " " << w[i];
  }
  std::cout << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  flicker_eval::EvalOptions options;
  std::string error;
  switch (flicker_eval::parseEvalOptions(argc, argv, &options, &error)) {
    case flicker_eval::ParseStatus::kHelp:
      std::cout << flicker_eval::kEvalHelp;
      return 0;
    case flicker_eval::ParseStatus::kError:
      std::cerr << "flicker-eval: " << error << "\n";
      return 2;
    case flicker_eval::ParseStatus::kRun:
      break;
  }
  const std::vector<flicker_eval::EvalCell> cells = flicker_eval::filterCells(
      flicker_eval::buildGrid(options.size, static_cast<uint64_t>(options.seedBase)), options);
  if (cells.empty()) {
    std::cerr << "flicker-eval: no cell of the " << sizeName(options.size)
              << " grid passes the --only filters\n";
    return 2;
  }
  if (options.logPath.empty()) {
    flicker_host::setLogsQuiet(true);
  } else {
    if (!flicker_host::setDebugLogFile(options.logPath)) {
      std::cerr << "flicker-eval: cannot open log file " << options.logPath << "\n";
      return 2;
    }
    flicker_host::setProperty("vendor.debug.flicker_mgr.log.level", 1);
    flicker_host::setProperty("vendor.debug.flicker_algo.log.level", 2);
  }
  FlickerExtPara tuning{};
  if (!flicker_eval::applyTuning(options.tuning, options.words, &tuning, &error)) {
    std::cerr << "flicker-eval: " << error << "\n";
    return 2;
  }
  std::ofstream csv;
  if (!options.csvPath.empty()) {
    csv.open(options.csvPath);
    if (!csv) {
      std::cerr << "flicker-eval: cannot write " << options.csvPath << "\n";
      return 2;
    }
  }

  const double seconds = options.secondsPerRun();
  std::cout << "grid " << sizeName(options.size) << ": " << cells.size() << " cells, " << seconds
            << " s simulated each";
  if (options.seedBase != 0) {
    std::cout << ", seeds from " << options.seedBase + 1;
  }
  std::cout << "\n";
  printTuning(tuning);
  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::vector<flicker_eval::CellOutcome> outcomes;
  outcomes.reserve(cells.size());
  int failed = 0;
  for (const flicker_eval::EvalCell& cell : cells) {
    outcomes.push_back(flicker_eval::evaluate(cell, seconds));
    failed += outcomes.back().ok ? 0 : 1;
    if (terminal) {
      fprintf(stderr, "\r%zu/%zu cells", outcomes.size(), cells.size());
      fflush(stderr);
    }
  }
  if (terminal) {
    fprintf(stderr, "\r%*s\r", 40, "");
  }

  for (const std::string& by : options.by) {
    std::cout << "\n";
    flicker_eval::printTable(std::cout, by, flicker_eval::figuresBy(outcomes, by));
  }
  std::cout << "\nlock columns: median/max analysed pairs; ms are medians\n";
  std::cout << "\ncells ending wrong, switching without flicker, or failing:\n";
  flicker_eval::printFailures(std::cout, outcomes, options.failureLines);

  flicker_eval::DetectTiming timing;
  if (options.timingRuns > 0) {
    timing = flicker_eval::timeDetection(tuning, options.timingRuns);
  }
  std::cout << "\ntargets:\n";
  flicker_eval::printTargets(std::cout, flicker_eval::targets(outcomes, timing));

  if (csv.is_open()) {
    flicker_eval::writeCsv(csv, outcomes);
    csv.close();
    if (!csv) {
      std::cerr << "flicker-eval: writing " << options.csvPath << " failed\n";
      return 1;
    }
  }
  if (failed > 0) {
    std::cerr << "flicker-eval: " << failed << " runs did not complete (see the list above)\n";
    return 1;
  }
  return 0;
}
