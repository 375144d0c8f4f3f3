#include "ripple_analyzer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "window_combiner.h"

namespace open_algo {
namespace {

constexpr double kPi = 3.14159265358979323846;
// A scene's shift in the gradient's sense (it gains the level at a bin's
// end) brings its content that many lines up: the later frame is binned that
// many lines back.
constexpr double kLineUpSign = -1.0;
// A bin of a lined-up difference whose residual is this many robust standard
// deviations (1.4826 median absolute residuals) off holds an edge that
// crossed a line: an edge moves by whole lines while the scene moves by a
// fraction, and no shift, whole or linear, removes it. At most one bin in
// this many of a window is so dropped.
constexpr double kCrossingErrors = 4.0;
constexpr double kMadToSigma = 1.4826;
constexpr int kMaxCrossingShare = 4;
// A lined-up difference is read when it leaves under this share of the
// residual that the linear removal of the whole shift left.
constexpr double kLinedUpResidualShare = 0.75;
// Fewer bins leave too few degrees of freedom beyond the eight parameters of
// a frame's fit.
constexpr int kMinBins = kMaxTrendTerms + 2 * kRipples + 6;
// With both ripples in play the analysed readout must span at least one
// 100 Hz period: over less, a frame shows under one band of either ripple and
// the two frequencies (and the trend) cannot be told apart, whatever the
// fit's conditioning says.
constexpr double kMinReadoutPeriods = 1.0;
// With one ripple cancelled by the exposure, bins are laid out down to this
// many 100 Hz periods; the fit's conditioning (kMaxInflation) then decides.
constexpr double kMinShortReadoutPeriods = 0.3;
// A ripple is fitted while the rest of the model leaves at least a tenth of
// it (its variance at most 100 times that of a ripple over whole periods):
// for a lone ripple and the difference's line, about 0.42 of its period.
constexpr double kMaxInflation = 100.0;
// The cancelled ripple's column stays in the difference's fit as a probe of
// texture and motion while it doubles the other ripple's variance at most.
constexpr double kProbeCost = 2.0;
// A lone ripple's fit votes when it explains at least this many times what it
// leaves of the difference beyond the trend (evidence from half of it).
constexpr double kMinLoneExplained = 16.0;
// A ripple's evidence ramps up from this many times the shift's leak into its
// column to this many.
constexpr double kLeakLow = 1.5;
constexpr double kLeakHigh = 3.0;
// A ripple whose column held less than this share of it before a shift was
// removed owes itself to the removal.
constexpr double kMadeByRemovalShare = 0.5;
// A reference frame serves this many detections before a fresh one replaces
// it: the phase of a frozen ripple creeps (mains drift, a frame rate a hair
// off) and would in time come round a whole cycle.
constexpr int kMaxReferenceAge = 48;
// Detections in a row under another exposure (of whole periods of the other
// ripple) that a reference outlasts: exposure control stepping to the next
// multiple of the period for a frame changes no light, and a fresh reference
// each time would cut the creep short. One more would delay the reference
// after a lasting change (an onset's) by as many pairs.
constexpr int kExposureExcursion = 1;
// Sub-bins searched around the scene's expected shift against the reference,
// beyond how far its pace moved it since it was last found: at its first
// finding (the pace unknown), and after.
constexpr int kFirstEdgeReach = 8;
constexpr int kEdgeReach = 4;
// A scene that is still this many standard errors, and more than this share
// of a bin, away from the reference once its edges had their say has left
// it: a frozen ripple stays on the sensor's lines, a drifting scene does not,
// and a hand's shake swings back well within it. Beyond about half a bin
// texture finer than a bin bends the gradient, and the linear estimate of
// the shift breaks down before it would see a bin.
constexpr double kLeftReferenceErrors = 3.0;
constexpr double kLeftReferenceBins = 0.5;
// A pair whose scene shifted this many lines (and three standard errors)
// moved, whether or not the shift could be removed.
constexpr double kMovedLines = 0.5;
// Residual rms of a pair's own difference (log units) that a frozen ripple
// on a still scene does not leave: a still scene leaves well under 1 %.
constexpr double kUnexplainedChange = 0.01;
// A frozen ripple's creep against the reference must show at least this many
// times what the pair's own difference shows at its frequency.
constexpr double kCreepOverOwn = 2.0;
// A frozen ripple's creep against the reference votes when its pace stands
// this many times the SNR threshold (evidence from there to twice it): the
// comparisons of one reference share its noise, and a pace fitted over tens
// of them is held to more than one comparison's SNR.
constexpr double kCreepSignificance = 2.0;
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
// A ripple whose phase advances at most this visibility between the frames
// (|sin(pi f_r dt)|, 0.016 cycles) stands still: it leaves at most twice
// this share of the frame ripple in the difference while the exposure stays
// (PairEvidence::stillLeftover). The frame interval comes in nanoseconds, and
// a mains drift of a few hundredths of a hertz moves a ripple by less.
constexpr double kStillVisibility = 0.05;
// The deepest ripple a frame can carry, in log units: a lamp dark for part of
// its cycle under a short exposure (the bounded difference saturates at 2).
// A still ripple's creep of visibility v leaves up to 2 v of it.
constexpr double kDeepestFrameRipple = 1.0;
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

// The scene moved between the pair's frames: its shift was removed, or
// stripes that drift (moving mostly in the ripple columns, whose part of the
// shift is not removed) still shifted it significantly.
bool pairMoved(const PairEvidence& e) {
  const double lines = std::fabs(e.shift);
  return e.shiftRemoved || (lines >= kMovedLines && lines >= kLeftReferenceErrors * e.shiftError);
}

// The deepest ripple (log units, the fundamental's amplitude) that an
// exposure of at least one ripple period can leave in a frame: it integrates
// n whole periods and a part of one, so whatever the lamp's waveform a line
// collects between n and n + 1 periods' worth of light, and the log varies
// by ln((n + 1) / n) at most, a square wave's fundamental 2 / pi of that. A
// shorter exposure may catch a lamp's dark phase whole: no bound (infinity).
double deepestFrameRipple(double rippleHz, double exposure) {
  const double periods = std::floor(rippleHz * exposure + 1e-6);
  if (periods < 1.0) {
    return std::numeric_limits<double>::infinity();
  }
  return 2.0 / kPi * std::log((periods + 1.0) / periods);
}

// The one ripple that can be in the pair's difference, the other being
// cancelled or still; -1 when both can, or neither.
int onlyRippleInDifference(const PairEvidence& e) {
  const bool out0 = e.cancelled[0] || e.still[0];
  const bool out1 = e.cancelled[1] || e.still[1];
  return out0 == out1 ? -1 : (out0 ? 1 : 0);
}

}  // namespace

bool RippleAnalyzer::chooseModels(double lineTime, PairEvidence* out) {
  using LS = RippleLeastSquares;
  const int frameJoint = LS::modelKey(true, kFundamentals);
  const int diffJoint = LS::modelKey(false, kFundamentals);
  frameModel_ = frameJoint;
  diffModel_ = diffJoint;
  altModels_ = 0;
  lone_ = false;
  const double binsPer120 = 1.0 / (kRippleHz[1] * lineTime * binner_.binLines());
  const double readout = static_cast<double>(binner_.bins()) * binner_.binLines() * lineTime;
  const bool singleHarmonicOk = binsPer120 >= kMinBinsPerHarmonicPeriod;
  if (out->cancelled[0] != out->cancelled[1]) {
    // One ripple is cancelled: no frame can show it, so its column only
    // probes texture and motion. Over a short readout that probe takes the
    // other ripple's place (the two columns are nearly parallel); the
    // difference is then fitted with the other ripple alone, a sinusoid and
    // a line, down to the readout where the line takes most of it.
    const int f = out->cancelled[0] ? 1 : 0;
    const int single = LS::modelKey(false, 1u << f);
    const double alone = fitter_.inflation(single, f);
    const bool probe =
        fitter_.usable(diffJoint) && fitter_.inflation(diffJoint, f) <= kProbeCost * alone;
    if (!probe) {
      if (!fitter_.usable(single) || alone > kMaxInflation) {
        return false;
      }
      diffModel_ = single;
      lone_ = true;
      const int harmonic = LS::modelKey(false, (1u << f) | (1u << (kRipples + f)));
      if (singleHarmonicOk && fitter_.usable(harmonic)) {
        altModel_[altModels_++] = harmonic;
      }
      // A frame is fitted for the ripple it can show, when its cubic trend
      // leaves enough of it.
      const int frameSingle = LS::modelKey(true, 1u << f);
      frameModel_ = -1;
      for (const int key : {frameJoint, frameSingle}) {
        if (frameModel_ < 0 && fitter_.usable(key) && fitter_.inflation(key, f) <= kMaxInflation) {
          frameModel_ = key;
        }
      }
      return true;
    }
  }
  if (!fitter_.usable(diffJoint) || readout * kRippleHz[0] < kMinReadoutPeriods) {
    return false;  // the two ripples cannot be told apart over this readout
  }
  // A frame's cubic trend takes both ripples over a readout of about one
  // period; its fits would only be noise.
  const bool framesShow = fitter_.usable(frameJoint) &&
                          fitter_.inflation(frameJoint, 0) <= kMaxInflation &&
                          fitter_.inflation(frameJoint, 1) <= kMaxInflation;
  frameModel_ = framesShow ? frameJoint : -1;
  if (singleHarmonicOk && readout * kRippleHz[0] >= kMinHarmonicReadoutPeriods) {
    const int both = LS::modelKey(false, kFundamentals | (kFundamentals << kRipples));
    diffModel_ = fitter_.usable(both) ? both : diffModel_;
    return true;
  }
  if (!singleHarmonicOk) {
    return true;
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
  return true;
}

void RippleAnalyzer::fitSeries(int series, int windows, int key, WindowFit* fits) {
  for (int w = 0; w < windows; ++w) {
    fitter_.fit(binner_.profile(series, w), binner_.kept(series, w), key, &fits[w]);
  }
}

int RippleAnalyzer::fitDifference(int series, int windows, bool removed, const AlgoKnobs& knobs,
                                  WindowFit* fits) {
  int model = diffModel_;
  for (int w = 0; w < windows; ++w) {
    // The shift's estimate solved the series already where it removed nothing.
    const WindowFit* unshifted = removed ? nullptr : shift_.unshiftedFit(w);
    if (unshifted != nullptr) {
      fits[w] = *unshifted;
    } else {
      fitter_.fit(binner_.profile(series, w), binner_.kept(series, w), diffModel_, &fits[w]);
    }
  }
  double best = WindowCombiner::medianSigma(fits, windows);
  for (int i = 0; i < altModels_; ++i) {
    const int key = altModel_[i];
    fitSeries(series, windows, key, altFits_);
    // A harmonic is kept when it explains enough of the residual and the
    // windows agree on it as on a ripple: motion also lowers the residual of
    // a larger model, but not coherently.
    const int harmonic = (key & (1 << kRipples)) != 0 ? kRipples : kRipples + 1;
    const RippleSummary h = WindowCombiner::combine(altFits_, harmonic, windows, 1.0, knobs);
    const double sigma = WindowCombiner::medianSigma(altFits_, windows);
    if (h.evidence >= kHarmonicEvidence && sigma >= 0.0 && sigma < kHarmonicResidualShare * best) {
      std::copy(altFits_, altFits_ + windows, fits);
      best = sigma;
      model = key;
    }
  }
  return model;
}

double RippleAnalyzer::commonExplained(int series, int windows, int model, const WindowFit* fits) {
  // Light reaches every window alike; motion and texture do not. The mean of
  // the windows' differences keeps a lamp's ripple and any other light's
  // modulation, and averages motion down.
  double mean[kMaxBins];
  uint8_t kept[kMaxBins];
  for (int b = 0; b < binner_.bins(); ++b) {
    double sum = 0.0;
    int n = 0;
    for (int w = 0; w < windows; ++w) {
      if (fits[w].valid && binner_.kept(series, w)[b] != 0) {
        sum += binner_.profile(series, w)[b];
        ++n;
      }
    }
    kept[b] = n > 0 ? 1 : 0;
    mean[b] = n > 0 ? sum / n : 0.0;
  }
  WindowFit common;
  return fitter_.fit(mean, kept, model, &common, true) ? common.explained : 0.0;
}

void RippleAnalyzer::dropEdgeCrossings(int series, int windows) {
  double residual[kMaxWindows][kMaxBins];
  double size[kMaxWindows * kMaxBins] = {};
  bool solved[kMaxWindows] = {};
  int n = 0;
  for (int w = 0; w < windows; ++w) {
    const double* d = binner_.profile(series, w);
    const uint8_t* ok = binner_.kept(series, w);
    RippleLeastSquares::Solution sol;
    solved[w] = fitter_.solve(d, ok, diffModel_, &sol);
    for (int b = 0; solved[w] && b < binner_.bins(); ++b) {
      residual[w][b] = ok[b] != 0 ? fitter_.residualAt(d, sol, b) : 0.0;
      if (ok[b] != 0) {
        size[n++] = std::fabs(residual[w][b]);
      }
    }
  }
  if (n == 0) {
    return;
  }
  std::nth_element(size, size + n / 2, size + n);
  const double limit = kCrossingErrors * kMadToSigma * size[n / 2];
  for (int w = 0; w < windows; ++w) {
    int crossings = 0;
    for (int b = 0; solved[w] && b < binner_.bins(); ++b) {
      crossings += std::fabs(residual[w][b]) > limit ? 1 : 0;
    }
    // More than a few such bins is no edge's doing.
    if (crossings == 0 || crossings > binner_.bins() / kMaxCrossingShare) {
      continue;
    }
    for (int b = 0; b < binner_.bins(); ++b) {
      if (std::fabs(residual[w][b]) > limit) {
        binner_.mask(series, w, b);
      }
    }
  }
}

void RippleAnalyzer::readDifference(int series, int from, int to, const double* scale, int windows,
                                    const AlgoKnobs& knobs, DifferenceReading* r,
                                    const ShiftResult* linedUp, int lines) {
  r->shift = shift_.removeShift(binner_, fitter_, diffModel_, windows, series, from, to);
  if (linedUp != nullptr) {
    // Frame `to` was binned `lines` lines on: the scene moved that much
    // before the rest was estimated, and the column held before all of it
    // what it held before the first estimate.
    r->shift.shift += kLineUpSign * lines;
    r->shift.removed = true;
    std::copy(linedUp->before, linedUp->before + kRipples, r->shift.before);
    dropEdgeCrossings(series, windows);
  }
  const int model = fitDifference(series, windows, r->shift.removed, knobs, r->fits);
  double sigma[kMaxWindows];
  int n = 0;
  for (int w = 0; w < windows; ++w) {
    if (r->fits[w].valid) {
      sigma[n++] = r->fits[w].sigma;
    }
  }
  double strongest = 0.0;
  for (int f = 0; f < kRipples; ++f) {
    r->ripple[f] = WindowCombiner::combine(r->fits, f, windows, scale[f], knobs);
    // What the difference shows of it beyond its trend (over a short readout
    // the line takes a share of a large fitted amplitude).
    const double beyondTrend = lone_ ? 1.0 / std::sqrt(std::max(1.0, inflation_[f])) : 1.0;
    strongest = std::max(strongest, scale[f] > 0.0 ? r->ripple[f].phasor * beyondTrend : 0.0);
  }
  r->fitted = n >= std::max(1, (windows + 1) / 2);
  r->sigma = n > 0 ? WindowCombiner::median(sigma, n) : 1.0;
  // A strong ripple leaves harmonics (the log is not linear) that the fit does
  // not model; they are allowed for before the residual counts as motion.
  r->residual = n > 0 ? std::max(0.0, r->sigma - kHarmonicAllowance * strongest) : 1.0;
  r->explained = lone_ && n > 0 ? commonExplained(series, windows, model, r->fits) : -1.0;
  const double stillness = 1.0 - WindowCombiner::ramp(r->residual, kResidualLow, kResidualHigh);
  // A lone ripple must explain the difference: over a short readout a
  // sinusoid and a line also fit part of any smooth or foreign pattern (a PWM
  // lamp's bands, a drifting edge), coherently across the windows.
  const double explained =
      lone_ ? WindowCombiner::ramp(r->explained, 0.5 * kMinLoneExplained, kMinLoneExplained) : 1.0;
  for (int f = 0; f < kRipples; ++f) {
    // A ripple must stand above what the scene's vertical shift may have put
    // into its column. In the pair's own difference, a ripple that only the
    // removal of a shift put there stands on that removal: the light's bands
    // may be what moved (a PWM lamp's bands move with its phase while the
    // scene stands still), and the removal then moved the scene's texture
    // at the band period into the column. It must stand above all that the
    // removal moved. (Against the reference a frozen ripple's own bands fill
    // the gradient's ripple column, and the rule would bar their creep.)
    const bool madeByRemoval = series == LineBinner::kDiff && r->shift.removed &&
                               r->shift.before[f] < kMadeByRemovalShare * r->ripple[f].phasor;
    const double leak =
        madeByRemoval ? std::max(r->shift.leak[f], std::fabs(r->shift.shift) * r->shift.perLine[f])
                      : r->shift.leak[f];
    const double aboveLeak =
        leak > 0.0 ? WindowCombiner::ramp(r->ripple[f].phasor / leak, kLeakLow, kLeakHigh) : 1.0;
    r->gate[f] = stillness * aboveLeak;
    r->evidence[f] = r->ripple[f].evidence * r->gate[f] * explained;
  }
}

void RippleAnalyzer::summariseTemporal(const PairInput& in, const AlgoKnobs& knobs,
                                       PairEvidence* out) {
  double scale[kRipples];
  for (int f = 0; f < kRipples; ++f) {
    // The difference holds the frame ripple times 2 v.
    scale[f] = out->frozen[f] ? 0.0 : 0.5 / out->visibility[f];
  }
  DifferenceReading r;
  readDifference(LineBinner::kDiff, 0, 1, scale, in.windows, knobs, &r);
  const int lines = static_cast<int>(std::lround(kLineUpSign * r.shift.shift));
  if (lone_ && r.shift.removed && lines != 0) {
    binner_.bin(in, knobs, 1, LineBinner::kShifted, lines);
    binner_.buildDifference(in.windows, LineBinner::kDiff, 0, LineBinner::kShifted);
    DifferenceReading lined;
    readDifference(LineBinner::kDiff, 0, LineBinner::kShifted, scale, in.windows, knobs, &lined,
                   &r.shift, lines);
    if (lined.fitted && lined.sigma < kLinedUpResidualShare * r.sigma) {
      r = lined;
    } else {
      // Texture without sharp edges moves as smoothly as the linear removal
      // assumes; lining it up only loses the bins at the frame's end.
      binner_.buildDifference(in.windows, LineBinner::kDiff, 0, 1);
      readDifference(LineBinner::kDiff, 0, 1, scale, in.windows, knobs, &r);
    }
  }
  out->shift = r.shift.shift;
  out->shiftError = r.shift.error;
  out->shiftRemoved = r.shift.removed;
  out->differenceFitted = r.fitted;
  out->differenceSigma = r.sigma;
  out->sceneResidual = r.residual;
  out->loneExplained = r.explained;
  // Without enough fitted windows the residual says nothing about motion.
  out->sceneChange = r.fitted && r.residual >= kResidualHigh;
  for (int f = 0; f < kRipples; ++f) {
    out->shiftLeak[f] = r.shift.leak[f];
    out->temporal[f] = r.ripple[f];
    out->temporalAmplitude[f] = r.ripple[f].amplitude;
    out->temporalEvidence[f] = out->frozen[f] ? 0.0 : r.evidence[f];
  }
}

void RippleAnalyzer::forgetReference() {
  reference_ = ReferenceKey{};
  creep_.clear();
}

void RippleAnalyzer::compareWithReference(const PairInput& in, const AlgoKnobs& knobs,
                                          PairEvidence* out) {
  // Only a ripple that is frozen while the other is cancelled needs a longer
  // baseline: its bands stand still between the pair's frames, and the
  // exposure leaves nothing of the other ripple that could mimic them.
  int frozen = -1;
  for (int f = 0; f < kRipples; ++f) {
    if (out->frozen[f] && !out->cancelled[f] && out->cancelled[1 - f]) {
      frozen = f;
    }
  }
  if (frozen < 0) {
    // The reference must come from an unbroken run of such pairs: one kept
    // before a change of state, and of light, would show that change.
    forgetReference();
    return;
  }
  const ReferenceKey key{true,
                         in.lines,
                         in.windows,
                         in.winWidth,
                         in.lineTime,
                         in.exposure,
                         knobs.searchRange,
                         binner_.bins(),
                         binner_.binLines(),
                         binner_.subBins(),
                         0,
                         0,
                         0,
                         0.0,
                         0.0,
                         0.0,
                         0,
                         0};
  if (reference_.age < kMaxReferenceAge && reference_.sameReadout(key) && !reference_.sameAs(key) &&
      exposureAway_ < kExposureExcursion) {
    // Not comparable with the reference, which still holds the light.
    ++exposureAway_;
    ++reference_.age;
    addTravel(in, *out);
    return;
  }
  if (!reference_.sameAs(key) || reference_.age >= kMaxReferenceAge) {
    keepReference(in, key);
    return;
  }
  exposureAway_ = 0;
  ++reference_.age;
  addTravel(in, *out);
  const int to = lineUpWithReference(in, knobs, out);
  // The reference's phase lies an unknown number of cycles back: the pair's
  // ripple is at least half of what the difference shows.
  const double scale[kRipples] = {0.5, 0.5};
  DifferenceReading r;
  binner_.buildDifference(in.windows, LineBinner::kLong, LineBinner::kReference, to);
  readDifference(LineBinner::kLong, LineBinner::kReference, to, scale, in.windows, knobs, &r);
  out->longTested = true;
  out->longAge = reference_.age;
  out->longResidual = r.residual;
  out->longShift = r.shift.shift;
  out->longShiftError = r.shift.error;
  out->longShiftRemoved = r.shift.removed;
  const bool linedUp = to == LineBinner::kShifted;
  const Departure d = departure(r.shift, linedUp);
  // A frozen ripple creeps a few thousandths of a cycle a frame: the pair's
  // own difference holds little but noise, and what it holds of the creep
  // its ripple fit explains. A change of a percent that no ripple explains
  // is light or scene changing from frame to frame (a PWM lamp's bands take
  // a new phase every frame), and the difference with the reference holds
  // it too.
  const bool pairChanges =
      out->sceneResidual >= kUnexplainedChange && out->loneExplained < 0.5 * kMinLoneExplained;
  // The creep grows with the time since the reference, the pair's own share
  // of it does not: a pattern the pair's own difference shows as clearly as
  // the difference with the reference changes from frame to frame (a moving
  // mains-frequency component of the lamp over a short readout), and is no
  // creep of the frozen ripple.
  const RippleSummary& own = out->temporal[frozen];
  const bool ownShows =
      own.snr >= knobs.snrThreshold && kCreepOverOwn * own.phasor > r.ripple[frozen].phasor;
  // Against the reference only creep and lined-up motion move the frozen
  // ripple's bands, and neither can show more than twice the deepest ripple
  // the exposure leaves in a frame: a deeper fit is texture that came into
  // the windows since (a pan), which over a short readout a sinusoid and a
  // line take in part, coherently. The scene has changed.
  const bool beyondLamps =
      r.ripple[frozen].phasor > 2.0 * deepestFrameRipple(kRippleHz[frozen], in.exposure);
  const bool voting =
      !d.left && !pairChanges && !ownShows && !beyondLamps && (linedUp || !d.drifting);
  for (int f = 0; f < kRipples; ++f) {
    out->longRipple[f] = r.ripple[f];
    out->longEvidence[f] = voting && f == frozen ? r.evidence[f] : 0.0;
  }
  if (voting && r.fitted) {
    out->longEvidence[frozen] =
        std::max(out->longEvidence[frozen], creepEvidence(r, frozen, knobs, out));
  }
  if ((r.fitted && r.residual >= kResidualHigh) || d.left || beyondLamps) {
    // The scene changed or moved away since: start again from this frame.
    keepReference(in, key);
  }
}

void RippleAnalyzer::keepReference(const PairInput& in, const ReferenceKey& key) {
  binner_.keepReference(1, in.windows);
  reference_ = key;
  exposureAway_ = 0;
  creep_.clear();
}

double RippleAnalyzer::creepEvidence(const DifferenceReading& r, int frozen, const AlgoKnobs& knobs,
                                     PairEvidence* out) {
  // A weak lamp's creep stays under the amplitude floor for seconds, while
  // each comparison measures it to a fraction of it: its steady growth
  // along one direction is what stands above the noise, comparison after
  // comparison, as texture does not. Nor can one comparison's lone fit
  // explain the difference sixteen times better than a line, as a single
  // pair's vote must: the steady pace takes that test's place against a
  // smooth pattern that fits a sinusoid once.
  const RippleSummary& s = r.ripple[frozen];
  creep_.add(reference_.age, s.re, s.im, s.error);
  out->longCreep = creep_.significance();
  const double threshold = kCreepSignificance * knobs.snrThreshold;
  return WindowCombiner::agreementRamp(s) *
         WindowCombiner::ramp(out->longCreep, threshold, 2.0 * threshold) * r.gate[frozen];
}

void RippleAnalyzer::addTravel(const PairInput& in, const PairEvidence& e) {
  // While every pair that moved moved the same way, the scene drifts, and
  // the pairs' own shifts (forward in time) add up to no more than it
  // travelled since the reference (pairs may leave frames out). A hand's
  // shake turns within a few frames and says nothing of the sort.
  ReferenceKey& ref = reference_;
  const double shift = in.interval < 0.0 ? -e.shift : e.shift;
  if (pairMoved(e)) {
    const int way = shift > 0.0 ? 1 : -1;
    ref.drift = ref.drift == 0 || ref.drift == way ? way : kNoDrift;
  }
  ref.travel += shift;
  ref.travelVariance += e.shiftError * e.shiftError;
}

RippleAnalyzer::Departure RippleAnalyzer::departure(const ShiftResult& away, bool linedUp) {
  // Texture at a band period drifting a line or two a frame creeps against
  // the reference as a frozen ripple creeps with the mains' drift, and as
  // slowly. Where its edges lined the scene up, the bands show against it;
  // where they could not (stripes have no distinct edges), a drifting scene
  // lends the comparison no vote, and once it is half a bin away (the
  // estimate against the reference says so, or the pairs' travel) it has
  // left the reference.
  ReferenceKey& ref = reference_;
  const double reach = kLeftReferenceBins * binner_.binLines();
  const double lines = std::fabs(away.shift);
  const bool significant = lines >= kLeftReferenceErrors * away.error;
  // The drift must also show against the reference, on its side, by a
  // sub-bin or more (under that the edges could not line the scene up
  // anyway, and the linear removal holds): a pair's shift can be spurious
  // where the reference finds the scene in place to a tenth of a line.
  const double sub = binner_.subLines();
  if (!linedUp && lines >= sub && significant) {
    ref.awaySides |= away.shift > 0.0 ? kAwayDown : kAwayUp;
  }
  // Where the estimate against the reference cannot place the scene within
  // the reach at all (a pan brings new texture into every window, and the
  // frames no longer match), it cannot show the pairs' shifts spurious
  // either: their travel alone tells how far the scene went.
  const bool unplaced = lines + kLeftReferenceErrors * away.error >= reach;
  const double travel = std::fabs(ref.travel);
  Departure d;
  d.drifting = (ref.drift == 1 || ref.drift == -1) &&
               ((ref.awaySides & (ref.drift > 0 ? kAwayDown : kAwayUp)) != 0 || unplaced) &&
               travel >= sub && travel >= kLeftReferenceErrors * std::sqrt(ref.travelVariance);
  d.left = (lines > reach && significant) || (!linedUp && d.drifting && travel > reach);
  return d;
}

int RippleAnalyzer::lineUpWithReference(const PairInput& in, const AlgoKnobs& knobs,
                                        PairEvidence* out) {
  // A scene drifting a few lines a frame has moved past the linear range of
  // the shift's removal after a few detections. Lined up on its edges, the
  // scene cancels again; bands, which stay on the sensor's lines, then show
  // both as they moved against the scene and as they crept, both at the
  // ripple's own frequency (a cancelled ripple has no bands to show). The
  // scene's pace so far tells where to look.
  ReferenceKey& ref = reference_;
  if (!pairMoved(*out) && ref.shiftLines == 0) {
    return 1;  // nothing moved between the pair's frames, nor since the reference
  }
  const double moved = ref.pace * (ref.age - ref.shiftAge);
  const int expected = ref.shiftLines + static_cast<int>(std::lround(moved));
  const int reach = (ref.shiftAge > 0 ? kEdgeReach : kFirstEdgeReach) +
                    static_cast<int>(std::fabs(moved)) / binner_.subLines();
  int lines = 0;
  if (!shift_.matchEdges(binner_, in.windows, LineBinner::kReference, 1, expected, reach, &lines)) {
    return 1;
  }
  ref.pace = static_cast<double>(lines - ref.shiftLines) / (ref.age - ref.shiftAge);
  ref.shiftLines = lines;
  ref.shiftAge = ref.age;
  if (lines == 0) {
    return 1;
  }
  out->longLines = lines;
  binner_.bin(in, knobs, 1, LineBinner::kShifted, lines);
  return LineBinner::kShifted;
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
    // A frozen lamp's bands stay on the sensor's lines while the scene moves.
    // Removing the scene's shift s from the difference puts the scene's
    // texture back and moves the bands along with it: s times their slope
    // lands in their column. What the column holds then bounds the lamp,
    // texture or not (a 60 Hz lamp that went off left 0.06 of texture in
    // the frames' 120 Hz fit under a floodlight, and outweighed the 50 Hz
    // lamp that replaced it).
    const RippleSummary& d = out->temporal[f];
    const double slope = std::fabs(out->shift) * 2.0 * kPi * kRippleHz[f] * in.lineTime;
    if (out->frozen[f] && !out->cancelled[f] && out->shiftRemoved && !lone_ && !out->entangled &&
        d.windows > 0 && d.snr > 0.0 && slope > 0.0) {
      standIn = std::min(standIn, d.phasor * (1.0 + kStandInErrors / d.snr) / slope);
    }
    out->frozenStandIn[f] = standIn;
    out->spatialEvidence[f] = std::min(out->spatial[0][f].evidence, out->spatial[1][f].evidence) *
                              WindowCombiner::ramp(consistency, kConsistencyLow, kConsistencyHigh);
  }
}

bool RippleAnalyzer::analyse(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out) {
  *out = PairEvidence{};
  for (int f = 0; f < kRipples; ++f) {
    out->exposureGain[f] = sincAbs(kRippleHz[f] * in.exposure);
    out->cancelled[f] = out->exposureGain[f] < kCancelledGain;
    const double v = std::fabs(std::sin(kPi * kRippleHz[f] * in.interval));
    out->visibility[f] = v;
    out->frozen[f] = v < knobs.minVisibility;
    out->still[f] = out->frozen[f] && v < kStillVisibility;
  }
  const int moving = onlyRippleInDifference(*out);
  if (moving >= 0 && out->still[1 - moving]) {
    out->stillLeftover = 2.0 * out->visibility[1 - moving] * kDeepestFrameRipple;
  }
  // With one ripple cancelled a readout shorter than one period may still
  // show the other; chooseModels() decides how short.
  const bool oneCancelled = out->cancelled[0] != out->cancelled[1];
  const double minPeriods = oneCancelled ? kMinShortReadoutPeriods : kMinReadoutPeriods;
  if (!binner_.plan(in, knobs.searchRange, kMinBins, minPeriods)) {
    return false;
  }
  fitter_.setLayout(binner_.bins(), binner_.binLines(), in.lineTime);
  if (!chooseModels(in.lineTime, out)) {
    return false;
  }
  for (int f = 0; f < kRipples; ++f) {
    inflation_[f] = fitter_.inflation(diffModel_, f);
    const double alone = fitter_.inflation(RippleLeastSquares::modelKey(false, 1u << f), f);
    out->entangled = out->entangled || (!lone_ && inflation_[f] > kProbeCost * alone);
  }
  out->bins = binner_.bins();
  out->binLines = binner_.binLines();
  out->readout = out->bins * out->binLines * in.lineTime;
  binner_.planSubBins(in, knobs.searchRange);
  // Over a readout too short for the 100 Hz period (1920 x 1080 at 10 us
  // lines), a difference that can only hold the 120 Hz ripple is still
  // tested for that period alone (and the reverse, should the 120 Hz one
  // ever be the only period that fits).
  bool periodsFit = periods_.plan(in.lineTime, binner_.subLines(), binner_.subBins());
  const int oneSided = periodsFit ? -1 : onlyRippleInDifference(*out);
  periodsFit = periodsFit || (oneSided >= 0 && periods_.comparable(oneSided));
  binner_.bin(in, knobs, 0);
  binner_.bin(in, knobs, 1);
  binner_.buildDifference(in.windows, LineBinner::kDiff, 0, 1);
  for (int k = 0; k < 2; ++k) {
    if (frameModel_ >= 0) {
      fitSeries(k, in.windows, frameModel_, fits_[k]);
    } else {
      for (int w = 0; w < in.windows; ++w) {
        fits_[k][w].valid = false;
      }
    }
  }
  summariseTemporal(in, knobs, out);
  summariseSpatial(in, knobs, out);
  compareWithReference(in, knobs, out);
  out->periodRipple = -1;
  if (periodsFit && PeriodCheck::isDeep(binner_, in.windows)) {
    periods_.run(binner_, in.windows, out);
    int f = PeriodCheck::periodicRipple(*out, in.windows);
    if (f >= 0 && f == oneSided && out->periodSpread[f] < out->stillLeftover) {
      // What the still ripple's creep left may make the difference deep.
      // Where the exposure changed between the frames, a still ripple also
      // leaves a pattern of its own period; one period of the other ripple
      // on, it is a sixth of its period out (1.67 ms at 100 Hz), which the
      // concordance does not pass.
      f = -1;
    }
    out->periodRipple = f;
    if (f >= 0) {
      // The ripple's period explains the difference, whatever its shape: not
      // motion, and not the other ripple.
      out->sceneChange = false;
      out->temporalEvidence[f] = 1.0;
      out->temporalEvidence[1 - f] = 0.0;
    } else if (PeriodCheck::fasterLight(*out, in.windows)) {
      // The difference is a faster light's (a PWM driver's bands, which a
      // sinusoid fit reads as either ripple): it backs no mains ripple.
      out->temporalEvidence[0] = out->temporalEvidence[1] = 0.0;
    }
  }
  out->analysable = true;
  return true;
}

}  // namespace open_algo
