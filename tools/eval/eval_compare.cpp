#include "eval_compare.h"

#include <cmath>
#include <cstdio>

namespace flicker_eval {

namespace {

using Json = nlohmann::ordered_json;

std::string fmt(const char* format, double v) {
  char buf[64];
  snprintf(buf, sizeof(buf), format, v);
  return buf;
}

bool isNumber(double v) {
  return !std::isnan(v) && v < kNever;
}

// The order in which changed cells are listed: the losses first.
int changeRank(const VerdictChange& c) {
  if (c.from == Verdict::kRight && c.to == Verdict::kWrong) {
    return 0;
  }
  return c.from == Verdict::kWrong && c.to == Verdict::kRight ? 1 : 2;
}

void addLockRows(std::vector<FigureRow>* rows, const std::string& what,
                 const std::vector<int>& pairs) {
  const double median = medianPairs(pairs);
  int never = 0;
  for (const int p : pairs) {
    never += p < 0 ? 1 : 0;
  }
  rows->push_back({"median lock pairs, " + what, median < 0 ? kNoFigure : median,
                   median < 0         ? "no cell"
                   : median >= kNever ? "never"
                                      : fmt("%g", median),
                   "pairs", 0});
  rows->push_back(
      {"never locked, " + what, pairs.empty() ? kNoFigure : never,
       pairs.empty() ? "no cell" : std::to_string(never) + " of " + std::to_string(pairs.size()),
       "cells", 0});
}

}  // namespace

std::vector<FigureRow> figureRows(const MeritFigures& m) {
  std::vector<FigureRow> rows;
  rows.push_back(
      {"right over the observable cells", m.counted > 0 ? 100.0 * m.accuracy() : kNoFigure,
       m.counted > 0 ? fmt("%.1f %%", 100.0 * m.accuracy()) + " (" + std::to_string(m.right) + "/" +
                           std::to_string(m.counted) + ")"
                     : "no cell",
       "points", 1});
  addLockRows(&rows, "still scenes", m.stillLock);
  addLockRows(&rows, "under motion", m.movingLock);
  addLockRows(&rows, "2 % lamps", m.weakLock);
  addLockRows(&rows, "after a lamp's onset", m.onsetLock);
  const double afterSwitch = medianPairs(m.switchLock);
  rows.push_back({"median lock pairs after a light switch",
                  afterSwitch < 0 ? kNoFigure : afterSwitch,
                  afterSwitch < 0 ? "no cell" : fmt("%g", afterSwitch), "pairs", 0});
  const double lockMs = median(m.lockMs);
  rows.push_back({"median ms to the lock after start", lockMs < 0 ? kNoFigure : lockMs,
                  lockMs < 0 ? "no cell" : fmt("%.0f", lockMs), "ms", 0});
  rows.push_back({"mixed light: state changes per minute",
                  m.mixedCells > 0 ? m.mixedPerMinute() : kNoFigure,
                  m.mixedCells > 0 ? fmt("%.2f", m.mixedPerMinute()) : "no cell", "per minute", 2});
  rows.push_back(
      {"mixed light: settled on the weaker banding", m.mixedCells > 0 ? m.settled : kNoFigure,
       m.mixedCells > 0 ? std::to_string(m.settled) + " of " + std::to_string(m.mixedCells)
                        : "no cell",
       "cells", 0});
  rows.push_back({"false switches per hour without mains flicker",
                  m.noFlickerHours > 0 ? m.falsePerHour() : kNoFigure,
                  m.noFlickerHours > 0
                      ? fmt("%.2f", m.falsePerHour()) + " (" + std::to_string(m.falseSwitches) +
                            " in " + fmt("%.2f", m.noFlickerHours) + " h)"
                      : "no cell",
                  "per hour", 2});
  if (m.timing.measured) {
    rows.push_back(
        {"detection step, median us", m.timing.medianUs, fmt("%.1f", m.timing.medianUs), "us", 1});
  }
  rows.push_back({"runs that did not complete", static_cast<double>(m.failedRuns),
                  std::to_string(m.failedRuns), "runs", 0});
  return rows;
}

Verdict verdictOf(const CellOutcome& o) {
  if (!o.ok) {
    return Verdict::kFailed;
  }
  if (!o.cell.hasFlicker()) {
    return o.switches == 0 ? Verdict::kRight : Verdict::kWrong;
  }
  if (!o.counted) {
    return Verdict::kNotJudged;
  }
  return o.right ? Verdict::kRight : Verdict::kWrong;
}

const char* verdictName(Verdict v) {
  switch (v) {
    case Verdict::kRight:
      return "right";
    case Verdict::kWrong:
      return "wrong";
    case Verdict::kNotJudged:
      return "not judged";
    default:
      return "failed";
  }
}

Comparison compareRuns(const std::vector<CellOutcome>& baseline, const DetectTiming& baselineTiming,
                       const std::vector<CellOutcome>& candidate,
                       const DetectTiming& candidateTiming) {
  Comparison c;
  c.baseline = figureRows(meritOf(baseline, baselineTiming));
  c.candidate = figureRows(meritOf(candidate, candidateTiming));
  for (size_t i = 0; i < baseline.size() && i < candidate.size(); ++i) {
    const Verdict from = verdictOf(baseline[i]);
    const Verdict to = verdictOf(candidate[i]);
    if (from != to) {
      c.changed.push_back({baseline[i].cell, from, to});
    }
  }
  std::stable_sort(
      c.changed.begin(), c.changed.end(),
      [](const VerdictChange& a, const VerdictChange& b) { return changeRank(a) < changeRank(b); });
  return c;
}

std::string changeText(const FigureRow& b, const FigureRow& c) {
  if (std::isnan(b.value) || std::isnan(c.value)) {
    return std::isnan(b.value) && std::isnan(c.value) ? "" : "-";
  }
  if (b.value >= kNever || c.value >= kNever) {
    return b.value == c.value ? "0" : b.value >= kNever ? "now locks" : "now never";
  }
  const double change = c.value - b.value;
  char format[16];
  snprintf(format, sizeof(format), "%%+.%df", b.decimals);
  const std::string text = fmt(format, change);
  // A change that rounds away is none; one of a count is singular.
  const double shown = std::stod(text);
  std::string unit = b.unit;
  if (std::fabs(shown) == 1 && (unit == "pairs" || unit == "cells" || unit == "runs")) {
    unit.pop_back();
  }
  return shown == 0 ? "0" : text + " " + unit;
}

void printComparison(std::ostream& out, const Comparison& c, const std::string& rerun) {
  char line[256];
  snprintf(line, sizeof(line), "%-48s %-22s %-22s %s\n", "figure", "baseline", "candidate",
           "change");
  out << line;
  for (size_t i = 0; i < c.baseline.size() && i < c.candidate.size(); ++i) {
    snprintf(line, sizeof(line), "%-48s %-22s %-22s %s", c.baseline[i].name.c_str(),
             c.baseline[i].text.c_str(), c.candidate[i].text.c_str(),
             changeText(c.baseline[i], c.candidate[i]).c_str());
    std::string text = line;
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << "\n";
  }
  int ranks[3] = {0, 0, 0};
  for (const VerdictChange& v : c.changed) {
    ++ranks[changeRank(v)];
  }
  out << "\ncells that changed verdict: ";
  if (c.changed.empty()) {
    out << "none\n";
    return;
  }
  out << c.changed.size() << " (right -> wrong " << ranks[0] << ", wrong -> right " << ranks[1]
      << ", other " << ranks[2] << "); each line's options run the cell again\n";
  for (const VerdictChange& v : c.changed) {
    const std::string change = std::string(verdictName(v.from)) + " -> " + verdictName(v.to);
    snprintf(line, sizeof(line), "  %-24s seed %-7llu ", change.c_str(),
             static_cast<unsigned long long>(v.cell.seed));
    out << line << rerun << " " << v.cell.onlyFilters() << "\n";
  }
}

Json figureValueJson(double value) {
  if (std::isnan(value)) {
    return Json();
  }
  return value >= kNever ? Json("never") : Json(value);
}

Json comparisonJson(const Comparison& c, const std::string& rerun) {
  Json figures = Json::array();
  for (size_t i = 0; i < c.baseline.size() && i < c.candidate.size(); ++i) {
    const double b = c.baseline[i].value;
    const double n = c.candidate[i].value;
    figures.push_back({{"figure", c.baseline[i].name},
                       {"baseline", figureValueJson(b)},
                       {"candidate", figureValueJson(n)},
                       {"change", isNumber(b) && isNumber(n) ? Json(n - b) : Json()}});
  }
  Json changed = Json::array();
  for (const VerdictChange& v : c.changed) {
    Json cell = Json::object();
    for (const std::string& d : evalDimensions()) {
      cell[d] = v.cell.value(d);
    }
    changed.push_back({{"from", verdictName(v.from)},
                       {"to", verdictName(v.to)},
                       {"seed", v.cell.seed},
                       {"cell", cell},
                       {"rerun", rerun + " " + v.cell.onlyFilters()}});
  }
  return Json{{"figures", figures}, {"changed", changed}};
}

}  // namespace flicker_eval
