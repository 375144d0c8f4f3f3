// A minimal program on top of the installed flicker package: it drives the
// manager of sensor 0 through one short stream with all-zero statistics and
// prints the flicker state the manager reports. It uses only IFlickerMgr, as
// a 3A framework would; the platform and the algorithm come from the link.
//
// Exit status: 0 when every step behaved, 1 otherwise.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "iflicker_mgr.h"

namespace {

constexpr int kSensorIdx = 0;
constexpr int kSensorDev = 1;  // main sensor
constexpr int kSensorId = 0x5678;
constexpr int kFrames = 8;
constexpr int kWidth = 4000;
// The host's default tuning is for a 3200-line frame; the manager accepts it
// when the statistics image (the height less 45 rows) is 20 lines shorter.
constexpr int kHeight = 3225;
constexpr int32_t kExposureUs = 10000;
constexpr int64_t kFrameIntervalNs = 33333333;  // 30 frames per second

flicker_config_info makeConfig() {
  flicker_config_info config{};
  config.SensorMode = 0;
  config.HBIN_INFO.w = kWidth;
  config.HBIN_INFO.h = kHeight;
  config.TG_SIZE.w = kWidth;
  config.TG_SIZE.h = kHeight;
  config.PixelClk = 480000000;  // 480 Mpixel/s
  config.PixelsInLine = 5000;
  return config;
}

flicker_input_info makeInput() {
  flicker_input_info input{};
  input.flickerMode = FLICKER_MODE_AUTO;
  input.tgWidth = kWidth;
  input.tgHeight = kHeight;
  input.isMaster = 1;
  return input;
}

flicker_calc_info makeCalc(const uint8_t* stats, int frame) {
  flicker_calc_info calc{};
  calc.mVa = stats;
  calc.exposureTime = kExposureUs;
  calc.width = kWidth;
  calc.height = kHeight;
  calc.doFlkDetection = 1;
  calc.statValid = 1;
  calc.flkEnable = 1;
  calc.sof_timestamp = frame * kFrameIntervalNs;
  return calc;
}

int32_t readLe32(const uint8_t* p) {
  return static_cast<int32_t>(static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                              static_cast<uint32_t>(p[2]) << 16 |
                              static_cast<uint32_t>(p[3]) << 24);
}

bool check(bool ok, const char* step) {
  if (!ok)
    fprintf(stderr, "flicker consumer: %s failed\n", step);
  return ok;
}

}  // namespace

int main() {
  IFlickerMgr* mgr = IFlickerMgr::GetInstance(kSensorIdx);
  if (!check(mgr != nullptr, "GetInstance(0)"))
    return 1;

  bool ok = check(mgr->Init(kSensorDev, kSensorId) == 0, "Init");
  ok &= check(mgr->Config(makeConfig()), "Config");
  ok &= check(mgr->Start(flicker_start_info{}) == 0, "Start");

  // The block carries no size: it holds what the manager reads for this
  // frame size.
  const std::vector<uint8_t> stats(
      IFlickerMgr::StatBlockEntries(kWidth, kHeight) * kFlickerStatEntryBytes, 0);
  std::vector<uint8_t> result;
  for (int frame = 0; frame < kFrames; ++frame) {
    mgr->SetParam(makeInput());
    mgr->DoCalculation(makeCalc(stats.data(), frame));
    mgr->GetResult(&result);
  }
  ok &= check(result.size() == kFlickerResultSize, "GetResult size");

  ok &= check(mgr->Stop(), "Stop");
  ok &= check(mgr->Uninit() == 0, "Uninit");
  if (!ok)
    return 1;

  const int32_t state = readLe32(result.data() + offsetof(FlickerResultRecord, flickerState));
  printf("flickerState=%d (%s)\n", state, state == FLICKER_RESULT_60HZ ? "60 Hz" : "50 Hz");
  return state == FLICKER_RESULT_50HZ || state == FLICKER_RESULT_60HZ ? 0 : 1;
}
