// Scenario description of a simulation run, and the built-in presets.
//
// A scenario is one light timeline shared by all sensors, one SimSensorParams
// per sensor (geometry, scene and motion, pixel model, auto exposure, frame
// rate, exposure-control overrides), a seed and a suggested run length. All
// of it is plain data: a tool may start from a preset and change any field.
// The same scenario and seed always give the same frames.
//
// Presets (by name, see simPresetNames()):
//   office-50hz           magnetic fluorescent on 50 Hz mains, textured office, hand-held
//   home-60hz             rectified LED lamp and a bulb on 60 Hz mains, dim, binned read-out
//   light-switch          50 Hz fluorescent switched off at 4 s, a 60 Hz LED lamp takes over
//   daylight              steady daylight, no flicker
//   pan-60hz              pan across a scene under 60 Hz fluorescent, with a moving lamp
//   bright-short-exposure very bright 50 Hz LED lighting: exposures below one period
//   static-120hz-30fps    flat wall under 60 Hz light at exactly 30 fps: the ripple sits still
//   grating-daylight      steady light on horizontal stripes near the 100 Hz band period
//   pwm-led               PWM-dimmed LED at 437 Hz, unrelated to mains
//   ae-takes-over         office-50hz with AE driving the detection cycle, then detection off
//   dual-sensor-50hz      two sensors of different geometry under one 50 Hz light
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim_light.h"
#include "sim_sensor.h"

namespace flicker_sim {

struct SimScenario {
  std::string name;
  std::string description;
  uint64_t seed = 1;
  int frameCount = 300;  // suggested run length
  SimLightParams light;
  std::vector<SimSensorParams> sensors;
};

// Names of the built-in presets, in a stable order.
std::vector<std::string> simPresetNames();
// Fills `out` with the preset `name`; false (and `out` untouched) when the
// name is unknown or `out` is null.
bool makeSimPreset(const std::string& name, SimScenario* out);

}  // namespace flicker_sim
