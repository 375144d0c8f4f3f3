// FlickerMgr: the instances, the lock and the order of calls of every
// operation; the jobs themselves are the parts' (see flicker_mgr.h, which
// also has the threading rules).
#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_mgr.h"

#include <cstring>

#include "cam_flicker_custom.h"
#include "cam_inst.h"
#include "cam_properties.h"
#include "flicker_freq.h"
#include "flicker_log.h"
#include "flicker_trace.h"
#include "flicker_utils.h"

namespace {

constexpr const char* kPropLogLevel = "vendor.debug.flicker_mgr.log.level";
constexpr const char* kPropAutoTest = "vendor.autotesttool.enable";

int32_t propInt(const char* key, int32_t defaultValue) {
  return NSCam::Utils::Properties::property_get_int32(key, defaultValue);
}

// Timestamp slot toggle of every-frame mode. Deliberately process-wide: two
// sensors in every-frame mode share it. Read and written without a lock.
std::atomic<bool> slot_toggle{false};

// The twenty per-index holders. The table is never destroyed: the process may
// end while a worker is still inside its instance (waiting for a wake-up or in
// the middle of a detection) or while a framework thread still calls in, so
// every instance lives until the process is gone. The instances stay reachable
// through the table, which leak checkers see.
NS3Av3::INST_T<FlickerMgr>& instanceSlot(int sensorIdx) {
  static auto* const slots = new NS3Av3::INST_T<FlickerMgr>[FlickerMgr::kMaxSensors];
  return slots[sensorIdx];
}

}  // namespace

// ---------------------------------------------------------------------------
// Instances and lifecycle

FlickerMgr* FlickerMgr::GetInstance(int sensorIdx) {
  if (static_cast<unsigned>(sensorIdx) >= static_cast<unsigned>(kMaxSensors)) {
    FLK_LOGE("Unsupport sensor Index: %d\n", sensorIdx);
    return nullptr;
  }
  NS3Av3::INST_T<FlickerMgr>& slot = instanceSlot(sensorIdx);
  std::call_once(slot.onceFlag,
                 [&slot, sensorIdx] { slot.instance.reset(new FlickerMgr(sensorIdx)); });
  return slot.instance.get();
}

IFlickerMgr* IFlickerMgr::GetInstance(int sensorIdx) {
  return FlickerMgr::GetInstance(sensorIdx);
}

size_t IFlickerMgr::StatBlockEntries(int32_t width, int32_t height) {
  return static_cast<size_t>(FlickerStatWindow::statEntries(width, height));
}

FlickerMgr::FlickerMgr(int sensorIdx)
    : sensor_idx_(sensorIdx),
      adapter_(FlickerPlatformAdapter::getInstance(sensorIdx)),
      attach_(sensorIdx, cust_getMaxAttachNum()),
      cycle_(cust_getFlickerDetectFrequency, &slot_toggle),
      analysis_(sensorIdx, adapter_, &result_, {&flicker_mode_, &last_exposure_time_, &cycle_}),
      worker_(sensorIdx, [this] { analysis_.analyzeFlickerFrequency(); }) {
  for (int failed = tuning_.allocate(); failed > 0; --failed)
    FLK_LOGE("Can not locate memory for parameters.");
  FLK_LOGD("sensorIdx(%d).", sensorIdx);
}

FlickerMgr::~FlickerMgr() = default;

int FlickerMgr::Init(int sensorDev, int sensorId) {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("+++ SensorDev/SensorId(%d, %d)", sensorDev, sensorId);

  flicker_log::g_managerLevel.store(propInt(kPropLogLevel, 0), std::memory_order_relaxed);
  const int32_t autoTest = propInt(kPropAutoTest, 0);
  auto_test_ = autoTest == 1;
  sensor_dev_ = sensorDev;
  sensor_id_ = sensorId;

  // The adapter's init replaces the statistics buffers that a running
  // worker's detection reads: end such a worker first (Config starts the next).
  worker_.stop();
  adapter_->init(sensorDev, sensorId);
  adapter_->setFlickerAutoTest(autoTest);

  // The tables are loaded once per instance, on the first Init.
  if (!tuning_.loaded()) {
    FLK_LOGD("getFlickerParametersAll");
    tuning_.getFlickerParametersAll(sensor_id_, sensor_dev_, kFlickerScenarioRows,
                                    kFlickerBinRatios);
  }
  FLK_LOGD("---");
  return 0;
}

int FlickerMgr::Uninit() {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("+++");
  // A worker left running (no Stop) must not detect on the buffers that the
  // adapter's uninit frees.
  worker_.stop();
  adapter_->uninit();
  FLK_LOGD("---");
  return 0;
}

// ---------------------------------------------------------------------------
// Configuration and stream control

bool FlickerMgr::Config(const flicker_config_info& config) {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("+++");
  timing_ = {config.SensorMode, config.HBIN_INFO.w, config.HBIN_INFO.h, config.TG_SIZE.w,
             config.TG_SIZE.h,  config.PixelClk,    config.PixelsInLine};

  flk_stat_config statConfig;
  adapter_->getFLKStatConfig(&statConfig);
  result_.setStatConfig(statConfig);

  worker_.start();
  FLK_LOGD("---");
  return true;
}

bool FlickerMgr::LightWeightReConfig(const flicker_config_info& config) {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("+++");
  if (config.SensorMode == timing_.sensorMode) {
    result_.setSensorModeChanged(false);
  } else {
    // The HBIN size deliberately keeps the value of the last Config.
    result_.setSensorModeChanged(true);
    timing_.sensorMode = config.SensorMode;
    timing_.tgWidth = config.TG_SIZE.w;
    timing_.tgHeight = config.TG_SIZE.h;
    timing_.pixelClk = config.PixelClk;
    timing_.pixelsInLine = config.PixelsInLine;
  }
  FLK_LOGD("---");
  return true;
}

int FlickerMgr::Start(const flicker_start_info& /*start*/) {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("+++ SensorIdx(%d)", sensor_idx_);
  flicker_log::g_managerLevel.store(propInt(kPropLogLevel, 0), std::memory_order_relaxed);
  // The adapter keeps the value Init gave it.
  auto_test_ = propInt(kPropAutoTest, 0) == 1;
  FLK_LOGD("SensorMode(%d) HBIN_INFO(W:%d/H:%d) TG_SIZE(W:%d/H:%d) PixelClk(%lld) PixelsInLine(%u)",
           timing_.sensorMode, timing_.hbinWidth, timing_.hbinHeight, timing_.tgWidth,
           timing_.tgHeight, static_cast<long long>(timing_.pixelClk), timing_.pixelsInLine);

  adapter_->setWindowInfo(timing_.hbinWidth, timing_.hbinHeight);

  adapter_->setLogLevel(FlickerAlgoSetup::algoLogWord());
  adapter_->getFrameRateType(&decrease_frame_rate_type_);
  FLK_LOGD("decrease_frame_rate_type_(%d)", decrease_frame_rate_type_);
  if (flicker_mode_.load(std::memory_order_relaxed) == FLICKER_MODE_AUTO) {
    const bool active =
        decrease_frame_rate_type_ == FLK_DECREASE_FRAME_RATE_NONE || sensor_type_ != 0;
    result_.setFrameRateActive(active);
  }
  cycle_.restart();
  FLK_LOGD("--- SensorIdx(%d)", sensor_idx_);
  return 0;
}

bool FlickerMgr::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("+++ SensorIdx(%d)", sensor_idx_);
  worker_.stop();
  if (detach() != 0)
    return false;
  if (!algo_uninited_) {
    uninit_algo();
    algo_uninited_ = true;
  }
  FLK_LOGD("--- SensorIdx(%d)", sensor_idx_);
  return true;
}

// ---------------------------------------------------------------------------
// Per-frame input and result

int FlickerMgr::SetParam(const flicker_input_info& input) {
  std::lock_guard<std::mutex> lock(mutex_);
  FLK_LOGD("flickerMode(%d) sensorType(%d) isMaster(%d) aeTargetMode(%d)", input.flickerMode,
           input.sensorType, input.isMaster, input.aeTargetMode);

  const int32_t oldMode = flicker_mode_.load(std::memory_order_relaxed);
  if (input.flickerMode != oldMode) {
    FLK_LOGI("mode change(%d->%d).", oldMode, input.flickerMode);
    if (input.flickerMode == FLICKER_MODE_AUTO) {
      result_.setFrameRateActive(decrease_frame_rate_type_ == FLK_DECREASE_FRAME_RATE_NONE);
    } else if (oldMode == FLICKER_MODE_AUTO) {
      result_.setFrameRateActive(false);
    }
    flicker_mode_.store(input.flickerMode, std::memory_order_relaxed);
  }

  sensor_type_ = input.sensorType;
  if (input.sensorMode == timing_.sensorMode) {
    result_.setSensorModeChanged(false);
  } else {
    result_.setSensorModeChanged(true);
    timing_.sensorMode = input.sensorMode;
    timing_.tgWidth = input.tgWidth;
    timing_.tgHeight = input.tgHeight;
  }

  const bool attached = attach_.attached();
  if (!attached && (input.isMaster == 1 || input.isMaster == -1)) {
    attach(FLK_ATTACH_PRIO_MEDIUM);
  } else if (attached && input.isMaster == 0) {
    detach();
    if (!algo_uninited_) {
      uninit_algo();
      algo_uninited_ = true;
    }
  }

  // Fixed modes force the state on every frame, not only on a change.
  const int32_t mode = flicker_mode_.load(std::memory_order_relaxed);
  if (mode == FLICKER_MODE_60HZ) {
    analysis_.setFlickerState(FlickerFreq(FlickerFreq::k60Hz).hz());
  } else if (mode == FLICKER_MODE_50HZ) {
    analysis_.setFlickerState(FlickerFreq(FlickerFreq::k50Hz).hz());
  }
  return 0;
}

int FlickerMgr::GetResult(std::vector<uint8_t>* output) {
  FLK_LOGD("+++");
  FlickerResult::Written w;
  if (!result_.encode(FlickerAnalysis::state(), output, &w)) {
    FLK_LOGE("output should not be NULL");
    return 0;
  }
  FLK_LOGD(
      "flickerState(%d) flickerFrameRateActive(%d) flickerScore50/60(%d/%d) "
      "flickerScoreActive(%d) hdrFlkSrc(%d)",
      w.state, w.frameRateActive, w.score50, w.score60, w.scoreActive, w.hdrFlkSrc);
  FLK_LOGD("---");
  return 0;
}

// ---------------------------------------------------------------------------
// Per-frame calculation

int FlickerMgr::DoCalculation(const flicker_calc_info& in) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!attach_.attached()) {
    FLK_LOGD("SensorIdx(%d) skip, not attached.", sensor_idx_);
    return -1;
  }
  if (in.needReinit == 1)
    algo_reinit_req_ = true;

  const FlickerCycleFrame frame{in.flkEnable != 0, in.statValid != 0, in.doFlkDetection,
                                in.aeDetectCycle};
  const FlickerCycleContext context{
      sensor_type_, decrease_frame_rate_type_,
      flicker_mode_.load(std::memory_order_relaxed) == FLICKER_MODE_AUTO};
  const FlickerDetectionCycle::Admission admission = cycle_.admit(frame, context);
  if (admission.warmUpFrame > 0) {
    // The first two frames after Start are never used.
    FLK_LOGD("skip, not enough frame(%d).", admission.warmUpFrame);
    return -1;
  }
  if (admission.frameRateActive.has_value())
    result_.setFrameRateActive(*admission.frameRateActive);
  if (!admission.admitted)
    return -1;
  applyAeChange(admission.ae);

  const FlickerDetectionCycle::Plan plan = cycle_.plan(frame, context);
  if (plan.clearScoreActive)
    result_.setScoreActive(false);
  if (plan.invalidCycle.has_value()) {
    FLK_LOGD("invalid detection cycle(%d).", *plan.invalidCycle);
    return 0;
  }
  if (plan.frameRateActive.has_value())
    result_.setFrameRateActive(*plan.frameRateActive);
  if (!plan.take)
    return 0;
  const int32_t rc = frameIntake(in, plan);
  if (rc != 0) {
    // The code itself is never printed; the constant marks the failure.
    FLK_LOGD("failed to analyze(%x).", static_cast<unsigned>(-1));
    return rc;
  }
  return 0;
}

void FlickerMgr::applyAeChange(FlickerDetectionCycle::AeChange change) {
  const int32_t state = FlickerAnalysis::state();
  if (change == FlickerDetectionCycle::AeChange::kTakeOver) {
    // AE takes over: the algorithm restarts from the opposite frequency.
    adapter_->setFlickerState(0);
    const FlickerFreq freq = FlickerFreq::fromHz(state);
    if (freq.known())
      adapter_->resetQueue(freq.other().hz());
  } else if (change == FlickerDetectionCycle::AeChange::kGiveUp) {
    adapter_->setFlickerState(state);
  }
}

int32_t FlickerMgr::frameIntake(const flicker_calc_info& in,
                                const FlickerDetectionCycle::Plan& plan) {
  FLK_LOGD(
      "update(): analyze with sensorIdx(%d), exposure time(%d), mVa(%p), cycle(%d), "
      "frame_data_num_(%d), ae_detect_cycle_(%d) width(%d), height(%d) pixel_mode(%d), "
      "sof_timestamp(%lld).",
      sensor_idx_, in.exposureTime, static_cast<const void*>(in.mVa), plan.cycle, plan.frameDataNum,
      cycle_.aeDetectCycle(), in.width, in.height, in.pixel_mode,
      static_cast<long long>(in.sof_timestamp));

  const int32_t width = in.width >> (static_cast<unsigned>(in.pixel_mode) % 32u);
  const bool sizeChanged = width != timing_.hbinWidth || in.height != timing_.hbinHeight;
  if (sizeChanged)
    FLK_LOGD("tg_w(%d) tg_ht(%d)", timing_.hbinWidth, timing_.hbinHeight);
  timing_.hbinWidth = width;
  timing_.hbinHeight = in.height;

  adapter_->setTwinInfo(in.twinType, in.twinWinX, in.twinWinY);
  adapter_->setWindowInfo(timing_.hbinWidth, timing_.hbinHeight);
  if (sizeChanged || algo_reinit_req_ || algo_uninited_) {
    if (!algo_uninited_)
      uninit_algo();
    init_algo();
    algo_reinit_req_ = false;
    algo_uninited_ = false;
  }

  cycle_.noteExposureStart(plan.timestampSlot, in.sof_timestamp, in.exposureTime);
  return parseFLKBuffer(sensor_type_, in.exposureTime, in.mVa, plan);
}

// ---------------------------------------------------------------------------
// Statistics intake

int32_t FlickerMgr::parseFLKBuffer(int sensorType, int exposureTime, const void* buf,
                                   const FlickerDetectionCycle::Plan& plan) {
  FLK_TRACE_BEGIN("parseFLK");
  const int32_t rc = adapter_->setBuf(sensorType, buf, plan.bufferSlot);
  FLK_TRACE_END();

  if (auto_test_) {
    if (rc != 0) {
      FLK_LOGD("[CAT][flicker] FLKOCheck:Fail");
    } else {
      FLK_LOGD("[CAT][flicker] FLKOCheck:Pass");
    }
  }
  // A failed self-check (any other nonzero value) only reports.
  if (rc == -1)
    return -1;
  if (!plan.pairComplete)
    return 0;

  adapter_->setDetectInfo(sensorType, FlickerAnalysis::state(), exposureTime,
                          static_cast<long>(cycle_.pairInterval()));
  last_exposure_time_.store(exposureTime, std::memory_order_relaxed);
  // At most one wake-up pending: pairs completed while the worker is busy
  // merge into the one already posted.
  worker_.wake();
  return 0;
}

// ---------------------------------------------------------------------------
// Algorithm set-up

int FlickerMgr::init_algo() {
  FLK_LOGV("+++ users_(%d), SensorIdx(%d)", users_.load(), sensor_idx_);

  const int initHz = FlickerAlgoSetup::initialHz(FlickerAnalysis::state());
  analysis_.setFlickerState(initHz);

  // The set-up is redone in full on a second call; the count stays at 1.
  if (users_.load() < 1) {
    users_.fetch_add(1);
  } else {
    FLK_LOGE("users_(%d) had created. SensorIdx(%d)", users_.load(), sensor_idx_);
  }

  // The line timing of the frame the intake has just set up the window for.
  const int binning = cust_getSensorBinningRatio(sensor_id_, timing_.sensorMode);
  const FlickerAlgoSetup::Values setup =
      FlickerAlgoSetup::compute(timing_, adapter_->statWindow(), binning);
  // A re-init without a new Config starts from this set-up's scaled length: it compounds.
  FlickerAlgoSetup::carryOver(setup, &timing_);
  adapter_->getSensorMode(timing_.sensorMode, sensor_type_, nullptr);

  const FLICKER_CUST_PARA para = tuning_.recordFor(timing_.sensorMode, sensor_type_, setup.ratio);
  FlickerExtPara ext;
  static_assert(sizeof(ext) <= sizeof(para), "algorithm part is the head of the record");
  memcpy(&ext, &para, sizeof(ext));
  adapter_->setExtPara(ext, setup.resizeRatio);

  const bool mismatch = FlickerAlgoSetup::checkSensorSetting(setup, para.sensor_setting);
  if (auto_test_) {
    if (mismatch) {
      FLK_LOGD("[CAT][flicker] FlickerSensorSettingCheck:Fail");
    } else {
      FLK_LOGD("[CAT][flicker] FlickerSensorSettingCheck:Pass");
    }
  }

  const FlickerStatWindow& w = setup.window;
  // The height is tripled in this message only (statistics lines per row).
  FLK_LOGD("flicker_init(%u,%u,%u,%lld).", setup.lineLength, 3u * static_cast<uint32_t>(w.winH),
           static_cast<uint32_t>(w.winW), static_cast<long long>(setup.pixelClk));
  const int64_t t0 = getMs();
  adapter_->init_algo(setup.lineLength, static_cast<unsigned>(w.winH),
                      static_cast<unsigned>(w.winW), static_cast<long>(setup.pixelClk),
                      sensor_type_);
  FLK_LOGD(
      "SensorIdx(%d) SensorId(%d) SensorMode(%d) SensorType(%d) initFreq(%d) ratio(%d) "
      "clkFreq(%lld) pixelsInLine(%d) imgH(%d) winH(%d) winW(%d) users_(%d) period(%lld ms)",
      sensor_idx_, sensor_id_, timing_.sensorMode, sensor_type_, initHz, setup.ratio,
      static_cast<long long>(setup.pixelClk), static_cast<int>(setup.lineLength), w.imgH, w.winH,
      w.winW, users_.load(), static_cast<long long>(getMs() - t0));
  return 0;
}

int FlickerMgr::uninit_algo() {
  FLK_LOGD("users_(%d). SensorIdx(%d)", users_.load(), sensor_idx_);
  if (users_.load(std::memory_order_acquire) >= 1) {
    users_.fetch_sub(1);
    if (users_.load() == 0) {
      adapter_->uninit_algo();
    }
  }
  return 0;
}
