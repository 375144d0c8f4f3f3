#include "flicker_sim_cli.h"

#include "cli_common.h"

namespace flicker_cli {

namespace {

const char kMainHelp[] =
    "usage: flicker-sim COMMAND [options]\n"
    "\n"
    "Host tool of the flicker (anti-banding) manager: runs the real manager on\n"
    "simulated rolling-shutter statistics, replays statistics dumps, and evaluates\n"
    "the detection over a grid of scenes.\n"
    "\n"
    "commands:\n"
    "  run [SCENARIO]   closed-loop run of a scenario (default office-50hz)\n"
    "  replay DIR       the algorithm's verdicts on a tree of flk.raw dumps\n"
    "  eval             the evaluation: a grid of scenes with the figures of merit,\n"
    "                   a soak, or a baseline tuning against a candidate\n"
    "                   (sweep is the same command)\n"
    "  tuning           show and edit a tuning record, write an NVRAM image\n"
    "\n"
    "'flicker-sim COMMAND --help' describes each command. Properties come from the\n"
    "file named by FLICKER_PROPS (name=value lines), dumps go under FLICKER_DATA_ROOT.\n";

}  // namespace

int flickerSimMain(const std::vector<std::string>& args, CliIo io) {
  if (args.empty()) {
    io.err << kMainHelp;
    return failWith(io, kExitUsage, "no command given");
  }
  const std::string& command = args.front();
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "--help" || command == "-h" || command == "help") {
    io.out << kMainHelp;
    return kExitOk;
  }
  if (command == "run") {
    return runCommand(rest, io);
  }
  if (command == "replay") {
    return replayCommand(rest, io);
  }
  if (command == "eval" || command == "sweep") {
    return evalCommand(rest, io);
  }
  if (command == "tuning") {
    return tuningCommand(rest, io);
  }
  return failWith(io, kExitUsage,
                  "unknown command '" + command + "' (run, replay, eval or tuning)");
}

}  // namespace flicker_cli
