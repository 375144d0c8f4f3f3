// Frames per second of the rolling-shutter simulator at each sensor size, so
// that closed-loop sweeps over many scenarios stay fast. One frame renders
// the statistics block of the office scene the other benchmarks use.
//   fps  simulated frames per second of CPU time on one thread
#include <benchmark/benchmark.h>

#include "bench_geometries.h"
#include "sim_rig.h"
#include "stream_rig.h"

namespace {

void BM_SimFrame(benchmark::State& state) {
  flicker_sim::SimRig rig(
      StreamRig::scenario(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))));
  flicker_sim::SimSensor* sensor = rig.sensor(0);
  flicker_sim::SimFrame frame;
  sensor->nextFrame(&frame);  // sizes the frame's storage once
  for (auto _ : state) {
    sensor->nextFrame(&frame);
    benchmark::DoNotOptimize(frame.stats.data());
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["lines"] = static_cast<double>(frame.stats.size() / 6);
}

BENCHMARK(BM_SimFrame)->Apply(flickerGeometries)->Unit(benchmark::kMillisecond);

}  // namespace
