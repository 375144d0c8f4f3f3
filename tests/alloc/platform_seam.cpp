// Wraps the platform functions that the per-frame path and the detection step
// call (properties and trace tags, through the linker's --wrap) so that the
// allocation counter can tell the platform's allocations from the library's.
#include <cstdint>

#include "alloc_counter.h"

extern "C" {
int32_t __real__ZN5NSCam5Utils10Properties18property_get_int32EPKci(const char* key, int32_t def);
int64_t __real__ZN5NSCam5Utils10Properties18property_get_int64EPKcl(const char* key, int64_t def);
uint64_t __real_atrace_get_enabled_tags(void);
void __real_atrace_begin_body(const char* name);
void __real_atrace_end_body(void);

int32_t __wrap__ZN5NSCam5Utils10Properties18property_get_int32EPKci(const char* key, int32_t def);
int64_t __wrap__ZN5NSCam5Utils10Properties18property_get_int64EPKcl(const char* key, int64_t def);
uint64_t __wrap_atrace_get_enabled_tags(void);
void __wrap_atrace_begin_body(const char* name);
void __wrap_atrace_end_body(void);
}

namespace {

// Counts the allocations of one platform call as the platform's.
class PlatformScope {
 public:
  PlatformScope() { alloc_counter::enterPlatform(); }
  ~PlatformScope() { alloc_counter::leavePlatform(); }
  PlatformScope(const PlatformScope&) = delete;
  PlatformScope& operator=(const PlatformScope&) = delete;
};

}  // namespace

extern "C" int32_t __wrap__ZN5NSCam5Utils10Properties18property_get_int32EPKci(const char* key,
                                                                               int32_t def) {
  PlatformScope scope;
  return __real__ZN5NSCam5Utils10Properties18property_get_int32EPKci(key, def);
}

extern "C" int64_t __wrap__ZN5NSCam5Utils10Properties18property_get_int64EPKcl(const char* key,
                                                                               int64_t def) {
  PlatformScope scope;
  return __real__ZN5NSCam5Utils10Properties18property_get_int64EPKcl(key, def);
}

extern "C" uint64_t __wrap_atrace_get_enabled_tags(void) {
  PlatformScope scope;
  return __real_atrace_get_enabled_tags();
}

extern "C" void __wrap_atrace_begin_body(const char* name) {
  PlatformScope scope;
  __real_atrace_begin_body(name);
}

extern "C" void __wrap_atrace_end_body(void) {
  PlatformScope scope;
  __real_atrace_end_body();
}
