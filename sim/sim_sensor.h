// One simulated rolling-shutter sensor with its exposure control.
//
// Produces frame after frame what the 3A framework hands DoCalculation: the
// flicker statistics block (format in sim_frame.h) and the frame data. Each
// statistics line integrates the shared light over its own exposure window,
// which ends when the line is read out; the scene, the pixel model and the
// auto-exposure model act as described in their headers.
//
// The exposure-control fields of each frame are driven as an exposure control
// drives them, unless a SimControlOverride says otherwise for a frame range:
//  - flkEnable: 1 while anti-banding detection is enabled for the stream
//    (SimSensorParams::flickerDetectionEnabled).
//  - doFlkDetection: 1 while flkEnable is 1 and the auto exposure has settled
//    (metering within tolerance of its target); a converging AE holds off
//    detection because its frames differ in brightness.
//  - aeDetectCycle: 0, the manager keeps its own detection cycle.
//  - statValid: 0 for the first frame of the stream and for the frame on
//    which the sensor changes its output (pixel mode), whose statistics cover
//    a partly reconfigured readout; 1 otherwise.
//  - needReinit: 1 on the frame where the pixel mode changes.
//  - pixel_mode: from the geometry; a change through an override models a
//    mode switch of the statistics path.
//  - twinType, twinWinX, twinWinY: the stream's split-processing set-up.
// Frame timing: the frame period is 1 / fps, lengthened when the readout of
// all lines does not fit. When the manager's last result said
// flickerFrameRateActive = 1, frames with doFlkDetection = 1 are stretched by
// the smallest amount that keeps both the 100 Hz and the 120 Hz ripple phase
// moving between consecutive frames (at exactly 30 fps the 120 Hz ripple
// otherwise sits still: 4 periods per frame). With fixedFrameRate the
// exposure control ignores that flag, as it must while it records video at a
// fixed frame rate: frames are never stretched, and exposures still snap to
// the reported state's flicker period when the light allows.
// Vertical motion may also be given in image lines per frame
// (verticalLinesPerFrame): the scene then drifts by that many lines from one
// nominal frame to the next, on top of its own pan.
//
// Several sensors share one SimLight (a shared_ptr to const) and are
// otherwise independent. A SimSensor is not thread-safe; drive each instance
// from one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "sim_auto_exposure.h"
#include "sim_frame.h"
#include "sim_geometry.h"
#include "sim_light.h"
#include "sim_pixel_model.h"
#include "sim_random.h"
#include "sim_scene.h"

namespace flicker_sim {

enum class SimControl {
  kFlkEnable,
  kDoFlkDetection,
  kAeDetectCycle,
  kStatValid,
  kNeedReinit,
  kPixelMode,
};

// Forces one exposure-control field to `value` for frames firstFrame..lastFrame
// (inclusive, counted from 0).
struct SimControlOverride {
  int firstFrame = 0;
  int lastFrame = 0;
  SimControl field = SimControl::kFlkEnable;
  int value = 0;
};

struct SimSensorParams {
  SimGeometry geometry;
  SimSceneParams scene;
  SimPixelParams pixel;
  SimAeParams ae;
  double framesPerSecond = 30.0;
  bool fixedFrameRate = false;         // never stretch frames, whatever flickerFrameRateActive says
  double startTimeS = 0.1;             // readout start of the first frame on the light's clock
  double verticalLinesPerFrame = 0.0;  // scene drift downwards, image lines per nominal frame
  // What the framework passes to SetParam.
  int sensorType = 0;
  int flickerMode = 3;
  int isMaster = 1;
  int aeTargetMode = 0;
  // Split processing.
  int twinType = 0;
  int twinWinX = 0;
  int twinWinY = 0;
  bool flickerDetectionEnabled = true;
  std::vector<SimControlOverride> controls;
};

class SimSensor {
 public:
  SimSensor(const SimSensorParams& params, std::shared_ptr<const SimLight> light, uint64_t seed);

  // Produces the next frame into `frame`, reusing its statistics storage.
  void nextFrame(SimFrame* frame);
  SimFrame nextFrame();

  // Feeds back the manager's result record: flickerState (1 = 50 Hz, 2 =
  // 60 Hz) sets the AE's anti-banding period, flickerFrameRateActive the
  // frame-timing shift of detection frames. Takes effect from the next frame.
  void applyResult(int flickerState, int frameRateActive);

  // What the framework passes to Config and SetParam for this stream.
  SimConfig config() const;
  // Geometry of the stream at its start (pixel mode of the params).
  const SimGeometry& geometry() const { return params_.geometry; }
  // Line time the manager derives for this stream (seconds per statistics line).
  double lineTimeSeconds() const { return params_.geometry.lineTimeSeconds(); }
  int framesProduced() const { return frame_index_; }
  const SimSensorParams& params() const { return params_; }
  // Longest exposure the nominal frame timing of `params` allows.
  static double maxExposureFor(const SimSensorParams& params);

 private:
  struct Controls {
    int flkEnable = 1;
    int doFlkDetection = 0;
    int aeDetectCycle = 0;
    int statValid = 1;
    int needReinit = 0;
    int pixelMode = 0;
  };

  Controls resolveControls(int index);
  double framePeriod(const Controls& controls, double readoutS) const;
  void renderStatistics(const SimGeometry& geometry, double sof, double exposure, double gain,
                        SimFrame* frame);

  SimSensorParams params_;
  std::shared_ptr<const SimLight> light_;
  SimLight emission_;  // waveform of the scene's emissive objects, mean 1
  SimScene scene_;
  SimPixelModel pixel_;
  SimAutoExposure ae_;
  SimRandom rng_;
  int frame_index_ = 0;
  int last_pixel_mode_ = -1;
  double last_sof_ = 0.0;
  int frame_rate_active_ = 0;
  // Per-line scratch, kept to avoid allocation per frame.
  std::vector<double> line_light_;
  std::vector<double> line_emission_;
  SimWindowCache window_cache_;
};

}  // namespace flicker_sim
