// Adapter instances, initialisation and the two statistics buffers.
#include <cstdlib>

#include "adapter_test_support.h"

namespace adapter_test {
namespace {

TEST(AdapterInstance, OnlyIndicesZeroToNineteenHaveAnAdapter) {
  fake_platform::reset();
  struct Row {
    int index;
    bool valid;
  };
  const Row rows[] = {
      {-1, false},  // negative index: rejected by the unsigned test
      {20, false},  // one past the table
      {0, true},    // first slot
      {19, true},   // last slot
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.index);
    FlickerPlatformAdapter* adapter = FlickerPlatformAdapter::getInstance(row.index);
    EXPECT_EQ(adapter != nullptr, row.valid);
    if (row.valid) {
      EXPECT_EQ(FlickerPlatformAdapter::getInstance(row.index), adapter);  // one per index
    } else {
      EXPECT_TRUE(fake_platform::loggedError("Unsupport SensorIdx: " + std::to_string(row.index)));
    }
  }
  EXPECT_NE(FlickerPlatformAdapter::getInstance(0), FlickerPlatformAdapter::getInstance(19));
}

// A never-used adapter carries zeros everywhere into its first detection.
TEST(AdapterInstance, FreshAdapterDetectsWithZeroState) {
  fake_platform::reset();
  FlickerPlatformAdapter* adapter = FlickerPlatformAdapter::getInstance(17);
  ASSERT_EQ(adapter->init(0, kGenericSensorId), 0);
  EXPECT_EQ(adapter->detectFlicker(), FLK_FREQ_NONE);
  const auto para = recordOf<FlkDetectPara>(FLK_CMD_DETECT);
  EXPECT_EQ(para.sensorPath, FLK_PATH_GENERIC);
  EXPECT_EQ(para.winValue1, 0);
  EXPECT_EQ(para.winValue2, 0);
  EXPECT_EQ(para.freq, 0);
  EXPECT_EQ(para.pixelClk, 0);
  EXPECT_EQ(para.lineLength, 0u);
  EXPECT_EQ(para.exposure, 0);
  EXPECT_EQ(para.frameInterval, 0);
  adapter->uninit();
}

// Re-init without uninit: logged, two fresh blocks, the old ones dropped.
TEST_F(AdapterTest, InitTwiceLogsAndTakesFreshBuffers) {
  const DetectView before = detectAndCapture(adapter_, 0);
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 2);
  EXPECT_EQ(adapter_->init(0, kGenericSensorId), 0);
  EXPECT_TRUE(fake_platform::loggedError("[createBuf] buffer is not empty."));
  const DetectView after = detectAndCapture(adapter_, 0);
  EXPECT_NE(after.para.statsSlot0, before.para.statsSlot0);
  EXPECT_NE(after.para.statsSlot1, before.para.statsSlot1);
  EXPECT_TRUE(fake_platform::logged("[createBuf] ---"));
  // The adapter let go of the old blocks without freeing them: freeing them
  // here must be the first and only free (the sanitizer checks that).
  free(const_cast<int64_t*>(before.para.statsSlot0));
  free(const_cast<int64_t*>(before.para.statsSlot1));
}

TEST_F(AdapterTest, AllocationFailuresAreReportedButInitSucceeds) {
  struct Row {
    const char* what;
    void (*arm)();
    const char* message;
  };
  const Row rows[] = {
      // buffer 1 is the first 288000-byte block
      {"buffer 1",
       [] { fake_platform::failAllocationsOfSize(FlickerPlatformAdapter::kBufBytes, 1); },
       "falied to allocate buffer 1."},
      // buffer 2 fails after buffer 1 was taken; buffer 1 is given back
      {"buffer 2", [] { fake_platform::failNthAllocation(2); }, "falied to allocate buffer 2."},
  };
  const std::vector<int64_t> stats = pattern64(kSmallEntries, 1);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    adapter_->uninit();
    fake_platform::clearLogs();
    fake_platform::clearAlgoCalls();
    row.arm();
    EXPECT_EQ(adapter_->init(0, kGenericSensorId), 0);
    EXPECT_EQ(fake_platform::failedAllocations(), 1);
    EXPECT_TRUE(fake_platform::loggedError(row.message));
    // Every later frame reports the missing buffers, and detection sends nothing.
    EXPECT_EQ(setBuf(0, stats.data(), 0), -1);
    EXPECT_TRUE(
        fake_platform::loggedError("column_vector_data_1_ or column_vector_data_2_ is NULL."));
    EXPECT_EQ(adapter_->detectFlicker(), FLK_FREQ_NONE);
    EXPECT_TRUE(fake_platform::algoCalls(FLK_CMD_DETECT).empty());
    // Releasing after the failure must not free buffer 1 a second time.
    EXPECT_EQ(adapter_->uninit(), 0);
    fake_platform::reset();
  }
}

TEST_F(AdapterTest, UninitReleasesAndIsRepeatable) {
  const std::vector<int64_t> stats = pattern64(kSmallEntries, 1);
  EXPECT_EQ(setBuf(0, stats.data(), 0), 0);
  EXPECT_EQ(adapter_->uninit(), 0);
  EXPECT_EQ(adapter_->uninit(), 0);  // nothing left to free
  EXPECT_EQ(setBuf(0, stats.data(), 0), -1);
  EXPECT_TRUE(fake_platform::algoCalls().empty());  // uninit sends no command
  EXPECT_EQ(adapter_->init(0, kGenericSensorId), 0);
  EXPECT_EQ(setBuf(0, stats.data(), 0), 0);
}

TEST_F(AdapterTest, InitReadsTheLogLevelProperty) {
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 1);
  adapter_->uninit();
  adapter_->init(0, 1234);
  EXPECT_FALSE(fake_platform::logged("SensorId(1234)"));  // debug lines need level 2
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 2);
  adapter_->uninit();
  adapter_->init(0, 1234);
  EXPECT_TRUE(fake_platform::logged("[init] SensorIdx(3), SensorId(1234)"));
  EXPECT_TRUE(fake_platform::logged("[createBuf] +++"));
}

}  // namespace
}  // namespace adapter_test
