// EvalCell: one closed-loop scene of the evaluation bench, and the grids of
// them (quick, default, full).
//
// A cell fixes every dimension of the bench: light type, ripple depth, mains
// (50, 60, none, a switch 50>60 or 60>50 half-way, mixed 50 + 60 lamps),
// exposure regime (long: office light, the exposure control keeps whole
// flicker periods; short: a floodlight, exposures well below one period),
// frame rate, noise (normal or dim), motion (still, handheld, pan), scene
// texture (natural, flat wall, a grating whose stripes sit close to the
// 100 Hz band period), geometry (1920x1080 or 4000x3000) and the state the
// manager starts in. The grid multiplies the core dimensions and cycles the
// others across the cells, so every value occurs without multiplying the
// run time; scenes without flicker multiply texture and motion instead of
// the light type, because they are where false switches come from.
//
// Plain values; no shared state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim_scenario.h"

namespace flicker_eval {

enum class GridSize { kQuick, kDefault, kFull };

struct EvalCell {
  std::string light = "fluorescent";  // fluorescent, led, incandescent, good-led, daylight
  double depth = 1.0;                 // scale of the lamp's ripple
  std::string mains = "50";           // 50, 60, none, 50>60, 60>50, mixed
  std::string exposure = "long";      // long or short
  double fps = 30;
  std::string noise = "normal";        // normal or dim
  std::string motion = "still";        // still, handheld or pan
  std::string texture = "natural";     // natural, flat or grating
  std::string geometry = "4000x3000";  // 4000x3000 or 1920x1080
  int startHz = 50;
  uint64_t seed = 1;

  // The value of dimension `name` as text ("" for an unknown name).
  std::string value(const std::string& name) const;
  // Mains the light has at the start and at the end (0 without flicker).
  int firstMainsHz() const;
  int lastMainsHz() const;
  bool isSwitch() const { return mains == "50>60" || mains == "60>50"; }
  bool hasFlicker() const { return mains != "none"; }
  // One line naming every value, for failure lists.
  std::string label() const;

  // The simulated scenario and run length of this cell; false with a reason
  // when a setting is refused.
  bool scenario(double seconds, flicker_sim::SimScenario* out, int* frames,
                std::string* error) const;
};

// Dimension names, in CSV and --by order.
std::vector<std::string> evalDimensions();

// The cells of a grid, without duplicates, in a fixed order. Cell i gets the
// simulator seed seedBase + i + 1: the default set is the one the algorithm was
// tuned on, another base gives the same scenes with fresh textures and noise.
std::vector<EvalCell> buildGrid(GridSize size, uint64_t seedBase = 0);

// Readout start of the first frame (seconds on the light's clock) and the
// time a light switch happens in a run of `seconds`.
double firstFrameTimeS();
double switchTimeS(double seconds);

}  // namespace flicker_eval
