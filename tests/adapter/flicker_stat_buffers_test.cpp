// The statistics window and the conversion of a statistics block into a
// slot on each sensor path, on the buffers alone (no adapter, no algorithm).
#include "flicker_stat_buffers.h"

#include <climits>
#include <utility>

#include "adapter_test_support.h"
#include "flicker_log.h"
#include "iflicker_mgr.h"

namespace adapter_test {
namespace {

constexpr int kPathGeneric = 0, kPathSensor = 1;
constexpr int64_t kMarker = 0x7F7E7D7C7B7A7978;

class FlickerStatBuffersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    flicker_log::g_adapterLevel = 0;
    ASSERT_EQ(buffers_.createBuf(), 0);
    ASSERT_EQ(buffers_.setWindowInfo(kSmallW, kSmallH), 0);
  }
  // Slot `index`'s first `n` entries.
  std::vector<int64_t> slot(int index, size_t n) {
    return {buffers_.slot(index), buffers_.slot(index) + n};
  }
  int setBuf(int path, int sensorId, const void* stats, int index, bool autoTest = false,
             int sensorMode = 0) {
    return buffers_.setBuf(path, sensorId, sensorMode, autoTest, stats, index);
  }
  FlickerStatBuffers buffers_;
};

// The window of an image size, and the statistics entries a frame of that
// size must carry (the public helper's answer): 18 per window line.
TEST(FlickerStatWindowTest, ArithmeticAtItsBoundaries) {
  struct Row {
    int width, height, imgW, imgH, winW, winH, entries;
  } rows[] = {
      {4000, 3000, 4000, 2955, 666, 984, 17712},   // typical sensor
      {4000, 6039, 4000, 5994, 666, 1998, 35964},  // tallest uncapped image
      {4000, 6040, 4000, 5994, 666, 1998, 35964},  // first capped image
      {4000, 8000, 4000, 5994, 666, 1998, 35964},  // far above the cap
      {11, 100, 11, 55, 0, 18, 324},               // width below 12, height 100
      {12, 45, 12, 0, 2, 0, 0},                    // narrowest window, no rows left
      {23, 50, 23, 5, 2, 0, 0},                    // H below 6 rounds down to 0
      {0, 0, 0, -45, 0, -14, 0},                   // empty image: negative H as computed
  };
  for (const Row& row : rows) {
    const FlickerStatWindow w = FlickerStatWindow::of(row.width, row.height);
    EXPECT_EQ(std::vector<int>({w.imgW, w.imgH, w.winW, w.winH}),
              std::vector<int>({row.imgW, row.imgH, row.winW, row.winH}))
        << row.width << "x" << row.height;
    EXPECT_EQ(IFlickerMgr::StatBlockEntries(row.width, row.height),
              static_cast<size_t>(row.entries))
        << row.width << "x" << row.height;
  }
  // Sizes the window set-up refuses need no block.
  EXPECT_EQ(IFlickerMgr::StatBlockEntries(-1, 3000), 0u);
  EXPECT_EQ(IFlickerMgr::StatBlockEntries(4000, INT_MIN), 0u);
}

// A refused size keeps the window in force.
TEST_F(FlickerStatBuffersTest, NegativeSizeIsRefusedAndKeepsTheWindow) {
  for (const auto& [width, height] : {std::pair{-1, 100}, {100, INT_MIN}}) {
    fp::clearLogs();
    EXPECT_EQ(buffers_.setWindowInfo(width, height), -1);
    EXPECT_TRUE(fp::loggedError("[setWindowInfo] negative image size"));
    EXPECT_EQ(buffers_.window().winH, 10);
  }
}

// A block of exactly the helper's entry count is read whole and not one byte
// further (the sanitizers see an over-read of the heap block).
TEST_F(FlickerStatBuffersTest, BlockOfTheHelpersSizeIsReadWholeAndNoFurther) {
  for (const auto& [width, height] :
       {std::pair{kSmallW, kSmallH}, {1920, 1080}, {4000, 3000}, {8160, 6144}, {640, 51}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    const size_t entries = IFlickerMgr::StatBlockEntries(width, height);
    ASSERT_GT(entries, 0u);
    const std::vector<int64_t> stats = pattern64(entries, 3);
    ASSERT_EQ(buffers_.setWindowInfo(width, height), 0);
    ASSERT_EQ(setBuf(kPathGeneric, kGeneric, stats.data(), 1), 0);
    EXPECT_EQ(slot(1, entries), stats);
    EXPECT_EQ(buffers_.statCount(), static_cast<int32_t>(entries));
  }
}

// One block of 32-bit words, not aligned, lands on a slot of markers.
// Generic: 18 entries per window line copied as 64-bit entries (at least 18
// with the auto-test check); 8581: its words packed as they are; 1398: 384
// words widened with sign extension; any other sensor: nothing.
TEST_F(FlickerStatBuffersTest, ConversionPerSensorPath) {
  struct Row {
    const char* what;
    int path, sensorId, sensorMode;
    bool autoTest;
    int height;
    size_t copiedBytes, widened;
    int32_t count;
  } rows[] = {
      {"generic", kPathGeneric, kGeneric, 0, false, kSmallH, kEntries * sizeof(int64_t), 0,
       kEntries},
      {"generic, empty window", kPathGeneric, kGeneric, 0, false, 50, 0, 0, 0},
      {"generic auto-test, empty window", kPathGeneric, kGeneric, 0, true, 50, 18 * sizeof(int64_t),
       0, 18},
      {"8581 mode 0", kPathSensor, 8581, 0, false, kSmallH, 150 * sizeof(int32_t), 0, 150},
      {"8581 other mode", kPathSensor, 8581, 2, false, kSmallH, 201 * sizeof(int32_t), 0, 201},
      {"1398", kPathSensor, 1398, 0, false, kSmallH, 0, 384, 192},
      {"unlisted sensor", kPathSensor, 4242, 0, false, kSmallH, 0, 0, kEntries},
  };
  std::vector<int32_t> words(402);
  for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<int32_t>(i * 7919) - 1000000;
  words[0] = -1, words[1] = 5, words[2] = INT32_MIN, words[383] = INT32_MAX;
  std::vector<uint8_t> bytes(words.size() * 4 + 1);
  memcpy(bytes.data() + 1, words.data(), words.size() * 4);
  const std::vector<int64_t> marker(FlickerStatBuffers::kBufEntries, kMarker);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(buffers_.setWindowInfo(kSmallW, 8000), 0);  // the largest window: markers everywhere
    ASSERT_EQ(setBuf(kPathGeneric, kGeneric, marker.data(), 0), 0);
    ASSERT_EQ(buffers_.setWindowInfo(kSmallW, row.height), 0);
    std::vector<int64_t> expected(marker.begin(), marker.begin() + 400);
    memcpy(expected.data(), words.data(), row.copiedBytes);
    for (size_t i = 0; i < row.widened; ++i) expected[i] = words[i];
    EXPECT_EQ(setBuf(row.path, row.sensorId, bytes.data() + 1, 0, row.autoTest, row.sensorMode), 0);
    EXPECT_EQ(slot(0, 400), expected);
    EXPECT_EQ(buffers_.statCount(), row.count);
  }
}

// Auto-test self-check: -1 when the compared source bytes are all zero; the
// data are copied either way.
TEST_F(FlickerStatBuffersTest, AutoTestZeroCheckCoversThePathsWidth) {
  struct Row {
    const char* what;
    int path, sensorId;
    bool autoTest;
    int height;
    size_t nonZeroByte;  // the one non-zero byte of the block; SIZE_MAX: all zero
    int rc;
  } rows[] = {
      {"generic, last compared entry set", kPathGeneric, kGeneric, true, kSmallH,
       kEntries * sizeof(int64_t) - 1, 0},
      {"generic, only beyond the window", kPathGeneric, kGeneric, true, kSmallH,
       kEntries * sizeof(int64_t), -1},
      {"generic without auto-test", kPathGeneric, kGeneric, false, kSmallH, SIZE_MAX, 0},
      {"empty window compares 18 entries", kPathGeneric, kGeneric, true, 50, 143, 0},
      {"empty window, 19th entry set", kPathGeneric, kGeneric, true, 50, 144, -1},
      {"8581, first byte beyond", kPathSensor, 8581, true, kSmallH, 150 * sizeof(int32_t), -1},
      {"8581, last compared byte set", kPathSensor, 8581, true, kSmallH, 150 * sizeof(int32_t) - 1,
       0},
      {"1398 compares only 384 bytes", kPathSensor, 1398, true, kSmallH, 384, -1},
      {"1398, byte 383 set", kPathSensor, 1398, true, kSmallH, 383, 0},
      {"unlisted sensor compares nothing", kPathSensor, 4242, true, kSmallH, SIZE_MAX, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(buffers_.setWindowInfo(kSmallW, row.height), 0);
    std::vector<int64_t> stats(1000, 0);
    if (row.nonZeroByte != SIZE_MAX)
      reinterpret_cast<uint8_t*>(stats.data())[row.nonZeroByte] = 1;
    EXPECT_EQ(setBuf(row.path, row.sensorId, stats.data(), 0, row.autoTest), row.rc);
  }
  // A failed check still delivers the data.
  ASSERT_EQ(buffers_.setWindowInfo(kSmallW, kSmallH), 0);
  const std::vector<int64_t> marker(kEntries, kMarker), zeros(kEntries, 0);
  ASSERT_EQ(setBuf(kPathGeneric, kGeneric, marker.data(), 0, true), 0);
  ASSERT_EQ(setBuf(kPathGeneric, kGeneric, zeros.data(), 0, true), -1);
  EXPECT_EQ(slot(0, kEntries), zeros);
}

// A null block, a count that does not fit the buffers, or buffers that are
// not there fail with an error and leave slots and count alone.
TEST_F(FlickerStatBuffersTest, BadInputFailsWithAnError) {
  const std::vector<int64_t> stats = pattern64(kEntries, 1), other = pattern64(kEntries, 2);
  ASSERT_EQ(setBuf(kPathGeneric, kGeneric, stats.data(), 0), 0);
  struct Row {
    int height;      // window in force
    bool release;    // buffers freed first
    bool nullBlock;  // no block
    const char* error;
  } rows[] = {
      {kSmallH, false, true, "[setBuf] null argument"},
      // A window of height 0 leaves H -45 and winH -14: a count of -252 entries.
      {0, false, false, "statistics count(-252)"},
      {kSmallH, true, false, "column_vector_data_1_ or column_vector_data_2_ is NULL."},
  };
  for (const Row& row : rows) {
    fp::clearLogs();
    ASSERT_EQ(buffers_.setWindowInfo(kSmallW, row.height), 0);
    if (row.release)
      buffers_.releaseBuf();
    EXPECT_EQ(setBuf(kPathGeneric, kGeneric, row.nullBlock ? nullptr : other.data(), 0), -1);
    EXPECT_TRUE(fp::loggedError(row.error)) << row.error;
    EXPECT_EQ(buffers_.statCount(), kEntries) << row.error;
    if (!row.release) {
      EXPECT_EQ(slot(0, kEntries), stats) << row.error;  // nothing of `other` was copied
    }
  }
  EXPECT_EQ(buffers_.slot(0), nullptr);
  EXPECT_EQ(buffers_.releaseBuf(), 0);  // twice is harmless
}

}  // namespace
}  // namespace adapter_test
