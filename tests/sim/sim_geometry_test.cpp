// The simulator's geometry must give the line time the manager derives from
// the same records, and bands in its statistics must be spaced by that line
// time: the two meet only through the records a runner copies.
#include "sim_geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "sim_sensor.h"
#include "sim_test_util.h"

namespace flicker_sim {
namespace {

using testing_util::flatWallSensor;
using testing_util::lineProfile;
using testing_util::peakCyclesPerLine;
using testing_util::steadyLight;

struct LineLengthCase {
  int frameHeight;
  int tgHeight;
  uint32_t pixelsInLine;
  int sensorBinning;
  uint32_t expectedClocks;
};

class LineLengthTest : public ::testing::TestWithParam<LineLengthCase> {};

TEST_P(LineLengthTest, MatchesTheManagersSetUpRule) {
  const LineLengthCase& c = GetParam();
  SimGeometry g;
  g.frameHeight = c.frameHeight;
  g.tgHeight = c.tgHeight;
  g.pixelsInLine = c.pixelsInLine;
  g.sensorBinning = c.sensorBinning;
  EXPECT_EQ(g.lineLengthClocks(), c.expectedClocks);
  EXPECT_DOUBLE_EQ(g.lineTimeSeconds(), c.expectedClocks / static_cast<double>(g.pixelClockHz));
}

INSTANTIATE_TEST_SUITE_P(
    Table, LineLengthTest,
    ::testing::Values(
        // Binned statistics image (ratio 2): line length doubles.
        LineLengthCase{4000, 2000, 5000, 1, 10000},
        // Resized (ratio 1, resize 1.5 in float): 7500.
        LineLengthCase{3000, 2000, 5000, 1, 7500},
        // Upper half of the line length is not part of it.
        LineLengthCase{3000, 3000, 0x00011388u, 1, 5000},
        // Sensor binning multiplies on top of the ratio rule.
        LineLengthCase{3000, 3000, 4800, 2, 9600}, LineLengthCase{3000, 1500, 2400, 2, 9600},
        // Downscaled statistics image: resize 0.5 halves the line length.
        LineLengthCase{1500, 3000, 4800, 1, 2400},
        // No TG height: the sensor line length is kept (defined, no division by zero).
        LineLengthCase{3000, 0, 4800, 1, 4800}));

struct WindowCase {
  int width;
  int height;
  int pixelMode;
  int winW;
  int winH;
};

class WindowTest : public ::testing::TestWithParam<WindowCase> {};

TEST_P(WindowTest, BlockHoldsEighteenEntriesPerWindowLine) {
  const WindowCase& c = GetParam();
  SimGeometry g;
  g.frameWidth = c.width;
  g.frameHeight = c.height;
  g.pixelMode = c.pixelMode;
  EXPECT_EQ(g.windowWidth(), c.winW);
  EXPECT_EQ(g.windowHeight(), c.winH);
  EXPECT_EQ(g.statEntries(), 18 * c.winH);
  // The window grid lies inside the frame, centred.
  EXPECT_GE(g.topOffset(), 0);
  EXPECT_LE(g.topOffset() + g.statLines(), c.height);
  EXPECT_LE(g.leftOffset() + 6 * g.windowWidth(), g.reducedWidth());
  EXPECT_LE(std::abs(2 * g.topOffset() + g.statLines() - c.height), 1);
}

INSTANTIATE_TEST_SUITE_P(Table, WindowTest,
                         ::testing::Values(
                             // The adapter's own example size.
                             WindowCase{4000, 3000, 0, 666, 984},
                             // Pixel mode 1 halves the width the windows see, not the lines.
                             WindowCase{4000, 3000, 1, 332, 984},
                             // Tall frames are cut to 5994 statistics-image lines.
                             WindowCase{8000, 6040, 0, 1332, 1998},
                             WindowCase{8000, 6039, 0, 1332, 1998},
                             // Smallest frames.
                             WindowCase{12, 100, 0, 2, 18}));

TEST(SimGeometryTest, RejectsGeometriesWithoutAWindowOrClock) {
  SimGeometry g;
  EXPECT_TRUE(g.valid());
  g.frameWidth = 11;  // no window pixel
  EXPECT_FALSE(g.valid());
  g = SimGeometry();
  g.pixelClockHz = 0;
  EXPECT_FALSE(g.valid());
  EXPECT_EQ(g.lineTimeSeconds(), 0.0);
  g = SimGeometry();
  g.frameHeight = 40;  // nothing left after the 45-line margin
  EXPECT_FALSE(g.valid());
}

// Band spacing measured in the statistics of a flat wall under a 100 Hz
// ripple, for geometries that reach the line length by different rules.
struct BandCase {
  const char* what;
  int frameWidth;
  int frameHeight;
  int tgHeight;
  uint32_t pixelsInLine;
  int sensorBinning;
  int pixelMode;
  uint32_t managerClocks;  // line length the manager derives for these records
};

class BandSpacingTest : public ::testing::TestWithParam<BandCase> {};

TEST_P(BandSpacingTest, BandPeriodFollowsTheDerivedLineTime) {
  const BandCase& c = GetParam();
  SimSensorSpec spec = flatWallSensor(1e-3);
  spec.geometry.frameWidth = c.frameWidth;
  spec.geometry.frameHeight = c.frameHeight;
  spec.geometry.tgHeight = c.tgHeight;
  spec.geometry.pixelsInLine = c.pixelsInLine;
  spec.geometry.sensorBinning = c.sensorBinning;
  spec.geometry.pixelMode = c.pixelMode;
  auto light = std::make_shared<const SimLight>(
      steadyLight({makeLightComponent(SimLightType::kIncandescent, 50.0, 4e6)}));
  SimSensor sensor(spec, light, 7);
  const SimFrame frame = sensor.nextFrame();
  ASSERT_EQ(frame.stats.size(), static_cast<size_t>(spec.geometry.statEntries()));

  const double lineTime = c.managerClocks / static_cast<double>(spec.geometry.pixelClockHz);
  const double expectedPeriodLines = 1.0 / (100.0 * lineTime);
  const double measured = 1.0 / peakCyclesPerLine(lineProfile(frame), 150.0, 4000.0);
  EXPECT_NEAR(measured / expectedPeriodLines, 1.0, 0.005) << c.what;
  EXPECT_DOUBLE_EQ(sensor.lineTimeSeconds(), lineTime) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Table, BandSpacingTest,
                         ::testing::Values(
                             // 10 us lines: 1000 lines per band.
                             BandCase{"plain", 4000, 3000, 3000, 4800, 1, 0, 4800},
                             // Binned TG output, the ratio doubles the line length back to 10 us.
                             BandCase{"height ratio 2", 4000, 3000, 1500, 2400, 1, 0, 4800},
                             // Sensor binning 2: 20 us lines, bands half as many lines apart.
                             BandCase{"sensor binning 2", 4000, 3000, 3000, 4800, 2, 0, 9600},
                             // Resize 1.5: 6000 clocks, 12.5 us lines.
                             BandCase{"resize 1.5", 4000, 3000, 2000, 4000, 1, 0, 6000},
                             // Pixel mode narrows the windows but leaves the line time alone.
                             BandCase{"pixel mode 1", 4000, 3000, 3000, 4800, 1, 1, 4800}),
                         [](const ::testing::TestParamInfo<BandCase>& info) {
                           return std::to_string(info.index);
                         });

}  // namespace
}  // namespace flicker_sim
