// Internal state shared by the fake's translation units. Not for tests: tests
// use fake_platform.h only.
//
// Threading: every field is guarded by the state's mutex; use locked(). Hooks
// are copied out under the lock and run after it is released.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "fake_platform.h"

namespace fake_platform {
namespace detail {

// Defaults as after reset().
struct PlatformState {
  std::vector<LogLine> logs;
  std::map<std::string, int64_t> properties;
  uint64_t traceTags = 0;
  std::vector<TraceEvent> traces;
  int maxAttach = 1;
  int detectFrequency = 3;
  int binningRatio = 1;
  int nvramResult = 0;
  std::function<void(int, int, FLICKER_CUST_PARA&)> nvramFill;
  std::vector<NvramCall> nvramCalls;
  std::string dataRoot;
  bool ownsDataRoot = false;  // created by reset(), removed by the next reset()
};

std::mutex& stateMutex();
PlatformState& state();

// Runs `f` on the state under its mutex and returns what it returns.
template <typename F>
auto locked(F&& f) {
  std::lock_guard<std::mutex> lock(stateMutex());
  return f(state());
}

// Clears the allocation-failure settings (fake_alloc.cpp).
void resetAllocationFailures();

}  // namespace detail
}  // namespace fake_platform

// Resets the scripted algorithm; defined by flicker_fake_algo when it is
// linked, so that reset() also covers it.
extern "C" void fake_platform_reset_algo() __attribute__((weak));
