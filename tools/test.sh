#!/usr/bin/env bash
# Sets up a Debian 12 machine, builds, and runs every test:
#   1. the whole suite under AddressSanitizer and UBSan (clang),
#   2. the concurrency tests under ThreadSanitizer,
#   3. every fuzz target for a short run (libFuzzer, from the same clang tree as 1),
#   4. clang-tidy over the product sources, and their layout against .clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/bootstrap.sh
jobs=$(nproc)

stage() { printf '\n=== %s (at %d s)\n' "$*" "$SECONDS"; }

stage "format"
bash tools/format.sh

stage "build: asan (tests and fuzz targets)"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
stage "test: asan"
ctest --preset asan

# The ThreadSanitizer tree builds only the programs of the concurrency tests, as the asan tree lists them.
stage "build: tsan"
cmake --preset tsan >/dev/null
mapfile -t concurrency_programs < <(ctest --test-dir build/asan -L concurrency -N -V |
  sed -n 's/^[0-9]*: Test command: \([^ ]*\).*/\1/p' | xargs -n1 basename | sort -u)
cmake --build --preset tsan -j "$jobs" --target "${concurrency_programs[@]}"
# clang-tidy needs only the asan tree's compile commands. It runs beside the ThreadSanitizer tests, which mostly wait
# on one host process at a time, and the fuzz runs, which take a fixed time whatever CPU they get.
stage "test: tsan, with clang-tidy beside it"
bash tools/tidy.sh build/asan >build/asan/tidy.out 2>&1 &
tidy_pid=$!
trap 'kill "$tidy_pid" 2>/dev/null || true' EXIT
ctest --preset tsan

stage "fuzz"
ctest --preset fuzz

stage "clang-tidy"
tidy_status=0
wait "$tidy_pid" || tidy_status=$?
cat build/asan/tidy.out
[ "$tidy_status" -eq 0 ]
stage "all passed"
