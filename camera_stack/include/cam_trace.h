// System tracing. A section is opened and closed only while the camera tag is
// enabled; callers test atrace_get_enabled_tags() before each call.
// Thread-safe.
#pragma once

#include <cstdint>

constexpr uint64_t ATRACE_TAG_CAMERA = 1ULL << 10;

extern "C" {
uint64_t atrace_get_enabled_tags(void);
void atrace_begin_body(const char* name);
void atrace_end_body(void);
}
