#!/usr/bin/env bash
# Sets up a Debian 12 machine, builds, and runs every test:
#   1. the whole suite under AddressSanitizer and UBSan,
#   2. the concurrency tests under ThreadSanitizer,
#   3. every fuzz target for a short run (clang, libFuzzer),
#   4. clang-tidy over the product sources.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/bootstrap.sh
jobs=$(nproc)

stage() { printf '\n=== %s\n' "$*"; }

for preset in asan tsan fuzz; do
  stage "build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  stage "test: $preset"
  ctest --preset "$preset"
done

stage "clang-tidy"
bash tools/tidy.sh build/asan
