#include "flicker_freq.h"

#include "flicker_algo_cmd.h"
#include "iflicker_mgr.h"

namespace {
constexpr int k50 = 50;
constexpr int k60 = 60;
}  // namespace

FlickerFreq FlickerFreq::fromHz(int hz) {
  return hz == k60 ? k60Hz : hz == k50 ? k50Hz : kNone;
}

FlickerFreq FlickerFreq::fromAlgoCode(int32_t code) {
  return code == FLK_FREQ_50HZ ? k50Hz : code == FLK_FREQ_60HZ ? k60Hz : kNone;
}

FlickerFreq FlickerFreq::fromRecordCode(int32_t code) {
  return code == FLICKER_RESULT_60HZ ? k60Hz : k50Hz;
}

int FlickerFreq::hz() const {
  return value_ == k50Hz ? k50 : value_ == k60Hz ? k60 : 0;
}

int32_t FlickerFreq::algoCode() const {
  return value_ == k50Hz ? FLK_FREQ_50HZ : value_ == k60Hz ? FLK_FREQ_60HZ : FLK_FREQ_NONE;
}

int32_t FlickerFreq::recordCode() const {
  return value_ == k60Hz ? FLICKER_RESULT_60HZ : FLICKER_RESULT_50HZ;
}
