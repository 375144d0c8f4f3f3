// Bounded history of per-pair evidence, newest first, and the scores derived
// from it.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <array>
#include <cstdint>

#include "algo_tuning.h"
#include "ripple_analyzer.h"

namespace open_algo {

struct EvidenceEntry {
  float evidence[kRipples];  // 0..1 per ripple (index 0 = 50 Hz mains, 1 = 60 Hz)
  int8_t vote;               // frequency code the pair backs; FLK_FREQ_NONE for none
  bool temporal;             // the vote rests on the frame difference, not on one frame
};

class EvidenceHistory {
 public:
  // Keeps at most `capacity` (1..kMaxHistory) entries, dropping the oldest.
  void setCapacity(int capacity);
  void clear() { count_ = 0; }
  void push(const EvidenceEntry& entry);

  int size() const { return count_; }
  // Mean evidence of `ripple` over the kept entries, 0..100; 0 when empty.
  int score(int ripple) const;
  // Number of newest consecutive entries voting `code` (temporal votes only
  // when `temporalOnly`).
  int trailingVotes(int code, bool temporalOnly) const;
  // Newest entry; only valid when size() > 0.
  const EvidenceEntry& newest() const { return at(0); }

 private:
  const EvidenceEntry& at(int age) const;

  std::array<EvidenceEntry, kMaxHistory> ring_{};
  int next_ = 0;  // slot of the next push
  int count_ = 0;
  int capacity_ = kMaxHistory;
};

}  // namespace open_algo
