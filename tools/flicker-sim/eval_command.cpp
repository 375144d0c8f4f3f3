// flicker-sim eval (also called sweep, and the whole of flicker-eval): the
// evaluation grid with its figures of merit, the soak, and the comparison of
// a baseline and a candidate tuning, the cells run in worker processes.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "cell_pool.h"
#include "cli_common.h"
#include "cli_json.h"
#include "detect_timing.h"
#include "eval_compare.h"
#include "eval_options.h"
#include "eval_report.h"
#include "host_nvram.h"
#include "host_properties.h"
#include "soak_run.h"

namespace flicker_cli {

namespace {

using flicker_eval::CellOutcome;
using flicker_eval::EvalCell;
using Clock = std::chrono::steady_clock;

const char kMgrLogLevel[] = "vendor.debug.flicker_mgr.log.level";
const char kAlgoLogLevel[] = "vendor.debug.flicker_algo.log.level";

// How the command was called, for its help and the lines that rerun a cell.
std::string commandName(CliIo io) {
  const std::string program = io.program;
  return program == "flicker-sim" ? "flicker-sim eval" : program;
}

bool pickCells(const EvalOptions& o, std::vector<EvalCell>* cells, std::string* error) {
  const uint64_t base = static_cast<uint64_t>(o.seedBase);
  if (o.soakHours > 0) {
    const std::vector<EvalCell> scenes =
        flicker_eval::filterCells(flicker_eval::soakCells(), o.only);
    *cells = flicker_eval::soakRuns(scenes, o.soakHours, o.secondsPerRun(), base);
    *error = "no scene without mains flicker passes the --only filters";
  } else {
    *cells = flicker_eval::filterCells(flicker_eval::buildGrid(o.size, base), o.only);
    *error = "no cell of the " + o.gridName() + " grid passes the --only filters";
  }
  return !cells->empty();
}

// "40 30 200 ..." : the words the open algorithm reads.
std::string wordsText(const FlickerExtPara& p) {
  int32_t w[kFlickerExtParaWords];
  static_assert(sizeof(w) == sizeof(FlickerExtPara), "35 words");
  memcpy(w, &p, sizeof(w));
  std::string text;
  for (int i = 0; i < 13; ++i) {
    text += (i > 0 ? " " : "") + std::to_string(w[i]);
  }
  return text;
}

std::string fmt(const char* format, double v) {
  char buf[64];
  snprintf(buf, sizeof(buf), format, v);
  return buf;
}

// A figure for JSON: null where no cell qualified (the tables' "-").
template <class T>
Json orNull(T v) {
  return v < 0 ? Json() : Json(v);
}

// Runs the cells with the progress bar counting from `offset` of `total`.
flicker_eval::PoolReport runCells(const std::vector<EvalCell>& cells, const EvalOptions& o,
                                  std::function<void()> setUp, ProgressBar* bar, int offset,
                                  int total) {
  flicker_eval::PoolOptions pool;
  pool.jobs = o.workers(cells.size());
  pool.setUp = std::move(setUp);
  pool.progress = [bar, offset, total](int done, int) { bar->update(offset + done, total); };
  return flicker_eval::evaluateCells(cells, o.secondsPerRun(), pool);
}

// Reports what the runs lost: every worker failure, then the count of runs
// that did not complete. kExitOk when there is nothing to report.
int reportFailures(const flicker_eval::PoolReport& report, CliIo io) {
  for (const std::string& line : report.workerFailures) {
    io.err << io.program << ": " << line << "\n";
  }
  int failed = 0;
  for (const CellOutcome& o : report.outcomes) {
    failed += o.ok ? 0 : 1;
  }
  if (failed == 0) {
    return kExitOk;
  }
  return failWith(io, kExitFailed,
                  flicker_eval::countOf(failed, "run") + " did not complete (see the list above)");
}

bool writeCsv(const std::string& path, const std::vector<CellOutcome>& outcomes) {
  std::ofstream csv(path);
  flicker_eval::writeCsv(csv, outcomes);
  csv.close();
  return !csv.fail();
}

Json groupsJson(const EvalOptions& o, const std::vector<CellOutcome>& outcomes) {
  Json groups = Json::object();
  for (const std::string& by : o.by) {
    Json rows = Json::array();
    for (const flicker_eval::GroupFigures& f : flicker_eval::figuresBy(outcomes, by)) {
      rows.push_back({{"group", f.group},
                      {"cells", f.cells},
                      {"failed", f.failures},
                      {"counted", f.counted},
                      {"right", f.right},
                      {"lock_pairs_median", orNull(f.lockPairsMedian)},
                      {"lock_pairs_max", orNull(f.lockPairsMax)},
                      {"no_lock", f.lockMissing},
                      {"lock_ms_median", orNull(f.lockMsMedian)},
                      {"switch_pairs_median", orNull(f.switchPairsMedian)},
                      {"onset_pairs_median", orNull(f.onsetPairsMedian)},
                      {"false_switches", f.noFlickerSwitches},
                      {"no_flicker_hours", f.noFlickerHours},
                      {"mixed_changes", f.mixedSwitches},
                      {"mixed_hours", f.mixedHours}});
    }
    groups[by] = rows;
  }
  return groups;
}

Json meritJson(const flicker_eval::MeritFigures& merit) {
  Json figures = Json::array();
  for (const flicker_eval::FigureRow& row : flicker_eval::figureRows(merit)) {
    figures.push_back({{"figure", row.name},
                       {"value", flicker_eval::figureValueJson(row.value)},
                       {"text", row.text}});
  }
  Json targets = Json::array();
  for (const flicker_eval::TargetLine& t : flicker_eval::targets(merit)) {
    targets.push_back({{"target", t.name},
                       {"figure", t.figure},
                       {"verdict", !t.applicable ? "n/a"
                                   : t.met       ? "met"
                                                 : "missed"}});
  }
  return Json{{"figures", figures}, {"targets", targets}};
}

// What the runs were: grid or soak, seeds, tuning, workers, time.
Json runJson(const EvalOptions& o, size_t cells, int jobs, double wallSeconds) {
  return Json{{"grid", o.soakHours > 0 ? "soak" : o.gridName()},
              {"cells", cells},
              {"seconds", o.secondsPerRun()},
              {"seed_base", o.seedBase},
              {"seed_set", flicker_eval::seedSetKind(static_cast<uint64_t>(o.seedBase))},
              {"jobs", jobs},
              {"wall_seconds", rounded(wallSeconds)}};
}

void printGrid(const EvalOptions& o, const std::vector<CellOutcome>& outcomes,
               const flicker_eval::MeritFigures& merit, std::ostream& out) {
  for (const std::string& by : o.by) {
    out << "\n";
    flicker_eval::printTable(out, by, flicker_eval::figuresBy(outcomes, by));
  }
  out << "\nlock columns: median/max analysed pairs of the cells that locked; no_lock: cells "
         "that started wrong, could see the lamp and never locked; ms are medians; mixed: state "
         "changes per simulated minute\n";
  out << "\ncells ending wrong, switching without flicker, or failing:\n";
  flicker_eval::printFailures(out, outcomes, o.failureLines);
  out << "\nfigures of merit (" << flicker_eval::seedSetKind(static_cast<uint64_t>(o.seedBase))
      << " seeds):\n";
  flicker_eval::printTargets(out, flicker_eval::targets(merit));
}

void printSoak(const flicker_eval::SoakReport& r, std::ostream& out) {
  out << flicker_eval::countOf(r.runs, "run") << ", " << fmt("%.2f simulated hours: ", r.hours)
      << flicker_eval::countOf(r.falseSwitches, "false switch", "false switches")
      << fmt(" (%.2f per hour); ", r.perHour()) << fmt("%.0f s of wall time, ", r.wallSeconds)
      << fmt("%.0f times real time\n", r.wallSeconds > 0 ? r.hours * 3600.0 / r.wallSeconds : 0.0);
  for (const CellOutcome& o : r.switching) {
    out << "  " << o.cell.label() << " seed " << o.cell.seed << ": "
        << (o.ok ? flicker_eval::countOf(o.switches, "switch", "switches") + ", ended " +
                       std::to_string(o.summary.lockedHz) + " Hz"
                 : "run failed: " + o.error)
        << "\n";
  }
}

Json soakJson(const flicker_eval::SoakReport& r) {
  Json switching = Json::array();
  for (const CellOutcome& o : r.switching) {
    switching.push_back({{"cell", o.cell.label()},
                         {"seed", o.cell.seed},
                         {"switches", o.switches},
                         {"ended_hz", o.ok ? Json(o.summary.lockedHz) : Json()},
                         {"error", o.ok ? Json() : Json(o.error)}});
  }
  return Json{{"runs", r.runs},
              {"hours", rounded(r.hours, 1e4)},
              {"false_switches", r.falseSwitches},
              {"per_hour", rounded(r.perHour(), 1e4)},
              {"failed_runs", r.failedRuns},
              {"switching", switching}};
}

// The grid or the soak with one tuning.
int runEvaluation(const CliOptions& parsed, const EvalOptions& o,
                  const std::vector<EvalCell>& cells, CliIo io) {
  FlickerExtPara tuning{};
  std::string error;
  if (const int status = setUpPlatform(parsed, &tuning, io, &error)) {
    return failWith(io, status, error);
  }
  const bool soak = o.soakHours > 0;
  const int jobs = o.workers(cells.size());
  const std::string seeds = flicker_eval::seedSetLine(static_cast<uint64_t>(o.seedBase));
  if (!o.json) {
    if (soak) {
      io.out << "soak: " << o.soakHours << " simulated hours in "
             << flicker_eval::countOf(static_cast<long>(cells.size()), "run")
             << " of scenes without mains flicker, " << o.secondsPerRun() << " s each; " << seeds
             << "\n";
    } else {
      io.out << "grid " << o.gridName() << ": "
             << flicker_eval::countOf(static_cast<long>(cells.size()), "cell") << ", "
             << o.secondsPerRun() << " s simulated each; " << seeds << "\n";
    }
    io.out << "tuning " << o.tuning.describe() << " (words 0..12: " << wordsText(tuning) << ")\n"
           << std::flush;
  }
  ProgressBar bar(io, soak ? "soak" : "grid " + o.gridName(), soak ? "runs" : "cells");
  const Clock::time_point start = Clock::now();
  const flicker_eval::PoolReport report =
      runCells(cells, o, nullptr, &bar, 0, static_cast<int>(cells.size()));
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  bar.clear();

  Json json = runJson(o, cells.size(), jobs, wall);
  json["tuning"] = o.tuning.describe();
  if (soak) {
    const flicker_eval::SoakReport r =
        flicker_eval::soakReport(report.outcomes, o.secondsPerRun(), wall);
    json["soak"] = soakJson(r);
    if (!o.json) {
      printSoak(r, io.out);
    }
  } else {
    flicker_eval::DetectTiming timing;
    if (o.timingRuns > 0) {
      timing = flicker_eval::timeDetection(tuning, o.timingRuns);
    }
    const flicker_eval::MeritFigures merit = flicker_eval::meritOf(report.outcomes, timing);
    json["groups"] = groupsJson(o, report.outcomes);
    json.update(meritJson(merit));
    if (!o.json) {
      printGrid(o, report.outcomes, merit, io.out);
      io.out << "\n"
             << flicker_eval::countOf(static_cast<long>(cells.size()), "cell") << " in "
             << fmt("%.1f", wall) << " s of wall time, " << jobs
             << (jobs == 1 ? " process" : " worker processes") << "\n";
    }
  }
  if (o.json) {
    io.out << json.dump(2) << "\n";
  }
  if (!o.csvPath.empty() && !writeCsv(o.csvPath, report.outcomes)) {
    return failWith(io, kExitFailed, "cannot write " + o.csvPath);
  }
  return reportFailures(report, io);
}

// The baseline and the candidate on the same cells, each in worker processes
// of its own (the manager keeps the first tuning table it loads).
int runComparison(const CliOptions& parsed, const EvalOptions& o,
                  const std::vector<EvalCell>& cells, CliIo io) {
  flicker_loop::TuningTable baseline;
  flicker_loop::TuningTable candidate;
  std::string error;
  if (const int status =
          readTuning(o.baseline.choice, o.baseline.settings, &baseline, io, "baseline", &error)) {
    return failWith(io, status, error);
  }
  if (const int status = readTuning(parsed, &candidate, io, &error)) {
    return failWith(io, status, error);
  }
  if (const int status = setUpHost(parsed, &error)) {
    return failWith(io, status, error);
  }
  std::string baselineImage;
  std::string candidateImage;
  if (!flicker_loop::TuningChoice::stage(baseline, &baselineImage, &error) ||
      !flicker_loop::TuningChoice::stage(candidate, &candidateImage, &error)) {
    return failWith(io, kExitFailed, error);
  }
  const int jobs = o.workers(cells.size());
  if (!o.json) {
    io.out << "grid " << o.gridName() << ": "
           << flicker_eval::countOf(static_cast<long>(cells.size()), "cell") << ", "
           << o.secondsPerRun() << " s simulated each; "
           << flicker_eval::seedSetLine(static_cast<uint64_t>(o.seedBase)) << "\n"
           << "baseline:  " << o.baseline.describe()
           << " (words 0..12: " << wordsText(baseline.algoPart()) << ")\n"
           << "candidate: " << o.tuning.describe()
           << " (words 0..12: " << wordsText(candidate.algoPart()) << ")\n\n"
           << std::flush;
  }
  const int total = 2 * static_cast<int>(cells.size());
  ProgressBar bar(io, "compare", "runs");
  const Clock::time_point start = Clock::now();
  const flicker_eval::PoolReport before = runCells(
      cells, o, [baselineImage] { flicker_host::setNvramImage(baselineImage); }, &bar, 0, total);
  const flicker_eval::PoolReport after = runCells(
      cells, o, [candidateImage] { flicker_host::setNvramImage(candidateImage); }, &bar,
      static_cast<int>(cells.size()), total);
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  bar.clear();
  flicker_eval::DetectTiming beforeTiming;
  flicker_eval::DetectTiming afterTiming;
  if (o.timingRuns > 0) {
    beforeTiming = flicker_eval::timeDetection(baseline.algoPart(), o.timingRuns);
    afterTiming = flicker_eval::timeDetection(candidate.algoPart(), o.timingRuns);
  }
  const flicker_eval::Comparison comparison =
      flicker_eval::compareRuns(before.outcomes, beforeTiming, after.outcomes, afterTiming);
  const std::string rerun = commandName(io) + " " + o.gridOptions();
  if (o.json) {
    Json json = runJson(o, cells.size(), jobs, wall);
    json["baseline"] = o.baseline.describe();
    json["candidate"] = o.tuning.describe();
    json.update(flicker_eval::comparisonJson(comparison, rerun));
    io.out << json.dump(2) << "\n";
  } else {
    flicker_eval::printComparison(io.out, comparison, rerun);
  }
  if (!o.csvPath.empty() && !writeCsv(o.csvPath, after.outcomes)) {
    return failWith(io, kExitFailed, "cannot write " + o.csvPath);
  }
  const int lostBefore = reportFailures(before, io);
  const int lostAfter = reportFailures(after, io);
  return lostBefore != kExitOk ? lostBefore : lostAfter;
}

}  // namespace

int evalCommand(const std::vector<std::string>& args, CliIo io) {
  CliOptions parsed;
  std::string error;
  if (!parsed.parse(args, evalOptionDefs(), {}, &error)) {
    return failWith(io, kExitUsage, error + " (see " + commandName(io) + " --help)");
  }
  if (parsed.has("help")) {
    io.out << evalHelp(commandName(io));
    return kExitOk;
  }
  EvalOptions o;
  if (!readEvalOptions(parsed, &o, &error)) {
    return failWith(io, kExitUsage, error);
  }
  std::vector<EvalCell> cells;
  if (!pickCells(o, &cells, &error)) {
    return failWith(io, kExitUsage, error);
  }
  // A log file asked for gets the logs, verbose unless the properties chose.
  std::string level;
  if (!o.logPath.empty() && !flicker_host::getProperty(kMgrLogLevel, &level) &&
      !flicker_host::getProperty(kAlgoLogLevel, &level)) {
    flicker_host::setProperty(kMgrLogLevel, 1);
    flicker_host::setProperty(kAlgoLogLevel, 2);
  }
  return o.compare ? runComparison(parsed, o, cells, io) : runEvaluation(parsed, o, cells, io);
}

}  // namespace flicker_cli
