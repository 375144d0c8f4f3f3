// Fuzzes the dump readers used by replay: the input is written as flk.raw and
// as flk_pure.raw and read back with readFlkRaw and readFlkPureRaw.
//
// Checks that a reader accepts exactly the files whose size matches the
// layout (count in [0, 36000] and size flkRawSize(count); pure: a multiple of
// 16 bytes, at most 36000 entries per column, equal to the expected count when
// one is given), that an accepted dump written back field by field in the
// layout's order gives the file's bytes again (so every field holds the bytes
// at its offset), and that a rejected file comes with a message.
#include <vector>

#include "flicker_dump_reader.h"
#include "fuzz_support.h"

namespace {

template <typename T>
void append(std::vector<uint8_t>* out, const T& value) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
  out->insert(out->end(), bytes, bytes + sizeof(value));
}
void append(std::vector<uint8_t>* out, const std::vector<int64_t>& column) {
  for (int64_t value : column) append(out, value);
}

// The reader's verdict must be `valid`, a rejection must say why, and an
// accepted dump's `fields`, written back in the layout's order, must give the
// file's bytes again.
template <typename... T>
void check(const char* reader, bool ok, bool valid, const std::string& error, const uint8_t* data,
           size_t size, const T&... fields) {
  FUZZ_CHECK(ok == valid, "%s: %d on %zu bytes (%s)", reader, ok, size, error.c_str());
  FUZZ_CHECK(ok || !error.empty(), "%s rejected without a message", reader);
  std::vector<uint8_t> bytes;
  (append(&bytes, fields), ...);
  FUZZ_CHECK(!ok || (bytes.size() == size && (size == 0 || memcmp(bytes.data(), data, size) == 0)),
             "%s: the fields differ from the file", reader);
}

void checkFlkPure(const std::string& path, const uint8_t* data, size_t size, int32_t expected) {
  flicker_dump::FlkPureDump d;
  std::string error;
  const bool ok = flicker_dump::readFlkPureRaw(path, expected, &d, &error);
  const size_t n = size / 16;
  const bool valid = size % 16 == 0 && n <= static_cast<size_t>(flicker_dump::kMaxEntries) &&
                     (expected < 0 || n == static_cast<size_t>(expected));
  check("readFlkPureRaw", ok, valid, error, data, size, d.slot1, d.slot0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string raw = scratchFile("flk.raw");
  static const std::string pure = scratchFile("flk_pure.raw");
  writeFile(raw, data, size);
  writeFile(pure, data, size);

  const int32_t count = FuzzInput(data, size).take<int32_t>();
  flicker_dump::FlkRawDump d;
  std::string error;
  const bool ok = flicker_dump::readFlkRaw(raw, &d, &error);
  const bool valid = size >= 4 && count >= 0 && count <= flicker_dump::kMaxEntries &&
                     size == flicker_dump::flkRawSize(count);
  check("readFlkRaw", ok, valid, error, data, size, d.count, d.slot1, d.slot0, d.winValue1,
        d.winValue2, d.freq, d.pixelClk, d.lineLength, d.exposure, d.aux);
  checkFlkPure(pure, data, size, -1);
  checkFlkPure(pure, data, size, count);  // the count a replay takes from the flk.raw
  return 0;
}
