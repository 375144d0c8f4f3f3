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
// stays there while the light stays the same. A state whose exposure freezes
// the other ripple (120 Hz at 30 fps) sees it only as the mains drift creeps
// its phase against a reference frame, by an amount nothing here knows: what
// such a state leaves is known only as a lower bound. A return is judged by
// the most it can have left instead: what each frame's own fit showed at
// that frequency, texture included, plus two standard errors.
//
// A lamp that came on after the change looks the same from within the state
// (its own lamp is cancelled there). The difference is in time: under mixed
// light the other lamp's ripple shows from the first pair that can see it,
// while a new lamp's shows only after pairs that could see it and did not.
// Such clean looks between the change and the first sighting mean the light
// changed, and the memory is not used. A frozen ripple, though, is looked at
// against a reference frame as the mains drift creeps its phase, by an
// amount nothing here knows: a look that found nothing may only have come
// before the creep did. A lamp that comes on makes the difference with the
// reference jump by its whole ripple from one look to the next; a creep
// grows it by a little (an eighth from one detection to the next, eight or
// more detections after the reference). A frozen sighting that no look
// since the change reached by such a jump, more than kStepFactor times the
// look before plus kStepErrors of its standard errors, is the creep of a
// ripple that was there all along, and the looks before it were not clean.
// A memory also expires after kLifetime detections, so a lamp that changed
// unseen (the applied state's own lamp going off) is found by a return at
// most that often.
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
  // A frozen look that shows more than kStepFactor times the look before,
  // plus kStepErrors of that one's standard errors, saw the ripple come on.
  static constexpr double kStepFactor = 2.0;
  static constexpr double kStepErrors = 2.0;

  // One detection's look at the ripple not applied.
  struct Look {
    bool looked;  // the pair could see it
    bool saw;     // it voted for it
    // Against the reference frame (a frozen ripple): what the difference
    // showed of it and the standard error of that; amplitude negative when
    // the pair did not compare.
    double creep;
    double creepError;
  };

  void clear();
  // The state changed away from ripple `from`; `leftover` is the banding it
  // left (the other ripple as its pairs showed it), 0 when unknown, and
  // `upper` the most it can have been: `leftover` itself when measured, more
  // when only a lower bound was (a frozen ripple that crept an unknown
  // amount), infinite when nothing bounds it.
  void changed(int from, double leftover, double upper);
  // One detection's look at the ripple not applied.
  void observe(const Look& look);
  // False when ripple `target`, remembered under the same light, may have
  // left more than kMargin times `leftoverNow` (what the applied state leaves
  // now): its upper bound decides, since a lower bound cannot show that it
  // left less.
  bool wouldHelp(int target, double leftoverNow) const;

 private:
  // The looks at the other ripple start again (a change, a new stream).
  void restartLooks();
  struct Memory {
    bool valid;
    double upper;
    int age;
  };
  Memory memory_[kRipples] = {};
  int cleanLooks_ = 0;    // since the last change, before the first sighting
  bool sighted_ = false;  // the other ripple showed since the last change
  // The newest look against the reference before the first sighting
  // (amplitude negative when none), and whether one such look jumped.
  double lastCreep_ = -1.0;
  double lastCreepError_ = 0.0;
  bool stepped_ = false;
};

}  // namespace open_algo
