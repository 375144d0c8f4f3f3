// Counts heap allocations of the whole process while armed, to prove that a
// stretch of code allocates nothing.
//
// Linked into a test binary together with -Wl,--wrap=malloc,--wrap=calloc,
// --wrap=realloc (see tests/alloc/CMakeLists.txt). It replaces the global
// operator new and delete, which catches every C++ allocation of every
// library, and wraps the C allocator calls made by the objects linked into the
// binary (the manager library, the platform, the algorithm). Allocations made
// inside the shared C runtime itself (for instance by fopen) are not seen; the
// paths proven with it do no file work.
//
// Allocations made while a thread is inside a platform function (between
// enterPlatform and leavePlatform, see platform_seam.cpp) are counted apart
// from the library's own: the platform differs per build (host, device).
//
// While armed, the call stacks of the first allocations of each kind are kept
// so that a failing test can say where they came from (link with -rdynamic for
// names).
//
// Thread-safety: arm, disarm and the counters may be used from any thread;
// every thread's allocations are counted. Nothing here allocates.
#pragma once

#include <cstdint>

namespace alloc_counter {

// Clears the count and the recorded call stacks and starts counting.
void arm();
// Stops counting; returns the library's allocations counted since arm().
int64_t disarm();
// Allocations since arm() outside platform functions (the library's own).
int64_t count();
// Allocations since arm() inside platform functions.
int64_t platformCount();
// Writes the recorded call stacks of one kind to stderr, one block each.
void printSites(bool platform);

// Marks this thread as inside a platform function; calls nest.
void enterPlatform();
void leavePlatform();

}  // namespace alloc_counter
