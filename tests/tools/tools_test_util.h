// Helpers of the tool tests: a temporary folder, small fast scenarios, and
// running flicker-sim's commands in-process.
#pragma once

#include <string>
#include <vector>

#include "closed_loop_runner.h"
#include "scenario_builder.h"

namespace tools_test {

// A fresh folder under TMPDIR, removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Settings that shrink a preset to 960 statistics lines with the same 30 ms
// readout, so a closed-loop run of a few hundred frames takes little time.
// `binning` is the preset's frame-to-TG height ratio (1 or 2).
std::vector<std::pair<std::string, std::string>> smallGeometry(int binning = 1);

// The preset with smallGeometry() and `extra` applied; fails the test on a
// bad setting.
flicker_loop::ScenarioBuilder smallScenario(
    const std::string& preset, const std::vector<std::pair<std::string, std::string>>& extra = {});

struct CommandOutput {
  int status = 0;
  std::string out;
  std::string err;
};

// Runs flicker-sim with `args` (after the program name) in this process.
CommandOutput runFlickerSim(const std::vector<std::string>& args);

// Writes `bytes` to `path`.
void writeFile(const std::string& path, const std::string& bytes);

}  // namespace tools_test
