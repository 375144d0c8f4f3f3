#include "flicker_result.h"

#include <cstddef>

#include "flicker_freq.h"

namespace {

// Statistics words copied into the result record, in record order.
constexpr int kResultStatWords[] = {0, 2, 4, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
static_assert(sizeof(kResultStatWords) == sizeof(FlickerResultRecord::statWords),
              "13 statistics words in the result");

// This manager has no HDR flicker source of its own to report.
constexpr int32_t kHdrFlkSrc = 0;

// Little-endian store of one 32-bit result field.
void putLe32(uint8_t* out, int32_t value) {
  const uint32_t v = static_cast<uint32_t>(value);
  out[0] = static_cast<uint8_t>(v);
  out[1] = static_cast<uint8_t>(v >> 8);
  out[2] = static_cast<uint8_t>(v >> 16);
  out[3] = static_cast<uint8_t>(v >> 24);
}

}  // namespace

void FlickerResult::setStatConfig(const flk_stat_config& config) {
  for (int i = 0; i < kStatWords; ++i)
    stat_words_[i].store(config.words[kResultStatWords[i]], kRelaxed);
}

void FlickerResult::setScores(int32_t score50, int32_t score60) {
  score_50_.store(score50, kRelaxed);
  score_60_.store(score60, kRelaxed);
}

bool FlickerResult::encode(int32_t stateHz, std::vector<uint8_t>* out, Written* written) const {
  if (out == nullptr)
    return false;
  out->resize(kFlickerResultSize, 0);
  uint8_t* bytes = out->data();
  if (bytes == nullptr)
    return false;

  Written w;
  w.state = FlickerFreq::fromHz(stateHz).recordCode();
  w.frameRateActive = frame_rate_active_.load(kRelaxed) ? 1 : 0;
  w.score50 = score_50_.load(kRelaxed);
  w.score60 = score_60_.load(kRelaxed);
  w.scoreActive = score_active_.load(kRelaxed) ? 1 : 0;
  w.hdrFlkSrc = kHdrFlkSrc;

  bytes[offsetof(FlickerResultRecord, valid)] = 1;
  putLe32(bytes + offsetof(FlickerResultRecord, flickerState), w.state);
  putLe32(bytes + offsetof(FlickerResultRecord, flickerFrameRateActive), w.frameRateActive);
  putLe32(bytes + offsetof(FlickerResultRecord, flickerScore50), w.score50);
  putLe32(bytes + offsetof(FlickerResultRecord, flickerScore60), w.score60);
  putLe32(bytes + offsetof(FlickerResultRecord, flickerScoreActive), w.scoreActive);
  size_t pos = offsetof(FlickerResultRecord, statWords);
  for (const std::atomic<int32_t>& word : stat_words_) {
    putLe32(bytes + pos, word.load(kRelaxed));
    pos += sizeof(int32_t);
  }
  putLe32(bytes + offsetof(FlickerResultRecord, hdrFlkSrc), w.hdrFlkSrc);
  putLe32(bytes + offsetof(FlickerResultRecord, sensorModeChanged),
          sensor_mode_changed_.load(kRelaxed) ? 1 : 0);
  if (written != nullptr)
    *written = w;
  return true;
}
