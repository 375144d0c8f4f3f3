// EvalReport: figures of merit of the bench over its cells, the targets the
// bench reports on, and the text and CSV outputs.
//
// Figures per group of cells (a value of one dimension, or all):
//  - accuracy: right final states over the counted (observable) cells;
//  - lock after start: analysed pairs and ms until the correct state, over
//    the cells that started in the wrong state of a steady light and ended
//    right (median and maximum);
//  - lock after a light switch and after a lamp's onset: the same, counted
//    from the change of the light;
//  - false switches per simulated hour on scenes without mains flicker;
//  - state changes per simulated minute under mixed 50 + 60 Hz light.
// The figures of merit (targets) are reported, never enforced: the accuracy,
// median lock pairs on still scenes, under motion and for 2 % lamps (a cell
// that never locked counts as never, so a median can be "never"), onset lock
// pairs, state changes per minute under mixed light and whether each mixed
// run settled on the state with the weaker residual banding, false switches
// without mains flicker over the simulated hours (at least ten hours are
// needed to say anything about a rate; flicker-sim eval --soak-hours), and the
// detection step against a copy of its statistics block.
//
// Plain functions over values.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cell_outcome.h"

namespace flicker_eval {

struct GroupFigures {
  std::string group;
  int cells = 0;
  int failures = 0;  // runs that did not complete
  int counted = 0;
  int right = 0;
  double lockPairsMedian = -1;
  int lockPairsMax = -1;
  double lockMsMedian = -1;
  int lockMissing = 0;  // cells starting wrong, observable, never right
  double switchPairsMedian = -1;
  int switchPairsMax = -1;
  double switchMsMedian = -1;
  double onsetPairsMedian = -1;
  int onsetPairsMax = -1;
  int noFlickerSwitches = 0;
  double noFlickerHours = 0;
  int mixedSwitches = 0;
  double mixedHours = 0;
};

struct DetectTiming {
  bool measured = false;
  int width = 0;
  int height = 0;
  int runs = 0;
  double meanUs = 0;
  double medianUs = 0;
  double p95Us = 0;
  double memcpyUs = 0;  // median copy of the statistics block of the same geometry
};

// The figures of merit of a set of outcomes, as numbers: what the targets
// judge and what a comparison of two tunings subtracts.
struct MeritFigures {
  int cells = 0;
  int failedRuns = 0;
  int counted = 0;  // observable cells (the accuracy's denominator)
  int right = 0;
  // Analysed pairs up to the lock of the cells that started wrong under a
  // steady lamp and could see it (-1: never locked): still scenes, moving
  // ones, 2 % lamps; and after a lamp's onset.
  std::vector<int> stillLock;
  std::vector<int> movingLock;
  std::vector<int> weakLock;
  std::vector<int> onsetLock;
  std::vector<int> switchLock;  // pairs to the lock after a light switch
  std::vector<double> lockMs;   // ms to the lock after start, cells that locked
  int mixedCells = 0;
  int mixedChanges = 0;
  double mixedMinutes = 0;
  int settled = 0;  // mixed cells that settled on the weaker residual banding
  int falseSwitches = 0;
  double noFlickerHours = 0;
  DetectTiming timing;

  double accuracy() const { return counted > 0 ? static_cast<double>(right) / counted : 0.0; }
  double mixedPerMinute() const { return mixedMinutes > 0 ? mixedChanges / mixedMinutes : 0.0; }
  double falsePerHour() const { return noFlickerHours > 0 ? falseSwitches / noFlickerHours : 0.0; }
};

struct TargetLine {
  std::string name;
  std::string figure;
  bool met = false;
  bool applicable = true;  // false when the grid cannot judge it (no cell, too few hours)
};

GroupFigures groupFigures(const std::string& name, const std::vector<const CellOutcome*>& cells);
// Rows grouped by dimension `by`, in first-seen order, then the total.
std::vector<GroupFigures> figuresBy(const std::vector<CellOutcome>& outcomes,
                                    const std::string& by);
MeritFigures meritOf(const std::vector<CellOutcome>& outcomes, const DetectTiming& timing);
std::vector<TargetLine> targets(const MeritFigures& merit);
// The median of a list of reals (-1 for none).
double median(std::vector<double> values);
// Lower median of pair counts where -1 means "never": never sorts last. -1
// for an empty list, kNever when the median itself is never.
constexpr double kNever = 1e9;
double medianPairs(const std::vector<int>& pairs);
// "1 cell", "2 cells": a count with its noun (`plural` when it is not "+s").
std::string countOf(long n, const std::string& noun, const std::string& plural = "");
// "2 (max 5, 1 never, of 19)" for a list of pair counts.
std::string pairsFigure(const std::vector<int>& pairs);

void printTable(std::ostream& out, const std::string& by, const std::vector<GroupFigures>& rows);
// Observable cells that ended wrong, and switches without flicker; at most
// `limit` lines.
void printFailures(std::ostream& out, const std::vector<CellOutcome>& outcomes, int limit);
void printTargets(std::ostream& out, const std::vector<TargetLine>& lines);
// One CSV row per cell: its dimensions, seed and outcome.
void writeCsv(std::ostream& out, const std::vector<CellOutcome>& outcomes);

}  // namespace flicker_eval
