// ClosedLoopRunner: drives sensors 0..N-1 of a simulated scenario through the
// real manager behind IFlickerMgr, closing the loop through the simulator's
// exposure model.
//
// Per run: the sensor binning goes into the host customisation property the
// manager reads (host.flicker.cust.sensor_binning), then per sensor Init,
// Config (waiting until the new worker is idle), Start, and the starting
// state is set the framework's way (one SetParam in the fixed 50 or 60 Hz
// mode). Per frame, in time order across the sensors: SetParam,
// DoCalculation (when it posted the worker, wait until the worker is idle
// again, so the analysis is finished and the run is deterministic),
// GetResult, and the result's flickerState and flickerFrameRateActive go back
// into the simulated sensor. Finally each sensor is left idle (one frame with
// detection off, one on without a request, so no half-collected pair carries
// into the next run of the process), then Stop and Uninit.
//
// The calling thread is named "3A thread" during the run (traces show it so);
// with the camera trace tag on, each frame's SetParam and DoCalculation form
// a section "frame <n> sensor <i>" (loop_trace.h).
//
// The program must be linked with the semaphore wrappers (see SemWatch and
// flicker_loop_program() in CMake). It also links a platform (the host
// platform) and an algorithm (flk_SendCmd) under the manager.
//
// Threading: run() is called from one thread at a time; the manager's state
// and the algorithm are process-wide, so runs never overlap.
#pragma once

#include <chrono>
#include <functional>

#include "loop_records.h"
#include "sim_scenario.h"

namespace flicker_loop {

struct LoopOptions {
  int frames = 0;            // per sensor; 0 takes the scenario's suggested length
  int startStateHz = 50;     // 50 or 60: state before the first frame; 0: leave as it is
  bool keepFrames = true;    // fill LoopResult::frames
  bool keepLastPair = true;  // fill LoopResult::lastPair and LoopResult::decidingPair
  std::chrono::milliseconds workerTimeout{20000};  // longest wait for one analysis
  // Called after every frame with the frames driven so far and the total
  // (all sensors); may be empty.
  std::function<void(int done, int total)> progress;
};

class ClosedLoopRunner {
 public:
  ClosedLoopRunner(const flicker_sim::SimScenario& scenario, const LoopOptions& options);

  // Runs the scenario once. A failure (no manager instance, a worker that
  // does not come back, sensors that disagree on binning) ends the run with
  // ok = false and a one-line reason; the manager is still stopped.
  LoopResult run();

 private:
  flicker_sim::SimScenario scenario_;
  LoopOptions options_;
};

}  // namespace flicker_loop
