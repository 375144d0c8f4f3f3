// Fuzzes the dump counter reader: getFileCount on a file holding the input.
//
// Checks against an independent reading of the format (first white-space
// delimited token of at most 15 bytes, cut at a NUL byte; a decimal with an
// optional sign; accepted only when 0 <= value <= INT_MAX), and that a value
// that was accepted survives a setFileCount / getFileCount round trip.
#include <cctype>
#include <climits>
#include <cstdint>
#include <string>

#include "flicker_utils.h"
#include "fuzz_check.h"
#include "host_log.h"
#include "scratch_dir.h"

namespace {

constexpr int kDefault = 4242;  // not a value a short input is likely to hold
constexpr size_t kTokenMax = 15;

// What getFileCount should give for `text`: true and the value, or false.
bool expectedCount(const std::string& text, int* value) {
  size_t pos = 0;
  while (pos < text.size() && isspace(static_cast<unsigned char>(text[pos]))) ++pos;
  std::string token;
  while (pos < text.size() && token.size() < kTokenMax &&
         !isspace(static_cast<unsigned char>(text[pos]))) {
    token += text[pos++];
  }
  token = token.c_str();  // the reader sees a C string: a NUL byte ends it
  size_t digits = 0;
  if (!token.empty() && (token[0] == '+' || token[0] == '-'))
    digits = 1;
  if (digits == token.size())
    return false;
  long long parsed = 0;
  for (size_t i = digits; i < token.size(); ++i) {
    if (token[i] < '0' || token[i] > '9')
      return false;
    if (parsed <= INT_MAX)  // fifteen digits fit in long long; stop growing once out of range
      parsed = parsed * 10 + (token[i] - '0');
  }
  if (token[0] == '-')
    parsed = -parsed;
  if (parsed < 0 || parsed > INT_MAX)
    return false;
  *value = static_cast<int>(parsed);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ScratchDir dir;  // removed again when the process exits normally
  static const std::string input = dir.file("flicker_file_cnt.txt");
  static const std::string copy = dir.file("copy_cnt.txt");
  static bool quiet = [] {
    flicker_host::setLogsQuiet(true);
    return true;
  }();
  (void)quiet;

  ScratchDir::writeFile(input, data, size);
  int count = -7;
  const int rc = getFileCount(input.c_str(), &count, kDefault);

  int expected = 0;
  const bool ok = expectedCount(std::string(reinterpret_cast<const char*>(data), size), &expected);
  if (ok) {
    FUZZ_CHECK(rc == 0 && count == expected, "rc %d count %d, expected 0 and %d", rc, count,
               expected);
    FUZZ_CHECK(setFileCount(copy.c_str(), count) == 0, "setFileCount failed");
    int again = -7;
    FUZZ_CHECK(getFileCount(copy.c_str(), &again, kDefault) == 0 && again == count,
               "round trip of %d gave %d", count, again);
  } else {
    FUZZ_CHECK(rc == -1 && count == kDefault, "rc %d count %d, expected -1 and the default", rc,
               count);
  }
  return 0;
}
