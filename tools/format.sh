#!/usr/bin/env bash
# Checks that the product sources are laid out as .clang-format says; `bash tools/format.sh --fix` rewrites them.
# Tests are left as their authors laid them out: their tables keep one row to a line, which the formatter breaks up.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files '*.c' '*.cc' '*.h' | grep -Ev '(^|/)(tests|testing|fuzz|e2e)/')
if [ "${1-}" = --fix ]; then
  clang-format -i "${files[@]}"
else
  clang-format --dry-run --Werror "${files[@]}"
fi
