// Host implementation of system tracing.
//
// The camera tag (and any other) is enabled through the property
// "debug.atrace.tags.enableflags", an integer bit mask as on a phone, read on
// each atrace_get_enabled_tags() call. Sections are written as the standard
// markers "B|<pid>|<name>" and "E|<pid>", one per line, to the kernel's
// tracefs marker (/sys/kernel/tracing/trace_marker, else
// /sys/kernel/debug/tracing/trace_marker), opened once on first use; when
// neither is writable the markers are dropped.
//
// Thread-safe: the marker destination is guarded by a mutex.
#pragma once

#include <string>

namespace flicker_host {

// Sends the markers to `path` (appending) instead of tracefs; an empty path
// returns to tracefs. False when the file cannot be opened (the destination
// is then unchanged).
bool setTraceMarkerFile(const std::string& path);

}  // namespace flicker_host
