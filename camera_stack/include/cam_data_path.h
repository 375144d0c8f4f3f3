// Where the library's data files live. Paths such as
// "/data/vendor/flicker/flko/" are the device's own; a platform may place
// them under another root (the host does, so that tests and tools never need
// root). The device maps every path to itself.
#pragma once

#include <cstddef>

// Writes the real location of `devicePath` into `out` (`outSize` bytes).
// Returns false, leaving `out` an empty string, when the result does not fit:
// a path is never silently truncated.
extern "C" bool flicker_map_data_path(const char* devicePath, char* out, size_t outSize);
