#include "algo_log.h"

#include <cstdarg>
#include <cstdio>

namespace open_algo {
namespace {

constexpr size_t kLineSize = 1024;

void emit(FlkPrintFn print, const char* format, va_list args) {
  char line[kLineSize];
  if (vsnprintf(line, sizeof(line), format, args) >= 0) {
    print("%s", line);
  }
}

}  // namespace

void AlgoLog::info(const char* format, ...) const {
  if (!on()) {
    return;
  }
  va_list args;
  va_start(args, format);
  emit(print_, format, args);
  va_end(args);
}

void AlgoLog::detail(const char* format, ...) const {
  if (!verbose()) {
    return;
  }
  va_list args;
  va_start(args, format);
  emit(print_, format, args);
  va_end(args);
}

}  // namespace open_algo
