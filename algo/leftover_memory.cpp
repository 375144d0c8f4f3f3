#include "leftover_memory.h"

namespace open_algo {

void LeftoverMemory::clear() {
  memory_[0] = memory_[1] = Memory{};
  cleanLooks_ = 0;
  sighted_ = false;
}

void LeftoverMemory::changed(int from, double leftover) {
  if (from >= 0 && from < kRipples) {
    memory_[from] = Memory{leftover > 0.0, leftover, 0};
  }
  cleanLooks_ = 0;
  sighted_ = false;
}

void LeftoverMemory::observe(bool looked, bool saw) {
  for (Memory& m : memory_) {
    m.valid = m.valid && ++m.age < kLifetime;
  }
  // Only the looks before the ripple first showed count: under mixed light
  // it shows from the start, and a weak one under motion may miss a pair.
  sighted_ = sighted_ || saw;
  cleanLooks_ += looked && !sighted_ ? 1 : 0;
}

bool LeftoverMemory::wouldHelp(int target, double leftoverNow) const {
  const Memory& m = memory_[target];
  return !m.valid || cleanLooks_ >= kCleanLooks || m.leftover < kMargin * leftoverNow;
}

}  // namespace open_algo
