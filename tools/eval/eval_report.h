// EvalReport: figures of merit of the bench over its cells, the targets the
// bench reports on, and the text and CSV outputs.
//
// Figures per group of cells (a value of one dimension, or all):
//  - accuracy: right final states over the counted (observable) cells;
//  - lock after start: analysed pairs and ms until the correct state, over
//    the cells that started in the wrong state of a steady light and ended
//    right (median and maximum);
//  - lock after a light switch: the same, counted from the switch;
//  - false switches per simulated hour on scenes without flicker;
//  - state changes per simulated hour under mixed 50 + 60 Hz light.
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
};

struct TargetLine {
  std::string name;
  std::string figure;
  bool met = false;
  bool applicable = true;  // false when no cell of the grid qualifies
};

GroupFigures groupFigures(const std::string& name, const std::vector<const CellOutcome*>& cells);
// Rows grouped by dimension `by`, in first-seen order, then the total.
std::vector<GroupFigures> figuresBy(const std::vector<CellOutcome>& outcomes,
                                    const std::string& by);
std::vector<TargetLine> targets(const std::vector<CellOutcome>& outcomes,
                                const DetectTiming& timing);

void printTable(std::ostream& out, const std::string& by, const std::vector<GroupFigures>& rows);
// Observable cells that ended wrong, and switches without flicker; at most
// `limit` lines.
void printFailures(std::ostream& out, const std::vector<CellOutcome>& outcomes, int limit);
void printTargets(std::ostream& out, const std::vector<TargetLine>& lines);
void writeCsv(std::ostream& out, const std::vector<CellOutcome>& outcomes);

}  // namespace flicker_eval
