// Threads: concurrent creation of instances, Stop joining a worker in the
// middle of an analysis and results read on another thread (wake-ups merged
// during a job are flicker_worker_test.cpp's, random call orders on many
// sensors the stress test's). Built and run under ThreadSanitizer as well
// (label "concurrency").
#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using ConcurrencyTest = ManagerTest;

TEST_F(ConcurrencyTest, ConcurrentGetInstanceCreatesOneInstance) {
  std::atomic<bool> go{false};
  std::vector<std::future<FlickerMgr*>> seen;
  seen.reserve(8);
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

}  // namespace
