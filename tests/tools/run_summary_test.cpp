// The run summary read from hand-made records: lock, switches, correctness
// and the lock after a light switch.
#include <gtest/gtest.h>

#include "run_summary.h"

namespace {

using flicker_loop::FrameRow;
using flicker_loop::LoopResult;
using flicker_loop::PairRow;
using flicker_loop::RunSummary;

// One frame per 10 ms; states and truths as digits strings: '5' = 50, '6' =
// 60, '0' = no flicker. A pair is analysed on every frame.
LoopResult records(const std::string& states, const std::string& truths) {
  LoopResult r;
  for (size_t i = 0; i < states.size(); ++i) {
    FrameRow f;
    f.frame = static_cast<int>(i);
    f.timeMs = 10.0 * i;
    f.result.flickerState = states[i] == '6' ? FLICKER_RESULT_60HZ : FLICKER_RESULT_50HZ;
    f.truthHz = truths[i] == '0' ? 0 : truths[i] == '5' ? 50 : 60;
    f.analysed = true;
    r.frames.push_back(f);
    PairRow p;
    p.frame = f.frame;
    p.timeMs = f.timeMs;
    r.pairs.push_back(p);
  }
  r.ok = true;
  return r;
}

struct SummaryCase {
  const char* states;
  const char* truths;
  int lockedHz;
  int lockFrame;
  int pairsToLock;
  int switches;
  bool right;
  const char* proves;
};

class RunSummaryTest : public ::testing::TestWithParam<SummaryCase> {};

TEST_P(RunSummaryTest, ReadsTheRecords) {
  const SummaryCase& c = GetParam();
  const RunSummary s = RunSummary::of(records(c.states, c.truths));
  EXPECT_EQ(s.lockedHz, c.lockedHz) << c.proves;
  EXPECT_EQ(s.lockFrame, c.lockFrame) << c.proves;
  EXPECT_EQ(s.pairsToLock, c.pairsToLock) << c.proves;
  EXPECT_EQ(s.switches, c.switches) << c.proves;
  EXPECT_EQ(s.right, c.right) << c.proves;
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunSummaryTest,
    ::testing::Values(
        SummaryCase{"6665555", "5555555", 50, 3, 4, 1, true, "one switch to the right state"},
        SummaryCase{"5555555", "5555555", 50, 0, 0, 0, true, "right from the start"},
        SummaryCase{"5555555", "6666666", 50, 0, 0, 0, false, "never found 60 Hz"},
        SummaryCase{"5565555", "0000000", 50, 3, 4, 2, false, "switching without flicker"},
        SummaryCase{"5555555", "0000000", 50, 0, 0, 0, true, "holding still without flicker"},
        SummaryCase{"5656566", "5555555", 60, 5, 6, 5, false, "oscillation ending wrong"}));

TEST(RunSummaryLightSwitchTest, MeasuresTheLockAfterTheChange) {
  // The light goes from 50 to 60 Hz at frame 4 (40 ms); the state follows at 7.
  const RunSummary s = RunSummary::of(records("5555555666", "5555666666"));
  EXPECT_TRUE(s.right);
  EXPECT_DOUBLE_EQ(s.changeMs, 40.0);
  EXPECT_DOUBLE_EQ(s.lockAfterChangeMs, 30.0);
  EXPECT_EQ(s.pairsAfterChange, 3);
}

TEST(RunSummaryLightSwitchTest, NoLockAfterTheChangeWhenAlreadyInTheNewState) {
  // Sat in 60 Hz under 50 Hz light; the light then turned to 60 Hz.
  const RunSummary s = RunSummary::of(records("6666666666", "5555666666"));
  EXPECT_TRUE(s.right);
  EXPECT_LT(s.lockAfterChangeMs, 0);
  EXPECT_LT(s.pairsAfterChange, 0);
}

TEST(RunSummaryLightSwitchTest, NoLockAfterTheChangeWhenStillWrong) {
  const RunSummary s = RunSummary::of(records("5555555555", "5555666666"));
  EXPECT_FALSE(s.right);
  EXPECT_DOUBLE_EQ(s.changeMs, 40.0);
  EXPECT_LT(s.lockAfterChangeMs, 0);
}

TEST(RunSummaryTest, EmptyRecords) {
  const RunSummary s = RunSummary::of(LoopResult{});
  EXPECT_EQ(s.frames, 0);
  EXPECT_EQ(s.lockedHz, 0);
  EXPECT_FALSE(s.right);
}

}  // namespace
