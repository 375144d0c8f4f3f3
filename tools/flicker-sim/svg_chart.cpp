#include "svg_chart.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace flicker_cli {

namespace {

// Layout in SVG user units.
constexpr double kWidth = 960;
constexpr double kPanelHeight = 190;
constexpr double kTop = 44;
constexpr double kLeft = 70;
constexpr double kRight = 170;  // room for the legend
constexpr double kGap = 62;     // between panels: axis labels and the next title
constexpr int kXTicks = 8;
constexpr double kZoomShare = 0.4;  // of the plot width, for the zoomed start

std::string num(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%.6g", v);
  return buf;
}

std::string px(double v) {
  char buf[32];
  snprintf(buf, sizeof(buf), "%.1f", v);
  return buf;
}

std::string escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// A round step for about `count` ticks over `span`.
// More ticks than any axis needs.
constexpr int kMaxTicks = 64;

double niceStep(double span, int count, bool whole = false) {
  const double raw = span / count;
  if (whole && raw <= 1) {
    return 1;
  }
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (const double m : {1.0, 2.0, 2.5, 5.0, 10.0}) {
    if (whole && m == 2.5 && power < 10) {
      continue;  // 2.5 would give fractions
    }
    if (m * power >= raw) {
      return m * power;
    }
  }
  return 10 * power;
}

// Tick positions: multiples of `step` from `lo` to `hi`. An integer count
// bounds the loop, so a degenerate span or step can't make it run away.
std::vector<double> ticks(double lo, double hi, double step) {
  std::vector<double> out;
  if (!(step > 0) || !std::isfinite(lo) || !std::isfinite(hi))
    return out;
  const double first = std::ceil(lo / step) * step;
  for (int i = 0; i < kMaxTicks; ++i) {
    const double v = first + i * step;
    if (v > hi + 1e-9)
      break;
    out.push_back(v);
  }
  return out;
}

}  // namespace

SvgChart::Panel* SvgChart::addPanel(const Panel& panel) {
  panels_.push_back(panel);
  return &panels_.back();
}

namespace {

// The x axis of a panel: linear, or zoomed into its start.
class XAxis {
 public:
  XAxis(const SvgChart::Panel& panel, double left, double width)
      : lo_(panel.xMin),
        hi_(panel.xMax > panel.xMin ? panel.xMax : panel.xMin + 1),
        left_(left),
        width_(width),
        whole_(panel.xWhole) {
    zoomed_ = panel.xZoomEnd > lo_ && panel.xZoomEnd < hi_;
    zoomEnd_ = zoomed_ ? panel.xZoomEnd : hi_;
  }

  bool zoomed() const { return zoomed_; }
  double zoomEnd() const { return zoomEnd_; }
  // Where the zoomed part ends on the page.
  double breakX() const { return left_ + (zoomed_ ? kZoomShare : 1.0) * width_; }

  double operator()(double x) const {
    if (!zoomed_) {
      return left_ + (x - lo_) / (hi_ - lo_) * width_;
    }
    if (x <= zoomEnd_) {
      return left_ + (x - lo_) / (zoomEnd_ - lo_) * kZoomShare * width_;
    }
    return breakX() + (x - zoomEnd_) / (hi_ - zoomEnd_) * (1.0 - kZoomShare) * width_;
  }

  // Tick values: each part with a step of its own; the break itself is one.
  std::vector<double> tickValues() const {
    if (!zoomed_) {
      return ticks(lo_, hi_, niceStep(hi_ - lo_, kXTicks, whole_));
    }
    std::vector<double> out =
        ticks(lo_, zoomEnd_, niceStep(zoomEnd_ - lo_, static_cast<int>(kXTicks * kZoomShare)));
    if (out.empty() || out.back() < zoomEnd_ - 1e-9) {
      out.push_back(zoomEnd_);  // the break is labelled
    }
    const double step = niceStep(hi_ - zoomEnd_, static_cast<int>(kXTicks * (1 - kZoomShare)));
    for (const double v : ticks(zoomEnd_, hi_, step)) {
      // Keep clear of the break's own label.
      if (v > zoomEnd_ + 0.4 * step) {
        out.push_back(v);
      }
    }
    return out;
  }

 private:
  double lo_, hi_, left_, width_;
  bool whole_;
  bool zoomed_ = false;
  double zoomEnd_ = 0;
};

}  // namespace

std::string SvgChart::render() const {
  const double height = kTop + panels_.size() * (kPanelHeight + kGap) + 10;
  const double plotW = kWidth - kLeft - kRight;
  std::ostringstream o;
  o << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\""
    << px(height) << "\" viewBox=\"0 0 " << kWidth << " " << px(height)
    << "\" font-family=\"sans-serif\" font-size=\"12\">\n";
  o << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  o << "<text x=\"" << kLeft << "\" y=\"24\" font-size=\"16\" font-weight=\"bold\">"
    << escape(title_) << "</text>\n";
  for (size_t p = 0; p < panels_.size(); ++p) {
    const Panel& panel = panels_[p];
    const double top = kTop + p * (kPanelHeight + kGap) + 18;
    const double ySpan = panel.yMax > panel.yMin ? panel.yMax - panel.yMin : 1;
    const XAxis X(panel, kLeft, plotW);
    auto Y = [&](double y) { return top + kPanelHeight - (y - panel.yMin) / ySpan * kPanelHeight; };
    o << "<text x=\"" << kLeft << "\" y=\"" << px(top - 6) << "\" font-weight=\"bold\">"
      << escape(panel.title) << "</text>\n";
    o << "<rect x=\"" << kLeft << "\" y=\"" << px(top) << "\" width=\"" << px(plotW)
      << "\" height=\"" << kPanelHeight << "\" fill=\"#fafafa\" stroke=\"#888\"/>\n";
    if (X.zoomed()) {
      // The zoomed start, shaded, and the break where the scale changes.
      o << "<rect x=\"" << kLeft << "\" y=\"" << px(top) << "\" width=\"" << px(X.breakX() - kLeft)
        << "\" height=\"" << kPanelHeight << "\" fill=\"#eef4fb\"/>\n";
      o << "<line x1=\"" << px(X.breakX()) << "\" x2=\"" << px(X.breakX()) << "\" y1=\"" << px(top)
        << "\" y2=\"" << px(top + kPanelHeight) << "\" stroke=\"#6a8fb5\" stroke-width=\"2\"/>\n";
      o << "<text x=\"" << px(kLeft + plotW) << "\" y=\"" << px(top - 6)
        << "\" text-anchor=\"end\" fill=\"#6a8fb5\" font-size=\"11\">shaded: " << num(panel.xMin)
        << " to " << num(X.zoomEnd()) << " zoomed</text>\n";
    }
    // Ticks and grid.
    std::vector<double> yTicks = panel.yTicks;
    if (yTicks.empty()) {
      yTicks = ticks(panel.yMin, panel.yMax, niceStep(ySpan, 4));
    }
    for (const double v : yTicks) {
      o << "<line x1=\"" << kLeft << "\" x2=\"" << px(kLeft + plotW) << "\" y1=\"" << px(Y(v))
        << "\" y2=\"" << px(Y(v)) << "\" stroke=\"#ddd\"/>\n";
      o << "<text x=\"" << px(kLeft - 6) << "\" y=\"" << px(Y(v) + 4) << "\" text-anchor=\"end\">"
        << num(v) << "</text>\n";
    }
    for (const double v : X.tickValues()) {
      o << "<line x1=\"" << px(X(v)) << "\" x2=\"" << px(X(v)) << "\" y1=\"" << px(top)
        << "\" y2=\"" << px(top + kPanelHeight) << "\" stroke=\"#eee\"/>\n";
      o << "<text x=\"" << px(X(v)) << "\" y=\"" << px(top + kPanelHeight + 15)
        << "\" text-anchor=\"middle\">" << num(v) << "</text>\n";
    }
    o << "<text x=\"" << px(kLeft + plotW / 2) << "\" y=\"" << px(top + kPanelHeight + 32)
      << "\" text-anchor=\"middle\" fill=\"#444\">" << escape(panel.xLabel) << "</text>\n";
    o << "<text transform=\"translate(" << px(kLeft - 48) << "," << px(top + kPanelHeight / 2)
      << ") rotate(-90)\" text-anchor=\"middle\" fill=\"#444\">" << escape(panel.yLabel)
      << "</text>\n";
    // Series and markers, clipped to the plot area.
    o << "<clipPath id=\"clip" << p << "\"><rect x=\"" << kLeft << "\" y=\"" << px(top)
      << "\" width=\"" << px(plotW) << "\" height=\"" << kPanelHeight << "\"/></clipPath>\n";
    o << "<g clip-path=\"url(#clip" << p << ")\">\n";
    for (const Marker& m : panel.markers) {
      o << "<line x1=\"" << px(X(m.x)) << "\" x2=\"" << px(X(m.x)) << "\" y1=\"" << px(top)
        << "\" y2=\"" << px(top + kPanelHeight) << "\" stroke=\"" << m.color
        << "\" stroke-width=\"1.5\" stroke-dasharray=\"3,3\"/>\n";
      // Near the right edge the label goes to the left of its line.
      const bool right = X(m.x) > kLeft + 0.75 * plotW;
      o << "<text x=\"" << px(X(m.x) + (right ? -4 : 4)) << "\" y=\"" << px(top + 13) << "\""
        << (right ? " text-anchor=\"end\"" : "") << " fill=\"" << m.color << "\" font-size=\"11\">"
        << escape(m.label) << "</text>\n";
    }
    for (const Series& s : panel.series) {
      const size_t n = std::min(s.x.size(), s.y.size());
      if (s.style == Style::kDots) {
        for (size_t i = 0; i < n; ++i) {
          o << "<circle cx=\"" << px(X(s.x[i])) << "\" cy=\"" << px(Y(s.y[i]))
            << "\" r=\"2.5\" fill=\"" << s.color << "\"/>\n";
        }
        continue;
      }
      o << "<polyline fill=\"none\" stroke=\"" << s.color << "\" stroke-width=\"1.6\""
        << (s.style == Style::kDashed ? " stroke-dasharray=\"6,4\"" : "") << " points=\"";
      for (size_t i = 0; i < n; ++i) {
        if (s.style == Style::kStep && i > 0) {
          o << px(X(s.x[i])) << "," << px(Y(s.y[i - 1])) << " ";
        }
        o << px(X(s.x[i])) << "," << px(Y(s.y[i])) << " ";
      }
      o << "\"/>\n";
    }
    o << "</g>\n";
    // Legend: one entry per named series (markers drawn over a line share
    // the line's entry).
    size_t entry = 0;
    for (size_t i = 0; i < panel.series.size(); ++i) {
      if (panel.series[i].label.empty())
        continue;
      const double ly = top + 14 + 18 * static_cast<double>(entry++);
      const double lx = kLeft + plotW + 14;
      o << "<line x1=\"" << px(lx) << "\" x2=\"" << px(lx + 22) << "\" y1=\"" << px(ly - 4)
        << "\" y2=\"" << px(ly - 4) << "\" stroke=\"" << panel.series[i].color
        << "\" stroke-width=\"3\""
        << (panel.series[i].style == Style::kDashed ? " stroke-dasharray=\"6,4\"" : "") << "/>\n";
      o << "<text x=\"" << px(lx + 28) << "\" y=\"" << px(ly) << "\">"
        << escape(panel.series[i].label) << "</text>\n";
    }
  }
  o << "</svg>\n";
  return o.str();
}

bool SvgChart::write(const std::string& path) const {
  std::ofstream out(path);
  if (!out) {
    return false;
  }
  out << render();
  return static_cast<bool>(out);
}

}  // namespace flicker_cli
