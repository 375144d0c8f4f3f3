// The recording fake's state, reset and the non-logging platform interfaces:
// properties, customisation, NVRAM, tracing, thread priority and data paths.
#include "fake_platform.h"

#include <ftw.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cam_data_path.h"
#include "cam_flicker_custom.h"
#include "cam_flicker_nvram.h"
#include "cam_log.h"
#include "cam_properties.h"
#include "cam_thread.h"
#include "cam_trace.h"
#include "fake_state.h"

namespace fake_platform {
namespace detail {

namespace {
// Removes a temporary data root with everything the test wrote into it.
int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
  return remove(path);
}

void releaseRoot(PlatformState& s) {
  if (s.ownsDataRoot && !s.dataRoot.empty())
    nftw(s.dataRoot.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
  s.ownsDataRoot = false;
}

// Removes the last temporary root at process exit.
struct RootCleaner {
  ~RootCleaner() { locked(releaseRoot); }
};

std::string makeTempRoot() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = (tmp != nullptr && tmp[0] != '\0') ? tmp : "/tmp";
  pattern += "/flicker_fake_XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr) {
    fprintf(stderr, "fake_platform: mkdtemp(%s) failed: %s\n", pattern.c_str(), strerror(errno));
    abort();  // a test without its data root cannot run meaningfully
  }
  return pattern;
}

}  // namespace

std::mutex& stateMutex() {
  static std::mutex mutex;
  return mutex;
}

PlatformState& state() {
  static PlatformState s;
  static RootCleaner cleaner;  // constructed after s, so destroyed before it
  return s;
}

}  // namespace detail

using detail::locked;
using detail::PlatformState;

void reset() {
  locked([](PlatformState& s) {
    detail::releaseRoot(s);
    s = PlatformState{};
    s.dataRoot = detail::makeTempRoot();
    s.ownsDataRoot = true;
  });
  setLogFramework(0xB, 5, NSCam::Utils::ULog::kFlickerModuleMask);
  g_logInfoLv[CAM_LOG_LEVEL_DEBUG] = {kLogInfoLvEnabled, ""};
  g_logInfoLv[CAM_LOG_LEVEL_ERROR] = {kLogInfoLvEnabled, ""};
  detail::resetAllocationFailures();
  if (fake_platform_reset_algo != nullptr)
    fake_platform_reset_algo();
}

void setProperty(const std::string& key, int64_t value) {
  locked([&](PlatformState& s) { s.properties[key] = value; });
}

void setMaxAttachNum(int n) {
  locked([&](PlatformState& s) { s.maxAttach = n; });
}

void setDetectFrequency(int frames) {
  locked([&](PlatformState& s) { s.detectFrequency = frames; });
}

void setSensorBinningRatio(int ratio) {
  locked([&](PlatformState& s) { s.binningRatio = ratio; });
}

void setNvramResult(int rc) {
  locked([&](PlatformState& s) { s.nvramResult = rc; });
}

void setNvramFill(std::function<void(int row, int col, FLICKER_CUST_PARA& rec)> fill) {
  locked([&](PlatformState& s) { s.nvramFill = std::move(fill); });
}

std::vector<NvramCall> nvramCalls() {
  return locked([](PlatformState& s) { return s.nvramCalls; });
}

void setTraceTags(uint64_t tags) {
  locked([&](PlatformState& s) { s.traceTags = tags; });
}

std::vector<TraceEvent> traces() {
  return locked([](PlatformState& s) { return s.traces; });
}

std::string dataRoot() {
  return locked([](PlatformState& s) { return s.dataRoot; });
}

void setDataRoot(const std::string& root) {
  locked([&](PlatformState& s) {
    detail::releaseRoot(s);
    s.dataRoot = root;
  });
}

std::string hostPath(const std::string& devicePath) {
  static const std::string kDeviceRoot = "/data/vendor/flicker";
  const bool under =
      devicePath.compare(0, kDeviceRoot.size(), kDeviceRoot) == 0 &&
      (devicePath.size() == kDeviceRoot.size() || devicePath[kDeviceRoot.size()] == '/');
  return under ? dataRoot() + devicePath : devicePath;
}

}  // namespace fake_platform

// ---- The platform interfaces ----
using fake_platform::detail::locked;
using fake_platform::detail::PlatformState;

namespace NSCam {
namespace Utils {
namespace Properties {

int32_t property_get_int32(const char* key, int32_t defaultValue) {
  const int64_t value = property_get_int64(key, defaultValue);
  return value < INT32_MIN || value > INT32_MAX ? defaultValue : static_cast<int32_t>(value);
}

int64_t property_get_int64(const char* key, int64_t defaultValue) {
  if (key == nullptr)
    return defaultValue;
  return locked([&](PlatformState& s) {
    const auto it = s.properties.find(key);
    return it == s.properties.end() ? defaultValue : it->second;
  });
}

}  // namespace Properties

namespace {
// What this thread asked for last; getThreadPriority reports it back.
thread_local int tlsPolicy = 0;
thread_local int tlsPriority = 0;
}  // namespace

void setThreadPriority(int policy, int priority) {
  tlsPolicy = policy;
  tlsPriority = priority;
}

void getThreadPriority(int& policy, int& priority) {
  policy = tlsPolicy;
  priority = tlsPriority;
}

}  // namespace Utils
}  // namespace NSCam

extern "C" {

uint64_t atrace_get_enabled_tags(void) {
  return locked([](PlatformState& s) { return s.traceTags; });
}

void atrace_begin_body(const char* name) {
  locked([&](PlatformState& s) { s.traces.push_back({true, name != nullptr ? name : ""}); });
}

void atrace_end_body(void) {
  locked([](PlatformState& s) { s.traces.push_back({false, ""}); });
}

int cust_getMaxAttachNum(void) {
  return locked([](PlatformState& s) { return s.maxAttach; });
}

int cust_getFlickerDetectFrequency(void) {
  return locked([](PlatformState& s) { return s.detectFrequency; });
}

void cust_getFlickerHalPara(int* initHz, int* halPara) {
  if (initHz != nullptr)
    *initHz = 50;
  if (halPara != nullptr)
    *halPara = 70000;
}

int cust_getSensorBinningRatio(int /*sensorId*/, int /*sensorMode*/) {
  return locked([](PlatformState& s) { return s.binningRatio; });
}

int nvGetFlickerParaAll(unsigned int sensorId, int sensorDev, int sensorModeTotal,
                        int binRatioTotal, FLICKER_CUST_PARA*** table) {
  std::function<void(int, int, FLICKER_CUST_PARA&)> fill;
  const int result = locked([&](PlatformState& s) {
    s.nvramCalls.push_back({sensorId, sensorDev, sensorModeTotal, binRatioTotal});
    fill = s.nvramFill;
    return s.nvramResult;
  });
  for (int row = 0; fill && table != nullptr && *table != nullptr && row < sensorModeTotal; ++row) {
    for (int col = 0; (*table)[row] != nullptr && col < binRatioTotal; ++col)
      fill(row, col, (*table)[row][col]);
  }
  return result;
}

bool flicker_map_data_path(const char* devicePath, char* out, size_t outSize) {
  if (out == nullptr || outSize == 0)
    return false;
  out[0] = '\0';
  if (devicePath == nullptr)
    return false;
  const std::string mapped = fake_platform::hostPath(devicePath);
  if (mapped.size() >= outSize)
    return false;
  memcpy(out, mapped.c_str(), mapped.size() + 1);
  return true;
}

}  // extern "C"
