// Internal state shared by the fake's translation units. Not for tests: tests
// use fake_platform.h only.
//
// Threading: every field is guarded by `mutex` unless it is atomic. Hooks are
// copied out under the lock and run after it is released.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "fake_platform.h"

namespace fake_platform {
namespace detail {

struct PlatformState {
  std::mutex mutex;
  std::vector<LogLine> logs;
  std::map<std::string, std::string> properties;
  uint64_t traceTags = 0;
  std::vector<TraceEvent> traces;
  std::vector<PriorityRequest> priorityRequests;
  std::vector<std::string> threadNames;
  int maxAttach = 1;
  int detectFrequency = 3;
  int initHz = 50;
  int halPara = 70000;
  int binningRatio = 1;
  std::vector<BinningQuery> binningQueries;
  int nvramResult = 0;
  std::function<void(int, int, FLICKER_CUST_PARA&)> nvramFill;
  std::vector<NvramCall> nvramCalls;
  std::string dataRoot;
  bool ownsDataRoot = false;  // created by reset(), removed by the next reset()
};

PlatformState& state();

// Parses a property value the way the phone's reader does: optional spaces
// and sign, then decimal, 0x hex or leading-zero octal, nothing after it.
bool parseInteger(const std::string& text, int64_t* value);

// Clears the allocation-failure settings (fake_alloc.cpp).
void resetAllocationFailures();

}  // namespace detail
}  // namespace fake_platform

// Resets the scripted algorithm; defined by flicker_fake_algo when it is
// linked, so that reset() also covers it.
extern "C" void fake_platform_reset_algo() __attribute__((weak));
