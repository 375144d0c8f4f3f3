// Counts the heap allocations of the whole process while armed, to prove that
// a stretch of code allocates nothing. Replaces operator new and wraps the C
// allocator calls of the objects linked into the binary (-Wl,--wrap=malloc,
// calloc, realloc; see CMakeLists.txt). Allocations inside the shared C
// runtime itself (fopen, for instance) are not seen; the proven paths do no
// file work. Any thread may call these; nothing here allocates.
#pragma once

#include <cstdint>

namespace alloc_counter {

// Clears the count and starts counting.
void arm();
// Stops counting; returns the allocations counted since arm().
int64_t disarm();
// Writes the call stack of the first counted allocation to stderr (link with
// -rdynamic for names).
void printFirstSite();

}  // namespace alloc_counter
