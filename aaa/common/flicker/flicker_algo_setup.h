// FlickerAlgoSetup: the values one algorithm set-up hands to the adapter,
// computed from the sensor's line timing, the statistics window of the frame
// and the product's sensor binning, with the debug overrides applied; and the
// check of the selected tuning record's sensor timing against them.
//
// The line time is pixelsInLine / pixelClk seconds: the line length is turned
// into pixel clocks per statistics line. Only its low 16 bits are line
// timing; statistics binning (2 or more sensor lines per statistics line)
// multiplies it, resizing scales it, and the sensor's own binning multiplies
// on top.
//
// Stateless: the owner keeps the timing (and calls carryOver) under its lock.
// The lines logged keep the names of the manager's steps they belong to.
#pragma once

#include <cstdint>

#include "cam_flicker_nvram.h"
#include "flicker_stat_buffers.h"

// The sensor's line timing as Config, LightWeightReConfig, SetParam and the
// frames leave it.
struct FlickerLineTiming {
  int32_t sensorMode = 0;
  int32_t hbinWidth = 0;  // statistics image: Config's size, then each frame's
  int32_t hbinHeight = 0;
  int32_t tgWidth = 0;  // sensor output
  int32_t tgHeight = 0;
  int64_t pixelClk = 0;       // pixels per second
  uint32_t pixelsInLine = 0;  // pixel clocks per line
};

class FlickerAlgoSetup {
 public:
  // The algorithm's log word from the debug properties: bit 0 logs
  // ("vendor.debug.flicker_algo.log.level" 1 or 2), bit 1 is verbose (2),
  // bits 2 and up are "vendor.debug.flicker.systrace" as it stands.
  static int32_t algoLogWord();
  // The frequency a set-up starts from: the product's default, replaced by a
  // known state `stateHz` (not 0), replaced by the debug property
  // "vendor.debug.flk_def_hz" (not 0).
  static int initialHz(int32_t stateHz);

  struct Values {
    int32_t ratio = 0;         // sensor lines per statistics line; picks the tuning column
    float resizeRatio = 1.0f;  // 1.0 when binning; scales the tuning's search range
    uint32_t lineLength = 0;   // pixel clocks per statistics line
    int64_t pixelClk = 0;
    FlickerStatWindow window;  // imgH the grab height; winW and winH as the algorithm gets them
  };

  // The values of a set-up; reads the debug properties "vendor.debug.flk_ratio",
  // "vendor.debug.flk_clk", "vendor.debug.flk_pixel", "vendor.debug.flk_w" and
  // "vendor.debug.flk_h", each with the computed value as its default.
  static Values compute(const FlickerLineTiming& timing, const FlickerStatWindow& window,
                        int sensorBinning);

  // What a set-up leaves in the stored timing: the clock as overridden and the
  // line length as handed to the algorithm, so that a re-initialisation
  // without a new Config scales the scaled length again (it compounds).
  static void carryOver(const Values& values, FlickerLineTiming* timing);

  // Compares the record's sensor timing with the live values and reports each
  // difference (the column length allows 20 lines of blanking). True when any
  // differs; the set-up goes on with the live values either way.
  static bool checkSensorSetting(const Values& values, const FLICKER_SENSOR_SETTING& setting);
};
