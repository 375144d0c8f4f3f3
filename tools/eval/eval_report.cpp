#include "eval_report.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace flicker_eval {

namespace {

constexpr double kMsPerHour = 3600.0 * 1000.0;
constexpr double kMsPerMinute = 60.0 * 1000.0;
// Targets the bench reports (never asserted in tests).
constexpr double kAccuracyTarget = 0.99;
constexpr double kStillLockPairs = 2;
constexpr double kMotionLockPairs = 4;
constexpr double kWeakLockPairs = 4;
constexpr double kOnsetLockPairs = 4;
constexpr double kMixedChangesPerMinute = 2;
constexpr double kNoFlickerHours = 10;
constexpr double kDetectPerCopy = 20;

std::string fmt(const char* format, double v) {
  char buf[48];
  snprintf(buf, sizeof(buf), format, v);
  return buf;
}

// "-" for a figure no cell qualified for.
std::string orDash(double v, const char* format) {
  return v < 0 ? "-" : fmt(format, v);
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

double median(std::vector<double> v) {
  if (v.empty()) {
    return -1;
  }
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

GroupFigures groupFigures(const std::string& name, const std::vector<const CellOutcome*>& cells) {
  GroupFigures f;
  f.group = name;
  std::vector<double> lockPairs, lockMs, switchPairs, switchMs, onsetPairs;
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
    if (o->startsWrong()) {
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
    if (o->onsetPairs >= 0) {
      onsetPairs.push_back(o->onsetPairs);
      f.onsetPairsMax = std::max(f.onsetPairsMax, o->onsetPairs);
    }
    if (!o->cell.hasFlicker()) {
      f.noFlickerSwitches += o->switches;
      f.noFlickerHours += o->durationMs / kMsPerHour;
    } else if (o->cell.isMixed()) {
      f.mixedSwitches += o->switches;
      f.mixedHours += o->durationMs / kMsPerHour;
    }
  }
  f.lockPairsMedian = median(lockPairs);
  f.lockMsMedian = median(lockMs);
  f.switchPairsMedian = median(switchPairs);
  f.switchMsMedian = median(switchMs);
  f.onsetPairsMedian = median(onsetPairs);
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
  rows.reserve(order.size() + 1);
  for (const std::string& g : order) {
    rows.push_back(groupFigures(g, groups[g]));
  }
  rows.push_back(groupFigures("total", all));
  return rows;
}

std::string countOf(long n, const std::string& noun, const std::string& plural) {
  return std::to_string(n) + " " + (n == 1 ? noun : plural.empty() ? noun + "s" : plural);
}

double medianPairs(const std::vector<int>& pairs) {
  if (pairs.empty()) {
    return -1;
  }
  // The lower median: a count of pairs some cell took, or never.
  std::vector<double> v;
  v.reserve(pairs.size());
  for (const int p : pairs) {
    v.push_back(p < 0 ? kNever : p);
  }
  std::sort(v.begin(), v.end());
  return v[(v.size() - 1) / 2];
}

std::string pairsFigure(const std::vector<int>& pairs) {
  if (pairs.empty()) {
    return "no cell";
  }
  int never = 0, most = -1;
  for (const int p : pairs) {
    never += p < 0 ? 1 : 0;
    most = std::max(most, p);
  }
  const double m = medianPairs(pairs);
  std::string text = m >= kNever ? "never" : fmt("%g", m);
  text += " (";
  if (most >= 0) {
    text += "max " + std::to_string(most) + ", ";
  }
  if (never > 0) {
    text += std::to_string(never) + " never, ";
  }
  return text + "of " + countOf(static_cast<long>(pairs.size()), "cell") + ")";
}

MeritFigures meritOf(const std::vector<CellOutcome>& outcomes, const DetectTiming& timing) {
  MeritFigures m;
  m.timing = timing;
  for (const CellOutcome& o : outcomes) {
    ++m.cells;
    if (!o.ok) {
      ++m.failedRuns;
      continue;
    }
    if (o.counted) {
      ++m.counted;
      m.right += o.right ? 1 : 0;
    }
    if (!o.cell.hasFlicker()) {
      m.falseSwitches += o.switches;
      m.noFlickerHours += o.durationMs / kMsPerHour;
    }
    if (o.cell.isMixed()) {
      ++m.mixedCells;
      m.mixedChanges += o.switches;
      m.mixedMinutes += o.durationMs / kMsPerMinute;
      m.settled += o.settledWeaker() ? 1 : 0;
    }
    if (o.onsetWrong()) {
      m.onsetLock.push_back(o.onsetPairs);
    }
    if (o.switchPairs >= 0) {
      m.switchLock.push_back(o.switchPairs);
    }
    if (!o.startsWrong()) {
      continue;
    }
    (o.cell.motion == "still" ? m.stillLock : m.movingLock).push_back(o.lockPairs);
    if (o.weak) {
      m.weakLock.push_back(o.lockPairs);
    }
    if (o.lockPairs >= 0) {
      m.lockMs.push_back(o.lockMs);
    }
  }
  return m;
}

std::vector<TargetLine> targets(const MeritFigures& m) {
  std::vector<TargetLine> lines;
  lines.push_back({"at least 99 % right over the observable cells",
                   fmt("%.1f %%", 100.0 * m.accuracy()) + " (" + std::to_string(m.right) + "/" +
                       std::to_string(m.counted) + ")",
                   m.accuracy() >= kAccuracyTarget, m.counted > 0});
  auto lockLine = [&lines](const std::string& name, const std::vector<int>& pairs, double most) {
    lines.push_back({name, pairsFigure(pairs), medianPairs(pairs) <= most, !pairs.empty()});
  };
  lockLine("median lock by the 2nd analysed pair, still scenes", m.stillLock, kStillLockPairs);
  lockLine("median lock within 4 pairs under motion", m.movingLock, kMotionLockPairs);
  lockLine("median lock within 4 pairs for 2 % lamps", m.weakLock, kWeakLockPairs);
  lockLine("median lock within 4 pairs after a lamp's onset", m.onsetLock, kOnsetLockPairs);
  lines.push_back({"mixed light: at most 2 state changes per simulated minute",
                   fmt("%.2f", m.mixedPerMinute()) + " per minute (" +
                       std::to_string(m.mixedChanges) + " in " + fmt("%.1f", m.mixedMinutes) +
                       " min)",
                   m.mixedPerMinute() <= kMixedChangesPerMinute, m.mixedCells > 0});
  lines.push_back({"mixed light: settles on the state with the weaker residual banding",
                   std::to_string(m.settled) + " of " + std::to_string(m.mixedCells) + " cells",
                   m.settled == m.mixedCells, m.mixedCells > 0});
  // A rate per hour needs hours: below ten the line is reported, not judged.
  lines.push_back(
      {"no false switch without mains flicker over at least 10 simulated hours",
       std::to_string(m.falseSwitches) + " in " + fmt("%.2f", m.noFlickerHours) +
           " simulated hours" +
           (m.noFlickerHours < kNoFlickerHours ? " (too few hours: --soak-hours 10)" : ""),
       m.falseSwitches == 0, m.noFlickerHours >= kNoFlickerHours || m.falseSwitches > 0});
  const DetectTiming& timing = m.timing;
  if (timing.measured) {
    const double copies = timing.memcpyUs > 0 ? timing.medianUs / timing.memcpyUs : 0.0;
    lines.push_back({"detection step under 20 copies of the statistics block at " +
                         std::to_string(timing.width) + "x" + std::to_string(timing.height),
                     "median " + fmt("%.1f", timing.medianUs) + " us = " + fmt("%.1f", copies) +
                         " copies of " + fmt("%.2f", timing.memcpyUs) + " us (mean " +
                         fmt("%.1f", timing.meanUs) + ", p95 " + fmt("%.1f", timing.p95Us) +
                         " us over " + std::to_string(timing.runs) + " detections)",
                     // The median judges: on a shared machine the mean carries
                     // the odd preemption of the timing thread.
                     timing.memcpyUs > 0 && copies < kDetectPerCopy});
  }
  return lines;
}

void printTable(std::ostream& out, const std::string& by, const std::vector<GroupFigures>& rows) {
  char line[256];
  snprintf(line, sizeof(line), "%-16s %5s %9s %8s %10s %7s %8s %10s %9s %9s %9s\n", by.c_str(),
           "cells", "right", "accuracy", "lock_pairs", "no_lock", "lock_ms", "switch_prs",
           "onset_prs", "false/h", "mixed/min");
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
    const std::string onset = f.onsetPairsMedian < 0 ? "-"
                                                     : fmt("%g", f.onsetPairsMedian) + "/" +
                                                           std::to_string(f.onsetPairsMax);
    const std::string falseRate =
        f.noFlickerHours > 0 ? fmt("%.0f", f.noFlickerSwitches / f.noFlickerHours) : "-";
    const std::string mixedRate =
        f.mixedHours > 0 ? fmt("%.1f", f.mixedSwitches / (60.0 * f.mixedHours)) : "-";
    snprintf(line, sizeof(line), "%-16s %5d %9s %8s %10s %7d %8s %10s %9s %9s %9s%s\n",
             f.group.c_str(), f.cells, right.c_str(), accuracy.c_str(), lock.c_str(), f.lockMissing,
             orDash(f.lockMsMedian, "%.0f").c_str(), sw.c_str(), onset.c_str(), falseRate.c_str(),
             mixedRate.c_str(),
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
              << countOf(o.switches, "switch", "switches") << ", " << o.pairs << " pairs, ripple "
              << fmt("%.4f", o.ripple) << ", seed " << o.cell.seed << "\n";
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
    out << "  [" << verdict << "] " << t.name << ": " << t.figure << "\n";
  }
}

void writeCsv(std::ostream& out, const std::vector<CellOutcome>& outcomes) {
  const std::vector<std::string> dims = evalDimensions();
  for (const std::string& d : dims) {
    out << d << ",";
  }
  out << "seed,ok,counted,held,showing_pairs,final_ripple,right,locked_hz,expected_hz,switches,"
         "pairs,"
         "lock_pairs,lock_moving_pairs,lock_ms,switch_pairs,switch_moving_pairs,switch_ms,"
         "onset_pairs,onset_ms,residual_final,residual_other,residual_noise,duration_ms,error\n";
  for (const CellOutcome& o : outcomes) {
    for (const std::string& d : dims) {
      out << csvField(o.cell.value(d)) << ",";
    }
    out << o.cell.seed << "," << o.ok << "," << o.counted << "," << o.held << "," << o.showingPairs
        << "," << fmt("%.5f", o.ripple) << "," << o.right << "," << o.summary.lockedHz << ","
        << o.summary.expectedHz << "," << o.switches << "," << o.pairs << "," << o.lockPairs << ","
        << o.lockMovingPairs << "," << fmt("%.1f", o.lockMs) << "," << o.switchPairs << ","
        << o.switchMovingPairs << "," << fmt("%.1f", o.switchMs) << "," << o.onsetPairs << ","
        << fmt("%.1f", o.onsetMs) << "," << fmt("%.5f", o.residualFinal) << ","
        << fmt("%.5f", o.residualOther) << "," << fmt("%.6f", o.residualNoise) << ","
        << fmt("%.1f", o.durationMs) << "," << csvField(o.error) << "\n";
  }
}

}  // namespace flicker_eval
