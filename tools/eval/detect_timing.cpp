#include "detect_timing.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "sim_rig.h"
#include "sim_scenario.h"

namespace flicker_eval {

namespace {

// Distinct frames the detections cycle through, so consecutive calls do not
// see the same pair.
constexpr int kFrames = 8;
constexpr int kWarmUp = 20;

// Median time of copying one statistics block, taken from the same frames
// the detections cycle through (so from the same level of the caches): the
// yardstick of the detection step, which reads the blocks of both frames.
double timeCopy(const std::vector<flicker_sim::SimFrame>& frames, int runs) {
  std::vector<int64_t> copy(frames.front().stats.size());
  std::vector<double> us;
  us.reserve(static_cast<size_t>(runs));
  int64_t check = 0;
  for (int i = 0; i < kWarmUp + runs; ++i) {
    const std::vector<int64_t>& block = frames[static_cast<size_t>(i % kFrames)].stats;
    const auto start = std::chrono::steady_clock::now();
    memcpy(copy.data(), block.data(), std::min(copy.size(), block.size()) * sizeof(int64_t));
    const auto end = std::chrono::steady_clock::now();
    check += copy[static_cast<size_t>(i) % copy.size()];  // the copy is used
    if (i >= kWarmUp) {
      us.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
  }
  std::sort(us.begin(), us.end());
  return check >= 0 ? us[us.size() / 2] : 0.0;
}

}  // namespace

DetectTiming timeDetection(const FlickerExtPara& tuning, int runs) {
  DetectTiming t;
  flicker_sim::SimScenario scenario;
  if (runs < 1 || !flicker_sim::makeSimPreset("office-50hz", &scenario)) {
    return t;
  }
  flicker_sim::SimRig rig(scenario);
  flicker_sim::SimSensor* sensor = rig.sensor(0);
  const flicker_sim::SimGeometry& g = sensor->geometry();
  std::vector<flicker_sim::SimFrame> frames(kFrames);
  for (flicker_sim::SimFrame& f : frames) {
    sensor->nextFrame(&f);
  }

  FlkExtParaCmd ext{};
  ext.para = tuning;
  flk_SendCmd(FLK_CMD_SET_EXT_PARA, &ext, nullptr);
  FlkInitPara init{};
  init.sensorPath = FLK_PATH_GENERIC;
  init.lineLength = g.lineLengthClocks();
  init.statLineCount = g.statLines();
  init.statWidth = g.windowWidth();
  init.pixelClk = static_cast<double>(g.pixelClockHz);
  if (flk_SendCmd(FLK_CMD_INIT, &init, nullptr) != 0) {
    flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
    return t;
  }
  int32_t state = FLK_FREQ_50HZ;
  flk_SendCmd(FLK_CMD_RESET_QUEUE, &state, nullptr);

  std::vector<double> us;
  us.reserve(static_cast<size_t>(runs));
  int32_t aux[kFlkAuxWords] = {};
  for (int i = 0; i < kWarmUp + runs; ++i) {
    const flicker_sim::SimFrame& a = frames[static_cast<size_t>(i % kFrames)];
    const flicker_sim::SimFrame& b = frames[static_cast<size_t>((i + 1) % kFrames)];
    FlkDetectPara p{};
    p.sensorPath = FLK_PATH_GENERIC;
    p.statsSlot0 = a.stats.data();
    p.statsSlot1 = b.stats.data();
    p.windowRows = 3;
    p.windowCols = 6;
    p.winValue1 = a.windowWidth;
    p.winValue2 = a.windowHeight;
    p.freq = 50;
    p.pixelClk = static_cast<int32_t>(g.pixelClockHz);
    p.lineLength = g.lineLengthClocks();
    p.exposure = b.exposureTime;
    p.aux = aux;
    p.frameInterval = static_cast<int64_t>((b.sofS - a.sofS) * 1e9);
    FlkDetectResult r{};
    const auto start = std::chrono::steady_clock::now();
    flk_SendCmd(FLK_CMD_DETECT, &p, &r);
    const auto end = std::chrono::steady_clock::now();
    if (i >= kWarmUp) {
      us.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
  }
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);

  double sum = 0;
  for (const double v : us) {
    sum += v;
  }
  std::sort(us.begin(), us.end());
  t.measured = true;
  t.width = g.frameWidth;
  t.height = g.frameHeight;
  t.runs = runs;
  t.meanUs = sum / runs;
  t.medianUs = us[us.size() / 2];
  t.p95Us = us[std::min(us.size() - 1, us.size() * 95 / 100)];
  t.memcpyUs = timeCopy(frames, runs);
  return t;
}

}  // namespace flicker_eval
