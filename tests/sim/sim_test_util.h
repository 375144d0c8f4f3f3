// Measuring helpers for the simulator tests: line profiles of a statistics
// block and least-squares fits of ripple tones, as one would analyse a real
// sensor's statistics on a desk.
#pragma once

#include <vector>

#include "sim_frame.h"
#include "sim_light.h"
#include "sim_sensor.h"

namespace flicker_sim {
namespace testing_util {

constexpr double kPi = 3.14159265358979323846;

// Sum of the six windows of each statistics line.
std::vector<double> lineProfile(const SimFrame& frame);

struct Tone {
  double amplitude = 0.0;  // relative to the profile's mean
  double phase = 0.0;      // radians at line 0: y ~ mean * (1 + a cos(2 pi nu k + phase))
};

// Joint least-squares fit of a constant and one tone per frequency (cycles
// per line).
std::vector<Tone> fitTones(const std::vector<double>& y, const std::vector<double>& cyclesPerLine);
// The frequency (cycles per line) whose single tone fits best, searched over
// periods between minLines and maxLines.
double peakCyclesPerLine(const std::vector<double>& y, double minLines, double maxLines);
// Angle wrapped into (-pi, pi].
double wrapAngle(double a);

// A flat wall without gradient, fixed exposure and gain, 4000 x 3000 at 30 fps
// with 10 us lines: the cleanest view of the light.
SimSensorSpec flatWallSensor(double exposureS, double gain = 1.0);
// A single-segment light of the given components.
SimLightSpec steadyLight(std::vector<SimLightComponent> components);

}  // namespace testing_util
}  // namespace flicker_sim
