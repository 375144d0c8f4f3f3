// IFlickerMgr: the per-sensor anti-banding manager as the 3A framework sees it,
// with the records it exchanges.
//
// The framework gets the manager of a sensor index (0..19) through
// IFlickerMgr::GetInstance and drives it from its 3A thread:
//   Init -> Config -> Start -> per frame SetParam, DoCalculation, GetResult
//   -> Stop -> Uninit
// Every operation but GetResult is serialised by the instance's own lock;
// GetResult takes no lock and may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Anti-banding modes of SetParam.
enum : int32_t {
  FLICKER_MODE_50HZ = 1,
  FLICKER_MODE_60HZ = 2,
  FLICKER_MODE_AUTO = 3,
};

// Geometry handed to Config and LightWeightReConfig.
struct flicker_config_info {
  int32_t SensorMode;
  struct {
    int32_t w;
    int32_t h;
  } HBIN_INFO;  // horizontal-binning output size
  struct {
    int32_t w;
    int32_t h;
  } TG_SIZE;              // sensor output size
  uint32_t PixelClk;      // pixels per second
  uint32_t PixelsInLine;  // pixel clocks per line
};
static_assert(sizeof(flicker_config_info) == 28, "seven 32-bit fields");

// Accepted by Start for interface compatibility; the manager reads nothing.
struct flicker_start_info {};

// Per-frame control inputs of SetParam.
struct flicker_input_info {
  int32_t sensorType;
  int32_t flickerMode;  // FLICKER_MODE_*; other values: no fixed frequency, no detection
  int32_t sensorMode;
  int32_t tgWidth;
  int32_t tgHeight;
  int32_t isMaster;  // 1 or -1: this sensor should detect; 0: it should not
  int32_t aeTargetMode;
};
static_assert(sizeof(flicker_input_info) == 28, "seven 32-bit fields");

// Per-frame data of DoCalculation. `mVa` is owned by the caller and valid only
// during the call.
struct flicker_calc_info {
  const uint8_t* mVa;    // this frame's flicker statistics block
  int32_t exposureTime;  // microseconds
  int32_t twinType;
  int32_t twinWinX;
  int32_t twinWinY;
  int32_t width;   // sensor output width, before the pixel-mode reduction
  int32_t height;  // sensor output height
  int32_t doFlkDetection;
  int32_t aeDetectCycle;  // 0: manager's own cycle; > 0: frames per cycle; < 0: invalid
  int32_t statValid;
  int32_t pixel_mode;  // width is shifted right by this many bits
  int32_t flkEnable;
  int32_t needReinit;
  int64_t sof_timestamp;  // start of frame, nanoseconds
};
static_assert(offsetof(flicker_calc_info, sof_timestamp) % 8 == 0, "aligned timestamp");

// The 84-byte result record GetResult writes, little-endian.
struct FlickerResultRecord {
  uint8_t valid;  // always 1
  uint8_t untouched[3];
  int32_t flickerState;  // 1: 50 Hz, 2: 60 Hz
  int32_t flickerFrameRateActive;
  int32_t flickerScore50;
  int32_t flickerScore60;
  int32_t flickerScoreActive;
  int32_t statWords[13];  // words 0, 2, 4, 7..16 of the statistics configuration
  int32_t hdrFlkSrc;
  int32_t sensorModeChanged;
};
static_assert(sizeof(FlickerResultRecord) == 84, "result record is 84 bytes");
static_assert(offsetof(FlickerResultRecord, flickerState) == 4, "layout");
static_assert(offsetof(FlickerResultRecord, flickerFrameRateActive) == 8, "layout");
static_assert(offsetof(FlickerResultRecord, flickerScore50) == 12, "layout");
static_assert(offsetof(FlickerResultRecord, flickerScore60) == 16, "layout");
static_assert(offsetof(FlickerResultRecord, flickerScoreActive) == 20, "layout");
static_assert(offsetof(FlickerResultRecord, statWords) == 24, "layout");
static_assert(offsetof(FlickerResultRecord, hdrFlkSrc) == 76, "layout");
static_assert(offsetof(FlickerResultRecord, sensorModeChanged) == 80, "layout");
constexpr size_t kFlickerResultSize = sizeof(FlickerResultRecord);

// Bytes per statistics entry on the common sensor path (little-endian int64).
constexpr size_t kFlickerStatEntryBytes = 8;

// Values of FlickerResultRecord::flickerState.
enum : int32_t { FLICKER_RESULT_50HZ = 1, FLICKER_RESULT_60HZ = 2 };

class IFlickerMgr {
 public:
  virtual ~IFlickerMgr() = default;

  // The manager of sensor index 0..19, created on first use; null otherwise.
  static IFlickerMgr* GetInstance(int sensorIdx);

  // Entries of the statistics block (flicker_calc_info::mVa) that
  // DoCalculation reads for a frame of `width` x `height` (the frame's own
  // size as passed in flicker_calc_info) on the common sensor path:
  // 18 x 2 x ((min(height, 6039) - 45) / 6) entries of kFlickerStatEntryBytes
  // each; 0 when the size leaves no statistics window. The block carries no
  // size of its own: it must hold at least this many entries.
  static size_t StatBlockEntries(int32_t width, int32_t height);

  virtual int Init(int sensorDev, int sensorId) = 0;
  virtual int Uninit() = 0;
  virtual bool Config(const flicker_config_info& config) = 0;
  virtual bool LightWeightReConfig(const flicker_config_info& config) = 0;
  virtual int Start(const flicker_start_info& start) = 0;
  virtual bool Stop() = 0;
  virtual int SetParam(const flicker_input_info& input) = 0;
  virtual int DoCalculation(const flicker_calc_info& calc) = 0;
  virtual int GetResult(std::vector<uint8_t>* output) = 0;
};
