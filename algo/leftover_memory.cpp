#include "leftover_memory.h"

#include <algorithm>

namespace open_algo {

void LeftoverMemory::clear() {
  memory_[0] = memory_[1] = Memory{};
  restartLooks();
}

void LeftoverMemory::restartLooks() {
  cleanLooks_ = 0;
  sighted_ = false;
  stepped_ = false;
  lastCreep_ = -1.0;
}

void LeftoverMemory::changed(int from, double leftover, double upper) {
  if (from >= 0 && from < kRipples) {
    memory_[from] = Memory{leftover > 0.0, std::max(leftover, upper), 0};
  }
  restartLooks();
}

void LeftoverMemory::observe(const Look& look) {
  for (Memory& m : memory_) {
    m.valid = m.valid && ++m.age < kLifetime;
  }
  // Only the looks before the ripple first showed count: under mixed light
  // it shows from the start, and a weak one under motion may miss a pair.
  if (sighted_) {
    return;
  }
  if (look.creep >= 0.0) {
    stepped_ = stepped_ || (lastCreep_ >= 0.0 &&
                            look.creep > kStepFactor * lastCreep_ + kStepErrors * lastCreepError_);
    lastCreep_ = look.creep;
    lastCreepError_ = look.creepError;
  }
  if (look.saw) {
    sighted_ = true;
    if (look.creep >= 0.0 && !stepped_) {
      cleanLooks_ = 0;  // it crept into view: it was there at the looks before
    }
    return;
  }
  cleanLooks_ += look.looked ? 1 : 0;
}

bool LeftoverMemory::wouldHelp(int target, double leftoverNow) const {
  const Memory& m = memory_[target];
  return !m.valid || cleanLooks_ >= kCleanLooks || m.upper < kMargin * leftoverNow;
}

}  // namespace open_algo
