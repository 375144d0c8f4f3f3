#!/usr/bin/env bash
# Checks the device integration on a desk. Usage: bash scripts/check_device.sh
#
#  1. Android.bp is formatted as bpfmt wants (bpfmt -d prints nothing).
#  2. Every file and folder Android.bp names exists, and every library source
#     of the manager, the open algorithm and the host platform, and every
#     device unit-test source, is listed by a module (so the device build
#     cannot drift from the CMake build).
#  3. mini-soong turns Android.bp into a Makefile, which builds with clang at
#     -O2 and -Werror: libflicker_host_platform, libflicker_open_algo, then
#     the device module libflicker_mgr itself (device shim included, linked
#     with -Wl,--no-undefined) with the host platform standing in for the
#     device's platform libraries and the open algorithm for libflicker_algo.
#     examples/consumer/main.cpp is linked against that library and run.
#  4. The CMake install: the manager, host platform, open algorithm and
#     simulator are installed into a temporary prefix, and the example
#     consumer is built from that prefix via find_package(flicker), via CMake's
#     pkg-config module and via a plain `c++ $(pkg-config ...)` command, and
#     each program is run.
# What mini-soong cannot check (vendor/arm64 properties, cc_test modules,
# cpp_std, shared_libs resolution in a real tree) is listed in
# docs/integration.md.
#
# Environment:
#   FLICKER_SKIP_APT=1            don't call apt-get (packages already there)
#   FLICKER_DEVICE_BUILD_DIR=DIR  CMake build folder (default: build-device)
#   FLICKER_DEVICE_BUILD_TYPE=T   CMake build type of the install check (default: Debug)
#   FLICKER_KEEP_SCRATCH=1        keep the scratch folder under /tmp
#
# Exit status: 0 when every check passed or was skipped because its part is
# not in the tree yet; 1 on any failure.
set -uo pipefail
cd "$(dirname "$0")/.."
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
skip() { results+=("SKIP  $1"); echo "-- SKIP: $1"; }
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

install_packages() {
  flicker_install_packages blueprint-tools mini-soong clang cmake ninja-build pkg-config dpkg-dev
}

have_sources() {  # have_sources <dir>: true when <dir> holds a .cpp file
  compgen -G "$root/$1/*.cpp" >/dev/null
}

# ---------------------------------------------------------------------------
section "packages"
if install_packages; then
  pass "packages present (bpfmt $(command -v bpfmt), mini-soong $(command -v mini-soong))"
else
  fail "installing blueprint-tools and mini-soong"
fi

# ---------------------------------------------------------------------------
section "Android.bp format (bpfmt -d)"
if ! command -v bpfmt >/dev/null; then
  fail "bpfmt not installed"
else
  diff_out=$(bpfmt -d Android.bp 2>&1)
  if [ $? -ne 0 ]; then
    echo "$diff_out"
    fail "bpfmt could not parse Android.bp"
  elif [ -n "$diff_out" ]; then
    echo "$diff_out"
    fail "Android.bp is not formatted as bpfmt wants (run: bpfmt -w Android.bp)"
  else
    pass "Android.bp formatted as bpfmt wants"
  fi
fi

# ---------------------------------------------------------------------------
section "Android.bp paths and source coverage"
# Debian's interpreter: mini-soong's parser is installed for it.
if /usr/bin/python3 - "$root" <<'EOF'; then
# Reads Android.bp with mini-soong's parser, resolves each module's defaults
# and checks the paths it names against the tree.
import glob, os, sys
from mini_soong.parser import soong
from mini_soong.model import Module

root = sys.argv[1]
os.chdir(root)
modules = {}
for item in soong.parseString(open("Android.bp").read(), parseAll=True):
    if isinstance(item, Module):
        modules[item.arguments["name"]] = (item.name, item.arguments)

def prop(name, key):
    """A list property of a module with its defaults' values in front."""
    _, args = modules[name]
    values = []
    for d in args.get("defaults", []):
        if d not in modules:
            raise SystemExit(f"{name}: unknown defaults {d}")
        values += prop(d, key)
    return values + list(args.get(key, []))

errors = []
covered = set()
for name, (kind, args) in modules.items():
    if kind.endswith("_defaults"):
        continue
    for src in prop(name, "srcs"):
        matches = glob.glob(src)
        if not matches and not any(c in src for c in "*?["):
            errors.append(f"{name}: source {src} does not exist")
        elif not matches:
            print(f"   note: {name}: glob {src} matches nothing yet")
        covered.update(os.path.normpath(m) for m in matches)
    for key in ("local_include_dirs", "export_include_dirs"):
        for d in prop(name, key):
            if not os.path.isdir(d):
                errors.append(f"{name}: {key} folder {d} does not exist")

# Library sources that must be in a module (tests, benchmarks and fuzz targets
# beside a unit are not library sources).
for folder in ("aaa/common/flicker", "aaa/common/flicker/platform", "algo",
               "camera_stack/device", "camera_stack/host"):
    for src in sorted(glob.glob(f"{folder}/*.cpp")):
        if src.endswith(("_test.cpp", "_bench.cpp", "_fuzz.cpp")):
            continue
        if os.path.normpath(src) not in covered:
            errors.append(f"{src} is in no Android.bp module")

# Unit tests that run on the device (against the fake, not the host platform)
# must be in a cc_test module, or they silently never run there.
device_tests = [t for t in glob.glob("tests/platform/*_test.cpp")
                if not os.path.basename(t).startswith("host_")]
for area in ("fake", "adapter", "manager", "algo"):
    device_tests += glob.glob(f"tests/{area}/*.cpp")
for src in sorted(device_tests):
    if os.path.normpath(src) not in covered:
        errors.append(f"{src} is in no cc_test module")

for e in errors:
    print("   " + e)
print(f"   {len(modules)} modules, {len(covered)} source files named")
sys.exit(1 if errors else 0)
EOF
  pass "every path in Android.bp exists; every library and device test source is listed"
else
  fail "Android.bp names missing paths or misses library sources"
fi

# ---------------------------------------------------------------------------
section "mini-soong host build of Android.bp"
ms="$scratch/mini-soong"
mkdir -p "$ms"
# mini-soong builds in the folder it runs in, with paths relative to it: give
# it a view of the tree so that nothing is written into the checkout.
for d in aaa algo camera_stack examples sim tests; do
  [ -e "$root/$d" ] && ln -s "$root/$d" "$ms/$d"
done
cp Android.bp "$ms/"
# Android's toolchain is clang; mini-soong drops -Werror and cpp_std and
# defaults to -std=c++11, so the language level and -Werror are given here.
# -Wl,--no-undefined is what the device linker enforces for shared libraries;
# -L. because mini-soong adds it only for libraries defined in Android.bp,
# and the stand-ins for the device's libraries are not.
make_vars=(CC=clang "CXXFLAGS=-std=c++17 -O2 -g" "CPPFLAGS=-Werror"
  "LDFLAGS=-L. -Wl,-z,relro -Wl,-z,noexecstack -Wl,--as-needed -Wl,--no-undefined")
ms_make() { (cd "$ms" && make -j1 "${make_vars[@]}" "$@"); }

if ! (cd "$ms" && logged "$ms/mini-soong.log" mini-soong Android.bp Makefile); then
  fail "mini-soong could not read Android.bp"
else
  grep -h "not yet supported" "$ms/mini-soong.log" | sed 's/^/   mini-soong: /'
  pass "mini-soong generated a Makefile from Android.bp"

  host_ok=0
  if ! have_sources camera_stack/host; then
    skip "libflicker_host_platform: camera_stack/host has no sources yet"
  elif logged "$ms/host.log" ms_make libflicker_host_platform.so; then
    pass "mini-soong: libflicker_host_platform built"
    host_ok=1
  else
    fail "mini-soong: libflicker_host_platform"
  fi

  algo_ok=0
  if ! have_sources algo; then
    skip "libflicker_open_algo: algo has no sources yet"
  elif logged "$ms/algo.log" ms_make libflicker_open_algo.so; then
    pass "mini-soong: libflicker_open_algo built"
    algo_ok=1
  else
    fail "mini-soong: libflicker_open_algo"
  fi

  if [ $host_ok = 1 ] && [ $algo_ok = 1 ]; then
    # The device's platform libraries, played by the host platform.
    for lib in libcamstack_utils libcamstack_nvram libcamstack_custom libcutils; do
      ln -sf libflicker_host_platform.so "$ms/$lib.so"
    done
    ln -sf libflicker_open_algo.so "$ms/libflicker_algo.so"
    if logged "$ms/mgr.log" ms_make libflicker_mgr.so; then
      pass "mini-soong: device module libflicker_mgr built and linked against the stand-ins"
      # mini-soong writes no variables for cc_binary modules, so the example
      # is linked here with the module's own flags.
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
    else
      fail "mini-soong: device module libflicker_mgr"
    fi
  else
    skip "libflicker_mgr under mini-soong needs the host platform and the open algorithm"
  fi
fi

# ---------------------------------------------------------------------------
section "CMake install and the example consumer"
prefix="$scratch/prefix"
install_targets=()
if logged "$scratch/configure.log" cmake -S . -B "$build_dir" -G Ninja \
  -DCMAKE_BUILD_TYPE="$build_type" -DFLICKER_SANITIZE= -DFLICKER_BUILD_TESTS=OFF \
  -DFLICKER_BUILD_TOOLS=OFF -DFLICKER_BUILD_BENCH=OFF -DFLICKER_BUILD_FUZZ=OFF; then
  for t in flicker_mgr flicker_zone_mains flicker_host_platform flicker_open_algo flicker_sim; do
    if grep -q "flicker install: $t not in this tree" "$scratch/configure.log"; then
      skip "install: $t not in the tree yet"
    else
      install_targets+=("$t")
    fi
  done
else
  fail "cmake configure of $build_dir"
fi

if [ ${#install_targets[@]} -gt 0 ]; then
  if logged "$scratch/build.log" cmake --build "$build_dir" -j "$jobs" \
       --target "${install_targets[@]}" &&
     logged "$scratch/install.log" cmake --install "$build_dir" --prefix "$prefix"; then
    pass "installed ${install_targets[*]} into a temporary prefix"
  else
    fail "CMake build or install"
    install_targets=()
  fi
fi

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

if [[ " ${install_targets[*]} " == *" flicker_host_platform "* &&
      " ${install_targets[*]} " == *" flicker_open_algo "* ]]; then
  c1="$scratch/consumer-find-package"
  if logged "$c1.log" cmake -S examples/consumer -B "$c1" -G Ninja \
       -DCMAKE_PREFIX_PATH="$prefix" &&
     logged "$c1.build.log" cmake --build "$c1"; then
    run_consumer "find_package(flicker) consumer" "$c1/flicker_consumer"
  else
    fail "example consumer via find_package(flicker)"
  fi

  c2="$scratch/consumer-pkg-config"
  if PKG_CONFIG_PATH="$prefix/lib/pkgconfig" logged "$c2.log" cmake -S examples/consumer \
       -B "$c2" -G Ninja -DFLICKER_CONSUMER_USE_PKGCONFIG=ON &&
     logged "$c2.build.log" cmake --build "$c2"; then
    run_consumer "pkg-config (CMake) consumer" "$c2/flicker_consumer"
  else
    fail "example consumer via CMake's pkg-config module"
  fi

  c3="$scratch/consumer-plain"
  flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs flicker)
  # shellcheck disable=SC2086  # the flags are a word list
  if logged "$c3.log" c++ -std=c++17 -Wall -Wextra -Werror examples/consumer/main.cpp \
       -o "$c3" $flags; then
    run_consumer "plain c++ \$(pkg-config --cflags --libs flicker) consumer" "$c3"
  else
    fail "example consumer via a plain pkg-config command line"
  fi
else
  skip "example consumer needs the host platform and the open algorithm installed"
fi

# ---------------------------------------------------------------------------
section "summary"
printf '%s\n' "${results[@]}"
exit $failed
