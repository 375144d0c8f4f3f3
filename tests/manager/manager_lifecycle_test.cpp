// Instances, Init/Uninit, the tuning load, attachment, the result record and
// calls out of order (process exit with a worker running is the
// reliability tests' process_exit_test.cpp). Each test uses its own sensor
// indices.
#include <climits>
#include <tuple>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using LifecycleTest = ManagerTest;

TEST_F(LifecycleTest, InstanceTable) {
  // Every index outside 0..19, also negative ones (unsigned test), is refused.
  for (int idx : {20, -1, INT_MIN}) {
    EXPECT_EQ(IFlickerMgr::GetInstance(idx), nullptr) << idx;
    EXPECT_TRUE(fp::loggedError("Unsupport sensor Index: " + std::to_string(idx))) << idx;
  }
  // The interface hands out the manager's own instance, the same every time.
  FlickerMgr* mgr = FlickerMgr::GetInstance(19);
  ASSERT_NE(mgr, nullptr);
  EXPECT_EQ(IFlickerMgr::GetInstance(19), mgr);
}

// The table is loaded by the first Init only, with its sensor id and the
// fixed totals, also when NVRAM fails (the table's own checks, storage that
// fails included, are in flicker_tuning_table_test.cpp; the manager's zero
// record when no row can be selected in manager_setup_test.cpp).
TEST_F(LifecycleTest, TuningLoad) {
  fp::setNvramResult(-5);
  FlickerMgr* mgr = FlickerMgr::GetInstance(1);
  EXPECT_EQ(mgr->Uninit(), 0);  // before any Init: harmless
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(mgr->Init(4, 321 + round), 0);
    EXPECT_EQ(mgr->Uninit(), 0);
  }
  ASSERT_EQ(fp::nvramCalls().size(), 1u);
  const fp::NvramCall c = fp::nvramCalls()[0];
  EXPECT_EQ(std::make_tuple(c.sensorId, c.sensorDev, c.modeTotal, c.ratioTotal),
            std::make_tuple(321u, 4, 70, 2));
  EXPECT_EQ(fp::countLogged("nvGetFlickerParaAll fail."), 1);
}

TEST_F(LifecycleTest, AttachAllowsOneSensorAtATime) {
  SensorRig a(6), b(7);  // the fake's customisation allows one attached sensor
  a.mgr().Init(0, 1);
  b.mgr().Init(0, 2);
  a.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
  b.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, -1));
  EXPECT_TRUE(fp::logged("achieve max attach number(1). SensorIdx(7)"));
  EXPECT_EQ(std::make_pair(a.mgr().isAttach(), b.mgr().isAttach()), std::make_pair(1, 0));
  EXPECT_EQ(b.frame(), -1);
  // isMaster 0 detaches and frees the slot.
  a.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 0));
  b.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
  EXPECT_EQ(std::make_pair(a.mgr().isAttach(), b.mgr().isAttach()), std::make_pair(0, 1));
  // The refused frame was not counted: two warm-up frames follow.
  EXPECT_EQ(b.frames(b.frameNo() + 3), (std::vector<int>{-1, -1, 0}));
  EXPECT_TRUE(b.mgr().Stop());
  EXPECT_FALSE(a.mgr().Stop());  // nothing to give back
  a.mgr().Uninit();
  b.mgr().Uninit();
}

TEST_F(LifecycleTest, ResultRecordBytes) {
  SensorRig rig(9);
  DetectRecorder recorder;
  // Fixed 60 Hz with AE driving a cycle: detection runs, the state stays 60.
  fp::scriptDetectResults({{FLK_FREQ_50HZ, 77, -88}});
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_60HZ));
  FrameSetup params;
  params.aeDetectCycle = 3;
  rig.frames(4, params);  // frames 3 and 4 form the pair
  ASSERT_TRUE(recorder.waitFor(1));
  ASSERT_TRUE(rig.mgr().Stop());  // joins the worker: the analysis is complete
  rig.mgr().LightWeightReConfig(makeConfig(1));

  // Grown from empty: valid flag 1, zero padding, then little-endian words.
  std::vector<uint8_t> out;
  EXPECT_EQ(rig.mgr().GetResult(&out), 0);
  ASSERT_EQ(out.size(), 84u);
  EXPECT_EQ(out[0] + (out[1] | out[2] | out[3]), 1);
  // clang-format off
  const std::vector<int32_t> expect = {
      FLICKER_RESULT_60HZ, 1,  // state 60; frame-rate active after cycle position 1
      77, -88, 1,              // scores of the analysis, which AE drove
      // statistics words 0, 2, 4, 7..16 of the adapter's configuration
      4, 20, 25, 16, 5140, 7453, 10794, 15934, 22616, 32382, 46260, 2630, 65535,
      0, 1};                   // hdrFlkSrc; the sensor mode just changed
  // clang-format on
  for (size_t i = 0; i < expect.size(); ++i) EXPECT_EQ(word(out, i + 1), expect[i]) << i;
  EXPECT_TRUE(
      fp::logged("flickerState(2) flickerFrameRateActive(1) flickerScore50/60(77/-88) "
                 "flickerScoreActive(1) hdrFlkSrc(0)"));
  EXPECT_EQ(rig.mgr().GetResult(nullptr), 0);
  EXPECT_TRUE(fp::loggedError("output should not be NULL"));
  rig.mgr().Uninit();
}

TEST_F(LifecycleTest, CallsOutOfOrderAreLoggedOrIgnored) {
  SensorRig rig(11);
  EXPECT_FALSE(rig.mgr().Stop());  // nothing running: no join, nothing attached
  // Frames before Init and Config: the adapter has no buffers, the intake
  // fails and is reported, nothing crashes.
  rig.mgr().SetParam(makeInput());
  rig.mgr().Start(flicker_start_info{});
  EXPECT_EQ(rig.frames(3), (std::vector<int>{-1, -1, -1}));
  EXPECT_TRUE(fp::loggedError("column_vector_data_1_ or column_vector_data_2_ is NULL."));
  // A second Config keeps the running worker.
  rig.mgr().Init(0, 1);
  rig.mgr().Config(makeConfig());
  rig.mgr().Config(makeConfig());
  EXPECT_TRUE(fp::loggedError("SenbsorIdx(11), flickerMgr thread is not closed last time!!"));
  // Uninit ends a worker left running (ConcurrencyTest shows it waits for
  // it); the next Config starts a new one without complaint.
  EXPECT_EQ(rig.mgr().Uninit(), 0);
  fp::clearLogs();
  rig.mgr().Config(makeConfig());
  EXPECT_FALSE(fp::loggedError("not closed last time"));
  // Stop twice: the second finds neither a worker nor an attachment.
  EXPECT_TRUE(rig.mgr().Stop());
  EXPECT_FALSE(rig.mgr().Stop());
}

}  // namespace
