#include "weak_evidence.h"

#include <algorithm>
#include <cmath>

namespace open_algo {
namespace {

// A backing pair: at least half of the windows agree with the combined
// phasor (a vote needs two thirds for full evidence).
constexpr double kMinAgreement = 0.5;
// Its ripple stands this many times above what the scene's vertical shift
// may have put into its column.
constexpr double kMinAboveLeak = 3.0;
// A backing pair that only corroborates a firm one of the same run (see
// backs()) stands this many times above the leak, and its lone fit explains
// the windows' mean difference at least this many times better than the
// line. Textures shaken or drifting stand 1.5 to 2 times above the leak.
constexpr double kMinAboveLeakCorroborating = 2.0;
constexpr double kMinLoneExplainedCorroborating = 1.0;
// Pairs corroborate only over a readout of at least this many 100 Hz
// periods, as long as the difference's fit needs to tell the second
// harmonics apart: over less the two ripples' columns are nearly parallel,
// and a deep applied lamp's leftover (|sinc| under 0.01 is not zero, and
// its harmonics are strong) fills the other's column as steadily as a weak
// lamp (a 50 Hz LED and a 60 Hz tube at 1920 x 1080 and 12.5 us left their
// right states and came back).
constexpr double kMinCorroboratingPeriods = 2.0;
// A lone fit (the other ripple cancelled, a short readout) explains the
// windows' mean difference at least this many times better than the line
// alone. A weak lamp's ripple is only a few times the noise per bin, so the
// single pair's test (sixteen times) is out of its reach; the steadiness
// over several pairs takes its place against a drifting edge or a PWM
// lamp's bands.
constexpr double kMinLoneExplained = 2.0;
// Residual rms of the difference under which the scene counts as still
// enough to show a weak ripple (the vote's evidence starts to fade there).
constexpr double kMaxResidual = 0.02;
// Visibility |sin(pi f dt)| under which a ripple stands still between the
// frames: the difference keeps under a fifth of it.
constexpr double kStillVisibility = 0.1;
// Banding above this is no weak lamp: single pairs decide it.
constexpr double kMaxWeakAmplitude = 0.02;
// A pair that could show the ripple and gives it an SNR under this speaks
// against it.
constexpr double kAgainstSnr = 2.0;
// At least this many backing pairs, each SNR capped at kSnrCap, combine to
// at least kCombinedSnr (root sum of squares, the SNR of their
// noise-weighted mean): three pairs at 4.6 or four at 4, never fewer than
// three. The cap keeps one pair (texture that happens to fit) from carrying
// the run: one pair at the cap with two at the SNR threshold falls short.
constexpr int kMinBacking = 3;
constexpr double kSnrCap = 6.0;
constexpr double kCombinedSnr = 8.0;
// At most this many pairs of the window speak against it.
constexpr int kMaxAgainst = 1;
// A pair could show a run's banding when that banding would stand this many
// of its standard errors (the SNR threshold of the default tuning): a clean
// look less precise does not end a weak run, a vote's pair less precise
// does not end a run of votes.
constexpr double kShowsAtErrors = 3.0;
// A lamp's banding is steady: the backing amplitudes lie within this ratio.
constexpr double kSteadyRatio = 1.6;

}  // namespace

WeakSample WeakEvidence::sampleOf(const PairEvidence& ev, int applied, double rival,
                                  const AlgoKnobs& knobs) {
  WeakSample s{};
  if (applied < 0 || applied >= kRipples || !ev.analysable || ev.periodRipple >= 0) {
    return s;
  }
  const int f = 1 - applied;
  s.ripple = static_cast<int8_t>(f);
  if (ev.sceneChange) {
    s.kind = WeakSample::kBreak;
    return s;
  }
  // Only a cancelled applied ripple makes the comparison unambiguous, and
  // only a fitted difference shows anything.
  if (!ev.cancelled[applied] || ev.cancelled[f] || !ev.differenceFitted) {
    return s;
  }
  const RippleSummary& t = ev.temporal[f];
  if (ev.frozen[f]) {
    // The ripple cannot move between these frames, so what its column shows
    // is something else: what the exposure leaves of a deep applied lamp
    // (|sinc| under 0.01 is not zero, and over a readout of one period the
    // columns take each other's ripple), or texture. The run's steadiness
    // may be that leftover's.
    const bool still = ev.visibility[f] < kStillVisibility;
    s.kind = still && t.snr >= knobs.snrThreshold && t.agreement >= kMinAgreement
                 ? WeakSample::kBreak
                 : WeakSample::kAbstains;
    return s;
  }
  const double amplitude = ev.temporalAmplitude[f];
  s.snr = static_cast<float>(t.snr);
  s.amplitude = static_cast<float>(amplitude);
  s.error = t.snr > 0.0 ? static_cast<float>(amplitude / t.snr) : 0.0f;
  const double leak = ev.shiftLeak[f];
  const auto clears = [&](double aboveLeak, double loneExplained) {
    return (leak <= 0.0 || t.phasor >= aboveLeak * leak) &&
           (ev.loneExplained < 0.0 || ev.loneExplained >= loneExplained);
  };
  const bool apart = ev.readout * kRippleHz[0] >= kMinCorroboratingPeriods;
  const bool backs = t.snr >= knobs.snrThreshold && t.agreement >= kMinAgreement &&
                     amplitude >= knobs.minAmplitude && amplitude <= kMaxWeakAmplitude &&
                     (apart ? clears(kMinAboveLeakCorroborating, kMinLoneExplainedCorroborating)
                            : clears(kMinAboveLeak, kMinLoneExplained)) &&
                     ev.sceneResidual < kMaxResidual && amplitude >= knobs.dominance * rival;
  s.firm = backs && clears(kMinAboveLeak, kMinLoneExplained);
  s.kind = backs                 ? WeakSample::kBacks
           : t.snr < kAgainstSnr ? WeakSample::kAgainst
                                 : WeakSample::kNeutral;
  // A clean look: the applied ripple stands still between the frames, so
  // nothing it leaves can show in the difference. When the ripple does not
  // show clearly in such a pair that could show it, what the other pairs saw
  // may have been that leftover (judged against the run in backs()).
  s.clean = ev.visibility[applied] < kStillVisibility;
  return s;
}

bool WeakEvidence::couldShow(double banding, double error) {
  return error > 0.0 && banding >= kShowsAtErrors * error;
}

bool WeakEvidence::missed(double banding, const WeakSample& s) {
  if (s.clean) {
    return couldShow(banding, s.error);
  }
  // The ripple moved in this pair as in the backing ones, and a lamp's
  // banding divided by the visibility stays: a pair that measured it three
  // of its standard errors short of the run did not see that lamp. (A
  // screen's backlight over a dim scene gave 0.41 %, 0.11 % at SNR 1.7 and
  // 0.46 % in three pairs in a row at the same visibility.) The leftover of
  // a deep applied lamp may shift what such a pair shows, hence only a miss
  // by three errors, and a clean look ends the run on its precision alone.
  return couldShow(banding - s.amplitude, s.error);
}

void WeakEvidence::push(const WeakSample& sample) {
  ring_[next_] = sample;
  next_ = (next_ + 1) % kSpan;
  count_ = std::min(count_ + 1, kSpan);
}

bool WeakEvidence::backs(int ripple, double* banding) const {
  const WeakSample* run[kPairs];
  int seen = 0;
  int backing = 0;
  int against = 0;
  double sum = 0.0;
  for (int age = 0; age < count_ && seen < kPairs; ++age) {
    const WeakSample& s = ring_[(next_ - 1 - age + kSpan) % kSpan];
    if (s.kind == WeakSample::kAbstains) {
      continue;
    }
    if (s.kind == WeakSample::kBreak || s.ripple != ripple) {
      break;  // older samples saw another scene
    }
    if (seen == 0 && s.kind != WeakSample::kBacks) {
      return false;  // the newest pair that could see it must show it
    }
    if (s.kind != WeakSample::kBacks && backing > 0 && missed(sum / backing, s)) {
      break;  // a pair that could show it missed it: the newer pairs saw something else
    }
    // A pair that gave it an SNR under kAgainstSnr counts against it however
    // precise: a deep applied lamp's leftover (a 50 Hz LED in state 50 under
    // hand shake) wavers around the SNR threshold, and such pairs were all
    // that kept its run from backing 120 Hz on the tuning seeds.
    against += s.kind == WeakSample::kAgainst ? 1 : 0;
    run[seen++] = &s;
    if (s.kind == WeakSample::kBacks) {
      ++backing;
      sum += s.amplitude;
    }
  }
  // The firm pairs measure the banding; a pair that only corroborates counts
  // where it repeats theirs, and is passed over where it does not.
  double firmLo = 0.0;
  double firmHi = -1.0;
  for (int i = 0; i < seen; ++i) {
    if (run[i]->kind == WeakSample::kBacks && run[i]->firm) {
      const double a = run[i]->amplitude;
      firmLo = firmHi < 0.0 ? a : std::min(firmLo, a);
      firmHi = std::max(firmHi, a);
    }
  }
  if (firmHi < 0.0 || against > kMaxAgainst) {
    return false;
  }
  backing = 0;
  sum = 0.0;
  double snr2 = 0.0;
  double lo = firmLo;
  double hi = firmHi;
  for (int i = 0; i < seen; ++i) {
    const WeakSample& s = *run[i];
    const double a = s.amplitude;
    if (s.kind != WeakSample::kBacks ||
        (!s.firm && (a * kSteadyRatio < firmHi || a > kSteadyRatio * firmLo))) {
      continue;
    }
    lo = std::min(lo, a);
    hi = std::max(hi, a);
    ++backing;
    snr2 += std::pow(std::min<double>(s.snr, kSnrCap), 2.0);
    sum += a;
  }
  if (backing < kMinBacking || std::sqrt(snr2) < kCombinedSnr || hi > kSteadyRatio * lo) {
    return false;
  }
  *banding = sum / backing;
  return true;
}

}  // namespace open_algo
