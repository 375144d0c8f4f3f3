// The fake's log sinks: both record every line they receive, fully formatted,
// so tests can assert on the exact text, tag, sink and level.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "cam_log.h"
#include "cam_string.h"
#include "fake_platform.h"
#include "fake_state.h"

using fake_platform::LogLine;
using fake_platform::detail::locked;
using fake_platform::detail::PlatformState;

namespace {
void record(int sink, int level, const char* tag, std::string text) {
  locked([&](PlatformState& s) {
    s.logs.push_back({sink, level, tag != nullptr ? tag : "", std::move(text)});
  });
}
}  // namespace

extern "C" {

LogInfoLv g_logInfoLv[2] = {{kLogInfoLvEnabled, ""}, {kLogInfoLvEnabled, ""}};

void log_dbg_print(const char* tag, int level, const char* format, ...) {
  if (format == nullptr)
    return;
  va_list args;
  va_start(args, format);
  va_list sizing;
  va_copy(sizing, args);
  const int needed = vsnprintf(nullptr, 0, format, sizing);
  va_end(sizing);
  std::string text;
  if (needed > 0) {
    text.resize(static_cast<size_t>(needed) + 1);
    vsnprintf(&text[0], text.size(), format, args);
    text.resize(static_cast<size_t>(needed));
  }
  va_end(args);
  record(0, level, tag, std::move(text));
}

const char* get_filename_log_control(const char* path) {
  if (path == nullptr)
    return "";
  const char* slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// A decimal integer with an optional sign and nothing else.
bool isInt(const char* text) {
  if (text == nullptr)
    return false;
  if (*text == '+' || *text == '-')
    ++text;
  return *text != '\0' && strspn(text, "0123456789") == strlen(text);
}

}  // extern "C"

namespace NSCam {
namespace Utils {
namespace ULog {

int ULogger::sMode = 0xB;
unsigned int ULogger::sDetailsLevel = 5;
unsigned int ULogger::sNormalDetailsMask = kFlickerModuleMask;

// Records exactly `length` bytes: a wrong length shows in the recorded text
// (and a length past the buffer is caught by AddressSanitizer).
void ULogger::write(uint32_t /*mask*/, const char* tag, int level, const char* text,
                    size_t length) {
  record(1, level, tag, text != nullptr ? std::string(text, length) : std::string());
}

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam

namespace fake_platform {

std::vector<LogLine> logs() {
  return locked([](PlatformState& s) { return s.logs; });
}

std::vector<std::string> messages() {
  std::vector<std::string> out;
  for (const LogLine& line : logs()) {
    if (line.sink == 1)
      out.push_back(line.text);
  }
  return out;
}

namespace {
// Lines containing `substring`, of one sink and level (-1: any).
int countLines(const std::string& substring, int sink, int level) {
  int count = 0;
  for (const LogLine& line : logs()) {
    count += (sink < 0 || line.sink == sink) && (level < 0 || line.level == level) &&
             line.text.find(substring) != std::string::npos;
  }
  return count;
}
}  // namespace

bool logged(const std::string& substring) {
  return countLines(substring, -1, -1) > 0;
}

int countLogged(const std::string& substring) {
  return countLines(substring, 1, -1);
}

bool loggedError(const std::string& substring) {
  return countLines(substring, 1, NSCam::Utils::ULog::ULOG_LEVEL_ERROR) > 0;
}

void clearLogs() {
  locked([](PlatformState& s) { s.logs.clear(); });
}

void setLogFramework(int mode, unsigned detailsLevel, unsigned detailsMask) {
  using NSCam::Utils::ULog::ULogger;
  ULogger::sMode = mode;
  ULogger::sDetailsLevel = detailsLevel;
  ULogger::sNormalDetailsMask = detailsMask;
}

}  // namespace fake_platform
