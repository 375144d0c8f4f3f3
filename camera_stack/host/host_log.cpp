#include "host_log.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string_view>

#include "cam_log.h"
#include "cam_string.h"

namespace flicker_host {

namespace {

constexpr int kUnifiedSinkBit = 0x2;
constexpr size_t kMessageSize = 4096;  // longer messages are cut; the library cuts at 1023

struct LogState {
  std::mutex mutex;
  bool quiet = false;
  FILE* debugFile = nullptr;  // null: stderr
  FILE* unifiedFile = nullptr;
};

LogState& logState() {
  static LogState s;
  return s;
}

// "MM-DD HH:MM:SS.mmm  pid  tid L tag: " as logcat's threadtime format.
int formatHeader(char* out, size_t size, char level, const char* tag) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
  return snprintf(out, size, "%s.%03ld %5d %5ld %c %s: ", stamp, now.tv_nsec / 1000000L,
                  static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)), level,
                  tag != nullptr ? tag : "");
}

// Writes header, message and newline in one call so lines of threads never mix.
void writeLine(FILE* file, char level, const char* tag, const char* message, size_t length) {
  char line[kMessageSize + 128];
  int used = formatHeader(line, sizeof(line), level, tag);
  if (used < 0)
    return;
  size_t total = static_cast<size_t>(used) < sizeof(line) ? static_cast<size_t>(used) : 0;
  const size_t room = sizeof(line) - total - 1;  // keep one byte for the newline
  const size_t copy = length < room ? length : room;
  memcpy(line + total, message, copy);
  total += copy;
  line[total++] = '\n';
  fwrite(line, 1, total, file);
  fflush(file);
}

// Error lines end with " (function){#line:source path}", the path as the
// compiler saw it. The device's log control shows the file name alone, and so
// does the host: the folders of the build tree are cut from the tail. Returns
// the message's new length.
size_t withFileNameOnly(char* message, size_t length) {
  const std::string_view text(message, length);
  const size_t open = text.rfind("{#");
  if (text.empty() || text.back() != '}' || open == std::string_view::npos)
    return length;
  const size_t colon = text.find(':', open);
  if (colon == std::string_view::npos || colon == open + 2 || text.find('}', colon) != length - 1)
    return length;
  for (size_t i = open + 2; i < colon; ++i) {
    if (text[i] < '0' || text[i] > '9')
      return length;
  }
  const size_t slash = text.rfind('/');
  if (slash == std::string_view::npos || slash < colon)
    return length;
  const size_t cut = slash - colon;  // the folders and their last slash
  memmove(message + colon + 1, message + slash + 1, length - slash - 1);
  message[length - cut] = '\0';
  return length - cut;
}

FILE* openAppend(const std::string& path) {
  return fopen(path.c_str(), "ae");
}

void replaceFile(FILE** slot, FILE* file) {
  if (*slot != nullptr)
    fclose(*slot);
  *slot = file;
}

// Picks up FLICKER_ULOG_FILE at start-up, before the library could log: the
// library only calls the unified logger once its bit in sMode is set.
struct UnifiedFromEnvironment {
  UnifiedFromEnvironment() {
    const char* path = getenv("FLICKER_ULOG_FILE");
    if (path == nullptr || path[0] == '\0')
      return;
    if (!setUnifiedLogFile(path)) {
      fprintf(stderr, "host log: cannot open FLICKER_ULOG_FILE %s: %s\n", path, strerror(errno));
    }
  }
};
const UnifiedFromEnvironment g_unifiedFromEnvironment;

}  // namespace

void setLogsQuiet(bool quiet) {
  std::lock_guard<std::mutex> lock(logState().mutex);
  logState().quiet = quiet;
}

bool setDebugLogFile(const std::string& path) {
  FILE* file = nullptr;
  if (!path.empty() && (file = openAppend(path)) == nullptr)
    return false;
  std::lock_guard<std::mutex> lock(logState().mutex);
  replaceFile(&logState().debugFile, file);
  return true;
}

bool setUnifiedLogFile(const std::string& path) {
  using NSCam::Utils::ULog::ULogger;
  FILE* file = nullptr;
  if (!path.empty() && (file = openAppend(path)) == nullptr)
    return false;
  std::lock_guard<std::mutex> lock(logState().mutex);
  replaceFile(&logState().unifiedFile, file);
  ULogger::sMode =
      file != nullptr ? (ULogger::sMode | kUnifiedSinkBit) : (ULogger::sMode & ~kUnifiedSinkBit);
  return true;
}

}  // namespace flicker_host

using flicker_host::logState;

extern "C" {

LogInfoLv g_logInfoLv[2] = {{kLogInfoLvEnabled, ""}, {kLogInfoLvEnabled, ""}};

void log_dbg_print(const char* tag, int level, const char* format, ...) {
  if (format == nullptr)
    return;
  char message[flicker_host::kMessageSize];
  va_list args;
  va_start(args, format);
  const int written = vsnprintf(message, sizeof(message), format, args);
  va_end(args);
  if (written < 0)
    return;
  const size_t length = flicker_host::withFileNameOnly(message, strnlen(message, sizeof(message)));
  std::lock_guard<std::mutex> lock(logState().mutex);
  if (logState().quiet)
    return;
  FILE* file = logState().debugFile != nullptr ? logState().debugFile : stderr;
  flicker_host::writeLine(file, level == CAM_LOG_LEVEL_DEBUG ? 'D' : 'E', tag, message, length);
}

const char* get_filename_log_control(const char* path) {
  if (path == nullptr)
    return "";
  const char* slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

bool isInt(const char* text) {
  if (text == nullptr || *text == '\0')
    return false;
  if (*text == '+' || *text == '-')
    ++text;
  if (*text == '\0')
    return false;
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9')
      return false;
  }
  return true;
}

}  // extern "C"

namespace NSCam {
namespace Utils {
namespace ULog {

int ULogger::sMode = 0x1;
unsigned int ULogger::sDetailsLevel = 5;
unsigned int ULogger::sNormalDetailsMask = kFlickerModuleMask;

void ULogger::write(uint32_t /*mask*/, const char* tag, int level, const char* text,
                    size_t length) {
  if (text == nullptr)
    return;
  std::lock_guard<std::mutex> lock(logState().mutex);
  if (logState().quiet || logState().unifiedFile == nullptr)
    return;
  flicker_host::writeLine(logState().unifiedFile, level == ULOG_LEVEL_ERROR ? 'E' : 'D', tag, text,
                          strnlen(text, length));
}

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
