#include "eval_report.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace flicker_eval {

namespace {

constexpr double kMsPerHour = 3600.0 * 1000.0;
// Targets the bench reports (never asserted in tests).
constexpr int kStillLockPairs = 2;
constexpr int kMotionLockPairs = 6;
constexpr double kAccuracyTarget = 0.99;
constexpr double kDetectBudgetUs = 50.0;

double median(std::vector<double> v) {
  if (v.empty()) {
    return -1;
  }
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

std::string fmt(const char* format, double v) {
  char buf[48];
  snprintf(buf, sizeof(buf), format, v);
  return buf;
}

// "-" for a figure no cell qualified for.
std::string orDash(double v, const char* format) {
  return v < 0 ? "-" : fmt(format, v);
}

bool startsWrong(const CellOutcome& o) {
  return o.ok && o.counted && !o.held && !o.cell.isSwitch();
}

std::string csvField(const std::string& s) {
  if (s.find_first_of(",\"\n") == std::string::npos) {
    return s;
  }
  std::string q = "\"";
  for (const char c : s) {
    q += c == '"' ? std::string("\"\"") : std::string(1, c);
  }
  return q + "\"";
}

}  // namespace

GroupFigures groupFigures(const std::string& name, const std::vector<const CellOutcome*>& cells) {
  GroupFigures f;
  f.group = name;
  std::vector<double> lockPairs, lockMs, switchPairs, switchMs;
  for (const CellOutcome* o : cells) {
    ++f.cells;
    if (!o->ok) {
      ++f.failures;
      continue;
    }
    if (o->counted) {
      ++f.counted;
      f.right += o->right ? 1 : 0;
    }
    if (startsWrong(*o)) {
      if (o->lockPairs >= 0) {
        lockPairs.push_back(o->lockPairs);
        lockMs.push_back(o->lockMs);
        f.lockPairsMax = std::max(f.lockPairsMax, o->lockPairs);
      } else {
        ++f.lockMissing;
      }
    }
    if (o->switchPairs >= 0) {
      switchPairs.push_back(o->switchPairs);
      switchMs.push_back(o->switchMs);
      f.switchPairsMax = std::max(f.switchPairsMax, o->switchPairs);
    }
    if (!o->cell.hasFlicker()) {
      f.noFlickerSwitches += o->switches;
      f.noFlickerHours += o->durationMs / kMsPerHour;
    } else if (o->cell.mains == "mixed") {
      f.mixedSwitches += o->switches;
      f.mixedHours += o->durationMs / kMsPerHour;
    }
  }
  f.lockPairsMedian = median(lockPairs);
  f.lockMsMedian = median(lockMs);
  f.switchPairsMedian = median(switchPairs);
  f.switchMsMedian = median(switchMs);
  return f;
}

std::vector<GroupFigures> figuresBy(const std::vector<CellOutcome>& outcomes,
                                    const std::string& by) {
  std::map<std::string, std::vector<const CellOutcome*>> groups;
  std::vector<std::string> order;
  std::vector<const CellOutcome*> all;
  for (const CellOutcome& o : outcomes) {
    const std::string g = o.cell.value(by);
    if (groups.find(g) == groups.end()) {
      order.push_back(g);
    }
    groups[g].push_back(&o);
    all.push_back(&o);
  }
  std::vector<GroupFigures> rows;
  for (const std::string& g : order) {
    rows.push_back(groupFigures(g, groups[g]));
  }
  rows.push_back(groupFigures("total", all));
  return rows;
}

std::vector<TargetLine> targets(const std::vector<CellOutcome>& outcomes,
                                const DetectTiming& timing) {
  int still = 0, stillIn = 0, stillMax = -1;
  int moving = 0, movingIn = 0, movingMax = -1;
  int counted = 0, right = 0, falseSwitches = 0;
  double noFlickerHours = 0;
  for (const CellOutcome& o : outcomes) {
    if (!o.ok) {
      continue;
    }
    if (o.counted) {
      ++counted;
      right += o.right ? 1 : 0;
    }
    if (!o.cell.hasFlicker()) {
      falseSwitches += o.switches;
      noFlickerHours += o.durationMs / kMsPerHour;
    }
    if (!startsWrong(o)) {
      continue;
    }
    // Pairs that could not move the ripple's phase are physics, not the
    // detector: the target counts the pairs that did.
    const int pairs = o.lockMovingPairs;
    if (o.cell.motion == "still") {
      ++still;
      stillIn += pairs >= 0 && pairs <= kStillLockPairs ? 1 : 0;
      stillMax = pairs < 0 ? stillMax : std::max(stillMax, pairs);
    } else {
      ++moving;
      movingIn += pairs >= 0 && pairs <= kMotionLockPairs ? 1 : 0;
      movingMax = pairs < 0 ? movingMax : std::max(movingMax, pairs);
    }
  }
  std::vector<TargetLine> lines;
  lines.push_back({"lock by the 2nd moving pair, still scene",
                   std::to_string(stillIn) + " of " + std::to_string(still) + " cells (max " +
                       std::to_string(stillMax) + " pairs)",
                   stillIn == still, still > 0});
  lines.push_back({"lock within 6 pairs under motion",
                   std::to_string(movingIn) + " of " + std::to_string(moving) + " cells (max " +
                       std::to_string(movingMax) + " pairs)",
                   movingIn == moving, moving > 0});
  lines.push_back(
      {"no false switch without flicker",
       std::to_string(falseSwitches) + " in " + fmt("%.2f", noFlickerHours) + " simulated hours",
       falseSwitches == 0});
  const double accuracy = counted > 0 ? static_cast<double>(right) / counted : 0.0;
  lines.push_back({"at least 99 % right over the observable grid",
                   fmt("%.1f %%", 100.0 * accuracy) + " (" + std::to_string(right) + "/" +
                       std::to_string(counted) + ")",
                   accuracy >= kAccuracyTarget, counted > 0});
  if (timing.measured) {
    lines.push_back({"detection step at most 50 us at " + std::to_string(timing.width) + "x" +
                         std::to_string(timing.height),
                     "mean " + fmt("%.1f", timing.meanUs) + " us, median " +
                         fmt("%.1f", timing.medianUs) + " us, p95 " + fmt("%.1f", timing.p95Us) +
                         " us over " + std::to_string(timing.runs) + " detections",
                     // The median judges: on a shared machine the mean carries
                     // the odd preemption of the timing thread.
                     timing.medianUs <= kDetectBudgetUs});
  }
  return lines;
}

void printTable(std::ostream& out, const std::string& by, const std::vector<GroupFigures>& rows) {
  char line[256];
  snprintf(line, sizeof(line), "%-12s %5s %9s %8s %10s %8s %10s %9s %9s %9s\n", by.c_str(), "cells",
           "right", "accuracy", "lock_pairs", "lock_ms", "switch_prs", "switch_ms", "false/h",
           "mixed/h");
  out << line;
  for (const GroupFigures& f : rows) {
    const std::string right =
        f.counted > 0 ? std::to_string(f.right) + "/" + std::to_string(f.counted) : "-";
    const std::string accuracy = f.counted > 0 ? fmt("%.1f%%", 100.0 * f.right / f.counted) : "-";
    const std::string lock =
        f.lockPairsMedian < 0 ? "-"
                              : fmt("%g", f.lockPairsMedian) + "/" + std::to_string(f.lockPairsMax);
    const std::string sw = f.switchPairsMedian < 0 ? "-"
                                                   : fmt("%g", f.switchPairsMedian) + "/" +
                                                         std::to_string(f.switchPairsMax);
    const std::string falseRate =
        f.noFlickerHours > 0 ? fmt("%.0f", f.noFlickerSwitches / f.noFlickerHours) : "-";
    const std::string mixedRate =
        f.mixedHours > 0 ? fmt("%.0f", f.mixedSwitches / f.mixedHours) : "-";
    snprintf(line, sizeof(line), "%-12s %5d %9s %8s %10s %8s %10s %9s %9s %9s%s\n", f.group.c_str(),
             f.cells, right.c_str(), accuracy.c_str(), lock.c_str(),
             orDash(f.lockMsMedian, "%.0f").c_str(), sw.c_str(),
             orDash(f.switchMsMedian, "%.0f").c_str(), falseRate.c_str(), mixedRate.c_str(),
             f.failures > 0 ? (" (" + std::to_string(f.failures) + " runs failed)").c_str() : "");
    out << line;
  }
}

void printFailures(std::ostream& out, const std::vector<CellOutcome>& outcomes, int limit) {
  int shown = 0, total = 0;
  for (const CellOutcome& o : outcomes) {
    const bool wrong = o.ok && o.counted && !o.right;
    const bool falseSwitch = o.ok && !o.cell.hasFlicker() && o.switches > 0;
    if (!o.ok || wrong || falseSwitch) {
      ++total;
      if (shown < limit) {
        ++shown;
        out << "  " << o.cell.label() << ": ";
        if (!o.ok) {
          out << "run failed: " << o.error << "\n";
        } else {
          out << "ended " << o.summary.lockedHz << " Hz (light " << o.summary.expectedHz << " Hz), "
              << o.switches << " switches, " << o.pairs << " pairs, ripple "
              << fmt("%.4f", o.ripple) << "\n";
        }
      }
    }
  }
  if (total > shown) {
    out << "  ... and " << (total - shown) << " more (see --csv)\n";
  }
  if (total == 0) {
    out << "  none\n";
  }
}

void printTargets(std::ostream& out, const std::vector<TargetLine>& lines) {
  for (const TargetLine& t : lines) {
    const char* verdict = !t.applicable ? "n/a" : t.met ? "met" : "MISSED";
    out << "  [" << verdict << "] " << t.name << ": "
        << (t.applicable ? t.figure : "no cell of this grid qualifies") << "\n";
  }
}

void writeCsv(std::ostream& out, const std::vector<CellOutcome>& outcomes) {
  const std::vector<std::string> dims = evalDimensions();
  for (const std::string& d : dims) {
    out << d << ",";
  }
  out << "seed,ok,counted,held,ripple,right,locked_hz,expected_hz,switches,pairs,lock_pairs,"
         "lock_moving_pairs,lock_ms,switch_pairs,switch_moving_pairs,switch_ms,duration_ms,"
         "error\n";
  for (const CellOutcome& o : outcomes) {
    for (const std::string& d : dims) {
      out << csvField(o.cell.value(d)) << ",";
    }
    out << o.cell.seed << "," << o.ok << "," << o.counted << "," << o.held << ","
        << fmt("%.5f", o.ripple) << "," << o.right << "," << o.summary.lockedHz << ","
        << o.summary.expectedHz << "," << o.switches << "," << o.pairs << "," << o.lockPairs << ","
        << o.lockMovingPairs << "," << fmt("%.1f", o.lockMs) << "," << o.switchPairs << ","
        << o.switchMovingPairs << "," << fmt("%.1f", o.switchMs) << "," << fmt("%.1f", o.durationMs)
        << "," << csvField(o.error) << "\n";
  }
}

}  // namespace flicker_eval
