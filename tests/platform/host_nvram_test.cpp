// Host NVRAM: the tuning image format, loading it row by row, and every
// refusal (bad image, bad table) leaving the caller's table untouched.
#include "host_nvram.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host_test_util.h"

namespace {

// A record whose every field tells where it belongs, with negative words and
// a pixel clock above 32 bits to catch sign and width mistakes.
FLICKER_CUST_PARA markedRecord(int row, int col) {
  FLICKER_CUST_PARA record{};
  int32_t words[kFlickerAlgoWords];
  for (int i = 0; i < kFlickerAlgoWords; ++i)
    words[i] = (row * 1000 + col * 100 + i) * (i % 2 ? -1 : 1);
  memcpy(&record, words, sizeof(words));
  record.sensor_setting.pclk = 5000000000LL + row * 10LL + col;
  record.sensor_setting.line_length = 4000 + row;
  record.sensor_setting.column_length = -(3000 + col);
  record.is_auto_gen = static_cast<uint8_t>(row % 2);
  return record;
}

// Compared in the image encoding, whose offsets the test checks on raw
// bytes: padding bytes are not part of the record.
bool sameRecord(const FLICKER_CUST_PARA& a, const FLICKER_CUST_PARA& b) {
  uint8_t bytes[2][flicker_host::kTuningRecordBytes];
  flicker_host::encodeTuningRecord(a, bytes[0]);
  flicker_host::encodeTuningRecord(b, bytes[1]);
  return memcmp(bytes[0], bytes[1], sizeof(bytes[0])) == 0;
}

// The caller-owned table the manager hands over: 70 row pointers of 2
// records, filled with 0xAB to show what was written.
struct Table {
  Table() {
    memset(storage, 0xAB, sizeof(storage));
    for (int row = 0; row < kFlickerScenarioRows; ++row) rows[row] = storage[row];
  }
  bool untouched(int row, int col) const {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&storage[row][col]);
    return std::all_of(bytes, bytes + sizeof(FLICKER_CUST_PARA),
                       [](uint8_t b) { return b == 0xAB; });
  }
  int load(int modes = kFlickerScenarioRows, int ratios = kFlickerBinRatios) {
    return nvGetFlickerParaAll(0, 1, modes, ratios, &base);
  }
  FLICKER_CUST_PARA storage[kFlickerScenarioRows][kFlickerBinRatios];
  FLICKER_CUST_PARA* rows[kFlickerScenarioRows];
  FLICKER_CUST_PARA** base = rows;
};

class HostNvramTest : public host_test::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    host_test::writeFile(image_, std::string(full_.begin(), full_.end()));
  }
  void TearDown() override {
    unsetenv("FLICKER_NVRAM_IMAGE");
    flicker_host::setNvramImage("");
    HostTest::TearDown();
  }

  std::string image_ = dir_.file("nvram.bin");
  std::vector<uint8_t> full_ = flicker_host::encodeTuningImage(markedRecord);
};

TEST_F(HostNvramTest, GoodImageFillsEveryRecordAskedFor) {
  setenv("FLICKER_NVRAM_IMAGE", image_.c_str(), 1);  // setNvramImage is used below
  Table full;
  ASSERT_EQ(full.load(), 0);
  for (int r = 0; r < kFlickerScenarioRows; ++r) {
    for (int c = 0; c < kFlickerBinRatios; ++c)
      EXPECT_TRUE(sameRecord(full.storage[r][c], markedRecord(r, c))) << r << "," << c;
  }
  // The layout is fixed independently of the decoder: record (row 0, col 1)
  // is the second of 168 bytes, its search range (word 10) at +40 and its
  // pixel clock at +144, little-endian.
  const uint8_t* second = full_.data() + flicker_host::kTuningRecordBytes;
  EXPECT_EQ(second[40] | second[41] << 8 | second[42] << 16 | second[43] << 24, 110);
  int64_t pclk = 0;
  for (int i = 7; i >= 0; --i) pclk = pclk << 8 | second[144 + i];
  EXPECT_EQ(pclk, 5000000001LL);
  // Smaller totals read their records from the full layout and no others.
  Table small;
  ASSERT_EQ(small.load(3, 1), 0);
  EXPECT_TRUE(sameRecord(small.storage[2][0], markedRecord(2, 0)));
  EXPECT_TRUE(small.untouched(2, 1) && small.untouched(3, 0));
}

TEST_F(HostNvramTest, BadImagesAndTablesFailWithoutTouchingMemory) {
  const long fullSize = static_cast<long>(full_.size());
  struct Row {
    const char* what;
    long imageBytes;  // the first bytes of the good image; -1: no file
    int modes, ratios;
    const char* log;  // part of the error message
  } rows[] = {
      {"missing file", -1, 70, 2, "cannot open"},
      {"one byte short", fullSize - 1, 70, 2, "short"},
      {"negative ratios", fullSize, 70, -1, "bad table totals"},
      {"71 modes", fullSize, 71, 2, "bad table totals"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    unlink(image_.c_str());
    if (row.imageBytes >= 0)
      host_test::writeFile(image_, std::string(full_.begin(), full_.begin() + row.imageBytes));
    flicker_host::setNvramImage(image_);
    const size_t logged = logSince().size();
    Table table;
    EXPECT_EQ(table.load(row.modes, row.ratios), -1);
    EXPECT_TRUE(table.untouched(0, 0));
    EXPECT_NE(logSince(logged).find(row.log), std::string::npos);
  }
  // A missing last row is refused before anything is written.
  flicker_host::setNvramImage("");
  Table table;
  table.rows[kFlickerScenarioRows - 1] = nullptr;
  EXPECT_EQ(table.load(), -1);
  EXPECT_TRUE(table.untouched(0, 0));
  FLICKER_CUST_PARA** nullBase = nullptr;
  EXPECT_EQ(nvGetFlickerParaAll(0, 1, 1, 1, nullptr), -1);
  EXPECT_EQ(nvGetFlickerParaAll(0, 1, 1, 1, &nullBase), -1);
}

}  // namespace
