#include "host_trace.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "cam_properties.h"
#include "cam_trace.h"

namespace flicker_host {

namespace {

const char kTagsProperty[] = "debug.atrace.tags.enableflags";
const char* const kTracefsMarkers[] = {"/sys/kernel/tracing/trace_marker",
                                       "/sys/kernel/debug/tracing/trace_marker"};
constexpr size_t kNameBytes = 1023;     // longest section name kept
constexpr size_t kThreadNameSize = 16;  // the kernel's limit, with the terminator
// One event: the name escaped (up to six bytes a character) and the fields.
constexpr size_t kEventSize = 6 * kNameBytes + 160;

struct Destination {
  std::mutex mutex;
  bool opened = false;  // tracefs was tried (or a file was set)
  int fd = -1;
  TraceFileFormat format = TraceFileFormat::kMarkers;  // tracefs takes markers
  bool firstEvent = true;                              // trace events: no separator before it
  std::map<long, std::string> threadNames;  // trace events: the names written, per thread id
};

// Never destroyed: worker threads may still trace while the process exits.
Destination& destination() {
  static Destination* d = new Destination;
  return *d;
}

long threadId() {
  return static_cast<long>(syscall(SYS_gettid));
}

// Caller holds the lock.
int openedFd(Destination& d) {
  if (!d.opened) {
    d.opened = true;
    for (const char* path : kTracefsMarkers) {
      d.fd = open(path, O_WRONLY | O_CLOEXEC);
      if (d.fd >= 0)
        break;
    }
  }
  return d.fd;
}

void writeAll(int fd, const char* text, size_t size) {
  // A failed trace write is not worth reporting: tracing must never disturb the traced code.
  const ssize_t ignored = write(fd, text, size);
  (void)ignored;
}

// `name` as the inside of a JSON string, cut to kNameBytes.
std::string jsonText(const char* name) {
  std::string out;
  size_t kept = 0;
  for (const char* c = name; *c != '\0' && kept < kNameBytes; ++c, ++kept) {
    const unsigned char u = static_cast<unsigned char>(*c);
    if (u == '"' || u == '\\') {
      out += '\\';
      out += *c;
    } else if (u < 0x20) {
      char escaped[8];
      snprintf(escaped, sizeof(escaped), "\\u%04x", u);
      out += escaped;
    } else {
      out += *c;
    }
  }
  return out;
}

double monotonicUs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// Caller holds the lock.
void writeEvent(Destination& d, const std::string& json) {
  writeAll(d.fd, d.firstEvent ? "\n" : ",\n", d.firstEvent ? 1 : 2);
  d.firstEvent = false;
  writeAll(d.fd, json.data(), json.size());
}

// A metadata event: `kind` is process_name or thread_name. Caller holds the lock.
void writeNameEvent(Destination& d, const char* kind, long pid, long tid, const char* name) {
  writeEvent(d, std::string("{\"name\":\"") + kind + "\",\"ph\":\"M\",\"pid\":" +
                    std::to_string(pid) + ",\"tid\":" + std::to_string(tid) +
                    ",\"args\":{\"name\":\"" + jsonText(name) + "\"}}");
}

// Metadata naming `tid` when its name is new or changed. Caller holds the lock.
void nameThread(Destination& d, long pid, long tid) {
  char name[kThreadNameSize] = {};
  prctl(PR_GET_NAME, name, 0, 0, 0);
  auto known = d.threadNames.find(tid);
  if (known != d.threadNames.end() && known->second == name)
    return;
  d.threadNames[tid] = name;
  writeNameEvent(d, "thread_name", pid, tid, name);
}

void traceEvent(Destination& d, char phase, const char* name) {
  const long pid = static_cast<long>(getpid());
  const long tid = threadId();
  nameThread(d, pid, tid);
  char event[kEventSize];
  const std::string named =
      phase == 'B' ? ",\"name\":\"" + jsonText(name != nullptr ? name : "") + "\"" : "";
  // The time is taken under the lock, so the file's events rise in time.
  snprintf(event, sizeof(event), "{\"ph\":\"%c\"%s,\"ts\":%.3f,\"pid\":%ld,\"tid\":%ld}", phase,
           named.c_str(), monotonicUs(), pid, tid);
  writeEvent(d, event);
}

void markerLine(Destination& d, char phase, const char* name) {
  char text[kNameBytes + 1];
  const int length = phase == 'B'
                         ? snprintf(text, sizeof(text), "B|%d|%s\n", static_cast<int>(getpid()),
                                    name != nullptr ? name : "")
                         : snprintf(text, sizeof(text), "E|%d\n", static_cast<int>(getpid()));
  if (length <= 0)
    return;
  size_t size = static_cast<size_t>(length);
  if (size >= sizeof(text)) {  // a cut name still ends its line
    size = sizeof(text) - 1;
    text[size - 1] = '\n';
  }
  writeAll(d.fd, text, size);
}

void section(char phase, const char* name) {
  Destination& d = destination();
  std::lock_guard<std::mutex> lock(d.mutex);
  if (openedFd(d) < 0)
    return;
  if (d.format == TraceFileFormat::kTraceEvents) {
    traceEvent(d, phase, name);
  } else {
    markerLine(d, phase, name);
  }
}

// Ends the trace-event array and closes the file. Caller holds the lock.
void closeFile(Destination& d) {
  if (d.fd >= 0) {
    if (d.format == TraceFileFormat::kTraceEvents)
      writeAll(d.fd, "\n]\n", 3);
    close(d.fd);
  }
  d.fd = -1;
  d.opened = false;
  d.format = TraceFileFormat::kMarkers;
}

void closeAtExit() {
  Destination& d = destination();
  std::lock_guard<std::mutex> lock(d.mutex);
  if (d.format == TraceFileFormat::kTraceEvents) {
    closeFile(d);
    d.opened = true;  // later sections (threads still running) go nowhere
  }
}

}  // namespace

bool setTraceFile(const std::string& path, TraceFileFormat format) {
  int fd = -1;
  if (!path.empty()) {
    fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
      return false;
  }
  Destination& d = destination();
  std::lock_guard<std::mutex> lock(d.mutex);
  closeFile(d);
  if (path.empty())
    return true;  // the next section finds tracefs again
  d.fd = fd;
  d.opened = true;
  d.format = format;
  d.firstEvent = true;
  d.threadNames.clear();
  if (format == TraceFileFormat::kTraceEvents) {
    static const bool registered = atexit(closeAtExit) == 0;
    (void)registered;
    writeAll(fd, "[", 1);
    const long pid = static_cast<long>(getpid());
    writeNameEvent(d, "process_name", pid, pid, program_invocation_short_name);
  }
  return true;
}

}  // namespace flicker_host

extern "C" {

uint64_t atrace_get_enabled_tags(void) {
  return static_cast<uint64_t>(
      NSCam::Utils::Properties::property_get_int64(flicker_host::kTagsProperty, 0));
}

void atrace_begin_body(const char* name) {
  flicker_host::section('B', name);
}

void atrace_end_body(void) {
  flicker_host::section('E', nullptr);
}

}  // extern "C"
