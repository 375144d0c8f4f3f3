// Binning of the statistics lines of a pair of frames.
//
// Each window column gives, per frame, a profile over the statistics lines.
// Consecutive lines are summed into bins of about a twelfth of the 120 Hz
// band period (the band period spans hundreds of lines, so a detection takes
// a few hundred logarithms, not tens of thousands), and each kept bin becomes
// log(mean): gain and exposure changes are offsets. A bin is masked in a
// frame's own profile when any of its entries is at or below the noise floor
// or at or above the clipping level (entries are sums of winWidth pixels, so
// the levels are scaled by it). The same pass sums fine sub-bins of a few
// lines each, for the period test and the shift estimate: running sums read
// at either grid's boundaries give both.
//
// The difference of the two frames is 2 (b - a) / (b + a) of the bin sums a
// and b, which is 2 tanh(log(b / a) / 2): the log difference for shallow
// ripples, bounded where a lamp's dark phase leaves one frame's bin near zero.
// It keeps bins with dark entries and reads a bin with a clipped (or negative,
// broken) entry as saturated; only a bin dark in both frames, or clipped in
// both, is masked. A frame's sums may be kept as a reference for later pairs:
// the difference of a later frame against it spans a long time. A frame may
// also be binned a whole number of lines further down (or up), so that a
// scene that moved since the reference lines up with it again; bins that
// reach beyond the frame are flagged outside and masked in any difference.
//
// Threading: owns its arrays; one thread at a time. Never allocates.
#pragma once

#include <cstdint>

#include "algo_tuning.h"
#include "pair_evidence.h"

// The frame's loop has a second build for x86-64 processors with AVX2, four
// 64-bit lanes to a vector instead of two; the binner picks it at run time.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define FLICKER_WIDE_ROWS 1
#else
#define FLICKER_WIDE_ROWS 0
#endif

namespace open_algo {

class LineBinner {
 public:
  // Frames: 0 = slot 0, 1 = slot 1, 2 = the kept reference, 3 = a frame
  // binned with a line offset.
  static constexpr int kFrames = 4;
  static constexpr int kReference = 2;
  static constexpr int kShifted = 3;
  // Series: 0 = frame slot 0, 1 = frame slot 1 (log profiles), 2 = their
  // difference (1 - 0), 3 = slot 1 against the reference.
  static constexpr int kSeries = 4;
  static constexpr int kDiff = 2;
  static constexpr int kLong = 3;
  static constexpr int kMaxSubBins = 1024;
  // Level flags of a bin or sub-bin in one frame.
  static constexpr uint8_t kDark = 1;
  static constexpr uint8_t kClipped = 2;
  // Some of its lines lie beyond the frame (a frame binned with an offset).
  static constexpr uint8_t kOutside = 4;
  // Bins per 120 Hz band period: the box average keeps 99 % of the ripple.
  static constexpr int kBinsPerPeriod = 12;
  // Sub-bins per 120 Hz band period.
  static constexpr int kSubBinsPerPeriod = 96;

  // An entry is in range when floorSum < v < clipSum, i.e. low <= v <= top
  // with low = floorSum + 1 >= 1 and top = clipSum - 1 (`any`: top >= low).
  struct EntryRange {
    uint64_t low;
    uint64_t top;
    uint64_t span;      // top - low + 1; 0 when no entry can be in range
    uint64_t clipTest;  // entries at or over it (as unsigned) read as clipped
    bool any;
  };

  // Lays out the bins for the pair's geometry, analysing the first
  // `searchRange` lines (0: all). False when the readout is too short to be
  // binned for a fit (fewer than `minBins` bins, fewer than three bins per
  // 120 Hz period, or a readout under `minReadoutPeriods` periods of 100 Hz).
  bool plan(const PairInput& in, int searchRange, int minBins, double minReadoutPeriods);
  // Lays out the sub-bins (kSubBinsPerPeriod per 120 Hz period, at most
  // kMaxSubBins).
  void planSubBins(const PairInput& in, int searchRange);
  // No sub-bins are summed for this pair.
  void dropSubBins() { subBins_ = 0; }

  // Whether this processor runs the wide build of the frame's loop.
  static bool wideRowsAvailable();
  // Wide build where available (the default), or the portable one: both give
  // the same sums and flags.
  void useWideRows(bool on) { wideRows_ = on && wideRowsAvailable(); }

  // Bins one frame, and its sub-bins, in one pass over its lines.
  void bin(const PairInput& in, const AlgoKnobs& knobs, int frame) {
    bin(in, knobs, frame, frame, 0);
  }
  // Bins input frame `frame` into frame `target`, bin line y reading line
  // y + `offset` of the input.
  void bin(const PairInput& in, const AlgoKnobs& knobs, int frame, int target, int offset);
  // Builds difference series `series` of frame `to` against frame `from`
  // from their bin sums.
  void buildDifference(int windows, int series, int from, int to);
  // Keeps frame `frame`'s sums as the reference.
  void keepReference(int frame, int windows);

  int bins() const { return bins_; }
  int binLines() const { return binLines_; }
  int subBins() const { return subBins_; }
  int subLines() const { return subLines_; }

  const double* profile(int series, int window) const { return profile_[series][window]; }
  const uint8_t* kept(int series, int window) const { return ok_[series][window]; }
  // A difference series, for the removal of a vertical shift.
  double* difference(int series, int window) { return profile_[series][window]; }
  // Leaves bin `b` of a difference series out of its fits.
  void mask(int series, int window, int b) { ok_[series][window][b] = 0; }
  // Per frame: bin sums (saturated where an entry clips) and level flags.
  double sum(int frame, int window, int b) const { return sum_[frame][window][b]; }
  uint8_t level(int frame, int window, int b) const { return level_[frame][window][b]; }
  double subSum(int frame, int window, int k) const { return subSum_[frame][window][k]; }
  uint8_t subLevel(int frame, int window, int k) const { return subLevel_[frame][window][k]; }
  const double* subSums(int frame, int window) const { return subSum_[frame][window]; }
  const uint8_t* subLevels(int frame, int window) const { return subLevel_[frame][window]; }
  // Changes whenever the reference is kept anew, so that what is derived from
  // the reference may be kept with it.
  unsigned referenceStamp() const { return referenceStamp_; }

 private:
  // bin() for W windows, the rows summed kLanes entries to a vector.
  template <int W, int kLanes>
  [[gnu::always_inline]] inline void binWindows(const PairInput& in, const EntryRange& range,
                                                int frame, int target, int offset);
#if FLICKER_WIDE_ROWS
  // binWindows<W, 4>, compiled for processors with AVX2.
  template <int W>
  __attribute__((target("avx2"))) void binWindowsWide(const PairInput& in, const EntryRange& range,
                                                      int frame, int target, int offset);
#endif
  // Stores bin `b` of `frame` from the running sums less their marks at the
  // bin's start, and moves the marks to its end.
  void storeBin(int frame, int b, int windows, double logLines, uint64_t clipTest, bool outside,
                const uint64_t* run, const int* runBad, const int* runHigh, uint64_t* mark,
                int* markBad, int* markHigh);

  int bins_ = 0;
  int binLines_ = 0;
  int subBins_ = 0;
  int subLines_ = 0;
  unsigned referenceStamp_ = 0;
  bool wideRows_ = wideRowsAvailable();
  double profile_[kSeries][kMaxWindows][kMaxBins] = {};
  uint8_t ok_[kSeries][kMaxWindows][kMaxBins] = {};
  double sum_[kFrames][kMaxWindows][kMaxBins] = {};
  uint8_t level_[kFrames][kMaxWindows][kMaxBins] = {};
  double subSum_[kFrames][kMaxWindows][kMaxSubBins] = {};
  uint8_t subLevel_[kFrames][kMaxWindows][kMaxSubBins] = {};
};

}  // namespace open_algo
