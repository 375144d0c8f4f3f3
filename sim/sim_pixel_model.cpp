#include "sim_pixel_model.h"

#include <algorithm>
#include <cmath>

#include "sim_random.h"

namespace flicker_sim {

namespace {

constexpr double kSqrtHalf = 0.70710678118654752440;
constexpr double kInvSqrtTwoPi = 0.39894228040143267794;
// Beyond this many standard deviations below the clip level saturation does
// not change the mean measurably; skip the special functions.
constexpr double kNoClipSigmas = 8.0;
// Rounding to integer digital numbers adds a uniform error of variance 1/12.
constexpr double kQuantisationVariance = 1.0 / 12.0;

}  // namespace

double SimPixelModel::dnPerElectron(double gain) const {
  return gain * static_cast<double>(params_.maxDn) / params_.fullWellE;
}

double SimPixelModel::clippedMean(double mean, double variance, double clip, double* belowClip) {
  if (!(variance > 0.0)) {
    *belowClip = mean < clip ? 1.0 : 0.0;
    return std::min(mean, clip);
  }
  const double sigma = std::sqrt(variance);
  const double a = (clip - mean) / sigma;
  if (a > kNoClipSigmas) {
    *belowClip = 1.0;
    return mean;
  }
  const double below = 0.5 * std::erfc(-a * kSqrtHalf);
  const double density = kInvSqrtTwoPi * std::exp(-0.5 * a * a);
  *belowClip = below;
  // E[min(X, c)] = E[X] - E[(X - c)+], E[(X - c)+] = sigma * phi(a) - (c - mu) * (1 - Phi(a)).
  return mean - (sigma * density - (clip - mean) * (1.0 - below));
}

int64_t SimPixelModel::windowSum(double meanE, double spreadE2, int pixels, double gain,
                                 SimRandom* rng) const {
  if (pixels <= 0) {
    return 0;
  }
  meanE = std::max(0.0, meanE);
  spreadE2 = std::max(0.0, spreadE2);
  const double k = dnPerElectron(gain);
  const double read = k * params_.readNoiseE;
  const double noiseVar = k * k * meanE + read * read + kQuantisationVariance;
  double below = 1.0;
  const double mean = clippedMean(k * meanE, noiseVar + k * k * spreadE2,
                                  static_cast<double>(params_.maxDn), &below);
  const double n = static_cast<double>(pixels);
  const double sigma = std::sqrt(n * noiseVar * below);
  const double sum = n * mean + sigma * rng->gaussian();
  return static_cast<int64_t>(std::nearbyint(std::max(0.0, sum)));
}

}  // namespace flicker_sim
