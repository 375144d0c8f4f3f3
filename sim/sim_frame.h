// What the simulator hands the 3A side per stream and per frame.
//
// SimConfig carries what the framework passes to the manager's Config
// (flicker_config_info), SetParam (flicker_input_info) and the customisation
// function cust_getSensorBinningRatio; SimFrame carries what it passes to
// DoCalculation (flicker_calc_info) plus the simulator's ground truth. The
// field names follow the manager's records so that a runner copies them one
// by one; the simulator itself does not depend on the manager.
//
// The statistics format (generic statistics path)
// ------------------------------------------------
// For a frame of width W after the pixel-mode reduction (W = width >>
// pixel_mode) and height H:
//   H'    = H - 45 when H <= 6039, else 5994
//   win_w = 2 * (W / 12),  win_h = 2 * (H' / 6)      (integer division)
// The block holds 3 * win_h statistics lines; each line holds 6 signed 64-bit
// sums, one per window, windows left to right, lines top to bottom
// (line-major): entry 6 * k + i is the sum of the win_w pixel values of
// window i on statistics line k. 18 * win_h entries in all. The 6 x 3 grid of
// windows is the six columns by three rows of win_h lines each.
// Placement: statistics line k is image line k + top, top = (H - 3 * win_h) / 2
// (the grid is centred vertically); window i covers reduced-width columns
// [left + i * win_w, left + (i + 1) * win_w), left = (W - 6 * win_w) / 2.
// Pixel values are 10-bit (0..1023), so a sum is at most 1023 * win_w.
// Timing: image line y is read out (its exposure ends) at sof + y * line
// time, so statistics line k is read out at (k + top) * line time after the
// frame's readout start; the line time is SimGeometry::lineTimeSeconds().
#pragma once

#include <cstdint>
#include <vector>

namespace flicker_sim {

struct SimConfig {
  // Config / LightWeightReConfig (flicker_config_info), in record order.
  int sensorMode = 0;
  int hbinWidth = 0;   // frame width after pixel mode at stream start
  int hbinHeight = 0;  // frame height
  int tgWidth = 0;
  int tgHeight = 0;
  uint32_t pixelClk = 0;
  uint32_t pixelsInLine = 0;
  // SetParam (flicker_input_info); sensorMode, tgWidth and tgHeight as above.
  int sensorType = 0;
  int flickerMode = 3;  // 1 = 50 Hz, 2 = 60 Hz, 3 = automatic detection
  int isMaster = 1;
  int aeTargetMode = 0;
  // What cust_getSensorBinningRatio(sensorId, sensorMode) returns.
  int sensorBinningRatio = 1;
};

struct SimFrame {
  // flicker_calc_info, in record order (mVa points at stats.data()).
  std::vector<int64_t> stats;  // the statistics block, format above
  int32_t exposureTime = 0;    // microseconds
  int32_t twinType = 0;
  int32_t twinWinX = 0;
  int32_t twinWinY = 0;
  int32_t width = 0;  // before pixel-mode reduction
  int32_t height = 0;
  int32_t doFlkDetection = 0;
  int32_t aeDetectCycle = 0;
  int32_t statValid = 0;
  int32_t pixel_mode = 0;
  int32_t flkEnable = 0;
  int32_t needReinit = 0;
  int64_t sof_timestamp = 0;  // nanoseconds

  // Ground truth, for runners and tests; not part of the manager's input.
  int frameIndex = 0;
  double sofS = 0.0;       // start of readout, seconds
  double exposureS = 0.0;  // exact exposure, seconds
  double gain = 1.0;       // analog gain
  double lineTimeS = 0.0;  // seconds per statistics-image line
  int windowWidth = 0;     // win_w
  int windowHeight = 0;    // win_h
  int topOffset = 0;       // image line of statistics line 0
  int leftOffset = 0;      // reduced-width column of window 0
  double meanLevel = 0.0;  // mean pixel value / full scale
  int lightMainsHz = 0;    // mains of the dominant flicker (50, 60) or 0
  bool aeConverged = false;
  double bandingPeriodS = 0.0;  // period the AE keeps exposures on
};

}  // namespace flicker_sim
