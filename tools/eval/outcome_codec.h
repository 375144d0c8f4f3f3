// OutcomeCodec: a CellOutcome as one line of JSON, the form in which a worker
// process hands its outcome back to the process that reports (cell_pool.h).
//
// Every field of the outcome and of its run summary travels; reals keep
// every bit (the text is the shortest that reads back as the same double), so
// a report of decoded outcomes is byte for byte the report of the originals.
// The cell itself does not travel: both processes hold the same list of
// cells, and the decoder takes it from the caller.
//
// Plain functions; thread-safe.
#pragma once

#include <string>

#include "cell_outcome.h"

namespace flicker_eval {

// One line of JSON, without the newline.
std::string encodeOutcome(const CellOutcome& outcome);
// Reads a line of encodeOutcome() back for `cell`; false with a reason on a
// line that is not one.
bool decodeOutcome(const std::string& line, const EvalCell& cell, CellOutcome* out,
                   std::string* error);

}  // namespace flicker_eval
