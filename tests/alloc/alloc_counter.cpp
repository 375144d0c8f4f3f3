#include "alloc_counter.h"

#include <execinfo.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* ptr, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* ptr, size_t size);
}

namespace {

constexpr int kMaxSites = 4;    // call stacks kept per kind and armed stretch
constexpr int kSiteDepth = 24;  // frames per call stack

// One kind of allocation: the library's own or the platform's.
struct Bucket {
  std::atomic<int64_t> count{0};
  std::atomic<int> sitesTaken{0};
  void* sites[kMaxSites][kSiteDepth];
  std::atomic<int> siteDepth[kMaxSites];
};

std::atomic<bool> g_armed{false};
Bucket g_library;
Bucket g_platform;

// Set while this thread records a call stack: the unwinder may allocate on
// its first use, which must neither recurse nor count.
thread_local bool t_recording = false;
thread_local int t_platformDepth = 0;

void note() {
  if (!g_armed.load(std::memory_order_relaxed) || t_recording)
    return;
  Bucket& bucket = t_platformDepth > 0 ? g_platform : g_library;
  bucket.count.fetch_add(1, std::memory_order_relaxed);
  const int site = bucket.sitesTaken.fetch_add(1, std::memory_order_relaxed);
  if (site >= kMaxSites)
    return;
  t_recording = true;
  bucket.siteDepth[site].store(backtrace(bucket.sites[site], kSiteDepth),
                               std::memory_order_release);
  t_recording = false;
}

void clear(Bucket& bucket) {
  bucket.count.store(0, std::memory_order_relaxed);
  bucket.sitesTaken.store(0, std::memory_order_relaxed);
  for (auto& depth : bucket.siteDepth) depth.store(0, std::memory_order_relaxed);
}

void* allocate(size_t size) {
  note();
  return __real_malloc(size == 0 ? 1 : size);
}

void* allocateAligned(size_t size, std::align_val_t alignment) {
  note();
  void* ptr = nullptr;
  const size_t align = static_cast<size_t>(alignment) < sizeof(void*)
                           ? sizeof(void*)
                           : static_cast<size_t>(alignment);
  // posix_memalign is not wrapped, so this allocation is counted once.
  return posix_memalign(&ptr, align, size == 0 ? 1 : size) == 0 ? ptr : nullptr;
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

void* operator new(size_t size) {
  void* ptr = allocate(size);
  if (ptr == nullptr)
    throw std::bad_alloc();
  return ptr;
}
void* operator new[](size_t size) {
  return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new(size_t size, std::align_val_t alignment) {
  void* ptr = allocateAligned(size, alignment);
  if (ptr == nullptr)
    throw std::bad_alloc();
  return ptr;
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return operator new(size, alignment);
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocateAligned(size, alignment);
}
void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocateAligned(size, alignment);
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
void operator delete(void* ptr, const std::nothrow_t&) noexcept {
  free(ptr);
}
void operator delete[](void* ptr, const std::nothrow_t&) noexcept {
  free(ptr);
}
void operator delete(void* ptr, std::align_val_t) noexcept {
  free(ptr);
}
void operator delete[](void* ptr, std::align_val_t) noexcept {
  free(ptr);
}
void operator delete(void* ptr, size_t, std::align_val_t) noexcept {
  free(ptr);
}
void operator delete[](void* ptr, size_t, std::align_val_t) noexcept {
  free(ptr);
}
void operator delete(void* ptr, std::align_val_t, const std::nothrow_t&) noexcept {
  free(ptr);
}
void operator delete[](void* ptr, std::align_val_t, const std::nothrow_t&) noexcept {
  free(ptr);
}

namespace alloc_counter {

void arm() {
  // The unwinder loads its helper library on first use; do that now, while
  // nothing is counted.
  void* frame[1];
  backtrace(frame, 1);
  clear(g_library);
  clear(g_platform);
  g_armed.store(true, std::memory_order_seq_cst);
}

int64_t disarm() {
  g_armed.store(false, std::memory_order_seq_cst);
  return count();
}

int64_t count() {
  return g_library.count.load(std::memory_order_relaxed);
}
int64_t platformCount() {
  return g_platform.count.load(std::memory_order_relaxed);
}

void printSites(bool platform) {
  Bucket& bucket = platform ? g_platform : g_library;
  const int taken = bucket.sitesTaken.load(std::memory_order_relaxed);
  const int sites = taken < kMaxSites ? taken : kMaxSites;
  for (int i = 0; i < sites; ++i) {
    dprintf(STDERR_FILENO, "%s allocation %d of %lld:\n", platform ? "platform" : "library", i + 1,
            static_cast<long long>(bucket.count.load(std::memory_order_relaxed)));
    backtrace_symbols_fd(bucket.sites[i], bucket.siteDepth[i].load(std::memory_order_acquire),
                         STDERR_FILENO);
  }
}

void enterPlatform() {
  ++t_platformDepth;
}
void leavePlatform() {
  --t_platformDepth;
}

}  // namespace alloc_counter
