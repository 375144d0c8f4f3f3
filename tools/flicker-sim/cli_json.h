// JSON output of flicker-sim's commands: nlohmann-json with the keys kept in
// the order they are written, and reals rounded for reading.
#pragma once

#include <nlohmann/json.hpp>

#include <cmath>
#include <vector>

namespace flicker_cli {

using Json = nlohmann::ordered_json;

// `v` to three decimals (times in ms and us, ratios to 1e-3 are plenty).
inline double rounded(double v, double scale = 1000.0) {
  return std::round(v * scale) / scale;
}

// A series of reals, each rounded to `scale`.
inline Json roundedArray(const std::vector<double>& values, double scale = 1000.0) {
  Json out = Json::array();
  for (const double v : values) {
    out.push_back(rounded(v, scale));
  }
  return out;
}

}  // namespace flicker_cli
