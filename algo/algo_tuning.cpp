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
  explicit WordReader(const FlickerExtPara& para) { std::memcpy(words_, &para, sizeof(words_)); }

  // The word, its default when zero, clamped to [lo, hi].
  int32_t get(int index, int32_t lo, int32_t hi) {
    int32_t value = words_[index];
    if (value == 0) {
      value = defaultTuningWord(index);
    }
    const int32_t clamped = std::clamp(value, lo, hi);
    if (clamped != value) {
      ++adjusted_;
    }
    return clamped;
  }

  int adjusted() const { return adjusted_; }

 private:
  int32_t words_[kTuningWords];
  int adjusted_ = 0;
};

static_assert(sizeof(FlickerExtPara) == kTuningWords * sizeof(int32_t), "35 words");

}  // namespace

AlgoKnobs AlgoTuning::decode(const FlickerExtPara& para, int* adjusted) {
  WordReader r(para);
  AlgoKnobs k{};
  k.minAmplitude = r.get(kWordMinAmplitude, 1, kMaxAmplitudeWord) * 1e-4;
  k.snrThreshold = r.get(kWordSnrThreshold, kMinSnrWord, kMaxSnrWord) * 0.1;
  k.dominance = r.get(kWordDominancePct, kMinDominancePct, kMaxDominancePct) * 0.01;
  k.holdOff = r.get(kWordHoldOff, 1, kMaxHoldOff);
  k.switchBackMargin = r.get(kWordSwitchBackMargin, 0, kMaxScore);
  const int32_t fullScale = r.get(kWordFullScale, 1, kMaxFullScale);
  k.fullScale = fullScale;
  k.noiseFloor = r.get(kWordNoiseFloor, 0, fullScale / 2);
  k.clipFraction = r.get(kWordClipPermille, 1, kMaxPermille) * 1e-3;
  k.minVisibility = r.get(kWordMinVisibility, 1, kMaxPermille) * 1e-3;
  k.switchScore = r.get(kWordSwitchScore, 1, kMaxScore);
  // A negative range has no meaning: treated as "all lines" like zero.
  k.searchRange = std::max<int32_t>(0, para.flickerSearchRange);
  k.minPastFrames = r.get(kWordMinPastFrames, 1, kMaxHistory);
  k.maxPastFrames = r.get(kWordMaxPastFrames, k.minPastFrames, kMaxHistory);
  if (adjusted != nullptr) {
    *adjusted = r.adjusted() + (para.flickerSearchRange < 0 ? 1 : 0);
  }
  return k;
}

AlgoKnobs AlgoTuning::defaults() {
  FlickerExtPara zero;
  std::memset(&zero, 0, sizeof(zero));
  return decode(zero);
}

}  // namespace open_algo
