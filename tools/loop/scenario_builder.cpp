#include "scenario_builder.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "sim_lamp_models.h"

namespace flicker_loop {

namespace {

const char kDefaultPreset[] = "office-50hz";
const char kFrozenAlias[] = "frozen-30fps";
const char kFrozenPreset[] = "static-120hz-30fps";
// Extra sensors start this much later than the one before, so their frames
// do not line up with the first sensor's.
constexpr double kSensorStaggerS = 0.007;
// Limits that keep a run meaningful and its memory bounded.
constexpr long kMaxFrames = 1000000;
constexpr long kMaxSensors = 20;
// A screen (screen_hz) is a monitor on the far wall: dark glass around a
// backlit picture twice as bright as a white surface under the scene's lamp,
// lit half of each backlight cycle.
constexpr double kScreenX = 0.55, kScreenY = 0.3, kScreenW = 0.25, kScreenH = 0.2;
constexpr double kScreenGlass = 0.04;
constexpr double kScreenRadiance = 2.0;
constexpr double kScreenDuty = 0.5;
// A highlight (object = highlight): a small bright object (a lamp, a
// reflection) that crosses the frame in four seconds.
constexpr double kHighlightSpeed = 0.25;
constexpr double kHighlightReflectance = 4.0;

struct LampType {
  const char* name;
  flicker_sim::SimLightType type;
};

const LampType kLampTypes[] = {
    {"fluorescent", flicker_sim::SimLightType::kMagneticFluorescent},
    {"led", flicker_sim::SimLightType::kRectifiedLed},
    {"incandescent", flicker_sim::SimLightType::kIncandescent},
    {"good-led", flicker_sim::SimLightType::kGoodLedDriver},
    {"pwm", flicker_sim::SimLightType::kPwmLed},
    {"daylight", flicker_sim::SimLightType::kDaylight},
};

const char* lampName(flicker_sim::SimLightType type) {
  for (const LampType& t : kLampTypes) {
    if (t.type == type) {
      return t.name;
    }
  }
  return "daylight";
}

bool lampType(const std::string& name, flicker_sim::SimLightType* out) {
  for (const LampType& t : kLampTypes) {
    if (name == t.name) {
      *out = t.type;
      return true;
    }
  }
  if (flicker_sim::findSimLampModel(name) != nullptr) {
    *out = flicker_sim::SimLightType::kMeasured;
    return true;
  }
  return false;
}

// One lamp of `type` (a lamp model's name for kMeasured).
flicker_sim::SimLightComponent oneLamp(const std::string& name, double mainsHz, double level,
                                       double drift, double phase) {
  if (const flicker_sim::SimLampModel* model = flicker_sim::findSimLampModel(name)) {
    return flicker_sim::makeLampModelComponent(*model, mainsHz, level, drift, phase);
  }
  flicker_sim::SimLightType type = flicker_sim::SimLightType::kDaylight;
  lampType(name, &type);
  return flicker_sim::makeLightComponent(type, mainsHz, level, drift, phase);
}

// True for a lamp whose light does not follow the mains.
bool pulsesOnItsOwn(const std::string& name) {
  const flicker_sim::SimLampModel* model = flicker_sim::findSimLampModel(name);
  return name == "pwm" || (model != nullptr && !model->mainsDriven);
}

std::string trim(const std::string& text) {
  const char* spaces = " \t\r\n";
  const size_t first = text.find_first_not_of(spaces);
  if (first == std::string::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

const std::vector<std::string>& keyList() {
  static const std::vector<std::string> keys = {
      "scenario",    "frames",      "seed",       "start_state",     "sensors",
      "fps",         "mode",        "width",      "height",          "pixel_mode",
      "pixel_clock", "line_length", "binning",    "sensor_mode",     "light",
      "mains",       "level",       "depth",      "drift",           "pwm_hz",
      "mix_mains",   "mix_share",   "switch_at",  "switch_light",    "switch_mains",
      "texture",     "pan_x",       "pan_y",      "shake",           "shake_hz",
      "exposure_ms", "ae_target",   "read_noise", "full_well",       "ripple",
      "onset_at",    "onset_from",  "timing",     "lines_per_frame", "object",
      "screen_hz"};
  return keys;
}

bool bad(std::string* error, const std::string& key, const std::string& value,
         const std::string& expected) {
  if (error != nullptr) {
    *error = "bad value '" + value + "' for " + key + ": expected " + expected;
  }
  return false;
}

}  // namespace

bool parseInt(const std::string& text, long min, long max, long* out) {
  if (text.empty()) {
    return false;
  }
  errno = 0;
  char* end = nullptr;
  const long value = strtol(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE || value < min || value > max) {
    return false;
  }
  *out = value;
  return true;
}

bool parseReal(const std::string& text, double min, double max, double* out) {
  if (text.empty()) {
    return false;
  }
  errno = 0;
  char* end = nullptr;
  const double value = strtod(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(value) || value < min || value > max) {
    return false;
  }
  *out = value;
  return true;
}

ScenarioBuilder::ScenarioBuilder() {
  selectPreset(kDefaultPreset, nullptr);
}

bool ScenarioBuilder::selectPreset(const std::string& name, std::string* error) {
  const std::string preset = name == kFrozenAlias ? kFrozenPreset : name;
  flicker_sim::SimScenario scenario;
  if (!flicker_sim::makeSimPreset(preset, &scenario)) {
    if (error != nullptr) {
      *error = "unknown scenario '" + name + "' (see --list)";
    }
    return false;
  }
  if (name == kFrozenAlias) {
    scenario.name = kFrozenAlias;
  }
  base_ = scenario;
  lightChanged_ = false;
  switchChanged_ = false;
  switchAtS_ = -1;
  onsetAtS_ = -1;
  onsetFromDaylight_ = false;
  screenHz_ = 0;
  highlight_ = false;
  lamp_ = Lamp{};
  if (!base_.light.segments.empty() && !base_.light.segments[0].components.empty()) {
    const flicker_sim::SimLightComponent& c = base_.light.segments[0].components[0];
    lamp_.type = lampName(c.type);
    lamp_.mainsHz = c.mainsHz;
    lamp_.level = c.level;
    lamp_.drift = c.mainsHz > 0 ? c.baseHz - c.mainsHz : 0.0;
    if (c.type == flicker_sim::SimLightType::kPwmLed) {
      lamp_.pwmHz = c.baseHz;
    }
  }
  switchLamp_ = lamp_;
  switchLamp_.mainsHz = lamp_.mainsHz == 60 ? 50 : 60;
  if (base_.light.segments.size() > 1) {
    switchAtS_ = base_.light.segments[1].startS;
  }
  return true;
}

bool ScenarioBuilder::set(const std::string& key, const std::string& value, std::string* error) {
  long n = 0;
  if (key == "scenario") {
    return selectPreset(value, error);
  }
  if (key == "frames") {
    if (!parseInt(value, 1, kMaxFrames, &n)) {
      return bad(error, key, value, "a whole number 1.." + std::to_string(kMaxFrames));
    }
    options_.frames = static_cast<int>(n);
    return true;
  }
  if (key == "seed") {
    if (!parseInt(value, 0, 0x7fffffffL, &n)) {
      return bad(error, key, value, "a whole number 0..2147483647");
    }
    base_.seed = static_cast<uint64_t>(n);
    return true;
  }
  if (key == "start_state") {
    if (value == "keep") {
      options_.startStateHz = 0;
    } else if (value == "50" || value == "60") {
      options_.startStateHz = value == "50" ? 50 : 60;
    } else {
      return bad(error, key, value, "50, 60 or keep");
    }
    return true;
  }
  if (key == "sensors") {
    if (!parseInt(value, 1, kMaxSensors, &n)) {
      return bad(error, key, value, "1.." + std::to_string(kMaxSensors));
    }
    sensors_ = static_cast<int>(n);
    return true;
  }
  if (key == "light" || key == "mains" || key == "level" || key == "depth" || key == "drift" ||
      key == "pwm_hz" || key == "mix_mains" || key == "mix_share" || key == "switch_at" ||
      key == "switch_light" || key == "switch_mains" || key == "ripple" || key == "onset_at" ||
      key == "onset_from") {
    return setLight(key, value, error);
  }
  if (key == "object" || key == "screen_hz") {
    return setScene(key, value, error);
  }
  for (const std::string& k : keyList()) {
    if (k == key) {
      return setSensor(key, value, error);
    }
  }
  if (error != nullptr) {
    *error = "unknown key '" + key + "'";
  }
  return false;
}

bool ScenarioBuilder::setLight(const std::string& key, const std::string& value,
                               std::string* error) {
  double x = 0;
  flicker_sim::SimLightType type;
  const bool isSwitch = key.compare(0, 7, "switch_") == 0;
  Lamp& lamp = isSwitch ? switchLamp_ : lamp_;
  if (key == "light" || key == "switch_light") {
    if (!lampType(value, &type)) {
      std::string models;
      for (const flicker_sim::SimLampModel& m : flicker_sim::simLampModels()) {
        models += std::string(", ") + m.name;
      }
      return bad(error, key, value,
                 "fluorescent, led, incandescent, good-led, pwm, daylight" + models);
    }
    lamp.type = value;
  } else if (key == "mains" || key == "switch_mains") {
    if (value != "50" && value != "60" && value != "0") {
      return bad(error, key, value, "50, 60 or 0");
    }
    lamp.mainsHz = atoi(value.c_str());
  } else if (key == "level") {
    if (!parseReal(value, 1.0, 1e9, &x)) {
      return bad(error, key, value, "electrons per second, 1..1e9");
    }
    lamp_.level = x;
    switchLamp_.level = x;
  } else if (key == "depth") {
    if (!parseReal(value, 0.0, 2.5, &x)) {
      return bad(error, key, value, "a ripple scale 0..2.5");
    }
    lamp_.depth = x;
    switchLamp_.depth = x;
  } else if (key == "drift") {
    if (!parseReal(value, -2.0, 2.0, &x)) {
      return bad(error, key, value, "hertz, -2..2");
    }
    lamp_.drift = x;
    switchLamp_.drift = x;
  } else if (key == "pwm_hz") {
    if (!parseReal(value, 1.0, 100000.0, &x)) {
      return bad(error, key, value, "hertz, 1..100000");
    }
    lamp_.pwmHz = x;
  } else if (key == "mix_mains") {
    if (value != "50" && value != "60" && value != "0") {
      return bad(error, key, value, "50, 60 or 0");
    }
    lamp_.mixMainsHz = atoi(value.c_str());
    switchLamp_.mixMainsHz = lamp_.mixMainsHz;
  } else if (key == "mix_share") {
    if (!parseReal(value, 0.0, 1.0, &x)) {
      return bad(error, key, value, "a share 0..1");
    }
    lamp_.mixShare = x;
    switchLamp_.mixShare = x;
  } else if (key == "switch_at") {
    if (!parseReal(value, 0.0, 1e6, &x)) {
      return bad(error, key, value, "seconds >= 0");
    }
    switchAtS_ = x;
  } else if (key == "ripple") {
    if (!parseReal(value, 0.0, 1.0, &x)) {
      return bad(error, key, value, "a depth 0..1 (0 = the lamp's own)");
    }
    lamp_.ripple = x;
    switchLamp_.ripple = x;
  } else if (key == "onset_at") {
    if (!parseReal(value, 0.0, 1e6, &x)) {
      return bad(error, key, value, "seconds >= 0");
    }
    onsetAtS_ = x;
  } else if (key == "onset_from") {
    if (value != "dark" && value != "daylight") {
      return bad(error, key, value, "dark or daylight");
    }
    onsetFromDaylight_ = value == "daylight";
  }
  if (isSwitch) {
    switchChanged_ = true;
  } else {
    lightChanged_ = true;
  }
  return true;
}

bool ScenarioBuilder::setSensor(const std::string& key, const std::string& value,
                                std::string* error) {
  long n = 0;
  double x = 0;
  // Every sensor of the scenario takes the setting.
  for (flicker_sim::SimSensorParams& s : base_.sensors) {
    flicker_sim::SimGeometry& g = s.geometry;
    if (key == "fps") {
      if (!parseReal(value, 1.0, 1000.0, &x)) {
        return bad(error, key, value, "frames per second, 1..1000");
      }
      s.framesPerSecond = x;
    } else if (key == "mode") {
      if (!parseInt(value, 0, 3, &n)) {
        return bad(error, key, value, "0..3 (1 = 50 Hz, 2 = 60 Hz, 3 = detect)");
      }
      s.flickerMode = static_cast<int>(n);
    } else if (key == "width" || key == "height") {
      if (!parseInt(value, 16, 16000, &n)) {
        return bad(error, key, value, "pixels, 16..16000");
      }
      int& tg = key == "width" ? g.tgWidth : g.tgHeight;
      int& frame = key == "width" ? g.frameWidth : g.frameHeight;
      // Keep the frame-to-TG ratio (binned read-outs) while resizing.
      const long ratio = tg > 0 ? std::max(1, frame / tg) : 1;
      tg = static_cast<int>(n);
      frame = static_cast<int>(n * ratio);
    } else if (key == "pixel_mode") {
      if (!parseInt(value, 0, 3, &n)) {
        return bad(error, key, value, "0..3");
      }
      g.pixelMode = static_cast<int>(n);
    } else if (key == "pixel_clock") {
      if (!parseInt(value, 1000, 4000000000L, &n)) {
        return bad(error, key, value, "hertz, 1000..4e9");
      }
      g.pixelClockHz = static_cast<uint32_t>(n);
    } else if (key == "line_length") {
      if (!parseInt(value, 16, 65535, &n)) {
        return bad(error, key, value, "pixel clocks, 16..65535");
      }
      g.pixelsInLine = static_cast<uint32_t>(n);
    } else if (key == "binning") {
      if (!parseInt(value, 1, 8, &n)) {
        return bad(error, key, value, "1..8");
      }
      g.sensorBinning = static_cast<int>(n);
    } else if (key == "sensor_mode") {
      if (!parseInt(value, 0, 34, &n)) {
        return bad(error, key, value, "0..34");
      }
      g.sensorMode = static_cast<int>(n);
    } else if (key == "texture") {
      if (value == "natural") {
        s.scene.texture = flicker_sim::SimTexture::kNatural;
      } else if (value == "flat") {
        s.scene.texture = flicker_sim::SimTexture::kFlatWall;
      } else if (value == "grating") {
        s.scene.texture = flicker_sim::SimTexture::kGrating;
      } else if (value == "piecewise") {
        s.scene.texture = flicker_sim::SimTexture::kPiecewise;
      } else {
        return bad(error, key, value, "natural, flat, grating or piecewise");
      }
    } else if (key == "lines_per_frame") {
      if (!parseReal(value, -100.0, 100.0, &x)) {
        return bad(error, key, value, "image lines per frame, -100..100");
      }
      s.verticalLinesPerFrame = x;
    } else if (key == "timing") {
      if (value != "free" && value != "fixed") {
        return bad(error, key, value, "free or fixed");
      }
      s.fixedFrameRate = value == "fixed";
    } else if (key == "pan_x" || key == "pan_y" || key == "shake" || key == "shake_hz") {
      if (!parseReal(value, -100.0, 100.0, &x)) {
        return bad(error, key, value, "a number -100..100");
      }
      double& field = key == "pan_x"   ? s.scene.panX
                      : key == "pan_y" ? s.scene.panY
                      : key == "shake" ? s.scene.shakeAmplitude
                                       : s.scene.shakeHz;
      field = x;
    } else if (key == "exposure_ms") {
      if (!parseReal(value, 0.0, 1000.0, &x)) {
        return bad(error, key, value, "milliseconds, 0..1000");
      }
      s.ae.fixedExposureS = x / 1000.0;
    } else if (key == "ae_target") {
      if (!parseReal(value, 0.001, 1.0, &x)) {
        return bad(error, key, value, "a level 0.001..1");
      }
      s.ae.targetLevel = x;
    } else if (key == "read_noise") {
      if (!parseReal(value, 0.0, 1000.0, &x)) {
        return bad(error, key, value, "electrons, 0..1000");
      }
      s.pixel.readNoiseE = x;
    } else if (key == "full_well") {
      if (!parseReal(value, 10.0, 1e7, &x)) {
        return bad(error, key, value, "electrons, 10..1e7");
      }
      s.pixel.fullWellE = x;
    }
  }
  return true;
}

bool ScenarioBuilder::setScene(const std::string& key, const std::string& value,
                               std::string* error) {
  double x = 0;
  if (key == "object") {
    if (value != "none" && value != "highlight") {
      return bad(error, key, value, "none or highlight");
    }
    highlight_ = value == "highlight";
  } else if (key == "screen_hz") {
    if (!parseReal(value, 0.0, 100000.0, &x)) {
      return bad(error, key, value, "hertz, 0..100000 (0 = no screen)");
    }
    screenHz_ = x;
  }
  return true;
}

bool ScenarioBuilder::loadFile(const std::string& path, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    if (error != nullptr) {
      *error = "cannot read scenario file " + path;
    }
    return false;
  }
  std::stringstream text;
  text << in.rdbuf();
  return loadText(text.str(), path, error);
}

bool ScenarioBuilder::loadText(const std::string& text, const std::string& origin,
                               std::string* error) {
  std::istringstream in(text);
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    const size_t hash = line.find('#');
    const std::string content = trim(hash == std::string::npos ? line : line.substr(0, hash));
    if (content.empty()) {
      continue;
    }
    const size_t equals = content.find('=');
    const std::string where = origin + ":" + std::to_string(number) + ": ";
    if (equals == std::string::npos) {
      if (error != nullptr) {
        *error = where + "expected 'key = value'";
      }
      return false;
    }
    std::string reason;
    if (!set(trim(content.substr(0, equals)), trim(content.substr(equals + 1)), &reason)) {
      if (error != nullptr) {
        *error = where + reason;
      }
      return false;
    }
  }
  return true;
}

std::vector<flicker_sim::SimLightComponent> ScenarioBuilder::buildLamp(const Lamp& lamp) {
  const bool ownRate = pulsesOnItsOwn(lamp.type);
  const double mixShare = lamp.mixMainsHz > 0 ? lamp.mixShare : 0.0;
  const double level = lamp.level * (1.0 - mixShare);
  std::vector<flicker_sim::SimLightComponent> lamps;
  if (lamp.type == "pwm") {
    lamps.push_back(flicker_sim::makePwmLightComponent(lamp.pwmHz, 0.3, level));
  } else if (ownRate) {
    lamps.push_back(oneLamp(lamp.type, 0.0, level, 0.0, lamp.phase));
  } else if (lamp.mainsHz == 0) {
    lamps.push_back(
        flicker_sim::makeLightComponent(flicker_sim::SimLightType::kDaylight, 0.0, level));
  } else {
    lamps.push_back(oneLamp(lamp.type, lamp.mainsHz, level, lamp.drift, lamp.phase));
  }
  if (mixShare > 0 && !ownRate && lamp.type != "daylight") {
    // The second lamp's mains is out of phase with the first: another circuit.
    lamps.push_back(oneLamp(lamp.type, lamp.mixMainsHz, lamp.level * mixShare, -lamp.drift, 1.3));
  }
  for (flicker_sim::SimLightComponent& c : lamps) {
    double rippleDepth = 0.0;
    for (const flicker_sim::SimHarmonic& h : c.harmonics) {
      rippleDepth += c.mainsHz > 0 && h.order == 2 ? h.depth * lamp.depth : 0.0;
    }
    // An absolute ripple scales the lamp's waveform as a whole.
    const double scale =
        lamp.ripple > 0 && rippleDepth > 0 ? lamp.depth * lamp.ripple / rippleDepth : lamp.depth;
    for (flicker_sim::SimHarmonic& h : c.harmonics) {
      h.depth *= scale;
    }
  }
  return lamps;
}

flicker_sim::SimLightParams ScenarioBuilder::buildLight(
    const flicker_sim::SimScenario& base) const {
  const std::vector<flicker_sim::SimLightSegment>& preset = base.light.segments;
  std::vector<flicker_sim::SimLightComponent> ambient;
  if (onsetAtS_ >= 0 && onsetFromDaylight_) {
    ambient.push_back(
        flicker_sim::makeLightComponent(flicker_sim::SimLightType::kDaylight, 0.0, lamp_.level));
  }
  auto withAmbient = [&ambient](std::vector<flicker_sim::SimLightComponent> lamps) {
    lamps.insert(lamps.end(), ambient.begin(), ambient.end());
    return lamps;
  };
  const std::vector<flicker_sim::SimLightComponent> first =
      lightChanged_ || preset.empty() ? buildLamp(lamp_) : preset[0].components;
  flicker_sim::SimLightParams light;
  if (onsetAtS_ >= 0) {
    light.segments.push_back({0.0, ambient});
    light.segments.push_back({onsetAtS_, withAmbient(first)});
  } else {
    light.segments.push_back({0.0, first});
  }
  if (switchAtS_ >= 0) {
    flicker_sim::SimLightSegment second;
    if (switchChanged_ || preset.size() < 2) {
      second = {switchAtS_, buildLamp(switchLamp_)};
    } else {
      second = preset[1];
      second.startS = switchAtS_;
    }
    second.components = withAmbient(second.components);
    light.segments.push_back(second);
  }
  // In time order; the first segment lights the scene from the start.
  std::stable_sort(light.segments.begin() + 1, light.segments.end(),
                   [](const flicker_sim::SimLightSegment& a,
                      const flicker_sim::SimLightSegment& b) { return a.startS < b.startS; });
  return light;
}

void ScenarioBuilder::addSceneObjects(flicker_sim::SimSensorParams* sensor) const {
  if (highlight_) {
    flicker_sim::SimMovingObject o;
    o.x = 0.1;
    o.y = 0.45;
    o.width = 0.08;
    o.height = 0.12;
    o.vx = kHighlightSpeed;
    o.reflectance = kHighlightReflectance;
    sensor->scene.objects.push_back(o);
  }
  if (screenHz_ > 0) {
    flicker_sim::SimMovingObject o;
    o.x = kScreenX;
    o.y = kScreenY;
    o.width = kScreenW;
    o.height = kScreenH;
    o.reflectance = kScreenGlass;
    o.emissive = true;
    o.radiance = kScreenRadiance * lamp_.level;
    sensor->scene.objects.push_back(o);
    sensor->scene.emission.pwmHz = screenHz_;
    sensor->scene.emission.duty = kScreenDuty;
  }
}

flicker_sim::SimScenario ScenarioBuilder::scenario() const {
  flicker_sim::SimScenario s = base_;
  if (lightChanged_ || switchChanged_ || onsetAtS_ >= 0) {
    s.light = buildLight(base_);
  }
  if (sensors_ > 0 && !s.sensors.empty()) {
    const flicker_sim::SimSensorParams first = s.sensors.front();
    s.sensors.resize(static_cast<size_t>(sensors_), first);
    for (int i = 1; i < sensors_; ++i) {
      s.sensors[static_cast<size_t>(i)].startTimeS = first.startTimeS + i * kSensorStaggerS;
    }
  }
  for (flicker_sim::SimSensorParams& sensor : s.sensors) {
    addSceneObjects(&sensor);
  }
  return s;
}

std::vector<std::string> ScenarioBuilder::keys() {
  return keyList();
}

std::vector<std::string> ScenarioBuilder::presetNames() {
  std::vector<std::string> names = flicker_sim::simPresetNames();
  names.emplace_back(kFrozenAlias);
  return names;
}

}  // namespace flicker_loop
