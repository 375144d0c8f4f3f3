// FlickerStatBuffers: one sensor's two column-vector buffers (slots 0 and 1),
// the statistics window in force, and the conversion of a frame's statistics
// block into a slot on each sensor path.
//
// The window follows the image size: the statistics leave out 45 rows (and
// see at most 5994), and the 6 x 3 grid's windows are 2 x (width / 12) pixels
// wide and 2 x (rows / 6) statistics lines high. The generic block carries 18
// entries per window line; sensor 8581 delivers 150 or 201 32-bit entries,
// sensor 1398 384 32-bit words that are widened to 64 bits.
//
// Threading: the window, the buffers and the conversion belong to the 3A
// thread (under the manager's lock); the detection on the worker reads the
// window, the count and the slots. The window and count are relaxed atomics.
// The slots' contents are not locked: the next frame may overwrite a pair
// while it is analysed, which the design accepts.
#pragma once

#include <atomic>
#include <cstdint>

// The statistics window of an image.
struct FlickerStatWindow {
  int32_t imgW = 0;  // image columns the statistics see
  int32_t imgH = 0;  // image rows the statistics see (the grab height)
  int32_t winW = 0;  // window width in pixels
  int32_t winH = 0;  // window height in statistics lines

  // The window of a width x height image (a negative size is the caller's
  // to refuse).
  static FlickerStatWindow of(int width, int height);
  // Entries of the generic statistics block for a width x height image: 18
  // per window line; 0 when the size leaves no window or is negative.
  static int32_t statEntries(int width, int height);
};

class FlickerStatBuffers {
 public:
  static constexpr int kBufEntries = 36000;  // int64 entries per buffer
  static constexpr int kBufBytes = kBufEntries * 8;
  // The two sensors whose statistics have a path of their own.
  static constexpr int32_t kSensorId1398 = 1398;
  static constexpr int32_t kSensorId8581 = 8581;

  FlickerStatBuffers() = default;
  ~FlickerStatBuffers();
  FlickerStatBuffers(const FlickerStatBuffers&) = delete;
  FlickerStatBuffers& operator=(const FlickerStatBuffers&) = delete;

  // Allocates both buffers (not cleared). Buffers held already are dropped,
  // not freed (logged): 0, or -1 when one could not be allocated, and then
  // neither is held.
  int createBuf();
  // Frees both buffers; 0.
  int releaseBuf();

  // Sets the window of a width x height image; -1 (and the window kept) for
  // a negative size.
  int setWindowInfo(int width, int height);
  FlickerStatWindow window() const;

  // Converts one frame's statistics block into slot `bufIndex` (0: slot 0,
  // anything else: slot 1) for the sensor path (0 generic, else the sensor's
  // own for sensors 8581 and 1398). The block's size is not passed: the
  // caller supplies stat-count x entry-size bytes, i.e. 8 x 18 x winH on the
  // generic path (at least 144 with the auto-test check), 4 x 150 (sensor
  // mode 0) or 4 x 201 for sensor 8581 and 4 x 384 for sensor 1398. With
  // `autoTest` the block is first checked for all zeros. 0, or -1 on a
  // failure or an all-zero block (whose data are copied all the same).
  int setBuf(int sensorPath, int32_t sensorId, int32_t sensorMode, bool autoTest, const void* stats,
             int bufIndex);

  // Slot 0 (buffer 1) or slot 1 (buffer 2); null while not allocated.
  const int64_t* slot(int index) const;
  // Entries the last setBuf left in its slot.
  int32_t statCount() const { return stat_count_.load(std::memory_order_relaxed); }

 private:
  template <typename T>
  using Relaxed = std::atomic<T>;  // written on the 3A thread, read on the worker

  int64_t* column_vector_data_1_ = nullptr;
  int64_t* column_vector_data_2_ = nullptr;
  Relaxed<int32_t> tg_img_width_{0};
  Relaxed<int32_t> tg_img_height_{0};
  Relaxed<int32_t> win_w_{0};
  Relaxed<int32_t> win_h_{0};
  Relaxed<int32_t> stat_count_{0};
};
