// Twenty sensors, each driven by its own framework thread through random
// call orders (the per-sensor order is not enforced by the manager, so every
// order must be safe), with their worker threads, the shared attachment
// arbitration and the process-wide flicker state all in play, plus a thread
// reading that state and the sensors' results without a lock.
//
// A watchdog fails the run with the stuck sensors and their last operation
// when any sensor makes no progress for a while (deadlock). Leaks are checked
// by the leak sanitizer at exit: the drivers never Init a sensor that still
// holds its buffers, because that re-init drops the old buffers by design.
//
// Duration: FLICKER_STRESS_SECONDS (default 3); stall limit:
// FLICKER_STRESS_STALL_SECONDS (default 60); seed: FLICKER_STRESS_SEED.
// scripts/stress.sh runs it for minutes.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using Clock = std::chrono::steady_clock;

constexpr int kSensors = FlickerMgr::kMaxSensors;
// Fewer slots than sensors, so that attaching is contended; not many fewer,
// because sensors refused a slot spin through their frames and, on a small
// machine, starve the attached sensors' workers.
constexpr int kMaxAttached = 12;
constexpr uint64_t kMinDetections = 10;

int envInt(const char* name, int fallback) {
  const char* text = getenv(name);
  return text != nullptr && text[0] != '\0' ? atoi(text) : fallback;
}

// The operations a driver picks from, and their weights: mostly frames, so
// that detections run between the disruptions.
enum Op { kInit, kUninit, kConfig, kReConfig, kStart, kStop, kSetParam, kFrames, kResult };
const char* const kOpNames[] = {"Init",     "Uninit", "Config",   "LightWeightReConfig",
                                "Start",    "Stop",   "SetParam", "DoCalculation",
                                "GetResult"};
const std::initializer_list<double> kOpWeights = {2, 1, 3, 2, 3, 2, 6, 100, 6};
constexpr const char* kIdle = "(between operations)";
// Frame heights of odd geometries: none, tiny, beyond the statistics buffers.
const int kOddHeights[] = {0, 1, 100, 1080, 7000};

// Progress of one driver, read by the watchdog.
struct Progress {
  std::atomic<uint64_t> ops{0};
  std::atomic<const char*> current{kIdle};
};

// One sensor's framework thread: random operations until `keepGoing` says
// no, then Stop and Uninit, leaving the sensor detached and without buffers.
// Returns the number of malformed result records.
int drive(int idx, uint32_t seed, const std::function<bool()>& keepGoing, Progress* progress) {
  SensorRig rig(idx);
  FlickerMgr& mgr = rig.mgr();
  std::mt19937 rng(seed);
  auto below = [&rng](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  std::discrete_distribution<int> pick(kOpWeights);
  FrameSetup requested;  // the exposure control's requests for the stream
  bool buffersHeld = false;
  int bad = 0;
  while (keepGoing()) {
    const int op = pick(rng);
    progress->current.store(kOpNames[op], std::memory_order_relaxed);
    switch (op) {
      case kInit:
        // A second Init while the buffers are held leaks them (the specified
        // behaviour); release them first, as a well-behaved caller would.
        if (buffersHeld)
          mgr.Uninit();
        mgr.Init(below(4), 100 + below(3));
        buffersHeld = true;
        break;
      case kUninit:
        mgr.Uninit();
        buffersHeld = false;
        break;
      case kConfig:
        // Now and then a geometry no sensor has (empty, huge, no line length).
        mgr.Config(below(8) != 0
                       ? makeConfig(below(4), 300, 5000 + 100 * below(3))
                       : makeConfig(below(4), kOddHeights[below(5)],
                                    static_cast<uint32_t>(below(70000)), kOddHeights[below(5)]));
        requested.aeDetectCycle = below(5);  // 0: the product's cycle; 1: every frame; 2..4: AE's
        requested.exposureTime = 5000 + 1000 * below(20);
        break;
      case kReConfig:
        mgr.LightWeightReConfig(makeConfig(below(4)));
        break;
      case kStart:
        mgr.Start(flicker_start_info{});
        break;
      case kStop:
        mgr.Stop();
        break;
      case kSetParam:
        // Mostly automatic detection as the master; sometimes a fixed
        // frequency, an unknown mode or a slave, which detaches.
        mgr.SetParam(makeInput(below(4) != 0 ? FLICKER_MODE_AUTO : below(5), below(2), below(4),
                               below(8) != 0 ? 1 : below(4) - 1));
        break;
      case kFrames:
        // A few frames of each batch deviate from the requests.
        for (int i = 1 + below(8); i > 0; --i) {
          FrameSetup params = requested;
          params.doFlkDetection = below(4) != 0 ? 1 : 0;
          params.flkEnable = below(64) != 0 ? 1 : 0;
          params.statValid = below(32) != 0 ? 1 : 0;
          params.needReinit = below(64) == 0 ? 1 : 0;
          if (below(32) == 0) {  // a frame of another size, mode or cycle, valid or not
            params.width = below(4000);
            params.height = kOddHeights[below(5)];
            params.pixelMode = below(40);
            params.aeDetectCycle = below(6) - 1;
            params.exposureTime = below(40000);
          }
          rig.frame(params);
        }
        break;
      case kResult: {
        std::vector<uint8_t> out(static_cast<size_t>(below(120)));  // grown or cut to the record
        mgr.GetResult(&out);
        const int32_t state = word(out, 1);  // flickerState, after the valid byte and padding
        bad += out.size() != kFlickerResultSize || out[0] != 1 ||
               (state != FLICKER_RESULT_50HZ && state != FLICKER_RESULT_60HZ);
      }
    }
    progress->current.store(kIdle, std::memory_order_relaxed);
    progress->ops.fetch_add(1, std::memory_order_relaxed);
  }
  progress->current.store("final Stop and Uninit", std::memory_order_relaxed);
  rig.shutDown();
  progress->current.store(kIdle, std::memory_order_relaxed);
  return bad;
}

TEST(StressTest, TwentySensorsUnderRandomCallOrders) {
  fp::reset();
  fp::setMaxAttachNum(kMaxAttached);  // read when each instance is created
  const int seconds = envInt("FLICKER_STRESS_SECONDS", 3);
  const auto stallLimit = std::chrono::seconds(envInt("FLICKER_STRESS_STALL_SECONDS", 60));
  const uint32_t seed = static_cast<uint32_t>(
      envInt("FLICKER_STRESS_SEED", static_cast<int>(Clock::now().time_since_epoch().count())));
  printf("stress: %d sensors, %d s, seed %u\n", kSensors, seconds, seed);
  fflush(stdout);  // the seed is known even if the watchdog aborts

  // The algorithm answers 50, 60 or neither at random, so the process-wide
  // state keeps moving while results are read.
  std::atomic<uint64_t> detections{0};
  fp::setDetectHook([&detections](const FlkDetectPara&, FlkDetectResult* result) {
    thread_local std::minstd_rand local(std::random_device{}());
    *result = {static_cast<int32_t>(local() % 3), static_cast<int32_t>(local() % 1000),
               static_cast<int32_t>(local() % 1000)};
    detections.fetch_add(1, std::memory_order_relaxed);
  });

  // The run lasts its time and, on a slow host (emulation, sanitizers), on
  // until a few detections ran, for at most two minutes more.
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  const std::function<bool()> keepGoing = [end, &detections] {
    return Clock::now() < end || (detections.load(std::memory_order_relaxed) < kMinDetections &&
                                  Clock::now() < end + std::chrono::seconds(120));
  };
  std::array<Progress, kSensors> progress;
  std::atomic<int> badResults{0};
  // Threads still running; the last one to end wakes the watchdog (or its
  // next round does, should the wake-up come between its check and its wait).
  std::atomic<int> running{kSensors + 1};
  std::condition_variable ended;
  std::vector<std::thread> threads;
  threads.reserve(kSensors);
  for (int i = 0; i < kSensors; ++i) {
    threads.emplace_back([&, i] {
      badResults += drive(i, seed + static_cast<uint32_t>(i), keepGoing, &progress[i]);
      if (--running == 0)
        ended.notify_all();
    });
  }
  // Another thread reads, without a lock, the process-wide state that every
  // sensor's worker writes, and the results of random sensors while their
  // own drivers reconfigure them and their workers write the scores.
  threads.emplace_back([&] {
    std::minstd_rand rng(seed);
    std::vector<uint8_t> out;
    while (keepGoing()) {
      const int32_t state = FlickerMgr::flickerState();
      badResults += (state != 0 && state != 50 && state != 60) ? 1 : 0;
      FlickerMgr::GetInstance(static_cast<int>(rng() % kSensors))->GetResult(&out);
      const int32_t code = word(out, 1);
      badResults += out.size() != kFlickerResultSize || out[0] != 1 ||
                    (code != FLICKER_RESULT_50HZ && code != FLICKER_RESULT_60HZ);
    }
    if (--running == 0)
      ended.notify_all();
  });

  // Watchdog: aborts the process, naming the stuck sensors, when one of them
  // makes no progress for the stall limit. Wakes on a condition, not a sleep.
  std::array<uint64_t, kSensors> seen{};
  std::array<Clock::time_point, kSensors> since;
  since.fill(Clock::now());
  std::mutex mutex;
  std::unique_lock<std::mutex> lock(mutex);
  while (!ended.wait_for(lock, std::chrono::milliseconds(500), [&] { return running == 0; })) {
    // The fakes record everything; drop the records so a long run stays small.
    fp::clearLogs();
    fp::clearAlgoCalls();
    std::string stuck;
    for (int i = 0; i < kSensors; ++i) {
      const uint64_t ops = progress[i].ops.load(std::memory_order_relaxed);
      const char* current = progress[i].current.load(std::memory_order_relaxed);
      if (ops != seen[i] || current == kIdle) {
        seen[i] = ops;
        since[i] = Clock::now();
      } else if (Clock::now() - since[i] >= stallLimit) {
        stuck += "  sensor " + std::to_string(i) + " in " + current + " after " +
                 std::to_string(ops) + " operations\n";
      }
    }
    if (!stuck.empty()) {
      fprintf(stderr, "stress watchdog: no progress for %lld s (deadlock?):\n%s",
              static_cast<long long>(stallLimit.count()), stuck.c_str());
      std::abort();
    }
  }
  lock.unlock();
  for (std::thread& t : threads) t.join();
  fp::setDetectHook(nullptr);

  uint64_t ops = 0;
  for (const Progress& p : progress) ops += p.ops.load(std::memory_order_relaxed);
  printf("stress: %llu operations, %llu detections\n", static_cast<unsigned long long>(ops),
         static_cast<unsigned long long>(detections.load()));
  EXPECT_EQ(badResults.load(), 0) << "malformed result records or flicker states";
  EXPECT_GE(detections.load(), kMinDetections) << "the random orders rarely reached a detection";
  for (int i = 0; i < kSensors; ++i) {
    EXPECT_GT(progress[i].ops.load(), 0u) << "sensor " << i << " never ran";
    // Every sensor was stopped: no attachment is left behind.
    EXPECT_EQ(FlickerMgr::GetInstance(i)->isAttach(), 0) << "sensor " << i;
  }
}

}  // namespace
