#include "tools_test_util.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "flicker_sim_cli.h"

namespace tools_test {

TempDir::TempDir() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern =
      std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/flicker-tools-test-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) != nullptr) {
    path_ = name.data();
  }
}

TempDir::~TempDir() {
  if (!path_.empty()) {
    const std::string command = "rm -rf '" + path_ + "'";
    (void)system(command.c_str());
  }
}

std::vector<std::pair<std::string, std::string>> smallGeometry(int binning) {
  // 960 statistics lines x 31.25 us (15000 clocks at 480 MHz): a 30 ms
  // readout, three 100 Hz band periods, like the full-size presets. A binned
  // read-out has half the TG lines, each twice as long.
  if (binning == 2) {
    return {{"width", "640"}, {"height", "480"}, {"line_length", "7500"}};
  }
  return {{"width", "1280"}, {"height", "960"}, {"line_length", "15000"}};
}

flicker_loop::ScenarioBuilder smallScenario(
    const std::string& preset, const std::vector<std::pair<std::string, std::string>>& extra) {
  flicker_loop::ScenarioBuilder builder;
  std::string error;
  EXPECT_TRUE(builder.selectPreset(preset, &error)) << error;
  const flicker_sim::SimGeometry g = builder.scenario().sensors.front().geometry;
  const int ratio = g.tgHeight > 0 ? std::max(1, g.frameHeight / g.tgHeight) : 1;
  for (const auto& kv : smallGeometry(ratio)) {
    EXPECT_TRUE(builder.set(kv.first, kv.second, &error)) << error;
  }
  for (const auto& kv : extra) {
    EXPECT_TRUE(builder.set(kv.first, kv.second, &error)) << error;
  }
  return builder;
}

CommandOutput runFlickerSim(const std::vector<std::string>& args) {
  std::ostringstream out;
  std::ostringstream err;
  CommandOutput result;
  result.status = flicker_cli::flickerSimMain(args, flicker_cli::CliIo{out, err, false});
  result.out = out.str();
  result.err = err.str();
  return result;
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

}  // namespace tools_test
