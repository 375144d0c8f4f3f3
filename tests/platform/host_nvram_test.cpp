// Host NVRAM: the tuning image format, loading it row by row, the built-in
// defaults and every refusal.
#include "host_nvram.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "host_default_tuning.h"
#include "host_log.h"
#include "host_test_util.h"

namespace {

int32_t word(const FLICKER_CUST_PARA& record, int index) {
  int32_t value = 0;
  memcpy(&value, reinterpret_cast<const uint8_t*>(&record) + 4 * index, sizeof(value));
  return value;
}

// A record whose every field tells where it belongs, with negative words and
// a pixel clock above 32 bits to catch sign and width mistakes.
FLICKER_CUST_PARA markedRecord(int row, int col) {
  FLICKER_CUST_PARA record{};
  for (int i = 0; i < kFlickerAlgoWords; ++i) {
    const int32_t value = (row * 1000 + col * 100 + i) * (i % 2 == 0 ? 1 : -1);
    memcpy(reinterpret_cast<uint8_t*>(&record) + 4 * i, &value, sizeof(value));
  }
  record.sensor_setting.pclk = 5000000000LL + row * 10 + col;
  record.sensor_setting.line_length = 4000 + row;
  record.sensor_setting.column_length = -(3000 + col);
  record.is_auto_gen = static_cast<uint8_t>(row % 2);
  return record;
}

void expectSameRecord(const FLICKER_CUST_PARA& got, const FLICKER_CUST_PARA& want,
                      const std::string& where) {
  for (int i = 0; i < kFlickerAlgoWords; ++i) {
    EXPECT_EQ(word(got, i), word(want, i)) << where << " word " << i;
  }
  EXPECT_EQ(got.sensor_setting.pclk, want.sensor_setting.pclk) << where;
  EXPECT_EQ(got.sensor_setting.line_length, want.sensor_setting.line_length) << where;
  EXPECT_EQ(got.sensor_setting.column_length, want.sensor_setting.column_length) << where;
  EXPECT_EQ(got.is_auto_gen, want.is_auto_gen) << where;
}

// The caller-owned table the manager hands over: 70 row pointers of 2 records.
struct Table {
  Table() {
    for (int row = 0; row < kFlickerScenarioRows; ++row) {
      rows[row] = storage[row];
      for (auto& record : storage[row]) memset(&record, 0xAB, sizeof(record));  // "untouched"
    }
  }
  FLICKER_CUST_PARA storage[kFlickerScenarioRows][kFlickerBinRatios];
  FLICKER_CUST_PARA* rows[kFlickerScenarioRows];
  FLICKER_CUST_PARA** base = rows;
  bool untouched() const {
    const auto* bytes = reinterpret_cast<const uint8_t*>(storage);
    for (size_t i = 0; i < sizeof(storage); ++i) {
      if (bytes[i] != 0xAB)
        return false;
    }
    return true;
  }
};

class HostNvramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(flicker_host::setDebugLogFile(logFile_));
    unsetenv("FLICKER_NVRAM_IMAGE");
    flicker_host::setNvramImage("");
  }
  void TearDown() override {
    unsetenv("FLICKER_NVRAM_IMAGE");
    flicker_host::setNvramImage("");
    flicker_host::setDebugLogFile("");
  }
  std::string writeImage(const std::vector<uint8_t>& bytes, const char* name = "nvram.bin") {
    const std::string path = dir_.file(name);
    host_test::writeFile(path, std::string(bytes.begin(), bytes.end()));
    return path;
  }
  std::string log() const { return host_test::readFile(logFile_); }

  host_test::TempDir dir_;
  std::string logFile_ = dir_.file("log.txt");
  Table table_;
};

// The image layout is fixed independently of the decoder: read raw bytes.
TEST_F(HostNvramTest, RecordEncodingIsLittleEndianAtTheFixedOffsets) {
  FLICKER_CUST_PARA record{};
  record.flickerSearchRange = 0x01020304;
  record.freq_feature_index[1] = -2;
  record.sensor_setting.pclk = 0x0102030405060708LL;
  record.sensor_setting.line_length = 5000;
  record.sensor_setting.column_length = 3200;
  record.is_auto_gen = 1;
  uint8_t bytes[flicker_host::kTuningRecordBytes];
  flicker_host::encodeTuningRecord(record, bytes);
  const uint8_t searchRange[] = {0x04, 0x03, 0x02, 0x01};
  EXPECT_EQ(memcmp(bytes + 40, searchRange, 4), 0);
  const uint8_t minusTwo[] = {0xFE, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(memcmp(bytes + 136, minusTwo, 4), 0);
  const uint8_t pclk[] = {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01};
  EXPECT_EQ(memcmp(bytes + 144, pclk, 8), 0);
  const uint8_t lengths[] = {0x88, 0x13, 0, 0, 0x80, 0x0C, 0, 0};  // 5000, 3200
  EXPECT_EQ(memcmp(bytes + 152, lengths, 8), 0);
  EXPECT_EQ(bytes[160], 1);
  EXPECT_EQ(bytes[140] | bytes[141] | bytes[142] | bytes[143] | bytes[161] | bytes[167], 0);
  expectSameRecord(flicker_host::decodeTuningRecord(bytes), record, "round trip");
}

TEST_F(HostNvramTest, ImageFillsEveryRecordRowByRow) {
  const std::string path = writeImage(flicker_host::encodeTuningImage(markedRecord));
  struct Row {
    bool throughEnvironment;  // FLICKER_NVRAM_IMAGE instead of setNvramImage
  } rows[] = {{false}, {true}};
  for (const Row& row : rows) {
    Table table;
    if (row.throughEnvironment) {
      setenv("FLICKER_NVRAM_IMAGE", path.c_str(), 1);
    } else {
      flicker_host::setNvramImage(path);
    }
    ASSERT_EQ(nvGetFlickerParaAll(0, 1, kFlickerScenarioRows, kFlickerBinRatios, &table.base), 0);
    for (int r = 0; r < kFlickerScenarioRows; ++r) {
      for (int c = 0; c < kFlickerBinRatios; ++c) {
        expectSameRecord(table.storage[r][c], markedRecord(r, c),
                         "row " + std::to_string(r) + " col " + std::to_string(c));
      }
    }
    flicker_host::setNvramImage("");
  }
}

TEST_F(HostNvramTest, SmallerTotalsReadTheirRecordsFromTheFullLayout) {
  flicker_host::setNvramImage(writeImage(flicker_host::encodeTuningImage(markedRecord)));
  ASSERT_EQ(nvGetFlickerParaAll(0, 1, 3, 1, &table_.base), 0);
  expectSameRecord(table_.storage[2][0], markedRecord(2, 0), "row 2");  // not record 2 of the file
  uint8_t pattern[sizeof(FLICKER_CUST_PARA)];
  memset(pattern, 0xAB, sizeof(pattern));
  EXPECT_EQ(memcmp(&table_.storage[2][1], pattern, sizeof(pattern)), 0);  // column 1 not asked
  EXPECT_EQ(memcmp(&table_.storage[3][0], pattern, sizeof(pattern)), 0);  // row 3 not asked
}

TEST_F(HostNvramTest, WithoutAnImageTheDefaultsCoverEveryScenario) {
  ASSERT_EQ(nvGetFlickerParaAll(0, 1, kFlickerScenarioRows, kFlickerBinRatios, &table_.base), 0);
  for (int r = 0; r < kFlickerScenarioRows; ++r) {
    for (int c = 0; c < kFlickerBinRatios; ++c) {
      const FLICKER_CUST_PARA& got = table_.storage[r][c];
      expectSameRecord(got, flicker_host::defaultTuningRecord(r, c), "default");
      // Plausible timing: a frame spans at least 1.5 periods of 100 Hz light.
      const double frameSeconds = static_cast<double>(got.sensor_setting.line_length) *
                                  got.sensor_setting.column_length / got.sensor_setting.pclk;
      EXPECT_GE(frameSeconds * 100.0, 1.5);
      // A search range of 0 lets the algorithm analyse every statistics line.
      EXPECT_GE(got.flickerSearchRange, 0);
      EXPECT_GT(got.minPastFrames, 0);
      EXPECT_LE(got.minPastFrames, got.maxPastFrames);
    }
  }
}

TEST_F(HostNvramTest, BadImagesFailAndLeaveTheTableUntouched) {
  const std::vector<uint8_t> image = flicker_host::encodeTuningImage(markedRecord);
  struct Row {
    const char* what;
    std::string path;
    const char* logged;  // part of the error message
  } rows[] = {
      {"missing file", dir_.file("absent.bin"), "absent.bin"},
      {"one byte short",
       writeImage(std::vector<uint8_t>(image.begin(), image.end() - 1), "short.bin"), "short"},
      {"empty file", writeImage({}, "empty.bin"), "short"},
  };
  for (const Row& row : rows) {
    Table table;
    flicker_host::setNvramImage(row.path);
    EXPECT_NE(nvGetFlickerParaAll(0, 1, kFlickerScenarioRows, kFlickerBinRatios, &table.base), 0)
        << row.what;
    EXPECT_TRUE(table.untouched()) << row.what;
    EXPECT_NE(log().find(row.logged), std::string::npos) << row.what << ":\n" << log();
  }
}

TEST_F(HostNvramTest, BadTablesAndTotalsFailWithoutTouchingMemory) {
  FLICKER_CUST_PARA** nullBase = nullptr;
  struct Row {
    const char* what;
    int modes;
    int ratios;
    FLICKER_CUST_PARA*** table;
  } rows[] = {
      {"null table address", kFlickerScenarioRows, kFlickerBinRatios, nullptr},
      {"null table", kFlickerScenarioRows, kFlickerBinRatios, &nullBase},
      {"zero modes", 0, kFlickerBinRatios, &table_.base},
      {"negative ratios", kFlickerScenarioRows, -1, &table_.base},
      {"71 modes", kFlickerScenarioRows + 1, kFlickerBinRatios, &table_.base},
      {"3 ratios", kFlickerScenarioRows, kFlickerBinRatios + 1, &table_.base},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(nvGetFlickerParaAll(0, 1, row.modes, row.ratios, row.table), -1) << row.what;
  }
  table_.rows[69] = nullptr;  // a missing last row is refused before anything is written
  EXPECT_EQ(nvGetFlickerParaAll(0, 1, kFlickerScenarioRows, kFlickerBinRatios, &table_.base), -1);
  EXPECT_TRUE(table_.untouched());
}

}  // namespace
