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

}  // namespace

bool ShiftEstimator::buildGradient(const LineBinner& binner, int w, int from, int to) {
  const int subBins = binner.subBins();
  const int subLines = binner.subLines();
  const int binLines = binner.binLines();
  const auto levelAt = [&](int line, bool* fine) {
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
    const int j1 = std::min(j0 + 1, subBins - 1);
    const int flags = binner.subLevel(from, w, j0) | binner.subLevel(to, w, j0) |
                      binner.subLevel(from, w, j1) | binner.subLevel(to, w, j1);
    *fine = *fine && flags == 0;
    const double v0 = binner.subSum(from, w, j0) + binner.subSum(to, w, j0);
    const double v1 = binner.subSum(from, w, j1) + binner.subSum(to, w, j1);
    return ((1.0 - frac) * v0 + frac * v1) / subLines;
  };
  bool fine = true;
  double start = levelAt(0, &fine);
  for (int b = 0; b < binner.bins(); ++b) {
    const double end = levelAt((b + 1) * binLines, &fine);
    const double bin = binner.sum(from, w, b) + binner.sum(to, w, b);
    fine = fine && (binner.level(from, w, b) | binner.level(to, w, b)) == 0 && bin > 0.0;
    // The difference 2 (c - a) / (c + a) of a bin changed by s (end - start)
    // per frame.
    grad_[w][b] = fine ? (end - start) / bin : 0.0;
    start = end;
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
    out.leak[f] = lines * std::hypot(re, im);
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

}  // namespace open_algo
