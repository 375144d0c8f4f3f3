#include "tuning_choice.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

#include "host_default_tuning.h"
#include "host_nvram.h"
#include "open_algo_default_tuning.h"

namespace flicker_loop {

namespace {

static_assert(sizeof(FlickerExtPara) == sizeof(open_algo::kDefaultTuningWords),
              "the recommended record covers the algorithm part exactly");

FLICKER_CUST_PARA openRecord() {
  FLICKER_CUST_PARA record{};
  memcpy(&record, open_algo::kDefaultTuningWords, sizeof(open_algo::kDefaultTuningWords));
  return record;
}

FlickerExtPara algoPartOf(const FLICKER_CUST_PARA& record) {
  FlickerExtPara para;
  memcpy(&para, &record, sizeof(para));
  return para;
}

// The temporary image written by applyRecord; replaced by the next one and
// removed when the process ends.
struct TempImage {
  std::string path;
  void replace(const std::string& next) {
    if (!path.empty()) {
      unlink(path.c_str());
    }
    path = next;
  }
  ~TempImage() { replace(""); }
};

TempImage& tempImage() {
  static TempImage image;
  return image;
}

// Writes `record` into every row and column of a temporary NVRAM image.
bool writeImage(const FLICKER_CUST_PARA& record, std::string* path, std::string* error) {
  const char* tmp = getenv("TMPDIR");
  std::string pattern =
      std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/flicker-tuning-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = mkstemp(name.data());
  if (fd < 0) {
    *error = "cannot create a temporary tuning image in " + pattern;
    return false;
  }
  tempImage().replace(name.data());
  const std::vector<uint8_t> image =
      flicker_host::encodeTuningImage([&record](int, int) { return record; });
  const bool written = write(fd, image.data(), image.size()) == static_cast<ssize_t>(image.size());
  close(fd);
  if (!written) {
    *error = "cannot write the temporary tuning image " + tempImage().path;
    return false;
  }
  *path = tempImage().path;
  return true;
}

bool readImageRecord(const std::string& path, FLICKER_CUST_PARA* record, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes(flicker_host::kTuningRecordBytes);
  if (!in ||
      !in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    *error = "cannot read the tuning image " + path;
    return false;
  }
  in.seekg(0, std::ios::end);
  if (static_cast<size_t>(in.tellg()) < flicker_host::kTuningImageBytes) {
    *error = "tuning image " + path + " is shorter than " +
             std::to_string(flicker_host::kTuningImageBytes) + " bytes";
    return false;
  }
  *record = flicker_host::decodeTuningRecord(bytes.data());
  return true;
}

}  // namespace

bool TuningChoice::applyRecord(const FLICKER_CUST_PARA& record, FlickerExtPara* algoPart,
                               std::string* error) {
  std::string path;
  if (!writeImage(record, &path, error)) {
    return false;
  }
  flicker_host::setNvramImage(path);
  if (algoPart != nullptr) {
    *algoPart = algoPartOf(record);
  }
  return true;
}

FlickerExtPara TuningChoice::openDefaults() {
  return algoPartOf(openRecord());
}

bool TuningChoice::apply(const std::string& choice, FlickerExtPara* algoPart, std::string* error) {
  std::string why;
  FLICKER_CUST_PARA record{};
  if (choice == "open") {
    return applyRecord(openRecord(), algoPart, error);
  } else if (choice == "host") {
    flicker_host::setNvramImage("");
    const char* env = getenv("FLICKER_NVRAM_IMAGE");
    if (env != nullptr && env[0] != '\0') {
      if (!readImageRecord(env, &record, &why)) {
        *error = why;
        return false;
      }
    } else {
      record = flicker_host::defaultTuningRecord(0, 0);
    }
  } else {
    if (!readImageRecord(choice, &record, &why)) {
      *error = why;
      return false;
    }
    flicker_host::setNvramImage(choice);
  }
  if (algoPart != nullptr) {
    *algoPart = algoPartOf(record);
  }
  return true;
}

}  // namespace flicker_loop
