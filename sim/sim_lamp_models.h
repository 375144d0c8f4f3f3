// Lamps modelled on published flicker measurements of real lamps.
//
// A lamp's flicker is published as two photometric figures over one period
// of its light:
//   percent flicker  100 (max - min) / (max + min)
//   flicker index    area of the waveform above its mean / total area
// Each model reproduces both figures of its source. A mains-driven lamp
// ripples at twice the mains frequency with the shape
//   w(x) = floor + (1 - floor) (max(0, |sin x| - c) / (1 - c))^p
// (x: the mains phase), which spans a filament lamp (c = 0, p near 2: a
// sinusoid), a fluorescent lamp (the phosphor's afterglow is the floor) and
// a rectified LED (floor 0, p = 1: the LEDs are dark while the rectified
// voltage is below the fraction c of its peak, their string's forward
// voltage). The floor sets the percent flicker; the exponent, or for an LED
// the dark zone c, sets the flicker index. A PWM-dimmed LED is a rectangular pulse of
// its duty cycle at its own frequency, unrelated to the mains; its figures
// follow from the duty (percent flicker 100, flicker index 1 - duty).
// A mains lamp's light is rendered from kLampHarmonics harmonics with
// Lanczos sigma factors, which keep the series' ringing at the corners of an
// LED's dark zone at about 0.1 % of the mean; a PWM lamp's pulses are
// integrated exactly. floor and p (or c) were fitted, by bisection on the
// rendered waveform, to the published figures; the simulator tests check
// that the rendered light has them.
//
// Immutable table; safe to read from any thread.
#pragma once

#include <string>
#include <vector>

#include "sim_light.h"

namespace flicker_sim {

// Harmonics of a model's base frequency that are rendered.
constexpr int kLampHarmonics = 24;

struct SimLampModel {
  const char* name;         // key of the scenario settings (light = NAME)
  const char* description;  // what lamp was measured
  double percentFlicker;    // published, percent
  double flickerIndex;      // published
  bool mainsDriven;         // ripple at twice the mains; otherwise PWM at pwmHz
  double floor;             // mains-driven shape, see above
  double deadZone;          // c
  double exponent;          // p
  double pwmHz;             // PWM: pulse frequency and duty cycle
  double duty;
};

// Every model, in a stable order.
const std::vector<SimLampModel>& simLampModels();
// The model named `name`; null when there is none.
const SimLampModel* findSimLampModel(const std::string& name);

// One component of the light for `model`: a mains-driven lamp on `mainsHz`
// (plus `driftHz`, with the mains at phase `mainsPhase` at t = 0), or a PWM
// lamp at its own frequency (mainsHz, driftHz ignored; `mainsPhase` is then
// the pulse train's phase). Mean level `level` electrons per second per pixel
// of reflectance 1.
SimLightComponent makeLampModelComponent(const SimLampModel& model, double mainsHz, double level,
                                         double driftHz = 0.0, double mainsPhase = 0.0);

}  // namespace flicker_sim
