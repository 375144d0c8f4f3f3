// ScenarioBuilder: a simulation scenario and the run options, built from a
// preset and `key = value` settings, from the command line or a scenario file.
//
// Scenario file format: one `key = value` per line; `#` starts a comment
// (to the end of the line); blank lines are ignored; spaces around keys and
// values are trimmed. The keys (the same as the tool's --key options):
//   scenario     preset to start from (a file may name it; default office-50hz)
//   frames       frames per sensor                         seed        run seed
//   start_state  50, 60 or keep (the state left by an earlier run)
//   sensors      number of sensors (copies of sensor 0, each starting 7 ms later)
//   fps          frame rate              mode        anti-banding mode 1, 2, 3
//   width height TG and frame size       pixel_mode  pixel_clock  line_length
//   binning      sensor binning factor   sensor_mode
//   light        fluorescent, led, incandescent, good-led, pwm, daylight, or
//                a lamp modelled on published measurements (sim_lamp_models.h:
//                incandescent-40w, fluorescent-magnetic, led-rectified, ...)
//   mains        50, 60 or 0             level       light in electrons/s/pixel
//   depth        scale of the ripple     drift       mains drift in Hz
//   ripple       depth of the ripple at twice the mains (0 = the lamp's own;
//                its harmonics keep their proportions)
//   pwm_hz       PWM frequency of light = pwm
//   mix_mains    adds a second lamp of the same type on this mains (50, 60; 0 = none)
//   mix_share    share of the light level the second lamp gives (0..1, default 0.5)
//   switch_at    time (s) the light changes to switch_light / switch_mains
//   onset_at     time (s) the lamp is switched on; before it the scene is lit
//                as onset_from says: dark (no light) or daylight (steady
//                light of the lamp's level, which stays on with the lamp)
//   texture      natural, flat, grating, piecewise (flat patches, sharp edges)
//   pan_x pan_y shake shake_hz  (frame units)   lines_per_frame  vertical drift
//   object       none or highlight (a bright object crossing the frame)
//   screen_hz    a screen in the scene whose backlight pulses at this rate (0 = none)
//   timing       free (the exposure control may stretch detection frames) or
//                fixed (fixed-rate video: frames are never stretched)
//   exposure_ms  manual exposure (0 = automatic)   ae_target   mean level 0..1
//   read_noise   electrons rms           full_well   electrons at full scale
// A light key rebuilds the light from the first lamp of the preset with the
// change applied; `switch_at` adds (or moves) the second segment.
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

  // Starts again from preset `name` (the alias frozen-30fps names
  // static-120hz-30fps). False with a reason when the name is unknown.
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
  // Preset names, with the alias.
  static std::vector<std::string> presetNames();

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

  bool setLight(const std::string& key, const std::string& value, std::string* error);
  bool setSensor(const std::string& key, const std::string& value, std::string* error);
  bool setScene(const std::string& key, const std::string& value, std::string* error);
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
