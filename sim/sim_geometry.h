// Sensor and statistics geometry of one simulated stream.
//
// Holds what the framework tells the manager about the sensor (TG size, the
// frame size of the statistics image, pixel mode, pixel clock, line length,
// sensor binning) and derives from it, with the simulator's own arithmetic:
//  - the statistics window (the same integer arithmetic the platform adapter
//    applies to the frame size), and
//  - the line time, i.e. the time between the readouts of two consecutive
//    lines of the statistics image, derived from the line length the way the
//    manager does when it sets the algorithm up (low 16 bits of the line
//    length, scaled by the frame-to-TG height ratio, then by the sensor
//    binning factor, divided by the pixel clock).
// Manager and simulator agree on the line time because the runner hands the
// same geometry to both, never through a shared constant.
//
// Plain value type; safe to copy and read from any thread.
#pragma once

#include <cstdint>

namespace flicker_sim {

struct SimGeometry {
  int sensorMode = 0;                 // SensorMode of Config / sensorMode of SetParam
  int tgWidth = 4000;                 // TG_SIZE width (sensor output)
  int tgHeight = 3000;                // TG_SIZE height
  int frameWidth = 4000;              // frame width handed with each frame, before pixel mode
  int frameHeight = 3000;             // frame height handed with each frame (also HBIN height)
  int pixelMode = 0;                  // width is shifted right by this many bits (0..31)
  uint32_t pixelClockHz = 480000000;  // PixelClk, pixel clocks per second
  uint32_t pixelsInLine = 4800;       // PixelsInLine, pixel clocks per sensor line
  int sensorBinning = 1;              // what cust_getSensorBinningRatio returns for this mode

  // Frame width after the pixel-mode reduction (W).
  int reducedWidth() const;
  // Height of the statistics image (H'): frame height minus 45, at most 5994.
  int statImageHeight() const;
  // Width of each of the six statistics windows (win_w).
  int windowWidth() const;
  // Height of each of the three window rows (win_h).
  int windowHeight() const;
  // Number of statistics lines in the block (3 * win_h).
  int statLines() const;
  // Number of int64 entries in the block (18 * win_h).
  int statEntries() const { return 6 * statLines(); }
  // Image line of statistics line 0: the window grid is centred vertically.
  int topOffset() const;
  // Reduced-width column of the first window: the six windows are centred.
  int leftOffset() const;

  // Line length in pixel clocks per statistics-image line, after the height
  // ratio and the sensor binning (what the manager hands the algorithm).
  uint32_t lineLengthClocks() const;
  // Frame-to-TG height ratio in integer division (0 when the TG height is 0).
  int heightRatio() const;
  // Seconds per statistics-image line; 0 when the pixel clock is 0.
  double lineTimeSeconds() const;

  // True when the geometry describes a stream the simulator can produce:
  // positive sizes, a window of at least one pixel and one line, a non-zero
  // pixel clock and line length.
  bool valid() const;
};

}  // namespace flicker_sim
