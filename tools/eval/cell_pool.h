// CellPool: runs cells of the evaluation in worker processes, so that a grid
// uses every core although the manager's state is process-wide.
//
// The pool forks `jobs` workers (never more than there are cells). Each
// worker runs its set-up once (e.g. hands the host platform the tuning image
// it is to use), then takes one cell at a time from the pool over a socket,
// runs it and sends the outcome back as a line of JSON (outcome_codec.h).
// Cells go to whichever worker is free, and the outcomes come back in the
// order of the cells, whatever order they finished in: a cell's outcome
// depends on the cell alone, so the report equals a serial run's.
//
// A worker that exits, is killed by a signal or spends longer than
// `cellTimeout` on one cell (it is then killed) costs the cell it was running:
// that cell's outcome says which worker failed and how (ok = false), the
// failure is listed in the report, and a new worker takes the remaining
// cells. After kMaxWorkerFailures failures the pool stops forking and the
// cells left are reported as not run. The pool always returns.
//
// The calling process must not have run the manager: a manager instance loads
// its tuning table at its first Init and keeps it, so a worker forked after
// that would run with the table its parent saw, not the one its set-up hands
// over. Workers leave with _exit(): nothing of the parent (buffered output,
// temporary files removed at exit) is flushed or removed twice.
//
// Threading: call from one thread; the calling process should have no other
// threads (a forked worker has only the forking thread).
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "cell_outcome.h"

namespace flicker_eval {

// Failures of workers after which no new worker is forked.
constexpr int kMaxWorkerFailures = 8;

struct PoolOptions {
  int jobs = 2;
  // Longest a worker may spend on one cell: far above any cell of the grid
  // or the soak (a minute of 120 fps video takes seconds), even under a
  // sanitizer on a busy machine.
  std::chrono::milliseconds cellTimeout{std::chrono::minutes(10)};
  // Run in each worker before its first cell; may be empty.
  std::function<void()> setUp;
  // Called in the calling process after each cell with the cells done and
  // their number; may be empty.
  std::function<void(int done, int total)> progress;
};

struct PoolReport {
  std::vector<CellOutcome> outcomes;        // one per cell, in the cells' order
  std::vector<std::string> workerFailures;  // one line per failed worker
};

using CellRunner = std::function<CellOutcome(const EvalCell& cell)>;

class CellPool {
 public:
  explicit CellPool(PoolOptions options) : options_(std::move(options)) {}

  // Runs `run` on every cell in worker processes.
  PoolReport run(const std::vector<EvalCell>& cells, const CellRunner& run);

 private:
  PoolOptions options_;
};

// Evaluates the cells for `seconds` each: in this process, one after another,
// for one job without a set-up (the serial run a debugger can follow);
// otherwise in a CellPool. The outcomes are the same either way.
PoolReport evaluateCells(const std::vector<EvalCell>& cells, double seconds,
                         const PoolOptions& options);

}  // namespace flicker_eval
