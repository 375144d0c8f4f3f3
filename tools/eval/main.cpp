// flicker-eval: the evaluation under the name it had before flicker-sim
// took it in; `flicker-eval ARGS` is `flicker-sim eval ARGS` (same options,
// help, outputs and exit status; messages start with "flicker-eval:").
#include <unistd.h>

#include <iostream>

#include "flicker_sim_cli.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const flicker_cli::CliIo io{std::cout, std::cerr, isatty(STDERR_FILENO) != 0, "flicker-eval"};
  return flicker_cli::evalCommand(args, io);
}
