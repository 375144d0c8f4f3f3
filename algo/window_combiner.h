// Combination of the windows' ripple phasors into one summary per series and
// frequency.
//
// The windows' phasors are combined by component-wise median, so motion or a
// bright object in a minority of windows does not move the result. A window
// agrees when its phasor lies within half the combined amplitude of the
// combined phasor. The standard error is the larger of the windows' fit
// error and the windows' spread, both as medians. Evidence (0..1) is the
// product of three ramps: agreement (40 % to 67 % of the windows), SNR (the
// threshold to twice it) and amplitude (the minimum to twice it).
//
// Plain functions of values; no state.
#pragma once

#include "algo_tuning.h"
#include "pair_evidence.h"
#include "ripple_least_squares.h"

namespace open_algo {

class WindowCombiner {
 public:
  // Combines component `component` of the valid fits among `windows`; the
  // amplitude is scaled by `amplitudeScale` (the phasor is not).
  static RippleSummary combine(const WindowFit* fits, int component, int windows,
                               double amplitudeScale, const AlgoKnobs& knobs);
  // Median of 1 <= n <= kMaxWindows values.
  static double median(const double* v, int n);
  // Median residual rms of the valid fits; -1 when there is none.
  static double medianSigma(const WindowFit* fits, int windows);
  // 0 at lo, 1 at hi, linear between.
  static double ramp(double x, double lo, double hi);
  // The agreement ramp of a summary's evidence.
  static double agreementRamp(const RippleSummary& s);
};

}  // namespace open_algo
