// The slow paths of the verdict, sample by sample: the ripple that is not
// applied against the cancelled probe column, a weak ripple steady over a
// few pairs, and a frozen ripple's creep against the reference frame.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "algo_tuning.h"
#include "creep_track.h"
#include "probe_comparison.h"
#include "weak_evidence.h"

namespace open_algo {
namespace {

// A pan's typical pair under a 1.25 % ripple: 120 Hz at SNR 2.5 against a
// probe at 0.7, 1.2 % against 0.4 %.
constexpr ProbeSample kLeaning{true, 1, 2.5f, 0.7f, 0.012f, 0.004f};
constexpr ProbeSample kNone{};

ProbeSample with(ProbeSample s, float snr, float probeSnr, float amplitude, float probeRipple) {
  s.snr = snr;
  s.probeSnr = probeSnr;
  s.amplitude = amplitude;
  s.probeRipple = probeRipple;
  return s;
}

template <typename Sample>
std::vector<Sample> repeat(const Sample& s, int n) {
  return std::vector<Sample>(static_cast<size_t>(n), s);
}

template <typename Sample>
std::vector<Sample> operator+(std::vector<Sample> a, const std::vector<Sample>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(ProbeComparison, BacksOnlyAConsistentClearRun) {
  const ProbeSample losing = with(kLeaning, 0.5f, 0.9f, 0.003f, 0.006f);
  ProbeSample other = kLeaning;
  other.ripple = 0;
  struct Row {
    const char* what;
    std::vector<ProbeSample> samples;  // oldest first
    bool backs120;
  } rows[] = {
      {"six leaning pairs", repeat(kLeaning, 6), true},
      {"frozen pairs in between are passed over",
       repeat(kLeaning, 3) + repeat(kNone, 2) + repeat(kLeaning, 3), true},
      {"one pair short", repeat(kLeaning, 5), false},
      // Sign test: 4 of 6 is what a correlated pan without flicker reaches.
      {"two of six lose", repeat(losing, 2) + repeat(kLeaning, 4), false},
      {"one of six loses", repeat(losing, 1) + repeat(kLeaning, 5), true},
      // Wins every pair, but SNR^2 2.6 against 0.8 is no margin.
      {"small SNR margin", repeat(with(kLeaning, 1.6f, 0.9f, 0.012f, 0.004f), 6), false},
      // A panned grating's leftover: clear SNR, 0.6 % amplitude.
      {"under the amplitude", repeat(with(kLeaning, 4.0f, 0.7f, 0.006f, 0.002f), 6), false},
      // A lamp that the exposure does not quite cancel leaks into both.
      {"not dominant", repeat(with(kLeaning, 4.0f, 0.7f, 0.012f, 0.007f), 6), false},
      // The run is older than the span: stale evidence never switches.
      {"stale run", repeat(kLeaning, 6) + repeat(kNone, ProbeComparison::kSpan - 5), false},
      {"newest run within the span",
       repeat(kLeaning, 6) + repeat(kNone, ProbeComparison::kSpan - 6), true},
      {"a sample for the other ripple breaks the run",
       repeat(kLeaning, 5) + repeat(other, 1) + repeat(kLeaning, 5), false},
  };
  const AlgoKnobs knobs = AlgoTuning::defaults();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ProbeComparison p;
    for (const ProbeSample& s : row.samples) {
      p.push(s);
    }
    double banding = -1.0;
    EXPECT_EQ(p.backs(1, knobs, &banding), row.backs120);
    if (row.backs120) {
      EXPECT_GE(banding, 0.0099);  // the run's mean amplitude
    }
    EXPECT_FALSE(p.backs(0, knobs, &banding));  // never the probe's own ripple
    p.clear();
    EXPECT_FALSE(p.backs(1, knobs, &banding));
  }
}

// A 2 % lamp's 100 Hz ripple seen from state 60 under a 16.7 ms exposure:
// 0.3 % of banding at SNR 5.
constexpr WeakSample kWeak{WeakSample::kBacks, 0, 5.0f, 0.003f, 0.0006f, false, true};

WeakSample weak(WeakSample::Kind kind, float snr = 5.0f, float amplitude = 0.003f,
                bool clean = false) {
  return WeakSample{kind, 0, snr, amplitude, amplitude / snr, clean, kind == WeakSample::kBacks};
}

TEST(WeakEvidence, BacksOnlyASteadyRun) {
  const WeakSample abstains = weak(WeakSample::kAbstains);
  // A pair that could not tell the run's banding from nothing: it would stand
  // two standard errors in it.
  const WeakSample against = weak(WeakSample::kAgainst, 1.0f, 0.0015f);
  // A pair under a line of motion: the run's banding would stand one standard
  // error in it.
  const WeakSample blurred = weak(WeakSample::kAgainst, 1.0f, 0.003f);
  const WeakSample neutral = weak(WeakSample::kNeutral, 2.5f);
  WeakSample other = kWeak;
  other.ripple = 1;
  WeakSample corroborating = kWeak;
  corroborating.firm = false;
  WeakSample faint = corroborating;
  faint.amplitude = 0.0015f;
  struct Row {
    const char* what;
    std::vector<WeakSample> samples;  // oldest first
    bool backs100;
  } rows[] = {
      {"three steady pairs", repeat(kWeak, 3), true},
      {"two pairs are not enough", repeat(kWeak, 2), false},
      {"three faint pairs do not add up", repeat(weak(WeakSample::kBacks, 4.0f), 3), false},
      {"four faint pairs do", repeat(weak(WeakSample::kBacks, 4.0f), 4), true},
      // Each pair's SNR is capped: one clear pair cannot carry two faint ones.
      {"one clear pair",
       repeat(weak(WeakSample::kBacks, 3.0f), 2) + repeat(weak(WeakSample::kBacks, 40.0f), 1),
       false},
      {"frozen pairs in between are passed over",
       repeat(kWeak, 1) + repeat(abstains, 3) + repeat(kWeak, 2), true},
      {"one pair against is tolerated", repeat(kWeak, 2) + repeat(against, 1) + repeat(kWeak, 1),
       true},
      {"two pairs against are not", repeat(kWeak, 1) + repeat(against, 2) + repeat(kWeak, 2),
       false},
      // The ripple moved in it as in the others: a lamp would have shown.
      {"a precise pair that measured it short ends the run",
       repeat(kWeak, 2) + repeat(weak(WeakSample::kNeutral, 2.5f, 0.001f), 1) + repeat(kWeak, 2),
       false},
      {"a pair short of it by less than three errors does not",
       repeat(kWeak, 2) + repeat(weak(WeakSample::kNeutral, 2.5f, 0.0018f), 1) + repeat(kWeak, 2),
       true},
      // The applied ripple stood still: its leftover cannot show, the lamp must.
      {"a clean look that missed it ends the run",
       repeat(kWeak, 2) + repeat(weak(WeakSample::kNeutral, 2.5f, 0.0005f, true), 1) +
           repeat(kWeak, 2),
       false},
      {"a blurred clean look does not",
       repeat(kWeak, 2) + repeat(weak(WeakSample::kNeutral, 2.0f, 0.003f, true), 1) +
           repeat(kWeak, 1),
       true},
      {"blurred or not, two pairs that gave it under SNR 2 speak against it",
       repeat(kWeak, 1) + repeat(blurred, 2) + repeat(kWeak, 2), false},
      {"the newest pair must show it", repeat(kWeak, 4) + repeat(neutral, 1), false},
      {"a scene change ends the run",
       repeat(kWeak, 2) + repeat(weak(WeakSample::kBreak), 1) + repeat(kWeak, 2), false},
      {"a run after the scene change",
       repeat(kWeak, 2) + repeat(weak(WeakSample::kBreak), 1) + repeat(kWeak, 3), true},
      // A lamp's banding is steady; texture leaking under motion is not.
      {"unsteady amplitudes",
       repeat(kWeak, 1) + repeat(weak(WeakSample::kBacks, 5.0f, 0.006f), 1) + repeat(kWeak, 1),
       false},
      {"stale run", repeat(kWeak, 3) + repeat(abstains, WeakEvidence::kSpan - 2), false},
      {"a sample for the other ripple breaks the run",
       repeat(kWeak, 2) + repeat(other, 1) + repeat(kWeak, 2), false},
      // Pairs near the shift's leak only corroborate the banding of a firm one.
      {"corroborating pairs alone", repeat(corroborating, 4), false},
      {"corroborating pairs and a firm one", repeat(corroborating, 2) + repeat(kWeak, 1), true},
      {"a pair off the firm banding is passed over",
       repeat(kWeak, 1) + repeat(faint, 1) + repeat(kWeak, 2), true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    WeakEvidence w;
    for (const WeakSample& s : row.samples) {
      w.push(s);
    }
    double banding = -1.0;
    EXPECT_EQ(w.backs(0, &banding), row.backs100);
    if (row.backs100) {
      EXPECT_NEAR(banding, 0.003, 1e-6);  // the backing pairs' mean amplitude
    }
    EXPECT_FALSE(w.backs(1, &banding));
    w.clear();
    EXPECT_FALSE(w.backs(0, &banding));
  }
}

// What one pair says about a weak 100 Hz ripple while state 60 is applied.
TEST(WeakEvidence, ClassifiesAPair) {
  PairEvidence steady{};
  steady.analysable = true;
  steady.differenceFitted = true;
  steady.periodRipple = -1;
  steady.cancelled[1] = true;
  steady.visibility[0] = 0.8;
  steady.visibility[1] = 0.5;
  steady.loneExplained = -1.0;
  steady.sceneResidual = 0.004;
  steady.temporal[0] = RippleSummary{0.003, 0.005, 5.0, 0.83, 0.4, 6, 0.005, 0.0, 0.001};
  steady.temporalAmplitude[0] = 0.003;
  const auto with = [&](auto change) {
    PairEvidence e = steady;
    change(e);
    return e;
  };
  struct Row {
    const char* what;
    PairEvidence ev;
    double rival;
    WeakSample::Kind kind;
  } rows[] = {
      {"a steady weak ripple", steady, 0.0005, WeakSample::kBacks},
      {"no more than the cancelled column", steady, 0.002, WeakSample::kNeutral},
      {"within the shift's leak", with([](PairEvidence& e) { e.shiftLeak[0] = 0.002; }), 0.0,
       WeakSample::kNeutral},
      {"the windows disagree", with([](PairEvidence& e) { e.temporal[0].agreement = 0.33; }), 0.0,
       WeakSample::kNeutral},
      {"a strong ripple is for the votes",
       with([](PairEvidence& e) { e.temporalAmplitude[0] = 0.05; }), 0.0, WeakSample::kNeutral},
      {"a lone fit that explains little", with([](PairEvidence& e) { e.loneExplained = 1.0; }), 0.0,
       WeakSample::kNeutral},
      {"seen and not shown", with([](PairEvidence& e) { e.temporal[0].snr = 1.0; }), 0.0,
       WeakSample::kAgainst},
      {"applied ripple not cancelled", with([](PairEvidence& e) { e.cancelled[1] = false; }), 0.0,
       WeakSample::kAbstains},
      {"phase frozen", with([](PairEvidence& e) {
         e.frozen[0] = true;
         e.temporal[0].snr = 1.0;
       }),
       0.0, WeakSample::kAbstains},
      // What a still ripple's column shows is not that ripple: the leftover
      // of a deep applied lamp, say, whose steadiness must not count.
      {"phase still, column significant", with([](PairEvidence& e) {
         e.frozen[0] = true;
         e.visibility[0] = 0.05;
       }),
       0.0, WeakSample::kBreak},
      // The applied ripple stands still: nothing it leaves can hide the
      // ripple or fake it. Whether its showing little ends the run depends on
      // its precision against the run's banding (BacksOnlyASteadyRun).
      {"a clean look shows little", with([](PairEvidence& e) {
         e.visibility[1] = 0.05;
         e.temporal[0].snr = 2.5;
       }),
       0.0, WeakSample::kNeutral},
      {"a clean look shows it", with([](PairEvidence& e) { e.visibility[1] = 0.05; }), 0.0,
       WeakSample::kBacks},
      {"scene change", with([](PairEvidence& e) { e.sceneChange = true; }), 0.0,
       WeakSample::kBreak},
  };
  const AlgoKnobs knobs = AlgoTuning::defaults();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const WeakSample s = WeakEvidence::sampleOf(row.ev, 1, row.rival, knobs);
    EXPECT_EQ(s.kind, row.kind);
    if (s.kind != WeakSample::kAbstains) {
      EXPECT_EQ(s.ripple, 0);
    }
    if (s.kind != WeakSample::kAbstains && s.kind != WeakSample::kBreak) {
      EXPECT_EQ(s.clean, row.ev.visibility[1] < 0.1);
      EXPECT_NEAR(s.error, row.ev.temporalAmplitude[0] / row.ev.temporal[0].snr, 1e-6);
    }
  }
}

// A frozen ripple's creep grows along one direction with the reference's
// age; the reference's own noise is the same in every comparison, and a
// shake's leftover turns from one comparison to the next, even when it
// grows, and a step (a lamp going off half-way) has no pace within either
// half of the comparisons. Comparisons measure to 1e-4 (the still 1080p cell of a 2 % lamp
// under 30 ms); the creep adds 2e-5 a detection.
TEST(CreepTrack, StandsOnlyOnASteadyPace) {
  constexpr double kError = 1e-4, kPace = 2e-5, kTurn = 2.4;  // radians a comparison
  struct Row {
    const char* what;
    int comparisons;
    double pace, offset, wobble;  // pace along 0.5 rad, the reference's noise, the leftover
    bool turns;                   // the leftover turns, and grows with the age
    double step;                  // added from the middle comparison on
    double atLeast, below;
  } rows[] = {
      {"steady creep over 30 comparisons", 30, kPace, 2e-4, 1e-4, false, 0.0, 8.0, 1e9},
      {"the same over 70: the newest 64 kept", 70, kPace, 2e-4, 1e-4, false, 0.0, 10.0, 1e9},
      {"the same seen only 7 times", 7, kPace, 2e-4, 0.0, false, 0.0, 0.0, 1e-9},
      {"the reference's noise alone, 3 errors", 30, 0.0, 3e-4, 0.0, false, 0.0, 0.0, 1e-6},
      {"shake leftover at SNR 3", 30, 0.0, 0.0, 3e-4, false, 0.0, 0.0, 2.0},
      {"leftover growing with the age, turning", 30, 0.0, 0.0, 2e-5, true, 0.0, 0.0, 3.0},
      {"weak creep under a shake's leftover", 30, kPace, 0.0, 3e-4, false, 0.0, 3.0, 1e9},
      {"a step of 6 errors half-way", 30, 0.0, 0.0, 1e-4, false, 6e-4, 0.0, 1e-6},
      {"creep, then a step of 6 errors", 30, kPace, 0.0, 1e-4, false, 6e-4, 0.0, 1e-6},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    CreepTrack t;
    for (int age = 1; age <= r.comparisons; ++age) {
      const double swing = r.wobble * (r.turns ? age : 1.0);
      const double jump = 2 * age > r.comparisons ? r.step : 0.0;
      const double re =
          r.pace * age * std::cos(0.5) + r.offset + jump + swing * std::cos(kTurn * age);
      const double im = r.pace * age * std::sin(0.5) + swing * std::sin(kTurn * age);
      t.add(age, re, im, kError);
    }
    EXPECT_GE(t.significance(), r.atLeast);
    EXPECT_LT(t.significance(), r.below);
  }
}

}  // namespace
}  // namespace open_algo
