#include "sim_scenario.h"

#include <functional>
#include <utility>

namespace flicker_sim {

namespace {

// Light levels in electrons per second per pixel of reflectance 1. With the
// default pixel (6000 e- full scale) and AE target (20 % of full scale on a
// scene of 18 % mean reflectance), a level of 3e5 asks for about 22 ms.
constexpr double kOfficeLevel = 3.0e5;
constexpr double kHomeLevel = 1.2e5;
constexpr double kDaylightLevel = 3.0e6;
constexpr double kFloodlightLevel = 2.0e7;
// Mains frequencies wander by a few hundredths of a hertz.
constexpr double kDrift50 = 0.03;
constexpr double kDrift60 = -0.02;

SimLightParams oneSegment(std::vector<SimLightComponent> components) {
  SimLightParams params;
  params.segments.push_back({0.0, std::move(components)});
  return params;
}

// 4000 x 3000 at 30 fps: 10 us per line, 30 ms readout.
SimSensorParams mainCamera() {
  SimSensorParams s;
  s.geometry.sensorMode = 1;
  s.geometry.tgWidth = 4000;
  s.geometry.tgHeight = 3000;
  s.geometry.frameWidth = 4000;
  s.geometry.frameHeight = 3000;
  s.geometry.pixelClockHz = 480000000;
  s.geometry.pixelsInLine = 4800;
  s.framesPerSecond = 30.0;
  return s;
}

// A binned read-out: the statistics image has twice the lines of the TG
// output, so the manager doubles the line length (2400 -> 4800 clocks).
SimSensorParams binnedCamera() {
  SimSensorParams s = mainCamera();
  s.geometry.sensorMode = 2;
  s.geometry.tgWidth = 2000;
  s.geometry.tgHeight = 1500;
  s.geometry.pixelsInLine = 2400;
  return s;
}

void office50(SimScenario* s) {
  s->description = "magnetic fluorescent on 50 Hz mains, textured office, hand-held";
  s->light = oneSegment(
      {makeLightComponent(SimLightType::kMagneticFluorescent, 50.0, kOfficeLevel, kDrift50, 0.4)});
  SimSensorParams sensor = mainCamera();
  sensor.scene.shakeAmplitude = 0.004;
  sensor.scene.shakeHz = 3.0;
  s->sensors = {sensor};
}

void home60(SimScenario* s) {
  s->description = "rectified LED lamp and a bulb on 60 Hz mains, dim room, binned read-out";
  s->light = oneSegment(
      {makeLightComponent(SimLightType::kRectifiedLed, 60.0, 0.7 * kHomeLevel, kDrift60, 1.1),
       makeLightComponent(SimLightType::kIncandescent, 60.0, 0.3 * kHomeLevel, kDrift60, 1.1)});
  SimSensorParams sensor = binnedCamera();
  sensor.scene.meanReflectance = 0.25;
  sensor.scene.shakeAmplitude = 0.003;
  sensor.scene.shakeHz = 2.0;
  s->sensors = {sensor};
}

void lightSwitch(SimScenario* s) {
  s->description = "50 Hz fluorescent switched off at 4 s, a 60 Hz LED lamp takes over";
  s->light.segments.push_back(
      {0.0,
       {makeLightComponent(SimLightType::kMagneticFluorescent, 50.0, kOfficeLevel, kDrift50)}});
  s->light.segments.push_back(
      {4.0, {makeLightComponent(SimLightType::kRectifiedLed, 60.0, kOfficeLevel, kDrift60, 0.7)}});
  s->sensors = {mainCamera()};
}

void daylight(SimScenario* s) {
  s->description = "steady daylight through a window, no flicker";
  s->light = oneSegment({makeLightComponent(SimLightType::kDaylight, 0.0, kDaylightLevel)});
  SimSensorParams sensor = mainCamera();
  sensor.scene.shakeAmplitude = 0.004;
  sensor.scene.shakeHz = 3.0;
  s->sensors = {sensor};
}

void pan60(SimScenario* s) {
  s->description = "pan across a scene under 60 Hz fluorescent, with a moving lamp";
  s->light = oneSegment(
      {makeLightComponent(SimLightType::kMagneticFluorescent, 60.0, kOfficeLevel, kDrift60, 2.0)});
  SimSensorParams sensor = binnedCamera();
  sensor.scene.panX = 0.3;
  sensor.scene.panY = 0.08;
  SimMovingObject lamp;
  lamp.x = 0.1;
  lamp.y = 0.2;
  lamp.width = 0.08;
  lamp.height = 0.12;
  lamp.vx = 0.25;
  lamp.reflectance = 6.0;
  sensor.scene.objects = {lamp};
  s->sensors = {sensor};
}

void brightShort(SimScenario* s) {
  s->description = "very bright 50 Hz LED floodlight: exposures stay below one period";
  s->light = oneSegment(
      {makeLightComponent(SimLightType::kRectifiedLed, 50.0, kFloodlightLevel, kDrift50, 0.2)});
  SimSensorParams sensor = mainCamera();
  sensor.scene.textureContrast = 0.4;
  s->sensors = {sensor};
}

void static120(SimScenario* s) {
  s->description = "flat wall under 60 Hz light at exactly 30 fps: the 120 Hz ripple sits still";
  s->light = oneSegment(
      {makeLightComponent(SimLightType::kMagneticFluorescent, 60.0, kOfficeLevel, 0.0, 0.9)});
  SimSensorParams sensor = mainCamera();
  sensor.scene.texture = SimTexture::kFlatWall;
  s->sensors = {sensor};
}

void gratingDaylight(SimScenario* s) {
  s->description = "steady light on horizontal stripes close to the 100 Hz band period";
  s->light = oneSegment({makeLightComponent(SimLightType::kDaylight, 0.0, kOfficeLevel)});
  SimSensorParams sensor = mainCamera();
  sensor.scene.texture = SimTexture::kGrating;
  // 100 Hz bands are 1000 lines apart at 10 us per line; 3.1 stripes per
  // 3000-line frame are 968 lines apart.
  sensor.scene.gratingCyclesPerFrame = 3.1;
  sensor.scene.gratingContrast = 0.3;
  s->sensors = {sensor};
}

void pwmLed(SimScenario* s) {
  s->description = "PWM-dimmed LED at 437 Hz, unrelated to mains";
  s->light = oneSegment({makePwmLightComponent(437.0, 0.3, kOfficeLevel)});
  s->sensors = {mainCamera()};
}

void aeTakesOver(SimScenario* s) {
  office50(s);
  s->description =
      "office-50hz; AE drives a 3-frame detection cycle for frames 60-119, then "
      "detection is switched off for frames 150-179";
  SimSensorParams& sensor = s->sensors.front();
  sensor.controls.push_back({60, 119, SimControl::kAeDetectCycle, 3});
  sensor.controls.push_back({150, 179, SimControl::kFlkEnable, 0});
}

void dualSensor50(SimScenario* s) {
  office50(s);
  s->description = "two sensors of different geometry and frame rate under one 50 Hz light";
  SimSensorParams second = binnedCamera();
  second.geometry.frameWidth = 2000;
  second.geometry.frameHeight = 1500;
  second.geometry.tgHeight = 1500;
  second.geometry.pixelsInLine = 4800;
  second.framesPerSecond = 24.0;
  second.startTimeS = 0.107;
  second.scene.meanReflectance = 0.3;
  s->sensors.push_back(second);
}

struct Preset {
  const char* name;
  std::function<void(SimScenario*)> build;
};

const std::vector<Preset>& presets() {
  static const std::vector<Preset> table = {
      {"office-50hz", office50},
      {"home-60hz", home60},
      {"light-switch", lightSwitch},
      {"daylight", daylight},
      {"pan-60hz", pan60},
      {"bright-short-exposure", brightShort},
      {"static-120hz-30fps", static120},
      {"grating-daylight", gratingDaylight},
      {"pwm-led", pwmLed},
      {"ae-takes-over", aeTakesOver},
      {"dual-sensor-50hz", dualSensor50},
  };
  return table;
}

}  // namespace

std::vector<std::string> simPresetNames() {
  std::vector<std::string> names;
  for (const Preset& p : presets()) {
    names.emplace_back(p.name);
  }
  return names;
}

bool makeSimPreset(const std::string& name, SimScenario* out) {
  if (out == nullptr) {
    return false;
  }
  for (const Preset& p : presets()) {
    if (name == p.name) {
      SimScenario scenario;
      scenario.name = p.name;
      p.build(&scenario);
      *out = std::move(scenario);
      return true;
    }
  }
  return false;
}

}  // namespace flicker_sim
