#include "sim_rig.h"

#include "sim_random.h"

namespace flicker_sim {

SimRig::SimRig(const SimScenario& scenario)
    : light_(std::make_shared<const SimLight>(scenario.light)) {
  uint64_t state = scenario.seed;
  for (const SimSensorParams& params : scenario.sensors) {
    sensors_.push_back(std::make_unique<SimSensor>(params, light_, SimRandom::splitmix(&state)));
  }
}

SimSensor* SimRig::sensor(int index) {
  if (index < 0 || index >= sensorCount()) {
    return nullptr;
  }
  return sensors_[static_cast<size_t>(index)].get();
}

}  // namespace flicker_sim
