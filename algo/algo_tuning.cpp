#include "algo_tuning.h"

#include <algorithm>
#include <cstring>

#include "open_algo_default_tuning.h"

namespace open_algo {
namespace {

// Limits of each knob, in record units.
constexpr int32_t kMaxAmplitudeWord = 10000;  // 1.0 log units: anything above is not banding
constexpr int32_t kMinSnrWord = 5;            // SNR 0.5: lower accepts pure noise
constexpr int32_t kMaxSnrWord = 1000;         // SNR 100
constexpr int32_t kMinDominancePct = 100;     // below 1x the weaker ripple could win
constexpr int32_t kMaxDominancePct = 1000;
constexpr int32_t kMaxHoldOff = 100;
constexpr int32_t kMaxScore = 100;
constexpr int32_t kMaxFullScale = 1 << 20;
constexpr int32_t kMaxPermille = 1000;

class WordReader {
 public:
  explicit WordReader(int32_t* words) : words_(words) {}

  // Word `index` made its default when zero and clamped to [lo, hi], in place.
  int32_t settle(int index, int32_t lo, int32_t hi) {
    int32_t value = words_[index];
    if (value == 0) {
      value = defaultTuningWord(index);
    }
    const int32_t clamped = std::clamp(value, lo, hi);
    if (clamped != value) {
      ++adjusted_;
    }
    words_[index] = clamped;
    return clamped;
  }

  int adjusted() const { return adjusted_; }

 private:
  int32_t* words_;
  int adjusted_ = 0;
};

static_assert(sizeof(FlickerExtPara) == kTuningWords * sizeof(int32_t), "35 words");

}  // namespace

FlickerExtPara AlgoTuning::effective(const FlickerExtPara& para, int* adjusted) {
  int32_t w[kTuningWords];
  std::memcpy(w, &para, sizeof(w));
  WordReader r(w);
  r.settle(kWordMinAmplitude, 1, kMaxAmplitudeWord);
  r.settle(kWordSnrThreshold, kMinSnrWord, kMaxSnrWord);
  r.settle(kWordDominancePct, kMinDominancePct, kMaxDominancePct);
  r.settle(kWordHoldOff, 1, kMaxHoldOff);
  r.settle(kWordSwitchBackMargin, 0, kMaxScore);
  const int32_t fullScale = r.settle(kWordFullScale, 1, kMaxFullScale);
  r.settle(kWordNoiseFloor, 0, fullScale / 2);
  r.settle(kWordClipPermille, 1, kMaxPermille);
  r.settle(kWordMinVisibility, 1, kMaxPermille);
  r.settle(kWordSwitchScore, 1, kMaxScore);
  // A negative range has no meaning: treated as "all lines" like zero.
  const bool negativeRange = w[kWordSearchRange] < 0;
  w[kWordSearchRange] = std::max<int32_t>(0, w[kWordSearchRange]);
  const int32_t minPast = r.settle(kWordMinPastFrames, 1, kMaxHistory);
  r.settle(kWordMaxPastFrames, minPast, kMaxHistory);
  if (adjusted != nullptr) {
    *adjusted = r.adjusted() + (negativeRange ? 1 : 0);
  }
  FlickerExtPara out;
  std::memcpy(&out, w, sizeof(out));
  return out;
}

AlgoKnobs AlgoTuning::decode(const FlickerExtPara& para, int* adjusted) {
  const FlickerExtPara e = effective(para, adjusted);
  AlgoKnobs k{};
  k.minAmplitude = e.flickerFreq[kWordMinAmplitude] * 1e-4;
  k.snrThreshold = e.flickerFreq[kWordSnrThreshold] * 0.1;
  k.dominance = e.flickerFreq[kWordDominancePct] * 0.01;
  k.holdOff = e.flickerFreq[kWordHoldOff];
  k.switchBackMargin = e.flickerFreq[kWordSwitchBackMargin];
  k.fullScale = e.flickerFreq[kWordFullScale];
  k.noiseFloor = e.flickerFreq[kWordNoiseFloor];
  k.clipFraction = e.flickerFreq[kWordClipPermille] * 1e-3;
  k.minVisibility = e.flickerFreq[kWordMinVisibility] * 1e-3;
  k.switchScore = e.flickerGradThreshold;
  k.searchRange = e.flickerSearchRange;
  k.minPastFrames = e.minPastFrames;
  k.maxPastFrames = e.maxPastFrames;
  return k;
}

AlgoKnobs AlgoTuning::defaults() {
  FlickerExtPara zero;
  std::memset(&zero, 0, sizeof(zero));
  return decode(zero);
}

}  // namespace open_algo
