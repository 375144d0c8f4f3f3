// Algorithm set-up from the sensor geometry: selection of the tuning record
// by scenario and binning ratio, the line timing handed to the algorithm, the
// sensor-setting check and the override files. Everything is read back from
// the command records the fake algorithm received.
#include <filesystem>
#include <fstream>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
constexpr int kSearchRange = 100;

// NVRAM gives every record an id in its first word, 1000 + 10 x row + column,
// and the timing of a 600 MHz sensor with 5000 clocks per line and 275 lines
// per frame. Suites filling this table share sensor indices when the whole
// binary runs in one process (the table is loaded once per instance).
void fillTable() {
  fp::setNvramFill([](int row, int col, FLICKER_CUST_PARA& rec) {
    rec.flickerFreq[0] = 1000 + 10 * row + col;
    rec.flickerSearchRange = kSearchRange;
    rec.sensor_setting.pclk = 600000000;
    rec.sensor_setting.line_length = 5000;
    rec.sensor_setting.column_length = 275;
  });
}

// The 35 algorithm words of the last extra-parameter command.
std::vector<int32_t> extWords() {
  const auto ext = lastInput(FLK_CMD_SET_EXT_PARA);
  std::vector<int32_t> words;
  for (int i = 0; ext.size() == sizeof(FlkExtParaCmd) && i < kFlickerAlgoWords; ++i)
    words.push_back(word(ext, i));
  return words;
}

// Brings a sensor up and sends frames until its first collected frame has set
// the algorithm up (frame 3), then shuts it down.
void setUpAlgorithm(int idx, int sensorType, int sensorMode, int frameHeight, int tgHeight = 300,
                    uint32_t pixelsInLine = 5000, uint32_t pclk = 600000000) {
  SensorRig rig(idx);
  rig.bringUp(makeConfig(sensorMode, frameHeight, pixelsInLine, tgHeight, pclk),
              makeInput(FLICKER_MODE_AUTO, sensorType, sensorMode));
  FrameSpec spec;
  spec.height = frameHeight;
  rig.frames(3, spec);
  rig.shutDown();
}

// The frame height becomes the HBIN height at the intake; the statistics
// grab height is the frame height - 45. The second sensor type goes the
// sensor-specific path of sensor 1398, whose line value is 22 lines.
struct SetupRow {
  const char* what;
  int sensorType, sensorMode, frameHeight, tgHeight;
  uint32_t pixelsInLine, pixelClk;
  int ratioProperty, sensorBinning;  // ratio property 0: not set
  int32_t expectId;                  // 0: no record selected (zero record)
  uint32_t expectLine;               // line value of the init record
  int32_t expectRange;               // search range of the extra-parameter record
  const char* expectLog;
};

constexpr uint32_t k600M = 600000000;
const char* const kPass = "[CAT][flicker] FlickerSensorSettingCheck:Pass";

const SetupRow kSetupRows[] = {
    {"ratio 1: column 0, the record fits with 20 lines of blanking", 0, 0, 300, 300, 5000, k600M, 0,
     1, 1000, 5000, kSearchRange, kPass},
    {"ratio 2: column 1, a statistics line spans two sensor lines", 0, 0, 600, 300, 5000, k600M, 0,
     1, 1001, 10000, kSearchRange, nullptr},
    {"resize 1.5 scales line and search range", 0, 0, 450, 300, 5000, k600M, 0, 1, 1000, 7500, 150,
     nullptr},
    {"resize 0.5", 0, 0, 150, 300, 5000, k600M, 0, 1, 1000, 2500, 50, nullptr},
    {"TG height 0: ratio 0 reported, column 0, line and range kept", 0, 0, 300, 0, 5000, k600M, 0,
     1, 1000, 5000, kSearchRange, "bin ratio(0) is wrong."},
    {"upper half of the line length dropped", 0, 0, 300, 300, 0x11388u, k600M, 0, 1, 1000, 5000,
     kSearchRange, kPass},
    {"sensor binning on top of ratio 2, column by ratio 2", 0, 0, 600, 300, 5000, k600M, 0, 2, 1001,
     20000, kSearchRange, nullptr},
    {"last row of the first sensor type", 0, 34, 300, 300, 5000, k600M, 0, 1, 1340, 5000,
     kSearchRange, nullptr},
    {"second sensor type, mode 0: row 35", 1, 0, 300, 300, 5000, k600M, 0, 1, 1350, 5000 * 22,
     kSearchRange, nullptr},
    {"second sensor type, mode 3: row 38", 1, 3, 300, 300, 5000, k600M, 0, 1, 1380, 5000 * 22,
     kSearchRange, nullptr},
    {"second sensor type, ratio 2: row 35 column 1", 1, 0, 600, 300, 5000, k600M, 0, 1, 1351,
     10000 * 22, kSearchRange, nullptr},
    {"mode 35 of the second type lies past the table", 1, 35, 300, 300, 5000, k600M, 0, 1, 0,
     5000 * 22, 0, "has no tuning row"},
    {"negative ratio from the property: column 0, reported", 0, 2, 300, 300, 5000, k600M, -1, 1,
     1020, 5000, kSearchRange, "bin ratio(-1) is wrong."},
    {"ratio 3 has no column: refused, zero record", 0, 0, 900, 300, 5000, k600M, 3, 1, 0, 15000, 0,
     "no tuning record for scenario(0) column(2)"},
    {"grab height equal to the column length", 0, 0, 320, 320, 5000, k600M, 0, 1, 1000, 5000,
     kSearchRange, "sensor column length mismatch (parameter:275/received:275)"},
    {"one line less blanking", 0, 0, 301, 301, 5000, k600M, 0, 1, 1000, 5000, kSearchRange,
     "sensor column length mismatch"},
    {"pixel clock mismatch: reported, the live value is used", 0, 0, 300, 300, 5000, 1, 0, 1, 1000,
     5000, kSearchRange, "sensor pixel clock mismatch (parameter:600000000/received:1)"},
    {"line length mismatch", 0, 0, 300, 300, 4999, k600M, 0, 1, 1000, 4999, kSearchRange,
     "sensor line length mismatch (parameter:5000/received:4999)"},
};

class SetupTest : public ManagerTest, public ::testing::WithParamInterface<int> {};

TEST_P(SetupTest, SelectsTheRecordAndHandsOverTheLineTiming) {
  const SetupRow& row = kSetupRows[GetParam()];
  SCOPED_TRACE(row.what);
  fillTable();
  fp::setProperty("vendor.autotesttool.enable", 1);
  if (row.ratioProperty != 0)
    fp::setProperty("vendor.debug.flk_ratio", row.ratioProperty);
  fp::setSensorBinningRatio(row.sensorBinning);
  setUpAlgorithm(GetParam(), row.sensorType, row.sensorMode, row.frameHeight, row.tgHeight,
                 row.pixelsInLine, row.pixelClk);
  ASSERT_EQ(extWords().size(), 35u);
  EXPECT_EQ(extWords()[0], row.expectId);
  EXPECT_EQ(extWords()[10], row.expectRange);
  const auto init = lastInput(FLK_CMD_INIT);
  ASSERT_EQ(init.size(), sizeof(FlkInitPara));
  FlkInitPara para;
  memcpy(&para, init.data(), sizeof(para));
  EXPECT_EQ(para.lineLength, row.expectLine);
  EXPECT_EQ(para.pixelClk, row.pixelClk);
  EXPECT_TRUE(row.expectLog == nullptr || fp::logged(row.expectLog)) << row.expectLog;
}
MGR_ROWS(SetupTest, kSetupRows);

// ---- Override files ----

constexpr int32_t kNvramWord = 7;

std::string numbers(int from, int count, const char* separator) {
  std::string text;
  for (int i = 0; i < count; ++i) text += std::to_string(from + i) + separator;
  return text;
}

// `count` numbers from `from`, then -1 up to the 35 words.
std::vector<int32_t> words(int from, int count) {
  std::vector<int32_t> v(35, -1);
  for (int i = 0; i < count; ++i) v[i] = from + i;
  return v;
}

struct OverrideRow {
  const char* what;
  int sensorType, sensorMode;
  bool readFile;  // the debug property
  std::vector<int32_t> expect;
  int failedReads;  // "failed to get para." lines
  const char* expectError = nullptr;
};

const char* const kPreview = "/data/vendor/flicker/para/flk_para_preview.txt";
const std::string kPreviewText = numbers(-5, 10, "\t") + "\n\n" + numbers(5, 25, " \t\n");
const std::vector<int32_t> kNvram(35, kNvramWord);

// The preview file (mode 0) holds 35 numbers spread over lines with tabs;
// the rows give the other files their content.
const std::pair<const char*, std::string> kFiles[] = {
    {"/data/vendor/flicker/para/flk_para_capture.txt", numbers(1, 20, " ")},
    {"/data/vendor/flicker/para/flk_para_video.txt", numbers(50, 35, " ")},
    {"/data/vendor/flicker/para/flk_para_slim_video1.txt", "1 2 3 4 five 6 7 8 9 10"},
    {"/data/vendor/flicker/para/flk_para_slim_video2.txt", numbers(100, 40, "\n")},
};

const OverrideRow kOverrideRows[] = {
    {"35 numbers over lines with tabs replace every field", 0, 0, true, words(-5, 35), 0},
    {"20 numbers: the rest become -1", 0, 1, true, words(1, 20), 15},
    {"a word stops every later conversion", 0, 3, true, words(1, 4), 31},
    {"numbers after the 35th are ignored", 0, 4, true, words(100, 35), 0},
    {"the second sensor type reads the mode's file", 1, 2, true, words(50, 35), 0},
    {"property off: the file is not read", 0, 0, false, kNvram, 0},
    {"mode 10 has no file", 0, 10, true, kNvram, 0, "invalid sensor mode."},
    {"mode -1 has no file (and no tuning row)", 0, -1, true, std::vector<int32_t>(35, 0), 0,
     "invalid sensor mode."},
    {"missing file", 0, 5, true, kNvram, 0, "failed to open para file."},
};

class OverrideFileTest : public ManagerTest, public ::testing::WithParamInterface<int> {};

TEST_P(OverrideFileTest, ReplacesTheAlgorithmPart) {
  const OverrideRow& row = kOverrideRows[GetParam()];
  SCOPED_TRACE(row.what);
  fp::setNvramFill([](int, int, FLICKER_CUST_PARA& rec) {
    memcpy(&rec, kNvram.data(), kNvram.size() * sizeof(int32_t));  // the 35 leading words
  });
  fp::setProperty("vendor.debug.flk_read_file", row.readFile ? 1 : 0);
  std::vector<std::pair<const char*, std::string>> files(std::begin(kFiles), std::end(kFiles));
  files.emplace_back(kPreview, kPreviewText);
  for (const auto& [path, text] : files) {
    std::filesystem::create_directories(std::filesystem::path(fp::hostPath(path)).parent_path());
    std::ofstream(fp::hostPath(path)) << text;
  }
  setUpAlgorithm(18, row.sensorType, row.sensorMode, 300);  // one instance: the same table
  EXPECT_EQ(extWords(), row.expect);
  EXPECT_EQ(fp::countLogged("failed to get para."), row.failedReads);
  EXPECT_TRUE(row.expectError == nullptr || fp::loggedError(row.expectError)) << row.expectError;
}
MGR_ROWS(OverrideFileTest, kOverrideRows);

}  // namespace
