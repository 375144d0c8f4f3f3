// The creep of a frozen ripple against the reference frame, comparison after
// comparison.
//
// A ripple whose phase stands still between a pair's frames still creeps with
// the mains' drift. Against a reference kept t seconds before, its bands show
// as A (exp(i w t) - 1): for the first part of a cycle a phasor that grows at
// a steady pace along one direction, across the frozen bands. A weak lamp's
// creep stays under any fixed amplitude floor for seconds (a 2 % lamp under a
// 30 ms exposure keeps 0.17 % of banding, which creeps 0.04 % a second), yet
// each comparison measures it to about 0.01 %. What tells it from texture is
// that it keeps its direction and grows with the reference's age: a shake's
// leftover scatters from comparison to comparison, and the reference's own
// noise is the same in all of them. The track fits the comparisons' phasors
// with a constant (the reference's noise) plus a pace times the age, and
// tells how many standard errors the pace stands, the errors taken from the
// comparisons or from their scatter about the fit, whichever is larger. The
// pace must be steady: fitted over the older and the newer half of the
// comparisons alone it agrees with the pace over all of them, which a step
// (a lamp going off, a scene changing once) does not.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <array>

namespace open_algo {

class CreepTrack {
 public:
  // Comparisons kept: a reference serves fewer detections than this.
  static constexpr int kMaxPoints = 64;
  // A pace needs this many comparisons before it is judged, half of them in
  // each half.
  static constexpr int kMinPoints = 8;

  void clear() { count_ = 0; }
  // One comparison: the reference's age (detections), the frozen ripple's
  // phasor as the difference shows it, and its standard error (> 0).
  void add(int age, double re, double im, double se);
  int size() const { return count_; }
  // Standard errors by which the pace stands above zero; 0 with fewer than
  // kMinPoints comparisons or without a spread of ages.
  double significance() const;

 private:
  struct Point {
    double age, re, im, weight;
  };
  // A line through points [begin, end): its pace per detection and the
  // pace's standard error (0 without a spread of ages).
  struct Pace {
    double re, im, error;
  };
  Pace fit(int begin, int end) const;
  std::array<Point, kMaxPoints> points_{};
  int count_ = 0;
};

}  // namespace open_algo
