#include "line_binner.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numeric>

namespace open_algo {
namespace {

// A ripple needs at least three bins per period to be told from the trend.
constexpr double kMinBinsPerRipplePeriod = 3.0;

using EntryRange = LineBinner::EntryRange;

// One unsigned comparison: entries under the floor, and negative ones, wrap
// to distances of at least span.
bool outOfRange(uint64_t v, const EntryRange& range) {
  return v - range.low >= range.span;
}

// The same test without a comparison, for a loop the compiler can vectorise
// (64-bit unsigned compares are not in the baseline x86-64 vector set): with
// 1 <= low <= top < 2^63, the top bit of (v - low) | (top - v) is set exactly
// when v is out of range. In range both differences lie in [0, span). Over
// the top, top - v is negative. Under the floor, v - low is negative, unless
// it wraps (v within low of the most negative value), and then top - v wraps
// past 2^63 and is negative in turn.
uint64_t rangeBits(uint64_t v, const EntryRange& range) {
  return (v - range.low) | (range.top - v);
}

// Sums `lines` rows of windows [first, first + G) of rows `stride` entries
// long, counting per window the entries out of range and those at or over
// the clip (negative ones, which wrap to huge values, included). This is the
// slow path, for rows where some entry is out of range. The sums wrap
// harmlessly in unsigned arithmetic: a bin with such an entry is not used.
template <int G>
void countGroup(const int64_t* row, int lines, int stride, int first, const EntryRange& range,
                uint64_t* acc, int* bad, int* high) {
  uint64_t a[G] = {}, b[G] = {}, h[G] = {};
  row += first;
  for (int l = 0; l < lines; ++l, row += stride) {
    for (int w = 0; w < G; ++w) {
      const uint64_t v = static_cast<uint64_t>(row[w]);
      b[w] += outOfRange(v, range) ? 1 : 0;
      h[w] += v >= range.clipTest ? 1 : 0;
      a[w] += v;
    }
  }
  for (int w = 0; w < G; ++w) {
    acc[first + w] += a[w];
    bad[first + w] += static_cast<int>(b[w]);
    high[first + w] += static_cast<int>(h[w]);
  }
}

// 64-bit lanes side by side, as a vector register holds them (a GCC and
// clang extension): written out, the rows' loop stays vectorised wherever the
// compiler inlines it. Two lanes fill the baseline x86-64 and 64-bit Arm
// vector registers; four fill those of x86-64 processors with AVX2, which the
// frame's loop uses where the processor has them (see LineBinner::bin).
using TwoLanes = uint64_t __attribute__((vector_size(2 * sizeof(uint64_t))));
using FourLanes = uint64_t __attribute__((vector_size(4 * sizeof(uint64_t))));
template <int kLanes>
struct LanesOf;
template <>
struct LanesOf<2> {
  using Type = TwoLanes;
};
template <>
struct LanesOf<4> {
  using Type = FourLanes;
};

// (Vectors are passed by pointer: a wide one returned by value from a
// function built for the baseline instruction set would change its ABI.)
template <typename V>
[[gnu::always_inline]] inline void loadLanes(const int64_t* p, V* v) {
  std::memcpy(v, p, sizeof *v);
}

template <typename V>
[[gnu::always_inline]] inline void fillLanes(uint64_t x, V* v) {
  for (size_t i = 0; i < sizeof *v / sizeof x; ++i) {
    (*v)[i] = x;
  }
}

// The common case: `lines` whole rows of W windows. Per window a sum and an
// OR of the entries' out-of-range bits: the same branch-free operations on
// every entry, kLanes entries to a vector. The rows are read as one run of
// entries, a block of rows at a time whose entries fill whole vectors (one
// row of six windows in two lanes, two rows in four), so that each lane of a
// block's vectors always holds the same window; rows left over, fewer than a
// block, are summed entry by entry. The sums are exact (unsigned, wrapping),
// so their grouping does not matter. False, with nothing added, when any
// entry is out of range.
template <int W, int kLanes>
[[gnu::always_inline]] inline bool sumInRange(const int64_t* row, int lines,
                                              const EntryRange& range, uint64_t* acc) {
  using V = typename LanesOf<kLanes>::Type;
  constexpr int kBlockRows = kLanes / std::gcd(W, kLanes);
  constexpr int kVectors = kBlockRows * W / kLanes;
  constexpr std::ptrdiff_t kBlockEntries = static_cast<std::ptrdiff_t>(kBlockRows) * W;
  V a[kVectors] = {}, bits[kVectors] = {};
  V low = {}, top = {};  // filled lane by lane below
  fillLanes(range.low, &low);
  fillLanes(range.top, &top);
  int l = 0;
  for (; l + kBlockRows <= lines; l += kBlockRows, row += kBlockEntries) {
    for (std::ptrdiff_t v = 0; v < kVectors; ++v) {
      V x;
      loadLanes(row + v * kLanes, &x);
      a[v] += x;
      bits[v] |= (x - low) | (top - x);
    }
  }
  uint64_t sums[W] = {}, out = 0;
  for (; l < lines; ++l, row += W) {
    for (int w = 0; w < W; ++w) {
      const uint64_t v = static_cast<uint64_t>(row[w]);
      sums[w] += v;
      out |= rangeBits(v, range);
    }
  }
  for (int v = 0; v < kVectors; ++v) {
    for (int i = 0; i < kLanes; ++i) {
      out |= bits[v][i];
    }
  }
  if ((out >> 63) != 0) {
    return false;
  }
  for (int v = 0; v < kVectors; ++v) {
    for (int i = 0; i < kLanes; ++i) {
      sums[(v * kLanes + i) % W] += a[v][i];
    }
  }
  for (int w = 0; w < W; ++w) {
    acc[w] += sums[w];
  }
  return true;
}

// Adds the rows to the sums; true when some entry was out of range and the
// rows were counted entry by entry (bad and high may then have grown).
template <int W, int kLanes>
[[gnu::always_inline]] inline bool sumRows(const int64_t* row, int lines, const EntryRange& range,
                                           uint64_t* acc, int* bad, int* high) {
  if (range.any && sumInRange<W, kLanes>(row, lines, range, acc)) {
    return false;
  }
  int w = 0;
  for (; w + 3 <= W; w += 3) {
    countGroup<3>(row, lines, W, w, range, acc, bad, high);
  }
  for (; w < W; ++w) {
    countGroup<1>(row, lines, W, w, range, acc, bad, high);
  }
  return true;
}

int analysedLines(const PairInput& in, int searchRange) {
  return searchRange > 0 && searchRange < in.lines ? searchRange : in.lines;
}

}  // namespace

bool LineBinner::wideRowsAvailable() {
#if FLICKER_WIDE_ROWS
  static const bool available = __builtin_cpu_supports("avx2") != 0;
  return available;
#else
  return false;
#endif
}

bool LineBinner::plan(const PairInput& in, int searchRange, int minBins, double minReadoutPeriods) {
  const int lines = analysedLines(in, searchRange);
  const double period120 = 1.0 / (kRippleHz[1] * in.lineTime);  // lines
  int binLines = std::max(1, static_cast<int>(period120 / kBinsPerPeriod));
  if (lines / binLines > kMaxBins) {
    binLines = (lines + kMaxBins - 1) / kMaxBins;
  }
  if (lines / binLines < minBins) {
    binLines = std::max(1, lines / minBins);
  }
  const int bins = std::min(kMaxBins, lines / binLines);
  // The bins share out the lines that rounding would leave over: a readout of
  // about one period must not lose a tenth of it to the last, partial bin.
  binLines = std::max(binLines, lines / std::max(1, bins));
  const double readout = static_cast<double>(bins) * binLines * in.lineTime;
  if (bins < minBins || period120 / binLines < kMinBinsPerRipplePeriod ||
      readout * kRippleHz[0] < minReadoutPeriods) {
    return false;
  }
  bins_ = bins;
  binLines_ = binLines;
  return true;
}

void LineBinner::planSubBins(const PairInput& in, int searchRange) {
  const int lines = analysedLines(in, searchRange);
  const double period120 = 1.0 / (kRippleHz[1] * in.lineTime);  // lines
  int subLines = std::max(1, static_cast<int>(period120 / kSubBinsPerPeriod));
  if (lines / subLines > kMaxSubBins) {
    subLines = (lines + kMaxSubBins - 1) / kMaxSubBins;
  }
  subLines_ = subLines;
  subBins_ = std::min(kMaxSubBins, lines / subLines);
}

void LineBinner::bin(const PairInput& in, const AlgoKnobs& knobs, int frame, int target,
                     int offset) {
  // Entries are sums of winWidth pixels: compare against summed levels.
  const int64_t floorSum =
      std::max<int64_t>(0, static_cast<int64_t>(knobs.noiseFloor * in.winWidth));
  const int64_t clipSum = static_cast<int64_t>(knobs.clipFraction * knobs.fullScale * in.winWidth);
  // In range: floorSum < v < clipSum, i.e. v - floorSum - 1 in [0, span).
  const uint64_t span = clipSum > floorSum + 1 ? static_cast<uint64_t>(clipSum - floorSum - 1) : 0;
  const uint64_t low = static_cast<uint64_t>(floorSum) + 1;
  const EntryRange range{low, low + span - 1, span,
                         static_cast<uint64_t>(std::max<int64_t>(clipSum, 1)), span > 0};
  // The window count is a template argument: the rows' layout is known to
  // the compiler, and the rows' sums are inlined into the frame's loop.
  static_assert(kMaxWindows == 6, "one frame binner per window count");
  using FrameBinner = void (LineBinner::*)(const PairInput&, const EntryRange&, int, int, int);
  static constexpr FrameBinner kBinners[kMaxWindows] = {
      &LineBinner::binWindows<1, 2>, &LineBinner::binWindows<2, 2>, &LineBinner::binWindows<3, 2>,
      &LineBinner::binWindows<4, 2>, &LineBinner::binWindows<5, 2>, &LineBinner::binWindows<6, 2>};
  const int index = std::clamp(in.windows, 1, kMaxWindows) - 1;
#if FLICKER_WIDE_ROWS
  static constexpr FrameBinner kWideBinners[kMaxWindows] = {
      &LineBinner::binWindowsWide<1>, &LineBinner::binWindowsWide<2>,
      &LineBinner::binWindowsWide<3>, &LineBinner::binWindowsWide<4>,
      &LineBinner::binWindowsWide<5>, &LineBinner::binWindowsWide<6>};
  if (wideRows_) {
    (this->*kWideBinners[index])(in, range, frame, target, offset);
    return;
  }
#endif
  (this->*kBinners[index])(in, range, frame, target, offset);
}

#if FLICKER_WIDE_ROWS
// The frame's loop compiled for AVX2: the rows' sums in four lanes.
template <int W>
void LineBinner::binWindowsWide(const PairInput& in, const EntryRange& range, int frame, int target,
                                int offset) {
  binWindows<W, 4>(in, range, frame, target, offset);
}
#endif

template <int W, int kLanes>
void LineBinner::binWindows(const PairInput& in, const EntryRange& range, int frame, int target,
                            int offset) {
  constexpr int windows = W;
  const int64_t* data = in.frame[frame];
  const double logLines = std::log(static_cast<double>(binLines_));
  // One pass over the lines serves the bins and the sub-bins: running sums,
  // read at either grid's boundaries, give both by differences (exact in
  // unsigned arithmetic, even where they wrap).
  const int binEnd = bins_ * binLines_;
  const int subEnd = subBins_ * subLines_;
  const int end = std::max(binEnd, subEnd);
  uint64_t run[kMaxWindows] = {}, binMark[kMaxWindows] = {}, subMark[kMaxWindows] = {};
  int runBad[kMaxWindows] = {}, binMarkBad[kMaxWindows] = {}, subMarkBad[kMaxWindows] = {};
  int runHigh[kMaxWindows] = {}, binMarkHigh[kMaxWindows] = {}, subMarkHigh[kMaxWindows] = {};
  // Lines read beyond the frame, running and at the last bin's and sub-bin's end.
  int runOut = 0, binMarkOut = 0, subMarkOut = 0;
  // Whether entries were counted out of range since the last sub-bin's end:
  // without, its counts are zero and the marks of the counts stay as they are.
  bool counted = false;
  int nextBin = binEnd > 0 ? binLines_ : end + 1;
  int nextSub = subEnd > 0 ? subLines_ : end + 1;
  for (int line = 0; line < end;) {
    const int next = std::min(nextBin, nextSub);
    const int first = std::clamp(line + offset, 0, in.lines);
    const int last = std::clamp(next + offset, 0, in.lines);
    runOut += (next - line) - (last - first);
    if (last > first) {
      const int64_t* row = data + static_cast<size_t>(first) * windows;
      counted = sumRows<W, kLanes>(row, last - first, range, run, runBad, runHigh) || counted;
    }
    if (next == nextBin) {
      storeBin(target, next / binLines_ - 1, windows, logLines, range.clipTest,
               runOut != binMarkOut, run, runBad, runHigh, binMark, binMarkBad, binMarkHigh);
      binMarkOut = runOut;
      nextBin = next + binLines_ <= binEnd ? next + binLines_ : end + 1;
    }
    if (next == nextSub) {
      const int k = next / subLines_ - 1;
      const uint8_t outside = runOut != subMarkOut ? kOutside : 0;
      for (int w = 0; w < windows; ++w) {
        subSum_[target][w][k] = outside != 0 ? 0.0 : static_cast<double>(run[w] - subMark[w]);
        subLevel_[target][w][k] = outside;
        subMark[w] = run[w];
      }
      for (int w = 0; counted && w < windows; ++w) {
        const int bad = runBad[w] - subMarkBad[w];
        const int high = runHigh[w] - subMarkHigh[w];
        subLevel_[target][w][k] =
            static_cast<uint8_t>(outside | (high != 0 ? kClipped : 0) | (bad > high ? kDark : 0));
        subMarkBad[w] = runBad[w];
        subMarkHigh[w] = runHigh[w];
      }
      counted = false;
      subMarkOut = runOut;
      nextSub = next + subLines_ <= subEnd ? next + subLines_ : end + 1;
    }
    line = next;
  }
}

void LineBinner::storeBin(int frame, int b, int windows, double logLines, uint64_t clipTest,
                          bool outside, const uint64_t* run, const int* runBad, const int* runHigh,
                          uint64_t* mark, int* markBad, int* markHigh) {
  for (int w = 0; w < windows; ++w) {
    const uint64_t acc = run[w] - mark[w];
    const int bad = runBad[w] - markBad[w];
    const int high = runHigh[w] - markHigh[w];
    // Only the two slots have log profiles of their own (series 0 and 1).
    if (frame < kDiff) {
      ok_[frame][w][b] = bad != 0 || outside ? 0 : 1;
      profile_[frame][w][b] =
          bad != 0 || outside ? 0.0 : std::log(static_cast<double>(acc)) - logLines;
    }
    // For the difference a bin with clipped (or broken, negative) entries
    // reads as saturated; dark entries keep their sum.
    sum_[frame][w][b] = outside     ? 0.0
                        : high != 0 ? static_cast<double>(clipTest) * binLines_
                                    : static_cast<double>(acc);
    level_[frame][w][b] = static_cast<uint8_t>(
        (outside ? kOutside : 0) | (high != 0 ? kClipped : 0) | (bad > high ? kDark : 0));
    mark[w] = run[w];
    markBad[w] = runBad[w];
    markHigh[w] = runHigh[w];
  }
}

void LineBinner::buildDifference(int windows, int series, int from, int to) {
  // A bin dark in both frames, or clipped in both, says nothing, and one
  // beyond either frame holds nothing to compare.
  for (int w = 0; w < windows; ++w) {
    for (int b = 0; b < bins_; ++b) {
      const double a = sum_[from][w][b];
      const double c = sum_[to][w][b];
      const int both = level_[from][w][b] & level_[to][w][b];
      const int outside = (level_[from][w][b] | level_[to][w][b]) & kOutside;
      const bool ok = a + c > 0.0 && both == 0 && outside == 0;
      ok_[series][w][b] = ok ? 1 : 0;
      profile_[series][w][b] = ok ? 2.0 * (c - a) / (c + a) : 0.0;
    }
  }
}

void LineBinner::keepReference(int frame, int windows) {
  ++referenceStamp_;
  for (int w = 0; w < windows; ++w) {
    std::copy(sum_[frame][w], sum_[frame][w] + bins_, sum_[kReference][w]);
    std::copy(level_[frame][w], level_[frame][w] + bins_, level_[kReference][w]);
    std::copy(subSum_[frame][w], subSum_[frame][w] + subBins_, subSum_[kReference][w]);
    std::copy(subLevel_[frame][w], subLevel_[frame][w] + subBins_, subLevel_[kReference][w]);
  }
}

}  // namespace open_algo
