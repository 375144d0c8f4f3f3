#include "closed_loop_runner.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "flicker_freq.h"
#include "host_properties.h"
#include "loop_trace.h"
#include "ripple_fit.h"
#include "sem_watch.h"
#include "sim_records.h"
#include "sim_rig.h"

namespace flicker_loop {

namespace {

// Host customisation property the manager's cust_getSensorBinningRatio reads.
const char kBinningProperty[] = "host.flicker.cust.sensor_binning";
// Sensor ids handed to Init: outside the two ids with their own statistics
// path, one per index so logs tell the sensors apart.
constexpr int kSensorIdBase = 0x5100;

FlickerResultRecord readResult(IFlickerMgr* mgr) {
  std::vector<uint8_t> bytes;
  mgr->GetResult(&bytes);
  FlickerResultRecord record{};
  memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
  return record;
}

int stateHz(const FlickerResultRecord& r) {
  return FlickerFreq::fromRecordCode(r.flickerState).hz();
}

// Name of the thread that drives the manager during a run: the framework
// calls the manager from its 3A thread, and traces show it under this name.
const char k3AThreadName[] = "3A thread";

// Gives the calling thread a name for the object's life.
class ThreadName {
 public:
  explicit ThreadName(const char* name) {
    prctl(PR_GET_NAME, previous_, 0, 0, 0);
    prctl(PR_SET_NAME, name, 0, 0, 0);
  }
  ~ThreadName() { prctl(PR_SET_NAME, previous_, 0, 0, 0); }
  ThreadName(const ThreadName&) = delete;
  ThreadName& operator=(const ThreadName&) = delete;

 private:
  char previous_[16] = {};  // the kernel's limit, with the terminator
};

// The deeper of the fitted 100 Hz and 120 Hz bands of a pair.
double rippleOf(const PairStats& stats) {
  const RippleFit fit = RippleFit::of(stats);
  return fit.valid ? std::max(fit.amplitude100, fit.amplitude120) : 0.0;
}

// Per-sensor state of a run.
struct Lane {
  IFlickerMgr* mgr = nullptr;
  flicker_sim::SimSensor* sensor = nullptr;
  flicker_sim::SimConfig config;
  flicker_sim::SimFrame current;
  flicker_sim::SimFrame previous;
  bool hasPrevious = false;
  int produced = 0;
  double nextTimeS = 0;  // expected readout start of the next frame, for ordering
  double periodS = 0;
};

class Run {
 public:
  Run(const flicker_sim::SimScenario& scenario, const LoopOptions& options)
      : scenario_(scenario), options_(options), rig_(scenario) {}

  LoopResult execute();

 private:
  bool startSensors();
  bool driveFrame(int index);
  bool decides(const PairStats& stats);
  void drain(Lane& lane);
  void stopSensors();
  bool fail(const std::string& reason) {
    if (result_.error.empty()) {
      result_.error = reason;
    }
    return false;
  }

  const flicker_sim::SimScenario& scenario_;
  const LoopOptions& options_;
  flicker_sim::SimRig rig_;
  std::vector<Lane> lanes_;
  LoopResult result_;
  double firstSofS_ = -1;
  int started_ = 0;
  int stateHz_ = 0;         // the process-wide state after the last frame
  double bestRipple_ = -1;  // fitted ripple of the deciding pair; -1: not yet fitted
};

LoopResult Run::execute() {
  const int frames = options_.frames > 0 ? options_.frames : scenario_.frameCount;
  result_.sensors = rig_.sensorCount();
  result_.lastPair.resize(static_cast<size_t>(rig_.sensorCount()));
  if (rig_.sensorCount() == 0) {
    fail("the scenario has no sensors");
    return result_;
  }
  bool ok = startSensors();
  const int total = frames * rig_.sensorCount();
  int driven = 0;
  while (ok) {
    // The sensor whose next frame starts first goes next, so that the
    // process-wide state moves in time order across the sensors.
    int next = -1;
    for (size_t i = 0; i < lanes_.size(); ++i) {
      if (lanes_[i].produced < frames &&
          (next < 0 || lanes_[i].nextTimeS < lanes_[static_cast<size_t>(next)].nextTimeS)) {
        next = static_cast<int>(i);
      }
    }
    if (next < 0) {
      break;
    }
    ok = driveFrame(next);
    ++driven;
    if (options_.progress) {
      options_.progress(driven, total);
    }
  }
  stopSensors();
  result_.ok = ok && result_.error.empty();
  if (!lanes_.empty() && lanes_.front().periodS > 0) {
    result_.frameIntervalMs = 1000.0 * lanes_.front().periodS;
  }
  return result_;
}

bool Run::startSensors() {
  const int binning = rig_.sensor(0)->config().sensorBinningRatio;
  for (int i = 0; i < rig_.sensorCount(); ++i) {
    if (rig_.sensor(i)->config().sensorBinningRatio != binning) {
      return fail("the sensors disagree on the sensor binning; the host applies one to all");
    }
  }
  flicker_host::setProperty(kBinningProperty, static_cast<int64_t>(binning));

  for (int i = 0; i < rig_.sensorCount(); ++i) {
    Lane lane;
    lane.mgr = IFlickerMgr::GetInstance(i);
    if (lane.mgr == nullptr) {
      return fail("no manager instance for sensor " + std::to_string(i));
    }
    lane.sensor = rig_.sensor(i);
    lane.config = lane.sensor->config();
    lane.periodS = 1.0 / std::max(1e-3, lane.sensor->params().framesPerSecond);
    lane.nextTimeS = lane.sensor->params().startTimeS;
    lanes_.push_back(std::move(lane));
  }
  for (size_t i = 0; i < lanes_.size(); ++i) {
    Lane& lane = lanes_[i];
    lane.mgr->Init(static_cast<int>(1u << i), kSensorIdBase + static_cast<int>(i));
    ++started_;
    SemWatch& watch = SemWatch::instance();
    const uint64_t waits = watch.totalWaits();
    lane.mgr->Config(toConfigInfo(lane.config));
    if (!watch.awaitTotalWaitsAbove(waits, options_.workerTimeout)) {
      return fail("the worker of sensor " + std::to_string(i) + " did not start");
    }
    lane.mgr->Start(flicker_start_info{});
    if (options_.startStateHz == 50 || options_.startStateHz == 60) {
      // The framework's way to set the state: one frame in the fixed mode.
      flicker_input_info fixed = toInputInfo(lane.config);
      fixed.flickerMode = options_.startStateHz == 60 ? FLICKER_MODE_60HZ : FLICKER_MODE_50HZ;
      lane.mgr->SetParam(fixed);
    }
  }
  stateHz_ = stateHz(readResult(lanes_.front().mgr));
  return true;
}

bool Run::driveFrame(int index) {
  Lane& lane = lanes_[static_cast<size_t>(index)];
  std::swap(lane.current, lane.previous);
  lane.hasPrevious = lane.produced > 0;
  lane.sensor->nextFrame(&lane.current);
  ++lane.produced;
  const flicker_sim::SimFrame& f = lane.current;
  if (firstSofS_ < 0) {
    firstSofS_ = f.sofS;
  }
  lane.nextTimeS = f.sofS + lane.periodS;

  const uint64_t postsBefore = SemWatch::postsByThisThread();
  int calc = 0;
  {
    // What the 3A thread spends on the manager per frame; the wait for the
    // worker below is the runner's own.
    const TraceSection section(cameraTraceOn() ? "frame " + std::to_string(f.frameIndex) +
                                                     " sensor " + std::to_string(index)
                                               : std::string());
    lane.mgr->SetParam(toInputInfo(lane.config));
    calc = lane.mgr->DoCalculation(toCalcInfo(f));
  }
  const bool posted = SemWatch::postsByThisThread() != postsBefore;
  if (posted && !SemWatch::instance().awaitWorkerIdle(SemWatch::lastPostByThisThread(),
                                                      options_.workerTimeout)) {
    return fail("the worker of sensor " + std::to_string(index) + " did not finish frame " +
                std::to_string(f.frameIndex));
  }
  const FlickerResultRecord record = readResult(lane.mgr);
  lane.sensor->applyResult(record.flickerState, record.flickerFrameRateActive);

  const double timeMs = 1000.0 * (f.sofS - firstSofS_);
  if (options_.keepFrames) {
    FrameRow row;
    row.frame = f.frameIndex;
    row.sensor = index;
    row.timeMs = timeMs;
    row.exposureUs = f.exposureTime;
    row.gain = f.gain;
    row.calcResult = calc;
    row.analysed = posted;
    row.truthHz = f.lightMainsHz;
    row.result = record;
    result_.frames.push_back(row);
  }
  if (posted) {
    PairRow pair;
    pair.frame = f.frameIndex;
    pair.sensor = index;
    pair.timeMs = timeMs;
    pair.exposureUs = f.exposureTime;
    pair.stateHz = stateHz(record);
    pair.score50 = record.flickerScore50;
    pair.score60 = record.flickerScore60;
    pair.rateActive = record.flickerFrameRateActive;
    pair.truthHz = f.lightMainsHz;
    pair.gain = f.gain;
    pair.meanLevel = f.meanLevel;
    if (lane.hasPrevious) {
      // The manager subtracts the exposure (us) from the timestamp (ns) as
      // plain integers; do the same so a replay can feed the same interval.
      const int64_t later = f.sof_timestamp - f.exposureTime;
      const int64_t earlier = lane.previous.sof_timestamp - lane.previous.exposureTime;
      pair.intervalNs = later > earlier ? later - earlier : earlier - later;
    }
    pair.switched = pair.stateHz != stateHz_;
    result_.pairs.push_back(pair);
    if (options_.keepLastPair && lane.hasPrevious) {
      PairStats& stats = result_.lastPair[static_cast<size_t>(index)];
      stats.valid = true;
      stats.sensor = index;
      stats.frame = f.frameIndex;
      stats.earlier = lane.previous.stats;
      stats.later = f.stats;
      stats.windowWidth = f.windowWidth;
      stats.windowHeight = f.windowHeight;
      stats.lineTimeS = f.lineTimeS;
      stats.exposureS = f.exposureS;
      stats.intervalS = f.sofS - lane.previous.sofS;
      stats.row = pair;
      if (decides(stats)) {
        result_.decidingPair = stats;
      }
    }
  }
  stateHz_ = stateHz(record);
  return true;
}

// A switch decides (the last one the run ends on); until the first switch,
// the pair with the highest score stands in, and among equal scores the one
// with the deepest fitted ripple (the first of equals).
bool Run::decides(const PairStats& stats) {
  const PairRow& pair = stats.row;
  const PairStats& best = result_.decidingPair;
  if (pair.switched || !best.valid) {
    bestRipple_ = -1;
    return true;
  }
  if (best.row.switched) {
    return false;
  }
  const int score = std::max(pair.score50, pair.score60);
  const int bestScore = std::max(best.row.score50, best.row.score60);
  if (score != bestScore) {
    return score > bestScore;
  }
  if (bestRipple_ < 0) {
    bestRipple_ = rippleOf(best);
  }
  const double ripple = rippleOf(stats);
  if (ripple <= bestRipple_) {
    return false;
  }
  bestRipple_ = ripple;
  return true;
}

// Leaves each manager idle before Stop, as a framework does when it turns
// detection off on leaving a stream: one frame with detection disabled drops
// a half-collected pair, one enabled frame without a request ends the pause
// that this leaves. Without it the next run of the process would start with
// the stale half pair of this one.
void Run::drain(Lane& lane) {
  if (lane.produced == 0) {
    return;
  }
  flicker_calc_info calc = toCalcInfo(lane.current);
  calc.flkEnable = 0;
  lane.mgr->DoCalculation(calc);
  calc.flkEnable = 1;
  calc.statValid = 1;
  calc.doFlkDetection = 0;
  calc.aeDetectCycle = 0;
  calc.needReinit = 0;
  const uint64_t postsBefore = SemWatch::postsByThisThread();
  lane.mgr->DoCalculation(calc);
  if (SemWatch::postsByThisThread() != postsBefore) {
    SemWatch::instance().awaitWorkerIdle(SemWatch::lastPostByThisThread(), options_.workerTimeout);
  }
}

void Run::stopSensors() {
  for (int i = 0; i < started_; ++i) {
    Lane& lane = lanes_[static_cast<size_t>(i)];
    drain(lane);
    lane.mgr->Stop();
    lane.mgr->Uninit();
  }
}

}  // namespace

ClosedLoopRunner::ClosedLoopRunner(const flicker_sim::SimScenario& scenario,
                                   const LoopOptions& options)
    : scenario_(scenario), options_(options) {
  // The exposure model starts from the state the manager is put in.
  if (options_.startStateHz == 50 || options_.startStateHz == 60) {
    for (flicker_sim::SimSensorParams& s : scenario_.sensors) {
      s.ae.initialFlickerState = FlickerFreq::fromHz(options_.startStateHz).recordCode();
    }
  }
}

LoopResult ClosedLoopRunner::run() {
  const ThreadName name(k3AThreadName);
  Run run(scenario_, options_);
  return run.execute();
}

}  // namespace flicker_loop
