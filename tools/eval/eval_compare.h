// EvalComparison: a baseline and a candidate tuning run on the same cells.
//
// Every figure of merit of both runs side by side with its change (right %,
// median lock pairs and never-locked counts for still scenes, motion, 2 %
// lamps and onsets, pairs after a light switch, ms to the lock, mixed light's
// changes per minute and settled cells, false switches per hour, the
// detection step when it was timed, runs that did not complete), and the
// cells whose verdict changed: right -> wrong first, then wrong -> right,
// then the rest (a cell that became observable or not, a run that failed).
// Each changed cell is named by the options that run it again:
// `--only DIM=VALUE` for every dimension with the grid and seed base.
//
// A cell's verdict: right (the final state is the light's mains; without
// mains flicker, no switch at all), wrong, not judged (mixed light, or
// physics never showed the lamp), failed (the run did not complete).
//
// Plain functions of values.
#pragma once

#include <nlohmann/json.hpp>

#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "cell_outcome.h"
#include "eval_report.h"

namespace flicker_eval {

// A figure no cell qualified for.
constexpr double kNoFigure = std::numeric_limits<double>::quiet_NaN();

// One figure of merit as a number (kNever for a median that is never,
// kNoFigure when no cell qualified) and as text with its counts.
struct FigureRow {
  std::string name;
  double value = kNoFigure;
  std::string text;
  const char* unit = "";  // of a change: "points", "pairs", "ms", ...
  int decimals = 0;       // of a change
};

std::vector<FigureRow> figureRows(const MeritFigures& merit);

enum class Verdict { kRight, kWrong, kNotJudged, kFailed };

Verdict verdictOf(const CellOutcome& outcome);
const char* verdictName(Verdict verdict);

struct VerdictChange {
  EvalCell cell;
  Verdict from = Verdict::kRight;
  Verdict to = Verdict::kRight;
};

struct Comparison {
  std::vector<FigureRow> baseline;   // figureRows() of the baseline
  std::vector<FigureRow> candidate;  // and of the candidate, row for row
  std::vector<VerdictChange> changed;
};

// `baseline` and `candidate` hold the outcomes of the same cells in the same
// order.
Comparison compareRuns(const std::vector<CellOutcome>& baseline, const DetectTiming& baselineTiming,
                       const std::vector<CellOutcome>& candidate,
                       const DetectTiming& candidateTiming);

// "+2 pairs", "-7.1 points", "now never", "now locks", "0" for one row pair.
std::string changeText(const FigureRow& baseline, const FigureRow& candidate);

// The table of figures and the changed cells; `rerun` is what precedes the
// --only options to run a cell again (the grid and the seed base).
void printComparison(std::ostream& out, const Comparison& comparison, const std::string& rerun);
nlohmann::ordered_json comparisonJson(const Comparison& comparison, const std::string& rerun);
// A figure's value for JSON: a number, "never", or null when no cell qualified.
nlohmann::ordered_json figureValueJson(double value);

}  // namespace flicker_eval
