#include "ripple_analyzer.h"

#include <algorithm>
#include <cmath>

namespace open_algo {
namespace {

constexpr double kPi = 3.14159265358979323846;
// Bins per 120 Hz band period: the box average keeps 99 % of the ripple.
constexpr int kBinsPerPeriod = 12;
// Fewer bins leave too few degrees of freedom beyond the eight parameters of
// a frame's fit.
constexpr int kMinBins = kMaxTrendTerms + 2 * kRipples + 6;
// The analysed readout must span at least one 100 Hz period: over less, a
// frame shows under one band of either ripple and the two frequencies (and
// the trend) cannot be told apart, whatever the fit's conditioning says.
constexpr double kMinReadoutPeriods = 1.0;
// A ripple needs at least three bins per period to be told from the trend.
constexpr double kMinBinsPerRipplePeriod = 3.0;
// The harmonics are fitted when the readout spans this many 100 Hz periods:
// over less, 200 Hz and 240 Hz are not told apart from each other and from
// the fundamentals, and their columns only cost degrees of freedom.
constexpr double kMinHarmonicReadoutPeriods = 2.0;
// Trend terms: a frame carries the scene's shading (cubic); the difference of
// two frames only a gain offset and a slow drift (linear). Fewer trend terms
// keep the two ripples apart over short readouts (down to about one period),
// where a cubic soaks up most of a low-frequency ripple.
constexpr int kFrameTrendTerms = 4;
constexpr int kDifferenceTrendTerms = 2;
// An exposure this close to whole periods of a ripple (|sinc| below it)
// integrates the ripple and all its harmonics away: fitting it anyway only
// adds a column nearly parallel to the other ripple's over short readouts,
// into which any unmodelled shape of the other ripple leaks.
constexpr double kCancelledGain = 0.01;
// The difference keeps a second harmonic only when it brings the residual
// below this share of the fit without it.
constexpr double kHarmonicResidualShare = 0.9;
// ... and its own evidence across the windows reaches this.
constexpr double kHarmonicEvidence = 0.5;
// Residual degrees of freedom a window fit must keep.
constexpr int kMinDof = 4;
// Relative pivot below which the normal matrix counts as singular.
constexpr double kPivotTolerance = 1e-10;
// A window agrees when its phasor lies within this fraction of the combined
// amplitude from the combined phasor.
constexpr double kAgreeRadius = 0.5;
// Agreement ramp: 40 % of the windows give nothing, two thirds give all.
constexpr double kAgreeLow = 0.4;
constexpr double kAgreeHigh = 0.67;
// Standard error of a median relative to a mean of normal samples.
constexpr double kMedianEfficiency = 1.25;
// Residual rms of the frame difference (log units) over which temporal
// evidence fades out: a static scene leaves well under 1 %.
constexpr double kResidualLow = 0.02;
constexpr double kResidualHigh = 0.06;
// Share of the difference's ripple amplitude that its unmodelled harmonics may
// add to the residual (the second harmonic of log(1 + a cos) is a/4 of it).
constexpr double kHarmonicAllowance = 0.25;
// A frozen frequency's single-frame ripple counts in a vote less this many
// standard errors: what texture noise alone would not produce.
constexpr double kStandInErrors = 2.0;
// Two frames' spatial ripples must agree within this ratio ramp.
constexpr double kConsistencyLow = 0.3;
constexpr double kConsistencyHigh = 0.6;

// Period test: sub-bins per 120 Hz band period (the lag of a ripple period
// is rounded to a sub-bin), sub-bins per compared bin, and the fewest compared
// bins a window needs.
constexpr int kSubBinsPerPeriod = 96;
constexpr int kCombSubBins = 4;
constexpr int kMinPeriodSamples = 4;
// A difference is deep when its spread over the bins (rms, median over the
// windows) reaches this: texture under motion stays under 0.03.
constexpr double kDeepSpread = 0.05;
// The period test names a ripple when the difference matches itself one of
// its periods later (concordance at least kPeriodic) with a spread of at least
// kPeriodSpread in either test, and the other period does not (concordance at
// most kAperiodic over a spread of at least kDeepSpread, or too few bins to
// compare). A sinusoid one 120 Hz period on matches its 100 Hz self with
// cos(60 deg) = 0.5, a 120 Hz sinusoid one 100 Hz period on cos(72 deg).
constexpr double kPeriodic = 0.8;
constexpr double kAperiodic = 0.6;
constexpr double kPeriodSpread = 0.1;
// A vertical scene shift is removed from the difference when it is this many
// standard errors from zero, changes the difference by at least this rms (a
// quarter of the default amplitude floor), and explains at least this share
// of the difference's residual.
constexpr double kShiftSignificance = 3.0;
constexpr double kMinShiftRms = 0.001;
constexpr double kMinShiftShare = 0.5;

double ramp(double x, double lo, double hi) {
  if (hi <= lo) {
    return x >= hi ? 1.0 : 0.0;
  }
  return std::clamp((x - lo) / (hi - lo), 0.0, 1.0);
}

// Median of 1 <= n <= kMaxWindows values; sorts a copy. An insertion sort:
// n is at most the window count, and GCC's std::sort on a small fixed array
// trips a false -Warray-bounds at -O2.
double median(const double* v, int n) {
  n = std::clamp(n, 1, kMaxWindows);
  double s[kMaxWindows];
  for (int i = 0; i < n; ++i) {
    const double x = v[i];
    int j = i;
    for (; j > 0 && s[j - 1] > x; --j) {
      s[j] = s[j - 1];
    }
    s[j] = x;
  }
  return (n % 2) != 0 ? s[n / 2] : 0.5 * (s[n / 2 - 1] + s[n / 2]);
}

double sincAbs(double x) {
  if (std::fabs(x) < 1e-9) {
    return 1.0;
  }
  return std::fabs(std::sin(kPi * x) / (kPi * x));
}

using Matrix = double[kFitParams][kFitParams];

// In-place lower Cholesky factor of g (upper part ignored). False when g is
// not safely positive definite.
bool cholesky(const Matrix g, Matrix l) {
  for (int i = 0; i < kFitParams; ++i) {
    for (int j = 0; j <= i; ++j) {
      double s = g[i][j];
      for (int k = 0; k < j; ++k) {
        s -= l[i][k] * l[j][k];
      }
      if (i == j) {
        if (!(s > kPivotTolerance * g[i][i])) {
          return false;
        }
        l[i][i] = std::sqrt(s);
      } else {
        l[i][j] = s / l[j][j];
      }
    }
    for (int j = i + 1; j < kFitParams; ++j) {
      l[i][j] = 0.0;
    }
  }
  return true;
}

void cholSolve(const Matrix l, const double* b, double* x) {
  double y[kFitParams];
  for (int i = 0; i < kFitParams; ++i) {
    double s = b[i];
    for (int k = 0; k < i; ++k) {
      s -= l[i][k] * y[k];
    }
    y[i] = s / l[i][i];
  }
  for (int i = kFitParams - 1; i >= 0; --i) {
    double s = y[i];
    for (int k = i + 1; k < kFitParams; ++k) {
      s -= l[k][i] * x[k];
    }
    x[i] = s / l[i][i];
  }
}

// Variances (inverse-diagonal entries) of the ripple coefficients.
void rippleVariances(const Matrix l, double* var) {
  for (int j = 0; j < kRippleCols; ++j) {
    double e[kFitParams] = {};
    double z[kFitParams];
    e[kMaxTrendTerms + j] = 1.0;
    cholSolve(l, e, z);
    var[j] = z[kMaxTrendTerms + j];
  }
}

int trendTerms(int key) {
  return (key & (1 << kComponents)) != 0 ? kFrameTrendTerms : kDifferenceTrendTerms;
}

// True when column `c` takes part in the model `key`.
bool columnUsed(int key, int c) {
  if (c < kMaxTrendTerms) {
    return c < trendTerms(key);
  }
  return (key & (1 << ((c - kMaxTrendTerms) / 2))) != 0;
}

int modelParams(int key) {
  int n = trendTerms(key);
  for (int c = 0; c < kComponents; ++c) {
    n += (key & (1 << c)) != 0 ? 2 : 0;
  }
  return n;
}

// Replaces the unused columns of a normal matrix by identity rows, so their
// coefficients come out zero and the factor keeps its size.
void maskUnused(Matrix g, int key) {
  for (int i = 0; i < kFitParams; ++i) {
    if (columnUsed(key, i)) {
      continue;
    }
    for (int j = 0; j < kFitParams; ++j) {
      g[i][j] = 0.0;
      g[j][i] = 0.0;
    }
    g[i][i] = 1.0;
  }
}

constexpr unsigned kFundamentals = (1u << kRipples) - 1;

}  // namespace

bool RippleAnalyzer::planBins(const PairInput& in, int searchRange) {
  const int lines = searchRange > 0 && searchRange < in.lines ? searchRange : in.lines;
  const double period120 = 1.0 / (kRippleHz[1] * in.lineTime);  // lines
  int binLines = std::max(1, static_cast<int>(period120 / kBinsPerPeriod));
  if (lines / binLines > kMaxBins) {
    binLines = (lines + kMaxBins - 1) / kMaxBins;
  }
  if (lines / binLines < kMinBins) {
    binLines = std::max(1, lines / kMinBins);
  }
  const int bins = std::min(kMaxBins, lines / binLines);
  const double readout = static_cast<double>(bins) * binLines * in.lineTime;
  if (bins < kMinBins || period120 / binLines < kMinBinsPerRipplePeriod ||
      readout * kRippleHz[0] < kMinReadoutPeriods) {
    return false;
  }
  harmonicsOk_ = period120 / binLines >= 2.0 * kMinBinsPerRipplePeriod &&
                 readout * kRippleHz[0] >= kMinHarmonicReadoutPeriods;
  singleHarmonicOk_ = period120 / binLines >= 2.0 * kMinBinsPerRipplePeriod;
  if (bins != bins_ || binLines != binLines_ || in.lineTime != lineTime_) {
    bins_ = bins;
    binLines_ = binLines;
    lineTime_ = in.lineTime;
    basisValid_ = false;
  }
  return true;
}

void RippleAnalyzer::buildBasis() {
  for (int b = 0; b < bins_; ++b) {
    const double x = 2.0 * (b + 0.5) / bins_ - 1.0;
    double* row = basis_[b];
    // Legendre polynomials keep the trend columns well conditioned.
    row[0] = 1.0;
    row[1] = x;
    row[2] = 0.5 * (3.0 * x * x - 1.0);
    row[3] = 0.5 * (5.0 * x * x * x - 3.0 * x);
    const double t = (b * binLines_ + 0.5 * (binLines_ - 1)) * lineTime_;
    for (int f = 0; f < kRipples; ++f) {
      const double phase = 2.0 * kPi * kRippleHz[f] * t;
      row[kMaxTrendTerms + 2 * f] = std::cos(phase);
      row[kMaxTrendTerms + 1 + 2 * f] = std::sin(phase);
      row[kMaxTrendTerms + 2 * kRipples + 2 * f] = std::cos(2.0 * phase);
      row[kMaxTrendTerms + 2 * kRipples + 1 + 2 * f] = std::sin(2.0 * phase);
    }
  }
  for (int i = 0; i < kFitParams; ++i) {
    for (int j = 0; j < kFitParams; ++j) {
      gram_[i][j] = 0.0;
    }
  }
  for (int b = 0; b < bins_; ++b) {
    for (int i = 0; i < kFitParams; ++i) {
      for (int j = 0; j <= i; ++j) {
        gram_[i][j] += basis_[b][i] * basis_[b][j];
      }
    }
  }
  for (int k = 0; k < kModels; ++k) {
    fullBuilt_[k] = false;
  }
  basisValid_ = true;
}

int RippleAnalyzer::modelKey(bool cubicTrend, unsigned componentMask) {
  return (cubicTrend ? kCubicTrendKey : 0) | static_cast<int>(componentMask & (kCubicTrendKey - 1));
}

bool RippleAnalyzer::fullFactor(int key) {
  if (!fullBuilt_[key]) {
    Matrix g;
    for (int i = 0; i < kFitParams; ++i) {
      for (int j = 0; j < kFitParams; ++j) {
        g[i][j] = gram_[i][j];
      }
    }
    maskUnused(g, key);
    Matrix chol;
    fullOk_[key] = cholesky(g, chol);
    if (fullOk_[key]) {
      // The inverse itself: a window without masked bins then solves with one
      // product instead of two triangular solves and their divisions.
      for (int j = 0; j < kFitParams; ++j) {
        double e[kFitParams] = {};
        double column[kFitParams];
        e[j] = 1.0;
        cholSolve(chol, e, column);
        for (int i = 0; i < kFitParams; ++i) {
          fullInverse_[key][i][j] = column[i];
        }
      }
      for (int j = 0; j < kRippleCols; ++j) {
        fullVar_[key][j] = fullInverse_[key][kMaxTrendTerms + j][kMaxTrendTerms + j];
      }
    }
    fullBuilt_[key] = true;
  }
  return fullOk_[key];
}

void RippleAnalyzer::chooseModels(PairEvidence* out) {
  frameModel_ = modelKey(true, kFundamentals);
  diffModel_ = modelKey(false, kFundamentals);
  altModels_ = 0;
  for (int f = 0; f < kRipples; ++f) {
    out->cancelled[f] = out->exposureGain[f] < kCancelledGain;
  }
  if (harmonicsOk_) {
    const int both = modelKey(false, kFundamentals | (kFundamentals << kRipples));
    diffModel_ = fullFactor(both) ? both : diffModel_;
    return;
  }
  if (!singleHarmonicOk_) {
    return;
  }
  // Over a short readout both harmonics and both fundamentals are too many
  // columns, but one harmonic with both fundamentals is not. Each ripple's
  // harmonic is a candidate unless the exposure cancels that ripple (and so
  // all its harmonics). Both fundamentals stay in every fit: a cancelled
  // ripple's column is the probe for texture and motion that would otherwise
  // pass for the other.
  for (int f = 0; f < kRipples; ++f) {
    const int alt = modelKey(false, kFundamentals | (1u << (kRipples + f)));
    if (!out->cancelled[f] && fullFactor(alt)) {
      altModel_[altModels_++] = alt;
    }
  }
}

namespace {

// Sums `lines` rows of W windows. An entry is in range when floorSum < v <
// clipSum, tested as one unsigned comparison; entries at or over the clip (and
// negative ones, which wrap to huge values) are counted as well. The sums wrap
// harmlessly in unsigned arithmetic: a bin with such an entry is not used.
// Sums `lines` rows of windows [first, first + G) of rows `stride` entries
// long, into local accumulators: the statistics (int64_t) may alias the
// caller's sums (uint64_t), and six windows' sums and counts would not fit
// the registers at once.
template <int G>
void sumGroup(const int64_t* row, int lines, int stride, int first, uint64_t floorSum,
              uint64_t span, uint64_t clipSum, uint64_t* acc, int* bad, int* high) {
  uint64_t a[G] = {}, b[G] = {}, h[G] = {};
  row += first;
  for (int l = 0; l < lines; ++l, row += stride) {
    for (int w = 0; w < G; ++w) {
      const uint64_t v = static_cast<uint64_t>(row[w]);
      b[w] += (v - floorSum - 1) >= span ? 1 : 0;
      h[w] += v >= clipSum ? 1 : 0;  // negative entries wrap to huge values
      a[w] += v;
    }
  }
  for (int w = 0; w < G; ++w) {
    acc[first + w] += a[w];
    bad[first + w] += static_cast<int>(b[w]);
    high[first + w] += static_cast<int>(h[w]);
  }
}

void sumRows(const int64_t* row, int lines, int windows, uint64_t floorSum, uint64_t span,
             uint64_t clipSum, uint64_t* acc, int* bad, int* high) {
  int w = 0;
  for (; w + 3 <= windows; w += 3) {
    sumGroup<3>(row, lines, windows, w, floorSum, span, clipSum, acc, bad, high);
  }
  for (; w < windows; ++w) {
    sumGroup<1>(row, lines, windows, w, floorSum, span, clipSum, acc, bad, high);
  }
}

}  // namespace

void RippleAnalyzer::binFrame(const PairInput& in, const AlgoKnobs& knobs, int frame) {
  const int windows = in.windows;
  // Entries are sums of winWidth pixels: compare against summed levels.
  const int64_t floorSum =
      std::max<int64_t>(0, static_cast<int64_t>(knobs.noiseFloor * in.winWidth));
  const int64_t clipSum = static_cast<int64_t>(knobs.clipFraction * knobs.fullScale * in.winWidth);
  // In range: floorSum < v < clipSum, i.e. v - floorSum - 1 in [0, span).
  const uint64_t span = clipSum > floorSum + 1 ? static_cast<uint64_t>(clipSum - floorSum - 1) : 0;
  const uint64_t clipTest = static_cast<uint64_t>(std::max<int64_t>(clipSum, 1));
  const int64_t* data = in.frame[frame];
  const double logLines = std::log(static_cast<double>(binLines_));
  // One pass over the lines serves the bins and the period test's sub-bins:
  // running sums, read at either grid's boundaries, give both by differences
  // (exact in unsigned arithmetic, even where they wrap).
  const int binEnd = bins_ * binLines_;
  const int subEnd = subBins_ * subLines_;
  const int end = std::max(binEnd, subEnd);
  uint64_t run[kMaxWindows] = {}, binMark[kMaxWindows] = {}, subMark[kMaxWindows] = {};
  int runBad[kMaxWindows] = {}, binMarkBad[kMaxWindows] = {}, subMarkBad[kMaxWindows] = {};
  int runHigh[kMaxWindows] = {}, binMarkHigh[kMaxWindows] = {}, subMarkHigh[kMaxWindows] = {};
  int nextBin = binEnd > 0 ? binLines_ : end + 1;
  int nextSub = subEnd > 0 ? subLines_ : end + 1;
  for (int line = 0; line < end;) {
    const int next = std::min(nextBin, nextSub);
    const int64_t* row = data + static_cast<size_t>(line) * windows;
    sumRows(row, next - line, windows, floorSum, span, clipTest, run, runBad, runHigh);
    if (next == nextBin) {
      storeBin(frame, next / binLines_ - 1, windows, logLines, clipTest, run, runBad, runHigh,
               binMark, binMarkBad, binMarkHigh);
      nextBin = next + binLines_ <= binEnd ? next + binLines_ : end + 1;
    }
    if (next == nextSub) {
      const int k = next / subLines_ - 1;
      for (int w = 0; w < windows; ++w) {
        const int bad = runBad[w] - subMarkBad[w];
        const int high = runHigh[w] - subMarkHigh[w];
        subSum_[frame][w][k] = static_cast<double>(run[w] - subMark[w]);
        subLevel_[frame][w][k] =
            static_cast<uint8_t>((high != 0 ? kClipped : 0) | (bad > high ? kDark : 0));
        subMark[w] = run[w];
        subMarkBad[w] = runBad[w];
        subMarkHigh[w] = runHigh[w];
      }
      nextSub = next + subLines_ <= subEnd ? next + subLines_ : end + 1;
    }
    line = next;
  }
}

void RippleAnalyzer::storeBin(int frame, int b, int windows, double logLines, uint64_t clipTest,
                              const uint64_t* run, const int* runBad, const int* runHigh,
                              uint64_t* mark, int* markBad, int* markHigh) {
  for (int w = 0; w < windows; ++w) {
    const uint64_t acc = run[w] - mark[w];
    const int bad = runBad[w] - markBad[w];
    const int high = runHigh[w] - markHigh[w];
    ok_[frame][w][b] = bad != 0 ? 0 : 1;
    profile_[frame][w][b] = bad != 0 ? 0.0 : std::log(static_cast<double>(acc)) - logLines;
    // For the difference a bin with clipped (or broken, negative) entries
    // reads as saturated; dark entries keep their sum.
    sum_[frame][w][b] =
        high != 0 ? static_cast<double>(clipTest) * binLines_ : static_cast<double>(acc);
    level_[frame][w][b] =
        static_cast<uint8_t>((high != 0 ? kClipped : 0) | (bad > high ? kDark : 0));
    mark[w] = run[w];
    markBad[w] = runBad[w];
    markHigh[w] = runHigh[w];
  }
}

bool RippleAnalyzer::planSubBins(const PairInput& in, int searchRange) {
  const int lines = searchRange > 0 && searchRange < in.lines ? searchRange : in.lines;
  const double period120 = 1.0 / (kRippleHz[1] * in.lineTime);  // lines
  int subLines = std::max(1, static_cast<int>(period120 / kSubBinsPerPeriod));
  if (lines / subLines > kMaxSubBins) {
    subLines = (lines + kMaxSubBins - 1) / kMaxSubBins;
  }
  subLines_ = subLines;
  subBins_ = std::min(kMaxSubBins, lines / subLines);
  for (int f = 0; f < kRipples; ++f) {
    periodSub_[f] = static_cast<int>(std::lround(1.0 / (kRippleHz[f] * in.lineTime * subLines)));
  }
  if (periodSub_[0] < kCombSubBins || periodSub_[0] + kMinPeriodSamples * kCombSubBins > subBins_) {
    subBins_ = 0;  // too short a readout to compare a 100 Hz period on
  }
  return subBins_ > 0;
}

bool RippleAnalyzer::isDeep(int windows) const {
  double spread[kMaxWindows];
  for (int w = 0; w < windows; ++w) {
    int n = 0;
    double sum = 0.0, sum2 = 0.0;
    for (int b = 0; b < bins_; ++b) {
      if (ok_[kDiff][w][b] != 0) {
        const double d = profile_[kDiff][w][b];
        ++n;
        sum += d;
        sum2 += d * d;
      }
    }
    const double mean = n > 0 ? sum / n : 0.0;
    spread[w] = n > 1 ? std::sqrt(std::max(0.0, sum2 / n - mean * mean)) : 0.0;
  }
  return median(spread, windows) >= kDeepSpread;
}

int RippleAnalyzer::periodicRipple(const PairEvidence& e, int windows) {
  const int minWindows = std::max(1, (windows + 1) / 2);
  bool usable[kRipples];
  double spread = 0.0;
  for (int f = 0; f < kRipples; ++f) {
    usable[f] = e.periodWindows[f] >= minWindows;
    spread = usable[f] ? std::max(spread, e.periodSpread[f]) : spread;
  }
  if (spread < kPeriodSpread) {
    return -1;
  }
  for (int f = 0; f < kRipples; ++f) {
    const int other = 1 - f;
    const bool otherFails = !usable[other] || (e.periodicity[other] <= kAperiodic &&
                                               e.periodSpread[other] >= kDeepSpread);
    if (usable[f] && e.periodicity[f] >= kPeriodic && otherFails) {
      return f;
    }
  }
  return -1;
}

void RippleAnalyzer::testPeriods(int windows, PairEvidence* out) const {
  out->periodTested = true;
  for (int f = 0; f < kRipples; ++f) {
    double ccc[kMaxWindows];
    double spread[kMaxWindows];
    int n = 0;
    for (int w = 0; w < windows; ++w) {
      // d at a compared bin from its sub-bins; false when the bin says nothing.
      const auto diffAt = [&](int k, double* d) {
        double a = 0.0, c = 0.0;
        int la = 0, lc = 0;
        for (int i = k; i < k + kCombSubBins; ++i) {
          a += subSum_[0][w][i];
          c += subSum_[1][w][i];
          la |= subLevel_[0][w][i];
          lc |= subLevel_[1][w][i];
        }
        if (((la | lc) & kClipped) != 0 || (la & lc & kDark) != 0 || !(a + c > 0.0)) {
          return false;
        }
        *d = 2.0 * (c - a) / (c + a);
        return true;
      };
      int m = 0;
      double sx = 0.0, sy = 0.0, sxx = 0.0, syy = 0.0, sxy = 0.0;
      for (int k = 0; k + periodSub_[f] + kCombSubBins <= subBins_; k += kCombSubBins) {
        double x, y;
        if (!diffAt(k, &x) || !diffAt(k + periodSub_[f], &y)) {
          continue;
        }
        ++m;
        sx += x;
        sy += y;
        sxx += x * x;
        syy += y * y;
        sxy += x * y;
      }
      if (m < kMinPeriodSamples) {
        continue;
      }
      const double mx = sx / m, my = sy / m;
      const double vx = std::max(0.0, sxx / m - mx * mx);
      const double vy = std::max(0.0, syy / m - my * my);
      const double cov = sxy / m - mx * my;
      const double denom = vx + vy + (mx - my) * (mx - my);
      ccc[n] = denom > 0.0 ? 2.0 * cov / denom : 0.0;
      spread[n] = std::sqrt(0.5 * (vx + vy));
      ++n;
    }
    out->periodWindows[f] = n;
    out->periodicity[f] = n > 0 ? median(ccc, n) : 0.0;
    out->periodSpread[f] = n > 0 ? median(spread, n) : 0.0;
  }
}

void RippleAnalyzer::buildDifference(int windows) {
  // 2 (b - a) / (b + a) = 2 tanh(log(b / a) / 2): the log difference for
  // shallow ripples (the scene still cancels), but bounded where a lamp's dark
  // phase leaves one frame's bin near zero or its peak clips the other. Deep
  // modulation (rectified LEDs with short exposures) then keeps its dark and
  // clipped bins and reads as a flattened wave with the lamp's fundamental,
  // instead of a few masked fragments. A bin dark in both frames, or clipped
  // in both, says nothing.
  for (int w = 0; w < windows; ++w) {
    for (int b = 0; b < bins_; ++b) {
      const double a = sum_[0][w][b];
      const double c = sum_[1][w][b];
      const int both = level_[0][w][b] & level_[1][w][b];
      const bool ok = a + c > 0.0 && both == 0;
      ok_[kDiff][w][b] = ok ? 1 : 0;
      profile_[kDiff][w][b] = ok ? 2.0 * (c - a) / (c + a) : 0.0;
    }
  }
}

bool RippleAnalyzer::solveWindow(const double* y, const uint8_t* ok, int key, Solution* sol) {
  int n = 0;
  double mean = 0.0;
  for (int b = 0; b < bins_; ++b) {
    n += ok[b];
    mean += ok[b] != 0 ? y[b] : 0.0;
  }
  const int params = modelParams(key);
  if (n < params + kMinDof) {
    return false;
  }
  mean /= n;

  const double(*chol)[kFitParams] = nullptr;
  sol->var = fullVar_[key];
  if (n != bins_ || !fullFactor(key)) {
    Matrix g = {};
    for (int b = 0; b < bins_; ++b) {
      if (ok[b] == 0) {
        continue;
      }
      for (int i = 0; i < kFitParams; ++i) {
        for (int j = 0; j <= i; ++j) {
          g[i][j] += basis_[b][i] * basis_[b][j];
        }
      }
    }
    maskUnused(g, key);
    if (!cholesky(g, sol->ownChol)) {
      return false;
    }
    rippleVariances(sol->ownChol, sol->ownVar);
    chol = sol->ownChol;
    sol->var = sol->ownVar;
  }

  double rhs[kFitParams] = {};
  double yy = 0.0;
  for (int b = 0; b < bins_; ++b) {
    if (ok[b] == 0) {
      continue;
    }
    const double v = y[b] - mean;
    yy += v * v;
    for (int j = 0; j < kFitParams; ++j) {
      rhs[j] += basis_[b][j] * v;
    }
  }
  for (int j = 0; j < kFitParams; ++j) {
    rhs[j] = columnUsed(key, j) ? rhs[j] : 0.0;
  }
  if (chol != nullptr) {
    cholSolve(chol, rhs, sol->beta);
  } else {
    for (int i = 0; i < kFitParams; ++i) {
      double v = 0.0;
      for (int j = 0; j < kFitParams; ++j) {
        v += fullInverse_[key][i][j] * rhs[j];
      }
      sol->beta[i] = v;
    }
  }
  double explained = 0.0;
  for (int j = 0; j < kFitParams; ++j) {
    explained += sol->beta[j] * rhs[j];
  }
  sol->mean = mean;
  sol->rss = std::max(0.0, yy - explained);
  sol->dof = n - params;
  return true;
}

bool RippleAnalyzer::fitWindow(const double* y, const uint8_t* ok, int key, WindowFit* fit) {
  fit->valid = false;
  Solution sol;
  if (!solveWindow(y, ok, key, &sol)) {
    return false;
  }
  const double sigma2 = sol.rss / sol.dof;
  fit->sigma = std::sqrt(sigma2);
  for (int c = 0; c < kComponents; ++c) {
    fit->re[c] = sol.beta[kMaxTrendTerms + 2 * c];
    fit->im[c] = sol.beta[kMaxTrendTerms + 1 + 2 * c];
    fit->se[c] = std::sqrt(sigma2 * 0.5 * (sol.var[2 * c] + sol.var[2 * c + 1]));
  }
  fit->valid = true;
  return true;
}

double RippleAnalyzer::residualAt(const double* y, const Solution& sol, int b) const {
  double fitted = sol.mean;
  for (int j = 0; j < kFitParams; ++j) {
    fitted += basis_[b][j] * sol.beta[j];
  }
  return y[b] - fitted;
}

bool RippleAnalyzer::buildGradient(int w) {
  // A shift of s lines moves each bin's borders: the bin gains s times the
  // line level at its end and loses it at its start. The levels at the
  // borders come from the sub-bins (a few lines each), interpolated between
  // their centres, since texture finer than a bin makes the bins' own
  // differences a poor derivative.
  const auto levelAt = [&](int line, bool* fine) {
    const double x = (line - 0.5 * subLines_) / subLines_;
    int j0 = static_cast<int>(std::floor(x));
    double frac = x - j0;
    if (j0 < 0) {
      j0 = 0;
      frac = 0.0;
    }
    if (j0 >= subBins_ - 1) {
      j0 = subBins_ - 1;
      frac = 0.0;
    }
    const int j1 = std::min(j0 + 1, subBins_ - 1);
    const int flags =
        subLevel_[0][w][j0] | subLevel_[1][w][j0] | subLevel_[0][w][j1] | subLevel_[1][w][j1];
    *fine = *fine && flags == 0;
    const double v0 = subSum_[0][w][j0] + subSum_[1][w][j0];
    const double v1 = subSum_[0][w][j1] + subSum_[1][w][j1];
    return ((1.0 - frac) * v0 + frac * v1) / subLines_;
  };
  bool fine = true;
  double start = levelAt(0, &fine);
  for (int b = 0; b < bins_; ++b) {
    const double end = levelAt((b + 1) * binLines_, &fine);
    const double bin = sum_[0][w][b] + sum_[1][w][b];
    fine = fine && (level_[0][w][b] | level_[1][w][b]) == 0 && bin > 0.0;
    // The difference 2 (c - a) / (c + a) of a bin changed by s (end - start)
    // per frame.
    grad_[w][b] = fine ? (end - start) / bin : 0.0;
    start = end;
  }
  return fine;
}

void RippleAnalyzer::removeShift(int windows, PairEvidence* out) {
  if (subBins_ == 0) {
    return;
  }
  // One shift for all windows: regress the difference's residual on the
  // gradient's residual, both after the difference's model, pooled over the
  // windows. A ripple's own derivative lies in the model's ripple columns, so
  // it does not bias the estimate.
  double sxx = 0.0, sxy = 0.0, rss = 0.0;
  int dof = 0, count = 0;
  bool used[kMaxWindows] = {};
  for (int w = 0; w < windows; ++w) {
    const double* d = profile_[kDiff][w];
    const uint8_t* ok = ok_[kDiff][w];
    Solution sd, sg;
    if (!buildGradient(w) || !solveWindow(d, ok, diffModel_, &sd) ||
        !solveWindow(grad_[w], ok, diffModel_, &sg)) {
      continue;
    }
    used[w] = true;
    for (int b = 0; b < bins_; ++b) {
      if (ok[b] != 0) {
        // The gradient's residual is orthogonal to the model, the mean
        // included: its product with the difference is the one with the
        // difference's residual.
        const double rg = residualAt(grad_[w], sg, b);
        sxy += rg * d[b];
        sxx += rg * rg;
        ++count;
      }
    }
    rss += sd.rss;
    dof += sd.dof;
  }
  if (!(sxx > 0.0) || !(rss > 0.0) || dof < 2) {
    return;
  }
  const double s = sxy / sxx;
  out->shift = s;
  out->shiftError = std::sqrt(std::max(0.0, rss - s * sxy) / (dof - 1) / sxx);
  // Significant, within the linear range, large enough to matter (in a still
  // scene a tiny shift only fits the ripple's own shape errors), and what the
  // residual is made of (a deep ripple's shape errors also correlate with the
  // gradient, but explain little of the residual).
  const double rms = std::fabs(s) * std::sqrt(sxx / count);
  if (std::fabs(s) < kShiftSignificance * out->shiftError || std::fabs(s) > binLines_ ||
      rms < kMinShiftRms || s * sxy < kMinShiftShare * rss) {
    return;
  }
  out->shiftRemoved = true;
  for (int w = 0; w < windows; ++w) {
    for (int b = 0; used[w] && b < bins_; ++b) {
      profile_[kDiff][w][b] -= ok_[kDiff][w][b] != 0 ? s * grad_[w][b] : 0.0;
    }
  }
}

void RippleAnalyzer::fitSeries(int series, int windows, int key, WindowFit* fits) {
  for (int w = 0; w < windows; ++w) {
    fitWindow(profile_[series][w], ok_[series][w], key, &fits[w]);
  }
}

double RippleAnalyzer::medianSigma(const WindowFit* fits, int windows) {
  double sigma[kMaxWindows];
  int n = 0;
  for (int w = 0; w < windows; ++w) {
    if (fits[w].valid) {
      sigma[n++] = fits[w].sigma;
    }
  }
  return n > 0 ? median(sigma, n) : -1.0;
}

void RippleAnalyzer::fitDifference(int windows, const AlgoKnobs& knobs) {
  fitSeries(kDiff, windows, diffModel_, fits_[kDiff]);
  double best = medianSigma(fits_[kDiff], windows);
  for (int i = 0; i < altModels_; ++i) {
    const int key = altModel_[i];
    fitSeries(kDiff, windows, key, altFits_);
    // A harmonic is kept when it explains enough of the residual and the
    // windows agree on it as on a ripple: motion also lowers the residual of
    // a larger model, but not coherently.
    const int harmonic = (key & (1 << kRipples)) != 0 ? kRipples : kRipples + 1;
    const RippleSummary h = combine(altFits_, harmonic, windows, 1.0, knobs);
    const double sigma = medianSigma(altFits_, windows);
    if (h.evidence >= kHarmonicEvidence && sigma >= 0.0 && sigma < kHarmonicResidualShare * best) {
      std::copy(altFits_, altFits_ + windows, fits_[kDiff]);
      best = sigma;
    }
  }
}

RippleSummary RippleAnalyzer::combine(const WindowFit* fits, int component, int windows,
                                      double amplitudeScale, const AlgoKnobs& knobs) const {
  RippleSummary s{};
  double re[kMaxWindows], im[kMaxWindows], se[kMaxWindows], dist[kMaxWindows];
  int n = 0;
  for (int w = 0; w < windows; ++w) {
    const WindowFit& f = fits[w];
    if (f.valid) {
      re[n] = f.re[component];
      im[n] = f.im[component];
      se[n] = f.se[component];
      ++n;
    }
  }
  s.windows = n;
  const int minWindows = std::max(1, (windows + 1) / 2);
  if (n < minWindows) {
    return s;
  }
  const double cre = median(re, n);
  const double cim = median(im, n);
  const double a = std::hypot(cre, cim);
  int agree = 0;
  for (int i = 0; i < n; ++i) {
    dist[i] = std::hypot(re[i] - cre, im[i] - cim);
    agree += dist[i] <= kAgreeRadius * a ? 1 : 0;
  }
  const double seCombined =
      kMedianEfficiency * std::max(median(se, n), median(dist, n)) / std::sqrt(n);
  s.amplitude = a * amplitudeScale;
  s.phasor = a;
  s.snr = a / std::max(seCombined, 1e-12);
  s.agreement = a > 0.0 ? static_cast<double>(agree) / n : 0.0;
  s.evidence = ramp(s.agreement, kAgreeLow, kAgreeHigh) *
               ramp(s.snr, knobs.snrThreshold, 2.0 * knobs.snrThreshold) *
               ramp(s.amplitude, knobs.minAmplitude, 2.0 * knobs.minAmplitude);
  return s;
}

void RippleAnalyzer::summariseTemporal(const PairInput& in, const AlgoKnobs& knobs,
                                       PairEvidence* out) {
  double sigma[kMaxWindows];
  int n = 0;
  for (int w = 0; w < in.windows; ++w) {
    if (fits_[kDiff][w].valid) {
      sigma[n++] = fits_[kDiff][w].sigma;
    }
  }
  double strongest = 0.0;
  for (int f = 0; f < kRipples; ++f) {
    const double v = std::fabs(std::sin(kPi * kRippleHz[f] * in.interval));
    out->visibility[f] = v;
    out->frozen[f] = v < knobs.minVisibility;
    // The difference holds the frame ripple times 2 v.
    out->temporal[f] = combine(fits_[kDiff], f, in.windows, out->frozen[f] ? 0.0 : 0.5 / v, knobs);
    out->temporalAmplitude[f] = out->temporal[f].amplitude;
    strongest = std::max(strongest, out->temporal[f].amplitude * 2.0 * v);
  }
  // A strong ripple leaves harmonics (the log is not linear) that the fit does
  // not model; they are allowed for before the residual counts as motion.
  out->differenceFitted = n >= std::max(1, (in.windows + 1) / 2);
  out->sceneResidual =
      n > 0 ? std::max(0.0, median(sigma, n) - kHarmonicAllowance * strongest) : 1.0;
  // Without enough fitted windows the residual says nothing about motion.
  out->sceneChange = out->differenceFitted && out->sceneResidual >= kResidualHigh;
  const double stillness = 1.0 - ramp(out->sceneResidual, kResidualLow, kResidualHigh);
  for (int f = 0; f < kRipples; ++f) {
    out->temporalEvidence[f] = out->frozen[f] ? 0.0 : out->temporal[f].evidence * stillness;
  }
}

void RippleAnalyzer::summariseSpatial(const PairInput& in, const AlgoKnobs& knobs,
                                      PairEvidence* out) {
  for (int f = 0; f < kRipples; ++f) {
    for (int k = 0; k < 2; ++k) {
      out->spatial[k][f] = combine(fits_[k], f, in.windows, 1.0, knobs);
    }
    const double a0 = out->spatial[0][f].amplitude;
    const double a1 = out->spatial[1][f].amplitude;
    const double hi = std::max(a0, a1);
    const double consistency = hi > 0.0 ? std::min(a0, a1) / hi : 0.0;
    out->spatialAmplitude[f] = std::min(a0, a1);
    double standIn = hi;
    for (int k = 0; k < 2; ++k) {
      const RippleSummary& r = out->spatial[k][f];
      const double se = r.snr > 0.0 ? r.amplitude / r.snr : 0.0;
      standIn = std::min(standIn, std::max(0.0, r.amplitude - kStandInErrors * se));
    }
    out->frozenStandIn[f] = standIn;
    out->spatialEvidence[f] = std::min(out->spatial[0][f].evidence, out->spatial[1][f].evidence) *
                              ramp(consistency, kConsistencyLow, kConsistencyHigh);
  }
}

bool RippleAnalyzer::analyse(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out) {
  *out = PairEvidence{};
  for (int f = 0; f < kRipples; ++f) {
    out->exposureGain[f] = sincAbs(kRippleHz[f] * in.exposure);
  }
  if (!planBins(in, knobs.searchRange)) {
    return false;
  }
  if (!basisValid_) {
    buildBasis();
  }
  if (!fullFactor(modelKey(true, kFundamentals)) || !fullFactor(modelKey(false, kFundamentals))) {
    return false;  // the two ripples cannot be told apart over this readout
  }
  chooseModels(out);
  out->bins = bins_;
  out->binLines = binLines_;
  const bool periodsFit = planSubBins(in, knobs.searchRange);
  binFrame(in, knobs, 0);
  binFrame(in, knobs, 1);
  buildDifference(in.windows);
  fitSeries(0, in.windows, frameModel_, fits_[0]);
  fitSeries(1, in.windows, frameModel_, fits_[1]);
  removeShift(in.windows, out);
  fitDifference(in.windows, knobs);
  summariseTemporal(in, knobs, out);
  summariseSpatial(in, knobs, out);
  out->periodRipple = -1;
  if (periodsFit && isDeep(in.windows)) {
    testPeriods(in.windows, out);
    const int f = periodicRipple(*out, in.windows);
    out->periodRipple = f;
    if (f >= 0) {
      // The ripple's period explains the difference, whatever its shape: not
      // motion, and not the other ripple.
      out->sceneChange = false;
      out->temporalEvidence[f] = 1.0;
      out->temporalEvidence[1 - f] = 0.0;
    }
  }
  out->analysable = true;
  return true;
}

}  // namespace open_algo
