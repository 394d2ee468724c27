#!/usr/bin/env bash
# Sets up a Debian 12 machine, builds, and runs every test: the whole suite under AddressSanitizer and UBSan,
# then the concurrency tests under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/bootstrap.sh

jobs=$(nproc)
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ctest --preset asan

cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
ctest --preset tsan
