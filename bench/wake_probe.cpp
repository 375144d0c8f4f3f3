#include "wake_probe.h"

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

#include "flicker_algo_cmd.h"

extern "C" {
int __real_sem_post(sem_t* sem);
int __real_sem_wait(sem_t* sem);
int32_t __real_flk_SendCmd(uint32_t cmd, void* in, void* out);
int __wrap_sem_post(sem_t* sem);
int __wrap_sem_wait(sem_t* sem);
int32_t __wrap_flk_SendCmd(uint32_t cmd, void* in, void* out);
}

namespace {

constexpr int32_t kAnalysedFlag = 1;  // word 0, bit 0 of the detection diagnostics

std::atomic<bool> g_timing{false};
std::atomic<int64_t> g_posts{0};
std::atomic<int64_t> g_detections{0};
std::atomic<int32_t> g_detectFlags{0};
std::atomic<int64_t> g_postNs{0};
std::atomic<int64_t> g_wakeNs{0};
std::atomic<int64_t> g_detectNs{0};

// The wait count is guarded by a mutex so waiters can sleep on it.
std::mutex g_waitMutex;
std::condition_variable g_waitChanged;
int64_t g_waits = 0;

}  // namespace

extern "C" int __wrap_sem_post(sem_t* sem) {
  if (g_timing.load(std::memory_order_relaxed))
    g_postNs.store(wake_probe::nowNs(), std::memory_order_relaxed);
  g_posts.fetch_add(1, std::memory_order_relaxed);
  return __real_sem_post(sem);
}

extern "C" int __wrap_sem_wait(sem_t* sem) {
  {
    std::lock_guard<std::mutex> lock(g_waitMutex);
    ++g_waits;
  }
  g_waitChanged.notify_all();
  const int rc = __real_sem_wait(sem);
  if (g_timing.load(std::memory_order_relaxed))
    g_wakeNs.store(wake_probe::nowNs(), std::memory_order_relaxed);
  return rc;
}

extern "C" int32_t __wrap_flk_SendCmd(uint32_t cmd, void* in, void* out) {
  if (cmd != FLK_CMD_DETECT || in == nullptr)
    return __real_flk_SendCmd(cmd, in, out);
  if (g_timing.load(std::memory_order_relaxed))
    g_detectNs.store(wake_probe::nowNs(), std::memory_order_relaxed);
  const int32_t rc = __real_flk_SendCmd(cmd, in, out);
  const FlkDetectPara* para = static_cast<const FlkDetectPara*>(in);
  g_detectFlags.store(para->aux != nullptr ? para->aux[0] & kAnalysedFlag : 0,
                      std::memory_order_relaxed);
  g_detections.fetch_add(1, std::memory_order_relaxed);
  return rc;
}

namespace wake_probe {

int64_t posts() {
  return g_posts.load(std::memory_order_relaxed);
}

int64_t waitsEntered() {
  std::lock_guard<std::mutex> lock(g_waitMutex);
  return g_waits;
}

int64_t detections() {
  return g_detections.load(std::memory_order_relaxed);
}
int32_t lastDetectFlags() {
  return g_detectFlags.load(std::memory_order_relaxed);
}

bool waitForWaits(int64_t target, int timeoutMs) {
  std::unique_lock<std::mutex> lock(g_waitMutex);
  return g_waitChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [target] { return g_waits >= target; });
}

void setTiming(bool on) {
  g_timing.store(on, std::memory_order_relaxed);
}
int64_t lastPostNs() {
  return g_postNs.load(std::memory_order_relaxed);
}
int64_t lastWakeNs() {
  return g_wakeNs.load(std::memory_order_relaxed);
}
int64_t lastDetectNs() {
  return g_detectNs.load(std::memory_order_relaxed);
}

int64_t nowNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace wake_probe
