// The per-frame calculation end to end: which frames are collected into which
// statistics slot, when the worker is woken, the pause, AE taking over and
// giving up the cycle, the automatic state switch with its report line, and
// the re-initialisation at a size change.
//
// Every detection is observed inside the fake algorithm: the frame ids found
// in the two statistics buffers and the frame interval of the record. The
// trace waits for each expected detection before sending the next frame.
#include <algorithm>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using CalcTest = ManagerTest;

struct Pair {
  int64_t slot0, slot1;  // frame ids in statistics buffers 1 and 2
};

// A trace row sends one frame per character of `frames`:
//   '.' detection asked, own cycle   'q' AE not asking (doFlkDetection 0)
//   'x' gate closed (flkEnable 0)    '1'..'9' AE's cycle   '-' AE cycle -1
// Start gives frame-rate type 1; without it the type keeps its initial 0. The
// state is forced to 50 Hz before the mode is set, so the commands that AE's
// take-over (state 0, queue reset to 60) and give-up (state 50) send show.
struct TraceRow {
  const char* what;
  int custFrequency;  // the product's detection cycle, read at construction and at AE's give-up
  int sensorType;
  bool start;
  const char* frames;
  std::vector<Pair> expect;
  std::vector<int32_t> setState{};    // codes of the state commands
  std::vector<int32_t> resetQueue{};  // codes of the queue resets
  const char* log = nullptr;
  int mode = FLICKER_MODE_AUTO;
};

const std::vector<int32_t> kTakeOver{FLK_FREQ_NONE};
const std::vector<int32_t> kTakeOverAndBack{FLK_FREQ_NONE, FLK_FREQ_50HZ};
const std::vector<int32_t> kQueue60{FLK_FREQ_60HZ};

const TraceRow kTraceRows[] = {
    // Positions 0 and 1 each arm a first frame, 2 completes, 3 idles.
    {"cycle 4, type 0, no Start", 4, 0, false, ".............", {{4, 5}, {8, 9}, {12, 13}}},
    // Both positions re-arm: every frame is a first frame, no wake-up ever.
    {"cycle 2, type 0, no Start", 2, 0, false, "..........", {}},
    // A product cycle of 1 is raised to 2; the second type pairs positions 0, 1.
    {"cycle 1 raised to 2, type 1, no Start", 1, 1, false, "........", {{3, 4}, {5, 6}, {7, 8}}},
    {"cycle 4, type 1, no Start", 4, 1, false, "............", {{3, 4}, {7, 8}, {11, 12}}},
    {"cycle 3, type 1, rate type 1", 3, 1, true, "..........", {{3, 4}, {6, 7}, {9, 10}}},
    // Rate type 1: AE's request arms a pair whenever none is in progress.
    {"cycle 3, type 0, rate type 1, AE asks", 3, 0, true, "........", {{3, 4}, {5, 6}, {7, 8}}},
    {"cycle 3, type 0, rate type 1, AE quiet", 3, 0, true, "qqqqqqqq", {}},
    // Every frame: the buffer slot follows the cycle position, every frame
    // after the first completes a pair.
    {"every frame, type 0, no Start",
     3,
     0,
     false,
     "1111111",
     {{3, 4}, {5, 4}, {5, 6}, {7, 6}},
     kTakeOver,
     kQueue60},
    {"every frame, type 1, rate type 1",
     3,
     1,
     true,
     "1111111",
     {{3, 4}, {5, 4}, {5, 6}, {7, 6}},
     kTakeOver,
     kQueue60},
    // AE's cycle behaves like the product's own, starting at its take-over.
    {"AE cycle 4, type 0, no Start",
     3,
     0,
     false,
     "444444444",
     {{4, 5}, {8, 9}},
     kTakeOver,
     kQueue60},
    {"AE cycle 2, type 1, rate type 1",
     3,
     1,
     true,
     "222222",
     {{3, 4}, {5, 6}},
     kTakeOver,
     kQueue60},
    // A closed gate with rate type 1 pauses until AE drops its request.
    {"pause", 3, 0, true, "..x..q..", {{7, 8}}},
    // Every-frame mode is not held by the pause: it restarts with a first frame.
    {"every frame after a closed gate",
     3,
     0,
     true,
     "1111x11",
     {{3, 4}, {6, 7}},
     kTakeOver,
     kQueue60},
    // AE takes over at frame 3 and gives up at 7 (frame 6 arms a pair it
    // abandons); the product's cycle 4 restarts at position 0; a negative AE
    // cycle at position 3 is reported and changes nothing.
    {"AE takes over and gives up",
     4,
     0,
     false,
     "333333...-...",
     {{4, 5}, {8, 9}, {12, 13}},
     kTakeOverAndBack,
     kQueue60,
     "wrong ae detection cycle(-1)."},
    // The product's cycle read at AE's give-up is taken as it comes: 0 stops.
    {"product cycle 0 at give-up",
     0,
     0,
     true,
     "555.",
     {},
     kTakeOverAndBack,
     kQueue60,
     "invalid detection cycle(0)."},
    {"mode 0 (no fixed frequency, no detection) collects nothing",
     3,
     0,
     true,
     "........",
     {},
     {},
     {},
     nullptr,
     0},
};

FrameSpec specFor(char c) {
  FrameSpec spec;
  spec.doFlkDetection = c != 'q';
  spec.flkEnable = c != 'x';
  spec.aeDetectCycle = c == '-' ? -1 : (c >= '1' && c <= '9' ? c - '0' : 0);
  return spec;
}

class TraceTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(TraceTest, CollectsPairsAndWakesTheWorker) {
  const TraceRow& row = kTraceRows[GetParam()];
  SCOPED_TRACE(row.what);
  fp::setDetectFrequency(row.custFrequency);
  SensorRig rig(GetParam());  // a fresh instance per row: the cycle is read at construction
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_50HZ, row.sensorType), row.start);
  rig.mgr().SetParam(makeInput(row.mode, row.sensorType));
  fp::clearAlgoCalls();
  DetectRecorder recorder;
  for (int n = 1; row.frames[n - 1] != '\0'; ++n) {
    rig.frame(specFor(row.frames[n - 1]));
    const auto due = std::count_if(row.expect.begin(), row.expect.end(),
                                   [n](const Pair& p) { return std::max(p.slot0, p.slot1) <= n; });
    ASSERT_TRUE(recorder.waitFor(due)) << "detection " << due << " missing after frame " << n;
  }
  rig.shutDown();
  const auto seen = recorder.detections();
  ASSERT_EQ(seen.size(), row.expect.size());
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].slot0, row.expect[i].slot0) << "detection " << i;
    EXPECT_EQ(seen[i].slot1, row.expect[i].slot1) << "detection " << i;
    // Exposure starts of the two frames, from their timestamp slots: always
    // neighbouring frames here.
    EXPECT_EQ(seen[i].intervalFrames, 1) << "detection " << i;
    EXPECT_EQ(seen[i].exposure, kExposureUs);
  }
  EXPECT_EQ(codes(FLK_CMD_SET_STATE), row.setState);
  EXPECT_EQ(codes(FLK_CMD_RESET_QUEUE), row.resetQueue);
  EXPECT_TRUE(row.log == nullptr || fp::logged(row.log)) << row.log;
}
MGR_ROWS(TraceTest, kTraceRows);

// ---- Automatic state switch and the report line ----

constexpr int kUnset = -99;

struct SwitchRow {
  const char* what;
  int initialMode;  // 1 forces 50 Hz first, 2 forces 60 Hz
  bool automatic;   // then mode 3; otherwise the fixed mode stays, AE drives a cycle
  int32_t code;     // the algorithm's answer
  int switchProperty;
  int32_t expectState;
  int32_t exposure;  // 9801 us is the shortest counted as long at 50 Hz, 8201 us at 60 Hz
  bool tooShort;     // which report line
};

const SwitchRow kSwitchRows[] = {
    {"60 Hz, 50 Hz detected", 2, true, FLK_FREQ_50HZ, kUnset, 50, 9800, true},
    {"50 Hz, 60 Hz detected", 1, true, FLK_FREQ_60HZ, kUnset, 60, 8201, false},
    {"60 Hz confirmed", 2, true, FLK_FREQ_60HZ, kUnset, 60, 8200, true},
    {"50 Hz confirmed", 1, true, FLK_FREQ_50HZ, kUnset, 50, 9801, false},
    {"no decision", 2, true, FLK_FREQ_NONE, kUnset, 60, kExposureUs, false},
    {"frozen by the property", 2, true, FLK_FREQ_50HZ, 0, 60, kExposureUs, false},
    {"property 1 does not freeze", 1, true, FLK_FREQ_60HZ, 1, 60, kExposureUs, false},
    {"fixed mode ignores detection", 1, false, FLK_FREQ_60HZ, kUnset, 50, kExposureUs, false},
};

class SwitchTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(SwitchTest, MovesTheProcessWideState) {
  const SwitchRow& row = kSwitchRows[GetParam()];
  SCOPED_TRACE(row.what);
  if (row.switchProperty != kUnset)
    fp::setProperty("vendor.debug.flk_switch_en", row.switchProperty);
  fp::scriptDetectResults({{row.code, 5, 6}});
  SensorRig rig(17);  // rows share the instance: each forces its own state
  rig.bringUp(makeConfig(), makeInput(row.initialMode, 1));
  if (row.automatic)
    rig.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, 1));
  fp::clearLogs();
  fp::clearAlgoCalls();
  DetectRecorder recorder;
  FrameSpec spec;
  spec.aeDetectCycle = row.automatic ? 0 : 3;
  spec.exposureTime = row.exposure;
  rig.frames(4, spec);  // type 1: frames 3 and 4 form the pair
  ASSERT_TRUE(recorder.waitFor(1));
  ASSERT_TRUE(rig.mgr().Stop());  // the analysis has ended when the worker is joined

  EXPECT_EQ(FlickerMgr::flickerState(), row.expectState);
  const int32_t initialState = row.initialMode == FLICKER_MODE_60HZ ? 60 : 50;
  const bool changed = row.expectState != initialState;
  const std::string change = "state change(" + std::to_string(initialState) + "->";
  EXPECT_EQ(fp::countLogged(change + std::to_string(row.expectState) + ")."), changed ? 1 : 0);
  EXPECT_EQ(fp::logged("flicker state not changed due to property fixed"), row.switchProperty == 0);
  // The algorithm is told a new state and restarts its history from it; in
  // the fixed mode AE's take-over sends its own pair first.
  std::vector<int32_t> state, queue;
  if (!row.automatic) {
    state.push_back(FLK_FREQ_NONE);
    queue.push_back(FLK_FREQ_60HZ);
  }
  if (changed) {
    state.push_back(row.expectState == 60 ? FLK_FREQ_60HZ : FLK_FREQ_50HZ);
    queue.push_back(state.back());
  }
  EXPECT_EQ(codes(FLK_CMD_SET_STATE), state);
  EXPECT_EQ(codes(FLK_CMD_RESET_QUEUE), queue);
  const std::string exposure = "ExposureTime(" + std::to_string(row.exposure) + ")";
  EXPECT_EQ(fp::logged(exposure + " too short"), row.tooShort);
  EXPECT_EQ(fp::logged(exposure + ", AEDetectCycle(" + std::to_string(spec.aeDetectCycle) + ")"),
            !row.tooShort);
  // Scores of the analysis; the state is the process's, seen by any sensor.
  EXPECT_EQ(word(result(rig.mgr()), 3), 5);
  EXPECT_EQ(word(result(rig.mgr()), 4), 6);
  EXPECT_EQ(word(result(*FlickerMgr::GetInstance(19)), 1),
            row.expectState == 60 ? FLICKER_RESULT_60HZ : FLICKER_RESULT_50HZ);
  rig.mgr().Uninit();
}
MGR_ROWS(SwitchTest, kSwitchRows);

// ---- Re-initialisation of the algorithm ----

struct ReinitRow {
  const char* what;
  int32_t FrameSpec::*field;  // changed in the frame after the set-up
  int32_t value;
  bool reinit;
};

const ReinitRow kReinitRows[] = {
    {"same size", &FrameSpec::width, 1200, false},
    {"width", &FrameSpec::width, 1300, true},
    {"height", &FrameSpec::height, 400, true},
    {"pixel mode halves the width", &FrameSpec::pixelMode, 1, true},
    {"pixel mode 32 shifts by 0", &FrameSpec::pixelMode, 32, false},
    {"requested by the caller", &FrameSpec::needReinit, 1, true},
};

class ReinitTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReinitTest, SizeChangeReinitialisesAtTheIntake) {
  const ReinitRow& row = kReinitRows[GetParam()];
  SCOPED_TRACE(row.what);
  SensorRig rig(18);
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_AUTO, 1));
  rig.frames(3);  // frame 3 sets the algorithm up
  fp::clearAlgoCalls();
  FrameSpec spec;
  spec.*row.field = row.value;
  rig.frame(spec);  // type 1: frame 4 is collected
  EXPECT_EQ(fp::algoCalls(FLK_CMD_UNINIT).size(), row.reinit ? 1u : 0u);
  EXPECT_EQ(fp::algoCalls(FLK_CMD_INIT).size(), row.reinit ? 1u : 0u);
  rig.shutDown();
}
MGR_ROWS(ReinitTest, kReinitRows);

}  // namespace
