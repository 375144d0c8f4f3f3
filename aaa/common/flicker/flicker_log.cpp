#include "flicker_log.h"

#include <cstdarg>
#include <cstring>

namespace flicker_log {

FileLevel g_managerLevel{0};
FileLevel g_adapterLevel{0};

void writeUnified(const char* tag, int level, const char* format, ...) {
  char text[kLineSize];
  va_list args;
  va_start(args, format);
  const int written = vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  if (written < 0)
    return;
  text[sizeof(text) - 1] = '\0';
  const size_t length = static_cast<size_t>(written) < sizeof(text) - 1
                            ? static_cast<size_t>(written)
                            : sizeof(text) - 1;
  NSCam::Utils::ULog::ULogger::write(NSCam::Utils::ULog::kFlickerModuleMask, tag, level, text,
                                     length);
}

}  // namespace flicker_log
