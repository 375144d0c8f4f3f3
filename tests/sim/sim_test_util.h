// Support of the simulator tests: the line profile of a statistics block and
// least-squares fits of ripple tones, as one would analyse a real sensor's
// statistics on a desk, and the cleanest sensor to look at a light through.
#pragma once

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "sim_sensor.h"

namespace flicker_sim {
namespace testing_util {

constexpr double kPi = 3.14159265358979323846;

// Sum of the six windows of each statistics line.
inline std::vector<double> lineProfile(const SimFrame& frame) {
  std::vector<double> y(frame.stats.size() / 6, 0.0);
  for (size_t e = 0; e < frame.stats.size(); ++e) y[e / 6] += static_cast<double>(frame.stats[e]);
  return y;
}

struct ToneFit {
  std::vector<double> amplitude;  // per tone, relative to the profile's mean
  std::vector<double> phase;      // radians at line 0: y ~ mean (1 + a cos(2 pi nu k + phase))
  double residual = 0.0;          // sum of squares the fit leaves
};

// Joint least-squares fit of a constant and one tone per frequency (cycles
// per line).
inline ToneFit fitTones(const std::vector<double>& y, const std::vector<double>& nus) {
  const size_t n = 1 + 2 * nus.size();
  // Basis functions of each line: 1, then cos and sin per tone.
  std::vector<std::vector<double>> basis(y.size(), std::vector<double>(n, 1.0));
  for (size_t k = 0; k < y.size(); ++k) {
    for (size_t t = 0; t < nus.size(); ++t) {
      basis[k][1 + 2 * t] = std::cos(2.0 * kPi * nus[t] * static_cast<double>(k));
      basis[k][2 + 2 * t] = std::sin(2.0 * kPi * nus[t] * static_cast<double>(k));
    }
  }
  // Normal equations, augmented by the right-hand side, solved by
  // Gauss-Jordan; a Gram matrix is positive definite, so no pivoting.
  std::vector<std::vector<double>> a(n, std::vector<double>(n + 1, 0.0));
  for (size_t k = 0; k < y.size(); ++k) {
    for (size_t r = 0; r < n; ++r) {
      for (size_t c = 0; c < n; ++c) a[r][c] += basis[k][r] * basis[k][c];
      a[r][n] += basis[k][r] * y[k];
    }
  }
  for (size_t c = 0; c < n; ++c) {
    for (size_t r = 0; r < n; ++r) {
      const double f = r == c ? 0.0 : a[r][c] / a[c][c];
      for (size_t k = c; k <= n; ++k) a[r][k] -= f * a[c][k];
    }
  }
  ToneFit fit;
  for (size_t t = 0; t < nus.size(); ++t) {
    const double c = a[1 + 2 * t][n] / a[1 + 2 * t][1 + 2 * t];
    const double s = a[2 + 2 * t][n] / a[2 + 2 * t][2 + 2 * t];
    fit.amplitude.push_back(std::hypot(c, s) / (a[0][n] / a[0][0]));
    fit.phase.push_back(std::atan2(-s, c));
  }
  for (size_t k = 0; k < y.size(); ++k) {
    double model = 0.0;
    for (size_t i = 0; i < n; ++i) model += a[i][n] / a[i][i] * basis[k][i];
    fit.residual += (y[k] - model) * (y[k] - model);
  }
  return fit;
}

// True when a single tone at nu fits better than one 1 % either side, i.e.
// the bands' frequency is within 0.5 % of nu.
inline bool bandsAt(const std::vector<double>& y, double nu) {
  const double at = fitTones(y, {nu}).residual;
  return at < fitTones(y, {nu * 0.99}).residual && at < fitTones(y, {nu * 1.01}).residual;
}

// A flat wall without gradient, fixed exposure and gain, 4000 x 3000 at
// 30 fps with 10 us lines.
inline SimSensorParams flatWallSensor(double exposureS) {
  SimSensorParams s;
  s.scene.texture = SimTexture::kFlatWall;
  s.scene.wallGradient = 0.0;
  s.ae.fixedExposureS = exposureS;
  return s;
}

// A steady light of the given lamps.
inline std::shared_ptr<const SimLight> lightOf(std::vector<SimLightComponent> lamps) {
  SimLightParams params;
  params.segments.push_back({0.0, std::move(lamps)});
  return std::make_shared<const SimLight>(params);
}

}  // namespace testing_util
}  // namespace flicker_sim
