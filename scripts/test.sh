#!/usr/bin/env bash
# The project's test command. Installs what the tests need, then:
#   1. builds everything under AddressSanitizer + UndefinedBehaviorSanitizer
#      and runs the whole suite;
#   2. builds the concurrency tests under ThreadSanitizer and runs them;
#   3. checks the device build files and the installed package
#      (scripts/check_device.sh);
#   4. runs every fuzz target briefly (scripts/fuzz.sh);
#   5. cross-builds for 64-bit Arm and runs the whole suite under qemu
#      (scripts/arm64.sh).
# About twelve minutes on a shared 2-core machine without step 5, which adds
# about seven and a half (README.md, RELIABILITY.md).
# Usage: bash scripts/test.sh
#
# Environment:
#   FLICKER_SKIP_APT=1       don't call apt-get (packages already there)
#   FLICKER_TEST_JOBS=N      parallel build and test jobs (default: nproc)
#   FLICKER_TEST_ARM64=0     skip the Arm run
#   FLICKER_FUZZ_SECONDS=N   seconds per fuzz target (default 5; 0 skips)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

jobs=${FLICKER_TEST_JOBS:-$(nproc)}
packages=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev)
tsan_targets=(flicker_manager_concurrency_test flicker_stress_test)


configure() {  # configure <dir> <sanitizers>
  cmake -S . -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DFLICKER_SANITIZE="$2" >/dev/null
}

step() { printf '\n== %s\n' "$*"; }

flicker_install_packages "${packages[@]}"
start=$(date +%s)

step "AddressSanitizer + UndefinedBehaviorSanitizer: build and run every test"
configure build-asan address,undefined
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs"

step "ThreadSanitizer: build and run the concurrency tests"
configure build-tsan thread
cmake --build build-tsan -j "$jobs" --target "${tsan_targets[@]}"
TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1" \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs" -L concurrency

step "Device build files, installed package and example consumers"
bash scripts/check_device.sh

fuzz_seconds=${FLICKER_FUZZ_SECONDS:-5}
if [ -f scripts/fuzz.sh ] && [ "$fuzz_seconds" != 0 ]; then
  step "Fuzz targets, ${fuzz_seconds} s each"
  bash scripts/fuzz.sh "$fuzz_seconds"
fi

if [ "${FLICKER_TEST_ARM64:-1}" != 0 ]; then
  step "64-bit Arm: cross-build and run every test under qemu"
  bash scripts/arm64.sh
fi

step "All checks passed in $(( $(date +%s) - start )) s"
