// Trace sections of the closed loop, beside the manager's own ("parseFLK",
// "FLK algo"): per frame on the 3A thread ("frame <n> sensor <i>": SetParam
// and DoCalculation), each post of a worker's semaphore ("post") and each
// time a worker is awake between two waits ("wake-up"). They go through the
// platform's trace functions (host_trace.h), only while the camera tag is on.
//
// Header-only; a section belongs to the thread that opened it.
#pragma once

#include <string>

#include "cam_trace.h"

namespace flicker_loop {

inline bool cameraTraceOn() {
  return (atrace_get_enabled_tags() & ATRACE_TAG_CAMERA) != 0;
}

// A section open for the object's life; nothing when tracing is off.
class TraceSection {
 public:
  explicit TraceSection(const char* name) : open_(cameraTraceOn()) {
    if (open_) {
      atrace_begin_body(name);
    }
  }
  explicit TraceSection(const std::string& name) : TraceSection(name.c_str()) {}
  ~TraceSection() {
    if (open_) {
      atrace_end_body();
    }
  }
  TraceSection(const TraceSection&) = delete;
  TraceSection& operator=(const TraceSection&) = delete;

 private:
  bool open_;
};

}  // namespace flicker_loop
