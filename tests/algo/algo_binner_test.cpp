// Binning of the statistics lines: every bin and sub-bin holds the sum of its
// lines, and a bin with a dark, clipped or broken entry is flagged so, in the
// window that holds it and in no other. Checked against sums and flags
// computed here entry by entry, for frames with no such entry (the common
// case, summed without per-entry tests) and with one in various windows, and
// for a frame binned some lines on, whose bins beyond it are flagged outside.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "algo_tuning.h"
#include "line_binner.h"

namespace open_algo {
namespace {

constexpr int kWindows = kMaxWindows;
constexpr int kWinWidth = 100;
constexpr int kLines = 900;
constexpr double kLineTime = 10e-6;

struct OddEntry {
  int line;
  int window;
  int64_t value;  // per pixel; scaled by the window width
};

struct BinCase {
  const char* name;
  std::vector<OddEntry> odd;
  int offset;  // bin line y reads line y + offset (into the shifted frame when not 0)
};

class LineBinnerTest : public ::testing::TestWithParam<BinCase> {};

TEST_P(LineBinnerTest, SumsAndFlagsEveryBinAsItsEntriesAre) {
  const AlgoKnobs knobs = AlgoTuning::defaults();
  const int64_t floorSum = static_cast<int64_t>(knobs.noiseFloor * kWinWidth);
  const int64_t clipSum = static_cast<int64_t>(knobs.clipFraction * knobs.fullScale * kWinWidth);
  std::vector<int64_t> frame(static_cast<size_t>(kLines) * kWindows);
  for (int l = 0; l < kLines; ++l) {
    for (int w = 0; w < kWindows; ++w) {
      // A texture of mid levels that differs from line to line and window to window.
      const double level = 0.4 + 0.2 * std::sin(0.037 * l + w) + 0.01 * ((l * 7 + w * 3) % 5);
      frame[static_cast<size_t>(l) * kWindows + w] =
          static_cast<int64_t>(level * knobs.fullScale * kWinWidth);
    }
  }
  for (const OddEntry& o : GetParam().odd) {
    frame[static_cast<size_t>(o.line) * kWindows + o.window] = o.value * kWinWidth;
  }
  PairInput in{{frame.data(), frame.data()}, kLines, kWindows, kWinWidth, kLineTime, 0.01, 0.01};
  LineBinner binner;
  ASSERT_TRUE(binner.plan(in, 0, 14, 0.5));
  binner.planSubBins(in, 0);
  const int offset = GetParam().offset;
  const int frameIndex = offset == 0 ? 0 : LineBinner::kShifted;
  binner.bin(in, knobs, 0, frameIndex, offset);

  // Sum and flags of lines [first, first + count) of window w, entry by
  // entry; lines beyond the frame flag it outside.
  auto expected = [&](int first, int count, int w, double* sum) {
    first += offset;
    if (first < 0 || first + count > kLines) {
      *sum = 0.0;
      return LineBinner::kOutside;
    }
    uint64_t acc = 0;
    bool dark = false, clipped = false;
    for (int l = first; l < first + count; ++l) {
      const int64_t v = frame[static_cast<size_t>(l) * kWindows + w];
      acc += static_cast<uint64_t>(v);
      clipped = clipped || v >= clipSum || v < 0;
      dark = dark || (v >= 0 && v <= floorSum);
    }
    *sum = static_cast<double>(acc);
    return static_cast<uint8_t>((clipped ? LineBinner::kClipped : 0) |
                                (dark ? LineBinner::kDark : 0));
  };
  for (int w = 0; w < kWindows; ++w) {
    for (int b = 0; b < binner.bins(); ++b) {
      SCOPED_TRACE("window " + std::to_string(w) + " bin " + std::to_string(b));
      double sum = 0;
      const uint8_t level = expected(b * binner.binLines(), binner.binLines(), w, &sum);
      EXPECT_EQ(binner.level(frameIndex, w, b), level);
      if ((level & LineBinner::kClipped) == 0) {
        EXPECT_EQ(binner.sum(frameIndex, w, b), sum);
      }
      if (frameIndex == 0) {
        EXPECT_EQ(binner.kept(0, w)[b], level == 0 ? 1 : 0);
      }
      if (level == 0 && frameIndex == 0) {
        EXPECT_NEAR(binner.profile(0, w)[b], std::log(sum / binner.binLines()), 1e-12);
      }
    }
    for (int k = 0; k < binner.subBins(); ++k) {
      SCOPED_TRACE("window " + std::to_string(w) + " sub-bin " + std::to_string(k));
      double sum = 0;
      const uint8_t level = expected(k * binner.subLines(), binner.subLines(), w, &sum);
      EXPECT_EQ(binner.subLevel(frameIndex, w, k), level);
      EXPECT_EQ(binner.subSum(frameIndex, w, k), sum);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, LineBinnerTest,
    ::testing::Values(BinCase{"clean", {}, 0},
                      BinCase{"dark_in_the_last_window", {{130, kWindows - 1, 0}}, 0},
                      BinCase{"clipped_in_the_first_group", {{131, 1, 1023}}, 0},
                      BinCase{"negative_entry", {{402, 0, -5}}, 0},
                      BinCase{"dark_and_clipped_in_one_bin", {{10, 3, 1}, {11, 3, 1023}}, 0},
                      BinCase{"last_line", {{kLines - 1, 2, 0}}, 0},
                      BinCase{"shifted_down_past_the_end", {{140, 4, 0}}, 37},
                      BinCase{"shifted_up_before_the_start", {{500, 0, 1023}}, -50}),
    [](const ::testing::TestParamInfo<BinCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace open_algo
