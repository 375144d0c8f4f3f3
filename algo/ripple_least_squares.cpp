#include "ripple_least_squares.h"

#include <algorithm>
#include <cmath>

namespace open_algo {
namespace {

constexpr double kPi = 3.14159265358979323846;
// Trend terms: a frame carries the scene's shading (cubic); the difference of
// two frames only a gain offset and a slow drift (linear). Fewer trend terms
// keep the two ripples apart over short readouts (down to about one period),
// where a cubic soaks up most of a low-frequency ripple.
constexpr int kFrameTrendTerms = 4;
constexpr int kDifferenceTrendTerms = 2;
// Relative pivot below which the normal matrix counts as singular.
constexpr double kPivotTolerance = 1e-10;

using Matrix = double[kFitParams][kFitParams];

// In-place lower Cholesky factor of g (upper part ignored). False when g is
// not safely positive definite.
bool cholesky(const Matrix g, Matrix l) {
  for (int i = 0; i < kFitParams; ++i) {
    for (int j = 0; j <= i; ++j) {
      double s = g[i][j];
      for (int k = 0; k < j; ++k) {
        s -= l[i][k] * l[j][k];
      }
      if (i == j) {
        if (!(s > kPivotTolerance * g[i][i])) {
          return false;
        }
        l[i][i] = std::sqrt(s);
      } else {
        l[i][j] = s / l[j][j];
      }
    }
    for (int j = i + 1; j < kFitParams; ++j) {
      l[i][j] = 0.0;
    }
  }
  return true;
}

void cholSolve(const Matrix l, const double* b, double* x) {
  double y[kFitParams];
  for (int i = 0; i < kFitParams; ++i) {
    double s = b[i];
    for (int k = 0; k < i; ++k) {
      s -= l[i][k] * y[k];
    }
    y[i] = s / l[i][i];
  }
  for (int i = kFitParams - 1; i >= 0; --i) {
    double s = y[i];
    for (int k = i + 1; k < kFitParams; ++k) {
      s -= l[k][i] * x[k];
    }
    x[i] = s / l[i][i];
  }
}

// Variances (inverse-diagonal entries) of the ripple coefficients.
void rippleVariances(const Matrix l, double* var) {
  for (int j = 0; j < kRippleCols; ++j) {
    double e[kFitParams] = {};
    double z[kFitParams];
    e[kMaxTrendTerms + j] = 1.0;
    cholSolve(l, e, z);
    var[j] = z[kMaxTrendTerms + j];
  }
}

int trendTerms(int key) {
  return (key & RippleLeastSquares::kCubicTrendKey) != 0 ? kFrameTrendTerms : kDifferenceTrendTerms;
}

// True when column `c` takes part in the model `key`.
bool columnUsed(int key, int c) {
  if (c < kMaxTrendTerms) {
    return c < trendTerms(key);
  }
  return (key & (1 << ((c - kMaxTrendTerms) / 2))) != 0;
}

// Replaces the unused columns of a normal matrix by identity rows, so their
// coefficients come out zero and the factor keeps its size.
void maskUnused(Matrix g, int key) {
  for (int i = 0; i < kFitParams; ++i) {
    if (columnUsed(key, i)) {
      continue;
    }
    for (int j = 0; j < kFitParams; ++j) {
      g[i][j] = 0.0;
      g[j][i] = 0.0;
    }
    g[i][i] = 1.0;
  }
}

}  // namespace

int RippleLeastSquares::modelKey(bool cubicTrend, unsigned componentMask) {
  return (cubicTrend ? kCubicTrendKey : 0) | static_cast<int>(componentMask & (kCubicTrendKey - 1));
}

int RippleLeastSquares::modelParams(int key) {
  int n = trendTerms(key);
  for (int c = 0; c < kComponents; ++c) {
    n += (key & (1 << c)) != 0 ? 2 : 0;
  }
  return n;
}

void RippleLeastSquares::setLayout(int bins, int binLines, double lineTime) {
  if (bins != bins_ || binLines != binLines_ || lineTime != lineTime_) {
    bins_ = bins;
    binLines_ = binLines;
    lineTime_ = lineTime;
    basisValid_ = false;
    own_.valid = false;
  }
  if (!basisValid_) {
    buildBasis();
  }
}

void RippleLeastSquares::buildBasis() {
  for (int b = 0; b < bins_; ++b) {
    const double x = 2.0 * (b + 0.5) / bins_ - 1.0;
    double* row = basis_[b];
    row[0] = 1.0;
    row[1] = x;
    row[2] = 0.5 * (3.0 * x * x - 1.0);
    row[3] = 0.5 * (5.0 * x * x * x - 3.0 * x);
    const double t = (b * binLines_ + 0.5 * (binLines_ - 1)) * lineTime_;
    for (int f = 0; f < kRipples; ++f) {
      const double phase = 2.0 * kPi * kRippleHz[f] * t;
      row[kMaxTrendTerms + 2 * f] = std::cos(phase);
      row[kMaxTrendTerms + 1 + 2 * f] = std::sin(phase);
      row[kMaxTrendTerms + 2 * kRipples + 2 * f] = std::cos(2.0 * phase);
      row[kMaxTrendTerms + 2 * kRipples + 1 + 2 * f] = std::sin(2.0 * phase);
    }
  }
  for (int i = 0; i < kFitParams; ++i) {
    for (int j = 0; j < kFitParams; ++j) {
      gram_[i][j] = 0.0;
    }
  }
  for (int b = 0; b < bins_; ++b) {
    for (int i = 0; i < kFitParams; ++i) {
      for (int j = 0; j <= i; ++j) {
        gram_[i][j] += basis_[b][i] * basis_[b][j];
      }
    }
  }
  for (int k = 0; k < kModels; ++k) {
    fullBuilt_[k] = false;
  }
  basisValid_ = true;
}

bool RippleLeastSquares::usable(int key) {
  if (!fullBuilt_[key]) {
    Matrix g;
    for (int i = 0; i < kFitParams; ++i) {
      for (int j = 0; j < kFitParams; ++j) {
        g[i][j] = gram_[i][j];
      }
    }
    maskUnused(g, key);
    Matrix chol;
    fullOk_[key] = cholesky(g, chol);
    if (fullOk_[key]) {
      // The inverse itself: a window without masked bins then solves with one
      // product instead of two triangular solves and their divisions.
      for (int j = 0; j < kFitParams; ++j) {
        double e[kFitParams] = {};
        e[j] = 1.0;
        cholSolve(chol, e, fullInverse_[key][j]);
      }
      for (int j = 0; j < kRippleCols; ++j) {
        fullVar_[key][j] = fullInverse_[key][kMaxTrendTerms + j][kMaxTrendTerms + j];
      }
    }
    fullBuilt_[key] = true;
  }
  return fullOk_[key];
}

double RippleLeastSquares::inflation(int key, int component) {
  if (!usable(key) || bins_ <= 0) {
    return 0.0;
  }
  const double* var = &fullVar_[key][2 * static_cast<size_t>(component)];
  return 0.25 * bins_ * (var[0] + var[1]);
}

bool RippleLeastSquares::solveOwn(const uint8_t* ok, int key, Solution* sol) {
  // The windows of a pair mostly share their masked bins (the bins a frame
  // binned with an offset lost at the edge), and a window's difference and
  // its gradient share the model: the last factorisation serves again.
  if (own_.valid && own_.key == key && std::equal(ok, ok + bins_, own_.mask)) {
    std::copy_n(&own_.chol[0][0], kFitParams * kFitParams, &sol->ownChol[0][0]);
    std::copy(own_.var, own_.var + kRippleCols, sol->ownVar);
    return true;
  }
  Matrix g = {};
  for (int b = 0; b < bins_; ++b) {
    if (ok[b] == 0) {
      continue;
    }
    for (int i = 0; i < kFitParams; ++i) {
      for (int j = 0; j <= i; ++j) {
        g[i][j] += basis_[b][i] * basis_[b][j];
      }
    }
  }
  maskUnused(g, key);
  if (!cholesky(g, sol->ownChol)) {
    own_.valid = false;
    return false;
  }
  rippleVariances(sol->ownChol, sol->ownVar);
  own_.valid = true;
  own_.key = key;
  std::copy(ok, ok + bins_, own_.mask);
  std::copy_n(&sol->ownChol[0][0], kFitParams * kFitParams, &own_.chol[0][0]);
  std::copy(sol->ownVar, sol->ownVar + kRippleCols, own_.var);
  return true;
}

bool RippleLeastSquares::solve(const double* y, const uint8_t* ok, int key, Solution* sol) {
  int n = 0;
  double mean = 0.0;
  for (int b = 0; b < bins_; ++b) {
    n += ok[b];
    mean += ok[b] != 0 ? y[b] : 0.0;
  }
  const int params = modelParams(key);
  if (n < params + kMinDof) {
    return false;
  }
  mean /= n;

  const double(*chol)[kFitParams] = nullptr;
  sol->var = fullVar_[key];
  if (n != bins_ || !usable(key)) {
    if (!solveOwn(ok, key, sol)) {
      return false;
    }
    chol = sol->ownChol;
    sol->var = sol->ownVar;
  }

  double rhs[kFitParams] = {};
  double yy = 0.0;
  for (int b = 0; b < bins_; ++b) {
    if (ok[b] == 0) {
      continue;
    }
    const double v = y[b] - mean;
    yy += v * v;
    for (int j = 0; j < kFitParams; ++j) {
      rhs[j] += basis_[b][j] * v;
    }
  }
  for (int j = 0; j < kFitParams; ++j) {
    rhs[j] = columnUsed(key, j) ? rhs[j] : 0.0;
  }
  if (chol != nullptr) {
    cholSolve(chol, rhs, sol->beta);
  } else {
    // Column by column: every coefficient still sums its terms in the order
    // of the columns, but the coefficients are independent sums the compiler
    // computes side by side in vector registers, not one chain of additions
    // after another.
    double beta[kFitParams] = {};
    for (int j = 0; j < kFitParams; ++j) {
      const double* column = fullInverse_[key][j];
      for (int i = 0; i < kFitParams; ++i) {
        beta[i] += column[i] * rhs[j];
      }
    }
    std::copy(beta, beta + kFitParams, sol->beta);
  }
  double explained = 0.0;
  for (int j = 0; j < kFitParams; ++j) {
    explained += sol->beta[j] * rhs[j];
  }
  sol->mean = mean;
  sol->rss = std::max(0.0, yy - explained);
  sol->dof = n - params;
  return true;
}

double RippleLeastSquares::residualAt(const double* y, const Solution& sol, int b) const {
  double fitted = sol.mean;
  for (int j = 0; j < kFitParams; ++j) {
    fitted += basis_[b][j] * sol.beta[j];
  }
  return y[b] - fitted;
}

bool RippleLeastSquares::fit(const double* y, const uint8_t* ok, int key, WindowFit* fit,
                             bool explain) {
  fit->valid = false;
  fit->explained = 0.0;
  Solution sol;
  if (!solve(y, ok, key, &sol)) {
    return false;
  }
  if (explain) {
    Solution trend;
    if (solve(y, ok, key & kCubicTrendKey, &trend)) {
      fit->explained = (trend.rss - sol.rss) / std::max(sol.rss, 1e-30);
    }
  }
  describe(sol, fit);
  return true;
}

void RippleLeastSquares::describe(const Solution& sol, WindowFit* fit) {
  const double sigma2 = sol.rss / sol.dof;
  fit->sigma = std::sqrt(sigma2);
  for (int c = 0; c < kComponents; ++c) {
    fit->re[c] = sol.beta[kMaxTrendTerms + 2 * c];
    fit->im[c] = sol.beta[kMaxTrendTerms + 1 + 2 * c];
    fit->se[c] =
        std::sqrt(sigma2 * 0.5 *
                  (sol.var[2 * static_cast<size_t>(c)] + sol.var[2 * static_cast<size_t>(c) + 1]));
  }
  fit->valid = true;
}

}  // namespace open_algo
