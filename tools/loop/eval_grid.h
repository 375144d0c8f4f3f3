// EvalGrid: an evaluation grid of closed-loop runs and its figures of merit.
//
// Dimensions: light type x ripple depth x mains (50, 60, none, a switch
// 50>60 or 60>50 half-way, mixed 50 + 60 lamps) x exposure regime (auto at
// office light, short under a very bright lamp) x frame rate x noise (normal,
// dim) x motion (still, handheld, pan) x geometry (full, binned, small) x
// starting state. The core product is light x mains x frame rate x starting
// state; the other dimensions are cycled across the cells so that every
// value occurs evenly without multiplying the run time. Runs without flicker
// use daylight whatever the light type, and duplicate cells are dropped.
//
// Figures (GridFigures), per group of cells and in total:
//  - accuracy: share of cells with observable flicker (ripple depth of at
//    least 2 %, mains known at the end) that end in the right state;
//  - pairs and ms to a correct lock after start (median over the cells that
//    started in the wrong state and got it right) and after a light switch;
//  - false switches per simulated hour on scenes without flicker;
//  - state changes per simulated hour under mixed light (oscillation).
//
// Threading: run() drives the process-wide manager; one grid at a time.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "run_summary.h"

namespace flicker_loop {

struct GridCell {
  std::string light;     // fluorescent, led, incandescent, good-led
  double depth = 1.0;    // ripple scale
  std::string mains;     // "50", "60", "none", "50>60", "60>50", "mixed"
  std::string exposure;  // "auto" or "short"
  double fps = 30;
  std::string noise;     // "normal" or "dim"
  std::string motion;    // "still", "handheld" or "pan"
  std::string geometry;  // "full", "binned" or "small"
  int startHz = 50;

  // The value of dimension `name` as text (for grouping and CSV).
  std::string value(const std::string& name) const;
  // Scenario settings, in order, for ScenarioBuilder.
  std::vector<std::pair<std::string, std::string>> settings(double seconds) const;
  // True when the flicker at the end is deep enough to be detected.
  bool observable() const;
};

struct CellResult {
  GridCell cell;
  RunSummary summary;
  bool ok = false;
  std::string error;
};

struct GridFigures {
  std::string group;
  int cells = 0;
  int observable = 0;
  int right = 0;               // of the observable cells
  double startLockPairs = -1;  // medians; -1 when no cell qualifies
  double startLockMs = -1;
  double switchLockPairs = -1;
  double switchLockMs = -1;
  double falseSwitchesPerHour = -1;
  double mixedSwitchesPerHour = -1;
  int failures = 0;  // runs that did not complete
};

class EvalGrid {
 public:
  enum class Size { kQuick, kFull };

  EvalGrid(Size size, double secondsPerRun);

  const std::vector<GridCell>& cells() const { return cells_; }
  // Runs every cell; `progress` (may be empty) is called after each.
  std::vector<CellResult> run(const std::function<void(int done, int total)>& progress) const;

  // Figures grouped by the values of dimension `by` (empty: one total
  // group), followed by the total.
  static std::vector<GridFigures> figures(const std::vector<CellResult>& results,
                                          const std::string& by);
  // Dimension names, for --by and CSV headers.
  static std::vector<std::string> dimensions();

 private:
  std::vector<GridCell> cells_;
  double seconds_;
};

}  // namespace flicker_loop
