// Recording fake of every platform interface the manager library calls, for
// tests. Link `flicker_fake_platform` (properties, logs, tracing, thread
// priority, NVRAM, customisation, data paths, allocation failure) and, when the
// test wants a scripted algorithm, `flicker_fake_algo` (flk_SendCmd). Use
// flicker_use_fake_platform(<target>) from tests/fake/CMakeLists.txt: it links
// both and wraps malloc/calloc so allocations can be made to fail.
//
// Everything the library did is recorded and can be asserted on. All
// functions are thread-safe (one internal mutex); hooks run under no lock.
// reset() restores the defaults below; each test should call it first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cam_flicker_nvram.h"
#include "flicker_algo_cmd.h"

namespace fake_platform {

// Defaults after reset():
//  - framework log state: ULogger::sMode = 0xB (both sinks), sDetailsLevel = 5,
//    sNormalDetailsMask = 0x801000, g_logInfoLv both enabled with prefix "".
//  - no properties; trace tags 0; customisation: max attach 1, detect
//    frequency 3, hal para {50, 70000}, sensor binning 1.
//  - NVRAM returns 0 and leaves the table untouched.
//  - algorithm: records every command; detection answers {2, 0, 0}.
//  - data root: a fresh empty temporary folder (see dataRoot()).
//  - no allocation failure armed.
void reset();

// ---- Logging ----
struct LogLine {
  int sink;          // 0: debug-print sink, 1: unified logger
  int level;         // debug-print: 0 debug, 1 error; unified: 5 debug, 1 error
  std::string tag;   // "FlickerMgr", "FlickerPlatformAdapter", "FlickerAlgo"
  std::string text;  // the fully formatted line as the sink received it
};
std::vector<LogLine> logs();
// Lines of the unified logger only (the message alone, no header).
std::vector<std::string> messages();
bool logged(const std::string& substring);       // any sink, any level
int countLogged(const std::string& substring);   // unified-logger lines containing it
bool loggedError(const std::string& substring);  // unified logger, error level
void clearLogs();
void setLogFramework(int mode, unsigned detailsLevel, unsigned detailsMask);

// ---- Properties ----
void setProperty(const std::string& key, int64_t value);

// ---- Customisation ----
void setMaxAttachNum(int n);
void setDetectFrequency(int frames);
void setSensorBinningRatio(int ratio);

// ---- NVRAM ----
struct NvramCall {
  unsigned sensorId;
  int sensorDev;
  int modeTotal;
  int ratioTotal;
};
void setNvramResult(int rc);
// Called for each of the rows x columns records during nvGetFlickerParaAll.
void setNvramFill(std::function<void(int row, int col, FLICKER_CUST_PARA& rec)> fill);
std::vector<NvramCall> nvramCalls();

// ---- Algorithm (flicker_fake_algo) ----
struct AlgoCall {
  uint32_t cmd;
  std::vector<uint8_t> in;  // copy of the input record: 40, 0, 200, 144, 4, 4 or 16 bytes
};
std::vector<AlgoCall> algoCalls();
std::vector<AlgoCall> algoCalls(uint32_t cmd);
void clearAlgoCalls();
// Answers for the next detections, in order; when exhausted, {2, 0, 0}.
void scriptDetectResults(const std::vector<FlkDetectResult>& results);
// Runs synchronously inside command 2 (after the scripted result was written),
// with the record as received; may read the statistics buffers and change
// the result.
void setDetectHook(std::function<void(const FlkDetectPara&, FlkDetectResult*)> hook);
// Blocks inside command 2 until release is called; for tests that stop a worker
// mid-analysis. waitDetectEntered returns false on timeout.
void holdDetections(bool hold);
bool waitDetectEntered(int timeoutMs);
void releaseDetections();

// ---- Tracing ----
struct TraceEvent {
  bool begin;
  std::string name;  // empty for an end
};
void setTraceTags(uint64_t tags);
std::vector<TraceEvent> traces();

// Thread priority: getThreadPriority reports what the calling thread asked
// for last.

// ---- Data paths ----
// The folder the device paths are mapped under ("/data/vendor/..." ->
// dataRoot() + "/data/vendor/...").
std::string dataRoot();
void setDataRoot(const std::string& root);
// A device path as it is found on the host under the data root.
std::string hostPath(const std::string& devicePath);

// ---- Allocation failure (malloc and calloc of the linked code) ----
// The n-th allocation from now (1 = the next) returns null; 0 disarms.
void failNthAllocation(int n);
int failedAllocations();

}  // namespace fake_platform
