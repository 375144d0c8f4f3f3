// Observes the manager's worker hand-off from outside the library, through
// the linker's --wrap of sem_post, sem_wait and flk_SendCmd (see
// bench/CMakeLists.txt for the link options a binary needs):
//  - every sem_post is counted and, while timing is on, stamped;
//  - every sem_wait entry is counted (the worker waits for its next pair
//    there, so a new entry means the previous analysis is over), and while
//    timing is on its return is stamped (the worker is running again);
//  - every detection command is counted, stamped on entry while timing is on,
//    and word 0 of its diagnostics (bit 0: the pair was analysed) is kept.
// Stamps are CLOCK_MONOTONIC nanoseconds.
//
// Thread-safe: the wrappers run on the 3A thread and the worker; the
// accessors on any thread. The wrappers allocate nothing.
#pragma once

#include <cstdint>

namespace wake_probe {

int64_t posts();
int64_t waitsEntered();
int64_t detections();
int32_t lastDetectFlags();

// Blocks until waitsEntered() reaches `target` or `timeoutMs` passed; false on
// timeout.
bool waitForWaits(int64_t target, int timeoutMs);

void setTiming(bool on);
int64_t lastPostNs();
int64_t lastWakeNs();
int64_t lastDetectNs();

int64_t nowNs();

}  // namespace wake_probe
