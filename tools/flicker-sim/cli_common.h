// Set-up shared by flicker-sim's subcommands: exit codes, the one-line error,
// the platform under the manager (tuning table, logs, traces, dump folder)
// and a terminal progress bar.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "cli_options.h"
#include "flicker_algo_cmd.h"
#include "flicker_sim_cli.h"
#include "tuning_choice.h"

namespace flicker_cli {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// Writes "<program>: <reason>" and returns `code`.
int failWith(CliIo io, int code, const std::string& reason);

// Options every subcommand that runs the manager or the algorithm accepts:
// --tuning, --set, --log, --trace.
//  - --tuning T (open, host or an NVRAM image file) and any --set NAME=VALUE
//    (TuningFields) give the tuning; a setting the open algorithm reads as
//    another value is warned about on `io.err`.
//  - Logs are silenced unless the properties (FLICKER_PROPS, environment)
//    set vendor.debug.flicker_mgr.log.level or
//    vendor.debug.flicker_algo.log.level to a non-zero value; --log FILE
//    sends them to a file.
//  - --trace FILE writes the trace sections to a file in the trace-event
//    format (host_trace.h) and turns on the camera trace tag
//    (debug.atrace.tags.enableflags).
//  - With vendor.debug.flk_dump set, the dump folder
//    <data root>/data/vendor/flicker/flko is created, as it exists on a device.
// `algoPart` (may be null) receives the tuning's algorithm record. Returns
// kExitOk, or kExitUsage (bad tuning or setting) / kExitFailed with a reason.
int setUpPlatform(const CliOptions& options, FlickerExtPara* algoPart, CliIo io,
                  std::string* error);

// The platform without the tuning: logs, traces and the dump folder as
// setUpPlatform sets them up (for a command that hands its tunings to worker
// processes itself). kExitOk, or kExitFailed with a reason.
int setUpHost(const CliOptions& options, std::string* error);

// Reads --tuning and applies the --set options to it, warning on `io.err`
// about clamped values; kExitUsage with a reason on bad input.
int readTuning(const CliOptions& options, flicker_loop::TuningTable* table, CliIo io,
               std::string* error);
// The same for a tuning choice and settings of another role: with role
// "baseline" they came from --baseline-tuning and --baseline-set, and the
// warnings and reasons say so.
int readTuning(const std::string& choice, const std::vector<std::string>& settings,
               flicker_loop::TuningTable* table, CliIo io, const std::string& role,
               std::string* error);

// Draws "label [#####.....] 340/1016 cells, 0:41 elapsed, about 1:21 left"
// on a terminal (io.interactive, on io.err), erased again by clear().
class ProgressBar {
 public:
  ProgressBar(CliIo io, std::string label, std::string unit = "")
      : io_(io), label_(std::move(label)), unit_(std::move(unit)) {}
  void update(int done, int total);
  void clear();

  // The bar's text after `elapsedS` seconds (without the carriage return).
  static std::string text(const std::string& label, const std::string& unit, int done, int total,
                          double elapsedS);

 private:
  CliIo io_;
  std::string label_;
  std::string unit_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point lastDrawn_;
  int lastPercent_ = -1;
  bool drawn_ = false;
};

}  // namespace flicker_cli
