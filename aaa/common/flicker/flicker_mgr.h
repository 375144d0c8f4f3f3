// FlickerMgr: the per-sensor anti-banding manager behind IFlickerMgr.
//
// One instance per sensor index (0..19), created by GetInstance and kept until
// process exit. Per frame it stores the mode inputs (SetParam), collects pairs
// of statistics frames into the sensor's platform adapter (DoCalculation) and
// wakes its worker thread, which runs the detection and moves the process-wide
// flicker state between 50 and 60 Hz; GetResult reports state and scores.
//
// Threading:
//  - The framework's 3A thread calls every operation. mutex_ serialises all of
//    them except GetResult, which reads lock-free and may run on any thread.
//  - One worker thread per instance ("FlickerMgrThd"), created by Config and
//    joined by Stop, runs analyzeFlickerFrequency without mutex_. The only
//    ordering between the per-frame path and the worker is the semaphore post.
//  - Init and Uninit end a worker left running (no Stop): the adapter's init
//    and uninit replace the statistics buffers that its detection reads.
//  - Instances are never destroyed, so the process may end at any moment, also
//    while a worker detects: nothing a worker touches goes away before it.
//  - attach_lock_ is process-wide; lock order is mutex_ before attach_lock_.
//  - Fields read without a lock by design (flicker_state_, the scores and flags
//    GetResult reports, the values handed to the worker) are relaxed atomics:
//    a reader may see values of two analyses, never a torn value.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "cam_flicker_nvram.h"
#include "cam_inst.h"
#include "flicker_algo_setup.h"
#include "flicker_analysis.h"
#include "flicker_attach_registry.h"
#include "flicker_detection_cycle.h"
#include "flicker_result.h"
#include "flicker_tuning_table.h"
#include "flicker_worker.h"
#include "iflicker_mgr.h"
#include "platform/flicker_platform_adapter.h"

class FlickerMgr : public IFlickerMgr {
 public:
  static constexpr int kMaxSensors = 20;

  // The manager of sensor index 0..19, created once; null otherwise.
  static FlickerMgr* GetInstance(int sensorIdx);

  ~FlickerMgr() override;
  FlickerMgr(const FlickerMgr&) = delete;
  FlickerMgr& operator=(const FlickerMgr&) = delete;

  int Init(int sensorDev, int sensorId) override;
  int Uninit() override;
  bool Config(const flicker_config_info& config) override;
  bool LightWeightReConfig(const flicker_config_info& config) override;
  int Start(const flicker_start_info& start) override;
  bool Stop() override;
  int SetParam(const flicker_input_info& input) override;
  int DoCalculation(const flicker_calc_info& calc) override;
  int GetResult(std::vector<uint8_t>* output) override;

  // Attachment to the shared detector (also used by other camera modules).
  int32_t attach(FLK_ATTACH_PRIO_T prio);
  int32_t detach();
  int32_t isAttach();

  // The process-wide flicker frequency in Hz: 0 until first set, then 50 or 60.
  static int32_t flickerState() { return FlickerAnalysis::state(); }

 private:
  explicit FlickerMgr(int sensorIdx);  // only GetInstance makes one, for a valid index

  template <typename T>
  using Relaxed = std::atomic<T>;

  // Per-frame path.
  void applyAeChange(FlickerDetectionCycle::AeChange change);
  int32_t frameIntake(const flicker_calc_info& in, const FlickerDetectionCycle::Plan& plan);
  int32_t parseFLKBuffer(int sensorType, int exposureTime, const void* buf,
                         const FlickerDetectionCycle::Plan& plan);

  // Algorithm set-up and tuning.
  int init_algo();
  int uninit_algo();

  std::mutex mutex_;
  std::atomic<int32_t> users_{0};
  int32_t sensor_dev_ = 0;
  int32_t sensor_id_ = 0;
  const int32_t sensor_idx_;
  // The adapter of the same index: one for each valid index, for good.
  FlickerPlatformAdapter* const adapter_;
  FlickerAttachRegistry attach_;  // this sensor's detection slot
  FlickerDetectionCycle cycle_;   // which frames detection takes
  FlickerLineTiming timing_;      // as Config, LightWeightReConfig, SetParam and frames leave it
  Relaxed<int32_t> flicker_mode_{FLICKER_MODE_AUTO};
  int32_t sensor_type_ = 0;
  _EFLKDecreaseFrameRateType decrease_frame_rate_type_ = FLK_DECREASE_FRAME_RATE_NONE;
  Relaxed<int32_t> auto_test_enable_{0};
  Relaxed<int32_t> last_exposure_time_{0};
  bool algo_reinit_req_ = false;
  int32_t is_master_ = 0;
  bool algo_uninited_ = true;
  int64_t frame_start_ts_[2] = {0, 0};
  int32_t ae_target_mode_ = 0;
  FlickerResult result_;      // what GetResult reports; lock-free
  FlickerAnalysis analysis_;  // the worker's job and the process-wide state
  FlickerTuningTable tuning_;
  FlickerWorker worker_;  // runs analyzeFlickerFrequency; declared last, made last
};
