// Binning of the statistics lines: every bin and sub-bin holds the sum of its
// lines, and a bin with a dark, clipped or broken entry is flagged so, in the
// window that holds it and in no other. Checked against sums and flags
// computed here entry by entry, for frames with no such entry (the common
// case, summed without per-entry tests) and with one in various windows, at
// and beside the range's ends and at the extremes of the entries' type, for
// every window count (odd groups of windows) and line counts that leave a
// partial bin or sub-bin at the end; and for a frame binned some lines on,
// whose bins beyond it are flagged outside. Both builds of the rows' loop are
// checked: the portable one and, where the processor has it, the wide one.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "algo_tuning.h"
#include "line_binner.h"

namespace open_algo {
namespace {

constexpr int kWinWidth = 100;
constexpr double kLineTime = 10e-6;

// Where an odd entry lies: a level per pixel (scaled by the window width), at
// or beside an end of the in-range levels, or at an extreme of int64_t.
enum class Level { kPixels, kFloor, kOverFloor, kUnderClip, kClip, kLeast, kMost };

struct OddEntry {
  int line;
  int window;
  int64_t value;  // per pixel, for Level::kPixels
  Level level = Level::kPixels;
};

struct BinCase {
  const char* name;
  std::vector<OddEntry> odd;
  int windows = kMaxWindows;
  int lines = 900;
  int offset = 0;  // bin line y reads line y + offset (into the shifted frame when not 0)
};

class LineBinnerTest : public ::testing::TestWithParam<BinCase> {};

TEST_P(LineBinnerTest, SumsAndFlagsEveryBinAsItsEntriesAre) {
  const int windows = GetParam().windows;
  const int lines = GetParam().lines;
  const AlgoKnobs knobs = AlgoTuning::defaults();
  const int64_t floorSum = static_cast<int64_t>(knobs.noiseFloor * kWinWidth);
  const int64_t clipSum = static_cast<int64_t>(knobs.clipFraction * knobs.fullScale * kWinWidth);
  std::vector<int64_t> frame(static_cast<size_t>(lines) * windows);
  for (int l = 0; l < lines; ++l) {
    for (int w = 0; w < windows; ++w) {
      // A texture of mid levels that differs from line to line and window to window.
      const double level = 0.4 + 0.2 * std::sin(0.037 * l + w) + 0.01 * ((l * 7 + w * 3) % 5);
      frame[static_cast<size_t>(l) * windows + w] =
          static_cast<int64_t>(level * knobs.fullScale * kWinWidth);
    }
  }
  for (const OddEntry& o : GetParam().odd) {
    const int64_t value[] = {o.value * kWinWidth,
                             floorSum,
                             floorSum + 1,
                             clipSum - 1,
                             clipSum,
                             std::numeric_limits<int64_t>::min(),
                             std::numeric_limits<int64_t>::max()};
    frame[static_cast<size_t>(o.line) * windows + o.window] = value[static_cast<int>(o.level)];
  }
  PairInput in{{frame.data(), frame.data()}, lines, windows, kWinWidth, kLineTime, 0.01, 0.01};
  const int offset = GetParam().offset;
  const int frameIndex = offset == 0 ? 0 : LineBinner::kShifted;
  // Sum and flags of lines [first, first + count) of window w, entry by
  // entry; lines beyond the frame flag it outside.
  auto expected = [&](int first, int count, int w, double* sum) {
    first += offset;
    if (first < 0 || first + count > lines) {
      *sum = 0.0;
      return LineBinner::kOutside;
    }
    uint64_t acc = 0;
    bool dark = false, clipped = false;
    for (int l = first; l < first + count; ++l) {
      const int64_t v = frame[static_cast<size_t>(l) * windows + w];
      acc += static_cast<uint64_t>(v);
      clipped = clipped || v >= clipSum || v < 0;
      dark = dark || (v >= 0 && v <= floorSum);
    }
    *sum = static_cast<double>(acc);
    return static_cast<uint8_t>((clipped ? LineBinner::kClipped : 0) |
                                (dark ? LineBinner::kDark : 0));
  };
  // The portable rows' loop, and the wide one where this processor has it.
  for (const bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "wide rows" : "portable rows");
    LineBinner binner;
    binner.useWideRows(wide);
    ASSERT_TRUE(binner.plan(in, 0, 14, 0.5));
    binner.planSubBins(in, 0);
    binner.bin(in, knobs, 0, frameIndex, offset);

    for (int w = 0; w < windows; ++w) {
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
}

INSTANTIATE_TEST_SUITE_P(
    Table, LineBinnerTest,
    ::testing::Values(
        BinCase{"clean", {}}, BinCase{"dark_in_the_last_window", {{130, kMaxWindows - 1, 0}}},
        BinCase{"clipped_in_the_first_group", {{131, 1, 1023}}},
        BinCase{"negative_entry", {{402, 0, -5}}},
        BinCase{"dark_and_clipped_in_one_bin", {{10, 3, 1}, {11, 3, 1023}}},
        BinCase{"last_line", {{899, 2, 0}}},
        // The ends of the range: at the floor is dark, one over it is not;
        // one under the clip is in range, at the clip is clipped.
        BinCase{"at_the_floor", {{200, 4, 0, Level::kFloor}}},
        BinCase{"over_the_floor_and_under_the_clip",
                {{200, 4, 0, Level::kOverFloor}, {333, 1, 0, Level::kUnderClip}}},
        BinCase{"at_the_clip", {{517, 5, 0, Level::kClip}}},
        BinCase{"extremes_of_the_entry_type",
                {{64, 0, 0, Level::kLeast}, {700, 3, 0, Level::kMost}}},
        // Odd window counts (groups of three and single windows), and line
        // counts whose last bin or sub-bin is partial.
        BinCase{"one_window", {{77, 0, 0}}, 1}, BinCase{"three_windows_clean", {}, 3},
        BinCase{"five_windows", {{5, 4, 1023}, {6, 3, 0, Level::kLeast}}, 5},
        BinCase{"two_windows_odd_lines", {{990, 1, 0, Level::kFloor}}, 2, 1000},
        BinCase{"four_windows_partial_end", {{993, 3, 1023}, {996, 0, 0}}, 4, 1000},
        BinCase{"six_windows_sub_bins_past_the_bins", {{995, 5, 0, Level::kClip}}, 6, 1000},
        // Binned some lines on: bins beyond the frame are flagged outside.
        BinCase{"shifted_down_past_the_end", {{140, 4, 0}}, kMaxWindows, 900, 37},
        BinCase{"shifted_up_before_the_start", {{500, 0, 1023}}, kMaxWindows, 900, -50}),
    [](const ::testing::TestParamInfo<BinCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace open_algo
