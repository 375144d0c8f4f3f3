// Cost of simulating one frame: a closed-loop run of many frames and sensors
// must stay far faster than real time.
#include <benchmark/benchmark.h>

#include "sim_rig.h"
#include "sim_scenario.h"

namespace {

void simulateFrame(benchmark::State& state, const char* preset) {
  flicker_sim::SimScenario scenario;
  flicker_sim::makeSimPreset(preset, &scenario);
  flicker_sim::SimRig rig(scenario);
  flicker_sim::SimFrame frame;
  for (auto _ : state) {
    rig.sensor(0)->nextFrame(&frame);
    benchmark::DoNotOptimize(frame.stats.data());
  }
  state.counters["lines"] = static_cast<double>(frame.stats.size()) / 6.0;
}

// 4000 x 3000, textured, fluorescent with harmonics.
BENCHMARK_CAPTURE(simulateFrame, office_4000x3000, "office-50hz")->Unit(benchmark::kMicrosecond);
// Pan with a moving lamp.
BENCHMARK_CAPTURE(simulateFrame, pan_4000x3000, "pan-60hz")->Unit(benchmark::kMicrosecond);
// Twelve LED harmonics.
BENCHMARK_CAPTURE(simulateFrame, led_4000x3000, "bright-short-exposure")
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
