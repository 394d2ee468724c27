#!/usr/bin/env bash
# Sets up a Debian 12 machine, builds everything and starts the application.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/bootstrap.sh
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$(nproc)"

app="build/dev/app/Orvistelle FCP Beauty.app/Contents/MacOS/Orvistelle FCP Beauty"
if [ ! -x "$app" ]; then
  echo "Built everything there is so far; the window is not part of this build yet."
  exit 0
fi
exec "$app"
