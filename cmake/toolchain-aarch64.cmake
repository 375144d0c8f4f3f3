# Cross-compiles for 64-bit Arm Linux with Debian's aarch64 GNU toolchain and
# runs the target's programs (tests, test discovery) under qemu user-mode
# emulation. Used by scripts/arm64.sh:
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake
#         -DFLICKER_ARM64_GTEST_PREFIX=<prefix of an aarch64 GoogleTest install>
#         -DFLICKER_ARM64_HEADERS_PREFIX=<prefix of the tools' header-only packages>
#
# Debian's googletest ships host (x86-64) libraries only; the script builds
# the shipped sources with this same toolchain into a prefix, and that prefix
# is searched before the Arm system root so find_package(GTest) finds it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(FLICKER_ARM64_TRIPLE aarch64-linux-gnu)
set(FLICKER_ARM64_SYSROOT /usr/${FLICKER_ARM64_TRIPLE})

set(CMAKE_C_COMPILER ${FLICKER_ARM64_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${FLICKER_ARM64_TRIPLE}-g++)

# Programs run on the host; libraries, headers and packages come from the Arm
# side only, so nothing of the x86-64 install leaks into the link.
set(CMAKE_FIND_ROOT_PATH ${FLICKER_ARM64_SYSROOT})
# FLICKER_ARM64_HEADERS_PREFIX: a prefix that holds only header-only packages
# (the tools' CLI11 and nlohmann-json), which serve every architecture.
if(FLICKER_ARM64_HEADERS_PREFIX)
  list(PREPEND CMAKE_FIND_ROOT_PATH ${FLICKER_ARM64_HEADERS_PREFIX})
  list(APPEND CMAKE_PREFIX_PATH /)
endif()
if(FLICKER_ARM64_GTEST_PREFIX)
  list(PREPEND CMAKE_FIND_ROOT_PATH ${FLICKER_ARM64_GTEST_PREFIX})
  # Packages are searched under each root path + prefix; "/" keeps the
  # install prefix itself as a candidate.
  list(APPEND CMAKE_PREFIX_PATH /)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest and gtest_discover_tests run every test program through this. -L
# points the emulator at the Arm loader and C/C++ runtime.
find_program(FLICKER_QEMU_AARCH64 qemu-aarch64 qemu-aarch64-static)
if(FLICKER_QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${FLICKER_QEMU_AARCH64} -L ${FLICKER_ARM64_SYSROOT})
endif()
