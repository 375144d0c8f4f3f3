// FlickerFreq: the mains frequency as the manager reasons about it (50 Hz,
// 60 Hz or not known), with the only converters between it and the encodings
// that leave the manager, which stay as they are:
//  - hertz: the process-wide flicker state and the detection record's `freq`;
//  - the algorithm's frequency codes (FLK_FREQ_*: 0 = 50 Hz, 1 = 60 Hz,
//    2 = neither), spoken by the adapter's commands and the detection result;
//  - the result record's codes (FLICKER_RESULT_*: 1 = 50 Hz, 2 = 60 Hz), which
//    the simulator's exposure model speaks too.
// A value type; safe from any thread.
#pragma once

#include <cstdint>

class FlickerFreq {
 public:
  enum Value : int8_t { kNone, k50Hz, k60Hz };

  // Implicit, so that FlickerFreq::k50Hz reads as a FlickerFreq.
  constexpr FlickerFreq(Value value = kNone) : value_(value) {}

  // 50 and 60; any other number of hertz (0 before the first state) is none.
  static FlickerFreq fromHz(int hz);
  // FLK_FREQ_50HZ and FLK_FREQ_60HZ; any other code decides nothing.
  static FlickerFreq fromAlgoCode(int32_t code);
  // FLICKER_RESULT_60HZ is 60 Hz and anything else 50 Hz: the record knows
  // no "none".
  static FlickerFreq fromRecordCode(int32_t code);

  int hz() const;              // 50, 60; 0 for none
  int32_t algoCode() const;    // FLK_FREQ_50HZ, FLK_FREQ_60HZ, FLK_FREQ_NONE
  int32_t recordCode() const;  // FLICKER_RESULT_60HZ for 60 Hz, else FLICKER_RESULT_50HZ

  constexpr bool known() const { return value_ != kNone; }
  // 60 Hz for 50 Hz and the other way round; none stays none.
  constexpr FlickerFreq other() const {
    return value_ == k50Hz ? k60Hz : value_ == k60Hz ? k50Hz : kNone;
  }
  constexpr Value value() const { return value_; }
  friend constexpr bool operator==(FlickerFreq a, FlickerFreq b) { return a.value_ == b.value_; }
  friend constexpr bool operator!=(FlickerFreq a, FlickerFreq b) { return a.value_ != b.value_; }

 private:
  Value value_;
};
