// The simulated sensors of one scenario around their shared light.
//
// Builds one SimLight from the scenario's light timeline and one SimSensor per
// sensor params, each seeded independently from the scenario seed, so a run of
// any number of sensors is reproducible. The closed-loop runner drives each
// sensor's nextFrame / applyResult in turn. Not thread-safe as a whole; each
// sensor may be driven from its own thread since they share only the
// immutable light.
#pragma once

#include <memory>
#include <vector>

#include "sim_light.h"
#include "sim_scenario.h"
#include "sim_sensor.h"

namespace flicker_sim {

class SimRig {
 public:
  explicit SimRig(const SimScenario& scenario);

  int sensorCount() const { return static_cast<int>(sensors_.size()); }
  // Sensor `index`; null when out of range.
  SimSensor* sensor(int index);
  const SimLight& light() const { return *light_; }

 private:
  std::shared_ptr<const SimLight> light_;
  std::vector<std::unique_ptr<SimSensor>> sensors_;
};

}  // namespace flicker_sim
