#include "ripple_fit.h"

#include <algorithm>
#include <cmath>

namespace flicker_loop {

namespace {

constexpr int kWindows = 6;  // windows per statistics line
constexpr int kParams = 7;   // 1, t, t^2, cos/sin 100 Hz, cos/sin 120 Hz
constexpr double kPi = 3.14159265358979323846;
constexpr double kRipple[2] = {100.0, 120.0};

void basis(double tS, double spanS, double* row) {
  const double u = spanS > 0 ? 2.0 * tS / spanS - 1.0 : 0.0;
  row[0] = 1.0;
  row[1] = u;
  row[2] = u * u;
  for (int r = 0; r < 2; ++r) {
    row[3 + 2 * r] = std::cos(2.0 * kPi * kRipple[r] * tS);
    row[4 + 2 * r] = std::sin(2.0 * kPi * kRipple[r] * tS);
  }
}

// Solves the normal equations in place (Gauss-Jordan with partial pivoting).
bool solve(double a[kParams][kParams], double* b) {
  for (int col = 0; col < kParams; ++col) {
    int pivot = col;
    for (int r = col + 1; r < kParams; ++r) {
      if (std::fabs(a[r][col]) > std::fabs(a[pivot][col])) {
        pivot = r;
      }
    }
    if (std::fabs(a[pivot][col]) < 1e-12) {
      return false;
    }
    std::swap(a[pivot], a[col]);
    std::swap(b[pivot], b[col]);
    for (int r = 0; r < kParams; ++r) {
      if (r == col) {
        continue;
      }
      const double f = a[r][col] / a[col][col];
      for (int c = col; c < kParams; ++c) {
        a[r][c] -= f * a[col][c];
      }
      b[r] -= f * b[col];
    }
  }
  for (int r = 0; r < kParams; ++r) {
    b[r] /= a[r][r];
  }
  return true;
}

}  // namespace

RippleFit RippleFit::of(const PairStats& pair, int maxPoints) {
  RippleFit fit;
  const size_t entries = pair.earlier.size();
  if (!pair.valid || entries == 0 || entries != pair.later.size() || entries % kWindows != 0 ||
      pair.lineTimeS <= 0 || maxPoints < kParams) {
    return fit;
  }
  const int lines = static_cast<int>(entries / kWindows);
  const int perPoint = std::max(1, (lines + maxPoints - 1) / maxPoints);
  // Log ratio per point: sums of both frames over the point's lines.
  std::vector<double> logRatio;
  std::vector<double> timeS;
  for (int first = 0; first + perPoint <= lines; first += perPoint) {
    double earlier = 0;
    double later = 0;
    for (int k = first; k < first + perPoint; ++k) {
      for (int w = 0; w < kWindows; ++w) {
        earlier += static_cast<double>(
            pair.earlier[static_cast<size_t>(k) * kWindows + static_cast<size_t>(w)]);
        later += static_cast<double>(
            pair.later[static_cast<size_t>(k) * kWindows + static_cast<size_t>(w)]);
      }
    }
    if (earlier <= 0 || later <= 0) {
      continue;
    }
    logRatio.push_back(std::log(later / earlier));
    timeS.push_back((first + 0.5 * (perPoint - 1)) * pair.lineTimeS);
  }
  if (static_cast<int>(logRatio.size()) < kParams) {
    return fit;
  }
  const double span = timeS.back();
  double ata[kParams][kParams] = {};
  double atb[kParams] = {};
  double row[kParams];
  for (size_t i = 0; i < logRatio.size(); ++i) {
    basis(timeS[i], span, row);
    for (int r = 0; r < kParams; ++r) {
      atb[r] += row[r] * logRatio[i];
      for (int c = 0; c < kParams; ++c) {
        ata[r][c] += row[r] * row[c];
      }
    }
  }
  if (!solve(ata, atb)) {
    return fit;
  }
  // Normalise so the trend's mean is 1; the bands ride on the trend.
  double meanLog = 0;
  for (const double y : logRatio) {
    meanLog += y;
  }
  meanLog /= static_cast<double>(logRatio.size());
  for (size_t i = 0; i < logRatio.size(); ++i) {
    basis(timeS[i], span, row);
    const double trend = atb[0] + atb[1] * row[1] + atb[2] * row[2] - meanLog;
    const double b100 = atb[3] * row[3] + atb[4] * row[4];
    const double b120 = atb[5] * row[5] + atb[6] * row[6];
    fit.timeMs.push_back(1000.0 * timeS[i]);
    fit.ratio.push_back(std::exp(logRatio[i] - meanLog));
    fit.band100.push_back(std::exp(trend + b100));
    fit.band120.push_back(std::exp(trend + b120));
  }
  fit.amplitude100 = std::hypot(atb[3], atb[4]);
  fit.amplitude120 = std::hypot(atb[5], atb[6]);
  fit.valid = true;
  return fit;
}

}  // namespace flicker_loop
