// Statistics window, the conversion of a statistics block into the
// algorithm's column vectors on each sensor path, and bad input.
#include <climits>
#include <functional>
#include <utility>

#include "adapter_test_support.h"
#include "iflicker_mgr.h"

namespace adapter_test {
namespace {

constexpr int kPathGeneric = 0, kPathSensor = 1;
constexpr int64_t kMarker = 0x7F7E7D7C7B7A7978;

// The window of an image size, and the statistics entries a frame of that
// size must carry (the public helper's answer): 18 per window row.
TEST_F(AdapterTest, WindowArithmeticAtItsBoundaries) {
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
    int imgW = -1, imgH = -1, winW = -1, winH = -1;
    EXPECT_EQ(adapter_->setWindowInfo(&imgW, &imgH, &winW, &winH, row.width, row.height), 0);
    EXPECT_EQ(std::vector<int>({imgW, imgH, winW, winH}),
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

// A block of exactly the helper's entry count is read whole and not one byte
// further (the sanitizers see an over-read of the heap block).
TEST_F(AdapterTest, BlockOfTheHelpersSizeIsReadWholeAndNoFurther) {
  for (const auto& [width, height] :
       {std::pair{kSmallW, kSmallH}, {1920, 1080}, {4000, 3000}, {8160, 6144}, {640, 51}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    const size_t entries = IFlickerMgr::StatBlockEntries(width, height);
    ASSERT_GT(entries, 0u);
    const std::vector<int64_t> stats = pattern64(entries, 3);
    int d = 0;
    ASSERT_EQ(adapter_->setWindowInfo(&d, &d, &d, &d, width, height), 0);
    ASSERT_EQ(setBuf(kPathGeneric, stats.data(), 1), 0);
    EXPECT_EQ(capture(entries).slot1, stats);
  }
}

// One block of 32-bit words, not aligned, lands on a buffer of markers.
// Generic: 18 entries per window row copied as 64-bit entries (at least 18
// in auto-test mode); 8581: its words packed as they are; 1398: 384 words
// widened with sign extension; any other sensor: nothing. The dump shows how
// many entries the adapter holds.
TEST_F(AdapterTest, ConversionPerSensorPath) {
  struct Row {
    const char* what;
    int path, sensorId, sensorMode, autoTest, height;
    size_t copiedBytes, widened;
    int32_t count;
  } rows[] = {
      {"generic", kPathGeneric, kGeneric, 0, 0, kSmallH, kEntries * 8, 0, kEntries},
      {"generic, empty window", kPathGeneric, kGeneric, 0, 0, 50, 0, 0, 0},
      {"generic auto-test, empty window", kPathGeneric, kGeneric, 0, 1, 50, 18 * 8, 0, 18},
      {"8581 mode 0", kPathSensor, 8581, 0, 0, kSmallH, 150 * 4, 0, 150},
      {"8581 other mode", kPathSensor, 8581, 2, 0, kSmallH, 201 * 4, 0, 201},
      {"1398", kPathSensor, 1398, 0, 0, kSmallH, 0, 384, 192},
      {"unlisted sensor", kPathSensor, 4242, 0, 0, kSmallH, 0, 0, kEntries},
  };
  std::vector<int32_t> words(402);
  for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<int32_t>(i * 7919) - 1000000;
  words[0] = -1, words[1] = 5, words[2] = INT32_MIN, words[383] = INT32_MAX;
  std::vector<uint8_t> bytes(words.size() * 4 + 1);
  memcpy(bytes.data() + 1, words.data(), words.size() * 4);
  const std::vector<int64_t> marker(FlickerPlatformAdapter::kBufEntries, kMarker);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId, row.sensorMode, 0, 8000);  // the largest window: markers everywhere
    ASSERT_EQ(setBuf(kPathGeneric, marker.data(), 0), 0);
    setup(row.autoTest, row.height);
    std::vector<int64_t> expected(marker.begin(), marker.begin() + 400);
    memcpy(expected.data(), words.data(), row.copiedBytes);
    for (size_t i = 0; i < row.widened; ++i) expected[i] = words[i];
    EXPECT_EQ(setBuf(row.path, bytes.data() + 1, 0), 0);
    EXPECT_EQ(capture(400).slot0, expected);
    EXPECT_EQ(detectWithDump().count, row.count);
  }
}

// Auto-test self-check: -1 when the compared source bytes are all zero; the
// data are copied either way.
TEST_F(AdapterTest, AutoTestZeroCheckCoversThePathsWidth) {
  struct Row {
    const char* what;
    int path, sensorId, autoTest, height;
    size_t nonZeroByte;  // the one non-zero byte of the block; SIZE_MAX: all zero
    int rc;
  } rows[] = {
      {"generic, last compared entry set", kPathGeneric, kGeneric, 1, kSmallH, kEntries * 8 - 1, 0},
      {"generic, only beyond the window", kPathGeneric, kGeneric, 1, kSmallH, kEntries * 8, -1},
      {"generic without auto-test", kPathGeneric, kGeneric, 0, kSmallH, SIZE_MAX, 0},
      {"empty window compares 18 entries", kPathGeneric, kGeneric, 1, 50, 143, 0},
      {"empty window, 19th entry set", kPathGeneric, kGeneric, 1, 50, 144, -1},
      {"8581, first byte beyond", kPathSensor, 8581, 1, kSmallH, 150 * 4, -1},
      {"8581, last compared byte set", kPathSensor, 8581, 1, kSmallH, 150 * 4 - 1, 0},
      {"1398 compares only 384 bytes", kPathSensor, 1398, 1, kSmallH, 384, -1},
      {"1398, byte 383 set", kPathSensor, 1398, 1, kSmallH, 383, 0},
      {"unlisted sensor compares nothing", kPathSensor, 4242, 1, kSmallH, SIZE_MAX, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId, 0, row.autoTest, row.height);
    std::vector<int64_t> stats(1000, 0);
    if (row.nonZeroByte != SIZE_MAX)
      reinterpret_cast<uint8_t*>(stats.data())[row.nonZeroByte] = 1;
    EXPECT_EQ(setBuf(row.path, stats.data(), 0), row.rc);
  }
  // A failed check still delivers the data.
  reinit(kGeneric, 0, 1);
  const std::vector<int64_t> marker(kEntries, kMarker), zeros(kEntries, 0);
  ASSERT_EQ(setBuf(kPathGeneric, marker.data(), 0), 0);
  ASSERT_EQ(setBuf(kPathGeneric, zeros.data(), 0), -1);
  EXPECT_EQ(capture(kEntries).slot0, zeros);
}

// Null outputs and inputs, negative sizes and a count that does not fit the
// buffers fail with an error and leave buffers, count and outputs alone.
TEST_F(AdapterTest, BadInputFailsWithAnError) {
  const std::vector<int64_t> stats = pattern64(kEntries, 1), other = pattern64(kEntries, 2);
  ASSERT_EQ(setBuf(kPathGeneric, stats.data(), 0), 0);
  int a = 9, b = 9, c = 9, d = 9;
  const std::pair<std::function<int()>, const char*> rows[] = {
      {[&] { return adapter_->getFrameRateType(nullptr); }, "[getFrameRateType] null output."},
      {[&] { return adapter_->getFlickerScore(&a, nullptr); }, "[getFlickerScore] null output"},
      {[&] { return adapter_->getFlickerScore(nullptr, &a); }, "[getFlickerScore] null output"},
      {[&] { return adapter_->getFLKStatConfig(nullptr); }, "[getFLKStatConfig] null output."},
      {[&] { return adapter_->setWindowInfo(nullptr, &b, &c, &d, 100, 100); }, "null output."},
      {[&] { return adapter_->setWindowInfo(&a, &b, &c, nullptr, 100, 100); }, "null output."},
      {[&] { return adapter_->setWindowInfo(&a, &b, &c, &d, -1, 100); }, "negative image size"},
      {[&] { return adapter_->setWindowInfo(&a, &b, &c, &d, 100, INT_MIN); }, "negative image"},
      {[&] { return adapter_->setBuf(0, nullptr, 0, &a, &b, &c); }, "[setBuf] null argument"},
      {[&] { return adapter_->setBuf(0, other.data(), 0, nullptr, &b, &c); }, "null argument"},
      // A window of height 0 leaves H -45 and win_h_ -14: a count of -252 entries.
      {[&] {
         adapter_->setWindowInfo(&d, &d, &d, &d, kSmallW, 0);
         return adapter_->setBuf(0, other.data(), 0, &a, &b, &c);
       },
       "statistics count(-252)"},
  };
  for (const auto& [call, error] : rows) {
    fp::clearLogs();
    EXPECT_EQ(call(), -1) << error;
    EXPECT_TRUE(fp::loggedError(error)) << error;
    EXPECT_EQ(a + b + c, 27) << error;
  }
  // A good block afterwards: outputs x 0, the image width and height.
  EXPECT_EQ(capture(kEntries).slot0, stats);  // nothing of `other` was copied
  // A good block: outputs x 0, the image width and height.
  ASSERT_EQ(adapter_->setWindowInfo(&d, &d, &d, &d, kSmallW, kSmallH), 0);
  EXPECT_EQ(adapter_->setBuf(0, stats.data(), 0, &a, &b, &c), 0);
  EXPECT_EQ(std::vector<int>({a, b, c}), std::vector<int>({0, kSmallW, kSmallH - 45}));
}

}  // namespace
}  // namespace adapter_test
