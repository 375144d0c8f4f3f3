// Twenty sensors, each driven by its own framework thread through random
// call orders (the per-sensor order is not enforced by the manager, so every
// order must be safe), with their worker threads, the shared attachment
// arbitration and the process-wide flicker state all in play, plus a thread
// reading that state without a lock, as every sensor does.
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
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
namespace fp = fake_platform;
using Clock = std::chrono::steady_clock;

constexpr int kSensors = FlickerMgr::kMaxSensors;
// Fewer slots than sensors, so that attaching is contended; not many fewer,
// because sensors refused a slot spin through their frames and, on a small
// machine, starve the attached sensors' workers.
constexpr int kMaxAttached = 12;

int envInt(const char* name, int fallback) {
  const char* text = getenv(name);
  return text != nullptr && text[0] != '\0' ? atoi(text) : fallback;
}

// The operations a driver picks from, with their weights.
enum class Op { kInit, kUninit, kConfig, kReConfig, kStart, kStop, kSetParam, kFrames, kResult };
struct OpWeight {
  Op op;
  const char* name;
  int weight;
};
// Mostly frames, so that detections run between the disruptions.
const OpWeight kOps[] = {
    {Op::kInit, "Init", 2},         {Op::kUninit, "Uninit", 1},
    {Op::kConfig, "Config", 3},     {Op::kReConfig, "LightWeightReConfig", 2},
    {Op::kStart, "Start", 3},       {Op::kStop, "Stop", 2},
    {Op::kSetParam, "SetParam", 6}, {Op::kFrames, "DoCalculation", 100},
    {Op::kResult, "GetResult", 6},
};
constexpr uint64_t kMinDetections = 10;
constexpr int kMaxExtraSeconds = 120;
constexpr const char* kIdle = "(between operations)";

// Progress of one driver, read by the watchdog.
struct Progress {
  std::atomic<uint64_t> ops{0};
  std::atomic<const char*> current{kIdle};
};

// True when an 84-byte result record is well formed.
bool validResult(const std::vector<uint8_t>& out) {
  if (out.size() != kFlickerResultSize || out[0] != 1)
    return false;
  int32_t state = 0;
  memcpy(&state, out.data() + offsetof(FlickerResultRecord, flickerState), sizeof(state));
  return state == FLICKER_RESULT_50HZ || state == FLICKER_RESULT_60HZ;
}

class Driver {
 public:
  Driver(int idx, uint32_t seed, Progress* progress) : rig_(idx), rng_(seed), progress_(progress) {}

  void run(const std::function<bool()>& keepGoing, std::atomic<int>* badResults) {
    int total = 0;
    for (const OpWeight& w : kOps) total += w.weight;
    while (keepGoing()) {
      int pick = std::uniform_int_distribution<int>(0, total - 1)(rng_);
      const OpWeight* chosen = &kOps[0];
      for (const OpWeight& w : kOps) {
        if (pick < w.weight) {
          chosen = &w;
          break;
        }
        pick -= w.weight;
      }
      progress_->current.store(chosen->name, std::memory_order_relaxed);
      perform(chosen->op, badResults);
      progress_->current.store(kIdle, std::memory_order_relaxed);
      progress_->ops.fetch_add(1, std::memory_order_relaxed);
    }
  }

  // Leaves the sensor stopped, detached and without buffers.
  void finish() {
    rig_.mgr().Stop();
    rig_.mgr().Uninit();
  }

 private:
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

  void perform(Op op, std::atomic<int>* badResults) {
    FlickerMgr& mgr = rig_.mgr();
    switch (op) {
      case Op::kInit:
        // A second Init while the buffers are held leaks them (the specified
        // behaviour); release them first, as a well-behaved caller would.
        if (buffersHeld_)
          mgr.Uninit();
        mgr.Init(below(4), 100 + below(3));
        buffersHeld_ = true;
        break;
      case Op::kUninit:
        mgr.Uninit();
        buffersHeld_ = false;
        break;
      case Op::kConfig:
        mgr.Config(makeConfig(below(4), 300, 5000 + 100 * below(3)));
        newFrameSpec();
        break;
      case Op::kReConfig:
        mgr.LightWeightReConfig(makeConfig(below(4)));
        break;
      case Op::kStart:
        mgr.Start(flicker_start_info{});
        break;
      case Op::kStop:
        mgr.Stop();
        break;
      case Op::kSetParam:
        // Mostly automatic detection as the master; sometimes a fixed
        // frequency or a slave, which detaches.
        mgr.SetParam(makeInput(below(4) != 0 ? FLICKER_MODE_AUTO : 1 + below(2), below(2), below(4),
                               below(8) != 0 ? 1 : 0));
        break;
      case Op::kFrames:
        sendFrames(1 + below(8));
        break;
      case Op::kResult: {
        std::vector<uint8_t> out;
        mgr.GetResult(&out);
        if (!validResult(out))
          badResults->fetch_add(1, std::memory_order_relaxed);
        break;
      }
    }
  }

  // The exposure control's requests for a stream; a few frames of each
  // batch deviate from them.
  void newFrameSpec() {
    spec_ = FrameSpec();
    spec_.aeDetectCycle = below(5);  // 0: the product's cycle; 1: every frame; 2..4: AE's
    spec_.exposureTime = 5000 + 1000 * below(20);
  }

  void sendFrames(int count) {
    for (int i = 0; i < count; ++i) {
      FrameSpec spec = spec_;
      spec.doFlkDetection = below(4) != 0 ? 1 : 0;
      spec.flkEnable = below(64) != 0 ? 1 : 0;
      spec.statValid = below(32) != 0 ? 1 : 0;
      spec.needReinit = below(64) == 0 ? 1 : 0;
      rig_.frame(spec);
    }
  }

  SensorRig rig_;
  std::mt19937 rng_;
  Progress* progress_;
  FrameSpec spec_;
  bool buffersHeld_ = false;
};

// Fails the process, naming the stuck sensors, when one of them makes no
// progress for `stallLimit`. Wakes on a condition, not a sleep.
class Watchdog {
 public:
  Watchdog(std::array<Progress, kSensors>* progress, std::chrono::seconds stallLimit)
      : progress_(progress), stallLimit_(stallLimit), thread_([this] { watch(); }) {}
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

 private:
  void watch() {
    std::array<uint64_t, kSensors> seen{};
    std::array<Clock::time_point, kSensors> since;
    since.fill(Clock::now());
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, std::chrono::milliseconds(500), [this] { return done_; })) {
      // The fakes record everything; drop the records so a long run stays small.
      fp::clearLogs();
      fp::clearAlgoCalls();
      const Clock::time_point now = Clock::now();
      std::string stuck;
      for (int i = 0; i < kSensors; ++i) {
        const uint64_t ops = (*progress_)[i].ops.load(std::memory_order_relaxed);
        if (ops != seen[i]) {
          seen[i] = ops;
          since[i] = now;
        } else if (now - since[i] >= stallLimit_) {
          stuck += "  sensor " + std::to_string(i) + " in " +
                   (*progress_)[i].current.load(std::memory_order_relaxed) + " after " +
                   std::to_string(ops) + " operations\n";
        }
      }
      if (!stuck.empty()) {
        fprintf(stderr, "stress watchdog: no progress for %lld s (deadlock?):\n%s",
                static_cast<long long>(stallLimit_.count()), stuck.c_str());
        fflush(stderr);
        std::abort();
      }
    }
  }

  std::array<Progress, kSensors>* progress_;
  const std::chrono::seconds stallLimit_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread thread_;
};

TEST(StressTest, TwentySensorsUnderRandomCallOrders) {
  fp::reset();
  fp::setMaxAttachNum(kMaxAttached);  // read when each instance is created
  const int seconds = envInt("FLICKER_STRESS_SECONDS", 3);
  const uint32_t seed = static_cast<uint32_t>(
      envInt("FLICKER_STRESS_SEED", static_cast<int>(Clock::now().time_since_epoch().count())));
  RecordProperty("seed", std::to_string(seed));
  printf("stress: %d sensors, %d s, seed %u\n", kSensors, seconds, seed);

  // The algorithm answers 50, 60 or neither at random, so the process-wide
  // state keeps moving while results are read.
  std::atomic<uint64_t> detections{0};
  fp::setDetectHook([&detections](const FlkDetectPara&, FlkDetectResult* result) {
    thread_local std::minstd_rand local(std::random_device{}());
    result->state = static_cast<int32_t>(local() % 3);
    result->score50 = static_cast<int32_t>(local() % 1000);
    result->score60 = static_cast<int32_t>(local() % 1000);
    detections.fetch_add(1, std::memory_order_relaxed);
  });

  std::array<Progress, kSensors> progress;
  std::vector<std::unique_ptr<Driver>> drivers;
  for (int i = 0; i < kSensors; ++i)
    drivers.push_back(std::make_unique<Driver>(i, seed + static_cast<uint32_t>(i), &progress[i]));

  std::atomic<int> badResults{0};
  std::atomic<uint64_t> lockFreeReads{0};
  // The run lasts its time and, on a slow host (emulation, sanitizers), on
  // until a few detections ran, so that the detection path was exercised.
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  const Clock::time_point hardEnd = end + std::chrono::seconds(kMaxExtraSeconds);
  const std::function<bool()> keepGoing = [end, hardEnd, &detections] {
    const Clock::time_point now = Clock::now();
    return now < end ||
           (detections.load(std::memory_order_relaxed) < kMinDetections && now < hardEnd);
  };
  {
    Watchdog watchdog(&progress, std::chrono::seconds(envInt("FLICKER_STRESS_STALL_SECONDS", 60)));
    std::vector<std::thread> threads;
    for (auto& driver : drivers)
      threads.emplace_back(
          [&driver, &keepGoing, &badResults] { driver->run(keepGoing, &badResults); });
    // Another thread reads the process-wide state that every sensor's worker
    // writes without a lock. (GetResult itself belongs to the sensor's own
    // framework thread: it also reports the statistics configuration, which
    // Config writes under the sensor's lock, so the drivers call it.)
    threads.emplace_back([&keepGoing, &badResults, &lockFreeReads] {
      while (keepGoing()) {
        const int32_t state = FlickerMgr::flickerState();
        if (state != 0 && state != 50 && state != 60)
          badResults.fetch_add(1, std::memory_order_relaxed);
        lockFreeReads.fetch_add(1, std::memory_order_relaxed);
      }
    });
    for (std::thread& t : threads) t.join();
    for (auto& driver : drivers) driver->finish();
  }
  fp::setDetectHook(nullptr);

  uint64_t ops = 0;
  for (const Progress& p : progress) ops += p.ops.load(std::memory_order_relaxed);
  printf("stress: %llu operations, %llu detections, %llu lock-free state reads\n",
         static_cast<unsigned long long>(ops), static_cast<unsigned long long>(detections.load()),
         static_cast<unsigned long long>(lockFreeReads.load()));
  EXPECT_EQ(badResults.load(), 0) << "malformed result records or flicker states";
  EXPECT_GE(detections.load(), kMinDetections) << "the random orders rarely reached a detection";
  for (int i = 0; i < kSensors; ++i)
    EXPECT_GT(progress[i].ops.load(), 0u) << "sensor " << i << " never ran";
  // Every sensor was stopped: no attachment is left behind.
  for (int i = 0; i < kSensors; ++i)
    EXPECT_EQ(FlickerMgr::GetInstance(i)->isAttach(), 0) << "sensor " << i;
}

}  // namespace
