// Host tracing: the tag mask from the property and the standard markers.
#include "host_trace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "cam_trace.h"
#include "host_properties.h"
#include "host_test_util.h"

namespace {

class HostTraceTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(flicker_host::setTraceMarkerFile(markerFile_)); }
  void TearDown() override {
    flicker_host::clearProperty("debug.atrace.tags.enableflags");
    flicker_host::setTraceMarkerFile("");
  }

  host_test::TempDir dir_;
  std::string markerFile_ = dir_.file("trace_marker");
  std::string pid_ = std::to_string(getpid());
};

TEST_F(HostTraceTest, TagsComeFromTheEnableFlagsProperty) {
  struct Row {
    const char* value;
    uint64_t expected;
  } rows[] = {
      {"0", 0},                          // tracing off
      {"1024", ATRACE_TAG_CAMERA},       // camera tag only, decimal
      {"0x401", ATRACE_TAG_CAMERA | 1},  // hex, as the phone writes it
      {"junk", 0},                       // unreadable: off
  };
  for (const Row& row : rows) {
    flicker_host::setProperty("debug.atrace.tags.enableflags", row.value);
    EXPECT_EQ(atrace_get_enabled_tags(), row.expected) << row.value;
  }
  flicker_host::clearProperty("debug.atrace.tags.enableflags");
  EXPECT_EQ(atrace_get_enabled_tags(), 0u);
}

TEST_F(HostTraceTest, SectionsWriteBeginAndEndMarkers) {
  atrace_begin_body("FLK algo");
  atrace_end_body();
  atrace_begin_body(nullptr);  // a null name is an empty one
  EXPECT_EQ(host_test::readFile(markerFile_),
            "B|" + pid_ + "|FLK algo\nE|" + pid_ + "\nB|" + pid_ + "|\n");
}

TEST_F(HostTraceTest, LongNamesAreCutButKeepTheirLineEnd) {
  atrace_begin_body(std::string(5000, 'x').c_str());
  atrace_end_body();
  const std::string text = host_test::readFile(markerFile_);
  const size_t end = text.find('\n');
  ASSERT_NE(end, std::string::npos);
  EXPECT_EQ(end + 1, 1023u);  // one marker line of at most 1023 bytes
  EXPECT_EQ(text.substr(end + 1), "E|" + pid_ + "\n");
}

// Markers of several threads never interleave within a line.
TEST_F(HostTraceTest, ConcurrentMarkersStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kSections = 100;
  std::vector<std::thread> pool;
  for (int t = 0; t < kThreads; ++t) {
    pool.emplace_back([] {
      for (int i = 0; i < kSections; ++i) {
        atrace_begin_body("section");
        atrace_end_body();
      }
    });
  }
  for (auto& t : pool) t.join();
  const std::string text = host_test::readFile(markerFile_);
  const std::string begin = "B|" + pid_ + "|section";
  const std::string end = "E|" + pid_;
  int lines = 0;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t eol = text.find('\n', pos);
    ASSERT_NE(eol, std::string::npos);
    const std::string line = text.substr(pos, eol - pos);
    EXPECT_TRUE(line == begin || line == end) << line;
    ++lines;
    pos = eol + 1;
  }
  EXPECT_EQ(lines, 2 * kThreads * kSections);
}

TEST_F(HostTraceTest, UnwritableMarkerFileIsRefusedAndNothingBreaks) {
  EXPECT_FALSE(flicker_host::setTraceMarkerFile(dir_.file("no/such/folder/marker")));
  atrace_begin_body("still");
  EXPECT_EQ(host_test::readFile(markerFile_), "B|" + pid_ + "|still\n");
}

}  // namespace
