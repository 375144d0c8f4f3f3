// History and hysteresis across detections and the state commands 4 and 5.
#include <gtest/gtest.h>

#include <tuple>

#include "algo_test_support.h"

namespace algo_test {
namespace {

constexpr double kMoving = 36e-3;        // both ripples move between the frames
constexpr double kFrozen120 = 1 / 30.0;  // the 120 Hz phase stands still

FlickerExtPara tuning(int minPast, int maxPast = 8, int holdOff = 0, int margin = 0) {
  FlickerExtPara t{};
  t.minPastFrames = minPast;
  t.maxPastFrames = maxPast;
  t.flickerFreq[3] = holdOff;
  t.flickerFreq[4] = margin;
  return t;
}

// Pairs of `light` until the applied state changes; the count, or -1.
int pairsToSwitch(Driver& d, const Light& light, int limit, double* t) {
  const int start = d.hz();
  for (int i = 1; i <= limit; ++i, *t += 0.144) {
    d.pair(light, *t);
    if (d.hz() != start) {
      *t += 0.144;
      return i;
    }
  }
  return -1;
}

// minPastFrames pairs lead to a switch; the history then holds at most
// maxPastFrames pairs (aux word 8), clamped to 32.
TEST(History, ConsistentPairsAndLength) {
  for (auto [minPast, maxPast, kept] : {std::tuple{1, 40, 32}, {2, 8, 8}, {5, 5, 5}}) {
    SCOPED_TRACE(minPast);
    Driver d(tuning(minPast, maxPast), 50);
    double t = 0;
    EXPECT_EQ(pairsToSwitch(d, Light{60}, 10, &t), minPast);
    for (int i = 0; i < 40; ++i, t += 0.144) {
      EXPECT_EQ(d.pair(Light{60}, t).aux[8], std::min(i + 1, kept));
    }
  }
}

// A pair frozen for the ripple cannot show it and abstains: it neither breaks
// the run of votes nor dilutes the score. A pair that could show it and did
// not (the flicker stopped) breaks the run.
TEST(History, FrozenPairsAbstain) {
  struct Row {
    const char* what;
    std::vector<double> mains, intervals;
    int finalHz;  // minPastFrames 2
  } rows[] = {
      {"moving, frozen, moving", {60, 60, 60}, {kMoving, kFrozen120, kMoving}, 60},
      {"moving, frozen x2, moving",
       {60, 60, 60, 60},
       {kMoving, kFrozen120, kFrozen120, kMoving},
       60},
      {"moving, no flicker, moving", {60, 0, 60}, {kMoving, kMoving, kMoving}, 50},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Driver d(tuning(2), 50);
    for (size_t i = 0; i < row.mains.size(); ++i) {
      d.pair(Light{row.mains[i]}, i * 0.144, row.intervals[i], flat(), 5e-3, 5e-3);
    }
    EXPECT_EQ(d.hz(), row.finalHz);
  }
}

// Command 5 forgets the votes so far; command 4 with the same state keeps
// them; a record state that differs from the applied one restarts them.
TEST(History, StateCommandsAndRecordState) {
  // Sent after two pairs with code 50 Hz; then the pairs to the switch.
  for (auto [cmd, pairsAfter] : {std::pair{FLK_CMD_RESET_QUEUE, 3}, {FLK_CMD_SET_STATE, 1}}) {
    SCOPED_TRACE(cmd);
    Driver d(tuning(3), 50);
    double t = 0;
    d.pair(Light{60}, t += 0.144);
    d.pair(Light{60}, t += 0.144);
    int32_t code = FLK_FREQ_50HZ;
    Driver::send(cmd, &code);
    EXPECT_EQ(pairsToSwitch(d, Light{60}, 10, &t), pairsAfter);
  }
  Driver d(tuning(3), 50);
  d.pair(Light{60}, 0.0);
  EXPECT_EQ(d.pair(Light{60}, 0.144).aux[8], 2);
  d.assume(60);  // the manager's state changed without commands 4 and 5
  const Outcome o = d.pair(Light{60}, 0.288);
  EXPECT_EQ(o.aux[8], 1);
  EXPECT_NE(o.result.state, FLK_FREQ_50HZ);
}

// After a switch the algorithm holds off; returning to the state just left
// needs the margin on top of the switch score while the window of three
// histories lasts. The returning lamp is twice as deep as the first, so the
// return clearly reduces the banding (no mixed light).
TEST(Hysteresis, HoldOffAndSwitchBack) {
  struct Row {
    int holdOff, margin, maxPast;
    int backFrom, backTo;  // pairs before the switch back
  } rows[] = {
      {1, 1, 8, 3, 4},     // almost no hysteresis: minPastFrames 3
      {6, 1, 8, 7, 8},     // the hold-off dominates
      {1, 60, 4, 12, 13},  // score 50 + 60 > 100 until the window (12) ends
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.holdOff << "/" << row.margin);
    Driver d(tuning(3, row.maxPast, row.holdOff, row.margin), 50);
    double t = 0;
    ASSERT_EQ(pairsToSwitch(d, Light{60}, 10, &t), 3);
    const int back = pairsToSwitch(d, Light{50, 0.6}, 30, &t);
    EXPECT_GE(back, row.backFrom);
    EXPECT_LE(back, row.backTo);
  }
}

// Lamps on both mains with whole-period exposures: each state shows the other
// lamp's ripple. After one switch the return shows no more banding than the
// switch had, so the light is mixed and the state holds. A lamp that changes
// after pairs that could see the old ripple and did not is a changed light,
// and is followed.
TEST(Hysteresis, MixedLightHolds) {
  struct Row {
    Light light;
    int cleanPairs;  // pairs of the switch's own lamp alone before `light`
    int pairs;
    int expected;  // switches in all
  } rows[] = {
      {Light{60, 0.3, 50}, 0, 60, 1},  // mixed from the switch on: held
      {Light{50}, 6, 20, 2},           // the lamp changed later: followed
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.cleanPairs);
    Driver d(FlickerExtPara{}, 50);
    double t = 0;
    ASSERT_EQ(pairsToSwitch(d, Light{60}, 10, &t), 2);
    int switches = 1;
    for (int i = 0; i < row.cleanPairs + row.pairs; ++i, t += 0.144) {
      const int before = d.hz();
      d.pair(i < row.cleanPairs ? Light{60} : row.light, t);
      switches += d.hz() != before ? 1 : 0;
    }
    EXPECT_EQ(switches, row.expected);
  }
}

}  // namespace
}  // namespace algo_test
