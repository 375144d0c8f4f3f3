// The detection step of the open algorithm through the adapter (setDetectInfo
// then detectFlicker, i.e. the detection command), on a pair of simulated
// frames, against the number of statistics lines (3 x win_h). The adapter of
// an otherwise unused sensor index is set up directly; no manager runs.
//   lines        statistics lines of the pair's frames
//   per_line     step time per line (seconds)
//   analysed     1 when the algorithm really analysed the pair (not an early
//                "neither"), so the figure is the full path
//   step_us      median wall time of one step: the steady per-frame cost, which
//                preemption and the rare slow step do not move (the mean,
//                Google Benchmark's own figure, they do)
//   copy_us      a memcpy of one statistics block of the same frames, timed
//                right after the steps (median of kCopyRuns)
//   copies       step_us in those copies (target: 20)
// On a virtual machine the figures depend on the virtual CPU the thread runs
// on (one may share its core with another guest): pin the run (taskset, or
// FLICKER_BENCH_CPU of scripts/bench.sh) to compare builds.
// The complexity fit over the three sizes is reported as BigO.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "bench_geometries.h"
#include "cam_properties.h"
#include "flicker_platform_adapter.h"
#include "stream_rig.h"
#include "wake_probe.h"

namespace {

constexpr int kSensorIdx = 9;  // no manager uses this adapter
constexpr int kSensorDev = 1;
constexpr int kSensorId = 0x5678;
constexpr int kCopySources = 4;  // statistics blocks cycled, like the adapter's ring
constexpr int kCopyRuns = 2001;

double seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double median(std::vector<double>* v) {
  if (v->empty()) {
    return 0.0;
  }
  std::nth_element(v->begin(), v->begin() + v->size() / 2, v->end());
  return (*v)[v->size() / 2];
}

// Median wall time of one memcpy of a statistics block, in seconds, in a
// loop of its own: sources cycled and destinations alternated like the
// adapter's two slots, so the copy is as cold or warm as the manager's.
double medianCopySeconds(const StreamRig& rig) {
  const size_t bytes = rig.statBytes();
  std::vector<uint8_t> dest[2] = {std::vector<uint8_t>(bytes), std::vector<uint8_t>(bytes)};
  std::vector<double> runs(kCopyRuns);
  for (int i = 0; i < kCopyRuns; ++i) {
    const void* src = rig.stats(i % kCopySources);
    const auto t0 = std::chrono::steady_clock::now();
    std::memcpy(dest[i % 2].data(), src, bytes);
    benchmark::ClobberMemory();
    runs[i] = seconds(t0);
  }
  return median(&runs);
}

void BM_DetectStep(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const int height = static_cast<int>(state.range(1));
  StreamRig rig(width, height);
  FlickerPlatformAdapter* adapter = FlickerPlatformAdapter::getInstance(kSensorIdx);
  adapter->init(kSensorDev, kSensorId);
  adapter->setWindowInfo(width, height);
  const FlickerStatWindow window = adapter->statWindow();
  const flicker_config_info& config = rig.config();
  adapter->init_algo(config.PixelsInLine, window.winH, window.winW, config.PixelClk, 0);
  adapter->setBuf(0, rig.stats(0), 0);
  adapter->setBuf(0, rig.stats(1), 1);
  const int exposure = rig.simFrame(1).exposureTime;

  // Each step is timed on its own; the median is the figure. The buffer is
  // sized before the loop, so the timing allocates nothing in it.
  std::vector<double> steps;
  steps.reserve(static_cast<size_t>(state.max_iterations));
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    adapter->setDetectInfo(0, FLK_FREQ_50HZ, exposure, StreamRig::kFramePeriodNs);
    benchmark::DoNotOptimize(adapter->detectFlicker());
    steps.push_back(seconds(t0));
  }
  const double stepS = median(&steps);
  const double copyS = medianCopySeconds(rig);
  state.counters["step_us"] = stepS * 1e6;
  state.counters["copy_us"] = copyS * 1e6;
  state.counters["copies"] = copyS > 0.0 ? stepS / copyS : 0.0;
  const int lines = 3 * window.winH;
  state.SetComplexityN(lines);
  state.counters["lines"] = lines;
  state.counters["per_line"] = benchmark::Counter(
      lines, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["analysed"] = wake_probe::lastDetectFlags() & 1;
  adapter->uninit_algo();
  adapter->uninit();
}

// One integer property read of the platform linked in (the host's here). The
// per-frame path makes two (trace tags) and the detection step three (dump
// switch, trace tags), so this is the platform's share of both figures.
void BM_PlatformPropertyRead(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        NSCam::Utils::Properties::property_get_int32("vendor.debug.flk_dump", 0));
  }
}

BENCHMARK(BM_DetectStep)
    ->Apply(flickerGeometries)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlatformPropertyRead)->Unit(benchmark::kNanosecond);

}  // namespace
