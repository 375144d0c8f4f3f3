#include "scenario_builder.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "sim_lamp_models.h"

namespace flicker_loop {

namespace {

const char kDefaultPreset[] = "office-50hz";
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

// One lamp of `name` (a lamp model's name for a measured lamp).
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

enum class KeyKind {
  kWhole,   // a whole number lo..hi
  kReal,    // a finite real lo..hi
  kChoice,  // one of the words of `choices`
  kPreset,  // a built-in scenario
  kLamp,    // a lamp type or a lamp modelled on published measurements
};

// Every key: what it takes, its unit and what it sets. Values are checked
// here before they reach the builder.
struct KeySpec {
  const char* name;
  KeyKind kind;
  double lo;
  double hi;
  const char* choices;  // kChoice: the allowed words, space-separated
  const char* unit;
  const char* meaning;
};

const char kMainsChoices[] = "50 60 0";

const KeySpec kKeys[] = {
    {"scenario", KeyKind::kPreset, 0, 0, "", "", "built-in scenario to start from (--list)"},
    {"frames", KeyKind::kWhole, 1, kMaxFrames, "", "frames", "frames per sensor"},
    {"seed", KeyKind::kWhole, 0, 2147483647, "", "", "seed of the scene's texture and noise"},
    {"start_state", KeyKind::kChoice, 0, 0, "50 60 keep", "Hz",
     "state before the first frame (keep: as an earlier run left it)"},
    {"sensors", KeyKind::kWhole, 1, kMaxSensors, "", "",
     "sensors: copies of sensor 0, each starting 7 ms later"},
    {"fps", KeyKind::kReal, 1, 1000, "", "frames/s", "frame rate"},
    {"mode", KeyKind::kWhole, 0, 3, "", "", "anti-banding mode: 1 = 50 Hz, 2 = 60 Hz, 3 = detect"},
    {"width", KeyKind::kWhole, 16, 16000, "", "pixels",
     "TG width (the frame keeps its ratio to the TG)"},
    {"height", KeyKind::kWhole, 16, 16000, "", "pixels",
     "TG height (the frame keeps its ratio to the TG)"},
    {"pixel_mode", KeyKind::kWhole, 0, 3, "", "", "pixel mode: the width is shifted right by it"},
    {"pixel_clock", KeyKind::kWhole, 1000, 4e9, "", "Hz", "pixel clock"},
    {"line_length", KeyKind::kWhole, 16, 65535, "", "pixel clocks",
     "line length, blanking included"},
    {"binning", KeyKind::kWhole, 1, 8, "", "", "the sensor's own binning factor"},
    {"sensor_mode", KeyKind::kWhole, 0, 34, "", "", "sensor mode (row of the tuning table)"},
    {"light", KeyKind::kLamp, 0, 0, "", "",
     "lamp type, or a lamp modelled on published measurements"},
    {"mains", KeyKind::kChoice, 0, 0, kMainsChoices, "Hz", "mains of the lamp (0: steady)"},
    {"level", KeyKind::kReal, 1, 1e9, "", "e-/s/pixel", "light level"},
    {"depth", KeyKind::kReal, 0, 2.5, "", "", "scale of the lamp's ripple"},
    {"ripple", KeyKind::kReal, 0, 1, "", "",
     "depth of the ripple at twice the mains (0: the lamp's own); harmonics keep their "
     "proportions"},
    {"drift", KeyKind::kReal, -2, 2, "", "Hz", "offset of the mains frequency"},
    {"pwm_hz", KeyKind::kReal, 1, 100000, "", "Hz", "PWM frequency of light = pwm"},
    {"mix_mains", KeyKind::kChoice, 0, 0, kMainsChoices, "Hz",
     "a second lamp of the same type on this mains (0: none)"},
    {"mix_share", KeyKind::kReal, 0, 1, "", "", "share of the light level the second lamp gives"},
    {"switch_at", KeyKind::kReal, 0, 1e6, "", "s",
     "time the light changes to switch_light / switch_mains"},
    {"switch_light", KeyKind::kLamp, 0, 0, "", "", "lamp type after the switch"},
    {"switch_mains", KeyKind::kChoice, 0, 0, kMainsChoices, "Hz", "mains after the switch"},
    {"onset_at", KeyKind::kReal, 0, 1e6, "", "s",
     "time the lamp is switched on; before it the scene is lit as onset_from says"},
    {"onset_from", KeyKind::kChoice, 0, 0, "dark daylight", "",
     "light before the onset: none, or steady light of the lamp's level (which stays on)"},
    {"texture", KeyKind::kChoice, 0, 0, "natural flat grating piecewise", "",
     "scene texture (piecewise: flat patches with sharp edges)"},
    {"pan_x", KeyKind::kReal, -100, 100, "", "frames/s", "horizontal pan speed"},
    {"pan_y", KeyKind::kReal, -100, 100, "", "frames/s", "vertical pan speed"},
    {"shake", KeyKind::kReal, -100, 100, "", "frames", "hand-shake amplitude"},
    {"shake_hz", KeyKind::kReal, -100, 100, "", "Hz", "hand-shake frequency"},
    {"lines_per_frame", KeyKind::kReal, -100, 100, "", "lines/frame",
     "vertical drift of the scene"},
    {"object", KeyKind::kChoice, 0, 0, "none highlight", "",
     "a bright object crossing the frame (highlight) or none"},
    {"screen_hz", KeyKind::kReal, 0, 100000, "", "Hz",
     "a screen in the scene whose backlight pulses at this rate (0: none)"},
    {"timing", KeyKind::kChoice, 0, 0, "free fixed", "",
     "free: exposure control may stretch detection frames; fixed: fixed-rate video, never"},
    {"exposure_ms", KeyKind::kReal, 0, 1000, "", "ms", "manual exposure (0: automatic)"},
    {"ae_target", KeyKind::kReal, 0.001, 1, "", "", "AE's mean level, fraction of full scale"},
    {"read_noise", KeyKind::kReal, 0, 1000, "", "e- rms", "read noise"},
    {"full_well", KeyKind::kReal, 10, 1e7, "", "e-", "electrons at full scale"},
};

const KeySpec* findKey(const std::string& name) {
  for (const KeySpec& k : kKeys) {
    if (name == k.name) {
      return &k;
    }
  }
  return nullptr;
}

std::string number(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%.10g", v);
  return buf;
}

std::vector<std::string> words(const char* text) {
  std::istringstream in(text);
  std::vector<std::string> out;
  for (std::string w; in >> w;) {
    out.push_back(w);
  }
  return out;
}

// Every lamp a light key accepts: the types, then the measured lamps.
std::vector<std::string> lampNames() {
  std::vector<std::string> names;
  for (const LampType& t : kLampTypes) {
    names.emplace_back(t.name);
  }
  for (const flicker_sim::SimLampModel& m : flicker_sim::simLampModels()) {
    names.emplace_back(m.name);
  }
  return names;
}

// The words a choice key accepts.
std::vector<std::string> choices(const KeySpec& k) {
  return k.kind == KeyKind::kLamp ? lampNames() : words(k.choices);
}

// "a, b or c" / "lo..hi": what a key accepts.
std::string allowed(const KeySpec& k) {
  if (k.kind == KeyKind::kPreset) {
    return "a built-in scenario";
  }
  if (k.kind != KeyKind::kChoice && k.kind != KeyKind::kLamp) {
    return number(k.lo) + ".." + number(k.hi);
  }
  const std::vector<std::string> w = choices(k);
  std::string text;
  for (size_t i = 0; i < w.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == w.size() ? " or " : ", ") + w[i];
  }
  return text;
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
  flicker_sim::SimScenario scenario;
  if (!flicker_sim::makeSimPreset(name, &scenario)) {
    if (error != nullptr) {
      *error = "unknown scenario '" + name + "' (see --list)";
    }
    return false;
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
  const KeySpec* keySpec = findKey(key);
  if (keySpec == nullptr) {
    if (error != nullptr) {
      *error = "unknown key '" + key + "'";
    }
    return false;
  }
  long n = 0;
  double x = 0;
  bool valid = true;
  switch (keySpec->kind) {
    case KeyKind::kPreset:
      return selectPreset(value, error);
    case KeyKind::kWhole:
      valid = parseInt(value, static_cast<long>(keySpec->lo), static_cast<long>(keySpec->hi), &n);
      x = static_cast<double>(n);
      break;
    case KeyKind::kReal:
      valid = parseReal(value, keySpec->lo, keySpec->hi, &x);
      break;
    case KeyKind::kChoice:
    case KeyKind::kLamp: {
      const std::vector<std::string> w = choices(*keySpec);
      valid = std::find(w.begin(), w.end(), value) != w.end();
      x = atof(value.c_str());  // the numeric choices (mains); 0 for words
      break;
    }
  }
  if (!valid) {
    const std::string unit =
        keySpec->unit[0] != '\0' ? " (" + std::string(keySpec->unit) + ")" : "";
    return bad(error, key, value, allowed(*keySpec) + unit);
  }
  if (key == "frames") {
    options_.frames = static_cast<int>(n);
  } else if (key == "seed") {
    base_.seed = static_cast<uint64_t>(n);
  } else if (key == "start_state") {
    options_.startStateHz = value == "keep" ? 0 : atoi(value.c_str());
  } else if (key == "sensors") {
    sensors_ = static_cast<int>(n);
  } else if (key == "light" || key == "mains" || key == "level" || key == "depth" ||
             key == "drift" || key == "pwm_hz" || key == "mix_mains" || key == "mix_share" ||
             key == "switch_at" || key == "switch_light" || key == "switch_mains" ||
             key == "ripple" || key == "onset_at" || key == "onset_from") {
    setLight(key, value, x);
  } else if (key == "object" || key == "screen_hz") {
    setScene(key, value, x);
  } else {
    for (flicker_sim::SimSensorParams& s : base_.sensors) {
      setSensor(key, value, x, &s);
    }
  }
  return true;
}

void ScenarioBuilder::setLight(const std::string& key, const std::string& value, double x) {
  const bool isSwitch = key.compare(0, 7, "switch_") == 0;
  Lamp& lamp = isSwitch ? switchLamp_ : lamp_;
  if (key == "light" || key == "switch_light") {
    lamp.type = value;
  } else if (key == "mains" || key == "switch_mains") {
    lamp.mainsHz = x;
  } else if (key == "level") {
    lamp_.level = x;
    switchLamp_.level = x;
  } else if (key == "depth") {
    lamp_.depth = x;
    switchLamp_.depth = x;
  } else if (key == "drift") {
    lamp_.drift = x;
    switchLamp_.drift = x;
  } else if (key == "pwm_hz") {
    lamp_.pwmHz = x;
  } else if (key == "mix_mains") {
    lamp_.mixMainsHz = x;
    switchLamp_.mixMainsHz = x;
  } else if (key == "mix_share") {
    lamp_.mixShare = x;
    switchLamp_.mixShare = x;
  } else if (key == "switch_at") {
    switchAtS_ = x;
  } else if (key == "ripple") {
    lamp_.ripple = x;
    switchLamp_.ripple = x;
  } else if (key == "onset_at") {
    onsetAtS_ = x;
  } else if (key == "onset_from") {
    onsetFromDaylight_ = value == "daylight";
  }
  if (isSwitch) {
    switchChanged_ = true;
  } else {
    lightChanged_ = true;
  }
}

void ScenarioBuilder::setSensor(const std::string& key, const std::string& value, double x,
                                flicker_sim::SimSensorParams* s) {
  flicker_sim::SimGeometry& g = s->geometry;
  const int n = static_cast<int>(x);
  if (key == "fps") {
    s->framesPerSecond = x;
  } else if (key == "mode") {
    s->flickerMode = n;
  } else if (key == "width" || key == "height") {
    int& tg = key == "width" ? g.tgWidth : g.tgHeight;
    int& frame = key == "width" ? g.frameWidth : g.frameHeight;
    // Keep the frame-to-TG ratio (binned read-outs) while resizing.
    const int ratio = tg > 0 ? std::max(1, frame / tg) : 1;
    tg = n;
    frame = n * ratio;
  } else if (key == "pixel_mode") {
    g.pixelMode = n;
  } else if (key == "pixel_clock") {
    g.pixelClockHz = static_cast<uint32_t>(x);
  } else if (key == "line_length") {
    g.pixelsInLine = static_cast<uint32_t>(x);
  } else if (key == "binning") {
    g.sensorBinning = n;
  } else if (key == "sensor_mode") {
    g.sensorMode = n;
  } else if (key == "texture") {
    s->scene.texture = value == "flat"        ? flicker_sim::SimTexture::kFlatWall
                       : value == "grating"   ? flicker_sim::SimTexture::kGrating
                       : value == "piecewise" ? flicker_sim::SimTexture::kPiecewise
                                              : flicker_sim::SimTexture::kNatural;
  } else if (key == "pan_x") {
    s->scene.panX = x;
  } else if (key == "pan_y") {
    s->scene.panY = x;
  } else if (key == "shake") {
    s->scene.shakeAmplitude = x;
  } else if (key == "shake_hz") {
    s->scene.shakeHz = x;
  } else if (key == "lines_per_frame") {
    s->verticalLinesPerFrame = x;
  } else if (key == "timing") {
    s->fixedFrameRate = value == "fixed";
  } else if (key == "exposure_ms") {
    s->ae.fixedExposureS = x / 1000.0;
  } else if (key == "ae_target") {
    s->ae.targetLevel = x;
  } else if (key == "read_noise") {
    s->pixel.readNoiseE = x;
  } else if (key == "full_well") {
    s->pixel.fullWellE = x;
  }
}

void ScenarioBuilder::setScene(const std::string& key, const std::string& value, double x) {
  if (key == "object") {
    highlight_ = value == "highlight";
  } else if (key == "screen_hz") {
    screenHz_ = x;
  }
}

std::string ScenarioBuilder::value(const std::string& key) const {
  const flicker_sim::SimSensorParams& s = base_.sensors.front();
  const flicker_sim::SimGeometry& g = s.geometry;
  const bool isSwitch = key.compare(0, 7, "switch_") == 0;
  const Lamp& lamp = isSwitch ? switchLamp_ : lamp_;
  if (key == "scenario") {
    return base_.name;
  }
  if (key == "frames") {
    return std::to_string(options_.frames > 0 ? options_.frames : base_.frameCount);
  }
  if (key == "seed") {
    return std::to_string(base_.seed);
  }
  if (key == "start_state") {
    return options_.startStateHz == 0 ? "keep" : std::to_string(options_.startStateHz);
  }
  if (key == "sensors") {
    return std::to_string(sensors_ > 0 ? sensors_ : static_cast<int>(base_.sensors.size()));
  }
  if (key == "light" || key == "switch_light") {
    return lamp.type;
  }
  if (key == "switch_at") {
    return switchAtS_ < 0 ? "none" : number(switchAtS_);
  }
  if (key == "onset_at") {
    return onsetAtS_ < 0 ? "none" : number(onsetAtS_);
  }
  if (key == "onset_from") {
    return onsetFromDaylight_ ? "daylight" : "dark";
  }
  if (key == "object") {
    return highlight_ ? "highlight" : "none";
  }
  if (key == "timing") {
    return s.fixedFrameRate ? "fixed" : "free";
  }
  const std::pair<const char*, double> numbers[] = {
      {"fps", s.framesPerSecond},
      {"mode", s.flickerMode},
      {"width", g.tgWidth},
      {"height", g.tgHeight},
      {"pixel_mode", g.pixelMode},
      {"pixel_clock", g.pixelClockHz},
      {"line_length", g.pixelsInLine},
      {"binning", g.sensorBinning},
      {"sensor_mode", g.sensorMode},
      {"mains", lamp.mainsHz},
      {"switch_mains", lamp.mainsHz},
      {"level", lamp.level},
      {"depth", lamp.depth},
      {"ripple", lamp.ripple},
      {"drift", lamp.drift},
      {"pwm_hz", lamp.pwmHz},
      {"mix_mains", lamp.mixMainsHz},
      {"mix_share", lamp.mixShare},
      {"pan_x", s.scene.panX},
      {"pan_y", s.scene.panY},
      {"shake", s.scene.shakeAmplitude},
      {"shake_hz", s.scene.shakeHz},
      {"lines_per_frame", s.verticalLinesPerFrame},
      {"screen_hz", screenHz_},
      {"exposure_ms", 1000.0 * s.ae.fixedExposureS},
      {"ae_target", s.ae.targetLevel},
      {"read_noise", s.pixel.readNoiseE},
      {"full_well", s.pixel.fullWellE},
  };
  for (const auto& entry : numbers) {
    if (key == entry.first) {
      return number(entry.second);
    }
  }
  if (key == "texture") {
    return s.scene.texture == flicker_sim::SimTexture::kFlatWall    ? "flat"
           : s.scene.texture == flicker_sim::SimTexture::kGrating   ? "grating"
           : s.scene.texture == flicker_sim::SimTexture::kPiecewise ? "piecewise"
                                                                    : "natural";
  }
  return "";
}

std::vector<ScenarioBuilder::KeyInfo> ScenarioBuilder::describeKeys() const {
  std::vector<KeyInfo> out;
  for (const KeySpec& k : kKeys) {
    out.push_back(KeyInfo{k.name, k.unit, allowed(k), value(k.name), k.meaning});
  }
  return out;
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
  std::vector<std::string> names;
  for (const KeySpec& k : kKeys) {
    names.emplace_back(k.name);
  }
  return names;
}

std::vector<std::string> ScenarioBuilder::presetNames() {
  return flicker_sim::simPresetNames();
}

}  // namespace flicker_loop
