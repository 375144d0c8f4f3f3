// The subcommands of flicker-sim, callable in-process (the program's main
// and the tests use the same entry).
//
// Every command returns the process exit status: 0 done, 1 the work failed
// (a run that did not complete, an unreadable dump), 2 bad usage (unknown
// subcommand or option, a bad value); on failure one line "<program>:
// <reason>" goes to `err`. `interactive` says stderr is a terminal (progress
// bars are drawn there, and only then).
//
// Threading: the manager and the algorithm are process-wide; run one
// command at a time.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace flicker_cli {

struct CliIo {
  std::ostream& out;
  std::ostream& err;
  bool interactive = false;
  const char* program = "flicker-sim";  // names the tool in messages and help
};

// args: everything after the program name.
int flickerSimMain(const std::vector<std::string>& args, CliIo io);

int runCommand(const std::vector<std::string>& args, CliIo io);
int replayCommand(const std::vector<std::string>& args, CliIo io);
// The evaluation (flicker-sim eval, also under its former name sweep; the
// whole of flicker-eval).
int evalCommand(const std::vector<std::string>& args, CliIo io);
int tuningCommand(const std::vector<std::string>& args, CliIo io);

}  // namespace flicker_cli
