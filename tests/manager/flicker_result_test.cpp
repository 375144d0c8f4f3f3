// The 84-byte result record on its own: the state code, the caller's bytes
// that are kept, and the refused outputs (the bytes each value lands in are
// checked end to end: manager_lifecycle_test.cpp, ResultRecordBytes).
#include "flicker_result.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

int32_t wordAt(const std::vector<uint8_t>& bytes, size_t offset) {
  // Little-endian, whatever the host.
  return static_cast<int32_t>(bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
                              static_cast<uint32_t>(bytes[offset + 3]) << 24);
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
