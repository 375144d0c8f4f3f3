// Fuzzes the dump counter reader: getFileCount on a file holding the input.
//
// Checks against an independent reading of the format (first white-space
// delimited token of at most 15 bytes, cut at a NUL byte; a decimal with an
// optional sign; accepted only when 0 <= value <= INT_MAX, else the default),
// and that a value that was accepted survives a setFileCount / getFileCount
// round trip.
#include <cctype>
#include <climits>

#include "flicker_utils.h"
#include "fuzz_support.h"
#include "host_log.h"

namespace {

constexpr int kDefault = 4242;  // not a value a short input is likely to hold

// What getFileCount should give for the input: true and the value, or false.
bool expectedCount(const uint8_t* data, size_t size, int* value) {
  size_t pos = 0;
  while (pos < size && isspace(data[pos])) ++pos;
  std::string token;
  while (pos < size && token.size() < 15 && !isspace(data[pos])) token += data[pos++];
  token = token.c_str();  // the reader sees a C string: a NUL byte ends it
  const size_t sign = !token.empty() && (token[0] == '+' || token[0] == '-') ? 1 : 0;
  if (token.size() == sign || token.find_first_not_of("0123456789", sign) != std::string::npos)
    return false;
  const long long parsed = strtoll(token.c_str(), nullptr, 10);  // 15 digits cannot overflow
  if (parsed < 0 || parsed > INT_MAX)
    return false;
  *value = static_cast<int>(parsed);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string input = scratchFile("flicker_file_cnt.txt");
  static const std::string copy = scratchFile("copy_cnt.txt");
  flicker_host::setLogsQuiet(true);
  writeFile(input, data, size);
  int count = -7;
  const int rc = getFileCount(input.c_str(), &count, kDefault);

  int expected = 0;
  if (!expectedCount(data, size, &expected)) {
    FUZZ_CHECK(rc == -1 && count == kDefault, "rc %d count %d, expected the default", rc, count);
    return 0;
  }
  FUZZ_CHECK(rc == 0 && count == expected, "rc %d count %d, expected %d", rc, count, expected);
  FUZZ_CHECK(setFileCount(copy.c_str(), count) == 0, "setFileCount failed");
  int again = -7;
  FUZZ_CHECK(getFileCount(copy.c_str(), &again, kDefault) == 0 && again == count,
             "round trip of %d gave %d", count, again);
  return 0;
}
