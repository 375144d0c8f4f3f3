// Worker processes of the evaluation: outcomes come back in the cells' order
// whichever worker ran them and bit for bit as they were made, and a worker
// that exits, is killed, throws or hangs costs its one cell, is named in the
// report, and never stops or stalls the run.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "case_names.h"
#include "cell_pool.h"
#include "outcome_codec.h"

namespace flicker_eval {
namespace {

constexpr uint64_t kBadSeed = 3;

// Cells told apart by their seeds 1..n.
std::vector<EvalCell> seededCells(int n) {
  std::vector<EvalCell> cells(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) cells[static_cast<size_t>(i)].seed = static_cast<uint64_t>(i) + 1;
  return cells;
}

// An outcome that says which cell it came from, without running the manager.
CellOutcome fakeRun(const EvalCell& cell) {
  CellOutcome o;
  o.cell = cell;
  o.ok = true;
  o.switches = static_cast<int>(cell.seed) * 10;
  o.lockMs = 1.0 / static_cast<double>(cell.seed);  // a real that text rounds
  return o;
}

// How long a hanging worker is given: long enough for a worker of a loaded
// machine under a sanitizer to come round to a quick cell, short for a test.
constexpr std::chrono::milliseconds kHangLimit{2000};

struct FailureCase {
  const char* name;
  void (*misbehave)();  // what the worker does instead of running cell kBadSeed
  const char* reason;   // part of the lost cell's error and of the report line
  bool hangs = false;   // the pool must stop it (after kHangLimit)
};

CASE_PRINTS_ITS_NAME(FailureCase)

class WorkerFailureTest : public ::testing::TestWithParam<std::tuple<FailureCase, int>> {};

TEST_P(WorkerFailureTest, CostsOneCellAndIsReported) {
  const FailureCase& c = std::get<0>(GetParam());
  PoolOptions options;
  options.jobs = std::get<1>(GetParam());
  if (c.hangs)
    options.cellTimeout = kHangLimit;
  int calls = 0;
  options.progress = [&calls](int, int) { ++calls; };
  const std::vector<EvalCell> cells = seededCells(6);
  const PoolReport r = CellPool(options).run(cells, [&c](const EvalCell& cell) {
    if (cell.seed == kBadSeed)
      c.misbehave();
    return fakeRun(cell);
  });
  ASSERT_EQ(r.outcomes.size(), cells.size());
  EXPECT_EQ(calls, 6) << "progress after every cell, lost ones too";
  for (const CellOutcome& o : r.outcomes) {
    if (o.cell.seed == kBadSeed) {
      EXPECT_FALSE(o.ok);
      EXPECT_NE(o.error.find(c.reason), std::string::npos) << o.error;
      continue;
    }
    EXPECT_TRUE(o.ok) << o.error;
    EXPECT_EQ(o.switches, static_cast<int>(o.cell.seed) * 10) << "each outcome is its cell's";
    EXPECT_EQ(o.lockMs, 1.0 / static_cast<double>(o.cell.seed)) << "bit for bit";
  }
  ASSERT_EQ(r.workerFailures.size(), 1u);
  EXPECT_NE(r.workerFailures[0].find(c.reason), std::string::npos) << r.workerFailures[0];
  EXPECT_NE(r.workerFailures[0].find(cells[kBadSeed - 1].label() + " seed 3"), std::string::npos)
      << "names the cell so that it can be run again: " << r.workerFailures[0];
}

INSTANTIATE_TEST_SUITE_P(
    Table, WorkerFailureTest,
    ::testing::Combine(
        ::testing::Values(FailureCase{"exits", [] { _exit(3); }, "exited with status 3"},
                          FailureCase{"killed", [] { raise(SIGKILL); }, "was killed by signal 9"},
                          // An exception must not unwind into the pool's code in the worker.
                          FailureCase{"throws", [] { throw std::runtime_error("boom"); },
                                      "exited with status 70"},
                          FailureCase{"hangs", [] { pause(); }, "did not finish a cell within 2 s",
                                      true}),
        // One worker (it is replaced) and several.
        ::testing::Values(1, 3)));

// A worker that fails on every cell is replaced only so often (the workers
// still running when the limit is reached may fail too); the cells left are
// reported as not run, and the pool still returns.
TEST(CellPool, GivesUpAfterRepeatedFailures) {
  constexpr int kJobs = 2;
  PoolOptions options;
  options.jobs = kJobs;
  const std::vector<EvalCell> cells = seededCells(kMaxWorkerFailures + 4);
  const PoolReport r =
      CellPool(options).run(cells, [](const EvalCell&) -> CellOutcome { _exit(5); });
  const int failures = static_cast<int>(r.workerFailures.size());
  EXPECT_GE(failures, kMaxWorkerFailures);
  EXPECT_LE(failures, kMaxWorkerFailures + kJobs - 1);
  int notRun = 0;
  for (const CellOutcome& o : r.outcomes) {
    EXPECT_FALSE(o.ok);
    notRun += o.error.rfind("not run", 0) == 0 ? 1 : 0;
  }
  EXPECT_EQ(notRun + failures, static_cast<int>(cells.size()));
}

// A cell that cannot run is a failed run, not a failed worker: the worker
// sends its outcome and goes on.
TEST(CellPool, CellThatCannotRunFailsAlone) {
  std::vector<EvalCell> cells = seededCells(3);
  cells[1].geometry = "nowhere";
  PoolOptions options;
  options.jobs = 2;
  const PoolReport r = CellPool(options).run(cells, [](const EvalCell& cell) {
    return cell.geometry == "nowhere" ? evaluate(cell, 1.0) : fakeRun(cell);
  });
  EXPECT_TRUE(r.workerFailures.empty());
  EXPECT_TRUE(r.outcomes[0].ok && r.outcomes[2].ok);
  EXPECT_FALSE(r.outcomes[1].ok);
  EXPECT_EQ(r.outcomes[1].error, "unknown geometry 'nowhere'");
}

// Reals keep every bit on their way through the text (NaN included), and a
// line that is not an outcome is refused with a reason.
TEST(OutcomeCodec, KeepsEveryBitAndRefusesOtherLines) {
  CellOutcome o = fakeRun(seededCells(1)[0]);
  o.ripple = 0.1 + 0.2;
  o.readoutS = 1e-300;
  o.residualOther = std::nan("");
  o.summary.changeMs = -1;
  o.error = "quote \" and\nnewline";
  CellOutcome back;
  std::string error;
  const std::string line = encodeOutcome(o);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  ASSERT_TRUE(decodeOutcome(line, o.cell, &back, &error)) << error;
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  EXPECT_EQ(memcmp(&back.ripple, &o.ripple, sizeof(double)), 0);
  EXPECT_EQ(back.readoutS, 1e-300);
  EXPECT_TRUE(std::isnan(back.residualOther));
  EXPECT_EQ(back.summary.changeMs, -1);
  EXPECT_EQ(back.error, o.error);
  EXPECT_EQ(encodeOutcome(back), line);
  for (const std::string& bad :
       {line.substr(0, line.size() / 2), std::string("{}"), std::string("[1,2]")}) {
    EXPECT_FALSE(decodeOutcome(bad, o.cell, &back, &error)) << bad;
    EXPECT_EQ(error.rfind("not an outcome", 0), 0u) << error;
  }
}

}  // namespace
}  // namespace flicker_eval
