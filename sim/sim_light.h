// Light source timeline shared by all simulated sensors of one scene.
//
// The light reaching the scene is a sum of components, each
//   L(t) = level * (1 + sum_h depth_h * cos(2 pi * order_h * baseHz * t + phase_h))
// with baseHz the mains frequency (plus a small drift) for mains-driven lamps
// (their ripple is at order 2, i.e. 100 or 120 Hz) or the PWM frequency of a
// PWM-dimmed LED. `level` is in electrons per second collected by one pixel of
// reflectance 1 at unit gain. The timeline is a list of segments: a light
// switch is a new segment starting at the switch time.
//
// Lines integrate the light in closed form over their exposure window, so the
// band depth of a harmonic is attenuated by sinc(pi * f * exposure) exactly,
// and an exposure of whole ripple periods cancels that ripple.
//
// Immutable after construction; const methods may be called from any thread.
#pragma once

#include <vector>

namespace flicker_sim {

enum class SimLightType {
  kIncandescent,         // shallow sinusoidal ripple at twice mains
  kMagneticFluorescent,  // deep ripple at twice mains with harmonics
  kRectifiedLed,         // rectified mains with a forward-voltage threshold: very deep, clipped
  kGoodLedDriver,        // well-filtered driver: almost no ripple
  kPwmLed,               // PWM dimming at a frequency unrelated to mains
  kDaylight,             // steady light, no ripple
  kMeasured,             // a lamp of the published-measurement table (sim_lamp_models.h)
};

struct SimHarmonic {
  int order = 2;       // multiple of the component's base frequency
  double depth = 0.0;  // modulation depth relative to the mean level
  double phase = 0.0;  // radians at t = 0
};

struct SimLightComponent {
  SimLightType type = SimLightType::kDaylight;
  double level = 0.0;    // mean electrons per second per pixel at reflectance 1
  double mainsHz = 0.0;  // nominal mains frequency (50 or 60), 0 when not mains-driven
  double baseHz = 0.0;   // actual base frequency including drift (or the PWM frequency)
  std::vector<SimHarmonic> harmonics;
  // > 0: instead of harmonics, rectangular pulses of this duty cycle at
  // baseHz (on during [0, duty) of each cycle, the cycle starting at phase
  // pulsePhase radians), integrated exactly: sharp edges without ringing.
  double pulseDuty = 0.0;
  double pulsePhase = 0.0;
};

struct SimLightSegment {
  double startS = 0.0;  // time the segment takes over; ignored for the first segment
  std::vector<SimLightComponent> components;
};

struct SimLightParams {
  std::vector<SimLightSegment> segments;  // in time order; empty means darkness
};

// Builds a mains-driven or steady component. `mainsPhase` is the phase of the
// mains at t = 0 (radians); `driftHz` offsets the mains frequency.
SimLightComponent makeLightComponent(SimLightType type, double mainsHz, double level,
                                     double driftHz = 0.0, double mainsPhase = 0.0);
// Builds a PWM-dimmed LED with the given frequency and duty cycle (0..1]
// from its first 15 harmonics.
SimLightComponent makePwmLightComponent(double pwmHz, double duty, double level,
                                        double phase = 0.0);
// Builds exact rectangular pulses (pulseDuty) of mean `level`: a PWM-dimmed
// LED or a screen's backlight.
SimLightComponent makePulseLightComponent(double pwmHz, double duty, double level,
                                          double phase = 0.0);

class SimLight {
 public:
  explicit SimLight(SimLightParams params);

  // Light at time t (seconds).
  double intensity(double t) const;
  // Integral of the light over [t0, t1] in closed form (electrons per pixel at
  // reflectance 1), split at segment boundaries.
  double integrate(double t0, double t1) const;
  // out[k] = integral over [end_k - exposure, end_k] with end_k = firstEnd + k * lineStep,
  // for k in [0, count). Uses a phasor recurrence when no window crosses a
  // segment boundary (the common case); exact per line otherwise.
  void integrateLines(double firstEnd, double lineStep, double exposure, int count,
                      double* out) const;
  // Nominal mains frequency whose ripple dominates at time t (50 or 60), or 0
  // when no mains-driven ripple of practical depth (1 %) is present.
  int dominantMainsHz(double t) const;

  const SimLightParams& params() const { return params_; }

 private:
  int segmentAt(double t) const;
  double segmentEnd(int index) const;
  void integrateSegmentLines(const SimLightSegment& segment, double firstEnd, double lineStep,
                             double exposure, int count, double* out) const;

  SimLightParams params_;
};

}  // namespace flicker_sim
