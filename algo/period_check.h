// Period check of a deep frame difference.
//
// A rectified LED under a short exposure is dark for part of every half
// cycle: each frame is a pulse train whose harmonics are as strong as its
// fundamental, and over a short readout one sinusoid fit sees 100 Hz and
// 120 Hz alike. The difference of two frames, though, is periodic with the
// lamp's period whatever its shape (the scene cancels in the ratio), and no
// other. When the difference is deep, it is compared with itself one 100 Hz
// and one 120 Hz period later on compared bins of a few sub-bins; per window
// the agreement is the concordance 2 cov / (var_x + var_y + (mean_x -
// mean_y)^2), and the windows combine by median. A difference that also
// matches itself half a period on repeats faster than the mains ripple (a PWM
// driver at a multiple of it): its period names no mains.
//
// Threading: plain state set per pair; one thread at a time.
#pragma once

#include "line_binner.h"
#include "pair_evidence.h"

namespace open_algo {

class PeriodCheck {
 public:
  // Lags of the ripple periods in sub-bins of `subLines` lines of `lineTime`
  // seconds; false when the sub-bins cannot hold a 100 Hz period and enough
  // compared bins beyond it.
  bool plan(double lineTime, int subLines, int subBins);
  // The sub-bins hold ripple `f`'s period and enough compared bins beyond it
  // (after plan()). When only the 120 Hz period fits, the test still tells
  // whether a difference that can only hold 120 Hz light repeats with it.
  bool comparable(int f) const { return comparable_[f]; }
  // The difference's spread over the bins (median over the windows) is deep
  // enough for the test.
  static bool isDeep(const LineBinner& binner, int windows);
  // Fills the period fields of `out`.
  void run(const LineBinner& binner, int windows, PairEvidence* out) const;
  // Ripple whose period alone explains the difference, -1 when none does.
  static int periodicRipple(const PairEvidence& e, int windows);
  // The deep difference repeats with a ripple's period and within half of
  // it: a light faster than any mains ripple changed between the frames.
  static bool fasterLight(const PairEvidence& e, int windows);

 private:
  // Median concordance of the difference with itself `lag` sub-bins on, and
  // the median spread of the compared values; returns the windows compared.
  static int concordance(const LineBinner& binner, int windows, int lag, double* periodicity,
                         double* spread);

  int periodSub_[kRipples] = {};
  int halfSub_[kRipples] = {};
  bool comparable_[kRipples] = {};
};

}  // namespace open_algo
