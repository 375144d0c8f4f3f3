#include "run_summary.h"

#include "flicker_freq.h"

namespace flicker_loop {

namespace {

int stateOf(const FrameRow& row) {
  return FlickerFreq::fromRecordCode(row.result.flickerState).hz();
}

// Pairs analysed at or before time `ms`.
int pairsUpTo(const LoopResult& result, double ms) {
  int count = 0;
  for (const PairRow& p : result.pairs) {
    if (p.timeMs <= ms) {
      ++count;
    }
  }
  return count;
}

}  // namespace

RunSummary RunSummary::of(const LoopResult& result) {
  RunSummary s;
  s.pairs = static_cast<int>(result.pairs.size());
  if (result.frames.empty()) {
    return s;
  }
  s.frames = static_cast<int>(result.frames.size());
  int previous = stateOf(result.frames.front());
  size_t lockIndex = 0;
  for (size_t i = 1; i < result.frames.size(); ++i) {
    const int state = stateOf(result.frames[i]);
    if (state != previous) {
      ++s.switches;
      lockIndex = i;
    }
    previous = state;
  }
  const FrameRow& last = result.frames.back();
  const FrameRow& lock = result.frames[lockIndex];
  s.lockedHz = previous;
  s.lockFrame = lockIndex == 0 ? 0 : lock.frame;
  s.lockMs = lockIndex == 0 ? 0 : lock.timeMs;
  s.pairsToLock = lockIndex == 0 ? 0 : pairsUpTo(result, lock.timeMs);
  s.expectedHz = last.truthHz;
  s.durationMs = last.timeMs;
  s.right = s.expectedHz == 0 ? s.switches == 0 : s.lockedHz == s.expectedHz;

  // The last change of the light's mains during the run, if any.
  const int firstTruth = result.frames.front().truthHz;
  for (size_t i = result.frames.size(); i-- > 1;) {
    if (result.frames[i].truthHz != result.frames[i - 1].truthHz) {
      s.changeMs = result.frames[i].timeMs;
      break;
    }
  }
  // Only a lock that happened after the change counts; a run that sat in
  // the new state already before it did not react to the change.
  if (s.changeMs >= 0 && firstTruth != s.expectedHz && s.right && s.expectedHz != 0 &&
      lockIndex != 0 && lock.timeMs >= s.changeMs) {
    s.lockAfterChangeMs = lock.timeMs - s.changeMs;
    s.pairsAfterChange = pairsUpTo(result, lock.timeMs) - pairsUpTo(result, s.changeMs);
  }
  return s;
}

}  // namespace flicker_loop
