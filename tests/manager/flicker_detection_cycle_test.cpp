// The detection cycle as tables of frames: which frames are taken into which
// slot, which complete a pair, when the frame-rate flag moves, and what AE's
// requests change. No threads, no adapter, no manager.
#include "flicker_detection_cycle.h"

#include <gtest/gtest.h>

#include <string>

#include "fake_platform.h"

namespace {

namespace fp = fake_platform;
using Cycle = FlickerDetectionCycle;

int g_productCycle = 3;
int productCycle() {
  return g_productCycle;
}

// A frame per character:
//   '.' detection asked   'q' AE not asking (doFlkDetection 0)
//   'x' gate closed (flkEnable 0)   's' statistics not valid
//   '1'..'9' AE's cycle   '-' AE's cycle -1   'R' restart (Start)
FlickerCycleFrame frameFor(char c) {
  FlickerCycleFrame f;
  f.doFlkDetection = c != 'q';
  f.flkEnable = c != 'x';
  f.statValid = c != 's';
  f.aeDetectCycle = c == '-' ? -1 : (c >= '1' && c <= '9' ? c - '0' : 0);
  return f;
}

// What each frame does, one token per frame:
//   'w<n>' the n-th warm-up frame since (re)start, '-' not admitted;
//   'T' / 'G' AE took the cycle over / gave it up (then the plan);
//   'F<b><t>' first frame of a pair into buffer slot b with its exposure start
//   in timestamp slot t, 'P<b><t>' the frame that completes a pair,
//   '.' nothing taken, '!' no valid cycle, 'R' restart;
//   then '^' / 'v' the frame-rate flag set / cleared, 'c' the scores stale.
std::string run(Cycle* cycle, const FlickerCycleContext& context, const char* frames) {
  std::string out;
  for (const char* c = frames; *c != '\0'; ++c) {
    if (!out.empty())
      out += ' ';
    if (*c == 'R') {
      cycle->restart();
      out += 'R';
      continue;
    }
    const FlickerCycleFrame frame = frameFor(*c);
    const Cycle::Admission a = cycle->admit(frame, context);
    std::optional<bool> rate = a.frameRateActive;
    bool stale = false;
    if (a.warmUpFrame > 0) {
      out += 'w' + std::to_string(a.warmUpFrame);
    } else if (!a.admitted) {
      out += '-';
    } else {
      out += a.ae == Cycle::AeChange::kTakeOver ? "T" : a.ae == Cycle::AeChange::kGiveUp ? "G" : "";
      const Cycle::Plan p = cycle->plan(frame, context);
      if (p.invalidCycle.has_value()) {
        out += '!';
      } else if (p.take) {
        out += (p.pairComplete ? "P" : "F") + std::to_string(p.bufferSlot) +
               std::to_string(p.timestampSlot);
      } else {
        out += '.';
      }
      rate = p.frameRateActive;
      stale = p.clearScoreActive;
    }
    if (rate.has_value())
      out += *rate ? '^' : 'v';
    if (stale)
      out += 'c';
  }
  return out;
}

constexpr auto kRate0 = FLK_DECREASE_FRAME_RATE_NONE;
constexpr auto kRate1 = FLK_DECREASE_FRAME_RATE_DETECT;

struct Row {
  const char* what;
  int productCycle;
  FlickerCycleContext context;  // sensor type, frame-rate type, automatic mode
  const char* frames;
  const char* expect;
};

// clang-format off
const Row kRows[] = {
    // Positions 0 and 1 each arm a first frame, 2 completes the pair, 3 idles.
    {"cycle 4", 4, {0, kRate0, true}, ".............",
     "w1 w2 F00 F00 P11 . F00 F00 P11 . F00 F00 P11"},
    // Cycle 2: both positions re-arm, so no pair ever completes.
    {"cycle 2 never completes", 2, {0, kRate0, true}, "......", "w1 w2 F00 F00 F00 F00"},
    // A product cycle of 1 is raised to 2; the other sensor type pairs 0 and 1.
    {"cycle 1 raised, type 1", 1, {1, kRate0, true}, "......", "w1 w2 F00 P11 F00 P11"},
    {"cycle 3, type 1", 3, {1, kRate0, true}, "........", "w1 w2 F00 P11 . F00 P11 ."},
    // Rate type 1: AE's request arms a pair whenever none is collecting; the
    // flag is up at positions 0 and 1 and down at 2.
    {"rate type 1", 3, {0, kRate1, true}, "........", "w1 w2 F00^ P11^ F00v P11^ F00^ P11v"},
    {"rate type 1, AE quiet", 3, {0, kRate1, true}, "qqqqqq", "w1 w2 .^ .^ .v .^"},
    // The gate: closed by the enable flag, or by invalid statistics on type 0
    // only; with rate type 0 nothing is held.
    {"gate", 3, {0, kRate0, true}, "..x.s..", "w1 w2 - F00 - F00 F00"},
    {"invalid statistics pass on type 1", 3, {1, kRate0, true}, "..ss", "w1 w2 F00 P11"},
    // With rate type 1 a closed gate pauses until AE drops its request.
    {"pause", 3, {0, kRate1, true}, "..x..q..", "w1 w2 -v - - .^ F00^ P11v"},
    // Every frame (AE's cycle 1): the buffer slot follows the position, the
    // timestamp slot the toggle, and every frame after the first completes a
    // pair. The pause does not hold every-frame mode.
    {"every frame", 3, {0, kRate0, true}, "1111111", "w1 w2 TF00^c P11^c P00^c P11^c P00^c"},
    {"every frame after a closed gate", 3, {0, kRate1, true}, "1111x11",
     "w1 w2 TF00^c P11^c -v F00^c P11^c"},
    // AE takes over at frame 3 and gives up at 7; the product's cycle 4
    // restarts at position 0; a negative AE cycle changes nothing.
    {"AE takes over and gives up", 4, {0, kRate0, true}, "333333...-...",
     "w1 w2 TF00c F00c P11c F00c GF00 F00 P11 . F00 F00 P11"},
    // A new AE cycle restarts the position without a take-over.
    {"AE changes its cycle", 3, {0, kRate0, true}, "4444333", "w1 w2 TF00c F00c F00c F00c P11c"},
    // The product's cycle read at AE's give-up is taken as it comes: 0 cannot run.
    {"product cycle 0 at give-up", 0, {0, kRate1, true}, "555.", "w1 w2 TF00^c G!"},
    // Fixed modes collect nothing unless AE drives a cycle.
    {"fixed mode", 3, {0, kRate0, false}, ".....", "w1 w2 . . ."},
    {"fixed mode, AE's cycle", 3, {0, kRate0, false}, "33333", "w1 w2 TF00c F00c P11c"},
    // Start: warm-up and position begin anew; the armed pair starts over.
    {"restart", 4, {0, kRate0, true}, "....R.....", "w1 w2 F00 F00 R w1 w2 F00 F00 P11"},
};
// clang-format on

class DetectionCycleTest : public ::testing::TestWithParam<int> {};

TEST_P(DetectionCycleTest, FramesDoWhatTheCycleSays) {
  const Row& row = kRows[GetParam()];
  fp::reset();
  g_productCycle = row.productCycle;
  std::atomic<bool> toggle{false};
  Cycle cycle(productCycle, &toggle);
  EXPECT_EQ(run(&cycle, row.context, row.frames), row.expect) << row.what;
}
INSTANTIATE_TEST_SUITE_P(Rows, DetectionCycleTest,
                         ::testing::Range(0, static_cast<int>(std::size(kRows))));

// The every-frame toggle is shared by the sensors that share it (the manager
// shares one across all): a second sensor's frames move the first one's
// timestamp slots, while each one's buffer slots follow its own position.
TEST(DetectionCycleSharedToggle, SensorsInterleaveTheirTimestampSlots) {
  fp::reset();
  g_productCycle = 3;
  std::atomic<bool> toggle{false};
  Cycle a(productCycle, &toggle), b(productCycle, &toggle);
  const FlickerCycleContext context{0, kRate0, true};
  std::string seen;
  for (int frame = 0; frame < 5; ++frame) {
    seen += run(&a, context, "1") + "|";
    seen += run(&b, context, "1") + " ";
  }
  EXPECT_EQ(seen, "w1|w1 w2|w2 TF00^c|TF00^c P11^c|P10^c P01^c|P00^c ");
}

// The pair's interval is the distance of the two exposure starts (start of
// frame less exposure), whichever slot is later, without overflow.
TEST(DetectionCyclePairInterval, DistanceOfTheExposureStarts) {
  struct Row {
    int64_t sof0;
    int32_t exposure0;
    int64_t sof1;
    int32_t exposure1;
    int64_t interval;
  } rows[] = {
      {1000, 10, 34000, 10, 33000},             // slot 1 later
      {34000, 10, 1000, 10, 33000},             // slot 0 later (every-frame mode)
      {1000, 500, 1000, 100, 400},              // the exposures count
      {INT64_MIN, 0, INT64_MAX, 0, INT64_MAX},  // saturated
      {INT64_MIN, 1, INT64_MIN, 0, INT64_MAX},  // a start that wraps lies at the far end
  };
  std::atomic<bool> toggle{false};
  Cycle cycle(productCycle, &toggle);
  for (const Row& row : rows) {
    cycle.noteExposureStart(0, row.sof0, row.exposure0);
    cycle.noteExposureStart(1, row.sof1, row.exposure1);
    EXPECT_EQ(cycle.pairInterval(), row.interval) << row.sof0 << " " << row.sof1;
  }
}

}  // namespace
