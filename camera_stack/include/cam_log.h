// Log sinks of the camera framework.
//
// Two sinks receive every library message: the debug-print service
// (log_dbg_print) and the unified logger (ULogger::write). Their switches are
// framework state read on every message, without a lock: ULogger::sMode
// (bit 0: debug-print sink; bit 1 or 3: unified-logger sink),
// ULogger::sDetailsLevel, ULogger::sNormalDetailsMask, and g_logInfoLv, a
// table indexed by message level (0 debug, 1 error) holding an enable flag
// (top bit of `flags`) and a line prefix. The sinks are thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>

// Levels of the debug-print sink (index into g_logInfoLv).
enum : int { CAM_LOG_LEVEL_DEBUG = 0, CAM_LOG_LEVEL_ERROR = 1 };

struct LogInfoLv {
  uint8_t flags;       // bit 7: this level is enabled
  const char* prefix;  // put in front of every line of this level
};
constexpr uint8_t kLogInfoLvEnabled = 0x80;

extern "C" {
// Level-indexed table; entries 0 (debug) and 1 (error) are used.
extern LogInfoLv g_logInfoLv[2];

// Writes one line. `format` is a printf format followed by its arguments.
void log_dbg_print(const char* tag, int level, const char* format, ...);

// The file name to show for a source path (for example its last component).
const char* get_filename_log_control(const char* path);
}

namespace NSCam {
namespace Utils {
namespace ULog {

// Unified-logger levels and the module mask the flicker library logs under.
enum : int { ULOG_LEVEL_ERROR = 1, ULOG_LEVEL_DEBUG = 5 };
constexpr uint32_t kFlickerModuleMask = 0x801000;

class ULogger {
 public:
  static int sMode;
  static unsigned int sDetailsLevel;
  static unsigned int sNormalDetailsMask;

  // Writes `length` bytes of `text` (NUL-terminated) for module `mask`.
  static void write(uint32_t mask, const char* tag, int level, const char* text, size_t length);
};

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
