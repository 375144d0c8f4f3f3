// The per-frame calculation end to end: which frames are collected into which
// statistics slot, when the worker is woken, the pause, AE taking over and
// giving up the cycle and the re-initialisation at a size change (the
// analysis moving the state is flicker_analysis_test.cpp's, and end to end
// the closed-loop runs' in tests/tools).
//
// Every detection is observed inside the fake algorithm: the frame ids found
// in the two statistics buffers and the frame interval of the record. The
// trace waits for each expected detection before sending the next frame.
#include <algorithm>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
using CalcTest = ManagerTest;

// A trace row sends one frame per character of `frames`:
//   '.' detection asked, own cycle   'q' AE not asking (doFlkDetection 0)
//   'x' gate closed (flkEnable 0)    '1'..'9' AE's cycle   '-' AE cycle -1
//   'w' width 1300, 'h' height 400, 'p' pixel mode 1 (half width), 'P' pixel
//   mode 32 (shift by 0), 'r' re-initialisation asked
// Start gives frame-rate type 1; without it the type keeps its initial 0. The
// state is forced to 50 Hz before the mode is set, so that AE's take-over
// (state 0 and queue reset to 60) and give-up (state 50) show in the commands.
enum AeSwitch { kNone, kTakeOver, kAndBack };

struct TraceRow {
  const char* what;
  int custFrequency, sensorType;  // the product's cycle, read at construction and at give-up
  bool start;
  const char* frames;
  std::vector<std::pair<int64_t, int64_t>> expect;  // frame ids in statistics buffers 1 and 2
  AeSwitch ae;
  int inits;  // algorithm set-ups: the first intake, then one per size change
};

// clang-format off
const TraceRow kTraceRows[] = {
    // Own cycle 4, type 0: positions 0 and 1 each arm a first frame, 2
    // completes, 3 idles (the cycle's own rules are in its table test; here
    // the frames the algorithm finds in its buffers and the pair's interval).
    {"c4 t0", 4, 0, false, ".............", {{4, 5}, {8, 9}, {12, 13}}, kNone, 1},
    // Start fetches the frame-rate type: AE's request arms a pair.
    {"c3 t0 rate 1", 3, 0, true, "........", {{3, 4}, {5, 6}, {7, 8}}, kNone, 1},
    // Every frame: the buffer slot follows the cycle position, every frame
    // after the first completes a pair.
    {"every frame t0", 3, 0, false, "1111111", {{3, 4}, {5, 4}, {5, 6}, {7, 6}}, kTakeOver, 1},
    // A closed gate with rate type 1 pauses until AE drops its request.
    {"pause", 3, 0, true, "..x..q..", {{7, 8}}, kNone, 1},
    // AE takes over at frame 3 and gives up at 7; a negative AE cycle is
    // reported.
    {"AE gives up", 4, 0, false, "333333...-...", {{4, 5}, {8, 9}, {12, 13}}, kAndBack, 1},
    // The product's cycle read at AE's give-up is taken as it comes: 0 stops.
    {"c0 at give-up", 0, 0, true, "555.", {}, kAndBack, 1},
    // A size change or a request re-initialises the algorithm at the intake.
    {"width", 3, 1, true, "...w", {{3, 4}}, kNone, 2},
    {"height", 3, 1, true, "...h", {{3, 4}}, kNone, 2},
    {"pixel mode 1", 3, 1, true, "...p", {{3, 4}}, kNone, 2},
    {"pixel mode 32", 3, 1, true, "...P", {{3, 4}}, kNone, 1},
    {"requested", 3, 1, true, "...r", {{3, 4}}, kNone, 2},
};
// clang-format on

FrameSetup paramsFor(char c) {
  FrameSetup params;
  params.doFlkDetection = c != 'q';
  params.flkEnable = c != 'x';
  params.aeDetectCycle = c == '-' ? -1 : (c >= '1' && c <= '9' ? c - '0' : 0);
  params.width = c == 'w' ? 1300 : params.width;
  params.height = c == 'h' ? 400 : params.height;
  params.pixelMode = c == 'p' ? 1 : (c == 'P' ? 32 : 0);
  params.needReinit = c == 'r';
  return params;
}

class TraceTest : public CalcTest, public ::testing::WithParamInterface<int> {};

TEST_P(TraceTest, CollectsPairsAndWakesTheWorker) {
  const TraceRow& row = kTraceRows[GetParam()];
  SCOPED_TRACE(row.what);
  fp::setDetectFrequency(row.custFrequency);
  // A fresh instance per row: the cycle is read at construction.
  SensorRig rig(GetParam());
  rig.bringUp(makeConfig(), makeInput(FLICKER_MODE_50HZ, row.sensorType), row.start);
  rig.mgr().SetParam(makeInput(FLICKER_MODE_AUTO, row.sensorType));
  fp::clearAlgoCalls();
  DetectRecorder recorder;
  for (int n = 1; row.frames[n - 1] != '\0'; ++n) {
    rig.frame(paramsFor(row.frames[n - 1]));
    const auto due = std::count_if(row.expect.begin(), row.expect.end(),
                                   [n](const auto& p) { return std::max(p.first, p.second) <= n; });
    ASSERT_TRUE(recorder.waitFor(due)) << "detection " << due << " missing after frame " << n;
  }
  rig.shutDown();
  std::vector<std::pair<int64_t, int64_t>> slots;
  for (const Detection& d : recorder.detections()) {
    slots.emplace_back(d.slot0, d.slot1);
    // The frame interval comes from the timestamp slots of the two frames:
    // always neighbouring frames here.
    EXPECT_EQ(d.intervalFrames, 1) << "detection " << slots.size();
  }
  EXPECT_EQ(slots, row.expect);
  const std::vector<int32_t> states[] = {{}, {FLK_FREQ_NONE}, {FLK_FREQ_NONE, FLK_FREQ_50HZ}};
  EXPECT_EQ(codes(FLK_CMD_SET_STATE), states[row.ae]);
  EXPECT_EQ(codes(FLK_CMD_RESET_QUEUE),
            row.ae == kNone ? states[0] : std::vector<int32_t>{FLK_FREQ_60HZ});
  EXPECT_EQ(fp::algoCalls(FLK_CMD_INIT).size(), static_cast<size_t>(row.inits));
}
MGR_ROWS(TraceTest, kTraceRows);

}  // namespace
