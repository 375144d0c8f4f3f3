// Least-squares fits of a binned series: a trend plus cosine and sine at the
// 100 Hz and 120 Hz line periods and at their second harmonics, solved
// jointly so that the frequencies do not leak into each other.
//
// A model is a key: the trend (a cubic for a frame, whose scene carries
// shading; a line for the difference of two frames, a gain offset and a slow
// drift) and a mask of the ripple components it carries. The trend is built
// from Legendre polynomials, which keep the columns well conditioned. The
// normal matrix of a model over all bins is shared by every window without
// masked bins: it is factored on first use and its inverse cached while the
// bin layout stays the same; a window with masked bins is solved on its own,
// and the last such factorisation is kept for the next window with the same
// masked bins.
//
// Threading: owns its arrays; one thread at a time. Never allocates.
#pragma once

#include <cstdint>

#include "pair_evidence.h"

namespace open_algo {

// Cubic trend (4) + cos/sin at two ripple frequencies (4) + cos/sin at their
// second harmonics (4).
constexpr int kFitParams = 12;
constexpr int kMaxTrendTerms = 4;
// Ripple columns: fundamentals then harmonics, cos and sin each.
constexpr int kRippleCols = kFitParams - kMaxTrendTerms;
// Ripple components: 0, 1 = fundamentals; 2, 3 = their second harmonics.
constexpr int kComponents = kRippleCols / 2;
// Component mask of both fundamentals.
constexpr unsigned kFundamentals = (1u << kRipples) - 1;

// The ripple phasors of one window's fit.
struct WindowFit {
  bool valid;
  double re[kComponents];
  double im[kComponents];
  double se[kComponents];  // standard error of the amplitude
  double sigma;            // residual rms
  // What the ripple columns explain beyond the trend, over what is left:
  // (rss of the trend alone - rss) / rss. Filled by fit() when asked for.
  double explained;
};

class RippleLeastSquares {
 public:
  static constexpr int kCubicTrendKey = 1 << kComponents;
  static constexpr int kModels = 2 << kComponents;
  // Residual degrees of freedom a window fit must keep.
  static constexpr int kMinDof = 4;

  static int modelKey(bool cubicTrend, unsigned componentMask);
  static int modelParams(int key);

  // One solve of a series (mean removed) under a model.
  struct Solution {
    double beta[kFitParams];
    double mean;
    double rss;         // residual sum of squares
    int dof;            // residual degrees of freedom
    const double* var;  // ripple-coefficient variances over sigma^2
    double ownChol[kFitParams][kFitParams];
    double ownVar[kRippleCols];
  };

  // Bins of `binLines` lines of `lineTime` seconds; the basis is rebuilt
  // only when this changes.
  void setLayout(int bins, int binLines, double lineTime);
  // The model can be solved over all bins (its normal matrix is safely
  // positive definite).
  bool usable(int key);
  // Variance inflation of component `component`'s coefficients in the
  // all-bins fit of a usable model: their variance against that of a lone
  // sinusoid over whole periods (2 / bins). 1 when no other column can take
  // the component's place; over a short readout the trend and the other
  // ripple take much of it, and its standard error grows by the square root.
  double inflation(int key, int component);
  bool solve(const double* y, const uint8_t* ok, int key, Solution* sol);
  // Residual of a solved series at bin b (meaningful where the series is kept).
  double residualAt(const double* y, const Solution& sol, int b) const;
  // The ripple phasors with their errors, and the residual rms, of a solved
  // series (fit->explained is left as it is).
  static void describe(const Solution& sol, WindowFit* fit);
  // Solves and turns the ripple coefficients into phasors with errors;
  // `explain`: also fit the trend alone and fill fit->explained.
  bool fit(const double* y, const uint8_t* ok, int key, WindowFit* fit, bool explain = false);

 private:
  using Matrix = double[kFitParams][kFitParams];
  void buildBasis();
  // Factors the normal matrix of the kept bins `ok` under model `key` into
  // sol->ownChol and sol->ownVar; false when it is not positive definite.
  bool solveOwn(const uint8_t* ok, int key, Solution* sol);

  int bins_ = 0;
  int binLines_ = 0;
  double lineTime_ = 0.0;
  bool basisValid_ = false;
  double basis_[kMaxBins][kFitParams] = {};
  double gram_[kFitParams][kFitParams] = {};  // all-bins normal matrix, every column
  // Per model key: inverse normal matrix (column by column: [key][column][row])
  // and ripple-coefficient variances of the all-bins fit.
  double fullInverse_[kModels][kFitParams][kFitParams] = {};
  double fullVar_[kModels][kRippleCols] = {};
  bool fullOk_[kModels] = {};
  bool fullBuilt_[kModels] = {};
  // The last factorisation of a fit with masked bins.
  struct OwnFactor {
    bool valid;
    int key;
    uint8_t mask[kMaxBins];
    double chol[kFitParams][kFitParams];
    double var[kRippleCols];
  };
  OwnFactor own_{};
};

}  // namespace open_algo
