#include "cell_outcome.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "closed_loop_runner.h"

namespace flicker_eval {

namespace {

constexpr double kPi = 3.14159265358979323846;

double sincAbs(double x) {
  return std::fabs(x) < 1e-9 ? 1.0 : std::fabs(std::sin(kPi * x) / (kPi * x));
}

double median(std::vector<double> v) {
  if (v.empty()) {
    return 0;
  }
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
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

}  // namespace

double rippleDepth(const flicker_sim::SimScenario& scenario, int mainsHz, double t) {
  const std::vector<flicker_sim::SimLightSegment>& segments = scenario.light.segments;
  if (segments.empty() || mainsHz == 0) {
    return 0;
  }
  size_t at = 0;
  for (size_t i = 1; i < segments.size(); ++i) {
    if (segments[i].startS <= t) {
      at = i;
    }
  }
  double total = 0;
  double ripple = 0;
  for (const flicker_sim::SimLightComponent& c : segments[at].components) {
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
  const int truth = s.expectedHz;
  if (!o.ok || truth == 0 || cell.mains == "mixed" || result.frames.empty()) {
    return o;
  }
  const double startS =
      scenario.sensors.empty() ? firstFrameTimeS() : scenario.sensors.front().startTimeS;
  const double fromMs = s.changeMs >= 0 ? s.changeMs : 0.0;
  // The state in effect when the final light began: the start state, or the
  // state left by the last analysis before the switch.
  int stateThen = cell.startHz;
  for (const flicker_loop::PairRow& p : result.pairs) {
    if (p.timeMs < fromMs) {
      stateThen = p.stateHz;
    }
  }
  if (!scenario.sensors.empty()) {
    const flicker_sim::SimGeometry& g = scenario.sensors.front().geometry;
    o.readoutS = g.statLines() * g.lineTimeSeconds();
  }
  const bool bandVisible = o.readoutS * 2.0 * truth >= 1.0;
  o.held = stateThen == truth;
  if (o.held) {
    o.counted = true;
  } else {
    // The wrong-state pairs of the final light: what they could have seen.
    std::vector<double> visible;
    bool anyMoving = false;
    int state = stateThen;
    for (const flicker_loop::PairRow& p : result.pairs) {
      if (p.timeMs >= fromMs && state != truth) {
        const double t = startS + p.timeMs * 1e-3;
        const double gain = sincAbs(2.0 * truth * p.exposureUs * 1e-6);
        visible.push_back(rippleDepth(scenario, truth, t) * gain);
        anyMoving = anyMoving || moves(p, truth);
      }
      if (p.timeMs >= fromMs) {
        state = p.stateHz;
      }
    }
    o.ripple = median(visible);
    o.counted = o.ripple >= kObservableRipple && anyMoving && bandVisible;
  }
  if (!o.right || o.held) {
    return o;
  }
  if (cell.isSwitch()) {
    o.switchMs = s.lockAfterChangeMs;
    countPairs(result, s.changeMs, s.changeMs + s.lockAfterChangeMs, truth, &o.switchPairs,
               &o.switchMovingPairs);
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

}  // namespace flicker_eval
