// Cost of the detection step on one core: the open algorithm called through
// flk_SendCmd as the adapter calls it, on simulated statistics of a
// 4000 x 3000 sensor under 50 Hz fluorescent light, and a plain copy of its
// statistics block for scale.
//
// Runs after the grid (the algorithm is process-wide); initialises the
// algorithm with the given tuning and releases it afterwards.
#pragma once

#include "eval_report.h"
#include "flicker_algo_cmd.h"

namespace flicker_eval {

// Times `runs` detections (after a short warm-up); measured = false when the
// algorithm refuses the set-up.
DetectTiming timeDetection(const FlickerExtPara& tuning, int runs);

}  // namespace flicker_eval
