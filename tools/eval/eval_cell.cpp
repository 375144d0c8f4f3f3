#include "eval_cell.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>
#include <utility>

#include "scenario_builder.h"

namespace flicker_eval {

namespace {

// Light levels in electrons per second per pixel of reflectance 1. Office
// light asks for about 20 ms (long exposures on whole flicker periods); a
// floodlight for a fraction of a millisecond; the dim variants raise the gain
// and with it the noise.
constexpr double kOfficeLevel = 3.0e5;
constexpr double kDimLevel = 3.0e4;
constexpr double kFloodLevel = 2.0e7;
constexpr double kDimFloodLevel = 4.0e6;
constexpr double kDimReadNoiseE = 6.0;
// Mains drift of every lamp: the ripple phase creeps even where the frame
// rate would freeze it exactly.
constexpr double kDriftHz = 0.03;
// Readout start of the first frame (the simulator's default).
constexpr double kStartTimeS = 0.1;
// The readout must leave blanking at high frame rates: a sensor mode for
// them has shorter lines.
constexpr double kReadoutShare = 0.9;
constexpr uint32_t kPixelClockHz = 480000000;
// A grating's stripe period relative to the 100 Hz band period: close
// enough to look like bands in one frame.
constexpr double kGratingToBand = 0.97;
constexpr double kRipple50Hz = 100.0;

struct Geometry {
  int width;
  int height;
  int lineLength;  // pixel clocks per line at the base frame rate
};

Geometry geometryOf(const std::string& name) {
  if (name == "1920x1080") {
    return {1920, 1080, 6000};  // 12.5 us per line, 13.5 ms readout
  }
  return {4000, 3000, 4800};  // 10 us per line, 30 ms readout
}

std::string text(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%g", v);
  return buf;
}

template <typename T>
const T& cycle(const std::vector<T>& values, size_t index) {
  return values[index % values.size()];
}

struct GridAxes {
  std::vector<std::string> mains;
  std::vector<std::string> lights;
  std::vector<std::string> exposures;
  std::vector<double> rates;
  std::vector<int> starts;
  std::vector<std::string> geometries;  // multiplied in the full grid, cycled otherwise
  std::vector<double> depths;           // cycled
  std::vector<std::string> noises;      // cycled
  std::vector<std::string> motions;     // cycled with flicker, multiplied without
  std::vector<std::string> textures;    // multiplied without flicker, natural otherwise
  bool multiplyGeometry = false;
};

GridAxes axesOf(GridSize size) {
  GridAxes a;
  switch (size) {
    case GridSize::kQuick:
      a.mains = {"50", "60", "none", "50>60"};
      a.lights = {"fluorescent"};
      a.exposures = {"long"};
      a.rates = {25, 30};
      a.starts = {50, 60};
      a.geometries = {"4000x3000"};
      a.depths = {1.0};
      a.noises = {"normal"};
      a.motions = {"still", "handheld"};
      a.textures = {"natural", "grating"};
      break;
    case GridSize::kDefault:
      a.mains = {"50", "60", "none", "50>60", "60>50", "mixed"};
      a.lights = {"fluorescent", "led", "incandescent"};
      a.exposures = {"long", "short"};
      a.rates = {24, 25, 29.97, 30, 60, 120};
      a.starts = {50, 60};
      a.geometries = {"4000x3000", "1920x1080"};
      a.depths = {1.0, 0.5};
      a.noises = {"normal", "dim"};
      a.motions = {"still", "handheld", "pan"};
      a.textures = {"natural", "grating"};
      break;
    case GridSize::kFull:
      a.mains = {"50", "60", "none", "50>60", "60>50", "mixed"};
      a.lights = {"fluorescent", "led", "incandescent", "good-led"};
      a.exposures = {"long", "short"};
      a.rates = {24, 25, 29.97, 30, 60, 120};
      a.starts = {50, 60};
      a.geometries = {"4000x3000", "1920x1080"};
      a.depths = {1.0, 0.5};
      a.noises = {"normal", "dim"};
      a.motions = {"still", "handheld", "pan"};
      a.textures = {"natural", "flat", "grating"};
      a.multiplyGeometry = true;
      break;
  }
  return a;
}

std::string keyOf(const EvalCell& c) {
  std::string key;
  for (const std::string& d : evalDimensions()) {
    key += c.value(d) + "|";
  }
  return key;
}

}  // namespace

double firstFrameTimeS() {
  return kStartTimeS;
}

double switchTimeS(double seconds) {
  return kStartTimeS + 0.5 * seconds;
}

std::vector<std::string> evalDimensions() {
  return {"light", "depth",  "mains",   "exposure", "fps",
          "noise", "motion", "texture", "geometry", "start"};
}

std::string EvalCell::value(const std::string& name) const {
  if (name == "light") {
    return light;
  }
  if (name == "depth") {
    return text(depth);
  }
  if (name == "mains") {
    return mains;
  }
  if (name == "exposure") {
    return exposure;
  }
  if (name == "fps") {
    return text(fps);
  }
  if (name == "noise") {
    return noise;
  }
  if (name == "motion") {
    return motion;
  }
  if (name == "texture") {
    return texture;
  }
  if (name == "geometry") {
    return geometry;
  }
  if (name == "start") {
    return std::to_string(startHz);
  }
  return "";
}

int EvalCell::firstMainsHz() const {
  if (mains == "none") {
    return 0;
  }
  return mains.compare(0, 2, "60") == 0 ? 60 : 50;
}

int EvalCell::lastMainsHz() const {
  if (mains == "none") {
    return 0;
  }
  if (isSwitch()) {
    return mains.compare(3, 2, "60") == 0 ? 60 : 50;
  }
  return firstMainsHz();
}

std::string EvalCell::label() const {
  std::string s;
  for (const std::string& d : evalDimensions()) {
    s += (s.empty() ? "" : " ") + d + "=" + value(d);
  }
  return s;
}

bool EvalCell::scenario(double seconds, flicker_sim::SimScenario* out, int* frames,
                        std::string* error) const {
  const Geometry g = geometryOf(geometry);
  // Shorter lines at high frame rates, as a sensor mode for them has.
  const double baseReadout = static_cast<double>(g.height) * g.lineLength / kPixelClockHz;
  double lineLength = g.lineLength;
  const double maxReadout = kReadoutShare / fps;
  if (baseReadout > maxReadout) {
    lineLength = std::floor(lineLength * maxReadout / baseReadout);
  }
  *frames = std::max(2, static_cast<int>(std::lround(seconds * fps)));
  const bool flood = exposure == "short";
  const bool dim = noise == "dim";
  const double level =
      flood ? (dim ? kDimFloodLevel : kFloodLevel) : (dim ? kDimLevel : kOfficeLevel);

  std::vector<std::pair<std::string, std::string>> s = {
      {"scenario", "office-50hz"},
      {"width", std::to_string(g.width)},
      {"height", std::to_string(g.height)},
      {"pixel_clock", std::to_string(kPixelClockHz)},
      {"line_length", std::to_string(static_cast<int>(lineLength))},
      {"fps", text(fps)},
      {"frames", std::to_string(*frames)},
      {"start_state", std::to_string(startHz)},
      {"seed", std::to_string(seed)},
      {"light", hasFlicker() ? light : "daylight"},
      {"depth", text(depth)},
      {"drift", text(kDriftHz)},
      {"level", text(level)},
      {"texture", texture},
  };
  if (dim) {
    s.emplace_back("read_noise", text(kDimReadNoiseE));
  }
  if (!hasFlicker()) {
    s.emplace_back("mains", "0");
  } else if (mains == "mixed") {
    s.emplace_back("mains", "50");
    s.emplace_back("mix_mains", "60");
  } else if (isSwitch()) {
    s.emplace_back("mains", std::to_string(firstMainsHz()));
    s.emplace_back("switch_light", light);
    s.emplace_back("switch_mains", std::to_string(lastMainsHz()));
    s.emplace_back("switch_at", text(switchTimeS(seconds)));
  } else {
    s.emplace_back("mains", mains);
  }
  if (motion == "handheld") {
    s.emplace_back("shake", "0.004");
    s.emplace_back("shake_hz", "3");
  } else {
    s.emplace_back("shake", "0");
    if (motion == "pan") {
      s.emplace_back("pan_x", "0.3");
      s.emplace_back("pan_y", "0.08");
    }
  }

  flicker_loop::ScenarioBuilder builder;
  for (const auto& kv : s) {
    if (!builder.set(kv.first, kv.second, error)) {
      return false;
    }
  }
  *out = builder.scenario();
  for (flicker_sim::SimSensorParams& sensor : out->sensors) {
    if (texture == "grating") {
      // Stripes a little narrower than the 100 Hz bands of this readout.
      const double frameS = sensor.geometry.frameHeight * sensor.geometry.lineTimeSeconds();
      sensor.scene.gratingCyclesPerFrame = frameS * kRipple50Hz / kGratingToBand;
    }
  }
  return true;
}

std::vector<EvalCell> buildGrid(GridSize size, uint64_t seedBase) {
  const GridAxes a = axesOf(size);
  std::vector<EvalCell> cells;
  std::set<std::string> seen;
  size_t index = 0;
  auto add = [&](EvalCell c) {
    c.seed = seedBase + static_cast<uint64_t>(index) + 1;
    ++index;
    if (seen.insert(keyOf(c)).second) {
      cells.push_back(c);
    }
  };
  const std::vector<std::string> oneGeometry = {""};
  for (const std::string& m : a.mains) {
    const bool none = m == "none";
    // Without flicker the light type means nothing: texture x motion instead.
    const size_t variants = none ? a.textures.size() * a.motions.size() : a.lights.size();
    for (size_t v = 0; v < variants; ++v) {
      for (const std::string& e : a.exposures) {
        for (const double fps : a.rates) {
          for (const int start : a.starts) {
            for (const std::string& geo : a.multiplyGeometry ? a.geometries : oneGeometry) {
              EvalCell c;
              c.mains = m;
              c.exposure = e;
              c.fps = fps;
              c.startHz = start;
              c.geometry = geo.empty() ? cycle(a.geometries, index / 3) : geo;
              c.depth = none ? 1.0 : cycle(a.depths, index / 2);
              c.noise = cycle(a.noises, index / 5);
              if (none) {
                c.light = "daylight";
                c.texture = a.textures[v / a.motions.size()];
                c.motion = a.motions[v % a.motions.size()];
              } else {
                c.light = a.lights[v];
                c.texture = "natural";
                c.motion = cycle(a.motions, index / 7);
              }
              add(c);
            }
          }
        }
      }
    }
  }
  return cells;
}

}  // namespace flicker_eval
