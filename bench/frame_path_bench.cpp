// The per-frame path on the 3A thread: SetParam, DoCalculation (which copies
// the statistics block into the adapter and, on the second frame of a pair,
// posts the worker) and GetResult, for an attached sensor in automatic mode
// with the host platform and the open algorithm; the worker thread runs.
//
// Each iteration is one frame, timed alone (manual time: the wall time the
// 3A thread spent in the three calls). After a frame that posted, the
// benchmark waits, untimed, until the worker has finished the analysis, as it
// would long before the next frame of a real stream. Beside every frame a
// plain memcpy of the same statistics bytes is timed from its own source ring
// into its own two destinations (as cold or warm as the manager's copy),
// which is the floor the path is compared with. Medians, robust to a loaded
// machine:
//   floor_us      memcpy of 18 x win_h x 8 bytes
//   wall_med_us   frame, wall time (wall_p99_us: its 99th percentile)
//   cpu_med_us    frame, CPU time of the 3A thread (leaves out preemption,
//                 e.g. by the woken worker), clock overhead subtracted
//   floor_cpu_us  the memcpy's CPU time, measured the same way
//   ratio         wall_med / floor; cpu_ratio: cpu_med / floor_cpu
//   target_us     1.25 x floor + 1 us (the per-frame target); cpu_target_us
//                 the same from floor_cpu
//   posted        share of the timed frames that posted the worker
//   intake_cpu_med_us, post_cpu_med_us (and _wall_): the same medians over
//                 the frames that only took statistics in and over those
//                 that posted. With half the frames posting, the median of
//                 all frames sits on the edge between the two and jumps
//                 between them from run to run, so only these are stable.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "bench_geometries.h"
#include "stream_rig.h"
#include "wake_probe.h"

namespace {

constexpr int kWorkerTimeoutMs = 5000;
constexpr int kWarmupFrames = 12;  // two skipped frames, then pairs and analyses
constexpr int kFloorSources = 4;   // memcpy source blocks, cycled like the rig's ring

// The memcpy floor: copies one statistics block per call, cycling sources and
// alternating destinations like the adapter's two slots.
class CopyFloor {
 public:
  explicit CopyFloor(const StreamRig& rig) : bytes_(rig.statBytes()) {
    for (int i = 0; i < kFloorSources; ++i) {
      const auto* src = reinterpret_cast<const uint8_t*>(rig.stats(i));
      sources_.emplace_back(src, src + bytes_);
    }
    for (auto& d : dest_) d.assign(bytes_, 0);
  }

  // Wall time of one copy; its CPU time (clock overhead included) in `cpuNs`.
  int64_t copyNs(int64_t* cpuNs = nullptr) {
    const uint8_t* src = sources_[next_ % kFloorSources].data();
    uint8_t* dst = dest_[next_ % 2].data();
    ++next_;
    timespec cpu0{};
    timespec cpu1{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu0);
    const int64_t t0 = wake_probe::nowNs();
    memcpy(dst, src, bytes_);
    benchmark::ClobberMemory();
    const int64_t wall = wake_probe::nowNs() - t0;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu1);
    if (cpuNs != nullptr)
      *cpuNs = (cpu1.tv_sec - cpu0.tv_sec) * 1000000000 + (cpu1.tv_nsec - cpu0.tv_nsec);
    return wall;
  }

 private:
  size_t bytes_;
  std::vector<std::vector<uint8_t>> sources_;
  std::vector<uint8_t> dest_[2];
  int64_t next_ = 0;
};

// Runs one frame; waits for the worker when it posted. Returns the frame's
// time and whether it posted, or false on a worker timeout.
bool runFrame(StreamRig& rig, int64_t* ns, int64_t* cpuNs, bool* posted) {
  const int64_t posts = wake_probe::posts();
  const int64_t waits = wake_probe::waitsEntered();
  rig.frame(ns, cpuNs);
  *posted = wake_probe::posts() != posts;
  return !*posted || wake_probe::waitForWaits(waits + 1, kWorkerTimeoutMs);
}

bool startRig(StreamRig& rig, benchmark::State& state) {
  const int64_t waits = wake_probe::waitsEntered();
  if (!rig.start(0, FLICKER_MODE_AUTO, 0) ||
      !wake_probe::waitForWaits(waits + 1, kWorkerTimeoutMs)) {
    state.SkipWithError("manager did not start");
    return false;
  }
  int64_t ns = 0;
  int64_t cpuNs = 0;
  bool posted = false;
  for (int i = 0; i < kWarmupFrames; ++i) {
    if (!runFrame(rig, &ns, &cpuNs, &posted)) {
      state.SkipWithError("worker did not finish an analysis");
      return false;
    }
  }
  return true;
}

double medianUs(std::vector<int64_t>* ns, double p = 0.5) {
  if (ns->empty())
    return 0;
  const size_t k =
      std::min(ns->size() - 1, static_cast<size_t>(p * static_cast<double>(ns->size())));
  std::nth_element(ns->begin(), ns->begin() + static_cast<std::ptrdiff_t>(k), ns->end());
  return static_cast<double>((*ns)[k]) * 1e-3;
}

// CPU time that the clock reads around a frame add by themselves: the median
// of empty measurements in the same order as StreamRig::frame.
int64_t cpuClockOverheadNs() {
  std::vector<int64_t> samples;
  for (int i = 0; i < 1000; ++i) {
    timespec a{};
    timespec b{};
    timespec w{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
    clock_gettime(CLOCK_MONOTONIC, &w);
    clock_gettime(CLOCK_MONOTONIC, &w);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
    samples.push_back((b.tv_sec - a.tv_sec) * 1000000000 + (b.tv_nsec - a.tv_nsec));
  }
  std::nth_element(samples.begin(), samples.begin() + 500, samples.end());
  return samples[500];
}

// pairOnly: time only the frames that complete a pair (and post); the others
// run untimed in between.
void framePath(benchmark::State& state, bool pairOnly) {
  StreamRig rig(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  CopyFloor floor(rig);
  if (!startRig(rig, state))
    return;
  const int64_t cpuOverhead = cpuClockOverheadNs();
  std::vector<int64_t> wall;
  std::vector<int64_t> cpu;
  std::vector<int64_t> copy;
  std::vector<int64_t> copyCpu;
  const size_t expected = static_cast<size_t>(state.max_iterations);
  wall.reserve(expected);
  cpu.reserve(expected);
  copy.reserve(expected);
  copyCpu.reserve(expected);
  int64_t postedFrames = 0;
  std::vector<int64_t> byKindCpu[2];  // [posted]
  std::vector<int64_t> byKindWall[2];
  for (auto& v : byKindCpu) v.reserve(expected);
  for (auto& v : byKindWall) v.reserve(expected);
  for (auto _ : state) {
    int64_t ns = 0;
    int64_t cpuNs = 0;
    bool posted = false;
    do {
      if (!runFrame(rig, &ns, &cpuNs, &posted)) {
        state.SkipWithError("worker did not finish an analysis");
        break;
      }
    } while (pairOnly && !posted);
    wall.push_back(ns);
    cpu.push_back(cpuNs - cpuOverhead);
    int64_t copyCpuNs = 0;
    copy.push_back(floor.copyNs(&copyCpuNs));
    copyCpu.push_back(copyCpuNs - cpuOverhead);
    postedFrames += posted ? 1 : 0;
    byKindCpu[posted ? 1 : 0].push_back(cpu.back());
    byKindWall[posted ? 1 : 0].push_back(ns);
    state.SetIterationTime(static_cast<double>(ns) * 1e-9);
  }
  rig.stop();
  if (wall.empty())
    return;
  const double floorUs = medianUs(&copy);
  const double wallUs = medianUs(&wall);
  const double cpuUs = medianUs(&cpu);
  const double floorCpuUs = medianUs(&copyCpu);
  state.counters["bytes"] = static_cast<double>(rig.statBytes());
  state.counters["floor_us"] = floorUs;
  state.counters["wall_med_us"] = wallUs;
  state.counters["wall_p99_us"] = medianUs(&wall, 0.99);
  state.counters["cpu_med_us"] = cpuUs;
  state.counters["ratio"] = floorUs > 0 ? wallUs / floorUs : 0;
  state.counters["floor_cpu_us"] = floorCpuUs;
  state.counters["cpu_ratio"] = floorCpuUs > 0 ? cpuUs / floorCpuUs : 0;
  state.counters["target_us"] = 1.25 * floorUs + 1.0;
  state.counters["cpu_target_us"] = 1.25 * floorCpuUs + 1.0;
  const char* kinds[2] = {"intake", "post"};
  for (int k = 0; k < 2; ++k) {
    if (byKindCpu[k].empty())
      continue;
    state.counters[std::string(kinds[k]) + "_cpu_med_us"] = medianUs(&byKindCpu[k]);
    state.counters[std::string(kinds[k]) + "_wall_med_us"] = medianUs(&byKindWall[k]);
  }
  state.counters["posted"] = static_cast<double>(postedFrames) / static_cast<double>(wall.size());
}

void BM_FramePath(benchmark::State& state) {
  framePath(state, false);
}
void BM_FramePathPairCompleting(benchmark::State& state) {
  framePath(state, true);
}

// The floor alone, in a tight loop (hot caches for the smaller blocks).
void BM_StatsMemcpy(benchmark::State& state) {
  StreamRig rig(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  CopyFloor floor(rig);
  for (auto _ : state) state.SetIterationTime(static_cast<double>(floor.copyNs()) * 1e-9);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * rig.statBytes()));
}

constexpr int kFrames = 4000;  // fixed, so the sample vectors are sized up front

BENCHMARK(BM_FramePath)
    ->Apply(flickerGeometries)
    ->Iterations(kFrames)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FramePathPairCompleting)
    ->Apply(flickerGeometries)
    ->Iterations(kFrames)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StatsMemcpy)->Apply(flickerGeometries)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
