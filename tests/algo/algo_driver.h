// Drives the algorithm through flk_SendCmd the way the adapter and manager
// do, for the algorithm tests: fresh state per driver, detection records
// built like the adapter's, and a closed loop that switches the applied
// frequency on the verdict exactly as the manager does.
#pragma once

#include <cstdint>
#include <vector>

#include "flicker_algo_cmd.h"
#include "stats_pair_builder.h"

namespace algo_test {

struct DetectOutcome {
  int32_t rc;
  FlkDetectResult result;
  int32_t aux[kFlkAuxWords];
};

// Geometry of the tests' default sensor: 4000 x 3000 image, window 666 x 984.
constexpr int kWinW = 666;
constexpr int kWinH = 984;
constexpr uint32_t kLineLength = 4800;  // pixel clocks per statistics line
constexpr double kPixelClk = 480e6;     // 10 us per line

FlickerExtPara zeroTuning();
FlkInitPara genericInit(int winH = kWinH, int winW = kWinW, uint32_t lineLength = kLineLength,
                        double pixelClk = kPixelClk);

class AlgoDriver {
 public:
  // Releases the process-wide algorithm, then sends tuning (before init, as
  // the manager does), a silent log set-up, init and the applied frequency.
  explicit AlgoDriver(const FlickerExtPara& tuning = zeroTuning(), int stateHz = 50,
                      const FlkInitPara& init = genericInit());

  int32_t send(uint32_t cmd, void* in, void* out = nullptr);
  // What the manager does after it changes its state: state, then history reset.
  void applyState(int hz);
  int stateHz() const { return stateHz_; }

  DetectOutcome detect(const std::vector<int64_t>& slot0, const std::vector<int64_t>& slot1,
                       int32_t exposureUs, int64_t intervalNs);
  // Sends a prepared record (for bad-input tests).
  DetectOutcome detectRecord(FlkDetectPara record);
  // Manager rule: 50 Hz verdict while at 60 moves to 50, 60 Hz while at 50 to 60.
  void follow(const FlkDetectResult& result);

  static FlkDetectPara record(const int64_t* slot0, const int64_t* slot1, int freqHz,
                              int32_t exposureUs, int64_t intervalNs);

 private:
  int stateHz_;
};

// One closed-loop scenario: a light, a scene, the exposure AE picks for each
// state, and the frame timing.
struct Scenario {
  Light light;
  Sensor sensor;
  SceneFn scene = StatsPairBuilder::flat();
  double exposure50 = 10e-3;     // AE keeps 10 ms multiples in state 50
  double exposure60 = 8.333e-3;  // and 8.33 ms multiples in state 60
  double framePeriod = 36e-3;    // 27.8 fps: both ripples move between frames
  bool everyFrame = false;       // slots alternate instead of cycle pairs
  int startHz = 50;
  int pairs = 10;
};

struct ScenarioRun {
  std::vector<int> stateAfter;  // applied state (Hz) after each detection
  std::vector<FlkDetectResult> results;
  int firstSwitch = -1;  // detection index of the first state change
  int switches = 0;
};

ScenarioRun runScenario(const Scenario& s, AlgoDriver& driver);

}  // namespace algo_test
