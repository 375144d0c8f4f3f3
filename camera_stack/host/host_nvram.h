// Host implementation of the NVRAM layer's flicker tuning read.
//
// nvGetFlickerParaAll fills the caller's table from a tuning image: the
// 70 x 2 records of FLICKER_CUST_PARA, 168 bytes each, little-endian, rows in
// order and the two ratio columns of a row side by side (row 0 col 0, row 0
// col 1, row 1 col 0, ...). The image is the file set by setNvramImage, else
// the one named by the environment variable FLICKER_NVRAM_IMAGE; without
// either the built-in defaults (host_default_tuning.h) are used. One image
// serves every sensor.
//
// Failures (result -1, reported through the host log): a null table or row,
// totals that are not positive or exceed 70 x 2, an image that cannot be
// opened or is shorter than 70 x 2 records. Records are filled only once the
// whole image was read, so a failed read leaves the table untouched.
//
// Thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cam_flicker_nvram.h"

namespace flicker_host {

constexpr size_t kTuningRecordBytes = 168;
constexpr size_t kTuningImageBytes = kTuningRecordBytes * kFlickerScenarioRows * kFlickerBinRatios;

// Uses the image at `path`; an empty path goes back to FLICKER_NVRAM_IMAGE
// or the defaults.
void setNvramImage(const std::string& path);

// Little-endian (de)serialisation of one record, whatever the host's order.
void encodeTuningRecord(const FLICKER_CUST_PARA& record, uint8_t* out);
FLICKER_CUST_PARA decodeTuningRecord(const uint8_t* in);

// A whole image built from one record per (row, col); for tools and tests.
std::vector<uint8_t> encodeTuningImage(
    const std::function<FLICKER_CUST_PARA(int row, int col)>& recordAt);

}  // namespace flicker_host
