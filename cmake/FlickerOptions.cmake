# One place for the options every target of this project gets: warnings,
# sanitizers and the language level. Call flicker_target_options(<target>) on
# each target instead of setting flags by hand.

option(FLICKER_BUILD_TESTS "Build the unit tests" ON)
option(FLICKER_BUILD_BENCH "Build the benchmarks" OFF)
option(FLICKER_BUILD_FUZZ "Build the libFuzzer targets (clang only)" OFF)
option(FLICKER_BUILD_TOOLS "Build the command-line tools" ON)
set(FLICKER_SANITIZE "" CACHE STRING
    "Sanitizers for every target: empty, 'address,undefined' or 'thread'")

function(flicker_target_options target)
  target_compile_features(${target} PRIVATE cxx_std_17)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  if(FLICKER_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${FLICKER_SANITIZE}
                                             -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${FLICKER_SANITIZE})
  endif()
endfunction()

# Libraries whose code a worker thread may still be running when the process
# exits (the manager, the host platform, the open algorithm): none of their
# static objects may have a destructor that runs at exit. gcc has no such
# warning; the clang builds (fuzzing, the device check) enforce it.
function(flicker_exit_safe target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wexit-time-destructors)
  endif()
endfunction()
