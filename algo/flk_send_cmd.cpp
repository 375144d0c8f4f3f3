// The algorithm library's single entry.
//
// One algorithm state serves the whole process: every sensor's adapter talks
// to the same object, so pairs from several sensors share one history (the
// flicker state they feed is process-wide as well). A mutex serialises the
// commands, which makes concurrent calls from several worker threads
// memory-safe; its cost is one uncontended lock per command. Neither is ever
// destroyed: a manager's worker may be inside a detection while the process
// exits.
#include <mutex>

#include "flicker_algo_cmd.h"
#include "open_flicker_algo.h"

namespace {

std::mutex& algoMutex() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}

open_algo::OpenFlickerAlgo& algo() {
  static auto* const instance = new open_algo::OpenFlickerAlgo;
  return *instance;
}

}  // namespace

extern "C" int32_t flk_SendCmd(uint32_t cmd, void* in, void* out) {
  std::lock_guard<std::mutex> lock(algoMutex());
  return algo().handle(cmd, in, out);
}
