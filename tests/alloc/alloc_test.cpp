// The per-frame path and the detection step allocate nothing once a stream is
// running: the manager library with the host platform and the open algorithm,
// debug logging off, counted by a process-wide counting allocator (platform
// calls such as property reads included) while the manager's worker thread
// analyses real pairs beside it.
#include <gtest/gtest.h>

#include <cstdint>

#include "alloc_counter.h"
#include "case_names.h"
#include "flicker_platform_adapter.h"
#include "stream_rig.h"
#include "wake_probe.h"

namespace {

constexpr int kWorkerTimeoutMs = 5000;  // one analysis takes well under a millisecond
constexpr int kWarmupFrames = 12;       // two skipped frames, then several pairs and analyses
constexpr int kMeasuredFrames = 300;    // ten seconds of a 30 fps stream
constexpr int kDetectSteps = 200;

struct StreamCase {
  const char* name;
  int width;
  int height;
  int flickerMode;
  int aeDetectCycle;
  bool expectAnalyses;
};

CASE_PRINTS_ITS_NAME(StreamCase)

const StreamCase kCases[] = {
    // The manager's own cycle at the largest statistics block a buffer holds.
    {"auto_own_cycle_8000x6000", 8000, 6000, FLICKER_MODE_AUTO, 0, true},
    // AE drives every-frame detection: a post and an analysis on every frame.
    {"auto_every_frame_1920x1080", 1920, 1080, FLICKER_MODE_AUTO, 1, true},
    // A fixed mode sends the state to the algorithm on every frame instead.
    {"fixed_60hz_4000x3000", 4000, 3000, FLICKER_MODE_60HZ, 0, false},
};

// Runs one frame; when it completed a pair, waits until the worker has
// finished that analysis, as it would long before the next frame of a real
// stream. False when the worker does not come back in time.
bool frameAndSettle(StreamRig& rig) {
  const int64_t posts = wake_probe::posts();
  const int64_t waits = wake_probe::waitsEntered();
  rig.frame();
  return wake_probe::posts() == posts || wake_probe::waitForWaits(waits + 1, kWorkerTimeoutMs);
}

class AllocTest : public ::testing::TestWithParam<StreamCase> {};

TEST_P(AllocTest, PerFramePath) {
  const StreamCase& c = GetParam();
  StreamRig rig(c.width, c.height);
  const int64_t waitsBefore = wake_probe::waitsEntered();
  ASSERT_TRUE(rig.start(0, c.flickerMode, c.aeDetectCycle));
  ASSERT_TRUE(wake_probe::waitForWaits(waitsBefore + 1, kWorkerTimeoutMs)) << "worker not waiting";
  for (int i = 0; i < kWarmupFrames; ++i) ASSERT_TRUE(frameAndSettle(rig));

  const int64_t detectionsBefore = wake_probe::detections();
  bool settled = true;
  alloc_counter::arm();
  for (int i = 0; i < kMeasuredFrames && settled; ++i) settled = frameAndSettle(rig);
  const int64_t allocations = alloc_counter::disarm();
  if (allocations != 0)
    alloc_counter::printFirstSite();
  const int64_t analyses = wake_probe::detections() - detectionsBefore;
  rig.stop();

  ASSERT_TRUE(settled) << "worker did not finish an analysis in time";
  EXPECT_EQ(allocations, 0);
  // The worker analysed a pair for at least every other frame, and the
  // algorithm really analysed them, so its whole path was covered.
  if (c.expectAnalyses) {
    EXPECT_GE(analyses, kMeasuredFrames / 3);
    EXPECT_EQ(wake_probe::lastDetectFlags() & 1, 1);
  } else {
    EXPECT_EQ(analyses, 0);
  }
}

// The adapter's detection step alone, repeated on one pair of this geometry.
TEST_P(AllocTest, DetectionStep) {
  const StreamCase& c = GetParam();
  StreamRig rig(c.width, c.height);
  FlickerPlatformAdapter* adapter = FlickerPlatformAdapter::getInstance(9);  // no manager's
  ASSERT_NE(adapter, nullptr);
  adapter->init(1, 0x5678);
  adapter->setWindowInfo(c.width, c.height);
  const FlickerStatWindow window = adapter->statWindow();
  ASSERT_EQ(window.winH, rig.windowHeight());
  adapter->init_algo(rig.config().PixelsInLine, window.winH, window.winW, rig.config().PixelClk, 0);
  ASSERT_EQ(adapter->setBuf(0, rig.stats(0), 0), 0);
  ASSERT_EQ(adapter->setBuf(0, rig.stats(1), 1), 0);
  auto step = [&] {
    adapter->setDetectInfo(0, FLK_FREQ_50HZ, rig.simFrame(1).exposureTime,
                           StreamRig::kFramePeriodNs);
    adapter->detectFlicker();
  };
  step();  // the first detection of a geometry builds the algorithm's cached fit

  const int64_t detectionsBefore = wake_probe::detections();
  alloc_counter::arm();
  for (int i = 0; i < kDetectSteps; ++i) step();
  const int64_t allocations = alloc_counter::disarm();
  if (allocations != 0)
    alloc_counter::printFirstSite();
  adapter->uninit_algo();
  adapter->uninit();

  EXPECT_EQ(allocations, 0);
  EXPECT_EQ(wake_probe::detections() - detectionsBefore, kDetectSteps);
  EXPECT_EQ(wake_probe::lastDetectFlags() & 1, 1) << "the algorithm did not analyse the pair";
}

INSTANTIATE_TEST_SUITE_P(Streams, AllocTest, ::testing::ValuesIn(kCases), case_names::CaseName());

}  // namespace
