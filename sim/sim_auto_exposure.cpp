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
  converged_ = std::fabs(error) < params_.convergedTolerance;
  const double ratio = std::min(kMaxStepRatio, std::exp(params_.damping * error));
  split(exposure_ * gain_ * ratio);
}

void SimAutoExposure::split(double product) {
  const double maxGain = std::max(1.0, params_.maxGain);
  product = std::min(std::max(product, params_.minExposureS), max_exposure_ * maxGain);
  if (product < period_) {
    // Bright scene: less than one period wanted; banding is unavoidable.
    exposure_ = std::min(product, max_exposure_);
    gain_ = product / exposure_;
    return;
  }
  const double periodsAllowed = std::floor(max_exposure_ / period_ + kPeriodSlack);
  if (periodsAllowed < 1.0) {
    // The frame is shorter than one period: no anti-banding exposure exists.
    exposure_ = max_exposure_;
    gain_ = std::min(maxGain, product / exposure_);
    return;
  }
  const double periods =
      std::min(periodsAllowed, std::max(1.0, std::floor(product / period_ + kPeriodSlack)));
  exposure_ = periods * period_;
  gain_ = std::min(maxGain, std::max(1.0, product / exposure_));
}

}  // namespace flicker_sim
