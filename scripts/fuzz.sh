#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) in build-fuzz and runs each for a while.
#
# Usage: bash scripts/fuzz.sh [seconds-per-target] [target ...]
#   seconds-per-target  default 10 (the CI form: about two minutes on 2 cores,
#                       build included)
#   target              e.g. api_sequence_fuzzer; default: every target built
#
# Each target starts from its committed seeds (fuzz/corpus/<name>/, read only)
# and keeps what it finds in build-fuzz/corpus/<name>/, so later runs go on
# from there. A crash, leak, sanitizer report, failed check or timeout writes
# the input to build-fuzz/artifacts/ and makes the script exit non-zero after
# all targets ran. Reproduce one with
#   build-fuzz/fuzz/<target> build-fuzz/artifacts/<target>-crash-<hash>
#
# Longer runs (before a release, or after touching a parser or the manager):
#   bash scripts/fuzz.sh 600                       # ten minutes per target
#   bash scripts/fuzz.sh 3600 api_sequence_fuzzer  # one target for an hour
# then copy the inputs worth keeping (a fixed crash, a new branch) into
# fuzz/corpus/<name>/ as regress-<what>.
#
# Environment:
#   FLICKER_FUZZ_JOBS=N   build jobs (default 2)
#   FLICKER_FUZZ_ARGS=... extra libFuzzer flags, e.g. "-max_len=4096"
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-10}
shift || true
build=build-fuzz
jobs=${FLICKER_FUZZ_JOBS:-2}

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFLICKER_SANITIZE=address,undefined -DFLICKER_BUILD_FUZZ=ON -DFLICKER_BUILD_TESTS=OFF \
  -DFLICKER_BUILD_BENCH=OFF -DFLICKER_BUILD_TOOLS=ON >/dev/null
# Keep going past a target that does not build: the others still run, and the
# script fails at the end.
targets=("$@")
build_failed=0
if ! cmake --build "$build" -j "$jobs" --target "${targets[@]:-flicker_fuzzers}" -- -k 0; then
  build_failed=1
  echo "some fuzz targets did not build; running the others" >&2
fi

if [ ${#targets[@]} -eq 0 ]; then
  for exe in "$build"/fuzz/*_fuzzer; do
    [ -x "$exe" ] && targets+=("$(basename "$exe")")
  done
fi

mkdir -p "$build/artifacts" "$build/logs"
failed=()
printf '%-24s %10s %8s %s\n' target executions seconds result
for target in "${targets[@]}"; do
  if [ ! -x "$build/fuzz/$target" ]; then
    printf '%-24s %10s %8s %s\n' "$target" - - "NOT BUILT"
    failed+=("$target")
    continue
  fi
  name=${target%_fuzzer}
  seeds=fuzz/corpus/$name
  work=$build/corpus/$name
  log=$build/logs/$target.log
  mkdir -p "$work" "$seeds"
  # -timeout: one input may take at most 10 s (worker threads are joined per
  # input, so a hang shows up here); -rss_limit_mb: leaks and runaway growth.
  # shellcheck disable=SC2086
  if "$build/fuzz/$target" "$work" "$seeds" -max_total_time="$seconds" -timeout=10 \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$build/artifacts/$target-" \
       ${FLICKER_FUZZ_ARGS:-} >"$log" 2>&1; then
    result=ok
  else
    result="FAILED (see $log)"
    failed+=("$target")
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  took=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -1)
  printf '%-24s %10s %8s %s\n' "$target" "${execs:-?}" "${took:-?}" "$result"
done

if [ $build_failed -ne 0 ]; then
  echo "the fuzz build failed (see above)" >&2
  exit 1
fi
if [ ${#failed[@]} -ne 0 ]; then
  echo "fuzzing found problems in: ${failed[*]}" >&2
  exit 1
fi
