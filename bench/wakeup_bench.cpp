// Wake-up latency of the worker: from the semaphore post on the 3A thread
// (the second frame of a pair, inside DoCalculation) to the worker running
// again, measured through the wrapped sem_post and sem_wait (wake_probe.h).
// Each iteration is one pair: after 1 ms of idle time, frames run until one
// posts, then the benchmark waits, untimed, until the worker has finished
// that analysis. The manual
// time of an iteration is its post-to-wake latency; the counters give the
// distribution:
//   wake_median_us, wake_p99_us      post until sem_wait returned on the worker
//   detect_median_us, detect_p99_us  post until the detection command started
//                                    (the analysis proper: adapter set-up,
//                                    dump switch and trace checks done)
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "bench_geometries.h"
#include "stream_rig.h"
#include "wake_probe.h"

namespace {

constexpr int kWorkerTimeoutMs = 5000;
constexpr int kWarmupFrames = 12;
constexpr int kPairs = 2000;  // enough samples for a stable 99th percentile
// Untimed idle time before each pair, so the worker is asleep in the kernel
// and its core may idle, as between the frames of a real stream.
constexpr auto kIdleGap = std::chrono::milliseconds(1);

double percentileUs(std::vector<int64_t>* ns, double p) {
  if (ns->empty())
    return 0;
  const size_t k =
      std::min(ns->size() - 1, static_cast<size_t>(p * static_cast<double>(ns->size())));
  std::nth_element(ns->begin(), ns->begin() + static_cast<std::ptrdiff_t>(k), ns->end());
  return static_cast<double>((*ns)[k]) * 1e-3;
}

// Runs frames until one posts the worker, then waits until the worker has
// finished that analysis. False on a worker timeout.
bool runPair(StreamRig& rig) {
  for (;;) {
    const int64_t posts = wake_probe::posts();
    const int64_t waits = wake_probe::waitsEntered();
    rig.frame();
    if (wake_probe::posts() != posts)
      return wake_probe::waitForWaits(waits + 1, kWorkerTimeoutMs);
  }
}

void BM_WakeUp(benchmark::State& state) {
  StreamRig rig(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  const int64_t waits = wake_probe::waitsEntered();
  if (!rig.start(0, FLICKER_MODE_AUTO, 0) ||
      !wake_probe::waitForWaits(waits + 1, kWorkerTimeoutMs)) {
    state.SkipWithError("manager did not start");
    return;
  }
  for (int i = 0; i < kWarmupFrames / 2; ++i) runPair(rig);

  std::vector<int64_t> wake;
  std::vector<int64_t> detect;
  wake.reserve(kPairs);
  detect.reserve(kPairs);
  wake_probe::setTiming(true);
  for (auto _ : state) {
    std::this_thread::sleep_for(kIdleGap);
    if (!runPair(rig)) {
      state.SkipWithError("worker did not finish an analysis");
      break;
    }
    const int64_t post = wake_probe::lastPostNs();
    wake.push_back(wake_probe::lastWakeNs() - post);
    detect.push_back(wake_probe::lastDetectNs() - post);
    state.SetIterationTime(static_cast<double>(wake.back()) * 1e-9);
  }
  wake_probe::setTiming(false);
  rig.stop();
  state.counters["wake_median_us"] = percentileUs(&wake, 0.5);
  state.counters["wake_p99_us"] = percentileUs(&wake, 0.99);
  state.counters["detect_median_us"] = percentileUs(&detect, 0.5);
  state.counters["detect_p99_us"] = percentileUs(&detect, 0.99);
}

BENCHMARK(BM_WakeUp)
    ->Apply(flickerGeometries)
    ->Iterations(kPairs)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
