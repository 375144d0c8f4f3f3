// The host's trace file in the trace-event format: what a trace viewer needs
// (JSON, names of the process and of each thread, sections closed on their
// own thread, time stamps that never go back) and names that survive
// quoting and cutting.
#include "host_trace.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <thread>

#include "cam_trace.h"
#include "host_test_util.h"
#include "trace_events.h"

namespace {

class HostTraceTest : public ::testing::Test {
 protected:
  void TearDown() override { flicker_host::setTraceFile(""); }
  std::string read() const { return host_test::readFile(file_); }

  host_test::TempDir dir_;
  std::string file_ = dir_.file("trace.json");
};

// A thread named `name` that runs `body`.
void onThread(const char* name, void (*body)()) {
  std::thread([name, body] {
    prctl(PR_SET_NAME, name, 0, 0, 0);
    body();
  }).join();
}

TEST_F(HostTraceTest, TwoThreadsNestedSectionsAndTheirNames) {
  ASSERT_TRUE(flicker_host::setTraceFile(file_));
  atrace_begin_body("frame 1 sensor 0");
  atrace_begin_body("parseFLK");
  atrace_end_body();
  onThread("FlickerMgrThd", [] {
    atrace_begin_body("wake-up");
    atrace_begin_body("FLK algo");
    atrace_end_body();
    atrace_end_body();
    prctl(PR_SET_NAME, "renamed", 0, 0, 0);  // a new name is written again
    atrace_begin_body("later");
    atrace_end_body();
  });
  atrace_end_body();
  // Until the file is closed each event is whole: only the array's end is missing.
  const trace_test::TraceFile partial = trace_test::readTraceEvents(read() + "]");
  EXPECT_EQ(partial.error, "");
  ASSERT_TRUE(flicker_host::setTraceFile(""));

  const trace_test::TraceFile trace = trace_test::readTraceEvents(read());
  ASSERT_EQ(trace.error, "");
  EXPECT_EQ(trace.process, program_invocation_short_name);
  ASSERT_EQ(trace.slices.size(), 5u);
  std::map<std::string, trace_test::Slice> byName;
  for (const trace_test::Slice& s : trace.slices) byName[s.name] = s;
  // Nesting on each thread, and the worker apart from the caller.
  EXPECT_EQ(byName["parseFLK"].depth, 1);
  EXPECT_EQ(byName["parseFLK"].tid, byName["frame 1 sensor 0"].tid);
  EXPECT_EQ(byName["FLK algo"].depth, 1);
  EXPECT_EQ(byName["FLK algo"].tid, byName["wake-up"].tid);
  EXPECT_NE(byName["wake-up"].tid, byName["frame 1 sensor 0"].tid);
  EXPECT_LE(byName["wake-up"].endUs, byName["frame 1 sensor 0"].endUs);
  EXPECT_EQ(trace.threads.at(byName["later"].tid), "renamed");
  EXPECT_NE(read().find("\"FlickerMgrThd\""), std::string::npos) << "the first name is kept too";
}

TEST_F(HostTraceTest, NamesAreQuotedAndCutAndANewFileStartsAfresh) {
  const std::pair<std::string, std::string> names[] = {
      {"say \"cheese\"", "say \"cheese\""},              // quotes
      {"a\\b", "a\\b"},                                  // a backslash
      {"tab\there\n", "tab\there\n"},                    // control characters
      {std::string(5000, 'x'), std::string(1023, 'x')},  // cut to 1023 bytes
  };
  ASSERT_TRUE(flicker_host::setTraceFile(file_));
  for (const auto& name : names) {
    atrace_begin_body(name.first.c_str());
    atrace_end_body();
  }
  atrace_begin_body(nullptr);  // a null name is an empty one
  atrace_end_body();
  // A new file starts a new array; the old one was closed whole.
  const std::string second = dir_.file("second.json");
  ASSERT_TRUE(flicker_host::setTraceFile(second));
  atrace_begin_body("second");
  atrace_end_body();
  ASSERT_TRUE(flicker_host::setTraceFile(""));
  const trace_test::TraceFile trace = trace_test::readTraceEvents(read());
  const trace_test::TraceFile next = trace_test::readTraceEvents(host_test::readFile(second));
  ASSERT_EQ(trace.error + next.error, "");
  ASSERT_EQ(trace.slices.size(), 5u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(trace.slices[i].name, names[i].second) << i;
  EXPECT_EQ(trace.slices[4].name, "");
  ASSERT_EQ(next.slices.size(), 1u);
  EXPECT_EQ(next.slices[0].name, "second");
}

}  // namespace
