#include "cli_common.h"

#include <sys/stat.h>

#include <cerrno>
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

}  // namespace

int failWith(CliIo io, int code, const std::string& reason) {
  io.err << "flicker-sim: " << reason << "\n";
  return code;
}

int readTuning(const CliOptions& options, flicker_loop::TuningTable* table, CliIo io,
               std::string* error) {
  std::vector<flicker_loop::TuningSetting> settings;
  for (const std::string& text : options.values("set")) {
    flicker_loop::TuningSetting setting;
    if (!flicker_loop::TuningFields::parse(text, &setting, error)) {
      return kExitUsage;
    }
    settings.push_back(setting);
  }
  if (!flicker_loop::TuningChoice::load(options.value("tuning", "open"), table, error)) {
    return kExitUsage;
  }
  for (const std::string& warning : flicker_loop::TuningFields::apply(settings, table)) {
    io.err << "flicker-sim: warning: " << warning << "\n";
  }
  return kExitOk;
}

int setUpPlatform(const CliOptions& options, FlickerExtPara* algoPart, CliIo io,
                  std::string* error) {
  // The tuning first: a bad choice or setting is bad input, found before
  // anything is opened.
  flicker_loop::TuningTable table;
  if (const int status = readTuning(options, &table, io, error)) {
    return status;
  }
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
  // Without settings the platform reads the chosen table itself, as it
  // would outside a simulation.
  const bool applied =
      options.has("set")
          ? flicker_loop::TuningChoice::applyTable(table, algoPart, error)
          : flicker_loop::TuningChoice::apply(options.value("tuning", "open"), algoPart, error);
  return applied ? kExitOk : kExitFailed;
}

void ProgressBar::update(int done, int total) {
  if (!io_.interactive || total <= 0) {
    return;
  }
  const int percent = static_cast<int>(100LL * done / total);
  if (percent == lastPercent_) {
    return;
  }
  lastPercent_ = percent;
  const int filled = kBarWidth * percent / 100;
  io_.out << "\r" << label_ << " [" << std::string(static_cast<size_t>(filled), '#')
          << std::string(static_cast<size_t>(kBarWidth - filled), '.') << "] " << percent << "%"
          << std::flush;
  drawn_ = true;
}

void ProgressBar::clear() {
  if (drawn_) {
    io_.out << "\r\033[K" << std::flush;
    drawn_ = false;
  }
}

}  // namespace flicker_cli
