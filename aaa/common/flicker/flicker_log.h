// The library's one logging macro family.
//
// Every message goes to the framework's two sinks (debug print and unified
// logger, see cam_log.h). A source file defines, before including this header,
//   #define LOG_TAG "FlickerMgr"
//   #define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel   // a flicker_log::FileLevel
// and then logs with:
//   FLK_LOGE(fmt, ...)  error: never gated; the debug-print form carries the
//                       tail " (%s){#%d:%s}" (function, line, source path)
//   FLK_LOGI(fmt, ...)  normal messages: file level 0 and up
//   FLK_LOG1(fmt, ...)  report lines: file level 1 and up
//   FLK_LOGD(fmt, ...)  detail: file level 2 and up (the usual debug line)
//   FLK_LOGV(fmt, ...)  most verbose: file level 3 and up
// Non-error messages also need the framework's details level 5 and both bits
// of the flicker module mask; that gate is tested before any formatting, so a
// disabled message costs three integer tests. Every message is prefixed with
// "[<function>] ". Each sink formats into one 1024-byte stack buffer, so
// longer texts are cut at 1023 characters.
//
// FLK_LOGE_AS, FLK_LOGD_AS and FLK_LOGV_AS take the function name to show as
// their first argument: a part that carries out one step of its owner (the
// manager's algorithm set-up, say) logs under that step's name, so that a log
// reads the same whichever file the code sits in.
//
// The manager and its parts log as one unit under "FlickerMgr", at the level
// that the manager's Init and Start read (g_managerLevel); the adapter and its
// parts under "FlickerPlatformAdapter", at the level its init reads
// (g_adapterLevel).
//
// Thread-safety: the macros may be used from any thread; the file level is a
// relaxed atomic because Init/Start write it while worker threads log.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "cam_log.h"

namespace flicker_log {

using FileLevel = std::atomic<int32_t>;

constexpr unsigned kDetailsLevelMin = 5;
constexpr size_t kLineSize = 1024;

// Level of each sink's message for debug and error lines.
constexpr int kDbgPrintDebug = CAM_LOG_LEVEL_DEBUG;
constexpr int kDbgPrintError = CAM_LOG_LEVEL_ERROR;
constexpr int kULogDebug = NSCam::Utils::ULog::ULOG_LEVEL_DEBUG;
constexpr int kULogError = NSCam::Utils::ULog::ULOG_LEVEL_ERROR;

// Framework gate for non-error messages (the file level is tested by callers).
inline bool frameworkDetailsOn() {
  using NSCam::Utils::ULog::kFlickerModuleMask;
  using NSCam::Utils::ULog::ULogger;
  return ULogger::sDetailsLevel >= kDetailsLevelMin &&
         (ULogger::sNormalDetailsMask & kFlickerModuleMask) == kFlickerModuleMask;
}

extern FileLevel g_managerLevel;
extern FileLevel g_adapterLevel;

inline bool debugOn(const FileLevel& fileLevel, int minLevel) {
  return fileLevel.load(std::memory_order_relaxed) >= minLevel && frameworkDetailsOn();
}

inline bool dbgPrintSinkOn(int level) {
  return (NSCam::Utils::ULog::ULogger::sMode & 0x1) != 0 &&
         (g_logInfoLv[level].flags & kLogInfoLvEnabled) != 0;
}

inline bool unifiedSinkOn() {
  return (NSCam::Utils::ULog::ULogger::sMode & 0xA) != 0;
}

// Formats the message alone and hands it to the unified logger; a formatting
// failure skips this sink for this message only.
void writeUnified(const char* tag, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Compile-time check of a message's format against its arguments; never runs.
inline void checkFormat(const char* /*format*/, ...) __attribute__((format(printf, 1, 2)));
inline void checkFormat(const char* /*format*/, ...) {}

}  // namespace flicker_log

// Writes one message to the debug-print sink at `dbgLevel`. `lineFmt` is the
// message format (a string literal) and becomes the format of log_dbg_print
// behind the framework's line header, which names `func`.
#define FLK_LOG_DBGPRINT_(func, tag, dbgLevel, lineFmt, ...)                                     \
  do {                                                                                           \
    if (flicker_log::dbgPrintSinkOn(dbgLevel)) {                                                 \
      char flkLine_[flicker_log::kLineSize];                                                     \
      snprintf(flkLine_, sizeof(flkLine_), "%s[%s] %s:%d %s() %s", g_logInfoLv[dbgLevel].prefix, \
               tag, get_filename_log_control(__FILE__), __LINE__, func, lineFmt);                \
      log_dbg_print(tag, dbgLevel, flkLine_, ##__VA_ARGS__);                                     \
    }                                                                                            \
  } while (0)

// A debug message under `tag` through both sinks, without the level gate.
#define FLK_LOG_DEBUG_TAGGED_(func, tag, fmt, ...)                                 \
  do {                                                                             \
    if (false)                                                                     \
      flicker_log::checkFormat(fmt, ##__VA_ARGS__);                                \
    FLK_LOG_DBGPRINT_(func, tag, flicker_log::kDbgPrintDebug, fmt, ##__VA_ARGS__); \
    if (flicker_log::unifiedSinkOn()) {                                            \
      flicker_log::writeUnified(tag, flicker_log::kULogDebug, fmt, ##__VA_ARGS__); \
    }                                                                              \
  } while (0)

#define FLK_LOG_AT_(func, minLevel, fmt, ...)                                 \
  do {                                                                        \
    if (flicker_log::debugOn(FLK_LOG_LEVEL_VAR, minLevel)) {                  \
      FLK_LOG_DEBUG_TAGGED_(func, LOG_TAG, "[%s] " fmt, func, ##__VA_ARGS__); \
    }                                                                         \
  } while (0)

#define FLK_LOG_AT(minLevel, fmt, ...) FLK_LOG_AT_(__FUNCTION__, minLevel, fmt, ##__VA_ARGS__)
#define FLK_LOGI(fmt, ...) FLK_LOG_AT_(__FUNCTION__, 0, fmt, ##__VA_ARGS__)
#define FLK_LOG1(fmt, ...) FLK_LOG_AT_(__FUNCTION__, 1, fmt, ##__VA_ARGS__)
#define FLK_LOGD(fmt, ...) FLK_LOG_AT_(__FUNCTION__, 2, fmt, ##__VA_ARGS__)
#define FLK_LOGV(fmt, ...) FLK_LOG_AT_(__FUNCTION__, 3, fmt, ##__VA_ARGS__)
#define FLK_LOGD_AS(func, fmt, ...) FLK_LOG_AT_(func, 2, fmt, ##__VA_ARGS__)
#define FLK_LOGV_AS(func, fmt, ...) FLK_LOG_AT_(func, 3, fmt, ##__VA_ARGS__)

#define FLK_LOGE_AS(func, fmt, ...)                                                            \
  do {                                                                                         \
    if (false)                                                                                 \
      flicker_log::checkFormat("[%s] " fmt, func, ##__VA_ARGS__);                              \
    FLK_LOG_DBGPRINT_(func, LOG_TAG, flicker_log::kDbgPrintError, "[%s] " fmt " (%s){#%d:%s}", \
                      func, ##__VA_ARGS__, func, __LINE__, __FILE__);                          \
    if (flicker_log::unifiedSinkOn()) {                                                        \
      flicker_log::writeUnified(LOG_TAG, flicker_log::kULogError, "[%s] " fmt, func,           \
                                ##__VA_ARGS__);                                                \
    }                                                                                          \
  } while (0)

#define FLK_LOGE(fmt, ...) FLK_LOGE_AS(__FUNCTION__, fmt, ##__VA_ARGS__)
