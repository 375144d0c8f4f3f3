// Bounded history of per-pair evidence, newest first, and the scores derived
// from it.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <array>
#include <cstdint>

#include "algo_tuning.h"
#include "probe_comparison.h"
#include "ripple_analyzer.h"
#include "weak_evidence.h"

namespace open_algo {

constexpr int8_t kAloneNone = -1;
constexpr int8_t kAloneClean = 0;
constexpr int8_t kAloneShown = 1;

struct EvidenceEntry {
  float evidence[kRipples];   // 0..1 per ripple (index 0 = 50 Hz mains, 1 = 60 Hz)
  float amplitude[kRipples];  // banding the pair shows per ripple, log units
  int8_t vote;                // frequency code the pair backs; FLK_FREQ_NONE for none
  bool temporal;              // the vote rests on the frame difference, not on one frame
  bool periodic;              // the vote rests on the period test of a deep difference
  // The pair could show the ripple in its frame difference (analysable, phase
  // not frozen). A pair that could not, and backs nothing, abstains for that
  // ripple: it neither breaks a run of votes for it nor dilutes its score.
  bool seen[kRipples];
  // The pair's difference measured the ripple not applied too imprecisely
  // to show the banding of the newest run of votes for it (under three of
  // its standard errors), while the exposure cancelled the applied ripple:
  // it neither breaks that run nor dilutes the score.
  bool blurred[kRipples];
  // The pair measured the ripples in its difference: analysable, no scene
  // change. `amplitude` of a seen ripple is then a measurement.
  bool measured;
  // The pair could have shown the ripple, in its difference or against a
  // reference frame old enough for a frozen ripple's phase to have crept.
  bool looked[kRipples];
  // Such a look against the reference frame: what the difference showed of
  // the frozen ripple and its standard error (negative when none).
  float creep[kRipples];
  float creepError[kRipples];
  // The exposure cancelled the ripple.
  bool cancelled[kRipples];
  // Both ripples were fitted over a readout too short to keep them apart.
  bool entangled;
  // The period test of a deep difference ran on the pair.
  bool periodTested;
  // The vote rests on a frozen ripple's creep against the reference frame:
  // the phase crept an unknown amount, so its amplitude is a lower bound.
  bool crept;
  // Then the most its banding can be: each frame's own fit at its frequency
  // (texture included) plus two standard errors; infinite when unknown.
  float creptUpper;
  // The most the ripple can be, measured while the other ripple could not
  // reach the difference (frozen or cancelled): its column then held no leak
  // of the other lamp. Negative when the pair gave no such look.
  float aloneUpTo[kRipples];
  // What the pair's difference showed of the ripple while the other ripple
  // stood still in it (a whole number of its periods between the frames, so
  // neither it nor any harmonic reached the difference): kAloneShown when it
  // showed, kAloneClean when its column held nothing above the noise or the
  // difference repeated with the still ripple's period alone, kAloneNone
  // when the pair gave no such look or could not tell.
  int8_t alone[kRipples];
  // The ripple not applied against the cancelled probe, for the slow path.
  ProbeSample probe;
  // The ripple not applied as a weak lamp would show it, for the weak path.
  WeakSample weak;
};

class EvidenceHistory {
 public:
  // Keeps at most `capacity` (1..kMaxHistory) entries, dropping the oldest.
  void setCapacity(int capacity);
  void clear() { count_ = 0; }
  void push(const EvidenceEntry& entry);

  int size() const { return count_; }
  // Mean evidence of `ripple` over the kept entries that did not abstain for
  // it, 0..100; 0 when there are none.
  int score(int ripple) const;
  // Number of newest consecutive entries voting `code` (temporal votes only
  // when `temporalOnly`), passing over entries that abstained for it.
  int trailingVotes(int code, bool temporalOnly) const;
  // Number of newest consecutive entries whose period test names `code`,
  // passing over entries that abstained for it and entries that showed it
  // clearly without voting.
  int trailingPeriodVotes(int code) const;
  // Mean banding of `code` over the newest run of temporal votes for it.
  double runBanding(int code) const;
  // Amplitude of `ripple` measured by the newest of the last `ages` entries
  // that could see it in its difference; false when none could.
  bool recentAmplitude(int ripple, int ages, double* amplitude) const;
  // The bound `aloneUpTo` of `ripple` from the newest of the last `ages`
  // entries that gave one; false when none did.
  bool recentAloneBound(int ripple, int ages, double* upTo) const;
  // Newest entry; only valid when size() > 0.
  const EvidenceEntry& newest() const { return at(0); }

 private:
  const EvidenceEntry& at(int age) const;
  // True when the entry says nothing about ripple `ripple`.
  static bool abstains(const EvidenceEntry& e, int ripple);
  // True when a run of temporal votes for `code` continues past the entry.
  static bool passesOver(const EvidenceEntry& e, int code);
  // True when the entry measured `code` clearly in its difference but voted
  // for nothing: a run of period votes for `code` continues past it.
  static bool alsoShows(const EvidenceEntry& e, int code);
  // Evidence (0..1) with which such an entry shows the ripple: the vote level.
  static constexpr float kShownEvidence = 0.5f;

  std::array<EvidenceEntry, kMaxHistory> ring_{};
  int next_ = 0;  // slot of the next push
  int count_ = 0;
  int capacity_ = kMaxHistory;
};

}  // namespace open_algo
