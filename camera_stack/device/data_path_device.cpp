// On the device the library's data paths are the real ones.
#include <cstring>

#include "cam_data_path.h"

extern "C" bool flicker_map_data_path(const char* devicePath, char* out, size_t outSize) {
  if (out == nullptr || outSize == 0)
    return false;
  out[0] = '\0';
  if (devicePath == nullptr)
    return false;
  const size_t length = strlen(devicePath);
  if (length >= outSize)
    return false;
  memcpy(out, devicePath, length + 1);
  return true;
}
