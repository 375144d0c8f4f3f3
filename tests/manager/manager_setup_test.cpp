// Algorithm set-up from the sensor geometry: selection of the tuning record
// by scenario and binning ratio, the override files, the line timing handed
// to the algorithm and the sensor-setting check. Everything is read back from
// the command records the fake algorithm received.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
namespace fp = fake_platform;

constexpr int kSearchRange = 100;

// NVRAM gives every record an id in its first word, 1000 + 10 x row + column,
// and the timing of a 600 MHz sensor with 5000 clocks per line and 275 lines
// per frame. Suites filling the same table may share sensor indices when the
// whole binary runs in one process (the table is loaded once per instance).
void fillTable() {
  fp::setNvramFill([](int row, int col, FLICKER_CUST_PARA& rec) {
    rec.flickerFreq[0] = 1000 + 10 * row + col;
    rec.flickerSearchRange = kSearchRange;
    rec.sensor_setting.pclk = 600000000;
    rec.sensor_setting.line_length = 5000;
    rec.sensor_setting.column_length = 275;
  });
}

std::vector<int32_t> extWords() {
  const auto ext = lastInput(FLK_CMD_SET_EXT_PARA);
  std::vector<int32_t> words;
  if (ext.size() != sizeof(FlkExtParaCmd))
    return words;
  for (int i = 0; i < kFlickerAlgoWords; ++i) words.push_back(word(ext, i));
  return words;
}

// Brings a sensor up and sends frames until its first collected frame has set
// the algorithm up (frame 3).
void setUpAlgorithm(SensorRig& rig, int sensorType, int sensorMode, int frameHeight, int tgHeight,
                    uint32_t pixelsInLine = 5000, int sensorId = 100) {
  rig.bringUp(makeConfig(sensorMode, frameHeight, pixelsInLine, tgHeight),
              makeInput(FLICKER_MODE_AUTO, sensorType, sensorMode), true, sensorId);
  FrameSpec spec;
  spec.height = frameHeight;
  rig.frames(3, spec);
}

class SetupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    enableDebugLogs();
  }
};

// ---- Selection of the tuning record ----

struct SelectionRow {
  const char* what;
  int sensorType;
  int sensorMode;
  int frameHeight;  // becomes the HBIN height at the intake
  int tgHeight;
  int ratioProperty;  // 0: not set
  int32_t expectId;   // 0: no record selected (zero record)
  const char* expectError;
};

const SelectionRow kSelectionRows[] = {
    {"ratio 1 reads column 0", 0, 0, 300, 300, 0, 1000, nullptr},
    {"ratio 2 reads column 1", 0, 0, 600, 300, 0, 1001, nullptr},
    {"no TG height: ratio 0, column 0, reported", 0, 0, 300, 0, 0, 1000, "bin ratio(0) is wrong."},
    {"last row of the first sensor type", 0, 34, 300, 300, 0, 1340, nullptr},
    {"second sensor type, mode 3: row 38", 1, 3, 300, 300, 0, 1380, nullptr},
    {"second sensor type, ratio 2: row 35 column 1", 1, 0, 600, 300, 0, 1351, nullptr},
    {"negative ratio from the property: column 0, reported", 0, 2, 300, 300, -1, 1020,
     "bin ratio(-1) is wrong."},
    {"ratio 3 has no column: refused, zero record", 0, 0, 900, 300, 3, 0,
     "no tuning record for scenario(0) column(2)"},
    {"mode 35 of the second type lies past the table", 1, 35, 300, 300, 0, 0, "has no tuning row"},
};

class SelectionTest : public SetupTest, public ::testing::WithParamInterface<int> {};

TEST_P(SelectionTest, PicksRowAndColumn) {
  const SelectionRow& row = kSelectionRows[GetParam()];
  SCOPED_TRACE(row.what);
  fillTable();
  if (row.ratioProperty != 0)
    fp::setProperty("vendor.debug.flk_ratio", row.ratioProperty);
  SensorRig rig(GetParam());
  setUpAlgorithm(rig, row.sensorType, row.sensorMode, row.frameHeight, row.tgHeight);
  const auto words = extWords();
  ASSERT_EQ(words.size(), 35u);
  EXPECT_EQ(words[0], row.expectId);
  if (row.expectError != nullptr) {
    EXPECT_TRUE(fp::loggedError(row.expectError));
  }
  rig.shutDown();
}

INSTANTIATE_TEST_SUITE_P(Rows, SelectionTest,
                         ::testing::Range(0, static_cast<int>(sizeof(kSelectionRows) /
                                                              sizeof(kSelectionRows[0]))));

// ---- Line timing and window handed to the algorithm ----

struct GeometryRow {
  const char* what;
  int sensorType;
  int sensorId;
  int frameHeight;
  int tgHeight;
  uint32_t pixelsInLine;
  int sensorBinning;
  int32_t expectPath;
  uint32_t expectLine;  // line value of the init record
  int32_t expectLines;  // its statistics line count (3 x window height)
  int32_t expectRange;  // search range of the extra-parameter record
};

const GeometryRow kGeometryRows[] = {
    // Binning ratio 2: a statistics line spans two sensor lines.
    {"binning ratio 2", 0, 100, 600, 300, 5000, 1, 0, 10000, 552, kSearchRange},
    // Resizing scales the line and the search range by 1.5.
    {"resize 1.5", 0, 100, 450, 300, 5000, 1, 0, 7500, 402, 150},
    {"resize 0.5", 0, 100, 150, 300, 5000, 1, 0, 2500, 102, 50},
    // No TG height: nothing to scale by, line and range kept.
    {"TG height 0", 0, 100, 300, 0, 5000, 1, 0, 5000, 252, kSearchRange},
    // 0x00011388: the upper half is not line timing.
    {"upper half of the line length dropped", 0, 100, 300, 300, 0x00011388u, 1, 0, 5000, 252,
     kSearchRange},
    // The sensor's own binning multiplies on top of the statistics ratio.
    {"sensor binning on top of ratio 2", 0, 100, 600, 300, 5000, 2, 0, 20000, 552, kSearchRange},
    // Second sensor type goes the sensor-specific path of sensor 1398.
    {"sensor 1398 path", 1, 1398, 300, 300, 5000, 1, 1, 5000 * 22, 96, kSearchRange},
};

class GeometryTest : public SetupTest, public ::testing::WithParamInterface<int> {};

TEST_P(GeometryTest, InitRecordCarriesTheStatisticsLineTiming) {
  const GeometryRow& row = kGeometryRows[GetParam()];
  SCOPED_TRACE(row.what);
  fillTable();
  fp::setSensorBinningRatio(row.sensorBinning);
  SensorRig rig(GetParam());
  setUpAlgorithm(rig, row.sensorType, 0, row.frameHeight, row.tgHeight, row.pixelsInLine,
                 row.sensorId);

  const auto init = lastInput(FLK_CMD_INIT);
  ASSERT_EQ(init.size(), sizeof(FlkInitPara));
  FlkInitPara para;
  memcpy(&para, init.data(), sizeof(para));
  EXPECT_EQ(para.sensorPath, row.expectPath);
  EXPECT_EQ(para.lineLength, row.expectLine);
  EXPECT_EQ(para.statLineCount, row.expectLines);
  EXPECT_EQ(para.pixelClk, 600000000.0);
  EXPECT_EQ(extWords().at(10), row.expectRange);
  rig.shutDown();
}

INSTANTIATE_TEST_SUITE_P(Rows, GeometryTest,
                         ::testing::Range(0, static_cast<int>(sizeof(kGeometryRows) /
                                                              sizeof(kGeometryRows[0]))));

// ---- Sensor-setting check against the tuning record ----

struct SettingRow {
  const char* what;
  uint32_t pixelClk;  // live values
  uint32_t pixelsInLine;
  int frameHeight;          // grab height = frame height - 45
  const char* expectError;  // null: the record fits
};

// Record: 600 MHz, 5000 clocks per line, 275 lines per frame.
const SettingRow kSettingRows[] = {
    {"fits, 20 lines of blanking allowed", 600000000, 5000, 300, nullptr},
    {"grab height equal to the column length", 600000000, 5000, 320,
     "sensor column length mismatch (parameter:275/received:275)"},
    {"one line less blanking", 600000000, 5000, 301, "sensor column length mismatch"},
    {"pixel clock", 1, 5000, 300, "sensor pixel clock mismatch (parameter:600000000/received:1)"},
    {"line length", 600000000, 4999, 300,
     "sensor line length mismatch (parameter:5000/received:4999)"},
};

class SettingCheckTest : public SetupTest, public ::testing::WithParamInterface<int> {};

TEST_P(SettingCheckTest, MismatchIsReportedOnly) {
  const SettingRow& row = kSettingRows[GetParam()];
  SCOPED_TRACE(row.what);
  fp::setProperty("vendor.autotesttool.enable", 1);
  fillTable();
  SensorRig rig(GetParam());
  rig.bringUp(makeConfig(0, row.frameHeight, row.pixelsInLine, row.frameHeight, row.pixelClk));
  FrameSpec spec;
  spec.height = row.frameHeight;
  rig.frames(3, spec);
  if (row.expectError == nullptr) {
    EXPECT_FALSE(fp::logged("mismatch"));
    EXPECT_TRUE(fp::logged("[CAT][flicker] FlickerSensorSettingCheck:Pass"));
  } else {
    EXPECT_TRUE(fp::loggedError(row.expectError));
    EXPECT_TRUE(fp::logged("[CAT][flicker] FlickerSensorSettingCheck:Fail"));
  }
  // The set-up goes on with the live values either way.
  EXPECT_EQ(codes(FLK_CMD_INIT).size(), 1u);
  rig.shutDown();
}

INSTANTIATE_TEST_SUITE_P(Rows, SettingCheckTest,
                         ::testing::Range(0, static_cast<int>(sizeof(kSettingRows) /
                                                              sizeof(kSettingRows[0]))));

// ---- Override files ----

constexpr int32_t kNvramWord = 7;
// Every override test fills the same table, so they share one instance.
constexpr int kOverrideSensor = 10;

class OverrideFileTest : public SetupTest {
 protected:
  void SetUp() override {
    SetupTest::SetUp();
    fp::setNvramFill([](int, int, FLICKER_CUST_PARA& rec) {
      int32_t words[kFlickerAlgoWords];
      for (int32_t& w : words) w = kNvramWord;
      memcpy(&rec, words, sizeof(words));
    });
    fp::setProperty("vendor.debug.flk_read_file", 1);
  }

  static void writeFile(const char* devicePath, const std::string& text) {
    const std::filesystem::path path = fp::hostPath(devicePath);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
  }

  // The 35 algorithm words selected for a sensor in `sensorMode`.
  static std::vector<int32_t> wordsFor(int sensorMode, int sensorType = 0) {
    SensorRig rig(kOverrideSensor);
    setUpAlgorithm(rig, sensorType, sensorMode, 300, 300);
    rig.shutDown();
    return extWords();
  }
};

constexpr const char* kPreview = "/data/vendor/flicker/para/flk_para_preview.txt";
constexpr const char* kVideo = "/data/vendor/flicker/para/flk_para_video.txt";

std::string numbers(int from, int count, const char* separator) {
  std::string text;
  for (int i = 0; i < count; ++i) text += std::to_string(from + i) + separator;
  return text;
}

std::vector<int32_t> sequence(int from, int count) {
  std::vector<int32_t> v;
  for (int i = 0; i < count; ++i) v.push_back(from + i);
  return v;
}

TEST_F(OverrideFileTest, NumbersSpreadOverLinesWithTabsReplaceEveryField) {
  writeFile(kPreview, numbers(-5, 10, "\t") + "\n\n" + numbers(5, 25, " \t\n"));
  EXPECT_EQ(wordsFor(0), sequence(-5, 35));
  EXPECT_EQ(fp::countLogged("failed to get para."), 0);
}

TEST_F(OverrideFileTest, ShortFileFillsTheRestWithMinusOne) {
  writeFile(kPreview, numbers(1, 20, " "));
  std::vector<int32_t> expect = sequence(1, 20);
  expect.resize(35, -1);
  EXPECT_EQ(wordsFor(0), expect);
  EXPECT_EQ(fp::countLogged("failed to get para."), 15);
}

TEST_F(OverrideFileTest, WordStopsEveryLaterConversion) {
  writeFile(kPreview, "1 2 3 4 five 6 7 8 9 10");
  std::vector<int32_t> expect = sequence(1, 4);
  expect.resize(35, -1);
  EXPECT_EQ(wordsFor(0), expect);
  EXPECT_EQ(fp::countLogged("failed to get para."), 31);
}

TEST_F(OverrideFileTest, NumbersAfterTheThirtyFifthAreIgnored) {
  writeFile(kPreview, numbers(100, 40, "\n"));
  EXPECT_EQ(wordsFor(0), sequence(100, 35));
}

TEST_F(OverrideFileTest, SecondSensorTypeUsesTheModeFile) {
  writeFile(kVideo, numbers(50, 35, " "));
  EXPECT_EQ(wordsFor(2, 1), sequence(50, 35));
}

TEST_F(OverrideFileTest, RecordStaysWhenTheFileCannotBeUsed) {
  const std::vector<int32_t> nvram(35, kNvramWord);
  writeFile(kPreview, numbers(1, 35, " "));
  // Mode 10 has no file; mode -1 neither (and no tuning row).
  EXPECT_EQ(wordsFor(10), nvram);
  EXPECT_EQ(fp::countLogged("invalid sensor mode."), 1);
  EXPECT_EQ(wordsFor(-1), std::vector<int32_t>(35, 0));
  EXPECT_EQ(fp::countLogged("invalid sensor mode."), 2);
  // Mode 1's file does not exist.
  EXPECT_EQ(wordsFor(1), nvram);
  EXPECT_TRUE(fp::loggedError("failed to open para file."));
  // Property off: the existing preview file is not read.
  fp::setProperty("vendor.debug.flk_read_file", 0);
  EXPECT_EQ(wordsFor(0), nvram);
}

}  // namespace
