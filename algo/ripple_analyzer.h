// Evidence of mains banding in one pair of statistics frames.
//
// Each window column of the statistics gives, per frame, a profile over the
// statistics lines. Lines are binned (the band period spans hundreds of
// lines), lines near clipping or the noise floor mask their bin, and each bin
// becomes a log value, so that gain and exposure differences are offsets. Three
// series are fitted per window: each frame on its own (spatial) and the
// difference of the two frames (temporal, the scene cancels). Every fit is one
// joint least-squares solve of a trend plus cosine and sine at the 100 Hz and
// 120 Hz ripple periods, so the two frequencies cannot leak into each other.
// The difference also fits their second harmonics (200 Hz, 240 Hz) when the
// readout resolves them, or over a short readout one of them when the windows
// agree on it: a deep or rectified ripple is far from a sinusoid, and its
// harmonics would otherwise inflate the residual, mask the fundamental, and
// leak into the other fundamental's nearly parallel column. Windows are then
// combined robustly (component-wise median of the ripple phasors, agreement count, median noise),
// so that motion or a bright object in a minority of windows does not decide.
// Before the difference is fitted, a vertical shift of the scene between the
// frames, one for all windows, is estimated from the profiles' gradient and
// removed when it is what the difference's residual is made of: moving
// texture would otherwise read as ripple and as noise.
//
// A deep difference (a rectified LED under a short exposure: a pulse train
// whose harmonics match its fundamental) is also compared with itself one
// 100 Hz and one 120 Hz period later; the difference is periodic with the
// lamp's period whatever its shape, so the period names the lamp where one
// sinusoid fit over a short readout cannot.
//
// The temporal ripple is the frame ripple times 2|sin(phase advance / 2)|,
// with the advance 2 pi f_r x frame interval; the sign of the interval does
// not matter. When that factor is small the pair's phase is frozen and the
// difference sees nothing at that frequency.
//
// Threading: an analyzer owns its working arrays; one thread at a time may
// use it. It never allocates.
#pragma once

#include <cstdint>

#include "algo_tuning.h"

namespace open_algo {

constexpr int kMaxWindows = 6;
constexpr int kMaxStatEntries = 36000;
constexpr int kMaxBins = 96;
// Cubic trend (4) + cos/sin at two ripple frequencies (4) + cos/sin at their
// second harmonics (4).
constexpr int kFitParams = 12;
constexpr int kMaxTrendTerms = 4;
// Ripple columns: fundamentals then harmonics, cos and sin each.
constexpr int kRippleCols = kFitParams - kMaxTrendTerms;
// Ripple components: 0, 1 = fundamentals; 2, 3 = their second harmonics.
constexpr int kComponents = kRippleCols / 2;

// Ripple index: 0 = 100 Hz (50 Hz mains), 1 = 120 Hz (60 Hz mains).
constexpr int kRipples = 2;
constexpr double kRippleHz[kRipples] = {100.0, 120.0};

// One pair of statistics frames and its timing.
struct PairInput {
  const int64_t* frame[2];  // slot 0 and slot 1, entry [line * windows + window]
  int lines;                // statistics lines per frame
  int windows;              // window columns (entries per line)
  int winWidth;             // pixels summed into each entry
  double lineTime;          // seconds per statistics line
  double exposure;          // seconds
  double interval;          // seconds between the frames' exposure starts (either sign)
};

// One series at one ripple frequency with the windows combined.
struct RippleSummary {
  double amplitude;  // combined ripple amplitude in log units
  double phasor;     // the same before any scaling (as the series shows it)
  double snr;        // amplitude over its combined standard error
  double agreement;  // fraction of windows whose phasor agrees with the combined one
  double evidence;   // 0..1
  int windows;       // windows that took part
};

struct PairEvidence {
  bool analysable;                // geometry and data allowed a fit
  int bins;                       // bins per profile
  int binLines;                   // statistics lines per bin
  double exposureGain[kRipples];  // |sinc(f_r x exposure)|: ripple left by the exposure
  double visibility[kRipples];    // |sin(pi f_r x interval)|
  bool frozen[kRipples];          // visibility below the knob: no temporal evidence
  // The exposure integrates whole periods of the ripple (and so of all its
  // harmonics): no frame can show it, and its harmonic is not fitted.
  bool cancelled[kRipples];
  // Median residual rms of the difference fit, less an allowance for the
  // harmonics of a strong ripple.
  double sceneResidual;
  bool sceneChange;                    // the difference is not explained: motion or a cut
  RippleSummary temporal[kRipples];    // difference series
  RippleSummary spatial[2][kRipples];  // [frame][ripple]
  double temporalAmplitude[kRipples];  // frame ripple estimated from the difference
  double temporalEvidence[kRipples];   // 0..1, 0 when frozen or on a scene change
  double spatialAmplitude[kRipples];   // smaller of the two frames' ripples
  double spatialEvidence[kRipples];    // 0..1, both frames must agree
  // Ripple that stands in for a frozen frequency in a vote: the smaller of the
  // two frames' ripples less twice its standard error, so that an insignificant
  // single-frame fit (texture) does not outweigh a clear difference.
  double frozenStandIn[kRipples];
  // The difference could be fitted in enough windows. When it could not (a
  // deep ripple leaves most bins dark in both frames), the residual says
  // nothing about motion.
  bool differenceFitted;
  // Period test of a deep difference: per ripple, the median over the windows
  // of the concordance between the difference and itself one ripple period
  // later (1 = periodic), the median spread (rms) of the compared values, and
  // the windows with enough compared bins.
  bool periodTested;
  double periodicity[kRipples];
  double periodSpread[kRipples];
  int periodWindows[kRipples];
  // Ripple whose period alone explains the difference, -1 when none does.
  int periodRipple;
  // Vertical scene shift between the frames (lines, frame 1 against frame 0,
  // shared by the windows), its standard error, and whether it was removed
  // from the difference before the difference's fit.
  double shift;
  double shiftError;
  bool shiftRemoved;
};

class RippleAnalyzer {
 public:
  // Fills `out`; returns out->analysable. Inputs must already be validated
  // (non-null frames, 1..kMaxWindows windows, lines x windows within
  // kMaxStatEntries, positive line time).
  bool analyse(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);

 private:
  struct WindowFit {
    bool valid;
    double re[kComponents];
    double im[kComponents];
    double se[kComponents];  // standard error of the amplitude
    double sigma;            // residual rms
  };

  // A fit model is a key: the trend (cubic for a frame, linear for the
  // difference) and a mask of the ripple components it carries.
  static constexpr int kCubicTrendKey = 1 << kComponents;
  static constexpr int kModels = 2 << kComponents;
  static int modelKey(bool cubicTrend, unsigned componentMask);

  bool planBins(const PairInput& in, int searchRange);
  void buildBasis();
  // Factor of the all-bins normal matrix of a model, built on first use.
  bool fullFactor(int key);
  void chooseModels(PairEvidence* out);
  // Bins one frame, and its sub-bins for the period test, in one pass.
  void binFrame(const PairInput& in, const AlgoKnobs& knobs, int frame);
  // Stores bin `bin` of `frame` from the running sums less their marks at the
  // bin's start, and moves the marks to its end.
  void storeBin(int frame, int bin, int windows, double logLines, uint64_t clipTest,
                const uint64_t* run, const int* runBad, const int* runHigh, uint64_t* mark,
                int* markBad, int* markHigh);
  void buildDifference(int windows);
  void fitSeries(int series, int windows, int key, WindowFit* fits);
  void fitDifference(int windows, const AlgoKnobs& knobs);
  static double medianSigma(const WindowFit* fits, int windows);
  // One least-squares solve of a window's series (mean removed) under a model.
  struct Solution {
    double beta[kFitParams];
    double mean;
    double rss;         // residual sum of squares
    int dof;            // residual degrees of freedom
    const double* var;  // ripple-coefficient variances over sigma^2
    double ownChol[kFitParams][kFitParams];
    double ownVar[kRippleCols];
  };
  bool solveWindow(const double* y, const uint8_t* ok, int key, Solution* sol);
  // Residual of a solved series at bin b (meaningful where the series is kept).
  double residualAt(const double* y, const Solution& sol, int b) const;
  bool fitWindow(const double* y, const uint8_t* ok, int key, WindowFit* fit);
  // Builds, per window, the change of each difference bin that a vertical
  // shift of one line brings; false when the window's levels do not allow it.
  bool buildGradient(int window);
  // Estimates one vertical shift of the scene between the frames, shared by
  // the windows, and removes it from the difference when it is significant.
  void removeShift(int windows, PairEvidence* out);
  RippleSummary combine(const WindowFit* fits, int component, int windows, double amplitudeScale,
                        const AlgoKnobs& knobs) const;
  void summariseTemporal(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  void summariseSpatial(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  bool planSubBins(const PairInput& in, int searchRange);
  bool isDeep(int windows) const;
  void testPeriods(int windows, PairEvidence* out) const;
  static int periodicRipple(const PairEvidence& e, int windows);

  // Series: 0 = frame slot 0, 1 = frame slot 1, 2 = difference (1 - 0).
  static constexpr int kSeries = 3;
  static constexpr int kDiff = 2;

  int bins_ = 0;
  int binLines_ = 0;
  double lineTime_ = 0.0;
  bool basisValid_ = false;
  double basis_[kMaxBins][kFitParams] = {};
  double gram_[kFitParams][kFitParams] = {};  // all-bins normal matrix, every column
  // Per model key: inverse normal matrix and ripple-coefficient variances of the
  // all-bins fit, shared by every window without masked bins.
  double fullInverse_[kModels][kFitParams][kFitParams] = {};
  double fullVar_[kModels][kRippleCols] = {};
  bool fullOk_[kModels] = {};
  bool fullBuilt_[kModels] = {};
  int frameModel_ = 0;  // model keys of the current pair
  int diffModel_ = 0;
  // Candidate models of the difference with one second harmonic.
  int altModel_[kRipples] = {};
  int altModels_ = 0;
  bool harmonicsOk_ = false;       // the readout resolves the second harmonics
  bool singleHarmonicOk_ = false;  // ... or one of them at a time
  double profile_[kSeries][kMaxWindows][kMaxBins] = {};
  uint8_t ok_[kSeries][kMaxWindows][kMaxBins] = {};
  // Per frame, for the difference series: bin sums (saturated when an entry
  // clips) and whether the bin holds dark or clipped entries.
  static constexpr uint8_t kDark = 1;
  static constexpr uint8_t kClipped = 2;
  double sum_[2][kMaxWindows][kMaxBins] = {};
  uint8_t level_[2][kMaxWindows][kMaxBins] = {};
  WindowFit fits_[kSeries][kMaxWindows] = {};
  WindowFit altFits_[kMaxWindows] = {};
  // Per window: difference change per line of vertical scene shift.
  double grad_[kMaxWindows][kMaxBins] = {};
  // Fine sub-bins of each frame for the period test, and the ripple periods
  // in sub-bins.
  static constexpr int kMaxSubBins = 1024;
  int subBins_ = 0;
  int subLines_ = 0;
  int periodSub_[kRipples] = {};
  double subSum_[2][kMaxWindows][kMaxSubBins] = {};
  uint8_t subLevel_[2][kMaxWindows][kMaxSubBins] = {};
};

}  // namespace open_algo
