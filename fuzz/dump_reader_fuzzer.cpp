// Fuzzes the dump readers used by replay: the input is written as flk.raw and
// as flk_pure.raw and read back with readFlkRaw and readFlkPureRaw.
//
// Checks that a reader accepts exactly the files whose size matches the
// layout (count in [0, 36000] and size flkRawSize(count); pure: a multiple of
// 16 bytes, at most 36000 entries per column, equal to the expected count when
// one is given), that every accepted field holds the bytes at its offset, and
// that a rejected file comes with a message.
#include <cstdint>
#include <cstring>
#include <string>

#include "flicker_dump_reader.h"
#include "fuzz_check.h"
#include "scratch_dir.h"

namespace {

using flicker_dump::flkRawSize;
using flicker_dump::kMaxEntries;

template <typename T>
T at(const uint8_t* data, size_t offset) {
  T value;
  memcpy(&value, data + offset, sizeof(T));
  return value;
}

bool columnMatches(const std::vector<int64_t>& column, const uint8_t* data, size_t offset,
                   size_t count) {
  return column.size() == count &&
         (count == 0 || memcmp(column.data(), data + offset, count * sizeof(int64_t)) == 0);
}

void checkFlkRaw(const std::string& path, const uint8_t* data, size_t size) {
  flicker_dump::FlkRawDump dump;
  std::string error;
  const bool ok = flicker_dump::readFlkRaw(path, &dump, &error);
  const int32_t count = size >= 4 ? at<int32_t>(data, 0) : -1;
  const bool valid = size >= 4 && count >= 0 && count <= kMaxEntries && size == flkRawSize(count);
  FUZZ_CHECK(ok == valid, "readFlkRaw %d on %zu bytes with count %d (%s)", ok, size, count,
             error.c_str());
  if (!ok) {
    FUZZ_CHECK(!error.empty(), "rejected without a message");
    return;
  }
  const size_t n = static_cast<size_t>(count);
  FUZZ_CHECK(dump.count == count, "count %d read as %d", count, dump.count);
  FUZZ_CHECK(columnMatches(dump.slot1, data, 4, n), "slot 1 column differs");
  FUZZ_CHECK(columnMatches(dump.slot0, data, 4 + 8 * n, n), "slot 0 column differs");
  const size_t tail = 4 + 16 * n;
  FUZZ_CHECK(dump.winValue1 == at<int32_t>(data, tail), "window value 1");
  FUZZ_CHECK(dump.winValue2 == at<int32_t>(data, tail + 4), "window value 2");
  FUZZ_CHECK(dump.freq == at<int32_t>(data, tail + 8), "flicker state");
  FUZZ_CHECK(dump.pixelClk == at<int32_t>(data, tail + 12), "pixel clock");
  FUZZ_CHECK(dump.lineLength == at<uint32_t>(data, tail + 16), "line length");
  FUZZ_CHECK(dump.exposure == at<int32_t>(data, tail + 20), "exposure");
  FUZZ_CHECK(memcmp(dump.aux, data + tail + 24, sizeof(dump.aux)) == 0, "auxiliary block");
}

void checkFlkPure(const std::string& path, const uint8_t* data, size_t size,
                  int32_t expectedCount) {
  flicker_dump::FlkPureDump dump;
  std::string error;
  const bool ok = flicker_dump::readFlkPureRaw(path, expectedCount, &dump, &error);
  const size_t n = size / 16;
  const bool valid = size % 16 == 0 && n <= static_cast<size_t>(kMaxEntries) &&
                     (expectedCount < 0 || n == static_cast<size_t>(expectedCount));
  FUZZ_CHECK(ok == valid, "readFlkPureRaw %d on %zu bytes, expected count %d (%s)", ok, size,
             expectedCount, error.c_str());
  if (!ok) {
    FUZZ_CHECK(!error.empty(), "rejected without a message");
    return;
  }
  FUZZ_CHECK(columnMatches(dump.slot1, data, 0, n), "pure slot 1 column differs");
  FUZZ_CHECK(columnMatches(dump.slot0, data, 8 * n, n), "pure slot 0 column differs");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ScratchDir dir;  // removed again when the process exits normally
  static const std::string raw = dir.file("flk.raw");
  static const std::string pure = dir.file("flk_pure.raw");

  ScratchDir::writeFile(raw, data, size);
  ScratchDir::writeFile(pure, data, size);
  checkFlkRaw(raw, data, size);
  checkFlkPure(pure, data, size, -1);
  // The count a replay would take from the matching flk.raw, whatever it is.
  checkFlkPure(pure, data, size, size >= 4 ? at<int32_t>(data, 0) : 0);
  return 0;
}
