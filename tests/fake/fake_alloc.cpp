// Allocation failure injection through the linker's --wrap of malloc and
// calloc. Only direct calls from the objects linked into the test binary are
// wrapped (the manager library, the fakes, the tests); operator new and the
// shared C/C++ runtimes keep the real allocator.
//
// The wrappers run on every allocation of every thread, also under
// AddressSanitizer (the real functions are ASan's interceptors). They take no
// lock and allocate nothing: the settings are relaxed atomics, and the
// numbering is an atomic read-modify-write, so that concurrent allocations
// fail exactly as often as armed.
#include <atomic>
#include <cerrno>
#include <cstddef>

#include "fake_platform.h"
#include "fake_state.h"

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
}

namespace {

// Allocations are numbered as they come, and the one whose number equals the
// target fails (0: none).
std::atomic<long> g_seen{0};
std::atomic<long> g_failAt{0};
std::atomic<int> g_failed{0};

bool shouldFail() {
  if (g_seen.fetch_add(1, std::memory_order_relaxed) + 1 !=
      g_failAt.load(std::memory_order_relaxed))
    return false;
  g_failed.fetch_add(1, std::memory_order_relaxed);
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  return shouldFail() ? nullptr : __real_malloc(size);
}

extern "C" void* __wrap_calloc(size_t count, size_t size) {
  return shouldFail() ? nullptr : __real_calloc(count, size);
}

namespace fake_platform {

void failNthAllocation(int n) {
  g_failAt.store(n > 0 ? g_seen.load(std::memory_order_relaxed) + n : 0, std::memory_order_relaxed);
}

int failedAllocations() {
  return g_failed.load(std::memory_order_relaxed);
}

namespace detail {
void resetAllocationFailures() {
  failNthAllocation(0);
  g_failed.store(0, std::memory_order_relaxed);
}
}  // namespace detail

}  // namespace fake_platform
