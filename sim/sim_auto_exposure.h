// Auto-exposure model of one simulated sensor.
//
// Picks exposure time and analog gain so that the mean pixel value of the
// frame approaches a target, with damping, one frame behind the measurement
// (like a real exposure control that meters frame n to set frame n + 2 or so).
// Anti-banding: when the wanted exposure is at least one flicker period, the
// exposure is put on a whole number of periods of the anti-banding state the
// flicker manager reports (flickerState 1 = 50 Hz -> 10 ms, 2 = 60 Hz ->
// 8.333 ms) and the gain makes up the rest; in bright scenes, where less than
// one period is wanted, the exposure stays below one period at unit gain and
// bands cannot be avoided. A manual mode holds a fixed exposure and gain.
// The control counts as settled near its target, or when it is pinned at a
// limit (too dark at the longest exposure and highest gain, too bright at the
// shortest exposure): a real exposure control then stops converging too, and
// the frames are steady.
//
// Not thread-safe: owned and driven by one SimSensor.
#pragma once

namespace flicker_sim {

struct SimAeParams {
  double targetLevel = 0.2;          // wanted mean pixel value as a fraction of full scale
  double maxGain = 16.0;             // analog gain limit
  double minExposureS = 50e-6;       // shortest exposure the sensor allows
  double damping = 0.7;              // fraction of the log error corrected per frame
  double convergedTolerance = 0.12;  // |log(measured / target)| counted as settled
  double initialExposureS = 0.01;
  double initialGain = 1.0;
  int initialFlickerState = 1;  // anti-banding state before the manager reports one
  double fixedExposureS = 0.0;  // > 0: manual exposure, no metering
  double fixedGain = 1.0;       // gain of the manual mode
};

class SimAutoExposure {
 public:
  explicit SimAutoExposure(const SimAeParams& params);

  // Period that exposures are kept on for an anti-banding state; any state
  // other than 2 (60 Hz) is taken as 50 Hz, as the manager reports it.
  static double bandingPeriodFor(int flickerState);
  // Exposure the control puts an exposure-gain product on, for banding
  // period `periodS` and frames that allow `maxExposureS`: the one rule of
  // every metering step and state change, so that what another state would
  // have used for the same brightness can be asked of it.
  static double exposureFor(const SimAeParams& params, double product, double periodS,
                            double maxExposureS);

  // Takes the anti-banding state from the manager's result and re-splits the
  // current exposure-gain product onto its period.
  void setBandingState(int flickerState);
  // Longest exposure the frame timing allows.
  void setMaxExposure(double seconds);
  // Meters one frame: `level` is its mean pixel value as a fraction of full scale.
  void update(double level);

  double exposureS() const { return exposure_; }
  double gain() const { return gain_; }
  bool converged() const { return converged_; }
  double bandingPeriodS() const { return period_; }

 private:
  void split(double product);

  SimAeParams params_;
  double period_;
  double max_exposure_;
  double exposure_;
  double gain_;
  bool converged_ = false;
};

}  // namespace flicker_sim
