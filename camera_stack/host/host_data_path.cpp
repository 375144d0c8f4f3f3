#include "host_data_path.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "cam_data_path.h"

namespace flicker_host {

namespace {

const char kDeviceDataFolder[] = "/data/vendor/flicker";

struct RootChoice {
  std::mutex mutex;
  std::string root;  // empty: from the environment
};

RootChoice& rootChoice() {
  static auto* const c = new RootChoice;  // never destroyed: workers may read it during exit
  return *c;
}

bool underDeviceFolder(const char* path) {
  const size_t n = sizeof(kDeviceDataFolder) - 1;
  return strncmp(path, kDeviceDataFolder, n) == 0 && (path[n] == '\0' || path[n] == '/');
}

std::string rootFromEnvironment() {
  const char* root = getenv("FLICKER_DATA_ROOT");
  if (root != nullptr && root[0] != '\0')
    return root;
  const char* home = getenv("HOME");
  if (home != nullptr && home[0] != '\0')
    return std::string(home) + "/.flicker";
  return "/tmp/flicker-" + std::to_string(getuid());
}

}  // namespace

void setDataRoot(const std::string& root) {
  std::lock_guard<std::mutex> lock(rootChoice().mutex);
  rootChoice().root = root;
}

std::string dataRoot() {
  {
    std::lock_guard<std::mutex> lock(rootChoice().mutex);
    if (!rootChoice().root.empty())
      return rootChoice().root;
  }
  return rootFromEnvironment();
}

}  // namespace flicker_host

extern "C" bool flicker_map_data_path(const char* devicePath, char* out, size_t outSize) {
  if (out == nullptr || outSize == 0)
    return false;
  out[0] = '\0';
  if (devicePath == nullptr)
    return false;
  const std::string mapped = flicker_host::underDeviceFolder(devicePath)
                                 ? flicker_host::dataRoot() + devicePath
                                 : std::string(devicePath);
  if (mapped.size() >= outSize)
    return false;
  memcpy(out, mapped.c_str(), mapped.size() + 1);
  return true;
}
