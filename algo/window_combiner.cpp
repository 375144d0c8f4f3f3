#include "window_combiner.h"

#include <algorithm>
#include <cmath>

namespace open_algo {
namespace {

// A window agrees when its phasor lies within this fraction of the combined
// amplitude from the combined phasor.
constexpr double kAgreeRadius = 0.5;
// Agreement ramp: 40 % of the windows give nothing, two thirds give all.
constexpr double kAgreeLow = 0.4;
constexpr double kAgreeHigh = 0.67;
// Standard error of a median relative to a mean of normal samples.
constexpr double kMedianEfficiency = 1.25;

}  // namespace

double WindowCombiner::ramp(double x, double lo, double hi) {
  if (hi <= lo) {
    return x >= hi ? 1.0 : 0.0;
  }
  return std::clamp((x - lo) / (hi - lo), 0.0, 1.0);
}

// An insertion sort of a copy: n is at most the window count, and GCC's
// std::sort on a small fixed array trips a false -Warray-bounds at -O2.
double WindowCombiner::median(const double* v, int n) {
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

double WindowCombiner::agreementRamp(const RippleSummary& s) {
  return ramp(s.agreement, kAgreeLow, kAgreeHigh);
}

double WindowCombiner::medianSigma(const WindowFit* fits, int windows) {
  double sigma[kMaxWindows];
  int n = 0;
  for (int w = 0; w < windows; ++w) {
    if (fits[w].valid) {
      sigma[n++] = fits[w].sigma;
    }
  }
  return n > 0 ? median(sigma, n) : -1.0;
}

RippleSummary WindowCombiner::combine(const WindowFit* fits, int component, int windows,
                                      double amplitudeScale, const AlgoKnobs& knobs) {
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
  s.re = cre;
  s.im = cim;
  s.snr = a / std::max(seCombined, 1e-12);
  s.agreement = a > 0.0 ? static_cast<double>(agree) / n : 0.0;
  s.error = seCombined;
  s.evidence = agreementRamp(s) * ramp(s.snr, knobs.snrThreshold, 2.0 * knobs.snrThreshold) *
               ramp(s.amplitude, knobs.minAmplitude, 2.0 * knobs.minAmplitude);
  return s;
}

}  // namespace open_algo
