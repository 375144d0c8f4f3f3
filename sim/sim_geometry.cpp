#include "sim_geometry.h"

#include <algorithm>

namespace flicker_sim {

namespace {

// Frames taller than this are cut: the statistics hardware reads at most
// 5994 lines (6039 - 45), which keeps the block inside the adapter's buffer.
constexpr int kTallestFullHeight = 6039;
constexpr int kStatMargin = 45;
constexpr int kMaxStatImageHeight = kTallestFullHeight - kStatMargin;

}  // namespace

int SimGeometry::reducedWidth() const {
  return frameWidth >> (pixelMode & 31);
}

int SimGeometry::statImageHeight() const {
  return frameHeight <= kTallestFullHeight ? frameHeight - kStatMargin : kMaxStatImageHeight;
}

int SimGeometry::windowWidth() const {
  return 2 * (reducedWidth() / 12);
}

int SimGeometry::windowHeight() const {
  return 2 * (statImageHeight() / 6);
}

int SimGeometry::statLines() const {
  return 3 * windowHeight();
}

int SimGeometry::topOffset() const {
  return std::max(0, (frameHeight - statLines()) / 2);
}

int SimGeometry::leftOffset() const {
  return std::max(0, (reducedWidth() - 6 * windowWidth()) / 2);
}

int SimGeometry::heightRatio() const {
  return tgHeight != 0 ? frameHeight / tgHeight : 0;
}

uint32_t SimGeometry::lineLengthClocks() const {
  // Only the low half of the line length is meaningful; the upper half may
  // carry other sensor-driver data.
  const uint32_t pixels = pixelsInLine & 0xFFFFu;
  uint32_t length = 0;
  const int ratio = heightRatio();
  if (ratio >= 2) {
    // Binned statistics image: each of its lines spans `ratio` sensor lines.
    length = pixels * static_cast<uint32_t>(ratio);
  } else if (tgHeight > 0) {
    // Resized statistics image: computed in float and truncated, as the
    // manager does, so both sides get the same integer.
    const float resize = static_cast<float>(frameHeight) / static_cast<float>(tgHeight);
    length = static_cast<uint32_t>(resize * static_cast<float>(pixels));
  } else {
    // No TG height: no resize can be derived, keep the sensor line length.
    length = pixels;
  }
  return length * static_cast<uint32_t>(sensorBinning);
}

double SimGeometry::lineTimeSeconds() const {
  if (pixelClockHz == 0) {
    return 0.0;
  }
  return static_cast<double>(lineLengthClocks()) / static_cast<double>(pixelClockHz);
}

bool SimGeometry::valid() const {
  return frameWidth > 0 && frameHeight > kStatMargin && pixelMode >= 0 && pixelMode < 32 &&
         windowWidth() > 0 && windowHeight() > 0 && pixelClockHz > 0 && sensorBinning >= 1 &&
         lineLengthClocks() > 0;
}

}  // namespace flicker_sim
