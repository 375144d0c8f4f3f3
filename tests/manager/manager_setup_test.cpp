// Algorithm set-up from the sensor geometry, end to end: selection of the
// tuning record by scenario and binning ratio, the line timing handed to the
// algorithm, the sensor-setting check and the override files (the parts'
// own arithmetic is in their tests). Everything is read back from the
// command records the fake algorithm received.
#include <filesystem>
#include <fstream>

#include "manager_rig.h"

namespace {

using namespace mgr_test;
constexpr int kRange = 100;  // search range of every record
constexpr uint32_t k600M = 600000000;

// NVRAM gives every record an id in its first word, 1000 + 10 x row + column,
// and the timing of a 600 MHz sensor with 5000 clocks per line and 275 lines
// per frame. Suites filling this table share sensor indices when the whole
// binary runs in one process (the table is loaded once per instance).
void fillTable() {
  fp::setNvramFill([](int row, int col, FLICKER_CUST_PARA& rec) {
    rec.flickerFreq[0] = 1000 + 10 * row + col;
    rec.flickerSearchRange = kRange;
    rec.sensor_setting = {600000000, 5000, 275};
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
void setUpAlgorithm(int idx, int sensorType, int sensorMode, int frameHeight, int tgHeight = 300) {
  SensorRig rig(idx);
  rig.bringUp(makeConfig(sensorMode, frameHeight, 5000, tgHeight),
              makeInput(FLICKER_MODE_AUTO, sensorType, sensorMode));
  FrameSetup params;
  params.height = frameHeight;
  rig.frames(3, params);
  rig.shutDown();
}

// The arithmetic of each part is in its own test (flicker_algo_setup_test.cpp,
// flicker_tuning_table_test.cpp); the rows here show that the manager hands
// each part the right inputs. Columns: sensor type and mode, frame height (the HBIN height at the
// intake; the statistics grab height is 45 less), TG height (a 600 MHz sensor with 5000 clocks per
// line), ratio property (0: not set), sensor binning; expected record id (0: zero record), line
// value of the init record (the second sensor type goes sensor 1398's path: 22 lines), search
// range, log line.
struct SetupRow {
  int sensorType, sensorMode, frameHeight, tgHeight;
  int ratioProperty, sensorBinning, expectId;
  uint32_t expectLine;
  int expectRange;
  const char* expectLog;
};

const char* const kPass = "[CAT][flicker] FlickerSensorSettingCheck:Pass";

// clang-format off
const SetupRow kSetupRows[] = {
    // Ratio 1: column 0; the record fits, with 20 lines of blanking allowed.
    {0, 0,  300, 300, 0, 1, 1000, 5000,   kRange, kPass},
    // Ratio 2: column 1, a statistics line spans two sensor lines.
    {0, 0,  600, 300, 0, 1, 1001, 10000,  kRange, nullptr},
    // Resizing scales the line and the search range.
    {0, 0,  450, 300, 0, 1, 1000, 7500,   150,    nullptr},
    // The sensor's own binning multiplies on top; the column follows ratio 2.
    {0, 0,  600, 300, 0, 2, 1001, 20000,  kRange, nullptr},
    // The second sensor type's rows start at 35.
    {1, 0,  300, 300, 0, 1, 1350, 110000, kRange, nullptr},
    // Mode 35 of the second type lies past the table: zero record.
    {1, 35, 300, 300, 0, 1, 0,    110000, 0,      "has no tuning row"},
    // Ratio 3 has no column: refused, zero record.
    {0, 0,  900, 300, 3, 1, 0,    15000,  0,      "scenario(0) column(2)"},
    // Sensor-setting check: a grab height equal to the column length is a
    // mismatch. Only reported: the set-up goes on with the live values.
    {0, 0, 320, 320, 0, 1, 1000, 5000, kRange, "(parameter:275/received:275)"},
};
// clang-format on

class SetupTest : public ManagerTest, public ::testing::WithParamInterface<int> {};

TEST_P(SetupTest, SelectsTheRecordAndHandsOverTheLineTiming) {
  const SetupRow& row = kSetupRows[GetParam()];
  fillTable();
  fp::setProperty("vendor.autotesttool.enable", 1);
  if (row.ratioProperty != 0)
    fp::setProperty("vendor.debug.flk_ratio", row.ratioProperty);
  fp::setSensorBinningRatio(row.sensorBinning);
  setUpAlgorithm(GetParam(), row.sensorType, row.sensorMode, row.frameHeight, row.tgHeight);
  ASSERT_EQ(extWords().size(), 35u);
  EXPECT_EQ(extWords()[0], row.expectId);
  EXPECT_EQ(extWords()[10], row.expectRange);
  const auto init = lastInput(FLK_CMD_INIT);
  ASSERT_EQ(init.size(), sizeof(FlkInitPara));
  FlkInitPara para;
  memcpy(&para, init.data(), sizeof(para));
  EXPECT_EQ(para.lineLength, row.expectLine);
  EXPECT_EQ(para.pixelClk, k600M);
  EXPECT_TRUE(row.expectLog == nullptr || fp::logged(row.expectLog)) << row.expectLog;
}
MGR_ROWS(SetupTest, kSetupRows);

// ---- Override files ----
// (The reading of the files is flicker_tuning_table_test.cpp's.)

const std::vector<int32_t> kNvram(35, 7);  // every algorithm word of every record

std::vector<int32_t> fileWords() {
  std::vector<int32_t> v(35);
  for (int i = 0; i < 35; ++i) v[i] = 50 + i;
  return v;
}

struct OverrideRow {
  int sensorType, sensorMode;
  bool readFile;  // the debug property
  const char* file;
  std::vector<int32_t> expect;
};

const OverrideRow kOverrideRows[] = {
    // The second sensor type reads the file of its mode (not of its row).
    {1, 2, true, "video", fileWords()},
    // Property off: the file is not read.
    {0, 0, false, "preview", kNvram},
};

class OverrideFileTest : public ManagerTest, public ::testing::WithParamInterface<int> {};

TEST_P(OverrideFileTest, ReplacesTheAlgorithmPartWhenAsked) {
  const OverrideRow& row = kOverrideRows[GetParam()];
  fp::setNvramFill([](int, int, FLICKER_CUST_PARA& rec) {
    memcpy(&rec, kNvram.data(), kNvram.size() * sizeof(int32_t));  // the 35 leading words
  });
  fp::setProperty("vendor.debug.flk_read_file", row.readFile ? 1 : 0);
  const std::string path =
      fp::hostPath(std::string("/data/vendor/flicker/para/flk_para_") + row.file + ".txt");
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::string text;
  for (int32_t w : fileWords()) text += std::to_string(w) + " ";
  std::ofstream(path) << text;
  setUpAlgorithm(18, row.sensorType, row.sensorMode, 300);  // one instance: the same table
  EXPECT_EQ(extWords(), row.expect);
}
MGR_ROWS(OverrideFileTest, kOverrideRows);

}  // namespace
