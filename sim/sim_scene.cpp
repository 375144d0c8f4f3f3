#include "sim_scene.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sim_random.h"

namespace flicker_sim {

namespace {

constexpr double kPi = 3.14159265358979323846;
// The map covers a tile of two frames by two frames at this resolution; about
// 12 image lines per map row for a 3000-line frame is finer than any texture
// the statistics windows resolve.
constexpr int kCols = 128;
constexpr int kRows = 512;
constexpr double kTileFrames = 2.0;
// Octaves of the natural texture, coarsest first.
constexpr int kOctaves = 6;
// Reflectance limits of real surfaces (fresh snow to black velvet).
constexpr double kMinReflectance = 0.01;
constexpr double kMaxReflectance = 0.95;
// A piecewise-constant room: pieces of furniture and picture frames
// (rectangles from a twentieth to half a frame wide) and shelves (long bars a
// few lines high), painted over a wall, per tile of two by two frames.
constexpr int kPieces = 40;
constexpr int kShelves = 12;

double wrap(double x, double period) {
  return x - period * std::floor(x / period);
}

double smooth(double t) {
  return t * t * (3.0 - 2.0 * t);
}

// Position of an object moving across the frame that re-enters on the far side.
double objectPosition(double start, double velocity, double size, double t) {
  return wrap(start + velocity * t + size, 1.0 + size) - size;
}

double overlap(double a0, double a1, double b0, double b1) {
  return std::max(0.0, std::min(a1, b1) - std::max(a0, b0));
}

}  // namespace

SimScene::SimScene(const SimSceneParams& params, uint64_t seed)
    : params_(params), map_(static_cast<size_t>(kRows) * kCols, params.meanReflectance) {
  if (params_.texture == SimTexture::kNatural) {
    buildNatural(seed);
  } else if (params_.texture == SimTexture::kPiecewise) {
    buildPiecewise(seed);
  } else {
    buildFlat();
  }
  buildPrefixSums();
  for (const SimMovingObject& o : params_.objects) {
    has_emissive_ = has_emissive_ || o.emissive;
  }
}

void SimScene::buildNatural(uint64_t seed) {
  SimRandom rng(seed);
  std::vector<double> noise(map_.size(), 0.0);
  double amplitude = 1.0;
  for (int octave = 0; octave < kOctaves; ++octave) {
    // A periodic lattice of random values, smoothly interpolated: each octave
    // doubles the detail and halves the amplitude (a 1/f spectrum).
    const int cells = 2 << octave;
    std::vector<double> lattice(static_cast<size_t>(cells) * cells);
    for (double& value : lattice) {
      value = rng.uniform(-1.0, 1.0);
    }
    for (int r = 0; r < kRows; ++r) {
      const double y = static_cast<double>(r) * cells / kRows;
      const int y0 = static_cast<int>(y);
      const double fy = smooth(y - y0);
      for (int c = 0; c < kCols; ++c) {
        const double x = static_cast<double>(c) * cells / kCols;
        const int x0 = static_cast<int>(x);
        const double fx = smooth(x - x0);
        auto at = [&](int yy, int xx) {
          return lattice[static_cast<size_t>(yy % cells) * cells + (xx % cells)];
        };
        const double top = at(y0, x0) + fx * (at(y0, x0 + 1) - at(y0, x0));
        const double bottom = at(y0 + 1, x0) + fx * (at(y0 + 1, x0 + 1) - at(y0 + 1, x0));
        noise[static_cast<size_t>(r) * kCols + c] += amplitude * (top + fy * (bottom - top));
      }
    }
    amplitude *= 0.5;
  }
  double sum = 0.0;
  double sumSq = 0.0;
  for (double n : noise) {
    sum += n;
    sumSq += n * n;
  }
  const double count = static_cast<double>(noise.size());
  const double mean = sum / count;
  const double sigma = std::sqrt(std::max(1e-12, sumSq / count - mean * mean));
  const double contrast = params_.textureContrast;
  for (size_t i = 0; i < map_.size(); ++i) {
    // Log-normal reflectance with the requested mean.
    const double z = (noise[i] - mean) / sigma;
    const double r = params_.meanReflectance * std::exp(contrast * z - 0.5 * contrast * contrast);
    map_[i] = std::min(kMaxReflectance, std::max(kMinReflectance, r));
  }
}

void SimScene::buildFlat() {
  for (int r = 0; r < kRows; ++r) {
    // A lamp above the wall lights the top more than the bottom; the cosine
    // keeps the tiled map continuous.
    const double v = (r + 0.5) * kTileFrames / kRows;
    const double factor = 1.0 + 0.5 * params_.wallGradient * std::cos(kPi * v);
    for (int c = 0; c < kCols; ++c) {
      map_[static_cast<size_t>(r) * kCols + c] = params_.meanReflectance * factor;
    }
  }
}

void SimScene::buildPiecewise(uint64_t seed) {
  sharp_rows_ = true;
  SimRandom rng(seed);
  const double contrast = params_.textureContrast;
  // Each piece has one reflectance, log-normal around the mean.
  auto pieceReflectance = [&] {
    return params_.meanReflectance *
           std::exp(contrast * rng.gaussian() - 0.5 * contrast * contrast);
  };
  std::fill(map_.begin(), map_.end(), pieceReflectance());
  const double colsPerFrame = kCols / kTileFrames;
  const double rowsPerFrame = kRows / kTileFrames;
  auto paint = [&](double widthFrames, double heightFrames) {
    const double value = pieceReflectance();
    const int c0 = static_cast<int>(rng.uniform(0.0, kCols));
    const int r0 = static_cast<int>(rng.uniform(0.0, kRows));
    const int cols = std::max(1, static_cast<int>(std::lround(widthFrames * colsPerFrame)));
    const int rows = std::max(1, static_cast<int>(std::lround(heightFrames * rowsPerFrame)));
    for (int r = r0; r < r0 + rows; ++r) {
      for (int c = c0; c < c0 + cols; ++c) {
        map_[static_cast<size_t>(r % kRows) * kCols + static_cast<size_t>(c % kCols)] = value;
      }
    }
  };
  for (int i = 0; i < kPieces; ++i) {
    const double width = rng.uniform(0.05, 0.5);
    paint(width, rng.uniform(0.03, 0.4));
  }
  for (int i = 0; i < kShelves; ++i) {
    const double width = rng.uniform(0.3, 1.2);
    paint(width, rng.uniform(0.008, 0.02));
  }
  double sum = 0.0;
  for (const double r : map_) {
    sum += r;
  }
  const double scale = params_.meanReflectance * static_cast<double>(map_.size()) / sum;
  for (double& r : map_) {
    r = std::min(kMaxReflectance, std::max(kMinReflectance, r * scale));
  }
}

void SimScene::buildPrefixSums() {
  prefix_.assign(static_cast<size_t>(kRows) * (kCols + 1), 0.0);
  prefix2_.assign(prefix_.size(), 0.0);
  for (int r = 0; r < kRows; ++r) {
    double* p = &prefix_[static_cast<size_t>(r) * (kCols + 1)];
    double* p2 = &prefix2_[static_cast<size_t>(r) * (kCols + 1)];
    const double* row = &map_[static_cast<size_t>(r) * kCols];
    for (int c = 0; c < kCols; ++c) {
      p[c + 1] = p[c] + row[c];
      p2[c + 1] = p2[c] + row[c] * row[c];
    }
  }
}

void SimScene::rowPrefix(int r0, int r1, double c, double* top, double* bottom) const {
  // A row is piecewise constant and repeats every kCols columns.
  const double turns = std::floor(c / kCols);
  const double rest = c - turns * kCols;
  const int i = std::min(kCols - 1, static_cast<int>(rest));
  const double part = rest - i;
  for (const auto& [r, out] :
       {std::pair<int, double*>{r0, top}, std::pair<int, double*>{r1, bottom}}) {
    const double* p = &prefix_[static_cast<size_t>(r) * (kCols + 1)];
    const double* p2 = &prefix2_[static_cast<size_t>(r) * (kCols + 1)];
    const double* row = &map_[static_cast<size_t>(r) * kCols];
    out[0] = turns * p[kCols] + p[i] + part * row[i];
    out[1] = turns * p2[kCols] + p2[i] + part * row[i] * row[i];
  }
}

double SimScene::brightness(double timeS) const {
  const std::vector<SimBrightnessPoint>& points = params_.brightness;
  if (points.empty()) {
    return 1.0;
  }
  if (timeS <= points.front().timeS) {
    return points.front().factor;
  }
  for (size_t i = 1; i < points.size(); ++i) {
    if (timeS < points[i].timeS) {
      const double span = points[i].timeS - points[i - 1].timeS;
      const double f = span > 0.0 ? (timeS - points[i - 1].timeS) / span : 1.0;
      return points[i - 1].factor + f * (points[i].factor - points[i - 1].factor);
    }
  }
  return points.back().factor;
}

void SimScene::sampleWindows(double timeS, double v, double uStart, double uWidth, int count,
                             double* mean, double* variance, SimWindowCache* cache) const {
  const double shake = params_.shakeAmplitude;
  double ox = params_.panX * timeS;
  double oy = params_.panY * timeS;
  if (shake != 0.0) {
    const double shakePhase = 2.0 * kPi * params_.shakeHz * timeS;
    ox += shake * std::sin(shakePhase);
    oy += shake * std::cos(1.3 * shakePhase);
  }
  const double sv = wrap(v + oy, kTileFrames);
  // A smooth map blends the two rows around the line; a piecewise one takes
  // the row the line falls in, so its edges stay sharp.
  const double ry = wrap(sv * kRows / kTileFrames - (sharp_rows_ ? 0.0 : 0.5), kRows);
  const int r0 = static_cast<int>(ry) % kRows;
  const int r1 = (r0 + 1) % kRows;
  const double w = sharp_rows_ ? 0.0 : ry - std::floor(ry);
  const double columns = uWidth * kCols / kTileFrames;
  double grating = 1.0;
  if (params_.texture == SimTexture::kGrating) {
    grating =
        1.0 + params_.gratingContrast * std::cos(2.0 * kPi * params_.gratingCyclesPerFrame * sv);
  }
  const double light = brightness(timeS);
  // Windows are adjacent: the prefix integrals at their count + 1 borders
  // give every window of both rows.
  constexpr int kMaxWindows = 16;
  count = std::min(count, kMaxWindows);
  static_assert(kMaxWindows + 1 == SimWindowCache::kMaxBorders, "one border more than windows");
  SimWindowCache local;
  SimWindowCache& rows = cache != nullptr ? *cache : local;
  const auto& top = rows.top;
  const auto& bottom = rows.bottom;
  if (columns > 0.0) {
    const double c0 = wrap(uStart + ox, kTileFrames) * kCols / kTileFrames;
    if (!rows.valid || rows.row != r0 || rows.firstColumn != c0 || rows.columns != columns ||
        rows.count != count) {
      for (int j = 0; j <= count; ++j) {
        rowPrefix(r0, r1, c0 + j * columns, rows.top[j], rows.bottom[j]);
      }
      rows.valid = true;
      rows.row = r0;
      rows.firstColumn = c0;
      rows.columns = columns;
      rows.count = count;
    }
  }
  for (int i = 0; i < count; ++i) {
    const double u0 = uStart + i * uWidth;
    double m = 0.0;
    double var = 0.0;
    if (columns > 0.0) {
      const double s0 = top[i + 1][0] - top[i][0];
      const double q0 = top[i + 1][1] - top[i][1];
      const double s1 = bottom[i + 1][0] - bottom[i][0];
      const double q1 = bottom[i + 1][1] - bottom[i][1];
      m = ((1.0 - w) * s0 + w * s1) / columns;
      const double sq = ((1.0 - w) * q0 + w * q1) / columns;
      var = std::max(0.0, sq - m * m) * grating * grating;
      m *= grating;
    }
    for (const SimMovingObject& o : params_.objects) {
      // An emissive object's surface is mixed in here like any other; its
      // own light comes from emissiveWindows.
      const double oyPos = objectPosition(o.y, o.vy, o.height, timeS);
      if (v < oyPos || v >= oyPos + o.height || uWidth <= 0.0) {
        continue;
      }
      const double oxPos = objectPosition(o.x, o.vx, o.width, timeS);
      const double f = overlap(u0, u0 + uWidth, oxPos, oxPos + o.width) / uWidth;
      if (f <= 0.0) {
        continue;
      }
      // Mixture of the background and the object within the window.
      const double mixed = (1.0 - f) * m + f * o.reflectance;
      const double second = (1.0 - f) * (var + m * m) + f * o.reflectance * o.reflectance;
      m = mixed;
      var = std::max(0.0, second - mixed * mixed);
    }
    mean[i] = m * light;
    variance[i] = var * light * light;
  }
}

void SimScene::emissiveWindows(double timeS, double v, double uStart, double uWidth, int count,
                               double* added, double* spread) const {
  for (int i = 0; i < count; ++i) {
    added[i] = 0.0;
    spread[i] = 0.0;
  }
  if (!has_emissive_ || uWidth <= 0.0) {
    return;
  }
  for (const SimMovingObject& o : params_.objects) {
    const double oyPos = objectPosition(o.y, o.vy, o.height, timeS);
    if (!o.emissive || v < oyPos || v >= oyPos + o.height) {
      continue;
    }
    const double oxPos = objectPosition(o.x, o.vx, o.width, timeS);
    for (int i = 0; i < count; ++i) {
      const double u0 = uStart + i * uWidth;
      const double f = overlap(u0, u0 + uWidth, oxPos, oxPos + o.width) / uWidth;
      added[i] += f * o.radiance;
      spread[i] += f * (1.0 - f) * o.radiance * o.radiance;
    }
  }
}

}  // namespace flicker_sim
