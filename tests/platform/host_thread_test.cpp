// Host thread priority: requests act on the calling thread only, and the
// read-back reports what the system really holds.
#include "host_thread.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <thread>

#include "cam_thread.h"

namespace {

struct Readback {
  int policy = -1;
  int priority = -100;
};

Readback requestOnNewThread(int policy, int priority) {
  Readback result;
  std::thread worker([&] {
    NSCam::Utils::setThreadPriority(policy, priority);
    NSCam::Utils::getThreadPriority(result.policy, result.priority);
  });
  worker.join();
  return result;
}

TEST(HostThreadTest, LoweringPriorityIsAlwaysGrantedAndReadBack) {
  // Every user may raise the nice value, so these read back exactly.
  for (const int nice : {5, 19}) {
    const Readback got = requestOnNewThread(0, nice);
    EXPECT_EQ(got.policy, SCHED_OTHER);
    EXPECT_EQ(got.priority, nice);
  }
}

TEST(HostThreadTest, OtherThreadsKeepTheirPriority) {
  int policy = -1, before = 0, after = 0;
  NSCam::Utils::getThreadPriority(policy, before);
  requestOnNewThread(0, 10);
  NSCam::Utils::getThreadPriority(policy, after);
  EXPECT_EQ(after, before);
  EXPECT_EQ(policy, SCHED_OTHER);
}

// The worker's request (-8) needs privileges: the read-back shows either the
// granted value or the thread's unchanged one, never anything else.
TEST(HostThreadTest, RaisingPriorityShowsTheRealOutcome) {
  Readback got;
  int inherited = 0;
  std::thread worker([&] {
    int policy = 0;
    NSCam::Utils::getThreadPriority(policy, inherited);
    NSCam::Utils::setThreadPriority(0, -8);
    NSCam::Utils::getThreadPriority(got.policy, got.priority);
  });
  worker.join();
  EXPECT_EQ(got.policy, SCHED_OTHER);
  EXPECT_TRUE(got.priority == -8 || got.priority == inherited) << got.priority;
}

// A real-time request without privileges leaves the normal policy in place.
TEST(HostThreadTest, RealTimeRequestReadsBackWhatWasGranted) {
  const Readback got = requestOnNewThread(SCHED_FIFO, 10);
  if (got.policy == SCHED_FIFO) {
    EXPECT_EQ(got.priority, 10);
  } else {
    EXPECT_EQ(got.policy, SCHED_OTHER);
  }
}

}  // namespace
