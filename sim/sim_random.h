// Deterministic pseudo-random source of the simulator.
//
// xoshiro256** seeded through splitmix64, with its own uniform and Gaussian
// draws, so that one seed gives the same frames with every standard library
// (the distributions of <random> are implementation-defined). One instance per
// simulated sensor; not thread-safe, use it from one thread.
#pragma once

#include <cstdint>

namespace flicker_sim {

class SimRandom {
 public:
  explicit SimRandom(uint64_t seed);

  // Next raw 64-bit value.
  uint64_t next();
  // Uniform in [0, 1) with 53 random bits.
  double uniform();
  // Uniform in [lo, hi).
  double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
  // Standard normal (Marsaglia's polar method; the second value of each pair
  // is kept for the next call).
  double gaussian();

  // One splitmix64 step; also used to derive independent seeds from one seed.
  static uint64_t splitmix(uint64_t* state);

 private:
  uint64_t state_[4];
  bool has_spare_ = false;
  double spare_ = 0.0;
};

}  // namespace flicker_sim
