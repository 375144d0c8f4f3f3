// FlickerWorker: one sensor's detection thread ("FlickerMgrThd") and the
// semaphore that wakes it. The thread runs its job once per wake-up; at most
// one wake-up is pending, so wake-ups that come while a job runs merge into
// one more run.
//
// Threading: start, stop and wake are called by the owner, one at a time
// (the manager holds its instance lock). The thread takes none of the
// owner's locks: the semaphore post is the only ordering between the caller
// of wake and the job. stop clears the running flag before it posts, so the
// woken thread leaves without another run, and then joins, which waits for a
// job in progress. The worker must outlive its thread: the manager's workers
// are never destroyed.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cstdint>
#include <functional>

class FlickerWorker {
 public:
  FlickerWorker(int sensorIdx, std::function<void()> job);
  ~FlickerWorker();
  FlickerWorker(const FlickerWorker&) = delete;
  FlickerWorker& operator=(const FlickerWorker&) = delete;

  // Creates the thread with a fresh semaphore, so no wake-up survives from an
  // earlier run. A thread that runs already is kept (logged as an error). A
  // semaphore or thread that cannot be created is reported and leaves the
  // worker stopped.
  void start();
  // Ends the thread and waits for it; nothing when none runs.
  void stop();
  // One more run of the job, unless a wake-up is pending already.
  void wake();
  bool running() const { return running_.load(std::memory_order_relaxed); }

 private:
  static void* ThreadLoop(void* arg);

  const int32_t sensor_idx_;
  const std::function<void()> job_;
  std::atomic<bool> running_{false};  // written by start and stop, read by the thread
  bool sem_ready_ = false;            // sem_ is initialised
  sem_t sem_;
  pthread_t thread_{};
};
