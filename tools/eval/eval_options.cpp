#include "eval_options.h"

#include <algorithm>

#include "scenario_builder.h"

namespace flicker_eval {

namespace {

// A soak's runs are longer than the grid's: a minute each, as a user films.
constexpr double kSoakSeconds = 60.0;
constexpr double kMaxSoakHours = 10000.0;
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
    "manager closed-loop on the simulator (host platform, open algorithm) over the\n"
    "grid of scenes that flicker-sim sweep runs too - lamps (also modelled on\n"
    "published measurements) x ripple depth down to 2 % x mains 50/60/none/\n"
    "switch/mixed/onset x exposure regime x frame rate 24..120 x free or fixed\n"
    "frame timing x noise x motion (shake, pan, 1..3 lines per frame, moving\n"
    "object) x texture (natural, grating, piecewise, screen) x geometry (readouts\n"
    "of half a 100 Hz period to three) x starting state - and prints the accuracy\n"
    "over the cells where physics shows the flicker, lock pairs after start,\n"
    "after a light switch and after a lamp's onset, false switches per hour\n"
    "without mains flicker, state changes per minute under mixed light, the\n"
    "figures of merit against their targets, and the cost of one detection step\n"
    "at 4000x3000. With --soak-hours it runs hours of scenes without mains\n"
    "flicker instead and counts false switches.\n"
    "\n"
    "options:\n"
    "  --quick            small grid (seconds), for CI\n"
    "  --full             every light, geometry and texture multiplied (minutes)\n"
    "                     (default: a moderate grid)\n"
    "  --seconds S        simulated seconds per run (default 3 quick, 4 otherwise,\n"
    "                     60 for a soak)\n"
    "  --by DIM[,DIM..]   tables grouped by these dimensions (default\n"
    "                     mains,fps,timing,motion,geometry); dimensions: light,\n"
    "                     depth, ripple, mains, exposure, fps, timing, noise,\n"
    "                     motion, texture, geometry, start\n"
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
    "  --seed-base N      added to every cell's simulator seed: the same scenes\n"
    "                     with other textures and noise. Bases below 10000 are for\n"
    "                     tuning (0, the default, is the set tuned on so far);\n"
    "                     10000, 20000 and 30000 are held out for reported figures\n"
    "  --soak-hours H     run H simulated hours of the grid's scenes without mains\n"
    "                     flicker (a minute each, fresh seeds) and report the false\n"
    "                     switches, their rate per hour and the time it took\n"
    "  --help             this text\n"
    "\n"
    "Exit status: 0 when every run completed (targets are reported, not\n"
    "enforced), 1 when a run failed or the CSV could not be written, 2 on bad\n"
    "options.\n";

double EvalOptions::secondsPerRun() const {
  if (seconds > 0) {
    return seconds;
  }
  return soakHours > 0 ? kSoakSeconds : defaultSeconds(size);
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
                            arg == "--seed-base" || arg == "--soak-hours";
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
    } else if (arg == "--soak-hours") {
      if (!flicker_loop::parseReal(value, 1e-6, kMaxSoakHours, &o.soakHours)) {
        *error = "bad --soak-hours '" + value + "': expected a number of hours above 0";
        return ParseStatus::kError;
      }
    } else {
      *error = "unknown option '" + arg + "' (see --help)";
      return ParseStatus::kError;
    }
  }
  *out = o;
  return o.help ? ParseStatus::kHelp : ParseStatus::kRun;
}

}  // namespace flicker_eval
