// Allocation failure injection through the linker's --wrap of malloc and
// calloc. Only direct calls from the objects linked into the test binary are
// wrapped (the manager library, the fakes, the tests); operator new and the
// shared C/C++ runtimes keep the real allocator.
//
// The wrappers run on every allocation of every thread, also under
// AddressSanitizer (the real functions are ASan's interceptors). They take no
// lock and allocate nothing: the settings are relaxed atomics, consumed with
// compare-and-swap so that concurrent allocations fail exactly as often as
// armed.
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

constexpr int kAlways = -1;

std::atomic<int> g_nthCountdown{0};  // 0: disarmed; 1: the next allocation fails
std::atomic<size_t> g_failSize{0};
std::atomic<int> g_failSizeCount{0};  // remaining failures of g_failSize; kAlways: no limit
std::atomic<int> g_failed{0};

// Takes one unit from a positive counter; true when this call took the last.
bool takeCountdown() {
  int current = g_nthCountdown.load(std::memory_order_relaxed);
  while (current > 0) {
    if (g_nthCountdown.compare_exchange_weak(current, current - 1, std::memory_order_relaxed)) {
      return current == 1;
    }
  }
  return false;
}

bool takeSizeFailure(size_t size) {
  if (g_failSize.load(std::memory_order_relaxed) != size)
    return false;
  int current = g_failSizeCount.load(std::memory_order_relaxed);
  if (current == kAlways)
    return true;
  while (current > 0) {
    if (g_failSizeCount.compare_exchange_weak(current, current - 1, std::memory_order_relaxed)) {
      return true;
    }
  }
  return false;
}

bool shouldFail(size_t size) {
  // Both rules see every allocation, so the countdown advances regardless of
  // whether the size rule fired.
  const bool nth = takeCountdown();
  const bool bySize = takeSizeFailure(size);
  if (!nth && !bySize)
    return false;
  g_failed.fetch_add(1, std::memory_order_relaxed);
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  return shouldFail(size) ? nullptr : __real_malloc(size);
}

// The size rule of a calloc looks at the total bytes requested.
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  size_t total = 0;
  if (__builtin_mul_overflow(count, size, &total))
    return __real_calloc(count, size);
  return shouldFail(total) ? nullptr : __real_calloc(count, size);
}

namespace fake_platform {

void failNthAllocation(int n) {
  g_nthCountdown.store(n > 0 ? n : 0, std::memory_order_relaxed);
}

void failAllocationsOfSize(size_t size, int count) {
  g_failSizeCount.store(0, std::memory_order_relaxed);  // disarm while the size changes
  g_failSize.store(size, std::memory_order_relaxed);
  g_failSizeCount.store(count < 0 ? kAlways : count, std::memory_order_relaxed);
}

int failedAllocations() {
  return g_failed.load(std::memory_order_relaxed);
}

namespace detail {
void resetAllocationFailures() {
  g_nthCountdown.store(0, std::memory_order_relaxed);
  g_failSizeCount.store(0, std::memory_order_relaxed);
  g_failSize.store(0, std::memory_order_relaxed);
  g_failed.store(0, std::memory_order_relaxed);
}
}  // namespace detail

}  // namespace fake_platform
