// flicker-sim sweep: the evaluation grid and its figures of merit.
#include <cstdio>
#include <fstream>

#include "cli_common.h"
#include "eval_grid.h"
#include "scenario_builder.h"

namespace flicker_cli {

namespace {

const char kSweepHelp[] =
    "usage: flicker-sim sweep [options]\n"
    "\n"
    "Runs a grid of closed-loop scenarios (light type, ripple depth, mains 50/60/\n"
    "none/switch/mixed, exposure regime, frame rate, noise, motion, geometry,\n"
    "starting state) and prints, per group and in total: accuracy of the final\n"
    "state where flicker is observable, median pairs and ms to a correct lock after\n"
    "start (cells starting in the wrong state) and after a light switch, false\n"
    "switches per simulated hour without flicker, state changes per hour under\n"
    "mixed light.\n"
    "\n"
    "options:\n"
    "  --quick          small grid for CI (default)\n"
    "  --full           every light, mains case and frame rate 24..120 fps\n"
    "  --seconds S      simulated seconds per run (default 4 quick, 6 full)\n"
    "  --by DIM         group rows by light, depth, mains, exposure, fps, noise,\n"
    "                   motion, geometry or start (default fps)\n"
    "  --csv FILE       one row per cell with its settings and results\n"
    "  --tuning T       open (default), host or an NVRAM image file\n"
    "  --log FILE, --trace FILE   as for run\n"
    "  --help           this text\n";

const std::vector<OptionDef> kSweepOptions = {
    {"help", false}, {"quick", false}, {"full", false}, {"seconds", true}, {"by", true},
    {"csv", true},   {"tuning", true}, {"log", true},   {"trace", true},
};

std::string cellText(double v, const char* format) {
  if (v < 0) {
    return "-";
  }
  char buf[32];
  snprintf(buf, sizeof(buf), format, v);
  return buf;
}

bool writeCsv(const std::string& path, const std::vector<flicker_loop::CellResult>& results) {
  std::ofstream out(path);
  if (!out) {
    return false;
  }
  for (const std::string& d : flicker_loop::EvalGrid::dimensions()) {
    out << d << ",";
  }
  out << "ok,observable,locked_hz,expected_hz,right,switches,pairs,pairs_to_lock,lock_ms,"
         "pairs_after_change,lock_after_change_ms,duration_ms\n";
  for (const flicker_loop::CellResult& r : results) {
    for (const std::string& d : flicker_loop::EvalGrid::dimensions()) {
      out << r.cell.value(d) << ",";
    }
    const flicker_loop::RunSummary& s = r.summary;
    out << (r.ok ? 1 : 0) << "," << (r.cell.observable() ? 1 : 0) << "," << s.lockedHz << ","
        << s.expectedHz << "," << (s.right ? 1 : 0) << "," << s.switches << "," << s.pairs << ","
        << s.pairsToLock << "," << s.lockMs << "," << s.pairsAfterChange << ","
        << s.lockAfterChangeMs << "," << s.durationMs << "\n";
  }
  return static_cast<bool>(out);
}

}  // namespace

int sweepCommand(const std::vector<std::string>& args, CliIo io) {
  CliOptions options;
  std::string error;
  if (!options.parse(args, kSweepOptions, {}, &error)) {
    return failWith(io, kExitUsage, error + " (see flicker-sim sweep --help)");
  }
  if (options.has("help")) {
    io.out << kSweepHelp;
    return kExitOk;
  }
  if (!options.positionals().empty()) {
    return failWith(io, kExitUsage,
                    "sweep takes no arguments, got '" + options.positionals()[0] + "'");
  }
  if (options.has("quick") && options.has("full")) {
    return failWith(io, kExitUsage, "--quick and --full exclude each other");
  }
  const bool full = options.has("full");
  double seconds = full ? 6.0 : 4.0;
  if (options.has("seconds") &&
      !flicker_loop::parseReal(options.value("seconds"), 0.5, 3600.0, &seconds)) {
    return failWith(
        io, kExitUsage,
        "bad value '" + options.value("seconds") + "' for --seconds: expected 0.5..3600");
  }
  const std::string by = options.value("by", "fps");
  bool known = false;
  for (const std::string& d : flicker_loop::EvalGrid::dimensions()) {
    known = known || d == by;
  }
  if (!known) {
    return failWith(io, kExitUsage, "bad value '" + by + "' for --by: expected a grid dimension");
  }
  if (const int status = setUpPlatform(options, nullptr, io, &error)) {
    return failWith(io, status, error);
  }

  const flicker_loop::EvalGrid grid(
      full ? flicker_loop::EvalGrid::Size::kFull : flicker_loop::EvalGrid::Size::kQuick, seconds);
  ProgressBar bar(io, std::string("sweep (") + std::to_string(grid.cells().size()) + " runs)");
  const std::vector<flicker_loop::CellResult> results =
      grid.run([&bar](int done, int total) { bar.update(done, total); });
  bar.clear();

  char line[200];
  snprintf(line, sizeof(line), "%-12s %5s %9s %11s %10s %12s %11s %9s %9s\n", by.c_str(), "runs",
           "accuracy", "lock_pairs", "lock_ms", "switch_pairs", "switch_ms", "false/h", "mixed/h");
  io.out << line;
  int failures = 0;
  for (const flicker_loop::GridFigures& f : flicker_loop::EvalGrid::figures(results, by)) {
    const std::string accuracy =
        f.observable > 0 ? std::to_string(f.right) + "/" + std::to_string(f.observable) : "-";
    snprintf(line, sizeof(line), "%-12s %5d %9s %11s %10s %12s %11s %9s %9s\n", f.group.c_str(),
             f.cells, accuracy.c_str(), cellText(f.startLockPairs, "%.1f").c_str(),
             cellText(f.startLockMs, "%.0f").c_str(), cellText(f.switchLockPairs, "%.1f").c_str(),
             cellText(f.switchLockMs, "%.0f").c_str(),
             cellText(f.falseSwitchesPerHour, "%.0f").c_str(),
             cellText(f.mixedSwitchesPerHour, "%.0f").c_str());
    io.out << line;
    if (f.group == "total") {
      failures = f.failures;
    }
  }
  if (options.has("csv") && !writeCsv(options.value("csv"), results)) {
    return failWith(io, kExitFailed, "cannot write " + options.value("csv"));
  }
  if (failures > 0) {
    return failWith(io, kExitFailed, std::to_string(failures) + " runs did not complete");
  }
  return kExitOk;
}

}  // namespace flicker_cli
