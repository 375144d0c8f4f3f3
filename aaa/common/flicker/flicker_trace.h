// Trace sections that cost one call when the camera trace tag is off. The tag
// is tested separately at the start and at the end of a section, so a section
// opened while tracing is on may be left open if tracing is switched off in
// between; the trace viewers cope with that.
#pragma once

#include "cam_trace.h"

namespace flicker_trace {
inline bool cameraTagOn() {
  return (atrace_get_enabled_tags() & ATRACE_TAG_CAMERA) != 0;
}
}  // namespace flicker_trace

#define FLK_TRACE_BEGIN(name)         \
  do {                                \
    if (flicker_trace::cameraTagOn()) \
      atrace_begin_body(name);        \
  } while (0)

#define FLK_TRACE_END()               \
  do {                                \
    if (flicker_trace::cameraTagOn()) \
      atrace_end_body();              \
  } while (0)
