// Host data paths (the device folder moves under the root, nothing else
// changes, nothing is ever truncated) and thread priority (a request acts on
// the calling thread only, the read-back reports what the system holds).
#include "host_data_path.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <string>
#include <thread>
#include <tuple>

#include "cam_data_path.h"
#include "cam_thread.h"

namespace {

// The mapped path, or "<false:out>" when the mapping is refused.
std::string mapped(const char* path, size_t size = 512) {
  std::string out(size, 'x');
  const bool ok = flicker_map_data_path(path, &out[0], size);
  return ok ? out.c_str() : "<false:" + std::string(out.c_str()) + ">";
}

class HostDataPathTest : public ::testing::Test {
 protected:
  void SetUp() override { flicker_host::setDataRoot("/root-dir"); }
  void TearDown() override { flicker_host::setDataRoot(""); }
};

TEST_F(HostDataPathTest, OnlyTheDeviceFolderIsMovedAndNothingIsCut) {
  const std::string para = "/data/vendor/flicker/para/a";  // maps to 36 characters
  const std::tuple<const char*, size_t, std::string> rows[] = {
      {"/data/vendor/flicker/flko/001", 512, "/root-dir/data/vendor/flicker/flko/001"},
      {"/data/vendor/flicker", 512, "/root-dir/data/vendor/flicker"},  // the folder itself
      {"/data/vendor/flickerX/a", 512, "/data/vendor/flickerX/a"},     // a lookalike stays
      {"", 512, ""},                                                   // empty stays empty
      {para.c_str(), 37, "/root-dir" + para},                          // exactly fits
      {para.c_str(), 36, "<false:>"},  // too long by one: refused whole
      {"/tmp/abc", 8, "<false:>"},     // an unmapped path must fit too
      {nullptr, 512, "<false:>"},      // null path
  };
  for (const auto& [path, size, expected] : rows) EXPECT_EQ(mapped(path, size), expected) << path;
  char out[4] = "abc";
  EXPECT_FALSE(flicker_map_data_path(para.c_str(), out, 0));  // no room at all: out untouched
  EXPECT_STREQ(out, "abc");
  EXPECT_FALSE(flicker_map_data_path(para.c_str(), nullptr, 10));
}

// On a new thread: the priority it started with, then policy and priority
// read back after the request.
std::tuple<int, int, int> requestOnNewThread(int policy, int priority) {
  int inherited = 0, gotPolicy = -1, gotPriority = 0;
  std::thread([&] {
    NSCam::Utils::getThreadPriority(gotPolicy, inherited);
    NSCam::Utils::setThreadPriority(policy, priority);
    NSCam::Utils::getThreadPriority(gotPolicy, gotPriority);
  }).join();
  return {inherited, gotPolicy, gotPriority};
}

TEST(HostThreadTest, RequestsReadBackWhatWasGrantedOnThatThreadOnly) {
  int policy = -1, before = 0, after = 0;
  NSCam::Utils::getThreadPriority(policy, before);
  // Every user may lower the priority (raise the nice value): granted exactly.
  EXPECT_EQ(requestOnNewThread(0, 5), std::make_tuple(before, SCHED_OTHER, 5));
  NSCam::Utils::getThreadPriority(policy, after);
  EXPECT_EQ(policy, SCHED_OTHER);
  EXPECT_EQ(after, before);  // the other threads keep theirs
  // The worker's -8 needs privileges: either granted or left as it was.
  const auto [inherited, raisedPolicy, raised] = requestOnNewThread(0, -8);
  EXPECT_EQ(raisedPolicy, SCHED_OTHER);
  EXPECT_TRUE(raised == -8 || raised == inherited) << raised;
  // Without privileges a real-time request leaves the normal policy.
  const auto [unused, rtPolicy, rtPriority] = requestOnNewThread(SCHED_FIFO, 10);
  EXPECT_TRUE(rtPolicy == SCHED_FIFO ? rtPriority == 10 : rtPolicy == SCHED_OTHER);
}

}  // namespace
