// The open flicker detection algorithm behind flk_SendCmd: decodes the
// command records, validates them, and runs detection (RippleAnalyzer) and
// the verdict with history (StateDecider).
//
// Command handling:
//  0 init: keeps the statistics line time (lineLength / pixelClk) and clears
//    the history. Only the generic path (0) is analysed; the two
//    sensor-specific paths are accepted but every detection on them answers
//    "neither" with scores 0, because their small blocks do not carry a
//    line profile long enough for a band-period fit.
//  1 release: back to uninitialised; the history, hold-off and applied
//    frequency are forgotten (the next stream's first detection record brings
//    the manager's state); the tuning and the log settings are kept.
//  2 detect: see RippleAnalyzer and StateDecider; any invalid input answers
//    "neither" with scores 0 and returns -1.
//  3 tuning: decoded at once and kept across init and release, so tuning that
//    arrives before init applies to it.
//  4 applied frequency, 5 history reset to a frequency: accepted at any time,
//    also before init (the manager sets its first state before it inits).
//  6 log word and print function.
// Every command returns 0 on success and -1 on a bad record or unknown
// command.
//
// Threading: not thread-safe by itself; flk_SendCmd serialises all commands
// with one process-wide mutex. The object holds all its working memory, so a
// detection allocates nothing.
#pragma once

#include <cstdint>

#include "algo_log.h"
#include "algo_tuning.h"
#include "flicker_algo_cmd.h"
#include "ripple_analyzer.h"
#include "state_decider.h"

namespace open_algo {

class OpenFlickerAlgo {
 public:
  OpenFlickerAlgo();

  int32_t handle(uint32_t cmd, void* in, void* out);

 private:
  int32_t init(const FlkInitPara* para);
  int32_t release();
  int32_t detect(const FlkDetectPara* para, FlkDetectResult* result);
  int32_t setTuning(const FlkExtParaCmd* para);
  int32_t setFrequency(const int32_t* code, bool resetHistory);
  int32_t setLog(const FlkLogPara* para);

  // Checks the detection record against the initialised geometry and fills
  // `pair`; false (with the reason logged) when it cannot be analysed.
  bool pairFor(const FlkDetectPara& para, PairInput* pair) const;
  void adoptRecordFrequency(int32_t hz);
  void writeAux(int32_t* aux, const Decision& d) const;
  void logEvidence() const;

  AlgoLog log_;
  AlgoKnobs knobs_;
  bool initialised_ = false;
  int32_t sensorPath_ = FLK_PATH_GENERIC;
  double lineTime_ = 0.0;  // seconds per statistics line, 0 when the init record was unusable
  int32_t statLines_ = 0;
  RippleAnalyzer analyzer_;
  StateDecider decider_;
  PairEvidence evidence_{};
};

}  // namespace open_algo
