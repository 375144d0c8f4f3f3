// History and hysteresis across detections and the state commands 4 and 5.
#include <gtest/gtest.h>

#include <vector>

#include "algo_driver.h"

namespace algo_test {
namespace {

// Pairs of a 50 or 60 Hz light, taken with the exposure AE uses in `stateHz`.
class PairSource {
 public:
  explicit PairSource(double mainsHz) { light_.mainsHz = mainsHz; }
  // `interval` is the time between the pair's frames; 36 ms moves both
  // ripples, 33.333 ms (30 fps) freezes the 120 Hz one.
  DetectOutcome detect(AlgoDriver& driver, double interval = 36e-3) {
    StatsPairBuilder b(Sensor{}, light_);
    const double exposure = driver.stateHz() == 60 ? 8.333e-3 : 10e-3;
    const double t = frame_ * 36e-3;
    frame_ += 4;
    const auto s0 = b.frame(t, exposure, StatsPairBuilder::flat(), frame_);
    const auto s1 = b.frame(t + interval, exposure, StatsPairBuilder::flat(), frame_ + 1);
    return driver.detect(s0, s1, static_cast<int32_t>(exposure * 1e6 + 0.5),
                         static_cast<int64_t>(interval * 1e9 + 0.5));
  }
  // Detections until the manager would switch (follows the verdicts), or -1.
  int detectionsToSwitch(AlgoDriver& driver, int limit) {
    const int start = driver.stateHz();
    for (int i = 1; i <= limit; ++i) {
      driver.follow(detect(driver).result);
      if (driver.stateHz() != start) {
        return i;
      }
    }
    return -1;
  }

 private:
  Light light_;
  int frame_ = 0;
};

FlickerExtPara tuning(int minPast, int maxPast, int holdOff = 0, int margin = 0) {
  FlickerExtPara t = zeroTuning();
  t.minPastFrames = minPast;
  t.maxPastFrames = maxPast;
  t.flickerFreq[3] = holdOff;
  t.flickerFreq[4] = margin;
  return t;
}

// minPastFrames consistent pairs are needed; the tuning is sent before init.
TEST(History, ConsistentPairsBeforeASwitch) {
  struct Row {
    int minPast;
    int expected;
  } rows[] = {
      {1, 1},  // a single pair is enough
      {2, 2},  // the default
      {3, 3},
      {5, 5},  // longer evidence
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.minPast);
    AlgoDriver driver(tuning(row.minPast, 8), 50);
    PairSource light60(60);
    EXPECT_EQ(light60.detectionsToSwitch(driver, 10), row.expected);
  }
}

// A pair whose phase is frozen for the ripple (120 Hz at 30 fps) cannot show
// it and abstains: it neither breaks the run of votes for 60 Hz nor dilutes
// its score. A pair that could show it and did not (no flicker left) breaks
// the run.
TEST(History, FrozenPairsAbstain) {
  constexpr double kMoving = 36e-3;
  constexpr double kFrozen120 = 1.0 / 30.0;
  struct Row {
    const char* what;
    std::vector<double> mains;      // light of each pair before the verdict counts
    std::vector<double> intervals;  // and its frame interval
    int expectedState;              // after the pairs, with minPastFrames 2
  } rows[] = {
      {"moving, frozen, moving", {60, 60, 60}, {kMoving, kFrozen120, kMoving}, 60},
      {"moving, frozen, frozen, moving",
       {60, 60, 60, 60},
       {kMoving, kFrozen120, kFrozen120, kMoving},
       60},
      {"moving, no flicker, moving", {60, 0, 60}, {kMoving, kMoving, kMoving}, 50},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    AlgoDriver driver(tuning(2, 8), 50);
    PairSource light60(60);
    PairSource steady(0);
    for (size_t i = 0; i < row.mains.size(); ++i) {
      PairSource& source = row.mains[i] > 0 ? light60 : steady;
      driver.follow(source.detect(driver, row.intervals[i]).result);
    }
    EXPECT_EQ(driver.stateHz(), row.expectedState);
  }
}

// The history holds at most maxPastFrames pairs (aux word 8 reports its size).
TEST(History, BoundedByMaxPastFrames) {
  struct Row {
    int maxPast;
    int expected;
  } rows[] = {
      {4, 4}, {8, 8}, {40, 32},  // clamped to the buffer
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.maxPast);
    AlgoDriver driver(tuning(1, row.maxPast), 60);
    PairSource light60(60);
    DetectOutcome last{};
    for (int i = 0; i < 40; ++i) {
      last = light60.detect(driver);
    }
    EXPECT_EQ(last.aux[8], row.expected);
  }
}

// Command 5 forgets the votes gathered so far; command 4 alone keeps them.
TEST(History, ResetQueueRestartsTheCount) {
  AlgoDriver resetDriver(tuning(3, 8), 50);
  PairSource a(60);
  a.detect(resetDriver);
  a.detect(resetDriver);
  int32_t code50 = FLK_FREQ_50HZ;
  resetDriver.send(FLK_CMD_RESET_QUEUE, &code50);
  EXPECT_EQ(a.detectionsToSwitch(resetDriver, 10), 3);

  AlgoDriver stateOnly(tuning(3, 8), 50);
  PairSource b(60);
  b.detect(stateOnly);
  b.detect(stateOnly);
  stateOnly.send(FLK_CMD_SET_STATE, &code50);  // unchanged state: no effect
  EXPECT_EQ(b.detectionsToSwitch(stateOnly, 10), 1);
}

// After a switch the algorithm holds off, and going back to the state just
// left needs a stronger history than the first switch did.
TEST(Hysteresis, HoldOffAndStrongerSwitchBack) {
  struct Row {
    int holdOff;
    int margin;
    int atLeast;  // detections before the switch back
  } rows[] = {
      {1, 1, 3},   // almost no hysteresis: the minimum of three pairs
      {6, 1, 7},   // hold-off dominates
      {4, 20, 5},  // the defaults
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.holdOff << "/" << row.margin);
    AlgoDriver driver(tuning(3, 8, row.holdOff, row.margin), 50);
    PairSource light60(60);
    ASSERT_EQ(light60.detectionsToSwitch(driver, 10), 3);
    ASSERT_EQ(driver.stateHz(), 60);
    PairSource light50(50);
    const int back = light50.detectionsToSwitch(driver, 20);
    EXPECT_GE(back, row.atLeast);
    EXPECT_LE(back, row.atLeast + 1);
    EXPECT_EQ(driver.stateHz(), 50);
  }
}

// With the switch-back margin the score needed exceeds 100: returning is
// impossible inside the switch-back window, possible after it.
TEST(Hysteresis, SwitchBackWindowExpires) {
  FlickerExtPara t = tuning(3, 4, 1, 60);
  t.flickerGradThreshold = 50;  // 50 + 60 > 100 while the window lasts
  AlgoDriver driver(t, 50);
  PairSource light60(60);
  ASSERT_EQ(light60.detectionsToSwitch(driver, 10), 3);
  PairSource light50(50);
  // The window lasts three histories (12 detections); the switch follows it.
  const int back = light50.detectionsToSwitch(driver, 30);
  EXPECT_GE(back, 12);
  EXPECT_LE(back, 13);
}

// A state in the detection record that differs from the applied one (changed
// without the state commands) restarts the history.
TEST(History, RecordStateIsAdopted) {
  AlgoDriver driver(tuning(3, 8), 50);
  PairSource light60(60);
  light60.detect(driver);
  EXPECT_EQ(light60.detect(driver).aux[8], 2);
  Light light;
  light.mainsHz = 60;
  StatsPairBuilder b(Sensor{}, light);
  const auto s0 = b.frame(1.0, 8.333e-3, StatsPairBuilder::flat(), 100);
  const auto s1 = b.frame(1.036, 8.333e-3, StatsPairBuilder::flat(), 101);
  const DetectOutcome o =
      driver.detectRecord(AlgoDriver::record(s0.data(), s1.data(), 60, 8333, 36000000));
  EXPECT_EQ(o.aux[8], 1);
  EXPECT_NE(o.result.state, FLK_FREQ_50HZ);
}

}  // namespace
}  // namespace algo_test
