#include "shift_estimator.h"

#include <algorithm>
#include <cmath>

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

}  // namespace

bool ShiftEstimator::buildGradient(const LineBinner& binner, int w, int from, int to) {
  const int subBins = binner.subBins();
  const int subLines = binner.subLines();
  const int binLines = binner.binLines();
  constexpr uint8_t kOutside = LineBinner::kOutside;
  // The level at a line from the sub-bins around it; a sub-bin beyond a
  // frame binned with an offset gives way to its neighbour (*beyond when
  // neither holds the line).
  const auto levelAt = [&](int line, bool* fine, bool* beyond) {
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
    int j1 = std::min(j0 + 1, subBins - 1);
    const auto flags = [&](int j) {
      return binner.subLevel(from, w, j) | binner.subLevel(to, w, j);
    };
    if ((flags(j0) & kOutside) != 0) {
      j0 = j1;
      frac = 0.0;
    } else if ((flags(j1) & kOutside) != 0) {
      j1 = j0;
    }
    const int both = flags(j0) | flags(j1);
    *beyond = *beyond || (both & kOutside) != 0;
    *fine = *fine && (both & ~kOutside) == 0;
    const double v0 = binner.subSum(from, w, j0) + binner.subSum(to, w, j0);
    const double v1 = binner.subSum(from, w, j1) + binner.subSum(to, w, j1);
    return ((1.0 - frac) * v0 + frac * v1) / subLines;
  };
  bool fine = true;
  bool beyondStart = false;
  double start = levelAt(0, &fine, &beyondStart);
  for (int b = 0; b < binner.bins(); ++b) {
    bool beyondEnd = false;
    const double end = levelAt((b + 1) * binLines, &fine, &beyondEnd);
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
  if (binner.subBins() == 0) {
    return out;
  }
  const int bins = binner.bins();
  double sxx = 0.0, sxy = 0.0, rss = 0.0;
  int dof = 0, count = 0, usedWindows = 0;
  bool used[kMaxWindows] = {};
  // Per ripple, what one line of shift puts into each window's ripple column.
  double gradRe[kRipples][kMaxWindows], gradIm[kRipples][kMaxWindows];
  // ... and what each window's ripple column holds before any removal.
  double diffRe[kRipples][kMaxWindows], diffIm[kRipples][kMaxWindows];
  for (int w = 0; w < windows; ++w) {
    const double* d = binner.profile(series, w);
    const uint8_t* ok = binner.kept(series, w);
    RippleLeastSquares::Solution sd, sg;
    if (!buildGradient(binner, w, from, to) || !fitter.solve(d, ok, model, &sd) ||
        !fitter.solve(grad_[w], ok, model, &sg)) {
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
  const int n = binner.subBins();
  double energy = 0.0;
  for (int w = 0; w < windows; ++w) {
    double* e = edges_[slot][w];
    double* sq = edgeSquares_[slot][w];
    double total = 0.0;
    int kept = 0;
    for (int j = 0; j < n; ++j) {
      if (binner.subLevel(frame, w, j) == 0) {
        total += binner.subSum(frame, w, j);
        ++kept;
      }
    }
    const double scale = total > 0.0 ? kept / total : 0.0;
    e[0] = 0.0;
    e[n - 1] = 0.0;
    for (int j = 1; j + 1 < n; ++j) {
      const bool ok = (binner.subLevel(frame, w, j - 1) | binner.subLevel(frame, w, j) |
                       binner.subLevel(frame, w, j + 1)) == 0;
      e[j] = ok ? scale * (binner.subSum(frame, w, j + 1) - 2.0 * binner.subSum(frame, w, j) +
                           binner.subSum(frame, w, j - 1))
                : 0.0;
    }
    // Running sums of squares give each lag's overlap its energy at once.
    sq[0] = 0.0;
    for (int j = 0; j < n; ++j) {
      sq[j + 1] = sq[j] + e[j] * e[j];
    }
    energy += sq[n];
  }
  return energy;
}

double ShiftEstimator::edgeMatch(int windows, int n, int k) const {
  // Edges of frame `from` at j against those of frame `to` at j + k, over
  // the sub-bins both hold; four partial sums keep the loop free of one
  // long chain.
  const int j0 = std::max(0, -k);
  const int j1 = std::min(n, n - k);
  double xy = 0.0, xx = 0.0, yy = 0.0;
  for (int w = 0; w < windows; ++w) {
    // Both pointers start at the overlap so neither points before its array.
    const double* x = edges_[0][w] + j0;
    const double* y = edges_[1][w] + (j0 + k);
    const int count = j1 - j0;
    double p[4] = {};
    int j = 0;
    for (; j + 4 <= count; j += 4) {
      p[0] += x[j] * y[j];
      p[1] += x[j + 1] * y[j + 1];
      p[2] += x[j + 2] * y[j + 2];
      p[3] += x[j + 3] * y[j + 3];
    }
    for (; j < count; ++j) {
      p[0] += x[j] * y[j];
    }
    xy += (p[0] + p[1]) + (p[2] + p[3]);
    xx += edgeSquares_[0][w][j1] - edgeSquares_[0][w][j0];
    yy += edgeSquares_[1][w][j1 + k] - edgeSquares_[1][w][j0 + k];
  }
  return xx > 0.0 && yy > 0.0 ? xy / std::sqrt(xx * yy) : 0.0;
}

bool ShiftEstimator::matchEdges(const LineBinner& binner, int windows, int from, int to, int center,
                                int reach, int* lines) {
  *lines = 0;
  const int n = binner.subBins();
  if (n < 3 || !(buildEdges(binner, windows, from, 0) > 0.0) ||
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
  int best = lo + 1;
  for (int k = lo; k <= hi; ++k) {
    score[k - lo] = edgeMatch(windows, n, k);
    if (k > lo && k < hi && score[k - lo] > score[best - lo]) {
      best = k;
    }
  }
  const double peak = score[best - lo];
  const double still = lo <= 0 && 0 <= hi ? score[-lo] : edgeMatch(windows, n, 0);
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
