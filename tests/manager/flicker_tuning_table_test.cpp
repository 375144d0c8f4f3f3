// The tuning table on its own: storage that fails row by row, the NVRAM load
// with its timing warnings, the selection of one whole record, and the
// override files.
#include "flicker_tuning_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "flicker_log.h"

namespace {

namespace fp = fake_platform;

// A record that differs from every other in every field: id in the first
// word, 1000 + 10 x row + column, the rest derived from it.
FLICKER_CUST_PARA recordFor(int row, int col) {
  FLICKER_CUST_PARA rec;
  memset(&rec, 0, sizeof(rec));
  const int32_t id = 1000 + 10 * row + col;
  int32_t words[kFlickerAlgoWords];
  for (int i = 0; i < kFlickerAlgoWords; ++i) words[i] = id * 100 + i;
  memcpy(&rec, words, sizeof(words));
  rec.sensor_setting = {600000000LL + id, 5000 + id, 300 + id};
  rec.is_auto_gen = static_cast<uint8_t>(id);
  return rec;
}

class FlickerTuningTableTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    flicker_log::g_managerLevel = 0;
  }
};

TEST_F(FlickerTuningTableTest, SelectsTheWholeRecordOfRowAndRatio) {
  FlickerTuningTable table;
  ASSERT_EQ(table.allocate(), 0);
  fp::setNvramFill([](int row, int col, FLICKER_CUST_PARA& rec) { rec = recordFor(row, col); });
  EXPECT_TRUE(table.getFlickerParametersAll(321, 4, 70, 2));
  EXPECT_TRUE(table.loaded());

  const FLICKER_CUST_PARA untouched = recordFor(99, 9);
  struct Row {
    int scenario, ratio;
    int row, col;       // the record copied; -1: none, the caller's left as it was
    const char* error;  // logged, or null
  } rows[] = {
      {0, 1, 0, 0, nullptr},
      {0, 2, 0, 1, nullptr},
      {69, 2, 69, 1, nullptr},                 // the last record
      {35, 1, 35, 0, nullptr},                 // first row of the other sensor type
      {7, 0, 7, 0, "bin ratio(0) is wrong."},  // below 1: reported, column 0
      {7, -3, 7, 0, "bin ratio(-3) is wrong."},
      {7, 3, -1, -1, "no tuning record for scenario(7) column(2)"},  // no third column
      {70, 1, -1, -1, "no tuning record for scenario(70) column(0)"},
      {-1, 1, -1, -1, "no tuning record for scenario(-1) column(0)"},
  };
  for (const Row& row : rows) {
    fp::clearLogs();
    FLICKER_CUST_PARA got = untouched;
    table.getTargetParameter(row.scenario, row.ratio, &got);
    const FLICKER_CUST_PARA want = row.row < 0 ? untouched : recordFor(row.row, row.col);
    EXPECT_EQ(memcmp(&got, &want, offsetof(FLICKER_CUST_PARA, is_auto_gen) + 1), 0)
        << row.scenario << "/" << row.ratio;
    EXPECT_EQ(row.error != nullptr, !fp::messages().empty()) << row.scenario << "/" << row.ratio;
    EXPECT_TRUE(row.error == nullptr || fp::loggedError(row.error)) << row.error;
  }
  EXPECT_EQ(FlickerTuningTable::scenario(3, 0), 3);
  EXPECT_EQ(FlickerTuningTable::scenario(3, 2), 38);  // any other type: +35
}

TEST_F(FlickerTuningTableTest, StorageThatFailsIsNeverLoaded) {
  struct Row {
    const char* what;
    int failAt;    // allocation from the table's first that fails
    int failures;  // reported by allocate
    int missingRow;
  } rows[] = {
      {"the array of row pointers", 1, 1, -1},
      {"the first row", 2, 1, 0},
      {"the last row", 71, 1, 69},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::reset();
    fp::failNthAllocation(row.failAt);
    FlickerTuningTable table;
    EXPECT_EQ(table.allocate(), row.failures);
    // An incomplete table does not reach NVRAM, and that is no failure here.
    EXPECT_TRUE(table.getFlickerParametersAll(1, 1, 70, 2));
    EXPECT_TRUE(fp::nvramCalls().empty());
    FLICKER_CUST_PARA got = recordFor(0, 0);
    const int scenario = row.missingRow < 0 ? 0 : row.missingRow;
    table.getTargetParameter(scenario, 1, &got);
    EXPECT_EQ(got.flickerFreq[0], recordFor(0, 0).flickerFreq[0]) << "left as it was";
    if (row.missingRow >= 0) {  // the other rows are there, zero
      table.getTargetParameter(row.missingRow == 0 ? 1 : 0, 1, &got);
      EXPECT_EQ(got.flickerFreq[0], 0);
    }
  }
}

TEST_F(FlickerTuningTableTest, NvramFailureStillChecksEveryRecord) {
  const FLICKER_SENSOR_SETTING settings[] = {
      {600000000, 6000, 1000},    // 10 ms frames: 1.0 and 1.2 periods, warned
      {0, 1, 1},                  // pclk 0 is never checked
      {600000000, 6000, 1500},    // exactly 1.5 periods is enough
      {600000000, 6000, 1499},    // one line less is not
      {600000000, 65536, 65536},  // a 32-bit product that wraps negative: warned
  };
  FlickerTuningTable table;
  ASSERT_EQ(table.allocate(), 0);
  fp::setNvramResult(-5);
  fp::setNvramFill([&settings](int row, int col, FLICKER_CUST_PARA& rec) {
    if (col == 1 && row < static_cast<int>(std::size(settings)))
      rec.sensor_setting = settings[row];
  });
  EXPECT_FALSE(table.getFlickerParametersAll(321, 4, 70, 2));
  EXPECT_TRUE(fp::loggedError("sensor scenario:0 bin_ratio:1 50Hz:1.000000 60Hz:1.200000"));
  EXPECT_TRUE(fp::loggedError("sensor scenario:3 bin_ratio:1"));
  EXPECT_TRUE(fp::loggedError("sensor scenario:4 bin_ratio:1"));
  EXPECT_EQ(fp::countLogged("flicker cycle is too small"), 3);
  EXPECT_TRUE(fp::loggedError("[getFlickerParametersAll] nvGetFlickerParaAll fail."));
}

// ---- Override files ----

std::string numbers(int from, int count, const char* separator) {
  std::string text;
  for (int i = 0; i < count; ++i) text += std::to_string(from + i) + separator;
  return text;
}

// `count` numbers from `from`, then -1 up to the 35 words.
std::vector<int32_t> words(int from, int count) {
  std::vector<int32_t> v(kFlickerAlgoWords, -1);
  for (int i = 0; i < count; ++i) v[i] = from + i;
  return v;
}

const std::vector<int32_t> kBefore(kFlickerAlgoWords, 7);

struct FileRow {
  int sensorMode;
  const char* file;  // null: no file written
  std::string text;
  std::vector<int32_t> expect;
  int failedReads;  // "failed to get para." lines
  const char* error = nullptr;
};

const FileRow kFileRows[] = {
    // 35 numbers spread over lines with tabs replace every field.
    {0, "preview", numbers(-5, 10, "\t") + "\n\n" + numbers(5, 25, " \t\n"), words(-5, 35), 0},
    // A short file: the fields without a number become -1.
    {1, "capture", numbers(1, 20, " "), words(1, 20), 15},
    // A word stops every later conversion.
    {3, "slim_video1", "1 2 3 4 five 6 7 8 9 10", words(1, 4), 31},
    // Numbers after the 35th are ignored; signs are read.
    {4, "slim_video2", numbers(-100, 40, "\n"), words(-100, 35), 0},
    {9, "custom5", "+1 " + numbers(2, 34, " "), words(1, 35), 0},
    // No file, or a mode without one: the record stays.
    {2, nullptr, "", kBefore, 0, "failed to open para file."},
    {10, "preview", numbers(1, 35, " "), kBefore, 0, "invalid sensor mode."},
    {-1, "preview", numbers(1, 35, " "), kBefore, 0, "invalid sensor mode."},
};

class TuningFileTest : public FlickerTuningTableTest, public ::testing::WithParamInterface<int> {};

TEST_P(TuningFileTest, ReplacesTheAlgorithmWordsOnly) {
  const FileRow& row = kFileRows[GetParam()];
  if (row.file != nullptr) {
    const std::string path =
        fp::hostPath(std::string("/data/vendor/flicker/para/flk_para_") + row.file + ".txt");
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << row.text;
  }
  FLICKER_CUST_PARA para = recordFor(1, 1);
  memcpy(&para, kBefore.data(), kBefore.size() * sizeof(int32_t));
  FlickerTuningTable::getFlickerParametersFile(row.sensorMode, &para);
  std::vector<int32_t> got(kFlickerAlgoWords);
  memcpy(got.data(), &para, got.size() * sizeof(int32_t));
  EXPECT_EQ(got, row.expect);
  // The file has no sensor timing: it stays the record's.
  EXPECT_EQ(para.sensor_setting.pclk, recordFor(1, 1).sensor_setting.pclk);
  EXPECT_EQ(fp::countLogged("failed to get para."), row.failedReads);
  EXPECT_TRUE(row.error == nullptr || fp::loggedError(row.error)) << row.error;
}
INSTANTIATE_TEST_SUITE_P(Rows, TuningFileTest,
                         ::testing::Range(0, static_cast<int>(std::size(kFileRows))));

}  // namespace
