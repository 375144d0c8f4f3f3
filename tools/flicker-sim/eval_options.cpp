#include "eval_options.h"

#include <sched.h>

#include <algorithm>
#include <cstdio>

#include "scenario_builder.h"

namespace flicker_cli {

namespace {

// A soak's runs are longer than the grid's: a minute each, as a user films.
constexpr double kSoakSeconds = 60.0;
constexpr double kMaxSoakHours = 10000.0;
constexpr double kMinSeconds = 0.2;
constexpr double kMaxSeconds = 3600.0;
constexpr long kMaxTimingRuns = 1000000;
constexpr long kMaxFailureLines = 100000;
constexpr long kMaxSeedBase = 1000000000;
// More workers than this would only queue for the same cores.
constexpr long kMaxJobs = 256;

const char kHelpBody[] =
    "\n"
    "Evaluation of the open flicker detection algorithm: runs the real manager\n"
    "closed-loop on the simulator (host platform, open algorithm) over a grid of\n"
    "scenes - lamps (also modelled on published measurements) x ripple depth down\n"
    "to 2 % x mains 50/60/none/switch/mixed/onset x exposure regime x frame rate\n"
    "24..120 x free or fixed frame timing x noise x motion (shake, pan, 1..3 lines\n"
    "per frame, moving object) x texture (natural, grating, piecewise, screen) x\n"
    "geometry (readouts of half a 100 Hz period to three) x starting state - and\n"
    "prints the accuracy over the cells where physics shows the flicker, lock\n"
    "pairs after start, after a light switch and after a lamp's onset, false\n"
    "switches per hour without mains flicker, state changes per minute under mixed\n"
    "light, the figures of merit against their targets, and the cost of one\n"
    "detection step at 4000x3000. With --soak-hours it runs hours of scenes\n"
    "without mains flicker instead and counts false switches. With --compare it\n"
    "runs a baseline and a candidate tuning on the same cells and prints the\n"
    "change of every figure of merit and the cells whose verdict changed, each\n"
    "with the options that run it again.\n"
    "\n"
    "The cells run in worker processes, one per core (the manager's state is\n"
    "process-wide, so two cells never share a process); the results are those\n"
    "of a serial run.\n"
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
    "  --seed-base N      added to every cell's simulator seed: the same scenes\n"
    "                     with other textures and noise. Bases below 10000 are for\n"
    "                     tuning (0, the default, is the set tuned on so far);\n"
    "                     10000, 20000 and 30000 are held out for reported figures\n"
    "  --soak-hours H     run H simulated hours of the grid's scenes without mains\n"
    "                     flicker (a minute each, fresh seeds) and report the false\n"
    "                     switches, their rate per hour and the time it took\n"
    "  --jobs N           worker processes (default: one per core; 1 runs the\n"
    "                     cells one after another in this process)\n"
    "  --tuning T         open (default: the recommended record), host (the host\n"
    "                     platform's table) or an NVRAM image file\n"
    "  --set NAME=VALUE   a tuning field by its record or knob name in every\n"
    "                     record, e.g. --set hold_off=2 (repeatable; 'flicker-sim\n"
    "                     tuning' lists the fields); a value the algorithm reads\n"
    "                     otherwise is warned about\n"
    "  --compare          also run a baseline tuning on the same cells and print\n"
    "                     the differences (--tuning and --set are the candidate)\n"
    "  --baseline-tuning T, --baseline-set NAME=VALUE\n"
    "                     the baseline (default: open, no settings); either one\n"
    "                     implies --compare\n"
    "  --csv FILE         one row per cell with its settings and results (with\n"
    "                     --compare: the candidate's)\n"
    "  --json             the figures (or the comparison) as JSON instead of text\n"
    "  --timing-runs N    detections timed at 4000x3000 (default 2000; 0 skips)\n"
    "  --failures N       failing cells listed (default 30)\n"
    "  --log FILE         the manager's and the algorithm's logs to FILE (verbose\n"
    "                     unless the properties set their levels; lines of\n"
    "                     several workers interleave)\n"
    "  --trace FILE       a trace of every frame, as for run (with --jobs 1)\n"
    "  --help             this text\n"
    "\n"
    "Exit status: 0 when every run completed (targets are reported, not\n"
    "enforced), 1 when a run or a worker process failed or the CSV could not be\n"
    "written, 2 on bad options.\n";

const std::vector<OptionDef> kDefs = {
    {"help", false},
    {"quick", false},
    {"full", false},
    {"seconds", true},
    {"by", true},
    {"only", true},
    {"seed-base", true},
    {"soak-hours", true},
    {"jobs", true},
    {"tuning", true},
    {"set", true},
    {"compare", false},
    {"baseline-tuning", true},
    {"baseline-set", true},
    {"csv", true},
    {"json", false},
    {"timing-runs", true},
    {"failures", true},
    {"log", true},
    {"trace", true},
};

bool isDimension(const std::string& name) {
  const std::vector<std::string> dims = flicker_eval::evalDimensions();
  return std::find(dims.begin(), dims.end(), name) != dims.end();
}

std::string dimensionList() {
  std::string list;
  for (const std::string& d : flicker_eval::evalDimensions()) {
    list += (list.empty() ? "" : ", ") + d;
  }
  return list;
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

std::string badValue(const std::string& value, const std::string& option,
                     const std::string& expected) {
  return "bad value '" + value + "' for --" + option + ": expected " + expected;
}

// A whole number option in lo..hi; false with the reason.
bool readInt(const CliOptions& options, const char* name, long lo, long hi, long* out,
             std::string* error) {
  if (!options.has(name)) {
    return true;
  }
  const std::string value = options.value(name);
  if (!flicker_loop::parseInt(value, lo, hi, out)) {
    *error = badValue(value, name, std::to_string(lo) + ".." + std::to_string(hi));
    return false;
  }
  return true;
}

// The options' parts that pick the cells: sizes, --by, --only.
bool readGrid(const CliOptions& options, EvalOptions* o, std::string* error) {
  if (options.has("quick") && options.has("full")) {
    *error = "--quick and --full exclude each other";
    return false;
  }
  o->size = options.has("quick")  ? flicker_eval::GridSize::kQuick
            : options.has("full") ? flicker_eval::GridSize::kFull
                                  : flicker_eval::GridSize::kDefault;
  if (options.has("seconds") &&
      !flicker_loop::parseReal(options.value("seconds"), kMinSeconds, kMaxSeconds, &o->seconds)) {
    *error = badValue(options.value("seconds"), "seconds", "0.2..3600");
    return false;
  }
  if (options.has("by")) {
    o->by = splitList(options.value("by"));
    for (const std::string& d : o->by) {
      if (!isDimension(d)) {
        *error = badValue(d, "by", "dimensions among " + dimensionList());
        return false;
      }
    }
  }
  for (const std::string& filter : options.values("only")) {
    const size_t eq = filter.find('=');
    if (eq == std::string::npos || eq + 1 == filter.size() || !isDimension(filter.substr(0, eq))) {
      *error = badValue(filter, "only", "DIM=VALUE with DIM among " + dimensionList());
      return false;
    }
    o->only.emplace_back(filter.substr(0, eq), filter.substr(eq + 1));
  }
  return readInt(options, "seed-base", 0, kMaxSeedBase, &o->seedBase, error);
}

// How the runs are made and shown: soak, jobs, tunings, outputs.
bool readRuns(const CliOptions& options, EvalOptions* o, std::string* error) {
  if (options.has("soak-hours") &&
      !flicker_loop::parseReal(options.value("soak-hours"), 1e-6, kMaxSoakHours, &o->soakHours)) {
    *error = badValue(options.value("soak-hours"), "soak-hours", "a number of hours above 0");
    return false;
  }
  long jobs = 0;
  long timingRuns = o->timingRuns;
  long failureLines = o->failureLines;
  if (!readInt(options, "jobs", 1, kMaxJobs, &jobs, error) ||
      !readInt(options, "timing-runs", 0, kMaxTimingRuns, &timingRuns, error) ||
      !readInt(options, "failures", 0, kMaxFailureLines, &failureLines, error)) {
    return false;
  }
  o->jobs = static_cast<int>(jobs);
  o->timingRuns = static_cast<int>(timingRuns);
  o->failureLines = static_cast<int>(failureLines);
  o->tuning = {options.value("tuning", "open"), options.values("set")};
  o->baseline = {options.value("baseline-tuning", "open"), options.values("baseline-set")};
  o->compare =
      options.has("compare") || options.has("baseline-tuning") || options.has("baseline-set");
  o->csvPath = options.value("csv");
  o->json = options.has("json");
  o->logPath = options.value("log");
  o->tracePath = options.value("trace");
  if (o->compare && o->soakHours > 0) {
    *error = "--soak-hours and --compare exclude each other (compare on the grid's cells)";
    return false;
  }
  // Every worker would write its own trace into the one file.
  if (options.has("trace") && (o->compare || o->jobs > 1)) {
    *error = "--trace needs the cells in one process: --jobs 1, without --compare";
    return false;
  }
  if (options.has("trace")) {
    o->jobs = 1;
  }
  return true;
}

int coresToRunOn() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 0) {
    return CPU_COUNT(&set);
  }
  return 1;
}

std::string text(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%g", v);
  return buf;
}

}  // namespace

std::string TuningRequest::describe() const {
  std::string text = choice;
  for (const std::string& s : settings) {
    text += ", " + s;
  }
  return text;
}

double EvalOptions::secondsPerRun() const {
  if (seconds > 0) {
    return seconds;
  }
  return soakHours > 0 ? kSoakSeconds : flicker_eval::defaultSeconds(size);
}

std::string EvalOptions::gridName() const {
  switch (size) {
    case flicker_eval::GridSize::kQuick:
      return "quick";
    case flicker_eval::GridSize::kFull:
      return "full";
    default:
      return "default";
  }
}

std::string EvalOptions::gridOptions() const {
  std::string text = size == flicker_eval::GridSize::kQuick  ? "--quick "
                     : size == flicker_eval::GridSize::kFull ? "--full "
                                                             : "";
  text += "--seed-base " + std::to_string(seedBase);
  if (seconds > 0) {
    text += " --seconds " + flicker_cli::text(seconds);
  }
  return text;
}

int EvalOptions::workers(size_t cells) const {
  const int wanted = jobs > 0 ? jobs : coresToRunOn();
  return static_cast<int>(
      std::max<size_t>(1, std::min<size_t>(static_cast<size_t>(wanted), cells)));
}

const std::vector<OptionDef>& evalOptionDefs() {
  return kDefs;
}

bool readEvalOptions(const CliOptions& options, EvalOptions* out, std::string* error) {
  EvalOptions o;
  if (!options.positionals().empty()) {
    *error = "the evaluation takes no arguments, got '" + options.positionals()[0] + "'";
    return false;
  }
  if (!readGrid(options, &o, error) || !readRuns(options, &o, error)) {
    return false;
  }
  *out = o;
  return true;
}

std::string evalHelp(const std::string& program) {
  return "usage: " + program + " [options]\n" + kHelpBody;
}

}  // namespace flicker_cli
