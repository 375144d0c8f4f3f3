// The 3A framework's per-index singleton holder: a once-flag and a sole-owner
// pointer. A static array of these gives one lazily created instance per
// sensor index, alive until the array is destroyed at process exit.
#pragma once

#include <memory>
#include <mutex>

namespace NS3Av3 {

template <typename T>
struct INST_T {
  std::once_flag onceFlag;
  std::unique_ptr<T> instance;
};

}  // namespace NS3Av3
