#include "creep_track.h"

#include <algorithm>
#include <cmath>

namespace open_algo {
namespace {

// The pace over each half of the comparisons must agree with the pace over
// all of them to this many of its standard errors.
constexpr double kSteadyErrors = 2.0;

}  // namespace

void CreepTrack::add(int age, double re, double im, double se) {
  if (!(se > 0.0) || !std::isfinite(re) || !std::isfinite(im)) {
    return;
  }
  if (count_ == kMaxPoints) {
    // The oldest comparison goes: the newest tell the pace as well.
    std::copy(points_.begin() + 1, points_.end(), points_.begin());
    --count_;
  }
  points_[count_++] = Point{static_cast<double>(age), re, im, 1.0 / (se * se)};
}

CreepTrack::Pace CreepTrack::fit(int begin, int end) const {
  double w = 0.0, wa = 0.0, wre = 0.0, wim = 0.0;
  for (int i = begin; i < end; ++i) {
    const Point& p = points_[i];
    w += p.weight;
    wa += p.weight * p.age;
    wre += p.weight * p.re;
    wim += p.weight * p.im;
  }
  const double meanAge = wa / w, meanRe = wre / w, meanIm = wim / w;
  double spread = 0.0, sre = 0.0, sim = 0.0;
  for (int i = begin; i < end; ++i) {
    const Point& p = points_[i];
    const double da = p.age - meanAge;
    spread += p.weight * da * da;
    sre += p.weight * da * (p.re - meanRe);
    sim += p.weight * da * (p.im - meanIm);
  }
  Pace pace{};
  if (!(spread > 0.0)) {
    return pace;
  }
  pace.re = sre / spread;
  pace.im = sim / spread;
  // Scatter about the fitted line, in standard errors: a shake's leftover
  // that the comparisons' own errors did not allow for widens the pace's
  // error.
  double chi2 = 0.0;
  for (int i = begin; i < end; ++i) {
    const Point& p = points_[i];
    const double da = p.age - meanAge;
    const double dre = p.re - meanRe - pace.re * da;
    const double dim = p.im - meanIm - pace.im * da;
    chi2 += p.weight * (dre * dre + dim * dim);
  }
  const double freedom = std::max(1.0, 2.0 * (end - begin - 2));
  pace.error = std::max(1.0, std::sqrt(chi2 / freedom)) / std::sqrt(spread);
  return pace;
}

double CreepTrack::significance() const {
  if (count_ < kMinPoints) {
    return 0.0;
  }
  const Pace all = fit(0, count_);
  if (!(all.error > 0.0)) {
    return 0.0;
  }
  // A creep keeps its pace; a step (a lamp going off, the scene changing
  // once) has none within the comparisons before it or after it, yet lends
  // the line through all of them one.
  const Pace older = fit(0, count_ / 2);
  const Pace newer = fit(count_ / 2, count_);
  if (!(older.error > 0.0) || !(newer.error > 0.0)) {
    return 0.0;
  }
  const double halvesRe = 0.5 * (older.re + newer.re);
  const double halvesIm = 0.5 * (older.im + newer.im);
  const double halvesError = 0.5 * std::hypot(older.error, newer.error);
  if (std::hypot(all.re - halvesRe, all.im - halvesIm) > kSteadyErrors * halvesError) {
    return 0.0;
  }
  return std::hypot(all.re, all.im) / all.error;
}

}  // namespace open_algo
