#include "soak_run.h"

#include <cmath>

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

std::vector<EvalCell> soakRuns(const std::vector<EvalCell>& scenes, double hours,
                               double secondsPerRun, uint64_t seedBase) {
  std::vector<EvalCell> runs;
  if (scenes.empty() || !(secondsPerRun > 0) || !(hours > 0)) {
    return runs;
  }
  const size_t count = static_cast<size_t>(std::ceil(hours * kSecondsPerHour / secondsPerRun));
  for (size_t k = 0; k < count; ++k) {
    EvalCell cell = scenes[k % scenes.size()];
    cell.seed = seedBase + static_cast<uint64_t>(k) + 1;
    runs.push_back(cell);
  }
  return runs;
}

SoakReport soakReport(const std::vector<CellOutcome>& outcomes, double secondsPerRun,
                      double wallSeconds) {
  SoakReport report;
  report.wallSeconds = wallSeconds;
  for (const CellOutcome& o : outcomes) {
    ++report.runs;
    if (!o.ok) {
      ++report.failedRuns;
      report.switching.push_back(o);
      report.hours += secondsPerRun / kSecondsPerHour;
      continue;
    }
    report.hours += o.durationMs / 1000.0 / kSecondsPerHour;
    report.falseSwitches += o.switches;
    if (o.switches > 0) {
      report.switching.push_back(o);
    }
  }
  return report;
}

}  // namespace flicker_eval
