#include "eval_cell.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
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
// A screen's backlight pulses at a rate that is no low multiple of either
// ripple, as many laptop and monitor backlights do.
const char kScreenHz[] = "487";
// Simulated seconds per run: the quick grid is for CI.
constexpr double kQuickSeconds = 3.0;
constexpr double kDefaultSeconds = 4.0;

struct Geometry {
  const char* name;
  int width;
  int height;
  int lineLength;  // pixel clocks per line at 480 MHz, at the base frame rate
};

// Statistics readouts (lines x line time) from half a 100 Hz period to three.
const Geometry kGeometries[] = {
    {"640x480@12us", 640, 480, 5760},        // 432 lines, 5.2 ms: half a period
    {"640x480@64us", 640, 480, 30720},       // 27.6 ms
    {"1920x1080@10us", 1920, 1080, 4800},    // 1032 lines, 10.3 ms: about one period
    {"1920x1080@12.5us", 1920, 1080, 6000},  // 12.9 ms
    {"4000x3000@10us", 4000, 3000, 4800},    // 2952 lines, 29.5 ms
    {"8160x6144@5us", 8160, 6144, 2400},     // 5994 lines, 30 ms
};

const Geometry* geometryOf(const std::string& name) {
  for (const Geometry& g : kGeometries) {
    if (name == g.name) {
      return &g;
    }
  }
  return nullptr;
}

std::string text(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%g", v);
  return buf;
}

// `word` as a shell reads it back: quoted when it holds more than letters,
// digits and . _ @ = + - (a light switch's '>', say).
std::string shellWord(const std::string& word) {
  for (const char c : word) {
    if (!isalnum(static_cast<unsigned char>(c)) && strchr("._@=+-", c) == nullptr) {
      return "'" + word + "'";
    }
  }
  return word;
}

bool parseNumber(const std::string& s, double* out) {
  if (s.empty()) {
    return false;
  }
  char* end = nullptr;
  const double v = strtod(s.c_str(), &end);
  if (*end != '\0' || !std::isfinite(v)) {
    return false;
  }
  *out = v;
  return true;
}

// One dimension of a block: multiplied (every value with every other
// multiplied value) or cycled across the block's cells.
struct Axis {
  std::string dim;
  std::vector<std::string> values;
  bool multiply;
};

struct Block {
  std::vector<Axis> axes;
};

Axis times(const std::string& dim, std::vector<std::string> values) {
  return {dim, std::move(values), true};
}
Axis cycled(const std::string& dim, std::vector<std::string> values) {
  return {dim, std::move(values), false};
}

const std::vector<std::string> kRates = {"24", "25", "29.97", "30", "60", "120"};
const std::vector<std::string> kVideoRates = {"24", "25", "29.97", "30", "60"};
const std::vector<std::string> kAllGeometries = {"640x480@12us",   "640x480@64us",
                                                 "1920x1080@10us", "1920x1080@12.5us",
                                                 "4000x3000@10us", "8160x6144@5us"};
const std::vector<std::string> kPublishedMainsLamps = {
    "incandescent-40w", "incandescent-60w",       "incandescent-100w", "fluorescent-magnetic",
    "cfl-electronic",   "fluorescent-electronic", "led-rectified"};

std::vector<Block> quickBlocks() {
  return {
      {{times("mains", {"50", "60", "50>60"}), times("fps", {"25", "30"}),
        times("start", {"50", "60"}), cycled("motion", {"still", "handheld"})}},
      {{times("mains", {"none"}), times("light", {"daylight"}),
        times("texture", {"natural", "grating"}), times("motion", {"still", "handheld"}),
        times("fps", {"25", "30"}), times("start", {"50", "60"})}},
  };
}

std::vector<Block> defaultBlocks() {
  const std::vector<std::string> twoGeometries = {"4000x3000@10us", "1920x1080@12.5us"};
  return {
      // Steady lamps and light switches at every frame rate.
      {{times("mains", {"50", "60", "50>60", "60>50"}),
        times("light", {"fluorescent", "led", "incandescent"}),
        times("exposure", {"long", "short"}), times("fps", kRates), times("start", {"50", "60"}),
        cycled("depth", {"1", "0.5"}), cycled("geometry", twoGeometries),
        cycled("noise", {"normal", "dim"}), cycled("motion", {"still", "handheld", "pan"})}},
      // Mixed 50 + 60 Hz light: no right answer, the weaker residual banding.
      {{times("mains", {"mixed", "mixed30"}),
        times("light", {"fluorescent", "led", "incandescent"}),
        times("exposure", {"long", "short"}), times("fps", kVideoRates),
        times("start", {"50", "60"}), cycled("geometry", twoGeometries),
        cycled("timing", {"free", "fixed"}), cycled("motion", {"still", "handheld", "pan"}),
        cycled("noise", {"normal", "dim"})}},
      // Fixed-rate video: the exposure control cannot stretch frames.
      {{times("timing", {"fixed"}), times("mains", {"50", "60", "50>60", "60>50"}),
        times("light", {"fluorescent", "incandescent", "led"}), times("fps", kVideoRates),
        times("start", {"50", "60"}), cycled("exposure", {"long", "long", "short"}),
        cycled("geometry", {"4000x3000@10us", "1920x1080@10us", "1920x1080@12.5us", "8160x6144@5us",
                            "640x480@64us"}),
        cycled("motion", {"still", "handheld"}), cycled("noise", {"normal", "dim"}),
        cycled("depth", {"1", "0.5"})}},
      // Readouts from half a 100 Hz period to three, line times 5 to 64 us.
      {{times("geometry", {"640x480@12us", "640x480@64us", "1920x1080@10us", "8160x6144@5us"}),
        times("mains", {"50", "60"}), times("light", {"fluorescent", "incandescent"}),
        times("fps", {"25", "29.97", "30"}), times("start", {"50", "60"}),
        cycled("timing", {"free", "fixed"}), cycled("exposure", {"long", "long", "short"}),
        cycled("motion", {"still", "handheld"}), cycled("noise", {"normal", "dim"})}},
      // Piecewise-constant scenes under small vertical motion.
      {{times("texture", {"piecewise"}), times("motion", {"still", "v1", "v2", "v3"}),
        times("mains", {"50", "60"}), times("light", {"fluorescent", "incandescent"}),
        times("fps", {"25", "30"}), times("start", {"50", "60"}),
        cycled("geometry", kAllGeometries), cycled("timing", {"free", "fixed"})}},
      // 2 % lamps.
      {{times("ripple", {"0.02"}), times("light", {"incandescent"}), times("mains", {"50", "60"}),
        times("motion", {"still", "handheld", "v1", "v2"}), times("fps", kVideoRates),
        times("start", {"50", "60"}), cycled("timing", {"free", "fixed"}),
        cycled("geometry", kAllGeometries), cycled("texture", {"natural", "piecewise"}),
        cycled("noise", {"normal", "dim"})}},
      // A lamp switched on mid-stream.
      {{times("mains", {"dark>50", "dark>60", "day>50", "day>60"}),
        times("light", {"fluorescent", "incandescent", "led"}), times("start", {"50", "60"}),
        times("fps", {"25", "29.97", "30"}), cycled("timing", {"free", "fixed"}),
        cycled("geometry", kAllGeometries), cycled("motion", {"still", "handheld"}),
        cycled("exposure", {"long", "long", "short"})}},
      // Lamps modelled on published measurements.
      {{times("light", kPublishedMainsLamps), times("mains", {"50", "60"}),
        times("start", {"50", "60"}), times("exposure", {"long", "short"}),
        cycled("fps", kVideoRates), cycled("timing", {"free", "fixed"}),
        cycled("geometry", kAllGeometries), cycled("motion", {"still", "handheld", "pan"}),
        cycled("noise", {"normal", "dim"})}},
      // No mains flicker: daylight and PWM lamps over gratings, piecewise
      // scenes, screens, pans and moving objects.
      {{times("mains", {"none"}), times("light", {"daylight", "led-pwm", "led-pwm-1k"}),
        times("texture", {"natural", "grating", "piecewise", "screen"}),
        times("motion", {"still", "handheld", "pan", "v2", "object"}), times("start", {"50", "60"}),
        cycled("exposure", {"long", "short"}), cycled("fps", kRates),
        cycled("timing", {"free", "fixed"}), cycled("geometry", kAllGeometries),
        cycled("noise", {"normal", "dim"})}},
  };
}

// The full grid multiplies what the default grid cycles of the geometry,
// and adds the good LED driver (1 %) and the flat wall.
std::vector<Block> fullBlocks() {
  std::vector<Block> blocks = defaultBlocks();
  for (Block& b : blocks) {
    for (Axis& a : b.axes) {
      if (a.dim == "geometry") {
        a.multiply = true;
      }
      if (a.dim == "light" && a.values.size() == 3 && a.values[0] == "fluorescent") {
        a.values.push_back("good-led");
      }
      if (a.dim == "texture" && a.values.size() == 4) {
        a.values.push_back("flat");
      }
    }
  }
  return blocks;
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

double defaultSeconds(GridSize size) {
  return size == GridSize::kQuick ? kQuickSeconds : kDefaultSeconds;
}

std::string seedSetKind(uint64_t seedBase) {
  for (const uint64_t held : kHeldOutSeedBases) {
    if (seedBase == held) {
      return "held out";
    }
  }
  return seedBase < kFirstHeldOutSeedBase ? "tuning" : "other";
}

std::string seedSetLine(uint64_t seedBase) {
  const std::string kind = seedSetKind(seedBase);
  std::string line = "seeds " + std::to_string(seedBase + 1) + ".. (base " +
                     std::to_string(seedBase) + ", " + kind + " set";
  if (kind == "held out") {
    line += ": report its figures, never tune on it";
  } else if (kind == "tuning") {
    line += ": tune on it, report on the held-out bases 10000, 20000, 30000";
  }
  return line + ")";
}

std::vector<std::string> evalDimensions() {
  return {"light",  "depth", "ripple", "mains",   "exposure", "fps",
          "timing", "noise", "motion", "texture", "geometry", "start"};
}

std::string EvalCell::value(const std::string& name) const {
  if (name == "light")
    return light;
  if (name == "depth")
    return text(depth);
  if (name == "ripple")
    return text(ripple);
  if (name == "mains")
    return mains;
  if (name == "exposure")
    return exposure;
  if (name == "fps")
    return text(fps);
  if (name == "timing")
    return timing;
  if (name == "noise")
    return noise;
  if (name == "motion")
    return motion;
  if (name == "texture")
    return texture;
  if (name == "geometry")
    return geometry;
  if (name == "start")
    return std::to_string(startHz);
  return "";
}

bool EvalCell::set(const std::string& name, const std::string& v) {
  double x = 0;
  if (name == "depth" || name == "ripple" || name == "fps" || name == "start") {
    if (!parseNumber(v, &x)) {
      return false;
    }
    if (name == "depth")
      depth = x;
    if (name == "ripple")
      ripple = x;
    if (name == "fps")
      fps = x;
    if (name == "start")
      startHz = static_cast<int>(x);
    return true;
  }
  std::string* field = name == "light"      ? &light
                       : name == "mains"    ? &mains
                       : name == "exposure" ? &exposure
                       : name == "timing"   ? &timing
                       : name == "noise"    ? &noise
                       : name == "motion"   ? &motion
                       : name == "texture"  ? &texture
                       : name == "geometry" ? &geometry
                                            : nullptr;
  if (field == nullptr) {
    return false;
  }
  *field = v;
  return true;
}

bool EvalCell::isOnset() const {
  return mains.compare(0, 5, "dark>") == 0 || mains.compare(0, 4, "day>") == 0;
}

int EvalCell::firstMainsHz() const {
  if (!hasFlicker() || isOnset()) {
    return 0;
  }
  return mains.compare(0, 2, "60") == 0 ? 60 : 50;
}

int EvalCell::lastMainsHz() const {
  if (!hasFlicker()) {
    return 0;
  }
  const size_t arrow = mains.find('>');
  if (arrow != std::string::npos) {
    return mains.compare(arrow + 1, 2, "60") == 0 ? 60 : 50;
  }
  return mains.compare(0, 2, "60") == 0 ? 60 : 50;
}

std::string EvalCell::label() const {
  std::string s;
  for (const std::string& d : evalDimensions()) {
    s += (s.empty() ? "" : " ") + d + "=" + value(d);
  }
  return s;
}

std::string EvalCell::onlyFilters() const {
  std::string s;
  for (const std::string& d : evalDimensions()) {
    s += (s.empty() ? "" : " ") + std::string("--only ") + shellWord(d + "=" + value(d));
  }
  return s;
}

bool EvalCell::scenario(double seconds, flicker_sim::SimScenario* out, int* frames,
                        std::string* error) const {
  const Geometry* g = geometryOf(geometry);
  if (g == nullptr) {
    *error = "unknown geometry '" + geometry + "'";
    return false;
  }
  // Shorter lines at high frame rates, as a sensor mode for them has.
  const double baseReadout = static_cast<double>(g->height) * g->lineLength / kPixelClockHz;
  double lineLength = g->lineLength;
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
      {"width", std::to_string(g->width)},
      {"height", std::to_string(g->height)},
      {"pixel_clock", std::to_string(kPixelClockHz)},
      {"line_length", std::to_string(static_cast<int>(lineLength))},
      {"fps", text(fps)},
      {"timing", timing},
      {"frames", std::to_string(*frames)},
      {"start_state", std::to_string(startHz)},
      {"seed", std::to_string(seed)},
      {"light", light},
      {"depth", text(depth)},
      {"ripple", text(ripple)},
      {"drift", text(kDriftHz)},
      {"level", text(level)},
      {"texture", texture == "screen" ? "natural" : texture},
  };
  if (texture == "screen") {
    s.emplace_back("screen_hz", kScreenHz);
  }
  if (dim) {
    s.emplace_back("read_noise", text(kDimReadNoiseE));
  }
  if (!hasFlicker()) {
    s.emplace_back("mains", "0");
  } else if (isMixed()) {
    s.emplace_back("mains", "50");
    s.emplace_back("mix_mains", "60");
    s.emplace_back("mix_share", mains == "mixed30" ? "0.3" : "0.5");
  } else if (isSwitch()) {
    s.emplace_back("mains", std::to_string(firstMainsHz()));
    s.emplace_back("switch_light", light);
    s.emplace_back("switch_mains", std::to_string(lastMainsHz()));
    s.emplace_back("switch_at", text(switchTimeS(seconds)));
  } else if (isOnset()) {
    s.emplace_back("mains", std::to_string(lastMainsHz()));
    s.emplace_back("onset_at", text(switchTimeS(seconds)));
    s.emplace_back("onset_from", mains.compare(0, 4, "day>") == 0 ? "daylight" : "dark");
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
    } else if (motion.size() == 2 && motion[0] == 'v') {
      s.emplace_back("lines_per_frame", motion.substr(1));
    } else if (motion == "object") {
      s.emplace_back("object", "highlight");
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
  const std::vector<Block> blocks = size == GridSize::kQuick  ? quickBlocks()
                                    : size == GridSize::kFull ? fullBlocks()
                                                              : defaultBlocks();
  std::vector<EvalCell> cells;
  std::set<std::string> seen;
  size_t index = 0;
  // Strides of the cycled dimensions: distinct primes, so that their values
  // combine in many ways across a block.
  const size_t strides[] = {2, 3, 5, 7, 11, 13, 17};
  for (const Block& b : blocks) {
    size_t combinations = 1;
    for (const Axis& a : b.axes) {
      combinations *= a.multiply ? a.values.size() : 1;
    }
    for (size_t k = 0; k < combinations; ++k) {
      EvalCell c;
      size_t rest = k;
      size_t cycledAxis = 0;
      // The last multiplied axis varies fastest.
      for (auto a = b.axes.rbegin(); a != b.axes.rend(); ++a) {
        if (a->multiply) {
          c.set(a->dim, a->values[rest % a->values.size()]);
          rest /= a->values.size();
        }
      }
      for (const Axis& a : b.axes) {
        if (!a.multiply) {
          const size_t stride = strides[std::min(cycledAxis++, std::size(strides) - 1)];
          c.set(a.dim, a.values[(index / stride) % a.values.size()]);
        }
      }
      c.seed = seedBase + static_cast<uint64_t>(index) + 1;
      ++index;
      if (seen.insert(keyOf(c)).second) {
        cells.push_back(c);
      }
    }
  }
  return cells;
}

std::vector<EvalCell> filterCells(const std::vector<EvalCell>& grid,
                                  const std::vector<std::pair<std::string, std::string>>& only) {
  std::vector<EvalCell> cells;
  for (const EvalCell& c : grid) {
    bool keep = true;
    for (const auto& f : only) {
      bool any = false;
      for (const auto& g : only) {
        any = any || (g.first == f.first && c.value(g.first) == g.second);
      }
      keep = keep && any;
    }
    if (keep) {
      cells.push_back(c);
    }
  }
  return cells;
}

}  // namespace flicker_eval
