#include "sim_sensor.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace flicker_sim {

namespace {

// Vertical blanking the sensor needs at least between two readouts.
constexpr double kMinBlankingS = 0.3e-3;
// The exposure must end this long before the next frame's readout starts.
constexpr double kExposureMarginS = 0.5e-3;
// Ripple frequencies the detection has to tell apart.
constexpr double kRipple50Hz = 100.0;
constexpr double kRipple60Hz = 120.0;
// Stretching a detection frame: try lengthening in these steps up to the
// limit, until both ripples move by at least this fraction of a period.
constexpr double kStretchStepS = 0.1e-3;
constexpr double kMaxStretchS = 10e-3;
constexpr double kMinPhaseStep = 0.2;
// Independent streams derived from the sensor seed.
constexpr uint64_t kSceneStream = 1;
constexpr uint64_t kNoiseStream = 2;

uint64_t deriveSeed(uint64_t seed, uint64_t stream) {
  uint64_t state = seed ^ (stream * 0xD1B54A32D192ED03ULL);
  return SimRandom::splitmix(&state);
}

// Distance of the fractional part of x from the nearest integer (0 to 0.5).
double phaseMiss(double cycles) {
  return std::fabs(cycles - std::round(cycles));
}

// The scene as the sensor sees it: a drift given in lines per frame becomes
// a vertical pan in frame heights per second.
SimSceneParams sceneOf(const SimSensorParams& params) {
  SimSceneParams scene = params.scene;
  if (params.verticalLinesPerFrame != 0.0 && params.geometry.frameHeight > 0) {
    scene.panY += params.verticalLinesPerFrame * params.framesPerSecond /
                  static_cast<double>(params.geometry.frameHeight);
  }
  return scene;
}

// The emissive objects' light over time: a PWM backlight, or steady.
SimLightParams emissionOf(const SimEmission& emission) {
  SimLightParams light;
  light.segments.push_back({0.0,
                            {emission.pwmHz > 0.0 && emission.duty < 1.0
                                 ? makePulseLightComponent(emission.pwmHz, emission.duty, 1.0)
                                 : makeLightComponent(SimLightType::kDaylight, 0.0, 1.0)}});
  return light;
}

}  // namespace

SimSensor::SimSensor(const SimSensorParams& params, std::shared_ptr<const SimLight> light,
                     uint64_t seed)
    : params_(params),
      light_(std::move(light)),
      emission_(emissionOf(params.scene.emission)),
      scene_(sceneOf(params), deriveSeed(seed, kSceneStream)),
      pixel_(params.pixel),
      ae_(params.ae),
      rng_(deriveSeed(seed, kNoiseStream)) {
  ae_.setMaxExposure(maxExposureFor(params_));
}

double SimSensor::maxExposureFor(const SimSensorParams& params) {
  const double readout = params.geometry.frameHeight * params.geometry.lineTimeSeconds();
  const double nominal =
      std::max(1.0 / std::max(1e-3, params.framesPerSecond), readout + kMinBlankingS);
  return nominal - kExposureMarginS;
}

SimConfig SimSensor::config() const {
  const SimGeometry& g = params_.geometry;
  SimConfig c;
  c.sensorMode = g.sensorMode;
  c.hbinWidth = g.reducedWidth();
  c.hbinHeight = g.frameHeight;
  c.tgWidth = g.tgWidth;
  c.tgHeight = g.tgHeight;
  c.pixelClk = g.pixelClockHz;
  c.pixelsInLine = g.pixelsInLine;
  c.sensorType = params_.sensorType;
  c.flickerMode = params_.flickerMode;
  c.isMaster = params_.isMaster;
  c.aeTargetMode = params_.aeTargetMode;
  c.sensorBinningRatio = g.sensorBinning;
  return c;
}

void SimSensor::applyResult(int flickerState, int frameRateActive) {
  ae_.setBandingState(flickerState);
  frame_rate_active_ = frameRateActive;
}

SimSensor::Controls SimSensor::resolveControls(int index) {
  // The last override covering this frame wins for its field.
  auto forced = [&](SimControl field, int* value) {
    bool found = false;
    for (const SimControlOverride& o : params_.controls) {
      if (o.field == field && index >= o.firstFrame && index <= o.lastFrame) {
        *value = o.value;
        found = true;
      }
    }
    return found;
  };
  Controls c;
  c.pixelMode = params_.geometry.pixelMode;
  forced(SimControl::kPixelMode, &c.pixelMode);
  c.pixelMode = std::min(31, std::max(0, c.pixelMode));
  const bool modeChanged = last_pixel_mode_ >= 0 && c.pixelMode != last_pixel_mode_;
  last_pixel_mode_ = c.pixelMode;
  c.statValid = (index == 0 || modeChanged) ? 0 : 1;
  c.needReinit = modeChanged ? 1 : 0;
  c.flkEnable = params_.flickerDetectionEnabled ? 1 : 0;
  forced(SimControl::kFlkEnable, &c.flkEnable);
  c.doFlkDetection = (c.flkEnable != 0 && ae_.converged()) ? 1 : 0;
  forced(SimControl::kDoFlkDetection, &c.doFlkDetection);
  forced(SimControl::kAeDetectCycle, &c.aeDetectCycle);
  forced(SimControl::kStatValid, &c.statValid);
  forced(SimControl::kNeedReinit, &c.needReinit);
  return c;
}

double SimSensor::framePeriod(const Controls& controls, double readoutS) const {
  const double nominal =
      std::max(1.0 / std::max(1e-3, params_.framesPerSecond), readoutS + kMinBlankingS);
  if (params_.fixedFrameRate || frame_rate_active_ != 1 || controls.doFlkDetection == 0) {
    return nominal;
  }
  const int steps = static_cast<int>(kMaxStretchS / kStretchStepS);
  for (int step = 0; step <= steps; ++step) {
    const double period = nominal + step * kStretchStepS;
    if (phaseMiss(kRipple50Hz * period) >= kMinPhaseStep &&
        phaseMiss(kRipple60Hz * period) >= kMinPhaseStep) {
      return period;
    }
  }
  return nominal;
}

void SimSensor::renderStatistics(const SimGeometry& g, double sof, double exposure, double gain,
                                 SimFrame* frame) {
  const int lines = g.statLines();
  const int winW = g.windowWidth();
  const int top = g.topOffset();
  const double lt = g.lineTimeSeconds();
  const double width = static_cast<double>(g.reducedWidth());
  const double height = static_cast<double>(g.frameHeight);
  // Every entry is written below: no need to clear the block first.
  frame->stats.resize(static_cast<size_t>(lines) * 6);
  line_light_.resize(static_cast<size_t>(std::max(0, lines)));
  light_->integrateLines(sof + top * lt, lt, exposure, lines, line_light_.data());
  const bool emissive = scene_.hasEmissive();
  if (emissive) {
    line_emission_.resize(line_light_.size());
    emission_.integrateLines(sof + top * lt, lt, exposure, lines, line_emission_.data());
  }
  const double uStart = g.leftOffset() / width;
  const double uWidth = winW / width;
  double mean[6];
  double variance[6];
  double added[6];
  double spread[6];
  double total = 0.0;
  for (int k = 0; k < lines; ++k) {
    const int y = top + k;
    const double collected = line_light_[static_cast<size_t>(k)];
    // Motion is sampled at mid-exposure of the line: rolling-shutter skew.
    const double seen = sof + y * lt - 0.5 * exposure;
    scene_.sampleWindows(seen, (y + 0.5) / height, uStart, uWidth, 6, mean, variance,
                         &window_cache_);
    double emitted = 0.0;
    if (emissive) {
      scene_.emissiveWindows(seen, (y + 0.5) / height, uStart, uWidth, 6, added, spread);
      emitted = line_emission_[static_cast<size_t>(k)];
    }
    int64_t* out = &frame->stats[static_cast<size_t>(k) * 6];
    for (int i = 0; i < 6; ++i) {
      double meanE = collected * mean[i];
      double spreadE2 = collected * collected * variance[i];
      if (emissive) {
        meanE += emitted * added[i];
        spreadE2 += emitted * emitted * spread[i];
      }
      out[i] = pixel_.windowSum(meanE, spreadE2, winW, gain, &rng_);
      total += static_cast<double>(out[i]);
    }
  }
  const double pixels = static_cast<double>(lines) * 6.0 * winW;
  frame->meanLevel = pixels > 0.0 ? total / (pixels * pixel_.params().maxDn) : 0.0;
}

void SimSensor::nextFrame(SimFrame* frame) {
  const int index = frame_index_;
  const Controls c = resolveControls(index);
  SimGeometry g = params_.geometry;
  g.pixelMode = c.pixelMode;
  const double lt = g.lineTimeSeconds();
  const double readout = g.frameHeight * lt;
  const double sof = index == 0 ? params_.startTimeS : last_sof_ + framePeriod(c, readout);
  // The sensor counts exposure in whole lines.
  double exposure = ae_.exposureS();
  if (lt > 0.0) {
    exposure = std::max(1.0, std::round(exposure / lt)) * lt;
  }
  const double gain = ae_.gain();

  frame->frameIndex = index;
  frame->sofS = sof;
  frame->exposureS = exposure;
  frame->gain = gain;
  frame->lineTimeS = lt;
  frame->windowWidth = g.windowWidth();
  frame->windowHeight = g.windowHeight();
  frame->topOffset = g.topOffset();
  frame->leftOffset = g.leftOffset();
  frame->aeConverged = ae_.converged();
  frame->bandingPeriodS = ae_.bandingPeriodS();
  frame->lightMainsHz = light_->dominantMainsHz(sof + 0.5 * readout);
  if (g.valid()) {
    renderStatistics(g, sof, exposure, gain, frame);
  } else {
    frame->stats.clear();
    frame->meanLevel = 0.0;
  }

  frame->exposureTime = static_cast<int32_t>(std::llround(exposure * 1e6));
  frame->twinType = params_.twinType;
  frame->twinWinX = params_.twinWinX;
  frame->twinWinY = params_.twinWinY;
  frame->width = g.frameWidth;
  frame->height = g.frameHeight;
  frame->doFlkDetection = c.doFlkDetection;
  frame->aeDetectCycle = c.aeDetectCycle;
  frame->statValid = c.statValid;
  frame->pixel_mode = c.pixelMode;
  frame->flkEnable = c.flkEnable;
  frame->needReinit = c.needReinit;
  frame->sof_timestamp = static_cast<int64_t>(std::llround(sof * 1e9));

  ae_.update(frame->meanLevel);
  last_sof_ = sof;
  ++frame_index_;
}

SimFrame SimSensor::nextFrame() {
  SimFrame frame;
  nextFrame(&frame);
  return frame;
}

}  // namespace flicker_sim
