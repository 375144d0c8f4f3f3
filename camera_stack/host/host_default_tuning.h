// Built-in flicker tuning of the host platform, used when no NVRAM image is
// given: one record per scenario row (0..69) and binning column (0..1).
#pragma once

#include "cam_flicker_nvram.h"

namespace flicker_host {

// The default record for (row, col). Rows and columns out of the table give
// the record of row 0, column 0.
FLICKER_CUST_PARA defaultTuningRecord(int row, int col);

}  // namespace flicker_host
