// RunSummary: what a closed-loop run came to, read from its records.
//
// The flicker state is process-wide, so the summary follows the state as the
// frames of all sensors saw it, in the order the runner drove them. "Locked"
// is the state at the end; the lock happened at the frame where the state
// last changed into it (or at the start when it never changed). "Expected"
// is the mains of the flicker at the last frame (0 when there is none); the
// run is right when it ends in that state, or, without flicker, when it
// never switched. After a light switch (the expected mains changes
// mid-run) the summary also says how long the lock took after the switch.
//
// Plain value; of() is a pure function of the records.
#pragma once

#include "loop_records.h"

namespace flicker_loop {

struct RunSummary {
  int frames = 0;
  int pairs = 0;
  int lockedHz = 0;     // state at the end: 50 or 60 (0 without frames)
  int lockFrame = 0;    // sensor frame index where the final state began
  double lockMs = 0;    // its time from the start of the run
  int pairsToLock = 0;  // analysed pairs up to and including the lock
  int switches = 0;     // changes of state during the run
  int expectedHz = 0;   // mains of the flicker at the end, 0 = none
  bool right = false;
  double durationMs = 0;
  // Light switch (the expected mains changed during the run); -1 when none.
  double changeMs = -1;
  double lockAfterChangeMs = -1;  // -1: not locked to the new mains after it
  int pairsAfterChange = -1;

  static RunSummary of(const LoopResult& result);
};

}  // namespace flicker_loop
