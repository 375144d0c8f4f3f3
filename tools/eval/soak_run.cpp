#include "soak_run.h"

namespace flicker_eval {

namespace {

constexpr double kSecondsPerHour = 3600.0;

}  // namespace

std::vector<EvalCell> soakCells() {
  std::vector<EvalCell> cells;
  for (const EvalCell& c : buildGrid(GridSize::kDefault)) {
    if (!c.hasFlicker()) {
      cells.push_back(c);
    }
  }
  return cells;
}

SoakReport runSoak(const std::vector<EvalCell>& cells, double hours, double secondsPerRun,
                   uint64_t seedBase, const std::function<void(double hoursDone)>& progress) {
  SoakReport report;
  if (cells.empty() || !(secondsPerRun > 0)) {
    return report;
  }
  const auto start = std::chrono::steady_clock::now();
  while (report.hours < hours) {
    EvalCell cell = cells[static_cast<size_t>(report.runs) % cells.size()];
    cell.seed = seedBase + static_cast<uint64_t>(report.runs) + 1;
    const CellOutcome o = evaluate(cell, secondsPerRun);
    ++report.runs;
    if (!o.ok) {
      ++report.failedRuns;
      report.switching.push_back(o);
      // A failed run adds no simulated time: count the time asked for, so
      // that a broken set-up cannot loop for ever.
      report.hours += secondsPerRun / kSecondsPerHour;
    } else {
      report.hours += o.durationMs / 1000.0 / kSecondsPerHour;
      report.falseSwitches += o.switches;
      if (o.switches > 0) {
        report.switching.push_back(o);
      }
    }
    if (progress) {
      progress(report.hours);
    }
  }
  report.wallSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return report;
}

}  // namespace flicker_eval
