#include "cli_common.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "cam_properties.h"
#include "host_data_path.h"
#include "host_log.h"
#include "host_trace.h"
#include "tuning_choice.h"

namespace flicker_cli {

namespace {

using NSCam::Utils::Properties::property_get_int32;

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

bool setUpPlatform(const CliOptions& options, FlickerExtPara* algoPart, std::string* error) {
  const bool logsWanted = property_get_int32("vendor.debug.flicker_mgr.log.level", 0) != 0 ||
                          property_get_int32("vendor.debug.flicker_algo.log.level", 0) != 0;
  flicker_host::setLogsQuiet(!logsWanted);
  if (options.has("log") && !flicker_host::setDebugLogFile(options.value("log"))) {
    *error = "cannot open log file " + options.value("log");
    return false;
  }
  if (options.has("trace") && !flicker_host::setTraceMarkerFile(options.value("trace"))) {
    *error = "cannot open trace file " + options.value("trace");
    return false;
  }
  if (property_get_int32("vendor.debug.flk_dump", 0) != 0) {
    // The dump step writes its counter file into flko/ before it creates
    // that folder, so the folder must exist for the first two dumps not to
    // share number 000.
    const std::string folder = flicker_host::dataRoot() + "/data/vendor/flicker/flko";
    if (!makeFolders(folder)) {
      *error = "cannot create the dump folder " + folder + ": " + strerror(errno);
      return false;
    }
  }
  return flicker_loop::TuningChoice::apply(options.value("tuning", "open"), algoPart, error);
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
