#!/usr/bin/env bash
# Runs the twenty-sensor stress test for longer than the default test run
# does, under ThreadSanitizer (data races, lock-order inversions) and under
# AddressSanitizer with the leak checker, each with the deadlock watchdog.
# Usage: bash scripts/stress.sh [seconds per run]        (default: 120)
#
# Environment:
#   FLICKER_STRESS_SEED=N      fixed seed (default: time based, printed)
#   FLICKER_STRESS_STALL_SECONDS=N  watchdog limit (default: 60)
#   FLICKER_STRESS_JOBS=N      build jobs (default: 2)
#   FLICKER_STRESS_BUILDS="tsan asan"  which runs to make
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-120}
jobs=${FLICKER_STRESS_JOBS:-2}
builds=${FLICKER_STRESS_BUILDS:-"tsan asan"}
export FLICKER_STRESS_SECONDS=$seconds

run() {  # run <build dir> <sanitizers> <env...>
  local dir=$1 sanitize=$2
  shift 2
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DFLICKER_SANITIZE="$sanitize" >/dev/null
  cmake --build "$dir" -j "$jobs" --target flicker_stress_test
  local start=$(date +%s)
  env "$@" "$dir/tests/reliability/flicker_stress_test"
  echo "== $sanitize: $(( $(date +%s) - start )) s"
}

for b in $builds; do
  case $b in
    tsan)
      echo "== stress ${seconds} s under ThreadSanitizer"
      run build-stress-tsan thread \
        TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1"
      ;;
    asan)
      echo "== stress ${seconds} s under AddressSanitizer + leak checker"
      run build-stress-asan address,undefined \
        ASAN_OPTIONS="detect_leaks=1:abort_on_error=1" UBSAN_OPTIONS="print_stacktrace=1"
      ;;
    *) echo "unknown build: $b" >&2; exit 2 ;;
  esac
done
