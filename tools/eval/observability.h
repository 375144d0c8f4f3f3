// Observability: what one analysed pair of frames can show of a lamp's
// ripple, by physics alone, whatever a detector makes of it.
//
// A lamp on mains f_m ripples at f = 2 f_m. A line integrates the light over
// the exposure E, so a frame's bands have the depth of the ripple times
// |sinc(f E)|; between the pair's two frames the ripple's phase advances by
// f dt cycles (the difference of the frames holds the frame's bands times
// 2 |sin(pi f dt)|); the statistics lines span a readout R. A pair shows the
// lamp's ripple when
//  - it moves: the exposure does not cancel it (|sinc(f E)| at least
//    kCancelledSinc), its phase moves by at least kMinPhaseStep of a cycle
//    between the frames, and its amplitude in the frames' difference stands
//    kNoiseSigmas standard errors above the sensor's temporal noise; or
//  - it is frozen (or does not move enough), but the exposure cancels the
//    other mains' ripple and the bands stand above the noise in each frame:
//    whatever is banded then cannot be the other ripple.
// A readout shorter than one period of the ripple shows less than one band,
// whose period does not tell 100 Hz from 120 Hz: such a pair counts only when
// the exposure cancels the other ripple. Over the readout a gain offset and a
// linear drift between the frames cannot be told from a ripple, so only the
// part of the ripple orthogonal to a line counts as its amplitude (half a
// period keeps little of it, three periods nearly all).
//
// The noise is the sensor's temporal noise (photon shot noise, read noise,
// quantisation) of the statistics entries, pooled over the block as a fit of
// one sinusoid pools it. Scene motion is not noise here: a moving scene hides
// nothing from physics that a still one shows, it only makes the detector's
// task harder.
//
// Residual banding is what an exposure leaves of the whole light's ripple:
// the root sum of squares, over every lamp and harmonic, of its share of the
// light times its depth times |sinc(f E)|. Under mixed light each state
// cancels its own ripple and leaves the other's; the better state leaves less.
// Two states whose residuals differ by less than kNoiseSigmas standard errors
// of a frame's bands leave banding no pair can tell apart: either is as good.
//
// Plain functions of values.
#pragma once

#include "sim_light.h"
#include "sim_pixel_model.h"

namespace flicker_eval {

// An exposure of whole periods to within this much of the ripple cancels it.
constexpr double kCancelledSinc = 0.01;
// Least phase step between the frames, in cycles (mod 1), for the ripple to
// move: a tenth of a cycle leaves 0.62 of a frame's bands in the difference.
constexpr double kMinPhaseStep = 0.1;
// Standard errors above the temporal noise for an amplitude to be seen:
// chance alone does not produce it over a run of pairs.
constexpr double kNoiseSigmas = 5.0;

struct PairPhysics {
  double rippleHz = 100;  // ripple of the lamp's mains (twice the mains)
  double otherHz = 120;   // ripple of the other mains
  double depth = 0;       // relative depth of the lamp's ripple at rippleHz, in the frame
                          // that holds less of it (0 when one frame lacks the lamp)
  double exposureS = 0;   // exposure of the frames
  double intervalS = 0;   // between the two frames' exposures
  double readoutS = 0;    // time the statistics lines span
  double entryNoise = 0;  // relative temporal noise of one statistics entry
  int entries = 1;        // statistics entries of a frame (lines x windows)
};

enum class PairSight {
  kHidden,  // nothing of the lamp's ripple can be told from this pair
  kMoving,  // the ripple moves between the frames and stands above the noise
  kFrozen,  // the ripple stands still, but the other ripple is cancelled
};

PairSight pairSight(const PairPhysics& pair);
// Standard error of a frame's band amplitude: the sensor's temporal noise
// pooled over the block by a fit of one sinusoid.
double bandNoise(const PairPhysics& pair);

// |sin(pi x) / (pi x)|: what an exposure of x periods leaves of a ripple.
double sincAbs(double x);
// Share of a ripple's amplitude that a readout of `cycles` periods keeps
// once an offset and a linear drift are taken out (0..1, averaged over the
// ripple's phase).
double beyondLine(double cycles);
// Relative temporal noise of one statistics entry: a sum of `pixels` pixels
// of `electrons` mean electrons at analog gain `gain`.
double entryNoise(double electrons, double gain, int pixels,
                  const flicker_sim::SimPixelParams& pixel);
// Residual banding an exposure of `exposureS` leaves of the light `segment`.
double residualBanding(const flicker_sim::SimLightSegment& segment, double exposureS);

}  // namespace flicker_eval
