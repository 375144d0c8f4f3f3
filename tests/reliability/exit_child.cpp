// A camera service that ends without Stop or Uninit: it drives sensor 0 of
// the real manager, over the host platform and the open algorithm, through
// `frames` frames of statistics, waits `delay_us` microseconds so that the
// exit falls at some point of the detection the last pair started, and
// returns from main. Its exit status is 0 unless the exit crashes.
//
// Usage: flicker_exit_child FRAMES DELAY_US
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "iflicker_mgr.h"

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3225;
constexpr int32_t kExposureUs = 10000;
constexpr int64_t kFramePeriodNs = 33333333;

// Statistics of a 50 Hz lamp whose bands drift between frames, so that every
// detection runs its whole analysis.
std::vector<int64_t> statistics(size_t entries, int frame) {
  constexpr int kWindowsPerRow = 18;
  std::vector<int64_t> block(entries);
  for (size_t i = 0; i < entries; ++i) {
    const size_t rowIndex = i / kWindowsPerRow;  // 18 windows side by side per statistics line
    const double row = static_cast<double>(rowIndex);
    const double band = 0.1 * std::sin(0.05 * row + 1.3 * frame);
    block[i] = static_cast<int64_t>(4.0e6 * (1.0 + band) + 1000.0 * (i % kWindowsPerRow));
  }
  return block;
}

void spin(int delayUs) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(delayUs);
  while (std::chrono::steady_clock::now() < until) {
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: flicker_exit_child FRAMES DELAY_US\n");
    return 2;
  }
  const int frames = atoi(argv[1]);
  const int delayUs = atoi(argv[2]);

  IFlickerMgr* mgr = IFlickerMgr::GetInstance(0);
  if (mgr == nullptr)
    return 3;
  flicker_config_info config{};
  config.HBIN_INFO = {kWidth, kHeight};
  config.TG_SIZE = {kWidth, kHeight};
  config.PixelClk = 480000000;
  config.PixelsInLine = 5000;
  mgr->Init(1, 0x5678);
  mgr->Config(config);
  mgr->Start(flicker_start_info{});

  const size_t entries = IFlickerMgr::StatBlockEntries(kWidth, kHeight);
  std::vector<uint8_t> result;
  for (int frame = 0; frame < frames; ++frame) {
    const std::vector<int64_t> block = statistics(entries, frame);
    flicker_input_info input{};
    input.flickerMode = FLICKER_MODE_AUTO;
    input.tgWidth = kWidth;
    input.tgHeight = kHeight;
    input.isMaster = 1;
    mgr->SetParam(input);
    flicker_calc_info calc{};
    calc.mVa = reinterpret_cast<const uint8_t*>(block.data());
    calc.exposureTime = kExposureUs;
    calc.width = kWidth;
    calc.height = kHeight;
    calc.doFlkDetection = 1;
    calc.statValid = 1;
    calc.flkEnable = 1;
    calc.sof_timestamp = frame * kFramePeriodNs;
    mgr->DoCalculation(calc);
    mgr->GetResult(&result);
  }
  spin(delayUs);
  return 0;  // no Stop, no Uninit
}
