// FlickerTuningTable: one sensor's tuning records as the NVRAM layer delivers
// them (70 scenario rows by 2 binning columns of FLICKER_CUST_PARA), the
// selection of the record for a stream, and its replacement from an override
// text file.
//
// Rows are scenarios: the sensor mode for sensor type 0, the mode plus 35 for
// the other type. Columns are binning ratios 1 and 2. The storage is plain C
// allocations because the NVRAM layer fills the records in place; a table
// whose array or any row could not be allocated is never handed to NVRAM,
// and selecting a missing record leaves the caller's record as it was.
//
// Threading: loaded once, under the owner's lock (Init), then only read by
// the algorithm set-up on the thread that runs DoCalculation.
#pragma once

#include <cstdint>

#include "cam_flicker_nvram.h"

class FlickerTuningTable {
 public:
  FlickerTuningTable() = default;
  ~FlickerTuningTable();
  FlickerTuningTable(const FlickerTuningTable&) = delete;
  FlickerTuningTable& operator=(const FlickerTuningTable&) = delete;

  // Allocates the array of row pointers and every row, zero-filled. Returns
  // how many of those allocations failed, for the owner to report; the rows
  // that could be allocated stay usable.
  int allocate();

  // Fills the table from NVRAM for the sensor and checks every record's
  // timing (a warning for records that see fewer than 1.5 light periods per
  // frame). True on success, and also when the table is incomplete (no NVRAM
  // call then); false when NVRAM failed.
  bool getFlickerParametersAll(int sensorId, int sensorDev, int sensorModeTotal, int binRatioTotal);
  // getFlickerParametersAll ran, whatever its result: the table is loaded
  // once for the life of the sensor.
  bool loaded() const { return loaded_; }

  // The scenario row of a sensor mode and type (may lie outside the table).
  static int64_t scenario(int sensorMode, int sensorType);
  // Copies the record of scenario row `sensorMode` and binning `ratio` (1 or
  // 2; below 1 is reported and reads column 0) into `*para`. A row or column
  // outside the table, or a row that could not be allocated, is reported and
  // leaves `*para` as it was.
  void getTargetParameter(int sensorMode, int ratio, FLICKER_CUST_PARA* para) const;
  // The record of a set-up: selected by the sensor mode's scenario row and
  // the binning ratio (zero when the mode has no row, reported), then
  // replaced from the mode's override file when the debug property
  // "vendor.debug.flk_read_file" asks for it.
  FLICKER_CUST_PARA recordFor(int sensorMode, int sensorType, int ratio) const;
  // Replaces the 35 algorithm words of `*para` with the numbers of the
  // sensor mode's override file, when the mode (0..9) has one and it opens.
  static void getFlickerParametersFile(int sensorMode, FLICKER_CUST_PARA* para);

 private:
  FLICKER_CUST_PARA** flicker_para_array_ = nullptr;
  bool loaded_ = false;
};
