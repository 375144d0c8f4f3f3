#include "host_properties.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>

#include "cam_log.h"
#include "cam_properties.h"

extern char** environ;

namespace flicker_host {

namespace {

const char kTag[] = "HostProperties";
const char kFileVariable[] = "FLICKER_PROPS";
const char kEnvPrefix[] = "FLICKER_PROP_";

// The maps compare transparently so that the integer reads the library makes
// on its per-frame path look names up without building a string: a read
// allocates nothing.
template <typename V>
using NameMap = std::map<std::string, V, std::less<>>;

struct Store {
  std::mutex mutex;
  bool loaded = false;
  NameMap<std::string> file;                       // from the property file
  NameMap<std::string> environment;                // by environment name
  NameMap<std::optional<std::string>> explicitly;  // set or cleared by the API
};

// Longest property name whose environment override is looked up.
constexpr size_t kMaxEnvName = 256;

Store& store() {
  static auto* const s = new Store;  // never destroyed: workers may read it during exit
  return *s;
}

std::string trim(const std::string& text) {
  const char* spaces = " \t\r\n";
  const size_t first = text.find_first_not_of(spaces);
  if (first == std::string::npos)
    return "";
  const size_t last = text.find_last_not_of(spaces);
  return text.substr(first, last - first + 1);
}

bool validName(const std::string& name) {
  return !name.empty() && name.find_first_of(" \t") == std::string::npos;
}

// Reads one property file into `out`. Caller holds the store lock.
bool readFile(const std::string& path, NameMap<std::string>* out) {
  out->clear();
  std::ifstream in(path);
  if (!in) {
    log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR, "cannot read property file %s", path.c_str());
    return false;
  }
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    const std::string text = trim(line);
    if (text.empty() || text[0] == '#')
      continue;
    const size_t equals = text.find('=');
    const std::string name = equals == std::string::npos ? "" : trim(text.substr(0, equals));
    if (!validName(name)) {
      log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR, "%s:%d: malformed property line skipped: \"%s\"",
                    path.c_str(), number, text.c_str());
      continue;
    }
    (*out)[name] = trim(text.substr(equals + 1));
  }
  return true;
}

void readEnvironment(NameMap<std::string>* out) {
  out->clear();
  const size_t prefixLength = sizeof(kEnvPrefix) - 1;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const size_t equals = text.find('=');
    if (equals == std::string::npos || text.compare(0, prefixLength, kEnvPrefix) != 0)
      continue;
    (*out)[text.substr(0, equals)] = text.substr(equals + 1);
  }
}

// Loads the file and environment layers once. Caller holds the store lock.
void ensureLoaded(Store& s) {
  if (s.loaded)
    return;
  s.loaded = true;
  const char* path = getenv(kFileVariable);
  if (path != nullptr && path[0] != '\0') {
    readFile(path, &s.file);
  } else {
    s.file.clear();
  }
  readEnvironment(&s.environment);
}

// Writes the environment name of `name` into `out`; false when it is too long.
bool envNameOf(std::string_view name, char (&out)[kMaxEnvName], std::string_view* envName) {
  const size_t prefixLength = sizeof(kEnvPrefix) - 1;
  if (prefixLength + name.size() >= sizeof(out))
    return false;
  memcpy(out, kEnvPrefix, prefixLength);
  size_t length = prefixLength;
  for (const char c : name) {
    const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    out[length++] = keep ? c : '_';
  }
  *envName = std::string_view(out, length);
  return true;
}

// The text of property `name` by precedence (API, environment, file), or null.
// Caller holds the store lock; the pointer is valid while it does.
const std::string* findLocked(Store& s, std::string_view name) {
  ensureLoaded(s);
  const auto set = s.explicitly.find(name);
  if (set != s.explicitly.end())
    return set->second ? &*set->second : nullptr;
  char buffer[kMaxEnvName];
  std::string_view envName;
  if (envNameOf(name, buffer, &envName)) {
    const auto env = s.environment.find(envName);
    if (env != s.environment.end())
      return &env->second;
  }
  const auto file = s.file.find(name);
  return file != s.file.end() ? &file->second : nullptr;
}

std::optional<std::string> lookup(const std::string& name) {
  Store& s = store();
  std::lock_guard<std::mutex> lock(s.mutex);
  const std::string* text = findLocked(s, name);
  return text != nullptr ? std::optional<std::string>(*text) : std::nullopt;
}

// Parses property `name` as an integer in place, without copying its text.
bool lookupInteger(const char* name, int64_t* value) {
  Store& s = store();
  std::lock_guard<std::mutex> lock(s.mutex);
  const std::string* text = findLocked(s, name);
  return text != nullptr && parsePropertyInteger(*text, value);
}

}  // namespace

void setProperty(const std::string& name, const std::string& value) {
  Store& s = store();
  std::lock_guard<std::mutex> lock(s.mutex);
  ensureLoaded(s);
  s.explicitly[name] = value;
}

void setProperty(const std::string& name, int64_t value) {
  setProperty(name, std::to_string(value));
}

void clearProperty(const std::string& name) {
  Store& s = store();
  std::lock_guard<std::mutex> lock(s.mutex);
  ensureLoaded(s);
  s.explicitly[name] = std::nullopt;
}

bool getProperty(const std::string& name, std::string* value) {
  const std::optional<std::string> text = lookup(name);
  if (!text)
    return false;
  if (value != nullptr)
    *value = *text;
  return true;
}

bool loadPropertyFile(const std::string& path) {
  Store& s = store();
  std::lock_guard<std::mutex> lock(s.mutex);
  ensureLoaded(s);
  return readFile(path, &s.file);
}

void reloadProperties() {
  Store& s = store();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.explicitly.clear();
  s.loaded = false;
  ensureLoaded(s);
}

std::string propertyEnvName(const std::string& name) {
  std::string out = kEnvPrefix;
  for (const char c : name) {
    const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    out += keep ? c : '_';
  }
  return out;
}

bool parsePropertyInteger(const std::string& text, int64_t* value) {
  if (text.empty() || value == nullptr)
    return false;
  errno = 0;
  char* end = nullptr;
  const long long parsed = strtoll(text.c_str(), &end, 0);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE)
    return false;
  *value = parsed;
  return true;
}

}  // namespace flicker_host

namespace NSCam {
namespace Utils {
namespace Properties {

namespace {
bool readInteger(const char* key, int64_t* value) {
  return key != nullptr && flicker_host::lookupInteger(key, value);
}
}  // namespace

int32_t property_get_int32(const char* key, int32_t defaultValue) {
  int64_t value = 0;
  if (!readInteger(key, &value) || value < INT32_MIN || value > INT32_MAX)
    return defaultValue;
  return static_cast<int32_t>(value);
}

int64_t property_get_int64(const char* key, int64_t defaultValue) {
  int64_t value = 0;
  return readInteger(key, &value) ? value : defaultValue;
}

}  // namespace Properties
}  // namespace Utils
}  // namespace NSCam
