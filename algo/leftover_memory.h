// What each state leaves of the light's ripple, remembered across changes.
//
// An exposure on whole periods of a state's ripple cancels that ripple and
// leaves the other mains' ripple as it is: under mixed light (lamps on both
// mains) each state shows the other lamp's banding, and has a reason to
// leave. The pairs of each state measure what that state leaves. When the
// state changes, the banding that caused the change is remembered as what the
// state just left leaves; a later return to it is allowed only when it would
// reduce the banding by a margin. Under mixed light the state so settles,
// after at most one return, on the state that leaves the weaker banding, and
// stays there while the light stays the same.
//
// A lamp that came on after the change looks the same from within the state
// (its own lamp is cancelled there). The difference is in time: under mixed
// light the other lamp's ripple shows from the first pair that can see it,
// while a new lamp's shows only after pairs that could see it and did not.
// Such clean looks between the change and the first sighting mean the light
// changed, and the memory is not used. A memory also expires after kLifetime detections, so a lamp
// that changed unseen (the applied state's own lamp going off) is found by a return at most that
// often.
//
// Threading: none of its own; its owner serialises access.
#pragma once

#include <cstdint>

#include "pair_evidence.h"

namespace open_algo {

class LeftoverMemory {
 public:
  // Detections a memory lasts: about a minute at 60 frames per second.
  static constexpr int kLifetime = 1200;
  // A return must leave at most this share of what the applied state leaves.
  static constexpr double kMargin = 1.0 / 1.5;
  // Clean looks at the other ripple that mean the light changed.
  static constexpr int kCleanLooks = 2;

  void clear();
  // The state changed away from ripple `from`; `leftover` is the banding it
  // left (the other ripple as its pairs showed it), 0 when unknown.
  void changed(int from, double leftover);
  // One detection: `looked`, the pair could see the ripple not applied;
  // `saw`, it voted for it.
  void observe(bool looked, bool saw);
  // False when ripple `target`, remembered under the same light, left more
  // than kMargin times `leftoverNow` (what the applied state leaves now).
  bool wouldHelp(int target, double leftoverNow) const;

 private:
  struct Memory {
    bool valid;
    double leftover;
    int age;
  };
  Memory memory_[kRipples] = {};
  int cleanLooks_ = 0;    // since the last change, before the first sighting
  bool sighted_ = false;  // the other ripple showed since the last change
};

}  // namespace open_algo
