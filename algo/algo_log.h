// The algorithm's log: the log word and print function of the log command.
//
// Bit 0 of the word enables the summary lines (one per command and per
// detection), bit 1 adds the verbose lines (per-frequency evidence). Bits 2
// and up are the trace word; this algorithm has no trace points and keeps the
// word only. Without a print function nothing is logged. Each line is
// formatted here (1024 bytes, longer text is cut) and handed to the print
// function as "%s", so the sink never sees the algorithm's own format.
//
// Threading: its owner serialises access. The print function is called while
// the algorithm's lock is held, so it must not call back into flk_SendCmd.
#pragma once

#include <cstdint>

#include "flicker_algo_cmd.h"

namespace open_algo {

class AlgoLog {
 public:
  static constexpr int32_t kLogBit = 1 << 0;
  static constexpr int32_t kVerboseBit = 1 << 1;
  static constexpr int kTraceShift = 2;

  void set(int32_t word, FlkPrintFn print) {
    word_ = word;
    print_ = print;
  }
  bool on() const { return print_ != nullptr && (word_ & kLogBit) != 0; }
  bool verbose() const { return on() && (word_ & kVerboseBit) != 0; }
  int32_t traceWord() const {
    return static_cast<int32_t>(static_cast<uint32_t>(word_) >> kTraceShift);
  }

  void info(const char* format, ...) const __attribute__((format(printf, 2, 3)));
  void detail(const char* format, ...) const __attribute__((format(printf, 2, 3)));

 private:
  int32_t word_ = 0;
  FlkPrintFn print_ = nullptr;
};

}  // namespace open_algo

// Every line starts with the function name, like the rest of the stack.
#define ALGO_LOG(log, fmt, ...) (log).info("[%s] " fmt, __func__, ##__VA_ARGS__)
#define ALGO_LOGV(log, fmt, ...) (log).detail("[%s] " fmt, __func__, ##__VA_ARGS__)
