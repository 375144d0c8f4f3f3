// The worker thread: one job per wake-up, wake-ups merged while a job runs,
// a second start keeping the thread (stop waiting for a job in progress is
// manager_concurrency_test.cpp's, under ThreadSanitizer too), and
// creation failures reported with the worker left stopped (no join of a
// thread that never was). Tests wait on conditions, never sleep.
#include "flicker_worker.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "fake_platform.h"
#include "flicker_log.h"

namespace fp = fake_platform;

namespace {

std::atomic<bool> g_failThread{false};
std::atomic<bool> g_failSemaphore{false};
std::atomic<int> g_posts{0};

constexpr auto kWait = std::chrono::seconds(10);

// A job that counts its runs and can be held inside a run.
class Job {
 public:
  void run() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++runs_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !hold_; });
  }
  void hold(bool on) {
    std::lock_guard<std::mutex> lock(mutex_);
    hold_ = on;
    changed_.notify_all();
  }
  bool waitRuns(int n) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kWait, [&] { return runs_ >= n; });
  }
  int runs() {
    std::lock_guard<std::mutex> lock(mutex_);
    return runs_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int runs_ = 0;
  bool hold_ = false;
};

class FlickerWorkerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    flicker_log::g_managerLevel = 2;  // the create and close lines
  }
  Job job_;
  FlickerWorker worker_{7, [this] { job_.run(); }};
};

}  // namespace

// The link redirects both creation calls and the post here (see
// tests/manager/CMakeLists.txt).
extern "C" int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attr,
                                     void* (*entry)(void*), void* arg) {
  if (g_failThread.exchange(false))
    return EAGAIN;
  return __real_pthread_create(thread, attr, entry, arg);
}
extern "C" int __real_sem_init(sem_t*, int, unsigned);
extern "C" int __wrap_sem_init(sem_t* sem, int shared, unsigned value) {
  if (g_failSemaphore.exchange(false)) {
    errno = ENOSPC;
    return -1;
  }
  return __real_sem_init(sem, shared, value);
}
extern "C" int __real_sem_post(sem_t*);
extern "C" int __wrap_sem_post(sem_t* sem) {
  ++g_posts;
  return __real_sem_post(sem);
}

namespace {

TEST_F(FlickerWorkerTest, WakeUpsDuringAJobMergeIntoOneMoreRun) {
  worker_.start();
  ASSERT_TRUE(worker_.running());
  job_.hold(true);
  worker_.wake();
  ASSERT_TRUE(job_.waitRuns(1));
  const int posts = g_posts;
  for (int i = 0; i < 5; ++i) worker_.wake();
  EXPECT_EQ(g_posts - posts, 1) << "only the first wake-up during the job posts";
  job_.hold(false);
  ASSERT_TRUE(job_.waitRuns(2));
  worker_.stop();  // the merged run was the last: the thread waited for this stop
  EXPECT_EQ(job_.runs(), 2);
  EXPECT_FALSE(worker_.running());
  worker_.wake();  // stopped: no thread to run it
  EXPECT_EQ(job_.runs(), 2);
}

TEST_F(FlickerWorkerTest, SecondStartKeepsTheThreadAndStopEndsItOnce) {
  worker_.start();
  worker_.start();
  EXPECT_TRUE(fp::loggedError(
      "[ThreadControl] SenbsorIdx(7), flickerMgr thread is not closed last time!!"));
  worker_.wake();
  ASSERT_TRUE(job_.waitRuns(1));
  worker_.stop();
  EXPECT_FALSE(worker_.running());
  worker_.stop();   // nothing left to end
  worker_.start();  // and a new thread after it
  EXPECT_TRUE(worker_.running());
  worker_.wake();
  ASSERT_TRUE(job_.waitRuns(2));
  worker_.stop();
  EXPECT_EQ(job_.runs(), 2);
}

TEST_F(FlickerWorkerTest, CreationFailureIsReportedAndLeavesTheWorkerStopped) {
  const std::pair<std::atomic<bool>*, const char*> rows[] = {
      {&g_failThread, "SensorIdx(7), pthread_create failed: "},
      {&g_failSemaphore, "SensorIdx(7), sem_init failed: "},
  };
  for (const auto& [fail, error] : rows) {
    fp::clearLogs();
    fail->store(true);
    worker_.start();
    EXPECT_TRUE(fp::loggedError(error)) << error;
    EXPECT_FALSE(worker_.running()) << error;
    worker_.wake();
    worker_.stop();  // no thread to join: a join of an unset handle would not return
    // The next start works.
    const int runs = job_.runs();
    worker_.start();
    worker_.wake();
    ASSERT_TRUE(job_.waitRuns(runs + 1)) << error;
    worker_.stop();
  }
}

}  // namespace
