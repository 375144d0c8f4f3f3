#include "alloc_counter.h"

#include <execinfo.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* ptr, size_t size);
}

namespace {

constexpr int kSiteDepth = 24;

std::atomic<bool> g_armed{false};
std::atomic<int64_t> g_count{0};
void* g_site[kSiteDepth];
std::atomic<int> g_siteDepth{0};
// Only the first allocation records its call stack, so an allocation inside
// the unwinder cannot recurse.
void note() {
  if (g_armed.load(std::memory_order_relaxed) &&
      g_count.fetch_add(1, std::memory_order_relaxed) == 0)
    g_siteDepth.store(backtrace(g_site, kSiteDepth), std::memory_order_release);
}

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  note();
  return __real_malloc(size);
}
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  note();
  return __real_calloc(count, size);
}
extern "C" void* __wrap_realloc(void* ptr, size_t size) {
  note();
  return __real_realloc(ptr, size);
}

// The forms the code under test uses (no nothrow or over-aligned ones). Under
// AddressSanitizer new and delete must come from the same family, so the
// deletes are replaced too.
void* operator new(size_t size) {
  note();
  if (void* ptr = __real_malloc(size == 0 ? 1 : size))
    return ptr;
  throw std::bad_alloc();
}
void* operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void* ptr) noexcept {
  free(ptr);
}
void operator delete[](void* ptr) noexcept {
  free(ptr);
}
void operator delete(void* ptr, size_t) noexcept {
  free(ptr);
}
void operator delete[](void* ptr, size_t) noexcept {
  free(ptr);
}

namespace alloc_counter {

void arm() {
  void* frame[1];
  backtrace(frame, 1);  // loads the unwinder now, while nothing is counted
  g_count.store(0, std::memory_order_relaxed);
  g_siteDepth.store(0, std::memory_order_relaxed);
  g_armed.store(true, std::memory_order_seq_cst);
}

int64_t disarm() {
  g_armed.store(false, std::memory_order_seq_cst);
  return g_count.load(std::memory_order_relaxed);
}

void printFirstSite() {
  backtrace_symbols_fd(g_site, g_siteDepth.load(std::memory_order_acquire), STDERR_FILENO);
}

}  // namespace alloc_counter
