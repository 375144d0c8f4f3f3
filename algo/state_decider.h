// Turns per-pair evidence into the algorithm's verdict, with memory.
//
// It knows the applied frequency (set by the state command, or adopted from
// the detection record), keeps the evidence history, and applies the
// hysteresis: a switch needs the newest minPastFrames pairs to back the other
// frequency from the frame difference, a history score of at least the switch
// score, and no hold-off; returning to the state just left, within three
// history lengths of the change, needs the switch-back margin on top.
// Evidence from one frame alone (frozen phase) may confirm the applied state
// but never switches it.
// A run of minPastFrames pairs whose deep difference is periodic with the
// other frequency's period switches without the score (the older entries may
// predate a change of light), except as a return within the switch-back
// window.
// Slow path: when the exposure cancels the applied ripple, its column is a
// probe of texture and motion; the newest pairs that consistently show the
// other ripple above that probe (ProbeComparison) switch even though no single
// pair reaches the vote level, with the same hold-off and mixed-light rules,
// never as a return within the switch-back window.
// Weak path: a shallow ripple that the newest pairs show steadily, with the
// applied ripple cancelled (WeakEvidence), switches under the same rules as
// the slow path.
//
// Mixed light (lamps on both mains): with whole-period exposures each state
// cancels its own ripple and shows the other lamp's, so each has a reason to
// leave. What each state leaves is remembered (LeftoverMemory): a return to a
// state is allowed only when it left clearly less banding under the same
// light than the applied state leaves now.
//
// Under exposures too short to cancel either lamp both states leave the same
// banding. A state whose own ripple showed alone (the other ripple standing
// still in the pair) within the last pairs, with no clean look at it since,
// has its lamp on: it does not leave on the other lamp's evidence, which
// there only says that both lamps are on.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <cstdint>

#include "algo_tuning.h"
#include "evidence_history.h"
#include "leftover_memory.h"
#include "ripple_analyzer.h"
#include "weak_evidence.h"

namespace open_algo {

struct Decision {
  int32_t state;  // frequency code: 0 = 50 Hz, 1 = 60 Hz, 2 = neither
  int32_t score50;
  int32_t score60;
};

class StateDecider {
 public:
  void configure(const AlgoKnobs& knobs);
  void clearHistory();
  // Back to no applied frequency, with no hold-off or switch-back pending.
  void forget();
  // The applied frequency is now `code`; a change between 50 and 60 Hz starts
  // the hold-off and the switch-back window.
  void setApplied(int32_t code);
  // The history restarts with `code` applied.
  void resetTo(int32_t code);

  // Summary of one pair as it enters the history.
  EvidenceEntry entryFor(const PairEvidence& evidence) const;
  // Records `entry` and returns the verdict.
  Decision decide(const EvidenceEntry& entry);

  int32_t applied() const { return applied_; }
  int holdOffLeft() const { return holdOffLeft_; }
  int historySize() const { return history_.size(); }

 private:
  // The pair measured ripple `f` too imprecisely to show the banding of the
  // newest run of votes for it.
  bool blurred(const PairEvidence& ev, int f) const;
  // Amplitude of the other ripple that a temporal vote for `f` must dominate.
  static double rival(const PairEvidence& ev, const double* amplitude, int f);
  // The rival of a temporal vote for `f` in a pair whose two columns are
  // entangled, bounded by what a recent pair showed of it alone.
  double entangledRival(const PairEvidence& ev, const double* amplitude, int f) const;
  // The most ripple `f` can be by the pair's difference when the other
  // ripple stood still in it and `f` did not show (SNR under
  // `snrThreshold`); negative otherwise.
  static double aloneUpTo(const PairEvidence& ev, int f, double snrThreshold);
  // What the pair's difference showed of ripple `f` while the other stood
  // still (EvidenceEntry::alone).
  static int8_t aloneLook(const PairEvidence& ev, int f, double snrThreshold);
  // The applied state's own lamp showed alone recently and no look since
  // found it gone.
  bool ownLampShowing() const;
  // One detection's look at the applied ripple (EvidenceEntry::alone).
  void ageOwnLook(int8_t look);
  // The pair's sample for the slow path.
  ProbeSample probeSample(const PairEvidence& ev) const;
  // `slow`: the probe comparison backs `code`; `banding`: what the applied
  // state leaves of `code`'s ripple, by the votes or the probe comparison.
  bool maySwitchTo(int32_t code, bool holdOff, bool slow, double banding) const;
  // A run of votes for `code` (at least minPastFrames), not of period votes,
  // switches when the score is there.
  bool votesSwitchTo(int32_t code, bool switchBack) const;
  // The most ripple `f` can be in the pair's frames: each frame's own fit at
  // its frequency plus kUpperErrors standard errors (infinite without a fit).
  static double frameBandsUpTo(const PairEvidence& ev, int f);

  AlgoKnobs knobs_ = AlgoTuning::defaults();
  EvidenceHistory history_;
  ProbeComparison probes_;
  WeakEvidence weak_;
  int32_t applied_ = 2;   // FLK_FREQ_NONE until known
  int32_t previous_ = 2;  // state before the last change
  int holdOffLeft_ = 0;
  int switchBackLeft_ = 0;
  // Banding of the ripple that backed the last verdict per frequency (0 when
  // none did).
  double verdictBanding_[kRipples] = {};
  // The exposure cancelled the applied ripple when that verdict was made.
  bool verdictCancelled_[kRipples] = {};
  // The verdict rested on a frozen ripple's creep: its banding is a lower bound.
  bool verdictCrept_[kRipples] = {};
  // Then the most that ripple's banding can have been.
  double verdictUpper_[kRipples] = {};
  LeftoverMemory leftovers_;
  // Pairs since the applied ripple last showed alone; kNeverSeen when it has
  // not since the state was applied, or a clean look followed.
  static constexpr int kNeverSeen = 1 << 20;
  int ownAloneAge_ = kNeverSeen;
};

}  // namespace open_algo
