// Fuzzes the adapter's statistics window and buffer conversion:
// setWindowInfo + getSensorMode + setBuf with arbitrary geometry and block
// bytes, then a detection whose record shows the converted buffers.
//
// Input (little-endian): u8 sensor selector, i32 width, i32 height,
// i32 sensor path, i32 sensor mode, i32 auto-test flag, i32 buffer index,
// then the statistics block.
//
// The block is handed to setBuf in a heap buffer of exactly the size the
// caller contract asks for (the path's layout for the window in force,
// zero-padded), so AddressSanitizer reports any read beyond it; the adapter's
// own buffers are heap blocks of 36000 entries, so any write beyond them is
// reported too. This target defines flk_SendCmd itself: the detection
// command compares the buffer setBuf filled with the block as converted.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "byte_reader.h"
#include "flicker_platform_adapter.h"
#include "fuzz_check.h"
#include "host_log.h"
#include "host_properties.h"

namespace {

// One adapter per sensor identity, so the identity never has to change on
// an adapter (init replaces its buffers).
constexpr int32_t kSensorIds[] = {0,
                                  FlickerPlatformAdapter::kSensorId1398,
                                  FlickerPlatformAdapter::kSensorId8581,
                                  1397,
                                  8582,
                                  -1,
                                  INT32_MAX,
                                  5695};
constexpr int kSensors = sizeof(kSensorIds) / sizeof(kSensorIds[0]);

// Window in force on each adapter as the harness expects it (setWindowInfo
// keeps the last good one when it refuses a size).
struct Window {
  int imgW = 0;
  int imgH = 0;
  int winW = 0;
  int winH = 0;
};
Window g_windows[kSensors];

// What the fake detection command must find in the slot setBuf filled.
enum class Layout { kCopy64, kCopy32, kWiden32, kNone };
struct Expectation {
  bool active = false;
  bool slot1 = false;
  Layout layout = Layout::kNone;
  const uint8_t* block = nullptr;
  int64_t count = 0;
  bool seen = false;
};
Expectation g_expect;

bool allZero(const uint8_t* data, size_t bytes) {
  return std::all_of(data, data + bytes, [](uint8_t b) { return b == 0; });
}

Window expectedWindow(int width, int height) {
  Window w;
  w.imgW = width;
  w.imgH = height <= 6039 ? height - 45 : 5994;
  w.winW = 2 * (w.imgW / 12);
  w.winH = 2 * (w.imgH / 6);
  return w;
}

}  // namespace

extern "C" int32_t flk_SendCmd(uint32_t cmd, void* in, void* /*out*/) {
  if (cmd != FLK_CMD_DETECT || !g_expect.active)
    return 0;
  const auto* para = static_cast<const FlkDetectPara*>(in);
  const int64_t* dst = g_expect.slot1 ? para->statsSlot1 : para->statsSlot0;
  FUZZ_CHECK(dst != nullptr, "detection without buffers");
  const size_t n = static_cast<size_t>(g_expect.count);
  switch (g_expect.layout) {
    case Layout::kCopy64:
      FUZZ_CHECK(n == 0 || memcmp(dst, g_expect.block, n * 8) == 0, "64-bit copy differs");
      break;
    case Layout::kCopy32:
      FUZZ_CHECK(memcmp(dst, g_expect.block, n * 4) == 0, "32-bit copy differs");
      break;
    case Layout::kWiden32:
      for (size_t k = 0; k < 2 * n; ++k) {
        int32_t word;
        memcpy(&word, g_expect.block + 4 * k, sizeof(word));
        FUZZ_CHECK(dst[k] == word, "entry %zu is %lld, word %d", k, static_cast<long long>(dst[k]),
                   word);
      }
      break;
    case Layout::kNone:
      break;
  }
  g_expect.seen = true;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = [] {
    // Debug level 2 turns on the row trace of setBuf, which reads the
    // destination at 6 x row; the lines themselves go nowhere.
    flicker_host::setProperty("vendor.debug.flicker_mgr.log.level", int64_t{3});
    flicker_host::setDebugLogFile("/dev/null");
    for (int i = 0; i < kSensors; ++i)
      FlickerPlatformAdapter::getInstance(i)->init(0, kSensorIds[i]);
    return true;
  }();
  (void)ready;

  ByteReader in(data, size);
  const int sensor = static_cast<int>(in.pick(kSensors));
  const int32_t width = in.take<int32_t>();
  const int32_t height = in.take<int32_t>();
  const int32_t sensorPath = in.take<int32_t>();
  const int32_t sensorMode = in.take<int32_t>();
  const int32_t autoTest = in.take<int32_t>();
  const int32_t bufIndex = in.take<int32_t>();
  FlickerPlatformAdapter* adapter = FlickerPlatformAdapter::getInstance(sensor);
  const int32_t sensorId = kSensorIds[sensor];

  Window got;
  const int windowRc =
      adapter->setWindowInfo(&got.imgW, &got.imgH, &got.winW, &got.winH, width, height);
  if (width >= 0 && height >= 0) {
    const Window want = expectedWindow(width, height);
    FUZZ_CHECK(windowRc == 0 && got.imgW == want.imgW && got.imgH == want.imgH &&
                   got.winW == want.winW && got.winH == want.winH,
               "window of %dx%d is %d,%d,%d,%d", width, height, got.imgW, got.imgH, got.winW,
               got.winH);
    g_windows[sensor] = want;
  } else {
    FUZZ_CHECK(windowRc == -1, "negative size %dx%d accepted", width, height);
  }
  const Window& window = g_windows[sensor];
  int unused = 12345;
  adapter->getSensorMode(sensorMode, 0, &unused);
  FUZZ_CHECK(unused == 12345, "getSensorMode wrote its output");
  adapter->setFlickerAutoTest(autoTest);

  // The caller contract: how many bytes setBuf may read for this path.
  const bool testing = autoTest == 1;
  Layout layout = Layout::kNone;
  int64_t count = 18 * static_cast<int64_t>(window.winH);
  size_t blockBytes = 0;
  size_t comparedBytes = 0;
  if (sensorPath == 0) {
    layout = Layout::kCopy64;
    if (testing)
      count = std::max<int64_t>(count, 18);
    blockBytes = count > 0 ? static_cast<size_t>(count) * 8 : 0;
    comparedBytes = blockBytes;
  } else if (sensorId == FlickerPlatformAdapter::kSensorId8581) {
    layout = Layout::kCopy32;
    count = sensorMode == 0 ? 150 : 201;
    blockBytes = comparedBytes = static_cast<size_t>(count) * 4;
  } else if (sensorId == FlickerPlatformAdapter::kSensorId1398) {
    layout = Layout::kWiden32;
    count = 192;
    blockBytes = 384 * 4;
    comparedBytes = 384;
  }
  const bool fits = count >= 0 && count <= FlickerPlatformAdapter::kBufEntries;
  if (!fits)
    blockBytes = 0;

  std::unique_ptr<uint8_t[]> block(new uint8_t[std::max<size_t>(blockBytes, 1)]());
  memcpy(block.get(), in.rest(), std::min(blockBytes, in.remaining()));

  int outX = -5;
  int outW = -5;
  int outH = -5;
  const int rc = adapter->setBuf(sensorPath, block.get(), bufIndex, &outX, &outW, &outH);
  if (!fits) {
    FUZZ_CHECK(rc == -1 && outX == -5 && outW == -5 && outH == -5,
               "count %lld outside the buffer: rc %d", static_cast<long long>(count), rc);
    return 0;
  }
  const bool zero = testing && layout != Layout::kNone && allZero(block.get(), comparedBytes);
  FUZZ_CHECK(rc == (zero ? -1 : 0), "setBuf returned %d (all-zero test %d)", rc, zero);
  FUZZ_CHECK(outX == 0 && outW == window.imgW && outH == window.imgH, "outputs %d,%d,%d", outX,
             outW, outH);

  g_expect = Expectation{true, bufIndex != 0, layout, block.get(), count, false};
  adapter->setDetectInfo(0, 50, 10000, 0);
  adapter->detectFlicker();
  FUZZ_CHECK(g_expect.seen, "the detection did not reach the algorithm");
  g_expect = Expectation{};
  return 0;
}
