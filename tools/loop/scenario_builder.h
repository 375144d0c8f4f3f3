// ScenarioBuilder: a simulation scenario and the run options, built from a
// preset and `key = value` settings, from the command line or a scenario file.
//
// Scenario file format: one `key = value` per line; `#` starts a comment
// (to the end of the line); blank lines are ignored; spaces around keys and
// values are trimmed. The keys are the tool's --key options; describeKeys()
// gives each one's unit, allowed values and meaning (flicker-sim run --keys).
// Among them: `scenario` starts again from a preset; `frames`, `seed`,
// `start_state` (50, 60 or keep) and `sensors` (copies of sensor 0, each
// starting 7 ms later) shape the run; the sensor keys (fps, mode, width,
// height, pixel_mode, pixel_clock, line_length, binning, sensor_mode,
// texture, pan_x, pan_y, shake, shake_hz, exposure_ms, ae_target,
// read_noise, full_well, timing, lines_per_frame) go to every sensor; the
// light keys (light, mains, level, depth, ripple, drift, pwm_hz, mix_mains,
// mix_share) rebuild the light from the first lamp of the preset with the
// change applied; `switch_at`, `switch_light`, `switch_mains` add (or move) a
// second segment; `onset_at` and `onset_from` light the scene without the
// lamp until it is switched on; `object` and `screen_hz` add things to the
// scene. A light may also be a lamp modelled on published measurements
// (sim_lamp_models.h).
//
// Not thread-safe; a plain value object.
#pragma once

#include <string>
#include <vector>

#include "closed_loop_runner.h"
#include "sim_scenario.h"

namespace flicker_loop {

class ScenarioBuilder {
 public:
  ScenarioBuilder();

  // Starts again from preset `name`. False with a reason when the name is
  // unknown.
  bool selectPreset(const std::string& name, std::string* error);
  // Applies one setting; false with a one-line reason for an unknown key or a
  // bad value.
  bool set(const std::string& key, const std::string& value, std::string* error);
  // Reads a scenario file; the reason names the file and line.
  bool loadFile(const std::string& path, std::string* error);
  // Same, from text; `origin` names the source in messages.
  bool loadText(const std::string& text, const std::string& origin, std::string* error);

  // The finished scenario (light rebuilt, sensors copied) and options.
  flicker_sim::SimScenario scenario() const;
  const LoopOptions& options() const { return options_; }
  LoopOptions* mutableOptions() { return &options_; }

  // Every key that set() accepts, for help texts.
  static std::vector<std::string> keys();
  // The built-in scenarios.
  static std::vector<std::string> presetNames();

  struct KeyInfo {
    std::string name;
    std::string unit;     // empty when the value has none
    std::string allowed;  // "1..1000" or "50, 60 or keep"
    std::string value;    // what the builder holds now (sensor 0's for sensor keys)
    std::string meaning;
  };
  // Every key with its current value, in the order of keys().
  std::vector<KeyInfo> describeKeys() const;
  // The current value of `key` as text; empty for an unknown key.
  std::string value(const std::string& key) const;

 private:
  struct Lamp {
    std::string type = "fluorescent";
    double mainsHz = 50;
    double level = 3.0e5;
    double depth = 1.0;
    double drift = 0.0;
    double phase = 0.0;
    double pwmHz = 437.0;
    double mixMainsHz = 0;  // second lamp on this mains, 0 = none
    double mixShare = 0.5;
    double ripple = 0;  // absolute depth at twice the mains, 0 = the lamp's own
  };

  // Apply a checked value (`x` is its number where it has one).
  void setLight(const std::string& key, const std::string& value, double x);
  static void setSensor(const std::string& key, const std::string& value, double x,
                        flicker_sim::SimSensorParams* sensor);
  void setScene(const std::string& key, const std::string& value, double x);
  static std::vector<flicker_sim::SimLightComponent> buildLamp(const Lamp& lamp);
  flicker_sim::SimLightParams buildLight(const flicker_sim::SimScenario& base) const;
  void addSceneObjects(flicker_sim::SimSensorParams* sensor) const;

  flicker_sim::SimScenario base_;
  LoopOptions options_;
  int sensors_ = 0;  // 0: as the preset has them
  bool lightChanged_ = false;
  Lamp lamp_;
  bool switchChanged_ = false;
  double switchAtS_ = -1;
  Lamp switchLamp_;
  double onsetAtS_ = -1;  // < 0: the lamp is on from the start
  bool onsetFromDaylight_ = false;
  double screenHz_ = 0;  // 0: no screen
  bool highlight_ = false;
};

// Parses a whole decimal number / a finite real; false on anything else.
bool parseInt(const std::string& text, long min, long max, long* out);
bool parseReal(const std::string& text, double min, double max, double* out);

}  // namespace flicker_loop
