// What one pair of statistics frames brings to the analysis (PairInput) and
// what the analysis finds in it (PairEvidence), with the sizes every part of
// the per-pair analysis shares.
//
// Plain records; no behaviour, no shared state.
#pragma once

#include <cstdint>

namespace open_algo {

constexpr int kMaxWindows = 6;
constexpr int kMaxStatEntries = 36000;
constexpr int kMaxBins = 96;

// Ripple index: 0 = 100 Hz (50 Hz mains), 1 = 120 Hz (60 Hz mains).
constexpr int kRipples = 2;
constexpr double kRippleHz[kRipples] = {100.0, 120.0};

// One pair of statistics frames and its timing.
struct PairInput {
  const int64_t* frame[2];  // slot 0 and slot 1, entry [line * windows + window]
  int lines;                // statistics lines per frame
  int windows;              // window columns (entries per line)
  int winWidth;             // pixels summed into each entry
  double lineTime;          // seconds per statistics line
  double exposure;          // seconds
  double interval;          // seconds between the frames' exposure starts (either sign)
};

// One series at one ripple frequency with the windows combined.
struct RippleSummary {
  double amplitude;  // combined ripple amplitude in log units
  double phasor;     // the same before any scaling (as the series shows it)
  double snr;        // amplitude over its combined standard error
  double agreement;  // fraction of windows whose phasor agrees with the combined one
  double evidence;   // 0..1
  int windows;       // windows that took part
  double re, im;     // the combined phasor's components, unscaled
  double error;      // its combined standard error, unscaled
};

struct PairEvidence {
  bool analysable;                // geometry and data allowed a fit
  int bins;                       // bins per profile
  int binLines;                   // statistics lines per bin
  double exposureGain[kRipples];  // |sinc(f_r x exposure)|: ripple left by the exposure
  double visibility[kRipples];    // |sin(pi f_r x interval)|
  bool frozen[kRipples];          // visibility below the knob: no temporal evidence
  // The frame interval holds a whole number of the ripple's periods to within
  // a few hundredths of a cycle: neither the ripple nor any of its harmonics
  // is in the difference, whatever the lamp's waveform.
  bool still[kRipples];
  // The exposure integrates whole periods of the ripple (and so of all its
  // harmonics): no frame can show it, and its harmonic is not fitted.
  bool cancelled[kRipples];
  // Both ripples were fitted together over a readout too short to keep them
  // well apart (each column's variance more than doubled by the other's):
  // what one shows may be the other's.
  bool entangled;
  // Median residual rms of the difference fit, and the same less an
  // allowance for the harmonics of a strong ripple.
  double differenceSigma;
  double sceneResidual;
  bool sceneChange;  // the difference is not explained: motion or a cut
  // The difference was fitted with one ripple alone (the other cancelled,
  // the readout too short for both): what that ripple explains beyond the
  // difference's trend, over what is left (median over the windows); -1 when
  // both ripples were fitted.
  double loneExplained;
  RippleSummary temporal[kRipples];    // difference series
  RippleSummary spatial[2][kRipples];  // [frame][ripple]
  double temporalAmplitude[kRipples];  // frame ripple estimated from the difference
  double temporalEvidence[kRipples];   // 0..1, 0 when frozen or on a scene change
  double spatialAmplitude[kRipples];   // smaller of the two frames' ripples
  double spatialEvidence[kRipples];    // 0..1, both frames must agree
  // Ripple that stands in for a frozen frequency in a vote: the smaller of the
  // two frames' ripples less twice its standard error, so that an insignificant
  // single-frame fit (texture) does not outweigh a clear difference.
  double frozenStandIn[kRipples];
  // The difference could be fitted in enough windows. When it could not (a
  // deep ripple leaves most bins dark in both frames), the residual says
  // nothing about motion.
  bool differenceFitted;
  // Period test of a deep difference: per ripple, the median over the windows
  // of the concordance between the difference and itself one ripple period
  // later (1 = periodic), the median spread (rms) of the compared values, and
  // the windows with enough compared bins.
  bool periodTested;
  double periodicity[kRipples];
  double periodSpread[kRipples];
  int periodWindows[kRipples];
  // The same concordance half a ripple period on (0 when not compared).
  double halfPeriodicity[kRipples];
  // Ripple whose period alone explains the difference, -1 when none does.
  int periodRipple;
  // When one ripple is still and the other can be in the difference: what
  // the still one's creep may have left there at most (2 v of the deepest
  // frame ripple), in the difference's units; 0 otherwise.
  double stillLeftover;
  // Vertical scene shift between the frames (lines, frame 1 against frame 0,
  // shared by the windows), its standard error, and whether it was removed
  // from the difference before the difference's fit.
  double shift;
  double shiftError;
  bool shiftRemoved;
  // Per ripple: what the shift may have put into the difference's ripple
  // column, in the difference's units (0 when no shift was estimated).
  double shiftLeak[kRipples];
  // A ripple frozen in this pair with the other cancelled, against a
  // reference frame of an earlier pair (same exposure and geometry): whether
  // the comparison ran, the reference's age in detections, the lines the
  // scene was lined up by (below), each ripple as
  // that difference shows it (amplitude: at least half the phasor, the
  // phase having crept an unknown amount), its residual, and the evidence
  // for the frozen ripple (0 for the other).
  bool longTested;
  int longAge;
  // Lines by which slot 1 was binned further down to line its scene up with
  // the reference's (0: not moved, or no clear match of their edges).
  int longLines;
  RippleSummary longRipple[kRipples];
  double longResidual;
  double longEvidence[kRipples];
  // Standard errors by which the frozen ripple's difference with the
  // reference has grown at a steady pace over the reference's comparisons
  // (see CreepTrack); 0 when not judged.
  double longCreep;
  // The scene's vertical shift between the reference and slot 1 once lined
  // up (lines), its standard error, and whether it was removed from that
  // difference.
  double longShift;
  double longShiftError;
  bool longShiftRemoved;
};

}  // namespace open_algo
