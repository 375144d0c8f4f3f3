// Synthesises flicker statistics blocks from a rolling-shutter model, for the
// algorithm tests.
//
// Line y of a frame starts its exposure at start + y * lineTime and integrates
// the light for `exposure` seconds. The light is 1 + m cos(2 pi f_r t + phase)
// with the ripple f_r twice the mains frequency; its mean over the exposure
// window has a closed form. Each entry is the sum of winWidth pixels of the
// scene value times that mean, clipped per pixel at the full scale, plus a
// small deterministic noise.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace algo_test {

// Scene reflectance at (line, window) of the frame with the given running index.
using SceneFn = std::function<double(int line, int window, int frame)>;

struct Light {
  double mainsHz = 0.0;     // 0: steady light
  double modulation = 0.3;  // depth m of the light ripple
  double phase = 0.4;       // ripple phase at t = 0, radians
  double mixHz = 0.0;       // a second lamp on another mains frequency (0: none)
  double mixModulation = 0.0;
};

struct Sensor {
  int lines = 2952;  // statistics lines (3 x window height)
  int windows = 6;
  int winWidth = 666;
  double lineTime = 10e-6;  // seconds per statistics line
  double level = 400.0;     // pixel DN of reflectance 1 under mean light
  double fullScale = 1023.0;
  double noise = 0.5;  // rms DN of the per-entry noise (divided by sqrt(winWidth))
};

class StatsPairBuilder {
 public:
  StatsPairBuilder(const Sensor& sensor, const Light& light) : sensor_(sensor), light_(light) {}

  // One frame whose line 0 starts exposing at `start` seconds.
  std::vector<int64_t> frame(double start, double exposure, const SceneFn& scene, int frameIndex,
                             double gain = 1.0) const;

  // Mean of the light over [t, t + exposure].
  double meanLight(double t, double exposure) const;

  static SceneFn flat();
  // Vertical gradient plus per-window texture; the same in both frames.
  static SceneFn textured();
  // Textured scene with a bright object of `height` lines in windows
  // [firstWindow, lastWindow] that moves `speed` lines per frame.
  static SceneFn movingObject(int firstWindow, int lastWindow, int height, int speed);
  // Textured scene shifted vertically by `speed` lines per frame (a pan).
  static SceneFn pan(int speed);
  // Textured scene with a static area far above full scale in windows
  // [firstWindow, lastWindow], lines 800..1999.
  static SceneFn clippedBlock(int firstWindow, int lastWindow);
  // Alternates between two unrelated scenes frame by frame.
  static SceneFn cut();

 private:
  Sensor sensor_;
  Light light_;
};

}  // namespace algo_test
