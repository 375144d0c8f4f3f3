// The per-frame calculation end to end: which frames are collected into which
// statistics slot, when the worker is woken, the pause, AE taking over and
// giving up the cycle, the automatic state switch and the report line.
//
// Every detection is observed inside the fake algorithm: the frame ids found
// in the two statistics buffers and the frame interval of the record. The
// test waits for each expected detection before sending the next frame.
//
// The adapter always reports frame-rate type 1 at Start; type 0 (the initial
// value) is reachable only by running frames without Start, which the rows
// marked "no Start" do.
#include <gtest/gtest.h>

#include <algorithm>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
namespace fp = fake_platform;

class CalcTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    enableDebugLogs();
  }
};

struct Pair {
  int64_t slot0;  // frame id in buffer 1
  int64_t slot1;  // frame id in buffer 2
};

// Sends frames 1..frames and waits for each expected detection when the frame
// that completes it (the later of the two) has been sent; then stops the
// sensor (joining its worker) and compares everything the algorithm saw.
void runTrace(SensorRig& rig, const FrameSpec& spec, int frames, const std::vector<Pair>& expect) {
  DetectRecorder recorder;
  for (int n = 1; n <= frames; ++n) {
    rig.frame(spec);
    const size_t due = std::count_if(expect.begin(), expect.end(), [n](const Pair& p) {
      return std::max(p.slot0, p.slot1) <= n;
    });
    ASSERT_TRUE(recorder.waitFor(due)) << "detection " << due << " missing after frame " << n;
  }
  rig.shutDown();
  const auto seen = recorder.detections();
  ASSERT_EQ(seen.size(), expect.size());
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].slot0Frame, expect[i].slot0) << "detection " << i;
    EXPECT_EQ(seen[i].slot1Frame, expect[i].slot1) << "detection " << i;
    // Exposure starts of the two frames of the pair, taken from their
    // timestamp slots: always neighbouring frames here.
    EXPECT_EQ(seen[i].intervalFrames, 1) << "detection " << i;
    EXPECT_EQ(seen[i].exposure, kExposureUs);
  }
}

struct TraceRow {
  const char* what;
  int custFrequency;  // the product's detection cycle, read at construction
  int sensorType;
  bool start;  // Start gives frame-rate type 1; without it the type stays 0
  int doFlkDetection;
  int aeDetectCycle;
  int frames;
  std::vector<Pair> expect;
};

const TraceRow kTraceRows[] = {
    // Positions 0 and 1 each arm a first frame, 2 completes, 3 idles.
    {"cycle 4, type 0, no Start", 4, 0, false, 1, 0, 13, {{4, 5}, {8, 9}, {12, 13}}},
    // Both positions re-arm: every frame is a first frame, no wake-up ever.
    {"cycle 2, type 0, no Start", 2, 0, false, 1, 0, 10, {}},
    // A product cycle of 1 is raised to 2; the second type pairs positions 0, 1.
    {"cycle 1 raised to 2, type 1, no Start", 1, 1, false, 1, 0, 8, {{3, 4}, {5, 6}, {7, 8}}},
    {"cycle 4, type 1, no Start", 4, 1, false, 1, 0, 12, {{3, 4}, {7, 8}, {11, 12}}},
    {"cycle 3, type 1, rate type 1", 3, 1, true, 1, 0, 10, {{3, 4}, {6, 7}, {9, 10}}},
    // Rate type 1: AE's request arms a pair whenever none is in progress.
    {"cycle 3, type 0, rate type 1, AE asks", 3, 0, true, 1, 0, 8, {{3, 4}, {5, 6}, {7, 8}}},
    {"cycle 3, type 0, rate type 1, AE quiet", 3, 0, true, 0, 0, 8, {}},
    // Every frame: buffer slot follows the cycle position, every frame after
    // the first completes a pair.
    {"every frame, type 0, no Start", 3, 0, false, 1, 1, 7, {{3, 4}, {5, 4}, {5, 6}, {7, 6}}},
    {"every frame, type 1, rate type 1", 3, 1, true, 1, 1, 7, {{3, 4}, {5, 4}, {5, 6}, {7, 6}}},
    {"every frame, rate type 1, AE quiet", 3, 0, true, 0, 1, 6, {}},
    // AE's cycle behaves like the product's own, starting at its take-over.
    {"AE cycle 4, type 0, no Start", 3, 0, false, 1, 4, 9, {{4, 5}, {8, 9}}},
    {"AE cycle 2, type 1, rate type 1", 3, 1, true, 1, 2, 6, {{3, 4}, {5, 6}}},
};

class TraceTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(TraceTest, CollectsPairsAndWakesTheWorker) {
  const TraceRow& row = kTraceRows[GetParam()];
  SCOPED_TRACE(row.what);
  fp::setDetectFrequency(row.custFrequency);
  SensorRig rig(GetParam());  // a fresh instance per row: the cycle is read at construction
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_AUTO, row.sensorType), row.start);
  FrameSpec spec;
  spec.doFlkDetection = row.doFlkDetection;
  spec.aeDetectCycle = row.aeDetectCycle;
  runTrace(rig, spec, row.frames, row.expect);
}

INSTANTIATE_TEST_SUITE_P(Rows, TraceTest,
                         ::testing::Range(0, static_cast<int>(sizeof(kTraceRows) /
                                                              sizeof(kTraceRows[0]))));

TEST_F(CalcTest, ClosedGatePausesUntilAeDropsItsRequest) {
  SensorRig rig(12);
  rig.bringUp();  // cycle 3, type 0, rate type 1
  DetectRecorder recorder;
  FrameSpec open;
  FrameSpec closed;
  closed.flkEnable = 0;
  FrameSpec quiet;
  quiet.doFlkDetection = 0;

  std::vector<int> results = rig.frames(2, open);
  results.push_back(rig.frame(closed));
  std::vector<uint8_t> out;
  rig.mgr().GetResult(&out);
  EXPECT_EQ(out[8], 0) << "frame-rate flag cleared by the pause";
  results.push_back(rig.frame(open));   // still asking: held back
  results.push_back(rig.frame(open));   // still held back
  results.push_back(rig.frame(quiet));  // AE dropped: the pause ends
  results.push_back(rig.frame(open));   // arms, first frame
  results.push_back(rig.frame(open));   // second frame
  EXPECT_EQ(results, (std::vector<int>{-1, -1, -1, -1, -1, 0, 0, 0}));
  ASSERT_TRUE(recorder.waitFor(1));
  rig.shutDown();
  ASSERT_EQ(recorder.detections().size(), 1u);
  EXPECT_EQ(recorder.detections()[0].slot0Frame, 7);
  EXPECT_EQ(recorder.detections()[0].slot1Frame, 8);
}

TEST_F(CalcTest, EveryFrameModeIsNotHeldByThePause) {
  SensorRig rig(13);
  rig.bringUp();
  FrameSpec open;
  open.aeDetectCycle = 1;
  FrameSpec closed = open;
  closed.flkEnable = 0;
  DetectRecorder recorder;
  rig.frames(4, open);
  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(rig.frame(closed), -1);
  EXPECT_EQ(rig.frame(open), 0);  // restarts at once: first frame again
  EXPECT_EQ(rig.frame(open), 0);
  ASSERT_TRUE(recorder.waitFor(2));
  rig.shutDown();
  const auto seen = recorder.detections();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[1].slot0Frame, 6);
  EXPECT_EQ(seen[1].slot1Frame, 7);
}

TEST_F(CalcTest, AeTakesOverAndGivesUpTheCycle) {
  SensorRig rig(14);
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_50HZ), false);
  rig.mgr().SetParam(makeInput(FLICKER_MODE_AUTO));
  ASSERT_EQ(FlickerMgr::flickerState(), 50);
  fp::clearAlgoCalls();
  DetectRecorder recorder;
  FrameSpec ae;
  ae.aeDetectCycle = 3;
  FrameSpec own;

  rig.frames(2, ae);
  rig.frame(ae);  // frame 3: AE takes over
  // The algorithm forgets the state and restarts from the opposite frequency.
  EXPECT_EQ(codes(FLK_CMD_SET_STATE), (std::vector<int32_t>{FLK_FREQ_NONE}));
  EXPECT_EQ(codes(FLK_CMD_RESET_QUEUE), (std::vector<int32_t>{FLK_FREQ_60HZ}));
  rig.frames(5, ae);
  ASSERT_TRUE(recorder.waitFor(1));
  rig.frame(ae);  // frame 6, position 0: arms a pair that AE then abandons

  fp::setDetectFrequency(4);
  rig.frame(own);  // frame 7: AE gives up, the product's cycle 4 from position 0
  EXPECT_EQ(codes(FLK_CMD_SET_STATE), (std::vector<int32_t>{FLK_FREQ_NONE, FLK_FREQ_50HZ}));
  rig.frames(9, own);
  ASSERT_TRUE(recorder.waitFor(2));
  FrameSpec wrong;
  wrong.aeDetectCycle = -1;
  EXPECT_EQ(rig.frame(wrong), 0);  // frame 10, position 3: reported, cycle unchanged
  EXPECT_TRUE(fp::logged("wrong ae detection cycle(-1)."));
  rig.frames(13, own);
  ASSERT_TRUE(recorder.waitFor(3));
  rig.shutDown();

  const auto seen = recorder.detections();
  ASSERT_EQ(seen.size(), 3u);
  const Pair expect[] = {{4, 5}, {8, 9}, {12, 13}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(seen[i].slot0Frame, expect[i].slot0);
    EXPECT_EQ(seen[i].slot1Frame, expect[i].slot1);
  }
}

TEST_F(CalcTest, ProductCycleZeroIsReportedNotUsed) {
  SensorRig rig(19);
  rig.bringUp();
  FrameSpec ae;
  ae.aeDetectCycle = 5;
  rig.frames(3, ae);
  fp::setDetectFrequency(0);  // taken as it comes when AE gives up
  EXPECT_EQ(rig.frame(FrameSpec()), 0);
  EXPECT_TRUE(fp::logged("invalid detection cycle(0)."));
  rig.shutDown();
}

TEST_F(CalcTest, WarmUpDetachedAndFixedModes) {
  SensorRig rig(18);
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_AUTO, 0, 0, 0));  // not master
  EXPECT_EQ(rig.frame(), -1);
  EXPECT_TRUE(fp::logged("SensorIdx(18) skip, not attached."));
  rig.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 0, 0, 1));
  // The refused frame was not counted: two warm-up frames follow.
  EXPECT_EQ(rig.frames(4), (std::vector<int>{-1, -1, 0}));
  EXPECT_TRUE(fp::logged("skip, not enough frame(1)."));
  EXPECT_TRUE(fp::logged("skip, not enough frame(2)."));

  // Mode 0 (no fixed frequency, no detection) without an AE cycle collects
  // nothing; Start restarts the warm-up.
  rig.mgr().SetParam(makeInput(0));
  rig.mgr().Start(flicker_start_info{});
  fp::clearAlgoCalls();
  EXPECT_EQ(rig.frames(8), (std::vector<int>{-1, -1, 0, 0}));
  EXPECT_TRUE(fp::algoCalls().empty());
  rig.shutDown();
}

TEST_F(CalcTest, StateIsSharedBetweenSensors) {
  FlickerMgr* a = FlickerMgr::GetInstance(16);
  FlickerMgr* b = FlickerMgr::GetInstance(17);
  std::vector<uint8_t> out;
  a->SetParam(makeInput(FLICKER_MODE_60HZ, 0, 0, 2));
  b->GetResult(&out);
  EXPECT_EQ(out[4], FLICKER_RESULT_60HZ);
  a->SetParam(makeInput(FLICKER_MODE_50HZ, 0, 0, 2));
  b->GetResult(&out);
  EXPECT_EQ(out[4], FLICKER_RESULT_50HZ);
}

// ---- Automatic state switch ----

constexpr int kUnset = -99;

struct SwitchRow {
  const char* what;
  int initialMode;  // 1 forces 50 Hz first, 2 forces 60 Hz
  bool automatic;   // then mode 3; otherwise the fixed mode stays, AE drives a cycle
  int32_t code;     // the algorithm's answer
  int switchProperty;
  int32_t expectState;
  const char* expectLog;  // null: no state change is logged
};

const SwitchRow kSwitchRows[] = {
    {"60 Hz, 50 Hz detected", 2, true, FLK_FREQ_50HZ, kUnset, 50, "state change(60->50)."},
    {"50 Hz, 60 Hz detected", 1, true, FLK_FREQ_60HZ, kUnset, 60, "state change(50->60)."},
    {"60 Hz confirmed", 2, true, FLK_FREQ_60HZ, kUnset, 60, nullptr},
    {"50 Hz confirmed", 1, true, FLK_FREQ_50HZ, kUnset, 50, nullptr},
    {"no decision", 2, true, FLK_FREQ_NONE, kUnset, 60, nullptr},
    {"frozen by the property", 2, true, FLK_FREQ_50HZ, 0, 60,
     "flicker state not changed due to property fixed"},
    {"property 1 does not freeze", 1, true, FLK_FREQ_60HZ, 1, 60, "state change(50->60)."},
    {"fixed mode ignores detection", 1, false, FLK_FREQ_60HZ, kUnset, 50, nullptr},
};

class SwitchTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(SwitchTest, MovesTheProcessWideState) {
  const SwitchRow& row = kSwitchRows[GetParam()];
  SCOPED_TRACE(row.what);
  if (row.switchProperty != kUnset)
    fp::setProperty("vendor.debug.flk_switch_en", row.switchProperty);
  fp::scriptDetectResults({{row.code, 5, 6}});
  SensorRig rig(15);  // rows share the instance: each forces its own state
  rig.bringUp(makeConfig(), makeInput(row.initialMode, 1));
  if (row.automatic)
    rig.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 1));
  fp::clearLogs();
  fp::clearAlgoCalls();
  DetectRecorder recorder;
  FrameSpec spec;
  spec.aeDetectCycle = row.automatic ? 0 : 3;
  rig.frames(4, spec);  // type 1: frames 3 and 4 form the pair
  ASSERT_TRUE(recorder.waitFor(1));
  ASSERT_TRUE(rig.mgr().Stop());  // the analysis has ended when the worker is joined

  EXPECT_EQ(FlickerMgr::flickerState(), row.expectState);
  if (row.expectLog != nullptr) {
    EXPECT_TRUE(fp::logged(row.expectLog));
  }
  const int32_t initialState = row.initialMode == FLICKER_MODE_60HZ ? 60 : 50;
  const bool changed = row.expectState != initialState;
  EXPECT_EQ(fp::countLogged("state change("), changed ? 1 : 0);
  if (changed) {
    // The algorithm is told the new state and restarts its history from it.
    const int32_t code = row.expectState == 60 ? FLK_FREQ_60HZ : FLK_FREQ_50HZ;
    EXPECT_EQ(codes(FLK_CMD_SET_STATE), std::vector<int32_t>{code});
    EXPECT_EQ(codes(FLK_CMD_RESET_QUEUE), std::vector<int32_t>{code});
  }
  std::vector<uint8_t> out;
  rig.mgr().GetResult(&out);
  EXPECT_EQ(out[12], 5);  // score 50
  EXPECT_EQ(out[16], 6);  // score 60
  rig.mgr().Uninit();
}

INSTANTIATE_TEST_SUITE_P(Rows, SwitchTest,
                         ::testing::Range(0, static_cast<int>(sizeof(kSwitchRows) /
                                                              sizeof(kSwitchRows[0]))));

// ---- Report line ----

struct ReportRow {
  int mode;  // fixes the state: 1 -> 50 Hz, 2 -> 60 Hz
  int32_t exposure;
  bool tooShort;
};

// 9801 us is the shortest exposure counted as long at 50 Hz, 8201 us at 60 Hz.
const ReportRow kReportRows[] = {
    {FLICKER_MODE_50HZ, 9800, true},
    {FLICKER_MODE_50HZ, 9801, false},
    {FLICKER_MODE_60HZ, 8200, true},
    {FLICKER_MODE_60HZ, 8201, false},
};

class ReportTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReportTest, ExposureThresholdSelectsTheLine) {
  const ReportRow& row = kReportRows[GetParam()];
  SensorRig rig(11);
  rig.bringUp(makeConfig(), makeInput(row.mode, 1));
  DetectRecorder recorder;
  FrameSpec spec;
  spec.aeDetectCycle = 3;
  spec.exposureTime = row.exposure;
  rig.frames(4, spec);
  ASSERT_TRUE(recorder.waitFor(1));
  ASSERT_TRUE(rig.mgr().Stop());
  const std::string exposure = "ExposureTime(" + std::to_string(row.exposure) + ")";
  EXPECT_EQ(fp::logged(exposure + " too short"), row.tooShort);
  EXPECT_EQ(fp::logged(exposure + ", AEDetectCycle(3)"), !row.tooShort);
  rig.mgr().Uninit();
}

INSTANTIATE_TEST_SUITE_P(Rows, ReportTest, ::testing::Range(0, 4));

// ---- Re-initialisation of the algorithm ----

struct ReinitRow {
  const char* what;
  FrameSpec second;  // the frame that completes the pair
  bool reinit;
};

FrameSpec withWidth(int32_t w) {
  FrameSpec s;
  s.width = w;
  return s;
}
FrameSpec withHeight(int32_t h) {
  FrameSpec s;
  s.height = h;
  return s;
}
FrameSpec withPixelMode(int32_t m) {
  FrameSpec s;
  s.pixelMode = m;
  return s;
}
FrameSpec withReinit() {
  FrameSpec s;
  s.needReinit = 1;
  return s;
}

const ReinitRow kReinitRows[] = {
    {"same size", FrameSpec(), false},
    {"width", withWidth(1300), true},
    {"height", withHeight(400), true},
    {"pixel mode halves the width", withPixelMode(1), true},
    {"pixel mode 32 shifts by 0", withPixelMode(32), false},
    {"requested by the caller", withReinit(), true},
};

class ReinitTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReinitTest, SizeChangeReinitialisesAtTheIntake) {
  const ReinitRow& row = kReinitRows[GetParam()];
  SCOPED_TRACE(row.what);
  SensorRig rig(10);
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_AUTO, 1));
  rig.frames(3);  // frame 3 sets the algorithm up
  fp::clearAlgoCalls();
  rig.frame(row.second);
  EXPECT_EQ(fp::algoCalls(FLK_CMD_UNINIT).size(), row.reinit ? 1u : 0u);
  EXPECT_EQ(fp::algoCalls(FLK_CMD_INIT).size(), row.reinit ? 1u : 0u);
  rig.shutDown();
}

INSTANTIATE_TEST_SUITE_P(Rows, ReinitTest,
                         ::testing::Range(0, static_cast<int>(sizeof(kReinitRows) /
                                                              sizeof(kReinitRows[0]))));

}  // namespace
