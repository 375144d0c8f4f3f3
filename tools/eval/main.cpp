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
#include "soak_run.h"
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

// The soak: hours of scenes without mains flicker, false switches counted.
int runSoakMode(const flicker_eval::EvalOptions& options) {
  const std::vector<flicker_eval::EvalCell> cells =
      flicker_eval::filterCells(flicker_eval::soakCells(), options.only);
  if (cells.empty()) {
    std::cerr << "flicker-eval: no scene without mains flicker passes the --only filters\n";
    return 2;
  }
  const double seconds = options.secondsPerRun();
  std::cout << "soak: " << options.soakHours << " simulated hours of " << cells.size()
            << " scenes without mains flicker, " << seconds << " s each; "
            << flicker_eval::seedSetLine(static_cast<uint64_t>(options.seedBase)) << "\n";
  const bool terminal = isatty(STDERR_FILENO) != 0;
  const flicker_eval::SoakReport r = flicker_eval::runSoak(
      cells, options.soakHours, seconds, static_cast<uint64_t>(options.seedBase),
      [&](double hours) {
        if (terminal) {
          fprintf(stderr, "\r%.2f of %g simulated hours", hours, options.soakHours);
          fflush(stderr);
        }
      });
  if (terminal) {
    fprintf(stderr, "\r%*s\r", 40, "");
  }
  char line[200];
  snprintf(line, sizeof(line),
           "%d runs, %.2f simulated hours: %d false switches (%.2f per hour); %.0f s of wall "
           "time, %.0f times real time\n",
           r.runs, r.hours, r.falseSwitches, r.perHour(), r.wallSeconds,
           r.wallSeconds > 0 ? r.hours * 3600.0 / r.wallSeconds : 0.0);
  std::cout << line;
  for (const flicker_eval::CellOutcome& o : r.switching) {
    std::cout << "  " << o.cell.label() << " seed " << o.cell.seed << ": "
              << (o.ok ? std::to_string(o.switches) + " switches, ended " +
                             std::to_string(o.summary.lockedHz) + " Hz"
                       : "run failed: " + o.error)
              << "\n";
  }
  if (r.failedRuns > 0) {
    std::cerr << "flicker-eval: " << r.failedRuns << " runs did not complete\n";
    return 1;
  }
  return 0;
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
      flicker_eval::buildGrid(options.size, static_cast<uint64_t>(options.seedBase)), options.only);
  if (cells.empty() && options.soakHours <= 0) {
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
  if (options.soakHours > 0) {
    return runSoakMode(options);
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
            << " s simulated each; "
            << flicker_eval::seedSetLine(static_cast<uint64_t>(options.seedBase)) << "\n";
  printTuning(tuning);
  const bool terminal = isatty(STDERR_FILENO) != 0;
  const std::vector<flicker_eval::CellOutcome> outcomes =
      flicker_eval::evaluateAll(cells, seconds, [terminal](int done, int total) {
        if (terminal) {
          fprintf(stderr, "\r%d/%d cells", done, total);
          fflush(stderr);
        }
      });
  int failed = 0;
  for (const flicker_eval::CellOutcome& o : outcomes) {
    failed += o.ok ? 0 : 1;
  }
  if (terminal) {
    fprintf(stderr, "\r%*s\r", 40, "");
  }

  for (const std::string& by : options.by) {
    std::cout << "\n";
    flicker_eval::printTable(std::cout, by, flicker_eval::figuresBy(outcomes, by));
  }
  std::cout << "\nlock columns: median/max analysed pairs of the cells that locked; no_lock: "
               "cells that started wrong, could see the lamp and never locked; ms are medians; "
               "mixed: state changes per simulated minute\n";
  std::cout << "\ncells ending wrong, switching without flicker, or failing:\n";
  flicker_eval::printFailures(std::cout, outcomes, options.failureLines);

  flicker_eval::DetectTiming timing;
  if (options.timingRuns > 0) {
    timing = flicker_eval::timeDetection(tuning, options.timingRuns);
  }
  std::cout << "\nfigures of merit ("
            << flicker_eval::seedSetKind(static_cast<uint64_t>(options.seedBase)) << " seeds):\n";
  flicker_eval::printTargets(std::cout, flicker_eval::targets(flicker_eval::meritOf(outcomes, timing)));

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
