// Fuzzes the manager's public API as the 3A framework could drive it, in any
// order: up to 64 operations on up to twenty sensors, with the real manager,
// the host platform and the open algorithm (worker threads included).
//
// Input: a sequence of operations, each one byte for the operation (its place
// in kOperations), one byte for the sensor index and then the operation's
// fields (fields past the end of the input read as zero). One operation waits
// (at most 20 ms, three times per input) for a worker to hand a detection to
// the algorithm, so that analyses happen before a later Stop ends the worker.
//
// Checks: nothing crashes, hangs, leaks or trips a sanitizer; GetInstance
// answers null exactly outside 0..19; GetResult always writes a valid record;
// the attachment count never exceeds the product's maximum. At the end of
// every input each sensor that was touched is stopped (which joins its worker
// and detaches it) and released, and the properties are cleared, so the next
// input starts with no thread running, nothing attached and no buffers held.
// The tuning tables, the open algorithm's tuning and the process-wide flicker
// state carry over, as in a camera process that opens one session after
// another.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "cam_flicker_custom.h"
#include "flicker_mgr.h"
#include "fuzz_support.h"
#include "host_data_path.h"
#include "host_log.h"
#include "host_properties.h"

namespace {

constexpr int kSensors = FlickerMgr::kMaxSensors;
constexpr int kMaxOperations = 64;
constexpr int kEntries = FlickerPlatformAdapter::kBufEntries;
const int32_t kSensorIds[] = {0x5695, FlickerPlatformAdapter::kSensorId1398,
                              FlickerPlatformAdapter::kSensorId8581, 0};

// Properties the manager and adapter read when an operation starts. The
// dump switches are left out: every detection would add a folder on disk.
const char* const kProperties[] = {"vendor.debug.flicker_mgr.log.level",
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
                                   "vendor.debug.flicker.systrace"};

// Statistics blocks a frame can carry (generic layout): flat, two phases of
// one band spacing, and another spacing.
std::vector<int64_t> g_patterns[4];

// Detections that reached the algorithm, counted by the wrapper of
// flk_SendCmd below, so an input can let a worker finish its analysis before
// the next operation (a Stop may otherwise end the worker first).
std::mutex g_detectionMutex;
std::condition_variable g_detected;
uint64_t g_detections = 0;

// Per-input state: the sensor the current operation addresses, and what the
// input has touched.
struct Session {
  FuzzInput in;
  int idx = 0;
  FlickerMgr* mgr = nullptr;
  int awaits = 0;
  bool used[kSensors] = {};
  bool buffersHeld[kSensors] = {};  // Init ran and no Uninit since
};

// A size field: mostly small and plausible, sometimes any int32.
int32_t geometry(FuzzInput& in) {
  return (in.take<uint8_t>() & 1) != 0 ? in.take<int32_t>() : in.take<uint16_t>();
}

// Braced lists evaluate left to right, so the fields are read in this order.
flicker_config_info configFrom(FuzzInput& in) {
  return {in.take<int8_t>(),
          {geometry(in), geometry(in)},
          {geometry(in), geometry(in)},
          in.take<uint32_t>(),
          in.take<uint32_t>()};
}

flicker_input_info inputFrom(FuzzInput& in) {
  return {in.take<int8_t>(), in.take<int8_t>(), in.take<int8_t>(), geometry(in),
          geometry(in),      in.take<int8_t>(), in.take<int8_t>()};
}

const uint8_t* patternFrom(FuzzInput& in) {
  const uint8_t pattern = in.take<uint8_t>();
  return pattern == 0xFF
             ? nullptr
             : reinterpret_cast<const uint8_t*>(g_patterns[pattern % std::size(g_patterns)].data());
}

flicker_calc_info calcFrom(FuzzInput& in) {
  return {patternFrom(in),    in.take<int32_t>(), in.take<int8_t>(), in.take<int16_t>(),
          in.take<int16_t>(), geometry(in),       geometry(in),      in.take<int8_t>(),
          in.take<int8_t>(),  in.take<int8_t>(),  in.take<int8_t>(), in.take<int8_t>(),
          in.take<int8_t>(),  in.take<int64_t>()};
}

void getInstance(Session& s) {
  const int any = s.in.take<int8_t>();
  IFlickerMgr* got = IFlickerMgr::GetInstance(any);
  FUZZ_CHECK((got != nullptr) == (any >= 0 && any < kSensors), "GetInstance(%d) gave %p", any,
             static_cast<void*>(got));
}

void init(Session& s) {
  const int dev = s.in.take<int8_t>();
  // A second Init without Uninit drops the adapter's buffers without freeing
  // them, by design; the leak would only grow the process.
  if (s.buffersHeld[s.idx])
    s.mgr->Uninit();
  s.mgr->Init(dev, kSensorIds[s.in.pick(4)]);
  s.buffersHeld[s.idx] = true;
}

void getResult(Session& s) {
  const uint8_t size = s.in.take<uint8_t>();
  std::vector<uint8_t> out(size, 0xA5);
  s.mgr->GetResult(size == 0xFF ? nullptr : &out);
  if (size == 0xFF)
    return;
  FUZZ_CHECK(out.size() >= kFlickerResultSize && out[0] == 1, "result of %zu bytes, valid %d",
             out.size(), out[0]);
  int32_t state;
  memcpy(&state, out.data() + offsetof(FlickerResultRecord, flickerState), sizeof(state));
  FUZZ_CHECK(state == FLICKER_RESULT_50HZ || state == FLICKER_RESULT_60HZ, "state %d", state);
}

void setProperty(Session& s) {
  const char* name = kProperties[s.in.pick(std::size(kProperties))];
  flicker_host::setProperty(name, static_cast<int64_t>(s.in.take<int32_t>()));
}

// Waits (bounded per wait and per input, so an input never trips libFuzzer's
// timeout; a detection takes about 1 ms) until a detection reaches the algorithm.
void awaitDetection(Session& s) {
  if (s.awaits++ >= 3)
    return;
  std::unique_lock<std::mutex> lock(g_detectionMutex);
  const uint64_t seen = g_detections;
  g_detected.wait_for(lock, std::chrono::milliseconds(20), [seen] { return g_detections != seen; });
}

// One entry per operation byte (taken modulo the count); the order fixes the
// input format of the seeds.
using Operation = void (*)(Session& s);
const Operation kOperations[] = {
    getInstance,
    init,
    [](Session& s) {
      s.mgr->Uninit();
      s.buffersHeld[s.idx] = false;
    },
    [](Session& s) { s.mgr->Config(configFrom(s.in)); },
    [](Session& s) { s.mgr->LightWeightReConfig(configFrom(s.in)); },
    [](Session& s) { s.mgr->Start(flicker_start_info{}); },
    [](Session& s) { s.mgr->Stop(); },
    [](Session& s) { s.mgr->SetParam(inputFrom(s.in)); },
    [](Session& s) { s.mgr->DoCalculation(calcFrom(s.in)); },
    getResult,
    [](Session& s) { s.mgr->attach(static_cast<FLK_ATTACH_PRIO_T>(s.in.pick(3))); },
    [](Session& s) { s.mgr->detach(); },
    [](Session& s) { s.mgr->isAttach(); },
    setProperty,
    awaitDetection,
};

int attachedCount() {
  int attached = 0;
  for (int i = 0; i < kSensors; ++i) attached += FlickerMgr::GetInstance(i)->isAttach();
  return attached;
}

}  // namespace

// The link wraps the algorithm entry (-Wl,--wrap=flk_SendCmd): every command
// goes through here to the open algorithm, and detections are counted.
extern "C" int32_t __real_flk_SendCmd(uint32_t cmd, void* in, void* out);
extern "C" int32_t __wrap_flk_SendCmd(uint32_t cmd, void* in, void* out) {
  const int32_t rc = __real_flk_SendCmd(cmd, in, out);
  if (cmd == FLK_CMD_DETECT) {
    std::lock_guard<std::mutex> lock(g_detectionMutex);
    ++g_detections;
    g_detected.notify_all();
  }
  return rc;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  flicker_host::setDataRoot(scratchDir());
  // Every log line is formatted (an input may raise the debug levels) and dropped.
  flicker_host::setDebugLogFile("/dev/null");
  const double periods[] = {1, 40, 40, 48}, shifts[] = {0, 0, 12, 5};  // shifts in lines
  for (int p = 0; p < 4; ++p) {
    for (int i = 0; i < kEntries; ++i)
      g_patterns[p].push_back(p == 0 ? 0 : bandedEntry(i, 50000, 6000, periods[p], shifts[p]));
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Session s{FuzzInput(data, size)};
  for (int n = 0; n < kMaxOperations && !s.in.empty(); ++n) {
    const Operation op = kOperations[s.in.pick(std::size(kOperations))];
    s.idx = static_cast<int>(s.in.pick(kSensors));
    s.mgr = FlickerMgr::GetInstance(s.idx);
    s.used[s.idx] = true;
    op(s);
    FUZZ_CHECK(attachedCount() <= cust_getMaxAttachNum(), "%d sensors attached, at most %d",
               attachedCount(), cust_getMaxAttachNum());
  }
  // Leave the process as the next input expects it: no worker, nothing
  // attached, no statistics buffers, no property set.
  for (const char* name : kProperties) flicker_host::clearProperty(name);
  for (int i = 0; i < kSensors; ++i) {
    FlickerMgr* mgr = FlickerMgr::GetInstance(i);
    if (s.used[i]) {
      mgr->Stop();
      mgr->detach();
      mgr->Uninit();
    }
  }
  FUZZ_CHECK(attachedCount() == 0, "%d sensors still attached", attachedCount());
  return 0;
}
