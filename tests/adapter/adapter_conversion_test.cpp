// Statistics window and the conversion of a statistics block into the
// algorithm's column vectors on each sensor path.
#include <climits>

#include "adapter_test_support.h"

namespace adapter_test {
namespace {

constexpr int kPathGeneric = 0;
constexpr int kPathSensor = 1;
constexpr int64_t kMarker = 0x7F7E7D7C7B7A7978;

TEST_F(AdapterTest, WindowArithmeticAtItsBoundaries) {
  struct Row {
    int width, height;
    int imgW, imgH, winW, winH;
  };
  const Row rows[] = {
      {4000, 3000, 4000, 2955, 666, 984},   // typical sensor
      {4000, 6039, 4000, 5994, 666, 1998},  // tallest uncapped image
      {4000, 6040, 4000, 5994, 666, 1998},  // first capped image
      {4000, 8000, 4000, 5994, 666, 1998},  // far above the cap
      {11, 100, 11, 55, 0, 18},             // width below 12, height 100
      {12, 45, 12, 0, 2, 0},                // narrowest window, no rows left
      {23, 50, 23, 5, 2, 0},                // H below 6 rounds down to 0
      {0, 0, 0, -45, 0, -14},               // empty image: negative H as computed
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.width << "x" << row.height);
    int imgW = -1, imgH = -1, winW = -1, winH = -1;
    EXPECT_EQ(adapter_->setWindowInfo(&imgW, &imgH, &winW, &winH, row.width, row.height), 0);
    EXPECT_EQ(imgW, row.imgW);
    EXPECT_EQ(imgH, row.imgH);
    EXPECT_EQ(winW, row.winW);
    EXPECT_EQ(winH, row.winH);
    // The window also reaches the detection record.
    adapter_->detectFlicker();
    const auto para =
        recordOf<FlkDetectPara>(FLK_CMD_DETECT, fake_platform::algoCalls(2).size() - 1);
    EXPECT_EQ(para.winValue1, row.winW);
    EXPECT_EQ(para.winValue2, row.winH);
  }
  // The cap keeps the largest generic block inside one buffer.
  EXPECT_LE(18 * 1998, FlickerPlatformAdapter::kBufEntries);
}

TEST_F(AdapterTest, WindowRejectsNullOutputsAndNegativeSizes) {
  int imgW = -1, imgH = -1, winW = -1, winH = -1;
  EXPECT_EQ(adapter_->setWindowInfo(nullptr, &imgH, &winW, &winH, 100, 100), -1);
  EXPECT_EQ(adapter_->setWindowInfo(&imgW, &imgH, &winW, nullptr, 100, 100), -1);
  EXPECT_EQ(adapter_->setWindowInfo(&imgW, &imgH, &winW, &winH, -1, 100), -1);
  EXPECT_EQ(adapter_->setWindowInfo(&imgW, &imgH, &winW, &winH, 100, INT_MIN), -1);
  EXPECT_EQ(imgW + imgH + winW + winH, -4);
  // The window of the fixture is still in place.
  const std::vector<int64_t> stats = pattern64(kSmallEntries, 1);
  ASSERT_EQ(setBuf(kPathGeneric, stats.data(), 0), 0);
  EXPECT_EQ(detectWithDump(adapter_).count, kSmallEntries);
}

TEST_F(AdapterTest, GenericBlockGoesToTheChosenSlot) {
  struct Row {
    int index;
    bool slot1;
  };
  const Row rows[] = {
      {0, false},  // index 0: buffer 1 (slot 0)
      {1, true},   // index 1: buffer 2 (slot 1)
      {7, true},   // any other index: buffer 2
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.index);
    const std::vector<int64_t> old0 = pattern64(kSmallEntries, 10);
    const std::vector<int64_t> old1 = pattern64(kSmallEntries, 11);
    const std::vector<int64_t> stats = pattern64(kSmallEntries, row.index + 1);
    ASSERT_EQ(setBuf(kPathGeneric, old0.data(), 0), 0);
    ASSERT_EQ(setBuf(kPathGeneric, old1.data(), 1), 0);
    int x = -1, w = -1, h = -1;
    EXPECT_EQ(adapter_->setBuf(kPathGeneric, stats.data(), row.index, &x, &w, &h), 0);
    EXPECT_EQ(x, 0);
    EXPECT_EQ(w, kSmallW);
    EXPECT_EQ(h, kSmallH - 45);
    const DetectView view = detectAndCapture(adapter_, kSmallEntries);
    EXPECT_EQ(view.slot1, row.slot1 ? stats : old1);
    EXPECT_EQ(view.slot0, row.slot1 ? old0 : stats);
  }
}

// Entries per column after setBuf, as the dump shows them.
TEST_F(AdapterTest, EntryCountPerSensorPath) {
  struct Row {
    const char* what;
    int path;
    int sensorId;
    int sensorMode;
    int autoTest;
    int height;  // image height of the window (width 120)
    int32_t count;
  };
  const Row rows[] = {
      {"generic: 18 per window row", kPathGeneric, kGenericSensorId, 0, 0, kSmallH, kSmallEntries},
      {"generic, empty window", kPathGeneric, kGenericSensorId, 0, 0, 50, 0},
      {"generic auto-test: at least one row", kPathGeneric, kGenericSensorId, 0, 1, 50, 18},
      {"generic auto-test, larger window", kPathGeneric, kGenericSensorId, 0, 1, kSmallH, 180},
      {"sensor 8581, mode 0", kPathSensor, 8581, 0, 0, kSmallH, 150},
      {"sensor 8581, other mode", kPathSensor, 8581, 1, 0, kSmallH, 201},
      {"sensor 1398", kPathSensor, 1398, 0, 0, kSmallH, 192},
      {"unlisted sensor keeps the window count", kPathSensor, 4242, 0, 0, kSmallH, kSmallEntries},
  };
  const std::vector<int64_t> stats = pattern64(1000, 3);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId);
    adapter_->setFlickerAutoTest(row.autoTest);
    adapter_->getSensorMode(row.sensorMode, 0, nullptr);
    setWindow(kSmallW, row.height);
    ASSERT_EQ(setBuf(row.path, stats.data(), 0), 0);
    ASSERT_EQ(setBuf(row.path, stats.data(), 1), 0);
    // Detection takes the sensor's own path only for the two listed sensors.
    const bool listed = row.sensorId == 1398 || row.sensorId == 8581;
    adapter_->setDetectInfo(listed ? 1 : 0, 50, 10000, 0);
    EXPECT_EQ(detectWithDump(adapter_).count, row.count);
  }
}

TEST_F(AdapterTest, Sensor8581CopiesExactly32BitEntries) {
  struct Row {
    int sensorMode;
    size_t bytes;
  };
  const Row rows[] = {
      {0, 150 * 4},  // mode 0
      {2, 201 * 4},  // any other mode
  };
  std::vector<int32_t> words(402);
  for (size_t i = 0; i < words.size(); ++i) {
    words[i] = static_cast<int32_t>(i * 7919) - 1000000;
  }
  const std::vector<int64_t> marker(kSmallEntries, kMarker);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.sensorMode);
    reinit(8581);
    adapter_->getSensorMode(row.sensorMode, 0, nullptr);
    ASSERT_EQ(setBuf(kPathGeneric, marker.data(), 1), 0);
    ASSERT_EQ(setBuf(kPathSensor, words.data(), 1), 0);
    const DetectView view = detectAndCapture(adapter_, 200);
    const auto* got = reinterpret_cast<const uint8_t*>(view.slot1.data());
    EXPECT_EQ(memcmp(got, words.data(), row.bytes), 0);  // packed, not widened
    int64_t after = 0;
    memcpy(&after, got + row.bytes + (8 - row.bytes % 8) % 8, sizeof(after));
    EXPECT_EQ(after, kMarker);  // nothing beyond the entries was touched
  }
}

TEST_F(AdapterTest, Sensor1398WidensWithSignExtension) {
  reinit(1398);
  std::vector<int32_t> words(384);
  for (size_t i = 0; i < words.size(); ++i) {
    words[i] = (i % 2 == 0) ? static_cast<int32_t>(i * 1000) : -static_cast<int32_t>(i);
  }
  words[0] = -1;
  words[1] = 5;
  words[2] = INT32_MIN;
  words[383] = INT32_MAX;
  // An odd start address: the block need not be aligned.
  std::vector<uint8_t> bytes(words.size() * 4 + 1);
  memcpy(bytes.data() + 1, words.data(), words.size() * 4);
  ASSERT_EQ(setBuf(kPathSensor, bytes.data() + 1, 0), 0);
  const DetectView view = detectAndCapture(adapter_, 384);
  for (size_t i = 0; i < words.size(); ++i) {
    ASSERT_EQ(view.slot0[i], static_cast<int64_t>(words[i])) << "entry " << i;
  }
}

// Auto-test self-check: -1 when the compared source bytes are all zero; the
// data are copied either way.
TEST_F(AdapterTest, AutoTestZeroCheckCoversThePathsWidth) {
  struct Row {
    const char* what;
    int path;
    int sensorId;
    int autoTest;
    int height;
    size_t nonZeroByte;  // first non-zero byte of the block; SIZE_MAX: all zero
    int rc;
  };
  const Row rows[] = {
      {"generic all zero", kPathGeneric, kGenericSensorId, 1, kSmallH, SIZE_MAX, -1},
      {"generic, last compared entry set", kPathGeneric, kGenericSensorId, 1, kSmallH,
       kSmallEntries * 8 - 1, 0},
      {"generic, only beyond the window", kPathGeneric, kGenericSensorId, 1, kSmallH,
       kSmallEntries * 8, -1},
      {"generic without auto-test", kPathGeneric, kGenericSensorId, 0, kSmallH, SIZE_MAX, 0},
      {"empty window compares 18 entries", kPathGeneric, kGenericSensorId, 1, 50, 143, 0},
      {"empty window, 19th entry set", kPathGeneric, kGenericSensorId, 1, 50, 144, -1},
      {"8581 all zero", kPathSensor, 8581, 1, kSmallH, SIZE_MAX, -1},
      {"8581, last compared byte set", kPathSensor, 8581, 1, kSmallH, 150 * 4 - 1, 0},
      {"1398 compares only 384 bytes", kPathSensor, 1398, 1, kSmallH, 384, -1},
      {"1398, byte 383 set", kPathSensor, 1398, 1, kSmallH, 383, 0},
      {"unlisted sensor compares nothing", kPathSensor, 4242, 1, kSmallH, SIZE_MAX, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId);
    adapter_->setFlickerAutoTest(row.autoTest);
    setWindow(kSmallW, row.height);
    std::vector<int64_t> stats(1000, 0);
    if (row.nonZeroByte != SIZE_MAX) {
      reinterpret_cast<uint8_t*>(stats.data())[row.nonZeroByte] = 1;
    }
    EXPECT_EQ(setBuf(row.path, stats.data(), 0), row.rc);
  }
  // A failed check still delivers the data.
  reinit(kGenericSensorId);
  adapter_->setFlickerAutoTest(1);
  const std::vector<int64_t> marker(kSmallEntries, kMarker);
  const std::vector<int64_t> zeros(kSmallEntries, 0);
  ASSERT_EQ(setBuf(kPathGeneric, marker.data(), 0), 0);
  ASSERT_EQ(setBuf(kPathGeneric, zeros.data(), 0), -1);
  EXPECT_EQ(detectAndCapture(adapter_, kSmallEntries).slot0, zeros);
}

TEST_F(AdapterTest, UnlistedSensorCopiesNothing) {
  reinit(4242);
  const std::vector<int64_t> marker(kSmallEntries, kMarker);
  const std::vector<int64_t> stats = pattern64(kSmallEntries, 5);
  ASSERT_EQ(setBuf(kPathGeneric, marker.data(), 0), 0);
  EXPECT_EQ(setBuf(kPathSensor, stats.data(), 0), 0);
  EXPECT_EQ(detectAndCapture(adapter_, kSmallEntries).slot0, marker);
}

// Bad input fails with an error and leaves buffers, count and outputs as
// they were.
TEST_F(AdapterTest, BadSetBufInputIsRejected) {
  const std::vector<int64_t> stats = pattern64(kSmallEntries, 1);
  ASSERT_EQ(setBuf(kPathGeneric, stats.data(), 0), 0);
  const std::vector<int64_t> other = pattern64(kSmallEntries, 2);
  int x = 9, w = 9, h = 9;
  struct Row {
    const char* what;
    const void* stats;
    int* outX;
    int height;  // window for this row
    const char* error;
  };
  const Row rows[] = {
      {"null statistics", nullptr, &x, kSmallH, "null argument"},
      {"null output", other.data(), nullptr, kSmallH, "null argument"},
      {"negative window height", other.data(), &x, 0, "statistics count(-252)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    setWindow(kSmallW, row.height);
    fake_platform::clearLogs();
    EXPECT_EQ(adapter_->setBuf(kPathGeneric, row.stats, 0, row.outX, &w, &h), -1);
    EXPECT_TRUE(fake_platform::loggedError(row.error));
    EXPECT_EQ(x + w + h, 27);
  }
  setWindow(kSmallW, kSmallH);
  const flicker_dump::FlkRawDump dump = detectWithDump(adapter_);
  EXPECT_EQ(dump.count, kSmallEntries);
  EXPECT_EQ(dump.slot0, stats);
}

TEST_F(AdapterTest, RowTraceEveryHundredImageRows) {
  struct Row {
    int height;  // image height; H = height - 45
    int lines;
  };
  const Row rows[] = {
      {245, 2},  // H 200: rows 0 and 100, not 200
      {246, 3},  // H 201: rows 0, 100 and 200
  };
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 2);
  const std::vector<int64_t> stats = pattern64(2000, 4);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.height);
    reinit(kGenericSensorId);
    setWindow(kSmallW, row.height);
    ASSERT_EQ(setBuf(kPathGeneric, stats.data(), 1), 0);
    EXPECT_EQ(fake_platform::countLogged("[setBuf] sta row ="), row.lines);
    // The position advances by 600 entries per 100 rows.
    const std::string line = "sta row =100, " + std::to_string(stats[600]) + " " +
                             std::to_string(stats[601]) + " " + std::to_string(stats[602]);
    EXPECT_EQ(fake_platform::countLogged(line), 1);
  }
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 1);
  reinit(kGenericSensorId);
  ASSERT_EQ(setBuf(kPathGeneric, stats.data(), 1), 0);
  EXPECT_EQ(fake_platform::countLogged("sta row"), 0);  // off below debug level
}

}  // namespace
}  // namespace adapter_test
