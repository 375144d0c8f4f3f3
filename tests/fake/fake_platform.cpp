// The recording fake's state, reset and the non-logging platform interfaces:
// properties, customisation, NVRAM, tracing, thread priority and data paths.
#include "fake_platform.h"

#include <ftw.h>
#include <pthread.h>
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

void removeTree(const std::string& root) {
  if (!root.empty())
    nftw(root.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

// Removes the last temporary root at process exit.
struct RootCleaner {
  ~RootCleaner() {
    PlatformState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.ownsDataRoot)
      removeTree(s.dataRoot);
  }
};

std::string makeTempRoot() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = (tmp != nullptr && tmp[0] != '\0') ? tmp : "/tmp";
  pattern += "/flicker_fake_XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    fprintf(stderr, "fake_platform: mkdtemp(%s) failed: %s\n", pattern.c_str(), strerror(errno));
    abort();  // a test without its data root cannot run meaningfully
  }
  return buffer.data();
}

const char kDeviceDataRoot[] = "/data/vendor/flicker";

bool underDeviceRoot(const char* path) {
  const size_t n = sizeof(kDeviceDataRoot) - 1;
  return strncmp(path, kDeviceDataRoot, n) == 0 && (path[n] == '\0' || path[n] == '/');
}

}  // namespace

PlatformState& state() {
  static PlatformState s;
  static RootCleaner cleaner;  // constructed after s, so destroyed before it
  return s;
}

bool parseInteger(const std::string& text, int64_t* value) {
  if (text.empty())
    return false;
  errno = 0;
  char* end = nullptr;
  const long long parsed = strtoll(text.c_str(), &end, 0);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE)
    return false;
  *value = parsed;
  return true;
}

}  // namespace detail

using detail::state;

void reset() {
  detail::PlatformState& s = state();
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    s.logs.clear();
    s.properties.clear();
    s.traceTags = 0;
    s.traces.clear();
    s.priorityRequests.clear();
    s.threadNames.clear();
    s.maxAttach = 1;
    s.detectFrequency = 3;
    s.initHz = 50;
    s.halPara = 70000;
    s.binningRatio = 1;
    s.binningQueries.clear();
    s.nvramResult = 0;
    s.nvramFill = nullptr;
    s.nvramCalls.clear();
    if (s.ownsDataRoot)
      detail::removeTree(s.dataRoot);
    s.dataRoot = detail::makeTempRoot();
    s.ownsDataRoot = true;
  }
  setLogFramework(0xB, 5, NSCam::Utils::ULog::kFlickerModuleMask);
  g_logInfoLv[CAM_LOG_LEVEL_DEBUG] = {kLogInfoLvEnabled, ""};
  g_logInfoLv[CAM_LOG_LEVEL_ERROR] = {kLogInfoLvEnabled, ""};
  detail::resetAllocationFailures();
  if (fake_platform_reset_algo != nullptr)
    fake_platform_reset_algo();
}

// ---- Properties ----
void setProperty(const std::string& key, int64_t value) {
  setPropertyText(key, std::to_string(value));
}

void setPropertyText(const std::string& key, const std::string& value) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().properties[key] = value;
}

void clearProperties() {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().properties.clear();
}

// ---- Customisation ----
void setMaxAttachNum(int n) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().maxAttach = n;
}

void setDetectFrequency(int frames) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().detectFrequency = frames;
}

void setHalPara(int initHz, int halPara) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().initHz = initHz;
  state().halPara = halPara;
}

void setSensorBinningRatio(int ratio) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().binningRatio = ratio;
}

std::vector<BinningQuery> binningQueries() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().binningQueries;
}

// ---- NVRAM ----
void setNvramResult(int rc) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().nvramResult = rc;
}

void setNvramFill(std::function<void(int row, int col, FLICKER_CUST_PARA& rec)> fill) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().nvramFill = std::move(fill);
}

std::vector<NvramCall> nvramCalls() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().nvramCalls;
}

// ---- Tracing ----
void setTraceTags(uint64_t tags) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().traceTags = tags;
}

std::vector<TraceEvent> traces() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().traces;
}

// ---- Thread priority ----
std::vector<PriorityRequest> priorityRequests() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().priorityRequests;
}

std::vector<std::string> threadNamesSeen() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().threadNames;
}

// ---- Data paths ----
std::string dataRoot() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().dataRoot;
}

void setDataRoot(const std::string& root) {
  std::lock_guard<std::mutex> lock(state().mutex);
  if (state().ownsDataRoot)
    detail::removeTree(state().dataRoot);
  state().dataRoot = root;
  state().ownsDataRoot = false;
}

std::string hostPath(const std::string& devicePath) {
  if (!detail::underDeviceRoot(devicePath.c_str()))
    return devicePath;
  return dataRoot() + devicePath;
}

}  // namespace fake_platform

// ---- The platform interfaces ----
using fake_platform::detail::state;

namespace NSCam {
namespace Utils {
namespace Properties {

namespace {
bool lookup(const char* key, int64_t* value) {
  if (key == nullptr)
    return false;
  std::string text;
  {
    std::lock_guard<std::mutex> lock(state().mutex);
    const auto it = state().properties.find(key);
    if (it == state().properties.end())
      return false;
    text = it->second;
  }
  return fake_platform::detail::parseInteger(text, value);
}
}  // namespace

int32_t property_get_int32(const char* key, int32_t defaultValue) {
  int64_t value = 0;
  if (!lookup(key, &value) || value < INT32_MIN || value > INT32_MAX)
    return defaultValue;
  return static_cast<int32_t>(value);
}

int64_t property_get_int64(const char* key, int64_t defaultValue) {
  int64_t value = 0;
  return lookup(key, &value) ? value : defaultValue;
}

}  // namespace Properties

namespace {
// What this thread asked for last; getThreadPriority reports it back.
thread_local int tlsPolicy = 0;
thread_local int tlsPriority = 0;
}  // namespace

void setThreadPriority(int policy, int priority) {
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof(name));
  tlsPolicy = policy;
  tlsPriority = priority;
  std::lock_guard<std::mutex> lock(state().mutex);
  state().priorityRequests.push_back({policy, priority});
  state().threadNames.emplace_back(name);
}

void getThreadPriority(int& policy, int& priority) {
  policy = tlsPolicy;
  priority = tlsPriority;
}

}  // namespace Utils
}  // namespace NSCam

extern "C" {

uint64_t atrace_get_enabled_tags(void) {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().traceTags;
}

void atrace_begin_body(const char* name) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().traces.push_back({true, name != nullptr ? name : ""});
}

void atrace_end_body(void) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().traces.push_back({false, ""});
}

int cust_getMaxAttachNum(void) {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().maxAttach;
}

int cust_getFlickerDetectFrequency(void) {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().detectFrequency;
}

void cust_getFlickerHalPara(int* initHz, int* halPara) {
  std::lock_guard<std::mutex> lock(state().mutex);
  if (initHz != nullptr)
    *initHz = state().initHz;
  if (halPara != nullptr)
    *halPara = state().halPara;
}

int cust_getSensorBinningRatio(int sensorId, int sensorMode) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().binningQueries.push_back({sensorId, sensorMode});
  return state().binningRatio;
}

int nvGetFlickerParaAll(unsigned int sensorId, int sensorDev, int sensorModeTotal,
                        int binRatioTotal, FLICKER_CUST_PARA*** table) {
  std::function<void(int, int, FLICKER_CUST_PARA&)> fill;
  int result = 0;
  {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().nvramCalls.push_back({sensorId, sensorDev, sensorModeTotal, binRatioTotal});
    fill = state().nvramFill;
    result = state().nvramResult;
  }
  if (fill && table != nullptr && *table != nullptr) {
    for (int row = 0; row < sensorModeTotal; ++row) {
      FLICKER_CUST_PARA* records = (*table)[row];
      if (records == nullptr)
        continue;
      for (int col = 0; col < binRatioTotal; ++col) fill(row, col, records[col]);
    }
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
