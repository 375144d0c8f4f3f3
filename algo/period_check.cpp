#include "period_check.h"

#include <algorithm>
#include <cmath>

#include "window_combiner.h"

namespace open_algo {
namespace {

// Sub-bins per compared bin, and the fewest compared bins a window needs.
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
// A mains ripple's fundamental turns over in half its period, so its
// difference does not match itself half a period on. A faster light (a PWM
// driver at a multiple of the ripple frequency) repeats within the ripple's
// period and does: a difference this concordant at half the period is not the
// mains ripple's.
constexpr double kHalfPeriodic = 0.6;

}  // namespace

bool PeriodCheck::plan(double lineTime, int subLines, int subBins) {
  for (int f = 0; f < kRipples; ++f) {
    periodSub_[f] = static_cast<int>(std::lround(1.0 / (kRippleHz[f] * lineTime * subLines)));
    halfSub_[f] = static_cast<int>(std::lround(0.5 / (kRippleHz[f] * lineTime * subLines)));
    comparable_[f] = periodSub_[f] >= kCombSubBins &&
                     periodSub_[f] + kMinPeriodSamples * kCombSubBins <= subBins;
  }
  return comparable_[0];
}

bool PeriodCheck::isDeep(const LineBinner& binner, int windows) {
  double spread[kMaxWindows];
  for (int w = 0; w < windows; ++w) {
    const double* d = binner.profile(LineBinner::kDiff, w);
    const uint8_t* ok = binner.kept(LineBinner::kDiff, w);
    int n = 0;
    double sum = 0.0, sum2 = 0.0;
    for (int b = 0; b < binner.bins(); ++b) {
      if (ok[b] != 0) {
        ++n;
        sum += d[b];
        sum2 += d[b] * d[b];
      }
    }
    const double mean = n > 0 ? sum / n : 0.0;
    spread[w] = n > 1 ? std::sqrt(std::max(0.0, sum2 / n - mean * mean)) : 0.0;
  }
  return WindowCombiner::median(spread, windows) >= kDeepSpread;
}

int PeriodCheck::periodicRipple(const PairEvidence& e, int windows) {
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
    const bool fasterLight = e.halfPeriodicity[f] >= kHalfPeriodic;
    if (usable[f] && e.periodicity[f] >= kPeriodic && otherFails && !fasterLight) {
      return f;
    }
  }
  return -1;
}

bool PeriodCheck::fasterLight(const PairEvidence& e, int windows) {
  const int minWindows = std::max(1, (windows + 1) / 2);
  for (int f = 0; f < kRipples; ++f) {
    if (e.periodWindows[f] >= minWindows && e.periodSpread[f] >= kPeriodSpread &&
        e.periodicity[f] >= kPeriodic && e.halfPeriodicity[f] >= kHalfPeriodic) {
      return true;
    }
  }
  return false;
}

void PeriodCheck::run(const LineBinner& binner, int windows, PairEvidence* out) const {
  out->periodTested = true;
  for (int f = 0; f < kRipples; ++f) {
    out->periodWindows[f] =
        concordance(binner, windows, periodSub_[f], &out->periodicity[f], &out->periodSpread[f]);
    // Compared bins that overlap their shifted selves would match anything.
    double spread = 0.0;
    out->halfPeriodicity[f] = 0.0;
    if (halfSub_[f] >= kCombSubBins) {
      concordance(binner, windows, halfSub_[f], &out->halfPeriodicity[f], &spread);
    }
  }
}

int PeriodCheck::concordance(const LineBinner& binner, int windows, int lag, double* periodicity,
                             double* spreadOut) {
  const int subBins = binner.subBins();
  double ccc[kMaxWindows];
  double spread[kMaxWindows];
  int n = 0;
  for (int w = 0; w < windows && lag > 0; ++w) {
    // d at a compared bin from its sub-bins; false when the bin says nothing.
    const auto diffAt = [&](int k, double* d) {
      double a = 0.0, c = 0.0;
      int la = 0, lc = 0;
      for (int i = k; i < k + kCombSubBins; ++i) {
        a += binner.subSum(0, w, i);
        c += binner.subSum(1, w, i);
        la |= binner.subLevel(0, w, i);
        lc |= binner.subLevel(1, w, i);
      }
      if (((la | lc) & LineBinner::kClipped) != 0 || (la & lc & LineBinner::kDark) != 0 ||
          !(a + c > 0.0)) {
        return false;
      }
      *d = 2.0 * (c - a) / (c + a);
      return true;
    };
    int m = 0;
    double sx = 0.0, sy = 0.0, sxx = 0.0, syy = 0.0, sxy = 0.0;
    for (int k = 0; k + lag + kCombSubBins <= subBins; k += kCombSubBins) {
      double x, y;
      if (!diffAt(k, &x) || !diffAt(k + lag, &y)) {
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
  *periodicity = n > 0 ? WindowCombiner::median(ccc, n) : 0.0;
  *spreadOut = n > 0 ? WindowCombiner::median(spread, n) : 0.0;
  return n;
}

}  // namespace open_algo
