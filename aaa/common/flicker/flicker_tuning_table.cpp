#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_tuning_table.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cam_data_path.h"
#include "cam_properties.h"
#include "flicker_log.h"

namespace {

constexpr const char* kPropReadFile = "vendor.debug.flk_read_file";

constexpr int kSecondSensorTypeRowOffset = 35;   // rows 35..69 serve the other sensor type
constexpr float kMinLightCyclesPerFrame = 1.5f;  // fewer ripple periods cannot be told apart
constexpr float kRipple50Hz = 100.0f;            // 50 Hz mains gives 100 Hz light ripple
constexpr float kRipple60Hz = 120.0f;            // 60 Hz mains gives 120 Hz light ripple

// Per-mode tuning override files; the device's own paths.
constexpr const char* kParaFiles[] = {
    "/data/vendor/flicker/para/flk_para_preview.txt",
    "/data/vendor/flicker/para/flk_para_capture.txt",
    "/data/vendor/flicker/para/flk_para_video.txt",
    "/data/vendor/flicker/para/flk_para_slim_video1.txt",
    "/data/vendor/flicker/para/flk_para_slim_video2.txt",
    "/data/vendor/flicker/para/flk_para_custom1.txt",
    "/data/vendor/flicker/para/flk_para_custom2.txt",
    "/data/vendor/flicker/para/flk_para_custom3.txt",
    "/data/vendor/flicker/para/flk_para_custom4.txt",
    "/data/vendor/flicker/para/flk_para_custom5.txt",
};
constexpr unsigned kParaFileCount = sizeof(kParaFiles) / sizeof(kParaFiles[0]);
static_assert(kParaFileCount == 10, "one override file per sensor mode 0..9");

// Reads the next decimal number of an override file; -1 on any failure.
int fileGetFlickerPara(FILE* fp) {
  if (fp == nullptr) {
    FLK_LOGE("invalid fp.");
    return -1;
  }
  int32_t value = 0;
  if (fscanf(fp, "%d", &value) >= 1) {
    FLK_LOGV("%d.", value);
    return value;
  }
  FLK_LOGE("failed to get para.");
  return -1;
}

// Light periods per frame too few to tell 50 from 60 Hz: a warning only.
void warnShortFrames(int row, int col, const FLICKER_SENSOR_SETTING& s) {
  // 32-bit product as the tuning tools compute it; wraps instead of
  // overflowing.
  const int32_t lines = static_cast<int32_t>(static_cast<uint32_t>(s.line_length) *
                                             static_cast<uint32_t>(s.column_length));
  const float frameTime = static_cast<float>(lines) / static_cast<float>(s.pclk);
  const float cycles50 = frameTime * kRipple50Hz;
  const float cycles60 = frameTime * kRipple60Hz;
  if (cycles50 < kMinLightCyclesPerFrame || std::isnan(cycles50) ||
      cycles60 < kMinLightCyclesPerFrame) {
    FLK_LOGE_AS("getFlickerParametersAll",
                "flicker cycle is too small, sensor scenario:%d bin_ratio:%d 50Hz:%f 60Hz:%f", row,
                col, static_cast<double>(cycles50), static_cast<double>(cycles60));
  }
}

// The selected record, field by field, at the most verbose level.
void logRecord(const FLICKER_CUST_PARA& p) {
  constexpr const char* kFn = "getTargetParameter";
  for (int i = 0; i < 9; ++i)
    FLK_LOGV_AS(kFn, "getTargetParameter(): para->flickerFreq[%d] = %d", i, p.flickerFreq[i]);
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->flickerGradThreshold = %d", p.flickerGradThreshold);
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->flickerSearchRange = %d", p.flickerSearchRange);
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->minPastFrames = %d", p.minPastFrames);
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->maxPastFrames = %d", p.maxPastFrames);
  const struct {
    const char* name;
    const FLICKER_LINEAR_MODEL& model;
  } models[] = {{"EV50_L50", p.EV50_L50},
                {"EV50_L60", p.EV50_L60},
                {"EV60_L50", p.EV60_L50},
                {"EV60_L60", p.EV60_L60}};
  for (const auto& m : models) {
    FLK_LOGV_AS(kFn, "getTargetParameter(): para->%s.m = %d", m.name, m.model.m);
    FLK_LOGV_AS(kFn, "getTargetParameter(): para->%s.b_l = %d", m.name, m.model.b_l);
    FLK_LOGV_AS(kFn, "getTargetParameter(): para->%s.b_r = %d", m.name, m.model.b_r);
    FLK_LOGV_AS(kFn, "getTargetParameter(): para->%s.offset = %d", m.name, m.model.offset);
  }
  const struct {
    const char* name;
    const int32_t* pair;
  } pairs[] = {{"EV50_thresholds", p.EV50_thresholds},
               {"EV60_thresholds", p.EV60_thresholds},
               {"freq_feature_index", p.freq_feature_index}};
  for (const auto& pair : pairs) {
    for (int i = 0; i < 2; ++i)
      FLK_LOGV_AS(kFn, "getTargetParameter(): para->%s[%d] = %d", pair.name, i, pair.pair[i]);
  }
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->sensor_setting.pclk = %lld",
              static_cast<long long>(p.sensor_setting.pclk));
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->sensor_setting.line_length = %d",
              p.sensor_setting.line_length);
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->sensor_setting.column_length = %d",
              p.sensor_setting.column_length);
  FLK_LOGV_AS(kFn, "getTargetParameter(): para->is_auto_gen = %d", p.is_auto_gen);
}

}  // namespace

FlickerTuningTable::~FlickerTuningTable() {
  if (flicker_para_array_ == nullptr)
    return;
  for (int row = 0; row < kFlickerScenarioRows; ++row) free(flicker_para_array_[row]);
  free(flicker_para_array_);
}

int FlickerTuningTable::allocate() {
  // Plain C allocations: the NVRAM layer writes into these blocks in place.
  flicker_para_array_ = static_cast<FLICKER_CUST_PARA**>(
      calloc(kFlickerScenarioRows,
             sizeof(FLICKER_CUST_PARA*)));  // NOLINT(bugprone-sizeof-expression): row pointers
  if (flicker_para_array_ == nullptr)
    return 1;
  int failures = 0;
  for (int row = 0; row < kFlickerScenarioRows; ++row) {
    flicker_para_array_[row] =
        static_cast<FLICKER_CUST_PARA*>(calloc(kFlickerBinRatios, sizeof(FLICKER_CUST_PARA)));
    failures += flicker_para_array_[row] == nullptr ? 1 : 0;
  }
  return failures;
}

bool FlickerTuningTable::getFlickerParametersAll(int sensorId, int sensorDev, int sensorModeTotal,
                                                 int binRatioTotal) {
  FLK_LOGD("SensorId(%d), SensorDev(%d), SensorMode total(%d), binRatio total(%d).", sensorId,
           sensorDev, sensorModeTotal, binRatioTotal);
  loaded_ = true;
  // A table that could not be allocated in full runs without tuning; its
  // owner reported that already, so this is not a failure here.
  if (flicker_para_array_ == nullptr)
    return true;
  for (int row = 0; row < kFlickerScenarioRows; ++row) {
    if (flicker_para_array_[row] == nullptr)
      return true;
  }

  const int rc = nvGetFlickerParaAll(static_cast<unsigned>(sensorId), sensorDev, sensorModeTotal,
                                     binRatioTotal, &flicker_para_array_);
  // Whatever NVRAM answered, every record is checked: the bounds are the
  // table's, not the totals passed in.
  for (int row = 0; row < kFlickerScenarioRows; ++row) {
    for (int col = 0; col < kFlickerBinRatios; ++col) {
      const FLICKER_CUST_PARA& rec = flicker_para_array_[row][col];
      if (rec.sensor_setting.pclk != 0)
        warnShortFrames(row, col, rec.sensor_setting);
      FLK_LOGV("flicker_para_array_[%d][%d].flickerGradThreshold = %d", row, col,
               rec.flickerGradThreshold);
      FLK_LOGV("flicker_para_array_[%d][%d].flickerSearchRange = %d", row, col,
               rec.flickerSearchRange);
    }
  }
  if (rc == 0)
    return true;
  FLK_LOGE("nvGetFlickerParaAll fail.");
  return false;
}

int64_t FlickerTuningTable::scenario(int sensorMode, int sensorType) {
  return static_cast<int64_t>(sensorMode) + (sensorType == 0 ? 0 : kSecondSensorTypeRowOffset);
}

void FlickerTuningTable::getTargetParameter(int sensorMode, int ratio,
                                            FLICKER_CUST_PARA* para) const {
  FLK_LOGV("SensorMode(%d), ratio(%d)", sensorMode, ratio);
  const int col = static_cast<int>(std::max(static_cast<double>(ratio) - 1.0, 0.0));
  if (ratio < 1)
    FLK_LOGE("bin ratio(%d) is wrong.", ratio);

  // The callers keep row and column in range; refuse rather than read outside
  // the table (also a row whose allocation failed).
  if (para == nullptr || flicker_para_array_ == nullptr || sensorMode < 0 ||
      sensorMode >= kFlickerScenarioRows || col >= kFlickerBinRatios ||
      flicker_para_array_[sensorMode] == nullptr) {
    FLK_LOGE("no tuning record for scenario(%d) column(%d): record left as it was", sensorMode,
             col);
    return;
  }
  *para = flicker_para_array_[sensorMode][col];
  if (flicker_log::debugOn(flicker_log::g_managerLevel, 3))
    logRecord(*para);
}

FLICKER_CUST_PARA FlickerTuningTable::recordFor(int sensorMode, int sensorType, int ratio) const {
  FLICKER_CUST_PARA para;
  memset(&para, 0, sizeof(para));
  const int64_t row = scenario(sensorMode, sensorType);
  if (row < 0 || row >= kFlickerScenarioRows) {
    FLK_LOGE_AS("init_algo", "sensor mode(%d) type(%d) has no tuning row: tuning record left zero",
                sensorMode, sensorType);
  } else {
    getTargetParameter(static_cast<int>(row), ratio, &para);
  }
  if (NSCam::Utils::Properties::property_get_int32(kPropReadFile, 0) != 0)
    getFlickerParametersFile(sensorMode, &para);
  return para;
}

void FlickerTuningTable::getFlickerParametersFile(int sensorMode, FLICKER_CUST_PARA* para) {
  FLK_LOGD("sensorMode(%d).", sensorMode);
  if (static_cast<unsigned>(sensorMode) >= kParaFileCount) {
    FLK_LOGE("invalid sensor mode.");
    return;
  }
  const char* devicePath = kParaFiles[sensorMode];
  char path[PATH_MAX];
  if (!flicker_map_data_path(devicePath, path, sizeof(path))) {
    FLK_LOGE("failed to open para file. (%s: path does not fit)", devicePath);
    return;
  }
  FILE* fp = fopen(path, "r");
  if (fp == nullptr) {
    FLK_LOGE("failed to open para file.");
    return;
  }

  // Every field is read, also after a failure: a number that is not there
  // becomes -1, and a word stops every later conversion.
  int32_t words[kFlickerAlgoWords];
  for (int i = 0; i < kFlickerAlgoWords; ++i) words[i] = fileGetFlickerPara(fp);
  static_assert(sizeof(words) == offsetof(FLICKER_CUST_PARA, freq_feature_index) + 8,
                "the file supplies the algorithm part of the record");
  memcpy(para, words, sizeof(words));

  if (fclose(fp) == -1)
    FLK_LOGE("fclose fail.");
}
