#include "algo_driver.h"

#include <cmath>
#include <cstring>

namespace algo_test {
namespace {

int codeOf(int hz) {
  return hz == 60 ? FLK_FREQ_60HZ : (hz == 50 ? FLK_FREQ_50HZ : FLK_FREQ_NONE);
}

// Cycle mode analyses a pair every fourth frame.
constexpr int kCycleFrames = 4;

}  // namespace

FlickerExtPara zeroTuning() {
  FlickerExtPara p;
  std::memset(&p, 0, sizeof(p));
  return p;
}

FlkInitPara genericInit(int winH, int winW, uint32_t lineLength, double pixelClk) {
  FlkInitPara init;
  std::memset(&init, 0, sizeof(init));
  init.sensorPath = FLK_PATH_GENERIC;
  init.lineLength = lineLength;
  init.statLineCount = 3 * winH;
  init.statWidth = winW;
  init.pixelClk = pixelClk;
  return init;
}

AlgoDriver::AlgoDriver(const FlickerExtPara& tuning, int stateHz, const FlkInitPara& init)
    : stateHz_(stateHz) {
  send(FLK_CMD_UNINIT, nullptr);
  FlkLogPara log;
  std::memset(&log, 0, sizeof(log));
  send(FLK_CMD_SET_LOG, &log);
  FlkExtParaCmd ext;
  std::memset(&ext, 0, sizeof(ext));
  ext.para = tuning;
  send(FLK_CMD_SET_EXT_PARA, &ext);
  FlkInitPara initCopy = init;
  send(FLK_CMD_INIT, &initCopy);
  int32_t code = codeOf(stateHz);
  send(FLK_CMD_SET_STATE, &code);
  send(FLK_CMD_RESET_QUEUE, &code);
}

int32_t AlgoDriver::send(uint32_t cmd, void* in, void* out) {
  return flk_SendCmd(cmd, in, out);
}

void AlgoDriver::applyState(int hz) {
  stateHz_ = hz;
  int32_t code = codeOf(hz);
  send(FLK_CMD_SET_STATE, &code);
  send(FLK_CMD_RESET_QUEUE, &code);
}

FlkDetectPara AlgoDriver::record(const int64_t* slot0, const int64_t* slot1, int freqHz,
                                 int32_t exposureUs, int64_t intervalNs) {
  FlkDetectPara p;
  std::memset(&p, 0, sizeof(p));
  p.sensorPath = FLK_PATH_GENERIC;
  p.statsSlot1 = slot1;
  p.statsSlot0 = slot0;
  p.windowRows = 3;
  p.windowCols = 6;
  p.winValue1 = kWinW;
  p.winValue2 = kWinH;
  p.freq = freqHz;
  p.pixelClk = static_cast<int32_t>(kPixelClk);
  p.lineLength = kLineLength;
  p.exposure = exposureUs;
  p.frameInterval = intervalNs;
  return p;
}

DetectOutcome AlgoDriver::detectRecord(FlkDetectPara record) {
  DetectOutcome o{};
  o.result = {FLK_FREQ_NONE, 0, 0};
  record.aux = o.aux;
  o.rc = send(FLK_CMD_DETECT, &record, &o.result);
  return o;
}

DetectOutcome AlgoDriver::detect(const std::vector<int64_t>& slot0,
                                 const std::vector<int64_t>& slot1, int32_t exposureUs,
                                 int64_t intervalNs) {
  return detectRecord(record(slot0.data(), slot1.data(), stateHz_, exposureUs, intervalNs));
}

void AlgoDriver::follow(const FlkDetectResult& result) {
  if (result.state == FLK_FREQ_50HZ && stateHz_ == 60) {
    applyState(50);
  } else if (result.state == FLK_FREQ_60HZ && stateHz_ == 50) {
    applyState(60);
  }
}

ScenarioRun runScenario(const Scenario& s, AlgoDriver& driver) {
  StatsPairBuilder builder(s.sensor, s.light);
  ScenarioRun run;
  std::vector<int64_t> slots[2];
  double slotStart[2] = {0.0, 0.0};
  int frame = 0;
  for (int pair = 0; pair < s.pairs; ++pair) {
    const double exposure = driver.stateHz() == 60 ? s.exposure60 : s.exposure50;
    if (s.everyFrame) {
      // One new frame per detection into alternating slots, so slot 1 holds
      // the earlier frame every other time.
      if (frame == 0) {
        slots[0] = builder.frame(0.0, exposure, s.scene, 0);
        frame = 1;
      }
      const int slot = frame % 2;
      slotStart[slot] = frame * s.framePeriod;
      slots[slot] = builder.frame(slotStart[slot], exposure, s.scene, frame);
      ++frame;
    } else {
      frame = pair * kCycleFrames;
      for (int k = 0; k < 2; ++k) {
        slotStart[k] = (frame + k) * s.framePeriod;
        slots[k] = builder.frame(slotStart[k], exposure, s.scene, frame + k);
      }
    }
    const int64_t interval = std::llround(std::fabs(slotStart[1] - slotStart[0]) * 1e9);
    const DetectOutcome o = driver.detect(
        slots[0], slots[1], static_cast<int32_t>(std::lround(exposure * 1e6)), interval);
    const int before = driver.stateHz();
    driver.follow(o.result);
    if (driver.stateHz() != before) {
      ++run.switches;
      if (run.firstSwitch < 0) {
        run.firstSwitch = pair;
      }
    }
    run.results.push_back(o.result);
    run.stateAfter.push_back(driver.stateHz());
  }
  return run;
}

}  // namespace algo_test
