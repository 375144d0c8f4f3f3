#include "host_trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "cam_properties.h"
#include "cam_trace.h"

namespace flicker_host {

namespace {

const char kTagsProperty[] = "debug.atrace.tags.enableflags";
const char* const kTracefsMarkers[] = {"/sys/kernel/tracing/trace_marker",
                                       "/sys/kernel/debug/tracing/trace_marker"};
constexpr size_t kMarkerSize = 1024;  // one marker line; longer section names are cut

struct Marker {
  std::mutex mutex;
  bool opened = false;  // tracefs was tried (or a file was set)
  int fd = -1;
};

Marker& marker() {
  static Marker m;
  return m;
}

// Caller holds the marker lock.
int markerFd(Marker& m) {
  if (!m.opened) {
    m.opened = true;
    for (const char* path : kTracefsMarkers) {
      m.fd = open(path, O_WRONLY | O_CLOEXEC);
      if (m.fd >= 0)
        break;
    }
  }
  return m.fd;
}

void writeMarker(const char* text, size_t size) {
  Marker& m = marker();
  std::lock_guard<std::mutex> lock(m.mutex);
  const int fd = markerFd(m);
  if (fd < 0)
    return;
  // A failed trace write is not worth reporting: tracing must never disturb the traced code.
  const ssize_t ignored = write(fd, text, size);
  (void)ignored;
}

}  // namespace

bool setTraceMarkerFile(const std::string& path) {
  int fd = -1;
  if (!path.empty()) {
    fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0)
      return false;
  }
  Marker& m = marker();
  std::lock_guard<std::mutex> lock(m.mutex);
  if (m.fd >= 0)
    close(m.fd);
  m.fd = fd;
  m.opened = !path.empty();  // an empty path lets the next marker find tracefs again
  return true;
}

}  // namespace flicker_host

extern "C" {

uint64_t atrace_get_enabled_tags(void) {
  return static_cast<uint64_t>(
      NSCam::Utils::Properties::property_get_int64(flicker_host::kTagsProperty, 0));
}

void atrace_begin_body(const char* name) {
  char text[flicker_host::kMarkerSize];
  const int length = snprintf(text, sizeof(text), "B|%d|%s\n", static_cast<int>(getpid()),
                              name != nullptr ? name : "");
  if (length <= 0)
    return;
  size_t size = static_cast<size_t>(length);
  if (size >= sizeof(text)) {  // a cut name still ends its line
    size = sizeof(text) - 1;
    text[size - 1] = '\n';
  }
  flicker_host::writeMarker(text, size);
}

void atrace_end_body(void) {
  char text[32];
  const int length = snprintf(text, sizeof(text), "E|%d\n", static_cast<int>(getpid()));
  if (length > 0)
    flicker_host::writeMarker(text, static_cast<size_t>(length));
}

}  // extern "C"
