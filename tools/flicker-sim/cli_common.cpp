#include "cli_common.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "cam_properties.h"
#include "cam_trace.h"
#include "host_data_path.h"
#include "host_log.h"
#include "host_properties.h"
#include "host_trace.h"
#include "tuning_choice.h"
#include "tuning_fields.h"

namespace flicker_cli {

namespace {

using NSCam::Utils::Properties::property_get_int32;
using NSCam::Utils::Properties::property_get_int64;

const char kTraceTagsProperty[] = "debug.atrace.tags.enableflags";

constexpr int kBarWidth = 30;
// A bar whose percentage stands still is redrawn this often, so that its
// times move.
constexpr std::chrono::milliseconds kBarRedraw{500};

// Creates `path` and its parents; true when it exists afterwards.
bool makeFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    if (!part.empty() && mkdir(part.c_str(), 0770) != 0 && errno != EEXIST) {
      return false;
    }
    if (slash == std::string::npos) {
      return true;
    }
  }
}

// "1:05" or "2:03:09".
std::string clock(double seconds) {
  const long s = std::lround(seconds);
  char buf[32];
  if (s >= 3600) {
    snprintf(buf, sizeof(buf), "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  } else {
    snprintf(buf, sizeof(buf), "%ld:%02ld", s / 60, s % 60);
  }
  return buf;
}

}  // namespace

int failWith(CliIo io, int code, const std::string& reason) {
  io.err << io.program << ": " << reason << "\n";
  return code;
}

int readTuning(const std::string& choice, const std::vector<std::string>& texts,
               flicker_loop::TuningTable* table, CliIo io, const std::string& role,
               std::string* error) {
  const std::string prefix = role.empty() ? "" : role + ": ";
  std::vector<flicker_loop::TuningSetting> settings;
  for (const std::string& text : texts) {
    flicker_loop::TuningSetting setting;
    if (!flicker_loop::TuningFields::parse(text, &setting, error)) {
      *error = prefix + *error;
      return kExitUsage;
    }
    settings.push_back(setting);
  }
  if (!flicker_loop::TuningChoice::load(choice, table, error)) {
    // The loader names the option a tuning usually comes from.
    const std::string option = "--tuning";
    const size_t at = error->find(option);
    if (!role.empty() && at != std::string::npos) {
      error->replace(at, option.size(), "--" + role + "-tuning");
    }
    return kExitUsage;
  }
  for (const std::string& warning : flicker_loop::TuningFields::apply(settings, table)) {
    io.err << io.program << ": warning: " << prefix << warning << "\n";
  }
  return kExitOk;
}

int readTuning(const CliOptions& options, flicker_loop::TuningTable* table, CliIo io,
               std::string* error) {
  return readTuning(options.value("tuning", "open"), options.values("set"), table, io, "", error);
}

int setUpPlatform(const CliOptions& options, FlickerExtPara* algoPart, CliIo io,
                  std::string* error) {
  // The tuning first: a bad choice or setting is bad input, found before
  // anything is opened.
  flicker_loop::TuningTable table;
  if (const int status = readTuning(options, &table, io, error)) {
    return status;
  }
  if (const int status = setUpHost(options, error)) {
    return status;
  }
  // Without settings the platform reads the chosen table itself, as it
  // would outside a simulation.
  const bool applied =
      options.has("set")
          ? flicker_loop::TuningChoice::applyTable(table, algoPart, error)
          : flicker_loop::TuningChoice::apply(options.value("tuning", "open"), algoPart, error);
  return applied ? kExitOk : kExitFailed;
}

int setUpHost(const CliOptions& options, std::string* error) {
  const bool logsWanted = property_get_int32("vendor.debug.flicker_mgr.log.level", 0) != 0 ||
                          property_get_int32("vendor.debug.flicker_algo.log.level", 0) != 0;
  flicker_host::setLogsQuiet(!logsWanted);
  if (options.has("log") && !flicker_host::setDebugLogFile(options.value("log"))) {
    *error = "cannot open log file " + options.value("log");
    return kExitFailed;
  }
  if (options.has("trace")) {
    if (!flicker_host::setTraceFile(options.value("trace"))) {
      *error = "cannot open trace file " + options.value("trace");
      return kExitFailed;
    }
    // Asking for a trace file turns the camera tag on.
    flicker_host::setProperty(
        kTraceTagsProperty,
        static_cast<int64_t>(property_get_int64(kTraceTagsProperty, 0) | ATRACE_TAG_CAMERA));
  }
  if (property_get_int32("vendor.debug.flk_dump", 0) != 0) {
    // The dump step writes its counter file into flko/ before it creates
    // that folder, so the folder must exist for the first two dumps not to
    // share number 000.
    const std::string folder = flicker_host::dataRoot() + "/data/vendor/flicker/flko";
    if (!makeFolders(folder)) {
      *error = "cannot create the dump folder " + folder + ": " + strerror(errno);
      return kExitFailed;
    }
  }
  return kExitOk;
}

std::string ProgressBar::text(const std::string& label, const std::string& unit, int done,
                              int total, double elapsedS) {
  const int percent = total > 0 ? static_cast<int>(100LL * done / total) : 0;
  const int filled = kBarWidth * percent / 100;
  std::string line = label + " [" + std::string(static_cast<size_t>(filled), '#') +
                     std::string(static_cast<size_t>(kBarWidth - filled), '.') + "] ";
  line += unit.empty() ? std::to_string(percent) + "%"
                       : std::to_string(done) + "/" + std::to_string(total) + " " + unit;
  line += ", " + clock(elapsedS) + " elapsed";
  // The rate so far stands for the rest: cells (or frames) cost alike on
  // average.
  if (done > 0 && done < total) {
    line += ", about " + clock(elapsedS * (total - done) / done) + " left";
  }
  return line;
}

void ProgressBar::update(int done, int total) {
  if (!io_.interactive || total <= 0) {
    return;
  }
  const auto now = std::chrono::steady_clock::now();
  const int percent = static_cast<int>(100LL * done / total);
  if (percent == lastPercent_ && now - lastDrawn_ < kBarRedraw) {
    return;
  }
  lastPercent_ = percent;
  lastDrawn_ = now;
  const double elapsed = std::chrono::duration<double>(now - start_).count();
  io_.err << "\r\033[K" << text(label_, unit_, done, total, elapsed) << std::flush;
  drawn_ = true;
}

void ProgressBar::clear() {
  if (drawn_) {
    io_.err << "\r\033[K" << std::flush;
    drawn_ = false;
  }
}

}  // namespace flicker_cli
