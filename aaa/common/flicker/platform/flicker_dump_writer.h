// FlickerDumpWriter: the adapter's debug dump. Each detection with the
// property "vendor.debug.flk_dump" set writes its input into the next
// numbered folder of "/data/vendor/flicker/flko/": flk.raw and, with
// "vendor.debug.flk_dump_pure" set, flk_pure.raw (layouts in
// flicker_dump_format.h). A counter file numbers the folders across runs.
//
// Every failure is logged and ends the dump; detection goes on regardless.
// Stateless. Two sensors that dump at the same time may take the same folder
// number, which is accepted for a debug facility.
#pragma once

#include <cstdint>

#include "flicker_algo_cmd.h"

class FlickerDumpWriter {
 public:
  // Dumps the detection record `para` with its auxiliary block `aux` and
  // `count` entries per column.
  static void dumpFLKO(const FlkDetectPara& para, const int32_t* aux, int32_t count);
};
