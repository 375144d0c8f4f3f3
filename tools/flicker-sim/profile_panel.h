// The ratio-profile panel of a statistics pair, shared by the pictures of
// runs and of replays: the later frame over the earlier one per statistics
// line with the fitted 100 Hz and 120 Hz bands (RippleFit).
#pragma once

#include <string>

#include "ripple_fit.h"
#include "svg_chart.h"

namespace flicker_cli {

// `what` names the pair ("the pair that switched to 50 Hz (frame 6, 205 ms)");
// the title adds the two fitted band amplitudes.
SvgChart::Panel profilePanel(const flicker_loop::RippleFit& fit, const std::string& what);

// "1.23 %" for a fraction 0.0123.
std::string percent(double fraction);

// Colours shared by the pictures.
extern const char kColor50[];
extern const char kColor60[];
extern const char kColorMarker[];

}  // namespace flicker_cli
