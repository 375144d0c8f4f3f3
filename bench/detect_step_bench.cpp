// The detection step of the open algorithm through the adapter (setDetectInfo
// then detectFlicker, i.e. the detection command), on a pair of simulated
// frames, against the number of statistics lines (3 x win_h). The adapter of
// an otherwise unused sensor index is set up directly; no manager runs.
//   lines        statistics lines of the pair's frames
//   per_line     step time per line (seconds)
//   analysed     1 when the algorithm really analysed the pair (not an early
//                "neither"), so the figure is the full path
//   copy_us      a memcpy of one statistics block of the same frames, timed
//                right after the steps (median of kCopyRuns)
//   copies       the step's mean wall time in those copies (target: 20)
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
constexpr int kCopyRuns = 2001;

constexpr int kCopySources = 4;  // statistics blocks cycled, like the adapter's ring

// Median wall time of one memcpy of a statistics block, in seconds: sources
// cycled and destinations alternated like the adapter's two slots, so the
// copy is as cold or warm as the manager's.
double medianCopySeconds(const StreamRig& rig) {
  const size_t bytes = rig.statBytes();
  std::vector<uint8_t> dest[2] = {std::vector<uint8_t>(bytes), std::vector<uint8_t>(bytes)};
  std::vector<double> runs(kCopyRuns);
  for (int i = 0; i < kCopyRuns; ++i) {
    const void* src = rig.stats(i % kCopySources);
    const auto t0 = std::chrono::steady_clock::now();
    std::memcpy(dest[i % 2].data(), src, bytes);
    benchmark::ClobberMemory();
    runs[i] = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  }
  std::nth_element(runs.begin(), runs.begin() + kCopyRuns / 2, runs.end());
  return runs[kCopyRuns / 2];
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

  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    adapter->setDetectInfo(0, FLK_FREQ_50HZ, exposure, StreamRig::kFramePeriodNs);
    benchmark::DoNotOptimize(adapter->detectFlicker());
  }
  const double stepS =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
      static_cast<double>(std::max<benchmark::IterationCount>(1, state.iterations()));
  const double copyS = medianCopySeconds(rig);
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
