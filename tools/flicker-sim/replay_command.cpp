// flicker-sim replay: the algorithm's verdicts on a tree of statistics dumps,
// as text, CSV or JSON, optionally with an SVG picture.
#include <cstdio>

#include "cli_common.h"
#include "cli_json.h"
#include "dump_replayer.h"
#include "replay_plot.h"
#include "scenario_builder.h"

namespace flicker_cli {

namespace {

const char kReplayHelp[] =
    "usage: flicker-sim replay DIR [options]\n"
    "\n"
    "Runs the open detection algorithm again on the numbered dump folders of DIR\n"
    "(NNN/flk.raw, in numeric order), as written with vendor.debug.flk_dump=1\n"
    "(DIR is then $FLICKER_DATA_ROOT/data/vendor/flicker/flko). Each step applies\n"
    "the flicker state the dump records and detects on its pair.\n"
    "\n"
    "options:\n"
    "  --frame-interval-us N  time between the two frames of a pair (default 33333;\n"
    "                         dumps do not record it)\n"
    "  --csv                  'step,state,score50,score60' rows; state 50, 60 or 0\n"
    "  --json                 every step with its verdict, scores, flags and the\n"
    "                         pair's ratio profile with both fitted bands\n"
    "  --plot FILE            SVG of the verdicts, scores and bands per step and the\n"
    "                         profile of the step that decided\n"
    "  --tuning T             open (default), host or an NVRAM image file\n"
    "  --set NAME=VALUE       a tuning field by name (repeatable; see flicker-sim tuning)\n"
    "  --log FILE, --trace FILE   as for run\n"
    "  --help                 this text\n";

const std::vector<OptionDef> kReplayOptions = {
    {"help", false},  {"csv", false}, {"json", false}, {"plot", true},  {"frame-interval-us", true},
    {"tuning", true}, {"set", true},  {"log", true},   {"trace", true},
};

constexpr long kDefaultIntervalUs = 33333;  // one frame at 30 fps
constexpr long kMaxIntervalUs = 1000000;    // the algorithm takes at most 1 s
// Profiles in JSON: ratios to 1e-5 (the bands of interest are 1e-3 and up).
constexpr double kRatioScale = 1e5;

// Aux word 1 is the pair's vote (0 = 50 Hz, 1 = 60 Hz, 2 = neither), word 0 its flags.
int voteHz(const flicker_loop::ReplayStep& s) {
  return s.aux[1] == 0 ? 50 : s.aux[1] == 1 ? 60 : 0;
}

void printText(const flicker_loop::ReplayResult& result, std::ostream& out) {
  if (!result.steps.empty()) {
    out << " step folder applied verdict score50 score60 exp_us vote flags\n";
  }
  char line[160];
  for (const flicker_loop::ReplayStep& s : result.steps) {
    const int vote = voteHz(s);
    snprintf(line, sizeof(line), "%5d %6s %7d %7s %7d %7d %6d %4s 0x%02x\n", s.step,
             s.folder.c_str(), s.appliedHz,
             s.verdictHz == 0 ? "neither" : std::to_string(s.verdictHz).c_str(), s.score50,
             s.score60, s.exposureUs, vote == 0 ? "-" : std::to_string(vote).c_str(),
             static_cast<unsigned>(s.aux[0]));
    out << line;
  }
}

Json profileJson(const flicker_loop::RippleFit& fit) {
  if (!fit.valid) {
    return Json();
  }
  return Json{{"amplitude100", rounded(fit.amplitude100, kRatioScale)},
              {"amplitude120", rounded(fit.amplitude120, kRatioScale)},
              {"time_ms", roundedArray(fit.timeMs)},
              {"ratio", roundedArray(fit.ratio, kRatioScale)},
              {"band100", roundedArray(fit.band100, kRatioScale)},
              {"band120", roundedArray(fit.band120, kRatioScale)}};
}

void printJson(const std::string& dir, long intervalUs, const flicker_loop::ReplayResult& result,
               std::ostream& out) {
  Json steps = Json::array();
  for (const flicker_loop::ReplayStep& s : result.steps) {
    const int vote = voteHz(s);
    steps.push_back({{"step", s.step},
                     {"folder", s.folder},
                     {"applied_hz", s.appliedHz},
                     {"verdict_hz", s.verdictHz},
                     {"state_after_hz", s.stateAfterHz},
                     {"score50", s.score50},
                     {"score60", s.score60},
                     {"exposure_us", s.exposureUs},
                     {"vote_hz", vote == 0 ? Json() : Json(vote)},
                     {"flags", s.aux[0]},
                     {"aux", std::vector<int32_t>(s.aux, s.aux + kFlkAuxWords)},
                     {"profile", profileJson(s.profile)}});
  }
  const int deciding = result.decidingStep();
  out << Json{{"dumps", dir},
              {"frame_interval_us", intervalUs},
              {"steps", steps},
              {"deciding_step", deciding >= 0 ? Json(deciding) : Json()},
              {"error", result.ok ? Json() : Json(result.error)}}
             .dump(2)
      << "\n";
}

}  // namespace

int replayCommand(const std::vector<std::string>& args, CliIo io) {
  CliOptions options;
  std::string error;
  if (!options.parse(args, kReplayOptions, {}, &error)) {
    return failWith(io, kExitUsage, error + " (see flicker-sim replay --help)");
  }
  if (options.has("help")) {
    io.out << kReplayHelp;
    return kExitOk;
  }
  if (options.positionals().size() != 1) {
    return failWith(io, kExitUsage, "replay needs exactly one dump folder (see --help)");
  }
  if (options.has("csv") && options.has("json")) {
    return failWith(io, kExitUsage, "--csv and --json exclude each other");
  }
  long intervalUs = kDefaultIntervalUs;
  const std::string interval = options.value("frame-interval-us", "33333");
  if (!flicker_loop::parseInt(interval, 0, kMaxIntervalUs, &intervalUs)) {
    return failWith(io, kExitUsage,
                    "bad value '" + interval + "' for --frame-interval-us: expected 0..1000000");
  }
  FlickerExtPara tuning{};
  if (const int status = setUpPlatform(options, &tuning, io, &error)) {
    return failWith(io, status, error);
  }
  const std::string dir = options.positionals().front();
  flicker_loop::DumpReplayer replayer(tuning);
  const flicker_loop::ReplayResult result =
      replayer.replay(dir, static_cast<int64_t>(intervalUs) * 1000);

  const bool csv = options.has("csv");
  const bool json = options.has("json");
  if (csv) {
    io.out << "step,state,score50,score60\n";
    for (const flicker_loop::ReplayStep& s : result.steps) {
      io.out << s.step << "," << s.verdictHz << "," << s.score50 << "," << s.score60 << "\n";
    }
  } else if (json) {
    printJson(dir, intervalUs, result, io.out);
  } else {
    printText(result, io.out);
  }
  if (!result.ok) {
    return failWith(io, kExitFailed, "replay stopped: " + result.error);
  }
  if (options.has("plot")) {
    const std::string path = options.value("plot");
    if (!ReplayPlot::build("flicker-sim replay " + dir, result).write(path)) {
      return failWith(io, kExitFailed, "cannot write the plot " + path);
    }
  }
  if (!csv && !json) {
    io.out << result.steps.size() << " steps replayed; last verdict: "
           << (result.steps.back().verdictHz == 0
                   ? std::string("neither")
                   : std::to_string(result.steps.back().verdictHz) + " Hz")
           << "\n";
    const std::string deciding = ReplayPlot::decidingStepText(result);
    if (!deciding.empty()) {
      io.out << "deciding: " << deciding << "\n";
    }
    if (options.has("plot")) {
      io.out << "picture: " << options.value("plot") << "\n";
    }
  }
  return kExitOk;
}

}  // namespace flicker_cli
