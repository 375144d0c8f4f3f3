// flicker-sim run: one closed-loop run of a scenario, printed as text, CSV or
// JSON, optionally with an SVG picture.
#include <sys/stat.h>

#include <cstdio>
#include <iomanip>
#include <sstream>

#include "cli_common.h"
#include "cli_json.h"
#include "closed_loop_runner.h"
#include "run_plot.h"
#include "run_summary.h"
#include "scenario_builder.h"

namespace flicker_cli {

namespace {

const char kRunHelp[] =
    "usage: flicker-sim run [SCENARIO] [options]\n"
    "\n"
    "Runs the flicker manager closed-loop on simulated statistics: the simulator's\n"
    "exposure control follows the manager's result. SCENARIO is a built-in name\n"
    "(--list) or a scenario file of 'key = value' lines ('#' comments). Default:\n"
    "office-50hz.\n"
    "\n"
    "options:\n"
    "  --KEY VALUE      any scenario key, e.g. --frames 300 --fps 29.97 --mains 60\n"
    "                   --start_state 60 --sensors 2 (--keys lists them all)\n"
    "  --file FILE      scenario file, applied before the --KEY options\n"
    "  --csv            one CSV row per analysed pair\n"
    "  --json           pairs and summary as JSON\n"
    "  --plot FILE      SVG of state, scores, exposure and the deciding pair's profile\n"
    "  --tuning T       open (default: the open algorithm's recommended record),\n"
    "                   host (the host platform's table) or an NVRAM image file\n"
    "  --set NAME=VALUE a tuning field by name, e.g. --set hold_off=2 (repeatable;\n"
    "                   'flicker-sim tuning' lists the fields)\n"
    "  --log FILE       write the library's logs to FILE (they are on when\n"
    "                   vendor.debug.flicker_mgr.log.level is set)\n"
    "  --trace FILE     write a trace of every frame to FILE (JSON trace events: open\n"
    "                   it in ui.perfetto.dev or chrome://tracing)\n"
    "  --list           list the built-in scenarios\n"
    "  --keys           list the scenario keys with unit, range and default (the\n"
    "                   defaults of the scenario given, office-50hz without one)\n"
    "  --help           this text\n"
    "\n"
    "Properties come from the file named by FLICKER_PROPS; with vendor.debug.flk_dump=1\n"
    "every analysed pair is dumped under $FLICKER_DATA_ROOT/data/vendor/flicker/flko/.\n";

const std::vector<OptionDef> kRunOptions = {
    {"help", false}, {"list", false}, {"keys", false}, {"csv", false},
    {"json", false}, {"plot", true},  {"file", true},  {"tuning", true},
    {"set", true},   {"log", true},   {"trace", true},
};

// Number of frames from which a run on a terminal shows its progress.
constexpr int kProgressFrames = 2000;

bool isFile(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string fixed(double v, int decimals) {
  char buf[48];
  snprintf(buf, sizeof(buf), "%.*f", decimals, v);
  return buf;
}

void printText(const flicker_sim::SimScenario& scenario, const flicker_loop::LoopResult& result,
               const flicker_loop::RunSummary& s, std::ostream& out) {
  const flicker_sim::SimSensorParams& first = scenario.sensors.front();
  out << "scenario " << scenario.name << ": " << scenario.description << "\n";
  out << "  " << scenario.sensors.size() << " sensor(s), " << s.frames << " frames, "
      << fixed(first.framesPerSecond, 2) << " fps, " << first.geometry.frameWidth << "x"
      << first.geometry.frameHeight << "\n";
  out << " frame sensor  time_ms  exp_us state score50 score60 rate\n";
  char line[128];
  for (const flicker_loop::PairRow& p : result.pairs) {
    snprintf(line, sizeof(line), "%6d %6d %8.1f %7d %5d %7d %7d %4d\n", p.frame, p.sensor, p.timeMs,
             p.exposureUs, p.stateHz, p.score50, p.score60, p.rateActive);
    out << line;
  }
  out << "locked " << s.lockedHz << " Hz ";
  if (s.switches == 0) {
    out << "from the start";
  } else {
    out << "at frame " << s.lockFrame << " (" << fixed(s.lockMs, 1) << " ms, " << s.pairsToLock
        << " pairs)";
  }
  out << "; " << s.switches << (s.switches == 1 ? " switch" : " switches") << "; light: "
      << (s.expectedHz == 0 ? std::string("no flicker")
                            : std::to_string(s.expectedHz) + " Hz mains")
      << " -> " << (s.right ? "right" : "WRONG") << "\n";
  if (s.changeMs >= 0) {
    out << "light changed at " << fixed(s.changeMs, 1) << " ms";
    if (s.lockAfterChangeMs >= 0) {
      out << "; locked " << fixed(s.lockAfterChangeMs, 1) << " ms (" << s.pairsAfterChange
          << " pairs) later";
    }
    out << "\n";
  }
}

// The keys with what each takes and its value in the chosen scenario. The
// columns are as wide as their widest entry, but for the allowed values: the
// long list of lamps pushes its row's meaning to the right instead.
void printKeys(const flicker_loop::ScenarioBuilder& builder, std::ostream& out) {
  const std::string scenario = builder.value("scenario");
  out << "scenario keys (--KEY VALUE or 'key = value' in a file); defaults of " << scenario << "\n";
  std::vector<flicker_loop::ScenarioBuilder::KeyInfo> rows = builder.describeKeys();
  rows.insert(rows.begin(), {"key", "unit", "range or values", "default", "meaning"});
  constexpr size_t kAllowedColumn = 40;
  size_t name = 0, value = 0, unit = 0, allowed = 0;
  for (const auto& k : rows) {
    name = std::max(name, k.name.size());
    value = std::max(value, k.value.size());
    unit = std::max(unit, k.unit.size());
    allowed = std::max(allowed, std::min(k.allowed.size(), kAllowedColumn));
  }
  for (const auto& k : rows) {
    out << std::left << std::setw(static_cast<int>(name)) << k.name << "  "
        << std::setw(static_cast<int>(value)) << k.value << "  "
        << std::setw(static_cast<int>(unit)) << k.unit << "  "
        << std::setw(static_cast<int>(allowed)) << k.allowed << "  " << k.meaning << "\n";
  }
}

void printCsv(const flicker_loop::LoopResult& result, std::ostream& out) {
  out << "frame,sensor,time_ms,exposure_us,state,score50,score60,rate_active,truth_hz,interval_"
         "us\n";
  for (const flicker_loop::PairRow& p : result.pairs) {
    out << p.frame << "," << p.sensor << "," << fixed(p.timeMs, 3) << "," << p.exposureUs << ","
        << p.stateHz << "," << p.score50 << "," << p.score60 << "," << p.rateActive << ","
        << p.truthHz << "," << fixed(p.intervalNs / 1000.0, 3) << "\n";
  }
}

void printJson(const flicker_sim::SimScenario& scenario, const flicker_loop::LoopResult& result,
               const flicker_loop::RunSummary& s, std::ostream& out) {
  Json pairs = Json::array();
  for (const flicker_loop::PairRow& p : result.pairs) {
    pairs.push_back({{"frame", p.frame},
                     {"sensor", p.sensor},
                     {"time_ms", rounded(p.timeMs)},
                     {"exposure_us", p.exposureUs},
                     {"state", p.stateHz},
                     {"score50", p.score50},
                     {"score60", p.score60},
                     {"rate_active", p.rateActive},
                     {"truth_hz", p.truthHz},
                     {"interval_us", rounded(p.intervalNs / 1000.0)}});
  }
  const Json summary = {{"frames", s.frames},
                        {"pairs", s.pairs},
                        {"locked_hz", s.lockedHz},
                        {"lock_frame", s.lockFrame},
                        {"lock_ms", rounded(s.lockMs)},
                        {"pairs_to_lock", s.pairsToLock},
                        {"switches", s.switches},
                        {"expected_hz", s.expectedHz},
                        {"right", s.right}};
  out << Json{{"scenario", scenario.name}, {"pairs", pairs}, {"summary", summary}}.dump(2) << "\n";
}

}  // namespace

int runCommand(const std::vector<std::string>& args, CliIo io) {
  CliOptions options;
  std::string error;
  if (!options.parse(args, kRunOptions, flicker_loop::ScenarioBuilder::keys(), &error)) {
    return failWith(io, kExitUsage, error + " (see flicker-sim run --help)");
  }
  if (options.has("help")) {
    io.out << kRunHelp;
    return kExitOk;
  }
  if (options.has("list")) {
    for (const std::string& name : flicker_loop::ScenarioBuilder::presetNames()) {
      flicker_loop::ScenarioBuilder b;
      b.selectPreset(name, nullptr);
      char line[240];
      snprintf(line, sizeof(line), "%-22s %s\n", name.c_str(), b.scenario().description.c_str());
      io.out << line;
    }
    return kExitOk;
  }
  if (options.positionals().size() > 1) {
    return failWith(io, kExitUsage,
                    "run takes one scenario, got '" + options.positionals()[1] + "'");
  }
  if (options.has("csv") && options.has("json")) {
    return failWith(io, kExitUsage, "--csv and --json exclude each other");
  }

  flicker_loop::ScenarioBuilder builder;
  if (!options.positionals().empty()) {
    const std::string& scenario = options.positionals().front();
    std::string presetError;
    if (!builder.selectPreset(scenario, &presetError)) {
      if (!isFile(scenario)) {
        return failWith(io, kExitUsage, presetError + " and no such file");
      }
      if (!builder.loadFile(scenario, &error)) {
        return failWith(io, kExitUsage, error);
      }
    }
  }
  if (options.has("file") && !builder.loadFile(options.value("file"), &error)) {
    return failWith(io, kExitUsage, error);
  }
  for (const auto& option : options.ordered()) {
    bool isKey = false;
    for (const std::string& key : flicker_loop::ScenarioBuilder::keys()) {
      isKey = isKey || key == option.first;
    }
    if (isKey && !builder.set(option.first, option.second, &error)) {
      return failWith(io, kExitUsage, error);
    }
  }

  if (options.has("keys")) {
    printKeys(builder, io.out);
    return kExitOk;
  }
  if (const int status = setUpPlatform(options, nullptr, io, &error)) {
    return failWith(io, status, error);
  }
  const flicker_sim::SimScenario scenario = builder.scenario();
  flicker_loop::LoopOptions loopOptions = builder.options();
  ProgressBar bar(io, "running " + scenario.name, "frames");
  const int frames = loopOptions.frames > 0 ? loopOptions.frames : scenario.frameCount;
  if (frames * static_cast<int>(scenario.sensors.size()) >= kProgressFrames) {
    loopOptions.progress = [&bar](int done, int total) { bar.update(done, total); };
  }
  const flicker_loop::LoopResult result =
      flicker_loop::ClosedLoopRunner(scenario, loopOptions).run();
  bar.clear();
  if (!result.ok) {
    return failWith(io, kExitFailed, "run failed: " + result.error);
  }
  const flicker_loop::RunSummary summary = flicker_loop::RunSummary::of(result);
  if (options.has("csv")) {
    printCsv(result, io.out);
  } else if (options.has("json")) {
    printJson(scenario, result, summary, io.out);
  } else {
    printText(scenario, result, summary, io.out);
  }
  if (options.has("plot")) {
    const std::string path = options.value("plot");
    if (!RunPlot::build("flicker-sim run " + scenario.name, result, summary).write(path)) {
      return failWith(io, kExitFailed, "cannot write the plot " + path);
    }
    if (!options.has("csv") && !options.has("json")) {
      io.out << "picture: " << path << "\n";
    }
  }
  return kExitOk;
}

}  // namespace flicker_cli
