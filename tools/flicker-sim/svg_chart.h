// SvgChart: a stack of simple line-chart panels written as one SVG file.
//
// Each panel has its own x and y ranges, axis ticks, a title, a legend, any
// number of series (polyline, step line or dots) and vertical markers with a
// label. A panel's x axis may zoom into its start: [xMin, xZoomEnd] then
// takes the left part of the width, shaded and with ticks of its own, and the
// rest of the range the remainder, so the first few hundred milliseconds of
// a long run stay readable. Enough for the tools' reports; no dependencies.
//
// Plain value object; not thread-safe.
#pragma once

#include <string>
#include <vector>

namespace flicker_cli {

class SvgChart {
 public:
  enum class Style { kLine, kStep, kDots, kDashed };

  struct Series {
    std::string label;
    std::string color;
    Style style = Style::kLine;
    std::vector<double> x;
    std::vector<double> y;
  };

  struct Marker {
    double x = 0;
    std::string label;  // written beside the line at the top of the panel
    std::string color;
  };

  struct Panel {
    std::string title;
    std::string xLabel;
    std::string yLabel;
    double xMin = 0, xMax = 1, yMin = 0, yMax = 1;
    double xZoomEnd = 0;         // inside (xMin, xMax): zoom into [xMin, xZoomEnd]
    bool xWhole = false;         // x ticks on whole numbers only (steps, frames)
    std::vector<double> yTicks;  // empty: five even ticks
    std::vector<Series> series;
    std::vector<Marker> markers;
  };

  explicit SvgChart(std::string title) : title_(std::move(title)) {}

  Panel* addPanel(const Panel& panel);
  // The whole document.
  std::string render() const;
  // Writes render() to `path`; false when the file cannot be written.
  bool write(const std::string& path) const;

 private:
  std::string title_;
  std::vector<Panel> panels_;
};

}  // namespace flicker_cli
