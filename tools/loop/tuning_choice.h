// TuningChoice: which tuning table the manager loads in a simulation, and the
// algorithm part of it for a replay.
//
//   "open"  the open algorithm's recommended record in every row and column
//           (written once as an NVRAM image to a temporary file that is
//           removed at exit, and handed to the host NVRAM layer);
//   "host"  the host platform's own table: FLICKER_NVRAM_IMAGE or its
//           built-in defaults;
//   a path  an NVRAM image file (70 x 2 records of 168 bytes, the layout the
//           host NVRAM layer reads; see host_nvram.h).
// The manager loads its table once per sensor instance, at its first Init,
// so the choice must be made before the first run of the process.
//
// load() reads a choice into a TuningTable without touching the platform, so
// a tool can check it, edit it (TuningFields) and then hand it over
// (applyTable) or write it as an image file (writeImage).
//
// Not thread-safe; called once at start-up.
#pragma once

#include <string>
#include <vector>

#include "cam_flicker_nvram.h"
#include "flicker_algo_cmd.h"

namespace flicker_loop {

// Every record of a tuning image: kFlickerScenarioRows rows of
// kFlickerBinRatios records, row by row.
struct TuningTable {
  std::vector<FLICKER_CUST_PARA> records;

  // A table with `record` everywhere.
  static TuningTable filledWith(const FLICKER_CUST_PARA& record);
  // Row 0, column 0: what a replay's algorithm gets.
  const FLICKER_CUST_PARA& first() const { return records.front(); }
  // The algorithm's part of first().
  FlickerExtPara algoPart() const;
  // True when every record equals the first.
  bool uniform() const;
};

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

  // Reads `choice` ("open", "host" or an image path); false with a reason
  // when it is none of them or the image cannot be read.
  static bool load(const std::string& choice, TuningTable* table, std::string* error);
  // Hands the manager `table` (as a temporary image, like applyRecord).
  static bool applyTable(const TuningTable& table, FlickerExtPara* algoPart, std::string* error);
  // Writes `table` as a temporary image that stays until the process ends
  // and gives its path, for a process that hands it over later (a worker
  // process: flicker_host::setNvramImage); false with a reason.
  static bool stage(const TuningTable& table, std::string* image, std::string* error);
  // Writes `table` as an NVRAM image file that --tuning FILE and
  // FLICKER_NVRAM_IMAGE accept; false with a reason.
  static bool writeImage(const TuningTable& table, const std::string& path, std::string* error);
};

}  // namespace flicker_loop
