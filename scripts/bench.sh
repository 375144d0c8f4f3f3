#!/usr/bin/env bash
# Builds the benchmarks in Release and runs them, writing the console table
# and the JSON results under build-bench/results/. Usage: bash scripts/bench.sh
# [extra Google Benchmark flags, e.g. --benchmark_filter=DetectStep]
#
# Environment:
#   FLICKER_SKIP_APT=1     don't call apt-get (packages already there)
#   FLICKER_BENCH_JOBS=N   parallel build jobs (default: 2)
#   FLICKER_BENCH_REPS=N   repetitions of every benchmark (default: 3; the
#                          aggregates then include mean, median and stddev)
#   FLICKER_BENCH_CPU=N    run the benchmarks on CPU N only (taskset): on a
#                          virtual machine the CPUs may differ in speed
# The figures of BENCHMARKS.md come from this script on a quiet machine; the
# machine, compiler and load average of the run are written beside them.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

jobs=${FLICKER_BENCH_JOBS:-2}
reps=${FLICKER_BENCH_REPS:-3}
build=build-bench
out=$build/results
packages=(cmake ninja-build g++ libbenchmark-dev libgtest-dev libcli11-dev nlohmann-json3-dev)


flicker_install_packages "${packages[@]}"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFLICKER_BUILD_BENCH=ON \
  -DFLICKER_SANITIZE= >/dev/null
cmake --build "$build" -j "$jobs" --target flicker_bench flicker_alloc_test

mkdir -p "$out"
{
  echo "date: $(date -u +%Y-%m-%dT%H:%M:%SZ)"
  echo "commit: $(git rev-parse --short HEAD 2>/dev/null || echo unknown)"
  echo "cpu: $(lscpu | sed -n 's/^Model name: *//p')"
  echo "cores: $(nproc)"
  echo "compiler: $(c++ --version | head -n 1)"
  echo "build: Release ($(grep -m1 'CMAKE_CXX_FLAGS_RELEASE:' "$build/CMakeCache.txt" | cut -d= -f2))"
  echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
} | tee "$out/machine.txt"

# The library's log lines (e.g. the tuning check of the simulated sensors) go
# to stderr; keep them apart from the table.
pin=()
if [[ -n "${FLICKER_BENCH_CPU:-}" ]]; then
  pin=(taskset -c "$FLICKER_BENCH_CPU")
  echo "pinned to CPU: $FLICKER_BENCH_CPU" | tee -a "$out/machine.txt"
fi
"${pin[@]}" "$build/bench/flicker_bench" \
  --benchmark_repetitions="$reps" \
  --benchmark_out="$out/bench.json" --benchmark_out_format=json \
  "$@" 2>"$out/bench.log" | tee "$out/bench.txt"

echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)" | tee -a "$out/machine.txt"

echo "== allocation proof"
"$build/tests/alloc/flicker_alloc_test" 2>"$out/alloc.log" | tee "$out/alloc.txt" || true
echo "results in $out/"
