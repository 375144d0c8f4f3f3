// EvalCell: one closed-loop scene of the evaluation grid, and the grids of
// them (quick, default, full) that `flicker-sim eval` runs.
//
// A cell fixes every dimension of the grid:
//   light     fluorescent, led (rectified), incandescent, good-led, daylight,
//             or a lamp modelled on published measurements (sim_lamp_models.h)
//   depth     scale of the lamp's ripple; ripple: its absolute depth at twice
//             the mains (0: the lamp's own), e.g. 0.02 for a 2 % lamp
//   mains     50, 60; none (no mains flicker: daylight or a PWM lamp); a light
//             switch 50>60 or 60>50 half-way; mixed 50 + 60 Hz lamps (mixed:
//             equal shares, mixed30: 30 % of the light on 60 Hz); a lamp
//             switched on half-way in a dark room (dark>50, dark>60) or in
//             daylight (day>50, day>60)
//   exposure  long (office light: the exposure control keeps whole flicker
//             periods) or short (a floodlight: well below one period)
//   fps, timing  frame rate; free (the exposure control stretches detection
//             frames when the manager asks) or fixed (fixed-rate video)
//   noise     normal or dim (more gain, more read noise)
//   motion    still, handheld (shake), pan, v1/v2/v3 (vertical drift of 1..3
//             image lines per frame), object (a bright object crossing)
//   texture   natural, flat, grating (stripes near the 100 Hz band period),
//             piecewise (flat patches with sharp edges), screen (natural, with
//             a screen whose backlight pulses at 487 Hz)
//   geometry  sensor size and line time: the readout of the statistics spans
//             half a 100 Hz period (640x480@12us) to three (4000x3000@10us,
//             8160x6144@5us, 640x480@64us)
//   start     the state the manager starts in
// The grids are unions of blocks, each multiplying a few dimensions and
// cycling others across its cells (so every value occurs without multiplying
// the run time): the core of steady lamps, switches and frame rates, mixed
// light, fixed-rate video, short and long readouts, piecewise scenes under
// small vertical motion, 2 % lamps, light onset, the published lamps, and
// scenes without mains flicker (where false switches come from).
//
// Seed sets: cell i of a grid gets the simulator seed base + i + 1. Bases
// below kFirstHeldOutSeedBase are for tuning (base 0 is the set the algorithm
// has been tuned on so far); the bases of kHeldOutSeedBases are held out: the
// figures reported in EVALUATION.md come from them alone, and nobody tunes on
// them.
//
// Plain values; no shared state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim_scenario.h"

namespace flicker_eval {

enum class GridSize { kQuick, kDefault, kFull };

constexpr uint64_t kFirstHeldOutSeedBase = 10000;
constexpr uint64_t kHeldOutSeedBases[] = {10000, 20000, 30000};

struct EvalCell {
  std::string light = "fluorescent";
  double depth = 1.0;
  std::string mains = "50";
  std::string exposure = "long";
  double fps = 30;
  std::string noise = "normal";
  std::string motion = "still";
  std::string texture = "natural";
  std::string geometry = "4000x3000@10us";
  int startHz = 50;
  uint64_t seed = 1;
  std::string timing = "free";
  double ripple = 0;

  // The value of dimension `name` as text ("" for an unknown name), and
  // setting it from text (false for an unknown name or a bad value).
  std::string value(const std::string& name) const;
  bool set(const std::string& name, const std::string& text);
  // Mains the light has at the start and at the end (0 without flicker).
  int firstMainsHz() const;
  int lastMainsHz() const;
  bool isSwitch() const { return mains == "50>60" || mains == "60>50"; }
  bool isOnset() const;
  bool isMixed() const { return mains.compare(0, 5, "mixed") == 0; }
  bool hasFlicker() const { return mains != "none"; }
  // One line naming every value, for failure lists.
  std::string label() const;
  // The same cell as command-line filters: --only DIM=VALUE for each
  // dimension, quoted for a shell where a value needs it ('mains=50>60').
  std::string onlyFilters() const;

  // The simulated scenario and run length of this cell; false with a reason
  // when a setting is refused.
  bool scenario(double seconds, flicker_sim::SimScenario* out, int* frames,
                std::string* error) const;
};

// Dimension names, in CSV and --by order.
std::vector<std::string> evalDimensions();

// The cells of a grid, without duplicates, in a fixed order, seeded from
// `seedBase` (see above).
std::vector<EvalCell> buildGrid(GridSize size, uint64_t seedBase = 0);
// The cells of `grid` that pass every filter (DIM, VALUE): filters on one
// dimension are alternatives, filters on several all apply.
std::vector<EvalCell> filterCells(const std::vector<EvalCell>& grid,
                                  const std::vector<std::pair<std::string, std::string>>& only);
// Simulated seconds per run of a grid.
double defaultSeconds(GridSize size);
// "tuning", "held out" or "other" for a seed base, and one line saying so.
std::string seedSetKind(uint64_t seedBase);
std::string seedSetLine(uint64_t seedBase);

// Readout start of the first frame (seconds on the light's clock) and the
// time a light switch or onset happens in a run of `seconds`.
double firstFrameTimeS();
double switchTimeS(double seconds);

}  // namespace flicker_eval
