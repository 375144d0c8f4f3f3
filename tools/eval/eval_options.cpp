#include "eval_options.h"

#include <algorithm>

#include "scenario_builder.h"

namespace flicker_eval {

namespace {

constexpr double kQuickSeconds = 3.0;
constexpr double kDefaultSeconds = 4.0;
constexpr long kMaxTimingRuns = 1000000;
constexpr long kMaxSeedBase = 1000000000;
constexpr int kTuningWords = 35;

bool isDimension(const std::string& name) {
  const std::vector<std::string> dims = evalDimensions();
  return std::find(dims.begin(), dims.end(), name) != dims.end();
}

std::vector<std::string> splitList(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t comma = text.find(',', start);
    const size_t end = comma == std::string::npos ? text.size() : comma;
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// "NAME=VALUE" split at the first '='; false when either side is empty.
bool splitPair(const std::string& text, std::string* name, std::string* value) {
  const size_t eq = text.find('=');
  if (eq == std::string::npos || eq == 0 || eq + 1 == text.size()) {
    return false;
  }
  *name = text.substr(0, eq);
  *value = text.substr(eq + 1);
  return true;
}

}  // namespace

const char kEvalHelp[] =
    "usage: flicker-eval [options]\n"
    "\n"
    "Evaluation bench of the open flicker detection algorithm: runs the real\n"
    "manager closed-loop on the simulator (host platform, open algorithm) over a\n"
    "grid of scenes - light type x ripple depth x mains 50/60/none/switch/mixed x\n"
    "exposure regime (long: whole flicker periods; short: below one period) x\n"
    "frame rate 24..120 x noise x motion x texture x geometry (1920x1080,\n"
    "4000x3000) x starting state - and prints the accuracy of the final state over\n"
    "the observable cells, pairs and ms to a correct lock after start and after a\n"
    "light switch, false switches per hour without flicker, state changes per\n"
    "hour under mixed light, the targets met or missed, and the cost of one\n"
    "detection step at 4000x3000.\n"
    "\n"
    "options:\n"
    "  --quick            small grid (seconds), for CI\n"
    "  --full             every light, geometry and texture multiplied (minutes)\n"
    "                     (default: a moderate grid)\n"
    "  --seconds S        simulated seconds per run (default 3 quick, 4 otherwise)\n"
    "  --by DIM[,DIM..]   tables grouped by these dimensions (default\n"
    "                     mains,fps,exposure,motion,geometry); dimensions: light,\n"
    "                     depth, mains, exposure, fps, noise, motion, texture,\n"
    "                     geometry, start\n"
    "  --only DIM=VALUE   run only the cells with this value (repeatable; values\n"
    "                     of one dimension are alternatives)\n"
    "  --csv FILE         one row per cell with its settings and results\n"
    "  --log FILE         the manager's and the algorithm's logs (verbose) to FILE;\n"
    "                     without it every log is silenced\n"
    "  --tuning T         open (default: the recommended record), host (the host\n"
    "                     platform's table) or an NVRAM image file\n"
    "  --set WORD=VALUE   override word 0..34 of the algorithm's tuning record in\n"
    "                     every row (repeatable), e.g. --set 11=2\n"
    "  --timing-runs N    detections timed at 4000x3000 (default 2000; 0 skips)\n"
    "  --failures N       failing cells listed (default 30)\n"
    "  --seed-base N      added to every cell's simulator seed (default 0, the\n"
    "                     set the algorithm was tuned on): the same scenes with\n"
    "                     other textures and noise, to check what generalises\n"
    "  --help             this text\n"
    "\n"
    "Exit status: 0 when every run completed (targets are reported, not\n"
    "enforced), 1 when a run failed or the CSV could not be written, 2 on bad\n"
    "options.\n";

double EvalOptions::secondsPerRun() const {
  if (seconds > 0) {
    return seconds;
  }
  return size == GridSize::kQuick ? kQuickSeconds : kDefaultSeconds;
}

ParseStatus parseEvalOptions(int argc, const char* const* argv, EvalOptions* out,
                             std::string* error) {
  EvalOptions o;
  bool sized = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i] != nullptr ? argv[i] : "";
    const bool takesValue = arg == "--seconds" || arg == "--by" || arg == "--only" ||
                            arg == "--csv" || arg == "--log" || arg == "--tuning" ||
                            arg == "--set" || arg == "--timing-runs" || arg == "--failures" ||
                            arg == "--seed-base";
    if (takesValue && (i + 1 >= argc || argv[i + 1] == nullptr)) {
      *error = arg + " needs a value";
      return ParseStatus::kError;
    }
    const std::string value = takesValue ? argv[++i] : "";
    long n = 0;
    if (arg == "--help" || arg == "-h") {
      o.help = true;
    } else if (arg == "--quick" || arg == "--full") {
      if (sized) {
        *error = "choose one of --quick and --full";
        return ParseStatus::kError;
      }
      sized = true;
      o.size = arg == "--quick" ? GridSize::kQuick : GridSize::kFull;
    } else if (arg == "--seconds") {
      if (!flicker_loop::parseReal(value, 0.2, 3600.0, &o.seconds)) {
        *error = "bad --seconds '" + value + "': expected 0.2..3600";
        return ParseStatus::kError;
      }
    } else if (arg == "--by") {
      o.by = splitList(value);
      for (const std::string& d : o.by) {
        if (!isDimension(d)) {
          *error = "unknown dimension '" + d + "' in --by";
          return ParseStatus::kError;
        }
      }
    } else if (arg == "--only") {
      std::string dim, v;
      if (!splitPair(value, &dim, &v) || !isDimension(dim)) {
        *error = "bad --only '" + value + "': expected DIM=VALUE with a known dimension";
        return ParseStatus::kError;
      }
      o.only.emplace_back(dim, v);
    } else if (arg == "--csv") {
      o.csvPath = value;
    } else if (arg == "--log") {
      o.logPath = value;
    } else if (arg == "--tuning") {
      o.tuning = value;
    } else if (arg == "--set") {
      std::string word, v;
      long w = 0;
      if (!splitPair(value, &word, &v) || !flicker_loop::parseInt(word, 0, kTuningWords - 1, &w) ||
          !flicker_loop::parseInt(v, -2147483647L, 2147483647L, &n)) {
        *error = "bad --set '" + value + "': expected WORD=VALUE, WORD 0..34";
        return ParseStatus::kError;
      }
      o.words.emplace_back(static_cast<int>(w), static_cast<int>(n));
    } else if (arg == "--timing-runs") {
      if (!flicker_loop::parseInt(value, 0, kMaxTimingRuns, &n)) {
        *error = "bad --timing-runs '" + value + "': expected 0.." + std::to_string(kMaxTimingRuns);
        return ParseStatus::kError;
      }
      o.timingRuns = static_cast<int>(n);
    } else if (arg == "--failures") {
      if (!flicker_loop::parseInt(value, 0, 100000, &n)) {
        *error = "bad --failures '" + value + "': expected 0..100000";
        return ParseStatus::kError;
      }
      o.failureLines = static_cast<int>(n);
    } else if (arg == "--seed-base") {
      if (!flicker_loop::parseInt(value, 0, kMaxSeedBase, &n)) {
        *error = "bad --seed-base '" + value + "': expected 0.." + std::to_string(kMaxSeedBase);
        return ParseStatus::kError;
      }
      o.seedBase = n;
    } else {
      *error = "unknown option '" + arg + "' (see --help)";
      return ParseStatus::kError;
    }
  }
  *out = o;
  return o.help ? ParseStatus::kHelp : ParseStatus::kRun;
}

std::vector<EvalCell> filterCells(const std::vector<EvalCell>& grid, const EvalOptions& options) {
  std::vector<EvalCell> cells;
  // Filters on one dimension are alternatives; filters on several all apply.
  for (const EvalCell& c : grid) {
    bool keep = true;
    for (const auto& f : options.only) {
      bool any = false;
      for (const auto& g : options.only) {
        any = any || (g.first == f.first && c.value(g.first) == g.second);
      }
      keep = keep && any;
    }
    if (keep) {
      cells.push_back(c);
    }
  }
  return cells;
}

}  // namespace flicker_eval
