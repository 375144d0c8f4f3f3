#define LOG_TAG "FlickerPlatformAdapter"
#define FLK_LOG_LEVEL_VAR flicker_log::g_adapterLevel

#include "flicker_dump_writer.h"

#include <cerrno>
#include <climits>
#include <cstdio>

#include "cam_data_path.h"
#include "cam_properties.h"
#include "flicker_dump_format.h"
#include "flicker_log.h"
#include "flicker_utils.h"

namespace {

constexpr const char* kPropDumpPure = "vendor.debug.flk_dump_pure";

// The device's dump tree; mapped to the platform's data root before use.
constexpr const char* kDumpRoot = "/data/vendor/flicker/flko/";
constexpr const char* kDumpCounterFile = "/data/vendor/flicker/flko/flicker_file_cnt.txt";
constexpr size_t kDumpPathSize = 64;  // device paths are formatted into 64 bytes
constexpr size_t kHostPathSize = PATH_MAX;

static_assert(flicker_dump::kAuxWords == kFlkAuxWords,
              "the dump's auxiliary block is the record's");

struct ErrorText {
  char buf[128];
  const char* text;
  explicit ErrorText(int err) : buf{}, text(flickerErrorText(err, buf, sizeof(buf))) {}
};

bool writeAll(FILE* file, const void* data, size_t elemSize, size_t count) {
  return count == 0 || fwrite(data, elemSize, count, file) == count;
}

// flk_pure.raw: the two columns only, slot 1's first.
bool writeColumns(FILE* file, int32_t count, const FlkDetectPara& para) {
  const size_t n = static_cast<size_t>(count);
  return writeAll(file, para.statsSlot1, sizeof(int64_t), n) &&
         writeAll(file, para.statsSlot0, sizeof(int64_t), n);
}

// flk.raw: the count, the columns, then the detection inputs.
bool writeFlkRaw(FILE* file, int32_t count, const FlkDetectPara& para, const int32_t* aux) {
  flicker_dump::FlkRawTrailer trailer;
  trailer.winValue1 = para.winValue1;
  trailer.winValue2 = para.winValue2;
  trailer.freq = para.freq;
  trailer.pixelClk = para.pixelClk;
  trailer.lineLength = para.lineLength;
  trailer.exposure = para.exposure;
  for (int i = 0; i < flicker_dump::kAuxWords; ++i) trailer.aux[i] = aux[i];
  return writeAll(file, &count, sizeof(count), 1) && writeColumns(file, count, para) &&
         writeAll(file, &trailer, sizeof(trailer), 1);
}

}  // namespace

void FlickerDumpWriter::dumpFLKO(const FlkDetectPara& para, const int32_t* aux, int32_t count) {
  char hostPath[kHostPathSize];
  if (!flicker_map_data_path(kDumpCounterFile, hostPath, sizeof(hostPath))) {
    FLK_LOGE("failed to map data path(%s).", kDumpCounterFile);
    return;
  }
  int counter = 0;
  (void)getFileCount(hostPath, &counter, 0);  // missing or garbage: folder 000
  if (counter == INT_MAX) {
    FLK_LOGE("dump counter(%d) exhausted.", counter);
    return;
  }
  // The number advances before the dump, so a failed dump still uses it up.
  (void)setFileCount(hostPath, counter + 1);

  if (!flicker_map_data_path(kDumpRoot, hostPath, sizeof(hostPath))) {
    FLK_LOGE("failed to map data path(%s).", kDumpRoot);
    return;
  }
  if (createDir(hostPath) != 0 && errno != EEXIST) {
    const ErrorText error(errno);
    FLK_LOGE("failed to createDir(/data/vendor/flicker/flko/): %s.", error.text);
    return;
  }

  char devicePath[kDumpPathSize];
  int length = snprintf(devicePath, sizeof(devicePath), "%s%03d", kDumpRoot, counter);
  if (length < 0 || static_cast<size_t>(length) >= sizeof(devicePath) ||
      !flicker_map_data_path(devicePath, hostPath, sizeof(hostPath))) {
    FLK_LOGE("failed to build dump folder path for counter(%d).", counter);
    return;
  }
  if (createDir(hostPath) != 0 && errno != EEXIST) {
    const ErrorText error(errno);
    FLK_LOGE("failed to createDir(%s): %s.", devicePath, error.text);
    return;
  }

  if (count < 0 || count > flicker_dump::kMaxEntries) {
    FLK_LOGE("statistics count(%d) outside [0, %d].", count, flicker_dump::kMaxEntries);
    return;
  }
  const char* const names[] = {"flk.raw", "flk_pure.raw"};
  for (int pure = 0; pure < 2; ++pure) {
    if (pure == 1 && NSCam::Utils::Properties::property_get_int32(kPropDumpPure, 0) == 0)
      return;
    length = snprintf(devicePath, sizeof(devicePath), "%s%03d/%s", kDumpRoot, counter, names[pure]);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(devicePath) ||
        !flicker_map_data_path(devicePath, hostPath, sizeof(hostPath))) {
      FLK_LOGE("failed to build dump file path for counter(%d).", counter);
      return;
    }
    FILE* file = fopen(hostPath, "wb");
    if (file == nullptr) {
      FLK_LOGE("failed to open file(%s).", devicePath);
      return;
    }
    const bool written =
        pure == 0 ? writeFlkRaw(file, count, para, aux) : writeColumns(file, count, para);
    if (fclose(file) != 0 || !written) {
      FLK_LOGE("failed to write file(%s).", devicePath);
      return;
    }
  }
}
