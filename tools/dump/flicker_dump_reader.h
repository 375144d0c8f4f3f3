// Reads the statistics dump files of the platform adapter back into memory.
// Their layout is the adapter's own, flicker_dump_format.h.
//
// The readers check the file size against the layout before trusting any
// count, and fail with a message rather than read past the data. Stateless and
// thread-safe; they print nothing (the message is returned to the caller).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "flicker_dump_format.h"

namespace flicker_dump {

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
