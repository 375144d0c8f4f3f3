#define LOG_TAG "FlickerPlatformAdapter"
#define FLK_LOG_LEVEL_VAR flicker_log::g_adapterLevel

#include "flicker_stat_buffers.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "flicker_log.h"

namespace {

// The statistics hardware reports 18 entries per window line.
constexpr int kEntriesPerWindowRow = 18;
// Auto-test always checks at least one window line, even with an empty window.
constexpr int kMinAutoTestEntries = 18;

// Sensor 8581 delivers 32-bit entries: 150 in sensor mode 0, 201 otherwise.
constexpr int kStatCount8581Mode0 = 150;
constexpr int kStatCount8581Other = 201;
// Sensor 1398 delivers 384 32-bit words that are widened to 64-bit entries;
// the count kept for the algorithm is 192 (two words per entry pair) and the
// auto-test check covers only its first 384 bytes.
constexpr int kStatCount1398 = 192;
constexpr int kWords1398 = 2 * kStatCount1398;
constexpr size_t kAutoTestBytes1398 = 384;

// Image rows hidden from the statistics window, and the tallest window image
// that keeps 18 x win_h_ inside one buffer (6039 - 45).
constexpr int kHiddenRows = 45;
constexpr int kTallestImage = 6039;
constexpr int kMaxWindowImageHeight = kTallestImage - kHiddenRows;

// Row trace of setBuf: every 100 image rows, three entries at 6 x row.
constexpr int kTraceRowStep = 100;
constexpr int kTraceEntriesPerRow = 6;

enum class Conversion { kCopy64, kCopy32, kWiden32, kNone };

}  // namespace

FlickerStatWindow FlickerStatWindow::of(int width, int height) {
  FlickerStatWindow w;
  w.imgW = width;
  // Capping the image height keeps 18 x winH inside one statistics buffer.
  w.imgH = height <= kTallestImage ? height - kHiddenRows : kMaxWindowImageHeight;
  w.winW = 2 * (width / 12);
  w.winH = 2 * (w.imgH / 6);
  return w;
}

int32_t FlickerStatWindow::statEntries(int width, int height) {
  if (width < 0 || height < 0)
    return 0;  // setWindowInfo refuses the size
  const int32_t rows = of(width, height).winH;
  return rows > 0 ? kEntriesPerWindowRow * rows : 0;
}

FlickerStatBuffers::~FlickerStatBuffers() {
  free(column_vector_data_1_);
  free(column_vector_data_2_);
}

int FlickerStatBuffers::createBuf() {
  FLK_LOGD("+++");
  if (column_vector_data_1_ != nullptr || column_vector_data_2_ != nullptr) {
    // Re-init without uninit: the old blocks are dropped, not reused.
    FLK_LOGE("buffer is not empty.");
  }
  column_vector_data_1_ = static_cast<int64_t*>(malloc(kBufBytes));
  if (column_vector_data_1_ == nullptr) {
    FLK_LOGE("falied to allocate buffer 1.");
    return -1;
  }
  column_vector_data_2_ = static_cast<int64_t*>(malloc(kBufBytes));
  if (column_vector_data_2_ == nullptr) {
    FLK_LOGE("falied to allocate buffer 2.");
    free(column_vector_data_1_);
    column_vector_data_1_ = nullptr;  // so that releaseBuf cannot free it twice
    return -1;
  }
  FLK_LOGD("---");
  return 0;
}

int FlickerStatBuffers::releaseBuf() {
  FLK_LOGD("+++");
  free(column_vector_data_1_);
  column_vector_data_1_ = nullptr;
  free(column_vector_data_2_);
  column_vector_data_2_ = nullptr;
  FLK_LOGD("---");
  return 0;
}

int FlickerStatBuffers::setWindowInfo(int width, int height) {
  if (width < 0 || height < 0) {
    FLK_LOGE("negative image size(%d,%d).", width, height);
    return -1;
  }
  FLK_LOGD("tgImg(%d,%d)", width, height);
  const FlickerStatWindow w = FlickerStatWindow::of(width, height);
  tg_img_width_ = w.imgW;
  tg_img_height_ = w.imgH;
  win_w_ = w.winW;
  win_h_ = w.winH;
  return 0;
}

FlickerStatWindow FlickerStatBuffers::window() const {
  FlickerStatWindow w;
  w.imgW = tg_img_width_;
  w.imgH = tg_img_height_;
  w.winW = win_w_;
  w.winH = win_h_;
  return w;
}

const int64_t* FlickerStatBuffers::slot(int index) const {
  return index == 0 ? column_vector_data_1_ : column_vector_data_2_;
}

int FlickerStatBuffers::setBuf(int sensorPath, int32_t sensorId, int32_t sensorMode, bool autoTest,
                               const void* stats, int bufIndex) {
  if (column_vector_data_1_ == nullptr || column_vector_data_2_ == nullptr) {
    FLK_LOGE("column_vector_data_1_ or column_vector_data_2_ is NULL.");
    return -1;
  }
  if (stats == nullptr) {
    FLK_LOGE("null argument: stats(%p).", stats);
    return -1;
  }

  // Decide the conversion before anything is written, so that a window that
  // does not fit the buffers leaves the buffers and the count untouched.
  const int32_t winH = win_h_;
  int64_t count = static_cast<int64_t>(kEntriesPerWindowRow) * winH;
  Conversion conversion = Conversion::kNone;
  if (sensorPath == 0) {
    conversion = Conversion::kCopy64;
    if (autoTest && count < kMinAutoTestEntries)
      count = kMinAutoTestEntries;
  } else if (sensorId == kSensorId8581) {
    conversion = Conversion::kCopy32;
    count = sensorMode == 0 ? kStatCount8581Mode0 : kStatCount8581Other;
  } else if (sensorId == kSensorId1398) {
    conversion = Conversion::kWiden32;
    count = kStatCount1398;
  }
  if (count < 0 || count > kBufEntries) {
    FLK_LOGE("statistics count(%lld) of window height(%d) outside [0, %d].",
             static_cast<long long>(count), winH, kBufEntries);
    return -1;
  }

  int64_t* dst = bufIndex == 0 ? column_vector_data_1_ : column_vector_data_2_;
  stat_count_ = static_cast<int32_t>(count);
  const auto* src = static_cast<const uint8_t*>(stats);
  // Auto-test self-check: clear the destination and compare it with the
  // source, i.e. test whether the hardware delivered all zeros.
  auto allZero = [dst, src, autoTest](size_t bytes) {
    if (!autoTest)
      return false;
    memset(dst, 0, bytes);
    return memcmp(dst, src, bytes) == 0;
  };
  bool zeroStats = false;
  switch (conversion) {
    case Conversion::kCopy64: {
      const size_t bytes = static_cast<size_t>(count) * sizeof(int64_t);
      zeroStats = allZero(bytes);
      memcpy(dst, src, bytes);
      break;
    }
    case Conversion::kCopy32: {
      // 32-bit entries packed as they are, not widened.
      const size_t bytes = static_cast<size_t>(count) * sizeof(int32_t);
      zeroStats = allZero(bytes);
      memcpy(dst, src, bytes);
      break;
    }
    case Conversion::kWiden32: {
      zeroStats = allZero(kAutoTestBytes1398);
      for (int k = 0; k < kWords1398; ++k) {
        int32_t word;
        memcpy(&word, src + k * sizeof(int32_t), sizeof(word));  // the block may be unaligned
        dst[k] = word;
      }
      break;
    }
    case Conversion::kNone:
      break;
  }

  if (flicker_log::debugOn(flicker_log::g_adapterLevel, 2)) {
    const int32_t imgH = tg_img_height_;
    for (int row = 0; row < imgH && kTraceEntriesPerRow * row + 2 < kBufEntries;
         row += kTraceRowStep) {
      const int64_t* at = dst + static_cast<ptrdiff_t>(kTraceEntriesPerRow) * row;
      FLK_LOGD("sta row =%d, %lld %lld %lld", row, static_cast<long long>(at[0]),
               static_cast<long long>(at[1]), static_cast<long long>(at[2]));
    }
  }
  return zeroStats ? -1 : 0;
}
