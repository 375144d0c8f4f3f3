#include "evidence_history.h"

#include <algorithm>
#include <cmath>

namespace open_algo {

void EvidenceHistory::setCapacity(int capacity) {
  capacity_ = std::clamp(capacity, 1, kMaxHistory);
  count_ = std::min(count_, capacity_);
}

void EvidenceHistory::push(const EvidenceEntry& entry) {
  ring_[next_] = entry;
  next_ = (next_ + 1) % kMaxHistory;
  count_ = std::min(count_ + 1, capacity_);
}

const EvidenceEntry& EvidenceHistory::at(int age) const {
  return ring_[(next_ - 1 - age + 2 * kMaxHistory) % kMaxHistory];
}

int EvidenceHistory::score(int ripple) const {
  if (count_ == 0) {
    return 0;
  }
  double sum = 0.0;
  for (int age = 0; age < count_; ++age) {
    sum += at(age).evidence[ripple];
  }
  return static_cast<int>(std::lround(100.0 * sum / count_));
}

int EvidenceHistory::trailingVotes(int code, bool temporalOnly) const {
  int n = 0;
  while (n < count_ && at(n).vote == code && (!temporalOnly || at(n).temporal)) {
    ++n;
  }
  return n;
}

}  // namespace open_algo
