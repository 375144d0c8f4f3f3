// TuningChoice: which tuning table the manager loads in a simulation, and the
// algorithm part of it for a replay.
//
//   "open"  the open algorithm's recommended record in every row and column
//           (written once as an NVRAM image to a temporary file that is
//           removed at exit, and handed to the host NVRAM layer);
//   "host"  the host platform's own table: FLICKER_NVRAM_IMAGE or its
//           built-in defaults;
//   a path  an NVRAM image file (70 x 2 records of 168 bytes).
// The manager loads its table once per sensor instance, at its first Init,
// so the choice must be made before the first run of the process.
//
// Not thread-safe; called once at start-up.
#pragma once

#include <string>

#include "cam_flicker_nvram.h"
#include "flicker_algo_cmd.h"

namespace flicker_loop {

class TuningChoice {
 public:
  // Applies `choice`; false with a one-line reason. `algoPart` (may be null)
  // receives the record of row 0, column 0 as the algorithm sees it.
  static bool apply(const std::string& choice, FlickerExtPara* algoPart, std::string* error);
  // Hands the manager `record` in every row and column (as a temporary NVRAM
  // image, replaced by the next call and removed at exit); false with a reason.
  static bool applyRecord(const FLICKER_CUST_PARA& record, FlickerExtPara* algoPart,
                          std::string* error);
  // The open algorithm's recommended record.
  static FlickerExtPara openDefaults();
};

}  // namespace flicker_loop
