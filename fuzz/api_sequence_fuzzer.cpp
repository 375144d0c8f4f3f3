// Fuzzes the manager's public API as the 3A framework could drive it, in any
// order: up to 64 operations on up to twenty sensors, with the real manager,
// the host platform and the open algorithm (worker threads included).
//
// Input: a sequence of operations, each one byte for the operation, one byte
// for the sensor index and then the operation's fields (see run() below;
// fields past the end of the input read as zero). One operation waits (at
// most 20 ms, three times per input) for a worker to hand a detection to the
// algorithm, so that analyses happen before a later Stop ends the worker.
//
// Checks: nothing crashes, hangs, leaks or trips a sanitizer; GetInstance
// answers null exactly outside 0..19; GetResult always writes a valid record;
// the attachment count never exceeds the product's maximum. At the end of
// every input each sensor that was touched is stopped (which joins its worker
// and detaches it), released if it was initialised, and the properties set
// are cleared, so the next input starts with no thread running, nothing
// attached and no buffers held. The tuning tables, the open algorithm's
// tuning and the process-wide flicker state carry over, as in a camera
// process that opens one session after another.
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "byte_reader.h"
#include "cam_flicker_custom.h"
#include "flicker_mgr.h"
#include "fuzz_check.h"
#include "host_data_path.h"
#include "host_log.h"
#include "host_properties.h"
#include "scratch_dir.h"

namespace {

constexpr int kSensors = FlickerMgr::kMaxSensors;
constexpr int kMaxOperations = 64;
constexpr int kEntries = FlickerPlatformAdapter::kBufEntries;

enum Op : uint8_t {
  kGetInstance,
  kInit,
  kUninit,
  kConfig,
  kLightWeightReConfig,
  kStart,
  kStop,
  kSetParam,
  kDoCalculation,
  kGetResult,
  kAttach,
  kDetach,
  kIsAttach,
  kSetProperty,
  kAwaitDetection,
  kOpCount,
};

// Properties the manager and adapter read when an operation starts. The
// dump switches are left out: every detection would add a folder on disk.
const char* const kProperties[] = {
    "vendor.debug.flicker_mgr.log.level",
    "vendor.debug.flk_read_file",
    "vendor.debug.flk_clk",
    "vendor.debug.flk_pixel",
    "vendor.debug.flk_w",
    "vendor.debug.flk_h",
    "vendor.debug.flk_switch_en",
    "vendor.debug.flk_not_attach",
    "vendor.debug.flk_def_hz",
    "vendor.debug.flk_ratio",
    "vendor.autotesttool.enable",
    "vendor.debug.flicker_algo.log.level",
    "vendor.debug.flicker.systrace",
};
constexpr unsigned kPropertyCount = sizeof(kProperties) / sizeof(kProperties[0]);

const int32_t kSensorIds[] = {0x5695, FlickerPlatformAdapter::kSensorId1398,
                              FlickerPlatformAdapter::kSensorId8581, 0};

// Statistics blocks a frame can carry: none, two phases of one band
// spacing, and another spacing; generic layout, six entries per line.
constexpr int kPatterns = 4;
std::vector<int64_t>* g_patterns;

void makePatterns() {
  g_patterns = new std::vector<int64_t>[kPatterns];
  const double periods[kPatterns] = {0, 40.0, 40.0, 48.0};
  const double phases[kPatterns] = {0, 0.0, 1.9, 0.7};
  constexpr double kTwoPi = 6.283185307179586;
  for (int p = 0; p < kPatterns; ++p) {
    g_patterns[p].assign(kEntries, 0);
    if (periods[p] == 0)
      continue;
    for (int i = 0; i < kEntries; ++i) {
      const double line = i / 6;
      g_patterns[p][i] =
          static_cast<int64_t>(50000.0 + 6000.0 * std::sin(kTwoPi * line / periods[p] + phases[p]));
    }
  }
}

// Detections that reached the algorithm, counted by the wrapper of
// flk_SendCmd below, so an input can let a worker finish its analysis before
// the next operation (a Stop may otherwise end the worker first).
struct DetectionCounter {
  std::mutex mutex;
  std::condition_variable changed;
  uint64_t count = 0;
};
DetectionCounter& detections() {
  static DetectionCounter counter;
  return counter;
}
// Bounds on waiting: per wait, and waits per input, so an input never takes
// long enough to trip libFuzzer's timeout.
constexpr auto kAwaitLimit = std::chrono::milliseconds(20);  // a detection takes about 1 ms
constexpr int kMaxAwaits = 3;

// Waits until a detection reaches the algorithm, or the limit passes.
void awaitDetection() {
  DetectionCounter& d = detections();
  std::unique_lock<std::mutex> lock(d.mutex);
  const uint64_t seen = d.count;
  d.changed.wait_for(lock, kAwaitLimit, [&d, seen] { return d.count != seen; });
}

// A size field: mostly small and plausible, sometimes any int32.
int32_t geometry(ByteReader& in) {
  const uint8_t how = in.take<uint8_t>();
  return (how & 1) != 0 ? in.take<int32_t>() : static_cast<int32_t>(in.take<uint16_t>());
}

flicker_config_info configFrom(ByteReader& in) {
  flicker_config_info c{};
  c.SensorMode = in.take<int8_t>();
  c.HBIN_INFO.w = geometry(in);
  c.HBIN_INFO.h = geometry(in);
  c.TG_SIZE.w = geometry(in);
  c.TG_SIZE.h = geometry(in);
  c.PixelClk = in.take<uint32_t>();
  c.PixelsInLine = in.take<uint32_t>();
  return c;
}

flicker_input_info inputFrom(ByteReader& in) {
  flicker_input_info p{};
  p.sensorType = in.take<int8_t>();
  p.flickerMode = in.take<int8_t>();
  p.sensorMode = in.take<int8_t>();
  p.tgWidth = geometry(in);
  p.tgHeight = geometry(in);
  p.isMaster = in.take<int8_t>();
  p.aeTargetMode = in.take<int8_t>();
  return p;
}

flicker_calc_info calcFrom(ByteReader& in) {
  flicker_calc_info c{};
  const uint8_t pattern = in.take<uint8_t>();
  c.mVa = pattern == 0xFF
              ? nullptr
              : reinterpret_cast<const uint8_t*>(g_patterns[pattern % kPatterns].data());
  c.exposureTime = in.take<int32_t>();
  c.twinType = in.take<int8_t>();
  c.twinWinX = in.take<int16_t>();
  c.twinWinY = in.take<int16_t>();
  c.width = geometry(in);
  c.height = geometry(in);
  c.doFlkDetection = in.take<int8_t>();
  c.aeDetectCycle = in.take<int8_t>();
  c.statValid = in.take<int8_t>();
  c.pixel_mode = in.take<int8_t>();
  c.flkEnable = in.take<int8_t>();
  c.needReinit = in.take<int8_t>();
  c.sof_timestamp = in.take<int64_t>();
  return c;
}

void checkResult(const std::vector<uint8_t>& out) {
  FUZZ_CHECK(out.size() >= kFlickerResultSize, "result of %zu bytes", out.size());
  FUZZ_CHECK(out[0] == 1, "result not marked valid");
  int32_t state;
  memcpy(&state, out.data() + offsetof(FlickerResultRecord, flickerState), sizeof(state));
  FUZZ_CHECK(state == FLICKER_RESULT_50HZ || state == FLICKER_RESULT_60HZ, "result state %d",
             state);
}

void checkAttachCount() {
  int attached = 0;
  for (int i = 0; i < kSensors; ++i) attached += FlickerMgr::GetInstance(i)->isAttach();
  const int maxAttach = cust_getMaxAttachNum();
  FUZZ_CHECK(attached <= maxAttach, "%d sensors attached, at most %d allowed", attached, maxAttach);
}

// Per-input record of what has to be undone at the end.
struct Touched {
  bool used[kSensors] = {};
  bool buffersHeld[kSensors] = {};  // Init ran and no Uninit since
  bool propertySet[kPropertyCount] = {};
};

void run(ByteReader& in, Touched* t) {
  int awaits = 0;
  for (int n = 0; n < kMaxOperations && !in.empty(); ++n) {
    const Op op = static_cast<Op>(in.pick(kOpCount));
    const int idx = static_cast<int>(in.pick(kSensors));
    FlickerMgr* mgr = FlickerMgr::GetInstance(idx);
    if (op != kGetInstance && op != kSetProperty)
      t->used[idx] = true;
    switch (op) {
      case kGetInstance: {
        const int any = in.take<int8_t>();
        IFlickerMgr* got = IFlickerMgr::GetInstance(any);
        FUZZ_CHECK((got != nullptr) == (any >= 0 && any < kSensors), "GetInstance(%d) gave %p", any,
                   static_cast<void*>(got));
        break;
      }
      case kInit: {
        const int dev = in.take<int8_t>();
        // A second Init without Uninit drops the adapter's buffers without
        // freeing them, by design; the leak would only grow the process.
        if (t->buffersHeld[idx])
          mgr->Uninit();
        mgr->Init(dev, kSensorIds[in.pick(4)]);
        t->buffersHeld[idx] = true;
        break;
      }
      case kUninit:
        mgr->Uninit();
        t->buffersHeld[idx] = false;
        break;
      case kConfig:
        mgr->Config(configFrom(in));
        break;
      case kLightWeightReConfig:
        mgr->LightWeightReConfig(configFrom(in));
        break;
      case kStart:
        mgr->Start(flicker_start_info{});
        break;
      case kStop:
        mgr->Stop();
        break;
      case kSetParam:
        mgr->SetParam(inputFrom(in));
        break;
      case kDoCalculation:
        mgr->DoCalculation(calcFrom(in));
        break;
      case kGetResult: {
        const uint8_t size = in.take<uint8_t>();
        if (size == 0xFF) {
          mgr->GetResult(nullptr);
          break;
        }
        std::vector<uint8_t> out(size, 0xA5);
        mgr->GetResult(&out);
        checkResult(out);
        break;
      }
      case kAttach:
        mgr->attach(static_cast<FLK_ATTACH_PRIO_T>(in.pick(3)));
        break;
      case kDetach:
        mgr->detach();
        break;
      case kIsAttach:
        mgr->isAttach();
        break;
      case kSetProperty: {
        const unsigned which = in.pick(kPropertyCount);
        flicker_host::setProperty(kProperties[which], static_cast<int64_t>(in.take<int32_t>()));
        t->propertySet[which] = true;
        break;
      }
      case kAwaitDetection:
        if (awaits++ < kMaxAwaits)
          awaitDetection();
        break;
      case kOpCount:
        break;
    }
    checkAttachCount();
  }
}

}  // namespace

// The link wraps the algorithm entry (-Wl,--wrap=flk_SendCmd): every command
// goes through here to the open algorithm, and detections are counted.
extern "C" int32_t __real_flk_SendCmd(uint32_t cmd, void* in, void* out);
extern "C" int32_t __wrap_flk_SendCmd(uint32_t cmd, void* in, void* out) {
  const int32_t rc = __real_flk_SendCmd(cmd, in, out);
  if (cmd == FLK_CMD_DETECT) {
    DetectionCounter& d = detections();
    {
      std::lock_guard<std::mutex> lock(d.mutex);
      ++d.count;
    }
    d.changed.notify_all();
  }
  return rc;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ScratchDir dir;  // removed again when the process exits normally
  static bool ready = [] {
    flicker_host::setDataRoot(dir.path());
    // Every log line is formatted (debug levels may be switched on by an
    // input) and then dropped.
    flicker_host::setDebugLogFile("/dev/null");
    makePatterns();
    return true;
  }();
  (void)ready;

  Touched touched;
  ByteReader in(data, size);
  run(in, &touched);

  // Leave the process as the next input expects it: no worker, nothing
  // attached, no statistics buffers, no property set.
  for (unsigned i = 0; i < kPropertyCount; ++i) {
    if (touched.propertySet[i])
      flicker_host::clearProperty(kProperties[i]);
  }
  for (int i = 0; i < kSensors; ++i) {
    if (!touched.used[i])
      continue;
    FlickerMgr* mgr = FlickerMgr::GetInstance(i);
    mgr->Stop();
    mgr->detach();
    if (touched.buffersHeld[i])
      mgr->Uninit();
  }
  for (int i = 0; i < kSensors; ++i)
    FUZZ_CHECK(FlickerMgr::GetInstance(i)->isAttach() == 0, "sensor %d still attached", i);
  return 0;
}
