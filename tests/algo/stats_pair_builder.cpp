#include "stats_pair_builder.h"

#include <algorithm>
#include <cmath>

namespace algo_test {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Deterministic pseudo-noise in [-1, 1] from an index (integer hash).
double hashNoise(uint64_t x) {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdULL;
  x ^= x >> 33;
  x *= 0xc4ceb9fe1a85ec53ULL;
  x ^= x >> 33;
  return static_cast<double>(x % 2000001) / 1000000.0 - 1.0;
}

// Smooth texture with no energy near the band periods: a few slow terms and
// a fine term of 37 lines.
double texture(double line, int window) {
  return 0.15 * std::sin(2.0 * kPi * line / 2600.0 + window) +
         0.08 * std::sin(2.0 * kPi * line / 37.0 + 0.7 * window) +
         0.05 * std::cos(2.0 * kPi * line / 150.0 * (1.0 + 0.1 * window));
}

}  // namespace

double StatsPairBuilder::meanLight(double t, double exposure) const {
  // Mean of m cos(2 pi f_r s + phase) over [t, t + exposure], f_r = 2 x mains.
  auto ripple = [&](double mainsHz, double m) {
    if (mainsHz <= 0.0) {
      return 0.0;
    }
    const double w = 2.0 * kPi * 2.0 * mainsHz;
    return m * (std::sin(w * (t + exposure) + light_.phase) - std::sin(w * t + light_.phase)) /
           (w * exposure);
  };
  return 1.0 + ripple(light_.mainsHz, light_.modulation) +
         ripple(light_.mixHz, light_.mixModulation);
}

std::vector<int64_t> StatsPairBuilder::frame(double start, double exposure, const SceneFn& scene,
                                             int frameIndex, double gain) const {
  std::vector<int64_t> out(static_cast<size_t>(sensor_.lines) * sensor_.windows);
  const double noiseScale = sensor_.noise * std::sqrt(static_cast<double>(sensor_.winWidth));
  for (int y = 0; y < sensor_.lines; ++y) {
    const double light = meanLight(start + y * sensor_.lineTime, exposure);
    for (int w = 0; w < sensor_.windows; ++w) {
      const double pixel =
          std::min(sensor_.fullScale, sensor_.level * gain * scene(y, w, frameIndex) * light);
      const size_t i = static_cast<size_t>(y) * sensor_.windows + w;
      const double n = noiseScale * hashNoise(i * 7919 + frameIndex * 1000003ULL +
                                              static_cast<uint64_t>(start * 1e9));
      out[i] = static_cast<int64_t>(std::llround(std::max(0.0, pixel * sensor_.winWidth + n)));
    }
  }
  return out;
}

SceneFn StatsPairBuilder::flat() {
  return [](int, int, int) { return 1.0; };
}

SceneFn StatsPairBuilder::textured() {
  return [](int y, int w, int) { return 1.0 + 0.3 * y / 3000.0 + texture(y, w); };
}

SceneFn StatsPairBuilder::movingObject(int firstWindow, int lastWindow, int height, int speed) {
  return [=](int y, int w, int frame) {
    const double base = 1.0 + 0.3 * y / 3000.0 + texture(y, w);
    const int top = 600 + (speed * frame) % 1500;
    const bool inside = w >= firstWindow && w <= lastWindow && y >= top && y < top + height;
    return inside ? base * 1.8 : base;
  };
}

SceneFn StatsPairBuilder::pan(int speed) {
  return [=](int y, int w, int frame) {
    const double ys = y + speed * frame;
    return 1.0 + 0.3 * ys / 3000.0 + texture(ys, w);
  };
}

SceneFn StatsPairBuilder::clippedBlock(int firstWindow, int lastWindow) {
  return [=](int y, int w, int) {
    const double base = 1.0 + 0.3 * y / 3000.0 + texture(y, w);
    const bool inside = w >= firstWindow && w <= lastWindow && y >= 800 && y < 2000;
    return inside ? base * 4.0 : base;
  };
}

SceneFn StatsPairBuilder::cut() {
  return [](int y, int w, int frame) {
    if (frame % 2 == 0) {
      return 1.0 + 0.3 * y / 3000.0 + texture(y, w);
    }
    // A dark-top, bright-bottom scene with its own structure.
    return 0.5 + 0.8 * y / 3000.0 + 0.2 * std::sin(2.0 * kPi * y / 1300.0 + 2.0 * w);
  };
}

}  // namespace algo_test
