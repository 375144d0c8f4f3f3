// System properties of the camera framework: integer reads with a default.
// Implemented by the device's framework library, the host platform (an
// in-process store fed from a property file) or the test fake.
// Thread-safe: may be called from any thread.
#pragma once

#include <cstdint>

namespace NSCam {
namespace Utils {
namespace Properties {

// Returns the property `key` as an integer, or `defaultValue` when the
// property is missing or does not hold an integer.
int32_t property_get_int32(const char* key, int32_t defaultValue);
int64_t property_get_int64(const char* key, int64_t defaultValue);

}  // namespace Properties
}  // namespace Utils
}  // namespace NSCam
