// DumpReplayer: runs the detection algorithm again over a tree of statistics
// dumps (the numbered folders NNN/flk.raw that the adapter writes when
// vendor.debug.flk_dump is set) and gives one verdict per step.
//
// The algorithm is reached through flk_SendCmd directly, as the adapter
// would: release, the tuning (command 3), the set-up from the dump's
// geometry (command 0: line length, pixel clock, 3 x win_h lines, win_w),
// and per step the state the dump records, applied like the manager applies
// a state change (commands 4 and 5) when it differs from the last one, then
// the detection on the pair (command 2). A dump does not hold the frame
// interval: the caller gives it, one value for all steps or one per step.
// The set-up is sent again whenever a dump's geometry differs. Each step
// also carries the tool's own fit of the pair's ratio profile (RippleFit),
// the line time taken from the dump's line length and pixel clock.
//
// Folders are taken in numeric order (000..999, then 1000 and up); other
// entries are ignored. A folder without flk.raw, or a truncated or corrupt
// flk.raw, ends the replay with an error naming the file.
//
// Threading: the algorithm state is process-wide; one replay at a time, and
// never beside a closed-loop run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "flicker_algo_cmd.h"
#include "ripple_fit.h"

namespace flicker_loop {

struct ReplayStep {
  int step = 0;          // 0-based position in the tree
  std::string folder;    // folder name, e.g. "007"
  int appliedHz = 0;     // state the dump records (50 or 60)
  int verdictHz = 0;     // the algorithm's answer: 50, 60 or 0 for neither
  int stateAfterHz = 0;  // the manager's state after this step
  int score50 = 0;
  int score60 = 0;
  int exposureUs = 0;
  int32_t aux[kFlkAuxWords] = {};  // the algorithm's diagnostics words
  // The pair's ratio profile, slot 1 over slot 0 (in cycle mode the later
  // frame over the earlier one), with its fitted bands.
  RippleFit profile;
};

struct ReplayResult {
  bool ok = false;
  std::string error;              // one line naming the file when !ok
  std::vector<ReplayStep> steps;  // the steps replayed before any error

  // The step that decided: the last whose verdict moved the state (a verdict
  // for the other frequency than the one recorded), or, without one, the
  // highest score, and among equal scores the deepest fitted ripple (the
  // first of equals). -1 without steps.
  int decidingStep() const;
};

class DumpReplayer {
 public:
  // `tuning` is the algorithm part of the tuning record the live run used.
  explicit DumpReplayer(const FlickerExtPara& tuning);

  // Numbered dump folders of `dir` in numeric order; false (with a reason)
  // when `dir` cannot be read or holds none.
  static bool listFolders(const std::string& dir, std::vector<std::string>* folders,
                          std::string* error);

  // Replays with one interval for every step.
  ReplayResult replay(const std::string& dir, int64_t frameIntervalNs);
  // Replays with step i taking intervalsNs[i] (the last value repeats).
  ReplayResult replay(const std::string& dir, const std::vector<int64_t>& intervalsNs);

 private:
  FlickerExtPara tuning_;
};

}  // namespace flicker_loop
