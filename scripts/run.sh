#!/usr/bin/env bash
# Installs what the build needs, builds flicker-sim (Release, in build/), runs
# the default scenario closed-loop through the real manager and prints the
# frequency it locked to and where the picture went. Usage: bash scripts/run.sh
#
# Environment:
#   FLICKER_SKIP_APT=1   don't call apt-get (packages already there)
#   FLICKER_RUN_JOBS=N   parallel build jobs (default: nproc)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

jobs=${FLICKER_RUN_JOBS:-$(nproc)}
packages=(cmake ninja-build g++ libcli11-dev nlohmann-json3-dev)


flicker_install_packages "${packages[@]}"

echo "== configure and build flicker-sim (Release, build/)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DFLICKER_BUILD_TESTS=OFF >/dev/null
cmake --build build --target flicker-sim -j "$jobs"

echo "== run the default scenario (office-50hz, starting in the wrong 60 Hz state)"
mkdir -p out
picture=out/flicker-sim.svg
output=$(./build/tools/flicker-sim/flicker-sim run office-50hz --start_state 60 --plot "$picture")
# The first analysed pairs, then the summary.
head -n 10 <<<"$output"
echo "   ..."
grep -A1 '^locked' <<<"$output" | grep -v '^picture'
summary=$(grep '^locked' <<<"$output")
hz=$(sed -E 's/^locked ([0-9]+) Hz.*/\1/' <<<"$summary")
echo
echo "locked to ${hz} Hz; picture written to ${picture} (open it in a browser)"
