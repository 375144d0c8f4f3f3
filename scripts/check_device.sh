#!/usr/bin/env bash
# Checks the device integration on a desk. Usage: bash scripts/check_device.sh
#
# Steps (docs/integration.md, section 9, says what each one proves and what
# a desk cannot check):
#  1. packages:  Debian's blueprint-tools and mini-soong are installed.
#  2. format:    Android.bp is formatted as bpfmt wants (bpfmt -d prints nothing).
#  3. coverage:  every path Android.bp names exists, and every library source
#                and device unit-test source is in a module
#                (scripts/check_android_bp.py).
#  4. soong:     mini-soong turns Android.bp into a Makefile, which builds with
#                clang at -O2 and -Werror libflicker_host_platform,
#                libflicker_open_algo, then the device module libflicker_mgr
#                (linked with -Wl,--no-undefined against those two standing in
#                for the device's libraries); examples/consumer/main.cpp is
#                linked against that library and run.
#  5. install:   the CMake build is installed into a temporary prefix and the
#                example consumer is built from it via find_package(flicker),
#                CMake's pkg-config module and a plain c++ $(pkg-config ...)
#                command, and each program is run.
#
# Environment:
#   FLICKER_SKIP_APT=1            don't call apt-get (packages already there)
#   FLICKER_DEVICE_BUILD_DIR=DIR  CMake build folder (default: build-device)
#   FLICKER_DEVICE_BUILD_TYPE=T   CMake build type of the install check (default: Debug)
#   FLICKER_KEEP_SCRATCH=1        keep the scratch folder under /tmp
#
# Prints PASS or FAIL per check and a summary; exits 1 on any failure.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
# shellcheck source=scripts/packages.sh
source scripts/packages.sh
root=$PWD

jobs=2
build_dir=${FLICKER_DEVICE_BUILD_DIR:-build-device}
build_type=${FLICKER_DEVICE_BUILD_TYPE:-Debug}
scratch=$(mktemp -d /tmp/flicker-device-check.XXXXXX)
if [ "${FLICKER_KEEP_SCRATCH:-0}" != 1 ]; then
  trap 'rm -rf "$scratch"' EXIT
fi

results=()
failed=0
pass() { results+=("PASS  $1"); echo "-- PASS: $1"; }
fail() { results+=("FAIL  $1"); echo "-- FAIL: $1"; failed=1; }
section() { echo; echo "== $1"; }

# Runs a command with its output in a log file; prints the log's tail on failure.
logged() {  # logged <log> <command...>
  local log=$1
  shift
  if "$@" >"$log" 2>&1; then return 0; fi
  echo "   command failed: $*"
  tail -n 40 "$log" | sed 's/^/   | /'
  return 1
}

# Runs a consumer program; passes when it prints the flicker state.
run_consumer() {  # run_consumer <label> <program>
  local out
  if out=$(FLICKER_DATA_ROOT="$scratch/data" "$2" 2>"$2.stderr") &&
     [[ $out == flickerState=* ]]; then
    pass "$1: $out"
  else
    tail -n 20 "$2.stderr" | sed 's/^/   | /'
    fail "$1: the example did not run"
  fi
}

check_packages() {
  section "packages"
  if flicker_install_packages blueprint-tools mini-soong clang cmake ninja-build pkg-config \
       dpkg-dev; then
    pass "packages present (bpfmt $(command -v bpfmt), mini-soong $(command -v mini-soong))"
  else
    fail "installing blueprint-tools and mini-soong"
  fi
}

check_format() {
  section "Android.bp format (bpfmt -d)"
  local diff_out
  if ! diff_out=$(bpfmt -d Android.bp 2>&1); then
    echo "$diff_out"
    fail "bpfmt could not read Android.bp"
  elif [ -n "$diff_out" ]; then
    echo "$diff_out"
    fail "Android.bp is not formatted as bpfmt wants (run: bpfmt -w Android.bp)"
  else
    pass "Android.bp formatted as bpfmt wants"
  fi
}

check_coverage() {
  section "Android.bp paths and source coverage"
  # Debian's interpreter: mini-soong's parser is installed for it.
  if /usr/bin/python3 scripts/check_android_bp.py "$root"; then
    pass "every path in Android.bp exists; every library and device test source is listed"
  else
    fail "Android.bp names missing paths or misses library or device test sources"
  fi
}

# mini-soong builds in the folder it runs in, with paths relative to it: it
# gets a view of the tree, so that nothing is written into the checkout.
ms="$scratch/mini-soong"
# Android's toolchain is clang; mini-soong drops -Werror and cpp_std and
# defaults to -std=c++11, so the language level and -Werror are given here.
# -Wl,--no-undefined is what the device linker enforces for shared libraries;
# -L. because mini-soong adds it only for libraries defined in Android.bp, and
# the stand-ins for the device's libraries are not.
make_vars=(CC=clang "CXXFLAGS=-std=c++17 -O2 -g" "CPPFLAGS=-Werror"
  "LDFLAGS=-L. -Wl,-z,relro -Wl,-z,noexecstack -Wl,--as-needed -Wl,--no-undefined")
# shellcheck disable=SC2317  # called through logged
ms_make() { (cd "$ms" && make -j1 "${make_vars[@]}" "$@"); }

check_soong() {
  section "mini-soong host build of Android.bp"
  mkdir -p "$ms"
  local d
  for d in aaa algo camera_stack examples sim tests; do ln -s "$root/$d" "$ms/$d"; done
  cp Android.bp "$ms/"

  if ! (cd "$ms" && logged "$ms/mini-soong.log" mini-soong Android.bp Makefile); then
    fail "mini-soong could not read Android.bp"
    return
  fi
  grep -h "not yet supported" "$ms/mini-soong.log" | sed 's/^/   mini-soong: /'
  pass "mini-soong generated a Makefile from Android.bp"

  local lib built=1
  for lib in libflicker_host_platform libflicker_open_algo; do
    if logged "$ms/$lib.log" ms_make "$lib.so"; then
      pass "mini-soong: $lib built"
    else
      fail "mini-soong: $lib"
      built=0
    fi
  done
  if [ $built = 0 ]; then
    fail "mini-soong: libflicker_mgr needs the host platform and the open algorithm"
    return
  fi

  # The device's platform libraries, played by the host platform.
  for lib in libcamstack_utils libcamstack_nvram libcamstack_custom libcutils; do
    ln -sf libflicker_host_platform.so "$ms/$lib.so"
  done
  ln -sf libflicker_open_algo.so "$ms/libflicker_algo.so"
  if ! logged "$ms/mgr.log" ms_make libflicker_mgr.so; then
    fail "mini-soong: device module libflicker_mgr"
    return
  fi
  pass "mini-soong: device module libflicker_mgr built and linked against the stand-ins"

  # mini-soong writes no variables for cc_binary modules, so the example is
  # linked here with the module's own source and library.
  local out
  if logged "$ms/example.log" clang++ -std=c++17 -Wall -Wextra -Werror -O2 \
       -I"$ms/aaa/common/flicker" -I"$ms/aaa/common/flicker/platform" \
       -I"$ms/camera_stack/include" "$ms/examples/consumer/main.cpp" \
       -L"$ms" -lflicker_mgr -Wl,-rpath-link,"$ms" -o "$ms/flicker_consumer_example" &&
     out=$(cd "$ms" && FLICKER_DATA_ROOT="$scratch/data" \
       LD_LIBRARY_PATH="$ms" ./flicker_consumer_example 2>"$ms/example-run.log"); then
    pass "example linked against mini-soong's libflicker_mgr.so and ran: $out"
  else
    tail -n 20 "$ms/example-run.log" 2>/dev/null | sed 's/^/   | /'
    fail "example against mini-soong's libflicker_mgr.so"
  fi
}

check_install() {
  section "CMake install and the example consumer"
  local prefix="$scratch/prefix"
  local targets=(flicker_mgr flicker_zone_mains flicker_host_platform flicker_open_algo flicker_sim)
  if ! logged "$scratch/configure.log" cmake -S . -B "$build_dir" -G Ninja \
       -DCMAKE_BUILD_TYPE="$build_type" -DFLICKER_SANITIZE= -DFLICKER_BUILD_TESTS=OFF \
       -DFLICKER_BUILD_TOOLS=OFF -DFLICKER_BUILD_BENCH=OFF -DFLICKER_BUILD_FUZZ=OFF; then
    fail "cmake configure of $build_dir"
    return
  fi
  if ! logged "$scratch/build.log" cmake --build "$build_dir" -j "$jobs" --target "${targets[@]}" ||
     ! logged "$scratch/install.log" cmake --install "$build_dir" --prefix "$prefix"; then
    fail "CMake build or install"
    return
  fi
  pass "installed ${targets[*]} into a temporary prefix"

  local c1="$scratch/consumer-find-package"
  if logged "$c1.log" cmake -S examples/consumer -B "$c1" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" &&
     logged "$c1.build.log" cmake --build "$c1"; then
    run_consumer "find_package(flicker) consumer" "$c1/flicker_consumer"
  else
    fail "example consumer via find_package(flicker)"
  fi

  local c2="$scratch/consumer-pkg-config"
  if PKG_CONFIG_PATH="$prefix/lib/pkgconfig" logged "$c2.log" cmake -S examples/consumer \
       -B "$c2" -G Ninja -DFLICKER_CONSUMER_USE_PKGCONFIG=ON &&
     logged "$c2.build.log" cmake --build "$c2"; then
    run_consumer "pkg-config (CMake) consumer" "$c2/flicker_consumer"
  else
    fail "example consumer via CMake's pkg-config module"
  fi

  local c3="$scratch/consumer-plain" flags
  flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs flicker)
  # shellcheck disable=SC2086  # the flags are a word list
  if logged "$c3.log" c++ -std=c++17 -Wall -Wextra -Werror examples/consumer/main.cpp \
       -o "$c3" $flags; then
    run_consumer "plain c++ \$(pkg-config --cflags --libs flicker) consumer" "$c3"
  else
    fail "example consumer via a plain pkg-config command line"
  fi
}

check_packages
check_format
check_coverage
check_soong
check_install

section "summary"
printf '%s\n' "${results[@]}"
exit $failed
