// Photon-to-number model of one statistics window sum.
//
// A window sum adds `pixels` pixel values of one line. Each pixel collects a
// Poisson number of electrons, gets read noise, is amplified by the analog
// gain and digitised to 0..maxDn; the value saturates at maxDn (the full well
// at unit gain). Drawing every pixel of an 8000 x 6000 frame would be far too
// slow, so the sum is modelled statistically:
//  - the pixel values of the window are taken as Gaussian with the window's
//    mean and a spread made of the scene's texture within the window and the
//    temporal noise; their expected clipped mean is E[min(X, maxDn)] in
//    closed form;
//  - the temporal noise of the sum is Gaussian with variance
//    pixels * (k^2 * electrons + read^2 + 1/12) * (fraction not clipped), k
//    being the digital numbers per electron; clipped pixels carry no noise.
// So the sum has the right mean, the photon-transfer variance and saturation.
//
// Immutable; the random source is the caller's.
#pragma once

#include <cstdint>

namespace flicker_sim {

class SimRandom;

struct SimPixelParams {
  double fullWellE = 6000.0;  // electrons that fill the ADC range at unit gain
  double readNoiseE = 2.5;    // read noise, electrons rms
  int maxDn = 1023;           // 10-bit pixel values
};

class SimPixelModel {
 public:
  explicit SimPixelModel(const SimPixelParams& params) : params_(params) {}

  // Digital numbers per electron at this analog gain.
  double dnPerElectron(double gain) const;

  // One window sum. `meanE` is the mean electrons per pixel of the window,
  // `spreadE2` the variance of the per-pixel mean electrons across the window
  // (texture), `pixels` the number of pixels summed.
  int64_t windowSum(double meanE, double spreadE2, int pixels, double gain, SimRandom* rng) const;

  // Expected value of min(X, clip) for X ~ N(mean, variance), and the
  // probability that X stays below clip.
  static double clippedMean(double mean, double variance, double clip, double* belowClip);

  const SimPixelParams& params() const { return params_; }

 private:
  SimPixelParams params_;
};

}  // namespace flicker_sim
