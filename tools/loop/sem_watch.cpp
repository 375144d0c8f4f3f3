#include "sem_watch.h"

#include "loop_trace.h"

namespace flicker_loop {

namespace {

thread_local uint64_t t_posts = 0;
thread_local SemWatch::Ticket t_last_post;

// The "wake-up" section of a thread that waits on a semaphore: open from the
// return of one wait to the entry of the next, closed at the latest when the
// thread ends (a worker's last wake-up is the one that lets it exit).
class AwakeSection {
 public:
  ~AwakeSection() { end(); }
  void begin() {
    open_ = cameraTraceOn();
    if (open_) {
      atrace_begin_body("wake-up");
    }
  }
  void end() {
    if (open_) {
      atrace_end_body();
      open_ = false;
    }
  }

 private:
  bool open_ = false;
};

thread_local AwakeSection t_awake;

}  // namespace

SemWatch& SemWatch::instance() {
  static SemWatch watch;
  return watch;
}

void SemWatch::onPost(const sem_t* sem) {
  std::lock_guard<std::mutex> lock(mutex_);
  Counters& c = counters_[sem];
  ++c.posts;
  t_last_post = Ticket{sem, c.waits};
  ++t_posts;
  changed_.notify_all();
}

void SemWatch::onWaitEntered(const sem_t* sem) {
  std::lock_guard<std::mutex> lock(mutex_);
  ++counters_[sem].waits;
  ++total_waits_;
  changed_.notify_all();
}

uint64_t SemWatch::postsByThisThread() {
  return t_posts;
}

SemWatch::Ticket SemWatch::lastPostByThisThread() {
  return t_last_post;
}

uint64_t SemWatch::totalWaits() {
  std::lock_guard<std::mutex> lock(mutex_);
  return total_waits_;
}

bool SemWatch::awaitWorkerIdle(const Ticket& ticket, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout,
                           [&] { return counters_[ticket.sem].waits > ticket.waitsAtPost; });
}

bool SemWatch::awaitTotalWaitsAbove(uint64_t count, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return total_waits_ > count; });
}

void SemWatch::traceAwake(bool awake) {
  if (awake) {
    t_awake.begin();
  } else {
    t_awake.end();
  }
}

}  // namespace flicker_loop

// Link-time wrappers (-Wl,--wrap=sem_post -Wl,--wrap=sem_wait). The wait is
// counted on entry, before the thread blocks: the count says "this worker is
// idle again", which is what the runner waits for. Both are traced (see
// loop_trace.h).
extern "C" {

int __real_sem_post(sem_t* sem);
int __real_sem_wait(sem_t* sem);

int __wrap_sem_post(sem_t* sem) {
  flicker_loop::TraceSection section("post");
  flicker_loop::SemWatch::instance().onPost(sem);
  return __real_sem_post(sem);
}

int __wrap_sem_wait(sem_t* sem) {
  flicker_loop::SemWatch::traceAwake(false);
  flicker_loop::SemWatch::instance().onWaitEntered(sem);
  const int rc = __real_sem_wait(sem);
  flicker_loop::SemWatch::traceAwake(true);
  return rc;
}

}  // extern "C"
