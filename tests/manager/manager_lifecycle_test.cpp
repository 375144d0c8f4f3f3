// Instances, Init/Uninit, the tuning load, attachment, the result record and
// calls out of order. Each test uses its own sensor indices.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <thread>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
namespace fp = fake_platform;

class LifecycleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    enableDebugLogs();
  }
};

TEST_F(LifecycleTest, BadIndicesYieldNoInstance) {
  // Every index outside 0..19, also negative ones (unsigned test), is refused.
  for (int idx : {20, -1, INT_MIN, 1000}) {
    EXPECT_EQ(FlickerMgr::GetInstance(idx), nullptr) << idx;
    EXPECT_EQ(IFlickerMgr::GetInstance(idx), nullptr) << idx;
    EXPECT_TRUE(fp::loggedError("Unsupport sensor Index: " + std::to_string(idx))) << idx;
  }
  // The interface hands out the manager's own instance, the same every time.
  FlickerMgr* mgr = FlickerMgr::GetInstance(19);
  ASSERT_NE(mgr, nullptr);
  EXPECT_EQ(IFlickerMgr::GetInstance(19), mgr);
  EXPECT_EQ(FlickerMgr::GetInstance(19), mgr);
}

TEST_F(LifecycleTest, RepeatedInitUninitLoadsTuningOnce) {
  FlickerMgr* mgr = FlickerMgr::GetInstance(1);
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(mgr->Init(4, 321 + round), 0);
    EXPECT_EQ(mgr->Uninit(), 0);
  }
  // Only the first Init loads, with its own sensor id and the fixed totals.
  const auto calls = fp::nvramCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].sensorId, 321u);
  EXPECT_EQ(calls[0].sensorDev, 4);
  EXPECT_EQ(calls[0].modeTotal, 70);
  EXPECT_EQ(calls[0].ratioTotal, 2);
  EXPECT_EQ(fp::countLogged("+++ SensorDev/SensorId(4, 323)"), 1);
}

TEST_F(LifecycleTest, UninitWithoutInitIsHarmless) {
  FlickerMgr* mgr = FlickerMgr::GetInstance(2);
  EXPECT_EQ(mgr->Uninit(), 0);
  EXPECT_EQ(mgr->Uninit(), 0);
  EXPECT_FALSE(fp::loggedError("PlatformAdapter getInstance fail"));
}

// Records whose timing gives fewer than 1.5 light periods per frame are
// reported (warning only), by row and column index.
TEST_F(LifecycleTest, TuningLoadWarnsAboutShortFramesEvenWhenNvramFails) {
  struct Row {
    int64_t pclk;
    int32_t lineLength;
    int32_t columnLength;
    const char* warning;  // null: no warning for this record
  };
  const Row rows[] = {
      // 10 ms frames: 1.0 and 1.2 periods, both too few.
      {600000000, 6000, 1000, "sensor scenario:0 bin_ratio:0 50Hz:1.000000 60Hz:1.200000"},
      // pclk 0 is never checked, whatever the lengths.
      {0, 1, 1, nullptr},
      // 15 ms: exactly 1.5 periods at 50 Hz is enough.
      {600000000, 6000, 1500, nullptr},
      // One line less is not.
      {600000000, 6000, 1499, "sensor scenario:3 bin_ratio:0"},
      // A 32-bit product that wraps negative still gives a warning, no crash.
      {600000000, 65536, 65536, "sensor scenario:4 bin_ratio:0"},
  };
  fp::setNvramResult(-5);
  fp::setNvramFill([&rows](int row, int col, FLICKER_CUST_PARA& rec) {
    if (col != 0 || row >= static_cast<int>(sizeof(rows) / sizeof(rows[0])))
      return;
    rec.sensor_setting.pclk = rows[row].pclk;
    rec.sensor_setting.line_length = rows[row].lineLength;
    rec.sensor_setting.column_length = rows[row].columnLength;
  });
  FlickerMgr::GetInstance(3)->Init(0, 7);

  for (const Row& row : rows) {
    if (row.warning != nullptr) {
      EXPECT_TRUE(fp::loggedError(row.warning)) << row.warning;
    }
  }
  // Rows 1 and 2 and every untouched (pclk 0) record stay silent.
  EXPECT_EQ(fp::countLogged("flicker cycle is too small"), 3);
  EXPECT_TRUE(fp::loggedError("nvGetFlickerParaAll fail."));
}

TEST_F(LifecycleTest, MissingTuningRowSkipsNvramAndSelection) {
  // The first row block (2 x 168 bytes) of a new instance cannot be allocated.
  fp::failAllocationsOfSize(2 * sizeof(FLICKER_CUST_PARA), 1);
  SensorRig rig(5);
  EXPECT_EQ(fp::failedAllocations(), 1);
  EXPECT_TRUE(fp::loggedError("Can not locate memory for parameters."));

  fp::setNvramFill([](int, int, FLICKER_CUST_PARA& rec) { rec.flickerFreq[0] = 42; });
  rig.bringUp();
  EXPECT_TRUE(fp::nvramCalls().empty());

  // Sensor mode 0 selects the missing row: reported, and the algorithm gets a
  // zero record instead of a crash.
  rig.frames(3);
  const auto ext = lastInput(FLK_CMD_SET_EXT_PARA);
  ASSERT_EQ(ext.size(), sizeof(FlkExtParaCmd));
  EXPECT_EQ(word(ext, 0), 0);
  EXPECT_TRUE(fp::loggedError("no tuning record for scenario(0)"));
  rig.shutDown();
}

TEST_F(LifecycleTest, AttachAllowsOneSensorAtATime) {
  // The fake's customisation allows one attached sensor.
  SensorRig a(6);
  SensorRig b(7);
  a.mgr().Init(0, 1);  // also turns the detail log on
  b.mgr().Init(0, 2);
  a.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
  EXPECT_TRUE(fp::logged("isAttach(1), count(1/1). SensorIdx(6)"));
  b.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, -1));
  EXPECT_TRUE(fp::logged("achieve max attach number(1). SensorIdx(7)"));
  EXPECT_EQ(a.mgr().isAttach(), 1);
  EXPECT_EQ(b.mgr().isAttach(), 0);
  EXPECT_EQ(b.frame(), -1);
  EXPECT_TRUE(fp::logged("SensorIdx(7) skip, not attached."));

  // isMaster 2 neither attaches nor detaches; 0 detaches and frees the slot.
  a.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 2));
  EXPECT_EQ(a.mgr().isAttach(), 1);
  a.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 0));
  EXPECT_TRUE(fp::logged("count(0/1). SensorIdx(6)"));
  b.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
  EXPECT_EQ(b.mgr().isAttach(), 1);

  // The debug property hides the attachment from the query only.
  fp::setProperty("vendor.debug.flk_not_attach", 1);
  EXPECT_EQ(b.mgr().isAttach(), 0);
  EXPECT_EQ(b.frame(), -1);
  // The first frame was refused before counting; this one is counted.
  EXPECT_TRUE(fp::logged("skip, not enough frame(1)."));

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
  FrameSpec spec;
  spec.aeDetectCycle = 3;
  rig.frames(4, spec);  // frames 3 and 4 form the pair
  ASSERT_TRUE(recorder.waitFor(1));
  ASSERT_TRUE(rig.mgr().Stop());  // joins the worker: the analysis is complete
  flicker_config_info newMode = makeConfig(1);
  rig.mgr().LightWeightReConfig(newMode);

  std::vector<uint8_t> out;
  EXPECT_EQ(rig.mgr().GetResult(&out), 0);
  const int32_t expectWords[] = {
      FLICKER_RESULT_60HZ,  // state 60
      1,                    // frame-rate active after cycle position 1
      77, -88,              // scores of the analysis
      1,                    // scores belong to an AE-driven detection
      // statistics words 0, 2, 4, 7..16 of the adapter's configuration
      4, 20, 25, 16, 5140, 7453, 10794, 15934, 22616, 32382, 46260, 2630, 65535,
      0,  // hdrFlkSrc
      1,  // the sensor mode just changed
  };
  ASSERT_EQ(out.size(), 84u);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1] | out[2] | out[3], 0);
  for (size_t i = 0; i < sizeof(expectWords) / sizeof(expectWords[0]); ++i) {
    const uint8_t* p = &out[4 + 4 * i];
    const uint32_t le = p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
    EXPECT_EQ(static_cast<int32_t>(le), expectWords[i]) << "field at byte " << 4 + 4 * i;
  }
  rig.mgr().Uninit();
}

TEST_F(LifecycleTest, ResultVectorIsResizedToTheRecord) {
  struct Row {
    size_t initialSize;
    uint8_t fill;
    uint8_t expectPadding;  // bytes 1..3 after the call
  };
  const Row rows[] = {
      {0, 0xAA, 0x00},    // grown from nothing: padding is zero
      {10, 0xAA, 0xAA},   // grown, the caller's first bytes stay
      {84, 0xAA, 0xAA},   // exact size, untouched padding
      {100, 0xAA, 0xAA},  // cut to 84, padding kept
  };
  FlickerMgr* mgr = FlickerMgr::GetInstance(10);
  for (const Row& row : rows) {
    std::vector<uint8_t> out(row.initialSize, row.fill);
    EXPECT_EQ(mgr->GetResult(&out), 0);
    ASSERT_EQ(out.size(), 84u) << row.initialSize;
    EXPECT_EQ(out[0], 1);
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(out[i], row.expectPadding) << row.initialSize;
  }
  EXPECT_EQ(mgr->GetResult(nullptr), 0);
  EXPECT_TRUE(fp::loggedError("output should not be NULL"));
}

TEST_F(LifecycleTest, CallsOutOfOrderAreLoggedOrIgnored) {
  SensorRig rig(11);
  // Stop with nothing running: no join, nothing attached.
  EXPECT_FALSE(rig.mgr().Stop());
  EXPECT_FALSE(fp::logged("close flickerMgr thread"));

  // Frames before Init and Config: the adapter has no buffers, the intake
  // fails and is reported, nothing crashes.
  rig.mgr().SetParam(makeInput());
  rig.mgr().Start(flicker_start_info{});  // also reads the log level
  const auto results = rig.frames(3);
  EXPECT_EQ(results, (std::vector<int>{-1, -1, -1}));
  EXPECT_TRUE(fp::logged("failed to analyze(ffffffff)."));

  // A second Config keeps the running worker.
  rig.mgr().Init(0, 1);
  rig.mgr().Config(makeConfig());
  rig.mgr().Config(makeConfig());
  EXPECT_TRUE(fp::loggedError("SenbsorIdx(11), flickerMgr thread is not closed last time!!"));
  EXPECT_EQ(fp::countLogged("create flickerMgr thread"), 1);

  // Stop twice: the second finds neither a worker nor an attachment.
  EXPECT_TRUE(rig.mgr().Stop());
  EXPECT_FALSE(rig.mgr().Stop());
  EXPECT_EQ(fp::countLogged("close flickerMgr thread"), 1);
  EXPECT_EQ(fp::countLogged("thread end"), 1);
  EXPECT_EQ(rig.mgr().Uninit(), 0);
}

TEST_F(LifecycleTest, UninitEndsAWorkerLeftRunning) {
  SensorRig rig(12);
  rig.mgr().Init(0, 1);
  rig.mgr().Config(makeConfig());
  EXPECT_EQ(rig.mgr().Uninit(), 0);
  EXPECT_EQ(fp::countLogged("thread end"), 1);
  rig.mgr().Config(makeConfig());  // a new run starts a new worker
  EXPECT_EQ(fp::countLogged("create flickerMgr thread"), 2);
  rig.shutDown();
}

// A forgotten Stop must not turn process exit into a crash: the instance of a
// worker still waiting for a wake-up is left alive when the instance table is
// destroyed. (An analysis in progress at exit is not covered: it runs against
// whatever the platform has already torn down.)
TEST_F(LifecycleTest, ProcessExitWithAWorkerStillRunning) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        SensorRig rig(13);
        rig.bringUp();
        rig.frames(3);  // frame 3 stores a first frame: no wake-up yet
        // The worker's last step before waiting is its priority line.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (fp::countLogged("policy:(expect, result)") == 0 &&
               std::chrono::steady_clock::now() < deadline) {
          std::this_thread::yield();
        }
        exit(7);
      },
      ::testing::ExitedWithCode(7), "");
}

// Kept last: the double attach leaves one slot of the process-wide count taken.
TEST_F(LifecycleTest, AttachPriorityAndCounting) {
  fp::setMaxAttachNum(2);  // read when the instance is created
  FlickerMgr* mgr = FlickerMgr::GetInstance(8);
  EXPECT_EQ(mgr->attach(FLK_ATTACH_PRIO_LOW), -1);
  EXPECT_TRUE(fp::logged("No attach due to low priority sensor. SensorIdx(8)"));
  EXPECT_EQ(mgr->detach(), -1);
  EXPECT_TRUE(fp::logged("not attach before. SensorIdx(8)"));
  // Attach does not test for a slot already held: two attaches take two.
  EXPECT_EQ(mgr->attach(FLK_ATTACH_PRIO_MEDIUM), 0);
  EXPECT_EQ(mgr->attach(FLK_ATTACH_PRIO_HIGH), 0);
  EXPECT_TRUE(fp::logged("isAttach(1), count(2/2). SensorIdx(8)"));
  EXPECT_EQ(mgr->attach(FLK_ATTACH_PRIO_MEDIUM), -1);
  EXPECT_EQ(mgr->detach(), 0);
  EXPECT_TRUE(fp::logged("count(1/2). SensorIdx(8)"));
  EXPECT_EQ(mgr->isAttach(), 0);
  EXPECT_EQ(mgr->detach(), -1);
}

}  // namespace
