// Flicker tuning as the camera NVRAM layer stores it.
//
// FLICKER_CUST_PARA is exchanged with the NVRAM library and copied into the
// algorithm's extra-parameter record, so its layout is fixed (168 bytes,
// little-endian). The first 35 int32 words are the algorithm part.
#pragma once

#include <cstddef>
#include <cstdint>

struct FLICKER_LINEAR_MODEL {
  int32_t m;
  int32_t b_l;
  int32_t b_r;
  int32_t offset;
};

// Sensor timing the record was tuned for.
struct FLICKER_SENSOR_SETTING {
  int64_t pclk;           // pixels per second
  int32_t line_length;    // pixel clocks per line, blanking included
  int32_t column_length;  // lines per frame, blanking included
};

struct FLICKER_CUST_PARA {
  int32_t flickerFreq[9];
  int32_t flickerGradThreshold;
  int32_t flickerSearchRange;
  int32_t minPastFrames;
  int32_t maxPastFrames;
  FLICKER_LINEAR_MODEL EV50_L50;
  FLICKER_LINEAR_MODEL EV50_L60;
  FLICKER_LINEAR_MODEL EV60_L50;
  FLICKER_LINEAR_MODEL EV60_L60;
  int32_t EV50_thresholds[2];
  int32_t EV60_thresholds[2];
  int32_t freq_feature_index[2];
  FLICKER_SENSOR_SETTING sensor_setting;
  uint8_t is_auto_gen;
};
static_assert(sizeof(FLICKER_CUST_PARA) == 168, "tuning record is 168 bytes");
static_assert(offsetof(FLICKER_CUST_PARA, flickerGradThreshold) == 36, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, flickerSearchRange) == 40, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, minPastFrames) == 44, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, maxPastFrames) == 48, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, EV50_L50) == 52, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, EV50_L60) == 68, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, EV60_L50) == 84, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, EV60_L60) == 100, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, EV50_thresholds) == 116, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, EV60_thresholds) == 124, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, freq_feature_index) == 132, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, sensor_setting) == 144, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, sensor_setting.line_length) == 152, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, sensor_setting.column_length) == 156, "layout");
static_assert(offsetof(FLICKER_CUST_PARA, is_auto_gen) == 160, "layout");

constexpr int kFlickerScenarioRows = 70;  // 35 sensor modes x 2 sensor types
constexpr int kFlickerBinRatios = 2;      // binning ratio 1 and 2
constexpr int kFlickerAlgoWords = 35;     // int32 words of the algorithm part

// Fills the table `*table` (sensorModeTotal row pointers, each to
// binRatioTotal records, allocated by the caller) for one sensor. Returns 0 on
// success, anything else on failure. Called on the caller's thread.
extern "C" int nvGetFlickerParaAll(unsigned int sensorId, int sensorDev, int sensorModeTotal,
                                   int binRatioTotal, FLICKER_CUST_PARA*** table);
