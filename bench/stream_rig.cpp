#include "stream_rig.h"

#include <ctime>

#include "sim_records.h"
#include "sim_rig.h"
#include "sim_scenario.h"

namespace {

constexpr int kSensorDev = 1;        // main sensor
constexpr int kSensorId = 0x5678;    // any id: the host tuning serves every sensor
constexpr double kReadoutS = 0.030;  // line length chosen so the readout takes 30 ms
constexpr int kWarmupFrames = 2;     // the simulator's first frames settle its exposure

int64_t clockNs(clockid_t clock) {
  timespec ts{};
  clock_gettime(clock, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

flicker_sim::SimScenario StreamRig::scenario(int width, int height) {
  flicker_sim::SimScenario s;
  flicker_sim::makeSimPreset("office-50hz", &s);
  flicker_sim::SimGeometry& g = s.sensors.front().geometry;
  g.tgWidth = width;
  g.tgHeight = height;
  g.frameWidth = width;
  g.frameHeight = height;
  g.pixelsInLine = static_cast<uint32_t>(kReadoutS * static_cast<double>(g.pixelClockHz) / height);
  return s;
}

StreamRig::StreamRig(int width, int height) : result_(kFlickerResultSize, 0) {
  flicker_sim::SimRig rig(scenario(width, height));
  flicker_sim::SimSensor* sensor = rig.sensor(0);
  flicker_sim::SimFrame frame;
  for (int i = 0; i < kWarmupFrames; ++i) sensor->nextFrame(&frame);
  ring_.resize(kRingFrames);
  for (auto& f : ring_) sensor->nextFrame(&f);

  const flicker_sim::SimConfig c = sensor->config();
  config_ = flicker_loop::toConfigInfo(c);
  input_ = flicker_loop::toInputInfo(c);
  input_.isMaster = 1;
}

bool StreamRig::start(int sensorIdx, int flickerMode, int aeDetectCycle) {
  mgr_ = FlickerMgr::GetInstance(sensorIdx);
  if (mgr_ == nullptr)
    return false;
  input_.flickerMode = flickerMode;
  aeDetectCycle_ = aeDetectCycle;
  mgr_->Init(kSensorDev, kSensorId);
  mgr_->Config(config_);
  mgr_->Start(flicker_start_info{});
  mgr_->SetParam(input_);
  return mgr_->isAttach() == 1;
}

void StreamRig::stop() {
  if (mgr_ == nullptr)
    return;
  mgr_->Stop();
  mgr_->Uninit();
  mgr_ = nullptr;
}

int StreamRig::frame(int64_t* elapsedNs, int64_t* cpuNs) {
  const flicker_sim::SimFrame& f = ring_[frames_ % kRingFrames];
  // A steady detection request: exposure control's own flags are not part of
  // what is measured.
  calc_ = flicker_loop::toCalcInfo(f);
  calc_.doFlkDetection = 1;
  calc_.aeDetectCycle = aeDetectCycle_;
  calc_.statValid = 1;
  calc_.flkEnable = 1;
  calc_.needReinit = 0;
  calc_.sof_timestamp = (frames_ + 1) * kFramePeriodNs;
  ++frames_;

  const int64_t cpu0 = cpuNs != nullptr ? clockNs(CLOCK_THREAD_CPUTIME_ID) : 0;
  const int64_t t0 = elapsedNs != nullptr ? clockNs(CLOCK_MONOTONIC) : 0;
  mgr_->SetParam(input_);
  const int rc = mgr_->DoCalculation(calc_);
  mgr_->GetResult(&result_);
  if (elapsedNs != nullptr)
    *elapsedNs = clockNs(CLOCK_MONOTONIC) - t0;
  if (cpuNs != nullptr)
    *cpuNs = clockNs(CLOCK_THREAD_CPUTIME_ID) - cpu0;
  return rc;
}
