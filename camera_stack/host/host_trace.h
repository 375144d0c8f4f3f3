// Host implementation of system tracing.
//
// The camera tag (and any other) is enabled through the property
// "debug.atrace.tags.enableflags", an integer bit mask as on a phone, read on
// each atrace_get_enabled_tags() call.
//
// Where sections go:
//  - By default, as on a device, the standard markers "B|<pid>|<name>" and
//    "E|<pid>", one per line, to the kernel's tracefs marker
//    (/sys/kernel/tracing/trace_marker, else
//    /sys/kernel/debug/tracing/trace_marker), opened once on first use; the
//    kernel adds time stamps and thread names. When neither is writable the
//    markers are dropped.
//  - To a file set with setTraceFile. In the trace-event format (the
//    default) the file is a JSON array that the Perfetto UI
//    (ui.perfetto.dev) and chrome://tracing open directly: one "B" or "E"
//    event per section edge with the monotonic time in microseconds, the
//    process id and the calling thread's id, and metadata events naming the
//    process (the program's name) and each thread (its name at its first
//    event, again whenever the name changed). The array is closed when the
//    file is replaced or at exit; an unclosed array (a crash) still opens in
//    both viewers. In the marker format the file receives exactly the lines
//    tracefs would.
// Long section names are cut to 1023 bytes.
//
// Thread-safe: the destination is guarded by a mutex, and events are written
// in time-stamp order.
#pragma once

#include <string>

namespace flicker_host {

enum class TraceFileFormat {
  kTraceEvents,  // JSON trace events with time stamps and thread names
  kMarkers,      // the raw marker lines, as tracefs receives them
};

// Sends the sections to `path` (created or truncated) instead of tracefs; an
// empty path closes the file and returns to tracefs. False when the file
// cannot be opened (the destination is then unchanged).
bool setTraceFile(const std::string& path, TraceFileFormat format = TraceFileFormat::kTraceEvents);

}  // namespace flicker_host
