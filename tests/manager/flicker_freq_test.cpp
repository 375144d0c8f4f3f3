// The frequency type's converters: every encoding in and out, including the
// values that must decide nothing.
#include "flicker_freq.h"

#include <gtest/gtest.h>

#include "flicker_algo_cmd.h"
#include "iflicker_mgr.h"

namespace {

using F = FlickerFreq;

TEST(FlickerFreqTest, HertzInEveryEncoding) {
  struct Row {
    int hz;
    F freq;
    int hzBack;
    int32_t algo, record;
    F other;
  } rows[] = {
      {50, F::k50Hz, 50, FLK_FREQ_50HZ, FLICKER_RESULT_50HZ, F::k60Hz},
      {60, F::k60Hz, 60, FLK_FREQ_60HZ, FLICKER_RESULT_60HZ, F::k50Hz},
      // The state before the first decision, and numbers nobody should pass:
      // the algorithm hears "neither", the record says 50 Hz.
      {0, F::kNone, 0, FLK_FREQ_NONE, FLICKER_RESULT_50HZ, F::kNone},
      {100, F::kNone, 0, FLK_FREQ_NONE, FLICKER_RESULT_50HZ, F::kNone},
      {-60, F::kNone, 0, FLK_FREQ_NONE, FLICKER_RESULT_50HZ, F::kNone},
  };
  for (const Row& row : rows) {
    const F freq = F::fromHz(row.hz);
    EXPECT_EQ(freq, row.freq) << row.hz;
    EXPECT_EQ(freq.hz(), row.hzBack) << row.hz;
    EXPECT_EQ(freq.algoCode(), row.algo) << row.hz;
    EXPECT_EQ(freq.recordCode(), row.record) << row.hz;
    EXPECT_EQ(F::fromAlgoCode(row.algo), freq) << row.hz;
    EXPECT_EQ(freq.other(), row.other) << row.hz;
  }
}

TEST(FlickerFreqTest, CodesThatDecideNothing) {
  for (int32_t code : {int32_t{FLK_FREQ_NONE}, 3, -1})
    EXPECT_FALSE(F::fromAlgoCode(code).known()) << code;
  // The record has no "none": whatever is not 60 Hz reads as 50 Hz.
  for (int32_t code : {0, int32_t{FLICKER_RESULT_50HZ}, 3})
    EXPECT_EQ(F::fromRecordCode(code), F::k50Hz) << code;
  EXPECT_EQ(F::fromRecordCode(FLICKER_RESULT_60HZ), F::k60Hz);
}

}  // namespace
