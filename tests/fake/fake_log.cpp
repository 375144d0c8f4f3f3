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
using fake_platform::detail::state;

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
  std::lock_guard<std::mutex> lock(state().mutex);
  state().logs.push_back({0, level, tag != nullptr ? tag : "", std::move(text)});
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

int ULogger::sMode = 0xB;
unsigned int ULogger::sDetailsLevel = 5;
unsigned int ULogger::sNormalDetailsMask = kFlickerModuleMask;

// Records exactly `length` bytes: a wrong length shows in the recorded text
// (and a length past the buffer is caught by AddressSanitizer).
void ULogger::write(uint32_t /*mask*/, const char* tag, int level, const char* text,
                    size_t length) {
  std::string line = text != nullptr ? std::string(text, length) : std::string();
  std::lock_guard<std::mutex> lock(state().mutex);
  state().logs.push_back({1, level, tag != nullptr ? tag : "", std::move(line)});
}

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam

namespace fake_platform {

std::vector<LogLine> logs() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().logs;
}

std::vector<std::string> messages() {
  std::vector<std::string> out;
  for (const LogLine& line : logs()) {
    if (line.sink == 1)
      out.push_back(line.text);
  }
  return out;
}

bool logged(const std::string& substring) {
  for (const LogLine& line : logs()) {
    if (line.text.find(substring) != std::string::npos)
      return true;
  }
  return false;
}

int countLogged(const std::string& substring) {
  int count = 0;
  for (const std::string& text : messages()) {
    if (text.find(substring) != std::string::npos)
      ++count;
  }
  return count;
}

bool loggedError(const std::string& substring) {
  for (const LogLine& line : logs()) {
    if (line.sink == 1 && line.level == NSCam::Utils::ULog::ULOG_LEVEL_ERROR &&
        line.text.find(substring) != std::string::npos) {
      return true;
    }
  }
  return false;
}

void clearLogs() {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().logs.clear();
}

void setLogFramework(int mode, unsigned detailsLevel, unsigned detailsMask) {
  using NSCam::Utils::ULog::ULogger;
  ULogger::sMode = mode;
  ULogger::sDetailsLevel = detailsLevel;
  ULogger::sNormalDetailsMask = detailsMask;
}

}  // namespace fake_platform
