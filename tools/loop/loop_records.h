// Records of one closed-loop run: what the runner saw per frame, per analysed
// pair, and the statistics of each sensor's last analysed pair and of the
// pair that decided the run.
//
// Plain data, filled by ClosedLoopRunner and read by the summary, the
// evaluation grid and the tools' printers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "iflicker_mgr.h"

namespace flicker_loop {

// One frame of one sensor after DoCalculation and GetResult.
struct FrameRow {
  int frame = 0;       // the sensor's frame index, from 0
  int sensor = 0;      // sensor index
  double timeMs = 0;   // readout start, from the first frame of the run
  int exposureUs = 0;  // exposure handed to DoCalculation
  double gain = 1.0;
  int calcResult = 0;            // DoCalculation's return value
  bool analysed = false;         // this frame completed a pair and the worker analysed it
  int truthHz = 0;               // mains of the dominant flicker at this frame, 0 = none
  FlickerResultRecord result{};  // GetResult after the frame
};

// One completed analysis (the worker finished the detection of a pair).
struct PairRow {
  int frame = 0;  // index of the frame that completed the pair
  int sensor = 0;
  double timeMs = 0;
  int exposureUs = 0;
  int stateHz = 0;  // process-wide state after the analysis: 50 or 60
  int score50 = 0;
  int score60 = 0;
  int rateActive = 0;  // flickerFrameRateActive
  int truthHz = 0;
  // Frame interval the manager handed the algorithm for this pair, computed
  // its way: |(sof - exposure) of the later - (sof - exposure) of the earlier|.
  int64_t intervalNs = 0;
  bool switched = false;   // the state after this analysis differs from the one before
  double gain = 1.0;       // analog gain of the later frame
  double meanLevel = 0.0;  // its mean pixel value as a fraction of full scale
};

// The statistics of a sensor's last analysed pair, as the simulator produced
// them (the earlier frame first), with the timing needed to read them.
struct PairStats {
  bool valid = false;
  int sensor = 0;
  int frame = 0;                 // the later frame's index
  std::vector<int64_t> earlier;  // 18 x win_h entries, line-major, 6 windows per line
  std::vector<int64_t> later;
  int windowWidth = 0;
  int windowHeight = 0;
  double lineTimeS = 0;
  double exposureS = 0;  // of the later frame
  double intervalS = 0;  // between the two frames' readout starts
  PairRow row;           // the analysis of the pair
};

struct LoopResult {
  bool ok = false;
  std::string error;             // one line when !ok
  std::vector<FrameRow> frames;  // in the order the runner drove them
  std::vector<PairRow> pairs;
  std::vector<PairStats> lastPair;  // per sensor
  // The pair that decided the run, whichever sensor analysed it: the one
  // after which the state last switched, or, without a switch, the one with
  // the highest score, and among equal scores the deepest fitted ripple
  // (RippleFit). Invalid without pairs.
  PairStats decidingPair;
  int sensors = 0;
  double frameIntervalMs = 0;  // nominal of sensor 0
};

}  // namespace flicker_loop
