#include "observability.h"

#include <cmath>

namespace flicker_eval {

namespace {

constexpr double kPi = 3.14159265358979323846;
// Samples of a readout for the share of a ripple beyond a line: a few per
// band at three periods, far finer than the bands.
constexpr int kReadoutSamples = 256;

// Energy per sample of y after its least-squares offset and slope over the
// samples (1 and u = x - 1/2 are orthogonal on the symmetric grid).
template <typename Wave>
double energyBeyondLine(Wave y) {
  double mean = 0, meanSq = 0, cross = 0, uSq = 0;
  for (int i = 0; i < kReadoutSamples; ++i) {
    const double x = (i + 0.5) / kReadoutSamples;
    const double v = y(x);
    mean += v;
    meanSq += v * v;
    cross += v * (x - 0.5);
    uSq += (x - 0.5) * (x - 0.5);
  }
  mean /= kReadoutSamples;
  meanSq /= kReadoutSamples;
  return meanSq - mean * mean - cross * cross / (uSq * kReadoutSamples);
}

// Cycles between the frames, folded to the nearest whole number: 0..0.5.
double phaseStep(double hz, double intervalS) {
  const double cycles = hz * intervalS;
  return std::fabs(cycles - std::round(cycles));
}

}  // namespace

double sincAbs(double x) {
  return std::fabs(x) < 1e-12 ? 1.0 : std::fabs(std::sin(kPi * x) / (kPi * x));
}

double beyondLine(double cycles) {
  if (!(cycles > 0)) {
    return 0;
  }
  const double w = 2.0 * kPi * cycles;
  // Averaged over the phase, a ripple's energy is half that of its cosine
  // and half that of its sine; a whole ripple of unit amplitude has 1/2.
  const double energy = energyBeyondLine([w](double x) { return std::cos(w * x); }) +
                        energyBeyondLine([w](double x) { return std::sin(w * x); });
  return std::sqrt(std::fmax(0.0, std::fmin(1.0, energy)));
}

double entryNoise(double electrons, double gain, int pixels,
                  const flicker_sim::SimPixelParams& pixel) {
  if (!(electrons > 0) || pixels <= 0 || !(gain > 0)) {
    return 1.0;
  }
  // Digital numbers per electron, then the photon-transfer variance per pixel.
  const double k = gain * pixel.maxDn / pixel.fullWellE;
  const double variance = k * k * (electrons + pixel.readNoiseE * pixel.readNoiseE) + 1.0 / 12.0;
  return std::sqrt(variance / pixels) / (k * electrons);
}

double bandNoise(const PairPhysics& p) {
  return p.entryNoise * std::sqrt(2.0 / std::fmax(1, p.entries));
}

PairSight pairSight(const PairPhysics& p) {
  const double frameNoise = bandNoise(p);
  const double differenceNoise = std::sqrt(2.0) * frameNoise;
  const double inFrame =
      p.depth * sincAbs(p.rippleHz * p.exposureS) * beyondLine(p.rippleHz * p.readoutS);
  const bool otherCancelled = sincAbs(p.otherHz * p.exposureS) < kCancelledSinc;
  const bool cancelled = sincAbs(p.rippleHz * p.exposureS) < kCancelledSinc;
  const bool wholeBand = p.rippleHz * p.readoutS >= 1.0;
  if (cancelled || (!wholeBand && !otherCancelled)) {
    return PairSight::kHidden;
  }
  const double step = phaseStep(p.rippleHz, p.intervalS);
  const double inDifference = inFrame * 2.0 * std::sin(kPi * step);
  if (step >= kMinPhaseStep && inDifference >= kNoiseSigmas * differenceNoise) {
    return PairSight::kMoving;
  }
  if (otherCancelled && inFrame >= kNoiseSigmas * frameNoise) {
    return PairSight::kFrozen;
  }
  return PairSight::kHidden;
}

double residualBanding(const flicker_sim::SimLightSegment& segment, double exposureS) {
  double total = 0;
  for (const flicker_sim::SimLightComponent& c : segment.components) {
    total += c.level;
  }
  if (!(total > 0)) {
    return 0;
  }
  double sumSq = 0;
  for (const flicker_sim::SimLightComponent& c : segment.components) {
    const double share = c.level / total;
    if (c.pulseDuty > 0 && c.pulseDuty < 1) {
      // A pulse train's harmonics: 2 sin(pi n d) / (pi n d) of its mean.
      for (int n = 1; n <= 64; ++n) {
        const double x = kPi * n * c.pulseDuty;
        const double a = share * 2.0 * std::sin(x) / x * sincAbs(n * c.baseHz * exposureS);
        sumSq += a * a;
      }
      continue;
    }
    for (const flicker_sim::SimHarmonic& h : c.harmonics) {
      const double a = share * h.depth * sincAbs(h.order * c.baseHz * exposureS);
      sumSq += a * a;
    }
  }
  return std::sqrt(sumSq);
}

}  // namespace flicker_eval
