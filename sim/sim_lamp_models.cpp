#include "sim_lamp_models.h"

#include <cmath>
#include <vector>

namespace flicker_sim {

namespace {

constexpr double kPi = 3.14159265358979323846;
// Midpoints per ripple period for the shape's Fourier coefficients.
constexpr int kQuadraturePoints = 4096;
// Harmonics weaker than this are not rendered: far below any sensor's noise.
constexpr double kNegligibleDepth = 1e-6;

// Sources. The figures marked "approx." are recalled from the publication's
// tables and figures, not transcribed from them: they are close to what it
// reports, and worth checking against it before they are quoted elsewhere.
//
// [ECampbell] A. A. Eastman, J. H. Campbell, "Stroboscopic and flicker effects
//   from fluorescent lamps", Illuminating Engineering 47 (1952), which
//   introduced the flicker index; its incandescent and fluorescent figures
//   are reproduced in the IES Lighting Handbook (10th ed., Illuminating
//   Engineering Society, 2011).
// [PNNL] M. E. Poplawski, N. J. Miller, "Exploring flicker in solid-state
//   lighting: what you might find, and how to deal with it", Pacific
//   Northwest National Laboratory for the U.S. Department of Energy, 2011:
//   photometric measurements of incandescent, fluorescent and LED products.
// [IEEE1789] IEEE Std 1789-2015, "IEEE Recommended Practices for Modulating
//   Current in High-Brightness LEDs for Mitigating Health Risks to Viewers",
//   which defines both figures and surveys the flicker of LED products
//   (full-wave rectified drive without smoothing, PWM dimming); also
//   B. Lehman, A. J. Wilkins, "Designing to mitigate effects of flicker in
//   LED lighting", IEEE Power Electronics Magazine 1(3), 2014.
//
// floor, c and p: fitted to the figures (see the header).
const std::vector<SimLampModel> kModels = {
    // name, what was measured,
    //   percent flicker, flicker index, mains-driven, floor, c, p, PWM Hz, duty
    // [ECampbell], approx.: a thin 40 W filament cools the most between the
    // mains peaks.
    {"incandescent-40w", "incandescent lamp, 40 W, 120 V",  //
     13.0, 0.040, true, 0.7689, 0.0, 1.6903, 0.0, 0.0},
    // [PNNL], approx.: a 60 W A19 lamp.
    {"incandescent-60w", "incandescent lamp, 60 W A19, 120 V",  //
     6.6, 0.021, true, 0.8759, 0.0, 1.9945, 0.0, 0.0},
    // [ECampbell], approx.: the heavier 100 W filament holds its heat. Its
    // index is a little above what the shapes reach for its percent flicker
    // (a sinusoid's PF / pi): modelled as a sinusoid, 0.0159.
    {"incandescent-100w", "incandescent lamp, 100 W, 120 V",  //
     5.0, 0.016, true, 0.9045, 0.0, 2.0, 0.0, 0.0},
    // [PNNL], approx.: a T12 tube on a magnetic ballast; the discharge goes
    // out near each zero crossing and the phosphor's afterglow is the floor.
    {"fluorescent-magnetic", "linear fluorescent T12 on a magnetic ballast",  //
     37.0, 0.11, true, 0.4570, 0.0, 1.5899, 0.0, 0.0},
    // [PNNL], approx.: a compact fluorescent lamp whose integral electronic
    // ballast leaves the ripple of its rectifier's storage capacitor.
    {"cfl-electronic", "compact fluorescent with an integral electronic ballast",  //
     7.0, 0.020, true, 0.8670, 0.0, 1.2103, 0.0, 0.0},
    // [PNNL], approx.: a T8 tube on a high-frequency electronic ballast: the
    // weakest mains ripple of the table, about 2 %.
    {"fluorescent-electronic", "linear fluorescent T8 on a high-frequency electronic ballast",  //
     2.0, 0.006, true, 0.9604, 0.0, 1.4367, 0.0, 0.0},
    // [IEEE1789], [PNNL], approx.: LEDs on full-wave rectified mains without
    // smoothing, dark while the voltage is below the string's.
    {"led-rectified", "LED lamp on rectified mains without smoothing",  //
     100.0, 0.40, true, 0.0, 0.4669, 1.0, 0.0, 0.0},
    // [IEEE1789]: PWM dimming at a few hundred hertz to a few kilohertz,
    // unrelated to the mains; the figures follow from the duty cycle.
    {"led-pwm", "PWM-dimmed LED, 437 Hz at 25 % duty",  //
     100.0, 0.75, false, 0.0, 0.0, 0.0, 437.0, 0.25},
    {"led-pwm-1k", "PWM-dimmed LED, 1 kHz at 50 % duty",  //
     100.0, 0.50, false, 0.0, 0.0, 0.0, 1000.0, 0.5},
};

// Lanczos sigma factor of harmonic h: damps the series' ringing.
double sigma(int harmonic) {
  const double x = kPi * harmonic / (kLampHarmonics + 1);
  return std::sin(x) / x;
}

void addHarmonic(SimLightComponent* c, int order, double depth, double phase) {
  if (std::fabs(depth) < kNegligibleDepth) {
    return;
  }
  // A negative coefficient is the same harmonic shifted by half a period.
  if (depth < 0.0) {
    depth = -depth;
    phase += kPi;
  }
  c->harmonics.push_back({order, depth, phase});
}

}  // namespace

const std::vector<SimLampModel>& simLampModels() {
  return kModels;
}

const SimLampModel* findSimLampModel(const std::string& name) {
  for (const SimLampModel& m : kModels) {
    if (name == m.name) {
      return &m;
    }
  }
  return nullptr;
}

SimLightComponent makeLampModelComponent(const SimLampModel& model, double mainsHz, double level,
                                         double driftHz, double mainsPhase) {
  if (!model.mainsDriven) {
    SimLightComponent c = makePulseLightComponent(model.pwmHz, model.duty, level, mainsPhase);
    c.type = SimLightType::kMeasured;
    return c;
  }
  SimLightComponent c;
  c.type = SimLightType::kMeasured;
  c.level = level;
  c.mainsHz = mainsHz;
  c.baseHz = mainsHz == 0.0 ? 0.0 : mainsHz + driftHz;
  // The shape is even in x and repeats every half mains period: a cosine
  // series in 2 h x, i.e. harmonics of twice the mains.
  double mean = 0.0;
  std::vector<double> cosines(kLampHarmonics + 1, 0.0);
  for (int i = 0; i < kQuadraturePoints; ++i) {
    const double x = kPi * (i + 0.5) / kQuadraturePoints;
    const double lit = std::fmax(0.0, std::fabs(std::sin(x)) - model.deadZone);
    const double g =
        model.floor + (1.0 - model.floor) * std::pow(lit / (1.0 - model.deadZone), model.exponent);
    mean += g;
    for (int h = 1; h <= kLampHarmonics; ++h) {
      cosines[h] += g * std::cos(2.0 * h * x);
    }
  }
  mean /= kQuadraturePoints;
  for (int h = 1; h <= kLampHarmonics; ++h) {
    const double a = 2.0 * cosines[h] / kQuadraturePoints;
    addHarmonic(&c, 2 * h, sigma(h) * a / mean, 2.0 * h * mainsPhase);
  }
  return c;
}

}  // namespace flicker_sim
