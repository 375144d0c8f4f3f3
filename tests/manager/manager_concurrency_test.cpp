// Threads: concurrent creation of instances, the worker's wake-up merging,
// Stop joining a worker in the middle of an analysis, and a bounded stress run
// of four sensors driven in random order on four threads under a watchdog.
// Built and run under ThreadSanitizer as well (label "concurrency").
#include <atomic>
#include <cstdio>
#include <future>
#include <random>
#include <thread>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using ConcurrencyTest = ManagerTest;

class GetInstanceTest : public ConcurrencyTest, public ::testing::WithParamInterface<int> {};

TEST_P(GetInstanceTest, OneInstancePerIndex) {
  const int threads = GetParam();
  const int idx = threads;                 // its own index per thread count
  FlickerMgr::GetInstance(0)->Init(0, 0);  // turns the detail log on for the constructor line
  std::atomic<bool> go{false};
  std::vector<FlickerMgr*> seen(threads, nullptr);
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      seen[t] = FlickerMgr::GetInstance(idx);
    });
  }
  go = true;
  for (auto& th : pool) th.join();
  ASSERT_NE(seen[0], nullptr);
  for (FlickerMgr* mgr : seen) EXPECT_EQ(mgr, seen[0]);
  EXPECT_EQ(fp::countLogged("sensorIdx(" + std::to_string(idx) + ")."), 1);  // one construction
  FlickerMgr::GetInstance(0)->Uninit();
}
INSTANTIATE_TEST_SUITE_P(Threads, GetInstanceTest, ::testing::Values(2, 8));

TEST_F(ConcurrencyTest, StopJoinsAWorkerInTheMiddleOfAnAnalysis) {
  SensorRig rig(3);
  rig.bringUp();
  fp::holdDetections(true);
  FrameSpec spec;
  spec.aeDetectCycle = 1;  // every frame
  rig.frames(4, spec);     // frame 4 completes the first pair
  ASSERT_TRUE(fp::waitDetectEntered(kWaitMs));
  auto stopped = std::async(std::launch::async, [&rig] { return rig.mgr().Stop(); });
  // Stop may not return while the analysis is held inside the algorithm.
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  fp::releaseDetections();
  EXPECT_TRUE(stopped.get());
  // The analysis ran to its end before the join returned, and no other began.
  EXPECT_EQ(fp::countLogged("Output: State("), 1);
  EXPECT_EQ(fp::countLogged("thread end"), 1);
  EXPECT_EQ(fp::algoCalls(FLK_CMD_DETECT).size(), 1u);
  rig.mgr().Uninit();
}

TEST_F(ConcurrencyTest, WakeUpsDuringAnAnalysisMergeIntoOne) {
  SensorRig rig(4);
  rig.bringUp();
  DetectRecorder recorder;
  fp::holdDetections(true);
  FrameSpec spec;
  spec.aeDetectCycle = 1;
  rig.frames(4, spec);
  ASSERT_TRUE(fp::waitDetectEntered(kWaitMs));
  rig.frames(10, spec);  // six more completed pairs while the worker is held
  fp::releaseDetections();
  ASSERT_TRUE(recorder.waitFor(2));
  rig.shutDown();
  EXPECT_EQ(recorder.detections().size(), 2u);
}

// One sensor driven in random order with random, also invalid, inputs.
void driveRandomly(int idx, std::chrono::steady_clock::time_point deadline) {
  std::mt19937 rng(static_cast<unsigned>(idx) * 7919u);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int heights[] = {0, 100, 300, 1080, 3000, 7000};
  FlickerMgr* mgr = FlickerMgr::GetInstance(idx);
  std::vector<uint8_t> stats(FlickerPlatformAdapter::kBufBytes, 1), result;
  flicker_calc_info in{};
  in.mVa = stats.data();
  bool initialised = false;
  while (std::chrono::steady_clock::now() < deadline) {
    const int op = pick(0, 99);
    if (op < 50) {
      in.exposureTime = pick(0, 40000);
      in.width = pick(0, 4000);
      in.height = heights[pick(0, 5)];
      in.pixel_mode = pick(0, 40);
      in.flkEnable = pick(0, 4) != 0;
      in.statValid = pick(0, 4) != 0;
      in.doFlkDetection = pick(0, 1);
      in.aeDetectCycle = pick(-1, 4);
      in.needReinit = pick(0, 9) == 0;
      in.sof_timestamp += kFramePeriodNs;
      mgr->DoCalculation(in);
    } else if (op < 65) {
      mgr->SetParam(makeInput(pick(0, 4), pick(0, 1), pick(0, 3), pick(-1, 2)));
    } else if (op < 75) {
      result.resize(static_cast<size_t>(pick(0, 120)));
      mgr->GetResult(&result);
    } else if (op < 80) {
      mgr->Config(makeConfig(pick(0, 3), heights[pick(0, 5)], static_cast<uint32_t>(pick(0, 70000)),
                             heights[pick(0, 5)]));
    } else if (op < 85) {
      mgr->Start(flicker_start_info{});
    } else if (op < 90) {
      mgr->Stop();
    } else if (op < 94) {
      mgr->LightWeightReConfig(makeConfig(pick(0, 3)));
    } else if (op < 97) {
      // A second Init without Uninit leaks the adapter's buffers by design;
      // the run keeps Init and Uninit alternating, in random places.
      if (!initialised)
        mgr->Init(0, pick(0, 1) != 0 ? kSensor1398 : 100);
      initialised = true;
    } else {
      mgr->Uninit();
      initialised = false;
    }
  }
  mgr->Stop();
  mgr->Uninit();
}

TEST_F(ConcurrencyTest, FourSensorsInRandomOrder) {
  constexpr int kFirst = 16;
  fp::setProperty("vendor.debug.flicker_mgr.log.level", 0);  // keep the recorded log small
  fp::setMaxAttachNum(2);  // read at creation: the sensors contend for two slots
  fp::scriptDetectResults(std::vector<FlkDetectResult>(200, FlkDetectResult{FLK_FREQ_50HZ, 1, 2}));
  // Like the real algorithm, read the statistics during the detection.
  std::atomic<int64_t> checksum{0};
  fp::setDetectHook([&checksum](const FlkDetectPara& para, FlkDetectResult*) {
    if (para.statsSlot0 != nullptr && para.statsSlot1 != nullptr)
      checksum += para.statsSlot0[0] + para.statsSlot1[0];
  });
  // Watchdog: a deadlock fails the binary instead of hanging it.
  auto run = std::async(std::launch::async, [] {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(driveRandomly, kFirst + i, deadline);
    for (auto& t : threads) t.join();
  });
  if (run.wait_for(std::chrono::seconds(90)) != std::future_status::ready) {
    fprintf(stderr, "watchdog: stress run did not finish within 90 s\n");
    abort();
  }
  fp::setDetectHook(nullptr);

  // Every sensor gave its slot back: two sensors attach again.
  const int32_t state = FlickerMgr::flickerState();
  EXPECT_TRUE(state == 0 || state == 50 || state == 60) << state;
  for (int idx : {kFirst, kFirst + 1}) {
    FlickerMgr::GetInstance(idx)->SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
    EXPECT_EQ(FlickerMgr::GetInstance(idx)->isAttach(), 1) << idx;
  }
  for (int idx : {kFirst, kFirst + 1}) EXPECT_TRUE(FlickerMgr::GetInstance(idx)->Stop());
  EXPECT_EQ(result(*FlickerMgr::GetInstance(kFirst)).size(), kFlickerResultSize);
  EXPECT_FALSE(fp::algoCalls(FLK_CMD_DETECT).empty()) << "the run never reached a detection";
}

}  // namespace
