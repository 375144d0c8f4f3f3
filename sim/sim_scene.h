// Reflectance of the scene in front of one simulated sensor.
//
// The scene is a reflectance map in scene coordinates (units of the frame:
// 1.0 is one frame width or height) that tiles the plane with a period of two
// frames, so a pan never runs off its edge. It moves relative to the frame
// (pan velocity plus hand shake), may carry a horizontal grating (stripes
// along the lines, an adversary when its period is close to a flicker band
// period), bright moving objects (a lamp, a window, a reflection: reflectance
// above 1 clips the sensor), and a global brightness that follows a time
// profile (a cloud, a door opening).
//
// For each image line the scene reports, per statistics window, the mean
// reflectance and its variance across the window; the variance lets the pixel
// model clip textured windows correctly. Horizontal integrals come from
// prefix sums, so a line costs a handful of operations per window.
//
// A piecewise-constant scene (furniture, frames, shelves) is made of flat
// patches with sharp edges: its lines take the nearest map row instead of
// blending two, so an edge falls between two image lines and moves by whole
// lines as the scene drifts. Emissive objects (a screen) shine with their own
// light, modulated by the scene's emission (a PWM backlight) rather than by
// the lamps: the scene reports their coverage per window, and the sensor adds
// their light integrated over each line's exposure.
//
// Immutable after construction; const methods may be called from any thread.
#pragma once

#include <cstdint>
#include <vector>

namespace flicker_sim {

enum class SimTexture {
  kNatural,    // 1/f-like texture of a natural scene
  kFlatWall,   // even surface with a gentle lighting gradient
  kGrating,    // flat surface printed with horizontal stripes
  kPiecewise,  // flat patches with sharp edges: furniture, frames, shelves
};

struct SimMovingObject {
  double x = 0.4, y = 0.4;           // top-left corner in frame units at t = 0
  double width = 0.1, height = 0.1;  // size in frame units
  double vx = 0.0, vy = 0.0;         // frame units per second; re-enters on the far side
  double reflectance = 4.0;          // > 1 for light sources and highlights
  // Emissive objects add radiance * (emission waveform) electrons per second
  // per pixel to what their surface (reflectance) returns of the lamps.
  bool emissive = false;
  double radiance = 0.0;
};

// Waveform of the emissive objects' light: a PWM backlight, mean 1.
struct SimEmission {
  double pwmHz = 0.0;  // 0: steady
  double duty = 1.0;
};

struct SimBrightnessPoint {
  double timeS = 0.0;   // time of this point
  double factor = 1.0;  // scene brightness factor; linear between points
};

struct SimSceneParams {
  SimTexture texture = SimTexture::kNatural;
  double meanReflectance = 0.18;       // mean of the texture
  double textureContrast = 0.6;        // natural: std of log reflectance
  double wallGradient = 0.05;          // flat wall: relative change top to bottom
  double gratingCyclesPerFrame = 3.0;  // grating: stripes per frame height
  double gratingContrast = 0.3;        // grating: relative amplitude
  double panX = 0.0, panY = 0.0;       // frame units per second
  double shakeAmplitude = 0.0;         // hand shake, frame units
  double shakeHz = 0.0;                // hand shake frequency
  std::vector<SimMovingObject> objects;
  SimEmission emission;                        // of the emissive objects
  std::vector<SimBrightnessPoint> brightness;  // empty: constant 1
};

// The window integrals of the map rows the last line fell on. Lines of a
// scene that does not move sideways fall on the same rows a dozen at a time;
// they reuse them instead of summing again. Owned by one caller (a sensor),
// so the scene itself stays immutable.
struct SimWindowCache {
  static constexpr int kMaxBorders = 17;
  bool valid = false;
  int row = 0;
  double firstColumn = 0.0;
  double columns = 0.0;
  int count = 0;
  double top[kMaxBorders][2];
  double bottom[kMaxBorders][2];
};

class SimScene {
 public:
  SimScene(const SimSceneParams& params, uint64_t seed);

  // Mean and variance of the reflectance of `count` windows of one image
  // line. `v` is the line's vertical position in the frame (0 top, 1 bottom),
  // window i spans [uStart + i * uWidth, uStart + (i + 1) * uWidth) in frame
  // units, `timeS` is the time the line sees (mid-exposure). At most 16
  // windows are sampled; `mean` and `variance` hold `count` entries. A cache
  // (may be null) makes lines on the same map rows cheaper; the results are
  // the same with or without it.
  void sampleWindows(double timeS, double v, double uStart, double uWidth, int count, double* mean,
                     double* variance, SimWindowCache* cache = nullptr) const;

  // Light the emissive objects add to each of `count` windows of one line,
  // per unit of emission: `added` is the mean over the window (sum of
  // radiance times covered share), `spread` its variance across the window.
  // Both are 0 when no emissive object covers the window.
  void emissiveWindows(double timeS, double v, double uStart, double uWidth, int count,
                       double* added, double* spread) const;
  bool hasEmissive() const { return has_emissive_; }

  // Scene brightness factor at time t.
  double brightness(double timeS) const;

  const SimSceneParams& params() const { return params_; }

 private:
  void buildNatural(uint64_t seed);
  void buildFlat();
  void buildPiecewise(uint64_t seed);
  void buildPrefixSums();
  // Integrals of rows r0 and r1 of the tiled map from column 0 to column c,
  // and of their squares.
  void rowPrefix(int r0, int r1, double c, double* top, double* bottom) const;

  SimSceneParams params_;
  bool sharp_rows_ = false;  // nearest map row per line instead of a blend of two
  bool has_emissive_ = false;
  std::vector<double> map_;      // rows x cols reflectance
  std::vector<double> prefix_;   // rows x (cols + 1)
  std::vector<double> prefix2_;  // rows x (cols + 1), of squares
};

}  // namespace flicker_sim
