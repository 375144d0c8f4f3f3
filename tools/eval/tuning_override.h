// The tuning the bench runs with: a TuningChoice, optionally with words of
// the algorithm part overridden (--set), written as a temporary NVRAM image
// with the changed record in every row and column. The image is removed when
// the process ends.
//
// Call once, before the first run (the manager loads its table at its first
// Init). Not thread-safe.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "flicker_algo_cmd.h"

namespace flicker_eval {

// Applies `choice` and the overrides; `algoPart` receives the algorithm
// record in use. False with a one-line reason.
bool applyTuning(const std::string& choice, const std::vector<std::pair<int, int>>& words,
                 FlickerExtPara* algoPart, std::string* error);

}  // namespace flicker_eval
