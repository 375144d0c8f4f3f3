// The per-frame path and the detection step allocate nothing once a stream is
// running: the manager library with the host platform and the open algorithm,
// debug logging off (no properties set), counted by a process-wide counting
// allocator while the manager's worker thread analyses real pairs beside it.
//
// Each case checks two counts: the library's own allocations (manager,
// adapter, algorithm) and those made inside the platform functions the path
// calls (property reads, trace tags). The device platform's are the phone's;
// the host platform's are checked here because the tools and simulations run
// the same path on a desk.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>

#include "alloc_counter.h"
#include "flicker_platform_adapter.h"
#include "stream_rig.h"
#include "wake_probe.h"

namespace {

constexpr int kWorkerTimeoutMs = 5000;  // one analysis takes well under a millisecond
constexpr int kWarmupFrames = 12;       // two skipped frames, then several pairs and analyses
constexpr int kMeasuredFrames = 300;    // ten seconds of a 30 fps stream
constexpr int kDetectSteps = 200;

// Runs one frame; when it completed a pair, waits until the worker has
// finished that analysis, as it would long before the next frame of a real
// stream. False when the worker does not come back in time.
bool frameAndSettle(StreamRig& rig) {
  const int64_t posts = wake_probe::posts();
  const int64_t waits = wake_probe::waitsEntered();
  rig.frame();
  if (wake_probe::posts() == posts)
    return true;
  return wake_probe::waitForWaits(waits + 1, kWorkerTimeoutMs);
}

// Both counts of the last armed stretch are zero; otherwise prints where the
// first allocations of each kind came from.
void expectNoAllocations(int64_t library, const char* what) {
  const int64_t platform = alloc_counter::platformCount();
  if (library != 0)
    alloc_counter::printSites(false);
  if (platform != 0)
    alloc_counter::printSites(true);
  EXPECT_EQ(library, 0) << "allocations of the library over the " << what;
  EXPECT_EQ(platform, 0) << "allocations inside platform calls over the " << what;
}

struct StreamCase {
  const char* name;
  int width;
  int height;
  int flickerMode;
  int aeDetectCycle;
  bool expectAnalyses;
};

void PrintTo(const StreamCase& c, std::ostream* os) {
  *os << c.name;
}

class PerFrameAllocTest : public ::testing::TestWithParam<StreamCase> {};

TEST_P(PerFrameAllocTest, NoAllocationOverManyFrames) {
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
  const int64_t analyses = wake_probe::detections() - detectionsBefore;
  const int32_t lastFlags = wake_probe::lastDetectFlags();
  rig.stop();

  ASSERT_TRUE(settled) << "worker did not finish an analysis in time";
  expectNoAllocations(allocations, "frames");
  if (c.expectAnalyses) {
    // The worker analysed a pair for at least every other frame, and the
    // algorithm really analysed them, so its whole path was covered.
    EXPECT_GE(analyses, kMeasuredFrames / 3);
    EXPECT_EQ(lastFlags & 1, 1);
  } else {
    EXPECT_EQ(analyses, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, PerFrameAllocTest,
    ::testing::Values(
        // The manager's own cycle: pairs of two frames, one analysis per pair.
        StreamCase{"auto_own_cycle_4000x3000", 4000, 3000, FLICKER_MODE_AUTO, 0, true},
        // The largest statistics block a buffer holds: no size-dependent allocation.
        StreamCase{"auto_own_cycle_8000x6000", 8000, 6000, FLICKER_MODE_AUTO, 0, true},
        // AE drives every-frame detection: a post and an analysis on every frame.
        StreamCase{"auto_every_frame_1920x1080", 1920, 1080, FLICKER_MODE_AUTO, 1, true},
        // A fixed mode sends the state to the algorithm on every frame instead.
        StreamCase{"fixed_60hz_1920x1080", 1920, 1080, FLICKER_MODE_60HZ, 0, false}),
    [](const ::testing::TestParamInfo<StreamCase>& info) { return info.param.name; });

class DetectionStepAllocTest : public ::testing::TestWithParam<StreamCase> {};

TEST_P(DetectionStepAllocTest, NoAllocationOverManyDetectionSteps) {
  const StreamCase& c = GetParam();
  constexpr int kSensorIdx = 9;  // no manager uses this adapter
  StreamRig rig(c.width, c.height);
  FlickerPlatformAdapter* adapter = FlickerPlatformAdapter::getInstance(kSensorIdx);
  ASSERT_NE(adapter, nullptr);
  adapter->init(1, 0x5678);
  int window[4] = {};
  adapter->setWindowInfo(&window[0], &window[1], &window[2], &window[3], c.width, c.height);
  ASSERT_EQ(window[3], rig.windowHeight());
  const flicker_config_info& config = rig.config();
  adapter->init_algo(config.PixelsInLine, window[3], window[2], config.PixelClk, 0);
  int outX = 0;
  int outW = 0;
  int outH = 0;
  ASSERT_EQ(adapter->setBuf(0, rig.stats(0), 0, &outX, &outW, &outH), 0);
  ASSERT_EQ(adapter->setBuf(0, rig.stats(1), 1, &outX, &outW, &outH), 0);
  const int exposure = rig.simFrame(1).exposureTime;
  auto step = [&] {
    adapter->setDetectInfo(0, FLK_FREQ_50HZ, exposure, StreamRig::kFramePeriodNs);
    return adapter->detectFlicker();
  };
  step();  // the first detection of a geometry builds the algorithm's cached fit

  const int64_t detectionsBefore = wake_probe::detections();
  alloc_counter::arm();
  for (int i = 0; i < kDetectSteps; ++i) step();
  const int64_t allocations = alloc_counter::disarm();
  adapter->uninit_algo();
  adapter->uninit();

  expectNoAllocations(allocations, "detection steps");
  EXPECT_EQ(wake_probe::detections() - detectionsBefore, kDetectSteps);
  EXPECT_EQ(wake_probe::lastDetectFlags() & 1, 1) << "the algorithm did not analyse the pair";
}

INSTANTIATE_TEST_SUITE_P(
    Geometries, DetectionStepAllocTest,
    ::testing::Values(StreamCase{"s1920x1080", 1920, 1080, FLICKER_MODE_AUTO, 0, true},
                      StreamCase{"s4000x3000", 4000, 3000, FLICKER_MODE_AUTO, 0, true},
                      StreamCase{"s8000x6000", 8000, 6000, FLICKER_MODE_AUTO, 0, true}),
    [](const ::testing::TestParamInfo<StreamCase>& info) { return info.param.name; });

}  // namespace
