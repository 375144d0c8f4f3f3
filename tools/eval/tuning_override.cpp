#include "tuning_override.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "cam_flicker_nvram.h"
#include "host_nvram.h"
#include "tuning_choice.h"

namespace flicker_eval {

namespace {

struct TempImage {
  std::string path;
  ~TempImage() {
    if (!path.empty()) {
      unlink(path.c_str());
    }
  }
};

TempImage& tempImage() {
  static TempImage image;
  return image;
}

bool writeImage(const FLICKER_CUST_PARA& record, std::string* error) {
  const char* tmp = getenv("TMPDIR");
  const std::string pattern =
      std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/flicker-eval-tuning-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = mkstemp(name.data());
  if (fd < 0) {
    *error = "cannot create a temporary tuning image in " + pattern;
    return false;
  }
  tempImage().path = name.data();
  const std::vector<uint8_t> image =
      flicker_host::encodeTuningImage([&record](int, int) { return record; });
  const bool written = write(fd, image.data(), image.size()) == static_cast<ssize_t>(image.size());
  close(fd);
  if (!written) {
    *error = "cannot write the temporary tuning image " + tempImage().path;
  }
  return written;
}

}  // namespace

bool applyTuning(const std::string& choice, const std::vector<std::pair<int, int>>& words,
                 FlickerExtPara* algoPart, std::string* error) {
  if (!flicker_loop::TuningChoice::apply(choice, algoPart, error)) {
    return false;
  }
  if (words.empty()) {
    return true;
  }
  int32_t w[kFlickerExtParaWords];
  static_assert(sizeof(w) == sizeof(FlickerExtPara), "35 words");
  memcpy(w, algoPart, sizeof(w));
  for (const auto& kv : words) {
    w[kv.first] = kv.second;
  }
  memcpy(algoPart, w, sizeof(w));
  FLICKER_CUST_PARA record{};
  memcpy(&record, w, sizeof(w));
  if (!writeImage(record, error)) {
    return false;
  }
  return flicker_loop::TuningChoice::apply(tempImage().path, algoPart, error);
}

}  // namespace flicker_eval
