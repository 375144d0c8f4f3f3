// Estimate and removal of a vertical scene shift between the two frames of a
// pair.
//
// A scene that moves s lines between the frames adds about s times the
// profile's derivative to the difference: texture at the band periods then
// reads as a ripple, and the rest as residual. Each bin gains s times the line
// level at its end and loses it at its start; the levels at the bin borders
// come from the sub-bins (a few lines each, both frames summed, interpolated
// between their centres), since texture finer than a bin makes the bins' own
// differences a poor derivative. The shift, one for all windows, is the pooled
// regression of the difference on this gradient, both taken after the
// difference's model (trend and ripple columns): a ripple's own derivative
// lies in its ripple columns, so a strong ripple does not move the estimate.
// It is removed only when it is significant, within one bin, large enough to
// matter and what the difference's residual is made of. What a shift puts
// into the ripple columns themselves cannot be told from a ripple (a grating
// of stripes near a band period, drifting, looks like bands that move): the
// estimate bounds it instead, the shift (or, once removed, its uncertainty)
// times the gradient's own ripple phasor, and a ripple must stand above that
// leak to count.
//
// Against a reference frame many detections old, a moving scene has moved
// further than one bin, beyond the linear range. Its edges then tell the
// shift in whole sub-bins: the second differences of the sub-bin sums keep
// the edges of the scene and drop a band pattern (whose curvature over a
// sub-bin is a few thousandths of its depth), and the lag at which the two
// frames' edges match best, refined between its neighbours, is the scene's
// shift. The frame is binned again that many lines on, so its scene lines up
// with the reference, and the rest of the shift, under a sub-bin, is removed
// as above.
//
// Threading: owns its arrays; one thread at a time. Never allocates.
#pragma once

#include "line_binner.h"
#include "pair_evidence.h"
#include "ripple_least_squares.h"

namespace open_algo {

// The shift of frame `to` against frame `from`, in lines (0 when none could
// be estimated), its standard error, whether it was removed, and per ripple
// what it may have put into the difference's ripple column, in the
// difference's units (0 when no shift was estimated), with what one line of
// shift puts there. When it was removed, also per ripple what the column held
// before (windows combined as the difference is).
struct ShiftResult {
  double shift;
  double error;
  bool removed;
  double leak[kRipples];
  double perLine[kRipples];
  double before[kRipples];
};

class ShiftEstimator {
 public:
  static constexpr int kMaxEdgeReach = 16;

  // Estimates the shift between frames `from` and `to` from difference
  // series `series` (fitted under `model`), bounds its leak, and removes it
  // from the series when it qualifies.
  ShiftResult removeShift(LineBinner& binner, RippleLeastSquares& fitter, int model, int windows,
                          int series, int from, int to);
  // The fit of window `window`'s difference under the model as the last
  // removeShift() solved it, before any removal (the same as fitting the
  // series anew while nothing was removed); null where it was not solved.
  const WindowFit* unshiftedFit(int window) const {
    return unshiftedKnown_[window] ? &unshifted_[window] : nullptr;
  }
  // The lines by which frame `to`'s scene lies further down than frame
  // `from`'s, searched within `reach` sub-bins (at most kMaxEdgeReach) of
  // `center` lines; false when the frames' edges match clearly at no lag in
  // that range. The best lag in whole sub-bins is refined between its
  // neighbours.
  bool matchEdges(const LineBinner& binner, int windows, int from, int to, int center, int reach,
                  int* lines);

 private:
  // Places the bin borders (line b x binLines) between their sub-bins.
  void placeBorders(const LineBinner& binner);
  // Builds the change of each difference bin of `window` that a shift of one
  // line brings; false when the window's levels do not allow it.
  bool buildGradient(const LineBinner& binner, int window, int from, int to);

  // Fills edges_[slot] with the second differences of frame `frame`'s
  // sub-bins, relative to each window's mean level (0 where a sub-bin is
  // dark, clipped or beyond the frame) and edgeSquares_[slot] with their
  // running sums of squares; returns the sum of squares.
  double buildEdges(const LineBinner& binner, int windows, int frame, int slot);
  // The edges of frame `from` in edges_[0]: kept from the last call when it
  // is the same reference frame, built otherwise; returns their energy.
  double edgesOfFrom(const LineBinner& binner, int windows, int from);
  // Normalised correlations of the edges of the two frames at lags
  // first..last sub-bins (at most 2 kMaxEdgeReach + 3 of them) into
  // score[0..].
  void edgeMatches(int windows, int n, int first, int last, double* score) const;

  // What edges_[0] was built from.
  struct FromKey {
    bool reference;
    const LineBinner* binner;
    unsigned stamp;
    int windows, subBins;
    bool sameAs(const FromKey& k) const {
      return reference && k.reference && binner == k.binner && stamp == k.stamp &&
             windows == k.windows && subBins == k.subBins;
    }
  };

  // A bin border: the sub-bins it is interpolated between, and its place.
  struct Border {
    int j0, j1;
    double frac;
  };

  Border borders_[kMaxBins + 1] = {};
  WindowFit unshifted_[kMaxWindows] = {};
  bool unshiftedKnown_[kMaxWindows] = {};
  double grad_[kMaxWindows][kMaxBins] = {};
  FromKey fromKey_{};
  double fromEnergy_ = 0.0;
  double edges_[2][kMaxWindows][LineBinner::kMaxSubBins] = {};
  double edgeSquares_[2][kMaxWindows][LineBinner::kMaxSubBins + 1] = {};
};

}  // namespace open_algo
