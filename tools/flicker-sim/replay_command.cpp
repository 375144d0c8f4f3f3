// flicker-sim replay: the algorithm's verdicts on a tree of statistics dumps.
#include <cstdio>

#include "cli_common.h"
#include "dump_replayer.h"
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
    "  --tuning T             open (default), host or an NVRAM image file\n"
    "  --set NAME=VALUE       a tuning field by name (repeatable; see flicker-sim tuning)\n"
    "  --log FILE, --trace FILE   as for run\n"
    "  --help                 this text\n";

const std::vector<OptionDef> kReplayOptions = {
    {"help", false}, {"csv", false},  {"frame-interval-us", true}, {"tuning", true}, {"set", true},
    {"log", true},   {"trace", true},
};

constexpr long kDefaultIntervalUs = 33333;  // one frame at 30 fps
constexpr long kMaxIntervalUs = 1000000;    // the algorithm takes at most 1 s

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
  flicker_loop::DumpReplayer replayer(tuning);
  const flicker_loop::ReplayResult result =
      replayer.replay(options.positionals().front(), static_cast<int64_t>(intervalUs) * 1000);

  const bool csv = options.has("csv");
  if (csv) {
    io.out << "step,state,score50,score60\n";
  } else if (!result.steps.empty()) {
    io.out << " step folder applied verdict score50 score60 exp_us vote flags\n";
  }
  char line[160];
  for (const flicker_loop::ReplayStep& s : result.steps) {
    if (csv) {
      io.out << s.step << "," << s.verdictHz << "," << s.score50 << "," << s.score60 << "\n";
      continue;
    }
    // Aux word 1 is the pair's vote (0 = 50 Hz, 1 = 60 Hz, 2 = neither), word 0 its flags.
    const char* vote = s.aux[1] == 0 ? "50" : s.aux[1] == 1 ? "60" : "-";
    snprintf(line, sizeof(line), "%5d %6s %7d %7s %7d %7d %6d %4s 0x%02x\n", s.step,
             s.folder.c_str(), s.appliedHz,
             s.verdictHz == 0 ? "neither" : std::to_string(s.verdictHz).c_str(), s.score50,
             s.score60, s.exposureUs, vote, static_cast<unsigned>(s.aux[0]));
    io.out << line;
  }
  if (!result.ok) {
    return failWith(io, kExitFailed, "replay stopped: " + result.error);
  }
  if (!csv) {
    io.out << result.steps.size() << " steps replayed; last verdict: "
           << (result.steps.back().verdictHz == 0
                   ? std::string("neither")
                   : std::to_string(result.steps.back().verdictHz) + " Hz")
           << "\n";
  }
  return kExitOk;
}

}  // namespace flicker_cli
