// Fuzzes the host property file parser: the input is loaded as the property
// file, then properties are read back as text and as integers.
//
// Checks against an independent reading of the format (lines split at '\n';
// blank and '#' lines skipped; name and value trimmed of blanks, tabs, CR and
// LF; a line needs a '=' and a name without blanks; the last line of a name
// wins): every name the file defines reads back with its value, library
// properties it does not define read as unset, and the integer readers agree
// with parsePropertyInteger and the type's range.
#include <climits>
#include <map>

#include "cam_properties.h"
#include "fuzz_support.h"
#include "host_log.h"
#include "host_properties.h"

namespace {

// Properties the library reads; also read when the file does not name them.
const char* const kLibraryProperties[] = {
    "vendor.debug.flk_read_file", "vendor.debug.flk_dump", "vendor.debug.flicker_mgr.log.level",
    "vendor.autotesttool.enable", "host.flicker.cust.max_attach"};

std::string trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first == std::string::npos
             ? ""
             : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::map<std::string, std::string> expectedProperties(const std::string& text) {
  std::map<std::string, std::string> out;
  for (size_t start = 0, end; start < text.size(); start = end + 1) {
    end = std::min(text.find('\n', start), text.size());
    const std::string line = trim(text.substr(start, end - start));
    const size_t equals = line.find('=');
    if (line.empty() || line[0] == '#' || equals == std::string::npos)
      continue;
    const std::string name = trim(line.substr(0, equals));
    if (!name.empty() && name.find_first_of(" \t") == std::string::npos)
      out[name] = trim(line.substr(equals + 1));
  }
  return out;
}

// Reads `name` through every reader and checks they agree with `expected`
// (null: the property must be unset).
void checkReaders(const std::string& name, const std::string* expected) {
  std::string text;
  const bool set = flicker_host::getProperty(name, &text);
  FUZZ_CHECK(set == (expected != nullptr) && (!set || text == *expected),
             "property \"%s\" set %d as \"%s\"", name.c_str(), set, text.c_str());
  // The framework readers take C strings: a name with a NUL byte is a
  // different property for them.
  if (name.find('\0') != std::string::npos)
    return;
  int64_t value = 0;
  const bool integer = set && flicker_host::parsePropertyInteger(text, &value);
  const int64_t got64 = NSCam::Utils::Properties::property_get_int64(name.c_str(), -77);
  FUZZ_CHECK(got64 == (integer ? value : -77), "int64 of \"%s\" is %lld", name.c_str(),
             static_cast<long long>(got64));
  const bool fits = integer && value >= INT32_MIN && value <= INT32_MAX;
  const int32_t got32 = NSCam::Utils::Properties::property_get_int32(name.c_str(), -77);
  FUZZ_CHECK(got32 == (fits ? static_cast<int32_t>(value) : -77), "int32 of \"%s\" is %d",
             name.c_str(), got32);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = scratchFile("props.txt");
  flicker_host::setLogsQuiet(true);  // malformed lines are reported, by design
  writeFile(path, data, size);
  FUZZ_CHECK(flicker_host::loadPropertyFile(path), "cannot load %s", path.c_str());

  const auto expected = expectedProperties(std::string(reinterpret_cast<const char*>(data), size));
  for (const auto& entry : expected) checkReaders(entry.first, &entry.second);
  for (const char* name : kLibraryProperties) {
    const auto found = expected.find(name);
    checkReaders(name, found != expected.end() ? &found->second : nullptr);
  }
  return 0;
}
