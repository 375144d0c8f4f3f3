// Reads the statistics dump files of the platform adapter back into memory.
//
// flk.raw (native little-endian, no header or padding, n = entries per column):
//   int32 n | int64[n] column of slot 1 | int64[n] column of slot 0 |
//   int32 window value 1 | int32 window value 2 | int32 flicker state (Hz) |
//   int32 pixel clock (low 32 bits) | uint32 line length | int32 exposure |
//   int32[9] auxiliary block of the detection
// flk_pure.raw: the two columns only (slot 1's first), no count, no trailer.
//
// The readers check the file size against the layout before trusting any
// count, and fail with a message rather than read past the data. Stateless and
// thread-safe; they print nothing (the message is returned to the caller).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace flicker_dump {

// Bytes of flk.raw around the two columns: the count in front, the trailer
// (six int32/uint32 values and nine auxiliary int32) behind.
constexpr size_t kFlkRawHeaderBytes = 4;
constexpr size_t kFlkRawTrailerBytes = 6 * 4 + 9 * 4;
constexpr int kAuxWords = 9;
// A column never holds more than a statistics buffer (36000 int64 entries).
constexpr int32_t kMaxEntries = 36000;

// Size of a flk.raw holding `count` entries per column.
constexpr size_t flkRawSize(int32_t count) {
  return kFlkRawHeaderBytes + 16 * static_cast<size_t>(count) + kFlkRawTrailerBytes;
}

struct FlkRawDump {
  int32_t count = 0;
  std::vector<int64_t> slot1;  // written first in the file
  std::vector<int64_t> slot0;
  int32_t winValue1 = 0;
  int32_t winValue2 = 0;
  int32_t freq = 0;
  int32_t pixelClk = 0;
  uint32_t lineLength = 0;
  int32_t exposure = 0;
  int32_t aux[kAuxWords] = {};
};

struct FlkPureDump {
  std::vector<int64_t> slot1;
  std::vector<int64_t> slot0;
};

// Reads a flk.raw. Fails (false, `error` says why) when the file cannot be
// read, its count is outside [0, 36000] or its size is not flkRawSize(count).
bool readFlkRaw(const std::string& path, FlkRawDump* out, std::string* error);

// Reads a flk_pure.raw. `expectedCount` < 0 takes the count from the size
// (which must then be a multiple of 16); otherwise the size must be exactly
// 16 x expectedCount.
bool readFlkPureRaw(const std::string& path, int32_t expectedCount, FlkPureDump* out,
                    std::string* error);

}  // namespace flicker_dump
