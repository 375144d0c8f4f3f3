// Recommended tuning of the open flicker detection algorithm, as the 35 int32
// words of the algorithm part of a tuning record (FlickerExtPara order:
// flickerFreq[0..8], flickerGradThreshold, flickerSearchRange, minPastFrames,
// maxPastFrames, the four linear models, the EV thresholds,
// freq_feature_index).
//
// Header-only and without dependencies so that an NVRAM default table can
// include it. The algorithm uses the same values as its fallback for any word
// that arrives as zero (an untouched NVRAM record is all zeros). README.md in
// this folder describes each knob.
#pragma once

#include <cstdint>

namespace open_algo {

// Word positions of the knobs inside the 35-word record.
enum TuningWord : int {
  kWordMinAmplitude = 0,      // flickerFreq[0]: least ripple amplitude, 1e-4 log units
  kWordSnrThreshold = 1,      // flickerFreq[1]: ripple SNR where evidence starts, x10
  kWordDominancePct = 2,      // flickerFreq[2]: switch needs this % of the other ripple
  kWordHoldOff = 3,           // flickerFreq[3]: detections without a switch after a change
  kWordSwitchBackMargin = 4,  // flickerFreq[4]: extra score to switch back
  kWordFullScale = 5,         // flickerFreq[5]: pixel full scale in DN
  kWordNoiseFloor = 6,        // flickerFreq[6]: pixel noise floor in DN
  kWordClipPermille = 7,      // flickerFreq[7]: clipping level, per mille of full scale
  kWordMinVisibility = 8,     // flickerFreq[8]: least |sin(phase advance / 2)|, per mille
  kWordSwitchScore = 9,       // flickerGradThreshold: score needed to switch (1..100)
  kWordSearchRange = 10,      // flickerSearchRange: statistics lines analysed, 0 = all
  kWordMinPastFrames = 11,    // minPastFrames: consistent detections before a switch
  kWordMaxPastFrames = 12,    // maxPastFrames: detections kept in the history
};

constexpr int kTuningWords = 35;

// Default of each knob; a zero word in the record stands for this value.
constexpr int32_t kDefaultMinAmplitude = 10;      // 0.1 %: a 2 % lamp under whole-period exposures
constexpr int32_t kDefaultSnrThreshold = 30;      // SNR 3: evidence ramps from 3 to 6
constexpr int32_t kDefaultDominancePct = 200;     // the new ripple must be twice the old one
constexpr int32_t kDefaultHoldOff = 4;            // about two pairs' worth of AE settling
constexpr int32_t kDefaultSwitchBackMargin = 20;  // switching back needs score + 20
constexpr int32_t kDefaultFullScale = 1023;       // 10-bit pixels in the window sums
constexpr int32_t kDefaultNoiseFloor = 4;         // DN: logs below are dominated by noise
constexpr int32_t kDefaultClipPermille = 950;     // 95 % of full scale counts as clipped
constexpr int32_t kDefaultMinVisibility = 300;    // below, the pair's phase is frozen
constexpr int32_t kDefaultSwitchScore = 50;       // half of the history must back a switch
constexpr int32_t kDefaultSearchRange = 0;        // analyse every statistics line
constexpr int32_t kDefaultMinPastFrames = 2;      // two consistent pairs before a switch
constexpr int32_t kDefaultMaxPastFrames = 8;      // history of eight pairs

// The recommended record. Words 13..34 (linear models, EV thresholds, feature
// indices) have no use in this algorithm and stay zero.
constexpr int32_t kDefaultTuningWords[kTuningWords] = {
    kDefaultMinAmplitude, kDefaultSnrThreshold, kDefaultDominancePct, kDefaultHoldOff,
    kDefaultSwitchBackMargin, kDefaultFullScale, kDefaultNoiseFloor, kDefaultClipPermille,
    kDefaultMinVisibility, kDefaultSwitchScore, kDefaultSearchRange, kDefaultMinPastFrames,
    kDefaultMaxPastFrames,
    // Words 13..34: unused.
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

// Word `index` of the recommended record (0 outside 0..34).
constexpr int32_t defaultTuningWord(int index) {
  return index >= 0 && index < kTuningWords ? kDefaultTuningWords[index] : 0;
}

}  // namespace open_algo
