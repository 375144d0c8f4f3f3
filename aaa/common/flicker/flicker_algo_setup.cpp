#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_algo_setup.h"

#include <algorithm>
#include <climits>

#include "cam_flicker_custom.h"
#include "cam_properties.h"
#include "flicker_log.h"

namespace {

constexpr const char* kPropAlgoLogLevel = "vendor.debug.flicker_algo.log.level";
constexpr const char* kPropSystrace = "vendor.debug.flicker.systrace";
constexpr const char* kPropDefHz = "vendor.debug.flk_def_hz";
constexpr const char* kPropRatio = "vendor.debug.flk_ratio";
constexpr const char* kPropClk = "vendor.debug.flk_clk";
constexpr const char* kPropPixel = "vendor.debug.flk_pixel";
constexpr const char* kPropWidth = "vendor.debug.flk_w";
constexpr const char* kPropHeight = "vendor.debug.flk_h";

// The upper half of the stored line length is not line timing.
constexpr uint32_t kLineLengthMask = 0xFFFFu;
// The grab height is compared with the record's frame length less the
// vertical blanking the statistics never see.
constexpr int64_t kColumnLengthAllowance = 20;

// The set-up's lines are the manager's algorithm set-up's.
constexpr const char* kInitAlgo = "init_algo";
constexpr const char* kScaleLineLength = "scaleLineLength";

int32_t propInt(const char* key, int32_t defaultValue) {
  return NSCam::Utils::Properties::property_get_int32(key, defaultValue);
}

// Float to unsigned conversion as the device's conversion instruction does
// it: saturating, NaN and negatives give 0. A plain cast would be undefined
// outside the range.
uint32_t saturateToUnsigned(float value) {
  if (!(value > 0.0f))
    return 0;
  if (value >= 4294967296.0f)
    return UINT32_MAX;
  return static_cast<uint32_t>(value);
}

// Sensor lines per statistics line (the debug property may replace it) and
// the line length scaled by it: binning multiplies, resizing scales.
void scaleLineLength(const FlickerLineTiming& t, FlickerAlgoSetup::Values* v) {
  // No TG height gives ratio 0. Computed wide so that INT_MIN / -1 cannot
  // overflow.
  const int32_t defaultRatio =
      t.tgHeight == 0 ? 0
                      : static_cast<int32_t>(std::clamp<int64_t>(
                            static_cast<int64_t>(t.hbinHeight) / t.tgHeight, INT32_MIN, INT32_MAX));
  v->ratio = propInt(kPropRatio, defaultRatio);
  v->resizeRatio = 1.0f;
  if (v->ratio >= 2) {
    // Binning: each statistics line spans `ratio` sensor lines.
    v->lineLength *= static_cast<uint32_t>(v->ratio);
    FLK_LOGV_AS(kScaleLineLength, "update bin ratio(%d), line length(%u).", v->ratio,
                v->lineLength);
  } else {
    // Resizing. Without a TG height there is nothing to scale by: the resize
    // ratio stays 1.0 and the line length is kept as it is.
    if (t.tgHeight != 0)
      v->resizeRatio = static_cast<float>(t.hbinHeight) / static_cast<float>(t.tgHeight);
    v->lineLength = saturateToUnsigned(v->resizeRatio * static_cast<float>(v->lineLength));
    FLK_LOGD_AS(kScaleLineLength, "update rz ratio(%f), line length(%u).",
                static_cast<double>(v->resizeRatio), v->lineLength);
  }
}

}  // namespace

int32_t FlickerAlgoSetup::algoLogWord() {
  const int32_t propLog = propInt(kPropAlgoLogLevel, 0);
  const int32_t propData = propInt(kPropSystrace, 0);
  int32_t mask = 0;
  if (propLog == 1 || propLog == 2)
    mask |= 1;
  if (propLog == 2)
    mask |= 2;
  mask |= static_cast<int32_t>(static_cast<uint32_t>(propData) << 2);
  // Stream start sends the word; its line has always been Start's.
  FLK_LOGD_AS("Start", "prop_log:%d, prop_data:%d, loglevel:%d", propLog, propData, mask);
  return mask;
}

int FlickerAlgoSetup::initialHz(int32_t stateHz) {
  int initHz = 0;
  int halPara = 0;  // the product's HAL parameter: nothing here uses it
  cust_getFlickerHalPara(&initHz, &halPara);
  if (stateHz != 0)
    initHz = stateHz;
  const int32_t defHz = propInt(kPropDefHz, 0);
  if (defHz != 0)
    initHz = defHz;
  FLK_LOGD_AS(kInitAlgo, "init flicker Hz(%d).", initHz);
  return initHz;
}

FlickerAlgoSetup::Values FlickerAlgoSetup::compute(const FlickerLineTiming& timing,
                                                   const FlickerStatWindow& window,
                                                   int sensorBinning) {
  Values v;
  v.window = window;
  v.pixelClk = timing.pixelClk;
  v.lineLength = timing.pixelsInLine & kLineLengthMask;
  FLK_LOGD_AS(kInitAlgo, "pixel clock(%lld), line length(%d), grab height(%d).",
              static_cast<long long>(v.pixelClk), static_cast<int>(v.lineLength), window.imgH);
  scaleLineLength(timing, &v);
  // The sensor's own binning comes on top of the statistics scaling.
  v.lineLength *= static_cast<uint32_t>(sensorBinning);
  if (sensorBinning != 1)
    FLK_LOGD_AS(kInitAlgo, "Update pixel line with sensor binning ratio (%d).", sensorBinning);

  // Debug overrides of the live values.
  v.pixelClk = NSCam::Utils::Properties::property_get_int64(kPropClk, v.pixelClk);
  v.lineLength = static_cast<uint32_t>(propInt(kPropPixel, static_cast<int32_t>(v.lineLength)));
  v.window.winW = propInt(kPropWidth, v.window.winW);
  v.window.winH = propInt(kPropHeight, v.window.winH);
  return v;
}

void FlickerAlgoSetup::carryOver(const Values& values, FlickerLineTiming* timing) {
  timing->pixelClk = values.pixelClk;
  timing->pixelsInLine = values.lineLength;
}

bool FlickerAlgoSetup::checkSensorSetting(const Values& v, const FLICKER_SENSOR_SETTING& s) {
  bool mismatch = false;
  if (v.pixelClk != s.pclk) {
    FLK_LOGE("sensor pixel clock mismatch (parameter:%lld/received:%lld)",
             static_cast<long long>(s.pclk), static_cast<long long>(v.pixelClk));
    mismatch = true;
  }
  if (v.lineLength != static_cast<uint32_t>(s.line_length)) {
    FLK_LOGE("sensor line length mismatch (parameter:%d/received:%d)", s.line_length,
             static_cast<int>(v.lineLength));
    mismatch = true;
  }
  if (v.window.imgH != static_cast<int64_t>(s.column_length) - kColumnLengthAllowance) {
    FLK_LOGE("sensor column length mismatch (parameter:%d/received:%d)", s.column_length,
             v.window.imgH);
    mismatch = true;
  }
  return mismatch;
}
