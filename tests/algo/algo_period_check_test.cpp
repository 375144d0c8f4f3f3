// Rectified LEDs under short exposures: the lamp is dark for part of every
// half cycle, so a frame is a pulse train whose harmonics are as strong as its
// fundamental. Over a 1920 x 1080 readout (1032 statistics lines of 12.5 us,
// 1.3 periods of 100 Hz) one sinusoid fit cannot tell 100 Hz from 120 Hz; the
// period of the difference can.
#include <gtest/gtest.h>

#include "algo_test_support.h"

namespace algo_test {
namespace {

constexpr int kShortWinW = 320, kShortWinH = 344, kShortLines = 3 * kShortWinH;
constexpr double kShortLineTime = 12.5e-6;
// The LED string conducts above this fraction of the rectified mains' peak.
constexpr double kLedThreshold = 0.6;
constexpr double kFps2997 = 1 / 29.97;  // freezes the 120 Hz phase

// Light of a rectified LED on `mainsHz` (0: steady) averaged over the
// exposure, by the midpoint rule, relative to its peak; dark for 41 % of
// every half cycle, about 0.32 on average.
double ledLight(double mainsHz, double t, double exposure, double threshold = kLedThreshold) {
  if (mainsHz <= 0) {
    return 0.32;
  }
  constexpr int kSteps = 48;
  double sum = 0.0;
  for (int i = 0; i < kSteps; ++i) {
    const double s = t + (i + 0.5) * exposure / kSteps;
    sum += std::max(0.0, std::fabs(std::sin(2 * kPi * mainsHz * s)) - threshold);
  }
  return sum / kSteps / (1.0 - threshold);
}

// Statistics of a 1920 x 1080 frame: six windows of 320 pixels, three rows.
std::vector<int64_t> ledFrame(double mainsHz, double start, double exposure, double gain,
                              const Scene& scene, int index, double lineTime, double threshold) {
  return synthFrame(
      kShortLines, kShortWinW, lineTime, start,
      [&](double t) { return ledLight(mainsHz, t, exposure, threshold); }, gain, 6.0, scene, index);
}

// 12.5 us per line by default; 10 us (1.03 periods of 100 Hz) for 4800.
FlkInitPara shortInit(uint32_t lineLength = 6000) {
  FlkInitPara init = genericInit(lineLength, 480e6);
  init.statLineCount = kShortLines;
  init.statWidth = kShortWinW;
  return init;
}

struct PairSpec {
  double mainsHz;
  double interval;
  double exposure0, exposure1;  // the frames' exposures (the record carries the second)
  Scene scene;
  double lineTime = kShortLineTime;
  double threshold = kLedThreshold;  // of the LED string
};

Outcome detectLed(Driver& d, const PairSpec& p, double t) {
  const double gain = 900.0;
  const int index = static_cast<int>(t / 9e-3);
  const auto s0 =
      ledFrame(p.mainsHz, t, p.exposure0, gain, p.scene, index, p.lineTime, p.threshold);
  const auto s1 = ledFrame(p.mainsHz, t + p.interval, p.exposure1, gain * p.exposure0 / p.exposure1,
                           p.scene, index + 1, p.lineTime, p.threshold);
  FlkDetectPara rec = Driver::record(s0.data(), s1.data(), d.hz(), std::lround(p.exposure1 * 1e6),
                                     std::llround(p.interval * 1e9));
  rec.winValue1 = kShortWinW;
  rec.winValue2 = kShortWinH;
  return Driver::detectRecord(rec);
}

constexpr int32_t kSceneChangeFlag = 1 << 3;
constexpr int32_t kTemporalFlag = 1 << 5;

constexpr int kAny = -1;
constexpr int k50 = FLK_FREQ_50HZ, k60 = FLK_FREQ_60HZ, kNone = FLK_FREQ_NONE;

// One pair each, in a fresh algorithm applying 50 Hz: the frequency code the
// pair backs (aux word 1), or one it must never back.
TEST(RectifiedLed, PairBacksThePulseTrainsPeriod) {
  // 1920 x 1080 at 10 us lines: the readout (10.3 ms) holds 1.24 periods of
  // 120 Hz but no 100 Hz period and enough bins beyond it to compare. At
  // 25 fps the 100 Hz ripple stands still between the frames, so a difference
  // that repeats with the 120 Hz period can only be 120 Hz light; a still
  // 100 Hz lamp leaves nothing, or, when the exposure changed, a pattern of
  // its own period that must not pass for the other one. The string conducts
  // above 0.3 of the peak: dark for a fifth of every half cycle, so that few
  // bins are dark in both frames of a pair.
  const auto onePeriod = [](double mainsHz, double exposure1, Scene scene = flat()) {
    return PairSpec{mainsHz, 0.04, 0.3e-3, exposure1, std::move(scene), 10e-6, 0.3};
  };
  struct Row {
    const char* what;
    PairSpec pair;
    uint32_t lineLength;  // 6000: 12.5 us lines, 4800: 10 us
    int backs;            // the code backed (kAny: not checked)
    int never;            // a code it must not back (kAny: none)
    bool flags;           // no scene change, and temporal evidence exactly when a ripple is backed
  } rows[] = {
      // clang-format off
      // Both phases move (35 ms): the 120 Hz period explains the difference.
      {"60 Hz, both moving", {60, 35.07e-3, 0.3e-3, 0.3e-3, flat()}, 6000, k60, kAny, true},
      // 100 Hz pulses with 1.5 ms exposures at 60 fps.
      {"50 Hz, both moving", {50, 22.07e-3, 1.5e-3, 1.5e-3, flat()}, 6000, k50, kAny, true},
      // Texture cancels in the difference, whatever the pulse shape.
      {"60 Hz on texture", {60, 35.07e-3, 0.3e-3, 0.3e-3, textured()}, 6000, k60, kAny, true},
      // 120 Hz frozen at 29.97 fps, same exposure: so many bins are dark in
      // both frames that the difference cannot be fitted. Nothing to back,
      // and no scene change (it used to be one, which broke every run of
      // votes).
      {"60 Hz frozen", {60, kFps2997, 0.3e-3, 0.3e-3, flat()}, 6000, kNone, kAny, true},
      // No flicker, a pan over texture: never a vote.
      {"steady, pan", {0, 35.07e-3, 0.3e-3, 0.3e-3, textured(40)}, 6000, kNone, kAny, true},
      // A frozen 120 Hz pair whose frames differ in exposure shows the pulse
      // edges, periodic with the 120 Hz period; it must never back 100 Hz
      // (the sinusoid fit, with 120 Hz frozen, did).
      {"frozen, exposure +1/3", {60, kFps2997, 0.3e-3, 0.4e-3, flat()}, 6000, kAny, k50, false},
      {"frozen, exposure +2/3", {60, kFps2997, 0.3e-3, 0.5e-3, flat()}, 6000, kAny, k50, false},
      // One-period readouts at 25 fps (10 us lines, the shallow string).
      {"one period, 60 Hz", onePeriod(60, 0.3e-3), 4800, k60, kAny, false},
      {"one period, 60 Hz on texture", onePeriod(60, 0.3e-3, textured()), 4800, k60, kAny, false},
      {"one period, 50 Hz, same exposure", onePeriod(50, 0.3e-3), 4800, kAny, k60, false},
      {"one period, 50 Hz, exposure +1/3", onePeriod(50, 0.4e-3), 4800, kAny, k60, false},
      {"one period, 50 Hz, exposure x2", onePeriod(50, 0.6e-3), 4800, kAny, k60, false},
      {"one period, steady, pan", onePeriod(0, 0.3e-3, textured(40)), 4800, kAny, k60, false},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Driver d(FlickerExtPara{}, 50, shortInit(row.lineLength));
    const Outcome o = detectLed(d, row.pair, 0.0);
    ASSERT_EQ(o.rc, 0);
    EXPECT_TRUE(row.backs == kAny || o.aux[1] == row.backs) << o.aux[1];
    EXPECT_NE(o.aux[1], row.never);
    const bool temporal = (o.aux[0] & kTemporalFlag) != 0;
    EXPECT_TRUE(!row.flags || (o.aux[0] & kSceneChangeFlag) == 0);
    EXPECT_TRUE(!(row.flags || row.backs == FLK_FREQ_60HZ) ||
                temporal == (row.backs != FLK_FREQ_NONE));
  }
}

// At 29.97 fps every other pair freezes 120 Hz. Closed loop from 50 Hz: the
// moving pairs' period votes are no longer broken by the frozen ones.
TEST(RectifiedLed, LocksAt2997Fps) {
  Driver d(FlickerExtPara{}, 50, shortInit());
  int lockedAt = -1;
  for (int i = 0; i < 8 && lockedAt < 0; ++i) {
    const double interval = i % 2 == 0 ? 35.07e-3 : kFps2997;
    const Outcome o = detectLed(d, {60, interval, 0.3e-3, 0.3e-3, flat()}, i * 0.07);
    if (o.result.state == FLK_FREQ_60HZ) {
      lockedAt = i;
    }
  }
  EXPECT_GE(lockedAt, 1);
  EXPECT_LE(lockedAt, 2);  // second moving pair
}

// The light changes from a 60 Hz to a 50 Hz LED after a full history of
// 60 Hz votes: a run of two period votes switches, although the old entries
// still hold the 100 Hz score under the switch score.
TEST(RectifiedLed, LightChangeFollowedAfterTwoPeriodVotes) {
  Driver d(FlickerExtPara{}, 60, shortInit());
  double t = 0.0;
  for (int i = 0; i < 10; ++i, t += 0.07) {
    detectLed(d, {60, 22.07e-3, 1.5e-3, 1.5e-3, flat()}, t);
  }
  int switchedAt = -1;
  for (int i = 0; i < 6 && switchedAt < 0; ++i, t += 0.07) {
    const Outcome o = detectLed(d, {50, 22.07e-3, 1.5e-3, 1.5e-3, flat()}, t);
    EXPECT_LT(o.result.score50, 100);
    if (o.result.state == FLK_FREQ_50HZ) {
      switchedAt = i;
      EXPECT_LT(o.result.score50, 50);  // the score alone would not have switched
    }
  }
  EXPECT_EQ(switchedAt, 1);
}

}  // namespace
}  // namespace algo_test
