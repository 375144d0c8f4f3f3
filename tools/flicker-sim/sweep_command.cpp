// flicker-sim sweep: the evaluation grid and its figures of merit, the same
// cells run and read the same way as flicker-eval does (tools/eval).
#include <fstream>

#include "cell_outcome.h"
#include "cli_common.h"
#include "eval_report.h"
#include "scenario_builder.h"

namespace flicker_cli {

namespace {

const char kSweepHelp[] =
    "usage: flicker-sim sweep [options]\n"
    "\n"
    "Runs the evaluation grid of flicker-eval (lamps, ripple depth, mains 50/60/\n"
    "none/switch/mixed/onset, exposure regime, frame rate and timing, noise,\n"
    "motion, texture, geometry, starting state) closed-loop and prints, per group\n"
    "and in total: accuracy of the final state where physics shows the flicker,\n"
    "median/max pairs and ms to a correct lock after start, pairs after a light\n"
    "switch and after a lamp's onset, false switches per simulated hour without\n"
    "mains flicker, state changes per simulated minute under mixed light.\n"
    "\n"
    "options:\n"
    "  --quick          small grid for CI (default)\n"
    "  --full           every geometry multiplied (long; flicker-eval runs the\n"
    "                   default grid between the two)\n"
    "  --seconds S      simulated seconds per run (default 3 quick, 4 full)\n"
    "  --by DIM         group rows by light, depth, ripple, mains, exposure, fps,\n"
    "                   timing, noise, motion, texture, geometry or start\n"
    "                   (default fps)\n"
    "  --only DIM=VALUE run only the cells with this value (repeatable; values of\n"
    "                   one dimension are alternatives)\n"
    "  --seed-base N    the same scenes with other seeds (bases 10000, 20000,\n"
    "                   30000 are held out for reported figures)\n"
    "  --csv FILE       one row per cell, as flicker-eval --csv writes it\n"
    "  --tuning T       open (default), host or an NVRAM image file\n"
    "  --log FILE, --trace FILE   as for run\n"
    "  --help           this text\n";

const std::vector<OptionDef> kSweepOptions = {
    {"help", false},  {"quick", false}, {"full", false},     {"seconds", true},
    {"by", true},     {"only", true},   {"seed-base", true}, {"csv", true},
    {"tuning", true}, {"log", true},    {"trace", true},
};

bool isDimension(const std::string& name) {
  for (const std::string& d : flicker_eval::evalDimensions()) {
    if (d == name) {
      return true;
    }
  }
  return false;
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
  const flicker_eval::GridSize size =
      options.has("full") ? flicker_eval::GridSize::kFull : flicker_eval::GridSize::kQuick;
  double seconds = flicker_eval::defaultSeconds(size);
  if (options.has("seconds") &&
      !flicker_loop::parseReal(options.value("seconds"), 0.2, 3600.0, &seconds)) {
    return failWith(
        io, kExitUsage,
        "bad value '" + options.value("seconds") + "' for --seconds: expected 0.2..3600");
  }
  const std::string by = options.value("by", "fps");
  if (!isDimension(by)) {
    return failWith(io, kExitUsage, "bad value '" + by + "' for --by: expected a grid dimension");
  }
  std::vector<std::pair<std::string, std::string>> only;
  for (const auto& option : options.ordered()) {
    if (option.first != "only") {
      continue;
    }
    const size_t eq = option.second.find('=');
    if (eq == std::string::npos || !isDimension(option.second.substr(0, eq))) {
      return failWith(io, kExitUsage,
                      "bad value '" + option.second + "' for --only: expected DIM=VALUE");
    }
    only.emplace_back(option.second.substr(0, eq), option.second.substr(eq + 1));
  }
  long seedBase = 0;
  if (options.has("seed-base") &&
      !flicker_loop::parseInt(options.value("seed-base"), 0, 1000000000, &seedBase)) {
    return failWith(io, kExitUsage,
                    "bad value '" + options.value("seed-base") + "' for --seed-base");
  }
  const std::vector<flicker_eval::EvalCell> cells = flicker_eval::filterCells(
      flicker_eval::buildGrid(size, static_cast<uint64_t>(seedBase)), only);
  if (cells.empty()) {
    return failWith(io, kExitUsage, "no cell of the grid passes the --only filters");
  }
  if (const int status = setUpPlatform(options, nullptr, io, &error)) {
    return failWith(io, status, error);
  }

  ProgressBar bar(io, std::string("sweep (") + std::to_string(cells.size()) + " runs)");
  const std::vector<flicker_eval::CellOutcome> outcomes = flicker_eval::evaluateAll(
      cells, seconds, [&bar](int done, int total) { bar.update(done, total); });
  bar.clear();
  int failures = 0;
  for (const flicker_eval::CellOutcome& o : outcomes) {
    failures += o.ok ? 0 : 1;
  }

  io.out << flicker_eval::seedSetLine(static_cast<uint64_t>(seedBase)) << "\n";
  flicker_eval::printTable(io.out, by, flicker_eval::figuresBy(outcomes, by));
  if (options.has("csv")) {
    std::ofstream csv(options.value("csv"));
    flicker_eval::writeCsv(csv, outcomes);
    if (!csv) {
      return failWith(io, kExitFailed, "cannot write " + options.value("csv"));
    }
  }
  if (failures > 0) {
    return failWith(io, kExitFailed, std::to_string(failures) + " runs did not complete");
  }
  return kExitOk;
}

}  // namespace flicker_cli
