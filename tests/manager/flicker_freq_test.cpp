// The frequency type's converters on the values that must decide nothing
// (the known frequencies' codes are checked where the manager sends and
// writes them: flicker_analysis_test.cpp, flicker_result_test.cpp and the
// end-to-end tests).
#include "flicker_freq.h"

#include <gtest/gtest.h>

#include "flicker_algo_cmd.h"
#include "iflicker_mgr.h"

namespace {

using F = FlickerFreq;

TEST(FlickerFreqTest, CodesThatDecideNothing) {
  for (int32_t code : {int32_t{FLK_FREQ_NONE}, 3, -1})
    EXPECT_FALSE(F::fromAlgoCode(code).known()) << code;
  // Numbers that are no mains frequency (0 is the state before the first
  // decision) have no hertz and no other frequency.
  for (int hz : {0, 100, -60}) {
    EXPECT_EQ(F::fromHz(hz).hz(), 0) << hz;
    EXPECT_EQ(F::fromHz(hz).other(), F::kNone) << hz;
  }
  // The record has no "none": whatever is not 60 Hz reads as 50 Hz.
  for (int32_t code : {0, int32_t{FLICKER_RESULT_50HZ}, 3})
    EXPECT_EQ(F::fromRecordCode(code), F::k50Hz) << code;
  EXPECT_EQ(F::fromRecordCode(FLICKER_RESULT_60HZ), F::k60Hz);
}

}  // namespace
