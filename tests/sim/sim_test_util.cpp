#include "sim_test_util.h"

#include <cmath>
#include <limits>
#include <utility>

namespace flicker_sim {
namespace testing_util {

std::vector<double> lineProfile(const SimFrame& frame) {
  std::vector<double> y(frame.stats.size() / 6, 0.0);
  for (size_t k = 0; k < y.size(); ++k) {
    for (size_t i = 0; i < 6; ++i) {
      y[k] += static_cast<double>(frame.stats[k * 6 + i]);
    }
  }
  return y;
}

namespace {

// Solves the normal equations A x = b of size n in place (Gauss-Jordan with
// partial pivoting); small and well conditioned here.
std::vector<double> solve(std::vector<std::vector<double>> a, std::vector<double> b) {
  const size_t n = b.size();
  for (size_t c = 0; c < n; ++c) {
    size_t pivot = c;
    for (size_t r = c + 1; r < n; ++r) {
      if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) {
        pivot = r;
      }
    }
    std::swap(a[c], a[pivot]);
    std::swap(b[c], b[pivot]);
    for (size_t r = 0; r < n; ++r) {
      if (r == c || a[c][c] == 0.0) {
        continue;
      }
      const double f = a[r][c] / a[c][c];
      for (size_t k = c; k < n; ++k) {
        a[r][k] -= f * a[c][k];
      }
      b[r] -= f * b[c];
    }
  }
  std::vector<double> x(n, 0.0);
  for (size_t i = 0; i < n; ++i) {
    x[i] = a[i][i] != 0.0 ? b[i] / a[i][i] : 0.0;
  }
  return x;
}

// Least-squares coefficients of [1, cos, sin, cos, sin, ...] for the tones.
std::vector<double> fitCoefficients(const std::vector<double>& y, const std::vector<double>& nus) {
  const size_t n = 1 + 2 * nus.size();
  std::vector<std::vector<double>> a(n, std::vector<double>(n, 0.0));
  std::vector<double> b(n, 0.0);
  std::vector<double> basis(n);
  for (size_t k = 0; k < y.size(); ++k) {
    basis[0] = 1.0;
    for (size_t t = 0; t < nus.size(); ++t) {
      const double x = 2.0 * kPi * nus[t] * static_cast<double>(k);
      basis[1 + 2 * t] = std::cos(x);
      basis[2 + 2 * t] = std::sin(x);
    }
    for (size_t r = 0; r < n; ++r) {
      b[r] += basis[r] * y[k];
      for (size_t c = 0; c < n; ++c) {
        a[r][c] += basis[r] * basis[c];
      }
    }
  }
  return solve(a, b);
}

// Residual sum of squares of the fit: the criterion for the best frequency
// (the fitted amplitude alone is biased by leakage into the constant).
double fitResidual(const std::vector<double>& y, const std::vector<double>& nus) {
  const std::vector<double> x = fitCoefficients(y, nus);
  double rss = 0.0;
  for (size_t k = 0; k < y.size(); ++k) {
    double model = x[0];
    for (size_t t = 0; t < nus.size(); ++t) {
      const double phase = 2.0 * kPi * nus[t] * static_cast<double>(k);
      model += x[1 + 2 * t] * std::cos(phase) + x[2 + 2 * t] * std::sin(phase);
    }
    rss += (y[k] - model) * (y[k] - model);
  }
  return rss;
}

}  // namespace

std::vector<Tone> fitTones(const std::vector<double>& y, const std::vector<double>& nus) {
  const std::vector<double> x = fitCoefficients(y, nus);
  std::vector<Tone> tones;
  for (size_t t = 0; t < nus.size(); ++t) {
    const double c = x[1 + 2 * t];
    const double s = x[2 + 2 * t];
    tones.push_back({std::hypot(c, s) / x[0], std::atan2(-s, c)});
  }
  return tones;
}

double peakCyclesPerLine(const std::vector<double>& y, double minLines, double maxLines) {
  double best = std::numeric_limits<double>::infinity();
  double bestNu = 0.0;
  for (double period = minLines; period <= maxLines; period *= 1.01) {
    const double rss = fitResidual(y, {1.0 / period});
    if (rss < best) {
      best = rss;
      bestNu = 1.0 / period;
    }
  }
  // Refine around the coarse peak.
  const double lo = bestNu * 0.988;
  const double hi = bestNu * 1.012;
  for (double nu = lo; nu <= hi; nu += (hi - lo) / 200.0) {
    const double rss = fitResidual(y, {nu});
    if (rss < best) {
      best = rss;
      bestNu = nu;
    }
  }
  return bestNu;
}

double wrapAngle(double a) {
  a = std::fmod(a, 2.0 * kPi);
  if (a > kPi) {
    a -= 2.0 * kPi;
  } else if (a <= -kPi) {
    a += 2.0 * kPi;
  }
  return a;
}

SimSensorSpec flatWallSensor(double exposureS, double gain) {
  SimSensorSpec s;
  s.geometry.tgWidth = 4000;
  s.geometry.tgHeight = 3000;
  s.geometry.frameWidth = 4000;
  s.geometry.frameHeight = 3000;
  s.geometry.pixelClockHz = 480000000;
  s.geometry.pixelsInLine = 4800;
  s.framesPerSecond = 30.0;
  s.scene.texture = SimTexture::kFlatWall;
  s.scene.wallGradient = 0.0;
  s.ae.fixedExposureS = exposureS;
  s.ae.fixedGain = gain;
  return s;
}

SimLightSpec steadyLight(std::vector<SimLightComponent> components) {
  SimLightSpec spec;
  spec.segments.push_back({0.0, std::move(components)});
  return spec;
}

}  // namespace testing_util
}  // namespace flicker_sim
