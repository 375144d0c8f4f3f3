// The simulator's records copied field by field into the records the manager
// really takes, so geometry and timing reach it only through its interface.
// Header-only: benchmarks use it without linking the closed-loop runner.
#pragma once

#include <cstdint>

#include "iflicker_mgr.h"
#include "sim_frame.h"

namespace flicker_loop {

inline flicker_config_info toConfigInfo(const flicker_sim::SimConfig& c) {
  flicker_config_info info{};
  info.SensorMode = c.sensorMode;
  info.HBIN_INFO.w = c.hbinWidth;
  info.HBIN_INFO.h = c.hbinHeight;
  info.TG_SIZE.w = c.tgWidth;
  info.TG_SIZE.h = c.tgHeight;
  info.PixelClk = c.pixelClk;
  info.PixelsInLine = c.pixelsInLine;
  return info;
}

inline flicker_input_info toInputInfo(const flicker_sim::SimConfig& c) {
  flicker_input_info info{};
  info.sensorType = c.sensorType;
  info.flickerMode = c.flickerMode;
  info.sensorMode = c.sensorMode;
  info.tgWidth = c.tgWidth;
  info.tgHeight = c.tgHeight;
  info.isMaster = c.isMaster;
  info.aeTargetMode = c.aeTargetMode;
  return info;
}

// The statistics block stays the frame's: valid while `f` lives unchanged.
inline flicker_calc_info toCalcInfo(const flicker_sim::SimFrame& f) {
  flicker_calc_info info{};
  info.mVa = reinterpret_cast<const uint8_t*>(f.stats.data());
  info.exposureTime = f.exposureTime;
  info.twinType = f.twinType;
  info.twinWinX = f.twinWinX;
  info.twinWinY = f.twinWinY;
  info.width = f.width;
  info.height = f.height;
  info.doFlkDetection = f.doFlkDetection;
  info.aeDetectCycle = f.aeDetectCycle;
  info.statValid = f.statValid;
  info.pixel_mode = f.pixel_mode;
  info.flkEnable = f.flkEnable;
  info.needReinit = f.needReinit;
  info.sof_timestamp = f.sof_timestamp;
  return info;
}

}  // namespace flicker_loop
