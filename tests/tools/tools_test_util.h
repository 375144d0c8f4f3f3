// Support of the tool tests: small fast scenarios, flicker-sim's commands run
// in-process, and temporary files (temp_files.h).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "closed_loop_runner.h"
#include "flicker_sim_cli.h"
#include "host_log.h"
#include "host_nvram.h"
#include "scenario_builder.h"
#include "temp_files.h"
#include "tuning_choice.h"
#include "tuning_fields.h"

namespace tools_test {

using Settings = std::vector<std::pair<std::string, std::string>>;

using test_files::readFile;
using test_files::TempDir;
using test_files::writeFile;

// 960 statistics lines x 31.25 us (15000 clocks at 480 MHz): a 30 ms
// readout, three 100 Hz band periods like the full-size presets, in a
// fraction of the time. A binned read-out (frame-to-TG ratio 2) has half the
// TG lines, each twice as long.
inline Settings smallGeometry(int binning = 1) {
  if (binning == 2)
    return {{"width", "640"}, {"height", "480"}, {"line_length", "7500"}};
  return {{"width", "1280"}, {"height", "960"}, {"line_length", "15000"}};
}

// The preset shrunk by smallGeometry() with `extra` applied after it.
inline flicker_loop::ScenarioBuilder smallScenario(const std::string& preset,
                                                   const Settings& extra = {}) {
  flicker_loop::ScenarioBuilder builder;
  std::string error;
  EXPECT_TRUE(builder.selectPreset(preset, &error)) << error;
  const flicker_sim::SimGeometry g = builder.scenario().sensors.front().geometry;
  Settings settings = smallGeometry(g.tgHeight > 0 && g.frameHeight / g.tgHeight >= 2 ? 2 : 1);
  settings.insert(settings.end(), extra.begin(), extra.end());
  for (const auto& kv : settings) EXPECT_TRUE(builder.set(kv.first, kv.second, &error)) << error;
  return builder;
}

// Quiet logs and the open algorithm's tuning, as the closed-loop runs use;
// `algoPart` (may be null) receives the algorithm's part of it.
inline void useOpenTuning(FlickerExtPara* algoPart = nullptr) {
  flicker_host::setLogsQuiet(true);
  std::string error;
  ASSERT_TRUE(flicker_loop::TuningChoice::apply("open", algoPart, &error)) << error;
}

// One closed-loop run of the shrunk preset.
inline flicker_loop::LoopResult runSmall(const std::string& preset, const Settings& settings) {
  const flicker_loop::ScenarioBuilder builder = smallScenario(preset, settings);
  return flicker_loop::ClosedLoopRunner(builder.scenario(), builder.options()).run();
}

struct CommandOutput {
  int status = 0;
  std::string out;
  std::string err;
};

// Runs flicker-sim with `args` (after the program name) in this process.
inline CommandOutput runFlickerSim(const std::vector<std::string>& args) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = flicker_cli::flickerSimMain(args, flicker_cli::CliIo{out, err, false});
  return {status, out.str(), err.str()};
}

// Every record the host NVRAM layer hands the manager, as the manager asks.
inline std::vector<FLICKER_CUST_PARA> loadedRecords() {
  std::vector<FLICKER_CUST_PARA> storage(static_cast<size_t>(kFlickerScenarioRows) *
                                         kFlickerBinRatios);
  std::vector<FLICKER_CUST_PARA*> rows;
  rows.reserve(kFlickerScenarioRows);
  for (int row = 0; row < kFlickerScenarioRows; ++row)
    rows.push_back(&storage[static_cast<size_t>(row) * kFlickerBinRatios]);
  FLICKER_CUST_PARA** base = rows.data();
  EXPECT_EQ(nvGetFlickerParaAll(0, 1, kFlickerScenarioRows, kFlickerBinRatios, &base), 0);
  return storage;
}

inline int64_t fieldOf(const FLICKER_CUST_PARA& record, const std::string& name) {
  const flicker_loop::TuningField* field = flicker_loop::TuningFields::find(name);
  EXPECT_NE(field, nullptr) << name;
  return field == nullptr ? 0 : flicker_loop::TuningFields::get(record, *field);
}

// flicker-sim's arguments for a run of `preset` at smallGeometry(), then `more`.
inline std::vector<std::string> smallRunArgs(const std::string& preset,
                                             const std::vector<std::string>& more) {
  std::vector<std::string> args = {"run", preset};
  for (const auto& kv : smallGeometry()) args.insert(args.end(), {"--" + kv.first, kv.second});
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

}  // namespace tools_test
