#include "tuning_choice.h"

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "host_default_tuning.h"
#include "host_nvram.h"
#include "open_algo_default_tuning.h"

namespace flicker_loop {

namespace {

static_assert(sizeof(FlickerExtPara) == sizeof(open_algo::kDefaultTuningWords),
              "the recommended record covers the algorithm part exactly");

constexpr size_t kRecords = static_cast<size_t>(kFlickerScenarioRows) * kFlickerBinRatios;

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

std::vector<uint8_t> encode(const TuningTable& table) {
  return flicker_host::encodeTuningImage([&table](int row, int col) {
    return table.records[static_cast<size_t>(row) * kFlickerBinRatios + static_cast<size_t>(col)];
  });
}

// The temporary images: the one applyTable wrote last (replaced by the next
// one) and the staged ones, all removed when the process ends.
struct TempImages {
  std::string applied;
  std::vector<std::string> staged;
  void replace(const std::string& next) {
    if (!applied.empty()) {
      unlink(applied.c_str());
    }
    applied = next;
  }
  ~TempImages() {
    replace("");
    for (const std::string& path : staged) {
      unlink(path.c_str());
    }
  }
};

TempImages& tempImages() {
  static TempImages images;
  return images;
}

// Writes a new temporary image of `table`; the caller keeps track of it.
bool writeTempImage(const TuningTable& table, std::string* path, std::string* error) {
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
  *path = name.data();
  const std::vector<uint8_t> image = encode(table);
  const bool written = write(fd, image.data(), image.size()) == static_cast<ssize_t>(image.size());
  close(fd);
  if (!written) {
    unlink(path->c_str());
    *error = "cannot write the temporary tuning image " + *path;
    return false;
  }
  return true;
}

bool readImage(const std::string& path, TuningTable* table, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes(flicker_host::kTuningImageBytes);
  if (!in) {
    *error = "cannot read the tuning image " + path;
    return false;
  }
  if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    *error = "tuning image " + path + " is shorter than " +
             std::to_string(flicker_host::kTuningImageBytes) + " bytes";
    return false;
  }
  table->records.clear();
  for (size_t i = 0; i < kRecords; ++i) {
    table->records.push_back(
        flicker_host::decodeTuningRecord(&bytes[i * flicker_host::kTuningRecordBytes]));
  }
  return true;
}

// Field by field: the record's padding (before the sensor setting and after
// the last byte) is whatever its writer left there.
bool sameRecord(const FLICKER_CUST_PARA& a, const FLICKER_CUST_PARA& b) {
  constexpr size_t kWords =
      offsetof(FLICKER_CUST_PARA, freq_feature_index) + sizeof(a.freq_feature_index);
  return memcmp(reinterpret_cast<const unsigned char*>(&a),
                reinterpret_cast<const unsigned char*>(&b), kWords) == 0 &&
         a.sensor_setting.pclk == b.sensor_setting.pclk &&
         a.sensor_setting.line_length == b.sensor_setting.line_length &&
         a.sensor_setting.column_length == b.sensor_setting.column_length &&
         a.is_auto_gen == b.is_auto_gen;
}

}  // namespace

TuningTable TuningTable::filledWith(const FLICKER_CUST_PARA& record) {
  TuningTable table;
  table.records.assign(kRecords, record);
  return table;
}

FlickerExtPara TuningTable::algoPart() const {
  return algoPartOf(first());
}

bool TuningTable::uniform() const {
  for (const FLICKER_CUST_PARA& r : records) {
    if (!sameRecord(r, records.front())) {
      return false;
    }
  }
  return true;
}

bool TuningChoice::load(const std::string& choice, TuningTable* table, std::string* error) {
  if (choice == "open") {
    *table = TuningTable::filledWith(openRecord());
    return true;
  }
  if (choice == "host") {
    const char* env = getenv("FLICKER_NVRAM_IMAGE");
    if (env != nullptr && env[0] != '\0') {
      if (!readImage(env, table, error)) {
        *error = "FLICKER_NVRAM_IMAGE: " + *error;
        return false;
      }
      return true;
    }
    table->records.clear();
    for (int row = 0; row < kFlickerScenarioRows; ++row) {
      for (int col = 0; col < kFlickerBinRatios; ++col) {
        table->records.push_back(flicker_host::defaultTuningRecord(row, col));
      }
    }
    return true;
  }
  if (access(choice.c_str(), F_OK) != 0) {
    *error = "bad value '" + choice + "' for --tuning: expected open, host or an NVRAM image file";
    return false;
  }
  return readImage(choice, table, error);
}

bool TuningChoice::applyTable(const TuningTable& table, FlickerExtPara* algoPart,
                              std::string* error) {
  std::string path;
  if (!writeTempImage(table, &path, error)) {
    return false;
  }
  tempImages().replace(path);
  flicker_host::setNvramImage(path);
  if (algoPart != nullptr) {
    *algoPart = algoPartOf(table.first());
  }
  return true;
}

bool TuningChoice::applyRecord(const FLICKER_CUST_PARA& record, FlickerExtPara* algoPart,
                               std::string* error) {
  return applyTable(TuningTable::filledWith(record), algoPart, error);
}

bool TuningChoice::stage(const TuningTable& table, std::string* image, std::string* error) {
  if (!writeTempImage(table, image, error)) {
    return false;
  }
  tempImages().staged.push_back(*image);
  return true;
}

FlickerExtPara TuningChoice::openDefaults() {
  return algoPartOf(openRecord());
}

bool TuningChoice::apply(const std::string& choice, FlickerExtPara* algoPart, std::string* error) {
  TuningTable table;
  if (!load(choice, &table, error)) {
    return false;
  }
  if (choice == "open") {
    return applyTable(table, algoPart, error);
  }
  // The platform reads the host table and image files itself, as it would
  // outside a simulation.
  flicker_host::setNvramImage(choice == "host" ? "" : choice);
  if (algoPart != nullptr) {
    *algoPart = algoPartOf(table.first());
  }
  return true;
}

bool TuningChoice::writeImage(const TuningTable& table, const std::string& path,
                              std::string* error) {
  const std::vector<uint8_t> image = encode(table);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out ||
      !out.write(reinterpret_cast<const char*>(image.data()),
                 static_cast<std::streamsize>(image.size())) ||
      !out.flush()) {
    *error = "cannot write the tuning image " + path;
    return false;
  }
  return true;
}

}  // namespace flicker_loop
