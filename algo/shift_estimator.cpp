#include "shift_estimator.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "window_combiner.h"

namespace open_algo {
namespace {

// A vertical scene shift is removed from the difference when it is this many
// standard errors from zero, changes the difference by at least this rms (a
// quarter of the default amplitude floor), and explains at least this share
// of the difference's residual.
constexpr double kShiftSignificance = 3.0;
constexpr double kMinShiftRms = 0.001;
constexpr double kMinShiftShare = 0.5;
// The shift's uncertainty counts as this many standard errors of it, and a
// removed shift leaves this share of itself: the gradient is the profile's
// slope, and texture finer than a few shifts bends it.
constexpr double kLeakErrors = 2.0;
constexpr double kRemovedShare = 0.25;
// Two frames' edges match at a lag when their correlation there reaches this,
// and clearly better than without a shift (by this much).
constexpr double kMinEdgeMatch = 0.4;
constexpr double kEdgeMatchMargin = 0.2;

// The edges of one frame's W windows (see buildEdges), the windows side by
// side: every window's sums run in the order of its sub-bins as one chain of
// additions, and W independent chains overlap where one would wait.
template <int W>
double edgesOf(const LineBinner& binner, int frame, int n, double (*edges)[LineBinner::kMaxSubBins],
               double (*squares)[LineBinner::kMaxSubBins + 1]) {
  const double* sums[W];
  const uint8_t* levels[W];
  double total[W] = {};
  int kept[W] = {};
  for (int w = 0; w < W; ++w) {
    sums[w] = binner.subSums(frame, w);
    levels[w] = binner.subLevels(frame, w);
  }
  for (int j = 0; j < n; ++j) {
    for (int w = 0; w < W; ++w) {
      // Sums are never negative: adding zero for a flagged sub-bin leaves
      // the total as it was.
      const bool ok = levels[w][j] == 0;
      total[w] += ok ? sums[w][j] : 0.0;
      kept[w] += ok ? 1 : 0;
    }
  }
  for (int w = 0; w < W; ++w) {
    const double scale = total[w] > 0.0 ? kept[w] / total[w] : 0.0;
    const double* s = sums[w];
    const uint8_t* level = levels[w];
    double* e = edges[w];
    e[0] = 0.0;
    e[n - 1] = 0.0;
    for (int j = 1; j + 1 < n; ++j) {
      // Without a branch: a flagged neighbourhood clears the edge's bits.
      const uint64_t keep = (level[j - 1] | level[j] | level[j + 1]) == 0 ? ~uint64_t{0} : 0;
      const double edge = scale * (s[j + 1] - 2.0 * s[j] + s[j - 1]);
      uint64_t bits;
      std::memcpy(&bits, &edge, sizeof bits);
      bits &= keep;
      std::memcpy(&e[j], &bits, sizeof bits);
    }
  }
  // Running sums of squares give each lag's overlap its energy at once.
  double run[W] = {};
  for (int w = 0; w < W; ++w) {
    squares[w][0] = 0.0;
  }
  for (int j = 0; j < n; ++j) {
    for (int w = 0; w < W; ++w) {
      run[w] += edges[w][j] * edges[w][j];
      squares[w][j + 1] = run[w];
    }
  }
  double energy = 0.0;
  for (int w = 0; w < W; ++w) {
    energy += squares[w][n];
  }
  return energy;
}

// Two doubles side by side, as a vector register holds them (a GCC and clang
// extension): the compilers otherwise vectorise the loops below over j and
// then add the lanes one by one.
using TwoLanes = double __attribute__((vector_size(2 * sizeof(double))));

TwoLanes twoAt(const double* p) {
  TwoLanes v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// For L lags at once, the sums of s[j] o[i + j] over j < count - i (lag i),
// each in four partial sums (j modulo 4: the lanes of low[], then of high[];
// the terms past the last group of four go to the first) added pairwise at
// the end. The lags share the loads of s.
template <int L>
void laggedProducts(const double* s, const double* o, int count, double* out) {
  TwoLanes low[L] = {}, high[L] = {};
  int j = 0;
  for (; j + 4 <= count - (L - 1); j += 4) {
    const TwoLanes s0 = twoAt(s + j);
    const TwoLanes s1 = twoAt(s + j + 2);
    for (int i = 0; i < L; ++i) {
      low[i] += s0 * twoAt(o + i + j);
      high[i] += s1 * twoAt(o + i + j + 2);
    }
  }
  for (int i = 0; i < L; ++i) {
    const int end = count - i;
    int k = j;
    for (; k + 4 <= end; k += 4) {
      low[i] += twoAt(s + k) * twoAt(o + i + k);
      high[i] += twoAt(s + k + 2) * twoAt(o + i + k + 2);
    }
    double p0 = low[i][0];
    for (; k < end; ++k) {
      p0 += s[k] * o[i + k];
    }
    out[i] = (p0 + low[i][1]) + (high[i][0] + high[i][1]);
  }
}

// laggedProducts() for 1 to kLagBlock lags.
constexpr int kLagBlock = 4;
void laggedProducts(int lags, const double* s, const double* o, int count, double* out) {
  using Products = void (*)(const double*, const double*, int, double*);
  static constexpr Products kProducts[kLagBlock] = {laggedProducts<1>, laggedProducts<2>,
                                                    laggedProducts<3>, laggedProducts<4>};
  kProducts[lags - 1](s, o, count, out);
}

}  // namespace

void ShiftEstimator::placeBorders(const LineBinner& binner) {
  // The bin borders lie between the same sub-bins in every window and frame.
  const int subBins = binner.subBins();
  const int subLines = binner.subLines();
  for (int b = 0; b <= binner.bins(); ++b) {
    const int line = b * binner.binLines();
    const double x = (line - 0.5 * subLines) / subLines;
    int j0 = static_cast<int>(std::floor(x));
    double frac = x - j0;
    if (j0 < 0) {
      j0 = 0;
      frac = 0.0;
    }
    if (j0 >= subBins - 1) {
      j0 = subBins - 1;
      frac = 0.0;
    }
    borders_[b] = Border{j0, std::min(j0 + 1, subBins - 1), frac};
  }
}

bool ShiftEstimator::buildGradient(const LineBinner& binner, int w, int from, int to) {
  const int subLines = binner.subLines();
  constexpr uint8_t kOutside = LineBinner::kOutside;
  const double* subFrom = binner.subSums(from, w);
  const double* subTo = binner.subSums(to, w);
  const uint8_t* levelFrom = binner.subLevels(from, w);
  const uint8_t* levelTo = binner.subLevels(to, w);
  // The level at bin border `b` from the sub-bins around it; a sub-bin
  // beyond a frame binned with an offset gives way to its neighbour
  // (*beyond when neither holds the line).
  const auto levelAt = [&](int b, bool* fine, bool* beyond) {
    int j0 = borders_[b].j0;
    int j1 = borders_[b].j1;
    double frac = borders_[b].frac;
    const auto flags = [&](int j) { return levelFrom[j] | levelTo[j]; };
    if ((flags(j0) & kOutside) != 0) {
      j0 = j1;
      frac = 0.0;
    } else if ((flags(j1) & kOutside) != 0) {
      j1 = j0;
    }
    const int both = flags(j0) | flags(j1);
    *beyond = *beyond || (both & kOutside) != 0;
    *fine = *fine && (both & ~kOutside) == 0;
    const double v0 = subFrom[j0] + subTo[j0];
    const double v1 = subFrom[j1] + subTo[j1];
    return ((1.0 - frac) * v0 + frac * v1) / subLines;
  };
  bool fine = true;
  bool beyondStart = false;
  double start = levelAt(0, &fine, &beyondStart);
  for (int b = 0; b < binner.bins(); ++b) {
    bool beyondEnd = false;
    const double end = levelAt(b + 1, &fine, &beyondEnd);
    const int levels = binner.level(from, w, b) | binner.level(to, w, b);
    const double bin = binner.sum(from, w, b) + binner.sum(to, w, b);
    // A bin beyond a frame is masked in the difference and gains nothing.
    const bool beyond = beyondStart || beyondEnd || (levels & kOutside) != 0;
    fine = fine && (beyond || (levels == 0 && bin > 0.0));
    // The difference 2 (c - a) / (c + a) of a bin changed by s (end - start)
    // per frame.
    grad_[w][b] = fine && !beyond ? (end - start) / bin : 0.0;
    start = end;
    beyondStart = beyondEnd;
  }
  return fine;
}

ShiftResult ShiftEstimator::removeShift(LineBinner& binner, RippleLeastSquares& fitter, int model,
                                        int windows, int series, int from, int to) {
  ShiftResult out{};
  std::fill(unshiftedKnown_, unshiftedKnown_ + kMaxWindows, false);
  if (binner.subBins() == 0) {
    return out;
  }
  const int bins = binner.bins();
  double sxx = 0.0, sxy = 0.0, rss = 0.0;
  int dof = 0, count = 0, usedWindows = 0;
  bool used[kMaxWindows] = {};
  placeBorders(binner);
  // Per ripple, what one line of shift puts into each window's ripple column.
  double gradRe[kRipples][kMaxWindows], gradIm[kRipples][kMaxWindows];
  // ... and what each window's ripple column holds before any removal.
  double diffRe[kRipples][kMaxWindows], diffIm[kRipples][kMaxWindows];
  for (int w = 0; w < windows; ++w) {
    const double* d = binner.profile(series, w);
    const uint8_t* ok = binner.kept(series, w);
    RippleLeastSquares::Solution sd, sg;
    if (!buildGradient(binner, w, from, to) || !fitter.solve(d, ok, model, &sd)) {
      continue;
    }
    unshifted_[w].explained = 0.0;
    RippleLeastSquares::describe(sd, &unshifted_[w]);
    unshiftedKnown_[w] = true;
    if (!fitter.solve(grad_[w], ok, model, &sg)) {
      continue;
    }
    used[w] = true;
    for (int f = 0; f < kRipples; ++f) {
      gradRe[f][usedWindows] = sg.beta[kMaxTrendTerms + 2 * f];
      gradIm[f][usedWindows] = sg.beta[kMaxTrendTerms + 2 * f + 1];
      diffRe[f][usedWindows] = sd.beta[kMaxTrendTerms + 2 * f];
      diffIm[f][usedWindows] = sd.beta[kMaxTrendTerms + 2 * f + 1];
    }
    ++usedWindows;
    for (int b = 0; b < bins; ++b) {
      if (ok[b] != 0) {
        // The gradient's residual is orthogonal to the model, the mean
        // included: its product with the difference is the one with the
        // difference's residual.
        const double rg = fitter.residualAt(grad_[w], sg, b);
        sxy += rg * d[b];
        sxx += rg * rg;
        ++count;
      }
    }
    rss += sd.rss;
    dof += sd.dof;
  }
  if (!(sxx > 0.0) || !(rss > 0.0) || dof < 2) {
    return out;
  }
  const double s = sxy / sxx;
  out.shift = s;
  out.error = std::sqrt(std::max(0.0, rss - s * sxy) / (dof - 1) / sxx);
  // Significant, within the linear range, large enough to matter (in a still
  // scene a tiny shift only fits the ripple's own shape errors), and what the
  // residual is made of (a deep ripple's shape errors also correlate with the
  // gradient, but explain little of the residual).
  const double rms = std::fabs(s) * std::sqrt(sxx / count);
  const bool remove = std::fabs(s) >= kShiftSignificance * out.error &&
                      std::fabs(s) <= binner.binLines() && rms >= kMinShiftRms &&
                      s * sxy >= kMinShiftShare * rss;
  // What the shift (once removed, its uncertainty) may have put into each
  // ripple's column, combined over the windows as the difference is. Beyond
  // a bin the estimate leaves its linear range (a textureless scene gives
  // wild ones), and a real shift that large is a scene change.
  const double lines = std::min<double>(
      binner.binLines(), (remove ? kRemovedShare : 1.0) * std::fabs(s) + kLeakErrors * out.error);
  for (int f = 0; f < kRipples; ++f) {
    const double re = WindowCombiner::median(gradRe[f], usedWindows);
    const double im = WindowCombiner::median(gradIm[f], usedWindows);
    out.perLine[f] = std::hypot(re, im);
    out.leak[f] = lines * out.perLine[f];
    if (remove) {
      out.before[f] = std::hypot(WindowCombiner::median(diffRe[f], usedWindows),
                                 WindowCombiner::median(diffIm[f], usedWindows));
    }
  }
  if (!remove) {
    return out;
  }
  out.removed = true;
  for (int w = 0; w < windows; ++w) {
    const uint8_t* ok = binner.kept(series, w);
    double* d = binner.difference(series, w);
    for (int b = 0; used[w] && b < bins; ++b) {
      d[b] -= ok[b] != 0 ? s * grad_[w][b] : 0.0;
    }
  }
  return out;
}

double ShiftEstimator::buildEdges(const LineBinner& binner, int windows, int frame, int slot) {
  static_assert(kMaxWindows == 6, "one edge builder per window count");
  using Builder = double (*)(const LineBinner&, int, int, double(*)[LineBinner::kMaxSubBins],
                             double(*)[LineBinner::kMaxSubBins + 1]);
  static constexpr Builder kBuilders[kMaxWindows] = {edgesOf<1>, edgesOf<2>, edgesOf<3>,
                                                     edgesOf<4>, edgesOf<5>, edgesOf<6>};
  return kBuilders[std::clamp(windows, 1, kMaxWindows) - 1](binner, frame, binner.subBins(),
                                                            edges_[slot], edgeSquares_[slot]);
}

double ShiftEstimator::edgesOfFrom(const LineBinner& binner, int windows, int from) {
  // The reference serves many detections: its edges are built once.
  const bool reference = from == LineBinner::kReference;
  const FromKey key{reference, &binner, binner.referenceStamp(), windows, binner.subBins()};
  if (!(reference && fromKey_.sameAs(key))) {
    fromEnergy_ = buildEdges(binner, windows, from, 0);
    fromKey_ = key;
  }
  return fromEnergy_;
}

void ShiftEstimator::edgeMatches(int windows, int n, int first, int last, double* score) const {
  // Edges of frame `from` at j against those of frame `to` at j + k, over
  // the sub-bins both hold. The overlap of lag k >= 0 starts at the first
  // edge of `from`, that of a lag k < 0 at the first edge of `to`: lags of
  // one sign, taken outwards, share that array and differ in where the
  // other one starts.
  double products[2 * kMaxEdgeReach + 3][kMaxWindows];
  for (int w = 0; w < windows; ++w) {
    for (int k = std::max(first, 0); k <= last; k += kLagBlock) {
      const int lags = std::min(kLagBlock, last - k + 1);
      double out[kLagBlock];
      laggedProducts(lags, edges_[0][w], edges_[1][w] + k, n - k, out);
      for (int i = 0; i < lags; ++i) {
        products[k + i - first][w] = out[i];
      }
    }
    for (int k = std::min(last, -1); k >= first; k -= kLagBlock) {
      const int lags = std::min(kLagBlock, k - first + 1);
      double out[kLagBlock];
      laggedProducts(lags, edges_[1][w], edges_[0][w] - k, n + k, out);
      for (int i = 0; i < lags; ++i) {
        products[k - i - first][w] = out[i];
      }
    }
  }
  for (int k = first; k <= last; ++k) {
    const int j0 = std::max(0, -k);
    const int j1 = std::min(n, n - k);
    double xy = 0.0, xx = 0.0, yy = 0.0;
    for (int w = 0; w < windows; ++w) {
      xy += products[k - first][w];
      xx += edgeSquares_[0][w][j1] - edgeSquares_[0][w][j0];
      yy += edgeSquares_[1][w][j1 + k] - edgeSquares_[1][w][j0 + k];
    }
    score[k - first] = xx > 0.0 && yy > 0.0 ? xy / std::sqrt(xx * yy) : 0.0;
  }
}

bool ShiftEstimator::matchEdges(const LineBinner& binner, int windows, int from, int to, int center,
                                int reach, int* lines) {
  *lines = 0;
  const int n = binner.subBins();
  if (n < 3 || !(edgesOfFrom(binner, windows, from) > 0.0) ||
      !(buildEdges(binner, windows, to, 1) > 0.0)) {
    return false;
  }
  // The overlap must keep most of the frame.
  const int limit = n / 4;
  const int sub = binner.subLines();
  reach = std::clamp(reach, 1, kMaxEdgeReach);
  const int middle =
      std::clamp(static_cast<int>(std::lround(static_cast<double>(center) / sub)), -limit, limit);
  // Every lag of the range with a neighbour on either side.
  const int lo = std::max(-limit, middle - reach) - 1;
  const int hi = std::min(limit, middle + reach) + 1;
  double score[2 * kMaxEdgeReach + 3];
  edgeMatches(windows, n, lo, hi, score);
  int best = lo + 1;
  for (int k = lo + 1; k < hi; ++k) {
    if (score[k - lo] > score[best - lo]) {
      best = k;
    }
  }
  const double peak = score[best - lo];
  double still = 0.0;
  if (lo <= 0 && 0 <= hi) {
    still = score[-lo];
  } else {
    edgeMatches(windows, n, 0, 0, &still);
  }
  if (peak < kMinEdgeMatch || (best != 0 && peak < still + kEdgeMatchMargin)) {
    return false;
  }
  // The peak of a parabola through the best lag and its neighbours.
  const double before = score[best - 1 - lo];
  const double after = score[best + 1 - lo];
  const double curve = before - 2.0 * peak + after;
  const double part = curve < 0.0 ? std::clamp(0.5 * (before - after) / curve, -0.5, 0.5) : 0.0;
  *lines = static_cast<int>(std::lround((best + part) * sub));
  return true;
}

}  // namespace open_algo
