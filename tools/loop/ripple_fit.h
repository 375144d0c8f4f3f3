// RippleFit: the ratio profile of a statistics pair and its 100 Hz and
// 120 Hz bands, for plots and reports.
//
// The ratio of the later frame to the earlier one, line by line (the six
// windows summed), cancels the scene and leaves the change of the banding
// between the two frames. The profile is binned to at most `maxPoints`
// points over the readout time and fitted by least squares with a quadratic
// trend plus a cosine and sine at 100 Hz and 120 Hz, jointly. This is the
// tool's own view of the pair, independent of the detection algorithm.
//
// Pure function; thread-safe.
#pragma once

#include <vector>

#include "loop_records.h"

namespace flicker_loop {

struct RippleFit {
  bool valid = false;
  std::vector<double> timeMs;   // readout time of each point from the first line
  std::vector<double> ratio;    // later / earlier, normalised to a mean of 1
  std::vector<double> band100;  // fitted trend + 100 Hz band, per point
  std::vector<double> band120;  // fitted trend + 120 Hz band, per point
  double amplitude100 = 0;      // fitted band amplitude, fraction of the mean
  double amplitude120 = 0;

  static RippleFit of(const PairStats& pair, int maxPoints = 240);
};

}  // namespace flicker_loop
