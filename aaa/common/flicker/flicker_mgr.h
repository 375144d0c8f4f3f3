// FlickerMgr: the per-sensor anti-banding manager behind IFlickerMgr, a
// facade over single-purpose parts. It holds the lock, keeps the order of
// calls and hands each job to its part:
//  - FlickerAttachRegistry: the process-wide detection slots;
//  - FlickerDetectionCycle: which frames detection takes, frame by frame;
//  - FlickerAlgoSetup: the algorithm's set-up values from the line timing;
//  - FlickerTuningTable: the tuning records, their selection and override files;
//  - FlickerAnalysis: the worker's analysis and the process-wide flicker state;
//  - FlickerWorker: the worker thread and its wake-up;
//  - FlickerResult: what GetResult reports, and its 84-byte record;
// and the sensor's FlickerPlatformAdapter, which talks to the algorithm.
//
// One instance per sensor index (0..19), created by GetInstance and kept until
// process exit. Per frame it stores the mode inputs (SetParam), takes the
// frames the cycle plans into the adapter (DoCalculation) and wakes its
// worker when a pair is complete; GetResult reports state and scores.
//
// Threading:
//  - The framework's 3A thread calls every operation. mutex_ serialises all of
//    them except GetResult, which reads lock-free and may run on any thread.
//  - One worker thread per instance ("FlickerMgrThd"), started by Config and
//    joined by Stop, runs the analysis without mutex_. The only ordering
//    between the per-frame path and the worker is the semaphore post.
//  - Init and Uninit end a worker left running (no Stop): the adapter's init
//    and uninit replace the statistics buffers that its detection reads.
//  - Instances are never destroyed, so the process may end at any moment, also
//    while a worker detects: nothing a worker touches goes away before it.
//  - The attach lock is process-wide; lock order is mutex_ before it.
//  - Fields read without a lock by design (the process-wide state, the values
//    GetResult reports, the values handed to the worker) are relaxed atomics:
//    a reader may see values of two analyses, never a torn value.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "flicker_algo_setup.h"
#include "flicker_analysis.h"
#include "flicker_attach_registry.h"
#include "flicker_detection_cycle.h"
#include "flicker_platform_adapter.h"
#include "flicker_result.h"
#include "flicker_tuning_table.h"
#include "flicker_worker.h"
#include "iflicker_mgr.h"

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
  int32_t attach(FLK_ATTACH_PRIO_T prio) { return attach_.attach(prio); }
  int32_t detach() { return attach_.detach(); }
  int32_t isAttach() { return attach_.isAttach(); }

  // The process-wide flicker frequency in Hz: 0 until first set, then 50 or 60.
  static int32_t flickerState() { return FlickerAnalysis::state(); }

 private:
  explicit FlickerMgr(int sensorIdx);  // only GetInstance makes one, for a valid index

  // Per-frame path.
  void applyAeChange(FlickerDetectionCycle::AeChange change);
  int32_t frameIntake(const flicker_calc_info& in, const FlickerDetectionCycle::Plan& plan);
  int32_t parseFLKBuffer(int sensorType, int exposureTime, const void* buf,
                         const FlickerDetectionCycle::Plan& plan);

  // Algorithm set-up and tuning.
  int init_algo();
  int uninit_algo();

  // Guarded by mutex_ unless marked otherwise.
  std::mutex mutex_;
  const int32_t sensor_idx_;
  FlickerPlatformAdapter* const adapter_;  // the adapter of the same index, for good
  int32_t sensor_dev_ = 0;                 // Init's arguments
  int32_t sensor_id_ = 0;
  FlickerAttachRegistry attach_;  // this sensor's detection slot (its own lock)
  FlickerDetectionCycle cycle_;   // which frames detection takes
  FlickerLineTiming timing_;      // as Config, LightWeightReConfig, SetParam and frames leave it
  FlickerTuningTable tuning_;
  std::atomic<int32_t> flicker_mode_{FLICKER_MODE_AUTO};  // read by the worker
  int32_t sensor_type_ = 0;
  _EFLKDecreaseFrameRateType decrease_frame_rate_type_ = FLK_DECREASE_FRAME_RATE_NONE;
  bool auto_test_ = false;                      // "vendor.autotesttool.enable" is 1
  std::atomic<int32_t> last_exposure_time_{0};  // of the last pair; read by the worker
  std::atomic<int32_t> users_{0};               // algorithm users: 0 or 1
  bool algo_reinit_req_ = false;                // the framework asked for a re-init
  bool algo_uninited_ = true;                   // no algorithm set up
  FlickerResult result_;                        // what GetResult reports; lock-free
  FlickerAnalysis analysis_;                    // the worker's job and the process-wide state
  FlickerWorker worker_;                        // runs the analysis; declared last, made last
};
