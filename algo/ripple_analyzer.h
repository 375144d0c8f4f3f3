// Evidence of mains banding in one pair of statistics frames.
//
// The lines of both frames are binned (LineBinner) into log profiles per
// window and the bounded difference of the two frames. Three series are
// fitted per window (RippleLeastSquares): each frame on its own (spatial) and
// the difference of the two frames (temporal, the scene cancels), each as a
// trend plus cosine and sine at the 100 Hz and 120 Hz ripple periods, jointly,
// so the two frequencies cannot leak into each other. The difference also
// fits their second harmonics (200 Hz, 240 Hz) when the readout resolves
// them, or over a short readout one of them when the windows agree on it: a
// deep or rectified ripple is far from a sinusoid, and its harmonics would
// otherwise inflate the residual, mask the fundamental, and leak into the
// other fundamental's nearly parallel column. Before the difference is
// fitted, a vertical shift of the scene between the frames is estimated and
// removed (ShiftEstimator). The windows are then combined robustly
// (WindowCombiner), and a deep difference is also tested for the period of
// either ripple (PeriodTest).
//
// The temporal ripple is the frame ripple times 2|sin(phase advance / 2)|,
// with the advance 2 pi f_r x frame interval; the sign of the interval does
// not matter. When that factor is small the pair's phase is frozen and the
// difference sees nothing at that frequency.
//
// Threading: an analyzer owns its working arrays; one thread at a time may
// use it. It never allocates.
#pragma once

#include "algo_tuning.h"
#include "line_binner.h"
#include "pair_evidence.h"
#include "period_test.h"
#include "ripple_least_squares.h"
#include "shift_estimator.h"

namespace open_algo {

class RippleAnalyzer {
 public:
  // Fills `out`; returns out->analysable. Inputs must already be validated
  // (non-null frames, 1..kMaxWindows windows, lines x windows within
  // kMaxStatEntries, positive line time).
  bool analyse(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);

 private:
  // Fit models of the frames and of the difference for this pair; false when
  // the readout cannot show what the exposure leaves.
  bool chooseModels(double lineTime, PairEvidence* out);
  void fitSeries(int series, int windows, int key, WindowFit* fits, bool explain = false);
  void fitDifference(int windows, const AlgoKnobs& knobs);
  // What a lone ripple explains of the windows' mean difference beyond its
  // trend, over what it leaves.
  double commonExplained(int windows);
  void summariseTemporal(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  void summariseSpatial(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);

  LineBinner binner_;
  RippleLeastSquares fitter_;
  ShiftEstimator shift_;
  PeriodTest periods_;
  int frameModel_ = 0;  // model keys of the current pair; -1: frames not fitted
  int diffModel_ = 0;
  // Candidate models of the difference with one second harmonic.
  int altModel_[kRipples] = {};
  int altModels_ = 0;
  bool lone_ = false;  // the difference carries one ripple alone
  int loneModel_ = 0;  // ... under this model (with its harmonic when kept)
  double inflation_[kRipples] = {};  // variance inflation of the difference's ripples
  WindowFit fits_[LineBinner::kSeries][kMaxWindows] = {};
  WindowFit altFits_[kMaxWindows] = {};
};

}  // namespace open_algo
