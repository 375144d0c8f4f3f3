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
// either ripple (PeriodCheck).
//
// A ripple whose phase stands still between the pair's frames (the frame
// rate a multiple of it) while the exposure cancels the other cannot show in
// the pair's difference. Its phase still creeps from pair to pair (the mains
// drifts, a frame rate is a hair off), so slot 1 is also compared with a
// reference frame kept from an earlier pair of the same exposure and
// geometry: a still scene cancels in that difference too, and the bands that
// have crept show, with no other ripple to mimic them.
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
#include "creep_track.h"
#include "line_binner.h"
#include "pair_evidence.h"
#include "period_check.h"
#include "ripple_least_squares.h"
#include "shift_estimator.h"

namespace open_algo {

class RippleAnalyzer {
 public:
  // Fills `out`; returns out->analysable. Inputs must already be validated
  // (non-null frames, 1..kMaxWindows windows, lines x windows within
  // kMaxStatEntries, positive line time).
  bool analyse(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  // Drops the reference frame (a new stream, a release).
  void forgetReference();

 private:
  // What one difference series shows: the windows' fits, each ripple
  // combined, the residual, and each ripple's evidence.
  struct DifferenceReading {
    ShiftResult shift;
    WindowFit fits[kMaxWindows];
    RippleSummary ripple[kRipples];
    bool fitted;       // enough windows could be fitted
    double sigma;      // median residual rms
    double residual;   // the same less the allowance for a strong ripple's harmonics
    double explained;  // lone ripple: see PairEvidence::loneExplained; else -1
    double evidence[kRipples];
    // What the evidence owes to the difference as a whole, beyond the
    // ripple's own summary and a lone fit's share: stillness and the
    // shift's leak.
    double gate[kRipples];
  };
  // Which way the scene drifts since the reference: all moving pairs went
  // one way (+1 or -1), none moved yet (0), or not all one way.
  static constexpr int kNoDrift = 2;
  // Sides on which the scene, not lined up, was found away from the
  // reference.
  static constexpr int kAwayDown = 1;
  static constexpr int kAwayUp = 2;
  // The pair a reference frame was kept from; a later pair compares with it
  // only when everything that shapes the bands is the same.
  struct ReferenceKey {
    bool valid;
    int lines, windows, winWidth;
    double lineTime, exposure;
    int searchRange, bins, binLines, subBins;
    int age;  // detections since it was kept
    // Lines by which the scene was last lined up with it, at which age, and
    // its pace since (lines per detection).
    int shiftLines, shiftAge;
    double pace;
    // The pairs' own shifts summed since (lines, forward in time), the sum
    // of their variances, and which way the pairs that moved went.
    double travel, travelVariance;
    int drift;
    int awaySides;  // kAwayDown | kAwayUp
    bool sameReadout(const ReferenceKey& k) const {
      return valid && k.valid && lines == k.lines && windows == k.windows &&
             winWidth == k.winWidth && lineTime == k.lineTime && searchRange == k.searchRange &&
             bins == k.bins && binLines == k.binLines && subBins == k.subBins;
    }
    bool sameAs(const ReferenceKey& k) const { return sameReadout(k) && exposure == k.exposure; }
  };

  // Fit models of the frames and of the difference for this pair; false when
  // the readout cannot show what the exposure leaves.
  bool chooseModels(double lineTime, PairEvidence* out);
  void fitSeries(int series, int windows, int key, WindowFit* fits);
  // Fits a difference series with the difference's model, or a candidate
  // with a harmonic when it explains clearly more; returns the model kept.
  // `removed`: a shift was removed from the series since its estimate.
  int fitDifference(int series, int windows, bool removed, const AlgoKnobs& knobs, WindowFit* fits);
  // What a lone ripple explains of the windows' mean difference beyond its
  // trend, over what it leaves.
  double commonExplained(int series, int windows, int model, const WindowFit* fits);
  // Removes a vertical shift from difference series `series` (frame `to`
  // against frame `from`), fits it and reads each ripple with its amplitude
  // scaled by `scale`.
  void readDifference(int series, int from, int to, const double* scale, int windows,
                      const AlgoKnobs& knobs, DifferenceReading* r,
                      const ShiftResult* linedUp = nullptr, int lines = 0);
  // Masks the bins of a lined-up difference that an edge crossing a line
  // left far off the difference's model.
  void dropEdgeCrossings(int series, int windows);
  void summariseTemporal(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  void summariseSpatial(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  // A frozen ripple with the other cancelled: slot 1 against the reference
  // frame, which is kept or renewed as needed.
  void compareWithReference(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  // Keeps slot 1 as the reference for later pairs like this one.
  void keepReference(const PairInput& in, const ReferenceKey& key);
  // Evidence of the frozen ripple's steady creep over the reference's
  // comparisons, this one included.
  double creepEvidence(const DifferenceReading& r, int frozen, const AlgoKnobs& knobs,
                       PairEvidence* out);
  // Bins slot 1 again with its scene lined up with the reference's, when the
  // scene has moved; returns the frame to compare with the reference.
  int lineUpWithReference(const PairInput& in, const AlgoKnobs& knobs, PairEvidence* out);
  // Adds the pair's own shift to the scene's travel since the reference.
  void addTravel(const PairInput& in, const PairEvidence& e);
  // Whether the scene drifts against the reference (its comparison lends no
  // vote unless lined up) and whether it has left it (the reference starts
  // again), from the shift of slot 1 against it.
  struct Departure {
    bool drifting;
    bool left;
  };
  Departure departure(const ShiftResult& away, bool linedUp);

  LineBinner binner_;
  RippleLeastSquares fitter_;
  ShiftEstimator shift_;
  PeriodCheck periods_;
  int frameModel_ = 0;  // model keys of the current pair; -1: frames not fitted
  int diffModel_ = 0;
  // Candidate models of the difference with one second harmonic.
  int altModel_[kRipples] = {};
  int altModels_ = 0;
  bool lone_ = false;                    // the difference carries one ripple alone
  double inflation_[kRipples] = {};      // variance inflation of the difference's ripples
  WindowFit fits_[2][kMaxWindows] = {};  // the frames' own fits
  WindowFit altFits_[kMaxWindows] = {};
  ReferenceKey reference_{};
  CreepTrack creep_;  // the frozen ripple against reference_
  // Detections in a row since slot 1 last had the reference's exposure.
  int exposureAway_ = 0;
};

}  // namespace open_algo
