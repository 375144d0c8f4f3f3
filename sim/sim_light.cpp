#include "sim_light.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace flicker_sim {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;

// Depth below which a mains ripple does not count as flicker for the ground
// truth: a good LED driver (1 %) is not a flicker source to be detected.
constexpr double kPracticalDepth = 0.015;

// Forward-voltage threshold of a rectified LED string, relative to the peak of
// the rectified mains: the LEDs are dark while the voltage is below it.
constexpr double kLedThreshold = 0.6;
// Harmonics kept for the clipped waveforms; higher ones are far above any
// band the statistics resolve and are averaged away by a line's exposure.
constexpr int kLedHarmonics = 12;
constexpr int kPwmHarmonics = 15;
// Quadrature points for the Fourier coefficients of the clipped LED wave.
constexpr int kQuadraturePoints = 4096;

void addHarmonic(SimLightComponent* c, int order, double amplitude, double phase) {
  // A negative coefficient is the same harmonic shifted by half a period.
  if (amplitude < 0.0) {
    amplitude = -amplitude;
    phase += kPi;
  }
  c->harmonics.push_back({order, amplitude, phase});
}

// Fourier series of max(0, |sin x| - threshold), whose period is pi: returns
// the mean and adds harmonics of twice the mains frequency to `c`.
void addRectifiedLedHarmonics(SimLightComponent* c, double mainsPhase) {
  double mean = 0.0;
  std::vector<double> cosines(kLedHarmonics + 1, 0.0);
  for (int i = 0; i < kQuadraturePoints; ++i) {
    const double x = kPi * (i + 0.5) / kQuadraturePoints;
    const double g = std::max(0.0, std::fabs(std::sin(x)) - kLedThreshold);
    mean += g;
    for (int h = 1; h <= kLedHarmonics; ++h) {
      cosines[h] += g * std::cos(2.0 * h * x);
    }
  }
  mean /= kQuadraturePoints;
  for (int h = 1; h <= kLedHarmonics; ++h) {
    const double a = 2.0 * cosines[h] / kQuadraturePoints;
    addHarmonic(c, 2 * h, a / mean, 2.0 * h * mainsPhase);
  }
}

// Cycles of a pulse train at time t (its phase included).
double pulseCycles(const SimLightComponent& c, double t) {
  return c.baseHz * t + c.pulsePhase / kTwoPi;
}

// Time a pulse train has been on from its cycle 0 to `cycles`, in cycles.
double pulseOnCycles(double duty, double cycles) {
  const double whole = std::floor(cycles);
  return whole * duty + std::min(cycles - whole, duty);
}

// Integral of a pulse train of mean `level` over [t0, t1].
double integratePulses(const SimLightComponent& c, double t0, double t1) {
  if (c.baseHz <= 0.0) {
    return c.level * (t1 - t0);
  }
  const double on = pulseOnCycles(c.pulseDuty, pulseCycles(c, t1)) -
                    pulseOnCycles(c.pulseDuty, pulseCycles(c, t0));
  return c.level / c.pulseDuty * on / c.baseHz;
}

// Integral of one component over [t0, t1].
double integrateComponent(const SimLightComponent& c, double t0, double t1) {
  if (c.pulseDuty > 0.0) {
    return integratePulses(c, t0, t1);
  }
  double ripple = 0.0;
  for (const SimHarmonic& h : c.harmonics) {
    const double w = kTwoPi * h.order * c.baseHz;
    if (w == 0.0) {
      ripple += h.depth * std::cos(h.phase) * (t1 - t0);
      continue;
    }
    ripple += h.depth / w * (std::sin(w * t1 + h.phase) - std::sin(w * t0 + h.phase));
  }
  return c.level * ((t1 - t0) + ripple);
}

double integrateSegment(const SimLightSegment& s, double t0, double t1) {
  double sum = 0.0;
  for (const SimLightComponent& c : s.components) {
    sum += integrateComponent(c, t0, t1);
  }
  return sum;
}

}  // namespace

SimLightComponent makeLightComponent(SimLightType type, double mainsHz, double level,
                                     double driftHz, double mainsPhase) {
  SimLightComponent c;
  c.type = type;
  c.level = level;
  c.mainsHz = type == SimLightType::kDaylight ? 0.0 : mainsHz;
  c.baseHz = c.mainsHz == 0.0 ? 0.0 : mainsHz + driftHz;
  switch (type) {
    case SimLightType::kIncandescent:
      // The filament's thermal inertia leaves a shallow, nearly sinusoidal
      // ripple that lags the mains.
      addHarmonic(&c, 2, 0.08, 2.0 * mainsPhase - 1.2);
      break;
    case SimLightType::kMagneticFluorescent:
      // Deep ripple with harmonics; electrode asymmetry adds a little of the
      // mains frequency itself.
      addHarmonic(&c, 1, 0.02, mainsPhase);
      addHarmonic(&c, 2, 0.35, 2.0 * mainsPhase);
      addHarmonic(&c, 4, 0.10, 4.0 * mainsPhase + 0.3);
      addHarmonic(&c, 6, 0.04, 6.0 * mainsPhase + 0.5);
      break;
    case SimLightType::kRectifiedLed:
      addRectifiedLedHarmonics(&c, mainsPhase);
      break;
    case SimLightType::kGoodLedDriver:
      addHarmonic(&c, 2, 0.01, 2.0 * mainsPhase);
      break;
    case SimLightType::kPwmLed:
      // Use makePwmLightComponent for a PWM LED; here a 50 % duty at 1 kHz.
      return makePwmLightComponent(1000.0, 0.5, level, mainsPhase);
    case SimLightType::kDaylight:
    case SimLightType::kMeasured:  // built by makeLampModelComponent from its table entry
      break;
  }
  return c;
}

SimLightComponent makePwmLightComponent(double pwmHz, double duty, double level, double phase) {
  SimLightComponent c;
  c.type = SimLightType::kPwmLed;
  c.level = level;
  c.mainsHz = 0.0;
  c.baseHz = pwmHz;
  duty = std::min(1.0, std::max(1e-3, duty));
  if (duty >= 1.0) {
    return c;
  }
  // Rectangular pulse of width duty centred at duty / 2 of each period:
  // harmonic n has depth 2 sin(pi n d) / (pi n d) relative to the mean.
  for (int n = 1; n <= kPwmHarmonics; ++n) {
    const double x = kPi * n * duty;
    addHarmonic(&c, n, 2.0 * std::sin(x) / x, n * phase - x);
  }
  return c;
}

SimLightComponent makePulseLightComponent(double pwmHz, double duty, double level, double phase) {
  SimLightComponent c;
  c.type = SimLightType::kPwmLed;
  c.level = level;
  c.baseHz = pwmHz;
  c.pulseDuty = std::min(1.0, std::max(1e-3, duty));
  c.pulsePhase = phase;
  return c;
}

SimLight::SimLight(SimLightParams params) : params_(std::move(params)) {}

int SimLight::segmentAt(double t) const {
  int index = 0;
  for (int i = 1; i < static_cast<int>(params_.segments.size()); ++i) {
    if (t >= params_.segments[i].startS) {
      index = i;
    }
  }
  return index;
}

double SimLight::segmentEnd(int index) const {
  if (index + 1 < static_cast<int>(params_.segments.size())) {
    return params_.segments[index + 1].startS;
  }
  return std::numeric_limits<double>::infinity();
}

double SimLight::intensity(double t) const {
  if (params_.segments.empty()) {
    return 0.0;
  }
  double sum = 0.0;
  for (const SimLightComponent& c : params_.segments[segmentAt(t)].components) {
    if (c.pulseDuty > 0.0) {
      const double cycles = pulseCycles(c, t);
      sum += cycles - std::floor(cycles) < c.pulseDuty ? c.level / c.pulseDuty : 0.0;
      continue;
    }
    double v = 1.0;
    for (const SimHarmonic& h : c.harmonics) {
      v += h.depth * std::cos(kTwoPi * h.order * c.baseHz * t + h.phase);
    }
    sum += c.level * v;
  }
  return sum;
}

double SimLight::integrate(double t0, double t1) const {
  if (params_.segments.empty() || !(t1 > t0)) {
    return 0.0;
  }
  double sum = 0.0;
  int index = segmentAt(t0);
  double from = t0;
  while (from < t1) {
    const double to = std::min(t1, segmentEnd(index));
    sum += integrateSegment(params_.segments[index], from, to);
    from = to;
    ++index;
  }
  return sum;
}

void SimLight::integrateLines(double firstEnd, double lineStep, double exposure, int count,
                              double* out) const {
  if (count <= 0 || out == nullptr) {
    return;
  }
  const double lastEnd = firstEnd + (count - 1) * lineStep;
  const bool empty = params_.segments.empty() || !(exposure > 0.0);
  const int first = empty ? 0 : segmentAt(firstEnd - exposure);
  if (!empty && lastEnd < segmentEnd(first)) {
    integrateSegmentLines(params_.segments[first], firstEnd, lineStep, exposure, count, out);
    return;
  }
  for (int k = 0; k < count; ++k) {
    const double end = firstEnd + k * lineStep;
    out[k] = empty ? 0.0 : integrate(end - exposure, end);
  }
}

void SimLight::integrateSegmentLines(const SimLightSegment& segment, double firstEnd,
                                     double lineStep, double exposure, int count,
                                     double* out) const {
  // Re-evaluate the phasor directly this often so rounding cannot build up.
  constexpr int kResync = 256;
  double mean = 0.0;
  for (const SimLightComponent& c : segment.components) {
    mean += c.level * exposure;
  }
  for (int k = 0; k < count; ++k) {
    out[k] = mean;
  }
  for (const SimLightComponent& c : segment.components) {
    if (c.pulseDuty > 0.0) {
      // Exact per line: a pulse train's integral is a count of its edges.
      for (int k = 0; k < count; ++k) {
        const double end = firstEnd + k * lineStep;
        out[k] += integratePulses(c, end - exposure, end) - c.level * exposure;
      }
      continue;
    }
    for (const SimHarmonic& h : c.harmonics) {
      // The integral of cos over a window of length E centred at m is
      // E * sinc(w E / 2) * cos(w m + phase): the exposure's attenuation.
      const double w = kTwoPi * h.order * c.baseHz;
      const double half = 0.5 * w * exposure;
      const double sinc = half == 0.0 ? 1.0 : std::sin(half) / half;
      const double amplitude = c.level * h.depth * exposure * sinc;
      const double phase0 = w * (firstEnd - 0.5 * exposure) + h.phase;
      const double step = w * lineStep;
      const double cs = std::cos(step);
      const double sn = std::sin(step);
      double re = 0.0;
      double im = 0.0;
      for (int k = 0; k < count; ++k) {
        if (k % kResync == 0) {
          re = std::cos(phase0 + k * step);
          im = std::sin(phase0 + k * step);
        }
        out[k] += amplitude * re;
        const double next = re * cs - im * sn;
        im = re * sn + im * cs;
        re = next;
      }
    }
  }
}

int SimLight::dominantMainsHz(double t) const {
  if (params_.segments.empty()) {
    return 0;
  }
  const SimLightSegment& segment = params_.segments[segmentAt(t)];
  double total = 0.0;
  for (const SimLightComponent& c : segment.components) {
    total += c.level;
  }
  double best = 0.0;
  int bestHz = 0;
  for (const SimLightComponent& c : segment.components) {
    if (c.mainsHz == 0.0 || total <= 0.0) {
      continue;
    }
    for (const SimHarmonic& h : c.harmonics) {
      const double depth = h.depth * c.level / total;
      if (h.order == 2 && depth >= kPracticalDepth && depth > best) {
        best = depth;
        bestHz = static_cast<int>(std::lround(c.mainsHz));
      }
    }
  }
  return bestHz;
}

}  // namespace flicker_sim
