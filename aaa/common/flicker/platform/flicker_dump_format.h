// The statistics dump files of the adapter's debug dump, as the dump writer
// writes them and the tools read them back: one definition for both.
//
// flk.raw (native little-endian, no padding), n = entries per column:
//   int32 n | int64[n] column of slot 1 | int64[n] column of slot 0 |
//   FlkRawTrailer (the detection's inputs as the detection record held them)
// flk_pure.raw: the two columns only (slot 1's first), no count, no trailer.
// The reversed slot order is deliberate in both files.
#pragma once

#include <cstddef>
#include <cstdint>

namespace flicker_dump {

constexpr int kAuxWords = 9;
// A column never holds more than a statistics buffer (36000 int64 entries).
constexpr int32_t kMaxEntries = 36000;

// What follows the two columns of flk.raw.
struct FlkRawTrailer {
  int32_t winValue1;       // the detection record's first window value
  int32_t winValue2;       // its second window value
  int32_t freq;            // the flicker state given with the pair (Hz)
  int32_t pixelClk;        // low 32 bits of the pixel clock
  uint32_t lineLength;     // pixel clocks per statistics line
  int32_t exposure;        // microseconds
  int32_t aux[kAuxWords];  // the detection's auxiliary block, zero before the detection
};
static_assert(sizeof(FlkRawTrailer) == 60, "six values and nine auxiliary words, no padding");
static_assert(offsetof(FlkRawTrailer, lineLength) == 16, "layout");
static_assert(offsetof(FlkRawTrailer, aux) == 24, "layout");

// Bytes of flk.raw around the two columns: the count in front, the trailer
// behind.
constexpr size_t kFlkRawHeaderBytes = sizeof(int32_t);
constexpr size_t kFlkRawTrailerBytes = sizeof(FlkRawTrailer);

// Size of a flk.raw holding `count` entries per column.
constexpr size_t flkRawSize(int32_t count) {
  return kFlkRawHeaderBytes + 2 * sizeof(int64_t) * static_cast<size_t>(count) +
         kFlkRawTrailerBytes;
}

}  // namespace flicker_dump
