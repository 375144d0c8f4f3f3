#include "host_nvram.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "cam_log.h"
#include "host_default_tuning.h"

namespace flicker_host {

namespace {

const char kTag[] = "HostNvram";
const char kImageVariable[] = "FLICKER_NVRAM_IMAGE";

// Offsets of the record's fields in the image (the in-memory layout is held
// to the same numbers by the static_asserts of cam_flicker_nvram.h).
constexpr size_t kAlgoWordsEnd = 140;
constexpr size_t kPclkOffset = 144;
constexpr size_t kLineLengthOffset = 152;
constexpr size_t kColumnLengthOffset = 156;
constexpr size_t kAutoGenOffset = 160;

struct ImageChoice {
  std::mutex mutex;
  std::string path;  // empty: the environment or the defaults
};

ImageChoice& imageChoice() {
  static auto* const c = new ImageChoice;  // never destroyed: workers may read it during exit
  return *c;
}

void putLe(uint8_t* out, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint64_t getLe(const uint8_t* in, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes; ++i) value |= static_cast<uint64_t>(in[i]) << (8 * i);
  return value;
}

// The 35 algorithm words are the record's first int32 fields, in order and
// without gaps; they are reached through the record's bytes.
static_assert(kAlgoWordsEnd == kFlickerAlgoWords * sizeof(int32_t), "35 algorithm words");

int32_t algoWord(const FLICKER_CUST_PARA& record, int index) {
  int32_t word = 0;
  memcpy(&word, reinterpret_cast<const uint8_t*>(&record) + 4 * static_cast<size_t>(index),
         sizeof(word));
  return word;
}

void setAlgoWord(FLICKER_CUST_PARA& record, int index, int32_t word) {
  memcpy(reinterpret_cast<uint8_t*>(&record) + 4 * static_cast<size_t>(index), &word, sizeof(word));
}

std::string imagePath() {
  {
    std::lock_guard<std::mutex> lock(imageChoice().mutex);
    if (!imageChoice().path.empty())
      return imageChoice().path;
  }
  const char* path = getenv(kImageVariable);
  return path != nullptr ? path : "";
}

// Reads the whole image; false (with an error logged) when it is missing or short.
bool readImage(const std::string& path, std::vector<uint8_t>* image) {
  FILE* file = fopen(path.c_str(), "rbe");
  if (file == nullptr) {
    log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR, "cannot open tuning image %s: %s", path.c_str(),
                  strerror(errno));
    return false;
  }
  image->assign(kTuningImageBytes, 0);
  const size_t got = fread(image->data(), 1, image->size(), file);
  fclose(file);
  if (got != kTuningImageBytes) {
    log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR,
                  "tuning image %s is short: %zu bytes, %zu expected (70 x 2 records of %zu)",
                  path.c_str(), got, kTuningImageBytes, kTuningRecordBytes);
    return false;
  }
  return true;
}

bool tableUsable(int modeTotal, int ratioTotal, FLICKER_CUST_PARA*** table) {
  if (modeTotal <= 0 || modeTotal > kFlickerScenarioRows || ratioTotal <= 0 ||
      ratioTotal > kFlickerBinRatios) {
    log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR, "bad table totals %d x %d (at most %d x %d)",
                  modeTotal, ratioTotal, kFlickerScenarioRows, kFlickerBinRatios);
    return false;
  }
  if (table == nullptr || *table == nullptr) {
    log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR, "null tuning table");
    return false;
  }
  for (int row = 0; row < modeTotal; ++row) {
    if ((*table)[row] == nullptr) {
      log_dbg_print(kTag, CAM_LOG_LEVEL_ERROR, "null tuning table row %d", row);
      return false;
    }
  }
  return true;
}

}  // namespace

void setNvramImage(const std::string& path) {
  std::lock_guard<std::mutex> lock(imageChoice().mutex);
  imageChoice().path = path;
}

void encodeTuningRecord(const FLICKER_CUST_PARA& record, uint8_t* out) {
  memset(out, 0, kTuningRecordBytes);
  for (int i = 0; i < kFlickerAlgoWords; ++i) {
    putLe(out + 4 * static_cast<size_t>(i), static_cast<uint32_t>(algoWord(record, i)), 4);
  }
  putLe(out + kPclkOffset, static_cast<uint64_t>(record.sensor_setting.pclk), 8);
  putLe(out + kLineLengthOffset, static_cast<uint32_t>(record.sensor_setting.line_length), 4);
  putLe(out + kColumnLengthOffset, static_cast<uint32_t>(record.sensor_setting.column_length), 4);
  out[kAutoGenOffset] = record.is_auto_gen;
}

FLICKER_CUST_PARA decodeTuningRecord(const uint8_t* in) {
  FLICKER_CUST_PARA record{};
  for (int i = 0; i < kFlickerAlgoWords; ++i) {
    setAlgoWord(
        record, i,
        static_cast<int32_t>(static_cast<uint32_t>(getLe(in + 4 * static_cast<size_t>(i), 4))));
  }
  record.sensor_setting.pclk = static_cast<int64_t>(getLe(in + kPclkOffset, 8));
  record.sensor_setting.line_length =
      static_cast<int32_t>(static_cast<uint32_t>(getLe(in + kLineLengthOffset, 4)));
  record.sensor_setting.column_length =
      static_cast<int32_t>(static_cast<uint32_t>(getLe(in + kColumnLengthOffset, 4)));
  record.is_auto_gen = in[kAutoGenOffset];
  return record;
}

std::vector<uint8_t> encodeTuningImage(
    const std::function<FLICKER_CUST_PARA(int row, int col)>& recordAt) {
  std::vector<uint8_t> image(kTuningImageBytes, 0);
  for (int row = 0; row < kFlickerScenarioRows; ++row) {
    for (int col = 0; col < kFlickerBinRatios; ++col) {
      const size_t index = static_cast<size_t>(row) * kFlickerBinRatios + static_cast<size_t>(col);
      encodeTuningRecord(recordAt(row, col), image.data() + index * kTuningRecordBytes);
    }
  }
  return image;
}

}  // namespace flicker_host

extern "C" int nvGetFlickerParaAll(unsigned int /*sensorId*/, int /*sensorDev*/,
                                   int sensorModeTotal, int binRatioTotal,
                                   FLICKER_CUST_PARA*** table) {
  using namespace flicker_host;
  if (!tableUsable(sensorModeTotal, binRatioTotal, table))
    return -1;
  const std::string path = imagePath();
  std::vector<uint8_t> image;
  if (!path.empty() && !readImage(path, &image))
    return -1;
  for (int row = 0; row < sensorModeTotal; ++row) {
    for (int col = 0; col < binRatioTotal; ++col) {
      const size_t index = static_cast<size_t>(row) * kFlickerBinRatios + static_cast<size_t>(col);
      (*table)[row][col] = image.empty()
                               ? defaultTuningRecord(row, col)
                               : decodeTuningRecord(image.data() + index * kTuningRecordBytes);
    }
  }
  return 0;
}
