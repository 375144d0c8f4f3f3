// FlickerPlatformAdapter: the per-sensor bridge between the flicker manager
// and the detection algorithm (flk_SendCmd): the algorithm commands and the
// detection step with its optional debug dump. The sensor's statistics
// buffers, window and conversion are its FlickerStatBuffers.
//
// One adapter per sensor index, created on first use and kept until process
// exit. The adapter has no lock: the manager serialises configuration and the
// per-frame intake (setBuf, setDetectInfo) on the 3A thread under its own
// lock, and runs detectFlicker on its worker thread after the intake posted a
// wake-up. Values handed from the intake to the worker are relaxed atomics.
// The buffer contents are not locked: a pair may be overwritten by the next
// frame while the worker analyses it, which the design accepts.
#pragma once

#include <atomic>
#include <cstdint>

#include "flicker_algo_cmd.h"
#include "flicker_stat_buffers.h"

// Statistics-hardware configuration handed to the manager (seventeen words).
struct flk_stat_config {
  int32_t words[17];
};
static_assert(sizeof(flk_stat_config) == 68, "seventeen int32 words");

class FlickerPlatformAdapter {
 public:
  static constexpr int kMaxSensors = 20;
  static constexpr int kBufEntries = FlickerStatBuffers::kBufEntries;
  static constexpr int kBufBytes = FlickerStatBuffers::kBufBytes;
  static constexpr int kSensorId1398 = FlickerStatBuffers::kSensorId1398;
  static constexpr int kSensorId8581 = FlickerStatBuffers::kSensorId8581;

  // The adapter of sensor index 0..19, created once; null for any other index.
  static FlickerPlatformAdapter* getInstance(int sensorIdx);

  explicit FlickerPlatformAdapter(int sensorIdx);
  ~FlickerPlatformAdapter();
  FlickerPlatformAdapter(const FlickerPlatformAdapter&) = delete;
  FlickerPlatformAdapter& operator=(const FlickerPlatformAdapter&) = delete;

  // Instances and buffers: init allocates the statistics buffers (a failure
  // is logged, and every setBuf then fails), uninit frees them.
  int init(int sensorDev, int sensorId);
  int uninit();
  int setFlickerAutoTest(int enable);

  // Algorithm commands.
  int init_algo(unsigned int lineLength, unsigned int height, unsigned int width, long pixelClk,
                int sensorPath);
  int uninit_algo();
  int setExtPara(FlickerExtPara para, float ratio);
  int setFlickerState(int hz);
  int resetQueue(int hz);
  int setLogLevel(int level);
  int setTwinInfo(int type, int winX, int winY);
  int getFrameRateType(_EFLKDecreaseFrameRateType* out);
  int getFlickerScore(int* score50, int* score60);

  // Statistics window and conversion (see FlickerStatBuffers).
  int setWindowInfo(int width, int height);
  FlickerStatWindow statWindow() const { return buffers_.window(); }
  int getFLKStatConfig(flk_stat_config* out);
  // Keeps the sensor mode, which picks sensor 8581's constants; the other two
  // arguments are not used.
  int getSensorMode(int sensorMode, int unused, int* out);
  // Copies one frame's statistics block into slot `bufIndex` (0: buffer 1,
  // else buffer 2) on the sensor's path; 0, or -1 on failure or on an
  // all-zero block in auto-test mode.
  int setBuf(int sensorPath, const void* stats, int bufIndex);

  // Detection step.
  void setDetectInfo(int path, int freq, int exposure, long aux);
  int detectFlicker();

 private:
  template <typename T>
  using Relaxed = std::atomic<T>;  // read on the worker, written on the 3A thread

  const int32_t sensor_idx_;
  Relaxed<int32_t> sensor_id_{0};
  Relaxed<int32_t> sensor_mode_{0};
  FlickerStatBuffers buffers_;
  Relaxed<int32_t> pixel_clk_{0};
  Relaxed<uint32_t> line_length_{0};
  Relaxed<int32_t> flicker_score_50_{0};
  Relaxed<int32_t> flicker_score_60_{0};
  Relaxed<int32_t> exposure_{0};
  Relaxed<int32_t> detect_path_{0};
  Relaxed<int32_t> freq_{0};
  Relaxed<int64_t> detect_aux_{0};
  Relaxed<bool> auto_test_{false};  // setFlickerAutoTest(1): setBuf checks for all-zero blocks
};
