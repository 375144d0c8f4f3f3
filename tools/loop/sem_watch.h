// SemWatch: bookkeeping of the semaphores that the manager's per-frame path
// posts and its worker threads wait on, so that a closed-loop run can wait
// for an analysis to finish instead of racing the worker.
//
// Programs that use it are linked with -Wl,--wrap=sem_post
// -Wl,--wrap=sem_wait (CMake: flicker_loop_program()). The wrappers count,
// per semaphore, the posts and the times a thread entered sem_wait, then call
// the real functions. A worker that is back in sem_wait has finished the
// analysis the post asked for; the runner waits for exactly that.
//
// Threading: every method is thread-safe (one mutex and one condition
// variable). Posts are also remembered per posting thread, so the runner
// learns which semaphore its own DoCalculation call posted without knowing
// the manager's members.
#pragma once

#include <semaphore.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>

namespace flicker_loop {

class SemWatch {
 public:
  // What the calling thread's most recent post saw.
  struct Ticket {
    const sem_t* sem = nullptr;
    uint64_t waitsAtPost = 0;  // waits entered on `sem` before that post
  };

  static SemWatch& instance();

  // Called by the wrappers.
  void onPost(const sem_t* sem);
  void onWaitEntered(const sem_t* sem);

  // Posts made by the calling thread so far, and the last one.
  static uint64_t postsByThisThread();
  static Ticket lastPostByThisThread();
  // Waits entered on all semaphores together.
  uint64_t totalWaits();

  // Blocks until a thread entered sem_wait on ticket.sem after the post of
  // `ticket`; false on timeout.
  bool awaitWorkerIdle(const Ticket& ticket, std::chrono::milliseconds timeout);
  // Blocks until more than `count` waits were entered in all; false on timeout.
  bool awaitTotalWaitsAbove(uint64_t count, std::chrono::milliseconds timeout);
  // Opens or closes the calling thread's "wake-up" trace section (the
  // wrappers call it around each wait).
  static void traceAwake(bool awake);

 private:
  struct Counters {
    uint64_t posts = 0;
    uint64_t waits = 0;
  };

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<const sem_t*, Counters> counters_;  // guarded by mutex_
  uint64_t total_waits_ = 0;                   // guarded by mutex_
};

}  // namespace flicker_loop
