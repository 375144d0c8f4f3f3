// flicker-sim: command-line entry; the commands live in flicker_sim_cli.
#include <unistd.h>

#include <iostream>

#include "flicker_sim_cli.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  flicker_cli::CliIo io{std::cout, std::cerr, isatty(STDERR_FILENO) != 0};
  return flicker_cli::flickerSimMain(args, io);
}
