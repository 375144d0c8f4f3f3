#include "state_decider.h"

#include <algorithm>
#include <limits>

#include "flicker_algo_cmd.h"

namespace open_algo {
namespace {

// Standard errors above a frame's own ripple fit that bound what the ripple
// can be.
constexpr double kUpperErrors = 2.0;
// Evidence (0..1) a pair needs to vote.
constexpr double kVoteEvidence = 0.5;
// A reference frame this many detections old has let a frozen ripple's phase
// creep enough to show (a tenth of a cycle at 0.06 cycles a second and ten
// detections a second gives a third of its bands).
constexpr int kMinLookAge = 8;
// A frozen ripple's stand-in may come from a difference measured this many
// pairs back.
constexpr int kRecentPairs = 2;
// Evidence of a single frame for the frequency not applied counts half in the
// scores: it is as likely scene texture as banding.
constexpr double kForeignSpatialWeight = 0.5;
// The switch-back window lasts this many history lengths after a change.
constexpr int kSwitchBackHistories = 3;
// The probe (a cancelled ripple's column) calibrates the other ripple only
// while it shows no structure of its own: a grating or strong texture near
// the band periods makes it significant, and leaks into the other column.
constexpr double kQuietProbeSnr = 3.0;
// A state's own ripple seen alone this many pairs back still holds it: with
// free timing the intervals that stand the other ripple still come every few
// pairs.
constexpr int kOwnAlonePairs = 12;

bool isFrequency(int32_t code) {
  return code == FLK_FREQ_50HZ || code == FLK_FREQ_60HZ;
}

}  // namespace

void StateDecider::configure(const AlgoKnobs& knobs) {
  knobs_ = knobs;
  history_.setCapacity(knobs.maxPastFrames);
  holdOffLeft_ = std::min(holdOffLeft_, knobs.holdOff);
}

void StateDecider::clearHistory() {
  history_.clear();
  probes_.clear();
  weak_.clear();
  holdOffLeft_ = 0;
  switchBackLeft_ = 0;
  leftovers_.clear();
  ownAloneAge_ = kNeverSeen;
}

void StateDecider::forget() {
  clearHistory();
  applied_ = FLK_FREQ_NONE;
  previous_ = FLK_FREQ_NONE;
}

void StateDecider::setApplied(int32_t code) {
  if (code == applied_) {
    return;
  }
  if (isFrequency(applied_) && isFrequency(code)) {
    previous_ = applied_;
    holdOffLeft_ = knobs_.holdOff;
    switchBackLeft_ = kSwitchBackHistories * knobs_.maxPastFrames;
    // The banding that made this algorithm leave is what the state left
    // leaves, when its exposure cancelled its own ripple (otherwise either
    // state shows both lamps alike); a change from outside says nothing.
    leftovers_.changed(applied_, verdictCancelled_[code] ? verdictBanding_[code] : 0.0,
                       verdictCrept_[code] ? verdictUpper_[code] : 0.0);
  }
  verdictBanding_[0] = verdictBanding_[1] = 0.0;
  verdictCancelled_[0] = verdictCancelled_[1] = false;
  verdictCrept_[0] = verdictCrept_[1] = false;
  verdictUpper_[0] = verdictUpper_[1] = 0.0;
  ownAloneAge_ = kNeverSeen;
  applied_ = code;
  probes_.clear();
  weak_.clear();
}

void StateDecider::resetTo(int32_t code) {
  history_.clear();
  probes_.clear();
  weak_.clear();
  setApplied(code);
}

ProbeSample StateDecider::probeSample(const PairEvidence& ev) const {
  ProbeSample s{};
  // Without the probe's column in the difference's fit there is nothing to
  // compare against.
  if (!isFrequency(applied_) || !ev.analysable || ev.sceneChange || !ev.differenceFitted ||
      ev.periodRipple >= 0 || ev.loneExplained >= 0.0) {
    return s;
  }
  const int probe = applied_;
  const int other = 1 - probe;
  // Only a 100 Hz probe: scene motion shows more at the longer band period,
  // so a pan over natural texture lifts the 100 Hz column above a 120 Hz
  // probe pair after pair (a held 60 Hz scene left its right state so), while
  // against a 100 Hz probe it can only hide a 120 Hz ripple.
  if (probe != FLK_FREQ_50HZ || !ev.cancelled[probe] || ev.cancelled[other] || ev.frozen[other] ||
      ev.temporal[probe].snr >= kQuietProbeSnr || ev.visibility[other] <= 0.0) {
    return s;
  }
  s.valid = true;
  s.ripple = static_cast<int8_t>(other);
  s.snr = static_cast<float>(ev.temporal[other].snr);
  s.probeSnr = static_cast<float>(ev.temporal[probe].snr);
  s.amplitude = static_cast<float>(ev.temporalAmplitude[other]);
  // As the difference shows it, scaled like the other ripple (see rival()).
  s.probeRipple = static_cast<float>(0.5 * ev.temporal[probe].phasor / ev.visibility[other]);
  return s;
}

EvidenceEntry StateDecider::entryFor(const PairEvidence& ev) const {
  EvidenceEntry e{};
  e.vote = FLK_FREQ_NONE;
  e.aloneUpTo[0] = e.aloneUpTo[1] = -1.0f;
  e.creep[0] = e.creep[1] = -1.0f;
  e.cancelled[0] = ev.cancelled[0];
  e.cancelled[1] = ev.cancelled[1];
  e.probe = probeSample(ev);
  for (int f = 0; f < kRipples; ++f) {
    e.alone[f] = aloneLook(ev, f, knobs_.snrThreshold);
  }
  if (!ev.analysable || ev.sceneChange) {
    // A cut or unusable pair backs nothing; a cut still counts against a run
    // of votes (it saw the frames change), an unusable pair abstains.
    e.weak = WeakEvidence::sampleOf(ev, applied_, 0.0, knobs_);
    e.seen[0] = e.seen[1] = ev.analysable;
    return e;
  }
  e.measured = true;
  e.entangled = ev.entangled;
  e.periodTested = ev.periodTested;
  if (ev.periodRipple >= 0) {
    // A deep ripple whose period alone explains the difference. It speaks
    // against the other ripple even when that one's phase is frozen: a frozen
    // lamp leaves the difference flat, or periodic with its own period.
    const int f = ev.periodRipple;
    e.seen[f] = true;
    e.seen[1 - f] = true;
    e.evidence[f] = 1.0f;
    e.amplitude[f] = static_cast<float>(std::max(ev.temporalAmplitude[f], ev.frozenStandIn[f]));
    e.vote = static_cast<int8_t>(f);
    e.temporal = true;
    e.periodic = true;
    return e;
  }
  for (int f = 0; f < kRipples; ++f) {
    // Without a fitted difference the pair could not show either ripple.
    e.seen[f] = !ev.frozen[f] && ev.differenceFitted;
    // Against the reference a frozen ripple shows only as it creeps; the
    // leftover memory tells a look before the creep grew from a clean one.
    const bool crept = ev.longTested && ev.longAge >= kMinLookAge && ev.frozen[f];
    e.looked[f] = !ev.cancelled[f] && (e.seen[f] || crept);
    if (e.looked[f] && crept) {
      const RippleSummary& r = ev.longRipple[f];
      e.creep[f] = static_cast<float>(r.amplitude);
      e.creepError[f] = r.snr > 0.0 ? static_cast<float>(r.amplitude / r.snr)
                                    : std::numeric_limits<float>::infinity();
    }
  }
  double amplitude[kRipples];
  for (int f = 0; f < kRipples; ++f) {
    const double spatialWeight = f == applied_ ? 1.0 : kForeignSpatialWeight;
    // A cancelled ripple cannot be in either frame: what its columns show is
    // texture and motion.
    e.evidence[f] = ev.cancelled[f]
                        ? 0.0f
                        : static_cast<float>(std::max(ev.temporalEvidence[f],
                                                      spatialWeight * ev.spatialEvidence[f]));
    // A frozen frequency has no temporal amplitude: its single-frame ripple
    // stands in (scene texture can only make it larger, which is cautious),
    // unless a pair just before measured it smaller in its difference: texture
    // sits still in a frame as a frozen ripple does, a lamp does not change
    // from one pair to the next.
    amplitude[f] = ev.temporalAmplitude[f];
    double recent = 0.0;
    if (ev.frozen[f]) {
      amplitude[f] = ev.frozenStandIn[f];
      if (history_.recentAmplitude(f, kRecentPairs, &recent)) {
        amplitude[f] = std::min(amplitude[f], recent);
      }
    }
    e.amplitude[f] = static_cast<float>(amplitude[f]);
  }
  for (int f = 0; f < kRipples; ++f) {
    e.aloneUpTo[f] = static_cast<float>(aloneUpTo(ev, f, knobs_.snrThreshold));
  }
  if (isFrequency(applied_)) {
    e.weak = WeakEvidence::sampleOf(ev, applied_, rival(ev, amplitude, 1 - applied_), knobs_);
  }
  if (isFrequency(applied_) && ev.cancelled[applied_]) {
    // Only while the exposure cancels the applied ripple, as for the weak
    // path: what the pairs show can then only be the other lamp. Under an
    // exposure that cancels neither, both lamps of mixed light show in both
    // columns, and passing over imprecise pairs let their votes take turns
    // more often.
    const int other = 1 - applied_;
    e.blurred[other] = e.seen[other] && blurred(ev, other);
  }
  for (int f = 0; f < kRipples; ++f) {
    if (ev.temporalEvidence[f] >= kVoteEvidence &&
        amplitude[f] >= knobs_.dominance * entangledRival(ev, amplitude, f)) {
      e.vote = static_cast<int8_t>(f);
      e.temporal = true;
      return e;
    }
  }
  for (int f = 0; f < kRipples && ev.longTested; ++f) {
    // A frozen ripple against the reference frame, the other cancelled: its
    // column of that difference holds only texture and motion.
    e.evidence[f] = std::max(e.evidence[f], static_cast<float>(ev.longEvidence[f]));
    if (ev.longEvidence[f] >= kVoteEvidence &&
        ev.longRipple[f].phasor >= knobs_.dominance * ev.longRipple[1 - f].phasor) {
      // At least half of what that difference shows (the phase crept an
      // unknown amount): a lower bound. The frames' own fits hold texture
      // and could only make it larger; under mixed light a weak creep so
      // outweighed what the other state was remembered to leave.
      e.amplitude[f] = static_cast<float>(ev.longRipple[f].amplitude);
      e.vote = static_cast<int8_t>(f);
      e.temporal = true;
      e.crept = true;
      e.creptUpper = static_cast<float>(frameBandsUpTo(ev, f));
      return e;
    }
  }
  for (int f = 0; f < kRipples; ++f) {
    const int other = 1 - f;
    if (ev.spatialEvidence[f] >= kVoteEvidence &&
        ev.spatialAmplitude[f] >= knobs_.dominance * ev.spatialAmplitude[other]) {
      e.vote = static_cast<int8_t>(f);
      return e;
    }
  }
  return e;
}

bool StateDecider::blurred(const PairEvidence& ev, int f) const {
  // A weak lamp under hand shake: every other pair may carry a line of
  // motion whose residual lifts the standard error to the banding itself.
  // Such a pair neither shows nor misses the ripple the votes around it found.
  const double banding = history_.runBanding(f);
  const RippleSummary& t = ev.temporal[f];
  if (!(banding > 0.0) || !(t.snr > 0.0)) {
    return false;
  }
  const double error = ev.temporalAmplitude[f] / t.snr;
  return error > 0.0 && !WeakEvidence::couldShow(banding, error);
}

double StateDecider::rival(const PairEvidence& ev, const double* amplitude, int f) {
  const int other = 1 - f;
  if (ev.visibility[f] <= 0.0) {
    return amplitude[other];
  }
  if (!ev.cancelled[other]) {
    // Entangled ripples: a frozen one still leaves a little in the
    // difference, and over such a readout its column passes it on to the
    // other's. What the difference shows of it counts as well.
    const double shown = ev.entangled ? 0.5 * ev.temporal[other].phasor / ev.visibility[f] : 0.0;
    return std::max(amplitude[other], shown);
  }
  // The exposure leaves no ripple of the other frequency, frozen or not: its
  // column holds texture and motion, which enter the difference alike at
  // both frequencies (and nothing at all when it was not fitted). Compare
  // what the difference shows, not the frame ripples behind it (the lower
  // visibility would otherwise inflate the one that votes).
  return 0.5 * ev.temporal[other].phasor / ev.visibility[f];
}

double StateDecider::aloneUpTo(const PairEvidence& ev, int f, double snrThreshold) {
  const int other = 1 - f;
  // Only a look that found no such light bounds it: where the ripple shows,
  // its lamp is on (mixed light), and what it is comes from its own votes.
  if (ev.cancelled[f] || ev.frozen[f] || !ev.differenceFitted || !ev.still[other] ||
      !(ev.temporal[f].snr > 0.0) ||
      std::max(ev.temporal[f].snr, ev.temporal[other].snr) >= snrThreshold) {
    return -1.0;
  }
  // The still ripple shows nothing in the difference, but over such a
  // readout its column takes a share of the moving one's: what both columns
  // show, each with its errors, is the most the moving ripple can be.
  double shown = 0.0;
  for (const RippleSummary& r : ev.temporal) {
    shown += r.snr > 0.0 ? r.phasor * (1.0 + kUpperErrors / r.snr) : r.phasor;
  }
  return 0.5 * shown / ev.visibility[f];
}

int8_t StateDecider::aloneLook(const PairEvidence& ev, int f, double snrThreshold) {
  const int other = 1 - f;
  // With the other ripple standing still, nothing of its lamp is in the
  // difference: whatever shows at either frequency is this lamp's (over an
  // entangled readout it fills both columns) or motion, which a scene change
  // or the windows' disagreement tells.
  if (!ev.analysable || ev.sceneChange || !ev.differenceFitted || !ev.still[other] ||
      ev.cancelled[f] || ev.frozen[f]) {
    return kAloneNone;
  }
  // A difference periodic with the still ripple's period alone is that lamp
  // under a changed exposure: this one did not show. So is a difference
  // whose column of this ripple holds nothing above the noise (the still
  // one's may hold that lamp's pattern under a changed exposure).
  if (ev.periodRipple == other || ev.temporal[f].snr < snrThreshold) {
    return kAloneClean;
  }
  // Over a readout of about one period the still lamp's pattern fills this
  // ripple's column too: it shows only where it outweighs the still column.
  if (ev.periodRipple == f || (ev.temporalEvidence[f] >= kVoteEvidence &&
                               (!ev.entangled || ev.temporal[f].snr >= ev.temporal[other].snr))) {
    return kAloneShown;
  }
  return kAloneNone;
}

void StateDecider::ageOwnLook(int8_t look) {
  if (look == kAloneShown) {
    ownAloneAge_ = 0;
  } else if (look == kAloneClean) {
    ownAloneAge_ = kNeverSeen;  // the lamp is gone, or too weak to hold anything
  } else {
    ownAloneAge_ = std::min(ownAloneAge_ + 1, kNeverSeen);
  }
}

bool StateDecider::ownLampShowing() const {
  return ownAloneAge_ < kOwnAlonePairs;
}

double StateDecider::entangledRival(const PairEvidence& ev, const double* amplitude, int f) const {
  const int other = 1 - f;
  const double plain = rival(ev, amplitude, f);
  double alone = 0.0;
  // Over a readout of about one period the two ripples' columns are nearly
  // parallel, and a strong ripple of one lamp fills the other's column as
  // well. A pair just before, in which this ripple stood still and the other
  // moved, showed the other without that leak; a lamp does not change from
  // one pair to the next, so the other can be no more than it showed there.
  if (!ev.entangled || ev.cancelled[other] || ev.frozen[other] ||
      !history_.recentAloneBound(other, kRecentPairs, &alone)) {
    return plain;
  }
  return std::min(plain, alone);
}

double StateDecider::frameBandsUpTo(const PairEvidence& ev, int f) {
  double most = 0.0;
  for (int k = 0; k < 2; ++k) {
    const RippleSummary& s = ev.spatial[k][f];
    if (s.windows == 0 || !(s.snr > 0.0)) {
      return std::numeric_limits<double>::infinity();
    }
    most = std::max(most, s.amplitude * (1.0 + kUpperErrors / s.snr));
  }
  return most;
}

bool StateDecider::maySwitchTo(int32_t code, bool holdOff, bool slow, double banding) const {
  const bool switchBack = code == previous_ && switchBackLeft_ > 0;
  // A deep ripple's period names the lamp in every pair of the run; the
  // older entries of the history may predate a change of light. A return to
  // the state just left still needs the score and its margin.
  const bool periodRun = !switchBack && history_.trailingPeriodVotes(code) >= knobs_.minPastFrames;
  const bool votes = periodRun || history_.trailingVotes(code, true) >= knobs_.minPastFrames;
  if (holdOff || (!votes && !slow) || ownLampShowing()) {
    return false;
  }
  if (!leftovers_.wouldHelp(code, banding)) {
    return false;  // mixed light: that state left more under the same light
  }
  if (votes && (periodRun || votesSwitchTo(code, switchBack))) {
    return true;
  }
  // The slow and weak paths stand on their own evidence, also when a run of
  // votes is there but short of the score (pairs before it that saw the
  // ripple without voting, such as lone fits under the sixteen times, dilute
  // it): no return within the switch-back window, and the applied ripple
  // must not have shown more than the other one.
  return slow && !switchBack && history_.score(code) >= history_.score(1 - code);
}

bool StateDecider::votesSwitchTo(int32_t code, bool switchBack) const {
  const int need = knobs_.switchScore + (switchBack ? knobs_.switchBackMargin : 0);
  const int other = 1 - code;
  return history_.score(code) >= need && history_.score(code) > history_.score(other);
}

Decision StateDecider::decide(const EvidenceEntry& entry) {
  history_.push(entry);
  probes_.push(entry.probe);
  weak_.push(entry.weak);
  const bool holdOff = holdOffLeft_ > 0;
  holdOffLeft_ = std::max(0, holdOffLeft_ - 1);
  switchBackLeft_ = std::max(0, switchBackLeft_ - 1);
  if (isFrequency(applied_)) {
    ageOwnLook(entry.alone[applied_]);
    const int other = 1 - applied_;
    leftovers_.observe({entry.looked[other], entry.vote == other && entry.temporal,
                        entry.creep[other], entry.creepError[other]});
  }

  Decision d{FLK_FREQ_NONE, history_.score(0), history_.score(1)};
  for (int32_t code = FLK_FREQ_50HZ; code <= FLK_FREQ_60HZ; ++code) {
    if (code == applied_) {
      continue;
    }
    double slowBanding = 0.0;
    double weakBanding = 0.0;
    const bool slow = probes_.backs(code, knobs_, &slowBanding) || weak_.backs(code, &weakBanding);
    const double banding = std::max({history_.runBanding(code), slowBanding, weakBanding});
    if (maySwitchTo(code, holdOff, slow, banding)) {
      d.state = code;
      verdictBanding_[code] = banding;
      verdictCancelled_[code] = isFrequency(applied_) && entry.cancelled[applied_];
      verdictCrept_[code] = entry.crept;
      verdictUpper_[code] = entry.creptUpper;
      return d;
    }
  }
  // Confirmation of the applied state: weaker evidence, any source.
  if (isFrequency(applied_) && history_.newest().vote == applied_) {
    const int own = history_.score(applied_);
    if (own >= knobs_.switchScore / 2 && own >= history_.score(1 - applied_)) {
      d.state = applied_;
    }
  }
  return d;
}

}  // namespace open_algo
