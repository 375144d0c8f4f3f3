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
// command compares the slot setBuf filled with the block as converted.
#include <memory>
#include <vector>

#include "flicker_platform_adapter.h"
#include "fuzz_support.h"
#include "host_log.h"
#include "host_properties.h"

namespace {

using Adapter = FlickerPlatformAdapter;

// One adapter per sensor identity, so the identity never has to change on
// an adapter (init replaces its buffers).
constexpr int32_t kSensorIds[] = {
    0, Adapter::kSensorId1398, Adapter::kSensorId8581, 1397, 8582, -1, INT32_MAX, 5695};
constexpr int kSensors = sizeof(kSensorIds) / sizeof(kSensorIds[0]);

// The window in force on each adapter as the harness expects it.
struct Window {
  int imgW, imgH, winW, winH;
};
Window g_windows[kSensors];

// What the detection command must find at the start of the slot setBuf
// filled (slot -1: no check armed), and whether it ran.
int g_slot = -1;
std::vector<uint8_t> g_want;
bool g_seen = false;

}  // namespace

extern "C" int32_t flk_SendCmd(uint32_t cmd, void* in, void* /*out*/) {
  if (cmd != FLK_CMD_DETECT || g_slot < 0)
    return 0;
  const auto* para = static_cast<const FlkDetectPara*>(in);
  const int64_t* slot = g_slot == 1 ? para->statsSlot1 : para->statsSlot0;
  FUZZ_CHECK(slot != nullptr, "detection without buffers");
  FUZZ_CHECK(g_want.empty() || memcmp(slot, g_want.data(), g_want.size()) == 0, "slot %d differs",
             g_slot);
  g_seen = true;
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Debug level 3 turns on the row trace of setBuf, which reads the
  // destination at 6 x row; the lines themselves go nowhere.
  flicker_host::setProperty("vendor.debug.flicker_mgr.log.level", int64_t{3});
  flicker_host::setDebugLogFile("/dev/null");
  for (int i = 0; i < kSensors; ++i) Adapter::getInstance(i)->init(0, kSensorIds[i]);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const int sensor = static_cast<int>(in.pick(kSensors));
  const int32_t width = in.take<int32_t>();
  const int32_t height = in.take<int32_t>();
  const int32_t sensorPath = in.take<int32_t>();
  const int32_t sensorMode = in.take<int32_t>();
  const int32_t autoTest = in.take<int32_t>();
  const int32_t bufIndex = in.take<int32_t>();
  Adapter* adapter = Adapter::getInstance(sensor);
  Window& window = g_windows[sensor];
  // setWindowInfo follows the documented arithmetic; a refused size keeps the
  // window in force.
  const int windowRc = adapter->setWindowInfo(width, height);
  const FlickerStatWindow w = adapter->statWindow();
  const Window got{w.imgW, w.imgH, w.winW, w.winH};
  const bool sizeOk = width >= 0 && height >= 0;
  const int imgH = !sizeOk ? 0 : height <= 6039 ? height - 45 : 5994;
  window = sizeOk ? Window{width, imgH, 2 * (width / 12), 2 * (imgH / 6)} : window;
  FUZZ_CHECK((sizeOk ? windowRc == 0 : windowRc == -1) && memcmp(&got, &window, sizeof(got)) == 0,
             "window of %dx%d: rc %d, %d,%d,%d,%d", width, height, windowRc, got.imgW, got.imgH,
             got.winW, got.winH);
  int unused = 12345;
  adapter->getSensorMode(sensorMode, 0, &unused);
  FUZZ_CHECK(unused == 12345, "getSensorMode wrote its output");
  adapter->setFlickerAutoTest(autoTest);

  // The caller contract of the path: entries converted, bytes setBuf may read
  // and bytes the auto-test's all-zero self-check reads.
  const bool testing = autoTest == 1;
  int64_t count = 18 * static_cast<int64_t>(window.winH);
  size_t blockBytes = 0;
  size_t checkedBytes = 0;
  const bool widen = sensorPath != 0 && kSensorIds[sensor] == Adapter::kSensorId1398;
  if (sensorPath == 0) {
    count = testing ? std::max<int64_t>(count, 18) : count;
    blockBytes = checkedBytes = count > 0 ? static_cast<size_t>(count) * 8 : 0;
  } else if (kSensorIds[sensor] == Adapter::kSensorId8581) {
    count = sensorMode == 0 ? 150 : 201;
    blockBytes = checkedBytes = static_cast<size_t>(count) * 4;
  } else if (widen) {
    count = 192;
    blockBytes = 384 * 4;
    checkedBytes = 384;
  }
  const bool fits = count >= 0 && count <= Adapter::kBufEntries;
  blockBytes = fits ? blockBytes : 0;
  std::unique_ptr<uint8_t[]> block(new uint8_t[std::max<size_t>(blockBytes, 1)]());
  in.copy(block.get(), blockBytes);

  const int rc = adapter->setBuf(sensorPath, block.get(), bufIndex);
  if (!fits) {
    FUZZ_CHECK(rc == -1, "count %lld outside the buffer: rc %d", static_cast<long long>(count), rc);
    return 0;
  }
  const bool zero =
      testing && checkedBytes > 0 &&
      std::all_of(block.get(), block.get() + checkedBytes, [](uint8_t b) { return b == 0; });
  FUZZ_CHECK(rc == (zero ? -1 : 0), "setBuf returned %d (all-zero test %d)", rc, zero);

  // The slot holds the block as it is, or on sensor 1398 its words widened to int64.
  std::vector<int64_t> wide(widen ? 2 * count : 0);
  FuzzInput words(block.get(), blockBytes);
  for (int64_t& entry : wide) entry = words.take<int32_t>();
  const uint8_t* want = widen ? reinterpret_cast<const uint8_t*>(wide.data()) : block.get();
  g_want.assign(want, want + (widen ? wide.size() * sizeof(int64_t) : blockBytes));
  g_slot = bufIndex != 0 ? 1 : 0;
  g_seen = false;
  adapter->setDetectInfo(0, 50, 10000, 0);
  adapter->detectFlicker();
  g_slot = -1;
  FUZZ_CHECK(g_seen, "the detection did not reach the algorithm");
  return 0;
}
