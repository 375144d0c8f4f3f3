// Builders for the algorithm tests: rolling-shutter statistics of a lamp and a
// scene, and a driver that talks to flk_SendCmd as the adapter and manager do.
//
// Line y of a frame starts its exposure at start + y * 10 us and averages the
// light 1 + m cos(2 pi f_r t + phase) (f_r twice the mains) over the exposure,
// in closed form. Each entry sums 666 pixels of scene x light, clipped per
// pixel at 1023, plus a small deterministic noise. Geometry: 4000 x 3000,
// windows of 666 x 984, six columns, three rows (2952 statistics lines).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "flicker_algo_cmd.h"

namespace algo_test {

constexpr double kPi = 3.14159265358979323846;
constexpr int kWinW = 666, kWinH = 984, kLines = 3 * kWinH, kWindows = 6;
constexpr double kLineTime = 10e-6;

struct Light {
  double mainsHz = 0.0;  // 0: steady light
  double modulation = 0.3;
  double mixHz = 0.0;     // a second lamp on the other mains (0: none), same depth
  double harmonic = 0.0;  // depth of the ripple's second harmonic (a distorted wave)
};

// Reflectance at (line, window) of the frame with the given running index.
using Scene = std::function<double(int line, int window, int frame)>;

inline Scene flat() {
  return [](int, int, int) { return 1.0; };
}
// Gradient plus per-window texture away from the band periods, moved `speed`
// lines per frame (0: still).
inline Scene textured(int speed = 0) {
  return [=](int line, int w, int frame) {
    const double y = line + speed * frame;
    return 1.0 + 0.3 * y / 3000.0 + 0.15 * std::sin(2 * kPi * y / 2600.0 + w) +
           0.08 * std::sin(2 * kPi * y / 37.0 + 0.7 * w);
  };
}
inline double meanLight(const Light& l, double t, double exposure) {
  double v = 1.0;
  for (double hz : {l.mainsHz, l.mixHz}) {
    const double w = 4.0 * kPi * hz;
    if (hz <= 0) {
      continue;
    }
    v += l.modulation * (std::sin(w * (t + exposure) + 0.4) - std::sin(w * t + 0.4)) /
         (w * exposure);
    v += l.harmonic * (std::sin(2 * w * (t + exposure) + 1.1) - std::sin(2 * w * t + 1.1)) /
         (2 * w * exposure);
  }
  return v;
}

// Statistics of `lines` lines of six windows `winW` pixels wide; line y
// starts its exposure at start + y * lineTime, and `lamp(t)` is the light
// averaged over an exposure starting at t. Pixels clip at 1023.
inline std::vector<int64_t> synthFrame(int lines, int winW, double lineTime, double start,
                                       const std::function<double(double)>& lamp, double gain,
                                       double noise, const Scene& scene, int index) {
  std::vector<int64_t> out(static_cast<size_t>(lines) * kWindows);
  for (int y = 0; y < lines; ++y) {
    const double light = lamp(start + y * lineTime);
    for (int w = 0; w < kWindows; ++w) {
      const size_t i = static_cast<size_t>(y) * kWindows + w;
      const double n = noise * std::sin(i * 12.9898 + index * 78.233 + start * 1e3);
      const double pixel = std::min(1023.0, gain * scene(y, w, index) * light);
      out[i] = std::llround(std::max(0.0, pixel * winW + n));
    }
  }
  return out;
}

inline std::vector<int64_t> frame(const Light& light, double start, double exposure,
                                  const Scene& scene, int index) {
  return synthFrame(
      kLines, kWinW, kLineTime, start, [&](double t) { return meanLight(light, t, exposure); },
      400.0, 13.0, scene, index);
}

inline FlkInitPara genericInit(uint32_t lineLength = 4800, double pixelClk = 480e6) {
  FlkInitPara init{};
  init.lineLength = lineLength;  // 4800 clocks at 480 MHz: 10 us per line
  init.statLineCount = kLines;
  init.statWidth = kWinW;
  init.pixelClk = pixelClk;
  return init;
}

struct Outcome {
  int32_t rc;
  FlkDetectResult result;
  int32_t aux[kFlkAuxWords];
};

class Driver {
 public:
  // Fresh process-wide algorithm: tuning (before init, as the manager sends
  // it), silent log, init, then the state and history commands.
  explicit Driver(const FlickerExtPara& tuning = FlickerExtPara{}, int hz = 50,
                  FlkInitPara init = genericInit()) {
    send(FLK_CMD_UNINIT, nullptr);
    FlkLogPara log{};
    send(FLK_CMD_SET_LOG, &log);
    FlkExtParaCmd ext{};
    ext.para = tuning;
    send(FLK_CMD_SET_EXT_PARA, &ext);
    send(FLK_CMD_INIT, &init);
    apply(hz);
  }
  static int32_t send(uint32_t cmd, void* in, void* out = nullptr) {
    return flk_SendCmd(cmd, in, out);
  }
  // The manager after a state change: command 4, then command 5.
  void apply(int hz) {
    hz_ = hz;
    int32_t code = hz == 60 ? FLK_FREQ_60HZ : FLK_FREQ_50HZ;
    send(FLK_CMD_SET_STATE, &code);
    send(FLK_CMD_RESET_QUEUE, &code);
  }
  int hz() const { return hz_; }
  void assume(int hz) { hz_ = hz; }  // the record's state, without commands
  static FlkDetectPara record(const int64_t* s0, const int64_t* s1, int hz, int32_t expUs,
                              int64_t intervalNs) {
    FlkDetectPara p{};
    p.statsSlot0 = s0;
    p.statsSlot1 = s1;
    p.windowRows = 3;
    p.windowCols = kWindows;
    p.winValue1 = kWinW;
    p.winValue2 = kWinH;
    p.freq = hz;
    p.exposure = expUs;
    p.frameInterval = intervalNs;
    return p;
  }
  static Outcome detectRecord(FlkDetectPara p) {
    Outcome o{};
    p.aux = o.aux;
    o.rc = send(FLK_CMD_DETECT, &p, &o.result);
    return o;
  }
  // One pair of `light` at `t` with the exposure AE keeps in the applied
  // state; the verdict is followed as the manager does.
  Outcome pair(const Light& light, double t, double interval = 36e-3, const Scene& scene = flat(),
               double e50 = 10e-3, double e60 = 8.333e-3) {
    const double e = hz_ == 60 ? e60 : e50;
    const int index = static_cast<int>(t / 9e-3);
    const auto s0 = frame(light, t, e, scene, index);
    const auto s1 = frame(light, t + interval, e, scene, index + 1);
    const Outcome o = detectRecord(
        record(s0.data(), s1.data(), hz_, std::lround(e * 1e6), std::llround(interval * 1e9)));
    const int verdictHz = o.result.state == FLK_FREQ_60HZ ? 60 : 50;
    if (o.result.state != FLK_FREQ_NONE && verdictHz != hz_) {
      apply(verdictHz);
    }
    return o;
  }

 private:
  int hz_ = 50;
};

}  // namespace algo_test
