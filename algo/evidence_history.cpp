#include "evidence_history.h"

#include <algorithm>
#include <cmath>

#include "flicker_algo_cmd.h"

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

bool EvidenceHistory::abstains(const EvidenceEntry& e, int ripple) {
  return (!e.seen[ripple] || e.blurred[ripple]) && e.vote != ripple &&
         (e.evidence[ripple] <= 0.0f || e.blurred[ripple]);
}

bool EvidenceHistory::passesOver(const EvidenceEntry& e, int code) {
  // A pair that could not see the ripple in its difference, or measured it
  // too imprecisely to show the run's banding, breaks no run for it, whether
  // it backed nothing or backed it from one frame only.
  return code >= 0 && code < kRipples && (!e.seen[code] || e.blurred[code]) &&
         (e.vote == FLK_FREQ_NONE || e.vote == code);
}

int EvidenceHistory::score(int ripple) const {
  double sum = 0.0;
  int n = 0;
  for (int age = 0; age < count_; ++age) {
    const EvidenceEntry& e = at(age);
    if (!abstains(e, ripple)) {
      sum += e.evidence[ripple];
      ++n;
    }
  }
  return n > 0 ? static_cast<int>(std::lround(100.0 * sum / n)) : 0;
}

int EvidenceHistory::trailingVotes(int code, bool temporalOnly) const {
  int n = 0;
  for (int age = 0; age < count_; ++age) {
    const EvidenceEntry& e = at(age);
    if (e.vote == code && (!temporalOnly || e.temporal)) {
      ++n;
    } else if (!passesOver(e, code)) {
      break;
    }
  }
  return n;
}

int EvidenceHistory::trailingPeriodVotes(int code) const {
  int n = 0;
  for (int age = 0; age < count_; ++age) {
    const EvidenceEntry& e = at(age);
    if (e.vote == code && e.periodic) {
      ++n;
    } else if (!passesOver(e, code) && !alsoShows(e, code)) {
      break;
    }
  }
  return n;
}

bool EvidenceHistory::alsoShows(const EvidenceEntry& e, int code) {
  // A period vote names the lamp whatever its columns show. Over a readout
  // too short to keep two moving ripples apart (about one 100 Hz period) a
  // deep ripple fills both columns, and the dominance a vote needs is out of
  // reach; where the readout also leaves the period test out (it needs a
  // period and a little more of each ripple that can be in the difference),
  // the pair cannot name the lamp either. Such a pair that measured the
  // named ripple clearly, backed nothing else and saw no scene change agrees
  // with the lamp: it does not break the run. A pair whose deep difference
  // was period-tested and matched neither period (two lamps) does.
  return code >= 0 && code < kRipples && e.measured && e.entangled && !e.periodTested &&
         e.seen[code] && e.vote == FLK_FREQ_NONE && e.evidence[code] >= kShownEvidence;
}

double EvidenceHistory::runBanding(int code) const {
  double sum = 0.0;
  int n = 0;
  for (int age = 0; age < count_; ++age) {
    const EvidenceEntry& e = at(age);
    if (e.vote == code && e.temporal) {
      sum += e.amplitude[code];
      ++n;
    } else if (!passesOver(e, code)) {
      break;
    }
  }
  return n > 0 ? sum / n : 0.0;
}

bool EvidenceHistory::recentAmplitude(int ripple, int ages, double* amplitude) const {
  for (int age = 0; age < std::min(ages, count_); ++age) {
    const EvidenceEntry& e = at(age);
    if (e.measured && e.seen[ripple]) {
      *amplitude = e.amplitude[ripple];
      return true;
    }
  }
  return false;
}

bool EvidenceHistory::recentAloneBound(int ripple, int ages, double* upTo) const {
  for (int age = 0; age < std::min(ages, count_); ++age) {
    const EvidenceEntry& e = at(age);
    if (e.aloneUpTo[ripple] >= 0.0f) {
      *upTo = e.aloneUpTo[ripple];
      return true;
    }
  }
  return false;
}

}  // namespace open_algo
