// Threads: concurrent creation of instances, Stop joining a worker in the
// middle of an analysis, merged wake-ups, results read on another thread, and
// a bounded stress run of four sensors driven in random order on four threads
// under a watchdog. Built and run under
// ThreadSanitizer as well (label "concurrency").
#include <atomic>
#include <cstdio>
#include <functional>
#include <future>
#include <random>
#include <thread>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using ConcurrencyTest = ManagerTest;

TEST_F(ConcurrencyTest, ConcurrentGetInstanceCreatesOneInstance) {
  std::atomic<bool> go{false};
  std::vector<std::future<FlickerMgr*>> seen;
  for (int t = 0; t < 8; ++t) {
    seen.push_back(std::async(std::launch::async, [&go] {
      while (!go.load()) std::this_thread::yield();
      return FlickerMgr::GetInstance(8);
    }));
  }
  go = true;
  FlickerMgr* first = seen[0].get();
  ASSERT_NE(first, nullptr);
  for (size_t t = 1; t < seen.size(); ++t) EXPECT_EQ(seen[t].get(), first) << t;
}

// Stop ends the worker; so do Init and Uninit, which replace the buffers its
// detection reads. Each waits for an analysis in progress. (An Init without
// Uninit drops the old buffers by design: the test frees them.)
class EndingCallTest : public ConcurrencyTest, public ::testing::WithParamInterface<int> {};

TEST_P(EndingCallTest, WaitsForTheAnalysisInProgress) {
  const std::function<void(FlickerMgr&)> calls[] = {
      [](FlickerMgr& m) { EXPECT_TRUE(m.Stop()); },
      [](FlickerMgr& m) { EXPECT_EQ(m.Uninit(), 0); },
      [](FlickerMgr& m) { EXPECT_EQ(m.Init(0, kSensor1398), 0); },
  };
  SensorRig rig(10 + GetParam());
  rig.bringUp();
  std::vector<const int64_t*> buffers;
  fp::setDetectHook([&buffers](const FlkDetectPara& para, FlkDetectResult*) {
    buffers = {para.statsSlot0, para.statsSlot1};
  });
  fp::holdDetections(true);
  rig.frames(4);  // frame 4 completes the first pair
  ASSERT_TRUE(fp::waitDetectEntered(kWaitMs));
  auto ended = std::async(std::launch::async, [&] { calls[GetParam()](rig.mgr()); });
  // The call may not return while the analysis is held inside the algorithm.
  EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  fp::releaseDetections();
  ended.get();
  // The analysis ran to its end before the join returned, and no other began.
  EXPECT_EQ(fp::countLogged("Output: State("), 1);
  fp::setDetectHook(nullptr);
  rig.shutDown();
  if (GetParam() == 2) {
    for (const int64_t* b : buffers) free(const_cast<int64_t*>(b));
  }
}
INSTANTIATE_TEST_SUITE_P(StopUninitInit, EndingCallTest, ::testing::Range(0, 3));

// Wake-ups that arrive while an analysis runs merge into one: the per-frame
// path posts only when no wake-up is pending.
TEST_F(ConcurrencyTest, WakeUpsDuringAnAnalysisMergeIntoOne) {
  SensorRig rig(4);
  rig.bringUp();
  DetectRecorder recorder;
  fp::holdDetections(true);
  FrameSetup params;
  params.aeDetectCycle = 1;
  rig.frames(4, params);
  ASSERT_TRUE(fp::waitDetectEntered(kWaitMs));
  rig.frames(10, params);  // six more completed pairs while the worker is held
  fp::releaseDetections();
  ASSERT_TRUE(recorder.waitFor(2));
  rig.shutDown();
  EXPECT_EQ(recorder.detections().size(), 2u);
}

// GetResult takes no lock and may be called from any thread: a second thread
// reads results while the 3A thread reconfigures the sensor and runs frames
// (under ThreadSanitizer every field it reads is checked against the writes).
TEST_F(ConcurrencyTest, GetResultFromAnotherThread) {
  SensorRig rig(6);
  rig.bringUp();
  std::atomic<bool> done{false};
  std::atomic<int> reads{0};
  auto reader = std::async(std::launch::async, [&] {
    std::vector<uint8_t> out;
    int bad = 0;
    while (!done.load()) {
      rig.mgr().GetResult(&out);
      // Valid, a state code, and the statistics words 0 and 16 of Config.
      bad += out.size() != kFlickerResultSize || out[0] != 1 || word(out, 1) < 1 ||
             word(out, 1) > 2 || word(out, 6) != 4 || word(out, 18) != 65535;
      reads.fetch_add(1);
    }
    return bad;
  });
  while (reads.load() == 0) std::this_thread::yield();
  FrameSetup params;
  params.aeDetectCycle = 1;  // every frame completes a pair: the worker writes scores
  for (int round = 0; round < 20; ++round) {
    rig.mgr().Stop();
    rig.mgr().Config(makeConfig(round % 3));
    rig.mgr().LightWeightReConfig(makeConfig(round % 2));
    rig.mgr().Start(flicker_start_info{});
    rig.mgr().SetParam(makeInput(round % 4 == 0 ? FLICKER_MODE_60HZ : FLICKER_MODE_AUTO));
    rig.frames(rig.frameNo() + 5, params);
  }
  done = true;
  EXPECT_EQ(reader.get(), 0) << "malformed records";
  rig.shutDown();
}

// One sensor driven in random order with random, also invalid, inputs. A
// second Init without Uninit leaks the adapter's buffers by design, so Init
// and Uninit alternate, in random places.
void driveRandomly(int idx, const std::function<bool()>& keepGoing) {
  std::mt19937 rng(static_cast<unsigned>(idx) * 7919u);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int heights[] = {0, 100, 300, 1080, 3000, 7000};
  SensorRig rig(idx);
  std::vector<uint8_t> result;
  bool initialised = false;
  while (keepGoing()) {
    const int op = pick(0, 99);
    if (op < 50) {
      rig.frame({pick(0, 4000), heights[pick(0, 5)], pick(0, 40), pick(0, 4) != 0, pick(0, 4) != 0,
                 pick(0, 1), pick(-1, 4), pick(0, 9) == 0, pick(0, 40000)});
    } else if (op < 65) {
      rig.mgr().SetParam(makeInput(pick(0, 4), pick(0, 1), pick(0, 3), pick(-1, 2)));
    } else if (op < 75) {
      result.resize(static_cast<size_t>(pick(0, 120)));
      rig.mgr().GetResult(&result);
    } else if (op < 80) {
      rig.mgr().Config(makeConfig(pick(0, 3), heights[pick(0, 5)],
                                  static_cast<uint32_t>(pick(0, 70000)), heights[pick(0, 5)]));
    } else if (op < 85) {
      rig.mgr().Start(flicker_start_info{});
    } else if (op < 90) {
      rig.mgr().Stop();
    } else if (op < 94) {
      rig.mgr().LightWeightReConfig(makeConfig(pick(0, 3)));
    } else if (!initialised) {
      initialised = rig.mgr().Init(0, pick(0, 1) != 0 ? kSensor1398 : 100) == 0;
    } else if (op >= 97) {
      initialised = rig.mgr().Uninit() != 0;
    }
  }
  rig.shutDown();
}

TEST_F(ConcurrencyTest, FourSensorsInRandomOrder) {
  constexpr int kFirst = 16;
  fp::setProperty("vendor.debug.flicker_mgr.log.level", 0);  // keep the recorded log small
  fp::setMaxAttachNum(2);  // read at creation: the sensors contend for two slots
  fp::scriptDetectResults(std::vector<FlkDetectResult>(200, FlkDetectResult{FLK_FREQ_50HZ, 1, 2}));
  DetectRecorder recorder;  // like the real algorithm, reads the statistics during detection
  // Two seconds of random calls. How far they get depends on the machine, so
  // a slow one (sanitizers, load) goes on until the first detection, for at
  // most 30 s.
  const auto start = std::chrono::steady_clock::now();
  const std::function<bool()> keepGoing = [&recorder, start] {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return elapsed < std::chrono::seconds(2) ||
           (elapsed < std::chrono::seconds(30) && recorder.count() == 0);
  };
  // Watchdog: a deadlock fails the binary instead of hanging it.
  auto run = std::async(std::launch::async, [&keepGoing] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back(driveRandomly, kFirst + i, std::cref(keepGoing));
    for (auto& t : threads) t.join();
  });
  if (run.wait_for(std::chrono::seconds(90)) != std::future_status::ready) {
    fprintf(stderr, "watchdog: stress run did not finish within 90 s\n");
    abort();
  }

  // Every sensor gave its slot back: two sensors attach again.
  for (int idx : {kFirst, kFirst + 1}) {
    FlickerMgr::GetInstance(idx)->SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
    EXPECT_EQ(FlickerMgr::GetInstance(idx)->isAttach(), 1) << idx;
  }
  for (int idx : {kFirst, kFirst + 1}) EXPECT_TRUE(FlickerMgr::GetInstance(idx)->Stop());
  EXPECT_FALSE(recorder.detections().empty()) << "the run never reached a detection";
}

}  // namespace
