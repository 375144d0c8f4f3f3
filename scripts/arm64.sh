#!/usr/bin/env bash
# Cross-builds the project for 64-bit Arm Linux (aarch64) and runs the whole
# test suite under qemu user-mode emulation. Plain Debug build at -O1 with no
# sanitizers (their runtimes are not reliable under qemu-user).
# Usage: bash scripts/arm64.sh [build-dir]       (default: build-arm64)
#
# Environment:
#   FLICKER_SKIP_APT=1   don't call apt-get (packages already there)
#   FLICKER_ARM64_JOBS=N parallel build and test jobs (default: 2)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
root=$PWD
build=${1:-build-arm64}
case $build in /*) ;; *) build=$root/$build ;; esac
jobs=${FLICKER_ARM64_JOBS:-2}
toolchain=$root/cmake/toolchain-aarch64.cmake
gtest_build=$build/_gtest-build
gtest_prefix=$build/_gtest-install
headers_prefix=$build/_header-packages
packages=(cmake ninja-build g++-aarch64-linux-gnu qemu-user googletest libcli11-dev
  nlohmann-json3-dev)


# Debian ships GoogleTest's sources; build them with the Arm toolchain once.
build_gtest() {
  [ -f "$gtest_prefix/.built" ] && return
  cmake -S /usr/src/googletest -B "$gtest_build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$gtest_prefix" -DBUILD_GMOCK=ON >/dev/null
  cmake --build "$gtest_build" -j "$jobs"
  cmake --install "$gtest_build" >/dev/null
  touch "$gtest_prefix/.built"
}

# The tools' header-only packages (CLI11, nlohmann-json) are the same for
# every architecture, but the toolchain file searches the Arm side only: give
# them a prefix of their own that holds just their headers and CMake files.
stage_header_packages() {
  rm -rf "$headers_prefix"
  mkdir -p "$headers_prefix/include" "$headers_prefix/share/cmake"
  local dir
  for dir in CLI nlohmann; do
    ln -s "/usr/include/$dir" "$headers_prefix/include/$dir"
  done
  for dir in CLI11 nlohmann_json; do
    cp -r "/usr/share/cmake/$dir" "$headers_prefix/share/cmake/"
  done
}

start=$(date +%s)
flicker_install_packages "${packages[@]}"
echo "== GoogleTest for aarch64"
build_gtest
stage_header_packages
echo "== configure and build (aarch64, Debug -O1)"
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DFLICKER_ARM64_GTEST_PREFIX="$gtest_prefix" -DFLICKER_ARM64_HEADERS_PREFIX="$headers_prefix" \
  -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_FLAGS_DEBUG="-g -O1" -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
  -DFLICKER_SANITIZE= -DFLICKER_BUILD_BENCH=OFF -DFLICKER_BUILD_FUZZ=OFF >/dev/null
cmake --build "$build" -j "$jobs"
built=$(date +%s)
echo "== run the whole suite under qemu-aarch64"
status=0
ctest --test-dir "$build" --output-on-failure -j "$jobs" || status=$?
end=$(date +%s)
echo "== arm64: build $((built - start)) s, tests $((end - built)) s, total $((end - start)) s"
exit $status
