#include "open_flicker_algo.h"

#include <cmath>
#include <cstring>

namespace open_algo {
namespace {

// Plausible statistics line times: 100 ns (a very fast sensor line) to 2 ms
// (far beyond any readout; the band period would be a handful of lines).
constexpr double kMinLineTime = 1e-7;
constexpr double kMaxLineTime = 2e-3;
// Beyond one second between the frames the mains phase drift makes the
// predicted advance meaningless.
constexpr int64_t kMaxIntervalNs = 1000000000;
// Exposures beyond one second are not from a video stream.
constexpr int32_t kMaxExposureUs = 1000000;

int32_t codeOfHz(int32_t hz) {
  if (hz == 60) {
    return FLK_FREQ_60HZ;
  }
  return hz == 50 ? FLK_FREQ_50HZ : FLK_FREQ_NONE;
}

int32_t scaled(double value, double factor) {
  return static_cast<int32_t>(std::lround(std::fmin(value * factor, 1e9)));
}

}  // namespace

OpenFlickerAlgo::OpenFlickerAlgo() : knobs_(AlgoTuning::defaults()) {
  decider_.configure(knobs_);
}

int32_t OpenFlickerAlgo::handle(uint32_t cmd, void* in, void* out) {
  switch (cmd) {
    case FLK_CMD_INIT:
      return init(static_cast<const FlkInitPara*>(in));
    case FLK_CMD_UNINIT:
      return release();
    case FLK_CMD_DETECT:
      return detect(static_cast<const FlkDetectPara*>(in), static_cast<FlkDetectResult*>(out));
    case FLK_CMD_SET_EXT_PARA:
      return setTuning(static_cast<const FlkExtParaCmd*>(in));
    case FLK_CMD_SET_STATE:
      return setFrequency(static_cast<const int32_t*>(in), false);
    case FLK_CMD_RESET_QUEUE:
      return setFrequency(static_cast<const int32_t*>(in), true);
    case FLK_CMD_SET_LOG:
      return setLog(static_cast<const FlkLogPara*>(in));
    default:
      ALGO_LOG(log_, "unknown command %u", cmd);
      return -1;
  }
}

int32_t OpenFlickerAlgo::init(const FlkInitPara* para) {
  if (para == nullptr) {
    ALGO_LOG(log_, "init: null record");
    return -1;
  }
  initialised_ = true;
  sensorPath_ = para->sensorPath;
  statLines_ = para->statLineCount;
  decider_.clearHistory();
  analyzer_.forgetReference();
  const double lineTime =
      para->pixelClk > 0.0 ? static_cast<double>(para->lineLength) / para->pixelClk : 0.0;
  const bool timingOk =
      std::isfinite(lineTime) && lineTime >= kMinLineTime && lineTime <= kMaxLineTime;
  lineTime_ = timingOk ? lineTime : 0.0;
  ALGO_LOG(log_, "path(%d) line(%u) lines(%d) width(%d) clk(%.0f) lineTime(%.3f us)%s",
           para->sensorPath, para->lineLength, para->statLineCount, para->statWidth, para->pixelClk,
           lineTime * 1e6, timingOk ? "" : " unusable timing");
  if (sensorPath_ != FLK_PATH_GENERIC) {
    ALGO_LOG(log_, "sensor path %d is not analysed: detections answer neither", sensorPath_);
  }
  return timingOk ? 0 : -1;
}

int32_t OpenFlickerAlgo::release() {
  initialised_ = false;
  lineTime_ = 0.0;
  decider_.clearHistory();
  analyzer_.forgetReference();
  decider_.forget();
  ALGO_LOG(log_, "released");
  return 0;
}

int32_t OpenFlickerAlgo::setTuning(const FlkExtParaCmd* para) {
  if (para == nullptr) {
    ALGO_LOG(log_, "tuning: null record, kept");
    return -1;
  }
  int adjusted = 0;
  knobs_ = AlgoTuning::decode(para->para, &adjusted);
  decider_.configure(knobs_);
  ALGO_LOG(log_,
           "amp(%.4f) snr(%.1f) dom(%.2f) holdOff(%d) back(+%d) full(%.0f) floor(%.0f) "
           "clip(%.3f) vis(%.3f) score(%d) range(%d) past(%d..%d) clamped(%d)",
           knobs_.minAmplitude, knobs_.snrThreshold, knobs_.dominance, knobs_.holdOff,
           knobs_.switchBackMargin, knobs_.fullScale, knobs_.noiseFloor, knobs_.clipFraction,
           knobs_.minVisibility, knobs_.switchScore, knobs_.searchRange, knobs_.minPastFrames,
           knobs_.maxPastFrames, adjusted);
  return 0;
}

int32_t OpenFlickerAlgo::setFrequency(const int32_t* code, bool resetHistory) {
  if (code == nullptr || *code < FLK_FREQ_50HZ || *code > FLK_FREQ_NONE) {
    ALGO_LOG(log_, "%s: bad frequency record", resetHistory ? "reset" : "state");
    return -1;
  }
  if (resetHistory) {
    decider_.resetTo(*code);
  } else {
    decider_.setApplied(*code);
  }
  ALGO_LOG(log_, "%s %d", resetHistory ? "history reset to" : "applied", *code);
  return 0;
}

int32_t OpenFlickerAlgo::setLog(const FlkLogPara* para) {
  if (para == nullptr) {
    return -1;
  }
  log_.set(para->level, para->print);
  ALGO_LOG(log_, "log word 0x%x (trace 0x%x)", static_cast<unsigned>(para->level),
           static_cast<unsigned>(log_.traceWord()));
  return 0;
}

bool OpenFlickerAlgo::pairFor(const FlkDetectPara& p, PairInput* pair) const {
  const char* reason = nullptr;
  const int64_t lines = static_cast<int64_t>(p.windowRows) * p.winValue2;
  if (!initialised_) {
    reason = "not initialised";
  } else if (sensorPath_ != FLK_PATH_GENERIC || p.sensorPath != FLK_PATH_GENERIC) {
    reason = "sensor-specific path";
  } else if (lineTime_ <= 0.0) {
    reason = "no usable line time";
  } else if (p.statsSlot0 == nullptr || p.statsSlot1 == nullptr) {
    reason = "null statistics";
  } else if (p.windowCols < 1 || p.windowCols > kMaxWindows || p.windowRows < 1 ||
             p.winValue1 < 1 || p.winValue2 < 1) {
    reason = "bad window geometry";
  } else if (lines * p.windowCols > kMaxStatEntries) {
    reason = "statistics larger than a buffer";
  } else if (p.exposure <= 0 || p.exposure > kMaxExposureUs) {
    reason = "bad exposure";
  } else if (p.frameInterval < 0 || p.frameInterval > kMaxIntervalNs) {
    reason = "bad frame interval";
  }
  if (reason != nullptr) {
    ALGO_LOG(log_, "neither: %s", reason);
    return false;
  }
  if (statLines_ != lines) {
    ALGO_LOGV(log_, "record has %lld lines, init had %d: using the record",
              static_cast<long long>(lines), statLines_);
  }
  pair->frame[0] = p.statsSlot0;
  pair->frame[1] = p.statsSlot1;
  pair->lines = static_cast<int>(lines);
  pair->windows = p.windowCols;
  pair->winWidth = p.winValue1;
  pair->lineTime = lineTime_;
  pair->exposure = p.exposure * 1e-6;
  pair->interval = static_cast<double>(p.frameInterval) * 1e-9;
  return true;
}

void OpenFlickerAlgo::adoptRecordFrequency(int32_t hz) {
  // The manager's state is authoritative: a change it made without telling
  // this algorithm (another path, a forced mode) restarts the history.
  const int32_t code = codeOfHz(hz);
  if (code != FLK_FREQ_NONE && code != decider_.applied()) {
    ALGO_LOG(log_, "record state %d Hz differs from applied %d: history reset", hz,
             decider_.applied());
    decider_.resetTo(code);
  }
}

int32_t OpenFlickerAlgo::detect(const FlkDetectPara* para, FlkDetectResult* result) {
  if (result == nullptr) {
    ALGO_LOG(log_, "detect: null result");
    return -1;
  }
  result->state = FLK_FREQ_NONE;
  result->score50 = 0;
  result->score60 = 0;
  PairInput pair{};
  if (para == nullptr || !pairFor(*para, &pair)) {
    return -1;
  }
  adoptRecordFrequency(para->freq);
  analyzer_.analyse(pair, knobs_, &evidence_);
  const EvidenceEntry entry = decider_.entryFor(evidence_);
  const Decision d = decider_.decide(entry);
  result->state = d.state;
  result->score50 = d.score50;
  result->score60 = d.score60;
  if (para->aux != nullptr) {
    writeAux(para->aux, d);
    para->aux[1] = static_cast<uint8_t>(entry.vote);  // a frequency code, 0 to 2
    para->aux[0] |= entry.temporal ? 1 << 5 : 0;
  }
  logEvidence();
  ALGO_LOG(log_, "exp(%d us) interval(%lld ns) applied(%d) vote(%d%s) -> state(%d) score(%d/%d)",
           para->exposure, static_cast<long long>(para->frameInterval), decider_.applied(),
           entry.vote, entry.temporal ? ", temporal" : "", d.state, d.score50, d.score60);
  return 0;
}

void OpenFlickerAlgo::writeAux(int32_t* aux, const Decision& /*d*/) const {
  const PairEvidence& e = evidence_;
  int32_t flags = e.analysable ? 1 : 0;
  flags |= e.frozen[0] ? 1 << 1 : 0;
  flags |= e.frozen[1] ? 1 << 2 : 0;
  flags |= e.sceneChange ? 1 << 3 : 0;
  flags |= decider_.holdOffLeft() > 0 ? 1 << 4 : 0;
  aux[0] = flags;
  for (int f = 0; f < kRipples; ++f) {
    const double amplitude = e.frozen[f] ? e.frozenStandIn[f] : e.temporalAmplitude[f];
    aux[2 + f] = scaled(amplitude, 1e4);
    aux[4 + f] = scaled(e.temporalEvidence[f], 100.0);
    aux[6 + f] = scaled(e.spatialEvidence[f], 100.0);
  }
  aux[8] = decider_.historySize();
}

void OpenFlickerAlgo::logEvidence() const {
  if (!log_.verbose()) {
    return;
  }
  const PairEvidence& e = evidence_;
  ALGO_LOGV(log_,
            "analysable(%d) bins(%d x %d lines) residual(%.4f of %.4f) lone(%.2f) change(%d) "
            "shift(%.2f +- %.2f lines%s) still(left %.4f)",
            e.analysable, e.bins, e.binLines, e.sceneResidual, e.differenceSigma, e.loneExplained,
            e.sceneChange, e.shift, e.shiftError, e.shiftRemoved ? ", removed" : "",
            e.stillLeftover);
  if (e.periodTested) {
    ALGO_LOGV(log_,
              "period: 100 Hz ccc(%.2f) spread(%.3f) win(%d) | 120 Hz ccc(%.2f) spread(%.3f) "
              "win(%d) half(%.2f/%.2f) -> %s",
              e.periodicity[0], e.periodSpread[0], e.periodWindows[0], e.periodicity[1],
              e.periodSpread[1], e.periodWindows[1], e.halfPeriodicity[0], e.halfPeriodicity[1],
              e.periodRipple < 0 ? "none" : (e.periodRipple == 0 ? "100 Hz" : "120 Hz"));
  }
  if (e.longTested) {
    ALGO_LOGV(log_,
              "reference of age %d: lined up %d lines, shift(%.2f +- %.2f lines%s) residual(%.4f) "
              "100 Hz amp(%.4f) snr(%.1f) ev(%.2f) | 120 Hz amp(%.4f) snr(%.1f) ev(%.2f) "
              "creep(%.1f)",
              e.longAge, e.longLines, e.longShift, e.longShiftError,
              e.longShiftRemoved ? ", removed" : "", e.longResidual, e.longRipple[0].amplitude,
              e.longRipple[0].snr, e.longEvidence[0], e.longRipple[1].amplitude,
              e.longRipple[1].snr, e.longEvidence[1], e.longCreep);
  }
  for (int f = 0; f < kRipples; ++f) {
    ALGO_LOGV(log_,
              "%.0f Hz: gain(%.3f) vis(%.3f%s) diff amp(%.4f) snr(%.1f) agree(%.2f) leak(%.4f) "
              "ev(%.2f) | "
              "frame amp(%.4f/%.4f) snr(%.1f/%.1f) ev(%.2f)",
              kRippleHz[f], e.exposureGain[f], e.visibility[f], e.frozen[f] ? " frozen" : "",
              e.temporalAmplitude[f], e.temporal[f].snr, e.temporal[f].agreement,
              e.shiftLeak[f] > 0.0 ? e.temporal[f].phasor / e.shiftLeak[f] : -1.0,
              e.temporalEvidence[f], e.spatial[0][f].amplitude, e.spatial[1][f].amplitude,
              e.spatial[0][f].snr, e.spatial[1][f].snr, e.spatialEvidence[f]);
    // The phasors' components, for replays that follow a ripple's phase
    // from pair to pair.
    ALGO_LOGV(log_, "%.0f Hz: phasor diff(%.5f %.5f) frames(%.5f %.5f / %.5f %.5f)", kRippleHz[f],
              e.temporal[f].re, e.temporal[f].im, e.spatial[0][f].re, e.spatial[0][f].im,
              e.spatial[1][f].re, e.spatial[1][f].im);
  }
}

}  // namespace open_algo
