// Allocation failure injection through the linker's --wrap of malloc and
// calloc. Only direct calls from the objects linked into the test binary are
// wrapped (the manager library, the fakes, the tests); operator new and the
// shared C/C++ runtimes keep the real allocator.
//
// The wrappers run on every allocation of every thread, also under
// AddressSanitizer (the real functions are ASan's interceptors). They take no
// lock and allocate nothing: the settings are relaxed atomics, consumed with
// atomic read-modify-write operations so that concurrent allocations fail
// exactly as often as armed.
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

// The n-th allocation rule: allocations are numbered as they come, and the
// one whose number equals the target fails (0: none).
std::atomic<long> g_seen{0};
std::atomic<long> g_failAt{0};
// The size rule: allocations of g_failSize fail while the count lasts.
std::atomic<size_t> g_failSize{0};
std::atomic<int> g_failSizeCount{0};
std::atomic<bool> g_failSizeAlways{false};
std::atomic<int> g_failed{0};

bool takeSizeFailure(size_t size) {
  if (g_failSize.load(std::memory_order_relaxed) != size)
    return false;
  if (g_failSizeAlways.load(std::memory_order_relaxed))
    return true;
  // The value before the decrement decides, so racing threads fail exactly
  // as often as armed; the load keeps a disarmed count from drifting.
  return g_failSizeCount.load(std::memory_order_relaxed) > 0 &&
         g_failSizeCount.fetch_sub(1, std::memory_order_relaxed) > 0;
}

bool shouldFail(size_t size) {
  // Both rules see every allocation, so the numbering advances regardless of
  // whether the size rule fired.
  const bool nth = g_seen.fetch_add(1, std::memory_order_relaxed) + 1 ==
                   g_failAt.load(std::memory_order_relaxed);
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
  g_failAt.store(n > 0 ? g_seen.load(std::memory_order_relaxed) + n : 0, std::memory_order_relaxed);
}

void failAllocationsOfSize(size_t size, int count) {
  g_failSizeCount.store(0, std::memory_order_relaxed);  // disarm while the size changes
  g_failSizeAlways.store(false, std::memory_order_relaxed);
  g_failSize.store(size, std::memory_order_relaxed);
  g_failSizeCount.store(count, std::memory_order_relaxed);
  g_failSizeAlways.store(count < 0, std::memory_order_relaxed);
}

int failedAllocations() {
  return g_failed.load(std::memory_order_relaxed);
}

namespace detail {
void resetAllocationFailures() {
  failNthAllocation(0);
  failAllocationsOfSize(0, 0);
  g_failed.store(0, std::memory_order_relaxed);
}
}  // namespace detail

}  // namespace fake_platform
