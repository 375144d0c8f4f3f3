#include "cell_outcome.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "closed_loop_runner.h"
#include "observability.h"
#include "sim_sensor.h"

namespace flicker_eval {

namespace {

constexpr double kPi = 3.14159265358979323846;

double periodOf(int stateHz) {
  return stateHz == 60 ? 1.0 / 120.0 : 0.01;
}

bool moves(const flicker_loop::PairRow& pair, int mainsHz) {
  const double dt = static_cast<double>(pair.intervalNs) * 1e-9;
  return pair.intervalNs > 0 && std::fabs(std::sin(kPi * 2.0 * mainsHz * dt)) >= kMovingVisibility;
}

// Pairs analysed in (fromMs, toMs] and how many of them moved the ripple.
void countPairs(const flicker_loop::LoopResult& r, double fromMs, double toMs, int mainsHz,
                int* pairs, int* moving) {
  *pairs = 0;
  *moving = 0;
  for (const flicker_loop::PairRow& p : r.pairs) {
    if (p.timeMs > fromMs && p.timeMs <= toMs) {
      ++*pairs;
      *moving += moves(p, mainsHz) ? 1 : 0;
    }
  }
}

const flicker_sim::SimLightSegment* segmentAt(const flicker_sim::SimScenario& scenario, double t) {
  const std::vector<flicker_sim::SimLightSegment>& segments = scenario.light.segments;
  if (segments.empty()) {
    return nullptr;
  }
  size_t at = 0;
  for (size_t i = 1; i < segments.size(); ++i) {
    if (segments[i].startS <= t) {
      at = i;
    }
  }
  return &segments[at];
}

// What physics lets pair `p` show of the lamp on `truthHz` mains.
PairPhysics physicsOf(const flicker_sim::SimScenario& scenario, const flicker_loop::PairRow& p,
                      int truthHz, double startS) {
  const flicker_sim::SimSensorParams& sensor = scenario.sensors.front();
  const flicker_sim::SimGeometry& g = sensor.geometry;
  const flicker_sim::SimPixelParams& pixel = sensor.pixel;
  PairPhysics physics;
  physics.rippleHz = 2.0 * truthHz;
  physics.otherHz = truthHz == 50 ? 120.0 : 100.0;
  // Both frames must hold the lamp's light: a pair whose earlier frame was
  // taken before the lamp came on (an onset, a light switch) has no ripple
  // that moves between its frames or stands in each of them.
  const double laterS = startS + p.timeMs * 1e-3;
  const double earlierS = laterS - static_cast<double>(p.intervalNs) * 1e-9;
  physics.depth =
      std::min(rippleDepth(scenario, truthHz, laterS), rippleDepth(scenario, truthHz, earlierS));
  physics.exposureS = p.exposureUs * 1e-6;
  physics.intervalS = static_cast<double>(p.intervalNs) * 1e-9;
  physics.readoutS = g.statLines() * g.lineTimeSeconds();
  physics.entries = 6 * g.statLines();
  const double electrons = p.meanLevel * pixel.fullWellE / std::max(1e-9, p.gain);
  physics.entryNoise = entryNoise(electrons, p.gain, g.windowWidth(), pixel);
  return physics;
}

}  // namespace

double rippleDepth(const flicker_sim::SimScenario& scenario, int mainsHz, double t) {
  const flicker_sim::SimLightSegment* segment = segmentAt(scenario, t);
  if (segment == nullptr || mainsHz == 0) {
    return 0;
  }
  double total = 0;
  double ripple = 0;
  for (const flicker_sim::SimLightComponent& c : segment->components) {
    total += c.level;
    if (std::lround(c.mainsHz) != mainsHz) {
      continue;
    }
    for (const flicker_sim::SimHarmonic& h : c.harmonics) {
      ripple += h.order == 2 ? h.depth * c.level : 0.0;
    }
  }
  return total > 0 ? ripple / total : 0.0;
}

HeldResiduals heldResiduals(const flicker_sim::SimLightSegment& light,
                            const std::vector<HeldFrame>& frames, int stateHz,
                            const flicker_sim::SimAeParams& ae, double maxExposureS) {
  HeldResiduals r;
  if (frames.empty()) {
    return r;
  }
  const double otherPeriod = periodOf(stateHz == 50 ? 60 : 50);
  for (const HeldFrame& f : frames) {
    r.held += residualBanding(light, f.exposureS);
    r.other += residualBanding(light, flicker_sim::SimAutoExposure::exposureFor(
                                          ae, f.exposureS * f.gain, otherPeriod, maxExposureS));
  }
  r.held /= static_cast<double>(frames.size());
  r.other /= static_cast<double>(frames.size());
  return r;
}

CellOutcome assess(const EvalCell& cell, const flicker_sim::SimScenario& scenario,
                   const flicker_loop::LoopResult& result) {
  CellOutcome o;
  o.cell = cell;
  o.ok = result.ok;
  o.error = result.error;
  o.summary = flicker_loop::RunSummary::of(result);
  const flicker_loop::RunSummary& s = o.summary;
  o.switches = s.switches;
  o.durationMs = s.durationMs;
  o.pairs = s.pairs;
  o.right = s.right;
  if (!o.ok || result.frames.empty() || scenario.sensors.empty()) {
    return o;
  }
  const double startS = scenario.sensors.front().startTimeS;
  const flicker_sim::SimGeometry& g = scenario.sensors.front().geometry;
  o.readoutS = g.statLines() * g.lineTimeSeconds();
  const double endS = startS + s.durationMs * 1e-3;
  if (cell.isMixed()) {
    // The frames of the final state's hold: from two frames after the last
    // change (the exposure control takes a state on with the next frame or
    // so), the last kSettleWindowS of the run at most.
    double holdMs = std::max(0.0, s.durationMs - kSettleWindowS * 1e3);
    int changeFrame = -1;
    for (const flicker_loop::PairRow& p : result.pairs) {
      changeFrame = p.switched ? p.frame : changeFrame;
    }
    std::vector<HeldFrame> held;
    for (const flicker_loop::FrameRow& f : result.frames) {
      if (f.sensor == 0 && f.timeMs >= holdMs && (changeFrame < 0 || f.frame > changeFrame + 1)) {
        held.push_back({f.exposureUs * 1e-6, f.gain});
      }
    }
    if (held.empty()) {
      held.push_back({result.frames.back().exposureUs * 1e-6, result.frames.back().gain});
    }
    const flicker_sim::SimSensorParams& sensor = scenario.sensors.front();
    const HeldResiduals r = heldResiduals(*segmentAt(scenario, endS), held, s.lockedHz, sensor.ae,
                                          flicker_sim::SimSensor::maxExposureFor(sensor));
    o.residualFinal = r.held;
    o.residualOther = r.other;
    if (!result.pairs.empty()) {
      o.residualNoise =
          kNoiseSigmas * bandNoise(physicsOf(scenario, result.pairs.back(), s.lockedHz, startS));
    }
    return o;
  }
  const int truth = s.expectedHz;
  if (truth == 0) {
    return o;
  }
  o.ripple = rippleDepth(scenario, truth, endS);
  o.weak = o.ripple <= kWeakRipple;
  const double fromMs = s.changeMs >= 0 ? s.changeMs : 0.0;
  // The state in effect when the final light began: the start state, or the
  // state left by the last analysis before the change.
  int stateThen = cell.startHz;
  for (const flicker_loop::PairRow& p : result.pairs) {
    if (p.timeMs < fromMs) {
      stateThen = p.stateHz;
    }
  }
  o.held = stateThen == truth;
  // The wrong-state pairs of the final light: what they could have shown.
  int state = stateThen;
  for (const flicker_loop::PairRow& p : result.pairs) {
    if (p.timeMs >= fromMs && state != truth &&
        pairSight(physicsOf(scenario, p, truth, startS)) != PairSight::kHidden) {
      ++o.showingPairs;
    }
    if (p.timeMs >= fromMs) {
      state = p.stateHz;
    }
  }
  o.counted = o.held || o.showingPairs > 0;
  if (!o.right || o.held) {
    return o;
  }
  if (cell.isSwitch()) {
    o.switchMs = s.lockAfterChangeMs;
    countPairs(result, s.changeMs, s.changeMs + s.lockAfterChangeMs, truth, &o.switchPairs,
               &o.switchMovingPairs);
  } else if (cell.isOnset()) {
    if (s.lockAfterChangeMs >= 0) {
      o.onsetMs = s.lockAfterChangeMs;
      o.onsetPairs = s.pairsAfterChange;
    }
  } else {
    o.lockMs = s.lockMs;
    countPairs(result, -1.0, s.lockMs, truth, &o.lockPairs, &o.lockMovingPairs);
  }
  return o;
}

CellOutcome evaluate(const EvalCell& cell, double seconds) {
  flicker_sim::SimScenario scenario;
  int frames = 0;
  std::string error;
  if (!cell.scenario(seconds, &scenario, &frames, &error)) {
    CellOutcome o;
    o.cell = cell;
    o.error = error;
    return o;
  }
  flicker_loop::LoopOptions options;
  options.frames = frames;
  options.startStateHz = cell.startHz;
  options.keepFrames = true;
  options.keepLastPair = false;
  const flicker_loop::LoopResult result = flicker_loop::ClosedLoopRunner(scenario, options).run();
  return assess(cell, scenario, result);
}

std::vector<CellOutcome> evaluateAll(const std::vector<EvalCell>& cells, double seconds,
                                     const std::function<void(int done, int total)>& progress) {
  std::vector<CellOutcome> outcomes;
  outcomes.reserve(cells.size());
  for (const EvalCell& cell : cells) {
    outcomes.push_back(evaluate(cell, cell.runSeconds(seconds)));
    if (progress) {
      progress(static_cast<int>(outcomes.size()), static_cast<int>(cells.size()));
    }
  }
  return outcomes;
}

}  // namespace flicker_eval
