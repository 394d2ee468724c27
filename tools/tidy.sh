#!/usr/bin/env bash
# clang-tidy with the checked-in .clang-tidy over the product's own sources (tests, fuzzers and tools excluded),
# using the compile commands of the given build folder. Prints only findings; fails when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/asan}
run-clang-tidy-14 -quiet -p "$build" -j "$(nproc)" \
  "$PWD/(platform|platform/linux|i18n|auth|update|service|app|app/cli)/[A-Za-z_]+\.cc$" 2>&1 |
  sed -E 's/\x1b\[[0-9;]*m//g' |
  grep -v -E '^(clang-tidy-14 |Enabled checks|Running clang-tidy|[0-9]+ warnings? generated|Suppressed [0-9]+ warnings|Use -header-filter)' |
  tee "$build/tidy.log" || true
if grep -q -E ': (error|warning):' "$build/tidy.log"; then
  echo "clang-tidy: findings above" >&2
  exit 1
fi
echo "clang-tidy: clean"
