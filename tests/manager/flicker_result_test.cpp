// The 84-byte result record: the bytes each value lands in, the caller's
// bytes that are kept, and the refused outputs.
#include "flicker_result.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

namespace {

int32_t wordAt(const std::vector<uint8_t>& bytes, size_t offset) {
  // Little-endian, whatever the host.
  return static_cast<int32_t>(bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
                              static_cast<uint32_t>(bytes[offset + 3]) << 24);
}

TEST(FlickerResultTest, EveryValueInItsPlace) {
  flk_stat_config config;
  std::iota(config.words, config.words + 17, 100);  // word i holds 100 + i
  FlickerResult result;
  result.setStatConfig(config);
  result.setFrameRateActive(true);
  result.setScores(-7, 0x12345678);
  result.setScoreActive(true);
  result.setSensorModeChanged(true);

  std::vector<uint8_t> out;
  FlickerResult::Written w{};
  ASSERT_TRUE(result.encode(60, &out, &w));
  ASSERT_EQ(out.size(), kFlickerResultSize);
  EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 4), (std::vector<uint8_t>{1, 0, 0, 0}));
  const std::vector<int32_t> expect = {FLICKER_RESULT_60HZ, 1, -7, 0x12345678, 1,
                                       // words 0, 2, 4, 7..16: 1, 3, 5 and 6 are not reported
                                       100, 102, 104, 107, 108, 109, 110, 111, 112, 113, 114, 115,
                                       116,
                                       0,  // no HDR flicker source
                                       1};
  for (size_t i = 0; i < expect.size(); ++i) EXPECT_EQ(wordAt(out, 4 + 4 * i), expect[i]) << i;
  EXPECT_EQ(std::vector<int32_t>(
                {w.state, w.frameRateActive, w.score50, w.score60, w.scoreActive, w.hdrFlkSrc}),
            std::vector<int32_t>({FLICKER_RESULT_60HZ, 1, -7, 0x12345678, 1, 0}));
}

TEST(FlickerResultTest, StateCodeAndTheCallersBytes) {
  const FlickerResult result;
  // State in hertz -> record code: only 60 Hz is 2; 0 (not yet known) and
  // anything else read as 50 Hz.
  for (const auto& [hz, code] : {std::pair{60, 2}, {50, 1}, {0, 1}, {100, 1}}) {
    std::vector<uint8_t> out(100, 0xEE);  // longer than the record: cut, bytes 1..3 kept
    ASSERT_TRUE(result.encode(hz, &out, nullptr));
    EXPECT_EQ(out.size(), 84u);
    EXPECT_EQ(wordAt(out, 4), code) << hz;
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1] & out[2] & out[3], 0xEE);
    EXPECT_EQ(wordAt(out, 8), 0);  // nothing set: flags and scores zero
  }
  FlickerResult::Written w{};
  EXPECT_FALSE(result.encode(60, nullptr, &w));
}

}  // namespace
