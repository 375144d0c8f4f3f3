// Host mapping of the library's data folder.
//
// The library names its files by their device paths under
// "/data/vendor/flicker/". On the host that folder is placed under a root:
// flicker_map_data_path("/data/vendor/flicker/x") gives "<root>/data/vendor/flicker/x".
// The root is the one set by setDataRoot, else the environment variable
// FLICKER_DATA_ROOT, else "$HOME/.flicker", else (HOME unset or empty)
// "/tmp/flicker-<uid>". Paths outside "/data/vendor/flicker" are returned
// unchanged. Mapping creates nothing; the library creates its folders itself.
// Thread-safe.
#pragma once

#include <string>

namespace flicker_host {

// Sets the root; an empty root goes back to the environment and defaults.
void setDataRoot(const std::string& root);
// The root in effect now.
std::string dataRoot();

}  // namespace flicker_host
