#include "ripple_analyzer.h"

#include <algorithm>
#include <cmath>

#include "window_combiner.h"

namespace open_algo {
namespace {

constexpr double kPi = 3.14159265358979323846;
// Fewer bins leave too few degrees of freedom beyond the eight parameters of
// a frame's fit.
constexpr int kMinBins = kMaxTrendTerms + 2 * kRipples + 6;
// The analysed readout must span at least one 100 Hz period: over less, a
// frame shows under one band of either ripple and the two frequencies (and
// the trend) cannot be told apart, whatever the fit's conditioning says.
constexpr double kMinReadoutPeriods = 1.0;
// A harmonic needs this many bins per 120 Hz period (three per period of
// 240 Hz) to be told from the trend.
constexpr double kMinBinsPerHarmonicPeriod = 6.0;
// The harmonics are fitted when the readout spans this many 100 Hz periods:
// over less, 200 Hz and 240 Hz are not told apart from each other and from
// the fundamentals, and their columns only cost degrees of freedom.
constexpr double kMinHarmonicReadoutPeriods = 2.0;
// An exposure this close to whole periods of a ripple (|sinc| below it)
// integrates the ripple and all its harmonics away: fitting it anyway only
// adds a column nearly parallel to the other ripple's over short readouts,
// into which any unmodelled shape of the other ripple leaks.
constexpr double kCancelledGain = 0.01;
// The difference keeps a second harmonic only when it brings the residual
// below this share of the fit without it.
constexpr double kHarmonicResidualShare = 0.9;
// ... and its own evidence across the windows reaches this.
constexpr double kHarmonicEvidence = 0.5;
// Residual rms of the frame difference (log units) over which temporal
// evidence fades out: a static scene leaves well under 1 %.
constexpr double kResidualLow = 0.02;
constexpr double kResidualHigh = 0.06;
// Share of the difference's ripple amplitude that its unmodelled harmonics may
// add to the residual (the second harmonic of log(1 + a cos) is a/4 of it).
constexpr double kHarmonicAllowance = 0.25;
// A frozen frequency's single-frame ripple counts in a vote less this many
// standard errors: what texture noise alone would not produce.
constexpr double kStandInErrors = 2.0;
// Two frames' spatial ripples must agree within this ratio ramp.
constexpr double kConsistencyLow = 0.3;
constexpr double kConsistencyHigh = 0.6;

double sincAbs(double x) {
  if (std::fabs(x) < 1e-9) {
    return 1.0;
  }
  return std::fabs(std::sin(kPi * x) / (kPi * x));
}

}  // namespace

void RippleAnalyzer::chooseModels(double lineTime, PairEvidence* out) {
  using LS = RippleLeastSquares;
  frameModel_ = LS::modelKey(true, kFundamentals);
  diffModel_ = LS::modelKey(false, kFundamentals);
  altModels_ = 0;
  for (int f = 0; f < kRipples; ++f) {
    out->cancelled[f] = out->exposureGain[f] < kCancelledGain;
  }
  const double binsPer120 = 1.0 / (kRippleHz[1] * lineTime * binner_.binLines());
  const double readout = static_cast<double>(binner_.bins()) * binner_.binLines() * lineTime;
  const bool singleHarmonicOk = binsPer120 >= kMinBinsPerHarmonicPeriod;
  if (singleHarmonicOk && readout * kRippleHz[0] >= kMinHarmonicReadoutPeriods) {
    const int both = LS::modelKey(false, kFundamentals | (kFundamentals << kRipples));
    diffModel_ = fitter_.usable(both) ? both : diffModel_;
    return;
  }
  if (!singleHarmonicOk) {
    return;
  }
  // Over a short readout both harmonics and both fundamentals are too many
  // columns, but one harmonic with both fundamentals is not. Each ripple's
  // harmonic is a candidate unless the exposure cancels that ripple (and so
  // all its harmonics). Both fundamentals stay in every fit: a cancelled
  // ripple's column is the probe for texture and motion that would otherwise
  // pass for the other.
  for (int f = 0; f < kRipples; ++f) {
    const int alt = LS::modelKey(false, kFundamentals | (1u << (kRipples + f)));
    if (!out->cancelled[f] && fitter_.usable(alt)) {
      altModel_[altModels_++] = alt;
    }
  }
}

void RippleAnalyzer::fitSeries(int series, int windows, int key, WindowFit* fits) {
  for (int w = 0; w < windows; ++w) {
    fitter_.fit(binner_.profile(series, w), binner_.kept(series, w), key, &fits[w]);
  }
}

void RippleAnalyzer::fitDifference(int windows, const AlgoKnobs& knobs) {
  fitSeries(LineBinner::kDiff, windows, diffModel_, fits_[LineBinner::kDiff]);
  double best = WindowCombiner::medianSigma(fits_[LineBinner::kDiff], windows);
  for (int i = 0; i < altModels_; ++i) {
    const int key = altModel_[i];
    fitSeries(LineBinner::kDiff, windows, key, altFits_);
    // A harmonic is kept when it explains enough of the residual and the
    // windows agree on it as on a ripple: motion also lowers the residual of
    // a larger model, but not coherently.
    const int harmonic = (key & (1 << kRipples)) != 0 ? kRipples : kRipples + 1;
    const RippleSummary h = WindowCombiner::combine(altFits_, harmonic, windows, 1.0, knobs);
    const double sigma = WindowCombiner::medianSigma(altFits_, windows);
    if (h.evidence >= kHarmonicEvidence && sigma >= 0.0 && sigma < kHarmonicResidualShare * best) {
      std::copy(altFits_, altFits_ + windows, fits_[LineBinner::kDiff]);
      best = sigma;
    }
  }
}

void RippleAnalyzer::summariseTemporal(const PairInput& in, const AlgoKnobs& knobs,
                                       PairEvidence* out) {
  const WindowFit* diff = fits_[LineBinner::kDiff];
  double sigma[kMaxWindows];
  int n = 0;
  for (int w = 0; w < in.windows; ++w) {
    if (diff[w].valid) {
      sigma[n++] = diff[w].sigma;
    }
  }
  double strongest = 0.0;
  for (int f = 0; f < kRipples; ++f) {
    const double v = std::fabs(std::sin(kPi * kRippleHz[f] * in.interval));
    out->visibility[f] = v;
    out->frozen[f] = v < knobs.minVisibility;
    // The difference holds the frame ripple times 2 v.
    out->temporal[f] =
        WindowCombiner::combine(diff, f, in.windows, out->frozen[f] ? 0.0 : 0.5 / v, knobs);
    out->temporalAmplitude[f] = out->temporal[f].amplitude;
    strongest = std::max(strongest, out->temporal[f].amplitude * 2.0 * v);
  }
  // A strong ripple leaves harmonics (the log is not linear) that the fit does
  // not model; they are allowed for before the residual counts as motion.
  out->differenceFitted = n >= std::max(1, (in.windows + 1) / 2);
  out->sceneResidual =
      n > 0 ? std::max(0.0, WindowCombiner::median(sigma, n) - kHarmonicAllowance * strongest)
            : 1.0;
  // Without enough fitted windows the residual says nothing about motion.
  out->sceneChange = out->differenceFitted && out->sceneResidual >= kResidualHigh;
  const double stillness =
      1.0 - WindowCombiner::ramp(out->sceneResidual, kResidualLow, kResidualHigh);
  for (int f = 0; f < kRipples; ++f) {
    out->temporalEvidence[f] = out->frozen[f] ? 0.0 : out->temporal[f].evidence * stillness;
  }
}

void RippleAnalyzer::summariseSpatial(const PairInput& in, const AlgoKnobs& knobs,
                                      PairEvidence* out) {
  for (int f = 0; f < kRipples; ++f) {
    for (int k = 0; k < 2; ++k) {
      out->spatial[k][f] = WindowCombiner::combine(fits_[k], f, in.windows, 1.0, knobs);
    }
    const double a0 = out->spatial[0][f].amplitude;
    const double a1 = out->spatial[1][f].amplitude;
    const double hi = std::max(a0, a1);
    const double consistency = hi > 0.0 ? std::min(a0, a1) / hi : 0.0;
    out->spatialAmplitude[f] = std::min(a0, a1);
    double standIn = hi;
    for (int k = 0; k < 2; ++k) {
      const RippleSummary& r = out->spatial[k][f];
      const double se = r.snr > 0.0 ? r.amplitude / r.snr : 0.0;
      standIn = std::min(standIn, std::max(0.0, r.amplitude - kStandInErrors * se));
    }
    out->frozenStandIn[f] = standIn;
    out->spatialEvidence[f] = std::min(out->spatial[0][f].evidence, out->spatial[1][f].evidence) *
                              WindowCombiner::ramp(consistency, kConsistencyLow, kConsistencyHigh);
  }
}

bool RippleAnalyzer::analyse(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out) {
  using LS = RippleLeastSquares;
  *out = PairEvidence{};
  for (int f = 0; f < kRipples; ++f) {
    out->exposureGain[f] = sincAbs(kRippleHz[f] * in.exposure);
  }
  if (!binner_.plan(in, knobs.searchRange, kMinBins, kMinReadoutPeriods)) {
    return false;
  }
  fitter_.setLayout(binner_.bins(), binner_.binLines(), in.lineTime);
  if (!fitter_.usable(LS::modelKey(true, kFundamentals)) ||
      !fitter_.usable(LS::modelKey(false, kFundamentals))) {
    return false;  // the two ripples cannot be told apart over this readout
  }
  chooseModels(in.lineTime, out);
  out->bins = binner_.bins();
  out->binLines = binner_.binLines();
  binner_.planSubBins(in, knobs.searchRange);
  const bool periodsFit = periods_.plan(in.lineTime, binner_.subLines(), binner_.subBins());
  if (!periodsFit) {
    binner_.dropSubBins();  // too short a readout to compare a 100 Hz period on
  }
  binner_.bin(in, knobs, 0);
  binner_.bin(in, knobs, 1);
  binner_.buildDifference(in.windows);
  fitSeries(0, in.windows, frameModel_, fits_[0]);
  fitSeries(1, in.windows, frameModel_, fits_[1]);
  shift_.removeShift(binner_, fitter_, diffModel_, in.windows, out);
  fitDifference(in.windows, knobs);
  summariseTemporal(in, knobs, out);
  summariseSpatial(in, knobs, out);
  out->periodRipple = -1;
  if (periodsFit && PeriodTest::isDeep(binner_, in.windows)) {
    periods_.run(binner_, in.windows, out);
    const int f = PeriodTest::periodicRipple(*out, in.windows);
    out->periodRipple = f;
    if (f >= 0) {
      // The ripple's period explains the difference, whatever its shape: not
      // motion, and not the other ripple.
      out->sceneChange = false;
      out->temporalEvidence[f] = 1.0;
      out->temporalEvidence[1 - f] = 0.0;
    }
  }
  out->analysable = true;
  return true;
}

}  // namespace open_algo
