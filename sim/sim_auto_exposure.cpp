#include "sim_auto_exposure.h"

#include <algorithm>
#include <cmath>

namespace flicker_sim {

namespace {

constexpr double kPeriod50HzS = 0.01;         // 100 Hz ripple
constexpr double kPeriod60HzS = 1.0 / 120.0;  // 120 Hz ripple
// A dark frame (lens cap, light off) must not make the step explode.
constexpr double kMinMeasuredLevel = 1e-4;
constexpr double kMaxStepRatio = 8.0;
// Tolerance when checking whether an exposure is a whole number of periods.
constexpr double kPeriodSlack = 1e-9;
// Relative change of the exposure-gain product below which the control is
// pinned at a limit.
constexpr double kPinnedSlack = 1e-9;

}  // namespace

SimAutoExposure::SimAutoExposure(const SimAeParams& params)
    : params_(params),
      period_(bandingPeriodFor(params.initialFlickerState)),
      max_exposure_(1.0 / 30.0),
      exposure_(params.initialExposureS),
      gain_(params.initialGain) {
  if (params_.fixedExposureS > 0.0) {
    exposure_ = params_.fixedExposureS;
    gain_ = params_.fixedGain;
    converged_ = true;
  } else {
    split(exposure_ * gain_);
  }
}

double SimAutoExposure::bandingPeriodFor(int flickerState) {
  return flickerState == 2 ? kPeriod60HzS : kPeriod50HzS;
}

void SimAutoExposure::setBandingState(int flickerState) {
  const double period = bandingPeriodFor(flickerState);
  if (period == period_) {
    return;
  }
  period_ = period;
  if (params_.fixedExposureS <= 0.0) {
    split(exposure_ * gain_);
  }
}

void SimAutoExposure::setMaxExposure(double seconds) {
  max_exposure_ = std::max(params_.minExposureS, seconds);
  if (params_.fixedExposureS <= 0.0) {
    split(exposure_ * gain_);
  }
}

void SimAutoExposure::update(double level) {
  if (params_.fixedExposureS > 0.0) {
    return;
  }
  const double measured = std::max(kMinMeasuredLevel, level);
  const double error = std::log(params_.targetLevel / measured);
  const double ratio = std::min(kMaxStepRatio, std::exp(params_.damping * error));
  const double before = exposure_ * gain_;
  split(before * ratio);
  const double after = exposure_ * gain_;
  // Settled near the target, or pinned at a limit (the longest exposure at
  // the highest gain in a dark scene, the shortest at unit gain in a bright
  // one): nothing the control can do will change the frame any more.
  const bool pinned = (error > 0.0 && after <= before * (1.0 + kPinnedSlack)) ||
                      (error < 0.0 && after >= before * (1.0 - kPinnedSlack));
  converged_ = std::fabs(error) < params_.convergedTolerance || pinned;
}

double SimAutoExposure::exposureFor(const SimAeParams& params, double product, double periodS,
                                    double maxExposureS) {
  if (params.fixedExposureS > 0.0) {
    return params.fixedExposureS;
  }
  const double maxGain = std::max(1.0, params.maxGain);
  maxExposureS = std::max(params.minExposureS, maxExposureS);
  product = std::min(std::max(product, params.minExposureS), maxExposureS * maxGain);
  if (product < periodS) {
    // Bright scene: less than one period wanted; banding is unavoidable.
    return std::min(product, maxExposureS);
  }
  const double periodsAllowed = std::floor(maxExposureS / periodS + kPeriodSlack);
  if (periodsAllowed < 1.0) {
    // The frame is shorter than one period: no anti-banding exposure exists.
    return maxExposureS;
  }
  return std::min(periodsAllowed, std::max(1.0, std::floor(product / periodS + kPeriodSlack))) *
         periodS;
}

void SimAutoExposure::split(double product) {
  const double maxGain = std::max(1.0, params_.maxGain);
  product = std::min(std::max(product, params_.minExposureS), max_exposure_ * maxGain);
  exposure_ = exposureFor(params_, product, period_, max_exposure_);
  // At least unit gain: below a period the exposure is the product itself,
  // or the longest the frame allows when that is shorter.
  gain_ = std::min(maxGain, std::max(1.0, product / exposure_));
}

}  // namespace flicker_sim
