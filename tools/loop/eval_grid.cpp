#include "eval_grid.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "closed_loop_runner.h"
#include "scenario_builder.h"

namespace flicker_loop {

namespace {

// Light levels in electrons per second per pixel of reflectance 1: office
// light asks for exposures of about 20 ms, a floodlight for well under one
// flicker period, a dim room for the longest exposure and high gain.
const char kOfficeLevel[] = "3e5";
const char kFloodLevel[] = "2e7";
const char kDimLevel[] = "3e4";
// The readout must leave room for blanking at high frame rates.
constexpr double kReadoutShare = 0.85;
constexpr double kBaseReadoutS = 0.030;  // readout of every geometry below at its base line length
constexpr double kStartTimeS = 0.1;      // readout start of the first frame
// Least ripple depth (of the main harmonic) that counts as observable.
constexpr double kObservableDepth = 0.02;
constexpr double kMsPerHour = 3600.0 * 1000.0;

double lampDepth(const std::string& light) {
  if (light == "fluorescent")
    return 0.35;
  if (light == "led")
    return 0.5;
  if (light == "incandescent")
    return 0.08;
  return 0.01;  // good-led
}

struct Geometry {
  const char* preset;
  int width;  // 0: keep the preset's
  int height;
  int lineLength;  // pixel clocks per TG line
};

Geometry geometryOf(const std::string& name) {
  if (name == "binned")
    return {"home-60hz", 0, 0, 2400};
  if (name == "small")
    return {"office-50hz", 1280, 960, 15000};
  return {"office-50hz", 0, 0, 4800};
}

std::string text(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%g", v);
  return buf;
}

double median(std::vector<double> v) {
  if (v.empty())
    return -1;
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

template <typename T>
const T& cycle(const std::vector<T>& values, size_t index) {
  return values[index % values.size()];
}

}  // namespace

std::string GridCell::value(const std::string& name) const {
  if (name == "light")
    return light;
  if (name == "depth")
    return text(depth);
  if (name == "mains")
    return mains;
  if (name == "exposure")
    return exposure;
  if (name == "fps")
    return text(fps);
  if (name == "noise")
    return noise;
  if (name == "motion")
    return motion;
  if (name == "geometry")
    return geometry;
  if (name == "start")
    return std::to_string(startHz);
  return "";
}

std::vector<std::pair<std::string, std::string>> GridCell::settings(double seconds) const {
  const Geometry g = geometryOf(geometry);
  std::vector<std::pair<std::string, std::string>> s;
  s.emplace_back("scenario", g.preset);
  if (g.width > 0) {
    s.emplace_back("width", std::to_string(g.width));
    s.emplace_back("height", std::to_string(g.height));
  }
  // Shorter lines at high frame rates, as a sensor mode for them would have.
  double lineLength = g.lineLength;
  const double maxReadout = kReadoutShare / fps;
  if (kBaseReadoutS > maxReadout) {
    lineLength = std::floor(lineLength * maxReadout / kBaseReadoutS);
  }
  s.emplace_back("line_length", std::to_string(static_cast<int>(lineLength)));
  s.emplace_back("fps", text(fps));
  s.emplace_back("frames", std::to_string(static_cast<int>(std::lround(seconds * fps))));
  s.emplace_back("start_state", std::to_string(startHz));

  const bool none = mains == "none";
  s.emplace_back("light", none ? "daylight" : light);
  s.emplace_back("depth", text(depth));
  s.emplace_back("drift", "0.03");
  const char* level = exposure == "short" ? kFloodLevel : noise == "dim" ? kDimLevel : kOfficeLevel;
  s.emplace_back("level", level);
  if (none) {
    s.emplace_back("mains", "0");
  } else if (mains == "mixed") {
    s.emplace_back("mains", "50");
    s.emplace_back("mix_mains", "60");
  } else if (mains == "50>60" || mains == "60>50") {
    s.emplace_back("mains", mains.substr(0, 2));
    s.emplace_back("switch_light", light);
    s.emplace_back("switch_mains", mains.substr(3, 2));
    s.emplace_back("switch_at", text(kStartTimeS + seconds / 2));
  } else {
    s.emplace_back("mains", mains);
  }

  if (motion == "still") {
    s.emplace_back("shake", "0");
  } else if (motion == "handheld") {
    s.emplace_back("shake", "0.004");
    s.emplace_back("shake_hz", "3");
  } else {
    s.emplace_back("shake", "0");
    s.emplace_back("pan_x", "0.3");
    s.emplace_back("pan_y", "0.08");
  }
  return s;
}

bool GridCell::observable() const {
  return mains != "none" && mains != "mixed" && lampDepth(light) * depth >= kObservableDepth;
}

EvalGrid::EvalGrid(Size size, double secondsPerRun) : seconds_(secondsPerRun) {
  const bool full = size == Size::kFull;
  const std::vector<std::string> lights =
      full ? std::vector<std::string>{"fluorescent", "led", "incandescent", "good-led"}
           : std::vector<std::string>{"fluorescent", "led"};
  const std::vector<std::string> mains =
      full ? std::vector<std::string>{"50", "60", "none", "50>60", "60>50", "mixed"}
           : std::vector<std::string>{"50", "60", "none", "50>60"};
  const std::vector<double> rates =
      full ? std::vector<double>{24, 25, 29.97, 30, 60, 120} : std::vector<double>{25, 30};
  const std::vector<int> starts = {50, 60};
  // Cycled dimensions.
  const std::vector<double> depths =
      full ? std::vector<double>{1.0, 0.5} : std::vector<double>{1.0};
  const std::vector<std::string> exposures =
      full ? std::vector<std::string>{"auto", "auto", "short"} : std::vector<std::string>{"auto"};
  const std::vector<std::string> noises =
      full ? std::vector<std::string>{"normal", "dim"} : std::vector<std::string>{"normal"};
  const std::vector<std::string> motions =
      full ? std::vector<std::string>{"handheld", "still", "pan"}
           : std::vector<std::string>{"handheld"};
  const std::vector<std::string> geometries =
      full ? std::vector<std::string>{"full", "small", "binned"}
           : std::vector<std::string>{"small"};

  std::set<std::string> seen;
  size_t index = 0;
  for (const std::string& m : mains) {
    for (const std::string& l : lights) {
      for (const double fps : rates) {
        for (const int start : starts) {
          GridCell c;
          c.light = m == "none" ? "daylight" : l;
          c.mains = m;
          c.fps = fps;
          c.startHz = start;
          c.depth = cycle(depths, index);
          c.exposure = cycle(exposures, index / 2);
          c.noise = cycle(noises, index / 3);
          c.motion = cycle(motions, index / 5);
          c.geometry = cycle(geometries, index / 7);
          ++index;
          std::string key;
          for (const std::string& d : dimensions()) {
            key += c.value(d) + "|";
          }
          if (seen.insert(key).second) {
            cells_.push_back(c);
          }
        }
      }
    }
  }
}

std::vector<CellResult> EvalGrid::run(
    const std::function<void(int done, int total)>& progress) const {
  std::vector<CellResult> results;
  const int total = static_cast<int>(cells_.size());
  for (const GridCell& cell : cells_) {
    CellResult r;
    r.cell = cell;
    ScenarioBuilder builder;
    std::string error;
    bool ok = true;
    for (const auto& kv : cell.settings(seconds_)) {
      if (!builder.set(kv.first, kv.second, &error)) {
        ok = false;
        break;
      }
    }
    if (ok) {
      LoopOptions options = builder.options();
      options.keepLastPair = false;
      const LoopResult loop = ClosedLoopRunner(builder.scenario(), options).run();
      r.ok = loop.ok;
      r.error = loop.error;
      r.summary = RunSummary::of(loop);
    } else {
      r.error = error;
    }
    results.push_back(r);
    if (progress) {
      progress(static_cast<int>(results.size()), total);
    }
  }
  return results;
}

std::vector<std::string> EvalGrid::dimensions() {
  return {"light", "depth", "mains", "exposure", "fps", "noise", "motion", "geometry", "start"};
}

std::vector<GridFigures> EvalGrid::figures(const std::vector<CellResult>& results,
                                           const std::string& by) {
  std::map<std::string, std::vector<const CellResult*>> groups;
  std::vector<std::string> order;
  for (const CellResult& r : results) {
    const std::string g = by.empty() ? "all" : r.cell.value(by);
    if (groups.find(g) == groups.end()) {
      order.push_back(g);
    }
    groups[g].push_back(&r);
  }
  auto compute = [](const std::string& name, const std::vector<const CellResult*>& rs) {
    GridFigures f;
    f.group = name;
    std::vector<double> startPairs, startMs, switchPairs, switchMs;
    double noneMs = 0, noneSwitches = 0, mixedMs = 0, mixedSwitches = 0;
    for (const CellResult* r : rs) {
      ++f.cells;
      if (!r->ok) {
        ++f.failures;
        continue;
      }
      const RunSummary& s = r->summary;
      const bool isSwitch = r->cell.mains.find('>') != std::string::npos;
      if (r->cell.observable()) {
        ++f.observable;
        if (s.right) {
          ++f.right;
          const int firstHz =
              isSwitch ? std::stoi(r->cell.mains.substr(0, 2)) : std::stoi(r->cell.mains);
          if (r->cell.startHz != firstHz && !isSwitch) {
            startPairs.push_back(s.pairsToLock);
            startMs.push_back(s.lockMs);
          }
          if (isSwitch && s.pairsAfterChange >= 0) {
            switchPairs.push_back(s.pairsAfterChange);
            switchMs.push_back(s.lockAfterChangeMs);
          }
        }
      }
      if (r->cell.mains == "none") {
        noneMs += s.durationMs;
        noneSwitches += s.switches;
      } else if (r->cell.mains == "mixed") {
        mixedMs += s.durationMs;
        mixedSwitches += s.switches;
      }
    }
    f.startLockPairs = median(startPairs);
    f.startLockMs = median(startMs);
    f.switchLockPairs = median(switchPairs);
    f.switchLockMs = median(switchMs);
    f.falseSwitchesPerHour = noneMs > 0 ? noneSwitches * kMsPerHour / noneMs : -1;
    f.mixedSwitchesPerHour = mixedMs > 0 ? mixedSwitches * kMsPerHour / mixedMs : -1;
    return f;
  };
  std::vector<GridFigures> out;
  out.reserve(order.size() + 1);
  std::vector<const CellResult*> all;
  all.reserve(results.size());
  for (const std::string& g : order) {
    out.push_back(compute(g, groups[g]));
  }
  for (const CellResult& r : results) {
    all.push_back(&r);
  }
  if (!by.empty()) {
    out.push_back(compute("total", all));
  }
  return out;
}

}  // namespace flicker_loop
