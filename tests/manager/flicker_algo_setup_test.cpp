// The algorithm set-up's values from the line timing, the window, the
// sensor's binning and the debug overrides; the compounding of the stored
// line length over set-ups without a new Config; and the sensor-timing check.
#include "flicker_algo_setup.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "flicker_log.h"

namespace {

namespace fp = fake_platform;

constexpr int64_t k600M = 600000000;

class FlickerAlgoSetupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    flicker_log::g_managerLevel = 3;
  }
};

FlickerLineTiming timing(int32_t hbinHeight, int32_t tgHeight, uint32_t pixelsInLine,
                         int64_t pclk = k600M) {
  FlickerLineTiming t;
  t.hbinWidth = t.tgWidth = 1200;
  t.hbinHeight = hbinHeight;
  t.tgHeight = tgHeight;
  t.pixelsInLine = pixelsInLine;
  t.pixelClk = pclk;
  return t;
}

TEST_F(FlickerAlgoSetupTest, ValuesFromTimingWindowBinningAndOverrides) {
  using Props = std::vector<std::pair<const char*, int64_t>>;
  const Props overrides = {{"vendor.debug.flk_clk", 48000000000},
                           {"vendor.debug.flk_pixel", 777},
                           {"vendor.debug.flk_w", 30},
                           {"vendor.debug.flk_h", 40}};
  struct Row {
    const char* what;
    int32_t hbinHeight, tgHeight;
    uint32_t pixelsInLine;
    int binning;
    Props properties;
    int32_t ratio;
    float resize;
    uint32_t line;
    int64_t pclk;
    int32_t winW, winH;
  };
  // The plain ratio, resize and binning cases are manager_setup_test.cpp's
  // rows, which see them reach the algorithm.
  // clang-format off
  const Row rows[] = {
      {"no TG height: nothing scaled", 300,  0,    5000,    1, {}, 0, 1.0f, 5000,  k600M, 200, 84},
      {"upper half dropped",           300,  300,  0x11388, 1, {}, 1, 1.0f, 5000,  k600M, 200, 84},
      {"ratio property",               300,  300,  5000,    1, {{"vendor.debug.flk_ratio", 3}},
                                                                  3, 1.0f, 15000, k600M, 200, 84},
      {"negative resize saturates",    1,    -1,   5000,    1, {}, -1, -1.0f, 0,   k600M, 200, 84},
      {"widest division, no overflow", INT_MIN, -1, 1,      1, {}, INT_MAX, 1.0f,
                                                     static_cast<uint32_t>(INT_MAX), k600M, 200, 84},
      {"overrides of the live values", 300,  300,  5000,    1, overrides,
                                                                  1, 1.0f, 777, 48000000000, 30, 40},
  };
  // clang-format on
  // A 1200 x 300 frame: grab height 255, window 200 x 84.
  const FlickerStatWindow window = FlickerStatWindow::of(1200, 300);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::reset();
    for (const auto& [key, value] : row.properties) fp::setProperty(key, value);
    const FlickerAlgoSetup::Values v = FlickerAlgoSetup::compute(
        timing(row.hbinHeight, row.tgHeight, row.pixelsInLine), window, row.binning);
    EXPECT_EQ(v.ratio, row.ratio);
    EXPECT_EQ(v.resizeRatio, row.resize);
    EXPECT_EQ(v.lineLength, row.line);
    EXPECT_EQ(v.pixelClk, row.pclk);
    EXPECT_EQ(std::vector<int32_t>({v.window.imgH, v.window.winW, v.window.winH}),
              std::vector<int32_t>({255, row.winW, row.winH}));
  }
}

// A set-up leaves its scaled line length (and overridden clock) in the stored
// timing; re-initialising without a new Config scales it again.
TEST_F(FlickerAlgoSetupTest, ReinitialisationWithoutConfigCompounds) {
  FlickerLineTiming t = timing(600, 300, 5000);
  const FlickerStatWindow window = FlickerStatWindow::of(1200, 300);
  std::vector<uint32_t> lines;
  for (int setUp = 0; setUp < 4; ++setUp) {
    const FlickerAlgoSetup::Values v = FlickerAlgoSetup::compute(t, window, 1);
    FlickerAlgoSetup::carryOver(v, &t);
    lines.push_back(v.lineLength);
  }
  // Each set-up doubles what the last one left; only the low 16 bits carry
  // on, so the fifth starts from 80000 & 0xFFFF.
  EXPECT_EQ(lines, (std::vector<uint32_t>{10000, 20000, 40000, 80000}));
  EXPECT_EQ(FlickerAlgoSetup::compute(t, window, 1).lineLength, (80000u & 0xFFFFu) * 2);
  // A clock override stays too.
  fp::setProperty("vendor.debug.flk_clk", 1);
  FlickerAlgoSetup::carryOver(FlickerAlgoSetup::compute(t, window, 1), &t);
  EXPECT_EQ(t.pixelClk, 1);
}

TEST_F(FlickerAlgoSetupTest, SensorSettingCheckReportsEachDifference) {
  FlickerAlgoSetup::Values v;
  v.pixelClk = k600M;
  v.lineLength = 5000;
  v.window.imgH = 1080;
  struct Row {
    FLICKER_SENSOR_SETTING setting;
    std::vector<std::string> errors;
  } rows[] = {
      // 20 lines of blanking are allowed on the column length only.
      {{k600M, 5000, 1100}, {}},
      {{k600M, 5000, 1080}, {"sensor column length mismatch (parameter:1080/received:1080)"}},
      {{k600M, 5000, 1101}, {"sensor column length mismatch (parameter:1101/received:1080)"}},
      {{k600M + 1, 4999, 1100},
       {"sensor pixel clock mismatch (parameter:600000001/received:600000000)",
        "sensor line length mismatch (parameter:4999/received:5000)"}},
  };
  for (const Row& row : rows) {
    fp::clearLogs();
    EXPECT_EQ(FlickerAlgoSetup::checkSensorSetting(v, row.setting), !row.errors.empty());
    std::vector<std::string> errors;
    for (const std::string& m : fp::messages()) errors.push_back(m.substr(m.find("] ") + 2));
    EXPECT_EQ(errors, row.errors);
    for (const std::string& e : row.errors)
      EXPECT_TRUE(fp::loggedError("[checkSensorSetting] " + e));
  }
}

}  // namespace
